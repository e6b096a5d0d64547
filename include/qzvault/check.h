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
//     modification time differs from the cached one (which the folder's next
//     listing reads again anyway);
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
// Every finding has a severity. Damage (QZV_CHECK_SEVERITY_DAMAGE) is
// something wrong that stays wrong until it is repaired: a database that is
// damaged or not a database, fixed rows of files that are gone, orphan
// version files, dangling edges, stale locks, a folder that cannot be read. A
// note (QZV_CHECK_SEVERITY_NOTE) is hygiene that normal use leaves behind and
// that does no harm: resources that take part in no dependency, and cached
// rows of files that changed or went (removing, renaming or moving an object
// leaves its cached rows behind), which the folder's next listing refreshes
// or drops anyway.
// Which kind has which severity is listed with each kind below.
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
// Appended after the first four columns, which keep their places.
#define QZV_CHECK_COL_SEVERITY 4  // QZV_CHECK_SEVERITY_DAMAGE or QZV_CHECK_SEVERITY_NOTE
#define QZV_CHECK_COLUMNS 5

// Severities of a finding.
#define QZV_CHECK_SEVERITY_DAMAGE "damage"
#define QZV_CHECK_SEVERITY_NOTE "note"

// Kinds of finding.
// A database that cannot be opened or fails the integrity check. Repair
// rebuilds its indexes (REINDEX), and counts only when the integrity check
// then passes. Damage.
#define QZV_CHECK_KIND_DAMAGED_DATABASE "damaged-database"
// A metadata file that is not an SQLite database. Never repaired: its content
// may be someone's data. Damage.
#define QZV_CHECK_KIND_NOT_A_DATABASE "not-a-database"
// v_object and v_attr rows of ".v_fmd" for a name that is not in the folder.
// Repair deletes them (one transaction per database). Damage.
#define QZV_CHECK_KIND_ORPHAN_METADATA "orphan-metadata"
// v_file and v_attr rows of ".v_cmd" for a file that is gone. Repair deletes
// them. Damage.
#define QZV_CHECK_KIND_STALE_CACHE "stale-cache"
// v_file and v_attr rows of ".v_cmd" for a file changed since it was read.
// Repair deletes them; the folder's next listing reads the file anew, as it
// would without the repair. A note.
#define QZV_CHECK_KIND_OUTDATED_CACHE "outdated-cache"
// A folder whose entries cannot be listed; nothing in it is judged. Never
// repaired. Damage.
#define QZV_CHECK_KIND_UNREADABLE_FOLDER "unreadable-folder"
// A ".v_lck" whose holder has ended (a process of this machine that no
// longer runs, or no holder recorded), or one older than
// QZV_CHECK_STALE_LOCK_SECONDS whose holder cannot be asked (another
// machine's). Repair removes it, or moves it into quarantine when it holds
// something other than a lock record. Damage.
#define QZV_CHECK_KIND_STALE_LOCK "stale-lock"
// A second name of a version file whose object is gone, the file itself
// still named as a version of an object that is there (left by an
// interrupted rename or move). Repair removes that name only. Damage.
#define QZV_CHECK_KIND_ORPHAN_VERSION "orphan-version"
// Versions of an object whose file is gone (an interrupted version, or a
// host that ended before writing the new content). Repair gives the object
// its newest version back as its file. Damage.
#define QZV_CHECK_KIND_MISSING_OBJECT "missing-object"
// One of the vault's own files or directories (".v_fmd", ".v_cmd", ".v_imd",
// their journals, ".v_lck", ".v_ver", ".v_quarantine") that is a symbolic
// link, a fifo, a device or of the wrong kind; it is never opened or
// followed. Repair moves it into the folder's quarantine. Damage.
#define QZV_CHECK_KIND_REFUSED_FILE "refused-file"
// A database with a journal of an interrupted change that this user cannot
// roll back (the folder is not writable for the user). Never repaired here:
// run the check with repair as a user who can write the folder. Damage.
#define QZV_CHECK_KIND_UNRECOVERED_JOURNAL "unrecovered-journal"
// An edge of ".v_imd" with a missing resource at either end. Repair deletes
// the edges (one transaction). Damage.
#define QZV_CHECK_KIND_DANGLING_EDGE "dangling-edge"
// A resource that no edge between stored resources reaches: an object that
// uses nothing and that nothing uses, or a resource whose last user went.
// Repair deletes it and its properties (one transaction); the next analysis
// of such an object records it again. A note.
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
  // per row (the severity of each kind as listed above), in walking order (folders depth first, sorted by name; within a
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
