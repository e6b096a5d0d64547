// An object's attribute listing (cached rows first, then stored rows of other
// names) and single attributes (the file's own first, the stored one second).
#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "qzvault/attribute.h"
#include "qzvault/item_list.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::own;
using qztest::Row;
using qztest::Rows;
using qztest::S;

// (attr, seq, v0) of every listed row, in list order.
Rows shortRows(const Rows& rows) {
  Rows result;
  for (const Row& row : rows) result.push_back(Row{row[0], row[1], row[2]});
  return result;
}

// The listed rows without the cache's own date rows.
Rows withoutDates(const Rows& rows) {
  Rows result;
  for (const Row& row : rows) {
    if (row[0] == Cell("_CREATIONDATE") || row[0] == Cell("_MODIFIEDDATE")) continue;
    result.push_back(row);
  }
  return result;
}

class ObjectAttributes : public qztest::ObjectTest {
 protected:
  ObjectAttributes() : ObjectTest(true) {}
};

TEST_F(ObjectAttributes, CachedRowsComeFirstThenStoredRowsOfOtherNames) {
  add("plan.tmeta", "name Plan\nattr Colour 0 0 red\nattr Colour 1 0 blue\nattr Size 0 0 10\n");
  addAttrRow("plan.tmeta", "Owner", 0, "ops", "last");
  addAttrRow("plan.tmeta", "Alpha", 1, "second");
  addAttrRow("plan.tmeta", "Alpha", 0, "first");
  addAttrRow("other.tmeta", "Owner", 0, "not mine");
  auto object = open("plan.tmeta");
  Rows rows = qztest::takeList(object->getAttrList());
  ASSERT_FALSE(rows.empty()) << object->getErrorMessage().asCstr();
  for (const Row& row : rows) EXPECT_EQ(row.size(), 12u);
  // The cache also holds the file's dates, sorted in among its rows.
  Rows dates = qztest::rowsWhere(rows, 0, "_MODIFIEDDATE");
  ASSERT_EQ(dates.size(), 1u);
  EXPECT_EQ(qztest::rowsWhere(rows, 0, "_CREATIONDATE").size(), 1u);
  EXPECT_EQ(shortRows(withoutDates(rows)),
            (Rows{{Cell("Colour"), Cell("0"), Cell("red")},
                  {Cell("Colour"), Cell("1"), Cell("blue")},
                  {Cell("Size"), Cell("0"), Cell("10")},
                  {Cell("Alpha"), Cell("0"), Cell("first")},
                  {Cell("Alpha"), Cell("1"), Cell("second")},
                  {Cell("Owner"), Cell("0"), Cell("ops")}}));
  // All ten values travel: v9 of the stored row.
  Rows owner = qztest::rowsWhere(rows, 0, "Owner");
  ASSERT_EQ(owner.size(), 1u);
  EXPECT_EQ(owner[0][11], Cell("last"));
  EXPECT_EQ(owner[0][3], std::nullopt);
}

TEST_F(ObjectAttributes, ACachedAttributeHidesTheStoredOneWithAllItsRows) {
  add("plan.tmeta", "attr Colour 0 0 red\n");
  addAttrRow("plan.tmeta", "Colour", 0, "stored green");
  addAttrRow("plan.tmeta", "Colour", 1, "stored yellow");
  addAttrRow("plan.tmeta", "Colour", 2, "stored grey");
  auto object = open("plan.tmeta");
  Rows rows = withoutDates(qztest::takeList(object->getAttrList()));
  EXPECT_EQ(shortRows(rows), (Rows{{Cell("Colour"), Cell("0"), Cell("red")}}));
}

TEST_F(ObjectAttributes, AFileWithoutAPlugInListsItsDatesAndStoredRows) {
  add("notes.txt");
  addAttrRow("notes.txt", "_CREATOR", 0, "someone");
  auto object = open("notes.txt");
  Rows rows = qztest::takeList(object->getAttrList());
  ASSERT_EQ(rows.size(), 3u) << object->getErrorMessage().asCstr();
  EXPECT_EQ(rows[0][0], Cell("_CREATIONDATE"));
  EXPECT_EQ(rows[1][0], Cell("_MODIFIEDDATE"));
  EXPECT_EQ(shortRows({rows[2]}), (Rows{{Cell("_CREATOR"), Cell("0"), Cell("someone")}}));
}

TEST_F(ObjectAttributes, TheListingFirstBringsTheCacheUpToDate) {
  const std::string path = add("plan.tmeta", "attr Colour 0 0 red\n");
  auto object = open("plan.tmeta");
  EXPECT_EQ(qztest::rowsWhere(qztest::takeList(object->getAttrList()), 0, "Colour").size(), 1u);
  qztest::writeFile(path, "attr Colour 0 0 violet\n");
  qztest::setMtime(path, qztest::getMtime(path) + 100);  // whole seconds: make the change visible
  Rows rows = qztest::rowsWhere(qztest::takeList(object->getAttrList()), 0, "Colour");
  EXPECT_EQ(shortRows(rows), (Rows{{Cell("Colour"), Cell("0"), Cell("violet")}}));
}

// Root ignores permission bits: the child that lists runs as nobody, so the
// folder's databases are read-only for it and the stale cache cannot be
// rewritten.
TEST_F(ObjectAttributes, WhenTheCacheCannotBeRefreshedBothDatabasesAreStillListed) {
  const std::string path = add("plan.tmeta", "attr Colour 0 0 red\n");
  addAttrRow("plan.tmeta", "Owner", 0, "ops");
  auto object = open("plan.tmeta");
  ASSERT_EQ(qztest::rowsWhere(qztest::takeList(object->getAttrList()), 0, "Colour").size(), 1u);
  qztest::writeFile(path, "attr Colour 0 0 violet\n");
  qztest::setMtime(path, qztest::getMtime(path) + 100);
  qztest::makeReachable(dir_.path());
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    Rows rows = qztest::takeList(object->getAttrList());
    if (!log.contains("Error refreshing cached file attributes for getAttrList() on object "
                      "plan.tmeta: attempt to write a readonly database",
                      2)) {
      std::fprintf(stderr, "%s", log.dump().c_str());
      return 10;
    }
    // The stale cached row and the stored row.
    if (shortRows(withoutDates(rows)) != Rows{{Cell("Colour"), Cell("0"), Cell("red")},
                                              {Cell("Owner"), Cell("0"), Cell("ops")}}) {
      return 11;
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ObjectAttributes, ACacheThatIsNoDatabaseGivesNoList) {
  add("notes.txt");
  auto object = open("notes.txt");
  qztest::writeFile(dir_.join(".v_cmd"), std::string(4096, 'x'));
  LogCapture log;
  EXPECT_EQ(object->getAttrList(), nullptr);
  const std::string message = "Error opening " + dir_.join(".v_cmd") + ": file is not a database";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  // The refresh failed first, with the same reason, in the diagnostic log.
  EXPECT_TRUE(log.contains(
      "Error refreshing cached file attributes for getAttrList() on object notes.txt: " + message,
      2))
      << log.dump();
}

TEST_F(ObjectAttributes, AFixedDatabaseThatIsNoDatabaseGivesNoList) {
  add("notes.txt");
  auto object = open("notes.txt");
  qztest::writeFile(dir_.join(".v_fmd"), std::string(4096, 'x'));
  EXPECT_EQ(object->getAttrList(), nullptr);
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Error opening " + dir_.join(".v_fmd") + ": file is not a database");
}

TEST_F(ObjectAttributes, AFailedQueryGivesTheDatabasesMessage) {
  add("notes.txt");
  auto object = open("notes.txt");
  qztest::execute(fmd(), "DROP TABLE v_attr");
  EXPECT_EQ(object->getAttrList(), nullptr);
  EXPECT_EQ(object->getErrorMessage().toStdString(), "no such table: v_attr");
}

TEST_F(ObjectAttributes, TheFilesOwnAttributeWinsOverAStoredOne) {
  add("plan.tmeta", "attr Colour 0 0 red\nattr Colour 1 0 blue\nreadonly Colour\n");
  addAttrRow("plan.tmeta", "Colour", 0, "stored green");
  auto object = open("plan.tmeta");
  auto attribute = own(object->getAttribute(S("Colour")));
  ASSERT_NE(attribute, nullptr) << object->getErrorMessage().asCstr();
  EXPECT_EQ(attribute->numRows(), 2);
  EXPECT_EQ(attribute->getValue(0, 0).toStdString(), "red");
  EXPECT_EQ(attribute->getValue(0, 1).toStdString(), "blue");
  EXPECT_TRUE(attribute->isReadOnly());  // the file says so
}

TEST_F(ObjectAttributes, AStoredAttributeIsFoundWhenTheFileHasNoneOfThatName) {
  add("plan.tmeta", "attr Colour 0 0 red\n");
  addAttrRow("plan.tmeta", "Owner", 0, "ops");
  auto object = open("plan.tmeta");
  auto attribute = own(object->getAttribute(S("Owner")));
  ASSERT_NE(attribute, nullptr) << object->getErrorMessage().asCstr();
  EXPECT_EQ(attribute->getSingletonValue().toStdString(), "ops");
  EXPECT_FALSE(attribute->isReadOnly());
}

TEST_F(ObjectAttributes, AnAttributeNobodyHoldsIsAnEmptyStoredOne) {
  add("notes.txt");
  auto object = open("notes.txt");
  auto attribute = own(object->getAttribute(S("Nothing")));
  ASSERT_NE(attribute, nullptr) << object->getErrorMessage().asCstr();
  EXPECT_EQ(attribute->numRows(), 1);
  EXPECT_TRUE(attribute->getValue(0, 0).isNull());
}

TEST_F(ObjectAttributes, AnAttributeThatCannotBeReadGivesNullAndTheMessage) {
  add("notes.txt");
  auto object = open("notes.txt");
  qztest::writeFile(dir_.join(".v_fmd"), std::string(4096, 'x'));
  LogCapture log;
  EXPECT_EQ(object->getAttribute(S("Owner")), nullptr);
  const std::string message = "Error opening " + dir_.join(".v_fmd") + ": file is not a database";
  EXPECT_EQ(object->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

}  // namespace
