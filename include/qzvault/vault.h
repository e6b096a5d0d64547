// QzvVault: a vault over one directory tree, as createVaultInstance returns it.
//
// The vault hands out its root folder, its sixteen stock folders (fixed
// sub-directories, made on demand), stock objects found by display name, and
// impact-analysis objects. Everything it hands out is owned by the caller,
// ended with release(), and must be released before the vault itself.
//
// Thread safety: folders, objects and lists are used from one thread each; the
// vault's own error text is not guarded, so a vault is shared across threads
// only for operations whose failure text is not read concurrently.
#ifndef QZVAULT_VAULT_H_
#define QZVAULT_VAULT_H_

#include "qzbase/string.h"

class QzvFolder;
class QzvObject;
class QzvImpactAnalysis;
class QzvVaultCheck;

class QzvVault {
 public:
  // Destroys the vault; release every folder, object, list and analysis
  // object obtained from it first.
  virtual void release() = 0;
  // Text of the last failure.
  virtual QzbString getErrorMessage() = 0;
  // A new folder over the vault's root directory, or null.
  virtual QzvFolder* getRootFolder() = 0;
  // Stock folder `id` (0 to 15) with its stock filter; with `create` true a
  // missing directory is made. Null with getErrorMessage on failure ("Stock
  // folder id out of bounds", "Directory %s does not exist", ...).
  virtual QzvFolder* getStockFolder(int id, bool create) = 0;
  // The object whose display name is exactly `name` in stock folder `id`; null
  // with "Object with name '...' Not found" when there is none.
  virtual QzvObject* getStockObject(int id, const QzbString& name) = 0;
  // qzbConcatPath of the two (qzbase/path.h); touches no file system.
  virtual QzbString buildPath(const QzbString& path, const QzbString& name) = 0;
  // qzbParsePath: the directory part, with the last component in *name.
  virtual QzbString parsePath(const QzbString& path, QzbString* name) = 0;
  // A new impact-analysis object over this vault.
  virtual QzvImpactAnalysis* getImpactAnalysis() = 0;
  // The stored UUID, or a null string when none is stored or on failure.
  virtual QzbString getUUID() = 0;
  // Stores `uuid` as the vault's UUID (the library never makes one up).
  virtual bool resetUUID(const QzbString& uuid) = 0;
  // The number of metadata plug-ins this vault uses (0 when none were loaded).
  virtual int getPluginCount() = 0;
  // Describes plug-in `index` (0 .. getPluginCount()-1): its file type name and
  // its one-line description, each written when the pointer is not null. False
  // (with getErrorMessage "Plugin index out of range") for any other index.
  virtual bool getPluginInfo(int index, QzbString* typeName, QzbString* description) = 0;
  // A new check of this whole vault's metadata (qzvault/check.h), owned by the
  // caller and ended with release(); null ("Out of memory") when it cannot be
  // made.
  virtual QzvVaultCheck* getVaultCheck() = 0;
  // The file system under the vault's root, for vaults shared across machines
  // (docs/sharing.md). Each pointer may be null; what it points to is set:
  //   type: the file system's type ("ext4", "nfs", "cifs", "ceph", "fuse",
  //         ...), as the platform layer names it (np_fs_info);
  //   shared: true for a file server's, a cluster's or a FUSE program's file
  //         system, which other machines may mount too;
  //   rollbackJournals: true when every metadata database at the root keeps
  //         a rollback journal, as the library always makes them. Sharing
  //         across machines needs it: write-ahead logging (which another
  //         program may have switched on in a database file) does not work
  //         over a network.
  // False with getErrorMessage when the root cannot be examined.
  virtual bool getFileSystem(QzbString* type, bool* shared, bool* rollbackJournals) = 0;

 protected:
  virtual ~QzvVault() = default;
};

#endif  // QZVAULT_VAULT_H_
