// The SQLite access layer: connections, prepared statements and cursors over
// the system's SQLite 3. No SQLite type appears here; hosts and plug-ins that
// include this header need no SQLite headers.
//
// Ownership: a connection from openSqliteDatabase / createSqliteDatabase is
// ended with close(); a statement from prepare() with release(); a cursor
// with release(). A cursor made by SqliteStatement::executeQuery belongs to
// that statement's current execution: release it before the statement is
// executed again or released. A connection must outlive its statements and
// cursors.
//
// Thread safety: one connection (and its statements and cursors) is used from
// one thread at a time. Distinct connections may be used concurrently.
#ifndef QZBASE_SQLITE_H_
#define QZBASE_SQLITE_H_

#include <cstdint>

#include "qzbase/export.h"
#include "qzbase/string.h"

// Open flags.
#define QZ_SQLITE_OPEN_DEFAULT 0     // create: read and write
#define QZ_SQLITE_OPEN_READWRITE 2   // open: read and write, falling back to
                                     // read-only when the file is not writable
#define QZ_SQLITE_OPEN_READONLY 1    // open: read only

// Result codes of the last operation (SQLite's primary result codes).
#define QZ_SQLITE_OK 0
#define QZ_SQLITE_ERROR 1
#define QZ_SQLITE_BUSY 5
#define QZ_SQLITE_READONLY 8
#define QZ_SQLITE_ROW 100
#define QZ_SQLITE_DONE 101

class SqliteCursor;
class SqliteStatement;

class QZBASE_EXPORT SqliteConnection {
 public:
  // Text of the last failure on this connection ("not an error" when none).
  virtual QzbString getErrorMessage() const = 0;
  // Closes the connection and destroys this object. `flags` must be 0.
  virtual void close(int flags) = 0;
  // SQLite's primary result code of the last exec, select, prepare or step.
  virtual int getResultCode() const = 0;
  // Executes one or more statements that return no rows. True on success.
  // `flags` must be 0.
  virtual bool exec(const QzbString& sql, int flags) = 0;
  // True when the database was opened read-only (the file or its directory
  // could not be written when it was opened), or is closed to writes with
  // "PRAGMA query_only".
  virtual bool isReadOnly() const = 0;
  // Runs a query without parameters; null on failure (see getErrorMessage).
  virtual SqliteCursor* select(const QzbString& sql) = 0;
  // Row id of the last successful INSERT on this connection.
  virtual int64_t getLastInsertRowId() const = 0;
  // Prepares a statement with "?" parameters; null on failure.
  virtual SqliteStatement* prepare(const QzbString& sql) = 0;
  // Rows changed by the last INSERT, UPDATE or DELETE.
  virtual int getChanges() const = 0;
  // The database's file path ("" for a private in-memory database).
  virtual QzbString getPath() const = 0;
  // How long a statement waits for another connection's lock before it
  // reports SQLITE_BUSY (5). New connections wait for the time in the
  // configuration key "BASE/SQLITE_BUSY_TIMEOUT_MS" when it is set, else
  // 5000 milliseconds.
  virtual void setBusyTimeout(int milliseconds) = 0;

 protected:
  virtual ~SqliteConnection() = default;
};

class QZBASE_EXPORT SqliteStatement {
 public:
  virtual QzbString getErrorMessage() const = 0;
  // Binding; `index` counts parameters from 0. A null QzbString binds NULL.
  virtual void bindNull(int index) = 0;
  virtual void bindText(int index, const QzbString& value) = 0;
  virtual void bindInt(int index, int64_t value) = 0;
  virtual void bindDouble(int index, double value) = 0;
  // Runs the statement to its end (rows are discarded) and resets it, keeping
  // the bindings, so that it can be bound and executed again. True on
  // success. `flags` must be 0.
  virtual bool execute(int flags) = 0;
  // Finalises the statement and destroys this object.
  virtual void release() = 0;
  // Starts the statement as a query; the cursor steps through its rows. Null
  // on failure. Releasing the cursor resets the statement.
  virtual SqliteCursor* executeQuery() = 0;
  // SQLite's primary result code of the last step.
  virtual int getResultCode() const = 0;
  // Resets the statement and clears every binding to NULL.
  virtual void clearBindings() = 0;

 protected:
  virtual ~SqliteStatement() = default;
};

class QZBASE_EXPORT SqliteCursor {
 public:
  // Steps to the next row: 1 when positioned on a row, 0 at the end, -1 on an
  // error (the statement's or connection's message tells which).
  virtual int next() = 0;
  // Column values of the current row; `column` counts from 0. Outside a row or
  // the column range: 0, 0.0 and a null string.
  virtual int getInt(int column) = 0;
  // Ends the cursor and destroys this object.
  virtual void release() = 0;
  virtual int64_t getInt64(int column) = 0;
  virtual double getDouble(int column) = 0;
  // The column as text; SQL NULL gives a null string, numbers their text.
  virtual QzbString getText(int column) = 0;
  virtual bool isNullColumn(int column) = 0;
  virtual int getColumnCount() = 0;
  virtual QzbString getColumnName(int column) = 0;

 protected:
  virtual ~SqliteCursor() = default;
};

// Opens an existing database file (flags QZ_SQLITE_OPEN_READWRITE or
// QZ_SQLITE_OPEN_READONLY). A missing file is an error, never created. Null
// on failure: see getSqliteErrorMessage.
QZBASE_EXPORT SqliteConnection* openSqliteDatabase(const char* path, int flags);
// Creates a new database file, which must not exist yet; the file exists on
// disk when this returns. An empty or null path gives a private in-memory
// database. `flags` must be 0. Null on failure: see getSqliteErrorMessage.
QZBASE_EXPORT SqliteConnection* createSqliteDatabase(const char* path, int flags);
// The reason of the last failed open or create on this thread; "" if none.
QZBASE_EXPORT const char* getSqliteErrorMessage(void);

#endif  // QZBASE_SQLITE_H_
