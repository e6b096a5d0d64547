#include "support/fault_platform.h"

#include <atomic>
#include <cstdio>

namespace qztest {

namespace {

// The innermost live FaultPlatform; the table's entries are plain functions
// and find their state here.
std::atomic<FaultPlatform*> g_active{nullptr};

const NpPlatformOps& real() { return *npDefaultPlatformOps(); }

// True (with *code set) when this call must fail. Calls made while no
// FaultPlatform is active (a stale table) are forwarded unchanged.
bool shouldFail(NpOp op, int* code) {
  FaultPlatform* active = g_active.load(std::memory_order_acquire);
  return active != nullptr && active->countAndCheck(op, code);
}

int fioStat(const char* path, NpStat* st) {
  int code;
  if (shouldFail(NpOp::kFioStat, &code)) return code;
  return real().fio_stat(path, st);
}

int fioRename(const char* oldPath, const char* newPath) {
  int code;
  if (shouldFail(NpOp::kFioRename, &code)) return code;
  return real().fio_rename(oldPath, newPath);
}

int fioLink(const char* existingPath, const char* newPath) {
  int code;
  if (shouldFail(NpOp::kFioLink, &code)) return code;
  return real().fio_link(existingPath, newPath);
}

int fioLstat(const char* path, NpFileInfo* info) {
  int code;
  if (shouldFail(NpOp::kFioLstat, &code)) return code;
  return real().fio_lstat(path, info);
}

int fioFinfo(NpFile* handle, NpFileInfo* info) {
  int code;
  if (shouldFail(NpOp::kFioFinfo, &code)) return code;
  return real().fio_finfo(handle, info);
}

int fioRenameNoReplace(const char* oldPath, const char* newPath) {
  int code;
  if (shouldFail(NpOp::kFioRenameNoReplace, &code)) return code;
  return real().fio_rename_noreplace(oldPath, newPath);
}

int fioRead(NpFile* handle, void* buffer, std::size_t length, std::size_t* got) {
  int code;
  if (shouldFail(NpOp::kFioRead, &code)) {
    if (got != nullptr) *got = 0;
    return code;
  }
  return real().fio_read(handle, buffer, length, got);
}

int fioWrite(NpFile* handle, const void* data, std::size_t length) {
  int code;
  if (shouldFail(NpOp::kFioWrite, &code)) return code;
  return real().fio_write(handle, data, length);
}

int fioTrylock(NpFile* handle) {
  int code;
  if (shouldFail(NpOp::kFioTrylock, &code)) return code;
  return real().fio_trylock(handle);
}

int osinfHost(char* buffer, std::size_t length) {
  int code;
  if (shouldFail(NpOp::kOsinfHost, &code)) {
    if (buffer != nullptr && length > 0) buffer[0] = '\0';
    return code;
  }
  return real().osinf_host(buffer, length);
}

int64_t procId(void) {
  int code;
  if (shouldFail(NpOp::kProcId, &code)) return -1;
  return real().proc_id();
}

int procProbe(int64_t processId, uint64_t* startToken) {
  int code;
  if (shouldFail(NpOp::kProcProbe, &code)) {
    if (startToken != nullptr) *startToken = 0;
    return code;
  }
  return real().proc_probe(processId, startToken);
}

int fioUnlink(const char* path) {
  int code;
  if (shouldFail(NpOp::kFioUnlink, &code)) return code;
  return real().fio_unlink(path);
}

int fioOpen(const char* path, int flags, NpFile** handle) {
  int code;
  if (shouldFail(NpOp::kFioOpen, &code)) {
    if (handle != nullptr) *handle = nullptr;
    return code;
  }
  return real().fio_open(path, flags, handle);
}

int fioClose(NpFile* handle) {
  int code;
  bool fail = shouldFail(NpOp::kFioClose, &code);
  int result = real().fio_close(handle);
  return fail ? code : result;
}

int fioChperm(const char* path, int who, int how, int what) {
  int code;
  if (shouldFail(NpOp::kFioChperm, &code)) return code;
  return real().fio_chperm(path, who, how, what);
}

int dirOpen(const char* path, int flags, NpDir** handle) {
  int code;
  if (shouldFail(NpOp::kDirOpen, &code)) {
    if (handle != nullptr) *handle = nullptr;
    return code;
  }
  return real().dir_open(path, flags, handle);
}

int dirNext(NpDir* handle, char* name, std::size_t nameLength) {
  int code;
  if (shouldFail(NpOp::kDirNext, &code)) return code;
  return real().dir_next(handle, name, nameLength);
}

int dirNextStat(NpDir* handle, char* name, std::size_t nameLength, NpDirEntry* entry) {
  int code;
  if (shouldFail(NpOp::kDirNextStat, &code)) return code;
  return real().dir_next_stat(handle, name, nameLength, entry);
}

int dirClose(NpDir* handle) {
  int code;
  bool fail = shouldFail(NpOp::kDirClose, &code);
  int result = real().dir_close(handle);
  return fail ? code : result;
}

int dirCreate(const char* path, int mode) {
  int code;
  if (shouldFail(NpOp::kDirCreate, &code)) return code;
  return real().dir_create(path, mode);
}

int dirUnlink(const char* path) {
  int code;
  if (shouldFail(NpOp::kDirUnlink, &code)) return code;
  return real().dir_unlink(path);
}

int dsoLoad(const char* path, int flags, NpDso** handle) {
  int code;
  if (shouldFail(NpOp::kDsoLoad, &code)) {
    if (handle != nullptr) *handle = nullptr;
    return code;
  }
  return real().dso_load(path, flags, handle);
}

void* dsoGetsym(NpDso* handle, const char* name) {
  int code;
  if (shouldFail(NpOp::kDsoGetsym, &code)) return nullptr;
  return real().dso_getsym(handle, name);
}

int dsoUnload(NpDso* handle) {
  int code;
  bool fail = shouldFail(NpOp::kDsoUnload, &code);
  int result = real().dso_unload(handle);
  return fail ? code : result;
}

int osinfUser(char* buffer, std::size_t length) {
  int code;
  if (shouldFail(NpOp::kOsinfUser, &code)) {
    if (buffer != nullptr && length > 0) buffer[0] = '\0';
    return code;
  }
  return real().osinf_user(buffer, length);
}

int procSleep(int seconds) {
  int code;
  if (shouldFail(NpOp::kProcSleep, &code)) return code;
  FaultPlatform* active = g_active.load(std::memory_order_acquire);
  if (active != nullptr && !active->sleepEnabled()) return NP_OK;
  return real().proc_sleep(seconds);
}

int fsInfo(const char* path, NpFsInfo* info) {
  int code;
  if (shouldFail(NpOp::kFsInfo, &code)) return code;
  const int result = real().fs_info(path, info);
  FaultPlatform* active = g_active.load(std::memory_order_acquire);
  if (result == NP_OK && active != nullptr) active->fakedFileSystem(info);
  return result;
}

int64_t timeNow(void) {
  int code;
  if (shouldFail(NpOp::kTimeNow, &code)) return -1;
  return real().time_now();
}

void* mutexCreate(int processShared, int recursive) {
  int code;
  if (shouldFail(NpOp::kMutexCreate, &code)) return nullptr;
  return real().mutex_create(processShared, recursive);
}

int mutexLock(void* mutex, int wait) {
  int code;
  if (shouldFail(NpOp::kMutexLock, &code)) return code;
  return real().mutex_lock(mutex, wait);
}

int mutexUnlock(void* mutex) {
  int code;
  bool fail = shouldFail(NpOp::kMutexUnlock, &code);
  int result = real().mutex_unlock(mutex);
  return fail ? code : result;
}

void mutexDestroy(void* mutex) {
  int code;
  shouldFail(NpOp::kMutexDestroy, &code);  // counted; a destroy cannot fail
  real().mutex_destroy(mutex);
}

const NpPlatformOps kFaultOps = {
    fioStat,   fioRename,  fioUnlink,   fioOpen,    fioClose,    fioChperm,
    dirOpen,   dirNext,    dirNextStat, dirClose,   dirCreate,   dirUnlink,
    dsoLoad,   dsoGetsym,  dsoUnload,   osinfUser,  procSleep,   timeNow,
    mutexCreate, mutexLock, mutexUnlock, mutexDestroy, fioLink,
    fioLstat,  fioFinfo,   fioRenameNoReplace, fioRead, fioWrite, fioTrylock,
    osinfHost, procId,     procProbe,  fsInfo,
};

}  // namespace

const char* npOpName(NpOp op) {
  static const char* const kNames[kNpOpCount] = {
      "fio_stat",   "fio_rename", "fio_unlink",    "fio_open",   "fio_close",   "fio_chperm",
      "dir_open",   "dir_next",   "dir_next_stat", "dir_close",  "dir_create",  "dir_unlink",
      "dso_load",   "dso_getsym", "dso_unload",    "osinf_user", "proc_sleep",  "time_now",
      "mutex_create", "mutex_lock", "mutex_unlock", "mutex_destroy", "fio_link",
      "fio_lstat",  "fio_finfo",  "fio_rename_noreplace", "fio_read", "fio_write",
      "fio_trylock", "osinf_host", "proc_id", "proc_probe", "fs_info",
  };
  int index = static_cast<int>(op);
  return index >= 0 && index < kNpOpCount ? kNames[index] : "unknown";
}

FaultPlatform::FaultPlatform() : table_(kFaultOps) {
  previousActive_ = g_active.exchange(this, std::memory_order_acq_rel);
  previousTable_ = npSetPlatformOps(&table_);
}

FaultPlatform::~FaultPlatform() {
  npSetPlatformOps(previousTable_);
  g_active.store(previousActive_, std::memory_order_release);
}

void FaultPlatform::failCall(NpOp op, int k, int code, Mode mode) {
  Slot& slot = slots_[static_cast<int>(op)];
  slot.code.store(code != 0 ? code : NP_ERR_UNKNOWN);
  slot.persistent.store(mode == Mode::kFromThenOn);
  slot.failAt.store(k >= 1 ? slot.calls.load() + k : 0);
}

void FaultPlatform::clearFaults() {
  for (Slot& slot : slots_) slot.failAt.store(0);
}

int FaultPlatform::callCount(NpOp op) const { return slots_[static_cast<int>(op)].calls.load(); }

int FaultPlatform::totalCalls() const {
  int total = 0;
  for (const Slot& slot : slots_) total += slot.calls.load();
  return total;
}

void FaultPlatform::resetCounts() {
  // Armed faults keep their distance from the present call.
  for (Slot& slot : slots_) {
    int calls = slot.calls.exchange(0);
    int failAt = slot.failAt.load();
    if (failAt == 0) continue;
    if (failAt > calls) {
      slot.failAt.store(failAt - calls);
    } else {
      // Already reached: a persistent fault goes on failing, a single one
      // is spent.
      slot.failAt.store(slot.persistent.load() ? 1 : 0);
    }
  }
}

int FaultPlatform::failuresInjected(NpOp op) const {
  return slots_[static_cast<int>(op)].injected.load();
}

int FaultPlatform::failuresInjected() const {
  int total = 0;
  for (const Slot& slot : slots_) total += slot.injected.load();
  return total;
}

void FaultPlatform::setSleepEnabled(bool enabled) { sleepEnabled_.store(enabled); }

void FaultPlatform::fakeFileSystem(const char* type, int kind) {
  fakingFileSystem_ = type != nullptr && type[0] != '\0';
  if (!fakingFileSystem_) return;
  std::snprintf(fakeFileSystem_.type, sizeof fakeFileSystem_.type, "%s", type);
  fakeFileSystem_.kind = kind;
}

bool FaultPlatform::fakedFileSystem(NpFsInfo* info) const {
  if (!fakingFileSystem_) return false;
  *info = fakeFileSystem_;
  return true;
}

bool FaultPlatform::countAndCheck(NpOp op, int* code) {
  Slot& slot = slots_[static_cast<int>(op)];
  int call = slot.calls.fetch_add(1) + 1;
  int failAt = slot.failAt.load();
  if (failAt == 0) return false;
  bool fail = slot.persistent.load() ? call >= failAt : call == failAt;
  if (!fail) return false;
  *code = slot.code.load();
  slot.injected.fetch_add(1);
  return true;
}

}  // namespace qztest
