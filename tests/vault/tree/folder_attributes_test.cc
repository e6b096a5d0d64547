// A folder's attribute listings: its own attributes (getAttrList), one
// attribute (getAttribute), and the attributes of its objects from the cached
// and the fixed metadata (getObjectAttrList).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "attribute_sql.h"
#include "folder_test_util.h"
#include "qzvault/attribute.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::fmdOf;
using qztest::LogCapture;
using qztest::makeFolder;
using qztest::own;
using qztest::Row;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

const Cell kNull = std::nullopt;

// A listing row: the leading columns given, the remaining value columns null.
Row listed(std::initializer_list<Cell> leading, std::size_t width) {
  Row row(leading);
  while (row.size() < width) row.push_back(kNull);
  return row;
}

// The rows whose attribute (column `attrColumn`) is not a reserved one.
Rows withoutReserved(const Rows& rows, std::size_t attrColumn) {
  Rows kept;
  for (const Row& row : rows) {
    if (!row[attrColumn].has_value() || row[attrColumn]->rfind("_", 0) != 0) kept.push_back(row);
  }
  return kept;
}

std::string trace(const char* operation, const std::string& path) {
  return std::string("Entering ") + operation + " on folder \"" + path + "\".";
}
std::string traceExit(const char* operation, const std::string& path) {
  return std::string("Exiting ") + operation + " on folder \"" + path + "\".";
}

// ---------------------------------------------------------------------------
// Statement texts

TEST(FolderAttributeSql, FolderListingText) {
  EXPECT_EQ(qzviFolderAttrListSql().toStdString(),
            "SELECT attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr WHERE fname is "
            "null ORDER BY attr, seq");
}

TEST(FolderAttributeSql, ObjectListingTextsKeepTheirBlanks) {
  const std::string head =
      "SELECT a.fname, b.name, a.attr, a.seq, a.v0, a.v1, a.v2, a.v3, a.v4, a.v5, a.v6, a.v7, "
      "a.v8, a.v9 FROM v_attr a INNER JOIN v_file b ON a.fname=b.fname ";
  const std::string order = "ORDER BY a.fname, a.attr, a.seq";
  EXPECT_EQ(qzviObjectAttrListSql("v_file", false, false).toStdString(), head + order);
  EXPECT_EQ(qzviObjectAttrListSql("v_file", true, false).toStdString(),
            head + "WHERE a.fname=? " + order);
  // "WHERE " followed by " a.attr=? ": two blanks.
  EXPECT_EQ(qzviObjectAttrListSql("v_file", false, true).toStdString(),
            head + "WHERE  a.attr=? " + order);
  EXPECT_EQ(qzviObjectAttrListSql("v_file", true, true).toStdString(),
            head + "WHERE a.fname=? AND  a.attr=? " + order);
  EXPECT_NE(qzviObjectAttrListSql("v_object", false, false)
                .toStdString()
                .find("INNER JOIN v_object b ON"),
            std::string::npos);
}

// ---------------------------------------------------------------------------
// getAttrList

TEST(FolderAttrList, ListsTheFoldersOwnRowsByAttributeThenSeqWithTheDatesTheRefreshAdds) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(
      db,
      "INSERT INTO v_attr (fname, attr, seq, v0, v1, v9) VALUES "
      "(NULL, 'Region', 1, 'north', NULL, 'z'), (NULL, 'Region', 0, 'south', 'S', NULL),"
      "(NULL, 'Owner', 0, 'alice', NULL, NULL),"
      "('orders.job.def', 'Owner', 0, 'object row', NULL, NULL)");
  const int64_t directoryTime = qztest::statusChangeTime(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  Rows rows;
  {
    qztest::ScopedClock clock(1700000000);
    rows = qztest::takeList(folder->getAttrList());
  }
  EXPECT_EQ(rows,
            (Rows{listed({"Owner", "0", "alice"}, 12), listed({"Region", "0", "south", "S"}, 12),
                  listed({"Region", "1", "north", kNull, kNull, kNull, kNull, kNull, kNull, kNull,
                          kNull, "z"},
                         12),
                  listed({"_CREATIONDATE", "0", std::to_string(directoryTime)}, 12),
                  listed({"_MODIFIEDDATE", "0", "1700000000"}, 12)}));
  EXPECT_TRUE(log.contains(trace("getAttrList", dir.path()), 1)) << log.dump();
  EXPECT_TRUE(log.contains(traceExit("getAttrList", dir.path()), 1)) << log.dump();
  EXPECT_TRUE(log.contains(trace("refreshFolderAttributes", dir.path()), 1)) << log.dump();
}

TEST(FolderAttrList, HasTwelveColumns) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  QzvItemList* list = folder->getAttrList();
  ASSERT_NE(list, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(list->getNumCols(), 12);
  list->release();
}

TEST(FolderAttrList, AnUnopenableDatabaseFailsWithTheOpenError) {
  TempDir dir;
  qztest::makeDirs(fmdOf(dir.path()));
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->getAttrList(), nullptr);
  const std::string message = folder->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + fmdOf(dir.path()) + ": ", 0), 0u) << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST(FolderAttrList, AFailedSelectNamesNoFile) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  // The stamps still fit this table; the listing's ten value columns do not.
  qztest::execute(db, "DROP TABLE v_attr; CREATE TABLE v_attr (fname, attr, seq, v0)");
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->getAttrList(), nullptr);
  const std::string expected = "Failed to get attributes from v_attr table in fixed metadata file ";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

// ---------------------------------------------------------------------------
// getAttribute

TEST(FolderGetAttribute, GivesTheFoldersRowsNotAnObjectsAndWritesNoTrace) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, 'Owner', 0, 'folder'), ('a.txt', 'Owner', 0, 'object'),"
                  "('a.txt', 'Owner', 1, 'object 2')");
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  auto attribute = own(folder->getAttribute(S("Owner")));
  ASSERT_NE(attribute, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(attribute->numRows(), 1);
  EXPECT_EQ(attribute->getSingletonValue().toStdString(), "folder");
  EXPECT_EQ(attribute->getName().toStdString(), "Owner");
  EXPECT_TRUE(log.events().empty()) << log.dump();
  // Changes go back to the folder's rows.
  attribute->setValue(0, 1, S("second"));
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(qztest::query(db,
                          "SELECT fname, seq, v0 FROM v_attr WHERE attr = 'Owner' "
                          "ORDER BY fname, seq"),
            (Rows{{kNull, "0", "folder"},
                  {kNull, "1", "second"},
                  {"a.txt", "0", "object"},
                  {"a.txt", "1", "object 2"}}));
}

TEST(FolderGetAttribute, AFailedLoadGivesTheAttributesMessageAtLevelFive) {
  TempDir dir;
  qztest::makeDirs(fmdOf(dir.path()));
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->getAttribute(S("Owner")), nullptr);
  const std::string message = folder->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + fmdOf(dir.path()) + ": ", 0), 0u) << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

// ---------------------------------------------------------------------------
// getObjectAttrList

class ObjectAttrListTest : public ::testing::Test {
 protected:
  ObjectAttrListTest() : vault_(dir_.path(), plugins_.get()) {
    // Cached: the plug-in reads the name and two attributes out of the file.
    qztest::writeFile(dir_.join("sales.tmeta"),
                      "name Monthly sales\n"
                      "attr Owner 0 0 alice\n"
                      "attr Region 0 0 north\n"
                      "attr Region 1 0 south\n");
    qztest::writeFile(dir_.join("plain.txt"), "no plug-in reads this\n");
    // A job whose file names nothing and carries no attribute.
    qztest::writeFile(dir_.join("report.job.def"), "# scheduled nightly\n");
    // Fixed: names and attributes set by callers.
    db_ = qztest::fixedDb(vault_.get(), dir_.path());
    qztest::execute(db_,
                    "INSERT INTO v_object (fname, name) VALUES (NULL, 'The folder'),"
                    "('plain.txt', 'Plain text'), ('sales.tmeta', NULL), ('report.job.def', '');"
                    "INSERT INTO v_attr (fname, attr, seq, v0, v1) VALUES "
                    "(NULL, 'Owner', 0, 'folder owner', NULL),"
                    "('plain.txt', 'Owner', 0, 'bob', 'b'),"
                    "('sales.tmeta', 'Owner', 0, 'stored owner', NULL),"
                    "('sales.tmeta', 'Status', 0, 'draft', NULL),"
                    "('report.job.def', 'Owner', 0, 'carol', NULL),"
                    "('orphan.txt', 'Owner', 0, 'nobody lists me', NULL)");
  }

  Rows list(const QzbString& fileName, const QzbString& attribute) {
    QzvItemList* result = folder_->getObjectAttrList(fileName, attribute);
    EXPECT_NE(result, nullptr) << folder_->getErrorMessage().asCstr();
    if (result != nullptr) {
      EXPECT_EQ(result->getNumCols(), 14);
    }
    return qztest::takeList(result);
  }

  qztest::TestMetaRegistry plugins_;
  TempDir dir_;
  ScopedVault vault_;
  std::string db_;
  qztest::Owned<QzvFolderImpl> folder_ = makeFolder(vault_.get(), dir_.path());
};

TEST_F(ObjectAttrListTest, WithoutArgumentsListsEveryAttributeOfEveryNamedObject) {
  const Rows rows = list(QzbString(), QzbString());
  // Cached rows first, by file name, attribute and seq; then the fixed rows
  // not already delivered, in the same order. The fixed "Owner" of
  // sales.tmeta is left out (the cached one wins), the orphan's row too (no
  // name row), and the folder's own rows are no object's.
  EXPECT_EQ(withoutReserved(rows, 2),
            (Rows{listed({"sales.tmeta", "Monthly sales", "Owner", "0", "alice"}, 14),
                  listed({"sales.tmeta", "Monthly sales", "Region", "0", "north"}, 14),
                  listed({"sales.tmeta", "Monthly sales", "Region", "1", "south"}, 14),
                  listed({"plain.txt", "Plain text", "Owner", "0", "bob", "b"}, 14),
                  listed({"report.job.def", "report", "Owner", "0", "carol"}, 14),
                  listed({"sales.tmeta", "sales", "Status", "0", "draft"}, 14)}));
  // The cache also holds the two date rows of every file it read; those of
  // files without a plug-in show under the name without extension.
  int cachedDates = 0;
  for (const Row& row : rows) {
    if (row[2] == Cell("_CREATIONDATE") || row[2] == Cell("_MODIFIEDDATE")) {
      ++cachedDates;
      if (row[0] == Cell("plain.txt")) {
        EXPECT_EQ(row[1], Cell("plain"));
      }
      if (row[0] == Cell("report.job.def")) {
        EXPECT_EQ(row[1], Cell("report"));
      }
    }
  }
  EXPECT_EQ(cachedDates, 6);
}

TEST_F(ObjectAttrListTest, AnAttributeNameAloneSelectsThatAttributeOfEveryObject) {
  EXPECT_EQ(list(QzbString(), S("Owner")),
            (Rows{listed({"sales.tmeta", "Monthly sales", "Owner", "0", "alice"}, 14),
                  listed({"plain.txt", "Plain text", "Owner", "0", "bob", "b"}, 14),
                  listed({"report.job.def", "report", "Owner", "0", "carol"}, 14)}));
}

TEST_F(ObjectAttrListTest, AFileNameAloneSelectsEveryAttributeOfThatObject) {
  EXPECT_EQ(withoutReserved(list(S("sales.tmeta"), QzbString()), 2),
            (Rows{listed({"sales.tmeta", "Monthly sales", "Owner", "0", "alice"}, 14),
                  listed({"sales.tmeta", "Monthly sales", "Region", "0", "north"}, 14),
                  listed({"sales.tmeta", "Monthly sales", "Region", "1", "south"}, 14),
                  listed({"sales.tmeta", "sales", "Status", "0", "draft"}, 14)}));
}

TEST_F(ObjectAttrListTest, FileNameAndAttributeSelectOneAttributeOfOneObject) {
  EXPECT_EQ(list(S("sales.tmeta"), S("Owner")),
            (Rows{listed({"sales.tmeta", "Monthly sales", "Owner", "0", "alice"}, 14)}));
  EXPECT_EQ(list(S("sales.tmeta"), S("Status")),
            (Rows{listed({"sales.tmeta", "sales", "Status", "0", "draft"}, 14)}));
  EXPECT_TRUE(list(S("orphan.txt"), S("Owner")).empty());
}

TEST_F(ObjectAttrListTest, TracesAndRefreshesOnlyWhenTheFolderChanged) {
  LogCapture log;
  list(QzbString(), S("Owner"));
  EXPECT_TRUE(log.contains(trace("getObjectAttrList", dir_.path()), 1)) << log.dump();
  EXPECT_TRUE(log.contains(traceExit("getObjectAttrList", dir_.path()), 1)) << log.dump();
  const std::string notNecessary = "Folder refresh not necessary for " + dir_.path();
  EXPECT_FALSE(log.contains(notNecessary)) << log.dump();
  // The refresh recorded the folder's time: nothing changed since.
  log.clear();
  list(QzbString(), S("Owner"));
  EXPECT_TRUE(log.contains(notNecessary, 2)) << log.dump();
}

TEST_F(ObjectAttrListTest, AFailedRefreshIsLoggedAndTheListingGoesOn) {
  LogCapture log;
  Rows rows;
  std::string message;
  {
    qztest::FaultPlatform faults;
    // The refresh lists the directory; the listing itself reads only the
    // two databases.
    faults.failCall(qztest::NpOp::kDirOpen, 1, NP_ERR_ACCESS);
    QzvItemList* result = folder_->getObjectAttrList(QzbString(), S("Status"));
    message = folder_->getErrorMessage().toStdString();
    EXPECT_EQ(faults.failuresInjected(), 1);
    rows = qztest::takeList(result);
  }
  EXPECT_EQ(message, "Access to " + dir_.path() + " is denied");
  EXPECT_TRUE(
      log.contains("Error refreshing cached folder attributes for getObjectAttrList() on "
                   "folder " +
                       dir_.path() + ": Access to " + dir_.path() + " is denied",
                   2))
      << log.dump();
  // No cache rows could be made, so the fixed row is listed.
  EXPECT_EQ(rows, (Rows{listed({"sales.tmeta", "sales", "Status", "0", "draft"}, 14)}));
}

TEST_F(ObjectAttrListTest, AnUnopenableCacheFailsWithItsOpenError) {
  qztest::makeDirs(qztest::cmdOf(dir_.path()));
  LogCapture log;
  EXPECT_EQ(folder_->getObjectAttrList(QzbString(), QzbString()), nullptr);
  const std::string message = folder_->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + qztest::cmdOf(dir_.path()) + ": ", 0), 0u) << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST_F(ObjectAttrListTest, AFailedCacheSelectFailsWithTheConnectionsMessage) {
  list(QzbString(), QzbString());  // makes the cache
  qztest::execute(qztest::cmdOf(dir_.path()), "DROP TABLE v_file");
  LogCapture log;
  EXPECT_EQ(folder_->getObjectAttrList(QzbString(), QzbString()), nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no such table: v_file");
  EXPECT_TRUE(log.contains("no such table: v_file", 5)) << log.dump();
}

TEST_F(ObjectAttrListTest, AnUnopenableFixedDatabaseFailsWithItsOpenError) {
  ASSERT_EQ(std::remove(db_.c_str()), 0);
  qztest::makeDirs(db_);
  LogCapture log;
  EXPECT_EQ(folder_->getObjectAttrList(QzbString(), QzbString()), nullptr);
  const std::string message = folder_->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + db_ + ": ", 0), 0u) << message;
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST_F(ObjectAttrListTest, AFailedFixedSelectFailsWithTheConnectionsMessage) {
  qztest::execute(db_, "DROP TABLE v_object");
  LogCapture log;
  EXPECT_EQ(folder_->getObjectAttrList(QzbString(), QzbString()), nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "no such table: v_object");
  EXPECT_TRUE(log.contains("no such table: v_object", 5)) << log.dump();
}

}  // namespace
