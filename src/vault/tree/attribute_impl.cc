// QzvAttributeImpl: an attribute stored as rows of v_attr in a folder's
// ".v_fmd". The rows are loaded whole by init, changed in memory, and written
// back whole by commit in one transaction: there is no change tracking, so the
// last commit of two attribute objects of the same attribute wins.
#include "attribute_impl.h"

#include <utility>

#include "attribute_sql.h"
#include "metadata_db.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "statements.h"
#include "vault_context.h"

namespace {

// The ten value columns "v0, v1, ..., v9".
void appendValueColumns(QzbString* sql) {
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql->append(qzbStringFormat(column == 0 ? "v%d" : ", v%d", column));
  }
}

// Runs a statement without rows; on failure the connection's message.
bool execOrMessage(SqliteConnection* connection, const char* sql, QzbString* message) {
  if (connection->exec(QzbString(sql, true), 0)) return true;
  *message = connection->getErrorMessage();
  return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// Statement texts

QzbString qzviAttrSelectSql(bool forFolder) {
  QzbString sql("SELECT ", true);
  appendValueColumns(&sql);
  sql.append(forFolder ? " FROM v_attr WHERE fname IS NULL AND attr = ? ORDER BY seq"
                       : " FROM v_attr WHERE fname = ? AND attr = ? ORDER BY seq");
  return sql;
}

QzbString qzviAttrDeleteSql(bool forFolder) {
  // The folder's statement ends with a blank; it is kept.
  return forFolder ? QzbString("DELETE FROM v_attr WHERE fname IS NULL AND attr = ? ", true)
                   : QzbString("DELETE FROM v_attr WHERE fname=? AND attr = ?", true);
}

QzbString qzviAttrInsertSql() {
  QzbString sql("INSERT INTO v_attr(fname, attr, seq", true);
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
    sql.append(qzbStringFormat(", v%d", column));
  }
  sql.append(") VALUES (?,?,?");
  for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) sql.append(",?");
  sql.append(")");
  return sql;
}

QzbString qzviAttrRowLimitMessage(int row) {
  return qzbStringFormat("Row %d is beyond the last row an attribute may have (%d)", row,
                         QZV_ATTR_MAX_ROWS - 1);
}

// ---------------------------------------------------------------------------
// AttrRow

void AttrRow::clear() {
  for (QzbString& value : values) value.setNull(true);
}

// ---------------------------------------------------------------------------
// QzvAttributeImpl

QzvAttributeImpl::QzvAttributeImpl() : vault_(nullptr) {}

QzvAttributeImpl::~QzvAttributeImpl() = default;

bool QzvAttributeImpl::init(QzviVaultContext* vault, const QzbString& folderPath,
                            const QzbString& fileName, const QzbString& name) {
  folderPath_ = folderPath;
  fileName_ = fileName;
  name_ = name;
  vault_ = vault;
  rows_.clear();

  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ = openError;
    return false;
  }

  const bool forFolder = fileName_.isNull();
  const QzbDatavar fileParameter(fileName_);
  const QzbDatavar nameParameter(name_);
  QzvItemList* result =
      forFolder
          ? qzviParamSelect(db.get(), qzviAttrSelectSql(true), 1, &nameParameter)
          : qzviParamSelect(db.get(), qzviAttrSelectSql(false), 2, &fileParameter, &nameParameter);
  if (result == nullptr) {
    errorMessage_ = db->getErrorMessage();
    return false;
  }
  // Row i in memory is the i-th row in seq order; the stored seq values
  // themselves (which may have gaps) are not kept.
  while (result->next()) {
    AttrRow row;
    for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
      row.values[column] = result->getValue(column);
    }
    rows_.push_back(std::move(row));
  }
  result->release();
  db.close();

  if (rows_.empty()) rows_.emplace_back();
  return true;
}

void QzvAttributeImpl::release() { delete this; }

QzbString QzvAttributeImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvAttributeImpl::getName() { return name_; }

bool QzvAttributeImpl::isReadOnly() { return false; }

QzbString QzvAttributeImpl::getSingletonValue() { return getValue(0, 0); }

int QzvAttributeImpl::numRows() { return static_cast<int>(rows_.size()); }

QzbString QzvAttributeImpl::getValue(int column, int row) {
  // Unsigned tests, so that negative indexes fall outside as well.
  if (static_cast<unsigned>(column) >= QZVI_ATTR_COLUMNS) return QzbString();
  if (static_cast<unsigned>(row) >= rows_.size()) return QzbString();
  return rows_[static_cast<std::size_t>(row)].values[column];
}

void QzvAttributeImpl::clear() {
  rows_.clear();
  rows_.emplace_back();
}

void QzvAttributeImpl::setValue(int column, int row, const QzbString& value) {
  if (row < 0 || static_cast<unsigned>(column) >= QZVI_ATTR_COLUMNS) return;
  if (row >= QZV_ATTR_MAX_ROWS) {
    refusedRow_ = row;
    return;
  }
  // Rows up to `row` are added with null values.
  while (static_cast<std::size_t>(row) >= rows_.size()) rows_.emplace_back();
  rows_[static_cast<std::size_t>(row)].values[column] = value;
}

bool QzvAttributeImpl::commit() {
  if (refusedRow_ >= 0) {
    errorMessage_ = qzviAttrRowLimitMessage(refusedRow_);
    refusedRow_ = -1;
    return false;
  }
  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ = openError;
    return false;
  }
  if (db->isReadOnly()) {
    errorMessage_ = QzbString("Data file is read only", true);
    return false;
  }
  // A failed BEGIN leaves no transaction to roll back, and no message of its
  // own: the previous one stays.
  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) return false;

  const bool forFolder = fileName_.isNull();
  SqliteStatement* insert = nullptr;
  bool written = false;
  do {
    const QzbDatavar fileParameter(fileName_);
    const QzbDatavar nameParameter(name_);
    const bool deleted =
        forFolder
            ? qzviParamExec(db.get(), qzviAttrDeleteSql(true), 1, &nameParameter)
            : qzviParamExec(db.get(), qzviAttrDeleteSql(false), 2, &fileParameter, &nameParameter);
    if (!deleted) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    // One statement for every row: prepared once, bound and run per row.
    insert = db->prepare(qzviAttrInsertSql());
    if (insert == nullptr) {
      errorMessage_ = db->getErrorMessage();
      break;
    }
    bool rowsWritten = true;
    for (std::size_t r = 0; r < rows_.size(); ++r) {
      if (fileName_.isNull()) {
        insert->bindNull(0);
      } else {
        insert->bindText(0, fileName_);
      }
      insert->bindText(1, name_);
      insert->bindInt(2, static_cast<int64_t>(r));
      for (int column = 0; column < QZVI_ATTR_COLUMNS; ++column) {
        const QzbString& value = rows_[r].values[column];
        if (value.isNull()) {
          insert->bindNull(3 + column);
        } else {
          insert->bindText(3 + column, value);
        }
      }
      if (!insert->execute(0)) {
        errorMessage_ = insert->getErrorMessage();
        rowsWritten = false;
        break;
      }
    }
    if (!rowsWritten) break;
    written = true;
  } while (false);

  if (!written) {
    QzbString ignored;
    execOrMessage(db.get(), "ROLLBACK TRANSACTION", &ignored);
    if (insert != nullptr) insert->release();
    return false;
  }
  // A failed COMMIT is reported without a roll-back.
  const bool committed = execOrMessage(db.get(), "COMMIT TRANSACTION", &errorMessage_);
  insert->release();
  return committed;
}
