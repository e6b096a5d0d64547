// QzviMDHelper (names and types of a folder's files from the cached or the
// fixed metadata) and qzviGetFolderNameFromDirectory.
#include <sqlite3.h>

#include <string>

#include <gtest/gtest.h>

#include "cache_refresh.h"
#include "metadata_db.h"
#include "qzbase/config.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

void execute(const std::string& database, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
      << (message != nullptr ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

class MDHelperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qzbGetConfigOptions(nullptr)->removeOption(S("QZVLT/BYPASS"));
    // Create both databases with their schemas through the library.
    for (const char* name : {".v_cmd", ".v_fmd"}) {
      QzbString error;
      SqliteConnection* connection = qzviOpenDB(S(dir_.path()), name, &error, cache_);
      ASSERT_NE(connection, nullptr) << error.asCstr();
      qzviCloseDB(connection, cache_);
    }
    execute(dir_.join(".v_cmd"),
            "INSERT INTO v_file VALUES ('a.tmeta', 1, 'TestMeta', 'Daily load');"
            "INSERT INTO v_file VALUES ('b.txt', 2, NULL, NULL);"
            "INSERT INTO v_file VALUES ('c.job.def', 3, 'TestJob', 'Nightly');"
            "INSERT INTO v_file VALUES (NULL, 4, 'x', 'row without a file name');");
    execute(dir_.join(".v_fmd"),
            "INSERT INTO v_object VALUES ('b.txt', 'Fixed B');"
            "INSERT INTO v_object VALUES ('d.csv', 'Orders');"
            "INSERT INTO v_object VALUES (NULL, 'The folder itself');");
  }

  TempDir dir_;
  MemDBCache cache_;
};

TEST_F(MDHelperTest, CachedNamesAndTypes) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  ASSERT_TRUE(helper.lookup(S("a.tmeta")));
  EXPECT_EQ(helper.getFoundName().toStdString(), "Daily load");
  EXPECT_EQ(helper.getFoundType().toStdString(), "TestMeta");
  // A cached file without plug-in: found, with null name and type.
  ASSERT_TRUE(helper.lookup(S("b.txt")));
  EXPECT_TRUE(helper.getFoundName().isNull());
  EXPECT_TRUE(helper.getFoundType().isNull());
  ASSERT_TRUE(helper.lookup(S("c.job.def")));
  EXPECT_EQ(helper.getFoundName().toStdString(), "Nightly");
  EXPECT_EQ(helper.getFoundType().toStdString(), "TestJob");
}

TEST_F(MDHelperTest, UnknownNameIsNotFound) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  EXPECT_FALSE(helper.lookup(S("missing.txt")));
  EXPECT_TRUE(helper.getFoundName().isNull());
  EXPECT_TRUE(helper.getFoundType().isNull());
  EXPECT_FALSE(helper.lookup(S("A.TMETA")));  // file names compare exactly
  EXPECT_FALSE(helper.lookup(QzbString()));   // the row without a file name is not kept
}

TEST_F(MDHelperTest, LookupReplacesTheFoundEntry) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  ASSERT_TRUE(helper.lookup(S("a.tmeta")));
  EXPECT_FALSE(helper.lookup(S("nothing")));
  EXPECT_TRUE(helper.getFoundName().isNull());
}

TEST_F(MDHelperTest, NamedOnlyLeavesOutRowsWithoutName) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), true, false, cache_));
  EXPECT_TRUE(helper.lookup(S("a.tmeta")));
  EXPECT_FALSE(helper.lookup(S("b.txt")));
  EXPECT_TRUE(helper.lookup(S("c.job.def")));
}

TEST_F(MDHelperTest, FixedNamesHaveAnEmptyType) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, true, cache_));
  ASSERT_TRUE(helper.lookup(S("b.txt")));
  EXPECT_EQ(helper.getFoundName().toStdString(), "Fixed B");
  EXPECT_EQ(helper.getFoundType().toStdString(), "");
  EXPECT_FALSE(helper.getFoundType().isNull());
  ASSERT_TRUE(helper.lookup(S("d.csv")));
  EXPECT_EQ(helper.getFoundName().toStdString(), "Orders");
  EXPECT_FALSE(helper.lookup(S("a.tmeta")));  // only in the cache
}

TEST_F(MDHelperTest, InitAgainStartsOver) {
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, true, cache_));
  ASSERT_TRUE(helper.lookup(S("d.csv")));
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  EXPECT_TRUE(helper.getFoundName().isNull());
  EXPECT_FALSE(helper.lookup(S("d.csv")));
  EXPECT_TRUE(helper.lookup(S("a.tmeta")));
}

TEST_F(MDHelperTest, FirstRowOfANameWins) {
  execute(dir_.join(".v_cmd"), "INSERT INTO v_file VALUES ('a.tmeta', 9, 'Other', 'Second row')");
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  ASSERT_TRUE(helper.lookup(S("a.tmeta")));
  EXPECT_EQ(helper.getFoundName().toStdString(), "Daily load");
}

TEST_F(MDHelperTest, ManyRows) {
  std::string sql = "BEGIN;";
  for (int i = 0; i < 5000; ++i) {
    sql += "INSERT INTO v_file VALUES ('f" + std::to_string(i) + "', 0, 't', 'Name " +
           std::to_string(i) + "');";
  }
  sql += "COMMIT;";
  execute(dir_.join(".v_cmd"), sql);
  QzviMDHelper helper;
  ASSERT_TRUE(helper.init(S(dir_.path()), false, false, cache_));
  for (int i = 0; i < 5000; i += 7) {
    ASSERT_TRUE(helper.lookup(S("f" + std::to_string(i))));
    EXPECT_EQ(helper.getFoundName().toStdString(), "Name " + std::to_string(i));
  }
}

// A ".v_cmd" that is a directory cannot be opened as a database (a missing
// one would be created, or kept in memory where it cannot be).
TEST(MDHelperOpen, OpenFailureIsLoggedAndFindsNothing) {
  qzbGetConfigOptions(nullptr)->removeOption(S("QZVLT/BYPASS"));
  TempDir dir;
  qztest::makeDirs(dir.join(".v_cmd"));
  MemDBCache cache;
  qztest::LogCapture log;
  QzviMDHelper helper;
  EXPECT_FALSE(helper.init(S(dir.path()), false, false, cache));
  EXPECT_FALSE(helper.lookup(S("a.tmeta")));
  const std::string prefix = "Open " + dir.join(".v_cmd") + " failed with: ";
  bool found = false;
  for (const qztest::CapturedEvent& event : log.events()) {
    if (event.logger == "QZ.Repos.Vault.MDHelper" && event.text.rfind(prefix, 0) == 0) {
      found = true;
      EXPECT_GT(event.text.size(), prefix.size()) << "the reason is missing";
      EXPECT_EQ(event.level, 5);
    }
  }
  EXPECT_TRUE(found) << log.dump();
}

TEST_F(MDHelperTest, SqlFailureIsLogged) {
  execute(dir_.join(".v_cmd"), "DROP TABLE v_file");
  qztest::LogCapture log;
  QzviMDHelper helper;
  EXPECT_FALSE(helper.init(S(dir_.path()), false, false, cache_));
  EXPECT_TRUE(log.contains("SQL in " + dir_.join(".v_cmd") + " failed with: no such table: v_file",
                           5, "QZ.Repos.Vault.MDHelper"))
      << log.dump();
  EXPECT_FALSE(helper.lookup(S("a.tmeta")));
}

TEST_F(MDHelperTest, FixedSqlFailureIsLogged) {
  execute(dir_.join(".v_fmd"), "DROP TABLE v_object");
  qztest::LogCapture log;
  QzviMDHelper helper;
  EXPECT_FALSE(helper.init(S(dir_.path()), false, true, cache_));
  EXPECT_TRUE(log.contains("SQL in " + dir_.join(".v_fmd") +
                           " failed with: no such table: v_object"))
      << log.dump();
}

TEST_F(MDHelperTest, LookupBeforeInit) {
  QzviMDHelper helper;
  EXPECT_FALSE(helper.lookup(S("a.tmeta")));
  EXPECT_TRUE(helper.getFoundName().isNull());
}

TEST_F(MDHelperTest, FolderNameFromItsFixedMetadata) {
  EXPECT_EQ(qzviGetFolderNameFromDirectory(S(dir_.path()), cache_).toStdString(),
            "The folder itself");
}

TEST_F(MDHelperTest, FolderWithoutStoredName) {
  execute(dir_.join(".v_fmd"), "DELETE FROM v_object WHERE fname IS NULL");
  EXPECT_TRUE(qzviGetFolderNameFromDirectory(S(dir_.path()), cache_).isNull());
}

TEST_F(MDHelperTest, FolderNameOfAMissingDirectory) {
  EXPECT_TRUE(qzviGetFolderNameFromDirectory(S(dir_.join("missing")), cache_).isNull());
}

TEST_F(MDHelperTest, FolderNameWhenTheTableIsMissing) {
  execute(dir_.join(".v_fmd"), "DROP TABLE v_object");
  EXPECT_TRUE(qzviGetFolderNameFromDirectory(S(dir_.path()), cache_).isNull());
}

}  // namespace
