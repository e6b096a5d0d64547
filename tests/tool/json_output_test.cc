// --json on the commands that change the vault and print nothing otherwise:
// each prints one JSON document that says what was done, and the vault shows
// that it was.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using qztest::TempDir;
using qztool::runOn;
using qztool::ToolResult;

class JsonOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Archive"}).status, 0);
    qztool::writeText(dir_.join("plan.txt"), "first\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("plan.txt"), "Data"}).status, 0);
  }

  // Runs a command with --json; it must succeed and print one JSON document.
  nlohmann::json runJson(std::vector<std::string> args) {
    args.push_back("--json");
    const ToolResult result = runOn(vault_, args);
    EXPECT_EQ(result.status, 0) << result.describe();
    EXPECT_TRUE(result.err.empty()) << result.err;
    try {
      return result.json();
    } catch (const nlohmann::json::exception&) {
      ADD_FAILURE() << "not JSON: " << result.out;
      return nlohmann::json();
    }
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(JsonOutputTest, AttributeSetAndClear) {
  EXPECT_EQ(runJson({"attr", "set", "Data/plan.txt", "Owner", "ann", "--row", "1", "--col", "2"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"name", "Owner"}, {"row", 1}, {"col", 2},
                            {"value", "ann"}}));
  EXPECT_EQ(runOn(vault_, {"attr", "get", "Data/plan.txt", "Owner", "--row", "1", "--col", "2"}).out,
            "ann\n");
  EXPECT_EQ(runJson({"attr", "clear", "Data/plan.txt", "Owner"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"name", "Owner"}, {"cleared", true}}));
}

TEST_F(JsonOutputTest, RenameFsrenameAndMove) {
  EXPECT_EQ(runJson({"rename", "Data/plan.txt", "The plan"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"name", "The plan"}}));
  EXPECT_EQ(runJson({"fsrename", "Data/plan.txt", "plan2.txt"}),
            (nlohmann::json{{"previous", "Data/plan.txt"}, {"path", "Data/plan2.txt"}}));
  EXPECT_TRUE(fs::exists(vault_ + "/Data/plan2.txt"));
  EXPECT_EQ(runJson({"mv", "Data/plan2.txt", "Archive"}),
            (nlohmann::json{{"previous", "Data/plan2.txt"}, {"path", "Archive/plan2.txt"}}));
  EXPECT_TRUE(fs::exists(vault_ + "/Archive/plan2.txt"));
  ASSERT_EQ(runOn(vault_, {"mkdir", "Data/Old"}).status, 0);
  EXPECT_EQ(runJson({"mv", "Archive", "Data/Old"}),
            (nlohmann::json{{"previous", "Archive"}, {"path", "Data/Old/Archive"}}));
  EXPECT_TRUE(fs::exists(vault_ + "/Data/Old/Archive/plan2.txt"));
}

TEST_F(JsonOutputTest, LockUnlockAndRollback) {
  const nlohmann::json locked = runJson({"lock", "Data/plan.txt"});
  EXPECT_EQ(locked["path"], "Data/plan.txt");
  EXPECT_EQ(locked["locked"], true);
  EXPECT_EQ(locked["lockedBy"], runOn(vault_, {"status", "Data/plan.txt", "--json"}).json()["lockedBy"]);
  EXPECT_EQ(runJson({"unlock", "Data/plan.txt"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"locked", false}, {"lockedBy", nullptr}}));

  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  // The default rollback keeps the current content as the next version.
  EXPECT_EQ(runJson({"version", "rollback", "Data/plan.txt", "1"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"restored", 1}, {"kept", 3}, {"discarded", false}}));
  EXPECT_EQ(runJson({"version", "rollback", "Data/plan.txt", "2", "--discard"}),
            (nlohmann::json{{"path", "Data/plan.txt"}, {"restored", 2}, {"kept", nullptr}, {"discarded", true}}));
}

TEST_F(JsonOutputTest, RemoveObjectAndFolder) {
  EXPECT_EQ(runJson({"rm", "Data/plan.txt"}), (nlohmann::json{{"removed", "Data/plan.txt"}}));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/plan.txt"));
  EXPECT_EQ(runJson({"rmdir", "Archive"}), (nlohmann::json{{"removed", "Archive"}}));
  EXPECT_FALSE(fs::exists(vault_ + "/Archive"));
}

// show --json: text content as it is, other bytes in base64.
TEST_F(JsonOutputTest, ShowCarriesTextAndBinaryContent) {
  const nlohmann::json text = runJson({"show", "Data/plan.txt@current"});
  EXPECT_EQ(text["path"], "Data/plan.txt");
  EXPECT_EQ(text["version"], "current");
  EXPECT_EQ(text["encoding"], "utf-8");
  EXPECT_EQ(text["content"], "first\n");
  EXPECT_EQ(text["size"], 6);
  EXPECT_EQ(text["sha256"].get<std::string>().size(), 64u);

  qztool::writeText(dir_.join("blob.bin"), std::string("\xff\x00\x01", 3));
  ASSERT_EQ(runOn(vault_, {"add", dir_.join("blob.bin"), "Data"}).status, 0);
  const nlohmann::json binary = runJson({"show", "Data/blob.bin@current"});
  EXPECT_EQ(binary["encoding"], "base64");
  EXPECT_EQ(binary["content"], "/wAB");
}

// diff --json: both sides and the diff; the exit status still says whether
// they differ.
TEST_F(JsonOutputTest, DiffSaysBothSidesAndTheChange) {
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  const nlohmann::json same = runJson({"diff", "Data/plan.txt"});
  EXPECT_EQ(same["identical"], true);
  EXPECT_EQ(same["from"]["version"], 1);
  EXPECT_EQ(same["to"]["version"], "current");

  qztool::writeText(vault_ + "/Data/plan.txt", "second\n");
  const ToolResult changed = runOn(vault_, {"diff", "Data/plan.txt", "--json"});
  EXPECT_EQ(changed.status, 1) << changed.describe();
  EXPECT_TRUE(changed.err.empty()) << changed.err;
  const nlohmann::json diff = changed.json();
  EXPECT_EQ(diff["identical"], false);
  EXPECT_NE(diff["diff"].get<std::string>().find("-first\n+second\n"), std::string::npos) << diff.dump(2);
}

// graph --json is graph --format json; the two cannot both be given.
TEST_F(JsonOutputTest, GraphJsonIsTheJsonFormat) {
  const ToolResult flag = runOn(vault_, {"graph", "--json"});
  ASSERT_EQ(flag.status, 0) << flag.describe();
  EXPECT_EQ(flag.out, runOn(vault_, {"graph", "--format", "json"}).out);
  EXPECT_TRUE(flag.json().contains("nodes"));
  EXPECT_EQ(runOn(vault_, {"graph", "--json", "--format", "dot"}).status, 2);
}

TEST_F(JsonOutputTest, LocksClear) {
  const nlohmann::json nothing = runJson({"locks", "clear", "Data"});
  EXPECT_EQ(nothing["folder"], "Data");
  EXPECT_EQ(nothing["cleared"], false);
  qztool::writeText(vault_ + "/Data/.v_lck", "");
  const nlohmann::json cleared = runJson({"locks", "clear", "Data", "--force"});
  EXPECT_EQ(cleared["cleared"], true);
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_lck"));
}

}  // namespace
