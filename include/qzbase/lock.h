// Mutexes for the library's in-process state. They go through the platform
// operation table (qzbase/platform.h), so that a test can make their creation
// fail.
//
// Thread safety: a lock is shared by the threads that use it; creating and
// destroying it is the owner's business.
#ifndef QZBASE_LOCK_H_
#define QZBASE_LOCK_H_

#include "qzbase/export.h"

typedef struct QzLock QzLock;

// Creates a mutex. `processShared` must be 0 (locks are private to the
// process); `recursive` non-zero makes a lock that the holding thread may take
// again. Returns null when the mutex cannot be created.
QZBASE_EXPORT QzLock* qzLockCreate(int processShared, int recursive);
// Takes the lock. `exclusive` must be 1; with `wait` non-zero the call blocks
// until the lock is held, with 0 it only tries. Returns 0 when held, non-zero
// otherwise (including a null lock).
QZBASE_EXPORT int qzLockGet(QzLock* lock, int exclusive, int wait);
// Gives the lock back; 0 on success. A null lock is ignored.
QZBASE_EXPORT int qzLockRelease(QzLock* lock);
// Destroys a lock that no thread holds. A null lock is ignored.
QZBASE_EXPORT void qzLockDestroy(QzLock* lock);

#endif  // QZBASE_LOCK_H_
