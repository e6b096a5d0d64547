// ls and tree over a vault made through the tool.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;

// Data/ with b.csv and a.txt (added in that order, listed by file name),
// Reports/ empty, and a folder whose display name needed conversion.
class BrowseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Reports"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Sales: Q1?"}).status, 0);
    qztool::writeText(dir_.join("b.csv"), "x,y\n");
    qztool::writeText(dir_.join("a.txt"), "notes\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("b.csv"), "Data", "--name", "Bee data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("a.txt"), "Data"}).status, 0);
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(BrowseTest, LsListsFoldersThenObjectsByFileName) {
  const ToolResult root = runOn(vault_, {"ls"});
  ASSERT_EQ(root.status, 0) << root.describe();
  EXPECT_EQ(root.out,
            "folder  Data        Data/\n"
            "folder  Reports     Reports/\n"
            "folder  Sales: Q1?  Sales_ Q1_/\n");

  const ToolResult data = runOn(vault_, {"ls", "Data"});
  ASSERT_EQ(data.status, 0) << data.describe();
  EXPECT_EQ(data.out,
            "-  a         a.txt\n"
            "-  Bee data  Bee data.csv\n");
  EXPECT_TRUE(runOn(vault_, {"ls", "Reports"}).out.empty());
}

TEST_F(BrowseTest, LsFiltersByExtensionOrStockFolder) {
  const ToolResult filtered = runOn(vault_, {"ls", "Data", "--filter", "csv"});
  ASSERT_EQ(filtered.status, 0) << filtered.describe();
  EXPECT_EQ(filtered.out, "-  Bee data  Bee data.csv\n");
  // Stock folder 12 (Data) admits csv, txt and dat.
  EXPECT_EQ(runOn(vault_, {"ls", "Data", "--stock", "12"}).out,
            "-  a         a.txt\n"
            "-  Bee data  Bee data.csv\n");
  // Stock folder 11 (Logs) admits only log files.
  EXPECT_TRUE(runOn(vault_, {"ls", "Data", "--stock", "11"}).out.empty());
}

TEST_F(BrowseTest, LsJsonParsesBack) {
  const ToolResult result = runOn(vault_, {"ls", "Data", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json listing = result.json();
  EXPECT_EQ(listing["path"], "Data");
  EXPECT_EQ(listing["name"], "Data");
  EXPECT_TRUE(listing["folders"].empty());
  ASSERT_EQ(listing["objects"].size(), 2u);
  EXPECT_EQ(listing["objects"][1]["name"], "Bee data");
  EXPECT_EQ(listing["objects"][1]["file"], "Bee data.csv");
  EXPECT_EQ(listing["objects"][1]["path"], "Data/Bee data.csv");
  EXPECT_TRUE(listing["objects"][1]["type"].is_null());
  EXPECT_FALSE(listing["objects"][1]["readOnly"].get<bool>());
  EXPECT_TRUE(listing["links"].empty());

  const nlohmann::json root = runOn(vault_, {"ls", "--json"}).json();
  ASSERT_EQ(root["folders"].size(), 3u);
  EXPECT_EQ(root["folders"][2]["name"], "Sales: Q1?");
  EXPECT_EQ(root["folders"][2]["file"], "Sales_ Q1_");
}

// The flag says whether the user running the tool can open the file for
// writing. Root can open any file, so the listing runs as user nobody (a
// forked child drops privileges when the test runs as root).
TEST_F(BrowseTest, LsShowsObjectsTheUserCannotWriteAsReadOnly) {
  qztest::makeReachable(dir_.path());
  ASSERT_EQ(chmod((vault_ + "/Data/a.txt").c_str(), 0444), 0);
  ASSERT_EQ(chmod((vault_ + "/Data/Bee data.csv").c_str(), 0666), 0);
  qztool::RunOptions asNobody;
  asNobody.asNobody = true;
  const ToolResult result = runOn(vault_, {"ls", "Data"}, asNobody);
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out,
            "-  a         a.txt         read-only\n"
            "-  Bee data  Bee data.csv\n");
}

TEST_F(BrowseTest, LsOfAMissingFolderFailsWithTheLibrarysMessage) {
  const ToolResult result = runOn(vault_, {"ls", "Nowhere"});
  expectOneLineError(result, 1, "Directory " + vault_ + "/Nowhere not found");
}

TEST_F(BrowseTest, TreeShowsEverythingBelowAFolder) {
  const ToolResult result = runOn(vault_, {"tree"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out,
            ".\n"
            "|-- Data/\n"
            "|   |-- a.txt\n"
            "|   `-- Bee data.csv\n"
            "|-- Reports/\n"
            "`-- Sales_ Q1_/  \"Sales: Q1?\"\n");
  EXPECT_EQ(runOn(vault_, {"tree", "Data"}).out,
            "Data/\n"
            "|-- a.txt\n"
            "`-- Bee data.csv\n");
}

TEST_F(BrowseTest, TreeJsonNestsFolders) {
  const ToolResult result = runOn(vault_, {"tree", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json tree = result.json();
  EXPECT_EQ(tree["path"], ".");
  EXPECT_TRUE(tree["file"].is_null());
  ASSERT_EQ(tree["folders"].size(), 3u);
  EXPECT_EQ(tree["folders"][0]["path"], "Data");
  ASSERT_EQ(tree["folders"][0]["objects"].size(), 2u);
  EXPECT_EQ(tree["folders"][0]["objects"][0]["file"], "a.txt");
  EXPECT_EQ(tree["folders"][2]["name"], "Sales: Q1?");
}

TEST_F(BrowseTest, TreeOfAMissingFolderFails) {
  expectOneLineError(runOn(vault_, {"tree", "Nowhere"}), 1, "Nowhere not found");
}

}  // namespace
