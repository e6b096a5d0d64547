// A folder's object listing (QzvFolder::getObjectList) over a folder of plain
// files, paired with raw baselines (readdir, stat and SQLite, nothing of the
// library) on the same folder:
//
//   list, no metadata yet       a new vault over a folder without metadata
//                               databases: the listing creates them and caches
//                               every file; against the raw cold refresh,
//                               which lists, stats and writes the same cache
//                               rows in one transaction
//   list, metadata on disk,     a new vault (as in a new process) over a folder
//     new vault                 whose cache is up to date: the listing compares
//                               the folder with the cache, then lists; against
//                               the raw warm list (list, stat, read the names)
//   list again, same vault      the vault lists again: no refresh at all;
//                               against the raw warm list
//
// The files have no plug-in, so the figures measure the library's own work.
#include <string>

#include "bench_files.h"
#include "folder_impl.h"
#include "paired.h"
#include "qzvault/item_list.h"
#include "raw_baseline.h"
#include "vault_impl.h"

namespace {

QzvVaultImpl* newVault(const std::string& folder) {
  return new QzvVaultImpl(QzbString(folder.c_str()), nullptr, QzbString("", true));
}

// One listing of the vault's root folder through the library; the number of
// rows, or -1.
long libraryList(QzvVaultImpl* vault) {
  QzvFolder* folder = vault->getRootFolder();
  if (folder == nullptr) return -1;
  QzvItemList* list = folder->getObjectList(false);
  long rows = -1;
  if (list != nullptr) {
    rows = 0;
    while (list->next()) {
      if (!list->getValue(0).isNull()) ++rows;
    }
    list->release();
  }
  folder->release();
  return rows;
}

bool expectRows(long rows, long expected, const char* what) {
  if (rows == expected) return true;
  std::fprintf(stderr, "%s listed %ld rows instead of %ld\n", what, rows, expected);
  return false;
}

void removeLibraryDatabases(const std::string& folder) {
  qzbench::removeDatabase(folder + "/.v_cmd");
  qzbench::removeDatabase(folder + "/.v_fmd");
}

void runSize(qzbench::Runner& runner, long files) {
  qzbench::TempDir folder("qzvault-list-bench");
  const std::string& path = folder.path();
  if (!qzbench::makeFiles(path, files, "object", "txt")) {
    runner.fail(files, "making the folder");
    return;
  }
  // The raw databases are dot-files, which no listing shows.
  const std::string rawCache = path + "/.raw_cmd";
  const std::string rawFixed = path + "/.raw_fmd";

  qzbench::Case cold;
  cold.name = "list, no metadata yet";
  cold.rawName = "raw cold refresh";
  cold.target = 1.3;
  cold.library.prepare = [&] {
    removeLibraryDatabases(path);
    return true;
  };
  cold.library.run = [&] {
    QzvVaultImpl* vault = newVault(path);
    const long rows = libraryList(vault);
    vault->release();
    return expectRows(rows, files, "the library");
  };
  cold.raw.prepare = [&] {
    qzbench::removeDatabase(rawCache);
    return true;
  };
  cold.raw.run = [&] { return qzbench::rawColdRefresh(path, rawCache) == files; };
  runner.run(files, cold);

  // From here on both caches are on disk and up to date.
  removeLibraryDatabases(path);
  QzvVaultImpl* filler = newVault(path);
  const long filled = libraryList(filler);
  filler->release();
  if (filled != files || qzbench::rawColdRefresh(path, rawCache) != files ||
      !qzbench::makeRawFixedDb(rawFixed)) {
    runner.fail(files, "filling the caches");
    return;
  }
  const qzbench::Work rawWarm{nullptr, [&] {
                                return expectRows(qzbench::rawWarmList(path, rawCache, rawFixed),
                                                  files, "the raw listing");
                              }};

  qzbench::Case onDisk;
  onDisk.name = "list, metadata on disk, new vault";
  onDisk.rawName = "raw warm list";
  onDisk.target = 1.5;
  onDisk.library.run = [&] {
    QzvVaultImpl* vault = newVault(path);
    const long rows = libraryList(vault);
    vault->release();
    return expectRows(rows, files, "the library");
  };
  onDisk.raw = rawWarm;
  runner.run(files, onDisk);

  QzvVaultImpl* vault = newVault(path);
  libraryList(vault);  // the refresh check happens here, once
  qzbench::Case warm;
  warm.name = "list again, same vault";
  warm.rawName = "raw warm list";
  warm.target = 1.2;
  warm.library.run = [&] { return expectRows(libraryList(vault), files, "the library"); };
  warm.raw = rawWarm;
  runner.run(files, warm);
  vault->release();
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "list_bench", "files", {10000}, {1000, 10000, 100000},
                         500);
  for (long files : runner.sizes()) runSize(runner, files);
  return runner.finish();
}
