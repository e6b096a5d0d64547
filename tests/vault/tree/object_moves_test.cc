// Renaming an object's file (fileRename), moving it into another folder
// (moveSelf) and deleting it (deleteSelf): the file, its ".v_fmd" rows and its
// version files stay consistent, and the file step is undone when the
// metadata step fails. Also the two version-path helpers.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "object_impl.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::Owned;
using qztest::pathExists;
using qztest::readFile;
using qztest::Rows;
using qztest::S;

using Names = std::vector<std::string>;

// ---------------------------------------------------------------------------
// Version-path helpers

TEST(VersionPaths, ARenamedVersionKeepsItsNumber) {
  EXPECT_EQ(replVerFile(S("/v/.v_ver/plan.txt.3"), S("budget.csv")).toStdString(),
            "/v/.v_ver/budget.csv.3");
  EXPECT_EQ(replVerFile(S("/v/.v_ver/plan.txt.12"), S("x")).toStdString(), "/v/.v_ver/x.12");
}

TEST(VersionPaths, OnlyNumberedVersionFilesAreRenamed) {
  EXPECT_TRUE(replVerFile(S("/v/.v_ver/plan.txt"), S("budget.csv")).isNull());
  EXPECT_TRUE(replVerFile(S("/v/.v_ver/plan"), S("budget.csv")).isNull());
  EXPECT_TRUE(replVerFile(S("plan.txt.3"), S("budget.csv")).isNull());  // no directory
  EXPECT_TRUE(replVerFile(QzbString(), S("budget.csv")).isNull());
  // The extension need only begin with a digit.
  EXPECT_EQ(replVerFile(S("/v/.v_ver/plan.txt.3b"), S("x")).toStdString(), "/v/.v_ver/x.3b");
}

TEST(VersionPaths, AMovedVersionKeepsItsName) {
  EXPECT_EQ(replVerPath(S("/v/a/.v_ver/plan.txt.3"), S("/v/b/.v_ver")).toStdString(),
            "/v/b/.v_ver/plan.txt.3");
  EXPECT_TRUE(replVerPath(S("plan.txt.3"), S("/v/b/.v_ver")).isNull());
  EXPECT_TRUE(replVerPath(QzbString(), S("/v/b/.v_ver")).isNull());
}

// ---------------------------------------------------------------------------
// fileRename

class ObjectFileRename : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    add("budget.txt", "numbers");
    addNameRow("budget.txt", "Budget");
    addAttrRow("budget.txt", "_MODIFIEDUSER", 0, "somebody else");
    addAttrRow("budget.txt", "Owner", 0, "finance");
    addAttrRow("budget.txt", "Owner", 1, "audit");
    db_ = fmd();
  }
  std::string db_;
};

TEST_F(ObjectFileRename, TheFileAndItsRowsTakeTheNewNameAndTheModifierIsStamped) {
  auto object = open("budget.txt");
  ASSERT_TRUE(object->fileRename(S("plan.txt"))) << object->getErrorMessage().asCstr();
  EXPECT_FALSE(pathExists(dir_.join("budget.txt")));
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "numbers");
  EXPECT_EQ(object->getFileName(true).toStdString(), "plan.txt");
  EXPECT_EQ(object->getFileName(false).toStdString(), dir_.join("plan.txt"));
  EXPECT_EQ(object->getName().toStdString(), "Budget");
  EXPECT_EQ(nameRows(db_, "plan.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_TRUE(nameRows(db_, "budget.txt").empty());
  EXPECT_EQ(attrRows(db_, "plan.txt"),
            (Rows{{Cell("Owner"), Cell("0"), Cell("finance")},
                  {Cell("Owner"), Cell("1"), Cell("audit")},
                  {Cell("_MODIFIEDUSER"), Cell("0"), Cell(qztest::currentUser())}}));
  EXPECT_TRUE(attrRows(db_, "budget.txt").empty());
}

TEST_F(ObjectFileRename, AChangeOfLetterCaseIsNotedAndSkipsTheExistenceTest) {
  // Where the file system ignores case both names are one file, which always
  // "exists"; so the existence test is skipped, here too.
  add("Budget.TXT", "another file under the new name");
  auto object = open("budget.txt");
  LogCapture log;
  ASSERT_TRUE(object->fileRename(S("Budget.TXT"))) << object->getErrorMessage().asCstr();
  EXPECT_TRUE(log.contains("Case change in name of file: budget.txt , to Budget.TXT", 2))
      << log.dump();
  EXPECT_EQ(readFile(dir_.join("Budget.TXT")), "numbers");
  EXPECT_EQ(nameRows(db_, "Budget.TXT"), (Rows{{Cell("Budget")}}));
}

TEST_F(ObjectFileRename, RenamingOntoAnExistingNameFailsBeforeAnythingChanges) {
  add("plan.txt", "other");
  auto object = open("budget.txt");
  LogCapture log;
  EXPECT_FALSE(object->fileRename(S("plan.txt")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "A file by that name already exists");
  EXPECT_TRUE(log.contains("A file by that name already exists", 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "other");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
  // Not even the impact store was touched.
  EXPECT_FALSE(pathExists(dir_.join(".v_imd")));
  EXPECT_EQ(object->getFileName(true).toStdString(), "budget.txt");
}

TEST_F(ObjectFileRename, ANameThatIsNoFileNameOfTheFolderIsRefused) {
  auto object = open("budget.txt");
  const struct {
    const char* name;
    const char* reason;
  } cases[] = {{"", "it is empty"},
               {"..", "it names a directory, not a file"},
               {"/", "a file name is one name of the folder, without a separator"},
               {"missing/plan.txt", "a file name is one name of the folder, without a separator"}};
  for (const auto& c : cases) {
    LogCapture log;
    EXPECT_FALSE(object->fileRename(S(c.name))) << c.name;
    const std::string expected =
        std::string("Invalid file name \"") + c.name + "\": " + c.reason;
    EXPECT_EQ(object->getErrorMessage().toStdString(), expected);
    EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  }
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

TEST_F(ObjectFileRename, AFailedFileRenameGivesThePlatformsReason) {
  // The file is renamed by a rename that never replaces another file; it
  // fails here by the fault-injecting platform.
  auto object = open("budget.txt");
  LogCapture log;
  {
    qztest::FaultPlatform faults;
    faults.failCall(qztest::NpOp::kFioRenameNoReplace, 1, NP_ERR_IO);
    EXPECT_FALSE(object->fileRename(S("plan.txt")));
  }
  const std::string message = "Rename file " + dir_.join("budget.txt") + ": Input/output error";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

// Each of the three updates refused in turn (by a trigger): the transaction
// is rolled back and the file goes back under its old name.
TEST_F(ObjectFileRename, AFailedNameRowUpdateLeavesTheFileUnderItsOldName) {
  qztest::execute(db_, "CREATE TRIGGER t BEFORE UPDATE ON v_object BEGIN SELECT RAISE(ABORT, 'no'); END");
  auto object = open("budget.txt");
  LogCapture log;
  EXPECT_FALSE(object->fileRename(S("plan.txt")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Fix filename references in metadata failed");
  EXPECT_TRUE(log.contains("Fix filename references in metadata failed", 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_FALSE(pathExists(dir_.join("plan.txt")));
  EXPECT_EQ(object->getFileName(true).toStdString(), "budget.txt");
}

TEST_F(ObjectFileRename, AFailedAttributeUpdateRollsBackTheNameRowToo) {
  qztest::execute(db_, "CREATE TRIGGER t BEFORE UPDATE OF fname ON v_attr "
                       "BEGIN SELECT RAISE(ABORT, 'no'); END");
  auto object = open("budget.txt");
  EXPECT_FALSE(object->fileRename(S("plan.txt")));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Fix filename references in attribute metadata failed");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_TRUE(nameRows(db_, "plan.txt").empty());
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

TEST_F(ObjectFileRename, AFailedModifierStampRollsBackEverything) {
  qztest::execute(db_, "CREATE TRIGGER t BEFORE UPDATE OF v0 ON v_attr "
                       "BEGIN SELECT RAISE(ABORT, 'no'); END");
  auto object = open("budget.txt");
  EXPECT_FALSE(object->fileRename(S("plan.txt")));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Fix modified by user references in attribute metadata failed");
  EXPECT_EQ(attrRows(db_, "budget.txt").size(), 3u);
  EXPECT_TRUE(attrRows(db_, "plan.txt").empty());
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

// Root ignores permission bits: the child runs as nobody in a folder it may
// write, over a ".v_fmd" that only root may write.
TEST_F(ObjectFileRename, AReadOnlyMetadataFileLeavesTheFileUnderItsOldName) {
  auto object = open("budget.txt");
  ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(db_.c_str(), 0444), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    if (object->fileRename(S("plan.txt"))) return 10;
    if (object->getErrorMessage().toStdString() != "Data file is read only") return 11;
    if (!pathExists(dir_.join("budget.txt")) || pathExists(dir_.join("plan.txt"))) return 12;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

TEST_F(ObjectFileRename, VersionsFollowTheFileWithTheirNumbers) {
  for (int number = 1; number <= 3; ++number) {
    writeVersion("budget.txt", number, "v" + std::to_string(number));
  }
  writeVersion("other.txt", 1, "not ours");
  auto object = open("budget.txt");
  ASSERT_TRUE(object->fileRename(S("plan.txt"))) << object->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::listDirectory(versionDir()),
            (Names{"other.txt.1", "plan.txt.1", "plan.txt.2", "plan.txt.3"}));
  EXPECT_EQ(readFile(version("plan.txt", 2)), "v2");
  EXPECT_EQ(object->getHighestVersion(), 3);
}

TEST_F(ObjectFileRename, VersionsAroundAGapFollowToo) {
  writeVersion("budget.txt", 1, "v1");
  writeVersion("budget.txt", 3, "v3");
  auto object = open("budget.txt");
  ASSERT_TRUE(object->fileRename(S("plan.txt")));
  EXPECT_EQ(qztest::listDirectory(versionDir()), (Names{"plan.txt.1", "plan.txt.3"}));
}

// ---------------------------------------------------------------------------
// moveSelf

class ObjectMove : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    qztest::makeDirs(dir_.join("archive"));
    add("budget.txt", "numbers");
    source_ = fmd();
    target_ = fmdOf(dir_.join("archive"));
  }
  Owned<QzvFolderImpl> folder(const std::string& path) {
    Owned<QzvFolderImpl> result(new QzvFolderImpl());
    result->init(S(path), QzbString(), vault_.get());
    return result;
  }
  Rows allColumns(const std::string& database, const std::string& fileName) {
    return qztest::query(database,
                         "SELECT attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr "
                         "WHERE fname = " + qztest::sqlText(fileName) + " ORDER BY attr, seq");
  }
  std::string moved() const { return dir_.join("archive/budget.txt"); }

  std::string source_;
  std::string target_;
};

TEST_F(ObjectMove, EveryRowWithAllItsColumnsMovesAndTheSourceIsCleared) {
  addNameRow("budget.txt", "Budget");
  qztest::execute(source_,
                  "INSERT INTO v_attr VALUES ('budget.txt', 'Grid', 0, 'a0','a1','a2','a3','a4',"
                  "'a5','a6','a7','a8','a9'); "
                  "INSERT INTO v_attr VALUES ('budget.txt', 'Grid', 1, 'b0',NULL,'b2',NULL,'b4',"
                  "NULL,'b6',NULL,'b8','b9'); "
                  "INSERT INTO v_attr VALUES ('budget.txt', 'Grid', 7, '', '', NULL, NULL, NULL,"
                  "NULL, NULL, NULL, NULL, 'last');");
  addAttrRow("other.txt", "Owner", 0, "stays");
  const Rows before = allColumns(source_, "budget.txt");
  ASSERT_EQ(before.size(), 3u);
  auto object = open("budget.txt");
  auto destination = folder(dir_.join("archive"));
  ASSERT_TRUE(object->moveSelf(destination.get())) << object->getErrorMessage().asCstr();

  EXPECT_FALSE(pathExists(dir_.join("budget.txt")));
  EXPECT_EQ(readFile(moved()), "numbers");
  EXPECT_EQ(allColumns(target_, "budget.txt"), before);
  EXPECT_EQ(nameRows(target_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_TRUE(allColumns(source_, "budget.txt").empty());
  EXPECT_TRUE(nameRows(source_, "budget.txt").empty());
  EXPECT_EQ(attrRows(source_, "other.txt").size(), 1u);
  // The object now names the new file but still its old folder.
  EXPECT_EQ(object->getFileName(false).toStdString(), moved());
  EXPECT_EQ(object->getFileName(true).toStdString(), "budget.txt");
  EXPECT_EQ(object->folderPath().toStdString(), dir_.path());
  EXPECT_EQ(object->getName().toStdString(), "Budget");
}

TEST_F(ObjectMove, WithoutANameRowNoNameRowIsWritten) {
  addAttrRow("budget.txt", "Owner", 0, "finance");
  auto object = open("budget.txt");
  ASSERT_TRUE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_TRUE(nameRows(target_, "budget.txt").empty());
  EXPECT_EQ(attrRows(target_, "budget.txt"), (Rows{{Cell("Owner"), Cell("0"), Cell("finance")}}));
}

TEST_F(ObjectMove, AStaleNameRowInTheDestinationIsReplaced) {
  addNameRow("budget.txt", "Budget");
  qztest::execute(target_, "INSERT INTO v_object (fname, name) VALUES ('budget.txt', 'Old one')");
  auto object = open("budget.txt");
  ASSERT_TRUE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(nameRows(target_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

// The modifier row is matched by the display name, not the file name: it is
// updated only where the two are equal.
TEST_F(ObjectMove, TheModifierIsStampedOnlyWhereTheDisplayNameEqualsTheFileName) {
  addNameRow("budget.txt", "Budget");
  addAttrRow("budget.txt", "_MODIFIEDUSER", 0, "somebody else");
  auto named = open("budget.txt");
  ASSERT_TRUE(named->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(attrRows(target_, "budget.txt"),
            (Rows{{Cell("_MODIFIEDUSER"), Cell("0"), Cell("somebody else")}}));

  add("same.txt");
  addNameRow("same.txt", "same.txt");
  addAttrRow("same.txt", "_MODIFIEDUSER", 0, "somebody else");
  auto same = open("same.txt");
  ASSERT_TRUE(same->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(attrRows(target_, "same.txt"),
            (Rows{{Cell("_MODIFIEDUSER"), Cell("0"), Cell(qztest::currentUser())}}));

  add("plain.txt");
  addAttrRow("plain.txt", "_MODIFIEDUSER", 0, "somebody else");
  auto plain = open("plain.txt");
  ASSERT_TRUE(plain->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(attrRows(target_, "plain.txt"),
            (Rows{{Cell("_MODIFIEDUSER"), Cell("0"), Cell("somebody else")}}));
}

TEST_F(ObjectMove, VersionsMoveIntoTheDestinationsVersionDirectoryWhichIsCreated) {
  for (int number = 1; number <= 3; ++number) {
    writeVersion("budget.txt", number, "v" + std::to_string(number));
  }
  writeVersion("other.txt", 1, "not ours");
  auto object = open("budget.txt");
  ASSERT_FALSE(pathExists(dir_.join("archive/.v_ver")));
  ASSERT_TRUE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(qztest::listDirectory(dir_.join("archive/.v_ver")),
            (Names{"budget.txt.1", "budget.txt.2", "budget.txt.3"}));
  EXPECT_EQ(readFile(dir_.join("archive/.v_ver/budget.txt.3")), "v3");
  EXPECT_EQ(qztest::listDirectory(versionDir()), (Names{"other.txt.1"}));
}

TEST_F(ObjectMove, WithoutVersionsNoVersionDirectoryIsMade) {
  auto object = open("budget.txt");
  ASSERT_TRUE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_FALSE(pathExists(dir_.join("archive/.v_ver")));
}

TEST_F(ObjectMove, AMissingDestinationIsRefused) {
  auto object = open("budget.txt");
  auto gone = folder(dir_.join("gone"));
  for (const QzvFolder* destination : {static_cast<const QzvFolder*>(gone.get()),
                                       static_cast<const QzvFolder*>(nullptr)}) {
    LogCapture log;
    EXPECT_FALSE(object->moveSelf(destination));
    EXPECT_EQ(object->getErrorMessage().toStdString(),
              "Destination directory does not exists, or is not accessible");
    EXPECT_TRUE(log.contains("Destination directory does not exists, or is not accessible", 5));
  }
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

TEST_F(ObjectMove, ADeletedObjectHasNoPathToMoveTo) {
  auto object = open("budget.txt");
  ASSERT_TRUE(object->deleteSelf());
  LogCapture log;
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Failed to build path for move");
  EXPECT_TRUE(log.contains("Failed to build path for move", 5)) << log.dump();
  EXPECT_TRUE(qztest::listDirectory(dir_.join("archive")) == Names{".v_fmd"});
}

TEST_F(ObjectMove, MovingOntoAnExistingNameFailsBeforeAnythingChanges) {
  addNameRow("budget.txt", "Budget");
  qztest::writeFile(moved(), "already there");
  auto object = open("budget.txt");
  LogCapture log;
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "A file by that name already exists");
  EXPECT_TRUE(log.contains("A file by that name already exists", 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_EQ(readFile(moved()), "already there");
  EXPECT_EQ(nameRows(source_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_FALSE(pathExists(dir_.join(".v_imd")));
}

TEST_F(ObjectMove, MovingIntoItsOwnFolderFindsItself) {
  auto object = open("budget.txt");
  EXPECT_FALSE(object->moveSelf(folder(dir_.path()).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "A file by that name already exists");
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

TEST_F(ObjectMove, AFailedCopyIsRolledBackAndTheFileReturns) {
  addNameRow("budget.txt", "Budget");
  addAttrRow("budget.txt", "Owner", 0, "finance");
  qztest::execute(target_, "CREATE TRIGGER t BEFORE INSERT ON v_attr "
                           "BEGIN SELECT RAISE(ABORT, 'attributes refused'); END");
  auto object = open("budget.txt");
  LogCapture log;
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "attributes refused");
  EXPECT_TRUE(log.contains("attributes refused", 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_FALSE(pathExists(moved()));
  // The name row written before the failure was rolled back; the source kept
  // everything.
  EXPECT_TRUE(nameRows(target_, "budget.txt").empty());
  EXPECT_EQ(nameRows(source_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_EQ(attrRows(source_, "budget.txt").size(), 1u);
  EXPECT_EQ(object->getFileName(false).toStdString(), dir_.join("budget.txt"));
}

TEST_F(ObjectMove, AFailedModifierStampIsRolledBack) {
  addNameRow("budget.txt", "budget.txt");
  addAttrRow("budget.txt", "_MODIFIEDUSER", 0, "somebody else");
  qztest::execute(target_, "CREATE TRIGGER t BEFORE UPDATE OF v0 ON v_attr "
                           "BEGIN SELECT RAISE(ABORT, 'no'); END");
  auto object = open("budget.txt");
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Fix modified by user references in attribute metadata failed");
  EXPECT_TRUE(attrRows(target_, "budget.txt").empty());
  EXPECT_EQ(attrRows(source_, "budget.txt").size(), 1u);
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

TEST_F(ObjectMove, ASourceThatCannotBeReadLeavesTheFileWhereItWas) {
  auto object = open("budget.txt");
  qztest::execute(source_, "DROP TABLE v_object");
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "no such table: v_object");
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_FALSE(pathExists(moved()));
}

TEST_F(ObjectMove, ADestinationDatabaseThatIsNoDatabaseLeavesTheFileWhereItWas) {
  auto object = open("budget.txt");
  qztest::writeFile(target_, std::string(4096, 'x'));
  EXPECT_FALSE(object->moveSelf(folder(dir_.join("archive")).get()));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Error opening " + target_ + ": file is not a database");
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

// Root ignores permission bits: as nobody, with both folders writable and the
// destination's ".v_fmd" writable by root only.
TEST_F(ObjectMove, AReadOnlyDestinationDatabaseLeavesTheFileWhereItWas) {
  addNameRow("budget.txt", "Budget");
  auto object = open("budget.txt");
  auto destination = folder(dir_.join("archive"));
  ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir_.join("archive").c_str(), 0777), 0);
  ASSERT_EQ(chmod(source_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(target_.c_str(), 0444), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    if (object->moveSelf(destination.get())) return 10;
    if (object->getErrorMessage().toStdString() != "Data file is read only") return 11;
    if (!pathExists(dir_.join("budget.txt")) || pathExists(moved())) return 12;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(nameRows(source_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

// ---------------------------------------------------------------------------
// deleteSelf

class ObjectDelete : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    add("budget.txt", "numbers");
    addNameRow("budget.txt", "Budget");
    addAttrRow("budget.txt", "Owner", 0, "finance");
    addAttrRow("other.txt", "Owner", 0, "stays");
    db_ = fmd();
  }
  std::string db_;
};

TEST_F(ObjectDelete, TheFileItsRowsAndItsVersionsGo) {
  for (int number = 1; number <= 3; ++number) {
    writeVersion("budget.txt", number, "v");
  }
  writeVersion("other.txt", 1, "not ours");
  auto object = open("budget.txt");
  ASSERT_TRUE(object->deleteSelf()) << object->getErrorMessage().asCstr();
  EXPECT_FALSE(pathExists(dir_.join("budget.txt")));
  EXPECT_TRUE(nameRows(db_, "budget.txt").empty());
  EXPECT_TRUE(attrRows(db_, "budget.txt").empty());
  EXPECT_EQ(attrRows(db_, "other.txt").size(), 1u);
  EXPECT_EQ(qztest::listDirectory(versionDir()), (Names{"other.txt.1"}));
  // A deleted object has no names any more.
  EXPECT_TRUE(object->getName().isNull());
  EXPECT_TRUE(object->getFileName(true).isNull());
  EXPECT_TRUE(object->getFileName(false).isNull());
  EXPECT_TRUE(object->folderPath().isNull());
}

TEST_F(ObjectDelete, SucceedsWhenTheFileIsGoneEvenIfTheMetadataWasRolledBack) {
  qztest::execute(db_, "CREATE TRIGGER t BEFORE DELETE ON v_object "
                       "BEGIN SELECT RAISE(ABORT, 'names stay'); END");
  auto object = open("budget.txt");
  LogCapture log;
  ASSERT_TRUE(object->deleteSelf());
  EXPECT_TRUE(log.contains("names stay", 5)) << log.dump();
  EXPECT_FALSE(pathExists(dir_.join("budget.txt")));
  // Both deletes were rolled back together.
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_EQ(attrRows(db_, "budget.txt").size(), 1u);
}

TEST_F(ObjectDelete, BothDeletesAreTriedAndReportedBeforeTheRollback) {
  qztest::execute(db_, "CREATE TRIGGER t1 BEFORE DELETE ON v_attr "
                       "BEGIN SELECT RAISE(ABORT, 'attributes stay'); END; "
                       "CREATE TRIGGER t2 BEFORE DELETE ON v_object "
                       "BEGIN SELECT RAISE(ABORT, 'names stay'); END");
  auto object = open("budget.txt");
  LogCapture log;
  ASSERT_TRUE(object->deleteSelf());
  EXPECT_TRUE(log.contains("attributes stay", 5)) << log.dump();
  EXPECT_TRUE(log.contains("names stay", 5)) << log.dump();
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

TEST_F(ObjectDelete, AnAlreadyDeletedFileStillClearsItsMetadata) {
  auto object = open("budget.txt");
  qztest::removeTree(dir_.join("budget.txt"));
  ASSERT_TRUE(object->deleteSelf()) << object->getErrorMessage().asCstr();
  EXPECT_TRUE(nameRows(db_, "budget.txt").empty());
  EXPECT_TRUE(attrRows(db_, "budget.txt").empty());
}

TEST_F(ObjectDelete, ASecondDeleteOfTheSameObjectFailsCleanly) {
  auto object = open("budget.txt");
  ASSERT_TRUE(object->deleteSelf());
  // Its folder path is gone, so its metadata database cannot be named.
  EXPECT_FALSE(object->deleteSelf());
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Error building path for  and .v_fmd");
  EXPECT_EQ(attrRows(db_, "other.txt").size(), 1u);
}

TEST_F(ObjectDelete, AMetadataFileThatIsNoDatabaseKeepsTheFile) {
  auto object = open("budget.txt");
  qztest::writeFile(db_, std::string(4096, 'x'));
  LogCapture log;
  EXPECT_FALSE(object->deleteSelf());
  const std::string message = "Error opening " + db_ + ": file is not a database";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
}

// Root ignores permission bits: the deletes below run as nobody.
TEST_F(ObjectDelete, AReadOnlyFileInAWritableFolderIsDeleted) {
  // Deleting is a change of the folder, not of the file.
  ASSERT_EQ(chmod(dir_.path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(db_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir_.join("budget.txt").c_str(), 0444), 0);
  auto object = open("budget.txt");
  const int status = qztest::runAsNobody([&]() -> int {
    if (!object->deleteSelf()) {
      std::fprintf(stderr, "%s\n", object->getErrorMessage().asCstr());
      return 10;
    }
    return pathExists(dir_.join("budget.txt")) ? 11 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(nameRows(db_, "budget.txt").empty());
}

TEST_F(ObjectDelete, AFileInAReadOnlyFolderIsKept) {
  ASSERT_EQ(chmod(dir_.join("budget.txt").c_str(), 0444), 0);
  qztest::makeReachable(dir_.path());
  auto object = open("budget.txt");
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    if (object->deleteSelf()) return 10;
    if (object->getErrorMessage().toStdString() != "Data file is read only") return 11;
    if (!log.contains("Data file is read only", 5)) return 12;
    return pathExists(dir_.join("budget.txt")) ? 0 : 13;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(readFile(dir_.join("budget.txt")), "numbers");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

}  // namespace
