// Tests of the QzLock mutexes over the platform operation table.
#include "qzbase/lock.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "qzbase/platform.h"

namespace {

// Tries the lock from a second thread and reports whether it got it (and
// gives it back if so).
bool otherThreadCanTake(QzLock* lock) {
  bool taken = false;
  std::thread other([&] {
    taken = qzLockGet(lock, 1, 0) == 0;
    if (taken) qzLockRelease(lock);
  });
  other.join();
  return taken;
}

TEST(Lock, CreateGetReleaseDestroy) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  EXPECT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_EQ(0, qzLockRelease(lock));
  qzLockDestroy(lock);
}

TEST(Lock, NonRecursiveLockWorks) {
  QzLock* lock = qzLockCreate(0, 0);
  ASSERT_NE(nullptr, lock);
  EXPECT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_FALSE(otherThreadCanTake(lock));
  EXPECT_EQ(0, qzLockRelease(lock));
  EXPECT_TRUE(otherThreadCanTake(lock));
  qzLockDestroy(lock);
}

TEST(Lock, RecursiveLockTakenTwiceByOneThread) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  ASSERT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_EQ(0, qzLockGet(lock, 1, 0));
  EXPECT_EQ(0, qzLockRelease(lock));
  EXPECT_EQ(0, qzLockRelease(lock));
  // Still held once: another thread must not get it yet.
  EXPECT_FALSE(otherThreadCanTake(lock));
  EXPECT_EQ(0, qzLockRelease(lock));
  EXPECT_TRUE(otherThreadCanTake(lock));
  qzLockDestroy(lock);
}

TEST(Lock, TryLockFromAnotherThreadFailsWhileHeld) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  ASSERT_EQ(0, qzLockGet(lock, 1, 1));
  EXPECT_FALSE(otherThreadCanTake(lock));
  ASSERT_EQ(0, qzLockRelease(lock));
  EXPECT_TRUE(otherThreadCanTake(lock));
  qzLockDestroy(lock);
}

TEST(Lock, BlockingGetSucceedsOnceReleased) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  ASSERT_EQ(0, qzLockGet(lock, 1, 1));
  std::atomic<bool> released{false};
  std::atomic<bool> sawRelease{false};
  std::thread waiter([&] {
    // Blocks until the main thread gives the lock back.
    ASSERT_EQ(0, qzLockGet(lock, 1, 1));
    sawRelease = released.load();
    qzLockRelease(lock);
  });
  released = true;
  ASSERT_EQ(0, qzLockRelease(lock));
  waiter.join();
  EXPECT_TRUE(sawRelease);
  qzLockDestroy(lock);
}

TEST(Lock, CountsUnderContention) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      ASSERT_EQ(0, qzLockGet(lock, 1, 1));
      ++counter;
      qzLockRelease(lock);
    }
  };
  std::thread a(work);
  std::thread b(work);
  a.join();
  b.join();
  EXPECT_EQ(40000, counter);
  qzLockDestroy(lock);
}

TEST(Lock, NullHandles) {
  EXPECT_NE(0, qzLockGet(nullptr, 1, 1));
  EXPECT_NE(0, qzLockGet(nullptr, 1, 0));
  EXPECT_NE(0, qzLockRelease(nullptr));
  qzLockDestroy(nullptr);  // must be harmless
}

TEST(Lock, ProcessSharedIsRefused) { EXPECT_EQ(nullptr, qzLockCreate(1, 1)); }

TEST(Lock, SharedRequestIsRefused) {
  QzLock* lock = qzLockCreate(0, 1);
  ASSERT_NE(nullptr, lock);
  EXPECT_NE(0, qzLockGet(lock, 0, 1));
  // The refused request took nothing: another thread gets the lock.
  EXPECT_TRUE(otherThreadCanTake(lock));
  qzLockDestroy(lock);
}

// A platform table whose mutex creation fails, to show that a failed
// creation gives null and allocates nothing that leaks.
void* failingMutexCreate(int, int) { return nullptr; }

TEST(Lock, CreationFailureOfThePlatformGivesNull) {
  NpPlatformOps failing = *npDefaultPlatformOps();
  failing.mutex_create = failingMutexCreate;
  const NpPlatformOps* previous = npSetPlatformOps(&failing);
  QzLock* lock = qzLockCreate(0, 1);
  npSetPlatformOps(previous);
  EXPECT_EQ(nullptr, lock);
}

// Counts the table's mutex calls to show that locks go through the table.
std::atomic<int> g_creates{0};
std::atomic<int> g_locks{0};
std::atomic<int> g_unlocks{0};
std::atomic<int> g_destroys{0};
void* countingCreate(int shared, int recursive) {
  ++g_creates;
  return npDefaultPlatformOps()->mutex_create(shared, recursive);
}
int countingLock(void* mutex, int wait) {
  ++g_locks;
  return npDefaultPlatformOps()->mutex_lock(mutex, wait);
}
int countingUnlock(void* mutex) {
  ++g_unlocks;
  return npDefaultPlatformOps()->mutex_unlock(mutex);
}
void countingDestroy(void* mutex) {
  ++g_destroys;
  npDefaultPlatformOps()->mutex_destroy(mutex);
}

TEST(Lock, EveryStepGoesThroughThePlatformTable) {
  NpPlatformOps counting = *npDefaultPlatformOps();
  counting.mutex_create = countingCreate;
  counting.mutex_lock = countingLock;
  counting.mutex_unlock = countingUnlock;
  counting.mutex_destroy = countingDestroy;
  const NpPlatformOps* previous = npSetPlatformOps(&counting);
  QzLock* lock = qzLockCreate(0, 0);
  const bool created = lock != nullptr;
  if (created) {
    qzLockGet(lock, 1, 1);
    qzLockRelease(lock);
    qzLockDestroy(lock);
  }
  npSetPlatformOps(previous);
  ASSERT_TRUE(created);
  EXPECT_EQ(1, g_creates.load());
  EXPECT_EQ(1, g_locks.load());
  EXPECT_EQ(1, g_unlocks.load());
  EXPECT_EQ(1, g_destroys.load());
}

}  // namespace
