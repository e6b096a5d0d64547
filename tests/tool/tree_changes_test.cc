// mkdir, rmdir, rename, fsrename, mv, add and rm: their success paths, and
// their failures with the library's message and exit status 1.
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::pathExists;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;

class TreeChangesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Archive"}).status, 0);
    qztool::writeText(dir_.join("orders.csv"), "id,amount\n1,10\n");
    const ToolResult added = runOn(vault_, {"add", dir_.join("orders.csv"), "Data"});
    ASSERT_EQ(added.status, 0) << added.describe();
  }

  std::string at(const std::string& relative) const { return vault_ + "/" + relative; }
  // The display name the tool lists for the entry with this file name.
  std::string displayName(const std::string& folder, const std::string& file) {
    const nlohmann::json listing = runOn(vault_, {"ls", folder, "--json"}).json();
    for (const char* kind : {"folders", "objects"}) {
      for (const auto& entry : listing[kind]) {
        if (entry["file"] == file) return entry["name"];
      }
    }
    return "(not listed)";
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(TreeChangesTest, MkdirConvertsADisplayNameThatIsNoFileName) {
  const ToolResult result = runOn(vault_, {"mkdir", "Data/Sales: 2024/Q1?"});
  // "Sales: 2024" is taken as a path and does not exist.
  expectOneLineError(result, 1, "not found");

  const ToolResult made = runOn(vault_, {"mkdir", "Data/Sales: Q1?"});
  ASSERT_EQ(made.status, 0) << made.describe();
  EXPECT_EQ(made.out, "Created folder Data/Sales_ Q1_ (display name \"Sales: Q1?\")\n");
  EXPECT_TRUE(pathExists(at("Data/Sales_ Q1_")));
  EXPECT_EQ(displayName("Data", "Sales_ Q1_"), "Sales: Q1?");

  const ToolResult plain = runOn(vault_, {"mkdir", "Data/Plain", "--json"});
  ASSERT_EQ(plain.status, 0) << plain.describe();
  EXPECT_EQ(plain.json(), nlohmann::json({{"path", "Data/Plain"}, {"name", "Plain"}}));
}

TEST_F(TreeChangesTest, MkdirOfAnExistingNameMakesAnotherDirectory) {
  const ToolResult again = runOn(vault_, {"mkdir", "Data", "--json"});
  ASSERT_EQ(again.status, 0) << again.describe();
  EXPECT_NE(again.json()["path"], "Data");
  EXPECT_EQ(again.json()["name"], "Data");
}

TEST_F(TreeChangesTest, RmdirRemovesAnEmptyFolderOnly) {
  const auto before = snapshot(vault_);
  expectOneLineError(runOn(vault_, {"rmdir", "Data"}), 1, "Can't delete a non-empty folder");
  EXPECT_EQ(snapshot(vault_), before);

  const ToolResult removed = runOn(vault_, {"rmdir", "Archive"});
  ASSERT_EQ(removed.status, 0) << removed.describe();
  EXPECT_TRUE(removed.out.empty());
  EXPECT_FALSE(pathExists(at("Archive")));
  expectOneLineError(runOn(vault_, {"rmdir", "Archive"}), 1, "Archive not found");
}

TEST_F(TreeChangesTest, RenameChangesDisplayNamesOnly) {
  ASSERT_EQ(runOn(vault_, {"rename", "Data", "Data files"}).status, 0);
  EXPECT_TRUE(pathExists(at("Data/orders.csv")));
  EXPECT_EQ(displayName(".", "Data"), "Data files");

  const ToolResult object = runOn(vault_, {"rename", "Data/orders.csv", "Daily orders"});
  ASSERT_EQ(object.status, 0) << object.describe();
  EXPECT_TRUE(pathExists(at("Data/orders.csv")));
  EXPECT_EQ(displayName("Data", "orders.csv"), "Daily orders");
}

TEST_F(TreeChangesTest, RenameToADisplayNameInUseFails) {
  qztool::writeText(dir_.join("other.csv"), "x\n");
  ASSERT_EQ(runOn(vault_, {"add", dir_.join("other.csv"), "Data", "--name", "Other"}).status, 0);
  expectOneLineError(runOn(vault_, {"rename", "Data/orders.csv", "Other"}), 1,
                     "An object with that name already exists");
  EXPECT_EQ(displayName("Data", "orders.csv"), "orders");
}

TEST_F(TreeChangesTest, RenameOfAMissingObjectFails) {
  expectOneLineError(runOn(vault_, {"rename", "Data/absent.csv", "X"}), 1, "absent.csv");
}

TEST_F(TreeChangesTest, FsRenameRenamesDirectoriesAndFiles) {
  ASSERT_EQ(runOn(vault_, {"rename", "Archive", "Old things"}).status, 0);
  const ToolResult folder = runOn(vault_, {"fsrename", "Archive", "Attic"});
  ASSERT_EQ(folder.status, 0) << folder.describe();
  EXPECT_TRUE(pathExists(at("Attic")));
  EXPECT_FALSE(pathExists(at("Archive")));
  EXPECT_EQ(displayName(".", "Attic"), "Old things");

  const ToolResult file = runOn(vault_, {"fsrename", "Data/orders.csv", "orders-2024.csv"});
  ASSERT_EQ(file.status, 0) << file.describe();
  EXPECT_TRUE(pathExists(at("Data/orders-2024.csv")));
  EXPECT_FALSE(pathExists(at("Data/orders.csv")));
}

TEST_F(TreeChangesTest, FsRenameFailures) {
  expectOneLineError(runOn(vault_, {"fsrename", ".", "elsewhere"}), 1, "Can't rename the vault root");
  qztool::writeText(dir_.join("taken.csv"), "x\n");
  ASSERT_EQ(runOn(vault_, {"add", dir_.join("taken.csv"), "Data"}).status, 0);
  const auto before = snapshot(vault_);
  expectOneLineError(runOn(vault_, {"fsrename", "Data/orders.csv", "taken.csv"}), 1,
                     "A file by that name already exists");
  EXPECT_EQ(qztool::userEntries(snapshot(vault_)), qztool::userEntries(before));
}

TEST_F(TreeChangesTest, MvMovesObjectsAndFolders) {
  const ToolResult object = runOn(vault_, {"mv", "Data/orders.csv", "Archive"});
  ASSERT_EQ(object.status, 0) << object.describe();
  EXPECT_TRUE(pathExists(at("Archive/orders.csv")));
  EXPECT_FALSE(pathExists(at("Data/orders.csv")));

  const ToolResult folder = runOn(vault_, {"mv", "Data", "Archive"});
  ASSERT_EQ(folder.status, 0) << folder.describe();
  EXPECT_TRUE(pathExists(at("Archive/Data")));
  EXPECT_FALSE(pathExists(at("Data")));
}

TEST_F(TreeChangesTest, MvOntoAnExistingFileFails) {
  ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Archive", "--name", "orders"}).status, 0);
  const auto before = snapshot(vault_);
  expectOneLineError(runOn(vault_, {"mv", "Data/orders.csv", "Archive"}), 1,
                     "A file by that name already exists");
  EXPECT_EQ(qztool::userEntries(snapshot(vault_)), qztool::userEntries(before));
}

TEST_F(TreeChangesTest, MvIntoAMissingFolderFails) {
  expectOneLineError(runOn(vault_, {"mv", "Data/orders.csv", "Nowhere"}), 1, "Nowhere not found");
  EXPECT_TRUE(pathExists(at("Data/orders.csv")));
}

TEST_F(TreeChangesTest, AddCopiesTheFileUnderADerivedName) {
  const ToolResult result = runOn(vault_, {"add", dir_.join("orders.csv"), "Archive", "--name", "Q1: orders", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.json(), nlohmann::json({{"path", "Archive/Q1_ orders.csv"}, {"name", "Q1: orders"}}));
  EXPECT_EQ(qztest::readFile(at("Archive/Q1_ orders.csv")), "id,amount\n1,10\n");
  // The original stays where it was.
  EXPECT_TRUE(pathExists(dir_.join("orders.csv")));
  const ToolResult text = runOn(vault_, {"add", dir_.join("orders.csv"), "Archive"});
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_EQ(text.out, "Added Archive/orders.csv (display name \"orders\")\n");
}

TEST_F(TreeChangesTest, AddWithADisplayNameInUseLeavesNothingBehind) {
  const auto before = snapshot(vault_);
  // Data already holds a csv object displayed as "orders".
  qztool::writeText(dir_.join("other.csv"), "x\n");
  expectOneLineError(runOn(vault_, {"add", dir_.join("other.csv"), "Data", "--name", "orders"}), 1,
                     "An object with that name already exists");
  EXPECT_EQ(qztool::userEntries(snapshot(vault_)), qztool::userEntries(before));
}

TEST_F(TreeChangesTest, AddIntoAMissingFolderFails) {
  expectOneLineError(runOn(vault_, {"add", dir_.join("orders.csv"), "Nowhere"}), 1, "Nowhere not found");
}

TEST_F(TreeChangesTest, RmDeletesAnObject) {
  const ToolResult result = runOn(vault_, {"rm", "Data/orders.csv"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_TRUE(result.out.empty());
  EXPECT_FALSE(pathExists(at("Data/orders.csv")));
  expectOneLineError(runOn(vault_, {"rm", "Data/orders.csv"}), 1, "orders.csv");
}

}  // namespace
