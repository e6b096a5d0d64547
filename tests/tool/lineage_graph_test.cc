// qzvault lineage RESOURCE --up|--down and qzvault graph: closures as trees
// and JSON, graphs as DOT and JSON, rendering with and without Graphviz's dot
// on PATH, and the errors. Most tests use a vault whose lineage store is
// written with sqlite3 directly, so that the graph's shape is known exactly;
// some use the demo vault.
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::runTool;
using qztool::ToolResult;
using ::testing::HasSubstr;
using ::testing::Not;

struct StoredResource {
  int id;
  std::string type;
  std::string name;
  std::string identity;
};

// "user uses used", by resource id.
struct StoredUse {
  int user;
  int used;
};

// A vault made by the tool whose lineage store holds exactly `resources` and
// `uses`. The store keeps an analysed object's uses as rows (res_id = the
// resource used, res_used = the user): written here the same way.
void makeLineageVault(const std::string& vault, const std::vector<StoredResource>& resources,
                      const std::vector<StoredUse>& uses) {
  qztool::initVault(vault);
  // Any store query creates the store with its tables.
  const ToolResult created = runOn(vault, {"resources"});
  ASSERT_EQ(created.status, 0) << created.describe();

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((vault + "/.v_imd").c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_stmt* insert = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db,
                               "INSERT INTO v_imparcs (id, name, res_idty, res_type, mod_date) "
                               "VALUES (?, ?, ?, ?, '0')",
                               -1, &insert, nullptr),
            SQLITE_OK);
  for (const StoredResource& resource : resources) {
    sqlite3_bind_int(insert, 1, resource.id);
    sqlite3_bind_text(insert, 2, resource.name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 3, resource.identity.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 4, resource.type.c_str(), -1, SQLITE_TRANSIENT);
    ASSERT_EQ(sqlite3_step(insert), SQLITE_DONE) << sqlite3_errmsg(db);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO v_impadeps (res_id, res_used, dep_type) VALUES (?, ?, 0)", -1,
                               &insert, nullptr),
            SQLITE_OK);
  for (const StoredUse& use : uses) {
    sqlite3_bind_int(insert, 1, use.used);
    sqlite3_bind_int(insert, 2, use.user);
    ASSERT_EQ(sqlite3_step(insert), SQLITE_DONE) << sqlite3_errmsg(db);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  ASSERT_EQ(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
}

// The edges of a DOT text, read loosely: every line "A" -> "B"; as (A, B).
std::set<std::pair<std::string, std::string>> dotEdges(const std::string& dot) {
  static const std::regex edge(R"re(^\s*"((?:[^"\\]|\\.)*)"\s*->\s*"((?:[^"\\]|\\.)*)"\s*;?\s*$)re");
  std::set<std::pair<std::string, std::string>> edges;
  std::istringstream in(dot);
  for (std::string line; std::getline(in, line);) {
    std::smatch match;
    if (std::regex_match(line, match, edge)) edges.emplace(match[1], match[2]);
  }
  return edges;
}

// The number of node statements ("ID" [label=...]) of a DOT text.
std::size_t dotNodeCount(const std::string& dot) {
  static const std::regex node(R"re(^\s*"(?:[^"\\]|\\.)*"\s*\[label=.*\];\s*$)re");
  std::size_t count = 0;
  std::istringstream in(dot);
  for (std::string line; std::getline(in, line);) count += std::regex_match(line, node) ? 1 : 0;
  return count;
}

// A directory with no programs, to stand for a PATH without Graphviz.
qztool::RunOptions withoutPrograms(const TempDir& dir) {
  const std::string empty = dir.join("no-programs");
  if (!qztest::pathExists(empty)) qztest::makeDirs(empty);
  qztool::RunOptions options;
  options.env.emplace_back("PATH", empty);
  return options;
}

// Whether `dot` is on this test's PATH (found the way the tool finds it).
bool dotOnPath() {
  const char* path = std::getenv("PATH");
  std::istringstream in(path != nullptr ? path : "");
  for (std::string directory; std::getline(in, directory, ':');) {
    if (!directory.empty() && access((directory + "/dot").c_str(), X_OK) == 0) return true;
  }
  return false;
}

// Report r uses queries q1 and q2, both use table t, t uses database d; c1
// and c2 use each other; lonely takes part in nothing; "odd" has a name
// with a quote and a backslash.
class HandMadeLineageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    makeLineageVault(vault_,
                     {{1, "Report", "r", "rep/r"},
                      {2, "Query", "q1", "qry/q1"},
                      {3, "Query", "q2", "qry/q2"},
                      {4, "Table", "t", "tbl/t"},
                      {5, "Database", "", "db/d"},
                      {6, "Cycle", "c1", "cyc/c1"},
                      {7, "Cycle", "c2", "cyc/c2"},
                      {8, "Table", "lonely", "tbl/lonely"},
                      {9, "Query", "we\"ird\\name", "qry/odd"}},
                     {{1, 2}, {1, 3}, {2, 4}, {3, 4}, {4, 5}, {6, 7}, {7, 6}, {9, 4}});
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(HandMadeLineageTest, UpIsATreeOfWhatTheResourceUsesWithDistances) {
  const ToolResult result = runOn(vault_, {"lineage", "Report:rep/r", "--up"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out,
            "rep/r (Report)\n"
            "  [1] uses qry/q1 (Query)\n"
            "    [2] uses tbl/t (Table)\n"
            "      [3] uses db/d (Database)\n"
            "  [1] uses qry/q2 (Query)\n"
            "    [2] uses tbl/t (Table)  (see above)\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(HandMadeLineageTest, DownIsATreeOfWhatUsesTheResource) {
  const ToolResult result = runOn(vault_, {"lineage", "Database:db/d", "--down"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out,
            "db/d (Database)\n"
            "  [1] used by tbl/t (Table)\n"
            "    [2] used by qry/odd (Query)\n"
            "    [2] used by qry/q1 (Query)\n"
            "      [3] used by rep/r (Report)\n"
            "    [2] used by qry/q2 (Query)\n"
            "      [3] used by rep/r (Report)  (see above)\n");
}

TEST_F(HandMadeLineageTest, DepthLimitsTheClosure) {
  const ToolResult one = runOn(vault_, {"lineage", "Database:db/d", "--down", "--depth", "1"});
  ASSERT_EQ(one.status, 0) << one.describe();
  EXPECT_EQ(one.out, "db/d (Database)\n  [1] used by tbl/t (Table)\n");

  const ToolResult two = runOn(vault_, {"lineage", "Report:rep/r", "--up", "--depth=2", "--json"});
  ASSERT_EQ(two.status, 0) << two.describe();
  const nlohmann::json json = two.json();
  EXPECT_EQ(json["depth"], 2);
  std::map<std::string, int> distances;
  for (const auto& resource : json["resources"]) {
    distances[resource["identity"].get<std::string>()] = resource["distance"].get<int>();
  }
  EXPECT_EQ(distances, (std::map<std::string, int>{{"qry/q1", 1}, {"qry/q2", 1}, {"tbl/t", 2}}));
}

TEST_F(HandMadeLineageTest, JsonClosureHasTheResourcesAndTheirEdges) {
  const ToolResult result = runOn(vault_, {"lineage", "Report:rep/r", "--up", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json json = result.json();
  EXPECT_EQ(json["resource"]["identity"], "rep/r");
  EXPECT_EQ(json["resource"]["type"], "Report");
  EXPECT_EQ(json["resource"]["id"], "1");
  EXPECT_EQ(json["direction"], "up");
  EXPECT_TRUE(json["depth"].is_null());
  std::map<std::string, int> distances;
  for (const auto& resource : json["resources"]) {
    distances[resource["id"].get<std::string>()] = resource["distance"].get<int>();
  }
  EXPECT_EQ(distances, (std::map<std::string, int>{{"2", 1}, {"3", 1}, {"4", 2}, {"5", 3}}));
  std::set<std::pair<std::string, std::string>> edges;
  for (const auto& edge : json["edges"]) edges.emplace(edge["user"], edge["used"]);
  EXPECT_EQ(edges, (std::set<std::pair<std::string, std::string>>{
                       {"1", "2"}, {"1", "3"}, {"2", "4"}, {"3", "4"}, {"4", "5"}}));
}

TEST_F(HandMadeLineageTest, ACycleListsEveryResourceOnceAndNeverTheStart) {
  const ToolResult result = runOn(vault_, {"lineage", "Cycle:cyc/c1", "--up"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, "cyc/c1 (Cycle)\n  [1] uses cyc/c2 (Cycle)\n");
  const ToolResult json = runOn(vault_, {"lineage", "Cycle:cyc/c1", "--down", "--json"});
  ASSERT_EQ(json.status, 0) << json.describe();
  EXPECT_EQ(json.json()["resources"].size(), 1u);
  // The edge back into the start belongs to the closure's edges.
  EXPECT_EQ(json.json()["edges"].size(), 2u);
}

TEST_F(HandMadeLineageTest, AResourceThatTakesPartInNothingHasAnEmptyClosure) {
  const ToolResult up = runOn(vault_, {"lineage", "Table:tbl/lonely", "--up"});
  ASSERT_EQ(up.status, 0) << up.describe();
  EXPECT_EQ(up.out, "tbl/lonely (Table)\n  (uses nothing)\n");
  const ToolResult down = runOn(vault_, {"lineage", "Table:tbl/lonely", "--down", "--json"});
  ASSERT_EQ(down.status, 0) << down.describe();
  EXPECT_TRUE(down.json()["resources"].empty());
  EXPECT_TRUE(down.json()["edges"].empty());
}

TEST_F(HandMadeLineageTest, WithoutResourceLineageStillListsEveryEdge) {
  const ToolResult result = runOn(vault_, {"lineage"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, HasSubstr("rep/r (Report)\n  uses qry/q1 (Query)\n  uses qry/q2 (Query)\n"));
  EXPECT_THAT(result.out, HasSubstr("tbl/t (Table)\n  uses db/d (Database)\n"));
}

TEST_F(HandMadeLineageTest, DotHasEveryEdgeFromTheUsedToTheUser) {
  const ToolResult result = runOn(vault_, {"graph"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, HasSubstr("digraph lineage {"));
  EXPECT_EQ(dotEdges(result.out), (std::set<std::pair<std::string, std::string>>{{"2", "1"},
                                                                                  {"3", "1"},
                                                                                  {"4", "2"},
                                                                                  {"4", "3"},
                                                                                  {"5", "4"},
                                                                                  {"7", "6"},
                                                                                  {"6", "7"},
                                                                                  {"4", "9"}}));
  EXPECT_EQ(dotNodeCount(result.out), 9u);
  EXPECT_THAT(result.out, HasSubstr("\"1\" [label=\"Report\\nr\""));
  // A nameless resource is labelled with its identity.
  EXPECT_THAT(result.out, HasSubstr("\"5\" [label=\"Database\\ndb/d\""));
}

TEST_F(HandMadeLineageTest, DotLabelsEscapeQuotesAndBackslashes) {
  const ToolResult result = runOn(vault_, {"graph"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, HasSubstr("\"9\" [label=\"Query\\nwe\\\"ird\\\\name\""));
}

TEST_F(HandMadeLineageTest, JsonGraphParsesBackWithEveryNodeAndEdge) {
  const ToolResult result = runOn(vault_, {"graph", "--format", "json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json json = result.json();
  ASSERT_EQ(json["nodes"].size(), 9u);
  EXPECT_EQ(json["edges"].size(), 8u);
  for (const auto& node : json["nodes"]) EXPECT_FALSE(node.contains("distance")) << node.dump();
  std::set<std::string> ids;
  for (const auto& node : json["nodes"]) ids.insert(node["id"].get<std::string>());
  for (const auto& edge : json["edges"]) {
    EXPECT_EQ(ids.count(edge["user"].get<std::string>()), 1u) << edge.dump();
    EXPECT_EQ(ids.count(edge["used"].get<std::string>()), 1u) << edge.dump();
  }
}

TEST_F(HandMadeLineageTest, GraphAroundAResourceTakesBothDirections) {
  const ToolResult result = runOn(vault_, {"graph", "Query:qry/q1", "--format", "json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json graph = result.json();
  std::map<std::string, int> distances;
  for (const auto& node : graph["nodes"]) {
    distances[node["identity"].get<std::string>()] = node["distance"].get<int>();
  }
  EXPECT_EQ(distances,
            (std::map<std::string, int>{{"qry/q1", 0}, {"rep/r", 1}, {"tbl/t", 1}, {"db/d", 2}}));
  EXPECT_EQ(graph["nodes"][0]["identity"], "qry/q1");

  const ToolResult near = runOn(vault_, {"graph", "Query:qry/q1", "--depth", "1"});
  ASSERT_EQ(near.status, 0) << near.describe();
  EXPECT_EQ(dotEdges(near.out), (std::set<std::pair<std::string, std::string>>{{"2", "1"}, {"4", "2"}}));
  EXPECT_EQ(dotNodeCount(near.out), 3u);
  EXPECT_THAT(near.out, HasSubstr("penwidth"));
}

TEST_F(HandMadeLineageTest, OutputWritesTheGraphToAFile) {
  const std::string file = dir_.join("graph.dot");
  const ToolResult result = runOn(vault_, {"graph", "--output", file});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, "Wrote " + file + " (9 resources, 8 edges)\n");
  EXPECT_EQ(dotEdges(qztest::readFile(file)).size(), 8u);
}

TEST_F(HandMadeLineageTest, OutputDashIsStdout) {
  const ToolResult toStdout = runOn(vault_, {"graph", "--output", "-"});
  ASSERT_EQ(toStdout.status, 0) << toStdout.describe();
  EXPECT_EQ(toStdout.out, runOn(vault_, {"graph"}).out);
  EXPECT_EQ(dotEdges(toStdout.out).size(), 8u);
  EXPECT_FALSE(std::filesystem::exists(vault_ + "/-"));
}

TEST_F(HandMadeLineageTest, SvgIsRenderedWhenDotIsOnPath) {
  if (!dotOnPath()) GTEST_SKIP() << "Graphviz's dot is not installed on this machine";
  const std::string svg = dir_.join("lineage.svg");
  const std::string file = dir_.join("lineage.dot");
  const ToolResult result = runOn(vault_, {"graph", "--svg", svg, "--output", file});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, "Wrote " + file + " (9 resources, 8 edges)\nWrote " + svg + " (9 resources, 8 edges)\n");
  const std::string picture = qztest::readFile(svg);
  EXPECT_THAT(picture, HasSubstr("<svg"));
  // Every label reaches the picture.
  EXPECT_THAT(picture, HasSubstr(">Report</text>"));
  EXPECT_THAT(picture, HasSubstr(">db/d</text>"));
}

TEST_F(HandMadeLineageTest, WithoutDotTheSvgIsRefusedAndTheDotWritten) {
  const qztool::RunOptions options = withoutPrograms(dir_);
  const std::string svg = dir_.join("lineage.svg");

  // Without --output the DOT goes to stdout, so that it is not lost.
  const ToolResult bare = runOn(vault_, {"graph", "--svg", svg}, options);
  expectOneLineError(bare, 1, "the dot program (Graphviz) is not installed");
  EXPECT_THAT(bare.err, HasSubstr("the DOT was written on stdout"));
  EXPECT_EQ(dotEdges(bare.out).size(), 8u);
  EXPECT_FALSE(qztest::pathExists(svg));

  const std::string file = dir_.join("lineage.dot");
  const ToolResult withOutput = runOn(vault_, {"graph", "--svg", svg, "--output", file}, options);
  expectOneLineError(withOutput, 1, "cannot render " + svg + ": the dot program (Graphviz) is not installed");
  EXPECT_THAT(withOutput.err, HasSubstr("the DOT is in " + file));
  EXPECT_EQ(withOutput.out, "Wrote " + file + " (9 resources, 8 edges)\n");
  EXPECT_EQ(dotEdges(qztest::readFile(file)).size(), 8u);
  EXPECT_FALSE(qztest::pathExists(svg));
}

TEST_F(HandMadeLineageTest, DepthOfZeroOrLessIsAUsageError) {
  for (const std::string depth : {"0", "-1", "-20"}) {
    SCOPED_TRACE("--depth " + depth);
    expectOneLineError(runOn(vault_, {"lineage", "Report:rep/r", "--up", "--depth", depth}), 2,
                       "--depth " + depth + " is not a number of steps: give 1 or more");
    expectOneLineError(runOn(vault_, {"graph", "Report:rep/r", "--depth", depth}), 2,
                       "--depth " + depth + " is not a number of steps");
  }
  expectOneLineError(runOn(vault_, {"lineage", "Report:rep/r", "--up", "--depth", "many"}), 2, "--depth");
  expectOneLineError(runOn(vault_, {"graph", "--depth", "2"}), 2, "--depth needs a RESOURCE");
  expectOneLineError(runOn(vault_, {"lineage", "--depth", "2"}), 2, "--depth needs a RESOURCE");
}

TEST_F(HandMadeLineageTest, ExactlyOneDirectionIsRequiredWithAResource) {
  expectOneLineError(runOn(vault_, {"lineage", "Report:rep/r"}), 2, "give one of --up");
  expectOneLineError(runOn(vault_, {"lineage", "Report:rep/r", "--up", "--down"}), 2, "give one of --up");
  expectOneLineError(runOn(vault_, {"lineage", "--down"}), 2, "--up and --down need a RESOURCE");
  expectOneLineError(runOn(vault_, {"graph", "--format", "svg"}), 2, "--format");
}

TEST_F(HandMadeLineageTest, AnUnknownResourceIsNamedInOneLine) {
  expectOneLineError(runOn(vault_, {"lineage", "Table:nowhere", "--up"}), 1,
                     "no resource of type Table with the identity nowhere");
  expectOneLineError(runOn(vault_, {"graph", "Report:rep/none"}), 1,
                     "no resource of type Report with the identity rep/none");
  expectOneLineError(runOn(vault_, {"lineage", "Missing/file.csv", "--down"}), 1, "Missing");
  expectOneLineError(runOn(vault_, {"lineage", "../outside.csv", "--down"}), 2, "leaves the vault");
}

// 2,001 resources in one chain: r1 uses r2 uses ... r2001.
class LargeLineageTest : public ::testing::Test {
 protected:
  static constexpr int kResources = 2001;

  void SetUp() override {
    vault_ = dir_.join("vault");
    std::vector<StoredResource> resources;
    std::vector<StoredUse> uses;
    for (int i = 1; i <= kResources; ++i) {
      resources.push_back({i, "Step", "r" + std::to_string(i), "step/" + std::to_string(i)});
      if (i > 1) uses.push_back({i - 1, i});
    }
    makeLineageVault(vault_, resources, uses);
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(LargeLineageTest, AGraphOverTheBoundIsNotRenderedButWrittenAsDot) {
  const std::string svg = dir_.join("big.svg");
  const ToolResult result = runOn(vault_, {"graph", "--svg", svg});
  expectOneLineError(result, 1, "not rendering " + svg + ": the graph has 2001 resources, more than the 2000");
  EXPECT_EQ(dotNodeCount(result.out), 2001u);
  EXPECT_EQ(dotEdges(result.out).size(), 2000u);
  EXPECT_FALSE(qztest::pathExists(svg));
}

TEST_F(LargeLineageTest, AClosureWithinTheBoundIsRendered) {
  if (!dotOnPath()) GTEST_SKIP() << "Graphviz's dot is not installed on this machine";
  const std::string svg = dir_.join("near.svg");
  const ToolResult result = runOn(vault_, {"graph", "Step:step/1000", "--depth", "3", "--svg", svg});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out, "Wrote " + svg + " (7 resources, 6 edges)\n");
  EXPECT_TRUE(qztest::pathExists(svg));
}

TEST_F(LargeLineageTest, ALongChainPrintsEveryLevel) {
  const ToolResult result = runOn(vault_, {"lineage", "Step:step/1", "--up"});
  ASSERT_EQ(result.status, 0) << result.describe();
  std::istringstream in(result.out);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 2001u);
  EXPECT_EQ(lines.back(), std::string(4000, ' ') + "[2000] uses step/2001 (Step)");

  const ToolResult limited = runOn(vault_, {"lineage", "Step:step/1", "--up", "--depth", "2"});
  ASSERT_EQ(limited.status, 0) << limited.describe();
  EXPECT_EQ(limited.out, "step/1 (Step)\n  [1] uses step/2 (Step)\n    [2] uses step/3 (Step)\n");
}

class DemoLineageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
    vault_ = dir_.join("demo");
    const ToolResult demo = runTool({"demo", vault_}, withoutPrograms(dir_));
    ASSERT_EQ(demo.status, 0) << demo.describe();
    EXPECT_THAT(demo.out, HasSubstr("Skipped the picture: the dot program (Graphviz) is not on PATH\n"));
    EXPECT_FALSE(qztest::pathExists(vault_ + "/lineage.svg"));
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(DemoLineageTest, ScheduleUpstreamReachesTheFilesItsJobsRead) {
  const ToolResult result = runOn(vault_, {"lineage", "Schedules/nightly.sch.def", "--up"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_THAT(result.out, testing::StartsWith("Schedules/nightly.sch.def (Schedule)\n"
                                              "  [1] uses Jobs/Definitions/customer-sync.job.def (Job)\n"
                                              "    [2] uses Data/customers.csv (DataFile)\n"));
  EXPECT_THAT(result.out, HasSubstr("    [2] uses Data/orders.csv (DataFile)\n"));
  EXPECT_THAT(result.out, HasSubstr("    [2] uses Data/customers.csv (DataFile)  (see above)\n"));
}

TEST_F(DemoLineageTest, OrdersDownstreamReachesTheSchedule) {
  const ToolResult result = runOn(vault_, {"lineage", "Data/orders.csv", "--down", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json json = result.json();
  EXPECT_EQ(json["resource"]["path"], "Data/orders.csv");
  std::map<std::string, int> distances;
  for (const auto& resource : json["resources"]) {
    distances[resource["path"].get<std::string>()] = resource["distance"].get<int>();
  }
  EXPECT_EQ(distances, (std::map<std::string, int>{{"Jobs/Definitions/nightly-sales-load.job.def", 1},
                                                   {"Schedules/nightly.sch.def", 2}}));
}

TEST_F(DemoLineageTest, DotAndJsonGraphsAgreeWithTheEdgeListing) {
  const ToolResult dot = runOn(vault_, {"graph"});
  ASSERT_EQ(dot.status, 0) << dot.describe();
  const ToolResult json = runOn(vault_, {"graph", "--format", "json"});
  ASSERT_EQ(json.status, 0) << json.describe();
  const nlohmann::json graph = json.json();
  std::set<std::pair<std::string, std::string>> fromJson;
  for (const auto& edge : graph["edges"]) fromJson.emplace(edge["used"], edge["user"]);
  EXPECT_EQ(dotEdges(dot.out), fromJson);
  EXPECT_EQ(dotNodeCount(dot.out), graph["nodes"].size());

  // `lineage` without a resource prints each "uses" once per edge.
  const ToolResult listing = runOn(vault_, {"lineage"});
  ASSERT_EQ(listing.status, 0) << listing.describe();
  std::size_t uses = 0;
  for (std::size_t at = listing.out.find("  uses "); at != std::string::npos;
       at = listing.out.find("  uses ", at + 1)) {
    ++uses;
  }
  EXPECT_EQ(uses, fromJson.size());
  EXPECT_GT(uses, 20u);
}

TEST_F(DemoLineageTest, DemoDrawsItsLineageWhenDotIsOnPath) {
  if (!dotOnPath()) GTEST_SKIP() << "Graphviz's dot is not installed on this machine";
  const std::string other = dir_.join("drawn");
  const ToolResult demo = runTool({"demo", other});
  ASSERT_EQ(demo.status, 0) << demo.describe();
  EXPECT_THAT(demo.out, HasSubstr("Drew the lineage graph in " + other + "/lineage.svg\n"));
  EXPECT_THAT(demo.out, Not(HasSubstr("Skipped the picture")));
  EXPECT_THAT(qztest::readFile(other + "/lineage.svg"), HasSubstr("nightly&#45;sales&#45;load.job.def"));
}

}  // namespace
