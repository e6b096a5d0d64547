// Tests of the configuration store: options set in code, named stores,
// key=value files, where each value came from, and the operator's file: which
// one is read (QZ_CONFIG_FILE, the user's, the system's) and what is refused
// before it is read (FIFOs, devices, directories, files past the size limit).
//
// The default store is made once per process, and the operator's file is read
// when that happens. Every test that touches the default store therefore runs
// in a forked child (which reports its verdict through its exit status), and
// no test in this file uses the default store in the parent process.
#include "qzbase/config.h"

#include <sys/stat.h>
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
  EXPECT_EQ("Malformed line 3 in configuration file " + path +
                ": no \"=\" (lines are KEY=VALUE)",
            error.toStdString());
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
  EXPECT_EQ("Cannot read configuration file " + path + ": No such file or directory",
            error.toStdString());
  EXPECT_EQ("v", valueOf(store, "k"));
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), nullptr));
}

TEST(Config, LoadDirectoryFails) {
  qztest::TempDir dir;
  QzbConfigOptions* store = freshStore("test.load-directory");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(dir.path().c_str()), &error));
  EXPECT_EQ("Configuration file " + dir.path() + " is not a regular file (a directory)",
            error.toStdString());
}

TEST(Config, LoadNullOrEmptyPathFails) {
  QzbConfigOptions* store = freshStore("test.load-null");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(), &error));
  EXPECT_STREQ("Cannot read configuration file: no file named", error.asCstr());
  error.setNull(true);
  EXPECT_FALSE(store->loadFile(QzbString(""), &error));
  EXPECT_STREQ("Cannot read configuration file: no file named", error.asCstr());
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
    setenv(QZB_CONFIG_FILE_ENV, "", 1);
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

TEST(ConfigDefaultStore, MissingOperatorFileIsAWarningWithTheReason) {
  qztest::TempDir dir;
  const std::string path = dir.join("absent.cfg");
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, path.c_str(), 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    CHILD_CHECK(store != nullptr);
    CHILD_CHECK(!store->getOption(QzbString("BASE/PLUGIN_PATH"), nullptr, 0));
    if (!log.contains("Cannot read configuration file " + path + ": No such file or directory",
                      QZLOG_WARN, "QZ.Base")) {
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
    if (!log.contains("Malformed line 2 in configuration file " + path +
                          ": no \"=\" (lines are KEY=VALUE)",
                      QZLOG_WARN, "QZ.Base")) {
      std::fprintf(stderr, "log was:\n%s", log.dump().c_str());
      return 1;
    }
    return 0;
  }));
}

TEST(Config, LoadFileRefusesAFifoWithoutWaitingForAWriter) {
  qztest::TempDir dir;
  const std::string path = dir.join("pipe");
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  QzbConfigOptions* store = freshStore("test.load-fifo");
  QzbString error;
  // A read of the FIFO would block this test forever.
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), &error));
  EXPECT_EQ("Configuration file " + path + " is not a regular file (a FIFO)", error.toStdString());
}

TEST(Config, LoadFileRefusesADeviceWithoutReadingIt) {
  QzbConfigOptions* store = freshStore("test.load-device");
  QzbString error;
  // /dev/zero never ends: a reader that tried would grow without limit.
  EXPECT_FALSE(store->loadFile(QzbString("/dev/zero"), &error));
  EXPECT_STREQ("Configuration file /dev/zero is not a regular file (a character device)",
               error.asCstr());
  EXPECT_EQ("", store->getOptionNames().toStdString());
}

TEST(Config, LoadFileRefusesAFilePastTheSizeLimitAndKeepsNothingOfIt) {
  qztest::TempDir dir;
  const std::string path = dir.join("big.cfg");
  std::string content = "first=1\n";
  content += std::string(QZB_CONFIG_FILE_MAX_BYTES, '#');
  qztest::writeFile(path, content);
  QzbConfigOptions* store = freshStore("test.load-big");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), &error));
  EXPECT_EQ("Configuration file " + path + " is larger than " +
                std::to_string(QZB_CONFIG_FILE_MAX_BYTES) + " bytes",
            error.toStdString());
  EXPECT_EQ("<absent>", valueOf(store, "first"));
}

TEST(Config, LoadFileAtTheSizeLimitIsRead) {
  qztest::TempDir dir;
  const std::string path = dir.join("full.cfg");
  std::string content = "first=1\n";
  content += std::string(QZB_CONFIG_FILE_MAX_BYTES - content.size(), '#');
  qztest::writeFile(path, content);
  QzbConfigOptions* store = freshStore("test.load-full");
  QzbString error;
  EXPECT_TRUE(store->loadFile(QzbString(path.c_str()), &error)) << error.asCstr();
  EXPECT_EQ("1", valueOf(store, "first"));
}

TEST(Config, MalformedLineWithoutKeyNamesTheReason) {
  qztest::TempDir dir;
  const std::string path = dir.join("nokey.cfg");
  qztest::writeFile(path, "ok=1\n = value\n");
  QzbConfigOptions* store = freshStore("test.nokey");
  QzbString error;
  EXPECT_FALSE(store->loadFile(QzbString(path.c_str()), &error));
  EXPECT_EQ("Malformed line 2 in configuration file " + path +
                ": no key before \"=\" (lines are KEY=VALUE)",
            error.toStdString());
}

TEST(Config, EachValueRemembersWhereItCameFrom) {
  qztest::TempDir dir;
  const std::string path = dir.join("origins.cfg");
  qztest::writeFile(path, "# comment\nfrom/file=1\n\nreplaced=file\n");
  QzbConfigOptions* store = freshStore("test.origins");
  store->setOption(QzbString("in/code"), QzbString("x"));
  store->setOptionFrom(QzbString("from/option"), QzbString("y"), QzbString("--set"));
  ASSERT_TRUE(store->loadFile(QzbString(path.c_str()), nullptr));
  store->setOptionFrom(QzbString("replaced"), QzbString("option"), QzbString("--set"));
  EXPECT_EQ("set by the program", store->getOptionOrigin(QzbString("in/code")).toStdString());
  EXPECT_EQ("--set", store->getOptionOrigin(QzbString("from/option")).toStdString());
  EXPECT_EQ(path + ":2", store->getOptionOrigin(QzbString("from/file")).toStdString());
  EXPECT_EQ("--set", store->getOptionOrigin(QzbString("replaced")).toStdString());
  EXPECT_EQ("option", valueOf(store, "replaced"));
  EXPECT_TRUE(store->getOptionOrigin(QzbString("absent")).isNull());
  EXPECT_EQ("from/file\nfrom/option\nin/code\nreplaced", store->getOptionNames().toStdString());
}

TEST(Config, NoOptionsNoNames) {
  QzbConfigOptions* store = freshStore("test.no-names");
  const QzbString names = store->getOptionNames();
  EXPECT_FALSE(names.isNull());
  EXPECT_EQ(0u, names.length());
}

// The environment of a child that chooses the operator's file: HOME and
// XDG_CONFIG_HOME point into `dir`, QZ_CONFIG_FILE is unset.
void isolateUserFiles(const qztest::TempDir& dir) {
  unsetenv(QZB_CONFIG_FILE_ENV);
  setenv("HOME", dir.join("home").c_str(), 1);
  setenv("XDG_CONFIG_HOME", dir.join("xdg").c_str(), 1);
}

std::string located(const char* systemFile, std::string* origin) {
  QzbString path;
  QzbString from;
  const bool found = qzbLocateConfigFile(systemFile, &path, &from);
  *origin = from.isNull() ? "<null>" : from.toStdString();
  if (!found) return path.isNull() ? "<none>" : "<found false but a path>";
  return path.toStdString();
}

TEST(ConfigFileLocation, TheVariableWinsOverEveryDefault) {
  qztest::TempDir dir;
  qztest::makeDirs(dir.join("xdg/qzvault"));
  qztest::writeFile(dir.join("xdg/qzvault/config"), "a=1\n");
  qztest::writeFile(dir.join("system"), "a=2\n");
  EXPECT_EQ(0, runInChild([&] {
    isolateUserFiles(dir);
    // Named by the variable, even when it does not exist.
    setenv(QZB_CONFIG_FILE_ENV, dir.join("absent").c_str(), 1);
    std::string origin;
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) == dir.join("absent"));
    CHILD_CHECK(origin == "QZ_CONFIG_FILE");
    // Set but empty: no file at all.
    setenv(QZB_CONFIG_FILE_ENV, "", 1);
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) == "<none>");
    CHILD_CHECK(origin == "<null>");
    return 0;
  }));
}

TEST(ConfigFileLocation, TheUsersFileComesBeforeTheSystemsFile) {
  qztest::TempDir dir;
  qztest::makeDirs(dir.join("xdg/qzvault"));
  qztest::makeDirs(dir.join("home/.config/qzvault"));
  qztest::writeFile(dir.join("system"), "a=2\n");
  EXPECT_EQ(0, runInChild([&] {
    isolateUserFiles(dir);
    std::string origin;
    // No user file yet: the system's.
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) == dir.join("system"));
    CHILD_CHECK(origin == "system");
    qztest::writeFile(dir.join("xdg/qzvault/config"), "a=1\n");
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) == dir.join("xdg/qzvault/config"));
    CHILD_CHECK(origin == "XDG_CONFIG_HOME");
    // Without an absolute XDG_CONFIG_HOME, the one under HOME.
    qztest::writeFile(dir.join("home/.config/qzvault/config"), "a=3\n");
    setenv("XDG_CONFIG_HOME", "relative/dir", 1);
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) ==
                dir.join("home/.config/qzvault/config"));
    CHILD_CHECK(origin == "HOME");
    unsetenv("XDG_CONFIG_HOME");
    CHILD_CHECK(located(dir.join("system").c_str(), &origin) ==
                dir.join("home/.config/qzvault/config"));
    // Neither user file nor system file: none.
    unsetenv("HOME");
    CHILD_CHECK(located(dir.join("absent-system").c_str(), &origin) == "<none>");
    CHILD_CHECK(origin == "<null>");
    return 0;
  }));
}

TEST(ConfigDefaultStore, ReadsTheUsersFileWhenNoVariableNamesOne) {
  qztest::TempDir dir;
  qztest::makeDirs(dir.join("xdg/qzvault"));
  qztest::writeFile(dir.join("xdg/qzvault/config"), "BASE/PLUGIN_PATH=/mine\n");
  EXPECT_EQ(0, runInChild([&] {
    isolateUserFiles(dir);
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    QzbString value;
    CHILD_CHECK(store->getOption(QzbString("BASE/PLUGIN_PATH"), &value, 0));
    CHILD_CHECK(value.compare("/mine") == 0);
    QzbString origin;
    QzbString problem;
    const QzbString path = qzbGetConfigFileState(&origin, &problem);
    CHILD_CHECK(path.toStdString() == dir.join("xdg/qzvault/config"));
    CHILD_CHECK(origin.toStdString() == "XDG_CONFIG_HOME");
    CHILD_CHECK(problem.isNull());
    CHILD_CHECK(store->getOptionOrigin(QzbString("BASE/PLUGIN_PATH")).toStdString() ==
                dir.join("xdg/qzvault/config") + ":1");
    return 0;
  }));
}

TEST(ConfigDefaultStore, AFifoNamedByTheVariableIsAWarningNotAHang) {
  qztest::TempDir dir;
  const std::string path = dir.join("pipe");
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, path.c_str(), 1);
    qztest::LogCapture log;
    QzbConfigOptions* store = qzbGetConfigOptions(nullptr);
    CHILD_CHECK(store->getOptionNames().toStdString().empty());
    const std::string expected = "Configuration file " + path + " is not a regular file (a FIFO)";
    CHILD_CHECK(log.contains(expected, QZLOG_WARN, "QZ.Base"));
    QzbString problem;
    CHILD_CHECK(qzbGetConfigFileState(nullptr, &problem).toStdString() == path);
    CHILD_CHECK(problem.toStdString() == expected);
    return 0;
  }));
}

TEST(ConfigDefaultStore, ADeviceNamedByTheVariableIsRefused) {
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, "/dev/zero", 1);
    qztest::LogCapture log;
    qzbGetConfigOptions(nullptr);
    CHILD_CHECK(log.contains(
        "Configuration file /dev/zero is not a regular file (a character device)", QZLOG_WARN,
        "QZ.Base"));
    return 0;
  }));
}

TEST(ConfigDefaultStore, StateWithoutAnyFile) {
  EXPECT_EQ(0, runInChild([&] {
    setenv(QZB_CONFIG_FILE_ENV, "", 1);
    QzbString origin("x");
    QzbString problem("x");
    CHILD_CHECK(qzbGetConfigFileState(&origin, &problem).isNull());
    CHILD_CHECK(origin.isNull());
    CHILD_CHECK(problem.isNull());
    return 0;
  }));
}

}  // namespace
