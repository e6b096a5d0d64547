// The vault check's look at the rows of a folder's two databases: fixed
// metadata (".v_fmd") kept for names that are no longer in the folder, and
// cached metadata (".v_cmd") of files that are gone or changed since they were
// read. Removing either loses nothing that still has a file: the cache is
// read again by the next refresh of the folder.
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qzbase/sqlite.h"
#include "vault_check.h"

namespace {

// The rows of a stale name: what the check says of them, and the name that
// the repair's delete statements bind.
struct StaleNames {
  std::vector<QzviCheckStale> found;
  std::vector<std::string> names;

  void add(const QzviCheckFolder& folder, const std::string& name, std::string detail) {
    found.push_back({qzviCheckJoin(folder.directory, name), std::move(detail)});
    names.push_back(name);
  }
};

// Reports every name of `stale` under `kind`; a repair deletes its rows from
// each of `tables` in one transaction.
void reportAll(const char* kind, const StaleNames& stale, const std::vector<const char*>& tables,
               SqliteConnection* db, QzviCheckReport* report) {
  if (stale.found.empty()) return;
  std::vector<std::string> deletes;
  for (const char* table : tables) {
    deletes.push_back(std::string("DELETE FROM ") + table + " WHERE fname = ?");
  }
  qzviCheckReportRows(db, kind, stale.found, deletes,
                      [&](SqliteStatement* statement, std::size_t index) {
                        statement->bindText(0, QzbString(stale.names[index].c_str()));
                      },
                      "; rows deleted", report);
}

// Runs a query of a text and an integer column and returns its rows; false with the
// connection's message in *error.
bool selectNames(SqliteConnection* db, const char* sql,
                 std::vector<std::pair<std::string, int64_t>>* rows, std::string* error) {
  return qzviCheckSelect(
      db, sql,
      [&](SqliteCursor* cursor) {
        rows->emplace_back(cursor->getText(0).toStdString(), cursor->getInt64(1));
      },
      error);
}

}  // namespace

void qzviCheckFixedRows(SqliteConnection* db, const QzviCheckFolder& folder,
                        QzviCheckReport* report) {
  // A row with fname NULL belongs to the folder itself; a name may be a file
  // or a sub-folder.
  std::vector<std::pair<std::string, int64_t>> names;
  std::string error;
  if (!selectNames(db,
                   "SELECT fname, COUNT(*) FROM (SELECT fname FROM v_object WHERE fname NOT NULL"
                   " UNION ALL SELECT fname FROM v_attr WHERE fname NOT NULL)"
                   " GROUP BY fname ORDER BY fname",
                   &names, &error)) {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE,
                qzviCheckJoin(folder.directory, ".v_fmd"),
                "cannot read the object and attribute rows: " + error, false);
    return;
  }
  StaleNames stale;
  for (const auto& row : names) {
    if (folder.has(row.first)) continue;
    stale.add(folder, row.first,
              std::to_string(row.second) +
                  " fixed metadata row(s) of a name that is not in the folder");
  }
  reportAll(QZV_CHECK_KIND_ORPHAN_METADATA, stale, {"v_object", "v_attr"}, db, report);
}

void qzviCheckCachedRows(SqliteConnection* db, const QzviCheckFolder& folder,
                         QzviCheckReport* report) {
  std::vector<std::pair<std::string, int64_t>> cached;
  std::vector<std::pair<std::string, int64_t>> attributes;
  std::string error;
  if (!selectNames(db, "SELECT fname, tstamp FROM v_file WHERE fname NOT NULL ORDER BY fname",
                   &cached, &error) ||
      !selectNames(db,
                   "SELECT DISTINCT fname, 0 FROM v_attr WHERE fname NOT NULL"
                   " AND fname NOT IN (SELECT fname FROM v_file WHERE fname NOT NULL)"
                   " ORDER BY fname",
                   &attributes, &error)) {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, qzviCheckJoin(folder.directory, ".v_cmd"),
                "cannot read the cached file rows: " + error, false);
    return;
  }
  // Rows of a file that is gone are kept by nothing; rows of a changed file
  // are read again by the folder's next listing.
  StaleNames gone;
  StaleNames changed;
  std::unordered_set<std::string> seen;
  for (const auto& row : cached) {
    if (!seen.insert(row.first).second) continue;  // a name cached twice is judged once
    const auto file = folder.files.find(row.first);
    if (file == folder.files.end()) {
      gone.add(folder, row.first, "cached rows of a file that is gone");
    } else if (file->second != row.second) {
      changed.add(folder, row.first,
                  "cached rows of a changed file: cached time stamp " + std::to_string(row.second) +
                      ", file time stamp " + std::to_string(file->second));
    }
  }
  for (const auto& row : attributes) {
    if (folder.files.count(row.first) != 0) continue;
    gone.add(folder, row.first, "cached attribute rows of a file that is gone");
  }
  reportAll(QZV_CHECK_KIND_STALE_CACHE, gone, {"v_file", "v_attr"}, db, report);
  reportAll(QZV_CHECK_KIND_OUTDATED_CACHE, changed, {"v_file", "v_attr"}, db, report);
}
