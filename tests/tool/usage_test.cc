// Usage errors of the qzvault tool: unknown commands and options, missing and
// malformed arguments, paths that leave the vault or name its own files, and
// directories that are not vaults. Each ends with exit status 2 and one line
// on stderr that names the problem, and leaves the vault as it was.
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzvault/entry.h"
#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::runTool;
using qztool::snapshot;
using qztool::ToolResult;

// A vault with one folder and one object, for the tests to leave alone.
class UsageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    qztool::writeText(dir_.join("notes.txt"), "some notes\n");
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    const ToolResult added = runOn(vault_, {"add", dir_.join("notes.txt"), "Data"});
    ASSERT_EQ(added.status, 0) << added.describe();
    before_ = snapshot(vault_);
  }

  // Runs a command that must be refused as a usage error naming `fragment`,
  // and checks that nothing in the vault changed.
  void expectUsage(const std::vector<std::string>& args, const std::string& fragment) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const ToolResult result = runOn(vault_, args);
    expectOneLineError(result, 2, fragment);
    EXPECT_TRUE(result.out.empty()) << result.describe();
    EXPECT_EQ(snapshot(vault_), before_);
  }

  TempDir dir_;
  std::string vault_;
  std::map<std::string, std::string> before_;
};

TEST_F(UsageTest, UnknownCommandIsNamed) {
  expectUsage({"frobnicate"}, "unknown command 'frobnicate'");
}

TEST_F(UsageTest, NoCommandAtAll) {
  const ToolResult result = runTool({});
  expectOneLineError(result, 2, "no command given");
}

TEST_F(UsageTest, UnknownOptionIsNamed) {
  expectUsage({"ls", "--colour"}, "--colour");
  expectUsage({"--verbose", "info"}, "--verbose");
}

TEST_F(UsageTest, MissingArgumentsAreNamed) {
  expectUsage({"rename", "Data"}, "newname");
  expectUsage({"mkdir"}, "path is required");
  expectUsage({"attr", "set", "Data", "Owner"}, "value");
  expectUsage({"version", "rollback", "Data/notes.txt"}, "version");
  expectUsage({"attr"}, "subcommand");
}

TEST_F(UsageTest, OptionValuesAreChecked) {
  expectUsage({"--log-level", "7", "info"}, "--log-level");
  expectUsage({"--log-level", "0", "info"}, "--log-level");
  expectUsage({"--set", "novalue", "info"}, "'novalue' is not KEY=VALUE");
  expectUsage({"--set", "=x", "info"}, "'=x' is not KEY=VALUE");
  expectUsage({"ls", "--stock", "16"}, "--stock");
  expectUsage({"ls", "--stock", "-1"}, "--stock");
  expectUsage({"ls", "--stock", "2", "--filter", "csv"}, "excludes");
  expectUsage({"--plugins", dir_.join("no-such-dir"), "info"}, "no-such-dir");
  expectUsage({"version", "rollback", "Data/notes.txt", "two"}, "two");
}

TEST_F(UsageTest, AttributeRowsAndColumnsOutOfRange) {
  expectUsage({"attr", "set", "Data/notes.txt", "Owner", "x", "--col", "10"}, "--col 10 is outside 0..9");
  expectUsage({"attr", "set", "Data/notes.txt", "Owner", "x", "--col", "-1"}, "--col -1 is outside 0..9");
  expectUsage({"attr", "set", "Data/notes.txt", "Owner", "x", "--row", "-2"}, "--row -2 is negative");
  expectUsage({"attr", "get", "Data", "Owner", "--col", "11"}, "--col 11 is outside 0..9");
  expectUsage({"attr", "get", "Data", "Owner", "--row", "-1"}, "--row -1 is negative");
}

TEST_F(UsageTest, PathsThatLeaveTheVaultAreRefused) {
  expectUsage({"ls", ".."}, "path '..' leaves the vault");
  expectUsage({"ls", "Data/../../x"}, "path 'Data/../../x' leaves the vault");
  expectUsage({"rm", "../notes.txt"}, "leaves the vault");
  expectUsage({"ls", dir_.path()}, "leaves the vault");
  expectUsage({"mkdir", "../Escape"}, "leaves the vault");
  expectUsage({"mv", "Data/notes.txt", ".."}, "leaves the vault");
  expectUsage({"add", dir_.join("notes.txt"), "/"}, "leaves the vault");
}

TEST_F(UsageTest, SymbolicLinksOutOfTheVaultAreRefused) {
  ASSERT_EQ(symlink(dir_.path().c_str(), (vault_ + "/Outside").c_str()), 0);
  before_ = snapshot(vault_);
  expectUsage({"ls", "Outside"}, "path 'Outside' leaves the vault through a symbolic link");
  expectUsage({"rm", "Outside/notes.txt"}, "through a symbolic link");
  expectUsage({"attr", "list", "Outside"}, "through a symbolic link");
}

TEST_F(UsageTest, AbsolutePathsInsideTheVaultAreAccepted) {
  const ToolResult result = runOn(vault_, {"ls", vault_ + "/Data"});
  EXPECT_EQ(result.status, 0) << result.describe();
  EXPECT_NE(result.out.find("notes.txt"), std::string::npos) << result.out;
}

TEST_F(UsageTest, TheVaultsOwnFilesAreNotPaths) {
  expectUsage({"ls", ".v_ver"}, "names one of the vault's own files");
  expectUsage({"rm", "Data/.v_fmd"}, "names one of the vault's own files");
  expectUsage({"fsrename", "Data", ".hidden"}, "begins with \".\"");
  expectUsage({"fsrename", "Data", "a/b"}, "without \"/\"");
}

TEST_F(UsageTest, WrongKindOfPath) {
  expectUsage({"rm", "Data"}, "Data is a folder (use rmdir)");
  expectUsage({"rmdir", "Data/notes.txt"}, "Data/notes.txt is an object, not a folder");
  expectUsage({"ls", "Data/notes.txt"}, "is an object, not a folder");
  expectUsage({"lock", "Data"}, "Data is a folder, not an object");
  expectUsage({"rmdir", "."}, "the vault's root cannot be removed");
  expectUsage({"mv", ".", "Data"}, "the vault's root cannot be moved");
  expectUsage({"mv", "Data", "Data"}, "cannot move into itself");
  expectUsage({"deps", "Data"}, "Data is a folder");
}

TEST_F(UsageTest, BadUuidIsRefused) {
  expectUsage({"init", "--uuid", "not-a-uuid"}, "--uuid: 'not-a-uuid' is not a UUID");
}

TEST_F(UsageTest, MissingFilesToCopyIn) {
  expectUsage({"add", dir_.join("absent.txt"), "Data"}, "absent.txt is not a file");
  expectUsage({"version", "create", "Data/notes.txt", "--from", dir_.join("absent.txt")},
              "absent.txt is not a file");
}

TEST_F(UsageTest, DirectoryThatIsNotAVault) {
  const std::string plain = dir_.join("plain");
  qztest::makeDirs(plain);
  const ToolResult result = runOn(plain, {"ls"});
  expectOneLineError(result, 2, "is not a vault");
  // Nothing was written into it.
  EXPECT_TRUE(snapshot(plain).empty());
}

TEST_F(UsageTest, MissingVaultDirectory) {
  const ToolResult result = runOn(dir_.join("absent"), {"ls"});
  expectOneLineError(result, 2, "no such directory");
  EXPECT_FALSE(qztest::pathExists(dir_.join("absent")));
}

TEST_F(UsageTest, DemoRefusesADirectoryThatIsNotEmpty) {
  const ToolResult result = runTool({"demo", vault_});
  expectOneLineError(result, 2, "is not empty");
  EXPECT_EQ(snapshot(vault_), before_);
}

TEST_F(UsageTest, HelpOfEveryCommandSucceeds) {
  const std::vector<std::vector<std::string>> commands = {
      {}, {"init"}, {"info"}, {"ls"}, {"tree"}, {"mkdir"}, {"rmdir"}, {"rename"},
      {"fsrename"}, {"mv"}, {"add"}, {"rm"}, {"attr"}, {"attr", "list"}, {"attr", "get"},
      {"attr", "set"}, {"attr", "clear"}, {"version"}, {"version", "create"},
      {"version", "list"}, {"version", "rollback"}, {"lock"}, {"unlock"}, {"status"},
      {"analyze"}, {"deps"}, {"used-by"}, {"resources"}, {"types"}, {"lineage"}, {"clean"},
      {"demo"}, {"log"}, {"show"}, {"diff"}, {"lineage", "export"}};
  for (std::vector<std::string> command : commands) {
    command.push_back("--help");
    SCOPED_TRACE(::testing::PrintToString(command));
    const ToolResult result = runTool(command);
    EXPECT_EQ(result.status, 0) << result.describe();
    EXPECT_NE(result.out.find("Usage:"), std::string::npos) << result.out;
    EXPECT_TRUE(result.err.empty()) << result.err;
  }
}

}  // namespace

namespace {

// Every usage error says what to run to learn the right usage.
TEST_F(UsageTest, EveryUsageErrorEndsInWhatToRun) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"frobnicate"}, "(see qzvault --help)"},
      {{"ls", "--colour"}, "(see qzvault help ls)"},
      {{"rename", "Data"}, "(see qzvault help rename)"},
      {{"attr", "set", "Data", "Owner", "x", "--col", "10"}, "(see qzvault help attr set)"},
      {{"version", "rollback", "Data/notes.txt", "two"}, "(see qzvault help version rollback)"},
      {{"ls", ".."}, "(see qzvault help ls)"},
      {{"help", "frobnicate"}, "(see qzvault --help)"},
  };
  for (const auto& [args, ending] : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const ToolResult result = runOn(vault_, args);
    expectOneLineError(result, 2, ending);
    const std::string line = result.errLines().empty() ? "" : result.errLines().front();
    EXPECT_EQ(line.size() >= ending.size() ? line.substr(line.size() - ending.size()) : line, ending);
  }
}

// The parser's own wording of a value it cannot convert is not shown.
TEST_F(UsageTest, ValuesThatAreNotNumbersAreNamedPlainly) {
  const ToolResult result = runOn(vault_, {"version", "rollback", "Data/notes.txt", "abc"});
  expectOneLineError(result, 2, "version: 'abc' is not a valid value");
  EXPECT_EQ(result.err.find("Could not convert"), std::string::npos) << result.err;
}

TEST_F(UsageTest, HelpCommandPrintsTheHelpOfACommand) {
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"ls"}, {"attr", "set"}, {"version", "rollback"}}) {
    SCOPED_TRACE(::testing::PrintToString(command));
    std::vector<std::string> viaHelp = {"help"};
    viaHelp.insert(viaHelp.end(), command.begin(), command.end());
    std::vector<std::string> viaFlag = command;
    viaFlag.push_back("--help");
    const ToolResult helped = runTool(viaHelp);
    ASSERT_EQ(helped.status, 0) << helped.describe();
    EXPECT_EQ(helped.out, runTool(viaFlag).out);
    std::string usage = "Usage: qzvault";
    for (const std::string& word : command) usage += " " + word;
    EXPECT_NE(helped.out.find(usage + " "), std::string::npos) << helped.out;
  }
  const ToolResult all = runTool({"help"});
  ASSERT_EQ(all.status, 0) << all.describe();
  EXPECT_EQ(all.out, runTool({"--help"}).out);
}

// The help is written for people: no type names, ranges or words of the
// parser's own.
TEST_F(UsageTest, HelpTextHasNoParserArtefacts) {
  const ToolResult result = runTool({"--help-all"});
  ASSERT_EQ(result.status, 0) << result.describe();
  for (const std::string artefact :
       {":INT", ":UINT", ":FLOAT", ":TEXT", ":NUMBER", " in [", "SUBCOMMAND", "Subcommands",
        "Positionals", "DIR:DIR", "REQUIRED", "Excludes:", "Needs:", " TEXT", "(2x)", "COMMAND COMMAND"}) {
    EXPECT_EQ(result.out.find(artefact), std::string::npos) << "help shows \"" << artefact << "\"";
  }
  EXPECT_NE(result.out.find("--log-level N "), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("Commands:"), std::string::npos) << result.out;
  // Arguments by their names, in the usage line and in their column.
  const ToolResult set = runTool({"help", "attr", "set"});
  ASSERT_EQ(set.status, 0) << set.describe();
  EXPECT_NE(set.out.find("Usage: qzvault attr set [OPTIONS] PATH NAME VALUE\n"), std::string::npos) << set.out;
  EXPECT_NE(set.out.find("\n  VALUE "), std::string::npos) << set.out;
  const ToolResult help = runTool({"help", "help"});
  ASSERT_EQ(help.status, 0) << help.describe();
  EXPECT_NE(help.out.find("Usage: qzvault help [OPTIONS] [COMMAND...]\n"), std::string::npos) << help.out;
  EXPECT_NE(help.out.find("\n  COMMAND ... "), std::string::npos) << help.out;
}

// help --json: what the text help says, for programs.
TEST_F(UsageTest, HelpAsJsonNamesArgumentsOptionsAndCommands) {
  const ToolResult result = runTool({"help", "attr", "set", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json help = result.json();
  EXPECT_EQ(help["command"], "qzvault attr set");
  EXPECT_EQ(help["description"], "Set one value of an attribute");
  ASSERT_EQ(help["arguments"].size(), 3u);
  EXPECT_EQ(help["arguments"][0]["name"], "PATH");
  EXPECT_EQ(help["arguments"][0]["required"], true);
  bool row = false;
  for (const auto& option : help["options"]) {
    if (option["names"] == nlohmann::json::array({"--row"})) {
      row = true;
      EXPECT_EQ(option["value"], "R");
    }
  }
  EXPECT_TRUE(row) << help.dump(2);

  const nlohmann::json top = runTool({"help", "--json"}).json();
  bool ls = false;
  for (const auto& command : top["commands"]) ls = ls || command["name"] == "ls";
  EXPECT_TRUE(ls) << top.dump(2);
}

TEST_F(UsageTest, VersionNamesTheLibrary) {
  const ToolResult result = runTool({"--version"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, std::string("qzvault (") + getVaultVersion() + ")\n");
  EXPECT_NE(result.out.find("Vault Library version"), std::string::npos) << result.out;
  EXPECT_TRUE(result.err.empty()) << result.err;
}

}  // namespace
