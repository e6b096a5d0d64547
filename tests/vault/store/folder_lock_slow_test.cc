// Folder lock files and the library's waits. Taking a lock that stays taken
// waits on purpose (three attempts, a second after each): durations are
// checked as lower bounds only.
#include "folder_lock.h"

#include <unistd.h>

#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

const char kVaultLogger[] = "QZ.Repos.Vault";

TEST(FolderLockTest, LockThenUnlockLeavesNoLockFile) {
  qztest::TempDir dir;
  const std::string lockFile = dir.join(".v_lck");
  QzviFolderLock* lock = qzviLockFolder(QzbString(dir.path().c_str()));
  ASSERT_NE(lock, nullptr);
  EXPECT_TRUE(qztest::pathExists(lockFile));
  // The lock file records its holder: this process, on this machine.
  const std::string record = qztest::readFile(lockFile);
  EXPECT_EQ(record.rfind("qzvault-lock 1\n", 0), 0u) << record;
  EXPECT_NE(record.find("\npid=" + std::to_string(getpid()) + "\n"), std::string::npos) << record;
  QzviLockHolder holder;
  EXPECT_EQ(qzviReadFolderLock(QzbString(dir.path().c_str()), &holder), QzviLockState::kLive);
  EXPECT_EQ(holder.processId, getpid());
  qzviUnlockFolder(lock);
  EXPECT_FALSE(qztest::pathExists(lockFile));
  // Free again: it can be taken at once.
  lock = qzviLockFolder(QzbString(dir.path().c_str()));
  ASSERT_NE(lock, nullptr);
  qzviUnlockFolder(lock);
  EXPECT_FALSE(qztest::pathExists(lockFile));
}

TEST(FolderLockTest, LockingATakenFolderFailsAfterThreeAttemptsAndAboutThreeSeconds) {
  qztest::TempDir dir;
  const std::string lockFile = dir.join(".v_lck");
  qztest::writeFile(lockFile, "");  // left by another process
  const auto start = Clock::now();
  EXPECT_EQ(qzviLockFolder(QzbString(dir.path().c_str())), nullptr);
  EXPECT_GE(secondsSince(start), 2.5);
  EXPECT_TRUE(qztest::pathExists(lockFile)) << "a lock file is never removed by a locker";
}

TEST(FolderLockTest, SecondLockBySameProcessFailsLikeAnyOther) {
  qztest::TempDir dir;
  QzviFolderLock* held = qzviLockFolder(QzbString(dir.path().c_str()));
  ASSERT_NE(held, nullptr);
  const auto start = Clock::now();
  EXPECT_EQ(qzviLockFolder(QzbString(dir.path().c_str())), nullptr);
  EXPECT_GE(secondsSince(start), 2.5);
  qzviUnlockFolder(held);
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLockTest, LockInAMissingFolderFailsAtOnceNamingTheReason) {
  qztest::TempDir dir;
  // Nobody holds it; the folder cannot hold a lock file at all, and waiting
  // would not change that.
  const auto start = Clock::now();
  QzbString whyNot;
  EXPECT_EQ(qzviLockFolder(QzbString(dir.join("missing").c_str()), &whyNot), nullptr);
  EXPECT_LT(secondsSince(start), 2.5);
  EXPECT_NE(whyNot.toStdString().find("cannot be locked"), std::string::npos) << whyNot.asCstr();
}

TEST(FolderLockTest, UnlockOfNullDoesNothing) {
  qzviUnlockFolder(nullptr);
  qztest::TempDir dir;
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLockTest, PathThatCannotBeBuiltIsLoggedAndNotLocked) {
  qztest::LogCapture log;
  const auto start = Clock::now();
  EXPECT_EQ(qzviLockFolder(QzbString()), nullptr);
  EXPECT_LT(secondsSince(start), 1.0) << "no attempt is made without a path";
  EXPECT_TRUE(log.contains("path build for lock file in  failed", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
}

TEST(FolderLockTest, IsFolderLockedWithoutLockFileIsFalse) {
  qztest::TempDir dir;
  EXPECT_FALSE(qzviIsFolderLocked(QzbString(dir.path().c_str())));
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLockTest, IsFolderLockedWithLockFileIsTrueAndRemovesTheFile) {
  qztest::TempDir dir;
  const std::string lockFile = dir.join(".v_lck");
  qztest::writeFile(lockFile, "");
  EXPECT_TRUE(qzviIsFolderLocked(QzbString(dir.path().c_str())));
  EXPECT_FALSE(qztest::pathExists(lockFile)) << "this file system lets the file be removed";
  // The file is gone, so a second call finds the folder free.
  EXPECT_FALSE(qzviIsFolderLocked(QzbString(dir.path().c_str())));
}

TEST(FolderLockTest, IsFolderLockedRemovesEvenAHeldLockAndStillSaysLocked) {
  qztest::TempDir dir;
  QzviFolderLock* held = qzviLockFolder(QzbString(dir.path().c_str()));
  ASSERT_NE(held, nullptr);
  EXPECT_TRUE(qzviIsFolderLocked(QzbString(dir.path().c_str())));
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
  // Releasing the handle after its file was removed is harmless.
  qzviUnlockFolder(held);
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLockTest, IsFolderLockedWhenTheFileCannotBeRemovedIsTrue) {
  // A directory named like the lock file cannot be removed as a file.
  qztest::TempDir dir;
  qztest::makeDirs(dir.join(".v_lck"));
  EXPECT_TRUE(qzviIsFolderLocked(QzbString(dir.path().c_str())));
  EXPECT_TRUE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLockTest, IsFolderLockedWithoutPathIsLoggedAndTrue) {
  qztest::LogCapture log;
  EXPECT_TRUE(qzviIsFolderLocked(QzbString()));
  EXPECT_TRUE(log.contains("path build for lock file in  failed", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
}

TEST(SleepSecsTest, ZeroWaitsOneMillisecond) {
  const auto start = Clock::now();
  qzviSleepSecs(0);
  EXPECT_GE(secondsSince(start), 0.001);
}

TEST(SleepSecsTest, OneWaitsOneSecond) {
  const auto start = Clock::now();
  qzviSleepSecs(1);
  EXPECT_GE(secondsSince(start), 0.99);
}

}  // namespace
