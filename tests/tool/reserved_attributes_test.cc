// Attributes whose names begin with "_" belong to the library: the tool
// refuses to set or clear them (exit status 2, one line, nothing changed); a
// folder's creation date stays what it was when the folder was made, however
// often its attributes change.
#include <sqlite3.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;

// Runs one statement on a database outside the library; the text of the
// first column of its rows, one per line.
std::string sql(const std::string& database, const std::string& statement) {
  sqlite3* db = nullptr;
  std::string rows;
  EXPECT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  const int result = sqlite3_exec(
      db, statement.c_str(),
      [](void* out, int, char** values, char**) {
        *static_cast<std::string*>(out) += std::string(values[0] == nullptr ? "NULL" : values[0]) + "\n";
        return 0;
      },
      &rows, &error);
  EXPECT_EQ(result, SQLITE_OK) << (error == nullptr ? "" : error);
  sqlite3_free(error);
  sqlite3_close(db);
  return rows;
}

class ReservedAttributes : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("orders.csv"), "id\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Data"}).status, 0);
    // Every folder listed once, so that its stamps exist before the snapshot.
    ASSERT_EQ(runOn(vault_, {"attr", "list", "Data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"attr", "list", "."}).status, 0);
  }

  void expectRefused(const std::vector<std::string>& args, const std::string& name) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const auto before = snapshot(vault_);
    const ToolResult result = runOn(vault_, args);
    expectOneLineError(result, 2, name + " belongs to the library");
    EXPECT_EQ(snapshot(vault_), before);
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(ReservedAttributes, SetIsRefusedOnFoldersAndObjects) {
  expectRefused({"attr", "set", "Data", "_CREATOR", "mallory"}, "_CREATOR");
  expectRefused({"attr", "set", "Data/orders.csv", "_LOCKEDUSER", "mallory"}, "_LOCKEDUSER");
  expectRefused({"attr", "set", ".", "_UUID", "x"}, "_UUID");
  expectRefused({"attr", "set", "Data", "_ANYTHING", "x", "--row", "1"}, "_ANYTHING");
}

TEST_F(ReservedAttributes, ClearIsRefused) {
  expectRefused({"attr", "clear", "Data", "_MODIFIEDDATE"}, "_MODIFIEDDATE");
  expectRefused({"attr", "clear", "Data/orders.csv", "_CREATOR"}, "_CREATOR");
}

TEST_F(ReservedAttributes, ReadingThemIsFine) {
  const ToolResult result = runOn(vault_, {"attr", "get", "Data", "_CREATOR"});
  EXPECT_EQ(result.status, 0) << result.describe();
  EXPECT_FALSE(result.out.empty());
}

TEST_F(ReservedAttributes, TheFolderCreationDateDoesNotMoveWhenAttributesChange) {
  const std::string fixed = vault_ + "/Data/.v_fmd";
  // A date well before the directory's status-change time, as a folder made
  // long ago has.
  sql(fixed, "UPDATE v_attr SET v0 = '1000000000' WHERE fname IS NULL AND attr = '_CREATIONDATE'");
  for (const char* value : {"one", "two", "three"}) {
    const ToolResult set = runOn(vault_, {"attr", "set", "Data", "Owner", value});
    ASSERT_EQ(set.status, 0) << set.describe();
    ASSERT_EQ(runOn(vault_, {"attr", "list", "Data"}).status, 0);
  }
  EXPECT_EQ(sql(fixed, "SELECT v0 FROM v_attr WHERE fname IS NULL AND attr = '_CREATIONDATE'"),
            "1000000000\n");
}

TEST_F(ReservedAttributes, EveryFolderDateIsOneRow) {
  const std::string fixed = vault_ + "/Data/.v_fmd";
  // A date that a host cleared: one row without a value.
  sql(fixed, "UPDATE v_attr SET v0 = NULL WHERE fname IS NULL AND attr = '_MODIFIEDDATE'");
  ASSERT_EQ(runOn(vault_, {"attr", "list", "Data"}).status, 0);
  EXPECT_EQ(sql(fixed, "SELECT COUNT(*) FROM v_attr WHERE fname IS NULL AND attr = '_MODIFIEDDATE'"), "1\n");
  EXPECT_EQ(sql(fixed, "SELECT v0 IS NOT NULL FROM v_attr WHERE fname IS NULL AND attr = '_MODIFIEDDATE'"),
            "1\n");
}

}  // namespace
