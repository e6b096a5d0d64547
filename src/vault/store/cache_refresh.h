// The cached-metadata database ".v_cmd" of a folder follows the folder's files:
// for each file a v_file row (name, modification time, plug-in type, display
// name) and v_attr rows (creation and modification dates, and every attribute
// the file's plug-in reports). Refreshes rewrite changed rows in one
// transaction and announce the changes to the repository event manager.
#ifndef QZVAULT_SRC_STORE_CACHE_REFRESH_H_
#define QZVAULT_SRC_STORE_CACHE_REFRESH_H_

#include <cstdint>
#include <string>
#include <unordered_map>

#include "qzbase/events.h"
#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "cache_writer.h"
#include "content_events.h"
#include "metadata_db.h"
#include "plugin_registry.h"
#include "reserved_attributes.h"

class QzvVault;


// Brings the cache of `directory` up to date with its files. `vault` (may be
// null) receives the content-changed announcements. False with the reason in
// *error; the cache then keeps its previous content.
//
// Cost: one select of the cached names into a hash map, one listing, and, only
// when something changed, one transaction whose statements are prepared once
// and reused for every file (QzviCacheWriter). Events are sent after the
// commit: a removed file as change type 1, a new one as 0, a modified one as 1
// then 0; the vault's UUID is asked once, and only when somebody listens.
//
// A file that vanishes between the listing and the moment it is read counts
// as removed: a modified file keeps its old rows deleted and is announced as
// removed only, a new one is not cached nor announced, and the rest of the
// folder is refreshed as usual (the refresh succeeds). Any other failure to
// read a file ("Cache failed to open file": it exists but cannot be examined)
// fails the whole refresh and rolls it back.
bool qzviRefreshCachedAttributes(const QzbString& directory, const QzviPluginRegistry* registry,
                                 QzbString* error, MemDBCache& cache, QzvVault* vault);
// Brings one file's cache rows up to date (`force` re-reads an unchanged file).
// Rows of a file that no longer exists are removed; a file that cannot be
// examined fails with "Cache failed to open file". Sends no events. A path
// without a directory part names a file of the working directory.
bool qzviRefreshCachedFileAttributes(const QzbString& path, const QzviPluginRegistry* registry,
                                     QzbString* error, MemDBCache& cache, bool force);
// The display name stored for the folder `directory` in its own ".v_fmd", or a
// null string.
QzbString qzviGetFolderNameFromDirectory(const QzbString& directory, MemDBCache& cache);

// Display names and types of a folder's files, read once from the cached or
// fixed metadata and then looked up by file name.
class QzviMDHelper {
 public:
  QzviMDHelper();
  // Reads the names of `directory`: from ".v_cmd" (v_file) when `fixed` is
  // false, from ".v_fmd" (v_object) when true. `namedOnly` keeps only rows with
  // a name. False when the database cannot be read (lookups then find nothing).
  bool init(const QzbString& directory, bool namedOnly, bool fixed, MemDBCache& cache);
  // True when `fileName` has a row; its name and type are then available.
  bool lookup(const QzbString& fileName);
  QzbString getFoundName() const;
  QzbString getFoundType() const;

 private:
  struct Entry {
    QzbString name;
    QzbString type;
  };
  std::unordered_map<QzbString, Entry> entries_;
  const Entry* found_;
};

#endif  // QZVAULT_SRC_STORE_CACHE_REFRESH_H_
