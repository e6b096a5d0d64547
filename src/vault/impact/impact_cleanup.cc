// QzvImpactAnalysisImpl: removing resources, renaming them, stamping when they
// were analysed, and the four operations of the interface that do nothing.
#include <vector>

#include "qzbase/datavar.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "impact_store.h"
#include "statements.h"
#include "vault_context.h"

namespace {

const char kUpdateDate[] = "UPDATE v_imparcs SET mod_date = ? WHERE id = ?";
const char kUpdateName[] = "UPDATE v_imparcs SET name = ? WHERE id = ?";
const char kCountUsed[] =
    "SELECT COUNT(*) FROM v_imparcs WHERE v_imparcs.id IN (SELECT v_impadeps.res_used FROM "
    "v_impadeps WHERE v_impadeps.res_id = ?)";
const char kDeleteResource[] = "DELETE FROM v_imparcs WHERE id = ?";
const char kSelectUnused[] =
    "SELECT id FROM v_imparcs WHERE id NOT IN (SELECT DISTINCT res_id FROM v_impadeps) AND id "
    "NOT IN (SELECT DISTINCT res_used  FROM v_impadeps)";
const char kDeleteAllEdges[] = "DELETE FROM v_impadeps";
const char kDeleteAllResources[] = "DELETE FROM v_imparcs";
const char kDateUpdateFailed[] = "Update of impact analysis modification date failed: ";
const char kNameUpdateFailed[] = "Update of impact analysis name failed: ";
const char kStillADependency[] =
    "The resource could not be deleted.  It is still a dependency.";

}  // namespace

bool QzvImpactAnalysisImpl::setAnalysisDate(QzResource* resource, const QzbDate& date) {
  if (resource == nullptr) {
    errorMessage_.assign(QZVI_TEXT_NO_RESOURCE);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  QzviImpactStore store(vault_);
  switch (store.open(QZVI_TEXT_IMPACT_READ_ONLY, &errorMessage_)) {
    case QzviImpactStore::kOpened:
      break;
    case QzviImpactStore::kReadOnly:
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    case QzviImpactStore::kOpenFailed:
      return false;
  }
  const QzbDatavar dateValue(date);
  const QzbDatavar id(resource->getId());
  if (!updateResourceRow(store.get(), kUpdateDate, kDateUpdateFailed, dateValue, id)) return false;
  // The resource object itself keeps the date it was read with.
  return true;
}

bool QzvImpactAnalysisImpl::renameResource(const QzbString& type, const QzbString& identity,
                                           const QzbString& newName) {
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_IMPACT_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  QzResource* resource = getResource(type, identity);
  if (resource == nullptr) return false;
  // Only the name changes: a file that moved keeps its old identity here.
  const QzbDatavar nameValue(newName);
  const QzbDatavar id(resource->getId());
  resource->release();
  if (!updateResourceRow(store.get(), kUpdateName, kNameUpdateFailed, nameValue, id)) return false;
  return true;
}

bool QzvImpactAnalysisImpl::removeResourceIfNotUsed(QzResource* resource) {
  // Nothing given is nothing to remove, as for a resource not in the store.
  if (resource == nullptr) return true;
  QzResource* stored = getResource(resource->getResourceType(), resource->getResourceIdentity());
  if (stored == nullptr) return true;
  const QzbDatavar id(stored->getId());
  stored->release();

  // A store that cannot be used does not make this operation fail.
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return true;
  }
  // What the resource uses counts, not what uses it: a resource that others
  // still use is deleted when it uses nothing itself, and their edges stay.
  unsigned long usedCount = 0;
  {
    QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kCountUsed, true), 1, &id));
    if (!rows) {
      errorMessage_ = store->getErrorMessage();
      store.close();
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return true;
    }
    if (rows->next()) usedCount = rows->getValueUlong(0);
  }
  if (usedCount != 0) {
    errorMessage_.assign(kStillADependency);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  if (!startTransaction(store.get(), &errorMessage_)) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
  } else if (!qzviParamExec(store.get(), QzbString(kDeleteResource, true), 1, &id)) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    qzviRollback(store.get(), logger_);
  } else {
    commitOrFail(store.get());
  }
  // Whatever became of the delete, the clean-up decides the result.
  return removeUnusedResources();
}

bool QzvImpactAnalysisImpl::removeUnusedResources() {
  QzviImpactStore store(vault_);
  switch (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_)) {
    case QzviImpactStore::kOpened:
      break;
    case QzviImpactStore::kOpenFailed:
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    case QzviImpactStore::kReadOnly:
      return false;
  }
  // Every resource that takes part in no edge, in row order.
  std::vector<QzbDatavar> unused;
  {
    QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectUnused, true), 0));
    if (!rows) {
      errorMessage_ = store->getErrorMessage();
      store.close();
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    while (rows->next()) unused.emplace_back(rows->getValue(0));
  }
  if (unused.empty()) return true;

  if (!startTransaction(store.get(), &errorMessage_)) {
    store.close();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // One statement, prepared once, for every delete.
  bool deleted = false;
  SqliteStatement* statement = store->prepare(QzbString(kDeleteResource, true));
  if (statement != nullptr) {
    deleted = true;
    for (const QzbDatavar& id : unused) {
      if (!setParm(statement, &id, 0) || !statement->execute(0)) {
        deleted = false;
        break;
      }
    }
    statement->release();
  }
  if (!deleted) {
    errorMessage_ = store->getErrorMessage();
    qzviRollback(store.get(), logger_);
    store.close();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!commitOrFail(store.get())) return false;
  return true;
}

bool QzvImpactAnalysisImpl::removeResources() {
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    return false;
  }
  if (!startTransaction(store.get(), &errorMessage_)) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // Edges and resources go together; v_impaprop is not the library's to empty.
  if (!store->exec(QzbString(kDeleteAllEdges, true), 0) ||
      !store->exec(QzbString(kDeleteAllResources, true), 0)) {
    errorMessage_ = store->getErrorMessage();
    qzviRollback(store.get(), logger_);
    store.close();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!commitOrFail(store.get())) return false;
  return true;
}

// ---------------------------------------------------------------------------
// Operations of the interface that this store does not carry out.

bool QzvImpactAnalysisImpl::updateImpactAnalysis() { return false; }

bool QzvImpactAnalysisImpl::deleteResource(QzResource* /*resource*/) { return false; }

bool QzvImpactAnalysisImpl::getLineageAsString(QzbString* /*first*/, QzbString* /*second*/,
                                               bool /*flag*/) {
  return false;
}

QzResourceFactory* QzvImpactAnalysisImpl::getDefaultResourceFactory() {
  // Factories are made while an object's file is analysed, over its plug-in.
  return nullptr;
}
