// QzvFolder: one directory of a vault.
//
// A folder reads the file system and the metadata databases afresh on every
// operation; it caches nothing. Every folder, object, list and attribute it
// returns is new, owned by the caller and ended with release(). Failures return
// false, null or 0 and leave a one-line reason for getErrorMessage().
//
// Thread safety: a folder object is used from one thread at a time. Between
// processes, tranLock()/tranUnlock() give an advisory lock that hosts take
// around a series of changes.
#ifndef QZVAULT_FOLDER_H_
#define QZVAULT_FOLDER_H_

#include "qzbase/string.h"

class QzvAttribute;
class QzvItemList;
class QzvObject;

class QzvFolder {
 public:
  virtual void release() = 0;
  virtual QzbString getErrorMessage() = 0;
  // Takes the folder's lock file, trying three times a second apart; false
  // when another holder keeps it.
  virtual bool tranLock() = 0;
  virtual void tranUnlock() = 0;
  // The display name: the stored one, else the directory's name.
  virtual QzbString getName() = 0;
  // The directory's full path, without a trailing separator.
  virtual QzbString getPath() const = 0;
  // Renames the directory itself (the display name is kept).
  virtual bool fsRename(const QzbString& newDirectoryName) = 0;
  // Changes the display name only.
  virtual bool renameSelf(const QzbString& newName) = 0;
  // Moves the directory under `target`.
  virtual bool moveSelf(const QzvFolder* target) = 0;
  // Deletes an empty folder together with the vault's own files in it.
  virtual bool deleteSelf() = 0;
  // The sub-folder of that name (or relative path), or null.
  virtual QzvFolder* getChildFolder(const QzbString& name) = 0;
  // The parent folder; null at the vault root.
  virtual QzvFolder* getParentFolder() = 0;
  // The object for a file, given by its full path.
  virtual QzvObject* getChildObject(const QzbString& objectPath) = 0;
  // Makes a sub-folder whose directory name is derived from `displayName`.
  virtual QzvFolder* createFolder(const QzbString& displayName) = 0;
  // A free, valid file name for a new object of that display name and
  // extension; fills the outputs that are not null.
  virtual bool getFilenameForNewObject(const QzbString& displayName,
                                       const QzbString& extension, QzbString* fullPath,
                                       QzbString* fileName) = 0;
  // Adopts a file already written into this folder (`fileName`) under
  // `displayName`.
  virtual QzvObject* createObjectFromFile(const QzbString& fileName,
                                          const QzbString& displayName) = 0;
  // Registers a new object whose file the caller writes afterwards to the
  // object's getFileName(false).
  virtual QzvObject* createObject(const QzbString& fileName,
                                  const QzbString& displayName) = 0;
  // Sub-directories and files, the vault's own files not counted.
  virtual int getFolderItemCount() = 0;
  // Rows of (display name, full path), one per sub-folder.
  virtual QzvItemList* getFolderList() = 0;
  // Rows of (display name, full path, type, read-only "Y"/"N"), one per file
  // that passes the filter, then one per symbolic name (type "link").
  virtual QzvItemList* getObjectList(bool readOnlyFlag) = 0;
  // The folder's own attributes: rows of (attr, seq, v0..v9).
  virtual QzvItemList* getAttrList() = 0;
  virtual QzvAttribute* getAttribute(const QzbString& name) = 0;
  // Attributes of the folder's objects: rows of (file name, display name, attr,
  // seq, v0..v9); a null file name or attribute name selects all.
  virtual QzvItemList* getObjectAttrList(const QzbString& fileName,
                                         const QzbString& attributeName) = 0;
  // The extension filter: extensions without dot, separated by ";"; empty or
  // null admits every file.
  virtual QzbString getCurrentFilter() = 0;
  virtual void setCurrentFilter(const QzbString& filter) = 0;
  // The filter of stock folder `stockId`.
  virtual void setCurrentFilter(int stockId) = 0;
  // True when the file at that full path exists.
  virtual bool childObjectExist(const QzbString& objectPath) = 0;

  // Appended after the first set of operations, so that hosts built against
  // those keep working.

  // Who holds this folder's transaction lock, as the lock file records it:
  // *holder "user (process N on machine, since date)" (empty when there is no
  // lock or no record) and *state one of "none", "live" (a running process of
  // this machine), "ended" (a process of this machine that no longer runs),
  // "elsewhere" (another machine: cannot be asked), "unrecorded" (a lock file
  // without a record), "foreign" (a file that is not a lock record) or
  // "refused" (a link or a special file in the lock file's place). Either
  // pointer may be null. Always true.
  virtual bool getLockHolder(QzbString* holder, QzbString* state) = 0;
  // Removes this folder's lock file when its holder has ended, or, with
  // `force`, whoever holds it (logged at warning level). True when the folder
  // is then unlocked; false with getErrorMessage naming the holder of a live
  // lock that was not forced, or a lock file that is not one.
  virtual bool clearLock(bool force) = 0;

 protected:
  virtual ~QzvFolder() = default;
};

#endif  // QZVAULT_FOLDER_H_
