// The folder refresh of cached metadata (qzviRefreshCachedAttributes) over
// folders of 1,000 and 10,000 plain files, cold (empty cache: every file is
// read and written in one transaction) and warm (nothing changed: one select,
// one listing, no transaction), each against the raw baseline of
// raw_baseline.h measured in the same run. The files have no plug-in, so the
// figures measure the library's own work: listing, look-ups and statements.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include <benchmark/benchmark.h>

#include "cache_refresh.h"
#include "metadata_db.h"
#include "raw_baseline.h"

namespace {

namespace fs = std::filesystem;

// One temporary folder per size, made on first use and removed at exit.
class Folders {
 public:
  ~Folders() {
    std::error_code ignored;
    for (const auto& entry : folders_) fs::remove_all(entry.second, ignored);
  }
  const std::string& get(int files) {
    auto found = folders_.find(files);
    if (found != folders_.end()) return found->second;
    std::string pattern = (fs::temp_directory_path() / "qzvault-bench-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) {
      std::perror("mkdtemp");
      std::exit(1);
    }
    for (int i = 0; i < files; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "/file%05d.txt", i);
      FILE* file = std::fopen((pattern + name).c_str(), "w");
      if (file == nullptr) {
        std::perror("fopen");
        std::exit(1);
      }
      std::fputs("benchmark data\n", file);
      std::fclose(file);
    }
    return folders_.emplace(files, pattern).first->second;
  }

 private:
  std::map<int, std::string> folders_;
};

Folders g_folders;

void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
}

bool libraryRefresh(const std::string& folder, MemDBCache& cache, benchmark::State& state) {
  QzbString error;
  if (!qzviRefreshCachedAttributes(QzbString(folder.c_str()), nullptr, &error, cache, nullptr)) {
    state.SkipWithError(error.asCstr());
    return false;
  }
  return true;
}

void BM_LibraryCold(benchmark::State& state) {
  const std::string& folder = g_folders.get(static_cast<int>(state.range(0)));
  MemDBCache cache;
  for (auto _ : state) {
    state.PauseTiming();
    removeDatabase(folder + "/.v_cmd");
    state.ResumeTiming();
    if (!libraryRefresh(folder, cache, state)) break;
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_RawCold(benchmark::State& state) {
  const std::string& folder = g_folders.get(static_cast<int>(state.range(0)));
  const std::string database = folder + "/.raw_cmd";
  for (auto _ : state) {
    state.PauseTiming();
    removeDatabase(database);
    state.ResumeTiming();
    if (qzbench::rawColdRefresh(folder, database) != state.range(0)) {
      state.SkipWithError("raw cold refresh failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_LibraryWarm(benchmark::State& state) {
  const std::string& folder = g_folders.get(static_cast<int>(state.range(0)));
  MemDBCache cache;
  removeDatabase(folder + "/.v_cmd");
  if (!libraryRefresh(folder, cache, state)) return;  // fills the cache
  for (auto _ : state) {
    if (!libraryRefresh(folder, cache, state)) break;
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_RawWarm(benchmark::State& state) {
  const std::string& folder = g_folders.get(static_cast<int>(state.range(0)));
  const std::string database = folder + "/.raw_cmd";
  if (qzbench::rawColdRefresh(folder, database) != state.range(0)) {
    state.SkipWithError("raw cold refresh failed");
    return;
  }
  for (auto _ : state) {
    if (qzbench::rawWarmCheck(folder, database) != 0) {
      state.SkipWithError("raw warm check found changes");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_LibraryCold)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawCold)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LibraryWarm)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawWarm)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
