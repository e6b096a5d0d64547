// qzvault status without a path or on a folder: locked objects with their
// holders, objects changed since their analysis and stale lock files, for the
// whole vault, one folder or a folder and those below it; as text, JSON and
// NUL-terminated records. (Read-only objects need another user than root:
// read_only_mp_test.cc.)
#include <pwd.h>
#include <unistd.h>
#include <utime.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using nlohmann::json;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;
using ::testing::HasSubstr;

std::string currentUser() {
  const passwd* entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : "";
}

void setModified(const std::string& path, time_t seconds) {
  utimbuf times{seconds, seconds};
  ASSERT_EQ(utime(path.c_str(), &times), 0) << path;
}

class VaultStatusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    qztest::makeDirs(vault_ + "/Data");
    qztest::makeDirs(vault_ + "/Jobs/Nightly");
    qztool::writeText(vault_ + "/Data/orders.csv", "id\n1\n");
    qztool::writeText(vault_ + "/Data/customers.csv", "id\n");
    qztool::writeText(vault_ + "/Jobs/Nightly/load.txt", "load\n");
    // An hour and more ago, so that an analysis date and a later change differ.
    for (const char* file : {"/Data/orders.csv", "/Data/customers.csv", "/Jobs/Nightly/load.txt"}) {
      setModified(vault_ + file, time(nullptr) - 7200);
    }
    const ToolResult analysed = runOn(vault_, {"analyze"});
    ASSERT_EQ(analysed.status, 0) << analysed.describe();
  }
  ToolResult status(std::vector<std::string> args = {}) {
    args.insert(args.begin(), "status");
    return runOn(vault_, std::move(args));
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(VaultStatusTest, AQuietVaultHasNothingToReport) {
  const ToolResult quiet = status();
  ASSERT_EQ(quiet.status, 0) << quiet.describe();
  EXPECT_EQ(quiet.out, "Nothing locked, read-only, changed since its analysis or stale among 3 objects of .\n");
  const ToolResult json = status({"--json"});
  ASSERT_EQ(json.status, 0) << json.describe();
  EXPECT_EQ(json.json(), (json::parse(R"({"path": ".", "recursive": true, "objects": 3, "findings": []})")));
}

TEST_F(VaultStatusTest, TheWholeVaultShowsLocksChangesAndStaleLockFiles) {
  ASSERT_EQ(runOn(vault_, {"lock", "Data/orders.csv"}).status, 0);
  qztool::writeText(vault_ + "/Jobs/Nightly/load.txt", "load more\n");
  qztool::writeText(vault_ + "/Jobs/.v_lck", "");
  setModified(vault_ + "/Jobs/.v_lck", time(nullptr) - 7200);

  const ToolResult whole = status({"--json"});
  ASSERT_EQ(whole.status, 0) << whole.describe();
  const json report = whole.json();
  EXPECT_EQ(report["objects"], 3);
  ASSERT_EQ(report["findings"].size(), 3u) << report.dump(2);
  EXPECT_EQ(report["findings"][0]["kind"], "locked");
  EXPECT_EQ(report["findings"][0]["path"], "Data/orders.csv");
  EXPECT_EQ(report["findings"][0]["detail"], "by " + currentUser());
  EXPECT_EQ(report["findings"][1]["kind"], "changed");
  EXPECT_EQ(report["findings"][1]["path"], "Jobs/Nightly/load.txt");
  EXPECT_THAT(report["findings"][1]["detail"].get<std::string>(),
              ::testing::MatchesRegex("changed since its analysis of [0-9-]+T[0-9:]+[-+][0-9:]+"));
  EXPECT_EQ(report["findings"][2]["kind"], "stale-lock");
  EXPECT_EQ(report["findings"][2]["path"], "Jobs/.v_lck");

  const ToolResult text = status();
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_THAT(text.out, HasSubstr("locked      Data/orders.csv        by " + currentUser() + "\n"));
  EXPECT_THAT(text.out, HasSubstr("changed     Jobs/Nightly/load.txt  changed since its analysis of "));
  EXPECT_THAT(text.out, HasSubstr("stale-lock  Jobs/.v_lck  "));
  EXPECT_THAT(text.out, HasSubstr("3 findings among 3 objects\n"));

  const ToolResult records = status({"-z"});
  ASSERT_EQ(records.status, 0) << records.describe();
  // Three NUL-terminated fields a finding: kind, path, detail.
  const std::string nul(1, '\0');
  EXPECT_EQ(records.out.substr(0, records.out.find("by " + currentUser()) + 4 + currentUser().size()),
            "locked" + nul + "Data/orders.csv" + nul + "by " + currentUser() + nul);
  EXPECT_EQ(std::count(records.out.begin(), records.out.end(), '\0'), 9);
  EXPECT_EQ(records.out.find('\t'), std::string::npos);
  EXPECT_EQ(records.out.find('\n'), std::string::npos);
}

TEST_F(VaultStatusTest, AFolderAloneOrWithTheFoldersBelowIt) {
  ASSERT_EQ(runOn(vault_, {"lock", "Data/orders.csv"}).status, 0);
  ASSERT_EQ(runOn(vault_, {"lock", "Jobs/Nightly/load.txt"}).status, 0);

  const json data = status({"Data", "--json"}).json();
  EXPECT_EQ(data["recursive"], false);
  EXPECT_EQ(data["objects"], 2);
  ASSERT_EQ(data["findings"].size(), 1u);
  EXPECT_EQ(data["findings"][0]["path"], "Data/orders.csv");

  const json jobs = status({"Jobs", "--json"}).json();
  EXPECT_EQ(jobs["objects"], 0);
  EXPECT_EQ(jobs["findings"].size(), 0u);
  const json below = status({"Jobs", "--recursive", "--json"}).json();
  EXPECT_EQ(below["objects"], 1);
  ASSERT_EQ(below["findings"].size(), 1u);
  EXPECT_EQ(below["findings"][0]["path"], "Jobs/Nightly/load.txt");
  EXPECT_EQ(status({"Jobs", "-r"}).out.find("Nothing"), std::string::npos);
}

TEST_F(VaultStatusTest, AnObjectKeepsItsOwnStatusAndRefusesFolderOptions) {
  const ToolResult object = status({"Data/orders.csv"});
  ASSERT_EQ(object.status, 0) << object.describe();
  EXPECT_THAT(object.out, HasSubstr("Object:     Data/orders.csv\n"));
  expectOneLineError(status({"Data/orders.csv", "--recursive"}), 2, "--recursive needs a folder");
  expectOneLineError(status({"Data/orders.csv", "-z"}), 2, "-z lists the findings of a folder");
  expectOneLineError(status({"Nowhere"}), 1, "");
}

}  // namespace
