// The cached-metadata refresh of a folder and of one file, addToCache and the
// content-changed announcements.
#include "cache_refresh.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "qzbase/events.h"
#include "qzbase/platform.h"
#include "qzbase/uri.h"
#include "qzvault/vault.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"

namespace {

using qztest::TempDir;
using Cell = std::optional<std::string>;
using Rows = std::vector<std::vector<Cell>>;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

// ---------------------------------------------------------------------------
// A connection on the side, opened by the test with SQLite itself.

Rows query(const std::string& database, const std::string& sql) {
  Rows rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot open " << database;
    sqlite3_close(db);
    return rows;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot prepare " << sql << ": " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return rows;
  }
  while (sqlite3_step(statement) == SQLITE_ROW) {
    std::vector<Cell> row;
    for (int c = 0; c < sqlite3_column_count(statement); ++c) {
      if (sqlite3_column_type(statement, c) == SQLITE_NULL) {
        row.push_back(std::nullopt);
      } else {
        row.push_back(std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, c))));
      }
    }
    rows.push_back(row);
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return rows;
}

void execute(const std::string& database, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  char* message = nullptr;
  const int result = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message);
  EXPECT_EQ(result, SQLITE_OK) << (message != nullptr ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

// ---------------------------------------------------------------------------
// A vault that only answers getUUID, counting the calls.

class FakeVault final : public QzvVault {
 public:
  explicit FakeVault(const char* uuid) : uuid_(uuid) {}
  ~FakeVault() override = default;
  void release() override {}
  QzbString getErrorMessage() override { return QzbString(); }
  QzvFolder* getRootFolder() override { return nullptr; }
  QzvFolder* getStockFolder(int, bool) override { return nullptr; }
  QzvObject* getStockObject(int, const QzbString&) override { return nullptr; }
  QzbString buildPath(const QzbString&, const QzbString&) override { return QzbString(); }
  QzbString parsePath(const QzbString&, QzbString*) override { return QzbString(); }
  QzvImpactAnalysis* getImpactAnalysis() override { return nullptr; }
  QzbString getUUID() override {
    ++uuidCalls;
    return uuid_;
  }
  bool resetUUID(const QzbString&) override { return false; }
  int getPluginCount() override { return 0; }
  bool getPluginInfo(int, QzbString*, QzbString*) override { return false; }
  QzvVaultCheck* getVaultCheck() override { return nullptr; }
  bool getFileSystem(QzbString*, bool*, bool*) override { return false; }

  int uuidCalls = 0;

 private:
  QzbString uuid_;
};

struct Event {
  std::string repositoryId;
  std::string reference;
  int changeType;
  bool secondIsNull;
  std::string second;
};

// Registered on the process's event manager for its lifetime.
class RecordingListener final : public RepositoryListener {
 public:
  RecordingListener() { getRepositoryEventManager()->addListener(this); }
  ~RecordingListener() override { getRepositoryEventManager()->removeListener(this); }
  void contentChanged(const QzbString& repositoryId, const QzbString& reference,
                      RepositoryObjectChangeType changeType,
                      const QzbString& secondReference) override {
    events.push_back(Event{repositoryId.toStdString(), reference.toStdString(),
                           static_cast<int>(changeType), secondReference.isNull(),
                           secondReference.toStdString()});
  }
  std::vector<Event> events;
};

// ---------------------------------------------------------------------------
// Platform faults tied to one path: a stat that fails, and a file that
// vanishes right after the listing has returned it.

struct PathFaults {
  std::string failStatPath;
  int failStatCode = NP_ERR_ACCESS;
  std::string vanishPath;
};
PathFaults* g_pathFaults = nullptr;

int faultyStat(const char* path, NpStat* st) {
  if (g_pathFaults != nullptr && path != nullptr && g_pathFaults->failStatPath == path) {
    return g_pathFaults->failStatCode;
  }
  return npDefaultPlatformOps()->fio_stat(path, st);
}

int vanishingDirNextStat(NpDir* handle, char* name, std::size_t length, NpDirEntry* entry) {
  const int result = npDefaultPlatformOps()->dir_next_stat(handle, name, length, entry);
  if (result == NP_OK && g_pathFaults != nullptr && g_pathFaults->vanishPath == name) {
    unlink(name);
  }
  return result;
}

class PathFaultPlatform {
 public:
  PathFaultPlatform() : table_(*npDefaultPlatformOps()) {
    table_.fio_stat = faultyStat;
    table_.dir_next_stat = vanishingDirNextStat;
    g_pathFaults = &faults;
    previous_ = npSetPlatformOps(&table_);
  }
  ~PathFaultPlatform() {
    npSetPlatformOps(previous_);
    g_pathFaults = nullptr;
  }
  PathFaults faults;

 private:
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

// Keeps every metadata database in memory while it lives.
class BypassSetting {
 public:
  BypassSetting() { qzbGetConfigOptions(nullptr)->setOption(S("QZVLT/BYPASS"), S("1")); }
  ~BypassSetting() { qzbGetConfigOptions(nullptr)->removeOption(S("QZVLT/BYPASS")); }
};

// ---------------------------------------------------------------------------

class CacheRefreshTest : public ::testing::Test {
 protected:
  void SetUp() override { qzbGetConfigOptions(nullptr)->removeOption(S("QZVLT/BYPASS")); }

  std::string cmd() const { return dir_.join(".v_cmd"); }
  std::string file(const std::string& name) const { return dir_.join(name); }

  bool refresh(QzvVault* vault = nullptr) {
    error_ = QzbString();
    return qzviRefreshCachedAttributes(S(dir_.path()), plugins_.get(), &error_, cache_, vault);
  }
  bool refreshFile(const std::string& name, bool force = false) {
    error_ = QzbString();
    return qzviRefreshCachedFileAttributes(S(file(name)), plugins_.get(), &error_, cache_, force);
  }

  // fname, tstamp, type, name of every v_file row, by name.
  Rows fileRows() { return query(cmd(), "SELECT fname, tstamp, type, name FROM v_file ORDER BY fname"); }
  Rows fileRow(const std::string& name) {
    return query(cmd(), "SELECT tstamp, type, name FROM v_file WHERE fname = '" + name + "'");
  }
  // attr, seq, v0..v9 of one file, by attribute and row.
  Rows attrRows(const std::string& name) {
    return query(cmd(),
                 "SELECT attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr WHERE fname = '" +
                     name + "' ORDER BY attr, seq");
  }
  std::optional<std::string> dateRow(const std::string& name, const std::string& attribute) {
    Rows rows = query(cmd(), "SELECT v0 FROM v_attr WHERE fname = '" + name + "' AND attr = '" +
                                 attribute + "' AND seq = 0");
    if (rows.size() != 1) return std::nullopt;
    return rows[0][0];
  }
  std::string reference(const std::string& name) {
    return generateURIReferenceFromFilename(S(file(name))).toStdString();
  }

  TempDir dir_;
  qztest::TestMetaRegistry plugins_;
  MemDBCache cache_;
  QzbString error_;
};

// ---------------------------------------------------------------------------
// New files

TEST_F(CacheRefreshTest, NewFileWithoutPluginGetsFileRowAndDateRows) {
  qztest::writeFile(file("plain.txt"), "hello");
  qztest::setMtime(file("plain.txt"), 1600000000);
  ASSERT_TRUE(refresh()) << error_.asCstr();

  Rows rows = fileRow("plain.txt");
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("1600000000"));
  EXPECT_EQ(rows[0][1], std::nullopt);  // type
  EXPECT_EQ(rows[0][2], std::nullopt);  // name

  struct stat st;
  ASSERT_EQ(stat(file("plain.txt").c_str(), &st), 0);
  Rows attrs = attrRows("plain.txt");
  ASSERT_EQ(attrs.size(), 2u);
  EXPECT_EQ(attrs[0][0], Cell("_CREATIONDATE"));
  EXPECT_EQ(attrs[0][1], Cell("0"));
  EXPECT_EQ(attrs[0][2], Cell(std::to_string(static_cast<unsigned long>(st.st_ctime))));
  EXPECT_EQ(attrs[1][0], Cell("_MODIFIEDDATE"));
  EXPECT_EQ(attrs[1][1], Cell("0"));
  EXPECT_EQ(attrs[1][2], Cell("1600000000"));
  for (const auto& row : attrs) {
    for (std::size_t c = 3; c < row.size(); ++c) EXPECT_EQ(row[c], std::nullopt);
  }
  EXPECT_EQ(query(cmd(), "SELECT typeof(v0) FROM v_attr")[0][0], Cell("text"));
  EXPECT_EQ(query(cmd(), "SELECT typeof(tstamp) FROM v_file")[0][0], Cell("integer"));
}

TEST_F(CacheRefreshTest, PluginFileGetsTypeNameAndAttributes) {
  qztest::writeFile(file("a.tmeta"),
                    "name Daily sales load\n"
                    "attr Owner 0 0 alice\n"
                    "attr Steps 0 0 extract\n"
                    "attr Steps 0 1 first step\n"
                    "attr Steps 1 0 load\n");
  qztest::writeFile(file("b.job.def"), "name Nightly job\n");
  qztest::writeFile(file("c.RPT.DEF"), "# a report without a name\n");
  ASSERT_TRUE(refresh()) << error_.asCstr();

  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0][0], Cell("a.tmeta"));
  EXPECT_EQ(rows[0][2], Cell("TestMeta"));
  EXPECT_EQ(rows[0][3], Cell("Daily sales load"));
  EXPECT_EQ(rows[1][2], Cell("TestJob"));
  EXPECT_EQ(rows[1][3], Cell("Nightly job"));
  EXPECT_EQ(rows[2][2], Cell("TestReport"));
  EXPECT_EQ(rows[2][3], std::nullopt);  // the plug-in knows no name

  Rows attrs = attrRows("a.tmeta");
  ASSERT_EQ(attrs.size(), 5u);
  EXPECT_EQ(attrs[0][0], Cell("Owner"));
  EXPECT_EQ(attrs[0][2], Cell("alice"));
  EXPECT_EQ(attrs[0][3], std::nullopt);
  EXPECT_EQ(attrs[1][0], Cell("Steps"));
  EXPECT_EQ(attrs[1][1], Cell("0"));
  EXPECT_EQ(attrs[1][2], Cell("extract"));
  EXPECT_EQ(attrs[1][3], Cell("first step"));
  EXPECT_EQ(attrs[1][4], std::nullopt);
  EXPECT_EQ(attrs[2][1], Cell("1"));
  EXPECT_EQ(attrs[2][2], Cell("load"));
  EXPECT_EQ(attrs[2][3], std::nullopt);  // a column the row does not set
  EXPECT_EQ(attrs[3][0], Cell("_CREATIONDATE"));
  EXPECT_EQ(attrs[4][0], Cell("_MODIFIEDDATE"));
}

TEST_F(CacheRefreshTest, TwelveColumnAttributeIsCachedWithItsFirstTen) {
  std::string content = "name wide\n";
  for (int column = 0; column < 12; ++column) {
    content += "attr Wide 0 " + std::to_string(column) + " c" + std::to_string(column) + "\n";
  }
  qztest::writeFile(file("wide.tmeta"), content);
  ASSERT_TRUE(refresh()) << error_.asCstr();
  Rows rows = query(cmd(), "SELECT v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr "
                           "WHERE fname = 'wide.tmeta' AND attr = 'Wide'");
  ASSERT_EQ(rows.size(), 1u);
  for (int column = 0; column < 10; ++column) {
    EXPECT_EQ(rows[0][column], Cell("c" + std::to_string(column)));
  }
  EXPECT_EQ(query(cmd(), "SELECT count(*) FROM v_attr WHERE v0 = 'c10' OR v0 = 'c11'")[0][0],
            Cell("0"));
}

TEST_F(CacheRefreshTest, AttributeWithEmptyCellsAndDeclaredRows) {
  qztest::writeFile(file("sparse.tmeta"), "attribute Empty 2 3\nattr Empty 1 2 z\n");
  ASSERT_TRUE(refresh()) << error_.asCstr();
  Rows rows = query(cmd(), "SELECT seq, v0, v1, v2, v3 FROM v_attr WHERE attr = 'Empty' ORDER BY seq");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0], (std::vector<Cell>{Cell("0"), std::nullopt, std::nullopt, std::nullopt,
                                        std::nullopt}));
  EXPECT_EQ(rows[1], (std::vector<Cell>{Cell("1"), std::nullopt, std::nullopt, Cell("z"),
                                        std::nullopt}));
}

TEST_F(CacheRefreshTest, FileThePluginCannotOpenIsCachedWithoutTypeAndName) {
  qztest::writeFile(file("broken.tmeta"), "name never read\nfail open\nattr A 0 0 x\n");
  ASSERT_TRUE(refresh()) << error_.asCstr();
  Rows rows = fileRow("broken.tmeta");
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][1], std::nullopt);
  EXPECT_EQ(rows[0][2], std::nullopt);
  EXPECT_EQ(attrRows("broken.tmeta").size(), 2u);  // the date rows only
}

TEST_F(CacheRefreshTest, VaultFilesAndDirectoriesAreNotCached) {
  qztest::writeFile(file("a.txt"), "a");
  qztest::writeFile(file(".hidden"), "h");
  qztest::makeDirs(file("sub"));
  ASSERT_TRUE(refresh()) << error_.asCstr();
  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("a.txt"));
}

TEST_F(CacheRefreshTest, EveryOpenedPluginFileIsReleased) {
  for (int i = 0; i < 20; ++i) {
    qztest::writeFile(file("f" + std::to_string(i) + ".tmeta"), "name n\nattr A 0 0 v\n");
  }
  ASSERT_TRUE(refresh()) << error_.asCstr();
  QzTestMetaCounters* counters = qztest::TestMetaRegistry::counters();
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(counters->filesOpened.load(), 20);
  EXPECT_EQ(counters->filesReleased.load(), 20);
}

TEST_F(CacheRefreshTest, EmptyFolderCreatesTheCacheAndSucceeds) {
  ASSERT_TRUE(refresh()) << error_.asCstr();
  EXPECT_TRUE(qztest::pathExists(cmd()));
  EXPECT_TRUE(fileRows().empty());
}

// ---------------------------------------------------------------------------
// Changed files

TEST_F(CacheRefreshTest, OneSecondNewerIsNotRefreshedTwoSecondsIs) {
  qztest::writeFile(file("a.tmeta"), "name first\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());

  qztest::writeFile(file("a.tmeta"), "name second\n");
  qztest::setMtime(file("a.tmeta"), 1600000001);
  ASSERT_TRUE(refresh());
  EXPECT_EQ(fileRow("a.tmeta")[0][0], Cell("1600000000"));
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("first"));

  qztest::setMtime(file("a.tmeta"), 1600000002);
  ASSERT_TRUE(refresh());
  EXPECT_EQ(fileRow("a.tmeta")[0][0], Cell("1600000002"));
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("second"));
  EXPECT_EQ(dateRow("a.tmeta", "_MODIFIEDDATE"), Cell("1600000002"));
  EXPECT_EQ(attrRows("a.tmeta").size(), 2u);  // old date rows replaced, not added to
}

TEST_F(CacheRefreshTest, OlderTimeStampDoesNotRefresh) {
  qztest::writeFile(file("a.tmeta"), "name first\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());
  qztest::writeFile(file("a.tmeta"), "name second\n");
  qztest::setMtime(file("a.tmeta"), 1500000000);
  ASSERT_TRUE(refresh());
  EXPECT_EQ(fileRow("a.tmeta")[0][0], Cell("1600000000"));
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("first"));
}

TEST_F(CacheRefreshTest, TimeStampsPast2038) {
  qztest::writeFile(file("late.txt"), "x");
  qztest::setMtime(file("late.txt"), 5000000000LL);
  ASSERT_TRUE(refresh());
  EXPECT_EQ(fileRow("late.txt")[0][0], Cell("5000000000"));
  RecordingListener listener;
  FakeVault vault("uuid-1");
  ASSERT_TRUE(refresh(&vault));
  EXPECT_TRUE(listener.events.empty()) << "an unchanged file was refreshed again";
}

TEST_F(CacheRefreshTest, DeletedFileLosesItsRows) {
  qztest::writeFile(file("a.tmeta"), "name a\nattr X 0 0 1\n");
  qztest::writeFile(file("b.txt"), "b");
  ASSERT_TRUE(refresh());
  ASSERT_EQ(attrRows("a.tmeta").size(), 3u);
  ASSERT_EQ(unlink(file("a.tmeta").c_str()), 0);
  ASSERT_TRUE(refresh());
  EXPECT_TRUE(fileRow("a.tmeta").empty());
  EXPECT_TRUE(attrRows("a.tmeta").empty());
  EXPECT_EQ(fileRow("b.txt").size(), 1u);
}

// ---------------------------------------------------------------------------
// Events

TEST_F(CacheRefreshTest, EventsForNewRemovedAndModifiedFiles) {
  qztest::writeFile(file("keep.txt"), "k");
  qztest::writeFile(file("gone.txt"), "g");
  qztest::writeFile(file("mod.tmeta"), "name m\n");
  qztest::setMtime(file("mod.tmeta"), 1600000000);
  FakeVault vault("7f1c-uuid");
  {
    RecordingListener listener;
    ASSERT_TRUE(refresh(&vault));
    ASSERT_EQ(listener.events.size(), 3u);
    for (const Event& event : listener.events) {
      EXPECT_EQ(event.changeType, 0);
      EXPECT_EQ(event.repositoryId, "7f1c-uuid");
    }
  }

  ASSERT_EQ(unlink(file("gone.txt").c_str()), 0);
  qztest::setMtime(file("mod.tmeta"), 1600000100);
  qztest::writeFile(file("new.txt"), "n");
  vault.uuidCalls = 0;
  RecordingListener listener;
  ASSERT_TRUE(refresh(&vault));

  // Removals first (the removed file, then the modified one), then additions.
  ASSERT_EQ(listener.events.size(), 4u);
  int removedGone = -1, removedMod = -1, addedMod = -1, addedNew = -1;
  for (int i = 0; i < 4; ++i) {
    const Event& event = listener.events[static_cast<std::size_t>(i)];
    EXPECT_EQ(event.repositoryId, "7f1c-uuid");
    EXPECT_TRUE(event.secondIsNull);
    if (event.reference == reference("gone.txt") && event.changeType == 1) removedGone = i;
    if (event.reference == reference("mod.tmeta") && event.changeType == 1) removedMod = i;
    if (event.reference == reference("mod.tmeta") && event.changeType == 0) addedMod = i;
    if (event.reference == reference("new.txt") && event.changeType == 0) addedNew = i;
  }
  EXPECT_GE(removedGone, 0);
  EXPECT_GE(removedMod, 0);
  EXPECT_GT(addedMod, removedMod);  // a modified file: 1, then 0
  EXPECT_GE(addedNew, 0);
  EXPECT_LT(removedGone, addedNew);
  EXPECT_EQ(vault.uuidCalls, 1);  // once per refresh
}

TEST_F(CacheRefreshTest, ReferencesAreFileUris) {
  qztest::writeFile(file("sales q1.txt"), "x");
  FakeVault vault("u");
  RecordingListener listener;
  ASSERT_TRUE(refresh(&vault));
  ASSERT_EQ(listener.events.size(), 1u);
  EXPECT_EQ(listener.events[0].reference, "file://" + dir_.path() + "/sales%20q1.txt");
}

TEST_F(CacheRefreshTest, NoUuidLookupWhenNobodyListens) {
  ASSERT_FALSE(getRepositoryEventManager()->hasListeners());
  qztest::writeFile(file("a.txt"), "a");
  FakeVault vault("u");
  ASSERT_TRUE(refresh(&vault));
  EXPECT_EQ(vault.uuidCalls, 0);
  ASSERT_EQ(unlink(file("a.txt").c_str()), 0);
  ASSERT_TRUE(refresh(&vault));
  EXPECT_EQ(vault.uuidCalls, 0);
}

TEST_F(CacheRefreshTest, NoEventsWithoutAVault) {
  qztest::writeFile(file("a.txt"), "a");
  RecordingListener listener;
  ASSERT_TRUE(refresh(nullptr));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(CacheRefreshTest, NoEventsWhenNothingChanged) {
  qztest::writeFile(file("a.txt"), "a");
  ASSERT_TRUE(refresh());
  FakeVault vault("u");
  RecordingListener listener;
  ASSERT_TRUE(refresh(&vault));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_EQ(vault.uuidCalls, 0);
}

// ---------------------------------------------------------------------------
// Transactions

// The cache is kept in memory here, so that the test can reach the very
// connection the refresh uses and open a transaction on it first: a refresh
// that executed "BEGIN TRANSACTION" would then fail.
TEST_F(CacheRefreshTest, RefreshWithNoChangesOpensNoTransaction) {
  BypassSetting bypass;
  qztest::writeFile(file("a.tmeta"), "name a\n");
  ASSERT_TRUE(refresh()) << error_.asCstr();
  SqliteConnection* connection = cache_.findMemDB(S(cmd()));
  ASSERT_NE(connection, nullptr);
  ASSERT_TRUE(connection->exec(S("BEGIN TRANSACTION"), 0));

  QzTestMetaCounters* counters = qztest::TestMetaRegistry::counters();
  counters->reset();
  EXPECT_TRUE(refresh()) << error_.asCstr();
  EXPECT_EQ(counters->openCalls.load(), 0);      // no file was read
  EXPECT_EQ(counters->canHandleCalls.load(), 0);

  // The same setting with a change does begin a transaction, which fails
  // inside the test's own.
  qztest::writeFile(file("b.txt"), "b");
  EXPECT_FALSE(refresh());
  EXPECT_FALSE(error_.isEmpty());
  ASSERT_TRUE(connection->exec(S("ROLLBACK TRANSACTION"), 0));
  EXPECT_TRUE(refresh()) << error_.asCstr();
}

TEST_F(CacheRefreshTest, FailedReadRollsBackAndKeepsThePreviousCache) {
  qztest::writeFile(file("a.txt"), "a");
  qztest::writeFile(file("b.txt"), "b");
  ASSERT_TRUE(refresh());
  ASSERT_EQ(unlink(file("a.txt").c_str()), 0);
  qztest::writeFile(file("c.txt"), "c");
  qztest::writeFile(file("d.txt"), "d");
  FakeVault vault("u");
  RecordingListener listener;
  {
    PathFaultPlatform platform;
    platform.faults.failStatPath = file("d.txt");
    EXPECT_FALSE(refresh(&vault));
  }
  EXPECT_EQ(error_.toStdString(), "Cache failed to open file");
  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0][0], Cell("a.txt"));
  EXPECT_EQ(rows[1][0], Cell("b.txt"));
  EXPECT_EQ(attrRows("a.txt").size(), 2u);
  EXPECT_TRUE(attrRows("c.txt").empty());
  EXPECT_TRUE(listener.events.empty());  // nothing was committed

  // Once the file can be read, the same refresh goes through.
  ASSERT_TRUE(refresh(&vault)) << error_.asCstr();
  EXPECT_EQ(fileRows().size(), 3u);
  EXPECT_EQ(listener.events.size(), 3u);
}

TEST_F(CacheRefreshTest, StatementFailureRollsBackWithTheStatementsMessage) {
  qztest::writeFile(file("a.txt"), "a");
  ASSERT_TRUE(refresh());
  execute(cmd(),
          "CREATE TRIGGER refuse BEFORE INSERT ON v_attr WHEN NEW.attr = 'Boom' "
          "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END");
  qztest::writeFile(file("b.tmeta"), "name b\nattr Boom 0 0 x\n");
  ASSERT_EQ(unlink(file("a.txt").c_str()), 0);
  EXPECT_FALSE(refresh());
  EXPECT_EQ(error_.toStdString(), "refused by the test");
  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("a.txt"));
  EXPECT_TRUE(attrRows("b.tmeta").empty());
}

TEST_F(CacheRefreshTest, FileRowInsertFailureRollsBackWithTheConnectionsMessage) {
  ASSERT_TRUE(refresh());
  execute(cmd(),
          "CREATE TRIGGER refuse BEFORE INSERT ON v_file WHEN NEW.fname = 'bad.txt' "
          "BEGIN SELECT RAISE(ABORT, 'no bad files'); END");
  qztest::writeFile(file("good.txt"), "g");
  qztest::writeFile(file("bad.txt"), "b");
  EXPECT_FALSE(refresh());
  EXPECT_EQ(error_.toStdString(), "no bad files");
  EXPECT_TRUE(fileRows().empty());
  EXPECT_TRUE(query(cmd(), "SELECT * FROM v_attr").empty());
}

// A ".v_cmd" that is not a database cannot be opened: the refresh fails with
// the open error, leaves the file alone and does not crash.
TEST_F(CacheRefreshTest, CacheThatIsNotADatabase) {
  qztest::writeFile(cmd(), std::string(4096, 'x'));
  qztest::writeFile(file("a.txt"), "a");
  qztest::LogCapture log;
  EXPECT_FALSE(refresh());
  const std::string prefix = "Error opening " + cmd() + ": ";
  EXPECT_EQ(error_.toStdString().rfind(prefix, 0), 0u) << error_.asCstr();
  EXPECT_GT(error_.length(), prefix.size());
  EXPECT_EQ(qztest::readFile(cmd()), std::string(4096, 'x'));
}

TEST_F(CacheRefreshTest, CacheWithoutTheFileTable) {
  BypassSetting bypass;
  ASSERT_TRUE(refresh());
  SqliteConnection* connection = cache_.findMemDB(S(cmd()));
  ASSERT_NE(connection, nullptr);
  ASSERT_TRUE(connection->exec(S("DROP TABLE v_file"), 0));
  qztest::LogCapture log;
  EXPECT_FALSE(refresh());
  EXPECT_EQ(error_.toStdString(), "no such table: v_file");
  EXPECT_TRUE(log.contains("Error selecting file and timestamp information from cache \"" +
                               dir_.path() + "\": no such table: v_file",
                           5))
      << log.dump();
}

TEST_F(CacheRefreshTest, MissingDirectoryFails) {
  error_ = QzbString();
  EXPECT_FALSE(qzviRefreshCachedAttributes(S(dir_.join("missing")), plugins_.get(), &error_,
                                           cache_, nullptr));
  EXPECT_FALSE(error_.isEmpty());
}

TEST_F(CacheRefreshTest, DirectoryThatCannotBeListedFails) {
  BypassSetting bypass;  // the database opens; only the listing fails
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kDirOpen, 1, NP_ERR_ACCESS);
  EXPECT_FALSE(refresh());
  EXPECT_EQ(error_.toStdString(), "Access to " + dir_.path() + " is denied");
}

// ---------------------------------------------------------------------------
// A file that vanishes between the listing and its reading

TEST_F(CacheRefreshTest, NewFileThatVanishesIsLeftOutAndTheRestIsRefreshed) {
  qztest::writeFile(file("a.txt"), "a");
  qztest::writeFile(file("ghost.txt"), "g");
  FakeVault vault("u");
  RecordingListener listener;
  {
    PathFaultPlatform platform;
    platform.faults.vanishPath = file("ghost.txt");
    ASSERT_TRUE(refresh(&vault)) << error_.asCstr();
  }
  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("a.txt"));
  ASSERT_EQ(listener.events.size(), 1u);
  EXPECT_EQ(listener.events[0].reference, reference("a.txt"));
}

TEST_F(CacheRefreshTest, ModifiedFileThatVanishesIsRemoved) {
  qztest::writeFile(file("a.txt"), "a");
  qztest::writeFile(file("ghost.tmeta"), "name g\nattr A 0 0 1\n");
  qztest::setMtime(file("ghost.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());
  qztest::setMtime(file("ghost.tmeta"), 1600000100);
  qztest::writeFile(file("b.txt"), "b");
  FakeVault vault("u");
  RecordingListener listener;
  {
    PathFaultPlatform platform;
    platform.faults.vanishPath = file("ghost.tmeta");
    ASSERT_TRUE(refresh(&vault)) << error_.asCstr();
  }
  EXPECT_TRUE(fileRow("ghost.tmeta").empty());
  EXPECT_TRUE(attrRows("ghost.tmeta").empty());
  EXPECT_EQ(fileRow("b.txt").size(), 1u);
  ASSERT_EQ(listener.events.size(), 2u);
  EXPECT_EQ(listener.events[0].reference, reference("ghost.tmeta"));
  EXPECT_EQ(listener.events[0].changeType, 1);
  EXPECT_EQ(listener.events[1].reference, reference("b.txt"));
  EXPECT_EQ(listener.events[1].changeType, 0);
  // The next refresh finds nothing more to do.
  listener.events.clear();
  ASSERT_TRUE(refresh(&vault));
  EXPECT_TRUE(listener.events.empty());
}

// ---------------------------------------------------------------------------
// addToCache

TEST_F(CacheRefreshTest, AddToCacheOfAMissingFile) {
  QzviDBHandle db(qzviOpenDB(S(dir_.path()), ".v_cmd", &error_, cache_), cache_);
  ASSERT_TRUE(db);
  EXPECT_FALSE(addToCache(S(dir_.path()), S("missing.txt"), plugins_.get(), 1, db.get(), &error_));
  EXPECT_EQ(error_.toStdString(), "Cache failed to open file");
  error_ = QzbString();
  EXPECT_FALSE(addToCache(S(dir_.path()), S(".."), plugins_.get(), 1, db.get(), &error_));
  EXPECT_EQ(error_.toStdString(), "Cache failed to open file");
}

TEST_F(CacheRefreshTest, AddToCacheDoesNotDoubleTheFileRow) {
  qztest::writeFile(file("a.tmeta"), "name from file\n");
  ASSERT_TRUE(refresh());
  execute(cmd(), "UPDATE v_file SET name = 'from another process'");
  QzviDBHandle db(qzviOpenDB(S(dir_.path()), ".v_cmd", &error_, cache_), cache_);
  ASSERT_TRUE(db);
  ASSERT_TRUE(addToCache(S(dir_.path()), S("a.tmeta"), plugins_.get(), 42, db.get(), &error_))
      << error_.asCstr();
  db.close();
  Rows rows = fileRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][3], Cell("from another process"));
}

TEST_F(CacheRefreshTest, AddToCacheWritesTheGivenTimeStamp) {
  qztest::writeFile(file("a.txt"), "a");
  qztest::setMtime(file("a.txt"), 1600000000);
  QzviDBHandle db(qzviOpenDB(S(dir_.path()), ".v_cmd", &error_, cache_), cache_);
  ASSERT_TRUE(db);
  ASSERT_TRUE(addToCache(S(dir_.path()), S("a.txt"), nullptr, 1234, db.get(), &error_));
  db.close();
  EXPECT_EQ(fileRow("a.txt")[0][0], Cell("1234"));
  EXPECT_EQ(dateRow("a.txt", "_MODIFIEDDATE"), Cell("1600000000"));  // from the file's status
}

// ---------------------------------------------------------------------------
// Refreshing one file

TEST_F(CacheRefreshTest, SingleFileNotCachedIsAdded) {
  qztest::writeFile(file("a.tmeta"), "name a\n");
  qztest::LogCapture log;
  ASSERT_TRUE(refreshFile("a.tmeta")) << error_.asCstr();
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("a"));
  EXPECT_TRUE(log.contains("Refreshing cached file attributes for file \"" + file("a.tmeta") + "\"",
                           2, "QZ.Repos.Vault"))
      << log.dump();
}

TEST_F(CacheRefreshTest, SingleFileOneSecondNewerIsRefreshed) {
  qztest::writeFile(file("a.tmeta"), "name first\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());
  qztest::writeFile(file("a.tmeta"), "name second\n");
  qztest::setMtime(file("a.tmeta"), 1600000001);
  ASSERT_TRUE(refreshFile("a.tmeta")) << error_.asCstr();
  EXPECT_EQ(fileRow("a.tmeta")[0][0], Cell("1600000001"));
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("second"));
  EXPECT_EQ(attrRows("a.tmeta").size(), 2u);
}

TEST_F(CacheRefreshTest, SingleFileUnchangedIsLeftAloneUnlessForced) {
  qztest::writeFile(file("a.tmeta"), "name first\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());
  qztest::writeFile(file("a.tmeta"), "name second\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  {
    qztest::LogCapture log;
    ASSERT_TRUE(refreshFile("a.tmeta"));
    EXPECT_FALSE(log.containsFragment("Refreshing cached file attributes")) << log.dump();
    EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("first"));
  }
  ASSERT_TRUE(refreshFile("a.tmeta", true)) << error_.asCstr();
  EXPECT_EQ(fileRow("a.tmeta")[0][2], Cell("second"));
  EXPECT_EQ(fileRows().size(), 1u);
}

TEST_F(CacheRefreshTest, SingleFileUnchangedOpensNoTransaction) {
  BypassSetting bypass;
  qztest::writeFile(file("a.txt"), "a");
  ASSERT_TRUE(refresh());
  SqliteConnection* connection = cache_.findMemDB(S(cmd()));
  ASSERT_NE(connection, nullptr);
  ASSERT_TRUE(connection->exec(S("BEGIN TRANSACTION"), 0));
  EXPECT_TRUE(refreshFile("a.txt")) << error_.asCstr();
  EXPECT_FALSE(refreshFile("a.txt", true));  // forced: it must begin one
  ASSERT_TRUE(connection->exec(S("ROLLBACK TRANSACTION"), 0));
}

TEST_F(CacheRefreshTest, SingleFileDeletedLosesItsRows) {
  qztest::writeFile(file("a.tmeta"), "name a\nattr X 0 0 1\n");
  qztest::writeFile(file("b.txt"), "b");
  ASSERT_TRUE(refresh());
  ASSERT_EQ(unlink(file("a.tmeta").c_str()), 0);
  ASSERT_TRUE(refreshFile("a.tmeta")) << error_.asCstr();
  EXPECT_TRUE(fileRow("a.tmeta").empty());
  EXPECT_TRUE(attrRows("a.tmeta").empty());
  EXPECT_EQ(fileRows().size(), 1u);
}

TEST_F(CacheRefreshTest, SingleFileMissingAndNotCachedChangesNothing) {
  ASSERT_TRUE(refreshFile("never.txt")) << error_.asCstr();
  EXPECT_TRUE(fileRows().empty());
}

TEST_F(CacheRefreshTest, SingleFileRefreshSendsNoEvents) {
  qztest::writeFile(file("a.txt"), "a");
  RecordingListener listener;
  ASSERT_TRUE(refreshFile("a.txt"));
  ASSERT_EQ(unlink(file("a.txt").c_str()), 0);
  ASSERT_TRUE(refreshFile("a.txt"));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(CacheRefreshTest, SingleFileThatCannotBeExaminedFails) {
  qztest::writeFile(file("a.txt"), "a");
  PathFaultPlatform platform;
  platform.faults.failStatPath = file("a.txt");
  EXPECT_FALSE(refreshFile("a.txt"));
  EXPECT_EQ(error_.toStdString(), "Cache failed to open file");
}

TEST_F(CacheRefreshTest, SingleFileFailureRollsBack) {
  qztest::writeFile(file("a.tmeta"), "name a\nattr Boom 0 0 1\n");
  qztest::setMtime(file("a.tmeta"), 1600000000);
  ASSERT_TRUE(refresh());
  execute(cmd(),
          "CREATE TRIGGER refuse BEFORE INSERT ON v_attr WHEN NEW.attr = 'Boom' "
          "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END");
  qztest::setMtime(file("a.tmeta"), 1600000005);
  EXPECT_FALSE(refreshFile("a.tmeta"));
  EXPECT_EQ(error_.toStdString(), "refused by the test");
  EXPECT_EQ(fileRow("a.tmeta")[0][0], Cell("1600000000"));
  EXPECT_EQ(attrRows("a.tmeta").size(), 3u);
}

TEST_F(CacheRefreshTest, SingleFileCacheThatIsNotADatabase) {
  qztest::writeFile(cmd(), std::string(4096, 'x'));
  qztest::writeFile(file("a.txt"), "a");
  EXPECT_FALSE(refreshFile("a.txt"));
  EXPECT_EQ(error_.toStdString().rfind("Error opening " + cmd() + ": ", 0), 0u) << error_.asCstr();
}

// ---------------------------------------------------------------------------
// qzviFireContentChanged

TEST(FireContentChanged, PassesEverythingOn) {
  FakeVault vault("the-uuid");
  RecordingListener listener;
  qzviFireContentChanged(&vault, S("file:///a/b"), QZ_CHANGE_RENAMED, S("file:///a/c"));
  ASSERT_EQ(listener.events.size(), 1u);
  EXPECT_EQ(listener.events[0].repositoryId, "the-uuid");
  EXPECT_EQ(listener.events[0].reference, "file:///a/b");
  EXPECT_EQ(listener.events[0].changeType, 2);
  EXPECT_FALSE(listener.events[0].secondIsNull);
  EXPECT_EQ(listener.events[0].second, "file:///a/c");
  EXPECT_EQ(vault.uuidCalls, 1);
}

TEST(FireContentChanged, NothingWithoutVaultOrReference) {
  FakeVault vault("u");
  RecordingListener listener;
  qzviFireContentChanged(nullptr, S("file:///a"), QZ_CHANGE_REMOVED, QzbString());
  qzviFireContentChanged(&vault, S(""), QZ_CHANGE_REMOVED, QzbString());
  qzviFireContentChanged(&vault, QzbString(), QZ_CHANGE_REMOVED, QzbString());
  EXPECT_TRUE(listener.events.empty());
  EXPECT_EQ(vault.uuidCalls, 0);
}

TEST(FireContentChanged, NoUuidLookupWithoutListeners) {
  ASSERT_FALSE(getRepositoryEventManager()->hasListeners());
  FakeVault vault("u");
  qzviFireContentChanged(&vault, S("file:///a"), QZ_CHANGE_REMOVED, QzbString());
  EXPECT_EQ(vault.uuidCalls, 0);
}

}  // namespace
