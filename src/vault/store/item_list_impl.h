// The two item lists: rows held in memory, and rows read from an open query.
#ifndef QZVAULT_SRC_STORE_ITEM_LIST_IMPL_H_
#define QZVAULT_SRC_STORE_ITEM_LIST_IMPL_H_

#include <cstddef>
#include <vector>

#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "qzvault/item_list.h"

// Rows of a fixed number of columns held in memory, in insertion order. Built
// with addRow and setLastRowElement, then read once from before its first row.
class QzvItemListImpl final : public QzvItemList {
 public:
  QzvItemListImpl();  // 0 columns; for copyList
  explicit QzvItemListImpl(int columns);

  // Copies every remaining row of `source` (which is consumed, not released);
  // false when a row cannot be added (the rows copied so far stay).
  bool copyList(QzvItemList* source);
  // Appends a row of null values; false when memory runs out.
  bool addRow();
  // Sets a column of the last row; nothing when there is no row. REQUIRES:
  // 0 <= column < the column count (checked in debug builds).
  void setLastRowElement(int column, const QzbString& value);
  void setLastRowElement(int column, QzbString&& value);
  // Rows held.
  std::size_t rowCount() const;

  bool next() override;
  int getNumCols() override;
  QzbString getValue(int column) override;
  unsigned long getValueUlong(int column) override;
  void release() override;

 private:
  ~QzvItemListImpl() = default;
  int columns_;
  bool started_;
  std::size_t rows_;
  std::size_t current_;  // meaningful once started; == rows_ past the end
  std::vector<QzbString> cells_;  // row-major
};

// Rows read on demand from a cursor (and the statement that made it, when
// there is one); owns both.
class QzvItemListCursorImpl final : public QzvItemList {
 public:
  QzvItemListCursorImpl(SqliteStatement* statement, SqliteCursor* cursor);
  explicit QzvItemListCursorImpl(SqliteCursor* cursor);

  bool next() override;
  int getNumCols() override;
  QzbString getValue(int column) override;
  unsigned long getValueUlong(int column) override;
  // Releases the cursor, then the statement, then the list.
  void release() override;

 private:
  ~QzvItemListCursorImpl() = default;
  SqliteCursor* cursor_;
  SqliteStatement* statement_;
  // Set once the cursor has reported anything but a row: SQLite would start
  // a finished query over if it were stepped again.
  bool ended_;
};

#endif  // QZVAULT_SRC_STORE_ITEM_LIST_IMPL_H_
