// Folder locks through a lock file that records its holder, and the
// library's short waits.
#include "folder_lock.h"

#include <sys/select.h>

#include <cerrno>
#include <ctime>
#include <new>
#include <random>

#include "debug_log.h"
#include "qzbase/config.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "time_util.h"
#include "vault_files.h"

struct QzviFolderLock {
  NpFile* file = nullptr;
  QzbString path;  // kept to remove the file on release
};

namespace {

const int kLockAttempts = 3;
// Takeovers in one call to qzviLockFolder: each frees a lock of an ended
// process, so a handful is plenty; the bound keeps a pathological file
// system from looping.
const int kMaxTakeovers = 8;
const char kLockWaitKey[] = "QZVLT/LOCK_WAIT_MS";
const char kRecordHeader[] = "qzvault-lock 1";
const std::size_t kMaxRecordBytes = 4096;

// The lock file's path, or null (logged) when it cannot be built.
QzbString lockFilePath(const QzbString& directory) {
  QzbString path = qzbConcatPath(directory, QzbString(QZVI_LOCK_FILE, true));
  if (path.isNull()) {
    qzviDebugLog(qzbStringFormat("path build for lock file in %S failed", &directory));
  }
  return path;
}

std::string thisHost() {
  char name[256] = "";
  if (np_osinf_host(name, sizeof name) != NP_OK) return std::string();
  return name;
}

// A hidden name beside the lock file for the record being made, unique to
// this attempt.
QzbString recordPathFor(const QzbString& directory) {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  return qzbConcatPath(directory, qzbStringFormat("%s.%016llx.new", QZVI_LOCK_FILE,
                                                  static_cast<unsigned long long>(generator())));
}

std::string makeRecord() {
  const int64_t processId = np_proc_id();
  uint64_t start = 0;
  np_proc_probe(processId, &start);
  std::string record = kRecordHeader;
  record += "\nhost=" + thisHost();
  record += "\npid=" + std::to_string(processId);
  record += "\nstart=" + std::to_string(start);
  record += "\ntime=" + std::to_string(np_time_now());
  record += "\nuser=" + getCurrentUserName().toStdString();
  record += "\n";
  return record;
}

// The content of an open file, at most kMaxRecordBytes; false when it
// cannot be read.
bool readRecordText(NpFile* file, std::string* text) {
  text->clear();
  char buffer[512];
  while (text->size() < kMaxRecordBytes) {
    std::size_t got = 0;
    if (np_fio_read(file, buffer, sizeof buffer, &got) != NP_OK) return false;
    if (got == 0) break;
    text->append(buffer, got);
  }
  return true;
}

// True (with *holder) when `text` is a lock record.
bool parseRecord(const std::string& text, QzviLockHolder* holder) {
  if (text.compare(0, sizeof kRecordHeader - 1, kRecordHeader) != 0) return false;
  std::size_t position = 0;
  while (position < text.size()) {
    std::size_t end = text.find('\n', position);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(position, end - position);
    position = end + 1;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = line.substr(0, equals);
    const std::string value = line.substr(equals + 1);
    if (key == "host") {
      holder->host = value;
    } else if (key == "pid") {
      holder->processId = std::strtoll(value.c_str(), nullptr, 10);
    } else if (key == "start") {
      holder->processStart = std::strtoull(value.c_str(), nullptr, 10);
    } else if (key == "time") {
      holder->since = std::strtoll(value.c_str(), nullptr, 10);
    } else if (key == "user") {
      holder->user = value;
    }
  }
  return holder->processId > 0;
}

// Whether the recorded holder still runs. A holder of another machine cannot
// be asked; one whose id now belongs to a later process has ended.
QzviLockState judgeHolder(const QzviLockHolder& holder) {
  if (holder.host != thisHost()) return QzviLockState::kElsewhere;
  if (holder.processId == np_proc_id()) return QzviLockState::kLive;
  uint64_t start = 0;
  const int probed = np_proc_probe(holder.processId, &start);
  if (probed == NP_ERR_NOT_FOUND) return QzviLockState::kEnded;
  if (probed == NP_OK && holder.processStart != 0 && start != 0 && start != holder.processStart) {
    return QzviLockState::kEnded;
  }
  return QzviLockState::kLive;
}

QzviLockState judgeText(const std::string& text, QzviLockHolder* holder) {
  if (text.empty()) return QzviLockState::kUnrecorded;
  if (!parseRecord(text, holder)) return QzviLockState::kForeign;
  return judgeHolder(*holder);
}

bool sameFile(const NpFileInfo& a, const NpFileInfo& b) {
  return a.device == b.device && a.inode == b.inode;
}

void sleepMilliseconds(int milliseconds) {
  struct timeval timeout;
  timeout.tv_sec = milliseconds / 1000;
  timeout.tv_usec = (milliseconds % 1000) * 1000;
  while (select(0, nullptr, nullptr, nullptr, &timeout) < 0 && errno == EINTR) {
  }
}

// The configured total wait in milliseconds, or -1 when none is configured.
int configuredWaitMilliseconds() {
  QzbString value;
  if (!qzbGetConfigOptions(nullptr)->getOption(QzbString(kLockWaitKey, true), &value, 0)) return -1;
  bool ok = false;
  const int milliseconds = value.asInt(&ok);
  return ok && milliseconds >= 0 ? milliseconds : -1;
}

enum class TakeResult { kTaken, kBusy, kFailed };

// One attempt: the record is written to a file of its own, which then gets
// the lock file's name as a second link; the link fails when the lock is
// held. *failure (for kFailed) is the platform's code.
TakeResult tryTake(const QzbString& directory, const QzbString& lockPath, QzviFolderLock* handle,
                   int* failure) {
  const QzbString recordPath = recordPathFor(directory);
  NpFile* file = nullptr;
  const std::string record = makeRecord();
  int result = recordPath.isNull() ? NP_ERR_INVALID_PATH
                                   : np_fio_open(recordPath.asCstr(),
                                                 NP_FIO_READ | NP_FIO_WRITE | NP_FIO_CREATE_NEW, &file);
  if (result == NP_OK) {
    np_fio_trylock(file);  // a new file: nobody else can hold it
    result = np_fio_write(file, record.data(), record.size());
    if (result == NP_OK) {
      result = np_fio_link(recordPath.asCstr(), lockPath.asCstr());
      np_fio_unlink(recordPath.asCstr());
      if (result == NP_OK) {
        handle->file = file;
        return TakeResult::kTaken;
      }
    } else {
      np_fio_unlink(recordPath.asCstr());
    }
    np_fio_close(file);
    if (result == NP_ERR_EXISTS) return TakeResult::kBusy;
  }
  // Where no hidden file can be made or linked (no hard links on this file
  // system), the lock file is made directly, exclusively, and the record
  // written into it.
  result = np_fio_open(lockPath.asCstr(), NP_FIO_LOCKFILE, &file);
  if (result == NP_ERR_EXISTS) return TakeResult::kBusy;
  if (result != NP_OK) {
    *failure = result;
    return TakeResult::kFailed;
  }
  np_fio_trylock(file);
  np_fio_write(file, record.data(), record.size());
  handle->file = file;
  return TakeResult::kTaken;
}

// Removes the lock file at `lockPath` if it is still the one whose holder
// was judged ended. The advisory lock of the open file proves that no live
// process holds it and that no other process is taking it over just now.
bool takeOverEnded(const QzbString& lockPath, const QzviLockHolder& ended) {
  NpFile* file = nullptr;
  if (np_fio_open(lockPath.asCstr(), NP_FIO_READ | NP_FIO_WRITE | NP_FIO_NOFOLLOW, &file) != NP_OK) {
    return false;
  }
  bool removed = false;
  NpFileInfo opened;
  NpFileInfo named;
  std::string text;
  QzviLockHolder again;
  if (np_fio_trylock(file) != NP_ERR_BUSY && np_fio_finfo(file, &opened) == NP_OK &&
      np_fio_lstat(lockPath.asCstr(), &named) == NP_OK && sameFile(opened, named) &&
      readRecordText(file, &text) && judgeText(text, &again) == QzviLockState::kEnded &&
      again.processId == ended.processId && again.host == ended.host) {
    removed = np_fio_unlink(lockPath.asCstr()) == NP_OK;
  }
  np_fio_close(file);
  if (removed) {
    QZVI_LOG(qzviVaultLogger(), QZLOG_WARN,
             "Took over the lock %s of %s, whose process has ended", lockPath.asCstr(),
             qzviDescribeLockHolder(ended).c_str());
  }
  return removed;
}

QzbString whyLocked(const QzbString& directory, QzviLockState state, const QzviLockHolder& holder,
                    int failure) {
  switch (state) {
    case QzviLockState::kNone:
      return qzbStringFormat("Folder %s cannot be locked: %s", directory.asCstr(),
                             np_fio_errdesc(failure != NP_OK ? failure : NP_ERR_UNKNOWN));
    case QzviLockState::kLive:
    case QzviLockState::kEnded:
    case QzviLockState::kElsewhere:
      return qzbStringFormat("Folder %s is locked by %s", directory.asCstr(),
                             qzviDescribeLockHolder(holder).c_str());
    case QzviLockState::kUnrecorded:
      return qzbStringFormat("Folder %s is locked (the lock file names no holder)",
                             directory.asCstr());
    case QzviLockState::kForeign:
    case QzviLockState::kRefused:
      break;
  }
  return qzbStringFormat("Folder %s cannot be locked: its %s is not a lock file",
                         directory.asCstr(), QZVI_LOCK_FILE);
}

}  // namespace

QzviFolderLock* qzviLockFolder(const QzbString& directory, QzbString* whyNot) {
  QzviFolderLock* handle = new (std::nothrow) QzviFolderLock;
  if (handle == nullptr) return nullptr;
  handle->path = lockFilePath(directory);
  if (handle->path.isNull()) {
    delete handle;
    return nullptr;
  }
  const int waitMilliseconds = configuredWaitMilliseconds();
  int waited = 0;  // milliseconds, counted by the waits themselves
  static thread_local std::mt19937 jitter{std::random_device{}()};
  QzviLockState state = QzviLockState::kNone;
  QzviLockHolder holder;
  int failure = NP_OK;
  int takeovers = 0;
  for (int attempt = 0;;) {
    // Exclusive: whoever gives the file its name holds the lock.
    const TakeResult taken = tryTake(directory, handle->path, handle, &failure);
    if (taken == TakeResult::kTaken) return handle;
    holder = QzviLockHolder();
    if (taken == TakeResult::kFailed) {
      // Not taken by anyone: the folder cannot hold a lock file at all (not
      // writable, not a directory). Waiting would not change that.
      state = QzviLockState::kNone;
      break;
    }
    state = qzviReadLockFile(handle->path, &holder);
    if (state == QzviLockState::kEnded && takeovers < kMaxTakeovers &&
        takeOverEnded(handle->path, holder)) {
      ++takeovers;
      continue;  // the lock of an ended process is taken over at once
    }
    ++attempt;
    if (waitMilliseconds < 0) {
      // The wait follows every failed attempt, the last one included, so a
      // lock that stays taken costs three seconds in all.
      qzviSleepSecs(1);
      if (attempt >= kLockAttempts) break;
    } else {
      // Short, uneven waits, so that processes waiting together do not
      // retry in step.
      if (waited >= waitMilliseconds) break;
      const int pause = 2 + static_cast<int>(jitter() % 15);
      sleepMilliseconds(pause);
      waited += pause;
    }
  }
  if (whyNot != nullptr) *whyNot = whyLocked(directory, state, holder, failure);
  delete handle;
  return nullptr;
}

void qzviUnlockFolder(QzviFolderLock* handle) {
  if (handle == nullptr) return;
  // Only the file this handle made is removed: one that took its place after
  // a takeover belongs to someone else. Removed before it is closed, so that
  // the advisory lock covers the removal.
  NpFileInfo mine;
  NpFileInfo named;
  if (np_fio_finfo(handle->file, &mine) == NP_OK &&
      np_fio_lstat(handle->path.asCstr(), &named) == NP_OK && sameFile(mine, named)) {
    np_fio_unlink(handle->path.asCstr());  // nothing to be done if it fails
  }
  np_fio_close(handle->file);
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

QzviLockState qzviReadLockFile(const QzbString& path, QzviLockHolder* holder, int64_t* age) {
  if (age != nullptr) *age = 0;
  NpFileInfo status;
  QzbString reason;
  switch (qzviExamineVaultFile(path, false, &reason, &status)) {
    case QzviVaultFileState::kMissing:
      return QzviLockState::kNone;
    case QzviVaultFileState::kRefused:
      return QzviLockState::kRefused;
    case QzviVaultFileState::kPresent:
      break;
  }
  if (age != nullptr) *age = np_time_now() - status.mtime;
  NpFile* file = nullptr;
  const int opened = np_fio_open(path.asCstr(), NP_FIO_READ | NP_FIO_NOFOLLOW, &file);
  if (opened == NP_ERR_NOT_FOUND) return QzviLockState::kNone;  // released just now
  if (opened != NP_OK) return QzviLockState::kRefused;
  std::string text;
  const bool read = readRecordText(file, &text);
  np_fio_close(file);
  if (!read) return QzviLockState::kRefused;
  return judgeText(text, holder);
}

QzviLockState qzviReadFolderLock(const QzbString& directory, QzviLockHolder* holder,
                                 int64_t* age) {
  const QzbString path = lockFilePath(directory);
  if (path.isNull()) return QzviLockState::kRefused;
  return qzviReadLockFile(path, holder, age);
}

std::string qzviDescribeLockHolder(const QzviLockHolder& holder) {
  std::string since = "?";
  const time_t seconds = static_cast<time_t>(holder.since);
  struct tm local;
  char text[32];
  if (holder.since > 0 && localtime_r(&seconds, &local) != nullptr &&
      strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) > 0) {
    since = text;
  }
  return (holder.user.empty() ? std::string("?") : holder.user) + " (process " +
         std::to_string(holder.processId) + " on " +
         (holder.host.empty() ? std::string("?") : holder.host) + ", since " + since + ")";
}

bool qzviClearFolderLock(const QzbString& directory, bool force, QzbString* error) {
  const QzbString path = lockFilePath(directory);
  if (path.isNull()) {
    *error = qzbStringFormat("path build for lock file in %s failed", directory.asCstr());
    return false;
  }
  QzviLockHolder holder;
  const QzviLockState state = qzviReadLockFile(path, &holder);
  if (state == QzviLockState::kNone) return true;
  if (state == QzviLockState::kEnded && takeOverEnded(path, holder)) return true;
  if (state == QzviLockState::kRefused || state == QzviLockState::kForeign) {
    *error = qzbStringFormat("%s is not a lock file; it is left as it is", path.asCstr());
    return false;
  }
  if (!force) {
    *error = whyLocked(directory, state, holder, NP_OK);
    return false;
  }
  const int removed = np_fio_unlink(path.asCstr());
  if (removed != NP_OK && removed != NP_ERR_NOT_FOUND) {
    *error = qzbStringFormat("%s cannot be removed: %s", path.asCstr(), np_fio_errdesc(removed));
    return false;
  }
  QZVI_LOG(qzviVaultLogger(), QZLOG_WARN, "Removed the lock %s of %s on request", path.asCstr(),
           qzviDescribeLockHolder(holder).c_str());
  return true;
}

bool qzviIsLockFileInMaking(const std::string& leaf) {
  const std::string prefix = std::string(QZVI_LOCK_FILE) + ".";
  const std::string suffix = ".new";
  return leaf.size() > prefix.size() + suffix.size() && leaf.compare(0, prefix.size(), prefix) == 0 &&
         leaf.compare(leaf.size() - suffix.size(), suffix.size(), suffix) == 0;
}
