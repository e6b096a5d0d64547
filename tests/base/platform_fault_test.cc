// The fault-injecting platform of tests/support: it forwards, counts, fails
// exactly the armed call and restores the table it replaced.
#include <string>

#include <gtest/gtest.h>

#include "qzbase/lock.h"
#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using qztest::FaultPlatform;
using qztest::NpOp;

TEST(FaultPlatform, InstallsItsTableAndRestoresThePreviousOne) {
  const NpPlatformOps* before = npGetPlatformOps();
  EXPECT_EQ(npDefaultPlatformOps(), before);
  {
    FaultPlatform faults;
    EXPECT_EQ(faults.table(), npGetPlatformOps());
    EXPECT_NE(before, npGetPlatformOps());
  }
  EXPECT_EQ(before, npGetPlatformOps());
}

TEST(FaultPlatform, NestedObjectsRestoreInOrder) {
  FaultPlatform outer;
  {
    FaultPlatform inner;
    EXPECT_EQ(inner.table(), npGetPlatformOps());
    np_fio_stat("/", nullptr);
    EXPECT_EQ(1, inner.callCount(NpOp::kFioStat));
    EXPECT_EQ(0, outer.callCount(NpOp::kFioStat));
  }
  EXPECT_EQ(outer.table(), npGetPlatformOps());
  np_fio_stat("/", nullptr);
  EXPECT_EQ(1, outer.callCount(NpOp::kFioStat));
}

TEST(FaultPlatform, ForwardsToTheRealOperations) {
  qztest::TempDir dir;
  std::string file = dir.join("f");
  FaultPlatform faults;
  NpFile* handle = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(file.c_str(), NP_FIO_LOCKFILE, &handle));
  EXPECT_EQ(NP_OK, np_fio_close(handle));
  EXPECT_TRUE(qztest::pathExists(file));
  EXPECT_EQ(NP_OK, np_fio_rename(file.c_str(), dir.join("g").c_str()));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(file.c_str(), nullptr));
  EXPECT_EQ(NP_OK, np_fio_unlink(dir.join("g").c_str()));
  EXPECT_FALSE(qztest::pathExists(dir.join("g")));
  EXPECT_FALSE(faults.fired());
}

TEST(FaultPlatform, CountsEachKindSeparately) {
  qztest::TempDir dir;
  FaultPlatform faults;
  np_fio_stat(dir.path().c_str(), nullptr);
  np_fio_stat(dir.path().c_str(), nullptr);
  np_dir_create(dir.join("d").c_str(), NP_DIR_CREATE_ONE);
  NpDir* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dir_open(dir.path().c_str(), NP_DIR_LIST, &handle));
  char name[NP_PATH_MAX];
  while (np_dir_next(handle, name, sizeof name) == NP_OK) {
  }
  np_dir_close(handle);
  char user[256];
  np_osinf_user(user, sizeof user);
  np_time_now();

  EXPECT_EQ(2, faults.callCount(NpOp::kFioStat));
  EXPECT_EQ(1, faults.callCount(NpOp::kDirCreate));
  EXPECT_EQ(1, faults.callCount(NpOp::kDirOpen));
  EXPECT_EQ(2, faults.callCount(NpOp::kDirNext));  // the entry "d", then the end
  EXPECT_EQ(1, faults.callCount(NpOp::kDirClose));
  EXPECT_EQ(1, faults.callCount(NpOp::kOsinfUser));
  EXPECT_EQ(1, faults.callCount(NpOp::kTimeNow));
  EXPECT_EQ(0, faults.callCount(NpOp::kFioRename));
  EXPECT_EQ(9, faults.totalCalls());
  faults.resetCounts();
  EXPECT_EQ(0, faults.totalCalls());
}

TEST(FaultPlatform, FailsExactlyTheKthCallOfOneKind) {
  qztest::TempDir dir;
  std::string path = dir.path();
  FaultPlatform faults;
  np_fio_stat(path.c_str(), nullptr);  // earlier calls do not count towards k
  faults.failCall(NpOp::kFioStat, 3, NP_ERR_IO);
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
  EXPECT_FALSE(faults.fired());
  // Another kind in between is not affected and does not advance the count.
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_unlink(dir.join("none").c_str()));
  EXPECT_EQ(NP_ERR_IO, np_fio_stat(path.c_str(), nullptr));
  EXPECT_TRUE(faults.fired());
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(1, faults.failuresInjected(NpOp::kFioStat));
  EXPECT_EQ(0, faults.failuresInjected(NpOp::kFioUnlink));
  EXPECT_EQ(1, faults.failuresInjected());
  EXPECT_EQ(6, faults.callCount(NpOp::kFioStat));
}

TEST(FaultPlatform, FailsFromThenOn) {
  qztest::TempDir dir;
  std::string path = dir.path();
  FaultPlatform faults;
  faults.failCall(NpOp::kFioStat, 2, NP_ERR_ACCESS, FaultPlatform::Mode::kFromThenOn);
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(NP_ERR_ACCESS, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(NP_ERR_ACCESS, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(NP_ERR_ACCESS, np_fio_stat(path.c_str(), nullptr));
  EXPECT_EQ(3, faults.failuresInjected(NpOp::kFioStat));
  faults.clearFaults();
  EXPECT_EQ(NP_OK, np_fio_stat(path.c_str(), nullptr));
}

TEST(FaultPlatform, AFailedCallLeavesTheFileSystemAlone) {
  qztest::TempDir dir;
  std::string from = dir.join("a");
  std::string to = dir.join("b");
  qztest::writeFile(from, "x");
  FaultPlatform faults;
  faults.failCall(NpOp::kFioRename, 1, NP_ERR_CROSS_DEVICE);
  EXPECT_EQ(NP_ERR_CROSS_DEVICE, np_fio_rename(from.c_str(), to.c_str()));
  EXPECT_TRUE(qztest::pathExists(from));
  EXPECT_FALSE(qztest::pathExists(to));
  EXPECT_EQ(NP_OK, np_fio_rename(from.c_str(), to.c_str()));
  EXPECT_TRUE(qztest::pathExists(to));
}

TEST(FaultPlatform, FailedOpensGiveNullHandles) {
  qztest::TempDir dir;
  FaultPlatform faults;
  faults.failCall(NpOp::kFioOpen, 1, NP_ERR_NO_SPACE);
  faults.failCall(NpOp::kDirOpen, 1, NP_ERR_ACCESS);
  faults.failCall(NpOp::kDsoLoad, 1, NP_ERR_UNKNOWN);
  NpFile* file = reinterpret_cast<NpFile*>(&faults);
  EXPECT_EQ(NP_ERR_NO_SPACE, np_fio_open(dir.join("f").c_str(), NP_FIO_LOCKFILE, &file));
  EXPECT_EQ(nullptr, file);
  EXPECT_FALSE(qztest::pathExists(dir.join("f")));
  NpDir* directory = reinterpret_cast<NpDir*>(&faults);
  EXPECT_EQ(NP_ERR_ACCESS, np_dir_open(dir.path().c_str(), NP_DIR_LIST, &directory));
  EXPECT_EQ(nullptr, directory);
  NpDso* dso = reinterpret_cast<NpDso*>(&faults);
  EXPECT_EQ(NP_ERR_UNKNOWN, np_dso_load("libm.so.6", 4, &dso));
  EXPECT_EQ(nullptr, dso);
}

TEST(FaultPlatform, FailedReleasesStillRelease) {
  qztest::TempDir dir;
  FaultPlatform faults;
  NpFile* file = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("f").c_str(), NP_FIO_LOCKFILE, &file));
  faults.failCall(NpOp::kFioClose, 1, NP_ERR_IO);
  EXPECT_EQ(NP_ERR_IO, np_fio_close(file));  // the handle is freed all the same (ASan checks)

  // A failed unlock still unlocks: the non-recursive mutex can be taken again.
  void* mutex = npGetPlatformOps()->mutex_create(0, 0);
  ASSERT_NE(nullptr, mutex);
  ASSERT_EQ(NP_OK, npGetPlatformOps()->mutex_lock(mutex, 1));
  faults.failCall(NpOp::kMutexUnlock, 1, NP_ERR_BUSY);
  EXPECT_EQ(NP_ERR_BUSY, npGetPlatformOps()->mutex_unlock(mutex));
  EXPECT_EQ(NP_OK, npGetPlatformOps()->mutex_lock(mutex, 0));
  EXPECT_EQ(NP_OK, npGetPlatformOps()->mutex_unlock(mutex));
  npGetPlatformOps()->mutex_destroy(mutex);
  EXPECT_EQ(1, faults.callCount(NpOp::kMutexDestroy));
}

TEST(FaultPlatform, PointerAndClockEntriesFailTheirOwnWay) {
  FaultPlatform faults;
  faults.failCall(NpOp::kMutexCreate, 1, NP_ERR_NO_MEMORY);
  faults.failCall(NpOp::kTimeNow, 1, NP_ERR_UNKNOWN);
  EXPECT_EQ(nullptr, npGetPlatformOps()->mutex_create(0, 1));
  EXPECT_EQ(-1, np_time_now());
  EXPECT_GT(np_time_now(), 0);
  char user[256] = "x";
  faults.failCall(NpOp::kOsinfUser, 1, NP_ERR_UNKNOWN);
  EXPECT_EQ(NP_ERR_UNKNOWN, np_osinf_user(user, sizeof user));
  EXPECT_STREQ("", user);
}

TEST(FaultPlatform, MutexFailuresReachTheLockLayer) {
  FaultPlatform faults;
  faults.failCall(NpOp::kMutexCreate, 1, NP_ERR_NO_MEMORY);
  EXPECT_EQ(nullptr, qzLockCreate(0, 1));
  EXPECT_EQ(1, faults.failuresInjected(NpOp::kMutexCreate));
  QzLock* lock = qzLockCreate(0, 0);
  ASSERT_NE(nullptr, lock);
  faults.failCall(NpOp::kMutexLock, 1, NP_ERR_BUSY);
  EXPECT_NE(0, qzLockGet(lock, 1, 1));
  EXPECT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_EQ(0, qzLockRelease(lock));
  qzLockDestroy(lock);
  EXPECT_EQ(1, faults.callCount(NpOp::kMutexDestroy));
}

TEST(FaultPlatform, SleepCanBeSkipped) {
  FaultPlatform faults;
  faults.setSleepEnabled(false);
  int64_t before = np_time_now();
  EXPECT_EQ(NP_OK, np_proc_sleep(30));
  EXPECT_EQ(1, faults.callCount(NpOp::kProcSleep));
  // A 30 second sleep would blow the test time-out; this is not a timing
  // assertion on the real sleep.
  EXPECT_LT(np_time_now() - before, 30);
}

TEST(FaultPlatform, ZeroCodeBecomesUnknown) {
  FaultPlatform faults;
  faults.failCall(NpOp::kFioStat, 1, 0);
  EXPECT_EQ(NP_ERR_UNKNOWN, np_fio_stat("/", nullptr));
}

TEST(FaultPlatform, ResetCountsKeepsArmedFaultsRelativeToNow) {
  FaultPlatform faults;
  faults.failCall(NpOp::kFioStat, 3, NP_ERR_IO);
  EXPECT_EQ(NP_OK, np_fio_stat("/", nullptr));
  faults.resetCounts();
  EXPECT_EQ(NP_OK, np_fio_stat("/", nullptr));
  EXPECT_EQ(NP_ERR_IO, np_fio_stat("/", nullptr));
  faults.resetCounts();
  EXPECT_EQ(NP_OK, np_fio_stat("/", nullptr));  // a spent single fault stays spent
}

TEST(FaultPlatform, OpNamesFollowTheTable) {
  EXPECT_STREQ("fio_stat", qztest::npOpName(NpOp::kFioStat));
  EXPECT_STREQ("dir_next_stat", qztest::npOpName(NpOp::kDirNextStat));
  EXPECT_STREQ("mutex_destroy", qztest::npOpName(NpOp::kMutexDestroy));
  EXPECT_STREQ("fio_link", qztest::npOpName(NpOp::kFioLink));
  EXPECT_STREQ("fio_rename_noreplace", qztest::npOpName(NpOp::kFioRenameNoReplace));
  EXPECT_STREQ("proc_probe", qztest::npOpName(NpOp::kProcProbe));
  EXPECT_STREQ("fs_info", qztest::npOpName(NpOp::kFsInfo));
  EXPECT_EQ(33, qztest::kNpOpCount);
  EXPECT_EQ(sizeof(NpPlatformOps) / sizeof(void*), static_cast<std::size_t>(qztest::kNpOpCount));
}

}  // namespace
