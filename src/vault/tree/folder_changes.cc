// QzvFolderImpl: changes to the tree. Making a sub-folder, choosing a file name
// for a new object, renaming the directory or only the display name, moving
// the folder under another one, and deleting an empty folder.
//
// Each operation does its file-system step first and its metadata step
// second, then stamps the modifying user; the order decides what survives a
// failure (a new directory survives a failed name row, a renamed or moved
// directory survives a failed stamp, a half-emptied folder survives a failed
// deletion). None of them takes the folder lock: a host that needs several
// changes to be exclusive brackets them with tranLock / tranUnlock.
#include <vector>

#include "debug_log.h"
#include "file_list.h"
#include "folder_impl.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"
#include "time_util.h"
#include "vault_context.h"
#include "vault_files.h"

namespace {

const char kInsertFolderName[] = "INSERT INTO v_object (fname, name) VALUES (null, ?)";

// True when `name` can be the name of a directory inside its parent as it
// stands: one component, not one of the vault's own dot-names.
bool isPlainDirectoryName(const QzbString& name) {
  if (name.isEmpty() || name.startsWith(".")) return false;
  return name.find("/") < 0 && name.find("\\") < 0;
}

// True when something other than `current` already has the path `target`:
// renaming onto it would replace an empty directory without a word. A path
// that cannot be examined is left to the rename, which reports it.
bool isTakenByAnother(const QzbString& target, const QzbString& current) {
  if (target.compare(current, true) == 0) return false;
  return np_fio_stat(target.asCstr(), nullptr) == NP_OK;
}

}  // namespace

QzvFolder* QzvFolderImpl::createFolder(const QzbString& displayName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering createFolder on folder \"%s\".", path_.asCstr());

  // The conversion never yields a name outside this folder or one of the
  // vault's dot-names, whatever the display name holds.
  const QzbString directoryName = qzviGetNewValidFilename(displayName, QzbString(), path_);
  if (directoryName.isNull()) {
    errorMessage_ = qzbStringFormat("Error getting valid folder name for %s", displayName.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  const QzbString newPath = qzbConcatPath(path_, directoryName);
  if (newPath.isNull()) {
    errorMessage_ = qzbStringFormat("Error building folder name for %s", displayName.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  const int created = np_dir_create(newPath.asCstr(), NP_DIR_CREATE_ONE);
  if (created != NP_OK) {
    errorMessage_ = qzbStringFormat("Failed to create directory %s (%s)", newPath.asCstr(),
                                    np_fio_errdesc(created));
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }

  // From here on the directory stays, whatever fails: it is a valid, empty
  // folder that shows under its directory name.
  if (directoryName.compare(displayName, true) != 0) {
    MemDBCache& cache = vault_->dbCache();
    QzbString openError;
    QzviDBHandle db(qzviOpenDB(newPath, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
    if (!db) {
      errorMessage_ = openError;
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    if (db->isReadOnly()) {
      errorMessage_ = QzbString("Data file is read only", true);
      QZVI_LOG_TEXT(logger, QZLOG_WARN, errorMessage_.asCstr());
      return nullptr;
    }
    // A single statement: no explicit transaction is needed.
    const QzbDatavar name(displayName);
    if (!qzviParamExec(db.get(), QzbString(kInsertFolderName, true), 1, &name)) {
      errorMessage_ = QzbString("Set folder name in metadata failed", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
  }

  QzvFolder* child = getChildFolder(directoryName);
  if (child != nullptr) {
    // Stamp failures are logged by the stamps; the folder exists regardless.
    const QzbString user = getCurrentUserName();
    setCreatedByUserOnFolder(child, user);
    static_cast<QzvFolderImpl*>(child)->setModifiedByUser(user);
  } else if (!errorMessage_.isEmpty()) {
    QZVI_LOG(logger, QZLOG_ERROR, "Error getting child folder \"%s\": %s", path_.asCstr(),
             errorMessage_.asCstr());
  } else {
    QZVI_LOG(logger, QZLOG_ERROR, "Error getting child folder \"%s\".", path_.asCstr());
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting createFolder on folder \"%s\".", path_.asCstr());
  return child;
}

bool QzvFolderImpl::getFilenameForNewObject(const QzbString& displayName,
                                            const QzbString& extension, QzbString* fullPath,
                                            QzbString* fileName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getFilenameForNewObject on folder \"%s\".",
           path_.asCstr());
  const QzbString name = qzviGetNewValidFilename(displayName, extension, path_);
  const QzbString path = qzbConcatPath(path_, name);
  if (path.isNull()) {
    // No name could be made (an extension that is not one component, or a
    // folder path that cannot be joined); nothing can be offered.
    errorMessage_ = qzbStringFormat("Error getting valid file name for %s", displayName.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // The name was free when it was made; a file that appeared since then (made
  // by another process) is reported instead of handed out twice.
  if (np_fio_stat(path.asCstr(), nullptr) == NP_OK) {
    errorMessage_ = qzbStringFormat("File %s already exists in %s", name.asCstr(), path_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (fullPath != nullptr) *fullPath = path;
  if (fileName != nullptr) *fileName = name;
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getFilenameForNewObject on folder \"%s\".",
           path_.asCstr());
  return true;
}

bool QzvFolderImpl::fsRename(const QzbString& newDirectoryName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering fsRename on folder \"%s\".", path_.asCstr());
  auto fail = [&](const QzbString& message) {
    errorMessage_ = message;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  };
  if (path_.compare(vault_->rootPath(), true) == 0) {
    return fail(QzbString("Can't rename the vault root", true));
  }
  const QzbString parent = qzbParsePath(path_, nullptr);
  if (parent.isNull()) return fail(QzbString("Rename operation failed during parse", true));
  const QzbString newPath = qzbConcatPath(parent, newDirectoryName);
  if (newPath.isNull()) {
    return fail(QzbString("Rename operation failed during concatenation", true));
  }
  // The new name is used as it stands: a name with a separator would move the
  // folder elsewhere, and a dot-name would hide it among the vault's files.
  if (!isPlainDirectoryName(newDirectoryName)) {
    return fail(qzbStringFormat("Invalid directory name %s", newDirectoryName.asCstr()));
  }
  if (isTakenByAnother(newPath, path_)) {
    return fail(qzbStringFormat("Directory %s already exists", newPath.asCstr()));
  }
  // Never over another directory, even one that appeared since the test. Its
  // own name needs no rename (and a rename that never replaces would refuse
  // it as taken).
  if (newPath.compare(path_, true) != 0 &&
      np_fio_rename_noreplace(path_.asCstr(), newPath.asCstr()) != NP_OK) {
    return fail(QzbString("Rename operation failed", true));
  }
  path_ = newPath;

  // The directory has its new name whatever the stamps say; a failed stamp
  // is reported although the rename happened.
  if (!setModifiedByUser(getCurrentUserName())) return false;
  if (!refreshFolderAttributes()) return false;
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting fsRename on folder \"%s\".", path_.asCstr());
  return true;
}

bool QzvFolderImpl::renameSelf(const QzbString& newName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering renameSelf on folder \"%s\".", path_.asCstr());
  auto fail = [&](int level) {
    QZVI_LOG_TEXT(logger, level, errorMessage_.asCstr());
    return false;
  };

  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(path_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ = openError;
    return fail(QZLOG_ERROR);
  }
  if (db->isReadOnly()) {
    errorMessage_ = QzbString("Data file is read only", true);
    return fail(QZLOG_WARN);
  }
  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    return fail(QZLOG_ERROR);
  }
  if (!db->exec(QzbString("DELETE FROM v_object WHERE fname IS NULL", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    return fail(QZLOG_ERROR);
  }
  const QzbDatavar name(newName);
  if (!qzviParamExec(db.get(), QzbString(kInsertFolderName, true), 1, &name)) {
    errorMessage_ = QzbString("Set folder name in metadata failed", true);
    db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    return fail(QZLOG_ERROR);
  }
  if (!db->exec(QzbString("COMMIT TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    return fail(QZLOG_ERROR);
  }
  db.close();

  // A stamp that fails without a text of its own gets one naming the folder.
  if (!setModifiedByUser(getCurrentUserName())) {
    if (errorMessage_.isEmpty() && !path_.isEmpty()) {
      errorMessage_ = qzbStringFormat("Error setting modified by user after rename on folder: %s",
                                      path_.asCstr());
    }
    return fail(QZLOG_ERROR);
  }
  if (!refreshFolderAttributes()) {
    if (errorMessage_.isEmpty() && !path_.isEmpty()) {
      errorMessage_ =
          qzbStringFormat("Error refreshing attributes after rename on folder: %s", path_.asCstr());
    }
    return fail(QZLOG_ERROR);
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting renameSelf on folder \"%s\".", path_.asCstr());
  return true;
}

bool QzvFolderImpl::moveSelf(const QzvFolder* target) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering moveSelf on folder \"%s\".", path_.asCstr());
  auto fail = [&](const QzbString& message) {
    errorMessage_ = message;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  };
  QzbString directoryName;
  qzbParsePath(path_, &directoryName);
  if (directoryName.isNull()) {
    return fail(QzbString("Folder rename: Error determining original directory name", true));
  }
  const QzbString targetPath = target != nullptr ? target->getPath() : QzbString();
  const QzbString newPath = qzbConcatPath(targetPath, directoryName);
  if (newPath.isNull()) return fail(QzbString("Folder rename: Error building new path", true));
  // Into a folder of this vault, reached without a link.
  QzbString outside;
  if (!qzviIsInsideVault(vault_->rootPath(), targetPath, true, &outside)) return fail(outside);
  if (isTakenByAnother(newPath, path_)) {
    return fail(qzbStringFormat("Directory %s already exists", newPath.asCstr()));
  }

  // A folder moved into itself or below itself is refused by the platform
  // with "invalid path". One moved into the folder it is in stays where it
  // is (a rename that never replaces would refuse its own name as taken).
  const int moved = newPath.compare(path_, true) == 0
                        ? NP_OK
                        : np_fio_rename_noreplace(path_.asCstr(), newPath.asCstr());
  if (moved == NP_ERR_EXISTS) {
    return fail(qzbStringFormat("Directory %s already exists", newPath.asCstr()));
  }
  if (moved != NP_OK) {
    const char* format;
    switch (moved) {
      case NP_ERR_NOT_FOUND:
        format = "File not found moving %s to %s";
        break;
      case NP_ERR_ACCESS:
        format = "Access denied moving %s to %s";
        break;
      case NP_ERR_INVALID_PATH:
        format = "Invalid path moving %s to %s";
        break;
      default:
        format = "Unknown error moving %s to %s";
        break;
    }
    return fail(qzbStringFormat(format, path_.asCstr(), targetPath.asCstr()));
  }
  path_ = newPath;
  // No exiting trace and no refresh of the dates: the stamp's result is the
  // operation's.
  return setModifiedByUser(getCurrentUserName());
}

bool QzvFolderImpl::deleteSelf() {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering deleteSelf on folder \"%s\".", path_.asCstr());
  auto fail = [&](const QzbString& message) {
    errorMessage_ = message;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  };

  QzbString listError;
  {
    QzviFileList entries;
    if (!entries.init(path_, QZVI_LIST_ALL_ENTRIES, &listError)) return fail(listError);
    if (entries.next()) return fail(QzbString("Can't delete a non-empty folder", true));
  }

  // Only the vault's own files and directories should be left. They are read
  // in full before anything is deleted, and an ordinary entry seen now stops
  // the deletion too: a listing that ended early above (a read error looks
  // like the end of the directory) must not cost the folder its metadata.
  struct VaultEntry {
    QzbString path;
    bool isDirectory;
  };
  std::vector<VaultEntry> vaultEntries;
  {
    QzviFileList entries;
    if (!entries.init(path_, 0, &listError)) return fail(listError);
    while (entries.next()) {
      if (!entries.isVaultItem()) return fail(QzbString("Can't delete a non-empty folder", true));
      vaultEntries.push_back({entries.getFullPathName(), entries.isDir()});
    }
  }

  // Versions and quarantined files are content: the versions of objects
  // that are gone, what the vault check could not place. A folder that
  // still keeps some is not deleted with them.
  for (const VaultEntry& entry : vaultEntries) {
    if (!entry.isDirectory) continue;
    QzbString leaf;
    qzbParsePath(entry.path, &leaf);
    if (leaf.compare(QZVI_VERSION_DIRECTORY, true) != 0 &&
        leaf.compare(QZVI_QUARANTINE_DIRECTORY, true) != 0) {
      continue;
    }
    QzviFileList inner;
    if (!inner.init(entry.path, 0, &listError)) return fail(listError);
    if (inner.next()) {
      return fail(qzbStringFormat(
          "Can't delete a folder that still keeps files in %s (versions of objects that are "
          "gone, or files the vault check set aside)",
          entry.path.asCstr()));
    }
  }

  // They go one by one; a failure stops at once, leaving deleted what was
  // deleted.
  for (const VaultEntry& entry : vaultEntries) {
    if (entry.isDirectory) {
      QzviFileList inner;
      if (!inner.init(entry.path, 0, &listError)) return fail(listError);
      while (inner.next()) {
        const int unlinked = np_fio_unlink(inner.getFullPathName().asCstr());
        if (unlinked != NP_OK) {
          return fail(
              qzbStringFormat("Error deleting file %s (%d)", entry.path.asCstr(), unlinked));
        }
      }
      const int removed = np_dir_unlink(entry.path.asCstr());
      if (removed != NP_OK) {
        return fail(qzbStringFormat("Error removing dir %s (%d)", entry.path.asCstr(), removed));
      }
    } else {
      const int unlinked = np_fio_unlink(entry.path.asCstr());
      if (unlinked != NP_OK) {
        return fail(qzbStringFormat("Error deleting file %s (%d)", entry.path.asCstr(), unlinked));
      }
    }
  }
  const int removed = np_dir_unlink(path_.asCstr());
  if (removed != NP_OK) {
    return fail(qzbStringFormat("Error removing dir %s (%d)", path_.asCstr(), removed));
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting deleteSelf on folder \"%s\".", path_.asCstr());
  return true;
}
