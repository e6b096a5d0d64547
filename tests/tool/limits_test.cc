// The limits on what a user gives the tool: attribute rows, version numbers,
// lineage depths and the lengths of names, values and paths. A value beyond a
// limit is a usage error (exit status 2, one line that states the limit) found
// before anything is read or written, so that it neither grows memory nor
// touches the vault; a value at the limit is accepted.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzvault/attribute.h"
#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;

class LimitsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    qztool::writeText(dir_.join("notes.txt"), "some notes\n");
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    const ToolResult added = runOn(vault_, {"add", dir_.join("notes.txt"), "Data"});
    ASSERT_EQ(added.status, 0) << added.describe();
    before_ = snapshot(vault_);
  }

  void expectRefused(const std::vector<std::string>& args, const std::string& fragment) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const ToolResult result = runOn(vault_, args);
    expectOneLineError(result, 2, fragment);
    EXPECT_TRUE(result.out.empty()) << result.describe();
    EXPECT_EQ(snapshot(vault_), before_);
  }

  TempDir dir_;
  std::string vault_;
  std::map<std::string, std::string> before_;
};

TEST_F(LimitsTest, AttributeRowsBeyondTheLastAreRefusedAtOnce) {
  // Once this grew the attribute row by row until memory ran out.
  expectRefused({"attr", "set", "Data", "Big", "x", "--row", "2147483647"},
                "--row 2147483647 is beyond the last row an attribute may have (99999)");
  expectRefused({"attr", "set", "Data", "Big", "x", "--row", std::to_string(QZV_ATTR_MAX_ROWS)},
                "beyond the last row an attribute may have");
  expectRefused({"attr", "get", "Data", "Big", "--row", "100000"}, "beyond the last row");
  // Past the int range the number is not read at all.
  expectRefused({"attr", "set", "Data", "Big", "x", "--row", "99999999999"}, "--row");
}

TEST_F(LimitsTest, TheLastRowIsAccepted) {
  const ToolResult set = runOn(vault_, {"attr", "set", "Data", "Big", "last", "--row", "99999"});
  ASSERT_EQ(set.status, 0) << set.describe();
  const ToolResult got = runOn(vault_, {"attr", "get", "Data", "Big", "--row", "99999"});
  ASSERT_EQ(got.status, 0) << got.describe();
  EXPECT_EQ(got.out, "last\n");
}

TEST_F(LimitsTest, VersionNumbersStartAtOne) {
  // Below 1 the library refuses the number itself (a failed command, not a
  // usage error); past the int range the number is not read at all.
  for (const std::string number : {"0", "-3"}) {
    const ToolResult result = runOn(vault_, {"version", "rollback", "Data/notes.txt", number});
    expectOneLineError(result, 1, "Invalid rollback version number");
    EXPECT_EQ(snapshot(vault_), before_);
  }
  expectRefused({"version", "rollback", "Data/notes.txt", "2147483648"}, "version");
}

TEST_F(LimitsTest, DepthsAreCountsOfSteps) {
  expectRefused({"lineage", "Data/notes.txt", "--down", "--depth", "0"}, "--depth 0");
  expectRefused({"lineage", "Data/notes.txt", "--down", "--depth", "2147483648"}, "--depth");
  expectRefused({"graph", "Data/notes.txt", "--depth", "-1"}, "--depth -1");
}

TEST_F(LimitsTest, DisplayNamesAreAtMost1024Bytes) {
  const std::string longest(1024, 'n');
  const std::string tooLong(1025, 'n');
  expectRefused({"mkdir", "Data/" + tooLong}, "1025 bytes long, more than the 1024 allowed");
  expectRefused({"rename", "Data", tooLong}, "1025 bytes long, more than the 1024 allowed");
  expectRefused({"add", dir_.join("notes.txt"), "Data", "--name", tooLong}, "--name");

  const ToolResult made = runOn(vault_, {"mkdir", "Data/" + longest, "--json"});
  ASSERT_EQ(made.status, 0) << made.describe();
  EXPECT_EQ(made.json()["name"], longest);
}

TEST_F(LimitsTest, FileNamesAreAtMost255Bytes) {
  expectRefused({"fsrename", "Data/notes.txt", std::string(256, 'f')}, "256 bytes long, more than the 255 allowed");
}

TEST_F(LimitsTest, AttributeNamesAndValues) {
  expectRefused({"attr", "set", "Data", std::string(1025, 'a'), "x"}, "1025 bytes long");
  expectRefused({"attr", "get", "Data", std::string(1025, 'a')}, "1025 bytes long");
  expectRefused({"attr", "set", "Data", "Note", std::string(64 * 1024 + 1, 'v')},
                "65537 bytes long, more than the 65536 allowed");

  const std::string largest(64 * 1024, 'v');
  const ToolResult set = runOn(vault_, {"attr", "set", "Data", "Note", largest});
  ASSERT_EQ(set.status, 0) << set.describe();
  const ToolResult got = runOn(vault_, {"attr", "get", "Data", "Note", "--json"});
  ASSERT_EQ(got.status, 0) << got.describe();
  EXPECT_EQ(got.json()[0]["rows"][0][0], largest);
}

TEST_F(LimitsTest, ConfigurationSettings) {
  expectRefused({"--set", std::string(1025, 'K') + "=v", "info"}, "the key is 1025 bytes long");
  expectRefused({"--set", "K=" + std::string(64 * 1024 + 1, 'v'), "info"}, "the value is 65537 bytes long");
}

TEST_F(LimitsTest, PathsAndResourcesAreAtMost4096Bytes) {
  const std::string tooLong(4097, 'p');
  expectRefused({"ls", tooLong}, "a path is 4097 bytes long, more than the 4096 allowed");
  expectRefused({"rm", "Data/" + tooLong}, "4096 allowed");
  expectRefused({"deps", tooLong}, "4097 bytes long");
  expectRefused({"lineage", tooLong, "--up"}, "4097 bytes long");
  expectRefused({"add", tooLong, "Data"}, "4097 bytes long");
  expectRefused({"ls", "--filter", std::string(1025, 'x')}, "--filter");
  expectRefused({"resources", "--type", std::string(1025, 'T')}, "--type");
}

TEST_F(LimitsTest, HelpStatesTheLimits) {
  const ToolResult set = runOn(vault_, {"attr", "set", "--help"});
  ASSERT_EQ(set.status, 0) << set.describe();
  EXPECT_NE(set.out.find("0 to 99999"), std::string::npos) << set.out;
  EXPECT_NE(set.out.find("at most 65536 bytes"), std::string::npos) << set.out;
  EXPECT_NE(set.out.find("at most 1024 bytes"), std::string::npos) << set.out;
  const ToolResult mkdir = runOn(vault_, {"mkdir", "--help"});
  EXPECT_NE(mkdir.out.find("at most 1024 bytes"), std::string::npos) << mkdir.out;
  const ToolResult rollback = runOn(vault_, {"version", "rollback", "--help"});
  EXPECT_NE(rollback.out.find("a number from 1"), std::string::npos) << rollback.out;
  const ToolResult lineage = runOn(vault_, {"lineage", "--help"});
  EXPECT_NE(lineage.out.find("1 to 2147483647"), std::string::npos) << lineage.out;
}

}  // namespace
