// QzvLineageImpl: closures of the lineage graph (everything that depends on a
// resource, or that it uses, through any chain) and the whole graph, read from
// the vault's ".v_imd".
//
// How a closure is read: lineage_walk.h. The walk gives the reached
// resources with their distances (and, for the edge lists, the edges among
// them); their stored rows are then read once each, by id, or in one pass
// over the table when the closure holds a large share of the store, and made
// into resources as every read of v_imparcs makes them (resolver, macro
// flag). The walk and the read of the rows run in one read transaction, so
// they see one state of the store. The store is opened once per operation and
// may be read-only.
#ifndef QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_
#define QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qzbase/log.h"
#include "qzbase/string.h"
#include "lineage_walk.h"
#include "qzvault/lineage.h"

class QzviVaultContext;
class QzvImpactAnalysisImpl;
class QzvResourceImpl;
class QzviImpactStore;

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
  // Makes room for `rows` rows. Throws std::bad_alloc.
  void reserve(std::size_t rows) { rows_.reserve(rows); }

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
  using Edge = QzviLineageEdge;
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

  // A read transaction begun on an open store, committed on scope exit.
  class ReadTransaction {
   public:
    ReadTransaction() = default;
    ~ReadTransaction();
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;
    void begin(SqliteConnection* store);

   private:
    SqliteConnection* store_ = nullptr;
  };

  // Checks the arguments, opens *store, begins *transaction on it and walks
  // from `resource` as *walk asks (its wantEdges set by the caller); false
  // with errorMessage_ set (and logged) on failure. Throws std::bad_alloc.
  bool readClosure(QzResource* resource, Direction direction, int maxDepth,
                   QzviImpactStore* store, ReadTransaction* transaction, QzviLineageWalk* walk);
  // The reached resources of `walk` as the answer's list, made from their
  // stored rows; null with errorMessage_ set when a query fails. Throws
  // std::bad_alloc.
  QzvLineageListImpl* listReached(SqliteConnection* store, const QzviLineageWalk& walk);
  QzvLineageList* closureList(QzResource* resource, Direction direction, int maxDepth);
  QzvLineageEdgeList* closureEdges(QzResource* resource, Direction direction, int maxDepth);
  void fail(const QzbString& message);
  // Opens the store for reading; false with errorMessage_ set on failure.
  bool openStore(QzviImpactStore* store);

  QzviVaultContext* vault_;
  QzvImpactAnalysisImpl* reader_;
  QzbString errorMessage_;
  QzLogger* logger_;
};

#endif  // QZVAULT_SRC_IMPACT_LINEAGE_IMPL_H_
