// Lineage closures and the whole graph on a large random graph, paired with
// the same questions asked of SQLite directly on the same store:
//
//   closure, no limit      QzvLineage::getDependents without a depth limit;
//                          raw: one recursive query that returns the stored
//                          row of every resource reached, kept in memory
//   closure, depth 5 / 1   with a depth limit; raw: one recursive query with
//                          the distance in its rows, the least distance per
//                          resource
//   whole graph            getAllResources and getAllEdges; raw: the two
//                          selects, rows kept in memory
//
// The store holds n resources and 3n edges drawn at random (fixed seed):
// every resource uses three others on average, so the graph is full of
// cycles and the unlimited closure of the start reaches most resources. Both
// sides must find the same number of resources, or the case fails. After the
// timed cases the program measures the heap: the most in use during an
// unlimited closure against what the returned list holds, for the library
// and for the raw query.
#include <sqlite3.h>

#include <random>
#include <string>
#include <vector>

#include "bench_store.h"
#include "heap_counter.h"
#include "impact_analysis_impl.h"
#include "lineage_impl.h"
#include "paired.h"
#include "qzvault/lineage.h"

namespace {

const unsigned kSeed = 424242;
const long kStartId = 1;

bool fill(const std::string& path, long resources) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
            sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_stmt* resource = nullptr;
  ok = ok && sqlite3_prepare_v2(db,
                                "INSERT INTO v_imparcs (id, name, res_idty, res_type) "
                                "VALUES (?, ?, ?, 'File')",
                                -1, &resource, nullptr) == SQLITE_OK;
  for (long id = 1; ok && id <= resources; ++id) {
    const std::string name = "r" + std::to_string(id);
    const std::string identity = "/bench/" + name;
    sqlite3_bind_int64(resource, 1, id);
    sqlite3_bind_text(resource, 2, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(resource, 3, identity.c_str(), -1, SQLITE_TRANSIENT);
    ok = sqlite3_step(resource) == SQLITE_DONE;
    sqlite3_reset(resource);
  }
  sqlite3_finalize(resource);
  sqlite3_stmt* edge = nullptr;
  ok = ok && sqlite3_prepare_v2(db, "INSERT INTO v_impadeps (res_id, res_used) VALUES (?, ?)",
                                -1, &edge, nullptr) == SQLITE_OK;
  std::mt19937 random(kSeed);
  std::uniform_int_distribution<long> pick(1, resources);
  for (long count = 0; ok && count < 3 * resources; ++count) {
    sqlite3_bind_int64(edge, 1, pick(random));
    sqlite3_bind_int64(edge, 2, pick(random));
    ok = sqlite3_step(edge) == SQLITE_DONE;
    sqlite3_reset(edge);
  }
  sqlite3_finalize(edge);
  ok = ok && sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return ok;
}

// The rows of a raw query, kept as the library keeps its answer: in memory.
struct RawRows {
  std::vector<std::vector<std::string>> rows;
  bool ok = false;
};

// Opens the store, runs `sql` with the start id bound to ?1 (when it has
// parameters) and `depth` to ?2 when it is not 0, and keeps the first
// `columns` columns of every row.
RawRows rawQuery(const std::string& path, const char* sql, int columns, int depth) {
  RawRows result;
  sqlite3* db = nullptr;
  sqlite3_stmt* query = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db, sql, -1, &query, nullptr) == SQLITE_OK) {
    sqlite3_bind_int64(query, 1, kStartId);
    if (depth > 0) sqlite3_bind_int(query, 2, depth);
    int stepped;
    while ((stepped = sqlite3_step(query)) == SQLITE_ROW) {
      std::vector<std::string> row;
      row.reserve(columns);
      for (int column = 0; column < columns; ++column) {
        const unsigned char* value = sqlite3_column_text(query, column);
        row.emplace_back(value != nullptr ? reinterpret_cast<const char*>(value) : "");
      }
      result.rows.push_back(std::move(row));
    }
    result.ok = stepped == SQLITE_DONE;
  }
  sqlite3_finalize(query);
  sqlite3_close(db);
  return result;
}

const char kRawClosure[] =
    "WITH RECURSIVE reach(id) AS (SELECT ?1 UNION"
    " SELECT d.res_id FROM reach JOIN v_impadeps d ON d.res_used = reach.id)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date FROM reach"
    " JOIN v_imparcs r ON r.id = reach.id WHERE reach.id <> ?1";
const char kRawBoundedClosure[] =
    "WITH RECURSIVE walk(id, distance) AS (SELECT ?1, 0 UNION"
    " SELECT d.res_id, walk.distance + 1 FROM walk JOIN v_impadeps d ON d.res_used = walk.id"
    " WHERE walk.distance < ?2)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date, min(walk.distance) FROM walk"
    " JOIN v_imparcs r ON r.id = walk.id WHERE walk.id <> ?1 GROUP BY r.id";

long libraryClosure(QzvImpactAnalysisImpl* analysis, QzResource* start, int depth) {
  QzvLineage* lineage = analysis->getLineage();
  QzvLineageList* list = lineage->getDependents(start, depth);
  long size = -1;
  if (list != nullptr) {
    size = list->length();
    list->release();
  } else {
    std::fprintf(stderr, "closure failed: %s\n", lineage->getErrorMessage().asCstr());
  }
  lineage->release();
  return size;
}

bool sameSize(long library, long raw, const char* what) {
  if (library == raw && library >= 0) return true;
  std::fprintf(stderr, "%s: the library found %ld resources, the raw query %ld\n", what, library,
               raw);
  return false;
}

std::string megabytes(std::size_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
  return text;
}

// The heap at its most during `work` and what is still held after it, both
// above what was in use before; the work keeps its answer alive until
// `release` runs, after the measurement.
template <typename Work, typename Release>
void measureHeap(qzbench::Runner& runner, long n, const std::string& name, Work work,
                 Release release) {
  const std::size_t before = qzbench::heapInUse();
  qzbench::resetHeapPeak();
  auto answer = work();
  const std::size_t peak = qzbench::heapPeak() - before;
  const std::size_t held = qzbench::heapInUse() - before;
  release(answer);
  char text[160];
  std::snprintf(text, sizeof text, "peak %s, answer holds %s: peak / answer %.2f",
                megabytes(peak).c_str(), megabytes(held).c_str(),
                held > 0 ? static_cast<double>(peak) / static_cast<double>(held) : 0.0);
  runner.note(n, name, text);
}

void runSize(qzbench::Runner& runner, long resources) {
  qzbench::BenchStore store("qzvault-lineage-bench");
  const std::string path = store.storePath();
  if (!fill(path, resources)) {
    runner.fail(resources, "filling the store");
    return;
  }
  QzvImpactAnalysisImpl* analysis = store.analysis();
  QzResource* start = analysis->getResource(
      QzbString("File"), QzbString(("/bench/r" + std::to_string(kStartId)).c_str()));
  if (start == nullptr) {
    runner.fail(resources, "finding the start resource");
    return;
  }

  // Both sides must find what the raw query finds, counted once, untimed.
  const long rawFound = static_cast<long>(rawQuery(path, kRawClosure, 5, 0).rows.size());
  qzbench::Case unlimited;
  unlimited.name = "closure, no limit";
  unlimited.rawName = "raw recursive query";
  unlimited.library.run = [&] {
    return sameSize(libraryClosure(analysis, start, QZV_LINEAGE_UNLIMITED), rawFound,
                    "closure, no limit");
  };
  unlimited.raw.run = [&] {
    const RawRows rows = rawQuery(path, kRawClosure, 5, 0);
    return rows.ok && static_cast<long>(rows.rows.size()) == rawFound;
  };
  runner.run(resources, unlimited);

  for (int depth : {5, 1}) {
    const long expected =
        static_cast<long>(rawQuery(path, kRawBoundedClosure, 6, depth).rows.size());
    qzbench::Case bounded;
    bounded.name = "closure, depth " + std::to_string(depth);
    bounded.rawName = "raw recursive query, depth " + std::to_string(depth);
    if (depth == 5) bounded.target = 1.5;
    bounded.library.run = [&, depth, expected] {
      return sameSize(libraryClosure(analysis, start, depth), expected, "bounded closure");
    };
    bounded.raw.run = [&, depth, expected] {
      const RawRows rows = rawQuery(path, kRawBoundedClosure, 6, depth);
      return rows.ok && static_cast<long>(rows.rows.size()) == expected;
    };
    runner.run(resources, bounded);
  }

  qzbench::Case whole;
  whole.name = "whole graph";
  whole.rawName = "raw select resources and edges";
  whole.library.run = [&] {
    QzvLineage* lineage = analysis->getLineage();
    QzvLineageList* all = lineage->getAllResources();
    QzvLineageEdgeList* edges = lineage->getAllEdges();
    const bool ok = all != nullptr && edges != nullptr && all->length() == resources;
    if (all != nullptr) all->release();
    if (edges != nullptr) edges->release();
    lineage->release();
    return ok;
  };
  whole.raw.run = [&] {
    const RawRows all = rawQuery(path, "SELECT * FROM v_imparcs", 5, 0);
    const RawRows edges =
        rawQuery(path, "SELECT DISTINCT res_id, res_used FROM v_impadeps", 2, 0);
    return all.ok && edges.ok && static_cast<long>(all.rows.size()) == resources;
  };
  runner.run(resources, whole);

  if (runner.wants("closure, no limit")) {
    QzvLineage* lineage = analysis->getLineage();
    measureHeap(
        runner, resources, "heap of the closure, no limit",
        [&] { return lineage->getDependents(start, QZV_LINEAGE_UNLIMITED); },
        [](QzvLineageList* list) {
          if (list != nullptr) list->release();
        });
    lineage->release();
    measureHeap(
        runner, resources, "heap of the raw recursive query",
        [&] { return new RawRows(rawQuery(path, kRawClosure, 5, 0)); },
        [](RawRows* rows) { delete rows; });
  }
  start->release();
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "lineage_bench", "resources (3 edges each)", {100000},
                         {1000, 10000, 100000}, 1000);
  for (long resources : runner.sizes()) runSize(runner, resources);
  return runner.finish();
}
