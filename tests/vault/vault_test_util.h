// Helpers shared by the tests of the vault, its folders and its objects: a
// vault over a temporary directory, ownership of released objects, reading
// item lists into plain values, and a side connection to a metadata database
// opened with SQLite itself (so that what the library wrote is checked
// independently of the library's own readers).
#ifndef QZ_TESTS_VAULT_VAULT_TEST_UTIL_H_
#define QZ_TESTS_VAULT_VAULT_TEST_UTIL_H_

#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "qzbase/string.h"
#include "qzvault/folder.h"
#include "qzvault/item_list.h"
#include "qzvault/object.h"
#include "support/temp_dir.h"
#include "vault_impl.h"

namespace qztest {

inline QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

// Ends a library object with release() when the owner goes out of scope.
struct ReleaseDeleter {
  template <typename T>
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
template <typename T>
using Owned = std::unique_ptr<T, ReleaseDeleter>;

template <typename T>
Owned<T> own(T* object) {
  return Owned<T>(object);
}

// A vault over `root` built as createVaultInstance builds it, with the given
// plug-in registry (may be null: no plug-ins).
class ScopedVault {
 public:
  explicit ScopedVault(const std::string& root, const QzviPluginRegistry* plugins = nullptr)
      : vault_(new QzvVaultImpl(S(root), const_cast<QzviPluginRegistry*>(plugins),
                                QzbString("plugins", true))) {}
  ~ScopedVault() { vault_->release(); }
  ScopedVault(const ScopedVault&) = delete;
  ScopedVault& operator=(const ScopedVault&) = delete;
  QzvVaultImpl* get() const { return vault_; }
  QzvVaultImpl* operator->() const { return vault_; }

 private:
  QzvVaultImpl* vault_;
};

// A cell of a list or a query: nullopt stands for a null string / SQL NULL.
using Cell = std::optional<std::string>;
using Row = std::vector<Cell>;
using Rows = std::vector<Row>;

inline Cell cell(const QzbString& value) {
  if (value.isNull()) return std::nullopt;
  return value.toStdString();
}

// Reads every remaining row of `list` (not released).
inline Rows readList(QzvItemList* list) {
  Rows rows;
  if (list == nullptr) return rows;
  const int columns = list->getNumCols();
  while (list->next()) {
    Row row;
    for (int c = 0; c < columns; ++c) row.push_back(cell(list->getValue(c)));
    rows.push_back(row);
  }
  return rows;
}

// Reads and releases `list`.
inline Rows takeList(QzvItemList* list) {
  Rows rows = readList(list);
  if (list != nullptr) list->release();
  return rows;
}

// The rows whose column `column` equals `value`.
inline Rows rowsWhere(const Rows& rows, std::size_t column, const std::string& value) {
  Rows found;
  for (const Row& row : rows) {
    if (row.size() > column && row[column] == Cell(value)) found.push_back(row);
  }
  return found;
}

// Runs `sql` on the database file with SQLite itself and returns its rows.
inline Rows query(const std::string& database, const std::string& sql) {
  Rows rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot open " << database;
    sqlite3_close(db);
    return rows;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot prepare " << sql << ": " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return rows;
  }
  while (sqlite3_step(statement) == SQLITE_ROW) {
    Row row;
    for (int c = 0; c < sqlite3_column_count(statement); ++c) {
      if (sqlite3_column_type(statement, c) == SQLITE_NULL) {
        row.push_back(std::nullopt);
      } else {
        row.push_back(std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, c))));
      }
    }
    rows.push_back(row);
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return rows;
}

// Runs statements on the database file (which must exist).
inline void execute(const std::string& database, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK)
      << database;
  char* message = nullptr;
  const int result = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message);
  EXPECT_EQ(result, SQLITE_OK) << sql << ": " << (message != nullptr ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

// The fixed-metadata database of `directory`, made through the library (with
// its schema) when it does not exist yet.
inline std::string fixedDb(QzvVaultImpl* vault, const std::string& directory) {
  QzbString error;
  SqliteConnection* db = qzviOpenDB(S(directory), QZVI_FIXED_METADATA_FILE, &error, vault->dbCache());
  EXPECT_NE(db, nullptr) << error.asCstr();
  qzviCloseDB(db, vault->dbCache());
  return directory + "/" + QZVI_FIXED_METADATA_FILE;
}

// Escapes a text for an SQL literal.
inline std::string sqlText(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    quoted += c;
    if (c == '\'') quoted += '\'';
  }
  return quoted + "'";
}

// Sets a configuration key for the scope (and removes it afterwards).
class ScopedOption {
 public:
  ScopedOption(const char* key, const char* value) : key_(key) {
    qzbGetConfigOptions(nullptr)->setOption(QzbString(key), QzbString(value));
  }
  ~ScopedOption() { qzbGetConfigOptions(nullptr)->removeOption(QzbString(key_)); }
  ScopedOption(const ScopedOption&) = delete;
  ScopedOption& operator=(const ScopedOption&) = delete;

 private:
  const char* key_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_VAULT_TEST_UTIL_H_
