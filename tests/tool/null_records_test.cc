// -z (--null) on every listing command: each row as a fixed number of
// NUL-terminated fields, every byte of a name as it is (a line break or a tab
// in a name cannot split a record), the same rows the text and JSON forms
// give; and dates as ISO 8601 with the zone wherever they are printed.
#include <sqlite3.h>
#include <sys/stat.h>
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
using qztool::runOn;
using qztool::ToolResult;
using ::testing::MatchesRegex;

using Record = std::vector<std::string>;

// Splits -z output into records of `fields` fields; fails the test when the
// output does not end a field with a NUL or is not a whole number of records.
std::vector<Record> records(const std::string& out, std::size_t fields) {
  std::vector<std::string> all;
  std::size_t start = 0;
  for (std::size_t end = out.find('\0'); end != std::string::npos; end = out.find('\0', start)) {
    all.push_back(out.substr(start, end - start));
    start = end + 1;
  }
  EXPECT_EQ(start, out.size()) << "output does not end with a NUL";
  EXPECT_EQ(all.size() % fields, 0u) << all.size() << " fields are not records of " << fields;
  std::vector<Record> rows;
  for (std::size_t i = 0; i + fields <= all.size(); i += fields) {
    rows.emplace_back(all.begin() + static_cast<long>(i), all.begin() + static_cast<long>(i + fields));
  }
  return rows;
}

const char kIsoDate[] = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[-+][0-9]{2}:[0-9]{2}";

// A vault with a folder whose display name holds a line break, an object whose
// display name holds a tab, and a symbolic name (a link: a row of the root's
// fixed metadata that names a file elsewhere).
class NullRecordsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    qztest::makeDirs(vault_ + "/Data");
    qztool::writeText(vault_ + "/Data/orders.csv", "id\n1\n");
    ASSERT_EQ(runOn(vault_, {"mkdir", kBroken}).status, 0);
    qztool::writeText(dir_.join("in.csv"), "id\n2\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("in.csv"), "Data", "--name", kTabbed}).status, 0);
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((vault_ + "/.v_fmd").c_str(), &db), SQLITE_OK);
    const int inserted = sqlite3_exec(
        db, "INSERT INTO v_symlink (name, fname) VALUES ('short\ncut', 'Data/orders.csv')", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    ASSERT_EQ(inserted, SQLITE_OK);
  }
  ToolResult run(std::vector<std::string> args) { return runOn(vault_, std::move(args)); }

  static constexpr const char* kBroken = "two\nlines";
  static constexpr const char* kTabbed = "in\tbox";
  TempDir dir_;
  std::string vault_;
};

TEST_F(NullRecordsTest, TreeListsEveryEntryWithItsVaultPath) {
  const ToolResult tree = run({"tree", "-z"});
  ASSERT_EQ(tree.status, 0) << tree.describe();
  const std::vector<Record> rows = records(tree.out, 4);
  ASSERT_EQ(rows.size(), 5u) << tree.out;
  EXPECT_EQ(rows[0], (Record{"folder", "Data", "Data", ""}));
  EXPECT_EQ(rows[1][1], kTabbed);
  EXPECT_EQ(rows[1][2].rfind("Data/", 0), 0u) << rows[1][2];
  EXPECT_EQ(rows[2], (Record{"-", "orders", "Data/orders.csv", ""}));
  EXPECT_EQ(rows[3], (Record{"folder", kBroken, "two_lines", ""}));
  EXPECT_EQ(rows[4], (Record{"link", "short\ncut", "short\ncut", "Data/orders.csv"}));
  EXPECT_EQ(run({"tree", "-z", "--json"}).status, 2);
}

TEST_F(NullRecordsTest, AttributeRowsCarryTheirNameRowAndTenColumns) {
  ASSERT_EQ(run({"attr", "set", "Data", "Note", "a\tb", "--row", "1", "--col", "2"}).status, 0);
  const ToolResult listed = run({"attr", "list", "Data", "-z"});
  ASSERT_EQ(listed.status, 0) << listed.describe();
  bool second = false;
  for (const Record& row : records(listed.out, 12)) {
    if (row[0] != "Note") continue;
    if (row[1] == "1") {
      second = true;
      EXPECT_EQ(row[2], "");
      EXPECT_EQ(row[4], "a\tb");
    }
  }
  EXPECT_TRUE(second) << listed.out;
}

TEST_F(NullRecordsTest, VersionListAndLogGiveIsoDatesWithTheZone) {
  ASSERT_EQ(run({"version", "create", "Data/orders.csv"}).status, 0);

  const ToolResult text = run({"version", "list", "Data/orders.csv"});
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_THAT(text.out, MatchesRegex(std::string("1  ") + kIsoDate + "\n"));
  const ToolResult asJson = run({"version", "list", "Data/orders.csv", "--json"});
  ASSERT_EQ(asJson.status, 0) << asJson.describe();
  EXPECT_THAT(asJson.json()["versions"][0]["date"].get<std::string>(), MatchesRegex(kIsoDate));

  const ToolResult listed = run({"version", "list", "Data/orders.csv", "-z"});
  ASSERT_EQ(listed.status, 0) << listed.describe();
  const std::vector<Record> versions = records(listed.out, 2);
  ASSERT_EQ(versions.size(), 1u);
  EXPECT_EQ(versions[0][0], "1");
  EXPECT_EQ(versions[0][1], asJson.json()["versions"][0]["date"]);

  const ToolResult log = run({"log", "Data/orders.csv", "-z"});
  ASSERT_EQ(log.status, 0) << log.describe();
  const std::vector<Record> history = records(log.out, 4);
  ASSERT_EQ(history.size(), 2u) << log.out;
  EXPECT_EQ(history[0][0], "current");
  EXPECT_EQ(history[1][0], "1");
  for (const Record& row : history) {
    EXPECT_THAT(row[1], MatchesRegex(kIsoDate));
    EXPECT_EQ(row[2], "5");  // "id\n1\n"
    EXPECT_THAT(row[3], MatchesRegex("[0-9a-f]{64}"));
  }
  EXPECT_EQ(history[0][3], history[1][3]);
}

// The library keeps its date attributes as seconds; the tool shows them as
// it shows every date, in every form.
TEST_F(NullRecordsTest, LibraryDateAttributesAreShownAsIsoDates) {
  const ToolResult text = run({"attr", "list", "Data/orders.csv"});
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_THAT(text.out, ::testing::ContainsRegex(std::string("_CREATIONDATE  ") + kIsoDate + "\n"));
  EXPECT_THAT(text.out, ::testing::ContainsRegex(std::string("_MODIFIEDDATE  ") + kIsoDate + "\n"));

  const ToolResult asJson = run({"attr", "get", "Data", "_MODIFIEDDATE", "--json"});
  ASSERT_EQ(asJson.status, 0) << asJson.describe();
  EXPECT_THAT(asJson.json()[0]["rows"][0][0].get<std::string>(), MatchesRegex(kIsoDate));
  bool seen = false;
  for (const Record& row : records(run({"attr", "list", "Data", "-z"}).out, 12)) {
    if (row[0] != "_CREATIONDATE") continue;
    seen = true;
    EXPECT_THAT(row[2], MatchesRegex(kIsoDate));
  }
  EXPECT_TRUE(seen);
  // A folder's own dates are stamped by its first listing (above).
  const ToolResult one = run({"attr", "get", "Data", "_CREATIONDATE", "--row", "0"});
  ASSERT_EQ(one.status, 0) << one.describe();
  EXPECT_THAT(one.out, MatchesRegex(std::string(kIsoDate) + "\n"));
}

TEST_F(NullRecordsTest, LocksAndCheckFindingsAreRecords) {
  qztool::writeText(vault_ + "/Data/.v_lck", "");
  const time_t old = time(nullptr) - 7200;
  utimbuf times{old, old};
  ASSERT_EQ(utime((vault_ + "/Data/.v_lck").c_str(), &times), 0);

  const ToolResult locks = run({"locks", "-z"});
  ASSERT_EQ(locks.status, 0) << locks.describe();
  const std::vector<Record> held = records(locks.out, 3);
  ASSERT_EQ(held.size(), 1u) << locks.out;
  EXPECT_EQ(held[0][0], "Data");
  const ToolResult lockJson = run({"locks", "--json"});
  ASSERT_EQ(lockJson.status, 0) << lockJson.describe();
  EXPECT_EQ(held[0][1], lockJson.json()[0]["state"]);

  const ToolResult check = run({"check", "-z"});
  EXPECT_EQ(check.status, 1) << check.describe();  // a stale lock is damage
  const std::vector<Record> findings = records(check.out, 5);
  ASSERT_FALSE(findings.empty()) << check.out;
  bool stale = false;
  for (const Record& row : findings) {
    EXPECT_EQ(row[0], "found");
    if (row[2] == "stale-lock") {
      stale = true;
      EXPECT_EQ(row[1], "damage");
      EXPECT_EQ(row[3], "Data/.v_lck");
    }
  }
  EXPECT_TRUE(stale) << check.out;
  EXPECT_EQ(check.out.find("remaining"), std::string::npos) << "no summary line in -z output";
}

// Resources need the definition plug-in's analysis: the sample vault.
class NullResourcesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
    vault_ = dir_.join("demo");
    const ToolResult demo = qztool::runTool({"demo", vault_});
    ASSERT_EQ(demo.status, 0) << demo.describe();
  }
  TempDir dir_;
  std::string vault_;
};

// The -z rows hold what the JSON form holds, resource by resource.
void expectSameResources(const ToolResult& records4, const ToolResult& asJson) {
  ASSERT_EQ(records4.status, 0) << records4.describe();
  ASSERT_EQ(asJson.status, 0) << asJson.describe();
  const std::vector<Record> rows = records(records4.out, 4);
  const json list = asJson.json();
  ASSERT_EQ(rows.size(), list.size()) << records4.out;
  ASSERT_FALSE(rows.empty());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i][0], list[i]["type"]);
    EXPECT_EQ(rows[i][1], list[i]["name"].is_null() ? "" : list[i]["name"].get<std::string>());
    EXPECT_EQ(rows[i][3], list[i]["macro"].get<bool>() ? "macro" : "");
  }
}

TEST_F(NullResourcesTest, ResourcesDepsAndUsedByMatchTheirJson) {
  expectSameResources(runOn(vault_, {"resources", "-z"}), runOn(vault_, {"resources", "--json"}));
  expectSameResources(runOn(vault_, {"deps", "Jobs/Definitions/nightly-sales-load.job.def", "-z"}),
                      runOn(vault_, {"deps", "Jobs/Definitions/nightly-sales-load.job.def", "--json"}));
  expectSameResources(runOn(vault_, {"used-by", "Data/orders.csv", "-z"}),
                      runOn(vault_, {"used-by", "Data/orders.csv", "--json"}));

  const ToolResult types = runOn(vault_, {"types", "-z"});
  ASSERT_EQ(types.status, 0) << types.describe();
  const json counts = runOn(vault_, {"types", "--json"}).json();
  const std::vector<Record> rows = records(types.out, 2);
  ASSERT_EQ(rows.size(), counts.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i][0], counts[i]["type"]);
    EXPECT_EQ(rows[i][1], std::to_string(counts[i]["resources"].get<int>()));
  }
}

// lineage -z: a closure's resources with their distance, a whole graph's
// edges; the same resources and edges as --json gives.
TEST_F(NullResourcesTest, LineageClosuresAndEdgesAreRecords) {
  const ToolResult down = runOn(vault_, {"lineage", "Data/orders.csv", "--down", "-z"});
  ASSERT_EQ(down.status, 0) << down.describe();
  const std::vector<Record> reached = records(down.out, 4);
  const json closure = runOn(vault_, {"lineage", "Data/orders.csv", "--down", "--json"}).json();
  // JSON names the start apart from the resources it reaches; -z lists it first.
  ASSERT_EQ(reached.size(), closure["resources"].size() + 1) << closure.dump(2);
  EXPECT_EQ(reached[0], (Record{"0", "DataFile", "orders.csv", "Data/orders.csv"}));
  for (std::size_t i = 1; i < reached.size(); ++i) {
    EXPECT_EQ(reached[i][0], std::to_string(closure["resources"][i - 1]["distance"].get<int>()));
    EXPECT_EQ(reached[i][1], closure["resources"][i - 1]["type"]);
  }

  const ToolResult whole = runOn(vault_, {"lineage", "-z"});
  ASSERT_EQ(whole.status, 0) << whole.describe();
  const std::vector<Record> edges = records(whole.out, 6);
  const json graph = runOn(vault_, {"graph", "--json"}).json();
  EXPECT_EQ(edges.size(), graph["edges"].size());
  bool load = false;
  for (const Record& edge : edges) {
    load = load || (edge[2] == "Jobs/Definitions/nightly-sales-load.job.def" && edge[5] == "Data/orders.csv");
  }
  EXPECT_TRUE(load) << whole.out;
  EXPECT_EQ(runOn(vault_, {"lineage", "-z", "--json"}).status, 2);
}

}  // namespace
