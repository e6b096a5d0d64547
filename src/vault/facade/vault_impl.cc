// QzvVaultImpl: construction, the stock-folder table, path helpers, the
// folder-time map, and what the vault hands out: the root folder, stock
// folders, stock objects, impact-analysis objects and the vault's UUID.
#include "vault_impl.h"

#include <new>

#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "folder_impl.h"
#include "impact_analysis_impl.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"

namespace {

struct StockFolderRow {
  const char* relativePath;  // components separated by a backslash, as stored
  const char* filter;        // extensions without dot, ";"-separated; "" admits all
};

// The stock folders of a vault, by id (docs/file-types.md).
const StockFolderRow kStockFolders[QZVI_STOCK_FOLDER_COUNT] = {
    {"Jobs\\Definitions", "job.def"},
    {"Jobs\\Templates", "job.tpl"},
    {"Reports\\Definitions", "rpt.def"},
    {"Reports\\Templates", "rpt.tpl"},
    {"Reports\\Output", "pdf;html;csv"},
    {"Schedules", "sch.def;sch.tpl"},
    {"ReferenceData\\Tables", "ref.def;csv"},
    {"ReferenceData\\Templates", "ref.tpl"},
    {"Mappings", "map.def;map.tpl"},
    {"Queries", "qry.def;qry.tpl;sql"},
    {"Scripts", "sh;py;sql"},
    {"Logs", "log"},
    {"Data", "csv;txt;dat"},
    {"Shared", ""},
    {"Archive\\Jobs", "job.def;job.tpl"},
    {"Archive\\Reports", "rpt.def;rpt.tpl"},
};

bool isStockFolderId(int id) {
  // Compared unsigned, so that negative ids are out of range too.
  return static_cast<unsigned>(id) < QZVI_STOCK_FOLDER_COUNT;
}

// Holds the folder-time lock for a scope; a vault without a lock (its
// creation failed) works unguarded.
class FolderTimeGuard {
 public:
  explicit FolderTimeGuard(QzLock* lock) : lock_(lock) {
    held_ = lock_ != nullptr && qzLockGet(lock_, 1, 1) == 0;
  }
  ~FolderTimeGuard() {
    if (held_) qzLockRelease(lock_);
  }
  FolderTimeGuard(const FolderTimeGuard&) = delete;
  FolderTimeGuard& operator=(const FolderTimeGuard&) = delete;

 private:
  QzLock* lock_;
  bool held_;
};

}  // namespace

QzvVaultImpl::QzvVaultImpl(const QzbString& rootPath, QzviPluginRegistry* plugins,
                           const QzbString& pluginPath)
    : logger_(qzviVaultLogger()),
      folderTimeLock_(nullptr),
      rootPath_(qzviStringTrailingSlash(rootPath)),
      pluginPath_(pluginPath),
      plugins_(plugins) {
  folderTimeLock_ = qzLockCreate(0, 1);
  if (folderTimeLock_ == nullptr) {
    QZVI_LOG(logger_, QZLOG_FATAL, "Failed to create folder modified lock");
  }
}

QzvVaultImpl::~QzvVaultImpl() {
  folderTimes_.clear();
  qzLockDestroy(folderTimeLock_);
  // dbCache_ closes its connections as it is destroyed.
}

void QzvVaultImpl::release() { delete this; }

QzbString QzvVaultImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvVaultImpl::buildPath(const QzbString& path, const QzbString& name) {
  return qzbConcatPath(path, name);
}

QzbString QzvVaultImpl::parsePath(const QzbString& path, QzbString* name) {
  return qzbParsePath(path, name);
}

QzbString QzvVaultImpl::getStockFilterString(int id) {
  if (!isStockFolderId(id)) return QzbString();
  return QzbString(kStockFolders[id].filter, true);
}

QzbString QzvVaultImpl::getStockFolderRelativePath(int id) {
  if (!isStockFolderId(id)) return QzbString();
  return QzbString(kStockFolders[id].relativePath, true);
}

QzbString QzvVaultImpl::getPluginPath() const { return pluginPath_; }

bool QzvVaultImpl::doesFolderNeedCachedRefreshed(const QzbString& directory) {
  if (directory.isEmpty()) return true;
  NpStat status;
  if (np_fio_stat(directory.asCstr(), &status) != 0) {
    QZVI_LOG(logger_, QZLOG_WARN, "Folder %s is not accessible to determine refresh status",
             directory.asCstr());
    return true;
  }
  int64_t recorded = 0;
  {
    FolderTimeGuard guard(folderTimeLock_);
    const auto entry = folderTimes_.find(directory);
    if (entry != folderTimes_.end()) recorded = entry->second;
  }
  return recorded != status.mtime;
}

bool QzvVaultImpl::updateFolderCachedDate(const QzbString& directory) {
  if (directory.isEmpty()) return true;
  NpStat status;
  if (np_fio_stat(directory.asCstr(), &status) != 0) {
    QZVI_LOG(logger_, QZLOG_WARN, "Folder %s is not accessible to update cache date",
             directory.asCstr());
    return true;
  }
  FolderTimeGuard guard(folderTimeLock_);
  folderTimes_[directory] = status.mtime;
  return true;
}

// ---------------------------------------------------------------------------
// Folders, objects and analysis objects handed out by the vault.

namespace {

// A new folder over `path` with `filter`, or null with the vault's message set
// (and logged) when it cannot be made.
QzvFolderImpl* makeFolder(QzvVaultImpl* vault, const QzbString& path, const QzbString& filter) {
  QzvFolderImpl* folder = new (std::nothrow) QzvFolderImpl();
  if (folder == nullptr) {
    vault->setErrorMessage(QzbString("Out of memory", true));
    QZVI_LOG_TEXT(vault->logger(), QZLOG_ERROR, "Out of memory");
    return nullptr;
  }
  if (!folder->init(path, filter, vault)) {
    vault->setErrorMessage(folder->getErrorMessage());
    QZVI_LOG_TEXT(vault->logger(), QZLOG_ERROR, folder->getErrorMessage().asCstr());
    folder->release();
    return nullptr;
  }
  return folder;
}

}  // namespace

QzvFolder* QzvVaultImpl::getRootFolder() { return makeFolder(this, rootPath_, QzbString()); }

QzvFolder* QzvVaultImpl::getStockFolder(int id, bool create) {
  if (!isStockFolderId(id)) {
    errorMessage_ = QzbString("Stock folder id out of bounds", true);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  const QzbString path = qzbConcatPath(rootPath_, getStockFolderRelativePath(id));
  if (path.isNull()) return nullptr;

  const int status = np_fio_stat(path.asCstr(), nullptr);
  if (status != NP_OK) {
    if (status != NP_ERR_NOT_FOUND) {
      errorMessage_ = qzbStringFormat("Error accessing path %s (%d)", path.asCstr(), status);
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    if (!create) {
      errorMessage_ = qzbStringFormat("Directory %s does not exist", path.asCstr());
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    // Two-level rows lie below a first component that may be missing too.
    const int created = np_dir_create(path.asCstr(), NP_DIR_CREATE_PARENTS);
    if (created != NP_OK) {
      errorMessage_ = qzbStringFormat("Error creating directory %s (%d)", path.asCstr(), created);
      QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
  }
  return makeFolder(this, path, getStockFilterString(id));
}

QzvObject* QzvVaultImpl::getStockObject(int id, const QzbString& name) {
  QzvFolder* folder = getStockFolder(id, true);
  if (folder == nullptr) return nullptr;
  QzvItemList* list = folder->getObjectList(false);
  if (list == nullptr) {
    errorMessage_ = folder->getErrorMessage();
    folder->release();
    return nullptr;
  }
  QzvObject* object = nullptr;
  while (list->next()) {
    // Display names are matched exactly, letter case included; the first
    // match in list order decides, even when its object cannot be made.
    if (list->getValue(0).compare(name, true) == 0) {
      object = folder->getChildObject(list->getValue(1));
      break;
    }
  }
  list->release();
  folder->release();
  if (object == nullptr) {
    errorMessage_ = qzbStringFormat("Object with name '%s' Not found", name.asCstr());
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
  }
  return object;
}

QzvImpactAnalysis* QzvVaultImpl::getImpactAnalysis() {
  QzvImpactAnalysisImpl* analysis = new (std::nothrow) QzvImpactAnalysisImpl(this);
  if (analysis == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
  }
  return analysis;
}

// ---------------------------------------------------------------------------
// The vault's UUID: the "_UUID" attribute of the root folder itself (the
// v_attr row whose fname is NULL) in the root's ".v_fmd". The library never
// makes one up. Neither operation opens a transaction: each statement commits
// by itself.

namespace {

// The root's fixed metadata, open for the UUID operations; releases what it
// holds on scope exit.
class RootMetadata {
 public:
  explicit RootMetadata(QzvVaultImpl* vault) : vault_(vault), folder_(nullptr), db_(nullptr) {}
  ~RootMetadata() {
    if (db_ != nullptr) qzviCloseDB(db_, vault_->dbCache());
    if (folder_ != nullptr) folder_->release();
  }
  RootMetadata(const RootMetadata&) = delete;
  RootMetadata& operator=(const RootMetadata&) = delete;

  // Step one: the root folder. False when it cannot be made (the vault's
  // message is set).
  bool getRoot() {
    folder_ = vault_->getRootFolder();
    return folder_ != nullptr;
  }
  // The root's ".v_fmd", writable. False with the vault's message set.
  bool open() {
    const QzbString path = folder_->getPath();
    if (np_fio_stat(path.asCstr(), nullptr) != NP_OK) {
      fail(qzbStringFormat("Folder %s is not accessible", path.asCstr()));
      return false;
    }
    db_ = qzviOpenDB(path, QZVI_FIXED_METADATA_FILE, nullptr, vault_->dbCache());
    if (db_ == nullptr) {
      fail(qzbStringFormat("Error opening/creating fixed metadata file in %s", path.asCstr()));
      return false;
    }
    // Reading is refused too on a read-only root, on purpose: the UUID is
    // only trusted where it can also be kept.
    if (db_->isReadOnly()) {
      fail(qzbStringFormat("Folder %s is read only", path.asCstr()));
      return false;
    }
    return true;
  }
  SqliteConnection* db() const { return db_; }
  // Sets the vault's message to the connection's own.
  void takeConnectionError() { vault_->setErrorMessage(db_->getErrorMessage()); }
  void fail(const QzbString& message) {
    vault_->setErrorMessage(message);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, message.asCstr());
  }

 private:
  QzvVaultImpl* vault_;
  QzvFolder* folder_;
  SqliteConnection* db_;
};

}  // namespace

QzbString QzvVaultImpl::getUUID() {
  RootMetadata root(this);
  if (!root.getRoot() || !root.open()) return QzbString();
  const QzbDatavar attribute(QZVI_ATTR_UUID);
  QzvItemList* rows = qzviParamSelect(
      root.db(), QzbString("SELECT v0 from v_attr WHERE fname is NULL and attr = ?", true), 1,
      &attribute);
  if (rows == nullptr) {
    root.takeConnectionError();
    return QzbString();
  }
  QzbString uuid;
  if (rows->next()) uuid = rows->getValue(0);
  rows->release();
  return uuid;
}

bool QzvVaultImpl::resetUUID(const QzbString& uuid) {
  RootMetadata root(this);
  // A root folder that cannot be made reports success and stores nothing;
  // callers have relied on this.
  if (!root.getRoot()) return true;
  if (!root.open()) return false;
  const QzbDatavar attribute(QZVI_ATTR_UUID);
  QzvItemList* rows = qzviParamSelect(
      root.db(), QzbString("SELECT * from v_attr WHERE fname is NULL and attr = ?", true), 1,
      &attribute);
  if (rows == nullptr) {
    root.takeConnectionError();
    return false;
  }
  const bool exists = rows->next();
  rows->release();
  const QzbDatavar value(uuid);
  if (exists) {
    if (!qzviParamExec(root.db(),
                       QzbString("UPDATE v_attr SET v0 = ? WHERE fname is NULL AND attr = ?", true),
                       2, &value, &attribute)) {
      root.fail(QzbString("Fix UUID in attribute metadata failed", true));
      return false;
    }
  } else if (!qzviParamExec(
                 root.db(),
                 QzbString("INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL,?,0,?)", true),
                 2, &attribute, &value)) {
    root.takeConnectionError();
    return false;
  }
  return true;
}
