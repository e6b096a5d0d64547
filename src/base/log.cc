// Named loggers and sinks. Loggers live for the process; the registry is never
// destroyed, so that logging from static destructors stays safe.
#include "qzbase/log.h"

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qzbase/path.h"

namespace {

// No sink wants any level at or above this: logging is off.
constexpr int kLoggingOff = 1000;

// One attached sink. Fields are guarded by the registry's mutex.
struct SinkEntry {
  QzLogSink* sink;
  int minLevel;
  std::string prefix;
  int activeCalls = 0;   // dispatches that have chosen this sink and not finished
  bool removed = false;  // detached: not to be called any more
};
using SinkEntryPtr = std::shared_ptr<SinkEntry>;

// The sink calls this thread is inside of, innermost first, so that a sink may
// detach itself from its own callback without waiting for itself. The frames
// live on the stack and the thread-local head is a plain pointer, which needs
// no destructor and so stays usable from static destructors.
struct SinkCallFrame {
  const SinkEntry* entry;
  SinkCallFrame* next;
};
thread_local SinkCallFrame* t_sinkCalls = nullptr;

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
    std::lock_guard<std::mutex> guard(sinksMutex_);
    for (const SinkEntryPtr& entry : sinks_) {
      if (entry->sink == sink) {
        entry->minLevel = minLevel;
        entry->prefix = prefix == nullptr ? "" : prefix;
        recomputeMinimum();
        return;
      }
    }
    SinkEntryPtr entry = std::make_shared<SinkEntry>();
    entry->sink = sink;
    entry->minLevel = minLevel;
    entry->prefix = prefix == nullptr ? "" : prefix;
    sinks_.push_back(std::move(entry));
    recomputeMinimum();
  }

  // Returns once no other thread is inside the sink any more, so that the
  // caller may destroy it. Calls of the sink on this thread (a sink detaching
  // itself from its callback) are not waited for.
  void removeSink(QzLogSink* sink) {
    std::unique_lock<std::mutex> lock(sinksMutex_);
    SinkEntryPtr entry;
    for (auto it = sinks_.begin(); it != sinks_.end(); ++it) {
      if ((*it)->sink == sink) {
        entry = *it;
        sinks_.erase(it);
        break;
      }
    }
    if (!entry) return;
    entry->removed = true;
    recomputeMinimum();
    int ownCalls = 0;
    for (const SinkCallFrame* frame = t_sinkCalls; frame != nullptr; frame = frame->next) {
      if (frame->entry == entry.get()) ++ownCalls;
    }
    callsDone_.wait(lock, [&] { return entry->activeCalls <= ownCalls; });
  }

  bool wants(const char* logger, int level) {
    if (level < minimumLevel_.load(std::memory_order_relaxed)) return false;
    std::lock_guard<std::mutex> guard(sinksMutex_);
    for (const SinkEntryPtr& entry : sinks_) {
      if (level >= entry->minLevel && prefixMatches(entry->prefix, logger)) return true;
    }
    return false;
  }

  bool anyoneAt(int level) const {
    return level >= minimumLevel_.load(std::memory_order_relaxed);
  }

  // Sinks are called with no lock of ours held, so that a sink may log, attach
  // or detach sinks, or wait for another thread that logs. A sink detached by
  // another thread meanwhile is skipped; qzlogRemoveSink waits for the calls
  // already under way. An exception thrown by a sink is swallowed: logging
  // never fails the operation that logs.
  void dispatch(const QzLogEvent& event) {
    std::vector<SinkEntryPtr> targets;
    {
      std::lock_guard<std::mutex> guard(sinksMutex_);
      for (const SinkEntryPtr& entry : sinks_) {
        if (event.level >= entry->minLevel && prefixMatches(entry->prefix, event.logger)) {
          ++entry->activeCalls;
          targets.push_back(entry);
        }
      }
    }
    for (const SinkEntryPtr& entry : targets) {
      bool removed;
      {
        std::lock_guard<std::mutex> guard(sinksMutex_);
        removed = entry->removed;
      }
      if (!removed) {
        SinkCallFrame frame{entry.get(), t_sinkCalls};
        t_sinkCalls = &frame;
        try {
          entry->sink->onLogEvent(event);
        } catch (...) {
        }
        t_sinkCalls = frame.next;
      }
      {
        std::lock_guard<std::mutex> guard(sinksMutex_);
        --entry->activeCalls;
      }
      callsDone_.notify_all();
    }
  }

 private:
  QzLoggerRegistry() : minimumLevel_(kLoggingOff) {}

  void recomputeMinimum() {
    int minimum = kLoggingOff;
    for (const SinkEntryPtr& entry : sinks_) {
      if (entry->minLevel < minimum) minimum = entry->minLevel;
    }
    minimumLevel_.store(minimum, std::memory_order_relaxed);
  }

  std::mutex loggersMutex_;
  std::map<std::string, QzLogger*> loggers_;
  std::mutex sinksMutex_;
  std::condition_variable callsDone_;
  std::vector<SinkEntryPtr> sinks_;
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
