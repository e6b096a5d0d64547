// The edges of the lineage graph: recording dependents (with the hash-set
// comparison, one transaction, deletes before inserts), removing the edges
// into a resource, and the one-step queries in both directions, by type, of
// every resource and of the resource types.
#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "impact_fixture.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"

namespace {

using qztest::ConfigKey;
using qztest::identitiesOf;
using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::RawStore;
using qztest::ResourceListPtr;
using qztest::ResourcePtr;
using qztest::str;
using Strings = std::vector<std::string>;

const char kBusyNotice[] =
    "Detected SQLite aquisition timeout, waiting 5 seconds and trying again.";

// The database file's change counter (header bytes 24 to 27): SQLite adds one
// for every transaction that wrote to the file.
uint32_t changeCounter(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char header[28] = {};
  file.read(header, sizeof header);
  uint32_t counter = 0;
  std::memcpy(&counter, header + 24, sizeof counter);
  return ntohl(counter);
}

// ---------------------------------------------------------------------------
// addDependentResources

TEST_F(ImpactTest, RecordingNewDependentsReplacesTheOldSetInOneTransaction) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ResourcePtr c = make("c", "File", "/v/c");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get(), b.get()}).get()));
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x", "/v/b>/v/x"}));

  const uint32_t before = changeCounter(storePath());
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({b.get(), c.get()}).get()))
      << str(analysis_->getErrorMessage());
  EXPECT_EQ(changeCounter(storePath()), before + 1);  // one transaction
  // A's edge went, B's stayed where it was, C's was added.
  EXPECT_EQ(edges(), (Strings{"/v/b>/v/x", "/v/c>/v/x"}));
  RawStore raw(storePath());
  EXPECT_EQ(raw.rows("SELECT dep_type IS NULL FROM v_impadeps"), (Strings{"1", "1"}));
}

TEST_F(ImpactTest, RecordingTheSameDependentsAgainOpensNoTransaction) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get(), b.get()}).get()));
  // Another writer holds the store: a transaction could not even start.
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  qztest::FaultPlatform platform;
  platform.setSleepEnabled(false);
  LogCapture log;
  EXPECT_TRUE(analysis_->addDependentResources(x.get(), listOf({b.get(), a.get()}).get()))
      << str(analysis_->getErrorMessage());
  EXPECT_EQ(log.count(kBusyNotice), 0) << log.dump();
  EXPECT_EQ(platform.callCount(qztest::NpOp::kProcSleep), 0);
  ASSERT_TRUE(holder.exec("ROLLBACK TRANSACTION"));
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x", "/v/b>/v/x"}));
}

TEST_F(ImpactTest, ADependentListedTwiceIsRecordedTwiceAndQueriedOnce) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get(), a.get()}).get()));
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x", "/v/a>/v/x"}));
  ResourceListPtr dependents(analysis_->getDependentResources(x.get(), false));
  EXPECT_EQ(identitiesOf(dependents.get()), (Strings{"/v/a"}));
  // Both duplicate edges go when A is no longer listed.
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({b.get()}).get()));
  EXPECT_EQ(edges(), (Strings{"/v/b>/v/x"}));
}

TEST_F(ImpactTest, DeletesComeBeforeInsertsEachInListOrder) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ResourcePtr c = make("c", "File", "/v/c");
  ResourcePtr d = make("d", "File", "/v/d");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get(), b.get()}).get()));
  // Record the statements as SQLite runs them.
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("CREATE TABLE trace (what TEXT)"));
  ASSERT_TRUE(raw.exec(
      "CREATE TRIGGER trace_delete AFTER DELETE ON v_impadeps BEGIN "
      "INSERT INTO trace VALUES ('delete ' || old.res_id); END"));
  ASSERT_TRUE(raw.exec(
      "CREATE TRIGGER trace_insert AFTER INSERT ON v_impadeps BEGIN "
      "INSERT INTO trace VALUES ('insert ' || new.res_id); END"));
  ASSERT_TRUE(
      analysis_->addDependentResources(x.get(), listOf({d.get(), b.get(), c.get()}).get()));
  EXPECT_EQ(raw.rows("SELECT what FROM trace ORDER BY rowid"),
            (Strings{"delete " + str(a->getId()), "insert " + str(d->getId()),
                     "insert " + str(c->getId())}));
}

TEST_F(ImpactTest, AFailedInsertRollsBackTheWholeUpdate) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get()}).get()));
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("CREATE TRIGGER refuse BEFORE INSERT ON v_impadeps "
                       "BEGIN SELECT RAISE(ABORT, 'edge refused'); END"));
  LogCapture log;
  EXPECT_FALSE(analysis_->addDependentResources(x.get(), listOf({b.get()}).get()));
  EXPECT_EQ(str(analysis_->getErrorMessage()), "edge refused");
  EXPECT_TRUE(log.contains("edge refused", QZLOG_ERROR, "QZ.Repos.Vault.Lineage")) << log.dump();
  // The delete of A's edge, made before the failed insert, was rolled back.
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x"}));
}

TEST_F(ImpactTest, NullUsedResourceIsIgnoredAndNullListRefused) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  EXPECT_TRUE(analysis_->addDependentResources(nullptr, listOf({a.get()}).get()));
  EXPECT_EQ(count("v_impadeps"), 0);
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get()}).get()));
  LogCapture log;
  EXPECT_FALSE(analysis_->addDependentResources(x.get(), nullptr));
  EXPECT_EQ(str(analysis_->getErrorMessage()), "No list of dependent resources was given");
  EXPECT_TRUE(log.contains("No list of dependent resources was given", QZLOG_ERROR));
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x"}));  // the recorded set is untouched
}

TEST_F(ImpactTest, TheDependentListIsReadFromWhereItStands) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ResourceListPtr list = listOf({a.get(), b.get()});
  ASSERT_TRUE(list->next());  // A is already behind the position
  ASSERT_TRUE(analysis_->addDependentResourcesInternal(x.get(), list.get(), true));
  EXPECT_EQ(edges(), (Strings{"/v/b>/v/x"}));
}

TEST_F(ImpactTest, InternalAddWithoutRemoveKeepsEdgesNotListed) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get()}).get()));
  ASSERT_TRUE(analysis_->addDependentResourcesInternal(x.get(), listOf({b.get()}).get(), false));
  EXPECT_EQ(edges(), (Strings{"/v/a>/v/x", "/v/b>/v/x"}));
}

TEST_F(ImpactTest, RecordingATableLinksItsStoredDatabase) {
  ResourcePtr job = make("job", "Job", "/v/load.job.def");
  ResourcePtr database = make("", "Database", "db:postgresql/sales");
  ResourcePtr table = make("orders", "Table", "db:postgresql/sales/crm/public/orders");
  ResourcePtr lonely = make("t", "Table", "db:oracle/hr///staff");
  ASSERT_TRUE(
      analysis_->addDependentResources(job.get(), listOf({table.get(), lonely.get()}).get()));
  // The database is recorded as a dependent of its table; a database that is
  // not stored is not created.
  EXPECT_EQ(edges(), (Strings{"db:postgresql/sales/crm/public/orders>/v/load.job.def",
                              "db:oracle/hr///staff>/v/load.job.def",
                              "db:postgresql/sales>db:postgresql/sales/crm/public/orders"}));
  EXPECT_EQ(analysis_->getResource(QzbString("Database"), QzbString("db:oracle/hr")), nullptr);
  // Both tables are now marked analysed.
  ResourcePtr tableAfter(analysis_->getResource(QzbString("Table"), table->getResourceIdentity()));
  ResourcePtr lonelyAfter(analysis_->getResource(QzbString("Table"), lonely->getResourceIdentity()));
  ASSERT_NE(tableAfter, nullptr);
  ASSERT_NE(lonelyAfter, nullptr);
  EXPECT_NE(tableAfter->getAnalysisDate().asDouble(), 0.0);
  EXPECT_NE(lonelyAfter->getAnalysisDate().asDouble(), 0.0);
}

// ---------------------------------------------------------------------------
// removeDependentResources

TEST_F(ImpactTest, RemovingDependentsClearsEdgesAndTheAnalysisDate) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get()}).get()));
  ASSERT_TRUE(analysis_->addDependentResources(a.get(), listOf({b.get()}).get()));
  ASSERT_TRUE(analysis_->setAnalysisDate(x.get(), QzbDate(90000.0)));

  EXPECT_TRUE(analysis_->removeDependentResources(x.get()));
  ResourcePtr reread(analysis_->getResource(QzbString("File"), QzbString("/v/x")));
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(reread->getAnalysisDate().asDouble(), 0.0);
  EXPECT_EQ(edges(), (Strings{"/v/b>/v/a"}));  // only the edges into X went
  EXPECT_EQ(count("v_imparcs"), 3);            // the resources stay
  ResourceListPtr dependents(analysis_->getDependentResources(reread.get(), false));
  EXPECT_TRUE(identitiesOf(dependents.get()).empty());
}

TEST_F(ImpactTest, AfterRemovingDependentsOnlyMacroResolutionAddsAgain) {
  ConfigKey dir("FEED_DIR", "/srv/feeds");
  ResourcePtr x = make("x", "DataFile", "%%FEED_DIR%%/in.csv");
  ResourcePtr a = make("a", "File", "/v/a");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({a.get()}).get()));
  ASSERT_TRUE(analysis_->removeDependentResources(x.get()));
  ResourceListPtr dependents(analysis_->getDependentResources(x.get(), false));
  EXPECT_EQ(identitiesOf(dependents.get()), (Strings{"/srv/feeds/in.csv"}));
}

TEST_F(ImpactTest, RemovingDependentsOfNullIsRefused) {
  LogCapture log;
  EXPECT_FALSE(analysis_->removeDependentResources(nullptr));
  EXPECT_EQ(str(analysis_->getErrorMessage()), "No resource was given");
  EXPECT_TRUE(log.contains("No resource was given", QZLOG_ERROR)) << log.dump();
}

// ---------------------------------------------------------------------------
// Queries

TEST_F(ImpactTest, CycleIsStoredAndEachQueryWalksOneStep) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr y = make("y", "File", "/v/y");
  ResourcePtr z = make("z", "File", "/v/z");
  // X uses Y, Y uses X, and Y uses Z.
  ASSERT_TRUE(analysis_->addDependentResources(y.get(), listOf({x.get()}).get()));
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({y.get()}).get()));
  ASSERT_TRUE(analysis_->addDependentResources(z.get(), listOf({y.get()}).get()));
  ResourceListPtr usedByX(analysis_->getUsedByResources(x.get(), true));
  EXPECT_EQ(identitiesOf(usedByX.get()), (Strings{"/v/y"}));
  ResourceListPtr usedByY(analysis_->getUsedByResources(y.get(), true));
  EXPECT_EQ(identitiesOf(usedByY.get()), (Strings{"/v/x", "/v/z"}));
  ResourceListPtr dependentsOfX(analysis_->getDependentResources(x.get(), true));
  EXPECT_EQ(identitiesOf(dependentsOfX.get()), (Strings{"/v/y"}));
  ResourceListPtr dependentsOfZ(analysis_->getDependentResources(z.get(), true));
  EXPECT_EQ(identitiesOf(dependentsOfZ.get()), (Strings{"/v/y"}));  // not X behind Y
}

TEST_F(ImpactTest, RecursiveFlagMakesNoDifference) {
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ResourcePtr c = make("c", "File", "/v/c");
  ASSERT_TRUE(analysis_->addDependentResources(b.get(), listOf({a.get()}).get()));
  ASSERT_TRUE(analysis_->addDependentResources(c.get(), listOf({b.get()}).get()));
  ResourceListPtr withFlag(analysis_->getUsedByResources(a.get(), true));
  ResourceListPtr withoutFlag(analysis_->getUsedByResources(a.get(), false));
  EXPECT_EQ(identitiesOf(withFlag.get()), (Strings{"/v/b"}));
  EXPECT_EQ(identitiesOf(withFlag.get()), identitiesOf(withoutFlag.get()));
  ResourceListPtr dependentsWith(analysis_->getDependentResources(c.get(), true));
  ResourceListPtr dependentsWithout(analysis_->getDependentResources(c.get(), false));
  EXPECT_EQ(identitiesOf(dependentsWith.get()), (Strings{"/v/b"}));
  EXPECT_EQ(identitiesOf(dependentsWith.get()), identitiesOf(dependentsWithout.get()));
}

TEST_F(ImpactTest, DependentsByTypeFilterOnTheirType) {
  ResourcePtr x = make("x", "File", "/v/x");
  ResourcePtr job = make("j", "Job", "/v/j.job.def");
  ResourcePtr report = make("r", "Report", "/v/r.rpt.def");
  ASSERT_TRUE(analysis_->addDependentResources(x.get(), listOf({job.get(), report.get()}).get()));
  ResourceListPtr jobs(analysis_->getDependentResourcesByType(x.get(), QzbString("Job")));
  EXPECT_EQ(identitiesOf(jobs.get()), (Strings{"/v/j.job.def"}));
  ResourceListPtr none(analysis_->getDependentResourcesByType(x.get(), QzbString("Table")));
  EXPECT_TRUE(identitiesOf(none.get()).empty());
}

TEST_F(ImpactTest, QueriesOfNullGiveEmptyLists) {
  ResourceListPtr used(analysis_->getUsedByResources(nullptr, false));
  ResourceListPtr dependents(analysis_->getDependentResources(nullptr, false));
  ResourceListPtr byType(analysis_->getDependentResourcesByType(nullptr, QzbString("File")));
  ASSERT_NE(used, nullptr);
  ASSERT_NE(dependents, nullptr);
  ASSERT_NE(byType, nullptr);
  EXPECT_FALSE(used->next());
  EXPECT_FALSE(dependents->next());
  EXPECT_FALSE(byType->next());
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
}

TEST_F(ImpactTest, ResourcesByTypeWithEmptyTypeIsEmptyAndSilent) {
  make("a", "File", "/v/a");
  ResourcePtr x = make("x", "File", "/v/x");
  // Leave a message behind, then check that the empty query keeps it.
  EXPECT_FALSE(analysis_->setAnalysisDate(nullptr, QzbDate(1.0)));
  ResourceListPtr none(analysis_->getResourcesByType(QzbString("")));
  ResourceListPtr nullType(analysis_->getResourcesByType(QzbString()));
  EXPECT_TRUE(identitiesOf(none.get()).empty());
  EXPECT_TRUE(identitiesOf(nullType.get()).empty());
  EXPECT_EQ(str(analysis_->getErrorMessage()), "No resource was given");
  ResourceListPtr files(analysis_->getResourcesByType(QzbString("File")));
  EXPECT_EQ(identitiesOf(files.get()), (Strings{"/v/a", "/v/x"}));
}

TEST_F(ImpactTest, AllUniqueUsedResourcesListsEveryResourceWithOrWithoutEdges) {
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  make("alone", "Table", "db:x/y///z");
  ASSERT_TRUE(analysis_->addDependentResources(a.get(), listOf({b.get()}).get()));
  ResourceListPtr all(analysis_->getAllUniqueUsedResources());
  EXPECT_EQ(identitiesOf(all.get()), (Strings{"/v/a", "/v/b", "db:x/y///z"}));
}

TEST_F(ImpactTest, ResourceTypesCountButReadAsNull) {
  make("a", "File", "/v/a");
  make("b", "File", "/v/b");
  make("t", "Table", "db:x/y///t");
  qztest::StringListPtr types(analysis_->getResourceTypes());
  ASSERT_NE(types, nullptr);
  EXPECT_EQ(types->length(), 2);
  EXPECT_EQ(types->getNumCols(), 0);
  int rows = 0;
  while (types->next()) {
    ++rows;
    EXPECT_TRUE(types->getValue().isNull());
    EXPECT_TRUE(types->getValue(0).isNull());
  }
  EXPECT_EQ(rows, 2);
}

TEST_F(ImpactTest, IdentityWithUnbalancedMarksIsAPlainResource) {
  ResourcePtr x = make("x", "File", "/v/50%%done");
  ASSERT_NE(x, nullptr);
  EXPECT_FALSE(x->IsResourceIdentityMacroValue());
  ResourceListPtr dependents(analysis_->getDependentResources(x.get(), false));
  EXPECT_TRUE(identitiesOf(dependents.get()).empty());
  EXPECT_EQ(count("v_imparcs"), 1);
}

}  // namespace
