// The example hosts of examples/ (docs/host-guide.md), run against a demo
// vault made by the tool: they build against the installed interface and must
// work as the guide says.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using ::testing::HasSubstr;

// Runs the example program <build>/examples/<name> with `args`.
qztool::ToolResult runExample(const std::string& name, const std::vector<std::string>& args) {
  return qztool::runProgram(std::string(QZ_TEST_BINARY_ROOT) + "/examples/" + name, args);
}

class ExamplesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
    vault_ = dir_.join("demo");
    const qztool::ToolResult demo = qztool::runTool({"demo", vault_});
    ASSERT_EQ(demo.status, 0) << demo.describe();
  }
  TempDir dir_;
  std::string vault_;
};

TEST_F(ExamplesTest, VersionHostPrintsTheVersion) {
  const qztool::ToolResult result = runExample("version_host", {});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, "Vault Library version 5.6 (build 48)\nLibrary version: 5.6\n");
}

TEST_F(ExamplesTest, WalkVaultShowsEveryFolderAndObject) {
  const qztool::ToolResult result = runExample("walk_vault", {vault_, qztool::buildPluginDir()});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, HasSubstr("Jobs/  \"Jobs\"\n"));
  EXPECT_THAT(result.out, HasSubstr("    customer-sync.job.def  \"Customer sync\"  Job\n"));
  EXPECT_THAT(result.out, HasSubstr("  orders.csv  \"orders\"  -\n"));
  EXPECT_THAT(result.out, HasSubstr("  nightly.sch.def  \"Nightly run\"  Schedule\n"));
}

TEST_F(ExamplesTest, ObjectHostLocksSetsVersionsAndUnlocks) {
  const qztool::ToolResult result =
      runExample("object_host", {vault_, qztool::buildPluginDir(), "Data", "orders.csv"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, ::testing::MatchesRegex(
                              "version 1 of orders: [0-9-]+ [0-9:]+\nlocked: yes\nlocked: no\n"));
  EXPECT_EQ(qztest::readFile(vault_ + "/Data/orders.csv"), "rewritten by object_host\n");
  // What it did is visible to the tool.
  const qztool::ToolResult attribute =
      qztool::runOn(vault_, {"attr", "get", "Data/orders.csv", "Reviewed"});
  EXPECT_EQ(attribute.out, "Reviewed  yes | object_host\n");
  EXPECT_EQ(qztool::runOn(vault_, {"status", "Data/orders.csv", "--json"}).json()["versions"], 1);
}

TEST_F(ExamplesTest, ImpactHostPrintsWhatAnObjectUsesAndWhatUsesThat) {
  const qztool::ToolResult result = runExample(
      "impact_host", {vault_, qztool::buildPluginDir(), "Jobs/Definitions", "nightly-sales-load.job.def",
                      "SALES_DSN=sales"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, HasSubstr("What nightly-sales-load.job.def uses:\n"));
  EXPECT_THAT(result.out, HasSubstr("  DataFile " + vault_ + "/Data/orders.csv\n"));
  EXPECT_THAT(result.out, HasSubstr("What uses db:postgresql/%%SALES_DSN%%//public/orders:\n"
                                    "  Job " + vault_ + "/Jobs/Definitions/nightly-sales-load.job.def\n"));
  // The macro resolves with the value given on the command line.
  EXPECT_THAT(result.out, HasSubstr("What db:postgresql/%%SALES_DSN%%//public/orders uses:\n"));
  EXPECT_THAT(result.out, HasSubstr("  Table db:postgresql/sales//public/orders\n"));
}

TEST_F(ExamplesTest, ExamplesReportBadArguments) {
  const qztool::ToolResult usage = runExample("walk_vault", {});
  EXPECT_EQ(usage.status, 2);
  EXPECT_THAT(usage.err, HasSubstr("usage: walk_vault VAULT PLUGIN_DIR"));
  const qztool::ToolResult missing =
      runExample("object_host", {vault_, qztool::buildPluginDir(), "Nowhere", "x.csv"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("Nowhere not found"));
}

}  // namespace
