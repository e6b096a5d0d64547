// Folder locks through a lock file, and the library's short waits.
#include "folder_lock.h"

#include <sys/select.h>

#include <cerrno>
#include <new>

#include "debug_log.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"

struct QzviFolderLock {
  NpFile* file = nullptr;
  QzbString path;  // kept to remove the file on release
};

namespace {

const int kLockAttempts = 3;

// The lock file's path, or null (logged) when it cannot be built.
QzbString lockFilePath(const QzbString& directory) {
  QzbString path = qzbConcatPath(directory, QzbString(QZVI_LOCK_FILE, true));
  if (path.isNull()) {
    qzviDebugLog(qzbStringFormat("path build for lock file in %S failed", &directory));
  }
  return path;
}

}  // namespace

QzviFolderLock* qzviLockFolder(const QzbString& directory) {
  QzviFolderLock* handle = new (std::nothrow) QzviFolderLock;
  if (handle == nullptr) return nullptr;
  handle->path = lockFilePath(directory);
  if (handle->path.isNull()) {
    delete handle;
    return nullptr;
  }
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    // Exclusive create: whoever makes the file holds the lock.
    if (np_fio_open(handle->path.asCstr(), NP_FIO_LOCKFILE, &handle->file) == NP_OK) {
      return handle;
    }
    // The wait follows every failed attempt, the last one included, so a
    // lock that stays taken costs three seconds in all.
    qzviSleepSecs(1);
  }
  delete handle;
  return nullptr;
}

void qzviUnlockFolder(QzviFolderLock* handle) {
  if (handle == nullptr) return;
  np_fio_close(handle->file);
  np_fio_unlink(handle->path.asCstr());  // nothing to be done if it fails
  delete handle;
}

bool qzviIsFolderLocked(const QzbString& directory) {
  const QzbString path = lockFilePath(directory);
  if (path.isNull()) return true;
  // Removing the file is the test: where open files cannot be removed this
  // tells a held lock from one left behind by a process that died. Where they
  // can, the holder's lock is removed too, yet the folder is still reported
  // locked. Nothing in the library calls this.
  return np_fio_unlink(path.asCstr()) != NP_ERR_NOT_FOUND;
}

void qzviSleepSecs(int seconds) {
  // A select() that watches no descriptors: a plain wait with a resolution
  // below one second, which np_proc_sleep does not offer.
  struct timeval timeout;
  timeout.tv_sec = seconds > 0 ? seconds : 0;
  timeout.tv_usec = seconds > 0 ? 0 : 1000;
  // Linux leaves the time not yet waited in `timeout`, so a wait cut short
  // by a signal goes on for the rest.
  while (select(0, nullptr, nullptr, nullptr, &timeout) < 0 && errno == EINTR) {
  }
}
