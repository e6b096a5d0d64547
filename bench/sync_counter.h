// Counts the syncs SQLite asks of the file system (fsync and fdatasync): a
// benchmark that calls installSyncCounter() registers, as the process's
// default, a SQLite VFS that forwards every call to the default one and
// counts each file's sync calls and each delete that syncs its directory.
// Every connection opened afterwards in the process (the library's and the
// raw baseline's) is counted.
//
// Thread safety: the count is atomic; install once, before any database is
// opened.
#ifndef QZ_BENCH_SYNC_COUNTER_H_
#define QZ_BENCH_SYNC_COUNTER_H_

namespace qzbench {

// False when SQLite has no default VFS to wrap.
bool installSyncCounter();
// Syncs since the process started (or since it was forked: the count is
// inherited).
long syncCalls();

}  // namespace qzbench

#endif  // QZ_BENCH_SYNC_COUNTER_H_
