// The walk behind every lineage closure (see lineage_walk.h for how it reads
// the edges and what that costs).
#include "lineage_walk.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <new>

// One step from a resource: the far ends of its edges, read from the covering
// edge index alone (the near end's id is bound).
const char kQzviLineageStepToUsers[] = "SELECT res_id FROM v_impadeps WHERE res_used = ?";
const char kQzviLineageStepToUsed[] = "SELECT res_used FROM v_impadeps WHERE res_id = ?";
// Whether a resource is stored: one look-up of its row id. The walk steps
// only onto stored resources (a dangling edge is neither followed nor listed).
const char kQzviLineageIsStored[] = "SELECT 1 FROM v_imparcs WHERE id = ?";

namespace {

// Every edge as (near end, far end) in the walk's direction, ordered by the
// near end (the covering index gives that order without sorting).
const char kAllEdgesToUsers[] = "SELECT res_used, res_id FROM v_impadeps ORDER BY res_used";
const char kAllEdgesToUsed[] = "SELECT res_id, res_used FROM v_impadeps ORDER BY res_id";
const char kStoredIds[] = "SELECT id FROM v_imparcs";
const char kAllEdgesInOrder[] =
    "SELECT res_id, res_used FROM v_impadeps ORDER BY res_id, res_used";
// An estimate of the store's edges: the last row id of the edge table, read
// from the end of its b-tree.
const char kEdgeEstimate[] = "SELECT max(rowid) FROM v_impadeps";

// A single step reads a few pages at scattered places; reading every edge at
// once reads each page once, in order. The walk steps one resource at a time
// while it has stepped fewer than kMinSteps, or one in kStepShare of the
// store's edges: a closure that outgrows that is likely to reach a good part
// of the store, and reading it all is then the cheaper way. Either way the
// cost stays within a small factor of the cheaper choice.
const long kMinSteps = 256;
const long kStepShare = 512;

using Edge = std::pair<int64_t, int64_t>;  // (near, far)

bool nearLess(const Edge& a, const Edge& b) { return a.first < b.first; }

// The ids of the stored resources, for membership tests: a bitmap when they
// are dense (as ids that SQLite hands out are), else a sorted vector.
class StoredIds {
 public:
  // Takes the ids in any order.
  explicit StoredIds(std::vector<int64_t> ids) : ids_(std::move(ids)) {
    std::sort(ids_.begin(), ids_.end());
    ids_.erase(std::unique(ids_.begin(), ids_.end()), ids_.end());
    if (!ids_.empty() && ids_.front() >= 0 &&
        ids_.back() / 8 <= static_cast<int64_t>(ids_.size())) {
      bits_.assign(static_cast<std::size_t>(ids_.back()) + 1, false);
      for (int64_t id : ids_) bits_[static_cast<std::size_t>(id)] = true;
      ids_.clear();
      ids_.shrink_to_fit();
      dense_ = true;
    }
  }
  bool contains(int64_t id) const {
    if (dense_) return id >= 0 && static_cast<uint64_t>(id) < bits_.size() && bits_[id];
    return std::binary_search(ids_.begin(), ids_.end(), id);
  }

 private:
  std::vector<int64_t> ids_;
  std::vector<bool> bits_;
  bool dense_ = false;
};

// Least distances by resource id: an open-addressing table of (id, distance)
// pairs with linear probing, so that the walk neither allocates per resource
// nor per edge. Grows by doubling at half full.
class DistanceMap {
 public:
  DistanceMap() : slots_(64, Slot{kEmpty, 0}) {}
  // Sets the distance of `id` unless it has one; true when it was new.
  bool insert(int64_t id, int distance) {
    if ((size_ + 1) * 2 > slots_.size()) grow();
    Slot& slot = find(id);
    if (slot.id != kEmpty) return false;
    slot = Slot{id, distance};
    ++size_;
    return true;
  }
  // The distance of `id`, which must have one.
  int& at(int64_t id) { return find(id).distance; }
  // The distance of `id`, or kNone.
  int get(int64_t id) {
    const Slot& slot = find(id);
    return slot.id == kEmpty ? kNone : slot.distance;
  }
  static const int kNone = -2;

 private:
  static const int64_t kEmpty = INT64_MIN;  // no resource has this id
  struct Slot {
    int64_t id;
    int distance;
  };
  Slot& find(int64_t id) {
    // Fibonacci hashing spreads consecutive ids over the table.
    const std::size_t mask = slots_.size() - 1;
    std::size_t index = static_cast<std::size_t>(static_cast<uint64_t>(id) * 0x9E3779B97F4A7C15ULL) & mask;
    while (slots_[index].id != kEmpty && slots_[index].id != id) index = (index + 1) & mask;
    return slots_[index];
  }
  void grow() {
    std::vector<Slot> old(slots_.size() * 2, Slot{kEmpty, 0});
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.id != kEmpty) find(slot.id) = slot;
    }
  }
  std::vector<Slot> slots_;  // a power of two in size
  std::size_t size_ = 0;
};

// Reads the ids of every stored resource into *ids. False on a failed query.
bool readStoredIds(SqliteConnection* store, std::vector<int64_t>* ids, QzbString* error) {
  QzviLineageQuery query(store, kStoredIds);
  if (!query.start() ||
      !query.forEachRow([&](SqliteCursor* row) { ids->push_back(row->getInt64(0)); })) {
    *error = query.errorMessage();
    return false;
  }
  return true;
}

// Reads the edges and answers whether resources are stored, one resource at a
// time or, once the walk has grown, from everything read at once.
class EdgeReader {
 public:
  EdgeReader(SqliteConnection* store, bool towardsUsers)
      : store_(store),
        towardsUsers_(towardsUsers),
        step_(store, towardsUsers ? kQzviLineageStepToUsers : kQzviLineageStepToUsed),
        isStored_(store, kQzviLineageIsStored) {}

  // Whether `id` is a stored resource; *stored gets the answer. False on a
  // failed query.
  bool stored(int64_t id, bool* stored, QzbString* error) {
    if (!inMemory_ && ++steps_ > stepBudget() && !readAll(error)) return false;
    if (inMemory_) {
      *stored = storedIds_->contains(id);
      return true;
    }
    isStored_.bind(0, id);
    const int found = isStored_.start() ? isStored_.step() : -1;
    if (found < 0) {
      *error = isStored_.errorMessage();
      return false;
    }
    *stored = found == 1;
    return true;
  }

  // The far ends of `near`'s edges in *fars (duplicates included). False on
  // a failed query.
  bool farEnds(int64_t near, std::vector<int64_t>* fars, QzbString* error) {
    fars->clear();
    if (inMemory_) {
      std::size_t begin = 0;
      std::size_t end = 0;
      if (!firstEdge_.empty()) {
        // Dense near ends: the edges of `near` are [firstEdge_[near],
        // firstEdge_[near + 1]).
        if (near >= 0 && static_cast<uint64_t>(near) + 1 < firstEdge_.size()) {
          begin = firstEdge_[static_cast<std::size_t>(near)];
          end = firstEdge_[static_cast<std::size_t>(near) + 1];
        }
      } else {
        auto range = std::equal_range(edges_.begin(), edges_.end(), Edge{near, 0}, nearLess);
        begin = static_cast<std::size_t>(range.first - edges_.begin());
        end = static_cast<std::size_t>(range.second - edges_.begin());
      }
      for (std::size_t edge = begin; edge < end; ++edge) fars->push_back(edges_[edge].second);
      return true;
    }
    step_.bind(0, near);
    if (!step_.start() ||
        !step_.forEachRow([&](SqliteCursor* row) { fars->push_back(row->getInt64(0)); })) {
      *error = step_.errorMessage();
      return false;
    }
    return true;
  }

  long storedResources() const { return inMemory_ ? storedCount_ : -1; }

 private:
  long stepBudget() {
    if (budget_ < 0) {
      QzviLineageQuery estimate(store_, kEdgeEstimate);
      long edges = 0;
      if (estimate.start() && estimate.step() == 1) {
        edges = static_cast<long>(estimate.cursor()->getInt64(0));
      }
      budget_ = std::max(kMinSteps, edges / kStepShare);
    }
    return budget_;
  }

  // Reads the ids of the stored resources and every edge, ordered by the
  // near end.
  bool readAll(QzbString* error) {
    std::vector<int64_t> ids;
    if (!readStoredIds(store_, &ids, error)) return false;
    storedCount_ = static_cast<long>(ids.size());
    storedIds_.reset(new StoredIds(std::move(ids)));
    QzviLineageQuery all(store_, towardsUsers_ ? kAllEdgesToUsers : kAllEdgesToUsed);
    if (!all.start() || !all.forEachRow([&](SqliteCursor* row) {
          edges_.emplace_back(row->getInt64(0), row->getInt64(1));
        })) {
      *error = all.errorMessage();
      return false;
    }
    // In near-end order already when the index served the query.
    if (!std::is_sorted(edges_.begin(), edges_.end(), nearLess)) {
      std::stable_sort(edges_.begin(), edges_.end(), nearLess);
    }
    indexNearEnds();
    inMemory_ = true;
    return true;
  }

  // When the near ends are dense (ids from 0 up to a few times the number of
  // edges), firstEdge_[id] is the first edge of `id` in edges_, and
  // firstEdge_[id + 1] the end of its edges; otherwise the edges are found
  // by binary search.
  void indexNearEnds() {
    if (edges_.empty() || edges_.front().first < 0 ||
        edges_.back().first / 4 > static_cast<int64_t>(edges_.size())) {
      return;
    }
    const std::size_t ids = static_cast<std::size_t>(edges_.back().first) + 2;
    firstEdge_.assign(ids, 0);
    std::size_t edge = 0;
    for (std::size_t id = 0; id < ids; ++id) {
      while (edge < edges_.size() && static_cast<std::size_t>(edges_[edge].first) < id) ++edge;
      firstEdge_[id] = static_cast<uint32_t>(edge);
    }
  }

  SqliteConnection* store_;
  bool towardsUsers_;
  QzviLineageQuery step_;
  QzviLineageQuery isStored_;
  long steps_ = 0;
  long budget_ = -1;
  bool inMemory_ = false;
  long storedCount_ = 0;
  std::unique_ptr<StoredIds> storedIds_;
  std::vector<Edge> edges_;
  std::vector<uint32_t> firstEdge_;
};

}  // namespace

// ---------------------------------------------------------------------------
// QzviLineageQuery

QzviLineageQuery::QzviLineageQuery(SqliteConnection* connection, const char* sql)
    : connection_(connection), statement_(connection->prepare(QzbString(sql, true))) {}

QzviLineageQuery::~QzviLineageQuery() {
  if (cursor_ != nullptr) cursor_->release();
  if (statement_ != nullptr) statement_->release();
}

void QzviLineageQuery::bind(int index, int64_t value) {
  // A statement is bound again only once its last run is over: releasing
  // the cursor resets it.
  if (cursor_ != nullptr) cursor_->release();
  cursor_ = nullptr;
  if (statement_ != nullptr) statement_->bindInt(index, value);
}

bool QzviLineageQuery::start() {
  if (cursor_ != nullptr) cursor_->release();
  cursor_ = nullptr;
  if (statement_ == nullptr) return false;
  cursor_ = statement_->executeQuery();
  return cursor_ != nullptr;
}

SqliteCursor* QzviLineageQuery::releaseCursor() {
  SqliteCursor* cursor = cursor_;
  cursor_ = nullptr;
  return cursor;
}

QzbString QzviLineageQuery::errorMessage() const {
  return statement_ != nullptr ? statement_->getErrorMessage() : connection_->getErrorMessage();
}

// ---------------------------------------------------------------------------
// The walk

bool qzviWalkLineage(SqliteConnection* store, int64_t start, QzviLineageWalk* walk,
                     QzbString* error) {
  EdgeReader reader(store, walk->towardsUsers);
  // Least distance of every resource met; -1 for one met but not stored.
  DistanceMap distances;
  distances.insert(start, 0);
  // Breadth first: the queue is the order of discovery, so a resource is
  // met first at its least distance.
  std::vector<int64_t> queue{start};
  std::vector<Edge> met;  // every edge read, when edges are wanted
  std::vector<int64_t> fars;
  for (std::size_t head = 0; head < queue.size(); ++head) {
    const int64_t near = queue[head];
    const int distance = distances.at(near);
    const bool atLimit = walk->maxDepth > 0 && distance >= walk->maxDepth;
    // A resource at the limit is not expanded; its edges are read only for
    // the edges among the reached resources (a resource listed without
    // them is checked when its row is read).
    if (atLimit && !walk->wantEdges) continue;
    if (near != start) {  // the caller checked the start
      bool stored = false;
      if (!reader.stored(near, &stored, error)) return false;
      if (!stored) {
        distances.at(near) = -1;  // never stepped onto: neither listed nor walked through
        continue;
      }
    }
    if (!reader.farEnds(near, &fars, error)) return false;
    for (int64_t far : fars) {
      if (walk->wantEdges) met.emplace_back(near, far);
      if (!atLimit && distances.insert(far, distance + 1)) queue.push_back(far);
    }
  }
  walk->storedResources = reader.storedResources();

  walk->reached.clear();
  walk->reached.reserve(queue.size());
  for (std::size_t index = 1; index < queue.size(); ++index) {
    const int distance = distances.at(queue[index]);
    if (distance >= 0) walk->reached.emplace_back(distance, queue[index]);
  }
  std::sort(walk->reached.begin(), walk->reached.end());

  walk->edges.clear();
  if (walk->wantEdges) {
    for (const Edge& edge : met) {
      // Both ends reached and stored: a far end beyond the limit or not
      // stored is left out.
      if (distances.get(edge.second) < 0) continue;
      if (walk->towardsUsers) {
        walk->edges.push_back(QzviLineageEdge{edge.second, edge.first});
      } else {
        walk->edges.push_back(QzviLineageEdge{edge.first, edge.second});
      }
    }
    const auto less = [](const QzviLineageEdge& a, const QzviLineageEdge& b) {
      return a.user != b.user ? a.user < b.user : a.used < b.used;
    };
    const auto equal = [](const QzviLineageEdge& a, const QzviLineageEdge& b) {
      return a.user == b.user && a.used == b.used;
    };
    std::sort(walk->edges.begin(), walk->edges.end(), less);
    walk->edges.erase(std::unique(walk->edges.begin(), walk->edges.end(), equal),
                      walk->edges.end());
  }
  return true;
}

bool qzviReadAllEdges(SqliteConnection* store, std::vector<QzviLineageEdge>* edges,
                      QzbString* error) {
  std::vector<int64_t> ids;
  if (!readStoredIds(store, &ids, error)) return false;
  const StoredIds stored(std::move(ids));
  QzviLineageQuery all(store, kAllEdgesInOrder);
  const auto keep = [&](SqliteCursor* row) {
    const QzviLineageEdge edge{row->getInt64(0), row->getInt64(1)};
    if (!stored.contains(edge.user) || !stored.contains(edge.used)) return;
    // In order: a duplicate follows its twin.
    if (!edges->empty() && edges->back().user == edge.user && edges->back().used == edge.used) {
      return;
    }
    edges->push_back(edge);
  };
  if (!all.start() || !all.forEachRow(keep)) {
    *error = all.errorMessage();
    return false;
  }
  return true;
}
