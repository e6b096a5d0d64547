// QzvImpactAnalysisImpl: rows of v_imparcs become resources, resources are
// resolved through the host's resolver, found and created.
#include <new>

#include "qzbase/datavar.h"
#include "qzbase/file_types.h"
#include "qzbase/uri.h"
#include "qzvault/object.h"
#include "qzvault/plugin.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "impact_store.h"
#include "plugin_registry.h"
#include "resource_impl.h"
#include "statements.h"
#include "vault_context.h"

namespace {

const char kSelectByTypeAndIdentity[] = "SELECT * FROM v_imparcs WHERE res_type=? AND res_idty=?";
const char kSelectById[] = "SELECT * FROM v_imparcs WHERE id=?";
const char kInsertResource[] = "INSERT INTO v_imparcs (name, res_idty, res_type) VALUES(?,?,?)";

const char kFileType[] = "File";
const char kDatabaseType[] = "Database";
const char kTableType[] = "Table";

// Columns of "SELECT * FROM v_imparcs".
enum ResourceColumn { kColId = 0, kColName = 1, kColIdentity = 2, kColType = 3, kColDate = 4 };

}  // namespace

// ---------------------------------------------------------------------------
// Rows to resources (impact_store.h)

QzvResourceImpl* qzviResourceFromRow(QzvImpactAnalysisImpl* analysis, QzvItemList* rows) {
  QzvResourceImpl* resource = new (std::nothrow) QzvResourceImpl();
  if (resource == nullptr) return nullptr;
  resource->setId(rows->getValue(kColId));
  resource->setName(rows->getValue(kColName));
  const QzbString identity = rows->getValue(kColIdentity);
  resource->setResourceIdentity(identity);
  resource->setResourceType(rows->getValue(kColType));
  // mod_date holds the date's numeric value; NULL (never analysed) and text
  // that is not a number read as 0.
  bool numeric = false;
  double date = rows->getValue(kColDate).asDouble(&numeric);
  resource->setAnalysisDate(QzbDate(numeric ? date : 0.0));
  analysis->setResourceLocation(resource);
  if (analysis->containsMacroValue(&identity)) resource->setMacroIdentity(true);
  return resource;
}

void qzviAppendResource(QzvResourceListImpl* list, QzResource* resource) {
  if (resource == nullptr) return;
  if (list->addRow()) list->setLastRowElement(0, resource);
}

void qzviAppendResourceRows(QzvImpactAnalysisImpl* analysis, QzvItemList* rows,
                            QzvResourceListImpl* list) {
  while (rows->next()) {
    QzvResourceImpl* resource = qzviResourceFromRow(analysis, rows);
    if (resource == nullptr) continue;
    qzviAppendResource(list, resource);
    resource->release();
  }
}

// ---------------------------------------------------------------------------
// Resolution

bool QzvImpactAnalysisImpl::setResourceLocation(QzvResourceImpl* resource) {
  if (resource == nullptr || resolver_ == nullptr) return false;
  QzbString newName("", true);
  QzbString location("", true);
  const QzbString name = resource->getName();
  const QzbString type = resource->getResourceType();
  const bool found =
      resolver_->resolveResource(name, resource->getResourceIdentity(), type, &newName, &location);
  // Databases and tables are never reported missing: only files are checked.
  resource->setResolved(found || type.compare(kDatabaseType, true) == 0 ||
                        type.compare(kTableType, true) == 0);
  if (!location.isEmpty()) resource->setResourceLocation(location);
  if (!newName.isEmpty() && newName.compare(name, true) != 0) resource->setName(newName);
  // Neither change is written to the store.
  return found;
}

// ---------------------------------------------------------------------------
// Look-up and creation

QzResource* QzvImpactAnalysisImpl::getResource(const QzbString& type, const QzbString& identity) {
  QzviImpactStore store(vault_);
  if (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_) != QzviImpactStore::kOpened) {
    return nullptr;
  }
  const QzbDatavar typeValue(type);
  const QzbDatavar identityValue(identity);
  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectByTypeAndIdentity, true),
                                          2, &typeValue, &identityValue));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    return nullptr;
  }
  // Should several rows carry the type and identity, the last one is the
  // answer. Finding nothing is not an error.
  QzvResourceImpl* found = nullptr;
  while (rows->next()) {
    if (rows->getValue(kColIdentity).compare(identity, true) != 0) continue;
    QzvResourceImpl* resource = qzviResourceFromRow(this, rows.get());
    if (resource == nullptr) continue;
    if (found != nullptr) found->release();
    found = resource;
  }
  return found;
}

QzResource* QzvImpactAnalysisImpl::createResource(const QzbString& name, const QzbString& type,
                                                  const QzbString& identity) {
  // An existing resource is returned as it is: never inserted twice, and its
  // name is not updated.
  QzResource* existing = getResource(type, identity);
  if (existing != nullptr) return existing;

  QzviImpactStore store(vault_);
  switch (store.open(QZVI_TEXT_DATA_READ_ONLY, &errorMessage_)) {
    case QzviImpactStore::kOpened:
      break;
    case QzviImpactStore::kReadOnly:
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    case QzviImpactStore::kOpenFailed:
      return nullptr;
  }
  const QzbDatavar nameValue(name);
  const QzbDatavar identityValue(identity);
  const QzbDatavar typeValue(type);
  QzbDatavar id;
  getNextId(&id);

  // Without a transaction nothing is inserted, and the look-up by the (null)
  // id would find nothing: the answer is null.
  if (!startTransaction(store.get(), &errorMessage_)) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!qzviParamExec(store.get(), QzbString(kInsertResource, true), 3, &nameValue,
                     &identityValue, &typeValue)) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    qzviRollback(store.get(), logger_);
    return nullptr;
  }
  id.assign(getLastId(store.get()));
  if (!commitOrFail(store.get())) return nullptr;

  QzviItemListHolder rows(qzviParamSelect(store.get(), QzbString(kSelectById, true), 1, &id));
  if (!rows) {
    errorMessage_ = store->getErrorMessage();
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // A new row's mod_date is NULL: the resource reads as never analysed.
  QzvResourceImpl* created = nullptr;
  while (rows->next()) {
    QzvResourceImpl* resource = qzviResourceFromRow(this, rows.get());
    if (resource == nullptr) continue;
    if (created != nullptr) created->release();
    created = resource;
  }
  return created;
}

QzResource* QzvImpactAnalysisImpl::getResourceForObject(QzvObject* object) {
  if (object == nullptr) return nullptr;
  const QzbString path = object->getFileName(false);
  QzbString extension;
  QzbString directory;
  QzbString name;
  if (!getComponentsFromFilesystemPath(path, &extension, &directory, &name)) {
    errorMessage_ = QzbString("Cannot take a file name from the object's path \"", true);
    errorMessage_.append(path);
    errorMessage_.append("\"");
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }

  QzvMetaDataPlugin* plugin =
      vault_ != nullptr ? qzviFindMetaDataHandlerForFile(path, vault_->plugins()) : nullptr;
  QzbString fixed;
  const QzbString& normalised = fixFilesystemStringSlashes(path, &fixed) ? fixed : path;

  // A plug-in names its own files; other files are known by their path.
  QzbString identity;
  QzbString type;
  if (plugin != nullptr) {
    identity = plugin->getResourceIdentity(normalised);
    type = plugin->getResourceType();
  } else {
    identity = normalised;
  }
  if (type.isEmpty()) {
    if (!extension.isEmpty()) type = getTypeForFileExtension(extension);
    if (type.isEmpty()) type = QzbString(kFileType, true);
  }
  return createResource(name, type, identity);
}

QzResourceList* QzvImpactAnalysisImpl::createResourceList() {
  return new (std::nothrow) QzvResourceListImpl();
}
