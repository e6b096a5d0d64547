// Connections of the SQLite access layer, and the open and create entry
// points. File creation and the writability test go through the np_* layer,
// so that a test platform can make them fail.
#include <sqlite3.h>

#include <string>

#include "qzbase/config.h"
#include "qzbase/platform.h"
#include "qzbase/sqlite.h"
#include "sqlite_internal.h"

namespace qzbase_sqlite {

namespace {

const int kDefaultBusyTimeoutMs = 5000;

int primary(int rc) { return rc & 0xff; }

bool isFailure(int rc) {
  int code = primary(rc);
  return code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE;
}

}  // namespace

SqliteConnectionImpl::SqliteConnectionImpl(sqlite3* db, const char* path)
    : db_(db), path_(path != nullptr ? path : "") {}

SqliteConnectionImpl::~SqliteConnectionImpl() {
  // close_v2 defers the close until any statement still alive is finalised.
  sqlite3_close_v2(db_);
}

void SqliteConnectionImpl::noteResult(int rc, const char* message) {
  resultCode_ = primary(rc);
  if (isFailure(rc)) errorMessage_ = message != nullptr ? message : sqlite3_errmsg(db_);
}

QzbString SqliteConnectionImpl::getErrorMessage() const { return QzbString(errorMessage_.c_str()); }

void SqliteConnectionImpl::close(int /*flags*/) { delete this; }

int SqliteConnectionImpl::getResultCode() const { return resultCode_; }

bool SqliteConnectionImpl::exec(const QzbString& sql, int flags) {
  if (flags != 0) {
    noteResult(SQLITE_MISUSE, "unsupported exec flags");
    return false;
  }
  char* message = nullptr;
  int rc = sqlite3_exec(db_, sql.asCstr(), nullptr, nullptr, &message);
  noteResult(rc, message);
  sqlite3_free(message);
  return rc == SQLITE_OK;
}

bool SqliteConnectionImpl::isReadOnly() const {
  if (sqlite3_db_readonly(db_, "main") == 1) return true;
  // A connection can also be closed to writes by "PRAGMA query_only", as the
  // vault does with a database that it keeps in memory only because the
  // folder cannot hold the file: what is written there would be lost.
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db_, "PRAGMA query_only", -1, &stmt, nullptr) != SQLITE_OK) return false;
  const bool queryOnly = sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_int(stmt, 0) != 0;
  sqlite3_finalize(stmt);
  return queryOnly;
}

sqlite3_stmt* SqliteConnectionImpl::compile(const QzbString& sql) {
  sqlite3_stmt* stmt = nullptr;
  // The length includes the terminating zero, which spares SQLite a copy.
  int rc = sqlite3_prepare_v2(db_, sql.asCstr(), static_cast<int>(sql.length()) + 1, &stmt,
                              nullptr);
  if (rc != SQLITE_OK) {
    noteResult(rc);
    return nullptr;
  }
  if (stmt == nullptr) {  // only blanks or comments
    noteResult(SQLITE_ERROR, "no SQL statement in the text");
    return nullptr;
  }
  noteResult(rc);
  return stmt;
}

SqliteCursor* SqliteConnectionImpl::select(const QzbString& sql) {
  sqlite3_stmt* stmt = compile(sql);
  if (stmt == nullptr) return nullptr;
  return new SqliteCursorImpl(this, stmt, nullptr);
}

int64_t SqliteConnectionImpl::getLastInsertRowId() const {
  return static_cast<int64_t>(sqlite3_last_insert_rowid(db_));
}

SqliteStatement* SqliteConnectionImpl::prepare(const QzbString& sql) {
  sqlite3_stmt* stmt = compile(sql);
  if (stmt == nullptr) return nullptr;
  return new SqliteStatementImpl(this, stmt);
}

int SqliteConnectionImpl::getChanges() const { return sqlite3_changes(db_); }

QzbString SqliteConnectionImpl::getPath() const { return path_; }

void SqliteConnectionImpl::setBusyTimeout(int milliseconds) {
  sqlite3_busy_timeout(db_, milliseconds > 0 ? milliseconds : 0);
}

namespace {

thread_local std::string t_openError;

int configuredBusyTimeout() {
  QzbString value;
  if (!qzbGetConfigOptions(nullptr)->getOption(QzbString("BASE/SQLITE_BUSY_TIMEOUT_MS", true),
                                               &value, 0)) {
    return kDefaultBusyTimeoutMs;
  }
  bool ok = false;
  int milliseconds = value.asInt(&ok);
  return ok && milliseconds >= 0 ? milliseconds : kDefaultBusyTimeoutMs;
}

// SQLite gives ":memory:" and (with URIs enabled) "file:..." names a meaning
// of their own; a relative path that looks so is made explicit.
std::string sqliteFileName(const char* path) {
  std::string name(path);
  if (name == ":memory:" || name.compare(0, 5, "file:") == 0) name.insert(0, "./");
  return name;
}

// The directory of `path` ("." for a bare name).
std::string directoryOf(const char* path) {
  std::string text(path);
  std::string dir(text.size() + 1, '\0');
  np_fio_pparse(path, &dir[0], dir.size(), nullptr, 0);
  dir.resize(std::char_traits<char>::length(dir.c_str()));
  return dir.empty() ? std::string(".") : dir;
}

SqliteConnection* fail(const char* reason, sqlite3* db) {
  t_openError = reason;
  if (db != nullptr) sqlite3_close_v2(db);
  return nullptr;
}

// Opens `fileName` with the SQLite open flags, sets the busy timeout and
// makes the connection object; null with the reason recorded.
SqliteConnection* openHandle(const std::string& fileName, const char* path, int openFlags,
                             bool checkContent) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(fileName.c_str(), &db, openFlags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    return fail(db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc), db);
  }
  sqlite3_extended_result_codes(db, 0);
  sqlite3_busy_timeout(db, configuredBusyTimeout());
  // SQLite reads a file lazily; reading its header now turns a file that is
  // not a database into a failure of the open instead of the first query.
  if (checkContent) {
    rc = sqlite3_exec(db, "PRAGMA schema_version", nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) return fail(sqlite3_errmsg(db), db);
  }
  return new SqliteConnectionImpl(db, path);
}

}  // namespace

}  // namespace qzbase_sqlite

using qzbase_sqlite::fail;
using qzbase_sqlite::openHandle;

SqliteConnection* openSqliteDatabase(const char* path, int flags) {
  if (path == nullptr || *path == '\0') return fail("no database path given", nullptr);
  int openFlags;
  if (flags == QZ_SQLITE_OPEN_READONLY) {
    openFlags = SQLITE_OPEN_READONLY;
  } else if (flags == QZ_SQLITE_OPEN_READWRITE) {
    // SQLite itself falls back to read-only for a file it cannot write; a
    // directory that cannot take the journal is found out here, so that the
    // connection reports itself read-only instead of failing on each write.
    std::string dir = qzbase_sqlite::directoryOf(path);
    openFlags = np_fio_open(dir.c_str(), NP_FIO_PROBE_WRITE, nullptr) == NP_OK
                    ? SQLITE_OPEN_READWRITE
                    : SQLITE_OPEN_READONLY;
  } else {
    return fail("unsupported open flags", nullptr);
  }
  return openHandle(qzbase_sqlite::sqliteFileName(path), path, openFlags, true);
}

SqliteConnection* createSqliteDatabase(const char* path, int flags) {
  if (flags != 0) return fail("unsupported create flags", nullptr);
  if (path == nullptr || *path == '\0') {
    return openHandle(":memory:", "", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, false);
  }
  // SQLite creates files lazily; creating the file first, exclusively, makes
  // an existing file or an unwritable directory fail here and leaves the file
  // on disk when this returns. An empty file is an empty database.
  NpFile* file = nullptr;
  int rc = np_fio_open(path, NP_FIO_WRITE | NP_FIO_CREATE_NEW, &file);
  if (rc != NP_OK) return fail(np_fio_errdesc(rc), nullptr);
  np_fio_close(file);
  SqliteConnection* connection =
      openHandle(qzbase_sqlite::sqliteFileName(path), path, SQLITE_OPEN_READWRITE, false);
  if (connection == nullptr) np_fio_unlink(path);
  return connection;
}

const char* getSqliteErrorMessage(void) { return qzbase_sqlite::t_openError.c_str(); }
