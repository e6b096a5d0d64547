#include "file_rows_snapshot.h"

#include "qzbase/datavar.h"
#include "qzvault/item_list.h"
#include "statements.h"

namespace {

const int kAttributeColumns = 12;  // attr, seq, v0 ... v9

bool exec(SqliteConnection* db, const char* sql) { return db->exec(QzbString(sql, true), 0); }

}  // namespace

bool QzviFileRowsSnapshot::take(SqliteConnection* db, const QzbString& fileName, QzbString* error) {
  fileName_ = fileName;
  attributeRows_.clear();
  objectNames_.clear();
  const QzbDatavar name(fileName);
  QzvItemList* rows = qzviParamSelect(
      db,
      QzbString("SELECT attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr "
                "WHERE fname = ? ORDER BY attr, seq",
                true),
      1, &name);
  if (rows == nullptr) {
    *error = db->getErrorMessage();
    return false;
  }
  while (rows->next()) {
    std::vector<QzbString> row;
    for (int column = 0; column < kAttributeColumns; ++column) row.push_back(rows->getValue(column));
    attributeRows_.push_back(std::move(row));
  }
  rows->release();
  QzvItemList* objects =
      qzviParamSelect(db, QzbString("SELECT name FROM v_object WHERE fname = ?", true), 1, &name);
  if (objects == nullptr) {
    *error = db->getErrorMessage();
    return false;
  }
  while (objects->next()) objectNames_.push_back(objects->getValue(0));
  objects->release();
  return true;
}

bool QzviFileRowsSnapshot::restore(SqliteConnection* db, QzbString* error) const {
  if (!exec(db, "BEGIN TRANSACTION")) {
    *error = db->getErrorMessage();
    return false;
  }
  const QzbDatavar name(fileName_);
  bool done =
      qzviParamExec(db, QzbString("DELETE FROM v_attr WHERE fname = ?", true), 1, &name) &&
      qzviParamExec(db, QzbString("DELETE FROM v_object WHERE fname = ?", true), 1, &name);
  for (const std::vector<QzbString>& row : attributeRows_) {
    if (!done) break;
    QzbDatavar values[kAttributeColumns + 1];
    values[0].assign(fileName_);
    for (int column = 0; column < kAttributeColumns; ++column) {
      if (!row[column].isNull()) values[column + 1].assign(row[column]);
    }
    done = qzviParamExec(db,
                         QzbString("INSERT INTO v_attr (fname, attr, seq, v0, v1, v2, v3, v4, v5, "
                                   "v6, v7, v8, v9) VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)",
                                   true),
                         kAttributeColumns + 1, &values[0], &values[1], &values[2], &values[3],
                         &values[4], &values[5], &values[6], &values[7], &values[8], &values[9],
                         &values[10], &values[11], &values[12]);
  }
  for (const QzbString& objectName : objectNames_) {
    if (!done) break;
    const QzbDatavar display(objectName);
    done = qzviParamExec(db, QzbString("INSERT INTO v_object (fname, name) VALUES (?,?)", true), 2,
                         &name, &display);
  }
  if (done) done = exec(db, "COMMIT TRANSACTION");
  if (!done) {
    *error = db->getErrorMessage();
    exec(db, "ROLLBACK TRANSACTION");
  }
  return done;
}
