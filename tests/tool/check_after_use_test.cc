// A check that stays quiet after normal use: after `qzvault demo`, after
// `analyze` of a tree, after `version create` and `version rollback`, after
// `rm`, `fsrename` and `mv`, check exits 0. What normal use leaves behind
// (resources that take part in no dependency, cached rows older than their
// file or of a file that went) is reported as notes, which fail the check
// only with --strict.
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
using qztool::runTool;
using qztool::ToolResult;

void expectOk(const ToolResult& result) { EXPECT_EQ(result.status, 0) << result.describe(); }

// `check --json` of the vault, which must exit 0; its document.
nlohmann::json quietCheck(const std::string& vault) {
  const ToolResult result = runOn(vault, {"check", "--json"});
  EXPECT_EQ(result.status, 0) << result.describe();
  EXPECT_TRUE(result.err.empty()) << result.err;
  if (result.status != 0) return nlohmann::json::object();
  const nlohmann::json document = result.json();
  EXPECT_EQ(document["damage"], 0) << document.dump(2);
  for (const auto& finding : document["findings"]) EXPECT_EQ(finding["severity"], "note") << finding.dump();
  return document;
}

TEST(CheckAfterUse, DemoVaultPasses) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("demo");
  expectOk(runTool({"demo", vault}));
  quietCheck(vault);
  const ToolResult text = runOn(vault, {"check"});
  EXPECT_EQ(text.status, 0) << text.describe();
}

TEST(CheckAfterUse, AnalysisOfATreePassesAndItsNotesFailOnlyWhenStrict) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  // Files that use nothing: each becomes a resource that takes part in no
  // dependency.
  fs::create_directories(vault + "/etc/deep");
  for (int i = 0; i < 5; ++i) {
    qztool::writeText(vault + "/file" + std::to_string(i) + ".csv", "id\n" + std::to_string(i) + "\n");
    qztool::writeText(vault + "/etc/deep/n" + std::to_string(i) + ".txt", "x\n");
  }
  expectOk(runOn(vault, {"analyze"}));
  const nlohmann::json document = quietCheck(vault);
  EXPECT_GT(document["notes"].get<int>(), 0) << document.dump(2);
  for (const auto& finding : document["findings"]) EXPECT_EQ(finding["kind"], "unused-resource");

  const ToolResult strict = runOn(vault, {"check", "--strict"});
  qztool::expectOneLineError(strict, 1, "findings remain");
  EXPECT_NE(strict.out.find("note"), std::string::npos) << strict.out;

  // A second analysis leaves the vault just as quiet.
  expectOk(runOn(vault, {"analyze"}));
  quietCheck(vault);
}

TEST(CheckAfterUse, AnalysisOfTheDemoSamplesPasses) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  fs::copy(qztool::sourcePath("plugins/defs/samples"), vault, fs::copy_options::recursive);
  expectOk(runOn(vault, {"analyze"}));
  quietCheck(vault);
  expectOk(runOn(vault, {"analyze", "--recursive", "Jobs"}));
  quietCheck(vault);
}

TEST(CheckAfterUse, VersionCreateAndRollbackPass) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  qztool::writeText(dir.join("orders.csv"), "id\n1\n");
  qztool::writeText(dir.join("orders-2.csv"), "id\n1\n2\n");
  expectOk(runOn(vault, {"mkdir", "Data"}));
  expectOk(runOn(vault, {"add", dir.join("orders.csv"), "Data"}));
  expectOk(runOn(vault, {"ls", "Data"}));

  expectOk(runOn(vault, {"version", "create", "Data/orders.csv"}));
  quietCheck(vault);
  expectOk(runOn(vault, {"version", "create", "Data/orders.csv", "--from", dir.join("orders-2.csv")}));
  expectOk(runOn(vault, {"ls", "Data"}));
  quietCheck(vault);
  expectOk(runOn(vault, {"version", "rollback", "Data/orders.csv", "1"}));
  quietCheck(vault);
  expectOk(runOn(vault, {"ls", "Data"}));
  quietCheck(vault);
}

TEST(CheckAfterUse, RemovingRenamingAndMovingObjectsPass) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::initVault(vault);
  for (const char* name : {"a.csv", "b.csv", "c.csv"}) qztool::writeText(dir.join(name), "id\n1\n");
  expectOk(runOn(vault, {"mkdir", "Data"}));
  expectOk(runOn(vault, {"mkdir", "Old"}));
  for (const char* name : {"a.csv", "b.csv", "c.csv"}) expectOk(runOn(vault, {"add", dir.join(name), "Data"}));

  // Each leaves the cached rows of the file's former name until the next
  // listing of the folder.
  expectOk(runOn(vault, {"rm", "Data/a.csv"}));
  expectOk(runOn(vault, {"fsrename", "Data/b.csv", "b2.csv"}));
  expectOk(runOn(vault, {"mv", "Data/c.csv", "Old"}));
  const nlohmann::json document = quietCheck(vault);
  std::set<std::string> paths;
  for (const auto& finding : document["findings"]) {
    EXPECT_EQ(finding["kind"], "stale-cache") << finding.dump();
    paths.insert(finding["path"].get<std::string>());
  }
  EXPECT_EQ(paths, (std::set<std::string>{"Data/a.csv", "Data/b.csv", "Data/c.csv"}));
  const ToolResult strict = runOn(vault, {"check", "--strict"});
  qztool::expectOneLineError(strict, 1, "findings remain");

  // The next listing drops them.
  expectOk(runOn(vault, {"ls", "Data"}));
  EXPECT_TRUE(quietCheck(vault)["findings"].empty());
}

}  // namespace
