// The lineage store's edge operations as the number of dependents of one
// resource grows, each paired with the same work in raw SQLite on the same
// store:
//
//   record n new dependents      addDependentResources over a store without
//                                edges; raw: open, read the recorded edges,
//                                insert n in one transaction, close
//   record the same n again      nothing to write, only the comparison of the
//                                list with the recorded edges; raw: open,
//                                read the edges into a hash set, compare, close
//   read the n dependents back   getDependentResources; raw: open, the same
//                                select, rows kept in memory, close
//
// The n + 1 resources are written directly with SQLite before anything is
// timed.
#include <sqlite3.h>

#include <string>
#include <unordered_set>
#include <vector>

#include "bench_store.h"
#include "impact_analysis_impl.h"
#include "paired.h"
#include "resource_impl.h"

namespace {

bool exec(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  const bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
                  sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return ok;
}

// The used resource (id 1) and `dependents` resources (ids 2 to n + 1).
bool fill(const std::string& path, long dependents) {
  std::string sql =
      "BEGIN; INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES "
      "(1, 'used', '/bench/used', 'File');";
  for (long index = 0; index < dependents; ++index) {
    sql += "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES (" +
           std::to_string(index + 2) + ", 'd', '/bench/d" + std::to_string(index) + "', 'File');";
  }
  sql += "COMMIT;";
  return exec(path, sql);
}

// An open raw connection, closed with the object.
struct RawDb {
  sqlite3* db = nullptr;
  explicit RawDb(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
      sqlite3_close(db);
      db = nullptr;
    }
  }
  ~RawDb() { sqlite3_close(db); }
};

bool readEdgesInto(sqlite3* db, std::unordered_set<long long>* ids) {
  sqlite3_stmt* select = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT res_id FROM v_impadeps WHERE res_used = 1", -1, &select,
                         nullptr) != SQLITE_OK) {
    return false;
  }
  int stepped;
  while ((stepped = sqlite3_step(select)) == SQLITE_ROW) ids->insert(sqlite3_column_int64(select, 0));
  sqlite3_finalize(select);
  return stepped == SQLITE_DONE;
}

bool rawRecord(const std::string& path, long dependents) {
  RawDb raw(path);
  if (raw.db == nullptr ||
      sqlite3_exec(raw.db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return false;
  }
  std::unordered_set<long long> recorded;
  bool ok = readEdgesInto(raw.db, &recorded);
  sqlite3_stmt* insert = nullptr;
  ok = ok && sqlite3_prepare_v2(raw.db, "INSERT INTO v_impadeps (res_id,res_used) VALUES (?,1)",
                                -1, &insert, nullptr) == SQLITE_OK;
  for (long index = 0; ok && index < dependents; ++index) {
    if (recorded.count(index + 2) != 0) continue;
    sqlite3_bind_int64(insert, 1, index + 2);
    ok = sqlite3_step(insert) == SQLITE_DONE;
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  return sqlite3_exec(raw.db, ok ? "COMMIT" : "ROLLBACK", nullptr, nullptr, nullptr) ==
             SQLITE_OK &&
         ok;
}

bool rawCompare(const std::string& path, long dependents) {
  RawDb raw(path);
  std::unordered_set<long long> recorded;
  if (raw.db == nullptr || !readEdgesInto(raw.db, &recorded)) return false;
  long kept = 0;
  for (long index = 0; index < dependents; ++index) kept += recorded.count(index + 2);
  return kept == dependents;
}

bool rawReadBack(const std::string& path, long dependents) {
  RawDb raw(path);
  sqlite3_stmt* select = nullptr;
  if (raw.db == nullptr ||
      sqlite3_prepare_v2(raw.db,
                         "SELECT * FROM v_imparcs WHERE v_imparcs.id IN (SELECT "
                         "v_impadeps.res_id FROM v_impadeps WHERE v_impadeps.res_used = 1)",
                         -1, &select, nullptr) != SQLITE_OK) {
    return false;
  }
  std::vector<std::vector<std::string>> rows;
  while (sqlite3_step(select) == SQLITE_ROW) {
    std::vector<std::string> row;
    for (int column = 0; column < 5; ++column) {
      const unsigned char* value = sqlite3_column_text(select, column);
      row.emplace_back(value != nullptr ? reinterpret_cast<const char*>(value) : "");
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(select);
  return static_cast<long>(rows.size()) == dependents;
}

void runSize(qzbench::Runner& runner, long dependents) {
  qzbench::BenchStore store("qzvault-impact-bench");
  const std::string path = store.storePath();
  if (!fill(path, dependents)) {
    runner.fail(dependents, "filling the store");
    return;
  }
  QzvImpactAnalysisImpl* analysis = store.analysis();
  QzResource* used = analysis->getResource(QzbString("File"), QzbString("/bench/used"));
  if (used == nullptr) {
    runner.fail(dependents, "finding the used resource");
    return;
  }
  // The dependents as the library hands resources out.
  QzvResourceListImpl* list = new QzvResourceListImpl();
  for (long index = 0; index < dependents; ++index) {
    QzvResourceImpl* resource = new QzvResourceImpl();
    resource->setId(QzbString(std::to_string(index + 2).c_str()));
    resource->setResourceType(QzbString("File", true));
    resource->setResourceIdentity(QzbString(("/bench/d" + std::to_string(index)).c_str()));
    resource->setAnalysisDate(QzbDate(0.0));
    list->addRow();
    list->setLastRowElement(0, resource);
    resource->release();
  }
  const auto clearEdges = [&] { return exec(path, "DELETE FROM v_impadeps"); };
  const auto record = [&] {
    list->reset();
    if (analysis->addDependentResources(used, list)) return true;
    std::fprintf(stderr, "recording failed: %s\n", analysis->getErrorMessage().asCstr());
    return false;
  };

  qzbench::Case add;
  add.name = "record n new dependents";
  add.rawName = "raw read edges, insert n";
  add.library = {clearEdges, record};
  add.raw = {clearEdges, [&] { return rawRecord(path, dependents); }};
  runner.run(dependents, add);

  // The edges are recorded from here on.
  if (!clearEdges() || !record()) {
    runner.fail(dependents, "recording the edges");
  } else {
    qzbench::Case again;
    again.name = "record the same n again";
    again.rawName = "raw read edges, compare";
    again.library.run = record;
    again.raw.run = [&] { return rawCompare(path, dependents); };
    runner.run(dependents, again);

    qzbench::Case read;
    read.name = "read the n dependents back";
    read.rawName = "raw select dependents";
    read.library.run = [&] {
      QzResourceList* result = analysis->getDependentResources(used, false);
      long rows = 0;
      while (result->next()) ++rows;
      result->release();
      return rows == dependents;
    };
    read.raw.run = [&] { return rawReadBack(path, dependents); };
    runner.run(dependents, read);
  }
  list->release();
  used->release();
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "impact_bench", "dependents", {10000},
                         {1000, 10000, 100000}, 500);
  for (long dependents : runner.sizes()) runSize(runner, dependents);
  return runner.finish();
}
