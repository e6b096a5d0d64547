// QzvLineageImpl: closures and the whole graph (see lineage_impl.h for how a
// closure is read and what it costs).
#include "lineage_impl.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>

#include "qzbase/path.h"
#include "qzbase/sqlite.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "impact_store.h"
#include "item_list_impl.h"
#include "resource_impl.h"
#include "vault_context.h"

namespace {

// Each walk returns, for every edge that leaves a resource it reached, the
// stored row of the resource at the far end (columns 0 to 4, in the order of
// "SELECT * FROM v_imparcs") and the id of the near end (column 5). The
// recursive step joins v_imparcs so that the walk never steps onto a resource
// that is not stored.
const char kWalkDependentsBounded[] =
    "WITH RECURSIVE walk(id, distance) AS ("
    " SELECT ?, 0"
    " UNION"
    " SELECT d.res_id, walk.distance + 1 FROM walk"
    " JOIN v_impadeps d ON d.res_used = walk.id"
    " JOIN v_imparcs s ON s.id = d.res_id"
    " WHERE walk.distance < ?)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date, d.res_used"
    " FROM (SELECT DISTINCT id FROM walk) w"
    " JOIN v_impadeps d ON d.res_used = w.id"
    " JOIN v_imparcs r ON r.id = d.res_id";
const char kWalkUsedBounded[] =
    "WITH RECURSIVE walk(id, distance) AS ("
    " SELECT ?, 0"
    " UNION"
    " SELECT d.res_used, walk.distance + 1 FROM walk"
    " JOIN v_impadeps d ON d.res_id = walk.id"
    " JOIN v_imparcs s ON s.id = d.res_used"
    " WHERE walk.distance < ?)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date, d.res_id"
    " FROM (SELECT DISTINCT id FROM walk) w"
    " JOIN v_impadeps d ON d.res_id = w.id"
    " JOIN v_imparcs r ON r.id = d.res_used";
const char kWalkDependentsAll[] =
    "WITH RECURSIVE reach(id) AS ("
    " SELECT ?"
    " UNION"
    " SELECT d.res_id FROM reach"
    " JOIN v_impadeps d ON d.res_used = reach.id"
    " JOIN v_imparcs s ON s.id = d.res_id)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date, d.res_used"
    " FROM reach"
    " JOIN v_impadeps d ON d.res_used = reach.id"
    " JOIN v_imparcs r ON r.id = d.res_id";
const char kWalkUsedAll[] =
    "WITH RECURSIVE reach(id) AS ("
    " SELECT ?"
    " UNION"
    " SELECT d.res_used FROM reach"
    " JOIN v_impadeps d ON d.res_id = reach.id"
    " JOIN v_imparcs s ON s.id = d.res_used)"
    " SELECT r.id, r.name, r.res_idty, r.res_type, r.mod_date, d.res_id"
    " FROM reach"
    " JOIN v_impadeps d ON d.res_id = reach.id"
    " JOIN v_imparcs r ON r.id = d.res_used";
// A walk over a large closure jumps around the edge index and the resource
// table; with SQLite's default page cache (about 2 MB) it would read the same
// pages from the file again and again. The cache only grows as pages are
// read, and goes with the connection at the end of the operation. 16 MiB holds
// most of a store of 100,000 resources and 300,000 edges (about 21 MB on
// disk) and makes its unlimited closure about a quarter faster than the
// default; a 64 MiB cache measured no faster, and would weigh on the
// library's small memory budget.
const char kWalkCacheSize[] = "PRAGMA cache_size = -16384";
const char kSelectResourceById[] = "SELECT id FROM v_imparcs WHERE id = ?";
const char kSelectAllResources[] = "SELECT * FROM v_imparcs ORDER BY id";
const char kSelectAllEdges[] =
    "SELECT DISTINCT d.res_id, d.res_used FROM v_impadeps d"
    " JOIN v_imparcs a ON a.id = d.res_id"
    " JOIN v_imparcs b ON b.id = d.res_used"
    " ORDER BY d.res_id, d.res_used";

const char kOutOfMemory[] = "Out of memory";
const int kResourceColumns = 5;  // id, name, res_idty, res_type, mod_date
const int kNearColumn = 5;

// A prepared query and its cursor, both released on scope exit. A query that
// could not be prepared fails at start(), with the connection's message.
class Query {
 public:
  Query(SqliteConnection* connection, const char* sql)
      : connection_(connection), statement_(connection->prepare(QzbString(sql, true))) {}
  ~Query() {
    if (cursor_ != nullptr) cursor_->release();
    if (statement_ != nullptr) statement_->release();
  }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  void bind(int index, int64_t value) {
    if (statement_ != nullptr) statement_->bindInt(index, value);
  }
  // Runs the query; false when it was not prepared or does not run.
  bool start() {
    if (statement_ == nullptr) return false;
    cursor_ = statement_->executeQuery();
    return cursor_ != nullptr;
  }
  // After start(): 1 on a row, 0 at the end, -1 on an error.
  int step() { return cursor_->next(); }
  // After start(): calls onRow(cursor) for every remaining row; false when a
  // step fails. Exceptions of onRow pass through.
  template <typename OnRow>
  bool forEachRow(OnRow onRow) {
    int state;
    while ((state = cursor_->next()) == 1) onRow(cursor_);
    return state >= 0;
  }
  // The reason of the last failure, from the statement when there is one.
  QzbString errorMessage() const {
    return statement_ != nullptr ? statement_->getErrorMessage() : connection_->getErrorMessage();
  }

 private:
  SqliteConnection* connection_;
  SqliteStatement* statement_;
  SqliteCursor* cursor_ = nullptr;
};

// Appends a row to `rows` with the stored columns column(0) to
// column(kResourceColumns - 1). Throws std::bad_alloc.
template <typename Column>
void addResourceRow(QzvItemListImpl* rows, Column column) {
  if (!rows->addRow()) throw std::bad_alloc();
  for (int index = 0; index < kResourceColumns; ++index) {
    rows->setLastRowElement(index, column(index));
  }
}

QzbString decimal(int64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64, value);
  return QzbString(text);
}

bool edgeLess(const QzvLineageEdgeListImpl::Edge& a, const QzvLineageEdgeListImpl::Edge& b) {
  return a.user != b.user ? a.user < b.user : a.used < b.used;
}

bool edgeEqual(const QzvLineageEdgeListImpl::Edge& a, const QzvLineageEdgeListImpl::Edge& b) {
  return a.user == b.user && a.used == b.used;
}

}  // namespace

// ---------------------------------------------------------------------------
// QzvLineageListImpl

QzvLineageListImpl::~QzvLineageListImpl() {
  for (Row& row : rows_) row.resource->release();
}

bool QzvLineageListImpl::next() {
  if (!started_) {
    started_ = true;
    current_ = 0;
  } else if (current_ < rows_.size()) {
    ++current_;
  }
  return onRow();
}

void QzvLineageListImpl::reset() {
  started_ = false;
  current_ = 0;
}

int QzvLineageListImpl::length() { return static_cast<int>(rows_.size()); }

QzResource* QzvLineageListImpl::getResource() {
  return onRow() ? rows_[current_].resource : nullptr;
}

int QzvLineageListImpl::getDistance() { return onRow() ? rows_[current_].distance : 0; }

void QzvLineageListImpl::release() { delete this; }

bool QzvLineageListImpl::append(QzvResourceImpl* resource, int distance) {
  try {
    rows_.push_back(Row{resource, distance});
  } catch (const std::bad_alloc&) {
    resource->release();
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// QzvLineageEdgeListImpl

QzvLineageEdgeListImpl::QzvLineageEdgeListImpl(std::vector<Edge> edges)
    : edges_(std::move(edges)) {}

bool QzvLineageEdgeListImpl::next() {
  if (!started_) {
    started_ = true;
    current_ = 0;
  } else if (current_ < edges_.size()) {
    ++current_;
  }
  return onRow();
}

void QzvLineageEdgeListImpl::reset() {
  started_ = false;
  current_ = 0;
}

int QzvLineageEdgeListImpl::length() { return static_cast<int>(edges_.size()); }

QzbString QzvLineageEdgeListImpl::getUserId() {
  return onRow() ? decimal(edges_[current_].user) : QzbString();
}

QzbString QzvLineageEdgeListImpl::getUsedId() {
  return onRow() ? decimal(edges_[current_].used) : QzbString();
}

void QzvLineageEdgeListImpl::release() { delete this; }

// ---------------------------------------------------------------------------
// QzvLineageImpl

// What a closure read gives: the reached resources with their distances (the
// start at 0), the stored rows of the far ends met on the way, and the edges
// among the reached resources as "user uses used".
struct QzvLineageImpl::Closure {
  struct Row {
    QzbString columns[kResourceColumns];
  };
  int64_t start = 0;
  std::unordered_map<int64_t, int> distances;
  std::unordered_map<int64_t, Row> rows;
  std::vector<QzvLineageEdgeListImpl::Edge> edges;
};

QzvLineageImpl::QzvLineageImpl(QzviVaultContext* vault, QzvImpactAnalysisImpl* reader)
    : vault_(vault), reader_(reader), errorMessage_("", true), logger_(qzviLineageLogger()) {}

QzvLineageImpl::~QzvLineageImpl() {
  if (reader_ != nullptr) reader_->release();
}

void QzvLineageImpl::release() { delete this; }

QzbString QzvLineageImpl::getErrorMessage() { return errorMessage_; }

void QzvLineageImpl::fail(const QzbString& message) {
  errorMessage_ = message;
  QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
}

bool QzvLineageImpl::openStore(QzviImpactStore* store) {
  QzbString message;
  if (store->open(nullptr, &message) == QzviImpactStore::kOpened) return true;
  fail(message);
  return false;
}

QzvLineageListImpl* QzvLineageImpl::listResources(QzvItemListImpl* rows,
                                                  const std::vector<int>& distances) {
  QzvLineageListImpl* list = new QzvLineageListImpl();
  for (std::size_t index = 0; rows->next(); ++index) {
    QzvResourceImpl* made = qzviResourceFromRow(reader_, rows);
    if (made == nullptr || !list->append(made, distances.empty() ? 0 : distances[index])) {
      list->release();
      throw std::bad_alloc();
    }
  }
  return list;
}

QzvLineageList* QzvLineageImpl::getDependents(QzResource* resource, int maxDepth) {
  return closureList(resource, Direction::kDependents, maxDepth);
}

QzvLineageList* QzvLineageImpl::getUsed(QzResource* resource, int maxDepth) {
  return closureList(resource, Direction::kUsed, maxDepth);
}

QzvLineageEdgeList* QzvLineageImpl::getDependentEdges(QzResource* resource, int maxDepth) {
  return closureEdges(resource, Direction::kDependents, maxDepth);
}

QzvLineageEdgeList* QzvLineageImpl::getUsedEdges(QzResource* resource, int maxDepth) {
  return closureEdges(resource, Direction::kUsed, maxDepth);
}

bool QzvLineageImpl::readClosure(QzResource* resource, Direction direction, int maxDepth,
                                 bool wantResources, Closure* closure) {
  if (resource == nullptr) {
    fail(QzbString(QZVI_TEXT_NO_RESOURCE, true));
    return false;
  }
  if (maxDepth < 0) {
    fail(qzbStringFormat(
        "Invalid lineage depth %d: give a positive number of steps, or 0 for no limit", maxDepth));
    return false;
  }
  const QzbString idText = resource->getId();
  const QzbString notStored = qzbStringFormat("Resource %s is not in the lineage store",
                                              idText.isEmpty() ? "(no id)" : idText.asCstr());
  bool numeric = false;
  closure->start = idText.asInt64(&numeric);
  if (!numeric) {
    fail(notStored);
    return false;
  }

  // A closure only reads: a store that is read-only will do.
  QzviImpactStore store(vault_);
  if (!openStore(&store)) return false;
  {
    Query exists(store.get(), kSelectResourceById);
    exists.bind(0, closure->start);
    const int found = exists.start() ? exists.step() : -1;
    if (found < 0) {
      fail(exists.errorMessage());
      return false;
    }
    if (found == 0) {
      fail(notStored);
      return false;
    }
  }

  store->exec(QzbString(kWalkCacheSize, true), 0);  // a failure only costs speed
  const bool bounded = maxDepth >= 1 && maxDepth <= kQzviBoundedWalkMaxDepth;
  const char* sql = direction == Direction::kDependents
                        ? (bounded ? kWalkDependentsBounded : kWalkDependentsAll)
                        : (bounded ? kWalkUsedBounded : kWalkUsedAll);
  // Adjacency in the walk's direction: near end to far ends, one entry per
  // edge row (duplicate edges included; the pass below keeps the first).
  std::unordered_map<int64_t, std::vector<int64_t>> adjacent;
  std::vector<std::pair<int64_t, int64_t>> fetched;  // (near, far)
  {
    Query walk(store.get(), sql);
    walk.bind(0, closure->start);
    if (bounded) walk.bind(1, maxDepth);
    const auto gather = [&](SqliteCursor* row) {
      const int64_t far = row->getInt64(0);
      const int64_t near = row->getInt64(kNearColumn);
      adjacent[near].push_back(far);
      fetched.emplace_back(near, far);
      if (wantResources && closure->rows.find(far) == closure->rows.end()) {
        Closure::Row& stored = closure->rows[far];
        for (int column = 0; column < kResourceColumns; ++column) {
          stored.columns[column] = row->getText(column);
        }
      }
    };
    if (!walk.start() || !walk.forEachRow(gather)) {
      fail(walk.errorMessage());
      return false;
    }
  }

  // Breadth first from the start: the first visit is at the shortest
  // distance, and a resource already visited is not queued again.
  closure->distances[closure->start] = 0;
  std::deque<int64_t> queue{closure->start};
  while (!queue.empty()) {
    const int64_t near = queue.front();
    queue.pop_front();
    const int distance = closure->distances[near];
    if (maxDepth != QZV_LINEAGE_UNLIMITED && distance >= maxDepth) continue;
    const auto found = adjacent.find(near);
    if (found == adjacent.end()) continue;
    for (int64_t far : found->second) {
      if (closure->distances.emplace(far, distance + 1).second) queue.push_back(far);
    }
  }

  // The edges among the reached resources, each pair once, as "user uses
  // used" whichever way the walk went.
  for (const auto& edge : fetched) {
    if (closure->distances.count(edge.first) == 0 || closure->distances.count(edge.second) == 0) {
      continue;
    }
    if (direction == Direction::kDependents) {
      closure->edges.push_back({edge.second, edge.first});
    } else {
      closure->edges.push_back({edge.first, edge.second});
    }
  }
  std::sort(closure->edges.begin(), closure->edges.end(), edgeLess);
  closure->edges.erase(std::unique(closure->edges.begin(), closure->edges.end(), edgeEqual),
                       closure->edges.end());
  return true;
}

QzvLineageList* QzvLineageImpl::closureList(QzResource* resource, Direction direction,
                                            int maxDepth) {
  try {
    Closure closure;
    if (!readClosure(resource, direction, maxDepth, true, &closure)) return nullptr;

    // Ordered by distance, then id; the start itself is not listed.
    std::vector<std::pair<int, int64_t>> order;
    order.reserve(closure.distances.size());
    for (const auto& entry : closure.distances) {
      if (entry.first != closure.start) order.emplace_back(entry.second, entry.first);
    }
    std::sort(order.begin(), order.end());

    QzvItemListImpl* rows = new QzvItemListImpl(kResourceColumns);
    QzviItemListHolder holder(rows);
    std::vector<int> distances;
    distances.reserve(order.size());
    for (const auto& entry : order) {
      const Closure::Row& stored = closure.rows.at(entry.second);
      addResourceRow(rows, [&](int column) { return stored.columns[column]; });
      distances.push_back(entry.first);
    }
    return listResources(rows, distances);
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageEdgeList* QzvLineageImpl::closureEdges(QzResource* resource, Direction direction,
                                                 int maxDepth) {
  try {
    Closure closure;
    if (!readClosure(resource, direction, maxDepth, false, &closure)) return nullptr;
    return new QzvLineageEdgeListImpl(std::move(closure.edges));
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageList* QzvLineageImpl::getAllResources() {
  QzviImpactStore store(vault_);
  if (!openStore(&store)) return nullptr;
  try {
    Query all(store.get(), kSelectAllResources);
    if (!all.start()) {
      fail(all.errorMessage());
      return nullptr;
    }
    // Rows are copied into an in-memory list first so that the resources are
    // made by the common row-to-resource step.
    QzvItemListImpl* rows = new QzvItemListImpl(kResourceColumns);
    QzviItemListHolder holder(rows);
    const auto copy = [&](SqliteCursor* row) {
      addResourceRow(rows, [&](int column) { return row->getText(column); });
    };
    if (!all.forEachRow(copy)) {
      fail(all.errorMessage());
      return nullptr;
    }
    return listResources(rows, {});
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageEdgeList* QzvLineageImpl::getAllEdges() {
  QzviImpactStore store(vault_);
  if (!openStore(&store)) return nullptr;
  try {
    Query all(store.get(), kSelectAllEdges);
    std::vector<QzvLineageEdgeListImpl::Edge> edges;
    const auto collect = [&](SqliteCursor* row) {
      edges.push_back({row->getInt64(0), row->getInt64(1)});
    };
    if (!all.start() || !all.forEachRow(collect)) {
      fail(all.errorMessage());
      return nullptr;
    }
    return new QzvLineageEdgeListImpl(std::move(edges));
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

// ---------------------------------------------------------------------------
// QzvImpactAnalysisImpl::getLineage

QzvLineage* QzvImpactAnalysisImpl::getLineage() {
  // The lineage object reads through an analysis object of its own, so that
  // it does not depend on this one staying alive.
  QzvImpactAnalysisImpl* reader = new (std::nothrow) QzvImpactAnalysisImpl(vault());
  if (reader == nullptr) return nullptr;
  reader->registerResourceResolver(getResourceResolver());
  QzvLineageImpl* lineage = new (std::nothrow) QzvLineageImpl(vault(), reader);
  if (lineage == nullptr) reader->release();
  return lineage;
}
