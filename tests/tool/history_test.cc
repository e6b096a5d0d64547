// qzvault log, show and diff: an object's versions newest first with dates in
// ISO 8601 with their zone, sizes and SHA-256 digests; the content of one
// version; unified diffs between versions and the current file, checked
// against the hunks of the system's `diff -u`; binary content; errors.
#include <sys/stat.h>
#include <utime.h>

#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;
using ::testing::HasSubstr;

// SHA-256 of "abc" and of nothing (FIPS 180-2 test vectors).
const char kSha256Abc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const char kSha256Empty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

// A vault with Data/plan.txt whose versions 1, 2, ... hold `versions` and whose
// current content is `current`.
class History : public ::testing::Test {
 protected:
  // Each call makes a new vault.
  void make(const std::vector<std::string>& versions, const std::string& current) {
    vault_ = dir_.join("v" + std::to_string(++made_));
    qztool::initVault(vault_);
    qztest::makeDirs(vault_ + "/Data");
    for (const std::string& content : versions) {
      qztool::writeText(file(), content);
      const ToolResult kept = runOn(vault_, {"version", "create", "Data/plan.txt"});
      ASSERT_EQ(kept.status, 0) << kept.describe();
    }
    qztool::writeText(file(), current);
  }
  std::string file() const { return vault_ + "/Data/plan.txt"; }
  std::string version(int n) const { return vault_ + "/Data/.v_ver/plan.txt." + std::to_string(n); }
  ToolResult run(std::vector<std::string> args, const qztool::RunOptions& options = {}) {
    return runOn(vault_, std::move(args), options);
  }

  TempDir dir_;
  int made_ = 0;
  std::string vault_;
};

void setModified(const std::string& path, time_t seconds) {
  utimbuf times{seconds, seconds};
  ASSERT_EQ(utime(path.c_str(), &times), 0) << path;
}

TEST_F(History, LogListsTheCurrentContentThenTheVersionsNewestFirst) {
  make({"abc", ""}, "abc\nmore\n");
  // 2025-03-14 03:40:03 UTC.
  setModified(version(1), 1741923603);
  setModified(version(2), 1741923663);
  setModified(file(), 1741923723);
  qztool::RunOptions utc;
  utc.env.emplace_back("TZ", "UTC0");
  const ToolResult log = run({"log", "Data/plan.txt"}, utc);
  ASSERT_EQ(log.status, 0) << log.describe();
  EXPECT_EQ(log.out,
            "current  2025-03-14T03:42:03+00:00  9 bytes  sha256:4addbb34189c482c\n"
            "2        2025-03-14T03:41:03+00:00  0 bytes  sha256:e3b0c44298fc1c14\n"
            "1        2025-03-14T03:40:03+00:00  3 bytes  sha256:ba7816bf8f01cfea\n");

  const ToolResult json = run({"log", "Data/plan.txt", "--json"}, utc);
  ASSERT_EQ(json.status, 0) << json.describe();
  const nlohmann::json versions = json.json()["versions"];
  ASSERT_EQ(versions.size(), 3u);
  EXPECT_EQ(versions[0]["version"], "current");
  EXPECT_EQ(versions[1]["version"], 2);
  EXPECT_EQ(versions[1]["sha256"], kSha256Empty);
  EXPECT_EQ(versions[2]["version"], 1);
  EXPECT_EQ(versions[2]["sha256"], kSha256Abc);
  EXPECT_EQ(versions[2]["size"], 3);
  EXPECT_EQ(versions[2]["date"], "2025-03-14T03:40:03+00:00");
  EXPECT_EQ(json.json()["path"], "Data/plan.txt");
}

TEST_F(History, LogDatesCarryTheZoneOfTheRun) {
  make({"abc"}, "x");
  setModified(version(1), 1741923603);
  qztool::RunOptions india;
  india.env.emplace_back("TZ", "IST-5:30");
  const ToolResult json = run({"log", "Data/plan.txt", "--json"}, india);
  ASSERT_EQ(json.status, 0) << json.describe();
  EXPECT_EQ(json.json()["versions"][1]["date"], "2025-03-14T09:10:03+05:30");
  qztool::RunOptions west;
  west.env.emplace_back("TZ", "XST5");
  EXPECT_EQ(run({"log", "Data/plan.txt", "--json"}, west).json()["versions"][1]["date"], "2025-03-13T22:40:03-05:00");
}

TEST_F(History, LogSkipsGapsAndShowsAnObjectWithoutVersions) {
  make({"one", "two", "three"}, "four");
  ASSERT_EQ(std::remove(version(2).c_str()), 0);
  const ToolResult log = run({"log", "Data/plan.txt", "--json"});
  ASSERT_EQ(log.status, 0) << log.describe();
  const nlohmann::json versions = log.json()["versions"];
  ASSERT_EQ(versions.size(), 3u);
  EXPECT_EQ(versions[1]["version"], 3);
  EXPECT_EQ(versions[2]["version"], 1);

  qztool::writeText(vault_ + "/Data/new.txt", "abc");
  const ToolResult alone = run({"log", "Data/new.txt", "--json"});
  ASSERT_EQ(alone.status, 0) << alone.describe();
  ASSERT_EQ(alone.json()["versions"].size(), 1u);
  EXPECT_EQ(alone.json()["versions"][0]["sha256"], kSha256Abc);
}

TEST_F(History, ShowWritesTheContentOfAVersion) {
  const std::string binary("\x00\x01\xff\n\x00", 5);
  make({"first\n", binary}, "now\n");
  ToolResult shown = run({"show", "Data/plan.txt@1"});
  EXPECT_EQ(shown.status, 0) << shown.describe();
  EXPECT_EQ(shown.out, "first\n");
  shown = run({"show", "Data/plan.txt@2"});
  EXPECT_EQ(shown.status, 0) << shown.describe();
  EXPECT_EQ(shown.out, binary);
  shown = run({"show", "Data/plan.txt@current"});
  EXPECT_EQ(shown.out, "now\n");
}

TEST_F(History, ShowRefusesWhatNamesNoVersion) {
  make({"first\n"}, "now\n");
  expectOneLineError(run({"show", "Data/plan.txt@7"}), 1, "Data/plan.txt has no version 7 (its highest is 1)");
  expectOneLineError(run({"show", "Data/plan.txt"}), 2, "give PATH@N or PATH@current");
  expectOneLineError(run({"show", "Data/plan.txt@0"}), 2, "is not a version");
  expectOneLineError(run({"show", "Data/plan.txt@latest"}), 2, "is not a version");
  expectOneLineError(run({"show", "Data/nothing.txt@1"}), 1, "");
  expectOneLineError(run({"show", "../x@1"}), 2, "leaves the vault");
}

// The hunks of `diff -u` (the lines after its two header lines).
std::string systemDiffHunks(const std::string& from, const std::string& to) {
  const ToolResult diff = qztool::runProgram("/usr/bin/diff", {"-u", from, to});
  EXPECT_EQ(diff.status, 1) << diff.describe();
  const std::size_t first = diff.out.find('\n');
  const std::size_t second = diff.out.find('\n', first + 1);
  return diff.out.substr(second + 1);
}

std::string withoutHeader(const std::string& out) {
  const std::size_t first = out.find('\n');
  const std::size_t second = out.find('\n', first + 1);
  return second == std::string::npos ? std::string() : out.substr(second + 1);
}

TEST_F(History, DiffPrintsTheHunksDiffPrints) {
  if (access("/usr/bin/diff", X_OK) != 0) GTEST_SKIP() << "no diff program to compare with";
  struct Case {
    std::string from;
    std::string to;
  };
  std::string longText;
  for (int i = 1; i <= 40; ++i) longText += "line " + std::to_string(i) + "\n";
  std::string longChanged = longText;
  longChanged.replace(longChanged.find("line 5\n"), 7, "line five\n");
  longChanged.replace(longChanged.find("line 30\n"), 8, "");
  longChanged += "line 41\n";
  const Case cases[] = {
      {"a\nb\nc\n", "a\nB\nc\n"},
      {"", "new\nlines\n"},
      {"old\nlines\n", ""},
      {"no newline", "no newline\n"},
      {"same\nlast", "same\nother"},
      {"x\n", "x\ny\nz\n"},
      {longText, longChanged},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("from \"" + c.from.substr(0, 20) + "\" to \"" + c.to.substr(0, 20) + "\"");
    make({c.from}, c.to);
    const ToolResult diff = run({"diff", "Data/plan.txt"});
    EXPECT_EQ(diff.status, 1) << diff.describe();
    EXPECT_EQ(diff.err, "");
    EXPECT_EQ(withoutHeader(diff.out), systemDiffHunks(version(1), file()));
  }
}

TEST_F(History, DiffNamesBothSidesAndTheirDates) {
  make({"a\n", "b\n"}, "c\n");
  setModified(version(1), 1741923603);
  setModified(version(2), 1741923663);
  qztool::RunOptions utc;
  utc.env.emplace_back("TZ", "UTC0");
  const ToolResult diff = run({"diff", "Data/plan.txt", "1", "2"}, utc);
  EXPECT_EQ(diff.status, 1) << diff.describe();
  EXPECT_EQ(diff.out,
            "--- Data/plan.txt@1\t2025-03-14T03:40:03+00:00\n"
            "+++ Data/plan.txt@2\t2025-03-14T03:41:03+00:00\n"
            "@@ -1 +1 @@\n"
            "-a\n"
            "+b\n");
  // N alone is compared with the current content; "current" may be named.
  EXPECT_THAT(run({"diff", "Data/plan.txt", "1"}).out, HasSubstr("+++ Data/plan.txt@current\t"));
  EXPECT_THAT(run({"diff", "Data/plan.txt", "current", "1"}).out, HasSubstr("--- Data/plan.txt@current\t"));
}

TEST_F(History, EqualContentsGiveNoOutputAndExitStatusZero) {
  make({"same\n", "other\n"}, "same\n");
  const ToolResult diff = run({"diff", "Data/plan.txt", "1"});
  EXPECT_EQ(diff.status, 0) << diff.describe();
  EXPECT_EQ(diff.out, "");
  EXPECT_EQ(diff.err, "");
  // The default compares the newest version (2) with the current content.
  EXPECT_EQ(run({"diff", "Data/plan.txt"}).status, 1);
}

TEST_F(History, BinaryContentIsReportedNotPrinted) {
  const std::string binary("PK\x03\x04\x00\x00secret", 12);
  make({binary}, "text\n");
  const ToolResult diff = run({"diff", "Data/plan.txt"});
  EXPECT_EQ(diff.status, 1) << diff.describe();
  EXPECT_EQ(diff.out, "Binary contents Data/plan.txt@1 and Data/plan.txt@current differ\n");
  EXPECT_EQ(diff.err, "");
  qztool::writeText(file(), binary);
  EXPECT_EQ(run({"diff", "Data/plan.txt"}).status, 0);
}

TEST_F(History, DiffErrors) {
  make({}, "only\n");
  expectOneLineError(run({"diff", "Data/plan.txt"}), 1, "Data/plan.txt has no versions to compare with");
  expectOneLineError(run({"diff", "Data/plan.txt", "3"}), 1, "Data/plan.txt has no version 3 (it has no versions)");
  expectOneLineError(run({"diff", "Data/plan.txt", "0"}), 2, "is not a version");
  expectOneLineError(run({"diff", "Data/plan.txt", "1", "2", "3"}), 2, "");
  expectOneLineError(run({"diff", "Data"}), 2, "is a folder");
}

}  // namespace
