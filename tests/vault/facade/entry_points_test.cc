// The exported entry points: start-up and shut-down, vault creation with its
// plug-in path rules and creation errors, version and plug-in path setting.
// The entry points keep process-wide state (creation error, plug-in path, the
// sticky plug-in-path flag, the plug-in registry), so every scenario that
// touches it runs in a forked child (child_process.h).
#include <string>

#include <gtest/gtest.h>

#include "child_process.h"
#include "plugin_loader.h"
#include "qzbase/config.h"
#include "qzvault/entry.h"
#include "qzvault/vault.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_plugins.h"
#include "vault_impl.h"

namespace {

using qztest::LogCapture;
using qztest::runInChildProcess;
using qztest::TempDir;
using qztest::testPluginDir;
using qztest::testPluginPath;

const char kPluginPathKey[] = "BASE/PLUGIN_PATH";
const char kVersionText[] = "Vault Library version 5.6 (build 48)";

QzbConfigOptions* options() { return qzbGetConfigOptions(nullptr); }

void setConfiguredPluginPath(const std::string& path) {
  options()->setOption(QzbString(kPluginPathKey), QzbString(path.c_str()));
}

QzvVaultImpl* impl(QzvVault* vault) { return static_cast<QzvVaultImpl*>(vault); }

TEST(EntryPoints, VersionIsTheSameBeforeAndAfterStartup) {
  const std::string before = getVaultVersion();
  EXPECT_EQ(before, kVersionText);
  EXPECT_EQ(qzVaultStartup(), 0);
  EXPECT_EQ(std::string(getVaultVersion()), before);
  EXPECT_EQ(getVaultVersion(), qzx_build_info);
  EXPECT_STREQ(qzx_build_version, "5.6");
  EXPECT_EQ(qzx_build_number, 48);
}

TEST(EntryPoints, StartupLogsAtLevelOneAndReturnsZero) {
  LogCapture log;
  EXPECT_EQ(qzVaultStartup(), 0);
  EXPECT_TRUE(log.contains("Startup of Vault", 1, "QZ.Repos.Vault")) << log.dump();
}

TEST(EntryPoints, RootThatIsARegularFileGivesNullAndAnEmptyError) {
  runInChildProcess([] {
    TempDir dir;
    const std::string file = dir.join("not-a-folder");
    qztest::writeFile(file, "x");
    options()->removeOption(QzbString(kPluginPathKey));
    // A failure first, so that the error buffer holds something to clear.
    EXPECT_EQ(createVaultInstance(dir.path().c_str()), nullptr);
    ASSERT_STREQ(getVaultCreateError(), "No plugin path was specified");

    EXPECT_EQ(createVaultInstance(file.c_str()), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
  });
}

TEST(EntryPoints, MissingNullOrEmptyRootGivesNullAndAnEmptyError) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("working"));
    EXPECT_EQ(createVaultInstance(dir.join("missing").c_str()), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_EQ(createVaultInstance(nullptr), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_EQ(createVaultInstance(""), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
  });
}

TEST(EntryPoints, WithoutAnyPluginPathCreationFails) {
  runInChildProcess([] {
    TempDir dir;
    options()->removeOption(QzbString(kPluginPathKey));
    LogCapture log;
    EXPECT_EQ(createVaultInstance(dir.path().c_str()), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "No plugin path was specified");
    EXPECT_TRUE(log.contains("Unable to load plugin path from config options.", 2,
                             "QZ.Repos.Vault"))
        << log.dump();
    EXPECT_TRUE(log.contains("No plugin path was specified", 2, "QZ.Repos.Vault")) << log.dump();
  });
}

TEST(EntryPoints, ConfiguredPluginPathIsLoggedAndUsed) {
  runInChildProcess([] {
    TempDir dir;
    const std::string plugins = testPluginDir("working");
    setConfiguredPluginPath(plugins);
    LogCapture log;
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_TRUE(log.contains("Loading vault plugins from path: " + plugins, 2, "QZ.Repos.Vault"))
        << log.dump();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), plugins);
    EXPECT_EQ(impl(vault)->rootPath().toStdString(), dir.path());
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 2);
    EXPECT_EQ(impl(vault)->plugins(), qzviProcessRegistry());
    vault->release();
  });
}

TEST(EntryPoints, ConfiguredPluginPathWinsOverTheOneSetByHand) {
  runInChildProcess([] {
    TempDir dir;
    setVaultPluginPath(testPluginDir("uppercase").c_str());
    setConfiguredPluginPath(testPluginDir("working"));
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), testPluginDir("working"));
    ASSERT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 2);
    EXPECT_EQ(getMetaDataPlugin(impl(vault)->plugins(), 0)->getTypeName().toStdString(),
              "pair.one");
    vault->release();
  });
}

TEST(EntryPoints, PluginPathSetByHandIsUsedWhenTheKeyIsAbsent) {
  runInChildProcess([] {
    TempDir dir;
    options()->removeOption(QzbString(kPluginPathKey));
    setVaultPluginPath(testPluginDir("working").c_str());
    LogCapture log;
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_TRUE(log.contains("Unable to load plugin path from config options.", 2)) << log.dump();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), testPluginDir("working"));
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 2);
    vault->release();
  });
}

TEST(EntryPoints, EmptyConfiguredPluginPathStillCreatesTheVault) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath("");
    LogCapture log;
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_TRUE(log.contains("Loading vault plugins from path: ", 2)) << log.dump();
    EXPECT_TRUE(log.contains("Plugin directory not found", 2, "QZ.Repos.Vault")) << log.dump();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), "");
    EXPECT_FALSE(impl(vault)->getPluginPath().isNull());
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 0);
    vault->release();
  });
}

TEST(EntryPoints, MissingPluginDirectoryStillYieldsAVaultAndLogsTheReason) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(dir.join("no-plugins-here"));
    LogCapture log;
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_TRUE(log.contains("Plugin directory not found", 2, "QZ.Repos.Vault")) << log.dump();
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 0);
    vault->release();
  });
}

TEST(EntryPoints, PluginLoadFailuresAreLoggedAndDoNotStopCreation) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("mixed"));
    LogCapture log;
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    EXPECT_STREQ(getVaultCreateError(), "");
    const std::string failure =
        "Plugin load failed on " + testPluginPath("mixed", "qzvmdgarbage.so") + "\n";
    EXPECT_TRUE(log.contains(failure, 2, "QZ.Repos.Vault")) << log.dump();
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 2);
    vault->release();
  });
}

TEST(EntryPoints, PluginPathFlagStaysSetAfterTheKeyIsRemoved) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("working"));
    QzvVault* first = createVaultInstance(dir.path().c_str());
    ASSERT_NE(first, nullptr);
    options()->removeOption(QzbString(kPluginPathKey));

    // No key and nothing set by hand, yet the creation goes ahead with an
    // empty plug-in path: a path was found once.
    QzvVault* second = createVaultInstance(dir.path().c_str());
    ASSERT_NE(second, nullptr) << getVaultCreateError();
    EXPECT_STREQ(getVaultCreateError(), "");
    EXPECT_EQ(impl(second)->getPluginPath().toStdString(), "");
    EXPECT_EQ(impl(second)->plugins(), impl(first)->plugins());
    second->release();
    first->release();
  });
}

TEST(EntryPoints, SecondVaultReusesARegistryThatHoldsPlugins) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("working"));
    QzvVault* first = createVaultInstance(dir.path().c_str());
    QzvVault* second = createVaultInstance(dir.path().c_str());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(impl(first)->plugins(), impl(second)->plugins());
    QzTestPluginCounters* counters =
        qztest::testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->factoriesCreated, 1) << "the plug-in directory is read once";
    second->release();
    first->release();
  });
}

TEST(EntryPoints, RegistryWithoutPluginsIsBuiltAnewForEachVault) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("noplugins"));
    QzvVault* first = createVaultInstance(dir.path().c_str());
    QzvVault* second = createVaultInstance(dir.path().c_str());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(impl(first)->plugins(), impl(second)->plugins());
    EXPECT_EQ(getMetaDataPluginCount(impl(first)->plugins()), 0);
    EXPECT_EQ(getMetaDataPluginCount(impl(second)->plugins()), 0);

    setConfiguredPluginPath(testPluginDir("working"));
    QzvVault* third = createVaultInstance(dir.path().c_str());
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(getMetaDataPluginCount(impl(third)->plugins()), 2);
    // The earlier vaults keep their own (empty) registry.
    EXPECT_EQ(getMetaDataPluginCount(impl(first)->plugins()), 0);
    third->release();
    second->release();
    first->release();
  });
}

TEST(EntryPoints, ShutdownLogsAndReleasesEveryPlugin) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("working"));
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    vault->release();
    QzTestPluginCounters* counters =
        qztest::testPluginCounters(testPluginPath("working", "qzvmdtestpair.so"));
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->pluginsReleased, 0) << "releasing a vault keeps the plug-ins";

    LogCapture log;
    qzVaultShutdown();
    EXPECT_TRUE(log.contains("Shutdown of Vault", 1, "QZ.Repos.Vault")) << log.dump();
    EXPECT_EQ(counters->pluginsReleased, 2);
    EXPECT_EQ(counters->releaseOrder[0], 1);
    EXPECT_EQ(counters->releaseOrder[1], 2);
  });
}

TEST(EntryPoints, ShutdownWithoutAnyVaultOnlyLogs) {
  runInChildProcess([] {
    LogCapture log;
    qzVaultShutdown();
    EXPECT_TRUE(log.contains("Shutdown of Vault", 1, "QZ.Repos.Vault")) << log.dump();
    EXPECT_EQ(qzviProcessRegistry(), nullptr);
  });
}

TEST(EntryPoints, CreationAfterShutdownFailsCleanly) {
  runInChildProcess([] {
    TempDir dir;
    setConfiguredPluginPath(testPluginDir("working"));
    EXPECT_EQ(qzVaultStartup(), 0);
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr);
    vault->release();
    qzVaultShutdown();

    EXPECT_EQ(createVaultInstance(dir.path().c_str()), nullptr);
    EXPECT_STREQ(getVaultCreateError(), "The vault library has been shut down");
    // A second shut-down is harmless.
    qzVaultShutdown();
  });
}

TEST(EntryPoints, NullPluginPathCountsAsEmpty) {
  runInChildProcess([] {
    TempDir dir;
    options()->removeOption(QzbString(kPluginPathKey));
    setVaultPluginPath(testPluginDir("working").c_str());
    setVaultPluginPath(nullptr);
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr) << getVaultCreateError();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), "");
    EXPECT_EQ(getMetaDataPluginCount(impl(vault)->plugins()), 0);
    vault->release();
  });
}

TEST(EntryPoints, PluginPathSetByHandKeepsAtMost512Bytes) {
  runInChildProcess([] {
    TempDir dir;
    options()->removeOption(QzbString(kPluginPathKey));
    const std::string longPath = "/" + std::string(700, 'p');
    setVaultPluginPath(longPath.c_str());
    QzvVault* vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr) << getVaultCreateError();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), longPath.substr(0, 512));
    vault->release();

    const std::string shorter = "/" + std::string(510, 'q');  // 511 bytes: kept whole
    setVaultPluginPath(shorter.c_str());
    vault = createVaultInstance(dir.path().c_str());
    ASSERT_NE(vault, nullptr) << getVaultCreateError();
    EXPECT_EQ(impl(vault)->getPluginPath().toStdString(), shorter);
    vault->release();
  });
}

}  // namespace
