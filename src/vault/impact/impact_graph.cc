// QzvImpactAnalysisImpl: the edges of the lineage graph (v_impadeps: resource
// res_id uses resource res_used) and the queries that walk one step of it.
//
// Recording the dependents of a resource compares the new list with the
// recorded edges through a hash set, so the cost grows with the number of
// edges and not with its square, and it writes every change in one
// transaction with one prepared statement for the deletes and one for the
// inserts.
#include <new>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qzbase/datavar.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "impact_store.h"
#include "resource_impl.h"
#include "statements.h"
#include "vault_context.h"

namespace {

const char kSelectEdgesInto[] = "SELECT * FROM v_impadeps WHERE res_used=?";
const char kDeleteEdge[] = "DELETE FROM v_impadeps WHERE res_id = ? AND res_used = ?";
const char kInsertEdge[] = "INSERT INTO v_impadeps (res_id,res_used) VALUES (?,?)";
const char kDeleteEdgesInto[] = "DELETE FROM v_impadeps WHERE res_used = ?";
const char kSelectDependents[] =
    "SELECT * FROM v_imparcs WHERE v_imparcs.id IN (SELECT  v_impadeps.res_id FROM v_impadeps "
    "WHERE v_impadeps.res_used = ?)";
const char kSelectDependentsByType[] =
    "SELECT * FROM v_imparcs WHERE res_type = ? AND v_imparcs.id IN (SELECT  v_impadeps.res_id "
    "FROM v_impadeps WHERE v_impadeps.res_used = ?)";
const char kSelectUsed[] =
    "SELECT * FROM v_imparcs WHERE v_imparcs.id IN (SELECT v_impadeps.res_used FROM v_impadeps "
    "WHERE v_impadeps.res_id = ?)";
const char kSelectByType[] = "SELECT * FROM v_imparcs WHERE res_type = ?";
const char kSelectAll[] = "SELECT * FROM v_imparcs";
const char kSelectTypes[] = "SELECT DISTINCT res_type FROM v_imparcs";
const char kNoDependentList[] = "No list of dependent resources was given";

// Hashes QzbString through its own hash.
struct QzbStringHash {
  std::size_t operator()(const QzbString& text) const noexcept { return text.hash(); }
};
using IdSet = std::unordered_set<QzbString, QzbStringHash>;

// Runs one prepared statement over many pairs (first id, fixed second id).
// The statement is prepared once, bound and executed per pair, and released.
bool runForEachId(SqliteConnection* connection, const char* sql, const std::vector<QzbString>& ids,
                  const QzbDatavar& fixedSecond) {
  if (ids.empty()) return true;
  SqliteStatement* statement = connection->prepare(QzbString(sql, true));
  if (statement == nullptr) return false;
  bool ok = setParm(statement, &fixedSecond, 1);
  QzbDatavar first;
  for (std::size_t index = 0; ok && index < ids.size(); ++index) {
    first.assign(ids[index]);
    ok = setParm(statement, &first, 0) && statement->execute(0);
  }
  statement->release();
  return ok;
}

}  // namespace

// ---------------------------------------------------------------------------
// Writing edges

bool QzvImpactAnalysisImpl::addDependentResources(QzResource* used, QzResourceList* dependents) {
  if (used == nullptr) return true;
  if (!addDependentResourcesInternal(used, dependents, true)) return false;
  // Each dependent may bring links of its own (a table its database); their
  // outcome does not change this operation's.
  dependents->reset();
  while (dependents->next()) {
    QzResource* dependent = dependents->getValue(0);
    if (dependent != nullptr) addDynamicResourceDependencies(dependent);
  }
  return true;
}

bool QzvImpactAnalysisImpl::addDependentResourcesInternal(QzResource* used,
                                                          QzResourceList* dependents,
                                                          bool removeMissing) {
  if (used == nullptr) {
    errorMessage_.assign(QZVI_TEXT_NO_RESOURCE);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (dependents == nullptr) {
    // Refused rather than read as "no dependents", which would delete every
    // recorded edge on a caller's mistake.
    errorMessage_.assign(kNoDependentList);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    return false;
  }
  const QzbDatavar usedId(used->getId());

  // The recorded dependents, in row order (an id appears once per edge).
  std::vector<QzbString> existing;
  IdSet existingSet;
  {
    QzviItemListHolder rows(
        qzviParamSelect(store.get(), QzbString(kSelectEdgesInto, true), 1, &usedId));
    if (!rows) {
      errorMessage_ = store->getErrorMessage();
      store.close();
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    while (rows->next()) {
      existing.push_back(rows->getValue(0));
      existingSet.insert(existing.back());
    }
  }

  // Listed ids already recorded are kept; the others are added, as often as
  // they are listed. The list is read from where it stands.
  IdSet kept;
  std::vector<QzbString> toAdd;
  while (dependents->next()) {
    QzResource* dependent = dependents->getValue(0);
    if (dependent == nullptr) continue;
    QzbString id = dependent->getId();
    if (existingSet.count(id) != 0) {
      kept.insert(std::move(id));
    } else {
      toAdd.push_back(std::move(id));
    }
  }
  std::vector<QzbString> toDelete;
  if (removeMissing) {
    for (const QzbString& id : existing) {
      if (kept.count(id) == 0) toDelete.push_back(id);
    }
  }
  if (toAdd.empty() && toDelete.empty()) return true;

  if (!startTransaction(store.get(), &errorMessage_)) {
    store.close();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // Deletes first, then inserts, each in list order.
  if (!runForEachId(store.get(), kDeleteEdge, toDelete, usedId) ||
      !runForEachId(store.get(), kInsertEdge, toAdd, usedId)) {
    errorMessage_ = store->getErrorMessage();
    store->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    store.close();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!commitOrFail(store.get())) return false;
  return true;
}

bool QzvImpactAnalysisImpl::removeDependentResources(QzResource* resource) {
  if (resource == nullptr) {
    errorMessage_.assign(QZVI_TEXT_NO_RESOURCE);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // Marked as not analysed, so that the dynamic links are looked for again;
  // the outcome of the stamp does not decide this operation's.
  setAnalysisDate(resource, QzbDate(0.0));

  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    return false;
  }
  if (!startTransaction(store.get(), &errorMessage_)) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar id(resource->getId());
  if (!qzviParamExec(store.get(), QzbString(kDeleteEdgesInto, true), 1, &id)) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    qzviRollback(store.get(), logger_);
    return false;
  }
  if (!commitOrFail(store.get())) return false;
  return true;
}

// ---------------------------------------------------------------------------
// One-step queries. They never return null: a failure gives the list as far
// as it was filled, with the error message set.

QzResourceList* QzvImpactAnalysisImpl::getDependentResources(QzResource* resource,
                                                             bool /*recursive*/) {
  QzvResourceListImpl* list = new (std::nothrow) QzvResourceListImpl();
  if (list == nullptr || resource == nullptr) return list;
  // Links found through the resource itself (a table's database) are recorded
  // before the query, so that it sees them.
  addDynamicResourceDependencies(resource);

  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  const QzbDatavar id(resource->getId());
  {
    QzviItemListHolder rows(
        qzviParamSelect(store.get(), QzbString(kSelectDependents, true), 1, &id));
    if (!rows) {
      errorMessage_ = store->getErrorMessage();
      store.close();
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return list;
    }
    qzviAppendResourceRows(this, rows.get(), list);
  }
  // The resource that the identity names once its macros are substituted
  // counts as a dependent too.
  QzResource* resolved =
      getMacroResolvedResource(resource->getResourceType(), resource->getResourceIdentity());
  if (resolved != nullptr) {
    qzviAppendResource(list, resolved);
    resolved->release();
  }
  return list;
}

QzResourceList* QzvImpactAnalysisImpl::getDependentResourcesByType(QzResource* resource,
                                                                   const QzbString& type) {
  QzvResourceListImpl* list = new (std::nothrow) QzvResourceListImpl();
  if (list == nullptr || resource == nullptr) return list;
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  const QzbDatavar typeValue(type);
  const QzbDatavar id(resource->getId());
  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectDependentsByType, true),
                                          2, &typeValue, &id));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  qzviAppendResourceRows(this, rows.get(), list);
  return list;
}

QzResourceList* QzvImpactAnalysisImpl::getUsedByResources(QzResource* resource,
                                                          bool /*recursive*/) {
  QzvResourceListImpl* list = new (std::nothrow) QzvResourceListImpl();
  if (list == nullptr || resource == nullptr) return list;
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  const QzbDatavar id(resource->getId());
  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectUsed, true), 1, &id));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  qzviAppendResourceRows(this, rows.get(), list);
  return list;
}

QzResourceList* QzvImpactAnalysisImpl::getResourcesByType(const QzbString& type) {
  QzvResourceListImpl* list = new (std::nothrow) QzvResourceListImpl();
  if (list == nullptr || type.isEmpty()) return list;
  QzviImpactStore store(vault_);
  switch (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_)) {
    case QzviImpactStore::kOpened:
      break;
    case QzviImpactStore::kReadOnly:
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return list;
    case QzviImpactStore::kOpenFailed:
      return list;
  }
  const QzbDatavar typeValue(type);
  QzviItemListHolder rows(
      qzviParamSelect(store.get(), QzbString(kSelectByType, true), 1, &typeValue));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  qzviAppendResourceRows(this, rows.get(), list);
  return list;
}

QzResourceList* QzvImpactAnalysisImpl::getAllUniqueUsedResources() {
  QzvResourceListImpl* list = new (std::nothrow) QzvResourceListImpl();
  if (list == nullptr) return list;
  // Every resource, used or not; a read-only store may be read here.
  QzviImpactStore store(vault_);
  if (store.open(nullptr, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectAll, true), 0));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  qzviAppendResourceRows(this, rows.get(), list);
  return list;
}

QzStringList* QzvImpactAnalysisImpl::getResourceTypes() {
  // Made with no columns: callers learn how many types there are (length)
  // while every value reads as null. Each row still has room for the type.
  QzStringListImpl* list = new (std::nothrow) QzStringListImpl();
  if (list == nullptr) return list;
  QzviImpactStore store(vault_);
  if (store.open(nullptr, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectTypes, true), 0));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return list;
  }
  while (rows->next()) {
    if (!list->addRow()) break;
    list->setLastRowElement(0, rows->getValue(0));
  }
  return list;
}
