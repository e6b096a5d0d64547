// Analysing every object of a vault (what `qzvault analyze` does: each
// object's plug-in lists what the file uses, and the lineage store records
// it), in the process through the library, paired with a raw analysis in
// SQLite on the same files:
//
//   analyze every object, first time   an empty lineage store; raw: for each
//                                      object read its file and record its
//                                      resource, what it uses and its date in
//                                      one transaction
//   analyze again, nothing changed     every file was analysed at its current
//                                      date; raw: for each object read its
//                                      resource row and compare the date
//
// Then `qzvault analyze` itself, as a whole process, first on an empty store
// and then again; the program prints the second run as a share of the first.
//
// The vault holds n job definitions, 1,000 to a folder. Each uses two data
// files of a pool of n/4 and one table of a pool of n/10 spread over five
// databases, so that resources are shared as in a real vault. The files'
// modification dates are set an hour back, as those of files copied or
// restored into a vault: their status changed after their last write, which
// is what the library's test for an unchanged file looks for (a file whose
// last write and status change fall within the same second is analysed
// again, see docs/performance.md).
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench_files.h"
#include "paired.h"
#include "process_run.h"
#include "qzvault/qzvault.h"

namespace {

const long kObjectsPerFolder = 1000;

struct Job {
  std::string folder;  // relative to the vault
  std::string path;    // full path
  std::string files[2];
  std::string table;     // table name
  std::string database;  // its database
};

std::vector<Job> describeJobs(const std::string& root, long objects) {
  std::vector<Job> jobs;
  const long dataFiles = std::max(1L, objects / 4);
  const long tables = std::max(1L, objects / 10);
  for (long index = 0; index < objects; ++index) {
    Job job;
    job.folder = "Jobs/Batch" + std::to_string(index / kObjectsPerFolder);
    job.path = root + "/" + job.folder + "/load" + std::to_string(index) + ".job.def";
    job.files[0] = "input" + std::to_string((index * 7) % dataFiles) + ".csv";
    job.files[1] = "input" + std::to_string((index * 13 + 1) % dataFiles) + ".csv";
    const long table = (index * 3) % tables;
    job.table = "table" + std::to_string(table);
    job.database = "warehouse" + std::to_string(table % 5);
    jobs.push_back(job);
  }
  return jobs;
}

bool writeJobs(const std::string& root, const std::vector<Job>& jobs) {
  std::string made;
  for (const Job& job : jobs) {
    if (job.folder != made) {
      if (mkdir((root + "/Jobs").c_str(), 0777) != 0 && errno != EEXIST) return false;
      if (mkdir((root + "/" + job.folder).c_str(), 0777) != 0 && errno != EEXIST) return false;
      made = job.folder;
    }
    std::ofstream out(job.path);
    out << "{\n  \"name\": \"Load " << job.table << "\",\n  \"uses\": [\n"
        << "    {\"type\": \"File\", \"path\": \"../../Data/" << job.files[0] << "\"},\n"
        << "    {\"type\": \"File\", \"path\": \"../../Data/" << job.files[1] << "\"},\n"
        << "    {\"type\": \"Table\", \"source\": {\"type\": \"postgresql\", \"name\": \""
        << job.database << "\", \"schema\": \"public\", \"table\": \"" << job.table << "\"}}\n"
        << "  ]\n}\n";
    out.close();
    if (!out) return false;
    // An hour back: the status change (now) comes after the last write.
    struct timeval times[2];
    gettimeofday(&times[0], nullptr);
    times[0].tv_sec -= 3600;
    times[1] = times[0];
    if (utimes(job.path.c_str(), times) != 0) return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// The library, in the process: the objects of each folder as its listing
// gives them, each analysed as the tool does.

bool libraryAnalyze(const std::string& root, const std::vector<Job>& jobs) {
  QzvVault* vault = createVaultInstance(root.c_str());
  if (vault == nullptr) {
    std::fprintf(stderr, "no vault: %s\n", getVaultCreateError());
    return false;
  }
  QzvFolder* top = vault->getRootFolder();
  bool ok = top != nullptr;
  std::string opened;
  QzvFolder* folder = nullptr;
  for (const Job& job : jobs) {
    if (!ok) break;
    if (job.folder != opened) {
      if (folder != nullptr) folder->release();
      folder = top->getChildFolder(QzbString(job.folder.c_str()));
      opened = job.folder;
      QzvItemList* listing = folder != nullptr ? folder->getObjectList(false) : nullptr;
      ok = listing != nullptr;
      if (listing != nullptr) listing->release();
      if (!ok) break;
    }
    QzvObject* object = folder->getChildObject(QzbString(job.path.c_str()));
    ok = object != nullptr && object->analyzeImpact(nullptr) && object->getErrorMessage().isEmpty();
    if (!ok) {
      std::fprintf(stderr, "analysing %s failed: %s\n", job.path.c_str(),
                   object != nullptr ? object->getErrorMessage().asCstr() : "no object");
    }
    if (object != nullptr) object->release();
  }
  if (folder != nullptr) folder->release();
  if (top != nullptr) top->release();
  vault->release();
  return ok;
}

// ---------------------------------------------------------------------------
// The raw analysis: the same records in a store of the same tables, one
// transaction per object, statements prepared once.

const char kRawSchema[] =
    "CREATE TABLE v_imparcs (id INTEGER PRIMARY KEY ON CONFLICT REPLACE, name TEXT, "
    "res_idty TEXT, res_type TEXT, mod_date TEXT);"
    "CREATE INDEX v_imparcs_key ON v_imparcs(res_type, res_idty);"
    "CREATE TABLE v_impadeps (res_id INTEGER, res_used INTEGER, dep_type INTEGER);"
    "CREATE INDEX v_impadeps_used ON v_impadeps(res_used, res_id);";

class RawStore {
 public:
  explicit RawStore(const std::string& path) {
    ok_ = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                          nullptr) == SQLITE_OK;
    find_ = prepare("SELECT id, mod_date FROM v_imparcs WHERE res_type = ? AND res_idty = ?");
    insert_ = prepare("INSERT INTO v_imparcs (name, res_idty, res_type) VALUES (?, ?, ?)");
    edges_ = prepare("SELECT res_id FROM v_impadeps WHERE res_used = ?");
    addEdge_ = prepare("INSERT INTO v_impadeps (res_id, res_used) VALUES (?, ?)");
    date_ = prepare("UPDATE v_imparcs SET mod_date = ? WHERE id = ?");
  }
  ~RawStore() {
    for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
    sqlite3_close(db_);
  }
  bool ok() const { return ok_; }
  bool exec(const char* sql) {
    return ok_ && sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  // The id of the resource, made when it is missing; *date gets its date.
  long long resource(const std::string& type, const std::string& identity, const std::string& name,
                     double* date = nullptr) {
    bindText(find_, 1, type);
    bindText(find_, 2, identity);
    long long id = 0;
    if (sqlite3_step(find_) == SQLITE_ROW) {
      id = sqlite3_column_int64(find_, 0);
      if (date != nullptr) *date = sqlite3_column_double(find_, 1);
    }
    sqlite3_reset(find_);
    if (id != 0) return id;
    if (date != nullptr) *date = 0;
    bindText(insert_, 1, name);
    bindText(insert_, 2, identity);
    bindText(insert_, 3, type);
    ok_ = ok_ && sqlite3_step(insert_) == SQLITE_DONE;
    sqlite3_reset(insert_);
    return sqlite3_last_insert_rowid(db_);
  }
  // Records `users` as the resources that use `used`, adding what is missing.
  void link(long long used, const std::vector<long long>& users) {
    std::vector<long long> recorded;
    sqlite3_bind_int64(edges_, 1, used);
    while (sqlite3_step(edges_) == SQLITE_ROW) recorded.push_back(sqlite3_column_int64(edges_, 0));
    sqlite3_reset(edges_);
    for (long long user : users) {
      if (std::find(recorded.begin(), recorded.end(), user) != recorded.end()) continue;
      sqlite3_bind_int64(addEdge_, 1, user);
      sqlite3_bind_int64(addEdge_, 2, used);
      ok_ = ok_ && sqlite3_step(addEdge_) == SQLITE_DONE;
      sqlite3_reset(addEdge_);
    }
  }
  void setDate(long long id, double date) {
    sqlite3_bind_double(date_, 1, date);
    sqlite3_bind_int64(date_, 2, id);
    ok_ = ok_ && sqlite3_step(date_) == SQLITE_DONE;
    sqlite3_reset(date_);
  }

 private:
  sqlite3_stmt* prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    ok_ = ok_ && sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) == SQLITE_OK;
    if (statement != nullptr) statements_.push_back(statement);
    return statement;
  }
  static void bindText(sqlite3_stmt* statement, int index, const std::string& text) {
    sqlite3_bind_text(statement, index, text.c_str(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }

  sqlite3* db_ = nullptr;
  bool ok_ = false;
  std::vector<sqlite3_stmt*> statements_;
  sqlite3_stmt* find_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* edges_ = nullptr;
  sqlite3_stmt* addEdge_ = nullptr;
  sqlite3_stmt* date_ = nullptr;
};

bool rawAnalyze(const std::string& root, const std::string& storePath, const std::vector<Job>& jobs) {
  RawStore store(storePath);
  if (!store.ok()) return false;
  for (const Job& job : jobs) {
    struct stat status;
    std::ifstream in(job.path);
    std::stringstream content;
    content << in.rdbuf();
    if (stat(job.path.c_str(), &status) != 0 || content.str().empty()) return false;
    const double fileDate = static_cast<double>(status.st_mtime);
    if (!store.exec("BEGIN IMMEDIATE")) return false;
    double analysed = 0;
    const long long object = store.resource("Job", job.path, job.path, &analysed);
    // The test for an unchanged file, as the library's.
    if (analysed == fileDate &&
        static_cast<uint64_t>(status.st_mtime) - static_cast<uint64_t>(status.st_ctime) > 1) {
      if (!store.exec("COMMIT")) return false;
      continue;
    }
    std::vector<long long> uses;
    for (const std::string& file : job.files) {
      uses.push_back(store.resource("DataFile", root + "/Data/" + file, file));
    }
    const long long table = store.resource("Table", job.database + "/" + job.table, job.table);
    uses.push_back(table);
    store.link(object, uses);
    store.link(table, {store.resource("Database", job.database, "postgresql")});
    store.setDate(object, fileDate);
    if (!store.exec("COMMIT") || !store.ok()) return false;
  }
  return true;
}

// ---------------------------------------------------------------------------

void runSize(qzbench::Runner& runner, long objects) {
  qzbench::TempDir vault("qzvault-analyze-bench");
  const std::string& root = vault.path();
  const std::vector<Job> jobs = describeJobs(root, objects);
  const std::string tool = qzbench::toolPath();
  const std::string rawStore = root + "/.raw_imd";
  qzbench::ProcessRun run;
  if (!writeJobs(root, jobs) || !qzbench::runProcess({tool, "--vault", root, "init"}, &run)) {
    runner.fail(objects, "making the vault");
    return;
  }
  const auto emptyLibraryStore = [&] {
    qzbench::removeDatabase(root + "/.v_imd");
    return true;
  };
  const auto emptyRawStore = [&] {
    qzbench::removeDatabase(rawStore);
    sqlite3* db = nullptr;
    const bool made = sqlite3_open(rawStore.c_str(), &db) == SQLITE_OK &&
                      sqlite3_exec(db, kRawSchema, nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return made;
  };

  qzbench::Case first;
  first.name = "analyze every object, first time";
  first.rawName = "raw one transaction per object";
  first.library = {emptyLibraryStore, [&] { return libraryAnalyze(root, jobs); }};
  first.raw = {emptyRawStore, [&] { return rawAnalyze(root, rawStore, jobs); }};
  runner.run(objects, first);

  // Both stores hold the analysis of every object from here on.
  qzbench::Case again;
  again.name = "analyze again, nothing changed";
  again.rawName = "raw read and compare dates";
  again.library.run = [&] { return libraryAnalyze(root, jobs); };
  again.raw.run = [&] { return rawAnalyze(root, rawStore, jobs); };
  runner.run(objects, again);

  if (tool.empty()) return;
  const std::vector<std::string> analyze = {tool, "--vault", root, "--plugins",
                                            qzbench::pluginDirectory(), "analyze"};
  const double once = runner.measure(
      objects, "qzvault analyze, first time",
      {emptyLibraryStore, [&] { return qzbench::runProcess(analyze, &run); }});
  const double twice =
      runner.measure(objects, "qzvault analyze again, nothing changed",
                     {nullptr, [&] { return qzbench::runProcess(analyze, &run); }});
  if (once > 0 && twice > 0) {
    char text[120];
    std::snprintf(text, sizeof text, "%.1f%% of the first (target <= 5%%); first %.3f ms/object",
                  100 * twice / once, once / static_cast<double>(objects));
    runner.note(objects, "qzvault analyze again", text);
  }
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "analyze_bench", "objects", {10000},
                         {1000, 10000, 30000, 100000}, 50);
  qzVaultStartup();
  setVaultPluginPath(qzbench::pluginDirectory().c_str());
  for (long objects : runner.sizes()) runSize(runner, objects);
  qzVaultShutdown();
  return runner.finish();
}
