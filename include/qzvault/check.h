// QzvVaultCheck: walks a whole vault and reports what is damaged or left
// behind in its metadata, and optionally removes what is safe to remove.
//
// QzvVault::getVaultCheck hands out a QzvVaultCheck; the caller ends it with
// release(). check() looks at every folder of the vault (the root and every
// directory below it whose name does not begin with "."):
//   - every metadata database present (".v_fmd" and ".v_cmd" of each folder,
//     ".v_imd" of the root) must open and pass SQLite's integrity check;
//     a file that is not a database at all is reported and never touched;
//   - rows of ".v_fmd" (v_object, v_attr) for a file name that is no longer
//     in the folder;
//   - rows of ".v_cmd" (v_file, v_attr) for a file that is gone, or whose
//     modification time differs from the cached one;
//   - the vault's own files and directories that are symbolic links, fifos,
//     devices or of the wrong kind (never opened, never followed);
//   - lock files ".v_lck" whose holder has ended (a process of this machine
//     that no longer runs), or that are older than QZV_CHECK_STALE_LOCK_SECONDS;
//   - version files in ".v_ver" ("name.N") whose object "name" is gone: an
//     object whose file vanished between a new version and its new content is
//     given its newest version back; a second name of a version left by an
//     interrupted rename or move is dropped;
//   - in ".v_imd": edges (v_impadeps) with an end that is not a stored
//     resource, and resources that no edge between stored resources reaches.
// Databases are opened only when they exist: a check never creates one. A
// database with a journal left by an interrupted change is opened for
// writing, which rolls the change back as any next writer would; that is
// recovery, not damage, and is not reported.
//
// The walk never follows a symbolic link: a linked directory is not entered
// and a linked file is not read. Nothing that may be someone's only copy is
// ever deleted by a repair: what cannot be placed is moved into the folder's
// quarantine directory ".v_quarantine", which listings hide.
//
// Run the check while no host is changing the vault. In the middle of an
// operation a vault can look damaged: an object whose file has just been
// moved aside as a version looks gone (and a repair gives it its newest
// version back).
//
// Thread safety: one thread at a time per object.
#ifndef QZVAULT_CHECK_H_
#define QZVAULT_CHECK_H_

#include "qzbase/string.h"
#include "qzvault/item_list.h"

// Columns of every row of the findings list.
#define QZV_CHECK_COL_KIND 0      // one of the QZV_CHECK_KIND_* texts
#define QZV_CHECK_COL_PATH 1      // the file or directory concerned, full path
#define QZV_CHECK_COL_DETAIL 2    // one line: what is wrong, and what was done
#define QZV_CHECK_COL_REPAIRED 3  // "1" when this check repaired it, else "0"
#define QZV_CHECK_COLUMNS 4

// Kinds of finding.
// A database that cannot be opened or fails the integrity check. Repair
// rebuilds its indexes (REINDEX), and counts only when the integrity check
// then passes.
#define QZV_CHECK_KIND_DAMAGED_DATABASE "damaged-database"
// A metadata file that is not an SQLite database. Never repaired: its content
// may be someone's data.
#define QZV_CHECK_KIND_NOT_A_DATABASE "not-a-database"
// v_object and v_attr rows of ".v_fmd" for a name that is not in the folder.
// Repair deletes them (one transaction per database).
#define QZV_CHECK_KIND_ORPHAN_METADATA "orphan-metadata"
// v_file and v_attr rows of ".v_cmd" for a file that is gone or changed.
// Repair deletes them; the next refresh of the folder reads the file anew.
#define QZV_CHECK_KIND_STALE_CACHE "stale-cache"
// A folder whose entries cannot be listed; nothing in it is judged. Never
// repaired.
#define QZV_CHECK_KIND_UNREADABLE_FOLDER "unreadable-folder"
// A ".v_lck" whose holder has ended (a process of this machine that no
// longer runs, or no holder recorded), or one older than
// QZV_CHECK_STALE_LOCK_SECONDS whose holder cannot be asked (another
// machine's). Repair removes it, or moves it into quarantine when it holds
// something other than a lock record.
#define QZV_CHECK_KIND_STALE_LOCK "stale-lock"
// A second name of a version file whose object is gone, the file itself
// still named as a version of an object that is there (left by an
// interrupted rename or move). Repair removes that name only.
#define QZV_CHECK_KIND_ORPHAN_VERSION "orphan-version"
// Versions of an object whose file is gone (an interrupted version, or a
// host that ended before writing the new content). Repair gives the object
// its newest version back as its file.
#define QZV_CHECK_KIND_MISSING_OBJECT "missing-object"
// One of the vault's own files or directories (".v_fmd", ".v_cmd", ".v_imd",
// their journals, ".v_lck", ".v_ver", ".v_quarantine") that is a symbolic
// link, a fifo, a device or of the wrong kind; it is never opened or
// followed. Repair moves it into the folder's quarantine.
#define QZV_CHECK_KIND_REFUSED_FILE "refused-file"
// A database with a journal of an interrupted change that this user cannot
// roll back (the folder is not writable for the user). Never repaired here:
// run the check with repair as a user who can write the folder.
#define QZV_CHECK_KIND_UNRECOVERED_JOURNAL "unrecovered-journal"
// An edge of ".v_imd" with a missing resource at either end. Repair deletes
// the edges (one transaction).
#define QZV_CHECK_KIND_DANGLING_EDGE "dangling-edge"
// A resource that no edge between stored resources reaches. Repair deletes it
// and its properties (one transaction).
#define QZV_CHECK_KIND_UNUSED_RESOURCE "unused-resource"

// A lock file at least this old (seconds since its modification) is stale:
// the locks of a host's transaction last seconds, not an hour.
#define QZV_CHECK_STALE_LOCK_SECONDS 3600

class QzvVaultCheck {
 public:
  virtual void release() = 0;
  // The reason of the last failure; empty when none.
  virtual QzbString getErrorMessage() = 0;

  // Walks the vault and returns its findings, QZV_CHECK_COLUMNS text columns
  // per row, in walking order (folders depth first, sorted by name; within a
  // folder databases, rows, locks, versions; the lineage store last). An empty
  // list means a clean vault. With `repair` true, every finding that can be
  // repaired safely is repaired before the list is returned, and its row says
  // so; a repair that fails leaves the finding with "0" and the reason in its
  // detail. The list is new and owned by the caller, ended with release().
  // Null, with getErrorMessage, when the vault's root cannot be listed or
  // memory runs out. A folder below the root that cannot be listed is a
  // finding of its own (QZV_CHECK_KIND_UNREADABLE_FOLDER).
  virtual QzvItemList* check(bool repair) = 0;

 protected:
  ~QzvVaultCheck() = default;
};

#endif  // QZVAULT_CHECK_H_
