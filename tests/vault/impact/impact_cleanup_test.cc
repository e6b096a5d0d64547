// Removing resources (one if it uses nothing, every unused one, all), renaming
// them, stamping analysis dates, and the operations that do nothing.
//
// Read-only stores: tests run as root, which may write any file, so those
// checks run in a forked child that drops to user nobody (runAsNobody) after
// the file was made 0444 and the directory reachable.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "impact_fixture.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/privileges.h"

namespace {

using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::RawStore;
using qztest::ResourcePtr;
using qztest::str;
using Strings = std::vector<std::string>;

const char kStillADependency[] = "The resource could not be deleted.  It is still a dependency.";
const char kLineage[] = "QZ.Repos.Vault.Lineage";

Strings storedIdentities(RawStore* raw) {
  return raw->rows("SELECT res_idty FROM v_imparcs ORDER BY id");
}

// ---------------------------------------------------------------------------
// removeResourceIfNotUsed

TEST_F(ImpactTest, ResourceThatUsesNothingIsRemovedAndItsIncomingEdgeStays) {
  ResourcePtr user = make("user", "File", "/v/user");
  ResourcePtr used = make("used", "File", "/v/used");
  make("alone", "File", "/v/alone");
  ASSERT_TRUE(analysis_->addDependentResources(used.get(), listOf({user.get()}).get()));

  EXPECT_TRUE(analysis_->removeResourceIfNotUsed(used.get()))
      << str(analysis_->getErrorMessage());
  RawStore raw(storePath());
  // "used" went, its edge stayed and now dangles; the clean-up that followed
  // removed "alone" but kept "user", whose dangling edge still counts.
  EXPECT_EQ(storedIdentities(&raw), (Strings{"/v/user"}));
  EXPECT_EQ(raw.rows("SELECT res_id, res_used FROM v_impadeps"),
            (Strings{str(user->getId()) + "|" + str(used->getId())}));
  EXPECT_TRUE(analysis_->removeUnusedResources());
  EXPECT_EQ(storedIdentities(&raw), (Strings{"/v/user"}));
}

TEST_F(ImpactTest, ResourceThatUsesAnotherIsNotRemoved) {
  ResourcePtr user = make("user", "File", "/v/user");
  ResourcePtr used = make("used", "File", "/v/used");
  make("alone", "File", "/v/alone");
  ASSERT_TRUE(analysis_->addDependentResources(used.get(), listOf({user.get()}).get()));
  LogCapture log;
  EXPECT_FALSE(analysis_->removeResourceIfNotUsed(user.get()));
  EXPECT_EQ(str(analysis_->getErrorMessage()), kStillADependency);
  EXPECT_TRUE(log.contains(kStillADependency, QZLOG_ERROR, kLineage)) << log.dump();
  EXPECT_EQ(count("v_imparcs"), 3);  // nothing deleted, not even "alone"
  EXPECT_EQ(count("v_impadeps"), 1);
}

TEST_F(ImpactTest, RemovingAResourceNotInTheStoreSucceeds) {
  QzvResourceImpl* unknown = new QzvResourceImpl();
  unknown->setResourceType(QzbString("File"));
  unknown->setResourceIdentity(QzbString("/nowhere"));
  make("alone", "File", "/v/alone");
  EXPECT_TRUE(analysis_->removeResourceIfNotUsed(unknown));
  EXPECT_TRUE(analysis_->removeResourceIfNotUsed(nullptr));
  EXPECT_EQ(count("v_imparcs"), 1);  // no clean-up ran
  unknown->release();
}

TEST_F(ImpactTest, RemovingWhenTheStoreIsNotADatabaseStillSucceeds) {
  ResourcePtr r = make("r", "File", "/v/r");
  // Open failures do not make the operation fail. The look-up fails first and
  // finds nothing, which already counts as success.
  qztest::writeFile(storePath(), std::string(1024, 'z'));
  EXPECT_TRUE(analysis_->removeResourceIfNotUsed(r.get()));
  EXPECT_EQ(str(analysis_->getErrorMessage()),
            "Error opening " + storePath() + ": file is not a database");
}

// ---------------------------------------------------------------------------
// removeUnusedResources and removeResources

TEST_F(ImpactTest, RemoveUnusedKeepsEveryResourceWithAnEdge) {
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  make("c", "File", "/v/c");
  make("d", "File", "/v/d");
  ASSERT_TRUE(analysis_->addDependentResources(a.get(), listOf({b.get()}).get()));
  EXPECT_TRUE(analysis_->removeUnusedResources());
  RawStore raw(storePath());
  EXPECT_EQ(storedIdentities(&raw), (Strings{"/v/a", "/v/b"}));
}

TEST_F(ImpactTest, RemoveUnusedOnAStoreWithoutUnusedResourcesOpensNoTransaction) {
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(a.get(), listOf({b.get()}).get()));
  // With another writer holding the store, a transaction could not start.
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  qztest::FaultPlatform platform;
  platform.setSleepEnabled(false);
  LogCapture log;
  EXPECT_TRUE(analysis_->removeUnusedResources()) << str(analysis_->getErrorMessage());
  EXPECT_EQ(platform.callCount(qztest::NpOp::kProcSleep), 0);
  EXPECT_TRUE(log.events().empty()) << log.dump();
  ASSERT_TRUE(holder.exec("ROLLBACK TRANSACTION"));
}

TEST_F(ImpactTest, AFailedDeleteRollsBackEveryDelete) {
  make("a", "File", "/v/a");
  make("b", "File", "/v/b");
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("CREATE TRIGGER keep_b BEFORE DELETE ON v_imparcs WHEN old.name = 'b' "
                       "BEGIN SELECT RAISE(ABORT, 'b must stay'); END"));
  LogCapture log;
  EXPECT_FALSE(analysis_->removeUnusedResources());
  EXPECT_EQ(str(analysis_->getErrorMessage()), "b must stay");
  EXPECT_TRUE(log.contains("b must stay", QZLOG_ERROR, kLineage)) << log.dump();
  EXPECT_EQ(storedIdentities(&raw), (Strings{"/v/a", "/v/b"}));
}

TEST_F(ImpactTest, RemoveResourcesEmptiesResourcesAndEdgesButNotProperties) {
  ResourcePtr a = make("a", "File", "/v/a");
  ResourcePtr b = make("b", "File", "/v/b");
  ASSERT_TRUE(analysis_->addDependentResources(a.get(), listOf({b.get()}).get()));
  {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("INSERT INTO v_impaprop VALUES (1, 'k', 'v')"));
  }
  EXPECT_TRUE(analysis_->removeResources());
  EXPECT_EQ(count("v_imparcs"), 0);
  EXPECT_EQ(count("v_impadeps"), 0);
  EXPECT_EQ(count("v_impaprop"), 1);
  // Ids are SQLite's: with the table empty, a new resource may take id 1 again.
  ResourcePtr again = make("c", "File", "/v/c");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(str(again->getId()), "1");
}

// ---------------------------------------------------------------------------
// renameResource

TEST_F(ImpactTest, RenameChangesOnlyTheName) {
  ResourcePtr r = make("old", "File", "/v/old.csv");
  EXPECT_TRUE(analysis_->renameResource(QzbString("File"), QzbString("/v/old.csv"),
                                        QzbString("new.csv")));
  RawStore raw(storePath());
  EXPECT_EQ(raw.rows("SELECT id, name, res_idty, res_type FROM v_imparcs"),
            (Strings{str(r->getId()) + "|new.csv|/v/old.csv|File"}));
}

TEST_F(ImpactTest, RenameOfAnUnknownResourceFails) {
  make("old", "File", "/v/old.csv");
  EXPECT_FALSE(analysis_->renameResource(QzbString("File"), QzbString("/v/other.csv"),
                                         QzbString("x")));
  EXPECT_FALSE(analysis_->renameResource(QzbString("Table"), QzbString("/v/old.csv"),
                                         QzbString("x")));
  RawStore raw(storePath());
  EXPECT_EQ(raw.rows("SELECT name FROM v_imparcs"), (Strings{"old"}));
}

TEST_F(ImpactTest, FailedRenameGivesItsPrefixAndRollsBack) {
  make("old", "File", "/v/old.csv");
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("CREATE TRIGGER no_rename BEFORE UPDATE OF name ON v_imparcs "
                       "BEGIN SELECT RAISE(ABORT, 'names are fixed'); END"));
  LogCapture log;
  EXPECT_FALSE(analysis_->renameResource(QzbString("File"), QzbString("/v/old.csv"),
                                         QzbString("new")));
  const std::string expected = "Update of impact analysis name failed: names are fixed";
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  EXPECT_TRUE(log.contains(expected, QZLOG_ERROR, kLineage)) << log.dump();
  EXPECT_EQ(raw.rows("SELECT name FROM v_imparcs"), (Strings{"old"}));
}

// ---------------------------------------------------------------------------
// setAnalysisDate

TEST_F(ImpactTest, AnalysisDateIsStoredAndReadBackButTheObjectKeepsItsOwn) {
  ResourcePtr r = make("r", "File", "/v/r");
  QzbDate date;
  ASSERT_TRUE(date.assign(2023, 6, 1, 12, 30, 15, 250));
  EXPECT_TRUE(analysis_->setAnalysisDate(r.get(), date));
  EXPECT_EQ(r->getAnalysisDate().asDouble(), 0.0);
  ResourcePtr reread(analysis_->getResource(QzbString("File"), QzbString("/v/r")));
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(reread->getAnalysisDate(), date);
  EXPECT_TRUE(analysis_->setAnalysisDate(r.get(), QzbDate(0.0)));
  ResourcePtr cleared(analysis_->getResource(QzbString("File"), QzbString("/v/r")));
  EXPECT_EQ(cleared->getAnalysisDate().asDouble(), 0.0);
}

TEST_F(ImpactTest, FailedDateUpdateGivesItsPrefix) {
  ResourcePtr r = make("r", "File", "/v/r");
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("CREATE TRIGGER no_date BEFORE UPDATE OF mod_date ON v_imparcs "
                       "BEGIN SELECT RAISE(ABORT, 'dates are fixed'); END"));
  LogCapture log;
  EXPECT_FALSE(analysis_->setAnalysisDate(r.get(), QzbDate(100.0)));
  const std::string expected =
      "Update of impact analysis modification date failed: dates are fixed";
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  EXPECT_TRUE(log.contains(expected, QZLOG_ERROR, kLineage)) << log.dump();
}

TEST_F(ImpactTest, AnalysisDateOfNullIsRefused) {
  EXPECT_FALSE(analysis_->setAnalysisDate(nullptr, QzbDate(1.0)));
  EXPECT_EQ(str(analysis_->getErrorMessage()), "No resource was given");
}

// ---------------------------------------------------------------------------
// Read-only store and the operations that do nothing

TEST_F(ImpactTest, ReadOnlyStoreRefusesDatesAndRenamesWithTheirOwnText) {
  ResourcePtr r = make("r", "File", "/v/r");
  ASSERT_NE(r, nullptr);
  ASSERT_EQ(chmod(storePath().c_str(), 0444), 0);
  qztest::makeReachable(dir_.path());
  int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    const std::string impactReadOnly = "Impact Analysis Metadata file is read only";
    const std::string dataReadOnly = "Data file is read only";
    if (analysis_->setAnalysisDate(r.get(), QzbDate(10.0))) return 1;
    if (str(analysis_->getErrorMessage()) != impactReadOnly) return 2;
    if (!log.contains(impactReadOnly, QZLOG_ERROR, kLineage)) return 3;
    if (analysis_->removeResources()) return 4;
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 5;
    if (analysis_->renameResource(QzbString("File"), QzbString("/v/r"), QzbString("n"))) {
      return 6;
    }
    if (str(analysis_->getErrorMessage()) != impactReadOnly) return 7;
    log.clear();
    // removeUnusedResources refuses without a log line.
    if (analysis_->removeUnusedResources()) return 8;
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 9;
    if (log.count(dataReadOnly) != 0) return 10;
    // removeResourceIfNotUsed cannot even find the resource: nothing to do.
    if (!analysis_->removeResourceIfNotUsed(r.get())) return 11;
    // removeDependentResources and addDependentResources are refused too.
    if (analysis_->removeDependentResources(r.get())) return 12;
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 13;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(count("v_imparcs"), 1);
}

TEST_F(ImpactTest, OperationsThatDoNothing) {
  ResourcePtr r = make("r", "File", "/v/r");
  QzbString first("a", true);
  QzbString second("b", true);
  EXPECT_FALSE(analysis_->updateImpactAnalysis());
  EXPECT_FALSE(analysis_->deleteResource(r.get()));
  EXPECT_FALSE(analysis_->deleteResource(nullptr));
  EXPECT_FALSE(analysis_->getLineageAsString(&first, &second, true));
  EXPECT_FALSE(analysis_->getLineageAsString(nullptr, nullptr, false));
  EXPECT_EQ(analysis_->getDefaultResourceFactory(), nullptr);
  EXPECT_EQ(str(first), "a");
  EXPECT_EQ(str(second), "b");
  EXPECT_EQ(count("v_imparcs"), 1);
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
}

}  // namespace
