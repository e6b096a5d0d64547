// The reserved stamps of a folder: setModifiedByUser, setCreatedByUserOnFolder
// and refreshFolderAttributes.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "folder_test_util.h"
#include "qzvault/attribute.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::fmdOf;
using qztest::own;
using qztest::folderStamp;
using qztest::LogCapture;
using qztest::makeFolder;
using qztest::processUser;
using qztest::Rows;
using qztest::S;
using qztest::ScopedClock;
using qztest::ScopedStatusTime;
using qztest::ScopedVault;
using qztest::TempDir;

std::string trace(const char* verb, const char* operation, const std::string& path) {
  return std::string(verb) + " " + operation + " on folder \"" + path + "\".";
}

// Holds a write lock on a database from a connection of its own, so that
// every write of the library fails at once (no busy wait) while reads work.
class WriteLockHolder {
 public:
  explicit WriteLockHolder(const std::string& database)
      : noWait_("BASE/SQLITE_BUSY_TIMEOUT_MS", "0") {
    EXPECT_EQ(sqlite3_open(database.c_str(), &db_), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  }
  ~WriteLockHolder() {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(db_);
  }
  WriteLockHolder(const WriteLockHolder&) = delete;
  WriteLockHolder& operator=(const WriteLockHolder&) = delete;

 private:
  qztest::ScopedOption noWait_;
  sqlite3* db_ = nullptr;
};

// Holds a read transaction, so that the library can write but not commit.
class ReadLockHolder {
 public:
  explicit ReadLockHolder(const std::string& database)
      : noWait_("BASE/SQLITE_BUSY_TIMEOUT_MS", "0") {
    EXPECT_EQ(sqlite3_open(database.c_str(), &db_), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db_, "BEGIN; SELECT count(*) FROM v_attr;", nullptr, nullptr, nullptr),
              SQLITE_OK);
  }
  ~ReadLockHolder() {
    sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(db_);
  }
  ReadLockHolder(const ReadLockHolder&) = delete;
  ReadLockHolder& operator=(const ReadLockHolder&) = delete;

 private:
  qztest::ScopedOption noWait_;
  sqlite3* db_ = nullptr;
};

class StampTest : public ::testing::Test {
 protected:
  StampTest() : vault_(dir_.path()), db_(qztest::fixedDb(vault_.get(), dir_.path())) {}

  Rows stamp(const std::string& attribute) const { return folderStamp(dir_.path(), attribute); }

  TempDir dir_;
  ScopedVault vault_;
  std::string db_;
  qztest::Owned<QzvFolderImpl> folder_ = makeFolder(vault_.get(), dir_.path());
};

// ---------------------------------------------------------------------------
// setModifiedByUser

TEST_F(StampTest, ModifiedByUserWritesTheProcessUserWhateverUserIsGiven) {
  LogCapture log;
  {
    ScopedClock clock(1700000123);
    ASSERT_TRUE(folder_->setModifiedByUser(S("somebody-else")))
        << folder_->getErrorMessage().asCstr();
  }
  EXPECT_EQ(stamp("_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1700000123"}}));
  EXPECT_NE(processUser(), "somebody-else");
  EXPECT_TRUE(log.contains(trace("Entering", "setModifiedByUser", dir_.path()), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "setModifiedByUser", dir_.path()), 1)) << log.dump();
}

TEST_F(StampTest, ASecondModifiedByUserUpdatesTheRowsInPlace) {
  {
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder_->setModifiedByUser(S("first")));
  }
  qztest::execute(db_, "UPDATE v_attr SET v0 = 'someone before' WHERE attr = '_MODIFIEDUSER'");
  {
    ScopedClock clock(1700000999);
    ASSERT_TRUE(folder_->setModifiedByUser(S("second")));
  }
  EXPECT_EQ(stamp("_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1700000999"}}));
  EXPECT_EQ(qztest::query(db_, "SELECT count(*) FROM v_attr"), (Rows{{"2"}}));
}

TEST_F(StampTest, ModifiedByUserOfAFolderWithoutPathWritesNoTraceAndFails) {
  auto pathless = makeFolder(vault_.get(), "");
  LogCapture log;
  EXPECT_FALSE(pathless->setModifiedByUser(S("x")));
  EXPECT_EQ(pathless->getErrorMessage().toStdString(), "Folder  is not accessible");
  EXPECT_TRUE(log.contains("Folder  is not accessible", 4)) << log.dump();
  EXPECT_FALSE(log.containsFragment("setModifiedByUser")) << log.dump();
}

TEST_F(StampTest, ModifiedByUserOfAMissingFolderIsNotAccessible) {
  auto missing = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_FALSE(missing->setModifiedByUser(S("x")));
  const std::string expected = "Folder " + dir_.join("gone") + " is not accessible";
  EXPECT_EQ(missing->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 4)) << log.dump();
  EXPECT_FALSE(qztest::pathExists(dir_.join("gone")));
}

TEST_F(StampTest, ModifiedByUserWithAnUnopenableDatabase) {
  ASSERT_EQ(std::remove(db_.c_str()), 0);
  qztest::makeDirs(db_);
  LogCapture log;
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  const std::string expected = "Error opening/creating fixed metadata file in " + dir_.path();
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

TEST_F(StampTest, ModifiedByUserWhoseSelectFails) {
  qztest::execute(db_, "DROP TABLE v_attr");
  LogCapture log;
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no such table: v_attr");
  EXPECT_TRUE(log.contains("no such table: v_attr", 5)) << log.dump();
}

TEST_F(StampTest, AFailedUserUpdateRollsBack) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_MODIFIEDUSER', 0, 'old'), (NULL, '_MODIFIEDDATE', 0, '5');"
                  "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr WHEN NEW.attr = '_MODIFIEDUSER' "
                  "BEGIN SELECT RAISE(ABORT, 'user refused'); END;");
  LogCapture log;
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  const std::string expected = "Fix modified by user references in attribute metadata failed";
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(stamp("_MODIFIEDUSER"), (Rows{{"0", "old"}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "5"}}));
}

TEST_F(StampTest, AFailedDateUpdateRollsBackTheUserStampToo) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_MODIFIEDUSER', 0, 'old'), (NULL, '_MODIFIEDDATE', 0, '5');"
                  "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr WHEN NEW.attr = '_MODIFIEDDATE' "
                  "BEGIN SELECT RAISE(ABORT, 'date refused'); END;");
  LogCapture log;
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  const std::string expected =
      "Fix modified by user references in attribute metadata failed: date refused";
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(stamp("_MODIFIEDUSER"), (Rows{{"0", "old"}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "5"}}));
}

TEST_F(StampTest, AFailedInsertGivesTheConnectionsMessage) {
  qztest::execute(db_,
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr WHEN NEW.attr = '_MODIFIEDDATE' "
                  "BEGIN SELECT RAISE(ABORT, 'date row refused'); END;");
  LogCapture log;
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "date row refused");
  EXPECT_TRUE(log.contains("date row refused", 5)) << log.dump();
  // The user row inserted before is rolled back with it.
  EXPECT_TRUE(stamp("_MODIFIEDUSER").empty());
  qztest::execute(db_,
                  "DROP TRIGGER refuse;"
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr "
                  "BEGIN SELECT RAISE(ABORT, 'user row refused'); END;");
  EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "user row refused");
}

TEST_F(StampTest, AFailedCommitRollsBackWithTheConnectionsMessage) {
  LogCapture log;
  {
    ReadLockHolder reader(db_);
    EXPECT_FALSE(folder_->setModifiedByUser(S("x")));
  }
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "database is locked");
  EXPECT_TRUE(log.contains("database is locked", 5)) << log.dump();
  EXPECT_TRUE(stamp("_MODIFIEDUSER").empty());
}

TEST(StampReadOnly, ModifiedByUserOnAReadOnlyDatabase) {
  // Root ignores permission bits: the check runs as an unprivileged user.
  TempDir dir;
  qztest::makeReachable(dir.path());
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  const std::string expected = "File " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    if (folder->setModifiedByUser(S("x"))) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 4)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folderStamp(dir.path(), "_MODIFIEDUSER").empty());
}

// ---------------------------------------------------------------------------
// setCreatedByUserOnFolder

class CreatedByTest : public StampTest {
 protected:
  CreatedByTest() {
    qztest::makeDirs(dir_.join("child"));
    child_ = makeFolder(vault_.get(), dir_.join("child"));
  }
  Rows childStamp(const std::string& attribute) const {
    return folderStamp(dir_.join("child"), attribute);
  }
  std::string childDb() const { return fmdOf(dir_.join("child")); }

  qztest::Owned<QzvFolderImpl> child_;
};

TEST_F(CreatedByTest, ANullFolderReturnsTrueAndWritesNothing) {
  TempDir empty;
  auto folder = makeFolder(vault_.get(), empty.path());
  LogCapture log;
  EXPECT_TRUE(folder->setCreatedByUserOnFolder(nullptr, S("x")));
  EXPECT_FALSE(qztest::pathExists(fmdOf(empty.path())));
  EXPECT_TRUE(log.contains(trace("Exiting", "setCreatedByUserOnFolder", empty.path()), 1))
      << log.dump();
  EXPECT_FALSE(log.containsFragment("Entering setCreatedByUserOnFolder")) << log.dump();
}

TEST_F(CreatedByTest, StampsTheGivenFolderWithTheProcessUser) {
  LogCapture log;
  ASSERT_TRUE(folder_->setCreatedByUserOnFolder(child_.get(), S("somebody-else")))
      << folder_->getErrorMessage().asCstr();
  EXPECT_EQ(childStamp("_CREATOR"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(childStamp("_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(qztest::query(childDb(), "SELECT count(*) FROM v_attr"), (Rows{{"2"}}));
  // This folder is not stamped.
  EXPECT_TRUE(qztest::allAttrRows(db_).empty());
  const std::string childPath = dir_.join("child");
  EXPECT_TRUE(log.contains(trace("Entering", "setCreatedByUserOnFolder", childPath), 1))
      << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "setCreatedByUserOnFolder", childPath), 1))
      << log.dump();
}

TEST_F(CreatedByTest, AnExistingCreatorRowMakesBothRowsUpdates) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATOR', 0, 'old creator'), "
                  "(NULL, '_MODIFIEDUSER', 0, 'old modifier')");
  ASSERT_TRUE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  EXPECT_EQ(childStamp("_CREATOR"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(childStamp("_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
}

TEST_F(CreatedByTest, AModifiedUserRowWithoutCreatorRowGetsASecondModifiedUserRow) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_MODIFIEDUSER', 0, 'old modifier')");
  ASSERT_TRUE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  EXPECT_EQ(childStamp("_CREATOR"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(childStamp("_MODIFIEDUSER"), (Rows{{"0", "old modifier"}, {"0", processUser()}}));
}

TEST_F(CreatedByTest, ACreatorRowWithoutModifiedUserRowGetsNoModifiedUserRow) {
  // The update of "_MODIFIEDUSER" follows the "_CREATOR" row and finds no row.
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATOR', 0, 'old creator')");
  ASSERT_TRUE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  EXPECT_EQ(childStamp("_CREATOR"), (Rows{{"0", processUser()}}));
  EXPECT_TRUE(childStamp("_MODIFIEDUSER").empty());
}

TEST_F(CreatedByTest, AMissingFolderIsNotAccessible) {
  auto missing = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_FALSE(folder_->setCreatedByUserOnFolder(missing.get(), S("x")));
  const std::string expected = "Folder " + dir_.join("gone") + " is not accessible";
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 4)) << log.dump();
}

TEST_F(CreatedByTest, AnUnopenableDatabase) {
  qztest::makeDirs(childDb());
  LogCapture log;
  EXPECT_FALSE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  const std::string expected =
      "Error opening/creating fixed metadata file in " + dir_.join("child");
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

TEST_F(CreatedByTest, AFailedSelect) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(), "DROP TABLE v_attr");
  LogCapture log;
  EXPECT_FALSE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no such table: v_attr");
  EXPECT_TRUE(log.contains("no such table: v_attr", 5)) << log.dump();
}

TEST_F(CreatedByTest, AFailedUpdateRollsBack) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATOR', 0, 'old creator'), (NULL, '_MODIFIEDUSER', 0, 'old');"
                  "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr WHEN NEW.attr = '_MODIFIEDUSER' "
                  "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
  LogCapture log;
  EXPECT_FALSE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  const std::string expected = "Fix created by user references in attribute metadata failed";
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(childStamp("_CREATOR"), (Rows{{"0", "old creator"}}));
}

TEST_F(CreatedByTest, AFailedInsertRollsBackWithTheConnectionsMessage) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  qztest::execute(childDb(),
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr WHEN NEW.attr = '_MODIFIEDUSER' "
                  "BEGIN SELECT RAISE(ABORT, 'modifier refused'); END;");
  LogCapture log;
  EXPECT_FALSE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "modifier refused");
  EXPECT_TRUE(log.contains("modifier refused", 5)) << log.dump();
  EXPECT_TRUE(childStamp("_CREATOR").empty());
}

TEST_F(CreatedByTest, AFailedCommitRollsBack) {
  qztest::fixedDb(vault_.get(), dir_.join("child"));
  {
    ReadLockHolder reader(childDb());
    EXPECT_FALSE(folder_->setCreatedByUserOnFolder(child_.get(), S("x")));
  }
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "database is locked");
  EXPECT_TRUE(childStamp("_CREATOR").empty());
}

TEST(CreatedByReadOnly, AReadOnlyDatabaseIsAReadOnlyFolder) {
  // Root ignores permission bits: the check runs as an unprivileged user.
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::makeDirs(dir.join("child"));
  qztest::makeReachable(dir.join("child"));
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.join("child"));
  }
  const std::string expected = "Folder " + dir.join("child") + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto parent = makeFolder(vault.get(), dir.path());
    auto child = makeFolder(vault.get(), dir.join("child"));
    if (parent->setCreatedByUserOnFolder(child.get(), S("x"))) return 1;
    if (parent->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 4)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

// ---------------------------------------------------------------------------
// refreshFolderAttributes

TEST_F(StampTest, RefreshGivesAFolderBothDates) {
  LogCapture log;
  {
    ScopedStatusTime directoryTime(dir_.path(), 1600000000);
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder_->refreshFolderAttributes()) << folder_->getErrorMessage().asCstr();
  }
  EXPECT_EQ(stamp("_CREATIONDATE"), (Rows{{"0", "1600000000"}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
  EXPECT_TRUE(log.contains(trace("Entering", "refreshFolderAttributes", dir_.path()), 1));
  EXPECT_TRUE(log.contains(trace("Exiting", "refreshFolderAttributes", dir_.path()), 1));
}

TEST_F(StampTest, RefreshWithNothingToDoWritesNothing) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATIONDATE', 0, '1600000000'), "
                  "(NULL, '_MODIFIEDDATE', 0, '1650000000')");
  LogCapture log;
  {
    // Any write would fail while another connection holds the write lock.
    WriteLockHolder writer(db_);
    ScopedStatusTime directoryTime(dir_.path(), 1600000001);
    EXPECT_TRUE(folder_->refreshFolderAttributes()) << folder_->getErrorMessage().asCstr();
  }
  EXPECT_EQ(stamp("_CREATIONDATE"), (Rows{{"0", "1600000000"}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1650000000"}}));
  EXPECT_TRUE(log.contains(trace("Exiting", "refreshFolderAttributes", dir_.path()), 1));
}

// The directory's status-change time moves whenever an entry is added to or
// removed from it (a database journal among them); the creation date, once
// written, stays.
TEST_F(StampTest, TheCreationDateNeverMovesOnceWritten) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATIONDATE', 0, '1600000000'), "
                  "(NULL, '_MODIFIEDDATE', 0, '42')");
  for (const int64_t directoryTime : {1600000001, 1599999000, 1600000002, 1700000000}) {
    ScopedStatusTime time(dir_.path(), directoryTime);
    ASSERT_TRUE(folder_->refreshFolderAttributes());
    EXPECT_EQ(stamp("_CREATIONDATE"), (Rows{{"0", "1600000000"}})) << directoryTime;
  }
  // A stored modification date is never changed here.
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "42"}}));
}

TEST_F(StampTest, TheCreationDateStaysThroughAttributeChanges) {
  ScopedClock clock(1700000000);
  ASSERT_TRUE(folder_->refreshFolderAttributes());
  const Rows created = stamp("_CREATIONDATE");
  ASSERT_EQ(created.size(), 1u);
  // Each commit creates and removes a journal beside the database, which
  // moves the directory's status-change time.
  for (int i = 0; i < 3; ++i) {
    ScopedStatusTime later(dir_.path(), 1800000000 + i * 10);
    auto attribute = own(folder_->getAttribute(S("Owner")));
    ASSERT_NE(attribute, nullptr);
    attribute->setValue(0, 0, S(("team" + std::to_string(i)).c_str()));
    ASSERT_TRUE(attribute->commit()) << attribute->getErrorMessage().asCstr();
    ASSERT_TRUE(folder_->refreshFolderAttributes());
  }
  EXPECT_EQ(stamp("_CREATIONDATE"), created);
}

TEST_F(StampTest, RowsHoldingZeroOrANonNumberGetTheirDateInPlace) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATIONDATE', 0, '0'), (NULL, '_MODIFIEDDATE', 0, 'soon')");
  {
    ScopedStatusTime directoryTime(dir_.path(), 1600000000);
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder_->refreshFolderAttributes());
  }
  EXPECT_EQ(stamp("_CREATIONDATE"), (Rows{{"0", "1600000000"}}));
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
}

TEST_F(StampTest, AClearedDateIsOneRowAgainAfterTheNextRefresh) {
  {
    ScopedClock clock(1650000000);
    ASSERT_TRUE(folder_->refreshFolderAttributes());
  }
  // Clearing leaves one row of nulls (an attribute always has a row).
  auto modified = own(folder_->getAttribute(S("_MODIFIEDDATE")));
  ASSERT_NE(modified, nullptr);
  modified->clear();
  ASSERT_TRUE(modified->commit()) << modified->getErrorMessage().asCstr();
  {
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder_->refreshFolderAttributes());
  }
  EXPECT_EQ(stamp("_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
}

TEST_F(StampTest, RefreshOfAMissingFolderIsNotAccessible) {
  auto missing = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_FALSE(missing->refreshFolderAttributes());
  const std::string expected = "Folder " + dir_.join("gone") + " is not accessible";
  EXPECT_EQ(missing->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 4)) << log.dump();
}

TEST_F(StampTest, RefreshWithAnUnopenableDatabase) {
  ASSERT_EQ(std::remove(db_.c_str()), 0);
  qztest::makeDirs(db_);
  LogCapture log;
  EXPECT_FALSE(folder_->refreshFolderAttributes());
  const std::string expected = "Error opening/creating fixed metadata file in " + dir_.path();
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

TEST_F(StampTest, AFailedRefreshWriteRollsBackEverything) {
  qztest::execute(db_,
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr WHEN NEW.attr = '_MODIFIEDDATE' "
                  "BEGIN SELECT RAISE(ABORT, 'no modification date'); END;");
  EXPECT_FALSE(folder_->refreshFolderAttributes());
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no modification date");
  EXPECT_TRUE(stamp("_CREATIONDATE").empty());
}

TEST_F(StampTest, AFailedRefreshUpdateRollsBack) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, '_CREATIONDATE', 0, '0');"
                  "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr "
                  "BEGIN SELECT RAISE(ABORT, 'no update'); END;");
  EXPECT_FALSE(folder_->refreshFolderAttributes());
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no update");
  EXPECT_EQ(stamp("_CREATIONDATE"), (Rows{{"0", "0"}}));
  EXPECT_TRUE(stamp("_MODIFIEDDATE").empty());
}

TEST(RefreshReadOnly, RefreshOnAReadOnlyDatabase) {
  // Root ignores permission bits: the check runs as an unprivileged user.
  TempDir dir;
  qztest::makeReachable(dir.path());
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  const std::string expected = "File " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    if (folder->refreshFolderAttributes()) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 4)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folderStamp(dir.path(), "_CREATIONDATE").empty());
}

}  // namespace
