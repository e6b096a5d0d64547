// The folder refresh of cached metadata (qzviRefreshCachedAttributes) over a
// folder of plain files, paired with the raw baselines of raw_baseline.h on
// the same folder:
//
//   cold refresh   an empty cache: every file is read and written in one
//                  transaction; against the raw cold refresh
//   warm refresh   nothing changed: one select, one listing, no transaction;
//                  against the raw warm check
//
// The files have no plug-in, so the figures measure the library's own work:
// listing, look-ups and statements.
#include <string>

#include "bench_files.h"
#include "cache_refresh.h"
#include "metadata_db.h"
#include "paired.h"
#include "raw_baseline.h"

namespace {

bool libraryRefresh(const std::string& folder, MemDBCache& cache) {
  QzbString error;
  if (qzviRefreshCachedAttributes(QzbString(folder.c_str()), nullptr, &error, cache, nullptr)) {
    return true;
  }
  std::fprintf(stderr, "refresh failed: %s\n", error.asCstr());
  return false;
}

void runSize(qzbench::Runner& runner, long files) {
  qzbench::TempDir folder("qzvault-refresh-bench");
  const std::string& path = folder.path();
  if (!qzbench::makeFiles(path, files, "file", "txt")) {
    runner.fail(files, "making the folder");
    return;
  }
  const std::string cacheDb = path + "/.v_cmd";
  const std::string rawDb = path + "/.raw_cmd";
  MemDBCache cache;

  qzbench::Case cold;
  cold.name = "cold refresh";
  cold.rawName = "raw cold refresh";
  cold.library.prepare = [&] {
    qzbench::removeDatabase(cacheDb);
    return true;
  };
  cold.library.run = [&] { return libraryRefresh(path, cache); };
  cold.raw.prepare = [&] {
    qzbench::removeDatabase(rawDb);
    return true;
  };
  cold.raw.run = [&] { return qzbench::rawColdRefresh(path, rawDb) == files; };
  runner.run(files, cold);

  // Both caches are now filled and up to date.
  qzbench::Case warm;
  warm.name = "warm refresh (nothing changed)";
  warm.rawName = "raw warm check";
  warm.library.run = [&] { return libraryRefresh(path, cache); };
  warm.raw.run = [&] { return qzbench::rawWarmCheck(path, rawDb) == 0; };
  runner.run(files, warm);
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "refresh_bench", "files", {10000}, {1000, 10000, 100000},
                         500);
  for (long files : runner.sizes()) runSize(runner, files);
  return runner.finish();
}
