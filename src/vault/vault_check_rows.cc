// The vault check's look at the rows of a folder's two databases: fixed
// metadata (".v_fmd") kept for names that are no longer in the folder, and
// cached metadata (".v_cmd") of files that are gone or changed since they were
// read. Removing either loses nothing that still has a file: the cache is
// read again by the next refresh of the folder.
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qzbase/sqlite.h"
#include "vault_check.h"

namespace {

struct NamedRows {
  std::string name;
  std::string detail;
};

// Deletes the rows of every name of `stale` from `tables` in one
// transaction, with one statement per table prepared once. True on commit;
// otherwise rolled back with the reason in *error.
bool deleteRowsByName(SqliteConnection* db, const std::vector<const char*>& tables,
                      const std::vector<NamedRows>& stale, std::string* error) {
  if (db->isReadOnly()) {
    *error = "the database is read only";
    return false;
  }
  if (!db->exec(QzbString("BEGIN IMMEDIATE TRANSACTION", true), 0)) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  bool ok = true;
  for (const char* table : tables) {
    const std::string sql = std::string("DELETE FROM ") + table + " WHERE fname = ?";
    SqliteStatement* statement = db->prepare(QzbString(sql.c_str()));
    if (statement == nullptr) {
      ok = false;
      break;
    }
    for (const NamedRows& rows : stale) {
      statement->bindText(0, QzbString(rows.name.c_str()));
      if (!statement->execute(0)) {
        ok = false;
        break;
      }
    }
    statement->release();
    if (!ok) break;
  }
  if (ok && db->exec(QzbString("COMMIT TRANSACTION", true), 0)) return true;
  *error = db->getErrorMessage().toStdString();
  db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
  return false;
}

// Reports every entry of `stale` under `kind`, repaired or not.
void reportAll(const char* kind, const QzviCheckFolder& folder, const std::vector<NamedRows>& stale,
               const std::vector<const char*>& tables, SqliteConnection* db,
               QzviCheckReport* report) {
  if (stale.empty()) return;
  bool repaired = false;
  std::string failure;
  if (report->repair()) repaired = deleteRowsByName(db, tables, stale, &failure);
  for (const NamedRows& rows : stale) {
    std::string detail = rows.detail;
    if (repaired) {
      detail += "; rows deleted";
    } else if (report->repair()) {
      detail += "; not repaired: " + failure;
    }
    report->add(kind, qzviCheckJoin(folder.directory, rows.name), detail, repaired);
  }
}

// Runs a query of a text and an integer column and returns its rows; false with the
// connection's message in *error.
bool selectNames(SqliteConnection* db, const char* sql, std::vector<std::pair<std::string, int64_t>>* rows,
                 std::string* error) {
  SqliteCursor* cursor = db->select(QzbString(sql, true));
  if (cursor == nullptr) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  int step;
  while ((step = cursor->next()) == 1) {
    rows->emplace_back(cursor->getText(0).toStdString(), cursor->getInt64(1));
  }
  cursor->release();
  if (step < 0) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  return true;
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
  std::vector<NamedRows> stale;
  for (const auto& row : names) {
    if (folder.has(row.first)) continue;
    stale.push_back({row.first, std::to_string(row.second) +
                                    " fixed metadata row(s) of a name that is not in the folder"});
  }
  reportAll(QZV_CHECK_KIND_ORPHAN_METADATA, folder, stale, {"v_object", "v_attr"}, db, report);
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
  std::vector<NamedRows> stale;
  std::unordered_set<std::string> seen;
  for (const auto& row : cached) {
    if (!seen.insert(row.first).second) continue;  // a name cached twice is judged once
    const auto file = folder.files.find(row.first);
    if (file == folder.files.end()) {
      stale.push_back({row.first, "cached rows of a file that is gone"});
    } else if (file->second != row.second) {
      stale.push_back({row.first, "cached rows of a changed file: cached time stamp " +
                                      std::to_string(row.second) + ", file time stamp " +
                                      std::to_string(file->second)});
    }
  }
  for (const auto& row : attributes) {
    if (folder.files.count(row.first) != 0) continue;
    stale.push_back({row.first, "cached attribute rows of a file that is gone"});
  }
  reportAll(QZV_CHECK_KIND_STALE_CACHE, folder, stale, {"v_file", "v_attr"}, db, report);
}
