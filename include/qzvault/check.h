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
//   - lock files ".v_lck" older than QZV_CHECK_STALE_LOCK_SECONDS;
//   - version files in ".v_ver" ("name.N") whose object "name" is gone;
//   - in ".v_imd": edges (v_impadeps) with an end that is not a stored
//     resource, and resources that no edge between stored resources reaches.
// Databases are opened only when they exist: a check never creates one.
//
// Every finding has a severity. Damage (QZV_CHECK_SEVERITY_DAMAGE) is
// something wrong that stays wrong until it is repaired: a database that is
// damaged or not a database, rows of files that are gone, orphan version
// files, dangling edges, stale locks, a folder that cannot be read. A note
// (QZV_CHECK_SEVERITY_NOTE) is hygiene that normal use leaves behind and that
// does no harm: resources that take part in no dependency, and cached rows
// older than their file, which the folder's next listing refreshes anyway.
// Which kind has which severity is listed with each kind below.
//
// Run the check while no host is changing the vault. In the middle of an
// operation a vault can look damaged: an object whose file has just been
// moved aside as a version looks gone, and a lock held for a long transaction
// looks stale.
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
// A ".v_lck" older than QZV_CHECK_STALE_LOCK_SECONDS. Repair removes it.
// Damage.
#define QZV_CHECK_KIND_STALE_LOCK "stale-lock"
// A version file whose object is gone. Repair removes the file. Damage.
#define QZV_CHECK_KIND_ORPHAN_VERSION "orphan-version"
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
