// qzvault demo: the sample vault it makes and what it prints.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::pathExists;
using qztest::TempDir;
using qztool::runOn;
using qztool::runTool;
using qztool::ToolResult;

// The sample files the demo copies in, as shipped with the plug-in.
const char* const kSamples[] = {
    "Data/customers.csv",
    "Data/orders.csv",
    "Jobs/Definitions/customer-sync.job.def",
    "Jobs/Definitions/nightly-sales-load.job.def",
    "Jobs/Templates/extract-load.job.tpl",
    "Mappings/orders-to-sales.map.def",
    "Queries/top-customers.qry.def",
    "ReferenceData/Tables/regions.csv",
    "ReferenceData/Tables/regions.ref.def",
    "Reports/Definitions/inventory-status.rpt.def",
    "Reports/Definitions/monthly-sales.rpt.def",
    "Schedules/nightly.sch.def",
};

class DemoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  }
  TempDir dir_;
};

TEST_F(DemoTest, MakesTheSampleVaultInANewDirectory) {
  const std::string vault = dir_.join("new/demo");
  const ToolResult result = runTool({"demo", vault});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_TRUE(result.err.empty()) << result.err;
  for (const char* sample : kSamples) {
    EXPECT_TRUE(pathExists(vault + "/" + sample)) << sample;
  }
  // Data files keep their bytes.
  EXPECT_EQ(qztest::readFile(vault + "/Data/orders.csv"),
            qztest::readFile(qztool::sourcePath("plugins/defs/samples/Data/orders.csv")));

  EXPECT_THAT(result.out, ::testing::StartsWith("Made a sample vault in " + vault + " (UUID "));
  EXPECT_THAT(result.out, ::testing::HasSubstr("  SALES_DSN=sales\n"));
  EXPECT_THAT(result.out, ::testing::HasSubstr(
                              "|   |-- Definitions/\n"
                              "|   |   |-- customer-sync.job.def  \"Customer sync\"  (Job)\n"));
  EXPECT_THAT(result.out, ::testing::HasSubstr("== qzvault analyze\nAnalysed 12 objects\n"));
  EXPECT_THAT(result.out, ::testing::HasSubstr("== qzvault lineage\n"));
  // The macro table resolves with the demo's SALES_DSN.
  EXPECT_THAT(result.out, ::testing::HasSubstr("db:postgresql/sales//public/orders"));
  EXPECT_THAT(result.out, ::testing::HasSubstr("Try: qzvault --vault " + vault + " ls Jobs/Definitions\n"));
}

TEST_F(DemoTest, TheSampleVaultWorksWithTheOtherCommands) {
  const std::string vault = dir_.join("demo");
  ASSERT_EQ(runTool({"demo", vault}).status, 0);
  const ToolResult listing = runOn(vault, {"ls", "Jobs/Definitions"});
  ASSERT_EQ(listing.status, 0) << listing.describe();
  EXPECT_EQ(listing.out,
            "Job  Customer sync       customer-sync.job.def\n"
            "Job  Nightly sales load  nightly-sales-load.job.def\n");
  const ToolResult info = runOn(vault, {"info", "--json"});
  ASSERT_EQ(info.status, 0) << info.describe();
  EXPECT_FALSE(info.json()["uuid"].is_null());
}

TEST_F(DemoTest, JsonReportsTheVaultItsAnalysisAndLineage) {
  const std::string vault = dir_.join("demo");
  const ToolResult result = runTool({"demo", vault, "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json report = result.json();
  EXPECT_EQ(report["root"], vault);
  EXPECT_EQ(report["uuid"], runOn(vault, {"info", "--json"}).json()["uuid"]);
  EXPECT_EQ(report["analyzed"], 12);
  EXPECT_TRUE(report["failed"].empty());
  EXPECT_FALSE(report["lineage"]["edges"].empty());
  EXPECT_FALSE(report["usedBy"]["resources"].empty());
  // Either a picture or the reason there is none.
  EXPECT_NE(report["svg"].is_null(), report["svgSkipped"].is_null()) << report.dump(2);
  EXPECT_EQ(report["tree"]["folders"].size(), 7u);
}

TEST_F(DemoTest, AnEmptyExistingDirectoryIsAccepted) {
  qztest::makeDirs(dir_.join("empty"));
  const ToolResult result = runTool({"demo", dir_.join("empty")});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_TRUE(pathExists(dir_.join("empty/Schedules/nightly.sch.def")));
}

TEST_F(DemoTest, AFileIsNoTarget) {
  qztool::writeText(dir_.join("file"), "x");
  qztool::expectOneLineError(runTool({"demo", dir_.join("file")}), 2, "is not a directory");
}

}  // namespace
