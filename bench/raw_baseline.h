// The raw baseline of the cache-refresh benchmark: what the same work costs
// with nothing but the operating system and SQLite, no library in between.
// A refresh of the library cannot be cheaper than this; the benchmark reports
// how far above it the library stays.
//
// Both functions list `directory` with readdir and stat every entry, skipping
// names that begin with "." and entries that are not regular files, as the
// library's folder refresh does.
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

}  // namespace qzbench

#endif  // QZ_BENCH_RAW_BASELINE_H_
