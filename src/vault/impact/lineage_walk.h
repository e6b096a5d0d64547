// Walking the lineage graph from one resource: every resource reached
// through the edges in one direction, each with its least distance, and the
// edges among them. Internal to the lineage reads (lineage_impl.cc).
//
// How the walk reads the edges. It starts stepping: for each resource it
// expands, one look-up of its row (the walk steps only onto stored
// resources: a dangling edge is neither followed nor listed) and one query
// that reads its edges from the covering edge index. A closure that stays
// small costs a few queries, however large the store. Once it has expanded
// more resources than a small share of the store's edges, it reads the ids
// of the stored resources and every edge of the store in two ordered passes
// and goes on in memory. So the cost grows with the closure while it is
// small and with the store when the closure is large, and never with their
// product: no edge is read more than twice. Duplicate edges and cycles cost
// nothing extra: a resource is expanded once, at its least distance
// (breadth first).
#ifndef QZVAULT_SRC_IMPACT_LINEAGE_WALK_H_
#define QZVAULT_SRC_IMPACT_LINEAGE_WALK_H_

#include <cstdint>
#include <utility>
#include <vector>

#include "qzbase/sqlite.h"
#include "qzbase/string.h"

// A prepared query and its cursor, both released on scope exit. A query that
// could not be prepared fails at start(), with the connection's message.
class QzviLineageQuery {
 public:
  QzviLineageQuery(SqliteConnection* connection, const char* sql);
  ~QzviLineageQuery();
  QzviLineageQuery(const QzviLineageQuery&) = delete;
  QzviLineageQuery& operator=(const QzviLineageQuery&) = delete;

  // Binds a parameter (counted from 0), ending the previous run first.
  void bind(int index, int64_t value);
  // Runs the query (again: a previous cursor is released first); false when
  // it was not prepared or does not run.
  bool start();
  // After start(): 1 on a row, 0 at the end, -1 on an error.
  int step() { return cursor_->next(); }
  SqliteCursor* cursor() const { return cursor_; }
  // Hands the running cursor over to the caller (who releases it before the
  // query runs again or goes).
  SqliteCursor* releaseCursor();
  // After start(): calls onRow(cursor) for every remaining row; false when a
  // step fails. Exceptions of onRow pass through.
  template <typename OnRow>
  bool forEachRow(OnRow onRow) {
    int state;
    while ((state = cursor_->next()) == 1) onRow(cursor_);
    return state >= 0;
  }
  // The reason of the last failure, from the statement when there is one.
  QzbString errorMessage() const;

 private:
  SqliteConnection* connection_;
  SqliteStatement* statement_;
  SqliteCursor* cursor_ = nullptr;
};

struct QzviLineageEdge {
  int64_t user;  // the resource that uses
  int64_t used;  // the resource it uses
};

struct QzviLineageWalk {
  // Towards the resources that use the start (true), or that it uses.
  bool towardsUsers = true;
  // The most steps from the start; 0 for no limit.
  int maxDepth = 0;
  // Whether the edges among the reached resources are wanted.
  bool wantEdges = false;

  // Results. Every resource reached but the start, as (distance, id),
  // ordered by distance and then id.
  std::vector<std::pair<int, int64_t>> reached;
  // The edges among the reached resources and the start, each pair once,
  // ordered by user and then used (only when wantEdges).
  std::vector<QzviLineageEdge> edges;
  // How many resources the store holds, when the walk read them all (it
  // then knew them); -1 otherwise.
  long storedResources = -1;
};

// The walk's step queries, one resource's far ends towards its users and
// towards what it uses, and the test that a resource is stored (bound: the
// resource's id); tests check their plans.
extern const char kQzviLineageStepToUsers[];
extern const char kQzviLineageStepToUsed[];
extern const char kQzviLineageIsStored[];

// Walks from the stored resource `start`. False with the store's message in
// *error when a query fails. Throws std::bad_alloc when memory runs out.
bool qzviWalkLineage(SqliteConnection* store, int64_t start, QzviLineageWalk* walk,
                     QzbString* error);

// Every edge of the store whose two ends are stored, each pair once, ordered
// by user and then used: two ordered passes (the ids, the edges through the
// covering index) instead of a look-up of both ends of every edge. False
// with the store's message in *error when a query fails. Throws
// std::bad_alloc.
bool qzviReadAllEdges(SqliteConnection* store, std::vector<QzviLineageEdge>* edges,
                      QzbString* error);

#endif  // QZVAULT_SRC_IMPACT_LINEAGE_WALK_H_
