// Lineage closures on a large graph, against the same walk made of one-step
// queries.
//
// The store holds 100,000 resources and 300,000 edges drawn at random (fixed
// seed): every resource uses three others on average, so the graph is full of
// cycles and most resources reach most others. The closure of the dependents
// of one resource is measured at depth 1, 5 and without a limit, once through
// QzvLineage::getDependents (one recursive query and a pass in memory) and
// once as a breadth-first walk that calls getDependentResources for every
// resource it reaches (one store opening and one query per resource). Both
// walks must find the same number of resources, or the benchmark fails. Extra
// rows: the deepest limit read by the walk with distances in its rows and the
// first one read by the walk over ids (see lineage_impl.h), the edges of the
// unlimited closure, and the whole graph.
//
// The graph is written once, directly with SQLite in one transaction, before
// anything is timed.
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "qzvault/lineage.h"
#include "bench_store.h"
#include "impact_analysis_impl.h"
#include "lineage_impl.h"
#include "resource_impl.h"

namespace {

const int kResources = 100000;
const int kEdges = 300000;
const unsigned kSeed = 424242;
// The resource whose dependents are walked.
const int kStartId = 1;

// The vault and its graph, made once for every benchmark of the run.
class Graph {
 public:
  static Graph& get() {
    static Graph graph;
    return graph;
  }

  QzvImpactAnalysisImpl* analysis() const { return store_.analysis(); }
  QzResource* start() const { return start_; }
  const std::string& error() const { return error_; }

 private:
  Graph() : store_("qzlineage") {
    fill();
    start_ = analysis()->getResource(QzbString("File"),
                                     QzbString(("/bench/r" + std::to_string(kStartId)).c_str()));
    if (start_ == nullptr) error_ = "the start resource is missing";
  }
  ~Graph() {
    if (start_ != nullptr) start_->release();
  }

  void fill() {
    sqlite3* db = nullptr;
    if (sqlite3_open(store_.storePath().c_str(), &db) != SQLITE_OK) abort();
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    sqlite3_stmt* resource = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES (?, ?, ?, 'File')",
                       -1, &resource, nullptr);
    for (int id = 1; id <= kResources; ++id) {
      const std::string name = "r" + std::to_string(id);
      const std::string identity = "/bench/" + name;
      sqlite3_bind_int(resource, 1, id);
      sqlite3_bind_text(resource, 2, name.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(resource, 3, identity.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_step(resource);
      sqlite3_reset(resource);
    }
    sqlite3_finalize(resource);
    sqlite3_stmt* edge = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO v_impadeps (res_id, res_used) VALUES (?, ?)", -1, &edge,
                       nullptr);
    std::mt19937 random(kSeed);
    std::uniform_int_distribution<int> pick(1, kResources);
    for (int count = 0; count < kEdges; ++count) {
      sqlite3_bind_int(edge, 1, pick(random));
      sqlite3_bind_int(edge, 2, pick(random));
      sqlite3_step(edge);
      sqlite3_reset(edge);
    }
    sqlite3_finalize(edge);
    if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) abort();
    sqlite3_close(db);
  }

  qzbench::BenchStore store_;
  QzResource* start_ = nullptr;
  std::string error_;
};

// The same walk with one-step queries: breadth first, one
// getDependentResources call per resource reached within `depth` steps
// (0: no limit). Returns the number of resources found, the start excluded.
long oneStepWalk(QzvImpactAnalysisImpl* analysis, QzResource* start, int depth) {
  std::unordered_set<std::string> seen{start->getId().toStdString()};
  struct Entry {
    QzvResourceImpl* resource;
    int distance;
  };
  std::deque<Entry> queue;
  QzvResourceImpl* first = new QzvResourceImpl();
  first->copyFrom(start);
  queue.push_back({first, 0});
  long found = 0;
  while (!queue.empty()) {
    Entry entry = queue.front();
    queue.pop_front();
    if (depth == 0 || entry.distance < depth) {
      QzResourceList* list = analysis->getDependentResources(entry.resource, false);
      while (list->next()) {
        QzResource* dependent = list->getValue(0);
        if (!seen.insert(dependent->getId().toStdString()).second) continue;
        ++found;
        QzvResourceImpl* copy = new QzvResourceImpl();
        copy->copyFrom(dependent);
        queue.push_back({copy, entry.distance + 1});
      }
      list->release();
    }
    entry.resource->release();
  }
  return found;
}

// The graph, or null with the benchmark marked as skipped when it could not
// be made.
Graph* graphOrSkip(benchmark::State& state) {
  Graph& graph = Graph::get();
  if (graph.error().empty()) return &graph;
  state.SkipWithError(graph.error().c_str());
  return nullptr;
}

long closureSize(QzvLineage* lineage, QzResource* start, int depth) {
  QzvLineageList* list = lineage->getDependents(start, depth);
  if (list == nullptr) return -1;
  const long size = list->length();
  list->release();
  return size;
}

void BM_Closure(benchmark::State& state) {
  Graph* graph = graphOrSkip(state);
  if (graph == nullptr) return;
  const int depth = static_cast<int>(state.range(0));
  QzvLineage* lineage = graph->analysis()->getLineage();
  long size = 0;
  for (auto _ : state) {
    size = closureSize(lineage, graph->start(), depth);
    if (size < 0) {
      state.SkipWithError(lineage->getErrorMessage().asCstr());
      break;
    }
  }
  lineage->release();
  state.counters["resources"] = static_cast<double>(size);
}

void BM_OneStepWalk(benchmark::State& state) {
  Graph* graph = graphOrSkip(state);
  if (graph == nullptr) return;
  const int depth = static_cast<int>(state.range(0));
  // The closure tells how many resources the walk must find.
  QzvLineage* lineage = graph->analysis()->getLineage();
  const long expected = closureSize(lineage, graph->start(), depth);
  lineage->release();
  long size = 0;
  for (auto _ : state) {
    size = oneStepWalk(graph->analysis(), graph->start(), depth);
    if (size != expected) {
      state.SkipWithError("the one-step walk and the closure disagree");
      break;
    }
  }
  state.counters["resources"] = static_cast<double>(size);
}

void BM_ClosureEdges(benchmark::State& state) {
  Graph& graph = Graph::get();
  QzvLineage* lineage = graph.analysis()->getLineage();
  long edges = 0;
  for (auto _ : state) {
    QzvLineageEdgeList* list = lineage->getDependentEdges(graph.start(), QZV_LINEAGE_UNLIMITED);
    if (list == nullptr) {
      state.SkipWithError(lineage->getErrorMessage().asCstr());
      break;
    }
    edges = list->length();
    list->release();
  }
  lineage->release();
  state.counters["edges"] = static_cast<double>(edges);
}

void BM_WholeGraph(benchmark::State& state) {
  Graph& graph = Graph::get();
  QzvLineage* lineage = graph.analysis()->getLineage();
  long resources = 0;
  long edges = 0;
  for (auto _ : state) {
    QzvLineageList* all = lineage->getAllResources();
    QzvLineageEdgeList* allEdges = lineage->getAllEdges();
    if (all == nullptr || allEdges == nullptr) {
      state.SkipWithError(lineage->getErrorMessage().asCstr());
      if (all != nullptr) all->release();
      if (allEdges != nullptr) allEdges->release();
      break;
    }
    resources = all->length();
    edges = allEdges->length();
    all->release();
    allEdges->release();
  }
  lineage->release();
  state.counters["resources"] = static_cast<double>(resources);
  state.counters["edges"] = static_cast<double>(edges);
}

BENCHMARK(BM_Closure)
    ->Arg(1)->Arg(5)->Arg(QZV_LINEAGE_UNLIMITED)
    ->Arg(kQzviBoundedWalkMaxDepth)->Arg(kQzviBoundedWalkMaxDepth + 1)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_OneStepWalk)
    ->Arg(1)->Arg(5)->Arg(QZV_LINEAGE_UNLIMITED)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosureEdges)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_WholeGraph)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
