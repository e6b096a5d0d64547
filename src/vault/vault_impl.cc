// QzvVaultImpl: construction, the stock-folder table, path helpers and the
// folder-time map. The folder, object, UUID and impact-analysis operations of
// the vault live with the code they hand out.
#include "vault_impl.h"

#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "debug_log.h"

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

// The path without one trailing "/" or "\" (a drive root such as "C:\" is
// kept). The same rule as qzviStringTrailingSlash of the file-name helpers;
// kept here until those are part of the library.
QzbString withoutTrailingSeparator(const QzbString& path) {
  const unsigned length = path.length();
  if (length == 0) return path;
  const char* text = path.asCstr();
  const char last = text[length - 1];
  if (last != '/' && last != '\\') return path;
  if (length >= 2 && text[length - 2] == ':') return path;
  return path.left(length - 1);
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
      rootPath_(withoutTrailingSeparator(rootPath)),
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
