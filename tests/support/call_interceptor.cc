#include "support/call_interceptor.h"

#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <map>

namespace qztest {

namespace {

// The live interceptor; the table's entries and the VFS find it here. Calls
// made while none is live are forwarded uncounted.
std::atomic<CallInterceptor*> g_active{nullptr};

// The table in force when the interceptor was made: what every entry
// forwards to, so that an interceptor works on top of another test table.
std::atomic<const NpPlatformOps*> g_next{nullptr};

const NpPlatformOps& next() {
  const NpPlatformOps* table = g_next.load(std::memory_order_acquire);
  return table != nullptr ? *table : *npDefaultPlatformOps();
}

// The paths of open files and directories, for the record of calls.
std::mutex g_handleMutex;
std::map<const void*, std::string>& handlePaths() {
  static std::map<const void*, std::string>* paths = new std::map<const void*, std::string>();
  return *paths;
}

std::string pathOf(const void* handle) {
  std::lock_guard<std::mutex> lock(g_handleMutex);
  auto found = handlePaths().find(handle);
  return found == handlePaths().end() ? std::string() : found->second;
}

void rememberHandle(const void* handle, const char* path) {
  if (handle == nullptr) return;
  std::lock_guard<std::mutex> lock(g_handleMutex);
  handlePaths()[handle] = path != nullptr ? path : "";
}

void forgetHandle(const void* handle) {
  std::lock_guard<std::mutex> lock(g_handleMutex);
  handlePaths().erase(handle);
}

// 0: run the call; otherwise the code to fail it with.
int check(const char* name, const char* path, bool changing) {
  CallInterceptor* active = g_active.load(std::memory_order_acquire);
  if (active == nullptr) return 0;
  return active->onCall(CallInterceptor::Layer::kPlatform, name, path, changing);
}

bool opensForChange(int flags) {
  if ((flags & NP_FIO_PROBE) != 0) return false;
  return (flags & (NP_FIO_WRITE | NP_FIO_CREATE | NP_FIO_CREATE_NEW | NP_FIO_TRUNCATE)) != 0;
}

// ---------------------------------------------------------------------------
// Platform entries.

int fioStat(const char* path, NpStat* st) {
  if (int code = check("fio_stat", path, false)) return code;
  return next().fio_stat(path, st);
}

int fioRename(const char* oldPath, const char* newPath) {
  if (int code = check("fio_rename", oldPath, true)) return code;
  return next().fio_rename(oldPath, newPath);
}

int fioUnlink(const char* path) {
  if (int code = check("fio_unlink", path, true)) return code;
  return next().fio_unlink(path);
}

int fioOpen(const char* path, int flags, NpFile** handle) {
  if (int code = check("fio_open", path, opensForChange(flags))) {
    if (handle != nullptr) *handle = nullptr;
    return code;
  }
  const int result = next().fio_open(path, flags, handle);
  if (result == NP_OK && handle != nullptr) rememberHandle(*handle, path);
  return result;
}

int fioClose(NpFile* handle) {
  const std::string path = pathOf(handle);
  const int code = check("fio_close", path.c_str(), false);
  forgetHandle(handle);
  const int result = next().fio_close(handle);  // a failing close still frees the handle
  return code != 0 ? code : result;
}

int fioChperm(const char* path, int who, int how, int what) {
  if (int code = check("fio_chperm", path, true)) return code;
  return next().fio_chperm(path, who, how, what);
}

int dirOpen(const char* path, int flags, NpDir** handle) {
  if (int code = check("dir_open", path, false)) {
    if (handle != nullptr) *handle = nullptr;
    return code;
  }
  const int result = next().dir_open(path, flags, handle);
  if (result == NP_OK && handle != nullptr) rememberHandle(*handle, path);
  return result;
}

int dirNext(NpDir* handle, char* name, std::size_t nameLength) {
  if (int code = check("dir_next", pathOf(handle).c_str(), false)) return code;
  return next().dir_next(handle, name, nameLength);
}

int dirNextStat(NpDir* handle, char* name, std::size_t nameLength, NpDirEntry* entry) {
  if (int code = check("dir_next_stat", pathOf(handle).c_str(), false)) return code;
  return next().dir_next_stat(handle, name, nameLength, entry);
}

int dirClose(NpDir* handle) {
  const std::string path = pathOf(handle);
  const int code = check("dir_close", path.c_str(), false);
  forgetHandle(handle);
  const int result = next().dir_close(handle);
  return code != 0 ? code : result;
}

int dirCreate(const char* path, int mode) {
  if (int code = check("dir_create", path, true)) return code;
  return next().dir_create(path, mode);
}

int dirUnlink(const char* path) {
  if (int code = check("dir_unlink", path, true)) return code;
  return next().dir_unlink(path);
}

int fioLink(const char* existingPath, const char* newPath) {
  if (int code = check("fio_link", newPath, true)) return code;
  return next().fio_link(existingPath, newPath);
}

int fioLstat(const char* path, NpFileInfo* info) {
  if (int code = check("fio_lstat", path, false)) return code;
  return next().fio_lstat(path, info);
}

int fioFinfo(NpFile* handle, NpFileInfo* info) {
  if (int code = check("fio_finfo", pathOf(handle).c_str(), false)) return code;
  return next().fio_finfo(handle, info);
}

int fioRenameNoReplace(const char* oldPath, const char* newPath) {
  if (int code = check("fio_rename_noreplace", oldPath, true)) return code;
  return next().fio_rename_noreplace(oldPath, newPath);
}

int fioRead(NpFile* handle, void* buffer, std::size_t length, std::size_t* got) {
  if (int code = check("fio_read", pathOf(handle).c_str(), false)) {
    if (got != nullptr) *got = 0;
    return code;
  }
  return next().fio_read(handle, buffer, length, got);
}

int fioWrite(NpFile* handle, const void* data, std::size_t length) {
  if (int code = check("fio_write", pathOf(handle).c_str(), true)) return code;
  return next().fio_write(handle, data, length);
}

int fioTrylock(NpFile* handle) {
  if (int code = check("fio_trylock", pathOf(handle).c_str(), false)) return code;
  return next().fio_trylock(handle);
}

// Uncounted entries forward to the next table.
int dsoLoad(const char* path, int flags, NpDso** handle) { return next().dso_load(path, flags, handle); }
void* dsoGetsym(NpDso* handle, const char* name) { return next().dso_getsym(handle, name); }
int dsoUnload(NpDso* handle) { return next().dso_unload(handle); }
int osinfUser(char* buffer, std::size_t length) { return next().osinf_user(buffer, length); }
int procSleep(int seconds) { return next().proc_sleep(seconds); }
int64_t timeNow(void) { return next().time_now(); }
void* mutexCreate(int processShared, int recursive) {
  return next().mutex_create(processShared, recursive);
}
int mutexLock(void* mutex, int wait) { return next().mutex_lock(mutex, wait); }
int mutexUnlock(void* mutex) { return next().mutex_unlock(mutex); }
void mutexDestroy(void* mutex) { next().mutex_destroy(mutex); }
int osinfHost(char* buffer, std::size_t length) { return next().osinf_host(buffer, length); }
int64_t procId(void) { return next().proc_id(); }
int procProbe(int64_t processId, uint64_t* startToken) {
  return next().proc_probe(processId, startToken);
}
// Reads only: forwarded.
int fsInfo(const char* path, NpFsInfo* info) { return next().fs_info(path, info); }

const NpPlatformOps kInterceptOps = {
    fioStat,   fioRename,  fioUnlink,   fioOpen,    fioClose,    fioChperm,
    dirOpen,   dirNext,    dirNextStat, dirClose,   dirCreate,   dirUnlink,
    dsoLoad,   dsoGetsym,  dsoUnload,   osinfUser,  procSleep,   timeNow,
    mutexCreate, mutexLock, mutexUnlock, mutexDestroy, fioLink,
    fioLstat,  fioFinfo,   fioRenameNoReplace, fioRead, fioWrite, fioTrylock,
    osinfHost, procId,     procProbe,  fsInfo,
};

// ---------------------------------------------------------------------------
// The VFS: the default one, with the calls that change files counted. It is
// registered once and stays registered for the life of the process, since a
// connection opened through it may outlive the interceptor (the library's
// in-memory databases live as long as their vault); without a live
// interceptor it only forwards.

sqlite3_vfs* g_realVfs = nullptr;
sqlite3_vfs g_interceptVfs;

struct InterceptFile {
  sqlite3_file base;
  sqlite3_file* real;  // the default VFS's file, right after this struct
  const char* name;
};

sqlite3_file* realOf(sqlite3_file* file) { return reinterpret_cast<InterceptFile*>(file)->real; }
const char* nameOf(sqlite3_file* file) {
  const char* name = reinterpret_cast<InterceptFile*>(file)->name;
  return name != nullptr ? name : "";
}

int checkDatabase(const char* name, const char* path, bool changing) {
  CallInterceptor* active = g_active.load(std::memory_order_acquire);
  if (active == nullptr) return 0;
  const int npCode = active->onCall(CallInterceptor::Layer::kDatabase, name, path, changing);
  return npCode == 0 ? 0 : CallInterceptor::sqliteCodeFor(npCode, name);
}

int ioClose(sqlite3_file* file) {
  sqlite3_file* real = realOf(file);
  return real->pMethods != nullptr ? real->pMethods->xClose(real) : SQLITE_OK;
}
int ioRead(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset) {
  return realOf(file)->pMethods->xRead(realOf(file), buffer, amount, offset);
}
int ioWrite(sqlite3_file* file, const void* data, int amount, sqlite3_int64 offset) {
  if (int code = checkDatabase("sqlite_write", nameOf(file), true)) return code;
  return realOf(file)->pMethods->xWrite(realOf(file), data, amount, offset);
}
int ioTruncate(sqlite3_file* file, sqlite3_int64 size) {
  if (int code = checkDatabase("sqlite_truncate", nameOf(file), true)) return code;
  return realOf(file)->pMethods->xTruncate(realOf(file), size);
}
int ioSync(sqlite3_file* file, int flags) {
  // A sync changes nothing that a killed process leaves behind.
  if (int code = checkDatabase("sqlite_sync", nameOf(file), false)) return code;
  CallInterceptor* active = g_active.load(std::memory_order_acquire);
  if (active != nullptr && !active->syncsEnabled()) return SQLITE_OK;
  return realOf(file)->pMethods->xSync(realOf(file), flags);
}
int ioFileSize(sqlite3_file* file, sqlite3_int64* size) {
  return realOf(file)->pMethods->xFileSize(realOf(file), size);
}
int ioLock(sqlite3_file* file, int level) { return realOf(file)->pMethods->xLock(realOf(file), level); }
int ioUnlock(sqlite3_file* file, int level) {
  return realOf(file)->pMethods->xUnlock(realOf(file), level);
}
int ioCheckReservedLock(sqlite3_file* file, int* out) {
  return realOf(file)->pMethods->xCheckReservedLock(realOf(file), out);
}
int ioFileControl(sqlite3_file* file, int op, void* arg) {
  return realOf(file)->pMethods->xFileControl(realOf(file), op, arg);
}
int ioSectorSize(sqlite3_file* file) { return realOf(file)->pMethods->xSectorSize(realOf(file)); }
int ioDeviceCharacteristics(sqlite3_file* file) {
  return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}
int ioShmMap(sqlite3_file* file, int page, int size, int extend, void volatile** out) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_IOERR;
  return real->pMethods->xShmMap(real, page, size, extend, out);
}
int ioShmLock(sqlite3_file* file, int offset, int n, int flags) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_IOERR;
  return real->pMethods->xShmLock(real, offset, n, flags);
}
void ioShmBarrier(sqlite3_file* file) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion >= 2) real->pMethods->xShmBarrier(real);
}
int ioShmUnmap(sqlite3_file* file, int deleteFlag) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_OK;
  return real->pMethods->xShmUnmap(real, deleteFlag);
}
int ioFetch(sqlite3_file* file, sqlite3_int64 offset, int amount, void** out) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion < 3) {
    *out = nullptr;
    return SQLITE_OK;
  }
  return real->pMethods->xFetch(real, offset, amount, out);
}
int ioUnfetch(sqlite3_file* file, sqlite3_int64 offset, void* page) {
  sqlite3_file* real = realOf(file);
  if (real->pMethods->iVersion < 3) return SQLITE_OK;
  return real->pMethods->xUnfetch(real, offset, page);
}

const sqlite3_io_methods kInterceptIo = {
    3,           ioClose,     ioRead,      ioWrite,      ioTruncate,
    ioSync,      ioFileSize,  ioLock,      ioUnlock,     ioCheckReservedLock,
    ioFileControl, ioSectorSize, ioDeviceCharacteristics, ioShmMap, ioShmLock,
    ioShmBarrier, ioShmUnmap, ioFetch,     ioUnfetch,
};

int vfsOpen(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags) {
  InterceptFile* intercept = reinterpret_cast<InterceptFile*>(file);
  intercept->base.pMethods = nullptr;
  intercept->real = reinterpret_cast<sqlite3_file*>(intercept + 1);
  intercept->name = name;
  if (int code = checkDatabase("sqlite_open", name != nullptr ? name : "",
                               (flags & SQLITE_OPEN_CREATE) != 0)) {
    return code;
  }
  const int result = g_realVfs->xOpen(g_realVfs, name, intercept->real, flags, outFlags);
  if (intercept->real->pMethods != nullptr) intercept->base.pMethods = &kInterceptIo;
  return result;
}
int vfsDelete(sqlite3_vfs*, const char* name, int syncDir) {
  if (int code = checkDatabase("sqlite_delete", name, true)) return code;
  CallInterceptor* active = g_active.load(std::memory_order_acquire);
  if (active != nullptr && !active->syncsEnabled()) syncDir = 0;
  return g_realVfs->xDelete(g_realVfs, name, syncDir);
}
int vfsAccess(sqlite3_vfs*, const char* name, int flags, int* out) {
  return g_realVfs->xAccess(g_realVfs, name, flags, out);
}
int vfsFullPathname(sqlite3_vfs*, const char* name, int size, char* out) {
  return g_realVfs->xFullPathname(g_realVfs, name, size, out);
}
void* vfsDlOpen(sqlite3_vfs*, const char* name) { return g_realVfs->xDlOpen(g_realVfs, name); }
void vfsDlError(sqlite3_vfs*, int size, char* out) { g_realVfs->xDlError(g_realVfs, size, out); }
void (*vfsDlSym(sqlite3_vfs*, void* library, const char* symbol))(void) {
  return g_realVfs->xDlSym(g_realVfs, library, symbol);
}
void vfsDlClose(sqlite3_vfs*, void* library) { g_realVfs->xDlClose(g_realVfs, library); }
int vfsRandomness(sqlite3_vfs*, int size, char* out) {
  return g_realVfs->xRandomness(g_realVfs, size, out);
}
int vfsSleep(sqlite3_vfs*, int microseconds) { return g_realVfs->xSleep(g_realVfs, microseconds); }
int vfsCurrentTime(sqlite3_vfs*, double* out) { return g_realVfs->xCurrentTime(g_realVfs, out); }
int vfsGetLastError(sqlite3_vfs*, int size, char* out) {
  return g_realVfs->xGetLastError(g_realVfs, size, out);
}
int vfsCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* out) {
  return g_realVfs->xCurrentTimeInt64(g_realVfs, out);
}
int vfsSetSystemCall(sqlite3_vfs*, const char* name, sqlite3_syscall_ptr call) {
  return g_realVfs->xSetSystemCall(g_realVfs, name, call);
}
sqlite3_syscall_ptr vfsGetSystemCall(sqlite3_vfs*, const char* name) {
  return g_realVfs->xGetSystemCall(g_realVfs, name);
}
const char* vfsNextSystemCall(sqlite3_vfs*, const char* name) {
  return g_realVfs->xNextSystemCall(g_realVfs, name);
}

// Registers the counting VFS (once) and makes it the default.
void installVfs() {
  if (g_realVfs == nullptr) {
    g_realVfs = sqlite3_vfs_find(nullptr);
    g_interceptVfs = sqlite3_vfs{};
    g_interceptVfs.iVersion = g_realVfs->iVersion < 3 ? g_realVfs->iVersion : 3;
    g_interceptVfs.szOsFile = static_cast<int>(sizeof(InterceptFile)) + g_realVfs->szOsFile;
    g_interceptVfs.mxPathname = g_realVfs->mxPathname;
    g_interceptVfs.zName = "qztest-intercept";
    g_interceptVfs.xOpen = vfsOpen;
    g_interceptVfs.xDelete = vfsDelete;
    g_interceptVfs.xAccess = vfsAccess;
    g_interceptVfs.xFullPathname = vfsFullPathname;
    g_interceptVfs.xDlOpen = vfsDlOpen;
    g_interceptVfs.xDlError = vfsDlError;
    g_interceptVfs.xDlSym = vfsDlSym;
    g_interceptVfs.xDlClose = vfsDlClose;
    g_interceptVfs.xRandomness = vfsRandomness;
    g_interceptVfs.xSleep = vfsSleep;
    g_interceptVfs.xCurrentTime = vfsCurrentTime;
    g_interceptVfs.xGetLastError = vfsGetLastError;
    if (g_interceptVfs.iVersion >= 2) g_interceptVfs.xCurrentTimeInt64 = vfsCurrentTimeInt64;
    if (g_interceptVfs.iVersion >= 3) {
      g_interceptVfs.xSetSystemCall = vfsSetSystemCall;
      g_interceptVfs.xGetSystemCall = vfsGetSystemCall;
      g_interceptVfs.xNextSystemCall = vfsNextSystemCall;
    }
  }
  sqlite3_vfs_register(&g_interceptVfs, 1);
}

}  // namespace

CallInterceptor::CallInterceptor() : table_(kInterceptOps) {
  g_next.store(npGetPlatformOps(), std::memory_order_release);
  installVfs();
  g_active.store(this, std::memory_order_release);
  previousTable_ = npSetPlatformOps(&table_);
}

CallInterceptor::~CallInterceptor() {
  g_active.store(nullptr, std::memory_order_release);
  npSetPlatformOps(previousTable_);
  // The counting VFS stays registered (it only forwards now); the previous
  // default becomes the default again.
  sqlite3_vfs_register(g_realVfs, 1);
}

void CallInterceptor::killBefore(int k, Count which) {
  std::lock_guard<std::mutex> lock(mutex_);
  armed_ = Armed();
  armed_.which = which;
  armed_.at = k >= 1 ? calls(which) + k : 0;
  armed_.kill = true;
}

void CallInterceptor::failAt(int k, Count which, int npCode, bool fromThenOn) {
  std::lock_guard<std::mutex> lock(mutex_);
  armed_ = Armed();
  armed_.which = which;
  armed_.at = k >= 1 ? calls(which) + k : 0;
  armed_.code = npCode != 0 ? npCode : NP_ERR_UNKNOWN;
  armed_.fromThenOn = fromThenOn;
}

void CallInterceptor::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  armed_ = Armed();
}

int CallInterceptor::calls(Count which) const {
  return which == Count::kEvery ? every_.load() : changing_.load();
}

void CallInterceptor::recordCalls(bool record) {
  std::lock_guard<std::mutex> lock(mutex_);
  record_ = record;
}

std::vector<CallInterceptor::Call> CallInterceptor::recorded() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return recorded_;
}

int CallInterceptor::sqliteCodeFor(int npCode, const std::string& databaseCall) {
  if (npCode == NP_ERR_NO_SPACE) return SQLITE_FULL;
  if (databaseCall == "sqlite_open") return SQLITE_CANTOPEN;
  if (databaseCall == "sqlite_write") return SQLITE_IOERR_WRITE;
  if (databaseCall == "sqlite_truncate") return SQLITE_IOERR_TRUNCATE;
  if (databaseCall == "sqlite_sync") return SQLITE_IOERR_FSYNC;
  if (databaseCall == "sqlite_delete") return SQLITE_IOERR_DELETE;
  return SQLITE_IOERR;
}

int CallInterceptor::onCall(Layer layer, const char* name, const char* path, bool changing) {
  const int every = every_.fetch_add(1) + 1;
  const int changed = changing ? changing_.fetch_add(1) + 1 : changing_.load();
  std::lock_guard<std::mutex> lock(mutex_);
  if (record_) recorded_.push_back(Call{layer, name, path != nullptr ? path : "", changing});
  if (armed_.at == 0) return 0;
  const bool counts = armed_.which == Count::kEvery || changing;
  if (!counts) return 0;
  const int number = armed_.which == Count::kEvery ? every : changed;
  const bool hit = armed_.fromThenOn ? number >= armed_.at : number == armed_.at;
  if (!hit) return 0;
  fired_.fetch_add(1);
  if (armed_.kill) {
    // Nothing may run after this point: no destructor, no buffered output.
    raise(SIGKILL);
    _exit(137);  // not reached
  }
  return armed_.code;
}

}  // namespace qztest
