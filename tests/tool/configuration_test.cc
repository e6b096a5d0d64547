// The tool's configuration: `qzvault config` shows the file read, every option
// with where it came from and the plug-in directory; the files it reads by
// default; and the warnings it prints, with their reasons, about a
// configuration file it cannot read (missing, malformed, a FIFO, a device) and
// about plug-in directories and plug-ins it cannot use.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::RunOptions;
using qztool::runOn;
using qztool::runTool;
using qztool::ToolResult;

RunOptions withConfigFile(const std::string& path) {
  RunOptions options;
  options.env = {{"QZ_CONFIG_FILE", path}};
  return options;
}

// The lines of stderr that are warnings.
std::vector<std::string> warnings(const ToolResult& result) {
  std::vector<std::string> found;
  for (const std::string& line : result.errLines()) {
    if (line.rfind("qzvault: warning: ", 0) == 0) found.push_back(line);
  }
  return found;
}

class ConfigurationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
  }
  TempDir dir_;
  std::string vault_;
};

TEST_F(ConfigurationTest, ConfigShowsEachOptionWithWhereItCameFrom) {
  const std::string file = dir_.join("site.conf");
  qztool::writeText(file, "# site\nFEED_DIR=/data/feeds\nSALES_DSN=sales\n");
  const ToolResult result = runTool({"--set", "SALES_DSN=test", "config", "--json"}, withConfigFile(file));
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json shown = result.json();
  EXPECT_EQ(shown["file"]["path"], file);
  EXPECT_EQ(shown["file"]["origin"], "QZ_CONFIG_FILE");
  EXPECT_TRUE(shown["file"]["problem"].is_null());
  ASSERT_EQ(shown["options"].size(), 2u) << shown.dump();
  EXPECT_EQ(shown["options"][0], (nlohmann::json{{"key", "FEED_DIR"}, {"value", "/data/feeds"},
                                                  {"origin", file + ":2"}}));
  // --set wins over the file, and says so.
  EXPECT_EQ(shown["options"][1],
            (nlohmann::json{{"key", "SALES_DSN"}, {"value", "test"}, {"origin", "--set"}}));
  EXPECT_EQ(shown["pluginDirectory"]["path"], qztool::buildPluginDir());
  EXPECT_EQ(shown["pluginDirectory"]["source"], "build tree");
}

TEST_F(ConfigurationTest, ConfigAsTextNamesTheFileTheDirectoryAndTheOptions) {
  const std::string file = dir_.join("site.conf");
  qztool::writeText(file, "BASE/PLUGIN_PATH=" + qztool::buildPluginDir() + "\n");
  const ToolResult result = runTool({"config"}, withConfigFile(file));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_NE(result.out.find("Configuration file:  " + file + " (QZ_CONFIG_FILE)\n"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("Plug-in directory:   " + qztool::buildPluginDir() + " (configuration)\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("  BASE/PLUGIN_PATH  " + qztool::buildPluginDir() + "  " + file + ":1\n"),
            std::string::npos)
      << result.out;
  EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST_F(ConfigurationTest, WithoutAnyFileConfigSaysSo) {
  const ToolResult result = runTool({"config"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_NE(result.out.find("Configuration file:  (none)\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("Options:             (none)\n"), std::string::npos) << result.out;
  const ToolResult json = runTool({"config", "--json"});
  EXPECT_TRUE(json.json()["file"].is_null()) << json.out;
  EXPECT_TRUE(json.json()["options"].empty()) << json.out;
}

TEST_F(ConfigurationTest, TheUsersFileIsReadWhenNoVariableNamesOne) {
  const std::string xdg = dir_.join("xdg");
  qztest::makeDirs(xdg + "/qzvault");
  qztool::writeText(xdg + "/qzvault/config", "FEED_DIR=/mine\n");
  RunOptions options;
  options.unset = {"QZ_CONFIG_FILE"};
  options.env = {{"XDG_CONFIG_HOME", xdg}, {"HOME", dir_.join("home")}};
  const ToolResult result = runTool({"config", "--json"}, options);
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.json()["file"]["path"], xdg + "/qzvault/config");
  EXPECT_EQ(result.json()["file"]["origin"], "XDG_CONFIG_HOME");
  EXPECT_EQ(result.json()["options"][0]["value"], "/mine");
}

TEST_F(ConfigurationTest, MissingFileIsAWarningWithTheReason) {
  const std::string file = dir_.join("absent.conf");
  const ToolResult result = runOn(vault_, {"info"}, withConfigFile(file));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(warnings(result),
            (std::vector<std::string>{"qzvault: warning: Cannot read configuration file " + file +
                                      ": No such file or directory"}));
  const ToolResult config = runTool({"config", "--json"}, withConfigFile(file));
  EXPECT_EQ(config.json()["file"]["problem"],
            "Cannot read configuration file " + file + ": No such file or directory");
}

TEST_F(ConfigurationTest, MalformedLineIsAWarningNamingTheLine) {
  const std::string file = dir_.join("bad.conf");
  qztool::writeText(file, "FEED_DIR=/data\njust some words\n");
  const ToolResult result = runOn(vault_, {"info"}, withConfigFile(file));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(warnings(result), (std::vector<std::string>{
                                  "qzvault: warning: Malformed line 2 in configuration file " + file +
                                  ": no \"=\" (lines are KEY=VALUE)"}));
}

TEST_F(ConfigurationTest, AFifoIsRefusedWithoutWaitingForAWriter) {
  const std::string fifo = dir_.join("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const ToolResult result = runOn(vault_, {"info"}, withConfigFile(fifo));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(warnings(result),
            (std::vector<std::string>{"qzvault: warning: Configuration file " + fifo +
                                      " is not a regular file (a FIFO)"}));
}

TEST_F(ConfigurationTest, ADeviceIsRefusedWithoutReadingIt) {
  const ToolResult result = runOn(vault_, {"info"}, withConfigFile("/dev/zero"));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(warnings(result), (std::vector<std::string>{"qzvault: warning: Configuration file /dev/zero "
                                                        "is not a regular file (a character device)"}));
}

TEST_F(ConfigurationTest, MissingPluginDirectoryIsAWarning) {
  const std::string file = dir_.join("site.conf");
  const std::string missing = dir_.join("no-such-plugins");
  qztool::writeText(file, "BASE/PLUGIN_PATH=" + missing + "\n");
  const ToolResult result = runOn(vault_, {"info"}, withConfigFile(file));
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(warnings(result),
            (std::vector<std::string>{"qzvault: warning: Cannot read plugin directory " + missing +
                                      ": Plugin directory not found"}));
  EXPECT_NE(result.out.find("(no plug-ins loaded)"), std::string::npos) << result.out;
}

TEST_F(ConfigurationTest, PluginThatCannotBeLoadedIsAWarningWithTheReason) {
  const std::string plugins = dir_.join("plugins");
  qztest::makeDirs(plugins);
  qztool::writeText(plugins + "/qzvmdbroken.so", "not a shared object\n");
  const ToolResult result = runOn(vault_, {"--plugins", plugins, "info"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const std::vector<std::string> shown = warnings(result);
  ASSERT_EQ(shown.size(), 1u) << result.describe();
  const std::string prefix = "qzvault: warning: Plugin load failed on " + plugins + "/qzvmdbroken.so: ";
  EXPECT_EQ(shown[0].rfind(prefix, 0), 0u) << shown[0];
  EXPECT_GT(shown[0].size(), prefix.size()) << "no reason given: " << shown[0];
}

TEST_F(ConfigurationTest, SeveralPluginDirectoriesAreReadInOrder) {
  const std::string empty = dir_.join("empty");
  qztest::makeDirs(empty);
  const std::string path = empty + ":" + qztool::buildPluginDir();
  const ToolResult byOption = runOn(vault_, {"--plugins", path, "info", "--json"});
  ASSERT_EQ(byOption.status, 0) << byOption.describe();
  EXPECT_EQ(byOption.json()["pluginDirectory"], path);
  EXPECT_FALSE(byOption.json()["plugins"].empty()) << byOption.out;

  const std::string file = dir_.join("site.conf");
  qztool::writeText(file, "BASE/PLUGIN_PATH=" + path + "\n");
  const ToolResult byFile = runOn(vault_, {"info", "--json"}, withConfigFile(file));
  ASSERT_EQ(byFile.status, 0) << byFile.describe();
  EXPECT_FALSE(byFile.json()["plugins"].empty()) << byFile.out;
  EXPECT_TRUE(byFile.err.empty()) << byFile.err;
}

TEST_F(ConfigurationTest, PluginsOptionNamesEachDirectoryThatIsMissing) {
  const std::string missing = dir_.join("gone");
  const ToolResult result = runOn(vault_, {"--plugins", qztool::buildPluginDir() + ":" + missing, "info"});
  qztool::expectOneLineError(result, 2, "--plugins: " + missing + " is not a directory");
}

}  // namespace
