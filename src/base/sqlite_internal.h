// Internal classes of the SQLite access layer (qzbase/sqlite.h): the
// connection, statement and cursor implementations over sqlite3 handles.
//
// Thread safety: as the public interfaces; one connection and everything made
// from it is used by one thread at a time.
#ifndef QZBASE_SRC_SQLITE_INTERNAL_H_
#define QZBASE_SRC_SQLITE_INTERNAL_H_

#include <sqlite3.h>

#include <string>

#include "qzbase/sqlite.h"

namespace qzbase_sqlite {

class SqliteStatementImpl;

// Owns one sqlite3 handle. Statements and cursors report their failures here
// too, so that the connection's result code and message describe the last
// thing that happened on it.
class SqliteConnectionImpl final : public SqliteConnection {
 public:
  // Takes ownership of `db`.
  SqliteConnectionImpl(sqlite3* db, const char* path);

  QzbString getErrorMessage() const override;
  void close(int flags) override;
  int getResultCode() const override;
  bool exec(const QzbString& sql, int flags) override;
  bool isReadOnly() const override;
  SqliteCursor* select(const QzbString& sql) override;
  int64_t getLastInsertRowId() const override;
  SqliteStatement* prepare(const QzbString& sql) override;
  int getChanges() const override;
  QzbString getPath() const override;
  void setBusyTimeout(int milliseconds) override;

  sqlite3* db() const { return db_; }
  // Records the outcome of an operation: its primary result code, and for a
  // failure the text SQLite gives for it (or `message` when given).
  void noteResult(int rc, const char* message = nullptr);

 private:
  ~SqliteConnectionImpl() override;
  // Prepares one statement; null with the failure noted.
  sqlite3_stmt* compile(const QzbString& sql);

  sqlite3* db_;
  QzbString path_;
  int resultCode_ = SQLITE_OK;
  std::string errorMessage_ = "not an error";
};

// A cursor over a statement's rows. It either owns its statement (made by
// SqliteConnection::select) or borrows the one of a SqliteStatementImpl
// (made by executeQuery), which it resets on release.
class SqliteCursorImpl final : public SqliteCursor {
 public:
  SqliteCursorImpl(SqliteConnectionImpl* connection, sqlite3_stmt* stmt,
                   SqliteStatementImpl* owner);

  int next() override;
  int getInt(int column) override;
  void release() override;
  int64_t getInt64(int column) override;
  double getDouble(int column) override;
  QzbString getText(int column) override;
  bool isNullColumn(int column) override;
  int getColumnCount() override;
  QzbString getColumnName(int column) override;

  // The owning statement is going away: the cursor ends.
  void detach();

 private:
  ~SqliteCursorImpl() override = default;
  bool onColumn(int column) const;

  enum class State { kBefore, kRow, kEnd, kError };
  SqliteConnectionImpl* connection_;
  sqlite3_stmt* stmt_;
  SqliteStatementImpl* owner_;  // null when the cursor owns stmt_
  State state_ = State::kBefore;
};

class SqliteStatementImpl final : public SqliteStatement {
 public:
  SqliteStatementImpl(SqliteConnectionImpl* connection, sqlite3_stmt* stmt);

  QzbString getErrorMessage() const override;
  void bindNull(int index) override;
  void bindText(int index, const QzbString& value) override;
  void bindInt(int index, int64_t value) override;
  void bindDouble(int index, double value) override;
  bool execute(int flags) override;
  void release() override;
  SqliteCursor* executeQuery() override;
  int getResultCode() const override;
  void clearBindings() override;

  // Called by the cursor of executeQuery when it is released.
  void cursorReleased();
  // Records a step's outcome on the statement and on the connection.
  void noteResult(int rc);

 private:
  ~SqliteStatementImpl() override = default;
  void noteBind(int rc);
  // False (with the failure recorded) when the statement cannot run now.
  bool readyToRun();

  SqliteConnectionImpl* connection_;
  sqlite3_stmt* stmt_;
  SqliteCursorImpl* cursor_ = nullptr;  // the live cursor of executeQuery
  int resultCode_ = SQLITE_OK;
  std::string errorMessage_ = "not an error";
  int bindFailure_ = SQLITE_OK;  // a failed bind, reported by the next run
  std::string bindMessage_;
};

}  // namespace qzbase_sqlite

#endif  // QZBASE_SRC_SQLITE_INTERNAL_H_
