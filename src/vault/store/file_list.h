// Directory listing and the file-name rules the vault shares.
//
// A vault file is any entry whose name begins with "." (".v_fmd", ".v_cmd",
// ".v_imd", ".v_lck", ".v_ver", SQLite's journals, ...); listings hide them.
//
// Listings never follow symbolic links: a link is an entry of its own
// (isLink), neither a file nor a directory, whatever it points to; so no walk
// of the vault enters a linked directory (out of the vault, or into a loop),
// and no file is read through a link.
#ifndef QZVAULT_SRC_STORE_FILE_LIST_H_
#define QZVAULT_SRC_STORE_FILE_LIST_H_

#include <cstdint>

#include "qzbase/date.h"
#include "qzbase/platform.h"
#include "qzbase/string.h"

// QzviFileList mode bits.
#define QZVI_LIST_FILES 1        // regular files only (directory-open flags 7)
#define QZVI_LIST_DIRS 2         // directories only (flags 21, or 23 with bit 1)
#define QZVI_LIST_SKIP_VAULT 4   // leave out vault files
#define QZVI_LIST_ONLY_VAULT 8   // return only vault files
#define QZVI_LIST_LINKS 16       // with QZVI_LIST_FILES: symbolic links too
// The combinations the library uses.
#define QZVI_LIST_ALL_ENTRIES 4  // every entry, vault files left out
#define QZVI_LIST_OBJECTS 5      // files, vault files left out
#define QZVI_LIST_FOLDERS 6      // sub-directories, vault files left out

// Iterates the entries of one directory.
class QzviFileList {
 public:
  QzviFileList();
  ~QzviFileList();  // closes the directory
  QzviFileList(const QzviFileList&) = delete;
  QzviFileList& operator=(const QzviFileList&) = delete;

  // Opens `path` for listing by the mode bits. False with "Directory %S not
  // found", "%S is not a directory", "Access to %S is denied" or "Unknown
  // error reading directory %S" in *error.
  bool init(const QzbString& path, int mode, QzbString* error);
  // Moves to the next entry that the mode admits; false at the end.
  bool next();
  // The current entry's leaf name, or null.
  QzbString getName() const;
  // The current entry as read (the directory joined with the leaf), or null.
  QzbString getFullPathName() const;
  bool isDir() const;
  // The entry is a symbolic link (never a file or a directory then).
  bool isLink() const;
  bool isVaultItem() const;
  QzbDate getTimestamp() const;
  int64_t getTimestampLong() const;
  // True when the entry cannot be opened for writing, or there is no entry.
  bool isReadOnly() const;

  static bool isVaultFile(const char* name);

 private:
  NpDir* dir_;
  char* fullName_;
  char* leafName_;
  bool isDir_;
  bool isLink_;
  bool hasEntry_;
  int64_t timestamp_;
  int mode_;
  bool isVaultItem_;
};

// The twelve two-part extensions ("job.def" and the like: lower case, without
// the leading dot); the entries point into the base layer's file-type table
// (qzbase/file_types.h), which is their one source.
extern const char* const kQzviTwoPartExtensions[12];

// A valid file name for `name` (with ".extension" added unless present) that
// is free in `directory`: the name itself, else "1name", "2name", ... Null when
// the name cannot be made or a stat fails oddly.
// The result is always one component within NP_NAME_MAX bytes that does not
// begin with ".": the display name goes through np_fio_fncode, an extension
// holding a separator or a control character (C0, DEL or C1) gives null, and
// when prefix, name and extension would not fit, the name part (never the
// extension) is shortened at a UTF-8 character boundary. The extension test ignores ASCII
// letter case ("Report.TXT" keeps its ".TXT").
QzbString qzviGetNewValidFilename(const QzbString& name, const QzbString& extension,
                                  const QzbString& directory);
// `name` without its extension, the extension (no dot) in *extension. With
// `simple` false a two-part extension from the table is recognised (in any
// letter case).
QzbString qzviParseFileExt(const QzbString& name, QzbString* extension, bool simple);
// The number in the extension of a version file name ("job.3" gives 3), or -1.
int qzviExtractVersion(const QzbString& name);
// Equal, ignoring letter case, after dropping one trailing separator of each.
bool qzviPathIsEqual(const QzbString& a, const QzbString& b);
// The path without one trailing "/" or "\" (a drive root such as "C:\" and the
// root "/" itself are kept).
QzbString qzviStringTrailingSlash(const QzbString& path);
// True when directory/name exists.
bool qzviFileExists(const QzbString& directory, const QzbString& name);

#endif  // QZVAULT_SRC_STORE_FILE_LIST_H_
