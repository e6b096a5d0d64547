// The SQLite access layer: connections, statements and cursors over real
// database files in a temporary directory. Read-only cases run in a forked
// child that has dropped to user nobody (tests run as root, which may write
// anything).
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "qzbase/platform.h"
#include "qzbase/sqlite.h"
#include "support/fault_platform.h"
#include "support/privileges.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

struct CloseConnection {
  void operator()(SqliteConnection* c) const {
    if (c != nullptr) c->close(0);
  }
};
using Connection = std::unique_ptr<SqliteConnection, CloseConnection>;

// Sets a configuration key for the duration of a test.
class ConfigKey {
 public:
  ConfigKey(const char* key, const char* value) : key_(key) {
    qzbGetConfigOptions(nullptr)->setOption(key_, QzbString(value));
  }
  ~ConfigKey() { qzbGetConfigOptions(nullptr)->removeOption(key_); }

 private:
  QzbString key_;
};

std::string str(const QzbString& s) { return s.toStdString(); }

Connection createWithTable(const std::string& path) {
  Connection c(createSqliteDatabase(path.c_str(), 0));
  EXPECT_NE(nullptr, c) << getSqliteErrorMessage();
  if (c != nullptr) {
    EXPECT_TRUE(c->exec("CREATE TABLE t (a INTEGER, b TEXT, c REAL)", 0))
        << str(c->getErrorMessage());
  }
  return c;
}

// ---------------------------------------------------------------------------
// Create and open.

TEST(SqliteCreate, TheFileExistsWhenCreateReturns) {
  TempDir dir;
  std::string path = dir.join(".v_fmd");
  Connection c(createSqliteDatabase(path.c_str(), 0));
  ASSERT_NE(nullptr, c) << getSqliteErrorMessage();
  EXPECT_TRUE(qztest::pathExists(path));
  EXPECT_EQ(path, str(c->getPath()));
  EXPECT_FALSE(c->isReadOnly());
  EXPECT_EQ("not an error", str(c->getErrorMessage()));
  EXPECT_EQ(QZ_SQLITE_OK, c->getResultCode());
}

TEST(SqliteCreate, AnExistingFileIsNotOverwritten) {
  TempDir dir;
  std::string path = dir.join("db");
  qztest::writeFile(path, "keep me");
  EXPECT_EQ(nullptr, createSqliteDatabase(path.c_str(), 0));
  EXPECT_STREQ("File exists", getSqliteErrorMessage());
  EXPECT_EQ("keep me", qztest::readFile(path));
}

TEST(SqliteCreate, MissingDirectoryFails) {
  TempDir dir;
  EXPECT_EQ(nullptr, createSqliteDatabase(dir.join("none/db").c_str(), 0));
  EXPECT_STREQ("No such file or directory", getSqliteErrorMessage());
}

TEST(SqliteCreate, ReadOnlyDirectoryFailsAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());  // 0755, owned by the test user
  std::string path = dir.join("db");
  int status = qztest::runAsNobody([&] {
    SqliteConnection* c = createSqliteDatabase(path.c_str(), 0);
    if (c != nullptr) {
      c->close(0);
      return 1;
    }
    return std::string(getSqliteErrorMessage()) == "Permission denied" ? 0 : 2;
  });
  EXPECT_EQ(0, status);
  EXPECT_FALSE(qztest::pathExists(path));
}

TEST(SqliteCreate, FlagsMustBeZero) {
  TempDir dir;
  EXPECT_EQ(nullptr, createSqliteDatabase(dir.join("db").c_str(), 2));
  EXPECT_STREQ("unsupported create flags", getSqliteErrorMessage());
  EXPECT_FALSE(qztest::pathExists(dir.join("db")));
}

TEST(SqliteCreate, FailureOfThePlatformCreateIsReported) {
  TempDir dir;
  std::string path = dir.join("db");
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioOpen, 1, NP_ERR_NO_SPACE);
  EXPECT_EQ(nullptr, createSqliteDatabase(path.c_str(), 0));
  EXPECT_STREQ("No space left on device", getSqliteErrorMessage());
  EXPECT_FALSE(qztest::pathExists(path));
  EXPECT_EQ(1, faults.failuresInjected());
}

TEST(SqliteCreate, EmptyPathGivesAPrivateInMemoryDatabase) {
  TempDir dir;
  Connection first(createSqliteDatabase("", 0));
  Connection second(createSqliteDatabase(nullptr, 0));
  ASSERT_NE(nullptr, first);
  ASSERT_NE(nullptr, second);
  EXPECT_EQ("", str(first->getPath()));
  EXPECT_FALSE(first->isReadOnly());
  ASSERT_TRUE(first->exec("CREATE TABLE only_here (x)", 0));
  ASSERT_TRUE(first->exec("INSERT INTO only_here VALUES (1)", 0));
  // The second database is separate from the first.
  EXPECT_FALSE(second->exec("INSERT INTO only_here VALUES (1)", 0));
  EXPECT_EQ("no such table: only_here", str(second->getErrorMessage()));
}

TEST(SqliteOpen, MissingFileFailsAndIsNotCreated) {
  TempDir dir;
  std::string path = dir.join("missing.db");
  EXPECT_EQ(nullptr, openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE));
  EXPECT_STREQ("unable to open database file", getSqliteErrorMessage());
  EXPECT_EQ(nullptr, openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READONLY));
  EXPECT_STREQ("unable to open database file", getSqliteErrorMessage());
  EXPECT_FALSE(qztest::pathExists(path));
}

TEST(SqliteOpen, BadArguments) {
  EXPECT_EQ(nullptr, openSqliteDatabase(nullptr, QZ_SQLITE_OPEN_READWRITE));
  EXPECT_STREQ("no database path given", getSqliteErrorMessage());
  EXPECT_EQ(nullptr, openSqliteDatabase("", QZ_SQLITE_OPEN_READWRITE));
  TempDir dir;
  createWithTable(dir.join("db"));
  EXPECT_EQ(nullptr, openSqliteDatabase(dir.join("db").c_str(), 7));
  EXPECT_STREQ("unsupported open flags", getSqliteErrorMessage());
}

TEST(SqliteOpen, ReopensWhatWasWritten) {
  TempDir dir;
  std::string path = dir.join("db");
  {
    Connection c = createWithTable(path);
    ASSERT_TRUE(c->exec("INSERT INTO t VALUES (7, 'seven', 7.5)", 0));
  }
  Connection c(openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE));
  ASSERT_NE(nullptr, c) << getSqliteErrorMessage();
  EXPECT_FALSE(c->isReadOnly());
  EXPECT_EQ(path, str(c->getPath()));
  SqliteCursor* cursor = c->select("SELECT a, b FROM t");
  ASSERT_NE(nullptr, cursor);
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(7, cursor->getInt(0));
  EXPECT_EQ("seven", str(cursor->getText(1)));
  cursor->release();
}

TEST(SqliteOpen, AFileThatIsNotADatabaseFailsAtOpen) {
  TempDir dir;
  std::string path = dir.join("notes.txt");
  qztest::writeFile(path, std::string(2048, 'n'));
  EXPECT_EQ(nullptr, openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE));
  EXPECT_STREQ("file is not a database", getSqliteErrorMessage());
  EXPECT_EQ(std::string(2048, 'n'), qztest::readFile(path));
}

TEST(SqliteOpen, ErrorMessagesArePerThread) {
  TempDir dir;
  qztest::writeFile(dir.join("exists"), "");
  EXPECT_EQ(nullptr, createSqliteDatabase(dir.join("exists").c_str(), 0));
  EXPECT_STREQ("File exists", getSqliteErrorMessage());
  std::string seenFresh;
  std::string seenAfter;
  std::thread other([&] {
    seenFresh = getSqliteErrorMessage();
    openSqliteDatabase(dir.join("missing").c_str(), QZ_SQLITE_OPEN_READWRITE);
    seenAfter = getSqliteErrorMessage();
  });
  other.join();
  EXPECT_EQ("", seenFresh);
  EXPECT_EQ("unable to open database file", seenAfter);
  EXPECT_STREQ("File exists", getSqliteErrorMessage());
}

// ---------------------------------------------------------------------------
// Read-only databases.

TEST(SqliteReadOnly, OpenedReadOnlyRefusesWrites) {
  TempDir dir;
  std::string path = dir.join("db");
  createWithTable(path);
  Connection c(openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READONLY));
  ASSERT_NE(nullptr, c) << getSqliteErrorMessage();
  EXPECT_TRUE(c->isReadOnly());
  EXPECT_FALSE(c->exec("INSERT INTO t (a) VALUES (1)", 0));
  EXPECT_EQ(QZ_SQLITE_READONLY, c->getResultCode());
  EXPECT_EQ("attempt to write a readonly database", str(c->getErrorMessage()));
  // Reading still works.
  SqliteCursor* cursor = c->select("SELECT count(*) FROM t");
  ASSERT_NE(nullptr, cursor);
  EXPECT_EQ(1, cursor->next());
  EXPECT_EQ(0, cursor->getInt(0));
  cursor->release();
}

// The child runs as nobody: a file owned by the test user with mode 0644 is
// not writable for it, and the read-write open falls back to read-only.
TEST(SqliteReadOnly, UnwritableFileOpensReadOnlyAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string path = dir.join("db");
  createWithTable(path);
  chmod(path.c_str(), 0644);
  int status = qztest::runAsNobody([&] {
    SqliteConnection* c = openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE);
    if (c == nullptr) return 1;
    int result = 0;
    if (!c->isReadOnly()) result = 2;
    if (result == 0 && c->exec("INSERT INTO t (a) VALUES (1)", 0)) result = 3;
    if (result == 0 && c->getResultCode() != QZ_SQLITE_READONLY) result = 4;
    c->close(0);
    return result;
  });
  EXPECT_EQ(0, status);
}

// The child runs as nobody and owns the file, but the directory (the test
// user's, mode 0755) cannot take a journal: the connection reports itself
// read-only rather than failing on the first write.
TEST(SqliteReadOnly, UnwritableDirectoryOpensReadOnlyAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string path = dir.join("db");
  createWithTable(path);
  ASSERT_EQ(0, chown(path.c_str(), qztest::kNobodyId, qztest::kNobodyId));
  chmod(path.c_str(), 0644);
  int status = qztest::runAsNobody([&] {
    SqliteConnection* c = openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE);
    if (c == nullptr) return 1;
    int result = c->isReadOnly() ? 0 : 2;
    if (result == 0 && c->exec("INSERT INTO t (a) VALUES (1)", 0)) result = 3;
    c->close(0);
    return result;
  });
  EXPECT_EQ(0, status);
}

TEST(SqliteReadOnly, WritableFileAndDirectoryOpenReadWriteAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string sub = dir.join("open");
  qztest::makeDirs(sub);
  ASSERT_EQ(0, chown(sub.c_str(), qztest::kNobodyId, qztest::kNobodyId));
  std::string path = sub + "/db";
  createWithTable(path);
  ASSERT_EQ(0, chown(path.c_str(), qztest::kNobodyId, qztest::kNobodyId));
  int status = qztest::runAsNobody([&] {
    SqliteConnection* c = openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE);
    if (c == nullptr) return 1;
    int result = c->isReadOnly() ? 2 : 0;
    if (result == 0 && !c->exec("INSERT INTO t (a) VALUES (1)", 0)) result = 3;
    c->close(0);
    return result;
  });
  EXPECT_EQ(0, status);
}

// ---------------------------------------------------------------------------
// exec and select.

TEST(SqliteExec, SeveralStatementsAndFailures) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  EXPECT_TRUE(c->exec("CREATE TABLE x (v); INSERT INTO x VALUES (1); INSERT INTO x VALUES (2)", 0));
  EXPECT_EQ(QZ_SQLITE_OK, c->getResultCode());
  EXPECT_EQ(2, c->getLastInsertRowId());
  EXPECT_FALSE(c->exec("SELEC 1", 0));
  EXPECT_EQ(QZ_SQLITE_ERROR, c->getResultCode());
  EXPECT_EQ("near \"SELEC\": syntax error", str(c->getErrorMessage()));
  // The message of the last failure outlives a later success.
  EXPECT_TRUE(c->exec("DELETE FROM x", 0));
  EXPECT_EQ(QZ_SQLITE_OK, c->getResultCode());
  EXPECT_EQ("near \"SELEC\": syntax error", str(c->getErrorMessage()));
  EXPECT_EQ(2, c->getChanges());
  EXPECT_FALSE(c->exec("DELETE FROM x", 1));
  EXPECT_EQ("unsupported exec flags", str(c->getErrorMessage()));
}

TEST(SqliteSelect, RowsColumnsAndValues) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a INTEGER, b TEXT, c REAL);"
                      "INSERT INTO t VALUES (1, 'one', 1.5);"
                      "INSERT INTO t VALUES (5000000000, NULL, -2.25)", 0));
  SqliteCursor* cursor = c->select("SELECT a, b, c AS third FROM t ORDER BY a");
  ASSERT_NE(nullptr, cursor) << str(c->getErrorMessage());
  EXPECT_EQ(3, cursor->getColumnCount());
  EXPECT_EQ("a", str(cursor->getColumnName(0)));
  EXPECT_EQ("third", str(cursor->getColumnName(2)));
  EXPECT_TRUE(cursor->getColumnName(3).isNull());
  EXPECT_TRUE(cursor->getColumnName(-1).isNull());
  // Before the first row there are no values.
  EXPECT_TRUE(cursor->getText(0).isNull());
  EXPECT_EQ(0, cursor->getInt(0));

  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  EXPECT_EQ(1, cursor->getInt64(0));
  EXPECT_EQ("1", str(cursor->getText(0)));
  EXPECT_EQ("one", str(cursor->getText(1)));
  EXPECT_FALSE(cursor->isNullColumn(1));
  EXPECT_DOUBLE_EQ(1.5, cursor->getDouble(2));
  EXPECT_EQ("1.5", str(cursor->getText(2)));

  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(5000000000LL, cursor->getInt64(0));
  EXPECT_TRUE(cursor->getText(1).isNull());
  EXPECT_TRUE(cursor->isNullColumn(1));
  EXPECT_EQ(0, cursor->getInt(1));
  EXPECT_DOUBLE_EQ(-2.25, cursor->getDouble(2));
  // Outside the column range.
  EXPECT_TRUE(cursor->getText(3).isNull());
  EXPECT_TRUE(cursor->getText(-1).isNull());
  EXPECT_EQ(0, cursor->getInt(3));
  EXPECT_EQ(0, cursor->getInt64(-1));
  EXPECT_DOUBLE_EQ(0.0, cursor->getDouble(9));

  EXPECT_EQ(0, cursor->next());
  EXPECT_EQ(QZ_SQLITE_DONE, c->getResultCode());
  EXPECT_EQ(0, cursor->next());  // stays at the end, never starts over
  EXPECT_TRUE(cursor->getText(0).isNull());
  cursor->release();
}

TEST(SqliteSelect, FailuresGiveNull) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  EXPECT_EQ(nullptr, c->select("SELECT * FROM nowhere"));
  EXPECT_EQ(QZ_SQLITE_ERROR, c->getResultCode());
  EXPECT_EQ("no such table: nowhere", str(c->getErrorMessage()));
  EXPECT_EQ(nullptr, c->select("   -- nothing but a comment"));
  EXPECT_EQ("no SQL statement in the text", str(c->getErrorMessage()));
  EXPECT_EQ(nullptr, c->prepare(""));
}

TEST(SqliteSelect, AStepErrorEndsTheCursorWithMinusOne) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  SqliteCursor* cursor = c->select("SELECT abs(-9223372036854775807 - 1)");
  ASSERT_NE(nullptr, cursor);
  EXPECT_EQ(-1, cursor->next());
  EXPECT_EQ(QZ_SQLITE_ERROR, c->getResultCode());
  EXPECT_EQ("integer overflow", str(c->getErrorMessage()));
  EXPECT_EQ(-1, cursor->next());
  cursor->release();
}

// ---------------------------------------------------------------------------
// Prepared statements.

TEST(SqliteStatement, BindExecuteAndReuse) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a INTEGER, b TEXT, c REAL)", 0));
  SqliteStatement* insert = c->prepare("INSERT INTO t (a, b, c) VALUES (?, ?, ?)");
  ASSERT_NE(nullptr, insert) << str(c->getErrorMessage());
  // Index 0 is the first "?".
  insert->bindInt(0, 1);
  insert->bindText(1, QzbString("first"));
  insert->bindDouble(2, 0.5);
  ASSERT_TRUE(insert->execute(0)) << str(insert->getErrorMessage());
  EXPECT_EQ(QZ_SQLITE_DONE, insert->getResultCode());
  EXPECT_EQ(1, c->getLastInsertRowId());
  insert->bindInt(0, 9000000000LL);
  insert->bindText(1, QzbString());  // a null string binds NULL
  insert->bindNull(2);
  ASSERT_TRUE(insert->execute(0));
  EXPECT_EQ(2, c->getLastInsertRowId());
  EXPECT_EQ(1, c->getChanges());
  // Bindings are kept between executions.
  ASSERT_TRUE(insert->execute(0));
  EXPECT_EQ(3, c->getLastInsertRowId());
  insert->release();

  SqliteCursor* cursor = c->select("SELECT a, b, c FROM t ORDER BY rowid");
  ASSERT_NE(nullptr, cursor);
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  EXPECT_EQ("first", str(cursor->getText(1)));
  EXPECT_DOUBLE_EQ(0.5, cursor->getDouble(2));
  for (int row = 0; row < 2; ++row) {
    ASSERT_EQ(1, cursor->next());
    EXPECT_EQ(9000000000LL, cursor->getInt64(0));
    EXPECT_TRUE(cursor->isNullColumn(1));
    EXPECT_TRUE(cursor->isNullColumn(2));
  }
  EXPECT_EQ(0, cursor->next());
  cursor->release();

  SqliteStatement* update = c->prepare("UPDATE t SET b = ? WHERE a = ?");
  ASSERT_NE(nullptr, update);
  update->bindText(0, QzbString("big"));
  update->bindInt(1, 9000000000LL);
  ASSERT_TRUE(update->execute(0));
  EXPECT_EQ(2, c->getChanges());
  update->release();
}

TEST(SqliteStatement, TextKeepsEveryByte) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (b TEXT)", 0));
  SqliteStatement* insert = c->prepare("INSERT INTO t VALUES (?)");
  ASSERT_NE(nullptr, insert);
  QzbString value = QzbString::fromBytes("a\0b\xC3\xA9", 5);
  insert->bindText(0, value);
  ASSERT_TRUE(insert->execute(0));
  insert->bindText(0, QzbString(""));
  ASSERT_TRUE(insert->execute(0));
  insert->release();
  SqliteCursor* cursor = c->select("SELECT b FROM t ORDER BY rowid");
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(value, cursor->getText(0));
  ASSERT_EQ(1, cursor->next());
  EXPECT_FALSE(cursor->getText(0).isNull());  // empty, not NULL
  EXPECT_EQ(0u, cursor->getText(0).length());
  cursor->release();
}

TEST(SqliteStatement, ClearBindingsMakesEveryParameterNull) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a, b)", 0));
  SqliteStatement* insert = c->prepare("INSERT INTO t VALUES (?, ?)");
  insert->bindInt(0, 1);
  insert->bindInt(1, 2);
  insert->clearBindings();
  ASSERT_TRUE(insert->execute(0));
  insert->release();
  SqliteCursor* cursor = c->select("SELECT a IS NULL AND b IS NULL FROM t");
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  cursor->release();
}

TEST(SqliteStatement, ABadBindIndexFailsTheNextExecution) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a)", 0));
  SqliteStatement* insert = c->prepare("INSERT INTO t VALUES (?)");
  insert->bindInt(0, 1);
  insert->bindInt(1, 2);  // there is no second parameter
  EXPECT_FALSE(insert->execute(0));
  EXPECT_EQ("bind index out of range", str(insert->getErrorMessage()));
  EXPECT_EQ("bind index out of range", str(c->getErrorMessage()));
  EXPECT_EQ(25, insert->getResultCode());  // SQLITE_RANGE
  // Reported once; the statement then runs with what was bound.
  EXPECT_TRUE(insert->execute(0));
  insert->bindNull(-1);
  EXPECT_EQ(nullptr, insert->executeQuery());
  EXPECT_EQ("bind index out of range", str(insert->getErrorMessage()));
  insert->release();
  SqliteCursor* cursor = c->select("SELECT count(*) FROM t");
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  cursor->release();
}

TEST(SqliteStatement, FailedExecutionReportsTheConstraint) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a UNIQUE)", 0));
  SqliteStatement* insert = c->prepare("INSERT INTO t VALUES (?)");
  insert->bindInt(0, 1);
  ASSERT_TRUE(insert->execute(0));
  EXPECT_FALSE(insert->execute(0));
  EXPECT_EQ(19, insert->getResultCode());  // SQLITE_CONSTRAINT
  EXPECT_EQ(19, c->getResultCode());
  EXPECT_EQ("UNIQUE constraint failed: t.a", str(insert->getErrorMessage()));
  EXPECT_EQ("UNIQUE constraint failed: t.a", str(c->getErrorMessage()));
  // The statement was reset and can run again with another value.
  insert->bindInt(0, 2);
  EXPECT_TRUE(insert->execute(0));
  EXPECT_FALSE(insert->execute(1));
  insert->release();
}

TEST(SqliteStatement, ExecuteQueryCursorsResetOnRelease) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a, b);"
                      "INSERT INTO t VALUES (1, 'x'); INSERT INTO t VALUES (2, 'y');"
                      "INSERT INTO t VALUES (3, 'y')", 0));
  SqliteStatement* query = c->prepare("SELECT a FROM t WHERE b = ? ORDER BY a");
  ASSERT_NE(nullptr, query);
  query->bindText(0, QzbString("y"));
  SqliteCursor* cursor = query->executeQuery();
  ASSERT_NE(nullptr, cursor);
  EXPECT_EQ(1, cursor->getColumnCount());
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(2, cursor->getInt(0));
  EXPECT_EQ(QZ_SQLITE_ROW, query->getResultCode());
  // The statement cannot run again while its cursor is out.
  EXPECT_FALSE(query->execute(0));
  EXPECT_EQ("statement is in use by a cursor", str(query->getErrorMessage()));
  EXPECT_EQ(nullptr, query->executeQuery());
  cursor->release();  // mid-way: the statement is reset

  query->bindText(0, QzbString("x"));
  cursor = query->executeQuery();
  ASSERT_NE(nullptr, cursor);
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  EXPECT_EQ(0, cursor->next());
  cursor->release();

  // Bindings survive the cursor: the same query runs again.
  cursor = query->executeQuery();
  ASSERT_EQ(1, cursor->next());
  EXPECT_EQ(1, cursor->getInt(0));
  cursor->release();
  query->release();
}

TEST(SqliteStatement, ReleasingTheStatementEndsItsCursor) {
  Connection c(createSqliteDatabase("", 0));
  ASSERT_NE(nullptr, c);
  ASSERT_TRUE(c->exec("CREATE TABLE t (a); INSERT INTO t VALUES (1)", 0));
  SqliteStatement* query = c->prepare("SELECT a FROM t");
  SqliteCursor* cursor = query->executeQuery();
  ASSERT_NE(nullptr, cursor);
  query->release();
  EXPECT_EQ(-1, cursor->next());
  EXPECT_TRUE(cursor->getText(0).isNull());
  EXPECT_EQ(0, cursor->getColumnCount());
  cursor->release();
}

// ---------------------------------------------------------------------------
// Locking between connections.

TEST(SqliteBusy, ASecondWriterGetsBusyAtOnceWithTimeoutZero) {
  TempDir dir;
  std::string path = dir.join("db");
  Connection holder = createWithTable(path);
  ASSERT_NE(nullptr, holder);
  Connection other(openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE));
  ASSERT_NE(nullptr, other) << getSqliteErrorMessage();
  other->setBusyTimeout(0);
  ASSERT_TRUE(holder->exec("BEGIN IMMEDIATE TRANSACTION", 0));
  EXPECT_FALSE(other->exec("BEGIN IMMEDIATE TRANSACTION", 0));
  EXPECT_EQ(QZ_SQLITE_BUSY, other->getResultCode());
  EXPECT_EQ("database is locked", str(other->getErrorMessage()));
  ASSERT_TRUE(holder->exec("COMMIT TRANSACTION", 0));
  EXPECT_TRUE(other->exec("BEGIN IMMEDIATE TRANSACTION", 0));
  EXPECT_TRUE(other->exec("COMMIT TRANSACTION", 0));
}

TEST(SqliteBusy, TheConfiguredTimeoutAppliesToNewConnections) {
  TempDir dir;
  std::string path = dir.join("db");
  Connection holder = createWithTable(path);
  ASSERT_NE(nullptr, holder);
  ASSERT_TRUE(holder->exec("BEGIN IMMEDIATE TRANSACTION", 0));
  for (const char* value : {"0", "50"}) {
    ConfigKey key("BASE/SQLITE_BUSY_TIMEOUT_MS", value);
    Connection other(openSqliteDatabase(path.c_str(), QZ_SQLITE_OPEN_READWRITE));
    ASSERT_NE(nullptr, other) << getSqliteErrorMessage();
    EXPECT_FALSE(other->exec("BEGIN IMMEDIATE TRANSACTION", 0)) << value;
    EXPECT_EQ(QZ_SQLITE_BUSY, other->getResultCode()) << value;
    // A statement step that meets the lock reports busy as well.
    SqliteStatement* insert = other->prepare("INSERT INTO t (a) VALUES (1)");
    ASSERT_NE(nullptr, insert);
    EXPECT_FALSE(insert->execute(0));
    EXPECT_EQ(QZ_SQLITE_BUSY, insert->getResultCode());
    EXPECT_EQ(QZ_SQLITE_BUSY, other->getResultCode());
    insert->release();
  }
  ASSERT_TRUE(holder->exec("ROLLBACK TRANSACTION", 0));
}

}  // namespace
