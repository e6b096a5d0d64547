// readdir + stat + SQLite with prepared statements: the floor under the
// library's cache refresh.
#include "raw_baseline.h"

#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace qzbench {

namespace {

struct ListedFile {
  std::string name;
  int64_t mtime;
  int64_t ctime;
};

bool listFiles(const std::string& directory, std::vector<ListedFile>* files) {
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return false;
  std::string path = directory + "/";
  const std::size_t base = path.size();
  while (struct dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    path.resize(base);
    path += entry->d_name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    files->push_back(ListedFile{entry->d_name, static_cast<int64_t>(st.st_mtime),
                                static_cast<int64_t>(st.st_ctime)});
  }
  closedir(dir);
  return true;
}

const char kSchema[] =
    "CREATE TABLE v_ver(version INTEGER);"
    "CREATE TABLE v_attr (fname text, attr text, seq integer, v0, v1, v2, v3, v4, v5, v6, v7, "
    "v8, v9);"
    "CREATE INDEX v_attr_fname ON v_attr(fname);"
    "CREATE INDEX v_attr_seq ON v_attr(seq);"
    "CREATE INDEX v_attr_attr ON v_attr(attr);"
    "CREATE TABLE v_file (fname TEXT, tstamp INTEGER, type TEXT, name TEXT);"
    "CREATE INDEX v_file_fname ON v_file(fname);"
    "INSERT INTO v_ver (version) VALUES (1);";

// Closes the database and finalises the statements on every path.
struct Session {
  sqlite3* db = nullptr;
  std::vector<sqlite3_stmt*> statements;
  ~Session() {
    for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
    sqlite3_close(db);
  }
  sqlite3_stmt* prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) return nullptr;
    statements.push_back(statement);
    return statement;
  }
};

bool insertDate(sqlite3_stmt* insert, const std::string& name, const char* attribute,
                int64_t seconds) {
  const std::string text = std::to_string(static_cast<unsigned long>(seconds));
  sqlite3_bind_text(insert, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
  sqlite3_bind_text(insert, 2, attribute, -1, SQLITE_STATIC);
  sqlite3_bind_int(insert, 3, 0);
  sqlite3_bind_text(insert, 4, text.c_str(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  const bool done = sqlite3_step(insert) == SQLITE_DONE;
  sqlite3_reset(insert);
  return done;
}

}  // namespace

long rawColdRefresh(const std::string& directory, const std::string& database) {
  unlink(database.c_str());
  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;

  Session session;
  if (sqlite3_open_v2(database.c_str(), &session.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                      nullptr) != SQLITE_OK ||
      sqlite3_exec(session.db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    return -1;
  }
  sqlite3_stmt* insertFile =
      session.prepare("INSERT INTO v_file (fname,tstamp,type,name) VALUES (?,?,?,?)");
  sqlite3_stmt* insertAttr = session.prepare(
      "INSERT INTO v_attr(fname, attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9) VALUES "
      "(?,?,?,?,?,?,?,?,?,?,?,?,?)");
  if (insertFile == nullptr || insertAttr == nullptr) return -1;
  if (sqlite3_exec(session.db, "BEGIN TRANSACTION", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return -1;
  }
  for (const ListedFile& file : files) {
    sqlite3_bind_text(insertFile, 1, file.name.c_str(), static_cast<int>(file.name.size()),
                      SQLITE_TRANSIENT);
    sqlite3_bind_int64(insertFile, 2, file.mtime);
    sqlite3_bind_null(insertFile, 3);
    sqlite3_bind_null(insertFile, 4);
    const bool inserted = sqlite3_step(insertFile) == SQLITE_DONE;
    sqlite3_reset(insertFile);
    if (!inserted || !insertDate(insertAttr, file.name, "_CREATIONDATE", file.ctime) ||
        !insertDate(insertAttr, file.name, "_MODIFIEDDATE", file.mtime)) {
      sqlite3_exec(session.db, "ROLLBACK TRANSACTION", nullptr, nullptr, nullptr);
      return -1;
    }
  }
  if (sqlite3_exec(session.db, "COMMIT TRANSACTION", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return -1;
  }
  return static_cast<long>(files.size());
}

long rawWarmCheck(const std::string& directory, const std::string& database) {
  Session session;
  if (sqlite3_open_v2(database.c_str(), &session.db, SQLITE_OPEN_READWRITE, nullptr) !=
      SQLITE_OK) {
    return -1;
  }
  sqlite3_stmt* select = session.prepare("SELECT fname, tstamp FROM v_file WHERE fname NOT NULL");
  if (select == nullptr) return -1;
  std::unordered_map<std::string, int64_t> cached;
  int stepped;
  while ((stepped = sqlite3_step(select)) == SQLITE_ROW) {
    cached.emplace(reinterpret_cast<const char*>(sqlite3_column_text(select, 0)),
                   sqlite3_column_int64(select, 1));
  }
  if (stepped != SQLITE_DONE) return -1;

  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;
  long changed = 0;
  for (const ListedFile& file : files) {
    auto found = cached.find(file.name);
    if (found == cached.end() || found->second + 1 < file.mtime) ++changed;
  }
  return changed;
}

}  // namespace qzbench
