// QzvObjectImpl: construction, identity (names, extension, parent) and the
// three initialisations: an existing file (init), a file the caller has
// written into the folder (initNewFromFile) and a new object whose file the
// caller writes afterwards (initNew).
//
// A display name is found in this order: the name the file's plug-in reads
// out of the file, the name row of ".v_fmd" (v_object, keyed by the bare file
// name), the file name without its extension.
#include "object_impl.h"

#include <new>

#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "file_rows_snapshot.h"
#include "folder_factory.h"
#include "metadata_db.h"
#include "plugin_registry.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"
#include "time_util.h"
#include "vault_context.h"

namespace {

const char kInsertAttr[] = "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?,?,0,?)";

bool execText(SqliteConnection* connection, const char* sql) {
  return connection->exec(QzbString(sql, true), 0);
}

}  // namespace

QzvObjectImpl::QzvObjectImpl() : vault_(nullptr) {}

QzvObjectImpl::~QzvObjectImpl() = default;

void QzvObjectImpl::release() { delete this; }

QzbString QzvObjectImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvObjectImpl::getName() { return displayName_; }

QzbString QzvObjectImpl::getFileName(bool nameOnly) { return nameOnly ? fileName_ : fullPath_; }

QzbString QzvObjectImpl::getFileExtension() {
  QzbString extension;
  qzviParseFileExt(fileName_, &extension, false);
  if (extension.isEmpty()) qzviParseFileExt(fileName_, &extension, true);
  return extension;
}

QzvFolder* QzvObjectImpl::getParentFolder() {
  const QzbString directory = qzbParsePath(fullPath_, nullptr);
  if (directory.isNull()) return nullptr;
  QzvFolder* folder = qzviMakeFolder(vault_, directory, QzbString(), &errorMessage_);
  if (folder == nullptr) QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
  return folder;
}

bool QzvObjectImpl::init(const QzbString& fullPath, QzviVaultContext* vault) {
  if (np_fio_stat(fullPath.asCstr(), nullptr) != NP_OK) {
    errorMessage_ = qzbStringFormat("File %s is inaccessible", fullPath.asCstr());
    qzviDebugLog(errorMessage_);
    return false;
  }
  vault_ = vault;
  fullPath_ = fullPath;
  folderPath_ = qzbParsePath(fullPath_, &fileName_);
  if (folderPath_.isNull()) return false;
  displayName_ = QzbString("", true);

  // The plug-in's name wins, and then no database is opened at all.
  QzvMetaDataPlugin* plugin = qzviFindMetaDataHandlerForFile(fullPath_, vault_->plugins());
  if (plugin != nullptr) {
    QzvMetaDataFile* file = plugin->openFile(fullPath_);
    if (file != nullptr) {
      QzbString name;
      int flags = 0;
      const bool named = file->getDisplayName(&name, &flags) && !name.isNull();
      file->release();
      if (named) {
        displayName_ = name;
        return true;
      }
    }
  }

  // Looking at an object never creates the folder's ".v_fmd".
  bool found = false;
  if (qzviFileExists(folderPath_, QzbString(QZVI_FIXED_METADATA_FILE, true))) {
    MemDBCache& cache = vault_->dbCache();
    QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                    cache);
    if (!db) {
      QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    const QzbDatavar fileName(fileName_);
    QzvItemList* rows = qzviParamSelect(
        db.get(), QzbString("SELECT name FROM v_object WHERE fname=?", true), 1, &fileName);
    if (rows == nullptr) {
      errorMessage_ = db->getErrorMessage();
      db.close();
      QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    if (rows->next()) {
      QzbString name = rows->getValue(0);
      if (!name.isNull()) {
        displayName_ = name;
        found = true;
      }
    }
    rows->release();
  }
  if (!found) displayName_ = qzviParseFileExt(fileName_, nullptr, false);
  return true;
}

bool QzvObjectImpl::initNewFromFile(const QzbString& fileName, const QzbString& displayName,
                                    QzviVaultContext* vault, const QzbString& folderPath) {
  fileName_ = fileName;
  folderPath_ = folderPath;
  fullPath_ = qzbConcatPath(folderPath, fileName);
  vault_ = vault;
  QzLogger* logger = vault_->logger();

  // A file name that cannot be joined to the folder names no file in it.
  if (fullPath_.isNull() || np_fio_stat(fullPath_.asCstr(), nullptr) != NP_OK) {
    errorMessage_ = qzbStringFormat("File %s is not accessible",
                                    fullPath_.isNull() ? fileName.asCstr() : fullPath_.asCstr());
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

  // What the file name's rows were before, so that a creation that fails
  // after its first transaction (the naming below refuses a display name
  // that the folder already has) takes back what it wrote.
  QzviFileRowsSnapshot before;
  if (!before.take(db.get(), fileName_, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // Only the creator is written here; renameSelf below stamps the modifying
  // user in a transaction of its own, after this one has committed.
  if (!execText(db.get(), "BEGIN TRANSACTION")) {
    errorMessage_ = db->getErrorMessage();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar name(fileName_);
  const QzbDatavar creator(QZVI_ATTR_CREATOR);
  const QzbDatavar user(getCurrentUserName());
  if (!qzviParamExec(db.get(), QzbString(kInsertAttr, true), 3, &name, &creator, &user)) {
    errorMessage_ = db->getErrorMessage();
    execText(db.get(), "ROLLBACK TRANSACTION");
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!execText(db.get(), "COMMIT TRANSACTION")) {
    // Rolled back so that a connection kept open (an in-memory database)
    // is not left inside the transaction.
    errorMessage_ = db->getErrorMessage();
    execText(db.get(), "ROLLBACK TRANSACTION");
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  if (renameSelf(displayName)) return true;

  // The object was not made: its creator and modifying-user stamps go again.
  // The naming's message is the one the caller sees.
  QzviDBHandle undo(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, nullptr, cache), cache);
  QzbString undoError;
  if (!undo || !before.restore(undo.get(), &undoError)) {
    QZVI_LOG(logger, QZLOG_ERROR, "Could not take back the metadata of %s: %s", fullPath_.asCstr(),
             undo ? undoError.asCstr() : "the fixed metadata file cannot be opened");
  }
  return false;
}

bool QzvObjectImpl::initNew(const QzbString& fileName, const QzbString& displayName,
                            QzviVaultContext* vault, const QzbString& folderPath) {
  folderPath_ = folderPath;
  fileName_ = fileName;
  vault_ = vault;
  fullPath_ = qzbConcatPath(folderPath, fileName);
  displayName_ = displayName;
  QzLogger* logger = vault_->logger();

  MemDBCache& cache = vault_->dbCache();
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                  cache);
  if (!db) {
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (db->isReadOnly()) {
    // Reported to the diagnostic log only; the object's own text stays as it
    // was (the folder passes it on).
    qzviDebugLog(qzbStringFormat("File %s is read only", folderPath_.asCstr()));
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  if (!execText(db.get(), "BEGIN TRANSACTION")) {
    errorMessage_ = db->getErrorMessage();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar name(fileName_);
  const QzbDatavar creator(QZVI_ATTR_CREATOR);
  const QzbDatavar modifier(QZVI_ATTR_MODIFIEDUSER);
  const QzbDatavar user(getCurrentUserName());
  const QzbDatavar display(displayName_);
  // A name row left by an earlier file of the same name must not survive.
  const bool written =
      qzviParamExec(db.get(), QzbString(kInsertAttr, true), 3, &name, &creator, &user) &&
      qzviParamExec(db.get(), QzbString(kInsertAttr, true), 3, &name, &modifier, &user) &&
      qzviParamExec(db.get(), QzbString("DELETE FROM v_object WHERE fname = ?", true), 1,
                    &name) &&
      qzviParamExec(db.get(), QzbString("INSERT INTO v_object (fname, name) VALUES (?,?)", true),
                    2, &name, &display);
  if (!written) {
    errorMessage_ = db->getErrorMessage();
    execText(db.get(), "ROLLBACK TRANSACTION");
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!execText(db.get(), "COMMIT TRANSACTION")) {
    // Rolled back so that a connection kept open (an in-memory database)
    // is not left inside the transaction.
    errorMessage_ = db->getErrorMessage();
    execText(db.get(), "ROLLBACK TRANSACTION");
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  return true;
}
