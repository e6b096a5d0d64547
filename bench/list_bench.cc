// A folder's object listing (QzvFolder::getObjectList) over a folder of
// 10,000 plain files, against raw baselines (readdir, stat and SQLite selects,
// nothing of the library) measured in the same run:
//
//   cold, empty cache   a new vault over a folder without metadata databases:
//                       the listing creates them and caches every file
//   cold, cache on disk a new vault over a folder whose cache is up to date:
//                       the first listing compares the folder with the cache
//   warm                the same vault lists again: no refresh at all
//
// The files have no plug-in, so the figures measure the library's own work.
// After the runs the program prints each library figure as a multiple of its
// baseline.
#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "folder_impl.h"
#include "qzvault/item_list.h"
#include "raw_baseline.h"
#include "vault_impl.h"

namespace {

namespace fs = std::filesystem;

const int kFiles = 10000;

// The benchmark folder, made on first use and removed at exit.
class Folder {
 public:
  ~Folder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  const std::string& get() {
    if (!path_.empty()) return path_;
    std::string pattern = (fs::temp_directory_path() / "qzvault-list-bench-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) {
      std::perror("mkdtemp");
      std::exit(1);
    }
    for (int i = 0; i < kFiles; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "/object%05d.txt", i);
      FILE* file = std::fopen((pattern + name).c_str(), "w");
      if (file == nullptr) {
        std::perror("fopen");
        std::exit(1);
      }
      std::fputs("benchmark data\n", file);
      std::fclose(file);
    }
    path_ = pattern;
    return path_;
  }

 private:
  std::string path_;
};

Folder g_folder;

void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
}

void removeLibraryDatabases(const std::string& folder) {
  removeDatabase(folder + "/.v_cmd");
  removeDatabase(folder + "/.v_fmd");
}

// One listing through the library; the number of rows, or -1.
long libraryList(QzvVaultImpl* vault) {
  QzvFolder* folder = vault->getRootFolder();
  if (folder == nullptr) return -1;
  QzvItemList* list = folder->getObjectList(false);
  long rows = -1;
  if (list != nullptr) {
    rows = 0;
    while (list->next()) {
      benchmark::DoNotOptimize(list->getValue(0));
      ++rows;
    }
    list->release();
  }
  folder->release();
  return rows;
}

QzvVaultImpl* newVault(const std::string& folder) {
  return new QzvVaultImpl(QzbString(folder.c_str()), nullptr, QzbString("", true));
}

// ---------------------------------------------------------------------------
// The raw listing: what a listing costs with the operating system and SQLite
// alone. Lists and stats the directory (skipping dot-names and entries that
// are not regular files), reads the cached names and types and the stored
// names with one select each into hash maps, reads the links, and builds the
// rows with the same name precedence. Returns the number of rows, or -1.

struct CachedName {
  std::string name;
  bool hasName;
  std::string type;
};

bool selectInto(const std::string& database, const char* sql,
                const std::function<void(sqlite3_stmt*)>& onRow) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return false;
  }
  sqlite3_stmt* statement = nullptr;
  bool ok = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK;
  while (ok && sqlite3_step(statement) == SQLITE_ROW) onRow(statement);
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return ok;
}

std::string text(sqlite3_stmt* statement, int column) {
  const unsigned char* value = sqlite3_column_text(statement, column);
  return value != nullptr ? reinterpret_cast<const char*>(value) : std::string();
}

long rawList(const std::string& directory, const std::string& cacheDb, const std::string& fixedDb) {
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return -1;
  std::vector<std::string> files;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    const std::string path = directory + "/" + entry->d_name;
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    files.push_back(entry->d_name);
  }
  closedir(dir);

  std::unordered_map<std::string, CachedName> cached;
  std::unordered_map<std::string, std::string> stored;
  if (!selectInto(cacheDb, "SELECT fname, name, type FROM v_file", [&](sqlite3_stmt* row) {
        cached.emplace(text(row, 0), CachedName{text(row, 1), sqlite3_column_type(row, 1) !=
                                                                   SQLITE_NULL,
                                                text(row, 2)});
      })) {
    return -1;
  }
  selectInto(fixedDb, "SELECT fname, name FROM v_object WHERE fname IS NOT NULL",
             [&](sqlite3_stmt* row) { stored.emplace(text(row, 0), text(row, 1)); });

  std::vector<std::vector<std::string>> rows;
  rows.reserve(files.size());
  for (const std::string& file : files) {
    std::string name;
    std::string type;
    auto found = cached.find(file);
    if (found != cached.end()) type = found->second.type;
    if (found != cached.end() && found->second.hasName) {
      name = found->second.name;
    } else {
      auto fixed = stored.find(file);
      name = fixed != stored.end() ? fixed->second : file.substr(0, file.rfind('.'));
    }
    rows.push_back({name, directory + "/" + file, type, "N"});
  }
  selectInto(fixedDb, "SELECT name, fname FROM v_symlink", [&](sqlite3_stmt* row) {
    rows.push_back({text(row, 0), directory + "/" + text(row, 1), "link", ""});
  });
  benchmark::DoNotOptimize(rows.data());
  return static_cast<long>(rows.size());
}

// A fixed-metadata database for the raw listing: the two tables it reads.
void makeRawFixedDb(const std::string& path) {
  removeDatabase(path);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db,
               "CREATE TABLE v_symlink (fname TEXT, name TEXT);"
               "CREATE TABLE v_object (fname TEXT, name TEXT);",
               nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

// ---------------------------------------------------------------------------
// Library

void BM_LibraryColdEmptyCache(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  for (auto _ : state) {
    state.PauseTiming();
    removeLibraryDatabases(folder);
    state.ResumeTiming();
    QzvVaultImpl* vault = newVault(folder);
    const long rows = libraryList(vault);
    vault->release();
    if (rows != kFiles) {
      state.SkipWithError("the library listing failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}

void BM_LibraryColdCacheOnDisk(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  removeLibraryDatabases(folder);
  {
    QzvVaultImpl* vault = newVault(folder);
    libraryList(vault);  // fills the cache on disk
    vault->release();
  }
  for (auto _ : state) {
    QzvVaultImpl* vault = newVault(folder);
    const long rows = libraryList(vault);
    vault->release();
    if (rows != kFiles) {
      state.SkipWithError("the library listing failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}

void BM_LibraryWarm(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  QzvVaultImpl* vault = newVault(folder);
  libraryList(vault);  // the refresh happens here, once
  for (auto _ : state) {
    if (libraryList(vault) != kFiles) {
      state.SkipWithError("the library listing failed");
      break;
    }
  }
  vault->release();
  state.SetItemsProcessed(state.iterations() * kFiles);
}

// ---------------------------------------------------------------------------
// Raw baselines (their databases are dot-files, which no listing shows)

void BM_RawColdEmptyCache(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  const std::string cacheDb = folder + "/.raw_cmd";
  const std::string fixedDb = folder + "/.raw_fmd";
  for (auto _ : state) {
    state.PauseTiming();
    removeDatabase(cacheDb);
    removeDatabase(fixedDb);
    state.ResumeTiming();
    makeRawFixedDb(fixedDb);
    if (qzbench::rawColdRefresh(folder, cacheDb) != kFiles ||
        rawList(folder, cacheDb, fixedDb) != kFiles) {
      state.SkipWithError("the raw listing failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}

void BM_RawColdCacheOnDisk(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  const std::string cacheDb = folder + "/.raw_cmd";
  const std::string fixedDb = folder + "/.raw_fmd";
  makeRawFixedDb(fixedDb);
  removeDatabase(cacheDb);
  if (qzbench::rawColdRefresh(folder, cacheDb) != kFiles) {
    state.SkipWithError("the raw cache could not be made");
    return;
  }
  for (auto _ : state) {
    if (qzbench::rawWarmCheck(folder, cacheDb) != 0 ||
        rawList(folder, cacheDb, fixedDb) != kFiles) {
      state.SkipWithError("the raw listing failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}

void BM_RawWarm(benchmark::State& state) {
  const std::string& folder = g_folder.get();
  const std::string cacheDb = folder + "/.raw_cmd";
  const std::string fixedDb = folder + "/.raw_fmd";
  makeRawFixedDb(fixedDb);
  removeDatabase(cacheDb);
  if (qzbench::rawColdRefresh(folder, cacheDb) != kFiles) {
    state.SkipWithError("the raw cache could not be made");
    return;
  }
  for (auto _ : state) {
    if (rawList(folder, cacheDb, fixedDb) != kFiles) {
      state.SkipWithError("the raw listing failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}

BENCHMARK(BM_LibraryColdEmptyCache)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawColdEmptyCache)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LibraryColdCacheOnDisk)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawColdCacheOnDisk)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LibraryWarm)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawWarm)->Unit(benchmark::kMillisecond)->UseRealTime();

// Prints as usual and keeps each benchmark's mean real time, for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    // With repetitions the median is kept; otherwise the single run.
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      const std::string& name = run.run_name.function_name;
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        times_[name] = run.GetAdjustedRealTime();
        medians_.insert(name);
      } else if (run.run_type == Run::RT_Iteration && medians_.count(name) == 0) {
        times_[name] = run.GetAdjustedRealTime();
      }
    }
  }
  void printRatios() const {
    std::printf("\nLibrary time as a multiple of the raw baseline (10,000 files):\n");
    for (const char* kind : {"ColdEmptyCache", "ColdCacheOnDisk", "Warm"}) {
      const auto library = times_.find(std::string("BM_Library") + kind);
      const auto raw = times_.find(std::string("BM_Raw") + kind);
      if (library == times_.end() || raw == times_.end() || raw->second <= 0) continue;
      std::printf("  %-16s library %9.2f ms   raw %9.2f ms   ratio %5.2f\n", kind,
                  library->second, raw->second, library->second / raw->second);
    }
  }

 private:
  std::map<std::string, double> times_;
  std::set<std::string> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  return 0;
}
