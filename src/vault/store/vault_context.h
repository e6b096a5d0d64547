// QzviVaultContext: what every folder, object, analysis object and check of
// one vault shares: the logger, the root path, the plug-in registry and
// directory, the in-memory database cache, the folder-time map that decides
// when a folder's cached metadata is refreshed, and the vault's own public
// interface (through which the vault's UUID is looked up).
//
// The vault object (facade/vault_impl.h) is a context; everything below the
// facade holds a QzviVaultContext* and never sees the vault object itself.
// The vault outlives every object that holds its context.
//
// Thread safety: the folder-time map is guarded by a mutex; the rest is read
// only after construction, except the database cache, which is used by one
// thread at a time like the folders and objects that use it.
#ifndef QZVAULT_SRC_STORE_VAULT_CONTEXT_H_
#define QZVAULT_SRC_STORE_VAULT_CONTEXT_H_

#include <cstdint>
#include <map>

#include "qzbase/lock.h"
#include "qzbase/log.h"
#include "qzbase/string.h"
#include "metadata_db.h"
#include "plugin_registry.h"

class QzvVault;

class QzviVaultContext {
 public:
  QzviVaultContext(const QzviVaultContext&) = delete;
  QzviVaultContext& operator=(const QzviVaultContext&) = delete;

  QzLogger* logger() const { return logger_; }
  // Without a trailing separator (qzviStringTrailingSlash).
  const QzbString& rootPath() const { return rootPath_; }
  // Not owned; null when no plug-ins were loaded.
  QzviPluginRegistry* plugins() const { return plugins_; }
  QzbString getPluginPath() const { return pluginPath_; }
  MemDBCache& dbCache() { return dbCache_; }
  // The vault's public interface, for what is read through it (the UUID that
  // content-changed events carry). Not owned.
  QzvVault* publicVault() const { return publicVault_; }

  // Whether the directory changed since its cached metadata was last brought
  // up to date (true when never recorded, empty or not accessible).
  bool doesFolderNeedCachedRefreshed(const QzbString& directory);
  // Records the directory's current modification time; always true.
  bool updateFolderCachedDate(const QzbString& directory);

 protected:
  // Never fails: a mutex that cannot be made is logged ("Failed to create
  // folder modified lock") and the folder-time map then works unguarded.
  // `plugins` and `publicVault` are not owned.
  QzviVaultContext(QzvVault* publicVault, const QzbString& rootPath,
                   QzviPluginRegistry* plugins, const QzbString& pluginPath);
  ~QzviVaultContext();

 private:
  QzvVault* publicVault_;
  QzLogger* logger_;
  QzLock* folderTimeLock_;
  std::map<QzbString, int64_t> folderTimes_;
  QzbString rootPath_;
  QzbString pluginPath_;
  QzviPluginRegistry* plugins_;
  MemDBCache dbCache_;
};

#endif  // QZVAULT_SRC_STORE_VAULT_CONTEXT_H_
