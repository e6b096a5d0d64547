// Several processes adding objects to one folder and listing it, paired with
// the same work in raw SQLite: n processes (8 by default) each make k
// add+list operations at once in a folder that holds 1,000 objects to begin
// with; a run ends when the last process has finished. The ratio of the run
// times is the inverse of the ratio of the throughputs.
//
//   library   write the file, QzvFolder::createObjectFromFile, then
//             getObjectList (which caches the new files of every process)
//   raw       write the file, one transaction in the folder's raw fixed
//             metadata (the object's name row, its creator and modifying
//             user, the folder's modified stamps), then one listing that
//             caches the new files in one transaction and reads the names
//             (rawRefreshAndList)
//
// Every process counts the syncs SQLite asks for (fsync, fdatasync), and the
// program prints them per operation for both sides.
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "bench_files.h"
#include "paired.h"
#include "process_run.h"
#include "qzvault/qzvault.h"
#include "raw_baseline.h"
#include "sync_counter.h"

namespace {

const long kStartObjects = 1000;

bool writeFile(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fputs("added by a benchmark process\n", file);
  return std::fclose(file) == 0;
}

// One process's share of the library run.
bool libraryWorker(const std::string& folder, int worker, long operations) {
  QzvVault* vault = createVaultInstance(folder.c_str());
  if (vault == nullptr) return false;
  QzvFolder* root = vault->getRootFolder();
  bool ok = root != nullptr;
  for (long index = 0; ok && index < operations; ++index) {
    const std::string name = "w" + std::to_string(worker) + "-" + std::to_string(index) + ".txt";
    ok = writeFile(folder + "/" + name);
    QzvObject* object =
        ok ? root->createObjectFromFile(QzbString(name.c_str()), QzbString(name.c_str())) : nullptr;
    if (object == nullptr) {
      std::fprintf(stderr, "adding %s failed: %s\n", name.c_str(),
                   root->getErrorMessage().asCstr());
      ok = false;
      break;
    }
    object->release();
    QzvItemList* list = root->getObjectList(false);
    ok = list != nullptr;
    if (list != nullptr) {
      while (list->next()) {
      }
      list->release();
    }
  }
  if (root != nullptr) root->release();
  vault->release();
  return ok;
}

// Runs `sql` with text parameters on an open database.
bool execWith(sqlite3* db, const char* sql, const std::vector<std::string>& values) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) return false;
  for (std::size_t index = 0; index < values.size(); ++index) {
    sqlite3_bind_text(statement, static_cast<int>(index + 1), values[index].c_str(), -1,
                      SQLITE_STATIC);
  }
  const bool ok = sqlite3_step(statement) == SQLITE_DONE;
  sqlite3_finalize(statement);
  return ok;
}

// The raw add: the object's rows and the folder's stamps in one transaction.
bool rawAdd(const std::string& fixedDb, const std::string& name, const std::string& user,
            const std::string& now) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open_v2(fixedDb.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK;
  sqlite3_busy_timeout(db, 5000);
  ok = ok && sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  const bool begun = ok;
  ok = ok && execWith(db, "INSERT INTO v_object (fname, name) VALUES (?, ?)", {name, name}) &&
       execWith(db, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?, '_CREATOR', 0, ?)",
                {name, user}) &&
       execWith(db, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?, '_MODIFIEDUSER', 0, ?)",
                {name, user}) &&
       execWith(db, "DELETE FROM v_attr WHERE fname IS NULL AND attr IN "
                    "('_MODIFIEDUSER', '_MODIFIEDDATE')",
                {}) &&
       execWith(db, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, '_MODIFIEDUSER', 0, ?)",
                {user}) &&
       execWith(db, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, '_MODIFIEDDATE', 0, ?)",
                {now});
  if (begun) ok = sqlite3_exec(db, ok ? "COMMIT" : "ROLLBACK", nullptr, nullptr, nullptr) == SQLITE_OK && ok;
  sqlite3_close(db);
  return ok;
}

bool rawWorker(const std::string& folder, int worker, long operations) {
  const std::string fixedDb = folder + "/.raw_fmd";
  const std::string cacheDb = folder + "/.raw_cmd";
  const std::string user = "bench";
  bool ok = true;
  for (long index = 0; ok && index < operations; ++index) {
    const std::string name = "w" + std::to_string(worker) + "-" + std::to_string(index) + ".txt";
    ok = writeFile(folder + "/" + name) &&
         rawAdd(fixedDb, name, user, std::to_string(static_cast<long>(time(nullptr)))) &&
         qzbench::rawRefreshAndList(folder, cacheDb, fixedDb) >= 0;
    if (!ok) std::fprintf(stderr, "raw add+list of %s failed\n", name.c_str());
  }
  return ok;
}

// Runs `processes` workers at once and waits for them; adds the syncs they
// counted to *syncs. True when every worker succeeded.
bool runWorkers(const std::string& folder, int processes, long operations, bool library,
                long* syncs) {
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) return false;
  std::vector<pid_t> children;
  for (int worker = 0; worker < processes; ++worker) {
    const pid_t child = fork();
    if (child == 0) {
      close(pipeEnds[0]);
      const long before = qzbench::syncCalls();
      const bool ok = library ? libraryWorker(folder, worker, operations)
                              : rawWorker(folder, worker, operations);
      const long counted = qzbench::syncCalls() - before;
      if (write(pipeEnds[1], &counted, sizeof counted) != sizeof counted) _exit(3);
      _exit(ok ? 0 : 1);
    }
    if (child < 0) break;
    children.push_back(child);
  }
  close(pipeEnds[1]);
  bool ok = static_cast<int>(children.size()) == processes;
  for (pid_t child : children) {
    int status = 0;
    const bool succeeded =
        waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!succeeded) std::fprintf(stderr, "a %s worker failed\n", library ? "library" : "raw");
    ok = ok && succeeded;
  }
  long counted = 0;
  while (read(pipeEnds[0], &counted, sizeof counted) == sizeof counted) *syncs += counted;
  close(pipeEnds[0]);
  return ok;
}

void runSize(qzbench::Runner& runner, long processes) {
  const long operations = runner.smoke() ? 2 : 20;
  qzbench::TempDir vault("qzvault-concurrency-bench");
  const std::string folder = vault.path() + "/Shared";
  // A folder of kStartObjects objects with both sides' metadata up to date.
  const auto freshFolder = [&] {
    qzbench::removeTree(folder);
    if (mkdir(folder.c_str(), 0777) != 0 ||
        !qzbench::makeFiles(folder, kStartObjects, "start", "txt") ||
        !qzbench::makeRawFixedDb(folder + "/.raw_fmd") ||
        qzbench::rawColdRefresh(folder, folder + "/.raw_cmd") != kStartObjects) {
      std::fprintf(stderr, "cannot make the folder %s\n", folder.c_str());
      return false;
    }
    QzvVault* filler = createVaultInstance(folder.c_str());
    QzvFolder* root = filler != nullptr ? filler->getRootFolder() : nullptr;
    QzvItemList* list = root != nullptr ? root->getObjectList(false) : nullptr;
    const bool ok = list != nullptr;
    if (!ok) {
      std::fprintf(stderr, "cannot list the folder %s: %s\n", folder.c_str(),
                   filler == nullptr  ? getVaultCreateError()
                   : root == nullptr ? filler->getErrorMessage().asCstr()
                                     : root->getErrorMessage().asCstr());
    }
    if (list != nullptr) list->release();
    if (root != nullptr) root->release();
    if (filler != nullptr) filler->release();
    return ok;
  };

  long librarySyncs = 0;
  long rawSyncs = 0;
  int runs = 0;
  qzbench::Case addList;
  addList.name = std::to_string(processes) + " processes, add+list";
  addList.rawName = "raw add+list";
  // Throughput at least 0.8 of the raw one: time at most 1 / 0.8.
  addList.target = 1.25;
  addList.library = {freshFolder, [&] {
                       ++runs;
                       return runWorkers(folder, static_cast<int>(processes), operations, true,
                                         &librarySyncs);
                     }};
  addList.raw = {freshFolder, [&] {
                   return runWorkers(folder, static_cast<int>(processes), operations, false,
                                     &rawSyncs);
                 }};
  if (!runner.run(processes, addList) || runs == 0) return;
  const double perRun = static_cast<double>(processes * operations * runs);
  char text[160];
  std::snprintf(text, sizeof text, "library %.1f, raw %.1f", librarySyncs / perRun,
                rawSyncs / perRun);
  runner.note(processes, "syncs (fsync, fdatasync) per add+list", text);
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "concurrency_bench", "processes", {8}, {2, 4, 8}, 2);
  if (!qzbench::installSyncCounter()) {
    std::fprintf(stderr, "concurrency_bench: cannot count syncs\n");
    return 1;
  }
  qzVaultStartup();
  setVaultPluginPath(qzbench::pluginDirectory().c_str());
  for (long processes : runner.sizes()) runSize(runner, processes);
  qzVaultShutdown();
  return runner.finish();
}
