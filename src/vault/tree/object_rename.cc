// QzvObjectImpl: the operations that change what an object is called or where
// it lives: renameSelf (the display name only), fileRename (the file name),
// moveSelf (into another folder) and deleteSelf, and the helpers that carry
// version files along.
//
// renameSelf: where the file's plug-in takes the name, the name lives in the file and the
// database is not touched. Otherwise the name row of ".v_fmd" is replaced in
// one transaction, after a check that no object of the same extension in the
// folder already has that display name (the object's own row included).
#include <memory>
#include <new>

#include "attribute_impl.h"
#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "impact_analysis_impl.h"
#include "metadata_db.h"
#include "object_impl.h"
#include "plugin_registry.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "qzvault/folder.h"
#include "qzvault/resource.h"
#include "statements.h"
#include "time_util.h"
#include "vault_context.h"
#include "vault_files.h"
#include "version_moves.h"

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

// ---------------------------------------------------------------------------
// fileRename, moveSelf and deleteSelf change the file itself. Each first
// withdraws the object from the impact store (its dependencies are analysed
// afresh later), then does the file step, then the metadata step in one
// transaction, undoing the file step when the metadata step fails. Version
// files follow last; their failures are ignored.

namespace {

const char kVersionDirectoryName[] = ".v_ver";
const char kDataFileReadOnly[] = "Data file is read only";
const char kFixModifiedUser[] = "Fix modified by user references in attribute metadata failed";

// Ends an item list (and the cursor it holds) before the database closes.
struct ItemListReleaser {
  void operator()(QzvItemList* list) const {
    if (list != nullptr) list->release();
  }
};
using ItemListHolder = std::unique_ptr<QzvItemList, ItemListReleaser>;

bool execText(SqliteConnection* connection, const char* sql) {
  return connection->exec(QzbString(sql, true), 0);
}

// "INSERT INTO v_attr(fname, attr, seq, v0, ..., v9) VALUES (?,?,?,?,...)":
// thirteen columns and thirteen placeholders.
QzbString attributeInsertSql() {
  QzbString sql("INSERT INTO v_attr(fname, attr, seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql.append(qzbStringFormat(", v%d", column));
  }
  sql.append(") VALUES (?,?,?");
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) sql.append(",?");
  sql.append(")");
  return sql;
}

// "SELECT attr, seq, v0, ..., v9 FROM v_attr WHERE fname = ?".
QzbString attributeSelectSql() {
  QzbString sql("SELECT attr, seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql.append(qzbStringFormat(", v%d", column));
  }
  sql.append(" FROM v_attr WHERE fname = ?");
  return sql;
}

// Frees a statement from SqliteConnection::prepare on scope exit.
struct StatementReleaser {
  void operator()(SqliteStatement* statement) const {
    if (statement != nullptr) statement->release();
  }
};
using StatementHolder = std::unique_ptr<SqliteStatement, StatementReleaser>;

}  // namespace

QzbString replVerFile(const QzbString& versionPath, const QzbString& newFileName) {
  QzbString name;
  const QzbString directory = qzbParsePath(versionPath, &name);
  if (directory.isNull()) return QzbString();
  QzbString extension;
  qzviParseFileExt(name, &extension, true);
  // Only a numbered version file ("plan.txt.3") is renamed.
  if (!np_uchar_isdigit(extension.asCstr())) return QzbString();
  QzbString newName = newFileName;
  newName.append(".");
  newName.append(extension);
  return qzbConcatPath(directory, newName);
}

QzbString replVerPath(const QzbString& versionPath, const QzbString& newDirectory) {
  QzbString name;
  const QzbString directory = qzbParsePath(versionPath, &name);
  if (directory.isNull()) return QzbString();
  return qzbConcatPath(newDirectory, name);
}

void QzvObjectImpl::withdrawFromImpactAnalysis() {
  QzvImpactAnalysisImpl* analysis = new (std::nothrow) QzvImpactAnalysisImpl(vault_);
  if (analysis == nullptr) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return;
  }
  // An object that has no resource has nothing to withdraw. Otherwise the
  // first step that fails is reported, and the caller goes on regardless.
  QzResource* resource = analysis->getResourceForObject(this);
  if (resource != nullptr) {
    const bool withdrawn = analysis->removeDependentResources(resource) &&
                           analysis->removeResourceIfNotUsed(resource) &&
                           analysis->removeUnusedResources();
    if (!withdrawn) {
      errorMessage_ = analysis->getErrorMessage();
      QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    }
    resource->release();
  }
  analysis->release();
}

bool QzvObjectImpl::fileRename(const QzbString& newFileName) {
  QzLogger* logger = vault_->logger();
  // The new name stays a plain name of this folder: never a path elsewhere,
  // never one of the vault's own files.
  if (!qzviIsObjectFileName(newFileName, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbString newPath = qzbConcatPath(folderPath_, newFileName);
  if (newPath.isNull()) {
    errorMessage_ = QzbString("Failed to build path for rename", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // A change of letter case alone must be allowed where the file system
  // ignores case, and there the new name always "exists".
  const bool caseChange = fileName_.compare(newFileName, false) == 0;
  if (caseChange) {
    QZVI_LOG(logger, QZLOG_DEBUG, "Case change in name of file: %S , to %S", &fileName_,
             &newFileName);
  } else if (np_fio_lstat(newPath.asCstr(), nullptr) == NP_OK) {
    errorMessage_ = QzbString("A file by that name already exists", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The versions that follow the file, found before anything changes.
  QzviVersionMove::Moves moves;
  const int highest = getHighestVersion();
  for (int version = 1; version <= highest; ++version) {
    const QzbString versionPath = getVersionFileName(version, nullptr);
    if (versionPath.isNull()) continue;
    const QzbString renamedVersion = replVerFile(versionPath, newFileName);
    if (!renamedVersion.isNull()) moves.emplace_back(versionPath, renamedVersion);
  }

  withdrawFromImpactAnalysis();

  QzviVersionMove versions;
  if (!versions.prepare(moves, caseChange, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // Never over another file: one that appeared since the test above (another
  // process choosing the same name) keeps its content, and this rename fails.
  const int renamed = caseChange ? np_fio_rename(fullPath_.asCstr(), newPath.asCstr())
                                 : np_fio_rename_noreplace(fullPath_.asCstr(), newPath.asCstr());
  if (renamed != NP_OK) {
    versions.abandon();
    errorMessage_ = renamed == NP_ERR_EXISTS
                        ? QzbString("A file by that name already exists", true)
                        : qzbStringFormat("Rename file %s: %s", fullPath_.asCstr(),
                                          np_fio_errdesc(renamed));
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  bool recorded = false;
  {
    MemDBCache& cache = vault_->dbCache();
    QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                    cache);
    if (!db) {
      // The open's message is the object's.
    } else if (db->isReadOnly()) {
      errorMessage_ = QzbString(kDataFileReadOnly, true);
    } else if (!execText(db.get(), "BEGIN TRANSACTION")) {
      errorMessage_ = db->getErrorMessage();
    } else {
      const QzbDatavar oldName(fileName_);
      const QzbDatavar newName(newFileName);
      const QzbDatavar user(getCurrentUserName());
      const QzbDatavar modifier(QZVI_ATTR_MODIFIEDUSER);
      bool updated = false;
      if (!qzviParamExec(db.get(), QzbString("UPDATE v_object SET fname = ? WHERE fname = ?", true),
                         2, &newName, &oldName)) {
        errorMessage_ = QzbString("Fix filename references in metadata failed", true);
      } else if (!qzviParamExec(db.get(),
                                QzbString("UPDATE v_attr SET fname = ? WHERE fname = ?", true), 2,
                                &newName, &oldName)) {
        errorMessage_ = QzbString("Fix filename references in attribute metadata failed", true);
      } else if (!qzviParamExec(
                     db.get(),
                     QzbString("UPDATE v_attr SET v0 = ? WHERE fname = ? AND attr = ?", true), 3,
                     &user, &newName, &modifier)) {
        errorMessage_ = QzbString(kFixModifiedUser, true);
      } else {
        updated = true;
      }
      if (!updated) {
        execText(db.get(), "ROLLBACK TRANSACTION");
      } else if (!execText(db.get(), "COMMIT TRANSACTION")) {
        errorMessage_ = db->getErrorMessage();
      } else {
        recorded = true;
      }
    }
  }
  if (!recorded) {
    // The file goes back under its old name, so file and metadata agree.
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    if (caseChange) {
      np_fio_rename(newPath.asCstr(), fullPath_.asCstr());
    } else {
      np_fio_rename_noreplace(newPath.asCstr(), fullPath_.asCstr());
    }
    versions.abandon();
    return false;
  }

  // The versions keep their numbers under the new name.
  versions.finish();
  fullPath_ = newPath;
  fileName_ = newFileName;
  return true;
}

namespace {

// Steps of a move inside the destination's open transaction: the name row and
// every attribute row of `fileName` are copied from `source` to `target`, and
// the copied "_MODIFIEDUSER" row is stamped with the current user. False with
// the failing connection's message (or the stamp's text) in *error.
bool copyObjectRows(SqliteConnection* source, SqliteConnection* target, const QzbString& fileName,
                    QzbString* error) {
  const QzbDatavar name(fileName);
  // Null when the source has no name row.
  QzbString displayName;
  bool named = false;
  {
    ItemListHolder names(qzviParamSelect(
        source, QzbString("SELECT name FROM v_object WHERE fname=?", true), 1, &name));
    if (!names) {
      *error = source->getErrorMessage();
      return false;
    }
    if (names->next()) {
      named = true;
      displayName = names->getValue(0);
    }
  }
  const QzbDatavar display(displayName);
  if (named &&
      (!qzviParamExec(target, QzbString("DELETE FROM v_object WHERE fname = ?", true), 1, &name) ||
       !qzviParamExec(target, QzbString("INSERT INTO v_object (fname, name) VALUES (?,?)", true), 2,
                      &name, &display))) {
    *error = target->getErrorMessage();
    return false;
  }

  // Every attribute row, seq and all ten values, through one statement
  // prepared once.
  StatementHolder insert(target->prepare(attributeInsertSql()));
  if (!insert) {
    *error = target->getErrorMessage();
    return false;
  }
  {
    ItemListHolder rows(qzviParamSelect(source, attributeSelectSql(), 1, &name));
    if (!rows) {
      *error = source->getErrorMessage();
      return false;
    }
    const int columns = 2 + QZVI_ATTR_COLUMNS;
    while (rows->next()) {
      insert->bindText(0, fileName);
      for (int column = 0; column < columns; ++column) {
        insert->bindText(column + 1, rows->getValue(column));
      }
      if (!insert->execute(0)) {
        *error = insert->getErrorMessage();
        return false;
      }
    }
  }

  // Matched by the display name, not the file name: only an object whose
  // display name equals its file name has its modifier updated here. This
  // is the long-standing behaviour and is kept.
  const QzbDatavar user(getCurrentUserName());
  const QzbDatavar modifier(QZVI_ATTR_MODIFIEDUSER);
  if (!qzviParamExec(target, QzbString("UPDATE v_attr SET v0 = ? WHERE fname = ? AND attr = ?", true),
                     3, &user, &display, &modifier)) {
    *error = QzbString(kFixModifiedUser, true);
    return false;
  }
  return true;
}

}  // namespace

bool QzvObjectImpl::moveSelf(const QzvFolder* destination) {
  QzLogger* logger = vault_->logger();
  const QzbString destinationPath = destination != nullptr ? destination->getPath() : QzbString();
  if (destinationPath.isEmpty() || np_fio_stat(destinationPath.asCstr(), nullptr) != NP_OK) {
    errorMessage_ =
        QzbString("Destination directory does not exists, or is not accessible", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // A folder of this vault, reached without a link.
  if (!qzviIsInsideVault(vault_->rootPath(), destinationPath, true, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbString newPath = qzbConcatPath(destinationPath, fileName_);
  if (newPath.isNull()) {
    errorMessage_ = QzbString("Failed to build path for move", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (np_fio_lstat(newPath.asCstr(), nullptr) == NP_OK) {
    errorMessage_ = QzbString("A file by that name already exists", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The versions that follow the file into the destination's version
  // directory, which must be a real directory (made now when needed).
  QzviVersionMove::Moves moves;
  const int highest = getHighestVersion();
  const QzbString versionDirectory =
      qzbConcatPath(destinationPath, QzbString(kVersionDirectoryName, true));
  if (highest >= 1 && !versionDirectory.isNull()) {
    QzbString reason;
    const QzviVaultFileState state = qzviExamineVaultFile(versionDirectory, true, &reason);
    if (state == QzviVaultFileState::kRefused) {
      errorMessage_ = qzviRefusalMessage(versionDirectory, reason);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    if (state == QzviVaultFileState::kMissing) {
      np_dir_create(versionDirectory.asCstr(), NP_DIR_CREATE_ONE);
    }
    for (int version = 1; version <= highest; ++version) {
      const QzbString versionPath = getVersionFileName(version, nullptr);
      if (versionPath.isNull()) continue;
      const QzbString movedVersion = replVerPath(versionPath, versionDirectory);
      if (!movedVersion.isNull()) moves.emplace_back(versionPath, movedVersion);
    }
  }

  withdrawFromImpactAnalysis();

  QzviVersionMove versions;
  if (!versions.prepare(moves, false, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const int moved = np_fio_rename_noreplace(fullPath_.asCstr(), newPath.asCstr());
  if (moved != NP_OK) {
    versions.abandon();
    errorMessage_ = moved == NP_ERR_EXISTS
                        ? QzbString("A file by that name already exists", true)
                        : qzbStringFormat("Move file %s: %s", fullPath_.asCstr(),
                                          np_fio_errdesc(moved));
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The rows move in one transaction of the destination's database; the
  // source's rows are removed only after it has committed.
  bool recorded = false;
  {
    MemDBCache& cache = vault_->dbCache();
    QzviDBHandle source(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                        cache);
    QzviDBHandle target(
        source ? qzviOpenDB(destinationPath, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache)
               : nullptr,
        cache);
    if (!source || !target) {
      // The open's message is the object's.
    } else if (target->isReadOnly()) {
      errorMessage_ = QzbString(kDataFileReadOnly, true);
    } else if (!execText(target.get(), "BEGIN TRANSACTION")) {
      errorMessage_ = target->getErrorMessage();
    } else if (!copyObjectRows(source.get(), target.get(), fileName_, &errorMessage_)) {
      execText(target.get(), "ROLLBACK TRANSACTION");
    } else if (!execText(target.get(), "COMMIT TRANSACTION")) {
      errorMessage_ = target->getErrorMessage();
    } else {
      // Outside any transaction; what remains of a failure here is only
      // stale rows under a name the folder no longer holds.
      const QzbDatavar fileName(fileName_);
      qzviParamExec(source.get(), QzbString("DELETE FROM v_attr WHERE fname=?", true), 1,
                    &fileName);
      qzviParamExec(source.get(), QzbString("DELETE FROM v_object WHERE fname=?", true), 1,
                    &fileName);
      recorded = true;
    }
  }
  if (!recorded) {
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    np_fio_rename_noreplace(newPath.asCstr(), fullPath_.asCstr());
    versions.abandon();
    return false;
  }

  // The versions are in the destination's version directory now.
  versions.finish();
  // The folder path is left as it was: the object keeps naming its old
  // folder (and its ".v_fmd"). Callers that go on working with a moved object
  // obtain it afresh from the destination folder.
  fullPath_ = newPath;
  return true;
}

bool QzvObjectImpl::deleteSelf() {
  QzLogger* logger = vault_->logger();
  withdrawFromImpactAnalysis();

  {
    MemDBCache& cache = vault_->dbCache();
    QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache),
                    cache);
    if (!db) {
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    if (db->isReadOnly()) {
      errorMessage_ = QzbString(kDataFileReadOnly, true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    // A file that cannot be removed is found out before its metadata and
    // its versions are: they would be lost while the file stays.
    if (np_fio_open(folderPath_.asCstr(), NP_FIO_PROBE_WRITE, nullptr) != NP_OK) {
      errorMessage_ = qzbStringFormat("File %s could not be deleted", fullPath_.asCstr());
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
    // The metadata is removed as one transaction where it can be; the file
    // is deleted whatever became of it.
    if (!execText(db.get(), "BEGIN TRANSACTION")) {
      errorMessage_ = db->getErrorMessage();
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    } else {
      const QzbDatavar fileName(fileName_);
      bool removed = true;
      if (!qzviParamExec(db.get(), QzbString("DELETE FROM v_attr WHERE fname=?", true), 1,
                         &fileName)) {
        errorMessage_ = db->getErrorMessage();
        QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
        removed = false;
      }
      if (!qzviParamExec(db.get(), QzbString("DELETE FROM v_object WHERE fname=?", true), 1,
                         &fileName)) {
        errorMessage_ = db->getErrorMessage();
        QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
        removed = false;
      }
      if (!execText(db.get(), removed ? "COMMIT TRANSACTION" : "ROLLBACK TRANSACTION")) {
        errorMessage_ = db->getErrorMessage();
        QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      }
    }
  }
  // The versions go before the file: a file that is gone while its versions
  // remain is what an interrupted version looks like, and the vault check
  // gives such an object back its newest version.
  const int highest = getHighestVersion();
  for (int version = 1; version <= highest; ++version) {
    const QzbString versionPath = getVersionFileName(version, nullptr);
    if (!versionPath.isNull()) np_fio_unlink(versionPath.asCstr());
  }
  np_fio_unlink(fullPath_.asCstr());

  // Success is judged by the file alone: it is gone, whatever happened to
  // the metadata above.
  if (np_fio_stat(fullPath_.asCstr(), nullptr) != NP_OK) {
    fullPath_ = QzbString();
    fileName_ = QzbString();
    displayName_ = QzbString();
    folderPath_ = QzbString();
    return true;
  }
  errorMessage_ = qzbStringFormat("File %s could not be deleted", fullPath_.asCstr());
  QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
  return false;
}
