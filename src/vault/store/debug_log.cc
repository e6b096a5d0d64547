// The library's three loggers and its diagnostic call.
#include "debug_log.h"

QzLogger* qzviVaultLogger() {
  // Loggers live for the process once made, so the pointer can be kept.
  static QzLogger* const logger = qzlogGetLogger(QZVI_LOGGER_VAULT);
  return logger;
}

QzLogger* qzviMDHelperLogger() {
  static QzLogger* const logger = qzlogGetLogger(QZVI_LOGGER_MDHELPER);
  return logger;
}

QzLogger* qzviLineageLogger() {
  static QzLogger* const logger = qzlogGetLogger(QZVI_LOGGER_LINEAGE);
  return logger;
}

void qzviDebugLogAt(const char* file, int line, const QzbString& text) {
  // The text is logged as it is: diagnostics often carry paths and SQL that
  // hold "%" signs, which must not be read as a format.
  qzviVaultLogger()->logText(QZLOG_DEBUG, file, line, text.asCstr());
}
