// QzvLineageImpl: closures of the lineage graph (everything that depends on a
// resource, or that it uses, through any chain) and the whole graph, read from
// the vault's ".v_imd" with one recursive query per closure.
//
// How a closure is read. One statement walks the edges (v_impadeps) from the
// start resource and returns every edge leaving the resources it reached,
// with the stored row of the resource at the far end; a breadth-first pass in
// memory over those edges then gives each resource its shortest distance and
// the edges among the resources of the closure. The walk takes one of two
// forms:
//   - depth-limited (1 to kQzviBoundedWalkMaxDepth steps): rows (id,
//     distance) with the depth bound in the recursion, so a cycle ends at the
//     bound; a resource on a cycle is revisited at most once per depth, so the
//     cost is at most (depth + 1) times the resources within reach;
//   - everything else (no limit, or a deep limit that the pass in memory then
//     applies): rows of ids alone, so that UNION keeps every resource once and
//     a cycle ends as soon as it closes; the cost grows with the edges of the
//     closure. (With distances in the rows, a resource on a cycle would come
//     back once per depth up to the bound, which for "no limit" is the number
//     of resources: quadratic.)
// Both forms step only onto resources that are stored, so a dangling edge is
// neither followed nor listed. The store is opened once per operation and
// may be read-only.
#ifndef QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_
#define QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qzbase/log.h"
#include "qzbase/string.h"
#include "qzvault/lineage.h"

class QzviVaultContext;
class QzvImpactAnalysisImpl;
class QzvResourceImpl;
class QzvItemListImpl;
class QzviImpactStore;

// The deepest limit that the walk with distances in its rows handles; deeper
// limits walk like "no limit" and are cut in memory.
constexpr int kQzviBoundedWalkMaxDepth = 8;

class QzvLineageListImpl final : public QzvLineageList {
 public:
  QzvLineageListImpl() = default;

  bool next() override;
  void reset() override;
  int length() override;
  QzResource* getResource() override;
  int getDistance() override;
  void release() override;

  // Appends a row; the list takes `resource` over (it is released with the
  // list). False when memory runs out (the resource is then released).
  bool append(QzvResourceImpl* resource, int distance);

 private:
  ~QzvLineageListImpl();
  struct Row {
    QzvResourceImpl* resource;
    int distance;
  };
  bool onRow() const { return started_ && current_ < rows_.size(); }

  std::vector<Row> rows_;
  bool started_ = false;
  std::size_t current_ = 0;
};

class QzvLineageEdgeListImpl final : public QzvLineageEdgeList {
 public:
  struct Edge {
    int64_t user;
    int64_t used;
  };
  // Takes the edges as they are (the caller orders them).
  explicit QzvLineageEdgeListImpl(std::vector<Edge> edges);

  bool next() override;
  void reset() override;
  int length() override;
  QzbString getUserId() override;
  QzbString getUsedId() override;
  void release() override;

 private:
  ~QzvLineageEdgeListImpl() = default;
  bool onRow() const { return started_ && current_ < edges_.size(); }

  std::vector<Edge> edges_;
  bool started_ = false;
  std::size_t current_ = 0;
};

class QzvLineageImpl final : public QzvLineage {
 public:
  // `vault` is not owned and must outlive this object. `reader` is an analysis
  // object over the same vault, owned by this object, through which rows
  // become resources (with its resolver, if one was registered).
  QzvLineageImpl(QzviVaultContext* vault, QzvImpactAnalysisImpl* reader);

  void release() override;
  QzbString getErrorMessage() override;
  QzvLineageList* getDependents(QzResource* resource, int maxDepth) override;
  QzvLineageList* getUsed(QzResource* resource, int maxDepth) override;
  QzvLineageEdgeList* getDependentEdges(QzResource* resource, int maxDepth) override;
  QzvLineageEdgeList* getUsedEdges(QzResource* resource, int maxDepth) override;
  QzvLineageList* getAllResources() override;
  QzvLineageEdgeList* getAllEdges() override;

  // Which way a closure walks: to the resources that use the start, or to
  // those that it uses.
  enum class Direction { kDependents, kUsed };

 private:
  ~QzvLineageImpl();

  struct Closure;
  // Reads the closure of `resource`; false with errorMessage_ set (and
  // logged) on failure. With `wantResources` false only edges are gathered.
  bool readClosure(QzResource* resource, Direction direction, int maxDepth, bool wantResources,
                   Closure* closure);
  QzvLineageList* closureList(QzResource* resource, Direction direction, int maxDepth);
  QzvLineageEdgeList* closureEdges(QzResource* resource, Direction direction, int maxDepth);
  void fail(const QzbString& message);
  // Opens the store for reading; false with errorMessage_ set on failure.
  bool openStore(QzviImpactStore* store);
  // Makes every row of `rows` (stored v_imparcs columns) a resource, through
  // the row-to-resource step that every read of v_imparcs shares (resolver,
  // macro flag), listed with distances[i], or 0 when `distances` is empty.
  // Throws std::bad_alloc; the list is the caller's.
  QzvLineageListImpl* listResources(QzvItemListImpl* rows, const std::vector<int>& distances);

  QzviVaultContext* vault_;
  QzvImpactAnalysisImpl* reader_;
  QzbString errorMessage_;
  QzLogger* logger_;
};

#endif  // QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_
