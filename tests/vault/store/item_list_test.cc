// The in-memory item list and the item list over a query cursor.
#include "item_list_impl.h"

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Ends a list through release(), as callers must.
struct ListReleaser {
  void operator()(QzvItemList* list) const {
    if (list != nullptr) list->release();
  }
};
using ListPtr = std::unique_ptr<QzvItemList, ListReleaser>;

// What the fakes below saw: releases in order, and cursor steps.
struct FakeRecord {
  std::vector<std::string> releases;
  int steps = 0;
  std::vector<int> columnsAsked;
};

// A cursor over fixed rows. `statuses`, when given, is what next() reports
// step by step instead of walking the rows (1 = a row).
class FakeCursor final : public SqliteCursor {
 public:
  FakeCursor(FakeRecord* record, std::vector<std::vector<QzbString>> rows, int columns)
      : record_(record), rows_(std::move(rows)), columns_(columns) {}

  std::vector<int> statuses;

  int next() override {
    ++record_->steps;
    if (!statuses.empty()) {
      int status = statuses.front();
      statuses.erase(statuses.begin());
      if (status == 1) ++position_;
      return status;
    }
    if (position_ + 1 < static_cast<int>(rows_.size())) {
      ++position_;
      return 1;
    }
    position_ = static_cast<int>(rows_.size());
    return 0;
  }
  int getInt(int column) override { return getText(column).asInt(); }
  void release() override {
    record_->releases.push_back("cursor");
    delete this;
  }
  int64_t getInt64(int column) override { return getText(column).asInt64(); }
  double getDouble(int column) override { return getText(column).asDouble(); }
  QzbString getText(int column) override {
    record_->columnsAsked.push_back(column);
    if (position_ < 0 || position_ >= static_cast<int>(rows_.size())) return QzbString();
    if (column < 0 || column >= static_cast<int>(rows_[position_].size())) return QzbString();
    return rows_[position_][column];
  }
  bool isNullColumn(int column) override { return getText(column).isNull(); }
  int getColumnCount() override { return columns_; }
  QzbString getColumnName(int column) override {
    return QzbString(("c" + std::to_string(column)).c_str());
  }

 private:
  ~FakeCursor() override = default;
  FakeRecord* record_;
  std::vector<std::vector<QzbString>> rows_;
  int columns_;
  int position_ = -1;
};

// A statement that only records its release.
class FakeStatement final : public SqliteStatement {
 public:
  explicit FakeStatement(FakeRecord* record) : record_(record) {}
  QzbString getErrorMessage() const override { return QzbString("not an error"); }
  void bindNull(int) override {}
  void bindText(int, const QzbString&) override {}
  void bindInt(int, int64_t) override {}
  void bindDouble(int, double) override {}
  bool execute(int) override { return true; }
  void release() override {
    record_->releases.push_back("statement");
    delete this;
  }
  SqliteCursor* executeQuery() override { return nullptr; }
  int getResultCode() const override { return 0; }
  void clearBindings() override {}

 private:
  ~FakeStatement() override = default;
  FakeRecord* record_;
};

// A list of `rows` rows of two columns: "r<i>c0", "r<i>c1".
QzvItemListImpl* makeTwoColumnList(int rows) {
  auto* list = new QzvItemListImpl(2);
  for (int row = 0; row < rows; ++row) {
    EXPECT_TRUE(list->addRow());
    list->setLastRowElement(0, QzbString(("r" + std::to_string(row) + "c0").c_str()));
    list->setLastRowElement(1, QzbString(("r" + std::to_string(row) + "c1").c_str()));
  }
  return list;
}

QzvItemListImpl* makeOneColumnList(const std::vector<const char*>& values) {
  auto* list = new QzvItemListImpl(1);
  for (const char* value : values) {
    EXPECT_TRUE(list->addRow());
    list->setLastRowElement(0, QzbString(value));
  }
  return list;
}

// ---------------------------------------------------------------------------
// In-memory list.

TEST(ItemListImplTest, EmptyListFirstNextIsFalseAndValuesAreNullAndZero) {
  ListPtr list(new QzvItemListImpl(3));
  EXPECT_EQ(list->getNumCols(), 3);
  EXPECT_FALSE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());
  EXPECT_EQ(list->getValueUlong(0), 0UL);
}

TEST(ItemListImplTest, ZeroColumnsGivesNullForEveryValue) {
  ListPtr list(new QzvItemListImpl(0));
  auto* impl = static_cast<QzvItemListImpl*>(list.get());
  ASSERT_TRUE(impl->addRow());
  ASSERT_TRUE(impl->addRow());
  EXPECT_EQ(impl->rowCount(), 2u);
  EXPECT_EQ(list->getNumCols(), 0);
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());
  EXPECT_TRUE(list->getValue(-1).isNull());
  EXPECT_TRUE(list->getValue(1).isNull());
  EXPECT_EQ(list->getValueUlong(0), 0UL);
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
}

TEST(ItemListImplTest, DefaultConstructedListHasNoColumnsAndNoRows) {
  ListPtr list(new QzvItemListImpl());
  EXPECT_EQ(list->getNumCols(), 0);
  EXPECT_FALSE(list->next());
}

TEST(ItemListImplTest, RowsComeBackInInsertionOrderAfterTheFirstNext) {
  ListPtr list(makeTwoColumnList(3));
  EXPECT_EQ(list->getNumCols(), 2);
  for (int row = 0; row < 3; ++row) {
    ASSERT_TRUE(list->next()) << "row " << row;
    EXPECT_STREQ(list->getValue(0).asCstr(), ("r" + std::to_string(row) + "c0").c_str());
    EXPECT_STREQ(list->getValue(1).asCstr(), ("r" + std::to_string(row) + "c1").c_str());
  }
  EXPECT_FALSE(list->next());
}

TEST(ItemListImplTest, GetValueBeforeTheFirstNextIsNull) {
  ListPtr list(makeTwoColumnList(1));
  EXPECT_TRUE(list->getValue(0).isNull());
  EXPECT_EQ(list->getValueUlong(0), 0UL);
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "r0c0");
}

TEST(ItemListImplTest, ColumnIndexOutsideTheRowGivesNullAndZero) {
  ListPtr list(makeOneColumnList({"7"}));
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(-1).isNull());
  EXPECT_TRUE(list->getValue(1).isNull());  // the column count
  EXPECT_EQ(list->getValueUlong(-1), 0UL);
  EXPECT_EQ(list->getValueUlong(1), 0UL);
  EXPECT_EQ(list->getValueUlong(0), 7UL);
}

TEST(ItemListImplTest, NewRowHoldsNullValuesUntilSet) {
  ListPtr list(new QzvItemListImpl(2));
  auto* impl = static_cast<QzvItemListImpl*>(list.get());
  ASSERT_TRUE(impl->addRow());
  impl->setLastRowElement(1, QzbString(""));
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());
  EXPECT_FALSE(list->getValue(1).isNull());  // empty, not null
  EXPECT_STREQ(list->getValue(1).asCstr(), "");
}

TEST(ItemListImplTest, SetLastRowElementWithoutRowsDoesNothing) {
  ListPtr list(new QzvItemListImpl(1));
  auto* impl = static_cast<QzvItemListImpl*>(list.get());
  impl->setLastRowElement(0, QzbString("ignored"));
  EXPECT_EQ(impl->rowCount(), 0u);
  ASSERT_TRUE(impl->addRow());
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());
}

TEST(ItemListImplTest, SetLastRowElementWritesOnlyTheLastRow) {
  ListPtr list(new QzvItemListImpl(1));
  auto* impl = static_cast<QzvItemListImpl*>(list.get());
  ASSERT_TRUE(impl->addRow());
  impl->setLastRowElement(0, QzbString("first"));
  ASSERT_TRUE(impl->addRow());
  impl->setLastRowElement(0, QzbString("second"));
  QzbString moved("moved");
  impl->setLastRowElement(0, std::move(moved));
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "first");
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "moved");
}

TEST(ItemListImplTest, MinusOneReadAsUlongHasEveryBitSet) {
  ListPtr list(makeOneColumnList({"-1"}));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), ULONG_MAX);
  EXPECT_EQ(list->getValueUlong(0), static_cast<unsigned long>(-1L));
}

TEST(ItemListImplTest, UlongKeepsTheSignOfA32BitValue) {
  // 2147483648 does not fit 32 bits: it reads back as INT_MIN, which widens
  // with its sign.
  ListPtr list(makeOneColumnList({"42", "2147483647", "2147483648", " 12 ", "-5"}));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), 42UL);
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), 2147483647UL);
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), static_cast<unsigned long>(static_cast<long>(INT_MIN)));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), 12UL);
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), static_cast<unsigned long>(-5L));
}

TEST(ItemListImplTest, NonNumericTextReadsAsWhatAsIntGives) {
  ListPtr list(makeOneColumnList({"abc", "12abc", ""}));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), static_cast<unsigned long>(static_cast<long>(QzbString("abc").asInt())));
  EXPECT_EQ(list->getValueUlong(0), 0UL);
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0),
            static_cast<unsigned long>(static_cast<long>(QzbString("12abc").asInt())));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), 0UL);
}

TEST(ItemListImplTest, NextKeepsReturningFalseAfterTheEnd) {
  ListPtr list(makeTwoColumnList(1));
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());
}

TEST(ItemListImplTest, CopyListCopiesEveryRowAndStandsBeforeItsFirstRow) {
  ListPtr source(makeTwoColumnList(3));
  ListPtr copy(new QzvItemListImpl());
  auto* impl = static_cast<QzvItemListImpl*>(copy.get());
  ASSERT_TRUE(impl->copyList(source.get()));
  EXPECT_EQ(copy->getNumCols(), 2);
  EXPECT_EQ(impl->rowCount(), 3u);
  EXPECT_TRUE(copy->getValue(0).isNull());  // before the first row
  for (int row = 0; row < 3; ++row) {
    ASSERT_TRUE(copy->next());
    EXPECT_STREQ(copy->getValue(1).asCstr(), ("r" + std::to_string(row) + "c1").c_str());
  }
  EXPECT_FALSE(copy->next());
  EXPECT_FALSE(source->next()) << "the source is consumed";
}

TEST(ItemListImplTest, CopyListFromAnAdvancedSourceCopiesOnlyTheRowsAfterItsPosition) {
  ListPtr source(makeTwoColumnList(4));
  ASSERT_TRUE(source->next());  // on row 0
  ASSERT_TRUE(source->next());  // on row 1
  ListPtr copy(new QzvItemListImpl());
  auto* impl = static_cast<QzvItemListImpl*>(copy.get());
  ASSERT_TRUE(impl->copyList(source.get()));
  EXPECT_EQ(impl->rowCount(), 2u);
  ASSERT_TRUE(copy->next());
  EXPECT_STREQ(copy->getValue(0).asCstr(), "r2c0");
  ASSERT_TRUE(copy->next());
  EXPECT_STREQ(copy->getValue(0).asCstr(), "r3c0");
  EXPECT_FALSE(copy->next());
}

TEST(ItemListImplTest, CopyListOfAnEmptySourceGivesAnEmptyListWithItsColumns) {
  ListPtr source(new QzvItemListImpl(4));
  ListPtr copy(new QzvItemListImpl());
  auto* impl = static_cast<QzvItemListImpl*>(copy.get());
  ASSERT_TRUE(impl->copyList(source.get()));
  EXPECT_EQ(copy->getNumCols(), 4);
  EXPECT_EQ(impl->rowCount(), 0u);
  EXPECT_FALSE(copy->next());
}

TEST(ItemListImplTest, CopyListRefusesANullSourceAndRowsOfAnotherWidth) {
  ListPtr copy(makeTwoColumnList(1));
  auto* impl = static_cast<QzvItemListImpl*>(copy.get());
  EXPECT_FALSE(impl->copyList(nullptr));
  ListPtr threeColumns(new QzvItemListImpl(3));
  EXPECT_FALSE(impl->copyList(threeColumns.get()));
  EXPECT_EQ(impl->rowCount(), 1u);
  // Rows of the same width are appended after the ones held.
  ListPtr more(makeTwoColumnList(2));
  ASSERT_TRUE(impl->copyList(more.get()));
  EXPECT_EQ(impl->rowCount(), 3u);
}

TEST(ItemListImplTest, CopyListFromACursorList) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"a", "1"}, {"b", "-1"}}, 2);
  ListPtr source(new QzvItemListCursorImpl(cursor));
  ListPtr copy(new QzvItemListImpl());
  ASSERT_TRUE(static_cast<QzvItemListImpl*>(copy.get())->copyList(source.get()));
  EXPECT_EQ(copy->getNumCols(), 2);
  ASSERT_TRUE(copy->next());
  EXPECT_STREQ(copy->getValue(0).asCstr(), "a");
  ASSERT_TRUE(copy->next());
  EXPECT_EQ(copy->getValueUlong(1), ULONG_MAX);
  EXPECT_FALSE(copy->next());
  EXPECT_TRUE(record.releases.empty()) << "the source is not released by the copy";
}

// ---------------------------------------------------------------------------
// Cursor list.

TEST(ItemListCursorImplTest, NextIsTrueExactlyWhileTheCursorReportsARow) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"x"}, {"y"}}, 1);
  ListPtr list(new QzvItemListCursorImpl(cursor));
  EXPECT_EQ(list->getNumCols(), 1);
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "x");
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "y");
  EXPECT_FALSE(list->next());
}

TEST(ItemListCursorImplTest, AnErrorStatusEndsTheIterationForGood) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"x"}, {"y"}, {"z"}}, 1);
  cursor->statuses = {1, -1, 1};
  ListPtr list(new QzvItemListCursorImpl(cursor));
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(record.steps, 2) << "a finished cursor is not stepped again";
}

TEST(ItemListCursorImplTest, AStatusOtherThanOneIsNotARow) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"x"}}, 1);
  cursor->statuses = {100};  // SQLite's own "row" code is not this layer's 1
  ListPtr list(new QzvItemListCursorImpl(cursor));
  EXPECT_FALSE(list->next());
}

TEST(ItemListCursorImplTest, NextKeepsReturningFalseAfterTheEnd) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"x"}}, 1);
  ListPtr list(new QzvItemListCursorImpl(cursor));
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(record.steps, 2);
}

TEST(ItemListCursorImplTest, ColumnIndexIsPassedToTheCursorUnchecked) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"x", "y"}}, 2);
  ListPtr list(new QzvItemListCursorImpl(cursor));
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(-1).isNull());
  EXPECT_TRUE(list->getValue(2).isNull());
  EXPECT_STREQ(list->getValue(1).asCstr(), "y");
  EXPECT_EQ(record.columnsAsked, (std::vector<int>{-1, 2, 1}));
}

TEST(ItemListCursorImplTest, UlongKeepsTheSignAndNonNumbersGiveZero) {
  FakeRecord record;
  auto* cursor = new FakeCursor(&record, {{"-1", "abc", "300"}}, 3);
  ListPtr list(new QzvItemListCursorImpl(cursor));
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValueUlong(0), ULONG_MAX);
  EXPECT_EQ(list->getValueUlong(1), 0UL);
  EXPECT_EQ(list->getValueUlong(2), 300UL);
}

TEST(ItemListCursorImplTest, ReleaseOfACursorOnlyListReleasesOnlyTheCursor) {
  FakeRecord record;
  QzvItemList* list = new QzvItemListCursorImpl(new FakeCursor(&record, {}, 0));
  list->release();
  EXPECT_EQ(record.releases, (std::vector<std::string>{"cursor"}));
}

TEST(ItemListCursorImplTest, ReleaseReleasesTheCursorThenTheStatement) {
  FakeRecord record;
  QzvItemList* list =
      new QzvItemListCursorImpl(new FakeStatement(&record), new FakeCursor(&record, {{"x"}}, 1));
  ASSERT_TRUE(list->next());
  list->release();
  EXPECT_EQ(record.releases, (std::vector<std::string>{"cursor", "statement"}));
}

}  // namespace
