// The tool writes into a vault nothing but the library's own files (names
// beginning with ".") and the folders and objects the user asked for.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;
using qztool::userEntries;

std::set<std::string> names(const std::map<std::string, std::string>& entries) {
  std::set<std::string> result;
  for (const auto& entry : entries) result.insert(entry.first);
  return result;
}

TEST(VaultHygiene, EveryCommandLeavesOnlyWhatWasAskedFor) {
  TempDir dir;
  const std::string vault = dir.join("vault");
  qztool::writeText(dir.join("orders.csv"), "id\n1\n");
  qztool::writeText(dir.join("next.csv"), "id\n2\n");

  // Each step: a command and the user-visible entries expected afterwards.
  struct Step {
    std::vector<std::string> args;
    std::set<std::string> expected;
  };
  const std::vector<Step> steps = {
      {{"init"}, {}},
      {{"mkdir", "Data"}, {"Data/"}},
      {{"mkdir", "Data/Q1: raw"}, {"Data/", "Data/Q1_ raw/"}},
      {{"add", dir.join("orders.csv"), "Data"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"info"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"ls", "Data"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"tree"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"attr", "set", "Data/orders.csv", "Owner", "me"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"attr", "set", "Data", "Owner", "me", "--row", "3"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"attr", "list", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"attr", "clear", "Data", "Owner"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"rename", "Data/orders.csv", "Orders"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"version", "create", "Data/orders.csv", "--from", dir.join("next.csv")},
       {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"version", "list", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"version", "rollback", "Data/orders.csv", "1"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"lock", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"status", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"unlock", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"analyze"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"deps", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"used-by", "Data/orders.csv"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"resources"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"types"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"lineage"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"clean"}, {"Data/", "Data/Q1_ raw/", "Data/orders.csv"}},
      {{"fsrename", "Data/orders.csv", "daily.csv"}, {"Data/", "Data/Q1_ raw/", "Data/daily.csv"}},
      {{"mv", "Data/daily.csv", "Data/Q1_ raw"}, {"Data/", "Data/Q1_ raw/", "Data/Q1_ raw/daily.csv"}},
      {{"fsrename", "Data/Q1_ raw", "Raw"}, {"Data/", "Data/Raw/", "Data/Raw/daily.csv"}},
      {{"rm", "Data/Raw/daily.csv"}, {"Data/", "Data/Raw/"}},
      {{"rmdir", "Data/Raw"}, {"Data/"}},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(::testing::PrintToString(step.args));
    const ToolResult result = runOn(vault, step.args);
    ASSERT_EQ(result.status, 0) << result.describe();
    EXPECT_EQ(names(userEntries(snapshot(vault))), step.expected);
  }
  // The library's own files are there (and nothing else was added beside them).
  const auto all = snapshot(vault);
  EXPECT_TRUE(all.count(".v_fmd") == 1);
  // The files given to add and --from were only read.
  EXPECT_EQ(qztest::readFile(dir.join("orders.csv")), "id\n1\n");
  EXPECT_EQ(qztest::readFile(dir.join("next.csv")), "id\n2\n");
  std::set<std::string> topLevel;
  for (const std::string& name : names(snapshot(dir.path()))) {
    const std::size_t slash = name.find('/');
    if (slash == std::string::npos || slash + 1 == name.size()) topLevel.insert(name);
  }
  EXPECT_EQ(topLevel, (std::set<std::string>{"next.csv", "orders.csv", "vault/"}));
}

}  // namespace
