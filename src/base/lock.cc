// QzLock: a handle around a mutex of the platform operation table, so that a
// test's table can fail the creation (or any other step) of every mutex the
// library makes. Each call goes through the table in force at that moment;
// replacement tables forward to the default entries for what they do not fail.
#include "qzbase/lock.h"

#include <new>

#include "qzbase/platform.h"

struct QzLock {
  void* mutex;
};

QzLock* qzLockCreate(int processShared, int recursive) {
  // A mutex in this process's heap cannot be shared with another process.
  if (processShared != 0) return nullptr;
  QzLock* lock = new (std::nothrow) QzLock{nullptr};
  if (lock == nullptr) return nullptr;
  lock->mutex = npGetPlatformOps()->mutex_create(0, recursive != 0 ? 1 : 0);
  if (lock->mutex == nullptr) {
    delete lock;
    return nullptr;
  }
  return lock;
}

int qzLockGet(QzLock* lock, int exclusive, int wait) {
  // Only exclusive locking exists; a request for a shared lock is refused.
  if (lock == nullptr || exclusive != 1) return 1;
  return npGetPlatformOps()->mutex_lock(lock->mutex, wait != 0 ? 1 : 0);
}

int qzLockRelease(QzLock* lock) {
  // Nothing is given back for a null lock: harmless, but not a success.
  if (lock == nullptr) return 1;
  return npGetPlatformOps()->mutex_unlock(lock->mutex);
}

void qzLockDestroy(QzLock* lock) {
  if (lock == nullptr) return;
  npGetPlatformOps()->mutex_destroy(lock->mutex);
  delete lock;
}
