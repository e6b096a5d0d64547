// attr list|get|set|clear on folders and objects, rows and columns
// addressed, and the JSON forms parsed back.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;

class AttributesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("orders.csv"), "id\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Data"}).status, 0);
  }

  void set(const std::string& path, const std::vector<std::string>& rest) {
    std::vector<std::string> args = {"attr", "set", path};
    args.insert(args.end(), rest.begin(), rest.end());
    const ToolResult result = runOn(vault_, args);
    ASSERT_EQ(result.status, 0) << result.describe();
    EXPECT_TRUE(result.out.empty()) << result.out;
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(AttributesTest, FolderAttributeSingleValue) {
  set("Data", {"Owner", "data-team"});
  const ToolResult value = runOn(vault_, {"attr", "get", "Data", "Owner"});
  ASSERT_EQ(value.status, 0) << value.describe();
  EXPECT_EQ(value.out, "Owner  data-team\n");
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data", "Owner", "--row", "0", "--col", "0"}).out, "data-team\n");
}

TEST_F(AttributesTest, RowsAndColumnsAreAddressable) {
  set("Data", {"Steps", "extract", "--row", "0", "--col", "1"});
  set("Data", {"Steps", "load", "--row", "2", "--col", "9"});
  const ToolResult all = runOn(vault_, {"attr", "get", "Data", "Steps"});
  ASSERT_EQ(all.status, 0) << all.describe();
  EXPECT_EQ(all.out,
            "Steps[0]   | extract\n"
            "Steps[1]\n"
            "Steps[2]   |  |  |  |  |  |  |  |  | load\n");
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data", "Steps", "--row", "2", "--col", "9"}).out, "load\n");
  // A null value prints an empty line; as JSON it is null.
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data", "Steps", "--row", "1"}).out, "\n");
  const ToolResult json = runOn(vault_, {"attr", "get", "Data", "Steps", "--row", "1", "--json"});
  EXPECT_EQ(json.json(), nlohmann::json({{"name", "Steps"}, {"row", 1}, {"col", 0}, {"value", nullptr}}));
}

TEST_F(AttributesTest, ARowBeyondTheAttributeFails) {
  set("Data", {"Owner", "x"});
  expectOneLineError(runOn(vault_, {"attr", "get", "Data", "Owner", "--row", "3"}), 1,
                     "attribute Owner of Data has 1 row; row 3 does not exist");
}

TEST_F(AttributesTest, ListShowsTheFoldersAttributesAsJson) {
  set("Data", {"Owner", "data-team"});
  set("Data", {"Steps", "a", "--row", "1"});
  const ToolResult result = runOn(vault_, {"attr", "list", "Data", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json list = result.json();
  ASSERT_TRUE(list.is_array());
  nlohmann::json owner;
  nlohmann::json steps;
  for (const auto& attribute : list) {
    if (attribute["name"] == "Owner") owner = attribute;
    if (attribute["name"] == "Steps") steps = attribute;
  }
  EXPECT_EQ(owner["rows"], nlohmann::json::parse(R"([["data-team"]])"));
  EXPECT_EQ(steps["rows"], nlohmann::json::parse(R"([[], ["a"]])"));
}

TEST_F(AttributesTest, ClearLeavesOneEmptyRow) {
  set("Data", {"Steps", "a", "--row", "2"});
  const ToolResult cleared = runOn(vault_, {"attr", "clear", "Data", "Steps"});
  ASSERT_EQ(cleared.status, 0) << cleared.describe();
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data", "Steps", "--json"}).json(),
            nlohmann::json::parse(R"([{"name": "Steps", "rows": [[]]}])"));
}

TEST_F(AttributesTest, TheRootFolderHasTheVaultsUuid) {
  const std::string uuid = runOn(vault_, {"info", "--json"}).json()["uuid"];
  const ToolResult result = runOn(vault_, {"attr", "get", ".", "_UUID", "--col", "0"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, uuid + "\n");
}

TEST_F(AttributesTest, ObjectAttributes) {
  set("Data/orders.csv", {"Source", "crm"});
  set("Data/orders.csv", {"Source", "erp", "--row", "1", "--col", "2"});
  const ToolResult one = runOn(vault_, {"attr", "get", "Data/orders.csv", "Source", "--json"});
  ASSERT_EQ(one.status, 0) << one.describe();
  EXPECT_EQ(one.json(), nlohmann::json::parse(R"([{"name": "Source", "rows": [["crm"], [null, null, "erp"]]}])"));

  const ToolResult list = runOn(vault_, {"attr", "list", "Data/orders.csv"});
  ASSERT_EQ(list.status, 0) << list.describe();
  // Names are padded to the longest one listed.
  EXPECT_THAT(list.out, ::testing::ContainsRegex("Source\\[0\\] +crm\n"));
  EXPECT_THAT(list.out, ::testing::ContainsRegex("Source\\[1\\] +  \\|  \\| erp\n"));
  // The creator stamp of an added object is among its attributes.
  EXPECT_NE(list.out.find("_CREATOR"), std::string::npos) << list.out;

  // Folder and object attributes of one name are separate.
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data", "Source", "--json"}).json(),
            nlohmann::json::parse(R"([{"name": "Source", "rows": [[]]}])"));
}

TEST_F(AttributesTest, AttributesOfAMissingObjectFail) {
  expectOneLineError(runOn(vault_, {"attr", "list", "Data/absent.csv"}), 1, "absent.csv");
  expectOneLineError(runOn(vault_, {"attr", "set", "Data/absent.csv", "A", "b"}), 1, "absent.csv");
}

}  // namespace
