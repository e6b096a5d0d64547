// The vault check's common database steps: reading the rows of a query, and
// reporting findings whose repair deletes rows, all in one transaction.
#include "vault_check.h"

namespace {

// Runs each statement of `deletes`, prepared once, for every item i below
// `count` after bind(statement, i), in one transaction. True on commit;
// otherwise rolled back, or not begun, with the reason in *error.
bool deleteInOneTransaction(SqliteConnection* db, const std::vector<std::string>& deletes,
                            std::size_t count,
                            const std::function<void(SqliteStatement*, std::size_t)>& bind,
                            std::string* error) {
  if (db->isReadOnly()) {
    *error = "the database is read only";
    return false;
  }
  if (!db->exec(QzbString("BEGIN IMMEDIATE TRANSACTION", true), 0)) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  bool ok = true;
  for (const std::string& sql : deletes) {
    SqliteStatement* statement = db->prepare(QzbString(sql.c_str()));
    if (statement == nullptr) {
      ok = false;
      break;
    }
    for (std::size_t index = 0; index < count; ++index) {
      bind(statement, index);
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

}  // namespace

bool qzviCheckSelect(SqliteConnection* db, const char* sql,
                     const std::function<void(SqliteCursor*)>& onRow, std::string* error) {
  SqliteCursor* cursor = db->select(QzbString(sql, true));
  if (cursor == nullptr) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  int step;
  while ((step = cursor->next()) == 1) onRow(cursor);
  cursor->release();
  if (step < 0) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  return true;
}

void qzviCheckReportRows(SqliteConnection* db, const char* kind,
                         const std::vector<QzviCheckStale>& stale,
                         const std::vector<std::string>& deletes,
                         const std::function<void(SqliteStatement*, std::size_t)>& bind,
                         const char* done, QzviCheckReport* report) {
  if (stale.empty()) return;
  bool repaired = false;
  std::string failure;
  if (report->repair()) {
    repaired = deleteInOneTransaction(db, deletes, stale.size(), bind, &failure);
  }
  for (const QzviCheckStale& entry : stale) {
    std::string detail = entry.detail;
    if (repaired) {
      detail += done;
    } else if (report->repair()) {
      detail += "; not repaired: " + failure;
    }
    report->add(kind, entry.path, detail, repaired);
  }
}
