// The vault check: a clean vault has no findings; each kind of damage is found
// without repair (and nothing is changed), then repaired, after which the
// check is clean again. A file that is not a database is reported and kept; a
// repair that fails part-way leaves every row of its transaction.
#include <sqlite3.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzvault/check.h"
#include "cache_refresh.h"
#include "metadata_db.h"
#include "vault_test_util.h"

namespace {

using qztest::Owned;
using qztest::own;
using qztest::query;
using qztest::Row;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

struct Finding {
  std::string kind;
  std::string path;
  std::string detail;
  bool repaired;
  std::string severity;
};

class VaultCheckTest : public ::testing::Test {
 protected:
  VaultCheckTest() : vault_(dir_.path()) {}

  std::vector<Finding> check(bool repair) {
    Owned<QzvVaultCheck> checker = own(vault_->getVaultCheck());
    EXPECT_NE(checker, nullptr);
    if (checker == nullptr) return {};
    QzvItemList* list = checker->check(repair);
    EXPECT_NE(list, nullptr) << checker->getErrorMessage().asCstr();
    if (list == nullptr) return {};
    EXPECT_EQ(list->getNumCols(), QZV_CHECK_COLUMNS);
    std::vector<Finding> findings;
    for (const Row& row : qztest::takeList(list)) {
      findings.push_back({row[QZV_CHECK_COL_KIND].value_or(""),
                          row[QZV_CHECK_COL_PATH].value_or(""),
                          row[QZV_CHECK_COL_DETAIL].value_or(""),
                          row[QZV_CHECK_COL_REPAIRED] == std::string("1"),
                          row[QZV_CHECK_COL_SEVERITY].value_or("")});
    }
    return findings;
  }

  // Makes a database of `directory` through the library, with its schema.
  std::string makeDb(const std::string& directory, const char* name) {
    QzbString error;
    SqliteConnection* db = qzviOpenDB(S(directory), name, &error, vault_->dbCache());
    EXPECT_NE(db, nullptr) << error.asCstr();
    qzviCloseDB(db, vault_->dbCache());
    return directory + "/" + name;
  }

  void refreshCache(const std::string& directory) {
    QzbString error;
    ASSERT_TRUE(qzviRefreshCachedAttributes(S(directory), nullptr, &error, vault_->dbCache(),
                                            nullptr))
        << error.asCstr();
  }

  // A vault as the library leaves it: files with fixed and cached rows in the
  // root and in a sub-folder, a version of an object, a lock that is held, and
  // a lineage store of three resources joined by edges.
  void buildCleanVault() {
    qztest::writeFile(dir_.join("plan.txt"), "plan");
    qztest::writeFile(dir_.join("notes.txt"), "notes");
    qztest::makeDirs(dir_.join("sub/.v_ver"));
    qztest::writeFile(dir_.join("sub/report.job"), "report");
    qztest::writeFile(dir_.join("sub/.v_ver/report.job.1"), "older report");
    qztest::writeFile(dir_.join("sub/.v_lck"), "");
    const std::string rootFixed = makeDb(dir_.path(), QZVI_FIXED_METADATA_FILE);
    qztest::execute(rootFixed,
                    "INSERT INTO v_object (fname, name) VALUES (NULL, 'Root');"
                    "INSERT INTO v_object (fname, name) VALUES ('plan.txt', 'Plan');"
                    "INSERT INTO v_object (fname, name) VALUES ('sub', 'Sub folder');"
                    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('plan.txt', 'owner', 0, 'me');"
                    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, '_UUID', 0, 'u-1');");
    const std::string subFixed = makeDb(dir_.join("sub"), QZVI_FIXED_METADATA_FILE);
    qztest::execute(subFixed, "INSERT INTO v_object (fname, name) VALUES ('report.job', 'Report')");
    refreshCache(dir_.path());
    refreshCache(dir_.join("sub"));
    const std::string store = makeDb(dir_.path(), QZVI_IMPACT_METADATA_FILE);
    qztest::execute(store,
                    "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES"
                    " (1, 'plan', '/plan.txt', 'File'), (2, 'report', '/sub/report.job', 'File'),"
                    " (3, 'notes', '/notes.txt', 'File');"
                    "INSERT INTO v_impadeps (res_id, res_used) VALUES (2, 1), (3, 2), (3, 3);"
                    "INSERT INTO v_impaprop (res_id, res_key, res_val) VALUES (1, 'k', 'v');");
  }

  static long count(const std::string& database, const std::string& sql) {
    const Rows rows = query(database, sql);
    if (rows.empty() || rows[0].empty() || !rows[0][0]) return -1;
    return std::stol(*rows[0][0]);
  }

  TempDir dir_;
  ScopedVault vault_;
};

// Overwrites one byte of the file at `offset`.
void pokeByte(const std::string& path, long offset, char value) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  ASSERT_TRUE(file.good()) << path;
  file.seekp(offset);
  file.put(value);
  ASSERT_TRUE(file.good()) << path;
}

// The page size of a database and the first page of one of its tables or
// indexes (counted from 1).
void pageOf(const std::string& database, const std::string& name, long* pageSize, long* page) {
  const Rows size = query(database, "PRAGMA page_size");
  const Rows root = query(database, "SELECT rootpage FROM sqlite_master WHERE name = '" + name + "'");
  ASSERT_EQ(size.size(), 1u);
  ASSERT_EQ(root.size(), 1u);
  *pageSize = std::stol(*size[0][0]);
  *page = std::stol(*root[0][0]);
}

TEST_F(VaultCheckTest, CleanVaultHasNoFindingsAndRepairChangesNothing) {
  buildCleanVault();
  const std::string store = dir_.join(".v_imd");
  EXPECT_TRUE(check(false).empty());
  EXPECT_TRUE(check(true).empty());
  EXPECT_EQ(count(dir_.join(".v_fmd"), "SELECT COUNT(*) FROM v_object"), 3);
  EXPECT_EQ(count(dir_.join(".v_cmd"), "SELECT COUNT(*) FROM v_file"), 2);
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_impadeps"), 3);
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_imparcs"), 3);
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_lck")));  // a fresh lock may be held
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_ver/report.job.1")));
}

TEST_F(VaultCheckTest, CheckNeverCreatesADatabase) {
  qztest::makeDirs(dir_.join("empty"));
  EXPECT_TRUE(check(true).empty());
  EXPECT_FALSE(qztest::pathExists(dir_.join(".v_fmd")));
  EXPECT_FALSE(qztest::pathExists(dir_.join(".v_imd")));
  EXPECT_FALSE(qztest::pathExists(dir_.join("empty/.v_cmd")));
}

TEST_F(VaultCheckTest, FileThatIsNotADatabaseIsReportedAndNeverDeleted) {
  buildCleanVault();
  const std::string text = "These are my notes, not a database at all.\n";
  qztest::writeFile(dir_.join("sub/.v_cmd"), text);
  for (bool repair : {false, true}) {
    const std::vector<Finding> findings = check(repair);
    ASSERT_EQ(findings.size(), 1u) << "repair " << repair;
    EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_NOT_A_DATABASE);
    EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
    EXPECT_EQ(findings[0].path, dir_.join("sub/.v_cmd"));
    EXPECT_EQ(findings[0].detail, "not an SQLite database; left as it is");
    EXPECT_FALSE(findings[0].repaired);
    EXPECT_EQ(qztest::readFile(dir_.join("sub/.v_cmd")), text);
  }
}

TEST_F(VaultCheckTest, DamagedIndexIsFoundAndRebuilt) {
  buildCleanVault();
  const std::string fixed = dir_.join("sub/.v_fmd");
  long pageSize = 0;
  long page = 0;
  pageOf(fixed, "v_object_fname", &pageSize, &page);
  // The last byte of the index's only page is the row id of its first entry:
  // the entry now points at a row that does not exist.
  pokeByte(fixed, page * pageSize - 1, 9);

  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_DAMAGED_DATABASE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_EQ(findings[0].path, fixed);
  EXPECT_EQ(findings[0].detail.rfind("integrity check failed: ", 0), 0u) << findings[0].detail;
  EXPECT_NE(findings[0].detail.find("v_object_fname"), std::string::npos) << findings[0].detail;
  EXPECT_FALSE(findings[0].repaired);

  findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_DAMAGED_DATABASE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_NE(findings[0].detail.find("; indexes rebuilt"), std::string::npos) << findings[0].detail;
  EXPECT_EQ(query(fixed, "PRAGMA integrity_check"), Rows{Row{std::string("ok")}});
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_object WHERE fname = 'report.job'"), 1);
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, DamagedTableIsReportedAndLeftAlone) {
  buildCleanVault();
  const std::string fixed = dir_.join("sub/.v_fmd");
  long pageSize = 0;
  long page = 0;
  pageOf(fixed, "v_object", &pageSize, &page);
  // The page type byte of the table's page: no b-tree page has type 0x55.
  pokeByte(fixed, (page - 1) * pageSize, 0x55);
  const std::vector<Finding> findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_DAMAGED_DATABASE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_EQ(findings[0].path, fixed);
  EXPECT_FALSE(findings[0].repaired);
  EXPECT_TRUE(qztest::pathExists(fixed));
}

TEST_F(VaultCheckTest, FixedRowsOfGoneNamesAreFoundAndDeleted) {
  buildCleanVault();
  const std::string fixed = dir_.join(".v_fmd");
  qztest::execute(fixed,
                  "INSERT INTO v_object (fname, name) VALUES ('gone.txt', 'Gone');"
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('gone.txt', 'owner', 0, 'x');"
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('gone.txt', 'tag', 0, 'y');"
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('old dir', 'tag', 0, 'z');");
  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_ORPHAN_METADATA);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_EQ(findings[0].path, dir_.join("gone.txt"));
  EXPECT_EQ(findings[0].detail, "3 fixed metadata row(s) of a name that is not in the folder");
  EXPECT_FALSE(findings[0].repaired);
  EXPECT_EQ(findings[1].path, dir_.join("old dir"));
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_attr WHERE fname = 'gone.txt'"), 2);

  findings = check(true);
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_TRUE(findings[1].repaired);
  EXPECT_EQ(findings[0].detail,
            "3 fixed metadata row(s) of a name that is not in the folder; rows deleted");
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_object WHERE fname = 'gone.txt'"), 0);
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_attr WHERE fname IN ('gone.txt', 'old dir')"), 0);
  // The rows of names that are there, and of the folder itself, stay.
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_object"), 3);
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_attr"), 2);
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, RepairThatFailsPartWayKeepsEveryRowOfItsTransaction) {
  buildCleanVault();
  const std::string fixed = dir_.join(".v_fmd");
  qztest::execute(fixed,
                  "INSERT INTO v_object (fname, name) VALUES ('a.txt', 'A'), ('b.txt', 'B');"
                  "CREATE TRIGGER refuse BEFORE DELETE ON v_object WHEN old.fname = 'b.txt'"
                  " BEGIN SELECT RAISE(ABORT, 'refused by the test'); END;");
  const std::vector<Finding> findings = check(true);
  ASSERT_EQ(findings.size(), 2u);
  for (const Finding& finding : findings) {
    EXPECT_FALSE(finding.repaired);
    EXPECT_NE(finding.detail.find("; not repaired: refused by the test"), std::string::npos)
        << finding.detail;
  }
  EXPECT_EQ(count(fixed, "SELECT COUNT(*) FROM v_object WHERE fname IN ('a.txt', 'b.txt')"), 2);
}

// Cached rows of a gone or changed file are notes: removing or renaming an
// object leaves the first behind, and the folder's next listing drops the
// first and reads the file of the second again anyway.
TEST_F(VaultCheckTest, CachedRowsOfGoneOrChangedFilesAreFoundAndDeleted) {
  buildCleanVault();
  const std::string cached = dir_.join(".v_cmd");
  std::remove(dir_.join("notes.txt").c_str());
  const long long planTime = qztest::getMtime(dir_.join("plan.txt"));
  qztest::setMtime(dir_.join("plan.txt"), planTime + 100);

  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 2u);  // notes.txt had no fixed rows
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_STALE_CACHE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_NOTE);
  EXPECT_EQ(findings[0].path, dir_.join("notes.txt"));
  EXPECT_EQ(findings[0].detail, "cached rows of a file that is gone");
  EXPECT_EQ(findings[1].kind, QZV_CHECK_KIND_OUTDATED_CACHE);
  EXPECT_EQ(findings[1].severity, QZV_CHECK_SEVERITY_NOTE);
  EXPECT_EQ(findings[1].path, dir_.join("plan.txt"));
  EXPECT_EQ(findings[1].detail, "cached rows of a changed file: cached time stamp " +
                                    std::to_string(planTime) + ", file time stamp " +
                                    std::to_string(planTime + 100));
  EXPECT_EQ(count(cached, "SELECT COUNT(*) FROM v_file"), 2);

  findings = check(true);
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_TRUE(findings[1].repaired);
  EXPECT_EQ(findings[0].detail, "cached rows of a file that is gone; rows deleted");
  EXPECT_EQ(count(cached, "SELECT COUNT(*) FROM v_file"), 0);
  EXPECT_EQ(count(cached, "SELECT COUNT(*) FROM v_attr WHERE fname NOT NULL"), 0);
  // The next refresh reads the changed file anew, and the cache is sound.
  refreshCache(dir_.path());
  EXPECT_EQ(count(cached, "SELECT COUNT(*) FROM v_file WHERE fname = 'plan.txt' AND tstamp = " +
                              std::to_string(planTime + 100)),
            1);
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, CachedAttributeRowsWithoutAFileRowAreFound) {
  buildCleanVault();
  qztest::execute(dir_.join("sub/.v_cmd"),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('lost.job', '_MODIFIEDDATE', 0, '1')");
  std::vector<Finding> findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_STALE_CACHE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_NOTE);
  EXPECT_EQ(findings[0].path, dir_.join("sub/lost.job"));
  EXPECT_EQ(findings[0].detail, "cached attribute rows of a file that is gone; rows deleted");
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, StaleLockIsReportedWithItsAgeAndRemoved) {
  buildCleanVault();
  const std::string lock = dir_.join(".v_lck");
  qztest::writeFile(lock, "");
  qztest::setMtime(lock, static_cast<long long>(std::time(nullptr)) - 7200);

  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 1u);  // the fresh lock of sub is not stale
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_STALE_LOCK);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_EQ(findings[0].path, lock);
  long age = 0;
  ASSERT_EQ(std::sscanf(findings[0].detail.c_str(), "lock file is %ld seconds old", &age), 1)
      << findings[0].detail;
  EXPECT_GE(age, 7200);
  EXPECT_LT(age, 7200 + 600);
  EXPECT_TRUE(qztest::pathExists(lock));

  findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_NE(findings[0].detail.find(" seconds old"), std::string::npos) << findings[0].detail;
  EXPECT_NE(findings[0].detail.find("; removed"), std::string::npos) << findings[0].detail;
  EXPECT_FALSE(qztest::pathExists(lock));
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_lck")));
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, LockJustUnderTheStaleAgeIsLeftAlone) {
  const std::string lock = dir_.join(".v_lck");
  qztest::writeFile(lock, "");
  qztest::setMtime(lock, static_cast<long long>(std::time(nullptr)) -
                             (QZV_CHECK_STALE_LOCK_SECONDS - 120));
  EXPECT_TRUE(check(true).empty());
  EXPECT_TRUE(qztest::pathExists(lock));
}

TEST_F(VaultCheckTest, AnObjectWhoseFileIsGoneGetsItsNewestVersionBack) {
  buildCleanVault();
  qztest::writeFile(dir_.join("sub/.v_ver/gone.job.1"), "1");
  qztest::writeFile(dir_.join("sub/.v_ver/gone.job.2"), "2");
  qztest::writeFile(dir_.join("sub/.v_ver/README"), "not a version file");

  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_MISSING_OBJECT);
  EXPECT_EQ(findings[0].path, dir_.join("sub/gone.job"));
  EXPECT_EQ(findings[0].detail, "the file is gone while 2 versions remain (newest: version 2)");
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_FALSE(findings[0].repaired);
  EXPECT_FALSE(qztest::pathExists(dir_.join("sub/gone.job")));

  // Nothing is deleted: the newest version becomes the object's file again.
  findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_EQ(qztest::readFile(dir_.join("sub/gone.job")), "2");
  EXPECT_EQ(qztest::readFile(dir_.join("sub/.v_ver/gone.job.1")), "1");
  EXPECT_FALSE(qztest::pathExists(dir_.join("sub/.v_ver/gone.job.2")));
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_ver/report.job.1")));
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_ver/README")));
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, ASecondNameOfAVersionLeftByAnInterruptedRenameIsDropped) {
  buildCleanVault();
  // An interrupted rename of report.job to old.job: its version has both
  // names, the object only the new one.
  ASSERT_EQ(link(dir_.join("sub/.v_ver/report.job.1").c_str(), dir_.join("sub/.v_ver/old.job.1").c_str()), 0);
  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_ORPHAN_VERSION);
  EXPECT_EQ(findings[0].path, dir_.join("sub/.v_ver/old.job.1"));
  findings = check(true);
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_TRUE(findings[0].repaired);
  EXPECT_FALSE(qztest::pathExists(dir_.join("sub/.v_ver/old.job.1")));
  EXPECT_TRUE(qztest::pathExists(dir_.join("sub/.v_ver/report.job.1")));
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, DanglingEdgesAndUnusedResourcesAreFoundAndDeleted) {
  buildCleanVault();
  const std::string store = dir_.join(".v_imd");
  qztest::execute(store,
                  "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES"
                  " (4, 'a', '/a', 'Table'), (5, 'b', '/b', 'Table'), (6, 'c', '/c', 'Query');"
                  "INSERT INTO v_impaprop (res_id, res_key, res_val) VALUES (6, 'k', 'v');"
                  "INSERT INTO v_impadeps (res_id, res_used) VALUES (4, 99), (98, 5), (97, 96);");

  std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 6u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_DANGLING_EDGE);
  EXPECT_EQ(findings[0].severity, QZV_CHECK_SEVERITY_DAMAGE);
  EXPECT_EQ(findings[0].path, store);
  EXPECT_EQ(findings[0].detail, "edge: resource 4 uses resource 99; missing resource 99");
  EXPECT_EQ(findings[1].detail, "edge: resource 98 uses resource 5; missing resource 98");
  EXPECT_EQ(findings[2].detail,
            "edge: resource 97 uses resource 96; missing resource 97 and 96");
  // 4 and 5 count as unused: their only edges dangle.
  EXPECT_EQ(findings[3].kind, QZV_CHECK_KIND_UNUSED_RESOURCE);
  EXPECT_EQ(findings[3].severity, QZV_CHECK_SEVERITY_NOTE);
  EXPECT_EQ(findings[3].detail, "resource 4 (Table /a) has no edge to or from another resource");
  EXPECT_EQ(findings[4].detail, "resource 5 (Table /b) has no edge to or from another resource");
  EXPECT_EQ(findings[5].detail, "resource 6 (Query /c) has no edge to or from another resource");
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_impadeps"), 6);

  findings = check(true);
  ASSERT_EQ(findings.size(), 6u);
  for (const Finding& finding : findings) EXPECT_TRUE(finding.repaired) << finding.detail;
  EXPECT_EQ(findings[0].detail,
            "edge: resource 4 uses resource 99; missing resource 99; edge deleted");
  EXPECT_EQ(findings[5].detail,
            "resource 6 (Query /c) has no edge to or from another resource;"
            " resource and its properties deleted");
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_impadeps"), 3);
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_imparcs"), 3);
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_impaprop WHERE res_id = 6"), 0);
  EXPECT_EQ(count(store, "SELECT COUNT(*) FROM v_impaprop WHERE res_id = 1"), 1);
  EXPECT_TRUE(check(false).empty());
}

TEST_F(VaultCheckTest, EveryDamageAtOnceInWalkingOrder) {
  buildCleanVault();
  qztest::execute(dir_.join("sub/.v_fmd"), "INSERT INTO v_object (fname, name) VALUES ('x', 'X')");
  qztest::makeDirs(dir_.join("sub/deeper"));
  qztest::writeFile(dir_.join("sub/deeper/.v_fmd"), "not a database");
  qztest::execute(dir_.join(".v_imd"), "INSERT INTO v_impadeps (res_id, res_used) VALUES (1, 50)");
  const std::vector<Finding> findings = check(false);
  ASSERT_EQ(findings.size(), 3u);
  EXPECT_EQ(findings[0].kind, QZV_CHECK_KIND_DANGLING_EDGE);  // the root first
  EXPECT_EQ(findings[1].kind, QZV_CHECK_KIND_ORPHAN_METADATA);
  EXPECT_EQ(findings[2].kind, QZV_CHECK_KIND_NOT_A_DATABASE);
  EXPECT_EQ(findings[2].path, dir_.join("sub/deeper/.v_fmd"));
}

TEST(VaultCheckRootTest, RootThatCannotBeListedFailsWithAReason) {
  TempDir dir;
  ScopedVault vault(dir.join("missing"));
  Owned<QzvVaultCheck> checker = own(vault->getVaultCheck());
  ASSERT_NE(checker, nullptr);
  EXPECT_EQ(checker->check(false), nullptr);
  EXPECT_EQ(checker->getErrorMessage().toStdString(),
            "Directory " + dir.join("missing") + " not found");
}

}  // namespace
