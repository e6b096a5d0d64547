// Tests of named loggers and sinks: what a sink receives, level and logger
// prefix filters, attaching and detaching, sinks that log or detach from
// their own callback, and the stream sink.
#include "qzbase/log.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/string.h"

namespace {

// Records every event it receives; attached with the given filter for the
// lifetime of the object.
class Recorder : public QzLogSink {
 public:
  Recorder(int minLevel, const char* prefix) { qzlogAddSink(this, minLevel, prefix); }
  ~Recorder() override { qzlogRemoveSink(this); }

  struct Event {
    std::string logger;
    int level;
    std::string file;
    int line;
    std::string text;
  };

  void onLogEvent(const QzLogEvent& event) override {
    std::lock_guard<std::mutex> guard(mutex_);
    events_.push_back(Event{event.logger, event.level, event.file, event.line, event.text});
  }

  std::vector<Event> events() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return events_;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> out;
    for (const Event& e : events()) out.push_back(e.text);
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Event> events_;
};

using Texts = std::vector<std::string>;

TEST(Log, GetLoggerByName) {
  QzLogger* vault = qzlogGetLogger("QZ.Repos.Vault");
  ASSERT_NE(nullptr, vault);
  EXPECT_STREQ("QZ.Repos.Vault", vault->getName());
  EXPECT_EQ(vault, qzlogGetLogger("QZ.Repos.Vault"));
  EXPECT_NE(vault, qzlogGetLogger("QZ.Repos.Vault.Lineage"));
}

TEST(Log, NullAndEmptyLoggerNamesGiveNull) {
  EXPECT_EQ(nullptr, qzlogGetLogger(nullptr));
  EXPECT_EQ(nullptr, qzlogGetLogger(""));
}

TEST(Log, SinkGetsLevelLoggerFileLineAndText) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Fields");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Fields");
  const QzbString folder("jobs");
  const int line = __LINE__ + 1;
  logger->logEvent(QZLOG_ERROR, QZ_SOURCE_FILE, line, "Directory %S not found (%d)", &folder, 3);
  const std::vector<Recorder::Event> events = recorder.events();
  ASSERT_EQ(1u, events.size());
  EXPECT_EQ("QZ.Test.Fields", events[0].logger);
  EXPECT_EQ(QZLOG_ERROR, events[0].level);
  EXPECT_EQ("log_test.cc", events[0].file);
  EXPECT_EQ(line, events[0].line);
  EXPECT_EQ("Directory jobs not found (3)", events[0].text);
}

TEST(Log, NullFileAndFormatGiveEmptyTexts) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Nulls");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Nulls");
  logger->logEvent(QZLOG_INFO, nullptr, 7, nullptr);
  logger->logText(QZLOG_INFO, nullptr, 8, nullptr);
  const std::vector<Recorder::Event> events = recorder.events();
  ASSERT_EQ(2u, events.size());
  EXPECT_EQ("", events[0].file);
  EXPECT_EQ("", events[0].text);
  EXPECT_EQ(7, events[0].line);
  EXPECT_EQ("", events[1].text);
}

TEST(Log, LogTextIsNotAFormat) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Text");
  qzlogGetLogger("QZ.Test.Text")->logText(QZLOG_WARN, QZ_SOURCE_FILE, __LINE__, "100% %d %S");
  EXPECT_EQ(Texts{"100% %d %S"}, recorder.texts());
}

TEST(Log, LevelFilter) {
  Recorder recorder(QZLOG_WARN, "QZ.Test.Levels");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Levels");
  for (int level = QZLOG_TRACE; level <= QZLOG_FATAL; ++level) {
    logger->logEvent(level, QZ_SOURCE_FILE, __LINE__, "level %d", level);
  }
  EXPECT_EQ((Texts{"level 4", "level 5", "level 6"}), recorder.texts());
  EXPECT_FALSE(logger->isEnabled(QZLOG_INFO));
  EXPECT_TRUE(logger->isEnabled(QZLOG_WARN));
  EXPECT_TRUE(logger->isEnabled(QZLOG_FATAL));
}

TEST(Log, NothingReachesASinkBelowItsLevel) {
  Recorder errors(QZLOG_ERROR, "QZ.Test.Below");
  Recorder everything(QZLOG_TRACE, "QZ.Test.Below");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Below");
  logger->logEvent(QZLOG_TRACE, QZ_SOURCE_FILE, __LINE__, "Entering getFolderList on folder \"%s\".", "a");
  logger->logEvent(QZLOG_DEBUG, QZ_SOURCE_FILE, __LINE__, "diagnostic");
  logger->logText(QZLOG_WARN, QZ_SOURCE_FILE, __LINE__, "refusal");
  EXPECT_TRUE(errors.events().empty());
  EXPECT_EQ((Texts{"Entering getFolderList on folder \"a\".", "diagnostic", "refusal"}),
            everything.texts());
}

TEST(Log, PrefixFilterMatchesWholeNameComponents) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Prefix");
  const char* names[] = {"QZ.Test.Prefix", "QZ.Test.Prefix.Child", "QZ.Test.Prefix.Child.Leaf",
                         "QZ.Test.PrefixOther", "QZ.Test", "QZ.Test.Pre"};
  for (const char* name : names) {
    qzlogGetLogger(name)->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, name);
  }
  EXPECT_EQ((Texts{"QZ.Test.Prefix", "QZ.Test.Prefix.Child", "QZ.Test.Prefix.Child.Leaf"}),
            recorder.texts());
  EXPECT_FALSE(qzlogGetLogger("QZ.Test.PrefixOther")->isEnabled(QZLOG_FATAL));
}

TEST(Log, NullOrEmptyPrefixMeansEveryLogger) {
  Recorder all(QZLOG_FATAL, nullptr);
  Recorder allToo(QZLOG_FATAL, "");
  qzlogGetLogger("QZ.Test.Any.One")->logText(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "one");
  qzlogGetLogger("Elsewhere")->logText(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "two");
  EXPECT_EQ((Texts{"one", "two"}), all.texts());
  EXPECT_EQ((Texts{"one", "two"}), allToo.texts());
}

TEST(Log, RemovedSinkGetsNothing) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Remove");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Remove");
  logger->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "before");
  qzlogRemoveSink(&recorder);
  logger->logText(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "after");
  EXPECT_EQ(Texts{"before"}, recorder.texts());
  EXPECT_FALSE(logger->isEnabled(QZLOG_FATAL));
  qzlogRemoveSink(&recorder);  // removing twice is harmless
  qzlogRemoveSink(nullptr);
  qzlogAddSink(nullptr, QZLOG_TRACE, nullptr);  // ignored
  logger->logText(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "still nothing");
  EXPECT_EQ(Texts{"before"}, recorder.texts());
}

TEST(Log, AttachingAgainReplacesSettings) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Again");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Again");
  qzlogAddSink(&recorder, QZLOG_ERROR, "QZ.Test.Again");
  logger->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "info");
  logger->logText(QZLOG_ERROR, QZ_SOURCE_FILE, __LINE__, "error");
  // One attachment only: the error arrives once.
  EXPECT_EQ(Texts{"error"}, recorder.texts());
  qzlogAddSink(&recorder, QZLOG_TRACE, "QZ.Test.Other");
  logger->logText(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "not for the new prefix");
  EXPECT_EQ(Texts{"error"}, recorder.texts());
}

TEST(Log, NoSinkNoEvent) {
  QzLogger* logger = qzlogGetLogger("QZ.Test.Silent");
  EXPECT_FALSE(logger->isEnabled(QZLOG_FATAL));
  logger->logEvent(QZLOG_FATAL, QZ_SOURCE_FILE, __LINE__, "nobody listens %d", 1);
  Recorder late(QZLOG_TRACE, "QZ.Test.Silent");
  EXPECT_TRUE(late.events().empty());
}

// Logs a second event from inside its callback for the first one.
class EchoSink : public QzLogSink {
 public:
  void onLogEvent(const QzLogEvent& event) override {
    texts.push_back(std::string(event.logger) + ": " + event.text);
    if (std::string(event.logger) == "QZ.Test.Echo.Outer") {
      qzlogGetLogger("QZ.Test.Echo.Inner")
          ->logEvent(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "echo of %s", event.text);
    }
  }
  std::vector<std::string> texts;
};

TEST(Log, SinkMayLogFromItsCallback) {
  EchoSink sink;
  qzlogAddSink(&sink, QZLOG_TRACE, "QZ.Test.Echo");
  qzlogGetLogger("QZ.Test.Echo.Outer")->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "ping");
  qzlogRemoveSink(&sink);
  EXPECT_EQ((Texts{"QZ.Test.Echo.Outer: ping", "QZ.Test.Echo.Inner: echo of ping"}), sink.texts);
}

// Detaches itself on the first event.
class OneShotSink : public QzLogSink {
 public:
  void onLogEvent(const QzLogEvent& event) override {
    texts.push_back(event.text);
    qzlogRemoveSink(this);
  }
  std::vector<std::string> texts;
};

TEST(Log, SinkMayDetachItselfFromItsCallback) {
  OneShotSink sink;
  qzlogAddSink(&sink, QZLOG_TRACE, "QZ.Test.OneShot");
  QzLogger* logger = qzlogGetLogger("QZ.Test.OneShot");
  logger->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "first");
  logger->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "second");
  EXPECT_EQ(Texts{"first"}, sink.texts);
}

// Waits in its callback for another thread that logs: this must not block,
// since sinks are called under no lock of the logging layer.
class WaitingSink : public QzLogSink {
 public:
  void onLogEvent(const QzLogEvent& event) override {
    texts.push_back(event.text);
    if (std::string(event.text) == "outer") {
      std::thread other([] {
        qzlogGetLogger("QZ.Test.Waiting")->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "other");
      });
      other.join();
    }
  }
  std::vector<std::string> texts;  // appended by one thread at a time
};

TEST(Log, SinkMayWaitForAnotherThreadThatLogs) {
  WaitingSink sink;
  qzlogAddSink(&sink, QZLOG_TRACE, "QZ.Test.Waiting");
  qzlogGetLogger("QZ.Test.Waiting")->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "outer");
  qzlogRemoveSink(&sink);
  EXPECT_EQ((Texts{"outer", "other"}), sink.texts);
}

// Notes whether it was ever called after its removal had returned.
class LateCallDetector : public QzLogSink {
 public:
  void onLogEvent(const QzLogEvent&) override {
    if (removalReturned.load()) calledLate = true;
    calls.fetch_add(1);
    std::this_thread::yield();
    if (removalReturned.load()) calledLate = true;
  }
  std::atomic<bool> removalReturned{false};
  std::atomic<bool> calledLate{false};
  std::atomic<int> calls{0};
};

TEST(Log, NoSinkCallAfterRemovalReturns) {
  LateCallDetector sink;
  qzlogAddSink(&sink, QZLOG_TRACE, "QZ.Test.Late");
  std::atomic<bool> stop{false};
  std::vector<std::thread> loggers;
  for (int t = 0; t < 3; ++t) {
    loggers.emplace_back([&stop] {
      QzLogger* logger = qzlogGetLogger("QZ.Test.Late");
      while (!stop.load()) logger->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "busy");
    });
  }
  while (sink.calls.load() < 100) std::this_thread::yield();
  qzlogRemoveSink(&sink);
  sink.removalReturned = true;
  const int callsAtRemoval = sink.calls.load();
  for (int i = 0; i < 1000; ++i) std::this_thread::yield();
  stop = true;
  for (std::thread& thread : loggers) thread.join();
  EXPECT_FALSE(sink.calledLate.load());
  EXPECT_EQ(callsAtRemoval, sink.calls.load());
}

TEST(Log, ManyThreadsLogConcurrently) {
  Recorder recorder(QZLOG_TRACE, "QZ.Test.Threads");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      QzLogger* logger = qzlogGetLogger("QZ.Test.Threads");
      for (int i = 0; i < 250; ++i) {
        logger->logEvent(QZLOG_DEBUG, QZ_SOURCE_FILE, __LINE__, "thread %d event %d", t, i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(1000u, recorder.events().size());
}

TEST(Log, LevelNames) {
  EXPECT_STREQ("TRACE", qzlogLevelName(1));
  EXPECT_STREQ("DEBUG", qzlogLevelName(2));
  EXPECT_STREQ("INFO", qzlogLevelName(3));
  EXPECT_STREQ("WARN", qzlogLevelName(4));
  EXPECT_STREQ("ERROR", qzlogLevelName(5));
  EXPECT_STREQ("FATAL", qzlogLevelName(6));
  EXPECT_STREQ("LEVEL0", qzlogLevelName(0));
  EXPECT_STREQ("LEVEL9", qzlogLevelName(9));
  EXPECT_STREQ("LEVEL-1", qzlogLevelName(-1));
}

std::string contentsOf(FILE* file) {
  std::string out;
  std::rewind(file);
  char buffer[256];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) out.append(buffer, n);
  return out;
}

TEST(Log, StreamSinkWritesOneLinePerEvent) {
  FILE* file = std::tmpfile();
  ASSERT_NE(nullptr, file);
  QzLogStreamSink sink(file);
  qzlogAddSink(&sink, QZLOG_WARN, "QZ.Test.Stream");
  QzLogger* logger = qzlogGetLogger("QZ.Test.Stream");
  const QzbString name("report");
  logger->logEvent(QZLOG_ERROR, "folder.cc", 120, "Cannot open %S", &name);
  logger->logEvent(QZLOG_INFO, "folder.cc", 121, "below the sink's level");
  logger->logText(QZLOG_WARN, "object.cc", 7, "read-only");
  logger->logText(9, "object.cc", 8, "odd level");
  qzlogRemoveSink(&sink);
  EXPECT_EQ(
      "ERROR QZ.Test.Stream folder.cc:120 Cannot open report\n"
      "WARN QZ.Test.Stream object.cc:7 read-only\n"
      "LEVEL9 QZ.Test.Stream object.cc:8 odd level\n",
      contentsOf(file));
  std::fclose(file);
}

TEST(Log, StreamSinkWithoutStreamIsHarmless) {
  QzLogStreamSink sink(nullptr);
  qzlogAddSink(&sink, QZLOG_TRACE, "QZ.Test.NoStream");
  Recorder recorder(QZLOG_TRACE, "QZ.Test.NoStream");
  qzlogGetLogger("QZ.Test.NoStream")->logText(QZLOG_INFO, QZ_SOURCE_FILE, __LINE__, "dropped");
  qzlogRemoveSink(&sink);
  // The other sink still got the event: nothing went wrong on the way.
  EXPECT_EQ(Texts{"dropped"}, recorder.texts());
}

}  // namespace
