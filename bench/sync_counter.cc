// A forwarding SQLite VFS that counts syncs.
#include "sync_counter.h"

#include <sqlite3.h>

#include <atomic>
#include <cstring>

namespace {

std::atomic<long> g_syncs{0};
sqlite3_vfs* g_base = nullptr;
sqlite3_vfs g_counting;

// Our file: the method table first, then the base VFS's file right after.
struct CountingFile {
  sqlite3_file base;  // pMethods points at kMethods
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

CountingFile* counting(sqlite3_file* file) { return reinterpret_cast<CountingFile*>(file); }
sqlite3_file* real(sqlite3_file* file) { return counting(file)->real(); }

int xClose(sqlite3_file* f) { return real(f)->pMethods->xClose(real(f)); }
int xRead(sqlite3_file* f, void* b, int n, sqlite3_int64 o) { return real(f)->pMethods->xRead(real(f), b, n, o); }
int xWrite(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) { return real(f)->pMethods->xWrite(real(f), b, n, o); }
int xTruncate(sqlite3_file* f, sqlite3_int64 size) { return real(f)->pMethods->xTruncate(real(f), size); }
int xSync(sqlite3_file* f, int flags) {
  g_syncs.fetch_add(1);
  return real(f)->pMethods->xSync(real(f), flags);
}
int xFileSize(sqlite3_file* f, sqlite3_int64* size) { return real(f)->pMethods->xFileSize(real(f), size); }
int xLock(sqlite3_file* f, int lock) { return real(f)->pMethods->xLock(real(f), lock); }
int xUnlock(sqlite3_file* f, int lock) { return real(f)->pMethods->xUnlock(real(f), lock); }
int xCheckReservedLock(sqlite3_file* f, int* out) { return real(f)->pMethods->xCheckReservedLock(real(f), out); }
int xFileControl(sqlite3_file* f, int op, void* arg) { return real(f)->pMethods->xFileControl(real(f), op, arg); }
int xSectorSize(sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); }
int xDeviceCharacteristics(sqlite3_file* f) { return real(f)->pMethods->xDeviceCharacteristics(real(f)); }
int xShmMap(sqlite3_file* f, int region, int size, int extend, void volatile** out) {
  return real(f)->pMethods->xShmMap(real(f), region, size, extend, out);
}
int xShmLock(sqlite3_file* f, int offset, int n, int flags) { return real(f)->pMethods->xShmLock(real(f), offset, n, flags); }
void xShmBarrier(sqlite3_file* f) { real(f)->pMethods->xShmBarrier(real(f)); }
int xShmUnmap(sqlite3_file* f, int remove) { return real(f)->pMethods->xShmUnmap(real(f), remove); }
int xFetch(sqlite3_file* f, sqlite3_int64 offset, int amount, void** out) {
  return real(f)->pMethods->xFetch(real(f), offset, amount, out);
}
int xUnfetch(sqlite3_file* f, sqlite3_int64 offset, void* page) { return real(f)->pMethods->xUnfetch(real(f), offset, page); }

const sqlite3_io_methods kMethods = {
    3,         xClose,   xRead,      xWrite,        xTruncate,           xSync,
    xFileSize, xLock,    xUnlock,    xCheckReservedLock, xFileControl,   xSectorSize,
    xDeviceCharacteristics, xShmMap, xShmLock, xShmBarrier, xShmUnmap,  xFetch,
    xUnfetch};

int xOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  CountingFile* wrapper = counting(file);
  wrapper->base.pMethods = nullptr;
  const int rc = g_base->xOpen(g_base, name, wrapper->real(), flags, outFlags);
  // SQLite calls xClose only when pMethods is set; it is set only when the
  // base opened the file.
  if (wrapper->real()->pMethods != nullptr) wrapper->base.pMethods = &kMethods;
  return rc;
}

int xDelete(sqlite3_vfs*, const char* name, int syncDirectory) {
  if (syncDirectory != 0) g_syncs.fetch_add(1);
  return g_base->xDelete(g_base, name, syncDirectory);
}

}  // namespace

namespace qzbench {

bool installSyncCounter() {
  if (g_base != nullptr) return true;
  g_base = sqlite3_vfs_find(nullptr);
  if (g_base == nullptr) return false;
  g_counting = *g_base;
  g_counting.zName = "qzbench-sync-counter";
  g_counting.szOsFile = static_cast<int>(sizeof(CountingFile)) + g_base->szOsFile;
  g_counting.pNext = nullptr;
  g_counting.xOpen = xOpen;
  g_counting.xDelete = xDelete;
  return sqlite3_vfs_register(&g_counting, 1) == SQLITE_OK;
}

long syncCalls() { return g_syncs.load(); }

}  // namespace qzbench
