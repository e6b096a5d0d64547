// QzvObjectImpl: the modifying-user stamp ("_MODIFIEDUSER" in the folder's
// ".v_fmd"), the advisory lock ("_LOCKEDUSER") and the object's attributes.
#include <memory>
#include <new>
#include <unordered_set>

#include "attribute_impl.h"
#include "cache_refresh.h"
#include "debug_log.h"
#include "item_list_impl.h"
#include "metadata_db.h"
#include "object_impl.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"
#include "time_util.h"
#include "vault_context.h"

bool QzvObjectImpl::setModifiedByUser(const QzbString& /*user*/) {
  // Stamps always name the running process's user, whoever the caller says
  // made the change.
  QzLogger* logger = vault_->logger();
  if (np_fio_stat(fullPath_.asCstr(), nullptr) != NP_OK) {
    errorMessage_ = qzbStringFormat("File %s is not accessible", fullPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ =
        qzbStringFormat("Error opening/creating fixed metadata file in %s", folderPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (db->isReadOnly()) {
    errorMessage_ = qzbStringFormat("File %s is read only", folderPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  const QzbDatavar fileName(fileName_);
  const QzbDatavar attribute(QZVI_ATTR_MODIFIEDUSER);
  QzvItemList* rows =
      qzviParamSelect(db.get(), QzbString("SELECT * from v_attr WHERE fname = ? and attr = ?", true),
                      2, &fileName, &attribute);
  if (rows == nullptr) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const bool exists = rows->next();
  rows->release();

  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar user(getCurrentUserName());
  bool written;
  if (exists) {
    written = qzviParamExec(db.get(),
                            QzbString("UPDATE v_attr SET v0 = ? WHERE fname = ? AND attr = ?", true),
                            3, &user, &fileName, &attribute);
    if (!written) {
      errorMessage_ =
          QzbString("Fix modified by user references in attribute metadata failed", true);
    }
  } else {
    written = qzviParamExec(
        db.get(), QzbString("INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?,?,0,?)", true), 3,
        &fileName, &attribute, &user);
    if (!written) errorMessage_ = db->getErrorMessage();
  }
  if (written && !db->exec(QzbString("COMMIT TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    written = false;
  }
  if (!written) {
    db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Locks: the "_LOCKEDUSER" row of ".v_fmd". The lock is advisory: no operation
// of the library refuses to act on a locked object.

namespace {

const char kLockedUser[] = QZVI_ATTR_LOCKEDUSER;

// Ends an item list (and the cursor it holds) before the database closes.
struct ItemListReleaser {
  void operator()(QzvItemList* list) const {
    if (list != nullptr) list->release();
  }
};
using ItemListHolder = std::unique_ptr<QzvItemList, ItemListReleaser>;

// "SELECT attr, seq, v0, ..., v9 FROM v_attr WHERE fname=? ORDER BY attr, seq".
QzbString attributeRowsQuery() {
  QzbString sql("SELECT attr, seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql.append(qzbStringFormat(", v%d", column));
  }
  sql.append(" FROM v_attr WHERE fname=? ORDER BY attr, seq");
  return sql;
}

// Copies every row of `rows` (attr, seq, v0..v9) whose attribute is not in
// `skipped` into `list`, adding each copied name to `seen` when it is given.
// False when a row cannot be added.
bool appendAttributeRows(QzvItemList* rows, QzvItemListImpl* list,
                         const std::unordered_set<QzbString>* skipped,
                         std::unordered_set<QzbString>* seen) {
  const int columns = 2 + QZVI_ATTR_COLUMNS;
  while (rows->next()) {
    QzbString attribute = rows->getValue(0);
    if (skipped != nullptr && skipped->count(attribute) != 0) continue;
    if (!list->addRow()) return false;
    for (int column = 0; column < columns; ++column) {
      list->setLastRowElement(column, rows->getValue(column));
    }
    if (seen != nullptr) seen->insert(std::move(attribute));
  }
  return true;
}

}  // namespace

bool QzvObjectImpl::setLockedStatus(bool lock) {
  QzLogger* logger = vault_->logger();
  MemDBCache& cache = vault_->dbCache();
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                  cache);
  if (!db) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (db->isReadOnly()) {
    // The refusal goes to the diagnostic log; the object's text stays as it
    // was (a lock logs it, an unlock does not).
    qzviDebugLog(qzbStringFormat("File %s is read only", folderPath_.asCstr()));
    if (lock && !errorMessage_.isEmpty()) {
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    }
    return false;
  }

  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // Nothing is looked at before a lock is written: whether a second lock is
  // accepted is up to the keys of v_attr alone. Any user may unlock.
  const QzbDatavar fileName(fileName_);
  const QzbDatavar attribute(kLockedUser);
  bool changed;
  if (lock) {
    const QzbDatavar user(getCurrentUserName());
    changed = qzviParamExec(
        db.get(), QzbString("INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?,?,0,?)", true), 3,
        &fileName, &attribute, &user);
  } else {
    changed = qzviParamExec(db.get(),
                            QzbString("DELETE FROM v_attr WHERE fname=? AND attr = ?", true), 2,
                            &fileName, &attribute);
  }
  if (!changed) {
    errorMessage_ = db->getErrorMessage();
    if (!db->exec(QzbString("ROLLBACK TRANSACTION", true), 0)) {
      errorMessage_.append(db->getErrorMessage());
    }
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!db->exec(QzbString("COMMIT TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  if (lock) return true;

  // An unlocked object is handed back read-only; a failure to change the
  // permissions is reported but does not undo the unlock.
  const int changedMode =
      np_fio_chperm(fullPath_.asCstr(), NP_PERM_ALL, NP_PERM_REMOVE, NP_PERM_WRITE);
  if (changedMode != NP_OK) {
    const char* description = np_fio_errdesc(changedMode);
    if (description != nullptr && description[0] != '\0') {
      QZVI_LOG(logger, QZLOG_ERROR, "File %s error setting permissions on unlock: %s",
               fullPath_.asCstr(), description);
    } else {
      QZVI_LOG(logger, QZLOG_ERROR, "File %s is could not be set to read-only with unlock.",
               fullPath_.asCstr());
    }
  }
  return true;
}

bool QzvObjectImpl::getLockedStatus(bool* locked) {
  bool isLocked = false;
  if (locked != nullptr) *locked = false;
  QzLogger* logger = vault_->logger();
  MemDBCache& cache = vault_->dbCache();
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                  cache);
  if (!db) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // A read-only folder's status cannot be read: the check comes before the
  // query on purpose.
  if (db->isReadOnly()) {
    qzviDebugLog(qzbStringFormat("File %s is read only", folderPath_.asCstr()));
    return false;
  }
  const QzbDatavar fileName(fileName_);
  const QzbDatavar attribute(kLockedUser);
  {
    ItemListHolder rows(qzviParamSelect(
        db.get(), QzbString("SELECT v0 FROM v_attr WHERE fname=? and attr=?", true), 2, &fileName,
        &attribute));
    if (!rows) {
      errorMessage_ = db->getErrorMessage();
      db.close();
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    if (rows->next() && !rows->getValue(0).isEmpty()) isLocked = true;
  }
  if (locked != nullptr) *locked = isLocked;
  return true;
}

// ---------------------------------------------------------------------------
// Attributes: what plug-ins read out of the file (".v_cmd") and what callers
// stored (".v_fmd").

QzvItemList* QzvObjectImpl::getAttrList() {
  QzLogger* logger = vault_->logger();
  MemDBCache& cache = vault_->dbCache();

  // A cache that cannot be brought up to date still lists what it holds.
  QzbString refreshError;
  if (!qzviRefreshCachedFileAttributes(fullPath_, vault_->plugins(), &refreshError, cache,
                                       false)) {
    if (refreshError.isEmpty()) {
      qzviDebugLog(qzbStringFormat(
          "Error refreshing cached file attributes for getAttrList() on object %s",
          fileName_.asCstr()));
    } else {
      qzviDebugLog(qzbStringFormat(
          "Error refreshing cached file attributes for getAttrList() on object %s: %s",
          fileName_.asCstr(), refreshError.asCstr()));
    }
  }

  const QzbString sql = attributeRowsQuery();
  const QzbDatavar fileName(fileName_);
  std::unordered_set<QzbString> cachedNames;

  QzviDBHandle cached(qzviOpenDB(folderPath_, QZVI_CACHED_METADATA_FILE, &errorMessage_, cache),
                      cache);
  if (!cached) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  ItemListHolder list(new (std::nothrow) QzvItemListImpl(2 + QZVI_ATTR_COLUMNS));
  if (!list) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvItemListImpl* rowsOut = static_cast<QzvItemListImpl*>(list.get());
  {
    ItemListHolder rows(qzviParamSelect(cached.get(), sql, 1, &fileName));
    if (!rows) {
      errorMessage_ = cached->getErrorMessage();
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    if (!appendAttributeRows(rows.get(), rowsOut, nullptr, &cachedNames)) {
      errorMessage_ = QzbString("Out of memory", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
  }
  cached.close();

  // A cached attribute hides the stored one of the same name, all its rows.
  QzviDBHandle fixed(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                     cache);
  if (!fixed) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  {
    ItemListHolder rows(qzviParamSelect(fixed.get(), sql, 1, &fileName));
    if (!rows) {
      errorMessage_ = fixed->getErrorMessage();
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    if (!appendAttributeRows(rows.get(), rowsOut, &cachedNames, nullptr)) {
      errorMessage_ = QzbString("Out of memory", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
  }
  return list.release();
}

QzvAttribute* QzvObjectImpl::getAttribute(const QzbString& name) {
  // An attribute the file itself supplies wins over a stored one.
  QzvFileAttributeImpl* fromFile = new (std::nothrow) QzvFileAttributeImpl();
  if (fromFile != nullptr) {
    if (fromFile->init(vault_, folderPath_, fileName_, name)) return fromFile;
    fromFile->release();
  }
  QzvAttributeImpl* stored = new (std::nothrow) QzvAttributeImpl();
  if (stored == nullptr) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (stored->init(vault_, folderPath_, fileName_, name)) return stored;
  errorMessage_ = stored->getErrorMessage();
  QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
  stored->release();
  return nullptr;
}
