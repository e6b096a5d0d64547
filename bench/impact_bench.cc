// Cost of the lineage store's edge operations as the number of dependents of
// one resource grows: recording N new dependents in one addDependentResources
// call, recording the same N again (nothing to write: only the comparison of
// the list with the stored edges), and reading the N back with
// getDependentResources. Each should grow linearly with N; the benchmark
// reports the fitted complexity.
//
// The N resources are inserted directly with SQLite before timing starts, so
// that only the operation under test is measured.
#include <sqlite3.h>

#include <string>

#include <benchmark/benchmark.h>

#include "bench_store.h"
#include "impact_analysis_impl.h"
#include "resource_impl.h"

namespace {

// A vault over a new temporary directory whose store holds one used resource
// (id 1) and `dependents` resources (ids 2 to dependents + 1), and a list of
// those dependents as the library hands resources out.
class StoreFixture {
 public:
  explicit StoreFixture(int dependents) : store_("qzimpact") {
    fill(dependents);
    used_ = analysis()->getResource(QzbString("File"), QzbString("/bench/used"));
    list_ = new QzvResourceListImpl();
    for (int index = 0; index < dependents; ++index) {
      QzvResourceImpl* resource = new QzvResourceImpl();
      resource->setId(QzbString(std::to_string(index + 2).c_str()));
      resource->setResourceType(QzbString("File", true));
      resource->setResourceIdentity(QzbString(("/bench/d" + std::to_string(index)).c_str()));
      resource->setAnalysisDate(QzbDate(0.0));
      list_->addRow();
      list_->setLastRowElement(0, resource);
      resource->release();
    }
  }
  ~StoreFixture() {
    list_->release();
    if (used_ != nullptr) used_->release();
  }

  QzvImpactAnalysisImpl* analysis() const { return store_.analysis(); }
  QzResource* used() const { return used_; }
  QzResourceList* dependents() const {
    list_->reset();
    return list_;
  }
  void clearEdges() { run("DELETE FROM v_impadeps"); }

 private:
  void run(const std::string& sql) {
    sqlite3* db = nullptr;
    sqlite3_open(store_.storePath().c_str(), &db);
    sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  void fill(int dependents) {
    std::string sql =
        "BEGIN; INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES "
        "(1, 'used', '/bench/used', 'File');";
    for (int index = 0; index < dependents; ++index) {
      sql += "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES (" +
             std::to_string(index + 2) + ", 'd', '/bench/d" + std::to_string(index) +
             "', 'File');";
    }
    sql += "COMMIT;";
    run(sql);
  }

  qzbench::BenchStore store_;
  QzResource* used_ = nullptr;
  QzvResourceListImpl* list_ = nullptr;
};

void BM_AddDependents(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  StoreFixture fixture(count);
  for (auto _ : state) {
    state.PauseTiming();
    fixture.clearEdges();
    QzResourceList* list = fixture.dependents();
    state.ResumeTiming();
    if (!fixture.analysis()->addDependentResources(fixture.used(), list)) {
      state.SkipWithError(fixture.analysis()->getErrorMessage().asCstr());
      break;
    }
  }
  state.SetComplexityN(count);
  state.SetItemsProcessed(state.iterations() * count);
}

void BM_RecordSameDependentsAgain(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  StoreFixture fixture(count);
  fixture.analysis()->addDependentResources(fixture.used(), fixture.dependents());
  for (auto _ : state) {
    if (!fixture.analysis()->addDependentResources(fixture.used(), fixture.dependents())) {
      state.SkipWithError(fixture.analysis()->getErrorMessage().asCstr());
      break;
    }
  }
  state.SetComplexityN(count);
  state.SetItemsProcessed(state.iterations() * count);
}

void BM_GetDependents(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  StoreFixture fixture(count);
  fixture.analysis()->addDependentResources(fixture.used(), fixture.dependents());
  for (auto _ : state) {
    QzResourceList* result = fixture.analysis()->getDependentResources(fixture.used(), false);
    int rows = 0;
    while (result->next()) ++rows;
    result->release();
    if (rows != count) {
      state.SkipWithError("wrong number of dependents");
      break;
    }
  }
  state.SetComplexityN(count);
  state.SetItemsProcessed(state.iterations() * count);
}

BENCHMARK(BM_AddDependents)
    ->Arg(1000)->Arg(10000)->Arg(20000)
    ->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
BENCHMARK(BM_RecordSameDependentsAgain)
    ->Arg(1000)->Arg(10000)->Arg(20000)
    ->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
BENCHMARK(BM_GetDependents)
    ->Arg(1000)->Arg(10000)->Arg(20000)
    ->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
