// Folder locks: a lock file ".v_lck" in the folder's directory. Whoever creates
// it holds the lock; removing it releases it. Advisory: nothing else in the
// library tests it.
#ifndef QZVAULT_SRC_STORE_FOLDER_LOCK_H_
#define QZVAULT_SRC_STORE_FOLDER_LOCK_H_

#include "qzbase/string.h"

#define QZVI_LOCK_FILE ".v_lck"

struct QzviFolderLock;

// Takes the lock, making three attempts with a one-second wait after each
// failed one. The handle, or null when the lock stayed taken.
QzviFolderLock* qzviLockFolder(const QzbString& directory);
// Closes and removes the lock file and frees the handle; null is ignored.
void qzviUnlockFolder(QzviFolderLock* handle);
// Removes a lock file that can be removed and tells whether the folder is to
// be taken as locked (see the source for the exact rule).
bool qzviIsFolderLocked(const QzbString& directory);
// Waits `seconds` whole seconds, or one millisecond for 0.
void qzviSleepSecs(int seconds);

#endif  // QZVAULT_SRC_STORE_FOLDER_LOCK_H_
