// QzvFolderImpl: the folder's own attributes, the attributes of its objects,
// and the reserved stamps "_CREATOR", "_MODIFIEDUSER", "_MODIFIEDDATE" and
// "_CREATIONDATE" (rows of v_attr with fname NULL and seq 0, value in v0).
//
// Every stamp is written in one transaction on the folder's ".v_fmd". Stamps
// always name the running process's user, whatever user the caller passes:
// the library records who really changed the vault.
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include "attribute_impl.h"
#include "attribute_sql.h"
#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "folder_impl.h"
#include "item_list_impl.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"
#include "time_util.h"
#include "vault_context.h"

namespace {

const int kObjectAttrColumns = 14;
const char kOutOfMemory[] = "Out of memory";
const char kBegin[] = "BEGIN TRANSACTION";
const char kCommit[] = "COMMIT TRANSACTION";
const char kRollback[] = "ROLLBACK TRANSACTION";
const char kUpdateStamp[] = "UPDATE v_attr SET v0 = ? WHERE fname is NULL AND attr = ?";
const char kInsertStamp[] = "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL,?,0,?)";

bool execText(SqliteConnection* connection, const char* sql) {
  return connection->exec(QzbString(sql, true), 0);
}

// Sets a reserved attribute of the folder (fname NULL) to `value`.
bool updateStamp(SqliteConnection* connection, const char* attribute, const QzbString& value) {
  const QzbDatavar valueParameter(value);
  const QzbDatavar nameParameter(attribute);
  return qzviParamExec(connection, QzbString(kUpdateStamp, true), 2, &valueParameter,
                       &nameParameter);
}

// Adds a reserved attribute row (seq 0) to the folder.
bool insertStamp(SqliteConnection* connection, const char* attribute, const QzbString& value) {
  const QzbDatavar nameParameter(attribute);
  const QzbDatavar valueParameter(value);
  return qzviParamExec(connection, QzbString(kInsertStamp, true), 2, &nameParameter,
                       &valueParameter);
}

QzbString secondsText(unsigned long seconds) { return qzbStringFormat("%lu", seconds); }

// Copies one result row of the object attribute select into the last row of
// `list`: file name, display name (the stored one, else the file name without
// its extension), attr, seq, v0..v9.
void fillObjectAttrRow(QzvItemList* result, QzvItemListImpl* list) {
  const QzbString fileName = result->getValue(0);
  QzbString displayName = result->getValue(1);
  if (displayName.isEmpty()) displayName = qzviParseFileExt(fileName, nullptr, false);
  list->setLastRowElement(0, fileName);
  list->setLastRowElement(1, std::move(displayName));
  for (int column = 2; column < kObjectAttrColumns; ++column) {
    list->setLastRowElement(column, result->getValue(column));
  }
}

// The key under which an object's attribute is known in the listing.
QzbString objectAttrKey(const QzbString& fileName, const QzbString& attribute) {
  QzbString key = fileName;
  key.append("\\");
  key.append(attribute);
  return key;
}

}  // namespace

// ---------------------------------------------------------------------------
// Statement texts

QzbString qzviFolderAttrListSql() {
  QzbString sql("SELECT attr, seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql.append(qzbStringFormat(", v%d", column));
  }
  sql.append(" FROM v_attr WHERE fname is null ORDER BY attr, seq");
  return sql;
}

QzbString qzviObjectAttrListSql(const char* nameTable, bool byFile, bool byAttribute) {
  QzbString pattern("SELECT a.fname, b.name, a.attr, a.seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    pattern.append(qzbStringFormat(", a.v%d", column));
  }
  pattern.append(" FROM v_attr a INNER JOIN %s b ON a.fname=b.fname ");
  // The pieces keep their blanks: "WHERE " followed by " a.attr=? " gives two.
  if (byFile) pattern.append("WHERE a.fname=? ");
  if (byAttribute) {
    pattern.append(byFile ? "AND " : "WHERE ");
    pattern.append(" a.attr=? ");
  }
  pattern.append("ORDER BY a.fname, a.attr, a.seq");
  return qzbStringFormat(pattern.asCstr(), nameTable);
}

// ---------------------------------------------------------------------------
// Attribute listings and access

QzvItemList* QzvFolderImpl::getAttrList() {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getAttrList on folder \"%s\".", path_.asCstr());
  // Makes sure the creation and modification dates are there to be listed;
  // a folder that cannot be stamped is still listed.
  refreshFolderAttributes();

  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(path_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ = openError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvItemList* result = qzviParamSelect(db.get(), qzviFolderAttrListSql(), 0);
  if (result == nullptr) {
    // The message names no file.
    errorMessage_ =
        qzbStringFormat("Failed to get attributes from v_attr table in fixed metadata file %s", "");
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // Copied into memory so that the database is closed before the caller
  // reads the rows.
  QzvItemListImpl* list = new (std::nothrow) QzvItemListImpl();
  if (list == nullptr || !list->copyList(result)) {
    errorMessage_ = QzbString(kOutOfMemory, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    if (list != nullptr) list->release();
    result->release();
    return nullptr;
  }
  result->release();
  db.close();
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getAttrList on folder \"%s\".", path_.asCstr());
  return list;
}

QzvAttribute* QzvFolderImpl::getAttribute(const QzbString& name) {
  QzvAttributeImpl* attribute = new (std::nothrow) QzvAttributeImpl();
  if (attribute == nullptr) {
    errorMessage_ = QzbString(kOutOfMemory, true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // A null file name selects the folder's own rows.
  if (!attribute->init(vault_, path_, QzbString(), name)) {
    errorMessage_ = attribute->getErrorMessage();
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    attribute->release();
    return nullptr;
  }
  return attribute;
}

QzvItemList* QzvFolderImpl::getObjectAttrList(const QzbString& fileName,
                                              const QzbString& attributeName) {
  QzLogger* logger = vault_->logger();
  MemDBCache& cache = vault_->dbCache();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getObjectAttrList on folder \"%s\".", path_.asCstr());

  // The same refresh decision as the object listing: the cached rows are
  // brought up to date only when the directory changed.
  const bool refreshRan = vault_->doesFolderNeedCachedRefreshed(path_);
  if (refreshRan) {
    QzbString refreshError;
    if (!qzviRefreshCachedAttributes(path_, vault_->plugins(), &refreshError, cache,
                                     vault_->publicVault())) {
      if (!refreshError.isNull()) errorMessage_ = refreshError;
      if (!refreshError.isEmpty()) {
        qzviDebugLog(qzbStringFormat(
            "Error refreshing cached folder attributes for getObjectAttrList() on folder %s: %s",
            path_.asCstr(), refreshError.asCstr()));
      } else {
        qzviDebugLog(qzbStringFormat(
            "Error refreshing cached folder attributes for getObjectAttrList() on folder %s",
            path_.asCstr()));
      }
    }
  } else {
    QZVI_LOG(qzviMDHelperLogger(), QZLOG_DEBUG, "Folder refresh not necessary for %s",
             path_.asCstr());
  }

  const bool byFile = !fileName.isNull();
  const bool byAttribute = !attributeName.isNull();
  const QzbDatavar fileParameter(fileName);
  const QzbDatavar attributeParameter(attributeName);
  // Runs the listing over one database with the parameters that apply.
  auto select = [&](SqliteConnection* connection, const char* nameTable) -> QzvItemList* {
    const QzbString sql = qzviObjectAttrListSql(nameTable, byFile, byAttribute);
    if (byFile && byAttribute) {
      return qzviParamSelect(connection, sql, 2, &fileParameter, &attributeParameter);
    }
    if (byFile) return qzviParamSelect(connection, sql, 1, &fileParameter);
    if (byAttribute) return qzviParamSelect(connection, sql, 1, &attributeParameter);
    return qzviParamSelect(connection, sql, 0);
  };

  QzbString openError;
  QzviDBHandle cached(qzviOpenDB(path_, QZVI_CACHED_METADATA_FILE, &openError, cache), cache);
  if (!cached) {
    errorMessage_ = openError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvItemListImpl* list = new (std::nothrow) QzvItemListImpl(kObjectAttrColumns);
  if (list == nullptr) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // Fails the listing: the reason is already in errorMessage_.
  auto fail = [&](QzvItemList* result) -> QzvItemList* {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    if (result != nullptr) result->release();
    list->release();
    return nullptr;
  };

  // Cached rows first: what the plug-ins read out of the files wins.
  std::unordered_set<QzbString> delivered;
  QzvItemList* result = select(cached.get(), "v_file");
  if (result == nullptr) {
    errorMessage_ = cached->getErrorMessage();
    cached.close();
    return fail(nullptr);
  }
  while (result->next()) {
    if (!list->addRow()) {
      errorMessage_ = QzbString(kOutOfMemory, true);
      return fail(result);
    }
    fillObjectAttrRow(result, list);
    delivered.insert(objectAttrKey(result->getValue(0), result->getValue(2)));
  }
  result->release();
  cached.close();

  QzviDBHandle fixed(qzviOpenDB(path_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!fixed) {
    errorMessage_ = openError;
    return fail(nullptr);
  }
  result = select(fixed.get(), "v_object");
  if (result == nullptr) {
    errorMessage_ = fixed->getErrorMessage();
    fixed.close();
    return fail(nullptr);
  }
  while (result->next()) {
    if (delivered.count(objectAttrKey(result->getValue(0), result->getValue(2))) != 0) continue;
    if (!list->addRow()) {
      errorMessage_ = QzbString(kOutOfMemory, true);
      return fail(result);
    }
    fillObjectAttrRow(result, list);
  }
  result->release();
  fixed.close();

  if (refreshRan) vault_->updateFolderCachedDate(path_);
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getObjectAttrList on folder \"%s\".", path_.asCstr());
  return list;
}

// ---------------------------------------------------------------------------
// Reserved stamps

bool QzvFolderImpl::setModifiedByUser(const QzbString& /*user*/) {
  QzLogger* logger = vault_->logger();
  const bool traced = !path_.isEmpty();
  if (traced) {
    QZVI_LOG(logger, QZLOG_TRACE, "Entering setModifiedByUser on folder \"%s\".", path_.asCstr());
  }
  QzviDBHandle db(openFixedForStamps(path_, "File %s is read only", nullptr), vault_->dbCache());
  if (!db) return false;
  QzvItemList* rows = selectFolderRows(db, "SELECT * from v_attr WHERE fname is NULL", 0, nullptr);
  if (rows == nullptr) return false;
  bool hasUser = false;
  bool hasDate = false;
  while (rows->next()) {
    const QzbString attribute = rows->getValue(1);
    if (attribute.compare(QZVI_ATTR_MODIFIEDUSER, true) == 0) hasUser = true;
    if (attribute.compare(QZVI_ATTR_MODIFIEDDATE, true) == 0) hasDate = true;
  }
  rows->release();

  const QzbString user = getCurrentUserName();
  const QzbString now = secondsText(static_cast<unsigned long>(qzviCurrentSeconds()));
  bool done = false;
  do {
    if (!execText(db.get(), kBegin)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    if (hasUser) {
      if (!updateStamp(db.get(), QZVI_ATTR_MODIFIEDUSER, user)) {
        errorMessage_ =
            QzbString("Fix modified by user references in attribute metadata failed", true);
        break;
      }
    } else if (!insertStamp(db.get(), QZVI_ATTR_MODIFIEDUSER, user)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    if (hasDate) {
      if (!updateStamp(db.get(), QZVI_ATTR_MODIFIEDDATE, now)) {
        errorMessage_ =
            QzbString("Fix modified by user references in attribute metadata failed: ", true);
        errorMessage_.append(db->getErrorMessage());
        break;
      }
    } else if (!insertStamp(db.get(), QZVI_ATTR_MODIFIEDDATE, now)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    if (!execText(db.get(), kCommit)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    done = true;
  } while (false);

  if (!done) {
    execText(db.get(), kRollback);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  if (traced) {
    QZVI_LOG(logger, QZLOG_TRACE, "Exiting setModifiedByUser on folder \"%s\".", path_.asCstr());
  }
  return true;
}

bool QzvFolderImpl::setCreatedByUserOnFolder(const QzvFolder* folder, const QzbString& /*user*/) {
  QzLogger* logger = vault_->logger();
  if (folder == nullptr) {
    QZVI_LOG(logger, QZLOG_TRACE, "Exiting setCreatedByUserOnFolder on folder \"%s\".",
             path_.asCstr());
    return true;
  }
  const QzbString path = folder->getPath();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering setCreatedByUserOnFolder on folder \"%s\".",
           path.asCstr());
  QzviDBHandle db(openFixedForStamps(path, "Folder %s is read only", nullptr), vault_->dbCache());
  if (!db) return false;
  const QzbDatavar creator(QZVI_ATTR_CREATOR);
  QzvItemList* rows =
      selectFolderRows(db, "SELECT * from v_attr WHERE fname is NULL and attr = ?", 1, &creator);
  if (rows == nullptr) return false;
  const bool hasCreator = rows->next();
  rows->release();

  const QzbString user = getCurrentUserName();
  bool done = false;
  do {
    if (!execText(db.get(), kBegin)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    // Whether "_MODIFIEDUSER" is updated or inserted follows the "_CREATOR"
    // row alone: a folder that has a "_MODIFIEDUSER" row but no "_CREATOR"
    // row gets a second "_MODIFIEDUSER" row. This is deliberate and kept.
    if (hasCreator) {
      if (!updateStamp(db.get(), QZVI_ATTR_CREATOR, user) ||
          !updateStamp(db.get(), QZVI_ATTR_MODIFIEDUSER, user)) {
        errorMessage_ =
            QzbString("Fix created by user references in attribute metadata failed", true);
        break;
      }
    } else if (!insertStamp(db.get(), QZVI_ATTR_CREATOR, user) ||
               !insertStamp(db.get(), QZVI_ATTR_MODIFIEDUSER, user)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    if (!execText(db.get(), kCommit)) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    done = true;
  } while (false);

  if (!done) {
    execText(db.get(), kRollback);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting setCreatedByUserOnFolder on folder \"%s\".",
           path.asCstr());
  return true;
}

bool QzvFolderImpl::refreshFolderAttributes() {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering refreshFolderAttributes on folder \"%s\".",
           path_.asCstr());
  NpStat status;
  QzviDBHandle db(openFixedForStamps(path_, "File %s is read only", &status), vault_->dbCache());
  if (!db) return false;
  // The first time of the stat record: the status-change time, the nearest
  // the platform comes to the directory's creation.
  const unsigned long directoryTime = static_cast<unsigned long>(status.ctime);

  QzvItemList* rows = selectFolderRows(db, "SELECT * from v_attr WHERE fname is null", 0, nullptr);
  if (rows == nullptr) return false;
  // A row holding 0 or a non-number (one that a host cleared) has no date:
  // it is given one in place, so that the attribute stays one row.
  unsigned long storedCreation = 0;
  unsigned long storedModified = 0;
  bool creationRow = false;
  bool modifiedRow = false;
  while (rows->next()) {
    const QzbString attribute = rows->getValue(1);
    if (attribute.compare(QZVI_ATTR_CREATIONDATE, true) == 0) {
      creationRow = true;
      storedCreation = rows->getValueUlong(3);
    } else if (attribute.compare(QZVI_ATTR_MODIFIEDDATE, true) == 0) {
      modifiedRow = true;
      storedModified = rows->getValueUlong(3);
    }
  }
  rows->release();

  struct PlannedStamp {
    const char* attribute;
    unsigned long seconds;
  };
  std::vector<PlannedStamp> updates;
  std::vector<PlannedStamp> inserts;
  // The creation date is written once and never moves afterwards: the
  // directory's status-change time moves whenever an entry of the folder is
  // added or removed (the metadata databases' own journals among them), so
  // it says nothing about when the folder was made after the first time.
  if (storedCreation == 0) {
    (creationRow ? updates : inserts).push_back({QZVI_ATTR_CREATIONDATE, directoryTime});
  }
  if (storedModified == 0) {
    (modifiedRow ? updates : inserts)
        .push_back({QZVI_ATTR_MODIFIEDDATE, static_cast<unsigned long>(qzviCurrentSeconds())});
  }

  if (updates.empty() && inserts.empty()) {
    db.close();
    QZVI_LOG(logger, QZLOG_TRACE, "Exiting refreshFolderAttributes on folder \"%s\".",
             path_.asCstr());
    return true;
  }

  bool done = execText(db.get(), kBegin);
  for (const PlannedStamp& stamp : updates) {
    if (!done) break;
    done = updateStamp(db.get(), stamp.attribute, secondsText(stamp.seconds));
  }
  for (const PlannedStamp& stamp : inserts) {
    if (!done) break;
    done = insertStamp(db.get(), stamp.attribute, secondsText(stamp.seconds));
  }
  if (done) done = execText(db.get(), kCommit);
  if (!done) {
    // The message is taken before the roll-back, which would replace it.
    errorMessage_ = db->getErrorMessage();
    execText(db.get(), kRollback);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting refreshFolderAttributes on folder \"%s\".",
           path_.asCstr());
  return true;
}

// ---------------------------------------------------------------------------
// Shared first steps of the stamp writes

SqliteConnection* QzvFolderImpl::openFixedForStamps(const QzbString& path,
                                                    const char* readOnlyFormat, NpStat* status) {
  QzLogger* logger = vault_->logger();
  if (np_fio_stat(path.asCstr(), status) != NP_OK) {
    errorMessage_ = qzbStringFormat("Folder %s is not accessible", path.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_WARN, errorMessage_.asCstr());
    return nullptr;
  }
  MemDBCache& cache = vault_->dbCache();
  SqliteConnection* db = qzviOpenDB(path, QZVI_FIXED_METADATA_FILE, nullptr, cache);
  if (db == nullptr) {
    errorMessage_ =
        qzbStringFormat("Error opening/creating fixed metadata file in %s", path.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (db->isReadOnly()) {
    errorMessage_ = qzbStringFormat(readOnlyFormat, path.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_WARN, errorMessage_.asCstr());
    qzviCloseDB(db, cache);
    return nullptr;
  }
  return db;
}

QzvItemList* QzvFolderImpl::selectFolderRows(QzviDBHandle& db, const char* sql, int parameterCount,
                                             const QzbDatavar* parameter) {
  QzvItemList* rows = qzviParamSelect(db.get(), QzbString(sql, true), parameterCount, parameter);
  if (rows == nullptr) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
  }
  return rows;
}
