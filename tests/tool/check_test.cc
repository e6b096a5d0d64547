// qzvault check: a clean vault passes with status 0; findings give status 1
// until --repair removes them; a file that is not a database stays a finding
// and is never touched; usage errors give status 2.
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using qztest::TempDir;
using qztool::runOn;
using qztool::ToolResult;

class CheckCommand : public ::testing::Test {
 protected:
  CheckCommand() : vault_(dir_.join("vault")) {
    qztool::initVault(vault_);
    qztool::writeText(dir_.join("orders.csv"), "id\n1\n");
    expectOk(runOn(vault_, {"mkdir", "Data"}));
    expectOk(runOn(vault_, {"add", dir_.join("orders.csv"), "Data"}));
    expectOk(runOn(vault_, {"ls", "Data"}));
  }

  static void expectOk(const ToolResult& result) { EXPECT_EQ(result.status, 0) << result.describe(); }

  // Damage that a repair removes: a file deleted behind the vault's back
  // (its cached rows go stale, its fixed rows are orphans), a lock left for two hours, a version file of
  // an object whose file is gone (given back as the object's file).
  void damage() {
    fs::remove(vault_ + "/Data/orders.csv");
    qztool::writeText(vault_ + "/.v_lck", "");
    fs::last_write_time(vault_ + "/.v_lck",
                        fs::file_time_type::clock::now() - std::chrono::hours(2));
    fs::create_directories(vault_ + "/Data/.v_ver");
    qztool::writeText(vault_ + "/Data/.v_ver/old.csv.1", "id\n0\n");
  }

  static std::set<std::string> kinds(const nlohmann::json& document) {
    std::set<std::string> found;
    for (const auto& finding : document["findings"]) found.insert(finding["kind"].get<std::string>());
    return found;
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(CheckCommand, CleanVaultHasNoFindings) {
  ToolResult result = runOn(vault_, {"check"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_NE(result.out.find(": no findings"), std::string::npos) << result.out;
  EXPECT_TRUE(result.err.empty()) << result.err;

  result = runOn(vault_, {"check", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json document = result.json();
  EXPECT_TRUE(document["findings"].empty());
  EXPECT_EQ(document["remaining"], 0);
  EXPECT_EQ(document["repair"], false);
}

TEST_F(CheckCommand, FindingsGiveStatusOneUntilRepaired) {
  damage();
  ToolResult result = runOn(vault_, {"check", "--json"});
  ASSERT_EQ(result.status, 1) << result.describe();
  nlohmann::json document = result.json();
  EXPECT_EQ(kinds(document), (std::set<std::string>{"orphan-metadata", "stale-cache", "stale-lock", "missing-object"}));
  for (const auto& finding : document["findings"]) EXPECT_EQ(finding["repaired"], false);
  EXPECT_EQ(document["remaining"], document["findings"].size());
  // The cached rows of the deleted file are a note; the rest is damage.
  for (const auto& finding : document["findings"]) {
    EXPECT_EQ(finding["severity"], finding["kind"] == "stale-cache" ? "note" : "damage") << finding.dump();
  }
  EXPECT_EQ(document["damage"], document["findings"].size() - 1);
  qztool::expectOneLineError(result, 1, "damage findings remain; run 'qzvault check --repair'");
  EXPECT_TRUE(fs::exists(vault_ + "/.v_lck"));  // nothing changed without --repair

  // Text output names each finding by its vault path.
  result = runOn(vault_, {"check"});
  EXPECT_EQ(result.status, 1) << result.describe();
  EXPECT_NE(result.out.find("stale-lock"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("Data/old.csv"), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find(dir_.path()), std::string::npos) << result.out;

  result = runOn(vault_, {"check", "--repair", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  document = result.json();
  EXPECT_EQ(kinds(document), (std::set<std::string>{"orphan-metadata", "stale-cache", "stale-lock", "missing-object"}));
  for (const auto& finding : document["findings"]) EXPECT_EQ(finding["repaired"], true);
  EXPECT_EQ(document["remaining"], 0);
  EXPECT_FALSE(fs::exists(vault_ + "/.v_lck"));
  // The version of the object that is gone became its file again.
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_ver/old.csv.1"));
  EXPECT_EQ(qztest::readFile(vault_ + "/Data/old.csv"), "id\n0\n");

  result = runOn(vault_, {"check"});
  EXPECT_EQ(result.status, 0) << result.describe();
}

TEST_F(CheckCommand, FileThatIsNotADatabaseRemainsAfterRepair) {
  const std::string text = "my own notes\n";
  qztool::writeText(vault_ + "/Data/.v_cmd", text);
  const ToolResult result = runOn(vault_, {"check", "--repair"});
  qztool::expectOneLineError(result, 1, "1 damage finding remains that --repair cannot repair");
  EXPECT_NE(result.out.find("not-a-database"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("0 repaired, 1 damage and 0 notes remaining"), std::string::npos) << result.out;
  EXPECT_EQ(qztest::readFile(vault_ + "/Data/.v_cmd"), text);
}

TEST_F(CheckCommand, UsageErrorsGiveStatusTwo) {
  EXPECT_EQ(runOn(vault_, {"check", "--fix"}).status, 2);
  EXPECT_EQ(runOn(vault_, {"check", "Data"}).status, 2);
  // A directory that is not a vault is a usage error as for every command.
  fs::create_directories(dir_.join("plain"));
  EXPECT_EQ(runOn(dir_.join("plain"), {"check"}).status, 2);
}

}  // namespace
