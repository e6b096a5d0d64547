// The vault check behind QzvVaultCheck (include/qzvault/check.h): the walk
// over the folders, and one function per concern that judges what the walk
// found in a folder, appends its findings, and repairs them when asked.
//
// Each repair of rows runs in one transaction per database and concern; a
// repair of files is one removal per file. Internal; one thread at a time.
#ifndef QZVAULT_SRC_CHECK_VAULT_CHECK_H_
#define QZVAULT_SRC_CHECK_VAULT_CHECK_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qzbase/log.h"
#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "qzvault/check.h"

class QzviVaultContext;

struct QzviCheckFinding {
  const char* kind;  // a QZV_CHECK_KIND_* text
  std::string path;
  std::string detail;
  bool repaired;
};

// What the walk found in one folder: its directory and its entries (vault
// files apart), each with its modification time in seconds. Symbolic links
// are entries of their own, never followed.
struct QzviCheckFolder {
  std::string directory;
  std::unordered_map<std::string, int64_t> files;
  std::unordered_map<std::string, int64_t> directories;
  std::unordered_set<std::string> links;
  std::vector<std::string> vaultNames;  // the vault's own entries, by name
  bool has(const std::string& name) const {
    return files.count(name) != 0 || directories.count(name) != 0 || links.count(name) != 0;
  }
};

// The findings of one check, and the flag that says whether to repair.
class QzviCheckReport {
 public:
  explicit QzviCheckReport(bool repair) : repair_(repair) {}
  bool repair() const { return repair_; }
  void add(const char* kind, std::string path, std::string detail, bool repaired) {
    findings_.push_back({kind, std::move(path), std::move(detail), repaired});
  }
  const std::vector<QzviCheckFinding>& findings() const { return findings_; }

 private:
  bool repair_;
  std::vector<QzviCheckFinding> findings_;
};

// The severity of a finding of `kind` (a QZV_CHECK_KIND_* text):
// QZV_CHECK_SEVERITY_NOTE or QZV_CHECK_SEVERITY_DAMAGE. The table of
// vault_check_severity.cc is the one place that says which; a kind it does
// not list is damage.
const char* qzviCheckSeverity(const char* kind);

// `directory` joined with `name` by the platform's separator.
std::string qzviCheckJoin(const std::string& directory, const std::string& name);

// Runs the query `sql` and calls onRow(cursor) for each of its rows. False
// with the connection's message in *error when it cannot be read.
bool qzviCheckSelect(SqliteConnection* db, const char* sql,
                     const std::function<void(SqliteCursor*)>& onRow, std::string* error);

// A finding whose repair deletes rows: where it is and what it says.
struct QzviCheckStale {
  std::string path;
  std::string detail;
};
// Reports every entry of `stale` under `kind`. When repairing, first runs
// each statement of `deletes` (prepared once) for every entry i, after
// bind(statement, i) has bound that entry's key, all in one transaction; each
// detail then ends with `done`, or with "; not repaired: " and the reason
// ("the database is read only", or the database's message) after a rollback.
void qzviCheckReportRows(SqliteConnection* db, const char* kind,
                         const std::vector<QzviCheckStale>& stale,
                         const std::vector<std::string>& deletes,
                         const std::function<void(SqliteStatement*, std::size_t)>& bind,
                         const char* done, QzviCheckReport* report);

// Opens the database file `path` (which exists), runs SQLite's integrity
// check and, when repairing, rebuilds the indexes of a database that fails
// it. Returns the open connection (closed by the caller with close(0)) when
// the database is sound or was repaired, so that its rows can be judged; null
// after a finding that was not repaired. Opened read-only unless repairing,
// or unless a journal of an interrupted change is to be rolled back.
SqliteConnection* qzviCheckOpenDatabase(const std::string& path, QzviCheckReport* report);

// Moves `path` into the quarantine directory of the folder `directory`
// (made when missing), under its own name or a free variant of it. Appends
// what happened to *detail; false when it could not be moved.
bool qzviCheckQuarantine(const std::string& directory, const std::string& path,
                         std::string* detail);
// The vault's own files and directories of the folder that are links,
// fifos, devices or of the wrong kind; the root's lineage store with them.
void qzviCheckVaultFiles(const QzviCheckFolder& folder, bool isRoot, QzviCheckReport* report);

// v_object and v_attr rows of a folder's ".v_fmd" for names not in the folder.
void qzviCheckFixedRows(SqliteConnection* db, const QzviCheckFolder& folder,
                        QzviCheckReport* report);
// v_file and v_attr rows of a folder's ".v_cmd" for files that are gone or
// whose modification time differs from the cached one.
void qzviCheckCachedRows(SqliteConnection* db, const QzviCheckFolder& folder,
                         QzviCheckReport* report);
// The folder's ".v_lck" when its holder has ended, or when it is older than
// QZV_CHECK_STALE_LOCK_SECONDS and its holder cannot be asked; and records
// of lockings that were interrupted.
void qzviCheckLockFile(const QzviCheckFolder& folder, QzviCheckReport* report);
// Version files of the folder's ".v_ver" whose object is gone. An object
// given back its newest version is added to the folder's files, so that its
// rows are judged as those of a file that is there.
void qzviCheckVersionFiles(QzviCheckFolder* folder, QzviCheckReport* report);
// Dangling edges and unused resources of the root's ".v_imd" at `path`.
void qzviCheckLineageStore(SqliteConnection* db, const std::string& path,
                           QzviCheckReport* report);

class QzvVaultCheckImpl final : public QzvVaultCheck {
 public:
  // `vault` must outlive the check.
  explicit QzvVaultCheckImpl(QzviVaultContext* vault);

  void release() override;
  QzbString getErrorMessage() override;
  QzvItemList* check(bool repair) override;

 private:
  ~QzvVaultCheckImpl() = default;
  // Lists `directory` into *folder and appends its sub-directories (full
  // paths, sorted by name) to *subdirectories. False with *error when the
  // directory cannot be listed.
  static bool readFolder(const std::string& directory, QzviCheckFolder* folder,
                         std::vector<std::string>* subdirectories, QzbString* error);
  void checkFolder(QzviCheckFolder* folder, bool isRoot, QzviCheckReport* report);

  QzviVaultContext* vault_;
  QzLogger* logger_;
  QzbString errorMessage_;
};

#endif  // QZVAULT_SRC_CHECK_VAULT_CHECK_H_
