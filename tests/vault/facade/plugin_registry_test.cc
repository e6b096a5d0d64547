// The metadata plug-in registry: which entries of a plug-in directory are
// loaded, what is reported, the registry's life and the choice of a handler.
// Scenarios that build the process registry run in a forked child
// (child_process.h); the plug-in libraries come from tests/plugins.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "child_process.h"
#include "platform_override.h"
#include "plugin_loader.h"
#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_plugins.h"

namespace {

using qztest::PlatformOverride;

using qztest::LogCapture;
using qztest::runInChildProcess;
using qztest::TempDir;
using qztest::testPluginCounters;
using qztest::testPluginDir;
using qztest::testPluginPath;

std::vector<std::string> typeNames(const QzviPluginRegistry* registry) {
  std::vector<std::string> names;
  for (int index = 0; index < getMetaDataPluginCount(registry); ++index) {
    QzvMetaDataPlugin* plugin = getMetaDataPlugin(registry, index);
    names.push_back(plugin == nullptr ? "(null)" : plugin->getTypeName().toStdString());
  }
  return names;
}

// A plug-in made in the test, for handler selection without any library.
class FakePlugin final : public QzvMetaDataPlugin {
 public:
  FakePlugin(const char* type, const char* suffix) : type_(type), suffix_(suffix) {}
  ~FakePlugin() override = default;
  QzbString getDescription() override { return QzbString("fake"); }
  void release() override {}
  QzbString getTypeName() override { return QzbString(type_); }
  bool canHandle(const QzbString& path) override {
    ++asked;
    return path.endsWith(suffix_);
  }
  QzvMetaDataFile* openFile(const QzbString&) override { return nullptr; }
  QzbString getResourceIdentity(const QzbString& path) override { return path; }
  QzbString getResourceType() override { return QzbString("Fake"); }
  int asked = 0;

 private:
  const char* type_;
  const char* suffix_;
};

TEST(PluginRegistry, WorkingLibraryAddsBothPluginsInFactoryOrder) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(registry, qzviProcessRegistry());
    EXPECT_EQ(typeNames(registry), (std::vector<std::string>{"pair.one", "pair.two"}));
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
    EXPECT_TRUE(log.contains("Loading vault plugin: qzvmdtestpair.so", 1, "QZ.Repos.Vault"))
        << log.dump();

    QzTestPluginCounters* counters =
        testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->factoriesCreated, 1);
    EXPECT_EQ(counters->factoryPluginRequests, 2);
    EXPECT_EQ(counters->factoriesReleased, 1);
    EXPECT_EQ(counters->pluginsReleased, 0);
  });
}

TEST(PluginRegistry, UpperCasePrefixIsLoadedLikeLowerCase) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("uppercase").c_str()), &error);
    EXPECT_EQ(typeNames(registry), (std::vector<std::string>{"upper.one", "upper.two"}));
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
    EXPECT_TRUE(log.contains("Loading vault plugin: QZVMDUPPER.so", 1, "QZ.Repos.Vault"))
        << log.dump();
  });
}

TEST(PluginRegistry, FactoryWithStatusOtherThanOneAddsNothingButIsReleased) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("badstatus").c_str()), &error);
    EXPECT_EQ(getMetaDataPluginCount(registry), 0);
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
    EXPECT_FALSE(log.containsFragment("Loading vault plugin")) << log.dump();

    const std::string path = testPluginPath("badstatus", "qzvmdbadstatus.so");
    QzTestPluginCounters* counters = testPluginCounters(path);
    ASSERT_NE(counters, nullptr) << "the library must stay loaded";
    EXPECT_EQ(counters->factoriesCreated, 1);
    EXPECT_EQ(counters->factoryStatusCalls, 1);
    EXPECT_EQ(counters->factoryPluginRequests, 0);
    EXPECT_EQ(counters->factoriesReleased, 1);
  });
}

TEST(PluginRegistry, MixedDirectoryLoadsWhatItCanAndReportsTheRest) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("mixed").c_str()), &error);
    EXPECT_EQ(typeNames(registry), (std::vector<std::string>{"mixed.one", "mixed.two"}));

    // The text file named like a plug-in is the one failure; the directory
    // named "qzvmdfolder.so" is not listed (plug-ins are regular files), and
    // "qzvmdnotes.txt" has no library name, so neither is tried.
    const std::string expected =
        "Plugin load failed on " + testPluginPath("mixed", "qzvmdgarbage.so") + "\n";
    EXPECT_EQ(error.toStdString(), expected);

    // A missing entry function and a null factory add nothing to the error
    // text (they are warnings only, below), and their libraries stay loaded.
    EXPECT_TRUE(qztest::isLibraryLoaded(testPluginPath("mixed", "qzvmdnosymbol.so")));
    QzTestPluginCounters* nullFactory =
        testPluginCounters(testPluginPath("mixed", "qzvmdnullfactory.so"));
    ASSERT_NE(nullFactory, nullptr);
    EXPECT_EQ(nullFactory->factoriesReleased, 0);
    // A library without the prefix is never loaded.
    EXPECT_FALSE(qztest::isLibraryLoaded(testPluginPath("mixed", "testpair.so")));
    EXPECT_TRUE(log.contains("Loading vault plugin: qzvmdtestpair.so", 1)) << log.dump();
    EXPECT_EQ(log.count("Loading vault plugin: qzvmdnosymbol.so"), 0);
    EXPECT_EQ(log.count("Loading vault plugin: qzvmdnullfactory.so"), 0);
    EXPECT_TRUE(log.contains("Plugin " + testPluginPath("mixed", "qzvmdnosymbol.so") +
                                 " is not used: it has no entry point qzv_create_factory10",
                             QZLOG_WARN, "QZ.Repos.Vault"))
        << log.dump();
    EXPECT_TRUE(log.contains("Plugin " + testPluginPath("mixed", "qzvmdnullfactory.so") +
                                 " is not used: its entry point made no factory",
                             QZLOG_WARN, "QZ.Repos.Vault"))
        << log.dump();
  });
}

TEST(PluginRegistry, LoadFailureIsAWarningWithTheSystemsReason) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    createMetaDataPlugins(QzbString(testPluginDir("mixed").c_str()), &error);
    const std::string prefix =
        "Plugin load failed on " + testPluginPath("mixed", "qzvmdgarbage.so") + ": ";
    bool found = false;
    for (const qztest::CapturedEvent& event : log.events()) {
      if (event.text.rfind(prefix, 0) != 0) continue;
      found = true;
      EXPECT_EQ(event.level, QZLOG_WARN);
      EXPECT_EQ(event.logger, "QZ.Repos.Vault");
      // The loader's own explanation follows, on the same line.
      EXPECT_GT(event.text.size(), prefix.size()) << event.text;
      EXPECT_EQ(event.text.find('\n'), std::string::npos) << event.text;
    }
    EXPECT_TRUE(found) << log.dump();
  });
}

TEST(PluginRegistry, FactoryWithBadStatusIsAWarning) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    createMetaDataPlugins(QzbString(testPluginDir("badstatus").c_str()), &error);
    EXPECT_TRUE(log.containsFragment(testPluginPath("badstatus", "qzvmdbadstatus.so") +
                                     " is not used: its factory reports status "))
        << log.dump();
  });
}

TEST(PluginRegistry, SeveralDirectoriesAreReadInTheOrderGiven) {
  runInChildProcess([] {
    QzbString error;
    const std::string path = testPluginDir("uppercase") + ":" + testPluginDir("working");
    QzviPluginRegistry* registry = createMetaDataPlugins(QzbString(path.c_str()), &error);
    EXPECT_EQ(typeNames(registry),
              (std::vector<std::string>{"upper.one", "upper.two", "pair.one", "pair.two"}));
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
  });
  runInChildProcess([] {
    QzbString error;
    // Empty parts name no directory and are passed over.
    const std::string path = ":" + testPluginDir("working") + "::" + testPluginDir("uppercase") + ":";
    QzviPluginRegistry* registry = createMetaDataPlugins(QzbString(path.c_str()), &error);
    EXPECT_EQ(typeNames(registry),
              (std::vector<std::string>{"pair.one", "pair.two", "upper.one", "upper.two"}));
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
  });
}

TEST(PluginRegistry, MissingDirectoryAmongSeveralIsAWarningAndTheOthersLoad) {
  runInChildProcess([] {
    TempDir dir;
    LogCapture log;
    QzbString error;
    const std::string missing = dir.join("missing");
    const std::string path = missing + ":" + testPluginDir("working");
    QzviPluginRegistry* registry = createMetaDataPlugins(QzbString(path.c_str()), &error);
    EXPECT_EQ(typeNames(registry), (std::vector<std::string>{"pair.one", "pair.two"}));
    EXPECT_EQ(error.toStdString(), "Plugin directory not found");
    EXPECT_TRUE(log.contains("Cannot read plugin directory " + missing + ": Plugin directory not found",
                             QZLOG_WARN, "QZ.Repos.Vault"))
        << log.dump();
  });
}

TEST(PluginRegistry, ReasonsOfSeveralDirectoriesAreOnePerLine) {
  runInChildProcess([] {
    TempDir dir;
    QzbString error;
    const std::string path = dir.join("one") + ":" + testPluginDir("mixed") + ":" + dir.join("two");
    createMetaDataPlugins(QzbString(path.c_str()), &error);
    EXPECT_EQ(error.toStdString(),
              "Plugin directory not found\nPlugin load failed on " +
                  testPluginPath("mixed", "qzvmdgarbage.so") + "\nPlugin directory not found");
  });
}

TEST(PluginRegistry, EmptyPathIsAWarningToo) {
  runInChildProcess([] {
    LogCapture log;
    QzbString error;
    createMetaDataPlugins(QzbString(""), &error);
    EXPECT_EQ(error.toStdString(), "Plugin directory not found");
    EXPECT_TRUE(log.contains("Cannot read plugin directory \"\": Plugin directory not found",
                             QZLOG_WARN, "QZ.Repos.Vault"))
        << log.dump();
  });
}

TEST(PluginRegistry, UnreadablePluginFileIsReportedAndTheOthersLoad) {
  // The file is made unreadable with chmod; root reads it anyway, so the
  // scenario runs in a child that drops to user nobody first.
  runInChildProcess([] {
    TempDir dir;
    const std::string source = qztest::readFile(testPluginPath("working", "qzvmdtestpair.so"));
    const std::string readable = dir.join("qzvmdreadable.so");
    const std::string locked = dir.join("qzvmdlocked.so");
    qztest::writeFile(readable, source);
    qztest::writeFile(locked, source);
    ASSERT_EQ(chmod(readable.c_str(), 0755), 0);
    ASSERT_EQ(chmod(locked.c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);

    runInChildProcess([&] {
      ASSERT_TRUE(qztest::dropRootPrivileges());
      QzbString error;
      QzviPluginRegistry* registry = createMetaDataPlugins(QzbString(dir.path().c_str()), &error);
      EXPECT_EQ(typeNames(registry), (std::vector<std::string>{"pair.one", "pair.two"}));
      EXPECT_EQ(error.toStdString(), "Plugin load failed on " + locked + "\n");
    });
  });
}

TEST(PluginRegistry, DirectoryWithoutPluginFilesGivesEmptyRegistryAndNoError) {
  runInChildProcess([] {
    QzbString error("stale");
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("noplugins").c_str()), &error);
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(getMetaDataPluginCount(registry), 0);
    EXPECT_EQ(registry->plugins, nullptr);
    EXPECT_TRUE(error.isEmpty()) << error.asCstr();
    EXPECT_FALSE(qztest::isLibraryLoaded(testPluginPath("noplugins", "helper.so")));
  });
}

TEST(PluginRegistry, EmptyRegistryIsBuiltAgainByALaterCreation) {
  runInChildProcess([] {
    QzbString error;
    QzviPluginRegistry* empty =
        createMetaDataPlugins(QzbString(testPluginDir("noplugins").c_str()), &error);
    ASSERT_EQ(getMetaDataPluginCount(empty), 0);
    QzviPluginRegistry* emptyAgain =
        createMetaDataPlugins(QzbString(testPluginDir("noplugins").c_str()), &error);
    EXPECT_NE(emptyAgain, empty) << "an empty registry is built anew";
    // The replaced registry stays readable for whoever still holds it.
    EXPECT_EQ(getMetaDataPluginCount(empty), 0);

    QzviPluginRegistry* loaded =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    EXPECT_EQ(getMetaDataPluginCount(loaded), 2);
    EXPECT_EQ(qzviProcessRegistry(), loaded);
  });
}

TEST(PluginRegistry, RegistryWithPluginsIsReturnedWithoutReadingTheDirectoryAgain) {
  runInChildProcess([] {
    QzbString error;
    QzviPluginRegistry* first =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    ASSERT_EQ(getMetaDataPluginCount(first), 2);
    QzviPluginRegistry* second =
        createMetaDataPlugins(QzbString(testPluginDir("uppercase").c_str()), &error);
    EXPECT_EQ(second, first);
    EXPECT_EQ(typeNames(second), (std::vector<std::string>{"pair.one", "pair.two"}));
    EXPECT_FALSE(qztest::isLibraryLoaded(testPluginPath("uppercase", "QZVMDUPPER.so")));
    QzTestPluginCounters* counters =
        testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->factoriesCreated, 1);
  });
}

TEST(PluginRegistry, FirstLoadedPluginThatCanHandleAFileWins) {
  runInChildProcess([] {
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    ASSERT_EQ(getMetaDataPluginCount(registry), 2);
    QzvMetaDataPlugin* both = qzviFindMetaDataHandlerForFile(QzbString("/x/a.both"), registry);
    ASSERT_NE(both, nullptr);
    EXPECT_EQ(both->getTypeName().toStdString(), "pair.one");
    QzvMetaDataPlugin* second = qzviFindMetaDataHandlerForFile(QzbString("/x/a.tst2"), registry);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->getTypeName().toStdString(), "pair.two");
    EXPECT_EQ(qzviFindMetaDataHandlerForFile(QzbString("/x/a.txt"), registry), nullptr);
  });
}

TEST(PluginRegistry, HandlerSearchSkipsNullEntriesAndStopsAtTheFirstClaim) {
  FakePlugin text("text", ".txt");
  FakePlugin alsoText("also-text", ".txt");
  QzvMetaDataPlugin* entries[] = {nullptr, &text, &alsoText};
  QzviPluginRegistry registry;
  registry.count = 3;
  registry.plugins = entries;
  EXPECT_EQ(qzviFindMetaDataHandlerForFile(QzbString("a.txt"), &registry), &text);
  EXPECT_EQ(alsoText.asked, 0);
  EXPECT_EQ(qzviFindMetaDataHandlerForFile(QzbString("a.csv"), &registry), nullptr);
  EXPECT_EQ(alsoText.asked, 1);
}

TEST(PluginRegistry, EmptyOrMissingRegistryHasNoHandlerAndNoPlugins) {
  FakePlugin text("text", ".txt");
  QzvMetaDataPlugin* entries[] = {&text};
  QzviPluginRegistry registry;
  registry.count = 0;
  registry.plugins = entries;
  EXPECT_EQ(qzviFindMetaDataHandlerForFile(QzbString("a.txt"), &registry), nullptr);
  EXPECT_EQ(text.asked, 0);
  EXPECT_EQ(qzviFindMetaDataHandlerForFile(QzbString("a.txt"), nullptr), nullptr);
  EXPECT_EQ(getMetaDataPluginCount(nullptr), 0);
  EXPECT_EQ(getMetaDataPlugin(nullptr, 0), nullptr);
}

TEST(PluginRegistry, DirectoryErrorsAreReportedWithTheirOwnText) {
  TempDir dir;
  const std::string file = dir.join("plain-file");
  qztest::writeFile(file, "x");
  struct Case {
    std::string directory;
    std::string message;
  } cases[] = {
      {dir.join("missing"), "Plugin directory not found"},
      {file, "Plugin directory specified is not a directory"},
  };
  for (const Case& c : cases) {
    QzbString error;
    std::vector<QzvMetaDataPlugin*> list;
    EXPECT_FALSE(registerDiskPlugins(QzbString(c.directory.c_str()), &error, &list));
    EXPECT_EQ(error.toStdString(), c.message);
    EXPECT_TRUE(list.empty());
  }
}

TEST(PluginRegistry, DirectoryWithoutAccessIsReported) {
  // Root lists any directory: the child drops to user nobody first.
  runInChildProcess([] {
    TempDir dir;
    const std::string closed = dir.join("closed");
    qztest::makeDirs(closed);
    ASSERT_EQ(chmod(closed.c_str(), 0700), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    runInChildProcess([&] {
      ASSERT_TRUE(qztest::dropRootPrivileges());
      QzbString error;
      std::vector<QzvMetaDataPlugin*> list;
      EXPECT_FALSE(registerDiskPlugins(QzbString(closed.c_str()), &error, &list));
      EXPECT_EQ(error.toStdString(), "Plugin directory access denied");
    });
  });
}

TEST(PluginRegistry, OtherDirectoryOpenFailureNamesDirectoryAndResult) {
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kDirOpen, 1, NP_ERR_IO);
  QzbString error;
  std::vector<QzvMetaDataPlugin*> list;
  EXPECT_FALSE(registerDiskPlugins(QzbString("/plugins/here"), &error, &list));
  EXPECT_EQ(error.toStdString(), "Directory open on /plugins/here failed with error 11");
}

// Counts np_dso_unload calls for the test below.
int g_unloads = 0;

TEST(PluginRegistry, LibraryLoadedButUnusableIsUnloadedAndReported) {
  runInChildProcess([] {
    NpPlatformOps ops = *npDefaultPlatformOps();
    // The library is really opened (so the handle is valid) and then
    // reported unusable, result 3.
    ops.dso_load = [](const char* path, int flags, NpDso** handle) {
      const int result = npDefaultPlatformOps()->dso_load(path, flags, handle);
      return result == 0 ? NP_DSO_LOADED_UNUSABLE : result;
    };
    ops.dso_unload = [](NpDso* handle) {
      ++g_unloads;
      return npDefaultPlatformOps()->dso_unload(handle);
    };
    PlatformOverride platform(ops);
    g_unloads = 0;
    QzbString error;
    const std::string path = testPluginPath("working", "qzvmdtestpair.so");
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    EXPECT_EQ(getMetaDataPluginCount(registry), 0);
    EXPECT_EQ(error.toStdString(), "Plugin load failed on " + path + "\n");
    EXPECT_EQ(g_unloads, 1);
    EXPECT_FALSE(qztest::isLibraryLoaded(path));
  });
}

TEST(PluginRegistry, MissingDirectoryGivesEmptyRegistryWithTheReason) {
  runInChildProcess([] {
    TempDir dir;
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(dir.join("missing").c_str()), &error);
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(getMetaDataPluginCount(registry), 0);
    EXPECT_EQ(error.toStdString(), "Plugin directory not found");
  });
}

TEST(PluginRegistry, ShutdownReleasesEveryPluginInOrderAndFreesTheRegistry) {
  runInChildProcess([] {
    QzbString error;
    QzviPluginRegistry* registry =
        createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    ASSERT_EQ(getMetaDataPluginCount(registry), 2);
    QzTestPluginCounters* counters =
        testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_FALSE(qzviPluginsShutDown());

    qzviShutdownPlugins();
    EXPECT_EQ(counters->pluginsReleased, 2);
    EXPECT_EQ(counters->releaseOrder[0], 1);
    EXPECT_EQ(counters->releaseOrder[1], 2);
    EXPECT_EQ(qzviProcessRegistry(), nullptr);
    EXPECT_TRUE(qzviPluginsShutDown());
    EXPECT_TRUE(qztest::isLibraryLoaded(testPluginPath("working", "qzvmdtestpair.so")))
        << "plug-in libraries stay loaded for the life of the process";

    // A second shut-down has nothing left to release.
    qzviShutdownPlugins();
    EXPECT_EQ(counters->pluginsReleased, 2);
  });
}

TEST(PluginRegistry, ShutdownAfterReplacedEmptyRegistriesReleasesTheCurrentOne) {
  // Replaced empty registries are freed at shut-down too; the sanitizer build
  // checks that this frees nothing twice.
  runInChildProcess([] {
    QzbString error;
    createMetaDataPlugins(QzbString(testPluginDir("noplugins").c_str()), &error);
    createMetaDataPlugins(QzbString(testPluginDir("noplugins").c_str()), &error);
    createMetaDataPlugins(QzbString(testPluginDir("working").c_str()), &error);
    qzviShutdownPlugins();
    EXPECT_EQ(qzviProcessRegistry(), nullptr);
    QzTestPluginCounters* counters =
        testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->pluginsReleased, 2);
  });
}

}  // namespace
