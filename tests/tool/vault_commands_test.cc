// init and info, run as a user would run them.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::runOn;
using qztool::runTool;
using qztool::ToolResult;

const char kUuidPattern[] = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}";

TEST(InitCommand, MakesTheDirectoryAndStoresANewUuid) {
  TempDir dir;
  const std::string vault = dir.join("new/vault");
  const ToolResult result = runOn(vault, {"init", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_TRUE(result.err.empty()) << result.err;
  const nlohmann::json answer = result.json();
  EXPECT_EQ(answer["root"], vault);
  EXPECT_TRUE(answer["changed"].get<bool>());
  EXPECT_THAT(answer["uuid"].get<std::string>(), ::testing::MatchesRegex(kUuidPattern));
  EXPECT_TRUE(qztest::pathExists(vault + "/.v_fmd"));

  // info reads back what init stored.
  const ToolResult info = runOn(vault, {"info", "--json"});
  ASSERT_EQ(info.status, 0) << info.describe();
  EXPECT_EQ(info.json()["uuid"], answer["uuid"]);
}

TEST(InitCommand, TwoVaultsGetDifferentUuids) {
  TempDir dir;
  const ToolResult first = runOn(dir.join("a"), {"init", "--json"});
  const ToolResult second = runOn(dir.join("b"), {"init", "--json"});
  ASSERT_EQ(first.status, 0) << first.describe();
  ASSERT_EQ(second.status, 0) << second.describe();
  EXPECT_NE(first.json()["uuid"], second.json()["uuid"]);
}

TEST(InitCommand, KeepsAnExistingUuidUnlessOneIsGiven) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  const ToolResult made = runOn(vault, {"init", "--json"});
  ASSERT_EQ(made.status, 0) << made.describe();
  const std::string uuid = made.json()["uuid"];

  const ToolResult again = runOn(vault, {"init"});
  ASSERT_EQ(again.status, 0) << again.describe();
  EXPECT_EQ(again.out, "Vault " + vault + " already has the UUID " + uuid +
                           " (give --uuid to replace it)\n");

  const std::string given = "0f8fad5b-d9cb-469f-a165-70867728950e";
  const ToolResult replaced = runOn(vault, {"init", "--uuid", given});
  ASSERT_EQ(replaced.status, 0) << replaced.describe();
  EXPECT_EQ(replaced.out, "Vault " + vault + " has the UUID " + given + "\n");
  EXPECT_EQ(runOn(vault, {"info", "--json"}).json()["uuid"], given);
}

TEST(InitCommand, WorksInTheCurrentDirectory) {
  TempDir dir;
  qztool::RunOptions options;
  options.cwd = dir.path();
  const ToolResult result = runTool({"init", "--json"}, options);
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.json()["root"], dir.path());
}

TEST(InfoCommand, ShowsLibraryVaultAndPlugins) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  const ToolResult result = runOn(vault, {"info"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_NE(result.out.find("Library:      Vault Library version 5.6 (build 48)\n"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("Vault:        " + vault + "\n"), std::string::npos) << result.out;
  // The tool in the build tree reads the build tree's plug-ins.
  EXPECT_NE(result.out.find("Plug-ins:     " + qztool::buildPluginDir() + " (build tree)\n"),
            std::string::npos)
      << result.out;
  // The file system under the vault: a test's temporary directory is local.
  EXPECT_THAT(result.out, ::testing::MatchesRegex("(.|\n)*\nFile system:  [^ ,]+, local\n(.|\n)*"));
}

TEST(InfoCommand, JsonDescribesTheFileSystem) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  const ToolResult result = runOn(vault, {"info", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json fileSystem = result.json()["fileSystem"];
  EXPECT_FALSE(fileSystem["type"].get<std::string>().empty());
  EXPECT_EQ(fileSystem["shared"], false);
  EXPECT_EQ(fileSystem["rollbackJournals"], true);
  EXPECT_EQ(fileSystem["supportedSharedMode"], true);
}

TEST(InfoCommand, JsonListsTheLoadedPlugins) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  const ToolResult result = runOn(vault, {"info", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json info = result.json();
  EXPECT_EQ(info["library"], "Vault Library version 5.6 (build 48)");
  EXPECT_EQ(info["pluginDirectorySource"], "build tree");
  std::vector<std::string> types;
  for (const auto& plugin : info["plugins"]) types.push_back(plugin["type"]);
  EXPECT_THAT(types, ::testing::UnorderedElementsAre("Job", "Report", "Schedule", "ReferenceData",
                                                     "Mapping", "Query"));
}

TEST(InfoCommand, PluginsOptionAndConfigurationChooseTheDirectory) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  const std::string empty = dir.join("no-plugins");
  qztest::makeDirs(empty);

  const ToolResult byOption = runOn(vault, {"--plugins", empty, "info", "--json"});
  ASSERT_EQ(byOption.status, 0) << byOption.describe();
  EXPECT_EQ(byOption.json()["pluginDirectory"], empty);
  EXPECT_EQ(byOption.json()["pluginDirectorySource"], "--plugins");
  EXPECT_TRUE(byOption.json()["plugins"].empty());

  // An operator's configuration file names the directory; --plugins still wins.
  const std::string config = dir.join("vault.conf");
  qztool::writeText(config, "BASE/PLUGIN_PATH=" + empty + "\n");
  qztool::RunOptions options;
  options.env = {{"QZ_CONFIG_FILE", config}};
  const ToolResult byConfig = runOn(vault, {"info", "--json"}, options);
  ASSERT_EQ(byConfig.status, 0) << byConfig.describe();
  EXPECT_EQ(byConfig.json()["pluginDirectory"], empty);
  EXPECT_EQ(byConfig.json()["pluginDirectorySource"], "configuration");
  const ToolResult overridden =
      runOn(vault, {"--plugins", qztool::buildPluginDir(), "info", "--json"}, options);
  EXPECT_EQ(overridden.json()["pluginDirectory"], qztool::buildPluginDir());
}

TEST(InfoCommand, LogLevelPrintsTheLibrarysEventsOnStderr) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  const ToolResult quiet = runOn(vault, {"info"});
  EXPECT_TRUE(quiet.err.empty()) << quiet.err;
  const ToolResult traced = runOn(vault, {"--log-level", "1", "info"});
  ASSERT_EQ(traced.status, 0) << traced.describe();
  EXPECT_NE(traced.err.find("Startup of Vault"), std::string::npos) << traced.err;
  EXPECT_NE(traced.err.find("Shutdown of Vault"), std::string::npos) << traced.err;
}

}  // namespace
