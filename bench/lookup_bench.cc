// Looking a resource up by its type and identity
// (QzvImpactAnalysis::getResource) in a lineage store of n resources, paired
// with the raw look-up: open the store, run one prepared select through the
// identity index, close. Both sides open the store for every look-up, as the
// library does for every operation, so the ratio shows what the library adds
// to a look-up; the time per look-up is the figure the target is about.
//
// The resources are written directly with SQLite before anything is timed:
// n / 4 of each of four types, so that a look-up served by the type index
// alone would scan a quarter of the store. Every run looks up the same 200
// resources, spread over the store, on both sides.
#include <sqlite3.h>

#include <string>
#include <vector>

#include "bench_store.h"
#include "impact_analysis_impl.h"
#include "paired.h"

namespace {

const long kLookUps = 200;
const char* const kTypes[] = {"File", "Table", "Job", "DataFile"};

std::string identityOf(long id) { return "/vault/data/resource" + std::to_string(id) + ".csv"; }
const char* typeOf(long id) { return kTypes[id % 4]; }

bool fill(const std::string& path, long resources) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
            sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_stmt* insert = nullptr;
  ok = ok && sqlite3_prepare_v2(db,
                                "INSERT INTO v_imparcs (id, name, res_idty, res_type) "
                                "VALUES (?, ?, ?, ?)",
                                -1, &insert, nullptr) == SQLITE_OK;
  for (long id = 1; ok && id <= resources; ++id) {
    const std::string identity = identityOf(id);
    sqlite3_bind_int64(insert, 1, id);
    sqlite3_bind_text(insert, 2, identity.c_str() + 12, -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 3, identity.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 4, typeOf(id), -1, SQLITE_STATIC);
    ok = sqlite3_step(insert) == SQLITE_DONE;
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  ok = ok && sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return ok;
}

// One raw look-up: open, select by the identity index, close. True when the
// resource was found.
bool rawLookUp(const std::string& path, const std::string& type, const std::string& identity) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return false;
  }
  sqlite3_stmt* select = nullptr;
  bool found = false;
  if (sqlite3_prepare_v2(db,
                         "SELECT * FROM v_imparcs INDEXED BY v_imparcs_idnty "
                         "WHERE res_idty = ? AND res_type = ?",
                         -1, &select, nullptr) == SQLITE_OK) {
    sqlite3_bind_text(select, 1, identity.c_str(), static_cast<int>(identity.size()),
                      SQLITE_STATIC);
    sqlite3_bind_text(select, 2, type.c_str(), static_cast<int>(type.size()), SQLITE_STATIC);
    while (sqlite3_step(select) == SQLITE_ROW) {
      found = sqlite3_column_text(select, 1) != nullptr;
    }
  }
  sqlite3_finalize(select);
  sqlite3_close(db);
  return found;
}

void runSize(qzbench::Runner& runner, long resources) {
  qzbench::BenchStore store("qzvault-lookup-bench");
  if (!fill(store.storePath(), resources)) {
    runner.fail(resources, "filling the store");
    return;
  }
  struct Key {
    std::string type;
    std::string identity;
    QzbString typeText;
    QzbString identityText;
  };
  std::vector<Key> keys;
  for (long index = 0; index < kLookUps; ++index) {
    const long id = 1 + (index * 7919) % resources;
    keys.push_back(Key{typeOf(id), identityOf(id), QzbString(typeOf(id)),
                       QzbString(identityOf(id).c_str())});
  }

  qzbench::Case lookUp;
  lookUp.name = "look-up by type and identity";
  lookUp.rawName = "raw open, select by identity, close";
  lookUp.operations = kLookUps;
  lookUp.library.run = [&] {
    for (const Key& key : keys) {
      QzResource* found = store.analysis()->getResource(key.typeText, key.identityText);
      if (found == nullptr) {
        std::fprintf(stderr, "the library did not find %s\n", key.identity.c_str());
        return false;
      }
      found->release();
    }
    return true;
  };
  lookUp.raw.run = [&] {
    for (const Key& key : keys) {
      if (!rawLookUp(store.storePath(), key.type, key.identity)) return false;
    }
    return true;
  };
  runner.run(resources, lookUp);
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "lookup_bench", "resources", {100000},
                         {1000, 10000, 100000}, 1000);
  for (long resources : runner.sizes()) runSize(runner, resources);
  return runner.finish();
}
