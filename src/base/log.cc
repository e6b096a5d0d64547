// Named loggers and sinks. Loggers live for the process; the registry is never
// destroyed, so that logging from static destructors stays safe.
#include "qzbase/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "qzbase/path.h"

namespace {

// No sink wants any level at or above this: logging is off.
constexpr int kLoggingOff = 1000;

struct SinkEntry {
  QzLogSink* sink;
  int minLevel;
  std::string prefix;
};

bool prefixMatches(const std::string& prefix, const char* logger) {
  if (prefix.empty()) return true;
  const std::size_t n = prefix.size();
  if (std::strncmp(logger, prefix.c_str(), n) != 0) return false;
  return logger[n] == '\0' || logger[n] == '.';
}

}  // namespace

class QzLoggerRegistry {
 public:
  static QzLoggerRegistry& instance() {
    static QzLoggerRegistry* registry = new QzLoggerRegistry();
    return *registry;
  }

  QzLogger* get(const char* name) {
    std::lock_guard<std::mutex> guard(loggersMutex_);
    auto it = loggers_.find(name);
    if (it != loggers_.end()) return it->second;
    QzLogger* logger = new QzLogger(name);
    loggers_.emplace(name, logger);
    return logger;
  }

  void addSink(QzLogSink* sink, int minLevel, const char* prefix) {
    std::lock_guard<std::recursive_mutex> guard(sinksMutex_);
    for (SinkEntry& entry : sinks_) {
      if (entry.sink == sink) {
        entry.minLevel = minLevel;
        entry.prefix = prefix == nullptr ? "" : prefix;
        recomputeMinimum();
        return;
      }
    }
    sinks_.push_back(SinkEntry{sink, minLevel, prefix == nullptr ? "" : prefix});
    recomputeMinimum();
  }

  void removeSink(QzLogSink* sink) {
    std::lock_guard<std::recursive_mutex> guard(sinksMutex_);
    for (auto it = sinks_.begin(); it != sinks_.end(); ++it) {
      if (it->sink == sink) {
        sinks_.erase(it);
        break;
      }
    }
    recomputeMinimum();
  }

  bool wants(const char* logger, int level) {
    if (level < minimumLevel_.load(std::memory_order_relaxed)) return false;
    std::lock_guard<std::recursive_mutex> guard(sinksMutex_);
    for (const SinkEntry& entry : sinks_) {
      if (level >= entry.minLevel && prefixMatches(entry.prefix, logger)) return true;
    }
    return false;
  }

  bool anyoneAt(int level) const {
    return level >= minimumLevel_.load(std::memory_order_relaxed);
  }

  // Sinks are called under the recursive sink lock, so that a sink detached by
  // another thread is never called after qzlogRemoveSink has returned; a sink
  // may log or detach itself from its own callback.
  void dispatch(const QzLogEvent& event) {
    std::lock_guard<std::recursive_mutex> guard(sinksMutex_);
    const std::vector<SinkEntry> snapshot = sinks_;
    for (const SinkEntry& entry : snapshot) {
      if (event.level >= entry.minLevel && prefixMatches(entry.prefix, event.logger)) {
        entry.sink->onLogEvent(event);
      }
    }
  }

 private:
  QzLoggerRegistry() : minimumLevel_(kLoggingOff) {}

  void recomputeMinimum() {
    int minimum = kLoggingOff;
    for (const SinkEntry& entry : sinks_) {
      if (entry.minLevel < minimum) minimum = entry.minLevel;
    }
    minimumLevel_.store(minimum, std::memory_order_relaxed);
  }

  std::mutex loggersMutex_;
  std::map<std::string, QzLogger*> loggers_;
  std::recursive_mutex sinksMutex_;
  std::vector<SinkEntry> sinks_;
  std::atomic<int> minimumLevel_;
};

QzLogSink::~QzLogSink() = default;

QzLogger::QzLogger(const char* name) : name_(strdup(name)) {}
QzLogger::~QzLogger() { std::free(name_); }

const char* QzLogger::getName() const { return name_; }

bool QzLogger::isEnabled(int level) const {
  return QzLoggerRegistry::instance().wants(name_, level);
}

void QzLogger::logEvent(int level, const char* file, int line, const char* format, ...) {
  QzLoggerRegistry& registry = QzLoggerRegistry::instance();
  if (!registry.anyoneAt(level) || !registry.wants(name_, level)) return;
  va_list args;
  va_start(args, format);
  const QzbString text = qzbStringFormatV(format, args);
  va_end(args);
  const QzLogEvent event{name_, level, file == nullptr ? "" : file, line, text.asCstr()};
  registry.dispatch(event);
}

void QzLogger::logText(int level, const char* file, int line, const char* text) {
  QzLoggerRegistry& registry = QzLoggerRegistry::instance();
  if (!registry.anyoneAt(level) || !registry.wants(name_, level)) return;
  const QzLogEvent event{name_, level, file == nullptr ? "" : file, line,
                         text == nullptr ? "" : text};
  registry.dispatch(event);
}

QzLogger* qzlogGetLogger(const char* name) {
  if (name == nullptr || *name == '\0') return nullptr;
  return QzLoggerRegistry::instance().get(name);
}

void qzlogAddSink(QzLogSink* sink, int minLevel, const char* loggerPrefix) {
  if (sink == nullptr) return;
  QzLoggerRegistry::instance().addSink(sink, minLevel, loggerPrefix);
}

void qzlogRemoveSink(QzLogSink* sink) {
  if (sink == nullptr) return;
  QzLoggerRegistry::instance().removeSink(sink);
}

const char* qzlogLevelName(int level) {
  switch (level) {
    case QZLOG_TRACE:
      return "TRACE";
    case QZLOG_DEBUG:
      return "DEBUG";
    case QZLOG_INFO:
      return "INFO";
    case QZLOG_WARN:
      return "WARN";
    case QZLOG_ERROR:
      return "ERROR";
    case QZLOG_FATAL:
      return "FATAL";
    default:
      break;
  }
  static thread_local char buffer[32];
  std::snprintf(buffer, sizeof buffer, "LEVEL%d", level);
  return buffer;
}

QzLogStreamSink::QzLogStreamSink(FILE* stream) : stream_(stream) {}

void QzLogStreamSink::onLogEvent(const QzLogEvent& event) {
  if (stream_ == nullptr) return;
  std::fprintf(stream_, "%s %s %s:%d %s\n", qzlogLevelName(event.level), event.logger,
               event.file, event.line, event.text);
  std::fflush(stream_);
}
