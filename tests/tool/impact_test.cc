// analyze, deps, used-by, resources, types, lineage and clean over the demo
// vault (the shipped definition plug-in and its samples), and a definition
// file the plug-in cannot read.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::runTool;
using qztool::snapshot;
using qztool::ToolResult;

const char kOrdersTable[] = "Table:db:postgresql/%%SALES_DSN%%//public/orders";

// The identities of a --json resource list.
std::vector<std::string> identities(const nlohmann::json& list) {
  std::vector<std::string> result;
  for (const auto& resource : list) {
    result.push_back(resource.contains("path") ? resource["path"].get<std::string>()
                                               : resource["identity"].get<std::string>());
  }
  return result;
}

class ImpactTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
    vault_ = dir_.join("demo");
    // Without Graphviz on PATH: the demo would otherwise add lineage.svg to
    // the vault, one more object to count.
    const std::string noPrograms = dir_.join("no-programs");
    qztest::makeDirs(noPrograms);
    qztool::RunOptions options;
    options.env.emplace_back("PATH", noPrograms);
    const ToolResult demo = runTool({"demo", vault_}, options);
    ASSERT_EQ(demo.status, 0) << demo.describe();
  }

  ToolResult run(std::vector<std::string> args) { return runOn(vault_, std::move(args)); }

  TempDir dir_;
  std::string vault_;
};

TEST_F(ImpactTest, DepsListWhatAnObjectUses) {
  const ToolResult result = run({"deps", "Jobs/Definitions/nightly-sales-load.job.def", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(identities(result.json()),
              ::testing::IsSupersetOf({"Data/orders.csv", "Data/customers.csv",
                                       "Mappings/orders-to-sales.map.def",
                                       "db:postgresql/%%SALES_DSN%%"}));
  for (const auto& resource : result.json()) {
    if (resource["identity"] == "db:postgresql/%%SALES_DSN%%") {
      EXPECT_EQ(resource["type"], "Database");
      EXPECT_TRUE(resource["macro"].get<bool>());
    }
    if (resource.contains("path") && resource["path"] == "Data/orders.csv") {
      EXPECT_EQ(resource["type"], "DataFile");
      EXPECT_EQ(resource["identity"], vault_ + "/Data/orders.csv");
    }
  }
  const ToolResult text = run({"deps", "Jobs/Definitions/nightly-sales-load.job.def"});
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_THAT(text.out, ::testing::HasSubstr("DataFile  orders.csv"));
  EXPECT_THAT(text.out, ::testing::HasSubstr("Data/orders.csv"));
}

TEST_F(ImpactTest, UsedByListsWhatUsesAResource) {
  const ToolResult result = run({"used-by", "Data/orders.csv", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(identities(result.json()),
              ::testing::ElementsAre("Jobs/Definitions/nightly-sales-load.job.def"));
}

TEST_F(ImpactTest, UsedByListsTheUsersOfATable) {
  const ToolResult result = run({"used-by", kOrdersTable, "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(identities(result.json()),
              ::testing::UnorderedElementsAre("Jobs/Definitions/nightly-sales-load.job.def",
                                              "Mappings/orders-to-sales.map.def"));
}

TEST_F(ImpactTest, DepsResolvesMacrosFromTheConfiguration) {
  // A table uses its database; without a value for SALES_DSN nothing else.
  const ToolResult plain = run({"deps", kOrdersTable, "--json"});
  ASSERT_EQ(plain.status, 0) << plain.describe();
  EXPECT_THAT(identities(plain.json()), ::testing::ElementsAre("db:postgresql/%%SALES_DSN%%"));
  // With a value, the table the substituted identity names joins them.
  const ToolResult resolved = run({"--set", "SALES_DSN=sales", "deps", kOrdersTable, "--json"});
  ASSERT_EQ(resolved.status, 0) << resolved.describe();
  EXPECT_THAT(identities(resolved.json()),
              ::testing::ElementsAre("db:postgresql/%%SALES_DSN%%", "db:postgresql/sales//public/orders"));
  EXPECT_THAT(resolved.out, ::testing::HasSubstr("\"macro\": false"));
}

TEST_F(ImpactTest, UnknownResourcesFail) {
  expectOneLineError(run({"deps", "Table:db:postgresql/nowhere//public/none"}), 1,
                     "no resource of type Table with the identity db:postgresql/nowhere//public/none");
  expectOneLineError(run({"used-by", "Data/absent.csv"}), 1, "absent.csv");
}

TEST_F(ImpactTest, ResourcesTypesAndLineage) {
  const ToolResult all = run({"resources", "--json"});
  ASSERT_EQ(all.status, 0) << all.describe();
  EXPECT_THAT(identities(all.json()), ::testing::Contains("Schedules/nightly.sch.def"));

  const ToolResult jobs = run({"resources", "--type", "Job", "--json"});
  ASSERT_EQ(jobs.status, 0) << jobs.describe();
  EXPECT_THAT(identities(jobs.json()),
              ::testing::IsSupersetOf({"Jobs/Definitions/customer-sync.job.def",
                                       "Jobs/Definitions/nightly-sales-load.job.def"}));
  for (const auto& resource : jobs.json()) EXPECT_EQ(resource["type"], "Job");

  const ToolResult types = run({"types", "--json"});
  ASSERT_EQ(types.status, 0) << types.describe();
  std::vector<std::string> names;
  for (const auto& type : types.json()) {
    names.push_back(type["type"]);
    EXPECT_GT(type["resources"].get<int>(), 0);
  }
  EXPECT_THAT(names, ::testing::IsSupersetOf({"DataFile", "Database", "Job", "Table"}));

  const ToolResult lineage = run({"lineage", "--json"});
  ASSERT_EQ(lineage.status, 0) << lineage.describe();
  bool scheduleFound = false;
  for (const auto& entry : lineage.json()) {
    if (entry["resource"]["path"] != "Schedules/nightly.sch.def") continue;
    scheduleFound = true;
    EXPECT_THAT(identities(entry["uses"]),
                ::testing::UnorderedElementsAre("Jobs/Definitions/customer-sync.job.def",
                                                "Jobs/Definitions/nightly-sales-load.job.def"));
  }
  EXPECT_TRUE(scheduleFound) << lineage.out;
  const ToolResult text = run({"lineage"});
  EXPECT_THAT(text.out, ::testing::HasSubstr("Schedules/nightly.sch.def (Schedule)\n"
                                             "  uses Jobs/Definitions/customer-sync.job.def (Job)\n"
                                             "  uses Jobs/Definitions/nightly-sales-load.job.def (Job)\n"));
}

TEST_F(ImpactTest, AnalyzeOneObjectAFolderOrEverything) {
  const ToolResult one = run({"analyze", "Queries/top-customers.qry.def", "--json"});
  ASSERT_EQ(one.status, 0) << one.describe();
  EXPECT_EQ(one.json(), nlohmann::json({{"analyzed", 1}, {"failed", nlohmann::json::array()}}));
  const ToolResult folder = run({"analyze", "Jobs"});
  ASSERT_EQ(folder.status, 0) << folder.describe();
  EXPECT_EQ(folder.out, "Analysed 0 objects\n");
  const ToolResult recursive = run({"analyze", "Jobs", "--recursive"});
  EXPECT_EQ(recursive.out, "Analysed 3 objects\n");
  const ToolResult everything = run({"analyze"});
  EXPECT_EQ(everything.out, "Analysed 12 objects\n");
}

TEST_F(ImpactTest, CleanRemovesResourcesWithoutEdges) {
  // Asking for an object's dependencies records the object itself.
  ASSERT_EQ(run({"deps", "Data/customers.csv"}).status, 0);
  qztool::writeText(dir_.join("loose.txt"), "x\n");
  ASSERT_EQ(run({"add", dir_.join("loose.txt"), "Data"}).status, 0);
  ASSERT_EQ(run({"deps", "Data/loose.txt"}).status, 0);
  EXPECT_THAT(identities(run({"resources", "--json"}).json()), ::testing::Contains("Data/loose.txt"));

  const ToolResult clean = run({"clean", "--json"});
  ASSERT_EQ(clean.status, 0) << clean.describe();
  EXPECT_GE(clean.json()["removed"].get<int>(), 1);
  EXPECT_THAT(identities(run({"resources", "--json"}).json()),
              ::testing::Not(::testing::Contains("Data/loose.txt")));
  const ToolResult again = run({"clean"});
  ASSERT_EQ(again.status, 0) << again.describe();
  EXPECT_THAT(again.out, ::testing::StartsWith("Removed 0 unused resources; "));
}

TEST_F(ImpactTest, ADefinitionThePluginCannotReadIsReportedAndNotRecorded) {
  qztool::writeText(vault_ + "/Jobs/Definitions/broken.job.def", "{ \"name\": \"Broken\", \"uses\": [ ");
  const std::string store = run({"resources", "--json"}).out;
  const ToolResult one = run({"analyze", "Jobs/Definitions/broken.job.def"});
  EXPECT_EQ(one.status, 1) << one.describe();
  EXPECT_THAT(one.err, ::testing::HasSubstr(
                           "Jobs/Definitions/broken.job.def: the Job plug-in cannot read this file"));
  EXPECT_EQ(run({"resources", "--json"}).out, store);

  // Analysing the folder analyses the others and reports the broken one.
  const ToolResult folder = run({"analyze", "Jobs/Definitions", "--json"});
  EXPECT_EQ(folder.status, 1) << folder.describe();
  EXPECT_EQ(folder.json()["analyzed"], 2);
  ASSERT_EQ(folder.json()["failed"].size(), 1u);
  EXPECT_EQ(folder.json()["failed"][0]["path"], "Jobs/Definitions/broken.job.def");
  EXPECT_THAT(folder.err, ::testing::HasSubstr("1 of 3 objects could not be analysed"));

  // Its attributes are not written beside it either.
  const auto before = snapshot(vault_);
  expectOneLineError(run({"attr", "set", "Jobs/Definitions/broken.job.def", "Owner", "me"}), 1,
                     "the Job plug-in cannot read this file");
  EXPECT_EQ(snapshot(vault_), before);
}

TEST_F(ImpactTest, AddingADefinitionThePluginCannotReadLeavesNothing) {
  const std::string broken = dir_.join("broken.job.def");
  qztool::writeText(broken, "not json at all");
  const auto before = qztool::userEntries(snapshot(vault_));
  expectOneLineError(run({"add", broken, "Jobs/Definitions"}), 1,
                     "Jobs/Definitions/broken.job.def: the Job plug-in cannot read this file");
  EXPECT_EQ(qztool::userEntries(snapshot(vault_)), before);
}

TEST_F(ImpactTest, AddingADefinitionTakesItsDisplayName) {
  const std::string copy = dir_.join("copy.job.def");
  qztool::writeText(copy, R"({"name": "Copied job", "attributes": [], "uses": []})");
  const ToolResult added = run({"add", copy, "Jobs/Templates", "--json"});
  ASSERT_EQ(added.status, 0) << added.describe();
  EXPECT_EQ(added.json(), nlohmann::json({{"path", "Jobs/Templates/copy.job.def"}, {"name", "Copied job"}}));
}

}  // namespace
