// Changes to the folder tree: createFolder, getFilenameForNewObject, fsRename,
// renameSelf, moveSelf, deleteSelf, and the folder stamps of object creation.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "folder_test_util.h"
#include "qzbase/path.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::fmdOf;
using qztest::folderStamp;
using qztest::LogCapture;
using qztest::makeFolder;
using qztest::own;
using qztest::Owned;
using qztest::pathExists;
using qztest::processUser;
using qztest::Rows;
using qztest::S;
using qztest::ScopedClock;
using qztest::ScopedVault;
using qztest::TempDir;

std::string trace(const char* verb, const char* operation, const std::string& path) {
  return std::string(verb) + " " + operation + " on folder \"" + path + "\".";
}

// The name row of the folder `directory` (v_object, fname NULL).
Rows folderNameRows(const std::string& directory) {
  return qztest::query(fmdOf(directory), "SELECT name FROM v_object WHERE fname IS NULL");
}

std::string parentOf(const std::string& path) {
  return qzbParsePath(S(path), nullptr).toStdString();
}
std::string leafOf(const std::string& path) {
  QzbString leaf;
  qzbParsePath(S(path), &leaf);
  return leaf.toStdString();
}

class ChangesTest : public ::testing::Test {
 protected:
  ChangesTest() : vault_(dir_.path()) {}

  // A sub-folder made on disk (not through the library).
  Owned<QzvFolderImpl> subFolder(const std::string& relative) {
    qztest::makeDirs(dir_.join(relative));
    return makeFolder(vault_.get(), dir_.join(relative));
  }

  TempDir dir_;
  ScopedVault vault_;
  Owned<QzvFolderImpl> root_ = makeFolder(vault_.get(), dir_.path());
};

// ---------------------------------------------------------------------------
// createFolder

TEST_F(ChangesTest, CreateFolderWithAPlainNameWritesNoNameRow) {
  LogCapture log;
  Owned<QzvFolder> created;
  {
    ScopedClock clock(1700000000);
    created = own(root_->createFolder(S("Reports")));
  }
  ASSERT_NE(created, nullptr) << root_->getErrorMessage().asCstr();
  const std::string path = dir_.join("Reports");
  EXPECT_EQ(created->getPath().toStdString(), path);
  EXPECT_EQ(created->getName().toStdString(), "Reports");
  EXPECT_TRUE(folderNameRows(path).empty());
  // The new folder is stamped; its parent is not touched.
  EXPECT_EQ(folderStamp(path, "_CREATOR"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(folderStamp(path, "_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(folderStamp(path, "_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
  EXPECT_FALSE(pathExists(fmdOf(dir_.path())));
  EXPECT_TRUE(log.contains(trace("Entering", "createFolder", dir_.path()), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "createFolder", dir_.path()), 1)) << log.dump();
}

TEST_F(ChangesTest, CreateFolderWithANameThatNeedsChangingWritesTheNameRow) {
  auto created = own(root_->createFolder(S("Q1: Sales/Costs")));
  ASSERT_NE(created, nullptr) << root_->getErrorMessage().asCstr();
  const std::string path = dir_.join("Q1_ Sales_Costs");
  EXPECT_EQ(created->getPath().toStdString(), path);
  EXPECT_EQ(folderNameRows(path), (Rows{{"Q1: Sales/Costs"}}));
  EXPECT_EQ(created->getName().toStdString(), "Q1: Sales/Costs");
  EXPECT_FALSE(pathExists(dir_.join("Q1: Sales")));
}

TEST_F(ChangesTest, CreateFolderWithAUsedNameGetsAFreeDirectoryName) {
  qztest::makeDirs(dir_.join("Reports"));
  auto created = own(root_->createFolder(S("Reports")));
  ASSERT_NE(created, nullptr) << root_->getErrorMessage().asCstr();
  EXPECT_EQ(created->getPath().toStdString(), dir_.join("1Reports"));
  // The display name differs from the directory name now: it is stored.
  EXPECT_EQ(folderNameRows(dir_.join("1Reports")), (Rows{{"Reports"}}));
  EXPECT_EQ(created->getName().toStdString(), "Reports");
}

TEST_F(ChangesTest, CreateFolderKeepsEveryDisplayNameInsideTheFolderAndVisible) {
  const std::string longName(400, 'x');
  for (const std::string& name :
       {std::string(""), std::string(".hidden"), std::string(".."), std::string("../escape"),
        std::string("/absolute/path"), std::string("back\\slash"), longName}) {
    SCOPED_TRACE("display name \"" + name + "\"");
    auto created = own(root_->createFolder(S(name)));
    ASSERT_NE(created, nullptr) << root_->getErrorMessage().asCstr();
    const std::string path = created->getPath().toStdString();
    EXPECT_EQ(parentOf(path), dir_.path());
    const std::string leaf = leafOf(path);
    EXPECT_FALSE(leaf.empty());
    EXPECT_NE(leaf[0], '.');
    EXPECT_LE(leaf.size(), 255u);
    EXPECT_TRUE(pathExists(path));
    // Every one of these needed changing, so the display name is stored.
    EXPECT_EQ(folderNameRows(path), (Rows{{name}}));
  }
  EXPECT_FALSE(pathExists(parentOf(dir_.path()) + "/escape"));
  EXPECT_FALSE(pathExists("/absolute/path"));
}

TEST_F(ChangesTest, CreateFolderInAMissingFolderFailsToCreateTheDirectory) {
  auto missing = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_EQ(missing->createFolder(S("Reports")), nullptr);
  const std::string expected = "Failed to create directory " + dir_.join("gone/Reports") + " (" +
                               np_fio_errdesc(NP_ERR_NOT_FOUND) + ")";
  EXPECT_EQ(missing->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(pathExists(dir_.join("gone")));
}

TEST_F(ChangesTest, CreateFolderWhenNoValidNameCanBeMade) {
  LogCapture log;
  {
    qztest::FaultPlatform faults;
    // The look for a free name cannot examine the folder.
    faults.failCall(qztest::NpOp::kFioStat, 1, NP_ERR_ACCESS);
    EXPECT_EQ(root_->createFolder(S("Reports")), nullptr);
  }
  const std::string expected = "Error getting valid folder name for Reports";
  EXPECT_EQ(root_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(pathExists(dir_.join("Reports")));
}

TEST_F(ChangesTest, CreateFolderWhoseNameDatabaseCannotBeOpenedKeepsTheDirectory) {
  LogCapture log;
  {
    qztest::FaultPlatform faults;
    // Examination 1 is of the new directory (a folder of the vault, reached
    // without a link), examination 2 the database open's look at ".v_fmd",
    // which never follows a link.
    faults.failCall(qztest::NpOp::kFioLstat, 2, NP_ERR_ACCESS);
    EXPECT_EQ(root_->createFolder(S("Q1: Sales")), nullptr);
  }
  const std::string message = root_->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + fmdOf(dir_.join("Q1_ Sales")) + ": ", 0), 0u)
      << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  EXPECT_TRUE(pathExists(dir_.join("Q1_ Sales")));
}

TEST_F(ChangesTest, CreateFolderWhoseNameRowIsRefusedKeepsTheDirectoryUnstamped) {
  // A database that refuses name rows, waiting in the new directory.
  TempDir seedDir;
  const std::string seed = qztest::fixedDb(vault_.get(), seedDir.path());
  qztest::execute(seed,
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_object "
                  "BEGIN SELECT RAISE(ABORT, 'no names'); END;");
  LogCapture log;
  {
    qztest::ScopedDirectorySeed seeding(seed, 0644);
    EXPECT_EQ(root_->createFolder(S("Q1: Sales")), nullptr);
  }
  const std::string expected = "Set folder name in metadata failed";
  EXPECT_EQ(root_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  // A failure after the directory was made leaves it; no stamp was written.
  const std::string path = dir_.join("Q1_ Sales");
  EXPECT_TRUE(pathExists(path));
  EXPECT_TRUE(qztest::allAttrRows(fmdOf(path)).empty());
}

TEST(CreateFolderReadOnly, ANameRowIntoAReadOnlyDatabaseIsRefused) {
  // Root ignores permission bits: the check runs as an unprivileged user,
  // who makes the directory and finds a read-only ".v_fmd" in it.
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::makeDirs(dir.join("vault"));
  ASSERT_EQ(chmod(dir.join("vault").c_str(), 0777), 0);
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  ASSERT_EQ(chmod(fmdOf(dir.path()).c_str(), 0644), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.join("vault"));
    auto root = makeFolder(vault.get(), dir.join("vault"));
    qztest::ScopedDirectorySeed seeding(fmdOf(dir.path()), 0444);
    if (root->createFolder(S("Q1: Sales")) != nullptr) return 1;
    if (root->getErrorMessage().toStdString() != "Data file is read only") return 2;
    if (!log.contains("Data file is read only", 4)) return 3;
    if (!pathExists(dir.join("vault/Q1_ Sales"))) return 4;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ChangesTest, CreateFolderWhoseChildCannotBeReachedLogsWhy) {
  LogCapture log;
  {
    qztest::FaultPlatform faults;
    // A plain name: stat 1 looks for a free name, stat 2 is the child's.
    faults.failCall(qztest::NpOp::kFioStat, 2, NP_ERR_NOT_FOUND);
    EXPECT_EQ(root_->createFolder(S("Reports")), nullptr);
  }
  const std::string reason = "Directory " + dir_.join("Reports") + " not found";
  EXPECT_EQ(root_->getErrorMessage().toStdString(), reason);
  EXPECT_TRUE(log.contains("Error getting child folder \"" + dir_.path() + "\": " + reason, 5))
      << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "createFolder", dir_.path()), 1)) << log.dump();
  EXPECT_TRUE(pathExists(dir_.join("Reports")));
}

// ---------------------------------------------------------------------------
// getFilenameForNewObject

TEST_F(ChangesTest, FilenameForNewObjectIsAFreeValidName) {
  LogCapture log;
  QzbString fullPath;
  QzbString fileName;
  ASSERT_TRUE(root_->getFilenameForNewObject(S("Sales: Q1"), S("tmeta"), &fullPath, &fileName))
      << root_->getErrorMessage().asCstr();
  EXPECT_EQ(fileName.toStdString(), "Sales_ Q1.tmeta");
  EXPECT_EQ(fullPath.toStdString(), dir_.join("Sales_ Q1.tmeta"));
  EXPECT_FALSE(pathExists(dir_.join("Sales_ Q1.tmeta")));  // nothing is created
  EXPECT_TRUE(log.contains(trace("Entering", "getFilenameForNewObject", dir_.path()), 1));
  EXPECT_TRUE(log.contains(trace("Exiting", "getFilenameForNewObject", dir_.path()), 1));

  // A used name is not an error: the next free one is offered.
  qztest::writeFile(dir_.join("Report.txt"), "x");
  ASSERT_TRUE(root_->getFilenameForNewObject(S("Report"), S("txt"), nullptr, &fileName));
  EXPECT_EQ(fileName.toStdString(), "1Report.txt");
  // Either output may be left out.
  ASSERT_TRUE(root_->getFilenameForNewObject(S("Report"), S("txt"), &fullPath, nullptr));
  EXPECT_EQ(fullPath.toStdString(), dir_.join("1Report.txt"));
  EXPECT_TRUE(root_->getFilenameForNewObject(S("Report"), S("txt"), nullptr, nullptr));
}

TEST_F(ChangesTest, FilenameForNewObjectFailsOnlyWhenTheGeneratedNameExists) {
  qztest::writeFile(dir_.join("Report.txt"), "x");
  LogCapture log;
  QzbString fileName("untouched", true);
  {
    qztest::FaultPlatform faults;
    // The look for a free name is told that "Report.txt" is free; the check
    // that follows finds the file.
    faults.failCall(qztest::NpOp::kFioStat, 1, NP_ERR_NOT_FOUND);
    EXPECT_FALSE(root_->getFilenameForNewObject(S("Report"), S("txt"), nullptr, &fileName));
  }
  const std::string expected = "File Report.txt already exists in " + dir_.path();
  EXPECT_EQ(root_->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(fileName.toStdString(), "untouched");
}

TEST_F(ChangesTest, FilenameForNewObjectWithAnExtensionThatIsNoComponent) {
  QzbString fileName("untouched", true);
  EXPECT_FALSE(root_->getFilenameForNewObject(S("Report"), S("txt/../../x"), nullptr, &fileName));
  EXPECT_EQ(root_->getErrorMessage().toStdString(), "Error getting valid file name for Report");
  EXPECT_EQ(fileName.toStdString(), "untouched");
}

// ---------------------------------------------------------------------------
// fsRename

TEST_F(ChangesTest, FsRenameRenamesTheDirectoryAndKeepsTheDisplayName) {
  auto folder = subFolder("old");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("old"));
  qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES (NULL, 'Quarterly')");
  LogCapture log;
  {
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder->fsRename(S("new"))) << folder->getErrorMessage().asCstr();
  }
  const std::string path = dir_.join("new");
  EXPECT_FALSE(pathExists(dir_.join("old")));
  EXPECT_TRUE(pathExists(path));
  EXPECT_EQ(folder->getPath().toStdString(), path);
  EXPECT_EQ(folder->getName().toStdString(), "Quarterly");
  EXPECT_EQ(folderNameRows(path), (Rows{{"Quarterly"}}));
  EXPECT_EQ(folderStamp(path, "_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(folderStamp(path, "_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
  EXPECT_EQ(folderStamp(path, "_CREATIONDATE").size(), 1u);
  EXPECT_TRUE(log.contains(trace("Entering", "fsRename", dir_.join("old")), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "fsRename", path), 1)) << log.dump();
}

TEST_F(ChangesTest, FsRenameOfTheRootIsRefused) {
  LogCapture log;
  EXPECT_FALSE(root_->fsRename(S("elsewhere")));
  EXPECT_EQ(root_->getErrorMessage().toStdString(), "Can't rename the vault root");
  EXPECT_TRUE(log.contains("Can't rename the vault root", 5)) << log.dump();
  EXPECT_TRUE(pathExists(dir_.path()));
}

TEST_F(ChangesTest, FsRenameOfAPathWithoutParent) {
  auto relative = makeFolder(vault_.get(), "lonely");
  LogCapture log;
  EXPECT_FALSE(relative->fsRename(S("other")));
  EXPECT_EQ(relative->getErrorMessage().toStdString(), "Rename operation failed during parse");
  EXPECT_TRUE(log.contains("Rename operation failed during parse", 5)) << log.dump();
}

TEST_F(ChangesTest, FsRenameToANameThatCannotBeJoined) {
  auto folder = subFolder("old");
  for (const char* name : {"", "..", "/"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(folder->fsRename(S(name)));
    EXPECT_EQ(folder->getErrorMessage().toStdString(),
              "Rename operation failed during concatenation");
  }
  EXPECT_TRUE(pathExists(dir_.join("old")));
  EXPECT_EQ(folder->getPath().toStdString(), dir_.join("old"));
}

TEST_F(ChangesTest, FsRenameRefusesANameThatIsNotOnePlainComponent) {
  auto folder = subFolder("old");
  qztest::makeDirs(dir_.join("other"));
  for (const char* name : {"other/inside", "other\\inside", ".hidden"}) {
    SCOPED_TRACE(name);
    LogCapture log;
    EXPECT_FALSE(folder->fsRename(S(name)));
    const std::string expected = std::string("Invalid directory name ") + name;
    EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
    EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  }
  EXPECT_TRUE(pathExists(dir_.join("old")));
  EXPECT_FALSE(pathExists(dir_.join("other/inside")));
  EXPECT_FALSE(pathExists(dir_.join(".hidden")));
}

TEST_F(ChangesTest, FsRenameOntoAnExistingDirectoryIsRefused) {
  auto folder = subFolder("old");
  qztest::makeDirs(dir_.join("taken"));
  EXPECT_FALSE(folder->fsRename(S("taken")));
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Directory " + dir_.join("taken") + " already exists");
  EXPECT_TRUE(pathExists(dir_.join("old")));
  EXPECT_TRUE(pathExists(dir_.join("taken")));
  // Its own name is no conflict.
  EXPECT_TRUE(folder->fsRename(S("old"))) << folder->getErrorMessage().asCstr();
}

TEST_F(ChangesTest, FsRenameOfAVanishedDirectoryFails) {
  auto folder = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_FALSE(folder->fsRename(S("new")));
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "Rename operation failed");
  EXPECT_TRUE(log.contains("Rename operation failed", 5)) << log.dump();
  EXPECT_EQ(folder->getPath().toStdString(), dir_.join("gone"));
}

TEST_F(ChangesTest, FsRenameWhoseStampFailsReportsFalseButTheDirectoryHasItsNewName) {
  auto folder = subFolder("old");
  qztest::makeDirs(fmdOf(dir_.join("old")));  // the stamp cannot open its database
  EXPECT_FALSE(folder->fsRename(S("new")));
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Error opening/creating fixed metadata file in " + dir_.join("new"));
  EXPECT_TRUE(pathExists(dir_.join("new")));
  EXPECT_EQ(folder->getPath().toStdString(), dir_.join("new"));
}

// ---------------------------------------------------------------------------
// renameSelf

TEST_F(ChangesTest, RenameSelfReplacesTheNameRowOnly) {
  auto folder = subFolder("q1");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("q1"));
  qztest::execute(db,
                  "INSERT INTO v_object (fname, name) VALUES (NULL, 'Old'), (NULL, 'Older'),"
                  "('a.txt', 'An object')");
  LogCapture log;
  {
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder->renameSelf(S("First quarter"))) << folder->getErrorMessage().asCstr();
  }
  EXPECT_EQ(folderNameRows(dir_.join("q1")), (Rows{{"First quarter"}}));
  EXPECT_EQ(qztest::query(db, "SELECT fname, name FROM v_object WHERE fname IS NOT NULL"),
            (Rows{{"a.txt", "An object"}}));
  EXPECT_EQ(folder->getName().toStdString(), "First quarter");
  EXPECT_EQ(folder->getPath().toStdString(), dir_.join("q1"));
  EXPECT_TRUE(pathExists(dir_.join("q1")));
  EXPECT_EQ(folderStamp(dir_.join("q1"), "_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(folderStamp(dir_.join("q1"), "_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
  EXPECT_EQ(folderStamp(dir_.join("q1"), "_CREATIONDATE").size(), 1u);
  EXPECT_TRUE(log.contains(trace("Entering", "renameSelf", dir_.join("q1")), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "renameSelf", dir_.join("q1")), 1)) << log.dump();
}

TEST_F(ChangesTest, RenameSelfWithAnUnopenableDatabase) {
  auto folder = subFolder("q1");
  qztest::makeDirs(fmdOf(dir_.join("q1")));
  LogCapture log;
  EXPECT_FALSE(folder->renameSelf(S("New")));
  const std::string message = folder->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + fmdOf(dir_.join("q1")) + ": ", 0), 0u) << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST_F(ChangesTest, RenameSelfWhoseDeleteFailsRollsBack) {
  auto folder = subFolder("q1");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("q1"));
  qztest::execute(db,
                  "INSERT INTO v_object (fname, name) VALUES (NULL, 'Old');"
                  "CREATE TRIGGER refuse BEFORE DELETE ON v_object "
                  "BEGIN SELECT RAISE(ABORT, 'names stay'); END;");
  LogCapture log;
  EXPECT_FALSE(folder->renameSelf(S("New")));
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "names stay");
  EXPECT_TRUE(log.contains("names stay", 5)) << log.dump();
  EXPECT_EQ(folderNameRows(dir_.join("q1")), (Rows{{"Old"}}));
}

TEST_F(ChangesTest, RenameSelfWhoseInsertFailsRollsBackTheDelete) {
  auto folder = subFolder("q1");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("q1"));
  qztest::execute(db,
                  "INSERT INTO v_object (fname, name) VALUES (NULL, 'Old');"
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_object "
                  "BEGIN SELECT RAISE(ABORT, 'no new names'); END;");
  LogCapture log;
  EXPECT_FALSE(folder->renameSelf(S("New")));
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "Set folder name in metadata failed");
  EXPECT_TRUE(log.contains("Set folder name in metadata failed", 5)) << log.dump();
  EXPECT_EQ(folderNameRows(dir_.join("q1")), (Rows{{"Old"}}));
}

TEST_F(ChangesTest, RenameSelfWhoseCommitFailsKeepsTheOldName) {
  auto folder = subFolder("q1");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("q1"));
  qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES (NULL, 'Old')");
  qztest::ScopedOption noWait("BASE/SQLITE_BUSY_TIMEOUT_MS", "0");
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM v_object;", nullptr, nullptr, nullptr),
      SQLITE_OK);
  LogCapture log;
  const bool renamed = folder->renameSelf(S("New"));
  sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(reader);
  EXPECT_FALSE(renamed);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "database is locked");
  EXPECT_TRUE(log.contains("database is locked", 5)) << log.dump();
  EXPECT_EQ(folderNameRows(dir_.join("q1")), (Rows{{"Old"}}));
}

TEST(RenameSelfBegin, AFailedBeginIsReportedWithoutRollback) {
  // With every database in memory the vault keeps one connection per
  // database; a transaction left open on it makes renameSelf's BEGIN fail.
  qztest::ScopedOption bypass("QZVLT/BYPASS", "1");
  TempDir dir;
  ScopedVault vault(dir.path());
  qztest::makeDirs(dir.join("q1"));
  auto folder = makeFolder(vault.get(), dir.join("q1"));
  qztest::fixedDb(vault.get(), dir.join("q1"));
  SqliteConnection* shared = vault->dbCache().findMemDB(S(fmdOf(dir.join("q1"))));
  ASSERT_NE(shared, nullptr);
  ASSERT_TRUE(shared->exec(S("BEGIN TRANSACTION"), 0));
  ASSERT_TRUE(shared->exec(S("INSERT INTO v_object (fname, name) VALUES ('x.txt', 'X')"), 0));
  LogCapture log;
  EXPECT_FALSE(folder->renameSelf(S("New")));
  const std::string message = folder->getErrorMessage().toStdString();
  EXPECT_EQ(message, "cannot start a transaction within a transaction");
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  // The open transaction was not rolled back.
  EXPECT_TRUE(shared->exec(S("COMMIT TRANSACTION"), 0)) << shared->getErrorMessage().asCstr();
}

TEST_F(ChangesTest, RenameSelfWhoseStampFailsReportsFalseWithTheNameChanged) {
  auto folder = subFolder("q1");
  const std::string db = qztest::fixedDb(vault_.get(), dir_.join("q1"));
  qztest::execute(db,
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr "
                  "BEGIN SELECT RAISE(ABORT, 'no stamps'); END;");
  LogCapture log;
  EXPECT_FALSE(folder->renameSelf(S("New")));
  // The stamp's own message is kept; the name was committed before it.
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "no stamps");
  EXPECT_EQ(folderNameRows(dir_.join("q1")), (Rows{{"New"}}));
}

TEST(RenameSelfReadOnly, ARenameInAReadOnlyDatabaseIsRefused) {
  // Root ignores permission bits: the check runs as an unprivileged user.
  TempDir dir;
  qztest::makeReachable(dir.path());
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  qztest::execute(fmdOf(dir.path()), "INSERT INTO v_object (fname, name) VALUES (NULL, 'Old')");
  ASSERT_EQ(chmod(fmdOf(dir.path()).c_str(), 0644), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    if (folder->renameSelf(S("New"))) return 1;
    if (folder->getErrorMessage().toStdString() != "Data file is read only") return 2;
    if (!log.contains("Data file is read only", 4)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folderNameRows(dir.path()), (Rows{{"Old"}}));
}

// ---------------------------------------------------------------------------
// moveSelf

TEST_F(ChangesTest, MoveSelfMovesTheDirectoryAndStampsItWithoutRefreshOrExitTrace) {
  auto folder = subFolder("a");
  qztest::writeFile(dir_.join("a/file.txt"), "content");
  auto target = subFolder("b");
  LogCapture log;
  {
    ScopedClock clock(1700000000);
    ASSERT_TRUE(folder->moveSelf(target.get())) << folder->getErrorMessage().asCstr();
  }
  const std::string path = dir_.join("b/a");
  EXPECT_FALSE(pathExists(dir_.join("a")));
  EXPECT_EQ(qztest::readFile(path + "/file.txt"), "content");
  EXPECT_EQ(folder->getPath().toStdString(), path);
  EXPECT_EQ(folderStamp(path, "_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
  EXPECT_EQ(folderStamp(path, "_MODIFIEDDATE"), (Rows{{"0", "1700000000"}}));
  EXPECT_TRUE(folderStamp(path, "_CREATIONDATE").empty());
  EXPECT_TRUE(log.contains(trace("Entering", "moveSelf", dir_.join("a")), 1)) << log.dump();
  EXPECT_FALSE(log.containsFragment("Exiting moveSelf")) << log.dump();
}

TEST_F(ChangesTest, MoveSelfIntoItselfOrBelowItselfIsAnInvalidPath) {
  auto folder = subFolder("a");
  auto below = subFolder("a/b");
  const std::string path = dir_.join("a");
  for (QzvFolderImpl* target : {folder.get(), below.get()}) {
    LogCapture log;
    EXPECT_FALSE(folder->moveSelf(target));
    const std::string expected =
        "Invalid path moving " + path + " to " + target->getPath().toStdString();
    EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
    EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
    EXPECT_EQ(folder->getPath().toStdString(), path);
  }
  EXPECT_TRUE(pathExists(dir_.join("a/b")));
  EXPECT_FALSE(pathExists(fmdOf(path)));
}

TEST_F(ChangesTest, MoveSelfOutOfTheVaultIsRefused) {
  // Not even the root leaves the vault: a folder moves only into a folder of
  // its own vault.
  TempDir elsewhere;
  qztest::makeDirs(dir_.join("vault"));
  ScopedVault vault(dir_.join("vault"));
  auto root = makeFolder(vault.get(), dir_.join("vault"));
  auto target = makeFolder(vault.get(), elsewhere.path());
  LogCapture log;
  EXPECT_FALSE(root->moveSelf(target.get()));
  const std::string expected =
      "Path " + elsewhere.path() + " is outside the vault " + dir_.join("vault");
  EXPECT_EQ(root->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(pathExists(elsewhere.join("vault")));
  EXPECT_TRUE(pathExists(dir_.join("vault")));
}

TEST_F(ChangesTest, MoveSelfWithoutTargetCannotBuildThePath) {
  auto folder = subFolder("a");
  LogCapture log;
  EXPECT_FALSE(folder->moveSelf(nullptr));
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "Folder rename: Error building new path");
  EXPECT_TRUE(log.contains("Folder rename: Error building new path", 5)) << log.dump();
  EXPECT_TRUE(pathExists(dir_.join("a")));
}

TEST_F(ChangesTest, MoveSelfOfAFolderWithoutPathHasNoDirectoryName) {
  // Only a folder initialised with a null path has no last component.
  Owned<QzvFolderImpl> pathless(new QzvFolderImpl());
  ASSERT_TRUE(pathless->init(QzbString(), QzbString(), vault_.get()));
  auto target = subFolder("b");
  LogCapture log;
  EXPECT_FALSE(pathless->moveSelf(target.get()));
  const std::string expected = "Folder rename: Error determining original directory name";
  EXPECT_EQ(pathless->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(pathExists(fmdOf(dir_.join("b"))));
}

TEST_F(ChangesTest, MoveSelfOntoAnExistingDirectoryIsRefused) {
  auto folder = subFolder("a");
  auto target = subFolder("b");
  qztest::makeDirs(dir_.join("b/a"));
  EXPECT_FALSE(folder->moveSelf(target.get()));
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Directory " + dir_.join("b/a") + " already exists");
  EXPECT_TRUE(pathExists(dir_.join("a")));
  // Its own place is no conflict.
  EXPECT_TRUE(folder->moveSelf(root_.get())) << folder->getErrorMessage().asCstr();
  EXPECT_TRUE(pathExists(dir_.join("a")));
}

TEST_F(ChangesTest, MoveSelfOfAVanishedDirectoryIsFileNotFound) {
  auto folder = makeFolder(vault_.get(), dir_.join("gone"));
  auto target = subFolder("b");
  LogCapture log;
  EXPECT_FALSE(folder->moveSelf(target.get()));
  const std::string expected =
      "File not found moving " + dir_.join("gone") + " to " + dir_.join("b");
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

TEST_F(ChangesTest, MoveSelfWithAnyOtherPlatformErrorIsUnknown) {
  auto folder = subFolder("a");
  auto target = subFolder("b");
  LogCapture log;
  {
    qztest::FaultPlatform faults;
    faults.failCall(qztest::NpOp::kFioRenameNoReplace, 1, NP_ERR_IO);
    EXPECT_FALSE(folder->moveSelf(target.get()));
  }
  const std::string expected = "Unknown error moving " + dir_.join("a") + " to " + dir_.join("b");
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_TRUE(pathExists(dir_.join("a")));
}

TEST_F(ChangesTest, MoveSelfWhoseStampFailsReportsFalseButTheDirectoryMoved) {
  auto folder = subFolder("a");
  auto target = subFolder("b");
  qztest::makeDirs(fmdOf(dir_.join("a")));
  EXPECT_FALSE(folder->moveSelf(target.get()));
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Error opening/creating fixed metadata file in " + dir_.join("b/a"));
  EXPECT_TRUE(pathExists(dir_.join("b/a")));
  EXPECT_EQ(folder->getPath().toStdString(), dir_.join("b/a"));
}

TEST(MoveSelfAccess, AMoveIntoAFolderTheUserCannotWriteIsAccessDenied) {
  // Root ignores permission bits: the move runs as an unprivileged user, who
  // owns the folder to move but not the target.
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::makeDirs(dir.join("vault/target"));
  qztest::makeDirs(dir.join("vault/mine"));
  ASSERT_EQ(chmod(dir.join("vault").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.join("vault/target").c_str(), 0755), 0);
  ASSERT_EQ(chown(dir.join("vault/mine").c_str(), qztest::kNobodyId, qztest::kNobodyId), 0);
  const std::string expected =
      "Access denied moving " + dir.join("vault/mine") + " to " + dir.join("vault/target");
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.join("vault"));
    auto folder = makeFolder(vault.get(), dir.join("vault/mine"));
    auto target = makeFolder(vault.get(), dir.join("vault/target"));
    if (folder->moveSelf(target.get())) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 5)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(pathExists(dir.join("vault/mine")));
}

// ---------------------------------------------------------------------------
// deleteSelf

TEST_F(ChangesTest, DeleteSelfRemovesAFolderThatHoldsOnlyVaultFilesAndDirectories) {
  auto folder = subFolder("empty");
  const std::string path = dir_.join("empty");
  qztest::fixedDb(vault_.get(), path);
  qztest::writeFile(path + "/.v_cmd", "cache");
  qztest::writeFile(path + "/.v_lck", "lock");
  qztest::makeDirs(path + "/.v_ver");
  qztest::makeDirs(path + "/.v_other");
  qztest::writeFile(path + "/.v_other/scratch", "x");
  LogCapture log;
  ASSERT_TRUE(folder->deleteSelf()) << folder->getErrorMessage().asCstr();
  EXPECT_FALSE(pathExists(path));
  EXPECT_TRUE(log.contains(trace("Entering", "deleteSelf", path), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("Exiting", "deleteSelf", path), 1)) << log.dump();
  // The folder object stays usable until it is released.
  EXPECT_EQ(folder->getPath().toStdString(), path);
}

TEST_F(ChangesTest, DeleteSelfOfAFolderWithAnOrdinaryFileDeletesNothing) {
  auto folder = subFolder("full");
  const std::string path = dir_.join("full");
  qztest::fixedDb(vault_.get(), path);
  qztest::makeDirs(path + "/.v_ver");
  qztest::writeFile(path + "/.v_ver/job.1", "one");
  qztest::writeFile(path + "/report.txt", "keep me");
  LogCapture log;
  EXPECT_FALSE(folder->deleteSelf());
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "Can't delete a non-empty folder");
  EXPECT_TRUE(log.contains("Can't delete a non-empty folder", 5)) << log.dump();
  EXPECT_TRUE(pathExists(fmdOf(path)));
  EXPECT_TRUE(pathExists(path + "/.v_ver/job.1"));
  EXPECT_EQ(qztest::readFile(path + "/report.txt"), "keep me");
}

TEST_F(ChangesTest, DeleteSelfOfAFolderWithASubFolderDeletesNothing) {
  auto folder = subFolder("parent/child");
  auto parent = makeFolder(vault_.get(), dir_.join("parent"));
  qztest::fixedDb(vault_.get(), dir_.join("parent"));
  EXPECT_FALSE(parent->deleteSelf());
  EXPECT_EQ(parent->getErrorMessage().toStdString(), "Can't delete a non-empty folder");
  EXPECT_TRUE(pathExists(fmdOf(dir_.join("parent"))));
  EXPECT_TRUE(pathExists(dir_.join("parent/child")));
}

TEST_F(ChangesTest, DeleteSelfOfAMissingFolderFailsWithTheListingsText) {
  auto folder = makeFolder(vault_.get(), dir_.join("gone"));
  LogCapture log;
  EXPECT_FALSE(folder->deleteSelf());
  const std::string expected = "Directory " + dir_.join("gone") + " not found";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

TEST_F(ChangesTest, DeleteSelfKeepsAFolderWhoseVersionsOutliveTheirObjects) {
  auto folder = subFolder("empty");
  const std::string path = dir_.join("empty");
  qztest::fixedDb(vault_.get(), path);
  qztest::makeDirs(path + "/.v_ver");
  qztest::writeFile(path + "/.v_ver/job.1", "one");
  LogCapture log;
  EXPECT_FALSE(folder->deleteSelf());
  const std::string expected = "Can't delete a folder that still keeps files in " + path +
                               "/.v_ver (versions of objects that are gone, or files the vault "
                               "check set aside)";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(qztest::readFile(path + "/.v_ver/job.1"), "one");
  EXPECT_TRUE(pathExists(fmdOf(path)));
}

// Deletions refused by the file system, as an unprivileged user in folders
// owned by root (root ignores permission bits).
class DeleteRefusedTest : public ::testing::Test {
 protected:
  DeleteRefusedTest() {
    qztest::makeReachable(dir_.path());
    qztest::makeDirs(dir_.join("vault/doomed"));
    EXPECT_EQ(chmod(dir_.join("vault").c_str(), 0755), 0);
    EXPECT_EQ(chmod(dir_.join("vault/doomed").c_str(), 0755), 0);
  }
  // Runs deleteSelf on "vault/doomed" as nobody; 0 when it failed with
  // `expected`, logged at level 5.
  int deleteAsNobody(const std::string& expected) {
    return qztest::runAsNobody([&]() -> int {
      LogCapture log;
      ScopedVault vault(dir_.join("vault"));
      auto folder = makeFolder(vault.get(), dir_.join("vault/doomed"));
      if (folder->deleteSelf()) return 1;
      if (folder->getErrorMessage().toStdString() != expected) return 2;
      if (!log.contains(expected, 5)) return 3;
      return 0;
    });
  }
  TempDir dir_;
};

TEST_F(DeleteRefusedTest, AVaultFileThatCannotBeDeleted) {
  qztest::writeFile(dir_.join("vault/doomed/.v_fmd"), "x");
  EXPECT_EQ(deleteAsNobody("Error deleting file " + dir_.join("vault/doomed/.v_fmd") + " (4)"), 0);
  EXPECT_TRUE(pathExists(dir_.join("vault/doomed/.v_fmd")));
}

TEST_F(DeleteRefusedTest, AFileInAVaultDirectoryNamesTheDirectory) {
  // Not the versions directory: a folder whose versions outlive their objects
  // is kept before anything is tried.
  qztest::makeDirs(dir_.join("vault/doomed/.v_other"));
  ASSERT_EQ(chmod(dir_.join("vault/doomed/.v_other").c_str(), 0755), 0);
  qztest::writeFile(dir_.join("vault/doomed/.v_other/job.1"), "x");
  EXPECT_EQ(deleteAsNobody("Error deleting file " + dir_.join("vault/doomed/.v_other") + " (4)"),
            0);
  EXPECT_TRUE(pathExists(dir_.join("vault/doomed/.v_other/job.1")));
}

TEST_F(DeleteRefusedTest, AVaultDirectoryThatCannotBeRemoved) {
  qztest::makeDirs(dir_.join("vault/doomed/.v_ver"));
  EXPECT_EQ(deleteAsNobody("Error removing dir " + dir_.join("vault/doomed/.v_ver") + " (4)"), 0);
  EXPECT_TRUE(pathExists(dir_.join("vault/doomed/.v_ver")));
}

TEST_F(DeleteRefusedTest, TheFolderThatCannotBeRemoved) {
  // The folder is the user's and empty, its parent is not the user's.
  ASSERT_EQ(chown(dir_.join("vault/doomed").c_str(), qztest::kNobodyId, qztest::kNobodyId), 0);
  EXPECT_EQ(deleteAsNobody("Error removing dir " + dir_.join("vault/doomed") + " (4)"), 0);
  EXPECT_TRUE(pathExists(dir_.join("vault/doomed")));
}

// ---------------------------------------------------------------------------
// Object creation and the folder's stamps

TEST_F(ChangesTest, CreateObjectLeavesTheFoldersStampsButCreateObjectFromFileStampsIt) {
  {
    ScopedClock clock(1600000000);
    ASSERT_TRUE(root_->setModifiedByUser(S("x")));
  }
  qztest::execute(fmdOf(dir_.path()),
                  "UPDATE v_attr SET v0 = 'someone else' WHERE attr = '_MODIFIEDUSER'");
  {
    ScopedClock clock(1700000000);
    auto object = own(root_->createObject(S("new.txt"), S("New object")));
    ASSERT_NE(object, nullptr) << root_->getErrorMessage().asCstr();
  }
  EXPECT_EQ(folderStamp(dir_.path(), "_MODIFIEDDATE"), (Rows{{"0", "1600000000"}}));
  EXPECT_EQ(folderStamp(dir_.path(), "_MODIFIEDUSER"), (Rows{{"0", "someone else"}}));

  qztest::writeFile(dir_.join("adopted.txt"), "written by the caller");
  {
    ScopedClock clock(1700000500);
    auto object = own(root_->createObjectFromFile(S("adopted.txt"), S("Adopted")));
    ASSERT_NE(object, nullptr) << root_->getErrorMessage().asCstr();
  }
  EXPECT_EQ(folderStamp(dir_.path(), "_MODIFIEDDATE"), (Rows{{"0", "1700000500"}}));
  EXPECT_EQ(folderStamp(dir_.path(), "_MODIFIEDUSER"), (Rows{{"0", processUser()}}));
}

}  // namespace
