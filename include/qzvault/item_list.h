// QzvItemList: the forward-only list of rows of text columns in which every
// listing of the library is returned.
//
// A new list stands before its first row: call next() first. Once next() has
// returned false it keeps returning false; a list is read once. The caller
// owns the list and ends it with release(), never delete.
//
// Thread safety: a list is used from one thread at a time.
#ifndef QZVAULT_ITEM_LIST_H_
#define QZVAULT_ITEM_LIST_H_

#include "qzbase/string.h"

class QzvItemList {
 public:
  // Advances to the next row; true while a row is current.
  virtual bool next() = 0;
  // The number of columns of every row.
  virtual int getNumCols() = 0;
  // A copy of column `column` (from 0) of the current row; a null string when
  // there is no current row or the column is out of range (lists read from a
  // database pass the index through to the cursor, which answers the same).
  virtual QzbString getValue(int column) = 0;
  // The column's text read as a 32-bit signed integer and widened with its
  // sign ("-1" gives all bits set); 0 when there is no current row, the column
  // is out of range or the text is not a number.
  virtual unsigned long getValueUlong(int column) = 0;
  // Frees the rows (or closes the underlying query) and the list.
  virtual void release() = 0;

 protected:
  ~QzvItemList() = default;
};

#endif  // QZVAULT_ITEM_LIST_H_
