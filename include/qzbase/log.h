// Named loggers and the sinks that receive their events.
//
// Every event carries the logger's name, a numeric level, the source file
// (leaf name) and line of the call, and a text. Levels: 1 trace (entering and
// exiting operations, lifecycle), 2 debug (diagnostics), 3 info, 4 warning
// (refusals for access or read-only state), 5 error, 6 fatal. Nothing is
// printed unless a sink is attached: hosts and tests attach sinks in code; the
// command-line tool attaches a stream sink at the level an operator chooses.
// When no sink wants an event it costs a look at one atomic value, and the
// text is not formatted.
//
// Thread safety: every function is safe to call from several threads. Sinks
// are called on the logging thread, under no lock of the library's.
#ifndef QZBASE_LOG_H_
#define QZBASE_LOG_H_

#include <cstdio>

#include "qzbase/export.h"

enum QzLogLevel {
  QZLOG_TRACE = 1,
  QZLOG_DEBUG = 2,
  QZLOG_INFO = 3,
  QZLOG_WARN = 4,
  QZLOG_ERROR = 5,
  QZLOG_FATAL = 6,
};

// One event, valid for the duration of the sink call only.
struct QzLogEvent {
  const char* logger;  // the logger's name
  int level;
  const char* file;    // source file leaf name
  int line;
  const char* text;
};

class QZBASE_EXPORT QzLogSink {
 public:
  virtual ~QzLogSink();
  virtual void onLogEvent(const QzLogEvent& event) = 0;
};

class QZBASE_EXPORT QzLogger {
 public:
  const char* getName() const;
  // True when some attached sink wants events of this level from this logger.
  bool isEnabled(int level) const;
  // Formats with qzbStringFormat (so "%S" takes a const QzbString*) and hands
  // the event to every sink that wants it.
  void logEvent(int level, const char* file, int line, const char* format, ...);
  // The same with a ready text (never interpreted as a format).
  void logText(int level, const char* file, int line, const char* text);

  QzLogger(const QzLogger&) = delete;
  QzLogger& operator=(const QzLogger&) = delete;

 private:
  friend class QzLoggerRegistry;
  explicit QzLogger(const char* name);
  ~QzLogger();
  char* name_;
};

// The logger of that name, made on first use and alive for the process; null
// for a null or empty name.
QZBASE_EXPORT QzLogger* qzlogGetLogger(const char* name);

// Attaches `sink` for events of `minLevel` and above from loggers whose name
// equals `loggerPrefix` or begins with it followed by "." (all loggers when
// the prefix is null or empty). The sink stays owned by the caller, who
// detaches it before destroying it. Attaching a sink twice replaces its
// settings.
QZBASE_EXPORT void qzlogAddSink(QzLogSink* sink, int minLevel, const char* loggerPrefix = nullptr);
QZBASE_EXPORT void qzlogRemoveSink(QzLogSink* sink);

// "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", or "LEVEL<n>".
QZBASE_EXPORT const char* qzlogLevelName(int level);

// A sink that writes "LEVEL logger file:line text" lines to a stdio stream
// (not owned, not closed).
class QZBASE_EXPORT QzLogStreamSink : public QzLogSink {
 public:
  explicit QzLogStreamSink(FILE* stream);
  void onLogEvent(const QzLogEvent& event) override;

 private:
  FILE* stream_;
};

#endif  // QZBASE_LOG_H_
