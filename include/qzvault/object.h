// QzvObject: one file of a vault folder.
//
// An object caches its names: after another process renames the file, obtain
// the object afresh. Everything returned is owned by the caller and ended with
// release(). Failures leave a one-line reason for getErrorMessage().
//
// Thread safety: one thread at a time per object.
#ifndef QZVAULT_OBJECT_H_
#define QZVAULT_OBJECT_H_

#include "qzbase/date.h"
#include "qzbase/string.h"

class QzvAttribute;
class QzvFolder;
class QzvItemList;
class QzResourceResolver;

class QzvObject {
 public:
  virtual void release() = 0;
  virtual QzbString getErrorMessage() = 0;
  // Locks (records the current user as "_LOCKEDUSER") or unlocks (removes the
  // lock and makes the file read-only). The lock is advisory.
  virtual bool setLockedStatus(bool lock) = 0;
  // *locked is set to whether a lock is recorded; false when it cannot be read.
  virtual bool getLockedStatus(bool* locked) = 0;
  // Moves the current file aside as the next numbered version; the caller then
  // writes the new content.
  virtual bool createVersion() = 0;
  // The highest version number, 0 without versions, -1 on error.
  virtual int getHighestVersion() = 0;
  // The path of a version's file and, when `date` is given, its date; a null
  // string when it does not exist.
  virtual QzbString getVersionFileName(int version, QzbDate* date) = 0;
  // Makes `version` (or the nearest older one that exists) the current file and
  // discards the newer versions.
  virtual bool rollbackVersion(int version) = 0;
  // The display name.
  virtual QzbString getName() = 0;
  // The file name with `nameOnly` true, the full path with false.
  virtual QzbString getFileName(bool nameOnly) = 0;
  // Gives the file a new name in the same folder (display name kept).
  virtual bool fileRename(const QzbString& newFileName) = 0;
  // Changes the display name only.
  virtual bool renameSelf(const QzbString& newName) = 0;
  // Moves the file (with its metadata and versions) into `destination`.
  virtual bool moveSelf(const QzvFolder* destination) = 0;
  // Deletes the file, its metadata and its versions.
  virtual bool deleteSelf() = 0;
  // Rows of (attr, seq, v0..v9): what plug-ins read from the file first, then
  // the stored attributes of other names.
  virtual QzvItemList* getAttrList() = 0;
  virtual QzvAttribute* getAttribute(const QzbString& name) = 0;
  virtual QzbString getFileExtension() = 0;
  virtual QzvFolder* getParentFolder() = 0;
  // Records the current process user as the last modifier (the argument is not
  // used: stamps always name the running user).
  virtual bool setModifiedByUser(const QzbString& user) = 0;
  // Records in the impact-analysis store what the file uses, as its plug-in
  // reports it; `resolver` (may be null, not owned) resolves resource names.
  virtual bool analyzeImpact(QzResourceResolver* resolver) = 0;
  // Re-reads what plug-ins report about the file into the cached metadata.
  virtual bool refreshMetadata() = 0;

 protected:
  virtual ~QzvObject() = default;
};

#endif  // QZVAULT_OBJECT_H_
