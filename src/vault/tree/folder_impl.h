// QzvFolderImpl: one directory of a vault.
//
// A folder holds its path, its extension filter and a pointer to its vault; it
// caches nothing and opens the metadata databases it needs on every operation.
// Its operations are spread over several sources by concern:
//   folder_impl.cc        construction, identity, lock, navigation
//   folder_listing.cc     sub-folder and object listings, filters
//   folder_objects.cc     createObject, createObjectFromFile
//   folder_attributes.cc  attributes and user stamps
//   folder_changes.cc     createFolder, new file names, rename, move, delete
#ifndef QZVAULT_SRC_TREE_FOLDER_IMPL_H_
#define QZVAULT_SRC_TREE_FOLDER_IMPL_H_

#include "qzbase/string.h"
#include "qzvault/folder.h"
#include "folder_lock.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/platform.h"

class QzviVaultContext;

class QzvFolderImpl final : public QzvFolder {
 public:
  QzvFolderImpl();

  // Stores the filter and the vault, and the path without a trailing
  // separator. Never fails and does not look at the disk.
  bool init(const QzbString& path, const QzbString& filter, QzviVaultContext* vault);

  // QzvFolder.
  void release() override;
  QzbString getErrorMessage() override;
  bool tranLock() override;
  void tranUnlock() override;
  QzbString getName() override;
  QzbString getPath() const override;
  bool fsRename(const QzbString& newDirectoryName) override;
  bool renameSelf(const QzbString& newName) override;
  bool moveSelf(const QzvFolder* target) override;
  bool deleteSelf() override;
  QzvFolder* getChildFolder(const QzbString& name) override;
  QzvFolder* getParentFolder() override;
  QzvObject* getChildObject(const QzbString& objectPath) override;
  QzvFolder* createFolder(const QzbString& displayName) override;
  bool getFilenameForNewObject(const QzbString& displayName, const QzbString& extension,
                               QzbString* fullPath, QzbString* fileName) override;
  QzvObject* createObjectFromFile(const QzbString& fileName,
                                  const QzbString& displayName) override;
  QzvObject* createObject(const QzbString& fileName, const QzbString& displayName) override;
  int getFolderItemCount() override;
  QzvItemList* getFolderList() override;
  QzvItemList* getObjectList(bool readOnlyFlag) override;
  QzvItemList* getAttrList() override;
  QzvAttribute* getAttribute(const QzbString& name) override;
  QzvItemList* getObjectAttrList(const QzbString& fileName,
                                 const QzbString& attributeName) override;
  QzbString getCurrentFilter() override;
  void setCurrentFilter(const QzbString& filter) override;
  void setCurrentFilter(int stockId) override;
  bool childObjectExist(const QzbString& objectPath) override;
  bool getLockHolder(QzbString* holder, QzbString* state) override;
  bool clearLock(bool force) override;

  // Makes sure the folder has "_CREATIONDATE" (the directory's status-change
  // time when first stamped; never moved afterwards) and "_MODIFIEDDATE"; a
  // row of either without a date is given one in place.
  bool refreshFolderAttributes();
  // Stamps "_MODIFIEDUSER" (the process user, whatever `user` says) and
  // "_MODIFIEDDATE" on this folder.
  bool setModifiedByUser(const QzbString& user);
  // Stamps "_CREATOR" and "_MODIFIEDUSER" on `folder` (not this one); true for
  // a null folder.
  bool setCreatedByUserOnFolder(const QzvFolder* folder, const QzbString& user);
  // True when `extension` equals one of the filter's ";"-separated pieces,
  // ignoring letter case.
  bool extInFilter(const QzbString& extension);

  QzviVaultContext* vault() const { return vault_; }
  void setErrorMessage(const QzbString& message) { errorMessage_ = message; }

 private:
  ~QzvFolderImpl() override;

  // The first steps of every stamp write on the folder at `path`: the
  // directory must exist (its stat goes to `status` when not null), its
  // ".v_fmd" must open and must not be read-only (`readOnlyFormat` names the
  // path in that message). On failure sets and logs the message and returns
  // null; otherwise the caller owns the connection.
  SqliteConnection* openFixedForStamps(const QzbString& path, const char* readOnlyFormat,
                                       NpStat* status);
  // Selects the folder's own rows; on failure takes the database's message,
  // closes `db`, logs and returns null.
  QzvItemList* selectFolderRows(QzviDBHandle& db, const char* sql, int parameterCount,
                                const QzbDatavar* parameter);

  QzbString errorMessage_;
  QzviFolderLock* lockHandle_;
  QzbString path_;
  QzbString currentFilter_;
  QzviVaultContext* vault_;
};

#endif  // QZVAULT_SRC_TREE_FOLDER_IMPL_H_
