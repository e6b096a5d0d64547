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
#include "resource_impl.h"
#include "vault_context.h"

namespace {

const char kSelectResourceById[] = "SELECT id FROM v_imparcs WHERE id = ?";
const char kSelectRowById[] = "SELECT * FROM v_imparcs WHERE id = ?";
const char kSelectAllRows[] = "SELECT * FROM v_imparcs";
const char kSelectAllResources[] = "SELECT * FROM v_imparcs ORDER BY id";
// A closure that reaches more than one in kScanShare of the stored resources
// reads their rows in one pass over the table instead of one look-up each.
const long kScanShare = 8;

const char kOutOfMemory[] = "Out of memory";

QzbString decimal(int64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64, value);
  return QzbString(text);
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

namespace {

// The current row of a running query, seen as an item list, so that stored
// rows become resources through the one row-to-resource step every read of
// v_imparcs shares, without being copied first. Borrows the cursor.
class CurrentRow final : public QzvItemList {
 public:
  explicit CurrentRow(SqliteCursor* cursor) : cursor_(cursor) {}
  bool next() override { return false; }
  int getNumCols() override { return cursor_->getColumnCount(); }
  QzbString getValue(int column) override { return cursor_->getText(column); }
  unsigned long getValueUlong(int column) override {
    return static_cast<unsigned long>(cursor_->getInt64(column));
  }
  void release() override {}

 private:
  SqliteCursor* cursor_;
};

// Resources made from rows, released on scope exit unless handed over.
class MadeResources {
 public:
  explicit MadeResources(std::size_t count) : made_(count, nullptr) {}
  ~MadeResources() {
    for (QzvResourceImpl* resource : made_) {
      if (resource != nullptr) resource->release();
    }
  }
  MadeResources(const MadeResources&) = delete;
  MadeResources& operator=(const MadeResources&) = delete;
  QzvResourceImpl*& at(std::size_t index) { return made_[index]; }
  // Hands the resource at `index` over to the caller.
  QzvResourceImpl* take(std::size_t index) {
    QzvResourceImpl* resource = made_[index];
    made_[index] = nullptr;
    return resource;
  }

 private:
  std::vector<QzvResourceImpl*> made_;
};

// Ends a read transaction on scope exit; the walk and the read of the rows
// then see one state of the store, as a single query would.
}  // namespace

QzvLineageImpl::ReadTransaction::~ReadTransaction() {
  if (store_ != nullptr) store_->exec(QzbString("COMMIT TRANSACTION", true), 0);
}

void QzvLineageImpl::ReadTransaction::begin(SqliteConnection* store) {
  // Without it (a failed BEGIN) every query still reads a consistent state
  // of its own; only the walk and the rows might see different ones.
  if (store->exec(QzbString("BEGIN TRANSACTION", true), 0)) store_ = store;
}

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
                                 QzviImpactStore* store, ReadTransaction* transaction,
                                 QzviLineageWalk* walk) {
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
  const int64_t start = idText.asInt64(&numeric);
  if (!numeric) {
    fail(notStored);
    return false;
  }

  // A closure only reads: a store that is read-only will do.
  if (!openStore(store)) return false;
  transaction->begin(store->get());
  {
    QzviLineageQuery exists(store->get(), kSelectResourceById);
    exists.bind(0, start);
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
  walk->towardsUsers = direction == Direction::kDependents;
  walk->maxDepth = maxDepth;
  QzbString message;
  if (!qzviWalkLineage(store->get(), start, walk, &message)) {
    fail(message);
    return false;
  }
  return true;
}

QzvLineageListImpl* QzvLineageImpl::listReached(SqliteConnection* store,
                                                const QzviLineageWalk& walk) {
  const std::size_t count = walk.reached.size();
  MadeResources made(count);
  // The reached resources by id, with their place in the answer.
  std::vector<std::pair<int64_t, std::size_t>> byId(count);
  for (std::size_t index = 0; index < count; ++index) byId[index] = {walk.reached[index].second, index};
  std::sort(byId.begin(), byId.end());
  const auto makeInto = [&](std::size_t index, SqliteCursor* cursor) {
    if (made.at(index) != nullptr) return;
    CurrentRow row(cursor);
    made.at(index) = qzviResourceFromRow(reader_, &row);
    if (made.at(index) == nullptr) throw std::bad_alloc();
  };

  const bool scan = walk.storedResources > 0 &&
                    static_cast<long>(count) * kScanShare > walk.storedResources;
  if (scan) {
    // Most of the store: one pass over the table, keeping the reached rows.
    QzviLineageQuery all(store, kSelectAllRows);
    const auto keep = [&](SqliteCursor* row) {
      const int64_t id = row->getInt64(0);
      auto found = std::lower_bound(byId.begin(), byId.end(),
                                    std::pair<int64_t, std::size_t>{id, 0});
      if (found != byId.end() && found->first == id) makeInto(found->second, row);
    };
    if (!all.start() || !all.forEachRow(keep)) {
      fail(all.errorMessage());
      return nullptr;
    }
  } else {
    // A few: one look-up by id each, in id order.
    QzviLineageQuery one(store, kSelectRowById);
    for (const auto& entry : byId) {
      one.bind(0, entry.first);
      const int found = one.start() ? one.step() : -1;
      if (found < 0) {
        fail(one.errorMessage());
        return nullptr;
      }
      if (found == 1) makeInto(entry.second, one.cursor());
    }
  }

  QzvLineageListImpl* list = new QzvLineageListImpl();
  try {
    list->reserve(count);
  } catch (...) {
    list->release();
    throw;
  }
  for (std::size_t index = 0; index < count; ++index) {
    // Every reached resource was stored when the walk stepped onto it.
    QzvResourceImpl* resource = made.take(index);
    if (resource != nullptr) list->append(resource, walk.reached[index].first);
  }
  return list;
}

QzvLineageList* QzvLineageImpl::closureList(QzResource* resource, Direction direction,
                                            int maxDepth) {
  try {
    QzviImpactStore store(vault_);
    ReadTransaction transaction;
    QzviLineageWalk walk;
    walk.wantEdges = false;
    if (!readClosure(resource, direction, maxDepth, &store, &transaction, &walk)) return nullptr;
    return listReached(store.get(), walk);
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageEdgeList* QzvLineageImpl::closureEdges(QzResource* resource, Direction direction,
                                                 int maxDepth) {
  try {
    QzviImpactStore store(vault_);
    ReadTransaction transaction;
    QzviLineageWalk walk;
    walk.wantEdges = true;
    if (!readClosure(resource, direction, maxDepth, &store, &transaction, &walk)) return nullptr;
    return new QzvLineageEdgeListImpl(std::move(walk.edges));
  } catch (const std::bad_alloc&) {
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageList* QzvLineageImpl::getAllResources() {
  QzviImpactStore store(vault_);
  if (!openStore(&store)) return nullptr;
  QzvLineageListImpl* list = nullptr;
  try {
    QzviLineageQuery all(store.get(), kSelectAllResources);
    list = new QzvLineageListImpl();
    const auto make = [&](SqliteCursor* cursor) {
      CurrentRow row(cursor);
      QzvResourceImpl* resource = qzviResourceFromRow(reader_, &row);
      if (resource == nullptr || !list->append(resource, 0)) throw std::bad_alloc();
    };
    if (!all.start() || !all.forEachRow(make)) {
      fail(all.errorMessage());
      list->release();
      return nullptr;
    }
    return list;
  } catch (const std::bad_alloc&) {
    if (list != nullptr) list->release();
    fail(QzbString(kOutOfMemory, true));
    return nullptr;
  }
}

QzvLineageEdgeList* QzvLineageImpl::getAllEdges() {
  QzviImpactStore store(vault_);
  if (!openStore(&store)) return nullptr;
  try {
    ReadTransaction transaction;
    transaction.begin(store.get());
    std::vector<QzvLineageEdgeListImpl::Edge> edges;
    QzbString message;
    if (!qzviReadAllEdges(store.get(), &edges, &message)) {
      fail(message);
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
