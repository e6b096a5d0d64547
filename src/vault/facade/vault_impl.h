// QzvVaultImpl: the vault object behind createVaultInstance, and the shared
// context of every folder, object and analysis object it hands out (logger,
// root path, plug-in registry and path, in-memory database cache, and the
// folder-time map that decides when a folder's cached metadata is refreshed).
#ifndef QZVAULT_SRC_VAULT_IMPL_H_
#define QZVAULT_SRC_VAULT_IMPL_H_

#include <cstdint>
#include <map>

#include "qzbase/lock.h"
#include "qzbase/log.h"
#include "qzbase/string.h"
#include "qzvault/vault.h"
#include "metadata_db.h"
#include "plugin_registry.h"

#define QZVI_STOCK_FOLDER_COUNT 16

class QzvVaultImpl final : public QzvVault {
 public:
  // Never fails: a mutex that cannot be made is logged ("Failed to create
  // folder modified lock") and the folder-time map then works unguarded.
  // `plugins` is not owned.
  QzvVaultImpl(const QzbString& rootPath, QzviPluginRegistry* plugins,
               const QzbString& pluginPath);

  // QzvVault.
  void release() override;
  QzbString getErrorMessage() override;
  QzvFolder* getRootFolder() override;
  QzvFolder* getStockFolder(int id, bool create) override;
  QzvObject* getStockObject(int id, const QzbString& name) override;
  QzbString buildPath(const QzbString& path, const QzbString& name) override;
  QzbString parsePath(const QzbString& path, QzbString* name) override;
  QzvImpactAnalysis* getImpactAnalysis() override;
  QzbString getUUID() override;
  bool resetUUID(const QzbString& uuid) override;
  int getPluginCount() override;
  bool getPluginInfo(int index, QzbString* typeName, QzbString* description) override;
  QzvVaultCheck* getVaultCheck() override;  // vault_check.cc

  // The filter string of stock folder `id`, or a null string outside 0..15.
  static QzbString getStockFilterString(int id);
  // The relative path of stock folder `id` as stored (components separated by
  // a backslash), or a null string outside 0..15.
  static QzbString getStockFolderRelativePath(int id);

  QzbString getPluginPath() const;
  // Whether the directory changed since its cached metadata was last brought
  // up to date (true when never recorded, empty or not accessible).
  bool doesFolderNeedCachedRefreshed(const QzbString& directory);
  // Records the directory's current modification time; always true.
  bool updateFolderCachedDate(const QzbString& directory);

  // Shared context for folders, objects and analysis objects.
  QzLogger* logger() const { return logger_; }
  const QzbString& rootPath() const { return rootPath_; }
  QzviPluginRegistry* plugins() const { return plugins_; }
  MemDBCache& dbCache() { return dbCache_; }
  void setErrorMessage(const QzbString& message) { errorMessage_ = message; }

 private:
  ~QzvVaultImpl() override;

  QzbString errorMessage_;
  QzLogger* logger_;
  QzLock* folderTimeLock_;
  std::map<QzbString, int64_t> folderTimes_;
  QzbString rootPath_;  // without a trailing separator (qzviStringTrailingSlash)
  QzbString pluginPath_;
  QzviPluginRegistry* plugins_;
  MemDBCache dbCache_;
};

#endif  // QZVAULT_SRC_VAULT_IMPL_H_
