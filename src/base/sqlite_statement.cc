// Prepared statements and cursors of the SQLite access layer.
#include <sqlite3.h>

#include "sqlite_internal.h"

namespace qzbase_sqlite {

namespace {

int primary(int rc) { return rc & 0xff; }

bool isFailure(int rc) {
  int code = primary(rc);
  return code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE;
}

}  // namespace

// ---------------------------------------------------------------------------
// Statement.

SqliteStatementImpl::SqliteStatementImpl(SqliteConnectionImpl* connection, sqlite3_stmt* stmt)
    : connection_(connection), stmt_(stmt) {}

QzbString SqliteStatementImpl::getErrorMessage() const { return QzbString(errorMessage_.c_str()); }

void SqliteStatementImpl::noteResult(int rc) {
  resultCode_ = primary(rc);
  if (isFailure(rc)) errorMessage_ = sqlite3_errmsg(connection_->db());
  connection_->noteResult(rc, isFailure(rc) ? errorMessage_.c_str() : nullptr);
}

// A failed bind has no return value to report it; the first one is kept and
// makes the next execution fail, so that a statement never runs with a
// parameter silently missing.
void SqliteStatementImpl::noteBind(int rc) {
  if (rc == SQLITE_OK || bindFailure_ != SQLITE_OK) return;
  bindFailure_ = primary(rc);
  bindMessage_ = rc == SQLITE_RANGE ? "bind index out of range" : sqlite3_errstr(rc);
}

void SqliteStatementImpl::bindNull(int index) {
  noteBind(index < 0 ? SQLITE_RANGE : sqlite3_bind_null(stmt_, index + 1));
}

void SqliteStatementImpl::bindText(int index, const QzbString& value) {
  if (value.isNull()) {
    bindNull(index);
    return;
  }
  noteBind(index < 0 ? SQLITE_RANGE
                     : sqlite3_bind_text(stmt_, index + 1, value.asCstr(),
                                         static_cast<int>(value.length()), SQLITE_TRANSIENT));
}

void SqliteStatementImpl::bindInt(int index, int64_t value) {
  noteBind(index < 0 ? SQLITE_RANGE
                     : sqlite3_bind_int64(stmt_, index + 1, static_cast<sqlite3_int64>(value)));
}

void SqliteStatementImpl::bindDouble(int index, double value) {
  noteBind(index < 0 ? SQLITE_RANGE : sqlite3_bind_double(stmt_, index + 1, value));
}

bool SqliteStatementImpl::readyToRun() {
  if (cursor_ != nullptr) {
    resultCode_ = SQLITE_MISUSE;
    errorMessage_ = "statement is in use by a cursor";
    connection_->noteResult(SQLITE_MISUSE, errorMessage_.c_str());
    return false;
  }
  if (bindFailure_ != SQLITE_OK) {
    resultCode_ = bindFailure_;
    errorMessage_ = bindMessage_;
    connection_->noteResult(bindFailure_, errorMessage_.c_str());
    bindFailure_ = SQLITE_OK;
    bindMessage_.clear();
    return false;
  }
  return true;
}

bool SqliteStatementImpl::execute(int flags) {
  if (flags != 0) {
    resultCode_ = SQLITE_MISUSE;
    errorMessage_ = "unsupported execute flags";
    connection_->noteResult(SQLITE_MISUSE, errorMessage_.c_str());
    return false;
  }
  if (!readyToRun()) return false;
  int rc;
  while ((rc = sqlite3_step(stmt_)) == SQLITE_ROW) {
  }
  noteResult(rc);
  // Reset keeps the bindings, ready for the next execution.
  sqlite3_reset(stmt_);
  return rc == SQLITE_DONE;
}

void SqliteStatementImpl::release() {
  if (cursor_ != nullptr) cursor_->detach();
  sqlite3_finalize(stmt_);
  delete this;
}

SqliteCursor* SqliteStatementImpl::executeQuery() {
  if (!readyToRun()) return nullptr;
  sqlite3_reset(stmt_);
  cursor_ = new SqliteCursorImpl(connection_, stmt_, this);
  return cursor_;
}

int SqliteStatementImpl::getResultCode() const { return resultCode_; }

void SqliteStatementImpl::clearBindings() {
  if (cursor_ != nullptr) {
    cursor_->detach();
    cursor_ = nullptr;
  }
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
  bindFailure_ = SQLITE_OK;
  bindMessage_.clear();
}

void SqliteStatementImpl::cursorReleased() {
  cursor_ = nullptr;
  sqlite3_reset(stmt_);
}

// ---------------------------------------------------------------------------
// Cursor.

SqliteCursorImpl::SqliteCursorImpl(SqliteConnectionImpl* connection, sqlite3_stmt* stmt,
                                   SqliteStatementImpl* owner)
    : connection_(connection), stmt_(stmt), owner_(owner) {}

int SqliteCursorImpl::next() {
  if (stmt_ == nullptr) return -1;  // its statement has gone
  // Stepping past the end would start the statement over; the cursor stays
  // where it finished.
  if (state_ == State::kEnd) return 0;
  if (state_ == State::kError) return -1;
  int rc = sqlite3_step(stmt_);
  if (owner_ != nullptr) {
    owner_->noteResult(rc);
  } else {
    connection_->noteResult(rc);
  }
  if (rc == SQLITE_ROW) {
    state_ = State::kRow;
    return 1;
  }
  if (rc == SQLITE_DONE) {
    state_ = State::kEnd;
    return 0;
  }
  state_ = State::kError;
  return -1;
}

bool SqliteCursorImpl::onColumn(int column) const {
  return state_ == State::kRow && stmt_ != nullptr && column >= 0 &&
         column < sqlite3_column_count(stmt_);
}

int SqliteCursorImpl::getInt(int column) {
  return onColumn(column) ? sqlite3_column_int(stmt_, column) : 0;
}

int64_t SqliteCursorImpl::getInt64(int column) {
  return onColumn(column) ? static_cast<int64_t>(sqlite3_column_int64(stmt_, column)) : 0;
}

double SqliteCursorImpl::getDouble(int column) {
  return onColumn(column) ? sqlite3_column_double(stmt_, column) : 0.0;
}

QzbString SqliteCursorImpl::getText(int column) {
  if (!onColumn(column) || sqlite3_column_type(stmt_, column) == SQLITE_NULL) return QzbString();
  const unsigned char* text = sqlite3_column_text(stmt_, column);
  if (text == nullptr) return QzbString();  // out of memory converting the value
  int bytes = sqlite3_column_bytes(stmt_, column);
  return QzbString::fromBytes(reinterpret_cast<const char*>(text),
                              static_cast<std::size_t>(bytes));
}

bool SqliteCursorImpl::isNullColumn(int column) {
  return !onColumn(column) || sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

int SqliteCursorImpl::getColumnCount() {
  return stmt_ != nullptr ? sqlite3_column_count(stmt_) : 0;
}

QzbString SqliteCursorImpl::getColumnName(int column) {
  if (stmt_ == nullptr || column < 0 || column >= sqlite3_column_count(stmt_)) return QzbString();
  return QzbString(sqlite3_column_name(stmt_, column));
}

void SqliteCursorImpl::detach() {
  stmt_ = nullptr;
  owner_ = nullptr;
  state_ = State::kError;
}

void SqliteCursorImpl::release() {
  if (owner_ != nullptr) {
    owner_->cursorReleased();
  } else if (stmt_ != nullptr) {
    sqlite3_finalize(stmt_);
  }
  delete this;
}

}  // namespace qzbase_sqlite
