// QzviVaultContext: construction and the folder-time map.
#include "vault_context.h"

#include "debug_log.h"
#include "file_list.h"
#include "qzbase/platform.h"

namespace {

// Holds the folder-time lock for a scope; a context without a lock (its
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

QzviVaultContext::QzviVaultContext(QzvVault* publicVault, const QzbString& rootPath,
                                   QzviPluginRegistry* plugins, const QzbString& pluginPath)
    : publicVault_(publicVault),
      logger_(qzviVaultLogger()),
      folderTimeLock_(nullptr),
      rootPath_(qzviStringTrailingSlash(rootPath)),
      pluginPath_(pluginPath),
      plugins_(plugins) {
  folderTimeLock_ = qzLockCreate(0, 1);
  if (folderTimeLock_ == nullptr) {
    QZVI_LOG(logger_, QZLOG_FATAL, "Failed to create folder modified lock");
  }
}

QzviVaultContext::~QzviVaultContext() {
  folderTimes_.clear();
  qzLockDestroy(folderTimeLock_);
  // dbCache_ closes its connections as it is destroyed.
}

bool QzviVaultContext::doesFolderNeedCachedRefreshed(const QzbString& directory) {
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

bool QzviVaultContext::updateFolderCachedDate(const QzbString& directory) {
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
