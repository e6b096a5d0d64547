// The library's loggers and its diagnostic call.
//
// qzviDebugLog(text) writes `text` at level 2 on "QZ.Repos.Vault", carrying the
// caller's source file and line. The QZVI_LOG macro formats like printf (with
// "%S" for a const QzbString*) and logs on any logger, also with the caller's
// file and line.
#ifndef QZVAULT_SRC_STORE_DEBUG_LOG_H_
#define QZVAULT_SRC_STORE_DEBUG_LOG_H_

#include "qzbase/export.h"
#include "qzbase/log.h"
#include "qzbase/string.h"

#define QZVI_LOGGER_VAULT "QZ.Repos.Vault"
#define QZVI_LOGGER_MDHELPER "QZ.Repos.Vault.MDHelper"
#define QZVI_LOGGER_LINEAGE "QZ.Repos.Vault.Lineage"

// The three loggers (never null).
QzLogger* qzviVaultLogger();
QzLogger* qzviMDHelperLogger();
QzLogger* qzviLineageLogger();

void qzviDebugLogAt(const char* file, int line, const QzbString& text);
#define qzviDebugLog(text) qzviDebugLogAt(QZ_SOURCE_FILE, __LINE__, (text))

// QZVI_LOG(logger, level, format, ...): a null logger is ignored.
#define QZVI_LOG(logger, level, ...)                                    \
  do {                                                                  \
    QzLogger* qzvi_logger_ = (logger);                                  \
    if (qzvi_logger_ != nullptr && qzvi_logger_->isEnabled(level)) {    \
      qzvi_logger_->logEvent((level), QZ_SOURCE_FILE, __LINE__, __VA_ARGS__); \
    }                                                                   \
  } while (0)

// Logs a ready text (never read as a format).
#define QZVI_LOG_TEXT(logger, level, text)                                       \
  do {                                                                           \
    QzLogger* qzvi_logger_ = (logger);                                           \
    if (qzvi_logger_ != nullptr) {                                               \
      qzvi_logger_->logText((level), QZ_SOURCE_FILE, __LINE__, (text));          \
    }                                                                            \
  } while (0)

#endif  // QZVAULT_SRC_STORE_DEBUG_LOG_H_
