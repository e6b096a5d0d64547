// The lineage store's query indexes: every store gets them when it is first
// opened for writing, new or old; its tables stay exactly as the schema makes
// them; a store that cannot be written is read without them; and the queries
// that need them use them (their query plans are checked, not their time).
#include <sqlite3.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "impact_fixture.h"
#include "impact_store.h"
#include "lineage_impl.h"
#include "qzvault/lineage.h"
#include "support/fault_platform.h"

namespace qztest {
namespace {

// The store's schema as an older release made it: the tables and indexes of
// the schema, nothing more.
const char kOldSchema[] =
    "CREATE TABLE v_ver(version INTEGER);"
    "CREATE TABLE v_attr (fname text, attr text, seq integer, v0, v1, v2, v3, v4, v5, v6, v7, v8, "
    "v9);"
    "CREATE INDEX v_attr_fname ON v_attr(fname);"
    "CREATE INDEX v_attr_seq ON v_attr(seq);"
    "CREATE INDEX v_attr_attr ON v_attr(attr);"
    "CREATE TABLE v_imparcs (id INTEGER PRIMARY KEY ON CONFLICT REPLACE, name TEXT, res_idty TEXT, "
    "res_type TEXT, mod_date TEXT);"
    "CREATE INDEX v_imparcs_idnty ON v_imparcs(res_idty);"
    "CREATE INDEX v_imparcs_name ON v_imparcs(name);"
    "CREATE INDEX v_imparcs_type ON v_imparcs(res_type);"
    "CREATE TABLE v_impadeps (res_id INTEGER, res_used INTEGER, dep_type INTEGER);"
    "CREATE INDEX v_impadeps_res_id ON v_impadeps(res_id);"
    "CREATE INDEX v_impadeps_used ON v_impadeps(res_used);"
    "CREATE TABLE v_impaprop (res_id INTEGER, res_key TEXT, res_val TEXT);"
    "CREATE INDEX v_impaprop_res_id ON v_impaprop(res_id);"
    "CREATE INDEX v_impaprop_key ON v_impaprop(res_key);"
    "INSERT INTO v_ver (version) VALUES (1);";

const char kTableDefinitions[] = "SELECT name, sql FROM sqlite_master WHERE type = 'table' ORDER BY name";
const char kQueryIndexes[] =
    "SELECT name FROM sqlite_master WHERE type = 'index' AND name IN ('v_imparcs_type_idnty', "
    "'v_impadeps_used_res_id', 'v_impadeps_res_id_used') ORDER BY name";
const std::vector<std::string> kAllQueryIndexes = {"v_impadeps_res_id_used",
                                                   "v_impadeps_used_res_id", "v_imparcs_type_idnty"};

// The details of SQLite's plan for `sql`, one line per step.
std::vector<std::string> planOf(RawStore& store, const std::string& sql) {
  std::vector<std::string> steps;
  for (const std::string& row : store.rows("EXPLAIN QUERY PLAN " + sql)) {
    steps.push_back(row.substr(row.rfind('|') + 1));
  }
  return steps;
}

bool planUses(const std::vector<std::string>& plan, const std::string& text) {
  for (const std::string& step : plan) {
    if (step.find(text) != std::string::npos) return true;
  }
  return false;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

class ImpactIndexesTest : public ImpactTest {
 protected:
  // An old store with two resources and an edge, written by SQLite directly.
  void makeOldStore() {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(storePath().c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, kOldSchema, nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db,
                           "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES "
                           "(1, 'job', '/v/job.job.def', 'Job'), (2, 'data', '/v/data.csv', "
                           "'DataFile');"
                           "INSERT INTO v_impadeps (res_id, res_used) VALUES (2, 1);",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
  }
  std::vector<std::string> oldTableDefinitions() {
    TempDir other;
    const std::string path = other.join("old.db");
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, kOldSchema, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    RawStore old(path);
    return old.rows(kTableDefinitions);
  }
};

TEST_F(ImpactIndexesTest, NewStoreGetsTheQueryIndexesAndKeepsItsTables) {
  createStore();
  RawStore store(storePath());
  EXPECT_EQ(store.rows(kQueryIndexes), kAllQueryIndexes);
  EXPECT_EQ(store.rows(kTableDefinitions), oldTableDefinitions());
}

TEST_F(ImpactIndexesTest, OldStoreGainsTheIndexesWhenFirstOpenedForWriting) {
  makeOldStore();
  {
    RawStore store(storePath());
    ASSERT_TRUE(store.rows(kQueryIndexes).empty());
  }
  ResourcePtr job(analysis_->getResource(QzbString("Job"), QzbString("/v/job.job.def")));
  ASSERT_NE(job, nullptr) << str(analysis_->getErrorMessage());
  EXPECT_EQ(str(job->getName()), "job");

  RawStore store(storePath());
  EXPECT_EQ(store.rows(kQueryIndexes), kAllQueryIndexes);
  EXPECT_EQ(store.rows(kTableDefinitions), oldTableDefinitions()) << "tables are never altered";
  EXPECT_EQ(store.rows("SELECT id, name, res_idty, res_type FROM v_imparcs ORDER BY id"),
            (std::vector<std::string>{"1|job|/v/job.job.def|Job", "2|data|/v/data.csv|DataFile"}));
  EXPECT_EQ(store.rows("SELECT res_id, res_used FROM v_impadeps"), std::vector<std::string>{"2|1"});
  // The schema's own indexes are all still there.
  EXPECT_EQ(store.scalar("SELECT count(*) FROM sqlite_master WHERE type = 'index'"), 10 + 3);
}

// A store that cannot be written (its directory's write probe fails, as for a
// read-only directory; the fault platform stands in for one since tests run
// as root) is read as it is: no index is added and the answers are the same.
TEST_F(ImpactIndexesTest, StoreOpenedReadOnlyIsReadWithoutTheIndexes) {
  makeOldStore();
  {
    FaultPlatform faults;
    faults.failCall(NpOp::kFioOpen, 1, NP_ERR_ACCESS, FaultPlatform::Mode::kFromThenOn);
    QzvLineage* lineage = analysis_->getLineage();
    ASSERT_NE(lineage, nullptr);
    ResourcePtr job(new QzvResourceImpl());
    static_cast<QzvResourceImpl*>(job.get())->setId(QzbString("1"));
    QzvLineageList* users = lineage->getDependents(job.get(), QZV_LINEAGE_UNLIMITED);
    ASSERT_NE(users, nullptr) << str(lineage->getErrorMessage());
    ASSERT_EQ(users->length(), 1);
    ASSERT_TRUE(users->next());
    EXPECT_EQ(str(users->getResource()->getResourceIdentity()), "/v/data.csv");
    users->release();
    lineage->release();
    EXPECT_GT(faults.failuresInjected(NpOp::kFioOpen), 0) << "the store was opened read-only";
  }
  RawStore store(storePath());
  EXPECT_TRUE(store.rows(kQueryIndexes).empty());
}

// What the indexes are for: each query that needs one is planned with it.
TEST_F(ImpactIndexesTest, LookUpByTypeAndIdentityUsesTheTwoColumnIndex) {
  createStore();
  RawStore store(storePath());
  const std::vector<std::string> plan =
      planOf(store, "SELECT * FROM v_imparcs WHERE res_type='Job' AND res_idty='/v/x'");
  EXPECT_TRUE(planUses(plan, "USING INDEX v_imparcs_type_idnty (res_type=? AND res_idty=?)"))
      << joined(plan);
}

TEST_F(ImpactIndexesTest, OneStepQueriesReadTheEdgesFromCoveringIndexes) {
  createStore();
  RawStore store(storePath());
  const std::vector<std::string> dependents = planOf(
      store,
      "SELECT * FROM v_imparcs WHERE v_imparcs.id IN (SELECT  v_impadeps.res_id FROM v_impadeps "
      "WHERE v_impadeps.res_used = 1)");
  EXPECT_TRUE(planUses(dependents, "USING COVERING INDEX v_impadeps_used_res_id (res_used=?)"))
      << joined(dependents);
  const std::vector<std::string> used = planOf(
      store,
      "SELECT * FROM v_imparcs WHERE v_imparcs.id IN (SELECT v_impadeps.res_used FROM v_impadeps "
      "WHERE v_impadeps.res_id = 1)");
  EXPECT_TRUE(planUses(used, "USING COVERING INDEX v_impadeps_res_id_used (res_id=?)"))
      << joined(used);
}

}  // namespace
}  // namespace qztest
