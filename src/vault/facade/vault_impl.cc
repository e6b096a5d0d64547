// QzvVaultImpl: construction, path helpers, and what the vault hands out: the
// root folder, stock folders, stock objects, impact-analysis objects, the
// vault check and the vault's UUID.
#include "vault_impl.h"

#include <new>

#include "cache_refresh.h"
#include "debug_log.h"
#include "folder_impl.h"
#include "impact_analysis_impl.h"
#include "vault_check.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"

QzvVaultImpl::QzvVaultImpl(const QzbString& rootPath, QzviPluginRegistry* plugins,
                           const QzbString& pluginPath)
    : QzviVaultContext(this, rootPath, plugins, pluginPath) {}

QzvVaultImpl::~QzvVaultImpl() = default;

void QzvVaultImpl::release() { delete this; }

QzbString QzvVaultImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvVaultImpl::buildPath(const QzbString& path, const QzbString& name) {
  return qzbConcatPath(path, name);
}

QzbString QzvVaultImpl::parsePath(const QzbString& path, QzbString* name) {
  return qzbParsePath(path, name);
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

QzvFolder* QzvVaultImpl::getRootFolder() { return makeFolder(this, rootPath(), QzbString()); }

QzvFolder* QzvVaultImpl::getStockFolder(int id, bool create) {
  if (!qzviIsStockFolderId(id)) {
    errorMessage_ = QzbString("Stock folder id out of bounds", true);
    QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  const QzbString path = qzbConcatPath(rootPath(), qzviStockFolderRelativePath(id));
  if (path.isNull()) return nullptr;

  const int status = np_fio_stat(path.asCstr(), nullptr);
  if (status != NP_OK) {
    if (status != NP_ERR_NOT_FOUND) {
      errorMessage_ = qzbStringFormat("Error accessing path %s (%d)", path.asCstr(), status);
      QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    if (!create) {
      errorMessage_ = qzbStringFormat("Directory %s does not exist", path.asCstr());
      QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
    // Two-level rows lie below a first component that may be missing too.
    const int created = np_dir_create(path.asCstr(), NP_DIR_CREATE_PARENTS);
    if (created != NP_OK) {
      errorMessage_ = qzbStringFormat("Error creating directory %s (%d)", path.asCstr(), created);
      QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
      return nullptr;
    }
  }
  return makeFolder(this, path, qzviStockFilterString(id));
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
    QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
  }
  return object;
}

QzvImpactAnalysis* QzvVaultImpl::getImpactAnalysis() {
  QzvImpactAnalysisImpl* analysis = new (std::nothrow) QzvImpactAnalysisImpl(this);
  if (analysis == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
  }
  return analysis;
}

QzvVaultCheck* QzvVaultImpl::getVaultCheck() {
  QzvVaultCheckImpl* check = new (std::nothrow) QzvVaultCheckImpl(this);
  if (check == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
  }
  return check;
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
