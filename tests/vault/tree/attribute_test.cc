// Stored attributes (QzvAttributeImpl): loading the rows of v_attr, changing
// them in memory, and writing them back whole in one transaction.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "attribute_impl.h"
#include "attribute_sql.h"
#include "folder_test_util.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::allAttrRows;
using qztest::Cell;
using qztest::own;
using qztest::Owned;
using qztest::Row;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

const Cell kNull = std::nullopt;

// An attribute of the folder `directory` (file name null) or of one of its
// objects.
Owned<QzvAttributeImpl> load(QzvVaultImpl* vault, const std::string& directory,
                             const QzbString& fileName, const std::string& name) {
  Owned<QzvAttributeImpl> attribute(new QzvAttributeImpl());
  EXPECT_TRUE(attribute->init(vault, S(directory), fileName, S(name)))
      << attribute->getErrorMessage().asCstr();
  return attribute;
}

Owned<QzvAttributeImpl> loadFolderAttr(QzvVaultImpl* vault, const std::string& directory,
                                       const std::string& name) {
  return load(vault, directory, QzbString(), name);
}

// A v_attr row as stored: fname, attr, seq, v0..v9.
Row stored(const Cell& fname, const std::string& attr, int seq,
           std::initializer_list<Cell> values) {
  Row row{fname, attr, std::to_string(seq)};
  for (const Cell& value : values) row.push_back(value);
  while (row.size() < 13) row.push_back(kNull);
  return row;
}

std::string valueOf(const QzbString& value) {
  return value.isNull() ? std::string("<null>") : value.toStdString();
}

class AttributeTest : public ::testing::Test {
 protected:
  AttributeTest() : vault_(dir_.path()), db_(qztest::fixedDb(vault_.get(), dir_.path())) {}

  TempDir dir_;
  ScopedVault vault_;
  std::string db_;
};

// ---------------------------------------------------------------------------
// Statement texts

TEST(AttributeSql, TextsAreExact) {
  EXPECT_EQ(qzviAttrSelectSql(true).toStdString(),
            "SELECT v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr WHERE fname IS NULL AND "
            "attr = ? ORDER BY seq");
  EXPECT_EQ(qzviAttrSelectSql(false).toStdString(),
            "SELECT v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr WHERE fname = ? AND "
            "attr = ? ORDER BY seq");
  // The folder's delete ends with a blank.
  EXPECT_EQ(qzviAttrDeleteSql(true).toStdString(),
            "DELETE FROM v_attr WHERE fname IS NULL AND attr = ? ");
  EXPECT_EQ(qzviAttrDeleteSql(false).toStdString(),
            "DELETE FROM v_attr WHERE fname=? AND attr = ?");
  EXPECT_EQ(qzviAttrInsertSql().toStdString(),
            "INSERT INTO v_attr(fname, attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9) VALUES "
            "(?,?,?,?,?,?,?,?,?,?,?,?,?)");
}

// ---------------------------------------------------------------------------
// Loading and reading

TEST_F(AttributeTest, WithoutStoredRowsHasOneRowOfNulls) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  EXPECT_EQ(attribute->numRows(), 1);
  for (int column = 0; column < 10; ++column) {
    EXPECT_TRUE(attribute->getValue(column, 0).isNull()) << column;
  }
  EXPECT_TRUE(attribute->getSingletonValue().isNull());
  EXPECT_EQ(attribute->getName().toStdString(), "Owner");
  EXPECT_FALSE(attribute->isReadOnly());
  EXPECT_TRUE(attribute->getErrorMessage().isNull());
}

TEST_F(AttributeTest, CommittingAnAttributeWithoutRowsWritesOneRowOfNullsAtSeqZero) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  ASSERT_TRUE(attribute->commit()) << attribute->getErrorMessage().asCstr();
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Owner", 0, {})}));
}

TEST_F(AttributeTest, ReadsEveryColumnOfEveryRowInSeqOrder) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0, v1, v9) VALUES "
                  "(NULL, 'Region', 1, 'north', 'N', 'last'), "
                  "(NULL, 'Region', 0, 'south', 'S', NULL), "
                  "('a.job.def', 'Region', 0, 'object', NULL, NULL)");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Region");
  ASSERT_EQ(attribute->numRows(), 2);
  EXPECT_EQ(valueOf(attribute->getValue(0, 0)), "south");
  EXPECT_EQ(valueOf(attribute->getValue(1, 0)), "S");
  EXPECT_EQ(valueOf(attribute->getValue(9, 0)), "<null>");
  EXPECT_EQ(valueOf(attribute->getValue(0, 1)), "north");
  EXPECT_EQ(valueOf(attribute->getValue(1, 1)), "N");
  EXPECT_EQ(valueOf(attribute->getValue(9, 1)), "last");
  EXPECT_EQ(valueOf(attribute->getSingletonValue()), "south");
}

TEST_F(AttributeTest, OutOfRangeCellsAreNullStrings) {
  qztest::execute(
      db_, "INSERT INTO v_attr (fname, attr, seq, v0, v9) VALUES (NULL, 'Tag', 0, 'x', 'y')");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Tag");
  ASSERT_EQ(attribute->numRows(), 1);
  // The cells next to the edges hold values, so a null below is the range
  // test at work, not an empty cell.
  EXPECT_EQ(valueOf(attribute->getValue(0, 0)), "x");
  EXPECT_EQ(valueOf(attribute->getValue(9, 0)), "y");
  EXPECT_TRUE(attribute->getValue(10, 0).isNull());
  EXPECT_TRUE(attribute->getValue(0, attribute->numRows()).isNull());
  // The column test is unsigned: negative indexes fall outside too.
  EXPECT_TRUE(attribute->getValue(-1, 0).isNull());
  EXPECT_TRUE(attribute->getValue(0, -1).isNull());
  EXPECT_TRUE(attribute->getValue(-2147483647 - 1, 0).isNull());
}

TEST_F(AttributeTest, RowsWithGapsInSeqAreReadAndWrittenBackAsConsecutiveRows) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, 'Steps', 9, 'third'), (NULL, 'Steps', 0, 'first'), "
                  "(NULL, 'Steps', 5, 'second')");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Steps");
  ASSERT_EQ(attribute->numRows(), 3);
  EXPECT_EQ(valueOf(attribute->getValue(0, 0)), "first");
  EXPECT_EQ(valueOf(attribute->getValue(0, 1)), "second");
  EXPECT_EQ(valueOf(attribute->getValue(0, 2)), "third");
  ASSERT_TRUE(attribute->commit()) << attribute->getErrorMessage().asCstr();
  EXPECT_EQ(allAttrRows(db_),
            (Rows{stored(kNull, "Steps", 0, {"first"}), stored(kNull, "Steps", 1, {"second"}),
                  stored(kNull, "Steps", 2, {"third"})}));
}

// ---------------------------------------------------------------------------
// Changing in memory

TEST_F(AttributeTest, SettingACellBeyondTheLastRowAddsNullRows) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Matrix");
  attribute->setValue(3, 2, S("v"));
  EXPECT_EQ(attribute->numRows(), 3);
  EXPECT_EQ(valueOf(attribute->getValue(3, 2)), "v");
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 10; ++column) {
      EXPECT_TRUE(attribute->getValue(column, row).isNull()) << row << "," << column;
    }
  }
  // Nothing reaches the database before commit.
  EXPECT_TRUE(allAttrRows(db_).empty());
  ASSERT_TRUE(attribute->commit());
  // Every row is written, also the rows whose values are all null.
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Matrix", 0, {}), stored(kNull, "Matrix", 1, {}),
                                    stored(kNull, "Matrix", 2, {kNull, kNull, kNull, "v"})}));
}

TEST_F(AttributeTest, SetValueIgnoresANegativeRowAndAColumnOutsideTheTen) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Tag");
  attribute->setValue(0, -1, S("a"));
  attribute->setValue(10, 0, S("b"));
  attribute->setValue(-1, 0, S("c"));
  attribute->setValue(10, 4, S("d"));
  EXPECT_EQ(attribute->numRows(), 1);
  for (int column = 0; column < 10; ++column) {
    EXPECT_TRUE(attribute->getValue(column, 0).isNull());
  }
  attribute->setValue(9, 0, S("edge"));
  EXPECT_EQ(valueOf(attribute->getValue(9, 0)), "edge");
}

TEST_F(AttributeTest, ARowBeyondTheLimitIsRefusedAndTheNextCommitSaysSo) {
  qztest::execute(db_, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, 'Big', 0, 'kept')");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Big");
  attribute->setValue(1, 0, S("changed"));
  // Once this added rows one by one up to the number given.
  attribute->setValue(0, 2147483647, S("far"));
  attribute->setValue(0, QZV_ATTR_MAX_ROWS, S("just beyond"));
  EXPECT_EQ(attribute->numRows(), 1);
  EXPECT_FALSE(attribute->commit());
  EXPECT_EQ(valueOf(attribute->getErrorMessage()),
            "Row 100000 is beyond the last row an attribute may have (99999)");
  // Nothing was written, not even the change that was accepted.
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Big", 0, {"kept"})}));
  // The refusal is reported once; the rows as they are can then be written.
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Big", 0, {"kept", "changed"})}));
}

TEST_F(AttributeTest, TheLastRowBelowTheLimitIsAccepted) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Big");
  attribute->setValue(2, QZV_ATTR_MAX_ROWS - 1, S("last"));
  EXPECT_EQ(attribute->numRows(), QZV_ATTR_MAX_ROWS);
  ASSERT_TRUE(attribute->commit()) << valueOf(attribute->getErrorMessage());
  auto again = loadFolderAttr(vault_.get(), dir_.path(), "Big");
  EXPECT_EQ(again->numRows(), QZV_ATTR_MAX_ROWS);
  EXPECT_EQ(valueOf(again->getValue(2, QZV_ATTR_MAX_ROWS - 1)), "last");
}

TEST_F(AttributeTest, AnEmptyValueIsStoredAsEmptyTextAndANullValueAsNull) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Note");
  attribute->setValue(0, 0, S(""));
  attribute->setValue(1, 0, QzbString());
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Note", 0, {"", kNull})}));
  auto again = loadFolderAttr(vault_.get(), dir_.path(), "Note");
  EXPECT_FALSE(again->getValue(0, 0).isNull());
  EXPECT_TRUE(again->getValue(0, 0).isEmpty());
  EXPECT_TRUE(again->getValue(1, 0).isNull());
}

TEST_F(AttributeTest, ClearThenCommitLeavesOneRowOfNullsNotNone) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, 'List', 0, 'a'), (NULL, 'List', 1, 'b'), (NULL, 'List', 2, 'c')");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "List");
  ASSERT_EQ(attribute->numRows(), 3);
  attribute->clear();
  EXPECT_EQ(attribute->numRows(), 1);
  EXPECT_TRUE(attribute->getValue(0, 0).isNull());
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "List", 0, {})}));
}

// ---------------------------------------------------------------------------
// Writing back

TEST_F(AttributeTest, CommitRewritesTheAttributeWholeAndKeepsTheRowsForAnotherCommit) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, 'List', 0, 'a'), (NULL, 'List', 1, 'b'), (NULL, 'List', 2, 'c'), "
                  "(NULL, 'Other', 0, 'untouched')");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "List");
  attribute->setValue(0, 1, S("B"));
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(allAttrRows(db_),
            (Rows{stored(kNull, "List", 0, {"a"}), stored(kNull, "List", 1, {"B"}),
                  stored(kNull, "List", 2, {"c"}), stored(kNull, "Other", 0, {"untouched"})}));
  // The rows stay in memory: change again, commit again.
  EXPECT_EQ(attribute->numRows(), 3);
  attribute->setValue(5, 3, S("d"));
  ASSERT_TRUE(attribute->commit());
  EXPECT_EQ(allAttrRows(db_),
            (Rows{stored(kNull, "List", 0, {"a"}), stored(kNull, "List", 1, {"B"}),
                  stored(kNull, "List", 2, {"c"}),
                  stored(kNull, "List", 3, {kNull, kNull, kNull, kNull, kNull, "d"}),
                  stored(kNull, "Other", 0, {"untouched"})}));
}

TEST_F(AttributeTest, AFolderAttributeAndAnObjectAttributeOfTheSameNameAreSeparateRowSets) {
  auto folderAttr = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  auto objectAttr = load(vault_.get(), dir_.path(), S("orders.job.def"), "Owner");
  folderAttr->setValue(0, 0, S("folder owner"));
  objectAttr->setValue(0, 0, S("object owner"));
  objectAttr->setValue(0, 1, S("deputy"));
  ASSERT_TRUE(folderAttr->commit());
  ASSERT_TRUE(objectAttr->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Owner", 0, {"folder owner"}),
                                    stored("orders.job.def", "Owner", 0, {"object owner"}),
                                    stored("orders.job.def", "Owner", 1, {"deputy"})}));
  // Reading one gives only its own rows.
  auto folderAgain = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  EXPECT_EQ(folderAgain->numRows(), 1);
  EXPECT_EQ(valueOf(folderAgain->getSingletonValue()), "folder owner");
  auto objectAgain = load(vault_.get(), dir_.path(), S("orders.job.def"), "Owner");
  EXPECT_EQ(objectAgain->numRows(), 2);
  // Clearing the folder's leaves the object's alone.
  folderAgain->clear();
  ASSERT_TRUE(folderAgain->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Owner", 0, {}),
                                    stored("orders.job.def", "Owner", 0, {"object owner"}),
                                    stored("orders.job.def", "Owner", 1, {"deputy"})}));
}

TEST_F(AttributeTest, TwoObjectsOfOneAttributeDoNotSeeEachOthersChangesAndTheLastCommitWins) {
  auto first = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  auto second = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  first->setValue(0, 0, S("first"));
  first->setValue(0, 1, S("first, row 1"));
  EXPECT_TRUE(second->getValue(0, 0).isNull());
  second->setValue(0, 0, S("second"));
  ASSERT_TRUE(first->commit());
  ASSERT_TRUE(second->commit());
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Owner", 0, {"second"})}));
}

// ---------------------------------------------------------------------------
// Failures

TEST_F(AttributeTest, InitFailsWithTheOpenErrorWhenTheDatabaseCannotBeOpened) {
  TempDir other;
  qztest::makeDirs(other.join(".v_fmd"));  // a directory where the database belongs
  Owned<QzvAttributeImpl> attribute(new QzvAttributeImpl());
  EXPECT_FALSE(attribute->init(vault_.get(), S(other.path()), QzbString(), S("Owner")));
  const std::string message = attribute->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + other.join(".v_fmd") + ": ", 0), 0u) << message;
}

TEST_F(AttributeTest, InitFailsWithTheConnectionsMessageWhenTheSelectFails) {
  // A table without the value columns: the select cannot be prepared.
  qztest::execute(db_,
                  "DROP TABLE v_attr; CREATE TABLE v_attr (fname text, attr text, seq integer)");
  Owned<QzvAttributeImpl> attribute(new QzvAttributeImpl());
  EXPECT_FALSE(attribute->init(vault_.get(), S(dir_.path()), QzbString(), S("Owner")));
  EXPECT_EQ(attribute->getErrorMessage().toStdString(), "no such column: v0");
}

TEST_F(AttributeTest, CommitFailsWithTheOpenErrorWhenTheDatabaseVanishedIntoADirectory) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  ASSERT_EQ(std::remove(db_.c_str()), 0);
  qztest::makeDirs(db_);
  attribute->setValue(0, 0, S("x"));
  EXPECT_FALSE(attribute->commit());
  const std::string message = attribute->getErrorMessage().toStdString();
  EXPECT_EQ(message.rfind("Error opening " + db_ + ": ", 0), 0u) << message;
}

TEST_F(AttributeTest, AFailedDeleteRollsBackWithTheConnectionsMessage) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, 'Owner', 0, 'kept');"
                  "CREATE TRIGGER no_delete BEFORE DELETE ON v_attr "
                  "BEGIN SELECT RAISE(ABORT, 'deleting is refused'); END;");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  attribute->setValue(0, 0, S("changed"));
  EXPECT_FALSE(attribute->commit());
  EXPECT_EQ(attribute->getErrorMessage().toStdString(), "deleting is refused");
  EXPECT_EQ(allAttrRows(db_), (Rows{stored(kNull, "Owner", 0, {"kept"})}));
}

TEST_F(AttributeTest, AFailedInsertRollsBackTheDeleteWithTheStatementsMessage) {
  qztest::execute(db_,
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                  "(NULL, 'Owner', 0, 'kept'), (NULL, 'Owner', 1, 'kept too');"
                  "CREATE TRIGGER no_second_row BEFORE INSERT ON v_attr WHEN NEW.seq = 1 "
                  "BEGIN SELECT RAISE(ABORT, 'second row refused'); END;");
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  attribute->setValue(0, 0, S("changed"));
  EXPECT_FALSE(attribute->commit());
  EXPECT_EQ(attribute->getErrorMessage().toStdString(), "second row refused");
  // The delete and the first insert were undone.
  EXPECT_EQ(allAttrRows(db_),
            (Rows{stored(kNull, "Owner", 0, {"kept"}), stored(kNull, "Owner", 1, {"kept too"})}));
}

TEST_F(AttributeTest, AFailedPrepareRollsBackTheDeleteWithTheConnectionsMessage) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  // After the load the table loses its last value column: the delete still
  // runs, the insert cannot be prepared.
  qztest::execute(db_,
                  "DROP TABLE v_attr; CREATE TABLE v_attr (fname text, attr text, seq integer, "
                  "v0, v1, v2, v3, v4, v5, v6, v7, v8);"
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, 'Owner', 0, 'kept')");
  attribute->setValue(0, 0, S("changed"));
  EXPECT_FALSE(attribute->commit());
  EXPECT_EQ(attribute->getErrorMessage().toStdString(), "table v_attr has no column named v9");
  EXPECT_EQ(qztest::query(db_, "SELECT attr, seq, v0 FROM v_attr"), (Rows{{"Owner", "0", "kept"}}));
}

TEST_F(AttributeTest, AFailedCommitReportsTheConnectionsMessage) {
  auto attribute = loadFolderAttr(vault_.get(), dir_.path(), "Owner");
  attribute->setValue(0, 0, S("changed"));
  // A reader in the middle of a read transaction keeps the writer from
  // committing; with no busy wait the commit fails at once.
  qztest::ScopedOption noWait("BASE/SQLITE_BUSY_TIMEOUT_MS", "0");
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(db_.c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM v_attr;", nullptr, nullptr, nullptr),
            SQLITE_OK);
  const bool committed = attribute->commit();
  sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(reader);
  EXPECT_FALSE(committed);
  EXPECT_EQ(attribute->getErrorMessage().toStdString(), "database is locked");
  EXPECT_TRUE(allAttrRows(db_).empty());
}

TEST(AttributeBegin, AFailedBeginSetsNoMessageAndIssuesNoRollback) {
  // With every database in memory the vault keeps one connection per
  // database; a transaction left open on it makes the attribute's BEGIN fail.
  qztest::ScopedOption bypass("QZVLT/BYPASS", "1");
  TempDir dir;
  ScopedVault vault(dir.path());
  auto attribute = loadFolderAttr(vault.get(), dir.path(), "Owner");
  SqliteConnection* shared = vault->dbCache().findMemDB(S(dir.join(".v_fmd")));
  ASSERT_NE(shared, nullptr);
  ASSERT_TRUE(shared->exec(S("BEGIN TRANSACTION"), 0));
  ASSERT_TRUE(shared->exec(
      S("INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, 'Pending', 0, 'p')"), 0));
  attribute->setValue(0, 0, S("x"));
  EXPECT_FALSE(attribute->commit());
  EXPECT_TRUE(attribute->getErrorMessage().isNull());
  // No roll-back was issued: the outer transaction and its row are intact.
  EXPECT_TRUE(shared->exec(S("COMMIT TRANSACTION"), 0)) << shared->getErrorMessage().asCstr();
  auto pending = loadFolderAttr(vault.get(), dir.path(), "Pending");
  EXPECT_EQ(valueOf(pending->getSingletonValue()), "p");
  auto owner = loadFolderAttr(vault.get(), dir.path(), "Owner");
  EXPECT_TRUE(owner->getSingletonValue().isNull());
}

TEST(AttributeReadOnly, CommitOnAReadOnlyDatabaseFailsWithDataFileIsReadOnly) {
  // Root ignores permission bits, so the check runs in a child that has
  // dropped to an unprivileged user.
  TempDir dir;
  qztest::makeReachable(dir.path());
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  qztest::execute(dir.join(".v_fmd"),
                  "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, 'Owner', 0, 'kept')");
  ASSERT_EQ(chmod(dir.join(".v_fmd").c_str(), 0644), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    Owned<QzvAttributeImpl> attribute(new QzvAttributeImpl());
    if (!attribute->init(vault.get(), S(dir.path()), QzbString(), S("Owner"))) return 1;
    if (attribute->getSingletonValue().toStdString() != "kept") return 2;
    attribute->setValue(0, 0, S("changed"));
    if (attribute->commit()) return 3;
    if (attribute->getErrorMessage().toStdString() != "Data file is read only") return 4;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(allAttrRows(dir.join(".v_fmd")), (Rows{stored(kNull, "Owner", 0, {"kept"})}));
}

}  // namespace
