// Opening and creating the metadata databases: schemas, existing files, the
// in-memory fall-back and cache, and every failure text.
#include "metadata_db.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "qzbase/path.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"

namespace {

const char kVaultLogger[] = "QZ.Repos.Vault";

// The statements every database is made with, then those of each kind.
const std::vector<std::string> kCommonSchema = {
    "CREATE TABLE v_ver(version INTEGER)",
    "CREATE TABLE v_attr (fname text, attr text, seq integer, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9)",
    "CREATE INDEX v_attr_fname ON v_attr(fname)",
    "CREATE INDEX v_attr_seq ON v_attr(seq)",
    "CREATE INDEX v_attr_attr ON v_attr(attr)",
};
const std::vector<std::string> kFixedSchema = {
    "CREATE TABLE v_symlink (fname TEXT, name TEXT)",
    "CREATE TABLE v_object (fname TEXT, name TEXT)",
    "CREATE INDEX v_object_fname ON v_object(fname)",
};
const std::vector<std::string> kCachedSchema = {
    "CREATE TABLE v_file (fname TEXT, tstamp INTEGER, type TEXT, name TEXT)",
    "CREATE INDEX v_file_fname ON v_file(fname)",
};
const std::vector<std::string> kImpactSchema = {
    "CREATE TABLE v_imparcs (id INTEGER PRIMARY KEY ON CONFLICT REPLACE, name TEXT, res_idty TEXT, "
    "res_type TEXT, mod_date TEXT)",
    "CREATE INDEX v_imparcs_idnty ON v_imparcs(res_idty)",
    "CREATE INDEX v_imparcs_name ON v_imparcs(name)",
    "CREATE INDEX v_imparcs_type ON v_imparcs(res_type)",
    "CREATE TABLE v_impadeps (res_id INTEGER, res_used INTEGER, dep_type INTEGER)",
    "CREATE INDEX v_impadeps_res_id ON v_impadeps(res_id)",
    "CREATE INDEX v_impadeps_used ON v_impadeps(res_used)",
    "CREATE TABLE v_impaprop (res_id INTEGER, res_key TEXT, res_val TEXT)",
    "CREATE INDEX v_impaprop_res_id ON v_impaprop(res_id)",
    "CREATE INDEX v_impaprop_key ON v_impaprop(res_key)",
};

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Rows of a query on a database file, read with SQLite directly; each row's
// columns joined with "|".
std::vector<std::string> queryFile(const std::string& path, const char* sql) {
  std::vector<std::string> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot open " << path << ": " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return rows;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << sql << ": " << sqlite3_errmsg(db);
  } else {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      std::string row;
      for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        if (column > 0) row += "|";
        const unsigned char* text = sqlite3_column_text(statement, column);
        row += text != nullptr ? reinterpret_cast<const char*>(text) : "<null>";
      }
      rows.push_back(row);
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return rows;
}

// The same through an open connection of the access layer.
std::vector<std::string> queryConnection(SqliteConnection* connection, const char* sql) {
  std::vector<std::string> rows;
  SqliteCursor* cursor = connection->select(QzbString(sql));
  if (cursor == nullptr) {
    // No gtest assertion here: forked children use this too.
    return {std::string("<select failed: ") + connection->getErrorMessage().asCstr() + ">"};
  }
  while (cursor->next() == 1) {
    std::string row;
    for (int column = 0; column < cursor->getColumnCount(); ++column) {
      if (column > 0) row += "|";
      QzbString text = cursor->getText(column);
      row += text.isNull() ? "<null>" : text.asCstr();
    }
    rows.push_back(row);
  }
  cursor->release();
  return rows;
}

const char kSchemaQuery[] = "SELECT sql FROM sqlite_master ORDER BY rowid";
const char kVersionQuery[] = "SELECT version FROM v_ver";

// Makes a database file with SQLite directly.
void makeDatabaseFile(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
  sqlite3_free(error);
  sqlite3_close(db);
}

std::vector<std::string> listDirectory(const std::string& path) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(path, ec)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Sets "QZVLT/BYPASS" for the life of the object.
class BypassSetting {
 public:
  explicit BypassSetting(const char* value) {
    qzbGetConfigOptions(nullptr)->setOption(QzbString("QZVLT/BYPASS"), QzbString(value));
  }
  ~BypassSetting() { qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS")); }
};

// Limits the memory SQLite may hold to what it holds now plus `extra` bytes,
// for the life of the object. (A limit of 0 would mean no limit: the least
// is one byte.)
class SqliteHeapLimit {
 public:
  explicit SqliteHeapLimit(sqlite3_int64 extra) {
    sqlite3_initialize();
    sqlite3_hard_heap_limit64(std::max<sqlite3_int64>(1, sqlite3_memory_used() + extra));
  }
  ~SqliteHeapLimit() { sqlite3_hard_heap_limit64(0); }
};

// True when SQLite honours a heap limit in this build (it needs its memory
// statistics), so that tests can make it run out of memory.
bool heapLimitWorks() {
  SqliteConnection* connection = nullptr;
  {
    SqliteHeapLimit limit(0);
    connection = createSqliteDatabase("", 0);
  }
  if (connection == nullptr) return true;
  connection->close(0);
  return false;
}

std::string joinPath(const std::string& directory, const char* name) {
  return directory + "/" + name;
}

class MetadataDbTest : public ::testing::Test {
 protected:
  void SetUp() override { qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS")); }

  // Opens `name` in the temporary directory, expecting success.
  SqliteConnection* open(const char* name, QzbString* error = nullptr) {
    SqliteConnection* connection = qzviOpenDB(QzbString(dir_.path().c_str()), name, error, cache_);
    EXPECT_NE(connection, nullptr) << (error != nullptr ? error->asCstr() : "");
    return connection;
  }

  void expectNewFile(const char* name, const std::vector<std::string>& schema,
                     const std::vector<std::string>& versions) {
    QzbString error("untouched");
    SqliteConnection* connection = open(name, &error);
    ASSERT_NE(connection, nullptr);
    EXPECT_STREQ(error.asCstr(), "untouched");
    EXPECT_FALSE(cache_.lookupHandle(connection)) << "a file database is not cached";
    EXPECT_EQ(queryConnection(connection, kSchemaQuery), schema);
    qzviCloseDB(connection, cache_);
    const std::string path = joinPath(dir_.path(), name);
    EXPECT_EQ(queryFile(path, kSchemaQuery), schema);
    EXPECT_EQ(queryFile(path, kVersionQuery), versions);
    EXPECT_EQ(listDirectory(dir_.path()), std::vector<std::string>{name})
        << "no temporary file or journal stays behind";
  }

  qztest::TempDir dir_;
  MemDBCache cache_;
};

// ---------------------------------------------------------------------------
// New databases.

TEST_F(MetadataDbTest, NewFixedMetadataDatabaseHasTheFullSchemaAndVersionOne) {
  expectNewFile(".v_fmd", concat(kCommonSchema, kFixedSchema), {"1"});
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  EXPECT_EQ(queryFile(path, "SELECT group_concat(name, ',') FROM pragma_table_info('v_attr')"),
            std::vector<std::string>{"fname,attr,seq,v0,v1,v2,v3,v4,v5,v6,v7,v8,v9"});
}

TEST_F(MetadataDbTest, NewCachedMetadataDatabaseHasTheFullSchemaAndVersionOne) {
  expectNewFile(".v_cmd", concat(kCommonSchema, kCachedSchema), {"1"});
}

TEST_F(MetadataDbTest, NewImpactDatabaseHasTheFullSchemaAndVersionOne) {
  expectNewFile(".v_imd", concat(kCommonSchema, kImpactSchema), {"1"});
}

TEST_F(MetadataDbTest, OtherFileNameGetsOnlyTheCommonTablesAndNoVersionRow) {
  expectNewFile("other.db", kCommonSchema, {});
}

TEST_F(MetadataDbTest, FileNamesAreComparedExactly) {
  // Letter case matters: ".V_FMD" is not the fixed-metadata database.
  expectNewFile(".V_FMD", kCommonSchema, {});
}

TEST_F(MetadataDbTest, SecondOpenUsesTheFileMadeByTheFirst) {
  SqliteConnection* first = open(".v_fmd");
  ASSERT_NE(first, nullptr);
  ASSERT_TRUE(first->exec(QzbString("INSERT INTO v_object VALUES ('a.job', 'Daily run')"), 0));
  qzviCloseDB(first, cache_);
  SqliteConnection* second = open(".v_fmd");
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(queryConnection(second, "SELECT fname, name FROM v_object"),
            std::vector<std::string>{"a.job|Daily run"});
  EXPECT_EQ(queryConnection(second, kVersionQuery), std::vector<std::string>{"1"});
  qzviCloseDB(second, cache_);
}

// ---------------------------------------------------------------------------
// Existing files are used as they are.

TEST_F(MetadataDbTest, ExistingCachedDatabaseWithVersionSevenOpensUntouched) {
  const std::string path = joinPath(dir_.path(), ".v_cmd");
  makeDatabaseFile(path, "CREATE TABLE v_ver(version INTEGER); INSERT INTO v_ver VALUES (7);");
  QzbString error("untouched");
  SqliteConnection* connection = open(".v_cmd", &error);
  ASSERT_NE(connection, nullptr);
  EXPECT_STREQ(error.asCstr(), "untouched");
  EXPECT_EQ(queryConnection(connection, kVersionQuery), std::vector<std::string>{"7"});
  qzviCloseDB(connection, cache_);
  EXPECT_EQ(queryFile(path, kSchemaQuery),
            std::vector<std::string>{"CREATE TABLE v_ver(version INTEGER)"});
  EXPECT_EQ(queryFile(path, kVersionQuery), std::vector<std::string>{"7"});
}

TEST_F(MetadataDbTest, ExistingDatabaseWithOtherTablesOpensUntouched) {
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  makeDatabaseFile(path, "CREATE TABLE unrelated (a, b); INSERT INTO unrelated VALUES (1, 2);");
  QzbString error("untouched");
  SqliteConnection* connection = open(".v_fmd", &error);
  ASSERT_NE(connection, nullptr);
  EXPECT_STREQ(error.asCstr(), "untouched");
  qzviCloseDB(connection, cache_);
  EXPECT_EQ(queryFile(path, kSchemaQuery), std::vector<std::string>{"CREATE TABLE unrelated (a, b)"});
  EXPECT_EQ(queryFile(path, "SELECT a, b FROM unrelated"), std::vector<std::string>{"1|2"});
}

TEST_F(MetadataDbTest, EmptyExistingFileIsOpenedAsItIs) {
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  qztest::writeFile(path, "");
  SqliteConnection* connection = open(".v_fmd");
  ASSERT_NE(connection, nullptr);
  EXPECT_TRUE(queryConnection(connection, kSchemaQuery).empty());
  qzviCloseDB(connection, cache_);
}

// ---------------------------------------------------------------------------
// Failure texts.

TEST_F(MetadataDbTest, PathThatCannotBeBuiltIsReported) {
  QzbString error;
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), "..", &error, cache_), nullptr);
  EXPECT_EQ(error.toStdString(), "Error building path for " + dir_.path() + " and ..");
  EXPECT_EQ(qzviOpenDB(QzbString(), ".v_fmd", &error, cache_), nullptr);
  EXPECT_EQ(error.toStdString(), "Error building path for  and .v_fmd");
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), nullptr, &error, cache_), nullptr);
  EXPECT_EQ(error.toStdString(), "Error building path for " + dir_.path() + " and ");
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), "..", nullptr, cache_), nullptr);
  EXPECT_TRUE(listDirectory(dir_.path()).empty());
}

TEST_F(MetadataDbTest, ExistingPathThatCannotBeOpenedIsReportedWithoutFallBack) {
  // A directory where the database file should be: it exists, and is
  // refused before SQLite is asked to open it.
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  qztest::makeDirs(path);
  qztest::LogCapture log;
  QzbString error;
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), ".v_fmd", &error, cache_), nullptr);
  EXPECT_EQ(error.toStdString(), "Error opening " + path + ": a directory, not a regular file");
  EXPECT_TRUE(log.contains("Open Sqlite DB " + path + " failed", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
  EXPECT_EQ(cache_.findMemDB(QzbString(path.c_str())), nullptr) << "no in-memory fall-back";
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), ".v_fmd", nullptr, cache_), nullptr);
}

TEST_F(MetadataDbTest, FileThatIsNotADatabaseIsReportedAndLeftAsItIs) {
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  const std::string content = std::string(4096, 'x') + "this is not a database file";
  qztest::writeFile(path, content);
  qztest::LogCapture log;
  QzbString error;
  EXPECT_EQ(qzviOpenDB(QzbString(dir_.path().c_str()), ".v_fmd", &error, cache_), nullptr);
  EXPECT_EQ(error.toStdString(), "Error opening " + path + ": file is not a database");
  EXPECT_TRUE(log.contains("Open Sqlite DB " + path + " failed", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
  EXPECT_EQ(cache_.findMemDB(QzbString(path.c_str())), nullptr) << "no in-memory fall-back";
  EXPECT_EQ(qztest::readFile(path), content);
  EXPECT_EQ(listDirectory(dir_.path()), std::vector<std::string>{".v_fmd"});
}

TEST_F(MetadataDbTest, MissingDirectoryFallsBackToMemory) {
  const std::string missing = dir_.join("missing");
  const std::string path = joinPath(missing, ".v_cmd");
  QzbString error;
  SqliteConnection* connection = qzviOpenDB(QzbString(missing.c_str()), ".v_cmd", &error, cache_);
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(error.toStdString().rfind("Error creating " + path + ": ", 0), 0u) << error.asCstr();
  EXPECT_GT(error.length(), ("Error creating " + path + ": ").size());
  EXPECT_TRUE(cache_.lookupHandle(connection));
  EXPECT_EQ(cache_.findMemDB(QzbString(path.c_str())), connection);
  EXPECT_EQ(queryConnection(connection, kSchemaQuery), concat(kCommonSchema, kCachedSchema));
  EXPECT_FALSE(qztest::pathExists(missing));
}

// ---------------------------------------------------------------------------
// Bypass.

TEST_F(MetadataDbTest, BypassKeepsDatabasesInMemoryAndReusesThem) {
  BypassSetting bypass("1");
  QzbString error("untouched");
  SqliteConnection* first = open(".v_fmd", &error);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(error.asCstr(), "untouched");
  EXPECT_TRUE(listDirectory(dir_.path()).empty()) << "no file is created";
  EXPECT_EQ(queryConnection(first, kSchemaQuery), concat(kCommonSchema, kFixedSchema));
  EXPECT_EQ(queryConnection(first, kVersionQuery), std::vector<std::string>{"1"});
  ASSERT_TRUE(first->exec(QzbString("INSERT INTO v_object VALUES ('a', 'b')"), 0));
  qzviCloseDB(first, cache_);  // stays open: it belongs to the cache

  SqliteConnection* second = open(".v_fmd");
  EXPECT_EQ(second, first);
  EXPECT_EQ(queryConnection(second, "SELECT fname, name FROM v_object"),
            std::vector<std::string>{"a|b"});
  qzviCloseDB(second, cache_);

  SqliteConnection* other = open(".v_cmd");
  EXPECT_NE(other, first);
  EXPECT_EQ(queryConnection(other, kSchemaQuery), concat(kCommonSchema, kCachedSchema));
  EXPECT_TRUE(listDirectory(dir_.path()).empty());
}

TEST_F(MetadataDbTest, AnyNonEmptyBypassValueCounts) {
  BypassSetting bypass("no");
  SqliteConnection* connection = open(".v_imd");
  ASSERT_NE(connection, nullptr);
  EXPECT_TRUE(cache_.lookupHandle(connection));
  EXPECT_TRUE(listDirectory(dir_.path()).empty());
}

TEST_F(MetadataDbTest, EmptyBypassValueLeavesBypassOff) {
  BypassSetting bypass("");
  SqliteConnection* connection = open(".v_fmd");
  ASSERT_NE(connection, nullptr);
  EXPECT_FALSE(cache_.lookupHandle(connection));
  qzviCloseDB(connection, cache_);
  EXPECT_EQ(listDirectory(dir_.path()), std::vector<std::string>{".v_fmd"});
}

TEST_F(MetadataDbTest, BypassIgnoresAnExistingFile) {
  makeDatabaseFile(joinPath(dir_.path(), ".v_fmd"), "CREATE TABLE unrelated (a);");
  BypassSetting bypass("yes");
  SqliteConnection* connection = open(".v_fmd");
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(queryConnection(connection, kSchemaQuery), concat(kCommonSchema, kFixedSchema));
}

// ---------------------------------------------------------------------------
// Read-only directory. The test runs as root on the build machines, and root
// writes anywhere: the opens run in a forked child that first becomes user
// nobody, in a directory owned by root with mode 0555.

TEST_F(MetadataDbTest, ReadOnlyDirectoryGivesAReadOnlyInMemoryDatabase) {
  qztest::makeReachable(dir_.path());
  const std::string readOnly = dir_.join("readonly");
  qztest::makeDirs(readOnly);
  ASSERT_EQ(chmod(readOnly.c_str(), 0555), 0);
  const std::string path = joinPath(readOnly, ".v_fmd");
  const std::string prefix = "Error creating " + path + ": ";

  // Each failed check in the child exits with its own number.
  const int status = qztest::runAsNobody([&]() -> int {
    MemDBCache cache;
    QzbString error;
    SqliteConnection* first = qzviOpenDB(QzbString(readOnly.c_str()), ".v_fmd", &error, cache);
    if (first == nullptr) return 2;
    const std::string text = error.toStdString();
    if (text.rfind(prefix, 0) != 0 || text.size() <= prefix.size()) return 3;
    if (!cache.lookupHandle(first)) return 4;
    if (queryConnection(first, kSchemaQuery) != concat(kCommonSchema, kFixedSchema)) return 5;
    if (queryConnection(first, kVersionQuery) != std::vector<std::string>{"1"}) return 6;
    // Read-only: a row written there would vanish with the process, so the
    // write is refused as in the read-only folder it stands for.
    if (!first->isReadOnly()) return 7;
    if (first->exec(QzbString("INSERT INTO v_object VALUES ('lost', 'x')"), 0)) return 12;
    qzviCloseDB(first, cache);  // stays open in the cache
    QzbString secondError;
    SqliteConnection* second = qzviOpenDB(QzbString(readOnly.c_str()), ".v_fmd", &secondError, cache);
    if (second != first) return 8;
    if (!queryConnection(second, "SELECT fname FROM v_object").empty()) return 9;
    if (secondError.toStdString().rfind(prefix, 0) != 0) return 10;
    if (qztest::pathExists(path)) return 11;
    return 0;
  });
  EXPECT_EQ(status, 0) << "number of the check that failed in the unprivileged child";
  EXPECT_TRUE(listDirectory(readOnly).empty());
}

// ---------------------------------------------------------------------------
// Out of memory: SQLite is given a heap limit so that the in-memory database
// or its schema cannot be made.

TEST_F(MetadataDbTest, InMemoryDatabaseThatCannotBeMadeIsReportedWithMemoryMark) {
  if (!heapLimitWorks()) GTEST_SKIP() << "this SQLite build ignores heap limits";
  BypassSetting bypass("1");
  const std::string path = joinPath(dir_.path(), ".v_fmd");
  QzbString error;
  SqliteConnection* connection = nullptr;
  std::string reason;
  {
    SqliteHeapLimit limit(0);
    connection = qzviOpenDB(QzbString(dir_.path().c_str()), ".v_fmd", &error, cache_);
    reason = getSqliteErrorMessage();
  }
  EXPECT_EQ(connection, nullptr);
  EXPECT_FALSE(reason.empty());
  EXPECT_EQ(error.toStdString(), "Error creating " + path + " (memory): " + reason);
  EXPECT_EQ(cache_.findMemDB(QzbString(path.c_str())), nullptr) << "nothing is entered";
  // Once memory is back the same path works.
  EXPECT_NE(open(".v_fmd"), nullptr);
}

TEST_F(MetadataDbTest, InMemoryFallBackThatCannotBeMadeIsReportedWithoutMark) {
  if (!heapLimitWorks()) GTEST_SKIP() << "this SQLite build ignores heap limits";
  const std::string missing = dir_.join("missing");
  const std::string path = joinPath(missing, ".v_fmd");
  QzbString error;
  SqliteConnection* connection = nullptr;
  std::string reason;
  {
    SqliteHeapLimit limit(0);
    connection = qzviOpenDB(QzbString(missing.c_str()), ".v_fmd", &error, cache_);
    reason = getSqliteErrorMessage();
  }
  EXPECT_EQ(connection, nullptr);
  EXPECT_EQ(error.toStdString(), "Error creating " + path + ": " + reason);
  EXPECT_EQ(cache_.findMemDB(QzbString(path.c_str())), nullptr);
}

// Raises the heap limit step by step until an open fails in a schema
// statement, which shows as a failure that still left an in-memory database
// in the cache (bypass) or as the level-5 report without one (file).
struct SchemaFailure {
  bool found = false;
  std::string path;
  std::string error;
};

SchemaFailure provokeSchemaFailure(const std::string& base, MemDBCache& cache, bool giveError,
                                   bool inMemory, qztest::LogCapture& log) {
  SchemaFailure failure;
  for (int step = 0; step < 4000; ++step) {
    const std::string directory = base + "/probe" + std::to_string(step);
    if (!inMemory) qztest::makeDirs(directory);
    const std::string path = directory + "/.v_imd";
    QzbString error;
    log.clear();
    SqliteConnection* connection = nullptr;
    {
      SqliteHeapLimit limit(static_cast<sqlite3_int64>(step) * 128);
      connection = qzviOpenDB(QzbString(directory.c_str()), ".v_imd", giveError ? &error : nullptr,
                              cache);
    }
    if (connection != nullptr) {
      const bool fallBack = cache.lookupHandle(connection);
      qzviCloseDB(connection, cache);
      // Enough memory for everything: no schema failure was met. (A file
      // that could not be made may still have given an in-memory database.)
      if (inMemory || !fallBack) break;
      continue;
    }
    const bool reported = log.containsFragment("Error creating database \"" + path + "\"");
    const bool cached = cache.findMemDB(QzbString(path.c_str())) != nullptr;
    if (reported && cached == inMemory) {
      failure.found = true;
      failure.path = path;
      failure.error = error.isNull() ? "<null>" : error.toStdString();
      return failure;
    }
  }
  return failure;
}

TEST_F(MetadataDbTest, SchemaFailureInMemoryIsReportedAndTheDatabaseStaysCached) {
  if (!heapLimitWorks()) GTEST_SKIP() << "this SQLite build ignores heap limits";
  BypassSetting bypass("1");
  qztest::LogCapture log;
  SchemaFailure failure = provokeSchemaFailure(dir_.path(), cache_, true, true, log);
  ASSERT_TRUE(failure.found) << "no heap limit made a schema statement fail";
  SqliteConnection* cached = cache_.findMemDB(QzbString(failure.path.c_str()));
  ASSERT_NE(cached, nullptr);
  EXPECT_EQ(failure.error, cached->getErrorMessage().toStdString());
  EXPECT_FALSE(failure.error.empty());
  EXPECT_TRUE(log.contains("Error creating database \"" + failure.path + "\": " + failure.error,
                           QZLOG_ERROR, kVaultLogger))
      << log.dump();
  // The cached database is handed out again as it is.
  const QzbString directory = qzbParsePath(QzbString(failure.path.c_str()), nullptr);
  EXPECT_EQ(qzviOpenDB(directory, ".v_imd", nullptr, cache_), cached);
}

TEST_F(MetadataDbTest, SchemaFailureWithoutErrorOutLogsThePathOnly) {
  if (!heapLimitWorks()) GTEST_SKIP() << "this SQLite build ignores heap limits";
  BypassSetting bypass("1");
  qztest::LogCapture log;
  SchemaFailure failure = provokeSchemaFailure(dir_.path(), cache_, false, true, log);
  ASSERT_TRUE(failure.found) << "no heap limit made a schema statement fail";
  EXPECT_TRUE(log.contains("Error creating database \"" + failure.path + "\"", QZLOG_ERROR,
                           kVaultLogger))
      << log.dump();
}

TEST_F(MetadataDbTest, SchemaFailureOfANewFileLeavesNoFileBehind) {
  if (!heapLimitWorks()) GTEST_SKIP() << "this SQLite build ignores heap limits";
  qztest::LogCapture log;
  SchemaFailure failure = provokeSchemaFailure(dir_.path(), cache_, true, false, log);
  ASSERT_TRUE(failure.found) << "no heap limit made a schema statement of a file fail";
  EXPECT_FALSE(failure.error.empty());
  EXPECT_TRUE(log.contains("Error creating database \"" + failure.path + "\": " + failure.error,
                           QZLOG_ERROR, kVaultLogger))
      << log.dump();
  const std::string directory = failure.path.substr(0, failure.path.rfind('/'));
  EXPECT_TRUE(listDirectory(directory).empty()) << "the half-made file is removed";
}

// ---------------------------------------------------------------------------
// The cache itself.

TEST(MemDBCacheTest, CreateFindLookupAndClose) {
  MemDBCache cache;
  EXPECT_EQ(cache.findMemDB(QzbString("a")), nullptr);
  SqliteConnection* a = cache.createMemDB(QzbString("a"));
  ASSERT_NE(a, nullptr);
  SqliteConnection* b = cache.createMemDB(QzbString("b"));
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(cache.findMemDB(QzbString("a")), a);
  EXPECT_EQ(cache.findMemDB(QzbString("b")), b);
  EXPECT_TRUE(cache.lookupHandle(a));
  EXPECT_TRUE(cache.lookupHandle(b));
  EXPECT_FALSE(cache.lookupHandle(nullptr));
  EXPECT_EQ(a->getPath().toStdString(), "") << "a private database";

  SqliteConnection* outside = createSqliteDatabase("", 0);
  ASSERT_NE(outside, nullptr);
  EXPECT_FALSE(cache.lookupHandle(outside));
  qzviCloseDB(outside, cache);  // closed: it is not the cache's

  qzviCloseDB(a, cache);  // stays open
  EXPECT_TRUE(a->exec(QzbString("CREATE TABLE still_open (x)"), 0));
  qzviCloseDB(nullptr, cache);
}

TEST(MemDBCacheTest, SecondDatabaseUnderTheSamePathIsRefused) {
  MemDBCache cache;
  SqliteConnection* first = cache.createMemDB(QzbString("p"));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(cache.createMemDB(QzbString("p")), nullptr);
  EXPECT_EQ(cache.findMemDB(QzbString("p")), first);
}

}  // namespace
