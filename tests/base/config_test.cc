// Tests of the configuration store: options set in code, named stores,
// key=value files, and the operator's file named by QZ_CONFIG_FILE.
//
// The default store is made once per process, and the operator's file is read
// when that happens. Every test that touches the default store therefore runs
// in a forked child (which reports its verdict through its exit status), and
// no test in this file uses the default store in the parent process.
#include "qzbase/config.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

// A named store of its own for one test, emptied first.
QzbConfigOptions* freshStore(const char* name) {
  QzbConfigOptions* store = qzbGetConfigOptions(name);
  store->clear();
  return store;
}

std::string valueOf(const QzbConfigOptions* store, const char* key) {
  QzbString value;
  if (!store->getOption(QzbString(key), &value, 0)) return "<absent>";
  return value.toStdString();
}

// Runs `body` in a forked child and returns its exit status (0 = passed).
// The child prints what went wrong to stderr before it exits.
int runInChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    const int verdict = body();
    std::fflush(nullptr);
    _exit(verdict);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -2;
  if (!WIFEXITED(status)) return -3;
  return WEXITSTATUS(status);
}

// For use in a child: prints the failure and gives the line as exit code.
#define CHILD_CHECK(condition)                                               \
  do {                                                                       \
    if (!(condition)) {                                                      \
      std::fprintf(stderr, "child check failed at line %d: %s\n", __LINE__, \
                   #condition);                                              \
      return __LINE__ % 250 + 1;                                             \
    }                                                                        \
  } while (0)

TEST(Config, SetGetRemoveInCode) {
  QzbConfigOptions* store = freshStore("test.set-get-remove");
  EXPECT_FALSE(store->getOption(QzbString("BASE/PLUGIN_PATH"), nullptr, 0));
  store->setOption(QzbString("BASE/PLUGIN_PATH"), QzbString("plugins"));
  QzbString value;
  EXPECT_TRUE(store->getOption(QzbString("BASE/PLUGIN_PATH"), &value, 0));
  EXPECT_STREQ("plugins", value.asCstr());
  EXPECT_TRUE(store->getOption(QzbString("BASE/PLUGIN_PATH"), nullptr, 0));
  EXPECT_TRUE(store->removeOption(QzbString("BASE/PLUGIN_PATH")));
  EXPECT_FALSE(store->getOption(QzbString("BASE/PLUGIN_PATH"), &value, 0));
  EXPECT_FALSE(store->removeOption(QzbString("BASE/PLUGIN_PATH")));
}

TEST(Config, SettingAgainReplaces) {
  QzbConfigOptions* store = freshStore("test.replace");
  store->setOption(QzbString("k"), QzbString("one"));
  store->setOption(QzbString("k"), QzbString("two"));
  EXPECT_EQ("two", valueOf(store, "k"));
}

TEST(Config, EmptyAndNullValuesArePresentAndEmpty) {
  QzbConfigOptions* store = freshStore("test.empty-values");
  store->setOption(QzbString("QZVLT/BYPASS"), QzbString(""));
  store->setOption(QzbString("nullvalue"), QzbString());
  QzbString value("stale");
  EXPECT_TRUE(store->getOption(QzbString("QZVLT/BYPASS"), &value, 0));
  EXPECT_FALSE(value.isNull());
  EXPECT_EQ(0u, value.length());
  value = QzbString("stale");
  EXPECT_TRUE(store->getOption(QzbString("nullvalue"), &value, 0));
  EXPECT_FALSE(value.isNull());
  EXPECT_EQ(0u, value.length());
}

TEST(Config, MissingKeyLeavesValueAlone) {
  QzbConfigOptions* store = freshStore("test.missing");
  QzbString value("untouched");
  EXPECT_FALSE(store->getOption(QzbString("nope"), &value, 0));
  EXPECT_STREQ("untouched", value.asCstr());
}

TEST(Config, NullAndEmptyKeysAreIgnored) {
  QzbConfigOptions* store = freshStore("test.bad-keys");
  store->setOption(QzbString(), QzbString("v"));
  store->setOption(QzbString(""), QzbString("v"));
  EXPECT_FALSE(store->getOption(QzbString(), nullptr, 0));
  EXPECT_FALSE(store->getOption(QzbString(""), nullptr, 0));
  EXPECT_FALSE(store->removeOption(QzbString()));
  EXPECT_FALSE(store->removeOption(QzbString("")));
}

TEST(Config, NamedStoresAreDistinctAndLastForTheProcess) {
  QzbConfigOptions* first = freshStore("test.named-a");
  QzbConfigOptions* second = freshStore("test.named-b");
  ASSERT_NE(nullptr, first);
  ASSERT_NE(nullptr, second);
  EXPECT_NE(first, second);
  EXPECT_EQ(first, qzbGetConfigOptions("test.named-a"));
  first->setOption(QzbString("key"), QzbString("in a"));
  EXPECT_EQ("in a", valueOf(qzbGetConfigOptions("test.named-a"), "key"));
  EXPECT_EQ("<absent>", valueOf(second, "key"));
}

TEST(Config, Clear) {
  QzbConfigOptions* store = freshStore("test.clear");
  store->setOption(QzbString("a"), QzbString("1"));
  store->setOption(QzbString("b"), QzbString("2"));
  store->clear();
  EXPECT_EQ("<absent>", valueOf(store, "a"));
  EXPECT_EQ("<absent>", valueOf(store, "b"));
}

TEST(Config, LoadFileReadsKeysAndValues) {
  qztest::TempDir dir;
  const std::string path = dir.join("options.cfg");
  qztest::writeFile(path,
                    "# operator settings\n"
                    "\n"
                    "   \n"
                    "   # an indented comment\n"
                    "BASE/PLUGIN_PATH = /opt/plugins  \n"
                    "QZVLT/BYPASS=1\r\n"
                    "\tspaced key\t=\tvalue with blanks\t\r\n"
                    "url=a=b\n"
                    "empty=\n"
                    "hash=v#not a comment\n"
                    "last=no newline");
  QzbConfigOptions* store = freshStore("test.load");
  QzbString error;
  EXPECT_TRUE(store->loadFile(QzbString(path.c_str()), &error)) << error.asCstr();
  EXPECT_EQ("/opt/plugins", valueOf(store, "BASE/PLUGIN_PATH"));
  EXPECT_EQ("1", valueOf(store, "QZVLT/BYPASS"));
  EXPECT_EQ("value with blanks", valueOf(store, "spaced key"));
  EXPECT_EQ("a=b", valueOf(store, "url"));
  EXPECT_EQ("", valueOf(store, "empty"));
  EXPECT_EQ("v#not a comment", valueOf(store, "hash"));
  EXPECT_EQ("no newline", valueOf(store, "last"));
  EXPECT_EQ("<absent>", valueOf(store, "# operator settings"));
}

TEST(Config, LoadFileLaterKeysReplaceEarlierOnes) {
  qztest::TempDir dir;
  const std::string path = dir.join("options.cfg");
  qztest::writeFile(path, "k=first\nk=second\nset=from file\n");
  QzbConfigOptions* store = freshStore("test.load-replace");
  store->setOption(QzbString("set"), QzbString("in code"));
  store->setOption(QzbString("kept"), QzbString("in code"));
  EXPECT_TRUE(store->loadFile(QzbString(path.c_str()), nullptr));
  EXPECT_EQ("second", valueOf(store, "k"));
  EXPECT_EQ("from file", valueOf(store, "set"));
  EXPECT_EQ("in code", valueOf(store, "kept"));
}

TEST(Config, LoadFileReportsFirstMalformedLineAndKeepsTheRest) {
  qztest::TempDir dir;
  const std::string path = dir.join("bad.cfg");
  qztest::writeFile(path,
                    "good=1\n"
                    "# fine\n"
                    "no equals sign here\n"
                    "=value without key\n"
                    "   = also without key\n"
                    "after=2\n");
  QzbConfigOptions* store = freshStore("test.malformed");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), &error));
  EXPECT_EQ("Malformed line 3 in configuration file " + path, error.toStdString());
  EXPECT_EQ("1", valueOf(store, "good"));
  EXPECT_EQ("2", valueOf(store, "after"));
  EXPECT_EQ("<absent>", valueOf(store, "no equals sign here"));
  EXPECT_EQ("<absent>", valueOf(store, ""));
}

TEST(Config, LoadMissingFileFails) {
  qztest::TempDir dir;
  const std::string path = dir.join("missing.cfg");
  QzbConfigOptions* store = freshStore("test.load-missing");
  store->setOption(QzbString("k"), QzbString("v"));
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), &error));
  EXPECT_EQ("Cannot read configuration file " + path, error.toStdString());
  EXPECT_EQ("v", valueOf(store, "k"));
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), nullptr));
}

TEST(Config, LoadDirectoryFails) {
  qztest::TempDir dir;
  QzbConfigOptions* store = freshStore("test.load-directory");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(dir.path().c_str()), &error));
  EXPECT_EQ("Cannot read configuration file " + dir.path(), error.toStdString());
}

TEST(Config, LoadNullOrEmptyPathFails) {
  QzbConfigOptions* store = freshStore("test.load-null");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(), &error));
  EXPECT_STREQ("Cannot read configuration file ", error.asCstr());
  error.setNull(true);
  EXPECT_FALSE(store->loadFile(QzbString(""), &error));
  EXPECT_STREQ("Cannot read configuration file ", error.asCstr());
}

TEST(Config, ConcurrentUseOfOneStore) {
  QzbConfigOptions* store = freshStore("test.threads");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([store, t] {
      for (int i = 0; i < 500; ++i) {
        const std::string key = "t" + std::to_string(t) + "." + std::to_string(i);
        store->setOption(QzbString(key.c_str()), QzbString(std::to_string(i).c_str()));
        QzbString value;
        store->getOption(QzbString(key.c_str()), &value, 0);
        if (i % 2 == 0) store->removeOption(QzbString(key.c_str()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  int present = 0;
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 500; ++i) {
      const std::string key = "t" + std::to_string(t) + "." + std::to_string(i);
      if (store->getOption(QzbString(key.c_str()), nullptr, 0)) ++present;
    }
  }
  EXPECT_EQ(1000, present);
}

TEST(ConfigDefaultStore, NullAndEmptyNameGiveTheSameStore) {
  EXPECT_EQ(0, runInChild([] {
    unsetenv(QZB_CONFIG_FILE_ENV);
    QzbConfigOptions* byNull = qzbGetConfigOptions(nullptr);
    CHILD_CHECK(byNull != nullptr);
    CHILD_CHECK(byNull == qzbGetConfigOptions(""));
    CHILD_CHECK(byNull == qzbGetConfigOptions(nullptr));
    CHILD_CHECK(byNull != qzbGetConfigOptions("other"));
    byNull->setOption(QzbString("QZVLT/BYPASS"), QzbString("yes"));
    QzbString value;
    CHILD_CHECK(qzbGetConfigOptions("")->getOption(QzbString("QZVLT/BYPASS"), &value, 0));
    CHILD_CHECK(value.compare("yes") == 0);
    CHILD_CHECK(qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS")));
    CHILD_CHECK(!byNull->getOption(QzbString("QZVLT/BYPASS"), nullptr, 0));
    return 0;
  }));
}

TEST(ConfigDefaultStore, ReadsTheOperatorFileOnFirstUse) {
  qztest::TempDir dir;
  const std::string path = dir.join("operator.cfg");
  const std::string other = dir.join("other.cfg");
  qztest::writeFile(path,
                    "# plug-ins of this site\r\n"
                    "BASE/PLUGIN_PATH = /site/plugins\r\n"
                    "\r\n"
                    "QZVLT/BYPASS=1\r\n");
  qztest::writeFile(other, "BASE/PLUGIN_PATH=/elsewhere\n");
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, path.c_str(), 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    QzbString value;
    CHILD_CHECK(store->getOption(QzbString("BASE/PLUGIN_PATH"), &value, 0));
    CHILD_CHECK(value.compare("/site/plugins") == 0);
    CHILD_CHECK(store->getOption(QzbString("QZVLT/BYPASS"), &value, 0));
    CHILD_CHECK(value.compare("1") == 0);
    CHILD_CHECK(log.events().empty());
    // The file is read once: a later change of the variable is not seen.
    setenv(QZB_CONFIG_FILE_ENV, other.c_str(), 1);
    CHILD_CHECK(qzbGetConfigOptions("")->getOption(QzbString("BASE/PLUGIN_PATH"), &value, 0));
    CHILD_CHECK(value.compare("/site/plugins") == 0);
    return 0;
  }));
}

TEST(ConfigDefaultStore, WithoutOperatorFileStartsEmpty) {
  EXPECT_EQ(0, runInChild([] {
    setenv(QZB_CONFIG_FILE_ENV, "", 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    CHILD_CHECK(!store->getOption(QzbString("BASE/PLUGIN_PATH"), nullptr, 0));
    CHILD_CHECK(log.events().empty());
    return 0;
  }));
}

TEST(ConfigDefaultStore, MissingOperatorFileIsLoggedAsError) {
  qztest::TempDir dir;
  const std::string path = dir.join("absent.cfg");
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, path.c_str(), 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    CHILD_CHECK(store != nullptr);
    CHILD_CHECK(!store->getOption(QzbString("BASE/PLUGIN_PATH"), nullptr, 0));
    if (!log.contains("Cannot read configuration file " + path, QZLOG_ERROR, "QZ.Base")) {
      std::fprintf(stderr, "log was:\n%s", log.dump().c_str());
      return 1;
    }
    return 0;
  }));
}

TEST(ConfigDefaultStore, MalformedOperatorLineIsLoggedAndSkipped) {
  qztest::TempDir dir;
  const std::string path = dir.join("bad.cfg");
  qztest::writeFile(path, "a=1\njust words\nb=2\n");
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, path.c_str(), 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    QzbString value;
    CHILD_CHECK(store->getOption(QzbString("a"), &value, 0) && value.compare("1") == 0);
    CHILD_CHECK(store->getOption(QzbString("b"), &value, 0) && value.compare("2") == 0);
    CHILD_CHECK(!store->getOption(QzbString("just words"), nullptr, 0));
    if (!log.contains("Malformed line 2 in configuration file " + path, QZLOG_ERROR,
                      "QZ.Base")) {
      std::fprintf(stderr, "log was:\n%s", log.dump().c_str());
      return 1;
    }
    return 0;
  }));
}

}  // namespace
