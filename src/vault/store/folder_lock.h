// Folder locks: a lock file ".v_lck" in the folder's directory. Whoever creates
// it holds the lock; removing it releases it. Advisory: nothing else in the
// library tests it.
//
// The file's presence alone is the lock, as it always was; it also records
// its holder (machine, process, the process's start, the time the lock was
// taken and the user), so that a lock left by a process that has ended can be
// told from a live one. The record is written before the file gets its name
// (a hidden file given the name ".v_lck" as a second link), so a lock file is
// never seen half-written. The holder also keeps an advisory lock of the open
// lock file, which ends with the holder's process; taking over a lock needs
// that lock, so two processes that both find a lock stale cannot both take it
// over. A lock whose recorded holder is a process of this machine that no
// longer runs is taken over at once (logged at warning level).
//
// Record format (text, one key=value per line after the first line):
//   qzvault-lock 1
//   host=<machine>  pid=<process id>  start=<process start>  time=<seconds>
//   user=<user name>
#ifndef QZVAULT_SRC_STORE_FOLDER_LOCK_H_
#define QZVAULT_SRC_STORE_FOLDER_LOCK_H_

#include <cstdint>
#include <string>

#include "qzbase/string.h"

#define QZVI_LOCK_FILE ".v_lck"

struct QzviFolderLock;

// What a lock file says of its holder.
struct QzviLockHolder {
  std::string host;
  int64_t processId = 0;
  uint64_t processStart = 0;  // 0: not known
  int64_t since = 0;          // seconds since the epoch
  std::string user;
};

enum class QzviLockState {
  kNone,        // no lock file
  kLive,        // held by a running process of this machine
  kEnded,       // recorded holder: a process of this machine that no longer runs
  kElsewhere,   // recorded holder on another machine: cannot be asked
  kUnrecorded,  // an empty lock file (made by an older library): cannot be asked
  kForeign,     // a file that holds something other than a lock record
  kRefused,     // a link, a fifo, a directory in the lock file's place
};

// Takes the lock. A lock held by a process that has ended is taken over at
// once. Otherwise the attempts follow the configuration key
// "QZVLT/LOCK_WAIT_MS": unset, three attempts with a one-second wait after
// each failed one; set to N, attempts every few milliseconds for up to N
// milliseconds. The handle, or null when the lock stayed taken; then
// *whyNot (when given) says who holds it ("Folder <dir> is locked by ...").
QzviFolderLock* qzviLockFolder(const QzbString& directory, QzbString* whyNot = nullptr);
// Closes and removes the lock file and frees the handle; null is ignored. A
// lock file that is no longer the one this handle made (taken over) stays.
void qzviUnlockFolder(QzviFolderLock* handle);
// Removes a lock file that can be removed and tells whether the folder is to
// be taken as locked (see the source for the exact rule).
bool qzviIsFolderLocked(const QzbString& directory);
// Waits `seconds` whole seconds, or one millisecond for 0.
void qzviSleepSecs(int seconds);

// Reads the lock file of `directory` without following a link and judges its
// holder. *holder is filled for a recorded holder; *age (when given) is the
// lock file's age in seconds.
QzviLockState qzviReadFolderLock(const QzbString& directory, QzviLockHolder* holder,
                                 int64_t* age = nullptr);
// Reads a lock record from the file at `path` (a lock file or one being
// made); the state as qzviReadFolderLock.
QzviLockState qzviReadLockFile(const QzbString& path, QzviLockHolder* holder,
                               int64_t* age = nullptr);
// "user (process 123 on host, since 2024-05-01 12:00:00)"; dates in local
// time.
std::string qzviDescribeLockHolder(const QzviLockHolder& holder);
// Removes the lock file of `directory` when its holder has ended (or, with
// `force`, whatever holds it). False with the reason in *error when the lock
// is live (and not forced) or cannot be removed; true when there was none.
bool qzviClearFolderLock(const QzbString& directory, bool force, QzbString* error);

// True when `leaf` is the name of a lock file being made (".v_lck.<id>.new").
bool qzviIsLockFileInMaking(const std::string& leaf);

#endif  // QZVAULT_SRC_STORE_FOLDER_LOCK_H_
