// The vault check's first look at a metadata database: does it open, and does
// it pass SQLite's integrity check. A database whose indexes disagree with its
// tables is repaired by rebuilding the indexes, which loses nothing; anything
// worse is reported and left alone, and a file that is not a database at all
// is never touched, since it may be someone's data under a vault file's name.
#include <string>

#include "qzbase/platform.h"
#include "qzbase/sqlite.h"
#include "vault_check.h"

namespace {

// SQLite's own text for a file whose header is not a database's; the access
// layer reports an open failure by text only.
const char kNotADatabase[] = "file is not a database";

// The integrity check's verdict: "ok", or its first complaints joined by
// "; " (a damaged database can give a hundred lines). A query that fails
// gives the connection's message.
std::string integrityProblems(SqliteConnection* db) {
  SqliteCursor* rows = db->select(QzbString("PRAGMA integrity_check", true));
  if (rows == nullptr) return db->getErrorMessage().toStdString();
  std::string problems;
  int lines = 0;
  int step;
  while ((step = rows->next()) == 1) {
    const std::string line = rows->getText(0).toStdString();
    if (line == "ok") continue;
    if (++lines > 3) {
      problems += "; ...";
      break;
    }
    if (!problems.empty()) problems += "; ";
    problems += line;
  }
  rows->release();
  if (step < 0 && lines == 0) return db->getErrorMessage().toStdString();
  return problems.empty() ? "ok" : problems;
}

}  // namespace

SqliteConnection* qzviCheckOpenDatabase(const std::string& path, QzviCheckReport* report) {
  // A journal left by an interrupted change is rolled back by the next
  // writer that opens the database: opening for writing is the recovery
  // every host does, and no damage. Only a user who cannot write the folder
  // cannot do it; that is said once, with what to run.
  const std::string journal = path + "-journal";
  NpFileInfo journalStatus;
  const bool interrupted = np_fio_lstat(journal.c_str(), &journalStatus) == NP_OK &&
                           journalStatus.type == NP_TYPE_FILE && journalStatus.size > 0;
  SqliteConnection* db = openSqliteDatabase(
      path.c_str(),
      report->repair() || interrupted ? QZ_SQLITE_OPEN_READWRITE : QZ_SQLITE_OPEN_READONLY);
  if (db != nullptr && interrupted && db->isReadOnly()) {
    report->add(QZV_CHECK_KIND_UNRECOVERED_JOURNAL, path,
                "an interrupted change left the journal " + journal +
                    ", which only a user who can write the folder can roll back; run "
                    "'qzvault check --repair' as such a user",
                false);
    db->close(0);
    return nullptr;
  }
  if (db == nullptr) {
    const std::string reason = getSqliteErrorMessage();
    if (reason == kNotADatabase) {
      report->add(QZV_CHECK_KIND_NOT_A_DATABASE, path,
                  "not an SQLite database; left as it is", false);
    } else {
      report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path, "cannot be opened: " + reason, false);
    }
    return nullptr;
  }
  const std::string problems = integrityProblems(db);
  if (problems == "ok") return db;
  if (problems == kNotADatabase) {
    report->add(QZV_CHECK_KIND_NOT_A_DATABASE, path, "not an SQLite database; left as it is",
                false);
    db->close(0);
    return nullptr;
  }

  std::string detail = "integrity check failed: " + problems;
  if (!report->repair()) {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path, detail, false);
    db->close(0);
    return nullptr;
  }
  // REINDEX rebuilds every index from its table in one statement, which is
  // its own transaction; it repairs only index damage, so the integrity
  // check decides whether it was enough.
  if (db->isReadOnly()) {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path, detail + "; not repaired: read only",
                false);
    db->close(0);
    return nullptr;
  }
  if (!db->exec(QzbString("REINDEX", true), 0)) {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path,
                detail + "; rebuilding the indexes failed: " + db->getErrorMessage().toStdString(),
                false);
    db->close(0);
    return nullptr;
  }
  const std::string after = integrityProblems(db);
  if (after != "ok") {
    report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path,
                detail + "; still damaged after rebuilding the indexes: " + after, false);
    db->close(0);
    return nullptr;
  }
  report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path, detail + "; indexes rebuilt", true);
  return db;
}
