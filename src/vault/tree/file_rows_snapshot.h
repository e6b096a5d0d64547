// The fixed-metadata rows of one file name in a folder's ".v_fmd" (its
// v_attr and v_object rows), taken before an object is created over that
// name, so that a creation that fails half-way leaves the database as it was.
//
// Internal; one thread at a time.
#ifndef QZVAULT_SRC_TREE_FILE_ROWS_SNAPSHOT_H_
#define QZVAULT_SRC_TREE_FILE_ROWS_SNAPSHOT_H_

#include <vector>

#include "qzbase/sqlite.h"
#include "qzbase/string.h"

class QzviFileRowsSnapshot {
 public:
  // Reads the rows of `fileName`. False with the connection's message in
  // *error when they cannot be read.
  bool take(SqliteConnection* db, const QzbString& fileName, QzbString* error);
  // Replaces the rows of the file name by those taken, in one transaction.
  // False with the connection's message in *error (the transaction is rolled
  // back).
  bool restore(SqliteConnection* db, QzbString* error) const;

 private:
  QzbString fileName_;
  // attr, seq, v0 ... v9 of each v_attr row.
  std::vector<std::vector<QzbString>> attributeRows_;
  // name of each v_object row.
  std::vector<QzbString> objectNames_;
};

#endif  // QZVAULT_SRC_TREE_FILE_ROWS_SNAPSHOT_H_
