// The whole state of a vault as a test compares it before and after a
// command: every directory; every file outside the metadata databases with
// its size, permissions and content; every row of every table of each
// metadata database (".v_fmd", ".v_cmd", ".v_imd"), read with SQLite itself.
// Time stamps of files are left out: reading a database does not change its
// rows, but SQLite may rewrite the file's header on a transaction that
// changes nothing.
#ifndef QZ_TESTS_TOOL_VAULT_STATE_H_
#define QZ_TESTS_TOOL_VAULT_STATE_H_

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qztool {

inline bool isMetadataDatabase(const std::string& name) {
  return name == ".v_fmd" || name == ".v_cmd" || name == ".v_imd";
}

// Every row of every table of the database at `path`, one line each, sorted.
inline std::vector<std::string> databaseRows(const std::string& path) {
  std::vector<std::string> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    rows.push_back("<cannot open: " + std::string(sqlite3_errmsg(db)) + ">");
    sqlite3_close(db);
    return rows;
  }
  std::vector<std::string> tables;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name", -1,
                         &statement, nullptr) == SQLITE_OK) {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      tables.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    }
  }
  sqlite3_finalize(statement);
  for (const std::string& table : tables) {
    const std::string sql = "SELECT * FROM \"" + table + "\"";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
      rows.push_back(table + ": <cannot read>");
      continue;
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
      std::string line = table + ":";
      for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        const unsigned char* value = sqlite3_column_text(statement, column);
        line += "|";
        line += value == nullptr ? "<null>" : reinterpret_cast<const char*>(value);
      }
      rows.push_back(line);
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  std::sort(rows.begin(), rows.end());
  return rows;
}

// The state of the tree below `root`, one line per directory, file and row.
inline std::vector<std::string> vaultState(const std::string& root) {
  namespace fs = std::filesystem;
  std::vector<std::string> state;
  std::error_code error;
  std::vector<fs::path> paths;
  for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    paths.push_back(it->path());
  }
  std::sort(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    const std::string relative = path.lexically_relative(root).string();
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    const std::string mode = std::to_string(st.st_mode & 07777);
    if (S_ISDIR(st.st_mode)) {
      state.push_back("dir " + relative + " " + mode);
    } else if (isMetadataDatabase(path.filename().string())) {
      state.push_back("db " + relative + " " + mode);
      for (const std::string& row : databaseRows(path.string())) state.push_back("  " + relative + " " + row);
    } else {
      std::ifstream in(path, std::ios::binary);
      std::ostringstream content;
      content << in.rdbuf();
      state.push_back("file " + relative + " " + mode + " " + std::to_string(st.st_size) + " " +
                      content.str());
    }
  }
  return state;
}

// The lines of `after` that differ from `before`, marked "-" and "+", for a
// failure message.
inline std::string stateDifference(const std::vector<std::string>& before,
                                   const std::vector<std::string>& after) {
  const std::set<std::string> was(before.begin(), before.end());
  const std::set<std::string> is(after.begin(), after.end());
  std::string difference;
  for (const std::string& line : before) {
    if (is.count(line) == 0) difference += "- " + line + "\n";
  }
  for (const std::string& line : after) {
    if (was.count(line) == 0) difference += "+ " + line + "\n";
  }
  return difference;
}

}  // namespace qztool

#endif  // QZ_TESTS_TOOL_VAULT_STATE_H_
