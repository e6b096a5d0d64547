// Finding the vault like git finds a repository: init writes the root's
// marker; without --vault the tool walks up from the current directory (also
// to vaults made before the marker, by their UUID row or their metadata
// files); -C DIR and QZVAULT_DIR; vault paths are read from the current
// folder; a command run in a sub-folder never makes a second lineage store,
// and a directory outside any vault gets one line naming qzvault init.
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::RunOptions;
using qztool::runTool;
using qztool::ToolResult;

RunOptions in(const std::string& directory) {
  RunOptions options;
  options.cwd = directory;
  return options;
}

void execute(const std::string& database, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
  sqlite3_free(error);
  sqlite3_close(db);
}

class VaultDiscovery : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    qztool::writeText(dir_.join("orders.csv"), "id\n1\n");
    ok(runTool({"--vault", vault_, "mkdir", "Data"}));
    ok(runTool({"--vault", vault_, "mkdir", "Data/Raw"}));
    ok(runTool({"--vault", vault_, "add", dir_.join("orders.csv"), "Data"}));
  }

  static void ok(const ToolResult& result) { ASSERT_EQ(result.status, 0) << result.describe(); }

  // The root as the tool reports it from `directory`.
  static std::string rootFoundFrom(const std::string& directory, const RunOptions& options) {
    const ToolResult result = runTool({"info", "--json"}, options);
    EXPECT_EQ(result.status, 0) << directory << "\n" << result.describe();
    return result.status == 0 ? result.json()["root"].get<std::string>() : std::string();
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(VaultDiscovery, InitWritesTheRootMarker) {
  EXPECT_TRUE(fs::is_regular_file(vault_ + "/.v_vault"));
  // The marker is one of the vault's own files: listings do not show it.
  const ToolResult listed = runTool({"--vault", vault_, "ls"});
  EXPECT_EQ(listed.out.find(".v_vault"), std::string::npos) << listed.out;
}

TEST_F(VaultDiscovery, CommandsInASubFolderFindTheRoot) {
  EXPECT_EQ(rootFoundFrom(vault_, in(vault_)), vault_);
  EXPECT_EQ(rootFoundFrom(vault_ + "/Data", in(vault_ + "/Data")), vault_);
  EXPECT_EQ(rootFoundFrom(vault_ + "/Data/Raw", in(vault_ + "/Data/Raw")), vault_);
  // A directory made behind the vault's back, never seen by the library.
  fs::create_directories(vault_ + "/Data/Raw/new/deeper");
  EXPECT_EQ(rootFoundFrom("deeper", in(vault_ + "/Data/Raw/new/deeper")), vault_);
}

TEST_F(VaultDiscovery, AnalyzeInASubFolderMakesNoSecondLineageStore) {
  ok(runTool({"analyze"}, in(vault_ + "/Data")));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_imd"));
  EXPECT_TRUE(fs::exists(vault_ + "/.v_imd"));
  const ToolResult resources = runTool({"resources", "--json"}, in(vault_ + "/Data/Raw"));
  ok(resources);
  EXPECT_NE(resources.out.find("orders.csv"), std::string::npos) << resources.out;
  EXPECT_FALSE(fs::exists(vault_ + "/Data/Raw/.v_imd"));
}

TEST_F(VaultDiscovery, PathsAreReadFromTheCurrentFolder) {
  const ToolResult here = runTool({"ls", "--json"}, in(vault_ + "/Data"));
  ok(here);
  EXPECT_EQ(here.json()["path"], "Data");
  ok(runTool({"attr", "set", ".", "Owner", "data-team"}, in(vault_ + "/Data")));
  const ToolResult owner = runTool({"--vault", vault_, "attr", "get", "Data", "Owner"});
  EXPECT_EQ(owner.out, "Owner  data-team\n") << owner.describe();
  const ToolResult object = runTool({"status", "orders.csv", "--json"}, in(vault_ + "/Data"));
  ok(object);
  // What is printed stays a vault path from the root.
  EXPECT_EQ(object.json()["path"], "Data/orders.csv");
  const ToolResult up = runTool({"ls", "..", "--json"}, in(vault_ + "/Data/Raw"));
  ok(up);
  EXPECT_EQ(up.json()["path"], "Data");
  expectOneLineError(runTool({"ls", "../.."}, in(vault_ + "/Data")), 2, "leaves the vault");
  // Outside the vault, with --vault, paths are read from the root.
  const ToolResult fromOutside = runTool({"--vault", vault_, "ls", "Data", "--json"}, in(dir_.path()));
  ok(fromOutside);
  EXPECT_EQ(fromOutside.json()["path"], "Data");
}

TEST_F(VaultDiscovery, OutsideAnyVaultIsOneLineNamingInit) {
  const std::string plain = dir_.join("plain");
  fs::create_directories(plain);
  const ToolResult result = runTool({"ls"}, in(plain));
  expectOneLineError(result, 2, "is not inside a vault (run 'qzvault init' to make it one");
  EXPECT_TRUE(fs::is_empty(plain));
}

TEST_F(VaultDiscovery, DashCRunsAsIfStartedThere) {
  const ToolResult result = runTool({"-C", vault_, "-C", "Data", "ls", "--json"}, in(dir_.path()));
  ok(result);
  EXPECT_EQ(result.json()["path"], "Data");
  expectOneLineError(runTool({"-C", dir_.join("absent"), "ls"}), 2, "-C " + dir_.join("absent"));
}

TEST_F(VaultDiscovery, QzvaultDirNamesTheRoot) {
  RunOptions options = in(dir_.path());
  options.env = {{"QZVAULT_DIR", vault_}};
  EXPECT_EQ(rootFoundFrom(dir_.path(), options), vault_);
  // --vault wins over the variable.
  const std::string other = dir_.join("other");
  qztool::initVault(other);
  const ToolResult byOption = runTool({"--vault", other, "info", "--json"}, options);
  ok(byOption);
  EXPECT_EQ(byOption.json()["root"], other);
}

TEST_F(VaultDiscovery, AFolderNamedAsTheRootIsRefused) {
  expectOneLineError(runTool({"--vault", vault_ + "/Data", "analyze"}), 2,
                     vault_ + "/Data is a folder of the vault at " + vault_ + ", not its root (give --vault " +
                         vault_ + ")");
  RunOptions options = in(dir_.path());
  options.env = {{"QZVAULT_DIR", vault_ + "/Data/Raw"}};
  expectOneLineError(runTool({"analyze"}, options), 2, "set QZVAULT_DIR=" + vault_);
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_imd"));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/Raw/.v_imd"));
}

TEST_F(VaultDiscovery, InitInsideAVaultIsRefused) {
  const auto before = qztool::snapshot(vault_);
  expectOneLineError(runTool({"init"}, in(vault_ + "/Data")), 2,
                     vault_ + "/Data is inside the vault at " + vault_);
  expectOneLineError(runTool({"--vault", vault_ + "/Data/Raw/new", "init"}), 2, "is inside the vault at");
  EXPECT_EQ(qztool::snapshot(vault_), before);
  // Again at the root is fine.
  ok(runTool({"init"}, in(vault_)));
}

TEST_F(VaultDiscovery, AVaultMadeBeforeTheMarkerIsFoundByItsUuid) {
  fs::remove(vault_ + "/.v_vault");
  EXPECT_EQ(rootFoundFrom("Data/Raw", in(vault_ + "/Data/Raw")), vault_);
  // init there gives it the marker.
  ok(runTool({"init"}, in(vault_)));
  EXPECT_TRUE(fs::exists(vault_ + "/.v_vault"));
}

TEST_F(VaultDiscovery, AVaultWithoutMarkerOrUuidIsFoundByItsMetadataFiles) {
  fs::remove(vault_ + "/.v_vault");
  execute(vault_ + "/.v_fmd", "DELETE FROM v_attr WHERE attr = '_UUID'");
  ok(runTool({"--vault", vault_, "ls", "Data/Raw"}));
  EXPECT_EQ(rootFoundFrom("Data/Raw", in(vault_ + "/Data/Raw")), vault_);
  ok(runTool({"analyze"}, in(vault_ + "/Data")));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_imd"));
}

TEST_F(VaultDiscovery, ConfigSaysWhichVaultAndHowItWasFound) {
  const ToolResult result = runTool({"config", "--json"}, in(vault_ + "/Data"));
  ok(result);
  EXPECT_EQ(result.json()["vault"]["root"], vault_);
  EXPECT_EQ(result.json()["vault"]["foundBy"], "current directory");
  const ToolResult outside = runTool({"config", "--json"}, in(dir_.path()));
  ok(outside);
  EXPECT_TRUE(outside.json()["vault"].is_null());
}

}  // namespace
