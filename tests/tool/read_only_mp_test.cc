// A vault the user may not write: the tool runs as user "nobody" (the tests
// run as root, whom permission bits do not stop) on a vault that root made.
// Every change fails with one line naming the problem, exit status 1, and
// leaves the vault as it was; reading still works.
#include <unistd.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/privileges.h"
#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;

class ReadOnlyVaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run the tool as another user";
    // The temporary directory is private to root; nobody must reach below it.
    qztest::makeReachable(dir_.path());
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("orders.csv"), "id\n");
    ASSERT_EQ(chmod(dir_.join("orders.csv").c_str(), 0644), 0);
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Data"}).status, 0);
    ASSERT_EQ(runOn(vault_, {"ls", "Data"}).status, 0);
    before_ = snapshot(vault_);
  }

  ToolResult asNobody(std::vector<std::string> args) {
    qztool::RunOptions options;
    options.asNobody = true;
    return runOn(vault_, std::move(args), options);
  }

  void expectRefused(std::vector<std::string> args, const std::string& fragment) {
    SCOPED_TRACE(::testing::PrintToString(args));
    expectOneLineError(asNobody(std::move(args)), 1, fragment);
    EXPECT_EQ(snapshot(vault_), before_);
  }

  TempDir dir_;
  std::string vault_;
  std::map<std::string, std::string> before_;
};

TEST_F(ReadOnlyVaultTest, ChangesFailWithTheLibrarysMessage) {
  expectRefused({"mkdir", "Data/New"}, "Failed to create directory");
  expectRefused({"attr", "set", "Data", "Owner", "me"}, "Data file is read only");
  expectRefused({"attr", "clear", "Data", "Owner"}, "Data file is read only");
  expectRefused({"rename", "Data", "Other"}, "Data file is read only");
  expectRefused({"rename", "Data/orders.csv", "Other"}, "read only");
  expectRefused({"rm", "Data/orders.csv"}, "Data file is read only");
  expectRefused({"init", "--uuid", "0f8fad5b-d9cb-469f-a165-70867728950e"}, "is read only");
  expectRefused({"version", "create", "Data/orders.csv"}, "Permission denied");
  expectRefused({"add", dir_.join("orders.csv"), "Data", "--name", "Copy"}, "Permission denied");
}

TEST_F(ReadOnlyVaultTest, ReadingStillWorks) {
  const ToolResult listing = asNobody({"ls", "Data"});
  ASSERT_EQ(listing.status, 0) << listing.describe();
  // nobody cannot write root's file: the listing says so.
  EXPECT_EQ(listing.out, "-  orders  orders.csv  read-only\n");
  const ToolResult tree = asNobody({"tree"});
  EXPECT_EQ(tree.status, 0) << tree.describe();
  // The UUID of a read-only root cannot be read (the library refuses it), and
  // info says so instead of failing.
  const ToolResult info = asNobody({"info"});
  ASSERT_EQ(info.status, 0) << info.describe();
  EXPECT_THAT(info.out, ::testing::HasSubstr("UUID:         (cannot be read: Folder " + vault_ + " is read only)"));
  // The lock of an object in a folder nobody cannot write is read all the same.
  const ToolResult status = asNobody({"status", "Data/orders.csv", "--json"});
  ASSERT_EQ(status.status, 0) << status.describe();
  EXPECT_FALSE(status.json()["locked"].get<bool>());
  for (std::vector<std::string> reading : {std::vector<std::string>{"attr", "list", "Data"},
                                           {"version", "list", "Data/orders.csv"},
                                           {"locks"},
                                           {"check"}}) {
    const ToolResult read = asNobody(reading);
    EXPECT_EQ(read.status, 0) << ::testing::PrintToString(reading) << read.describe();
  }
  EXPECT_EQ(snapshot(vault_), before_);
}

TEST_F(ReadOnlyVaultTest, StatusNamesTheObjectsTheUserCannotWrite) {
  const ToolResult status = asNobody({"status", "--json"});
  ASSERT_EQ(status.status, 0) << status.describe();
  const nlohmann::json report = status.json();
  EXPECT_EQ(report["objects"], 1);
  ASSERT_EQ(report["findings"].size(), 1u) << report.dump(2);
  EXPECT_EQ(report["findings"][0]["kind"], "read-only");
  EXPECT_EQ(report["findings"][0]["path"], "Data/orders.csv");
  EXPECT_EQ(snapshot(vault_), before_);
  // Root may write it: nothing to report. (Root's run may write the caches
  // any reading command writes, so the snapshot is taken before it.)
  EXPECT_EQ(runOn(vault_, {"status", "--json"}).json()["findings"].size(), 0u);
}

}  // namespace
