// `qzvault lineage` without a resource (every resource that uses others, with
// what it uses) against `qzvault graph --format json` (the whole graph) on
// the same vault, each a whole process, interleaved. Both print every edge of
// the store with the resources at its ends; the graph command is the
// baseline because it reads the store with two queries.
//
// The store holds n resources and 2n edges drawn at random (fixed seed),
// written directly with SQLite before anything is timed.
#include <sqlite3.h>

#include <random>
#include <string>
#include <vector>

#include "bench_files.h"
#include "paired.h"
#include "process_run.h"

namespace {

const unsigned kSeed = 4711;
const char* const kTypes[] = {"DataFile", "Table", "Job", "Report"};

bool fill(const std::string& path, long resources) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
            sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_stmt* resource = nullptr;
  ok = ok && sqlite3_prepare_v2(db,
                                "INSERT INTO v_imparcs (id, name, res_idty, res_type, mod_date) "
                                "VALUES (?, ?, ?, ?, 1)",
                                -1, &resource, nullptr) == SQLITE_OK;
  for (long id = 1; ok && id <= resources; ++id) {
    const std::string name = "resource" + std::to_string(id);
    const std::string identity = "/data/lineage/" + name;
    sqlite3_bind_int64(resource, 1, id);
    sqlite3_bind_text(resource, 2, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(resource, 3, identity.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(resource, 4, kTypes[id % 4], -1, SQLITE_STATIC);
    ok = sqlite3_step(resource) == SQLITE_DONE;
    sqlite3_reset(resource);
  }
  sqlite3_finalize(resource);
  sqlite3_stmt* edge = nullptr;
  ok = ok && sqlite3_prepare_v2(db, "INSERT INTO v_impadeps (res_id, res_used) VALUES (?, ?)",
                                -1, &edge, nullptr) == SQLITE_OK;
  std::mt19937 random(kSeed);
  std::uniform_int_distribution<long> pick(1, resources);
  for (long count = 0; ok && count < 2 * resources; ++count) {
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

void runSize(qzbench::Runner& runner, long resources) {
  const std::string tool = qzbench::toolPath();
  qzbench::TempDir vault("qzvault-lineage-command-bench");
  const std::string& path = vault.path();
  const std::vector<std::string> common = {tool, "--vault", path, "--plugins",
                                           qzbench::pluginDirectory()};
  const auto command = [&](std::vector<std::string> words) {
    std::vector<std::string> argv = common;
    argv.insert(argv.end(), words.begin(), words.end());
    return argv;
  };
  qzbench::ProcessRun run;
  // "resources" opens the lineage store, which creates it with its schema.
  if (!qzbench::runProcess({tool, "--vault", path, "init"}, &run) ||
      !qzbench::runProcess(command({"resources"}), &run) || !fill(path + "/.v_imd", resources)) {
    runner.fail(resources, "making the vault");
    return;
  }
  const std::vector<std::string> lineage = command({"lineage"});
  const std::vector<std::string> graph = command({"graph", "--format", "json"});

  qzbench::Case every;
  every.name = "qzvault lineage (every resource)";
  every.rawName = "qzvault graph --format json";
  every.target = 2.0;
  every.library.run = [&] { return qzbench::runProcess(lineage, &run); };
  every.raw.run = [&] { return qzbench::runProcess(graph, &run); };
  runner.run(resources, every);
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "lineage_command_bench", "resources (2 edges each)",
                         {12000}, {1000, 10000, 100000}, 300);
  if (qzbench::toolPath().empty()) {
    std::fprintf(stderr, "lineage_command_bench: built without the qzvault tool\n");
    return 1;
  }
  for (long resources : runner.sizes()) runSize(runner, resources);
  return runner.finish();
}
