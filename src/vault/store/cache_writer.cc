// Writing one file's cached rows: the v_file row, the two date rows and the
// rows of every attribute the file's plug-in reports.
#include "cache_writer.h"

#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "reserved_attributes.h"

namespace {

const char kCacheOpenFailed[] = "Cache failed to open file";
// The value columns v0 to v9 of v_attr.
const int kValueColumns = 10;

// "INSERT INTO v_attr(fname, attr, seq, v0, ..., v9) VALUES (?,?,?,?,...)".
QzbString attributeInsertSql() {
  QzbString sql("INSERT INTO v_attr(fname, attr, seq", true);
  for (int column = 0; column < kValueColumns; ++column) sql.append(qzbStringFormat(", v%d", column));
  sql.append(") VALUES (?,?,?");
  for (int column = 0; column < kValueColumns; ++column) sql.append(",?");
  sql.append(")");
  return sql;
}

void setError(QzbString* error, const QzbString& text) {
  if (error != nullptr) *error = text;
}

// Releases a metadata file on scope exit.
class MetaDataFileHolder {
 public:
  explicit MetaDataFileHolder(QzvMetaDataFile* file) : file_(file) {}
  ~MetaDataFileHolder() {
    if (file_ != nullptr) file_->release();
  }
  MetaDataFileHolder(const MetaDataFileHolder&) = delete;
  MetaDataFileHolder& operator=(const MetaDataFileHolder&) = delete;
  QzvMetaDataFile* get() const { return file_; }

 private:
  QzvMetaDataFile* file_;
};

}  // namespace

QzbString QzviCacheWriter::sqlFor(Slot slot) {
  switch (slot) {
    case kSelectFile:
      return QzbString("SELECT * FROM v_file WHERE fname = ?", true);
    case kInsertFile:
      return QzbString("INSERT INTO v_file (fname,tstamp,type,name) VALUES (?,?,?,?)", true);
    case kInsertAttr:
      return attributeInsertSql();
    case kDeleteFile:
      return QzbString("DELETE FROM v_file WHERE fname = ?", true);
    case kDeleteAttr:
    default:
      return QzbString("DELETE FROM v_attr WHERE fname = ?", true);
  }
}

QzviCacheWriter::QzviCacheWriter(SqliteConnection* connection,
                                 const QzviPluginRegistry* registry)
    : connection_(connection), registry_(registry), statements_{} {}

QzviCacheWriter::~QzviCacheWriter() {
  for (SqliteStatement*& statement : statements_) {
    if (statement != nullptr) statement->release();
    statement = nullptr;
  }
}

SqliteStatement* QzviCacheWriter::statement(Slot slot, QzbString* error) {
  if (statements_[slot] == nullptr) {
    statements_[slot] = connection_->prepare(sqlFor(slot));
    if (statements_[slot] == nullptr) setError(error, connection_->getErrorMessage());
  }
  return statements_[slot];
}

bool QzviCacheWriter::removeFile(const QzbString& name, QzbString* error) {
  for (Slot slot : {kDeleteFile, kDeleteAttr}) {
    SqliteStatement* remove = statement(slot, error);
    if (remove == nullptr) return false;
    remove->bindText(0, name);
    if (!remove->execute(0)) {
      setError(error, connection_->getErrorMessage());
      return false;
    }
  }
  return true;
}

bool QzviCacheWriter::fileRowExists(const QzbString& name, bool* exists, QzbString* error) {
  SqliteStatement* select = statement(kSelectFile, error);
  if (select == nullptr) return false;
  select->bindText(0, name);
  SqliteCursor* cursor = select->executeQuery();
  if (cursor == nullptr) {
    setError(error, connection_->getErrorMessage());
    return false;
  }
  const int stepped = cursor->next();
  cursor->release();  // resets the statement for the next file
  if (stepped < 0) {
    setError(error, connection_->getErrorMessage());
    return false;
  }
  *exists = stepped == 1;
  return true;
}

bool QzviCacheWriter::insertFileRow(const QzbString& name, int64_t timestamp,
                                    const QzbString& type, const QzbString& displayName,
                                    QzbString* error) {
  SqliteStatement* insert = statement(kInsertFile, error);
  if (insert == nullptr) return false;
  insert->bindText(0, name);
  insert->bindInt(1, timestamp);
  insert->bindText(2, type);         // a null type binds NULL
  insert->bindText(3, displayName);  // so does a null name
  if (!insert->execute(0)) {
    setError(error, connection_->getErrorMessage());
    return false;
  }
  return true;
}

bool QzviCacheWriter::insertDateRow(const QzbString& name, const char* attribute,
                                    int64_t seconds, QzbString* error) {
  SqliteStatement* insert = statement(kInsertAttr, error);
  if (insert == nullptr) return false;
  insert->bindText(0, name);
  insert->bindText(1, QzbString(attribute, true));
  insert->bindInt(2, 0);
  insert->bindText(3, qzbStringFormat("%lu", static_cast<unsigned long>(seconds)));
  // The statement is shared with the attribute rows: clear v1 to v9.
  for (int column = 1; column < kValueColumns; ++column) insert->bindNull(3 + column);
  if (!insert->execute(0)) {
    setError(error, connection_->getErrorMessage());
    return false;
  }
  return true;
}

QzviCacheWriter::AddResult QzviCacheWriter::addFile(const QzbString& directory,
                                                    const QzbString& name, int64_t timestamp,
                                                    QzbString* error) {
  const QzbString path = qzbConcatPath(directory, name);
  if (path.isNull()) {
    setError(error, QzbString(kCacheOpenFailed, true));
    return AddResult::kFailed;
  }
  NpStat status;
  const int statResult = np_fio_stat(path.asCstr(), &status);
  if (statResult != NP_OK) {
    setError(error, QzbString(kCacheOpenFailed, true));
    return statResult == NP_ERR_NOT_FOUND ? AddResult::kVanished : AddResult::kFailed;
  }

  // What the plug-in can tell; a file it cannot open is cached like a file
  // without plug-in.
  QzbString type;
  QzbString displayName;
  QzvMetaDataPlugin* plugin = qzviFindMetaDataHandlerForFile(path, registry_);
  MetaDataFileHolder file(plugin != nullptr ? plugin->openFile(path) : nullptr);
  if (file.get() != nullptr) {
    int flags = 0;
    if (!file.get()->getDisplayName(&displayName, &flags)) displayName = QzbString();
    type = plugin->getTypeName();
  }

  // Another process may have cached the file since the caller looked: its
  // v_file row is not doubled.
  bool exists = false;
  if (!fileRowExists(name, &exists, error)) return AddResult::kFailed;
  if (!exists && !insertFileRow(name, timestamp, type, displayName, error)) {
    return AddResult::kFailed;
  }

  if (!insertDateRow(name, QZVI_ATTR_CREATIONDATE, status.ctime, error) ||
      !insertDateRow(name, QZVI_ATTR_MODIFIEDDATE, status.mtime, error)) {
    return AddResult::kFailed;
  }
  if (file.get() == nullptr) return AddResult::kAdded;

  SqliteStatement* insert = statement(kInsertAttr, error);
  if (insert == nullptr) return AddResult::kFailed;
  const int attributeCount = file.get()->getAttributeCount();
  for (int index = 0; index < attributeCount; ++index) {
    int rows = 0;
    int columns = 0;
    int readOnly = 0;
    QzbString attributeName;
    file.get()->getAttributeDescription(index, &rows, &columns, &attributeName, &readOnly);
    for (int row = 0; row < rows; ++row) {
      insert->bindText(0, name);
      insert->bindText(1, attributeName);
      insert->bindInt(2, row);
      // Only the first ten columns are kept; missing columns are NULL.
      for (int column = 0; column < kValueColumns; ++column) {
        if (column < columns) {
          insert->bindText(3 + column, file.get()->getValue(index, row, column));
        } else {
          insert->bindNull(3 + column);
        }
      }
      if (!insert->execute(0)) {
        setError(error, insert->getErrorMessage());
        return AddResult::kFailed;
      }
    }
  }
  return AddResult::kAdded;
}

bool addToCache(const QzbString& directory, const QzbString& name,
                const QzviPluginRegistry* registry, int64_t timestamp,
                SqliteConnection* connection, QzbString* error) {
  if (connection == nullptr) return false;
  QzviCacheWriter writer(connection, registry);
  return writer.addFile(directory, name, timestamp, error) == QzviCacheWriter::AddResult::kAdded;
}
