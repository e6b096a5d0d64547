// QzvVaultImpl: the vault object behind createVaultInstance. It is the
// shared context (store/vault_context.h) of every folder, object, analysis
// object and check it hands out; they see only that context.
#ifndef QZVAULT_SRC_FACADE_VAULT_IMPL_H_
#define QZVAULT_SRC_FACADE_VAULT_IMPL_H_

#include "qzbase/string.h"
#include "qzvault/vault.h"
#include "stock_folders.h"
#include "vault_context.h"

class QzvVaultImpl final : public QzvVault, public QzviVaultContext {
 public:
  // Never fails (see QzviVaultContext). `plugins` is not owned.
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
  QzvVaultCheck* getVaultCheck() override;
  bool getFileSystem(QzbString* type, bool* shared, bool* rollbackJournals) override;  // vault_sharing.cc

  // Logs a warning (level 4) when the vault lies on a file system that other
  // machines may share; createVaultInstance calls it once per vault.
  void warnIfShared();

  // The stock-folder table (stock_folders.h), for callers that know the vault.
  static QzbString getStockFilterString(int id) { return qzviStockFilterString(id); }
  static QzbString getStockFolderRelativePath(int id) { return qzviStockFolderRelativePath(id); }

  void setErrorMessage(const QzbString& message) { errorMessage_ = message; }

 private:
  ~QzvVaultImpl() override;

  QzbString errorMessage_;
};

#endif  // QZVAULT_SRC_FACADE_VAULT_IMPL_H_
