// QzvAttribute: one named attribute of a folder or object, as a table of rows
// (numbered from 0) of exactly ten value columns (numbered 0 to 9).
//
// An attribute stored in the vault's metadata is loaded whole when it is
// obtained, changed in memory, and written back whole, in one transaction, by
// commit(). An attribute that a metadata plug-in reads out of the file itself
// forwards every call to the plug-in. Note the argument order of getValue and
// setValue: column first, then row.
//
// The caller owns the attribute and ends it with release(). Thread safety: one
// thread at a time.
#ifndef QZVAULT_ATTRIBUTE_H_
#define QZVAULT_ATTRIBUTE_H_

#include "qzbase/string.h"

// The most rows an attribute may have: rows are numbered 0 to
// QZV_ATTR_MAX_ROWS - 1. An attribute is held in memory whole, so the bound
// keeps one setValue with a huge row number from growing it without limit.
#define QZV_ATTR_MAX_ROWS 100000

class QzvAttribute {
 public:
  virtual void release() = 0;
  // Text of the last failure.
  virtual QzbString getErrorMessage() = 0;
  virtual QzbString getName() = 0;
  // True when the attribute cannot be changed (plug-in attributes may say so).
  virtual bool isReadOnly() = 0;
  // Row 0, column 0.
  virtual QzbString getSingletonValue() = 0;
  // Number of rows; a stored attribute always has at least one.
  virtual int numRows() = 0;
  // The value; a null string when the column is not in 0..9 or the row is not
  // in 0..numRows()-1.
  virtual QzbString getValue(int column, int row) = 0;
  // Removes every row and leaves one row of null values.
  virtual void clear() = 0;
  // Sets a value in memory, adding null rows up to `row` when needed. A
  // negative row or a column outside 0..9 is ignored. A row at or beyond
  // QZV_ATTR_MAX_ROWS is refused: nothing changes, and the next commit()
  // fails with the reason and writes nothing, so that the refused value is
  // not lost unnoticed (a later commit writes the rows as they then are).
  virtual void setValue(int column, int row, const QzbString& value) = 0;
  // Writes the attribute back whole; false with getErrorMessage on failure
  // ("Data file is read only" for a read-only folder, "Row N is beyond the
  // last row an attribute may have (99999)" after a refused setValue).
  virtual bool commit() = 0;

 protected:
  virtual ~QzvAttribute() = default;
};

#endif  // QZVAULT_ATTRIBUTE_H_
