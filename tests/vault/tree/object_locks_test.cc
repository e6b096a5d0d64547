// An object's advisory lock ("_LOCKEDUSER" in ".v_fmd"), the read-only file
// that an unlock leaves, and the modifying-user stamp.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::Rows;
using qztest::S;

bool isWritableByAnyone(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return false;
  return (st.st_mode & 0222) != 0;
}

class ObjectLocks : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    add("plan.txt");
    db_ = fmd();
  }
  Rows lockRows() {
    return qztest::query(db_, "SELECT seq, v0 FROM v_attr WHERE fname = 'plan.txt' AND "
                              "attr = '_LOCKEDUSER'");
  }
  std::string db_;
};

TEST_F(ObjectLocks, ALockIsReportedAndRecordsTheCurrentUser) {
  auto object = open("plan.txt");
  bool locked = true;
  ASSERT_TRUE(object->getLockedStatus(&locked)) << object->getErrorMessage().asCstr();
  EXPECT_FALSE(locked);

  ASSERT_TRUE(object->setLockedStatus(true)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(lockRows(), (Rows{{Cell("0"), Cell(qztest::currentUser())}}));
  ASSERT_TRUE(object->getLockedStatus(&locked));
  EXPECT_TRUE(locked);
  // Locking leaves the file's permissions alone.
  EXPECT_TRUE(isWritableByAnyone(dir_.join("plan.txt")));
}

TEST_F(ObjectLocks, UnlockRemovesTheLockAndMakesTheFileReadOnly) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  ASSERT_TRUE(object->setLockedStatus(false)) << object->getErrorMessage().asCstr();
  EXPECT_TRUE(lockRows().empty());
  EXPECT_FALSE(isWritableByAnyone(dir_.join("plan.txt")));
  bool locked = true;
  ASSERT_TRUE(object->getLockedStatus(&locked));
  EXPECT_FALSE(locked);
}

TEST_F(ObjectLocks, AnyUsersLockIsRemovedByUnlock) {
  addAttrRow("plan.txt", "_LOCKEDUSER", 0, "somebody else");
  auto object = open("plan.txt");
  bool locked = false;
  ASSERT_TRUE(object->getLockedStatus(&locked));
  EXPECT_TRUE(locked);
  ASSERT_TRUE(object->setLockedStatus(false));
  EXPECT_TRUE(lockRows().empty());
}

TEST_F(ObjectLocks, ALockRowWithoutAUserIsNoLock) {
  addAttrRow("plan.txt", "_LOCKEDUSER", 0, "");
  auto object = open("plan.txt");
  bool locked = true;
  ASSERT_TRUE(object->getLockedStatus(&locked));
  EXPECT_FALSE(locked);
}

TEST_F(ObjectLocks, ASecondLockIsAcceptedByTheTableAndOneUnlockEndsBoth) {
  // Nothing is checked before the insert; v_attr has no key that refuses a
  // second row.
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  ASSERT_TRUE(object->setLockedStatus(true)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(lockRows().size(), 2u);
  ASSERT_TRUE(object->setLockedStatus(false));
  EXPECT_TRUE(lockRows().empty());
}

TEST_F(ObjectLocks, ALockDoesNotStopOtherOperations) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  EXPECT_TRUE(object->renameSelf(S("Plan"))) << object->getErrorMessage().asCstr();
  EXPECT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
}

TEST_F(ObjectLocks, UnlockOfAVanishedFileReportsThePermissionChangeAndSucceeds) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  qztest::removeTree(dir_.join("plan.txt"));
  LogCapture log;
  EXPECT_TRUE(object->setLockedStatus(false));
  const std::string text = "File " + dir_.join("plan.txt") +
                           " error setting permissions on unlock: No such file or directory";
  EXPECT_TRUE(log.contains(text, 5)) << log.dump();
  EXPECT_TRUE(lockRows().empty());
}

TEST_F(ObjectLocks, AFailedLockWriteIsRolledBackWithTheDatabasesMessage) {
  qztest::execute(db_,
                  "CREATE TRIGGER refuse_lock BEFORE INSERT ON v_attr WHEN NEW.attr = '_LOCKEDUSER' "
                  "BEGIN SELECT RAISE(ABORT, 'locks refused'); END");
  auto object = open("plan.txt");
  LogCapture log;
  EXPECT_FALSE(object->setLockedStatus(true));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "locks refused");
  EXPECT_TRUE(log.contains("locks refused", 5)) << log.dump();
  EXPECT_TRUE(lockRows().empty());
  // The connection was left outside any transaction: the next write works.
  qztest::execute(db_, "DROP TRIGGER refuse_lock");
  EXPECT_TRUE(object->setLockedStatus(true)) << object->getErrorMessage().asCstr();
}

TEST_F(ObjectLocks, AFailedUnlockKeepsTheLockAndTheFileWritable) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  qztest::execute(db_,
                  "CREATE TRIGGER keep_lock BEFORE DELETE ON v_attr "
                  "BEGIN SELECT RAISE(ABORT, 'unlock refused'); END");
  EXPECT_FALSE(object->setLockedStatus(false));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "unlock refused");
  EXPECT_EQ(lockRows().size(), 1u);
  EXPECT_TRUE(isWritableByAnyone(dir_.join("plan.txt")));
}

TEST_F(ObjectLocks, AMetadataFileThatIsNoDatabaseFailsEveryLockOperation) {
  auto object = open("plan.txt");
  ASSERT_NE(object, nullptr);
  qztest::writeFile(db_, std::string(4096, 'x'));
  bool locked = true;
  EXPECT_FALSE(object->getLockedStatus(&locked));
  EXPECT_FALSE(locked);
  const std::string message = "Error opening " + db_ + ": file is not a database";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_FALSE(object->setLockedStatus(true));
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_FALSE(object->setLockedStatus(false));
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(isWritableByAnyone(dir_.join("plan.txt")));
}

// Root ignores permission bits: the read-only checks run in a child that has
// dropped to user nobody, over a folder and database that only root may
// write.
TEST_F(ObjectLocks, InAReadOnlyFolderNoLockCanBeSetClearedOrRead) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  qztest::makeReachable(dir_.path());
  const std::string readOnly = "File " + dir_.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    object->setErrorMessage(S("earlier text"));
    if (object->setLockedStatus(true)) return 10;
    if (object->getErrorMessage().toStdString() != "earlier text") return 11;
    if (!log.contains(readOnly, 2)) return 12;
    if (!log.contains("earlier text", 5)) return 13;  // the object's text, logged
    log.clear();
    if (object->setLockedStatus(false)) return 20;
    if (!log.contains(readOnly, 2)) return 21;
    if (log.contains("earlier text")) return 22;  // an unlock logs nothing more
    log.clear();
    bool locked = true;
    if (object->getLockedStatus(&locked)) return 30;
    if (locked) return 31;
    if (!log.contains(readOnly, 2)) return 32;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lockRows().size(), 1u);
  EXPECT_TRUE(isWritableByAnyone(dir_.join("plan.txt")));
}

TEST_F(ObjectLocks, TheModifierIsTheProcessUserWhateverNameIsGiven) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setModifiedByUser(S("somebody else"))) << object->getErrorMessage().asCstr();
  const std::string sql =
      "SELECT seq, v0 FROM v_attr WHERE fname = 'plan.txt' AND attr = '_MODIFIEDUSER'";
  EXPECT_EQ(qztest::query(db_, sql), (Rows{{Cell("0"), Cell(qztest::currentUser())}}));
  // A second stamp updates the one row.
  qztest::execute(db_, "UPDATE v_attr SET v0 = 'stale' WHERE attr = '_MODIFIEDUSER'");
  ASSERT_TRUE(object->setModifiedByUser(S("yet another")));
  EXPECT_EQ(qztest::query(db_, sql), (Rows{{Cell("0"), Cell(qztest::currentUser())}}));
}

TEST_F(ObjectLocks, TheModifierOfAVanishedFileIsNotStamped) {
  auto object = open("plan.txt");
  qztest::removeTree(dir_.join("plan.txt"));
  LogCapture log;
  EXPECT_FALSE(object->setModifiedByUser(S("anyone")));
  const std::string message = "File " + dir_.join("plan.txt") + " is not accessible";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST_F(ObjectLocks, TheModifierCannotBeStampedWithoutAMetadataDatabase) {
  auto object = open("plan.txt");
  qztest::writeFile(db_, std::string(4096, 'x'));
  LogCapture log;
  EXPECT_FALSE(object->setModifiedByUser(S("anyone")));
  const std::string message = "Error opening/creating fixed metadata file in " + dir_.path();
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

}  // namespace
