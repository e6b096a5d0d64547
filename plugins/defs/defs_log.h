// The logger of the definition plug-ins. Its name lies outside the library's
// "QZ.Repos.Vault" family, so that a host can watch the plug-in's reasons
// (why a file did not open, why a save failed) apart from the library's own
// events.
#ifndef QZVMD_DEFS_LOG_H_
#define QZVMD_DEFS_LOG_H_

#include "qzbase/log.h"

namespace qzvmd_defs {

constexpr const char kLoggerName[] = "QZ.Plugin.Defs";

inline QzLogger* defsLogger() { return qzlogGetLogger(kLoggerName); }

}  // namespace qzvmd_defs

// Logs on the plug-in's logger: DEFS_LOG(level, format, ...), where the format
// is qzbStringFormat's.
#define DEFS_LOG(level, ...)                                                 \
  do {                                                                       \
    QzLogger* defsLogger_ = ::qzvmd_defs::defsLogger();                      \
    if (defsLogger_ != nullptr && defsLogger_->isEnabled(level)) {           \
      defsLogger_->logEvent((level), QZ_SOURCE_FILE, __LINE__, __VA_ARGS__); \
    }                                                                        \
  } while (false)

#endif  // QZVMD_DEFS_LOG_H_
