// QzvObjectImpl: renameSelf, which changes an object's display name and
// leaves its file name alone.
//
// Where the file's plug-in takes the name, the name lives in the file and the
// database is not touched. Otherwise the name row of ".v_fmd" is replaced in
// one transaction, after a check that no object of the same extension in the
// folder already has that display name (the object's own row included).
#include "debug_log.h"
#include "metadata_db.h"
#include "object_impl.h"
#include "plugin_registry.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "statements.h"
#include "time_util.h"
#include "vault_impl.h"

namespace {

// The display name offered to the file's plug-in. Returns true when a plug-in
// handles the file and accepted the name; *saved then tells whether the file
// was written back.
bool offerNameToPlugin(const QzbString& fullPath, const QzviPluginRegistry* plugins,
                       const QzbString& newName, bool* saved) {
  QzvMetaDataPlugin* plugin = qzviFindMetaDataHandlerForFile(fullPath, plugins);
  if (plugin == nullptr) return false;
  QzvMetaDataFile* file = plugin->openFile(fullPath);
  if (file == nullptr) return false;
  const bool accepted = file->offerName(newName);
  if (accepted) *saved = file->save();
  file->release();
  return accepted;
}

}  // namespace

bool QzvObjectImpl::renameSelf(const QzbString& newName) {
  QzLogger* logger = vault_->logger();
  if (!setModifiedByUser(getCurrentUserName())) return false;

  bool saved = false;
  if (offerNameToPlugin(fullPath_, vault_->plugins(), newName, &saved)) {
    displayName_ = newName;
    if (!saved) {
      errorMessage_ = QzbString("Plugin failed to save file", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    }
    return saved;
  }

  MemDBCache& cache = vault_->dbCache();
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                  cache);
  if (!db) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (db->isReadOnly()) {
    errorMessage_ = QzbString("Data file is read only", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // Display names are unique per folder among files of one extension. LIKE
  // matches the extension without regard to ASCII letter case.
  const QzbDatavar name(newName);
  const QzbString extension = getFileExtension();
  int count = 0;
  bool counted;
  if (!extension.isEmpty()) {
    QzbString pattern("%.", true);
    pattern.append(extension);
    const QzbDatavar like(pattern);
    counted = qzviParamSingleton(
        db.get(), QzbString("SELECT count(*) FROM v_object WHERE name=? AND fname LIKE ?", true),
        &count, 2, &name, &like);
  } else {
    counted = qzviParamSingleton(
        db.get(), QzbString("SELECT count(*) FROM v_object WHERE name=?", true), &count, 1, &name);
  }
  if (!counted) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // The object's own row counts too: renaming to the name it already has is
  // refused as well.
  if (count != 0) {
    errorMessage_ = QzbString("An object with that name already exists", true);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar fileName(fileName_);
  bool written = false;
  if (!qzviParamExec(db.get(), QzbString("DELETE FROM v_object WHERE fname = ?", true), 1,
                     &fileName)) {
    errorMessage_ = QzbString("Remove metadata failed: ", true);
    errorMessage_.append(db->getErrorMessage());
  } else if (!qzviParamExec(db.get(),
                            QzbString("INSERT INTO v_object (name, fname) VALUES (?, ?)", true), 2,
                            &name, &fileName)) {
    errorMessage_ = QzbString("Add metadata failed: ", true);
    errorMessage_.append(db->getErrorMessage());
  } else if (!db->exec(QzbString("COMMIT TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
  } else {
    written = true;
  }
  if (!written) {
    db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  db.close();
  displayName_ = newName;
  return true;
}
