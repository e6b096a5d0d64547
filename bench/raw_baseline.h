// The raw baselines of the refresh and listing benchmarks: what the same work
// costs with nothing but the operating system and SQLite, no library in
// between. The library cannot be cheaper than this; the benchmarks report how
// far above it the library stays.
//
// Each function lists `directory` with readdir and stat every entry, skipping
// names that begin with "." and entries that are not regular files, as the
// library's folder refresh and listing do.
#ifndef QZ_BENCH_RAW_BASELINE_H_
#define QZ_BENCH_RAW_BASELINE_H_

#include <cstddef>
#include <string>

namespace qzbench {

// Cold: removes `database`, creates it with the cache's two tables and their
// indexes, and in one transaction inserts for every file the rows the cache
// holds for a file without plug-in (a v_file row and the two date rows of
// v_attr) with statements prepared once. Returns the number of files, or -1 on
// failure.
long rawColdRefresh(const std::string& directory, const std::string& database);

// Warm: lists and stats the directory, reads every (fname, tstamp) row of
// `database` with one select into a hash map, and counts the files whose time
// stamp differs by more than a second or that are not cached. Returns that
// count (0 when nothing changed), or -1 on failure.
long rawWarmCheck(const std::string& directory, const std::string& database);

// Creates (replacing any) a fixed-metadata database at `path` with the
// tables that a listing reads and an object's creation writes (v_attr,
// v_object, v_symlink), empty. False on failure.
bool makeRawFixedDb(const std::string& path);

// A listing: lists and stats the directory, reads the cached names and types
// of `cacheDb` (v_file) and the stored names of `fixedDb` (v_object) with one
// select each into hash maps, reads the links (v_symlink), and builds the
// rows (display name, full path, type, read-only "N") with the library's name
// precedence: cached name, else stored name, else the file name without its
// extension. Returns the number of rows, or -1 on failure.
long rawWarmList(const std::string& directory, const std::string& cacheDb,
                 const std::string& fixedDb);

// A listing in a folder that other processes change: lists and stats the
// directory once, reads the cached (fname, tstamp) rows, caches the files
// that are new or changed in one immediate transaction (reading the cached
// names again inside it, so that a file another process cached meanwhile is
// not cached twice), then reads the names and builds the rows as
// rawWarmList does. Returns the number of rows, or -1 on failure.
long rawRefreshAndList(const std::string& directory, const std::string& cacheDb,
                       const std::string& fixedDb);

}  // namespace qzbench

#endif  // QZ_BENCH_RAW_BASELINE_H_
