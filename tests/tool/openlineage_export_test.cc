// qzvault lineage export --format openlineage: every event is checked against
// the rules of an OpenLineage 2-0-2 JobEvent by a validator written here from
// the standard (and shown to reject events that break each rule); the demo
// vault exports one event per analysed object whose inputs are what
// `qzvault deps` lists for it; each kind of resource identity gets its
// dataset name; options and errors.
#include <sqlite3.h>

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

using nlohmann::json;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::runTool;
using qztool::ToolResult;
using ::testing::HasSubstr;

// ---------------------------------------------------------------------------
// The validator: the required fields and types of a JobEvent of the
// OpenLineage 2-0-2 schema (BaseEvent's eventTime, producer and schemaURL;
// the job with its namespace and name; no run; datasets with namespace and
// name; facets, where present, objects). It returns the rules an event
// breaks, empty when it breaks none.

// RFC 3339 date-time, the JSON Schema "date-time" format: a date, "T", a
// time with optional fraction, and "Z" or an offset.
bool isDateTime(const std::string& text) {
  static const std::regex dateTime(
      R"(^[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])[Tt]([01][0-9]|2[0-3]):[0-5][0-9]:([0-5][0-9]|60)(\.[0-9]+)?([Zz]|[+-]([01][0-9]|2[0-3]):[0-5][0-9])$)");
  return std::regex_match(text, dateTime);
}

// RFC 3986 absolute URI: a scheme, ":", and a rest without blanks or
// control characters.
bool isUri(const std::string& text) {
  static const std::regex uri(R"(^[A-Za-z][A-Za-z0-9+.-]*:[^\s\x00-\x1f\x7f]+$)");
  return std::regex_match(text, uri);
}

bool isNonEmptyString(const json& value) { return value.is_string() && !value.get<std::string>().empty(); }

void checkFacets(const json& owner, const std::string& where, std::vector<std::string>* problems) {
  if (owner.contains("facets") && !owner["facets"].is_object()) problems->push_back(where + ".facets is not an object");
}

void checkDatasets(const json& event, const char* key, std::vector<std::string>* problems) {
  if (!event.contains(key)) return;
  const json& list = event[key];
  if (!list.is_array()) {
    problems->push_back(std::string(key) + " is not an array");
    return;
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string where = std::string(key) + "[" + std::to_string(i) + "]";
    const json& dataset = list[i];
    if (!dataset.is_object()) {
      problems->push_back(where + " is not an object");
      continue;
    }
    if (!dataset.contains("namespace") || !isNonEmptyString(dataset["namespace"])) {
      problems->push_back(where + ".namespace is not a non-empty string");
    }
    if (!dataset.contains("name") || !isNonEmptyString(dataset["name"])) {
      problems->push_back(where + ".name is not a non-empty string");
    }
    checkFacets(dataset, where, problems);
  }
}

std::vector<std::string> jobEventProblems(const json& event) {
  std::vector<std::string> problems;
  if (!event.is_object()) return {"the event is not an object"};
  if (!event.contains("eventTime") || !event["eventTime"].is_string() ||
      !isDateTime(event["eventTime"].get<std::string>())) {
    problems.push_back("eventTime is not an RFC 3339 date-time");
  }
  if (!event.contains("producer") || !event["producer"].is_string() ||
      !isUri(event["producer"].get<std::string>())) {
    problems.push_back("producer is not a URI");
  }
  if (!event.contains("schemaURL") || !event["schemaURL"].is_string() ||
      !isUri(event["schemaURL"].get<std::string>())) {
    problems.push_back("schemaURL is not a URI");
  } else {
    const std::string schema = event["schemaURL"].get<std::string>();
    const std::string fragment = "#/$defs/JobEvent";
    if (schema.find("/2-0-2/") == std::string::npos || schema.size() < fragment.size() ||
        schema.compare(schema.size() - fragment.size(), fragment.size(), fragment) != 0) {
      problems.push_back("schemaURL does not point to the 2-0-2 JobEvent definition");
    }
  }
  if (event.contains("run")) problems.push_back("a JobEvent has no run");
  if (event.contains("eventType")) problems.push_back("a JobEvent has no eventType (that is a RunEvent's)");
  if (!event.contains("job") || !event["job"].is_object()) {
    problems.push_back("job is not an object");
  } else {
    const json& job = event["job"];
    if (!job.contains("namespace") || !isNonEmptyString(job["namespace"])) {
      problems.push_back("job.namespace is not a non-empty string");
    }
    if (!job.contains("name") || !isNonEmptyString(job["name"])) {
      problems.push_back("job.name is not a non-empty string");
    }
    checkFacets(job, "job", &problems);
  }
  checkDatasets(event, "inputs", &problems);
  checkDatasets(event, "outputs", &problems);
  return problems;
}

json wellFormedEvent() {
  return json::parse(R"({
    "eventTime": "2025-03-14T03:40:03+01:00",
    "producer": "urn:qzvault:5.6:build:48",
    "schemaURL": "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/JobEvent",
    "job": {"namespace": "0f8fad5b-d9cb-469f-a165-70867728950e", "name": "Jobs/load.job.def"},
    "inputs": [{"namespace": "file", "name": "/srv/feeds/orders.csv"},
               {"namespace": "postgres://sales", "name": "public.orders"}]
  })");
}

TEST(OpenLineageValidator, AcceptsAWellFormedEvent) {
  EXPECT_THAT(jobEventProblems(wellFormedEvent()), ::testing::IsEmpty());
  json utc = wellFormedEvent();
  utc["eventTime"] = "2025-03-14T02:40:03.250Z";
  EXPECT_THAT(jobEventProblems(utc), ::testing::IsEmpty());
}

TEST(OpenLineageValidator, RejectsAnEventThatBreaksEachRule) {
  struct Breach {
    const char* rule;
    void (*apply)(json&);
  };
  const Breach breaches[] = {
      {"eventTime", [](json& e) { e.erase("eventTime"); }},
      {"eventTime", [](json& e) { e["eventTime"] = "2025-03-14 03:40:03"; }},
      {"eventTime", [](json& e) { e["eventTime"] = "2025-03-14T03:40:03"; }},
      {"eventTime", [](json& e) { e["eventTime"] = 1741920003; }},
      {"producer", [](json& e) { e.erase("producer"); }},
      {"producer", [](json& e) { e["producer"] = "qzvault 5.6"; }},
      {"schemaURL", [](json& e) { e.erase("schemaURL"); }},
      {"schemaURL", [](json& e) { e["schemaURL"] = "not a uri"; }},
      {"schemaURL", [](json& e) { e["schemaURL"] = "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/RunEvent"; }},
      {"schemaURL", [](json& e) { e["schemaURL"] = "https://openlineage.io/spec/1-0-5/OpenLineage.json#/$defs/JobEvent"; }},
      {"run", [](json& e) { e["run"] = json{{"runId", "3f5e83fa-3480-44ff-99c5-ff943904e5e8"}}; }},
      {"eventType", [](json& e) { e["eventType"] = "COMPLETE"; }},
      {"job is not", [](json& e) { e.erase("job"); }},
      {"job is not", [](json& e) { e["job"] = "Jobs/load.job.def"; }},
      {"job.namespace", [](json& e) { e["job"].erase("namespace"); }},
      {"job.namespace", [](json& e) { e["job"]["namespace"] = ""; }},
      {"job.name", [](json& e) { e["job"].erase("name"); }},
      {"job.name", [](json& e) { e["job"]["name"] = 7; }},
      {"job.facets", [](json& e) { e["job"]["facets"] = json::array(); }},
      {"inputs is not an array", [](json& e) { e["inputs"] = json::object(); }},
      {"inputs[0] is not an object", [](json& e) { e["inputs"][0] = "file:/srv/feeds/orders.csv"; }},
      {"inputs[1].namespace", [](json& e) { e["inputs"][1].erase("namespace"); }},
      {"inputs[0].name", [](json& e) { e["inputs"][0]["name"] = ""; }},
      {"inputs[0].facets", [](json& e) { e["inputs"][0]["facets"] = 1; }},
      {"outputs[0].name", [](json& e) { e["outputs"] = json::array({json{{"namespace", "file"}}}); }},
  };
  for (const Breach& breach : breaches) {
    json event = wellFormedEvent();
    breach.apply(event);
    const std::vector<std::string> problems = jobEventProblems(event);
    SCOPED_TRACE(event.dump());
    ASSERT_EQ(problems.size(), 1u) << ::testing::PrintToString(problems);
    EXPECT_THAT(problems[0], HasSubstr(breach.rule));
  }
}

// ---------------------------------------------------------------------------
// Exports.

// The demo vault in `vault`, made without Graphviz on PATH so that no
// picture of its lineage joins its objects.
void makeDemo(const TempDir& dir, const std::string& vault) {
  const std::string noPrograms = dir.join("no-programs");
  qztest::makeDirs(noPrograms);
  qztool::RunOptions options;
  options.env.emplace_back("PATH", noPrograms);
  const ToolResult demo = runTool({"demo", vault}, options);
  ASSERT_EQ(demo.status, 0) << demo.describe();
}

std::vector<json> eventLines(const std::string& out) {
  std::vector<json> events;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    EXPECT_FALSE(line.empty()) << "an empty line in the export";
    events.push_back(json::parse(line));
  }
  return events;
}

std::string vaultUuid(const std::string& vault) {
  const ToolResult info = runOn(vault, {"info", "--json"});
  EXPECT_EQ(info.status, 0) << info.describe();
  return info.json()["uuid"].get<std::string>();
}

// Every object path of the tree below a folder of `tree --json`.
void collectObjects(const json& node, std::set<std::string>* paths) {
  if (node.contains("objects")) {
    for (const json& object : node["objects"]) paths->insert(object["path"].get<std::string>());
  }
  if (node.contains("folders")) {
    for (const json& folder : node["folders"]) collectObjects(folder, paths);
  }
}

using Dataset = std::pair<std::string, std::string>;  // namespace, name

std::string percentDecoded(const std::string& part) {
  std::string text;
  for (std::size_t i = 0; i < part.size(); ++i) {
    if (part.compare(i, 3, "%2F") == 0 || part.compare(i, 3, "%2f") == 0) {
      text += '/';
      i += 2;
    } else if (part.compare(i, 3, "%25") == 0) {
      text += '%';
      i += 2;
    } else {
      text += part[i];
    }
  }
  return text;
}

std::vector<std::string> splitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(text);
  while (std::getline(in, part, separator)) parts.push_back(part);
  if (!text.empty() && text.back() == separator) parts.push_back("");
  return parts;
}

// The dataset the naming conventions give the identities of the demo vault
// (paths, file references, postgresql and sqlite databases and tables),
// worked out here independently of the tool.
Dataset expectedDataset(const std::string& identity) {
  if (identity.rfind("db:", 0) == 0) {
    const std::vector<std::string> parts = splitAt(identity.substr(3), '/');
    const std::string scheme = parts[0] == "postgresql" ? "postgres" : parts[0];
    const std::string source = percentDecoded(parts[1]);
    if (parts.size() == 2) return {scheme + "://" + source, source};
    std::string name;
    for (std::size_t i = 2; i < 5; ++i) {
      const std::string part = percentDecoded(parts[i]);
      if (part.empty()) continue;
      name += (name.empty() ? "" : ".") + part;
    }
    return {scheme + "://" + source, name};
  }
  if (identity.rfind("fileref:", 0) == 0) return {"file", identity.substr(8)};
  return {"file", identity};
}

TEST(OpenLineageExport, DemoExportsOneValidEventPerAnalysedObjectWithTheInputsDepsShows) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("demo");
  makeDemo(dir, vault);

  const ToolResult exported = runOn(vault, {"lineage", "export", "--format", "openlineage"});
  ASSERT_EQ(exported.status, 0) << exported.describe();
  const std::vector<json> events = eventLines(exported.out);

  // The demo analysed every object of its tree.
  const ToolResult tree = runOn(vault, {"tree", "--json"});
  ASSERT_EQ(tree.status, 0) << tree.describe();
  std::set<std::string> objects;
  collectObjects(tree.json(), &objects);
  ASSERT_EQ(objects.size(), 12u);

  const std::string uuid = vaultUuid(vault);
  std::set<std::string> jobs;
  for (const json& event : events) {
    SCOPED_TRACE(event.dump());
    EXPECT_THAT(jobEventProblems(event), ::testing::IsEmpty());
    EXPECT_EQ(event["job"]["namespace"], uuid);
    const std::string path = event["job"]["name"].get<std::string>();
    EXPECT_TRUE(jobs.insert(path).second) << "two events for " << path;

    const ToolResult deps = runOn(vault, {"deps", path, "--json"});
    ASSERT_EQ(deps.status, 0) << deps.describe();
    std::set<Dataset> expected;
    for (const json& resource : deps.json()) expected.insert(expectedDataset(resource["identity"].get<std::string>()));
    std::set<Dataset> inputs;
    for (const json& input : event["inputs"]) {
      inputs.emplace(input["namespace"].get<std::string>(), input["name"].get<std::string>());
    }
    EXPECT_EQ(inputs, expected) << "the inputs of " << path;
  }
  EXPECT_EQ(jobs, objects);

  // The samples' macros have no value in this run, and the export says which.
  ASSERT_EQ(exported.errLines().size(), 1u) << exported.describe();
  EXPECT_THAT(exported.err, HasSubstr("warning: "));
  EXPECT_THAT(exported.err, HasSubstr("CRM_DB, FEED_DIR, SALES_DSN"));
}

TEST(OpenLineageExport, MacroValuesGiveTheDatasetsTheirRealNames) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("demo");
  makeDemo(dir, vault);

  const ToolResult exported =
      runOn(vault, {"--set", "SALES_DSN=sales", "--set", "FEED_DIR=/data/feeds", "--set", "CRM_DB=crm.db",
                    "lineage", "export", "--format", "openlineage", "--namespace", "sales-vault"});
  ASSERT_EQ(exported.status, 0) << exported.describe();
  EXPECT_EQ(exported.err, "");
  std::map<std::string, std::set<Dataset>> inputsOf;
  for (const json& event : eventLines(exported.out)) {
    EXPECT_EQ(event["job"]["namespace"], "sales-vault");
    for (const json& input : event["inputs"]) {
      inputsOf[event["job"]["name"]].emplace(input["namespace"].get<std::string>(), input["name"].get<std::string>());
    }
  }
  const std::set<Dataset> nightly = inputsOf["Jobs/Definitions/nightly-sales-load.job.def"];
  const std::string root = dir.join("demo");
  EXPECT_EQ(nightly, (std::set<Dataset>{{"file", root + "/Data/customers.csv"},
                                        {"file", root + "/Data/orders.csv"},
                                        {"file", root + "/Mappings/orders-to-sales.map.def"},
                                        {"postgres://sales", "sales"},
                                        {"postgres://sales", "public.orders"},
                                        {"postgres://sales", "public.sales_facts"}}));
  const std::set<Dataset> sync = inputsOf["Jobs/Definitions/customer-sync.job.def"];
  EXPECT_EQ(sync, (std::set<Dataset>{{"file", root + "/Data/customers.csv"},
                                     {"file", "/data/feeds/crm_customers.csv"},
                                     {"postgres://sales", "public.customers"},
                                     {"sqlite://crm.db", "customers"}}));
  // An object that uses nothing is a job without inputs.
  ASSERT_EQ(inputsOf.count("Data/orders.csv"), 0u);
}

// ---------------------------------------------------------------------------
// A vault whose store is written directly, so that every kind of identity
// can be tried.

struct StoredResource {
  int id;
  std::string type;
  std::string identity;
  double analysed;  // the analysis date's numeric value; 0: never analysed
};

void makeStore(const std::string& vault, const std::vector<StoredResource>& resources,
               const std::vector<std::pair<int, int>>& uses /* user, used */) {
  qztool::initVault(vault);
  const ToolResult created = runOn(vault, {"resources"});
  ASSERT_EQ(created.status, 0) << created.describe();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((vault + "/.v_imd").c_str(), &db), SQLITE_OK);
  sqlite3_stmt* insert = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO v_imparcs (id, name, res_idty, res_type, mod_date) VALUES (?, '', ?, ?, ?)",
                               -1, &insert, nullptr),
            SQLITE_OK);
  for (const StoredResource& resource : resources) {
    sqlite3_bind_int(insert, 1, resource.id);
    sqlite3_bind_text(insert, 2, resource.identity.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 3, resource.type.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_double(insert, 4, resource.analysed);
    ASSERT_EQ(sqlite3_step(insert), SQLITE_DONE) << sqlite3_errmsg(db);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  // The store keeps "user uses used" as res_id = used, res_used = user.
  ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO v_impadeps (res_id, res_used) VALUES (?, ?)", -1, &insert, nullptr),
            SQLITE_OK);
  for (const auto& use : uses) {
    sqlite3_bind_int(insert, 1, use.second);
    sqlite3_bind_int(insert, 2, use.first);
    ASSERT_EQ(sqlite3_step(insert), SQLITE_DONE) << sqlite3_errmsg(db);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  sqlite3_close(db);
}

// 2025-03-14 03:40:03 as a library date's numeric value.
const double kAnalysed = 1741923603.0;

TEST(OpenLineageExport, EveryKindOfIdentityGetsItsDatasetName) {
  TempDir dir;
  const std::string vault = dir.join("v");
  qztest::makeDirs(vault + "/Jobs");
  qztool::writeText(vault + "/Jobs/load.job.def", "{}\n");
  makeStore(vault,
            {{1, "Job", vault + "/Jobs/load.job.def", kAnalysed},
             {2, "Table", "db:postgresql/sales/crm/public/orders", 0},
             {3, "Table", "db:oracle/ORCL//HR/EMPLOYEES", 0},
             {4, "Database", "db:sqlserver/warehouse", 0},
             {5, "Table", "db:sqlite/%2Fsrv%2Fdb%2Finventory.db///items", 0},
             {6, "DataFile", "fileref:/srv/feeds/in/orders.csv", 0},
             {7, "DataFile", "fileref:/x.csv", 0},
             {8, "DataFile", "C:/feeds/in/returns.csv", 0},
             {9, "Widget", "blue-widget", 0},
             {10, "Table", "db:Custom/src///t", 0}},
            {{1, 2}, {1, 3}, {1, 4}, {1, 5}, {1, 6}, {1, 7}, {1, 8}, {1, 9}, {1, 10}});

  const ToolResult exported =
      runOn(vault, {"lineage", "export", "--format", "openlineage", "--namespace", "ns"});
  ASSERT_EQ(exported.status, 0) << exported.describe();
  const std::vector<json> events = eventLines(exported.out);
  ASSERT_EQ(events.size(), 1u) << exported.out;
  EXPECT_THAT(jobEventProblems(events[0]), ::testing::IsEmpty());
  EXPECT_EQ(events[0]["job"], (json{{"namespace", "ns"}, {"name", "Jobs/load.job.def"}}));
  std::set<Dataset> inputs;
  for (const json& input : events[0]["inputs"]) {
    inputs.emplace(input["namespace"].get<std::string>(), input["name"].get<std::string>());
  }
  EXPECT_EQ(inputs, (std::set<Dataset>{{"postgres://sales", "crm.public.orders"},
                                       {"oracle://ORCL", "HR.EMPLOYEES"},
                                       {"mssql://warehouse", "warehouse"},
                                       {"sqlite:///srv/db/inventory.db", "items"},
                                       {"file", "/srv/feeds/in/orders.csv"},
                                       {"file", "/x.csv"},
                                       {"file", "C:/feeds/in/returns.csv"},
                                       {"ns", "Widget:blue-widget"},
                                       {"custom://src", "t"}}));
}

TEST(OpenLineageExport, OnlyAnalysedObjectsThatStillExistBecomeJobs) {
  TempDir dir;
  const std::string vault = dir.join("v");
  qztest::makeDirs(vault + "/Jobs");
  qztool::writeText(vault + "/Jobs/analysed.job.def", "{}\n");
  qztool::writeText(vault + "/Jobs/never.job.def", "{}\n");
  makeStore(vault,
            {{1, "Job", vault + "/Jobs/analysed.job.def", kAnalysed},
             {2, "Job", vault + "/Jobs/never.job.def", 0},
             {3, "Job", vault + "/Jobs/deleted.job.def", kAnalysed},
             {4, "Job", dir.join("elsewhere/outside.job.def"), kAnalysed},
             {5, "Table", "db:postgresql/sales//public/orders", kAnalysed}},
            {{1, 5}, {2, 5}, {3, 5}, {4, 5}});
  const ToolResult exported = runOn(vault, {"lineage", "export", "--format", "openlineage"});
  ASSERT_EQ(exported.status, 0) << exported.describe();
  const std::vector<json> events = eventLines(exported.out);
  ASSERT_EQ(events.size(), 1u) << exported.out;
  EXPECT_EQ(events[0]["job"]["name"], "Jobs/analysed.job.def");
  // An analysed object that uses nothing is a job without inputs.
  EXPECT_EQ(events[0]["inputs"].size(), 1u);
}

TEST(OpenLineageExport, AnEmptyStoreExportsNothing) {
  TempDir dir;
  const std::string vault = dir.join("v");
  qztool::initVault(vault);
  const ToolResult exported = runOn(vault, {"lineage", "export", "--format", "openlineage", "--output", "-"});
  EXPECT_EQ(exported.status, 0) << exported.describe();
  EXPECT_EQ(exported.out, "");
  EXPECT_EQ(exported.err, "");
}

TEST(OpenLineageExport, WritesAFileAndRefusesTheVaultsOwnFiles) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  TempDir dir;
  const std::string vault = dir.join("demo");
  makeDemo(dir, vault);
  const std::string file = dir.join("lineage.jsonl");
  const ToolResult written =
      runOn(vault, {"--set", "SALES_DSN=s", "--set", "FEED_DIR=/f", "--set", "CRM_DB=c", "lineage", "export",
                    "--format", "openlineage", "--output", file});
  ASSERT_EQ(written.status, 0) << written.describe();
  EXPECT_EQ(written.out, "Wrote " + file + " (12 events)\n");
  const ToolResult onStdout = runOn(vault, {"--set", "SALES_DSN=s", "--set", "FEED_DIR=/f", "--set", "CRM_DB=c",
                                            "lineage", "export", "--format", "openlineage"});
  EXPECT_EQ(qztest::readFile(file), onStdout.out);

  const std::map<std::string, std::string> before = qztool::snapshot(vault);
  expectOneLineError(runOn(vault, {"lineage", "export", "--format", "openlineage", "--output", vault + "/.v_imd"}),
                     2, "names one of the vault's own files");
  EXPECT_EQ(qztool::snapshot(vault), before);
}

TEST(OpenLineageExport, UsageErrors) {
  TempDir dir;
  const std::string vault = dir.join("v");
  qztool::initVault(vault);
  expectOneLineError(runOn(vault, {"lineage", "export"}), 2, "--format");
  expectOneLineError(runOn(vault, {"lineage", "export", "--format", "dot"}), 2, "--format");
  expectOneLineError(runOn(vault, {"lineage", "export", "--format", "openlineage", "--namespace", " "}), 2,
                     "--namespace is blank");
}

}  // namespace
