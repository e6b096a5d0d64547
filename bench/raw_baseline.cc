// readdir + stat + SQLite with prepared statements: the floor under the
// library's cache refresh and listing.
#include "raw_baseline.h"

#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
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
  // Opens `path` with the SQLite flags; other processes' transactions are
  // waited for, as the library waits for them.
  bool open(const std::string& path, int flags) {
    if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) return false;
    sqlite3_busy_timeout(db, 5000);
    return true;
  }
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

// Runs `sql` on the database at `path` (opened read-only) and calls onRow for
// every row. False when the database cannot be opened or the query fails.
bool selectInto(const std::string& path, const char* sql,
                const std::function<void(sqlite3_stmt*)>& onRow) {
  Session session;
  if (!session.open(path, SQLITE_OPEN_READONLY)) return false;
  sqlite3_stmt* statement = session.prepare(sql);
  if (statement == nullptr) return false;
  int stepped;
  while ((stepped = sqlite3_step(statement)) == SQLITE_ROW) onRow(statement);
  return stepped == SQLITE_DONE;
}

std::string text(sqlite3_stmt* statement, int column) {
  const unsigned char* value = sqlite3_column_text(statement, column);
  return value != nullptr ? reinterpret_cast<const char*>(value) : std::string();
}

struct CachedName {
  std::string name;
  bool hasName;
  std::string type;
};

// Prepares the two inserts of a file's cached rows. False on failure.
bool prepareInserts(Session* session, sqlite3_stmt** insertFile, sqlite3_stmt** insertAttr) {
  *insertFile = session->prepare("INSERT INTO v_file (fname,tstamp,type,name) VALUES (?,?,?,?)");
  *insertAttr = session->prepare(
      "INSERT INTO v_attr(fname, attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9) VALUES "
      "(?,?,?,?,?,?,?,?,?,?,?,?,?)");
  return *insertFile != nullptr && *insertAttr != nullptr;
}

// Writes the cached rows of a file without plug-in: its v_file row and its
// two date rows.
bool insertFile(sqlite3_stmt* insertFile, sqlite3_stmt* insertAttr, const ListedFile& file) {
  sqlite3_bind_text(insertFile, 1, file.name.c_str(), static_cast<int>(file.name.size()),
                    SQLITE_TRANSIENT);
  sqlite3_bind_int64(insertFile, 2, file.mtime);
  sqlite3_bind_null(insertFile, 3);
  sqlite3_bind_null(insertFile, 4);
  const bool inserted = sqlite3_step(insertFile) == SQLITE_DONE;
  sqlite3_reset(insertFile);
  return inserted && insertDate(insertAttr, file.name, "_CREATIONDATE", file.ctime) &&
         insertDate(insertAttr, file.name, "_MODIFIEDDATE", file.mtime);
}

// Reads every (fname, tstamp) row of v_file into `cached`.
bool readTimestamps(Session* session, std::unordered_map<std::string, int64_t>* cached) {
  sqlite3_stmt* select = session->prepare("SELECT fname, tstamp FROM v_file WHERE fname NOT NULL");
  if (select == nullptr) return false;
  cached->clear();
  int stepped;
  while ((stepped = sqlite3_step(select)) == SQLITE_ROW) {
    cached->emplace(reinterpret_cast<const char*>(sqlite3_column_text(select, 0)),
                    sqlite3_column_int64(select, 1));
  }
  return stepped == SQLITE_DONE;
}

bool needsCaching(const std::unordered_map<std::string, int64_t>& cached, const ListedFile& file) {
  auto found = cached.find(file.name);
  return found == cached.end() || found->second + 1 < file.mtime;
}

// The rows of a listing of `files`: names from the two databases, then the
// links. Returns the number of rows, or -1.
long listRows(const std::string& directory, const std::vector<ListedFile>& files,
              const std::string& cacheDb, const std::string& fixedDb) {
  std::unordered_map<std::string, CachedName> cached;
  std::unordered_map<std::string, std::string> stored;
  const bool read =
      selectInto(cacheDb, "SELECT fname, name, type FROM v_file",
                 [&](sqlite3_stmt* row) {
                   cached.emplace(text(row, 0),
                                  CachedName{text(row, 1),
                                             sqlite3_column_type(row, 1) != SQLITE_NULL,
                                             text(row, 2)});
                 }) &&
      selectInto(fixedDb, "SELECT fname, name FROM v_object WHERE fname IS NOT NULL",
                 [&](sqlite3_stmt* row) { stored.emplace(text(row, 0), text(row, 1)); });
  if (!read) return -1;

  std::vector<std::vector<std::string>> rows;
  rows.reserve(files.size());
  for (const ListedFile& file : files) {
    std::string name;
    std::string type;
    auto found = cached.find(file.name);
    if (found != cached.end()) type = found->second.type;
    if (found != cached.end() && found->second.hasName) {
      name = found->second.name;
    } else {
      auto fixed = stored.find(file.name);
      name = fixed != stored.end() ? fixed->second : file.name.substr(0, file.name.rfind('.'));
    }
    rows.push_back({name, directory + "/" + file.name, type, "N"});
  }
  if (!selectInto(fixedDb, "SELECT name, fname FROM v_symlink", [&](sqlite3_stmt* row) {
        rows.push_back({text(row, 0), directory + "/" + text(row, 1), "link", ""});
      })) {
    return -1;
  }
  return static_cast<long>(rows.size());
}

}  // namespace

long rawColdRefresh(const std::string& directory, const std::string& database) {
  unlink(database.c_str());
  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;

  Session session;
  sqlite3_stmt* insertFileRow = nullptr;
  sqlite3_stmt* insertAttrRow = nullptr;
  if (!session.open(database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) ||
      sqlite3_exec(session.db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK ||
      !prepareInserts(&session, &insertFileRow, &insertAttrRow) ||
      sqlite3_exec(session.db, "BEGIN TRANSACTION", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return -1;
  }
  for (const ListedFile& file : files) {
    if (!insertFile(insertFileRow, insertAttrRow, file)) {
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
  std::unordered_map<std::string, int64_t> cached;
  if (!session.open(database, SQLITE_OPEN_READWRITE) || !readTimestamps(&session, &cached)) {
    return -1;
  }
  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;
  long changed = 0;
  for (const ListedFile& file : files) changed += needsCaching(cached, file) ? 1 : 0;
  return changed;
}

long rawRefreshAndList(const std::string& directory, const std::string& cacheDb,
                       const std::string& fixedDb) {
  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;
  {
    Session session;
    std::unordered_map<std::string, int64_t> cached;
    if (!session.open(cacheDb, SQLITE_OPEN_READWRITE) || !readTimestamps(&session, &cached)) {
      return -1;
    }
    bool changed = false;
    for (const ListedFile& file : files) changed = changed || needsCaching(cached, file);
    if (changed) {
      sqlite3_stmt* insertFileRow = nullptr;
      sqlite3_stmt* insertAttrRow = nullptr;
      sqlite3_stmt* removeFile = session.prepare("DELETE FROM v_file WHERE fname = ?");
      sqlite3_stmt* removeAttrs = session.prepare("DELETE FROM v_attr WHERE fname = ?");
      if (removeFile == nullptr || removeAttrs == nullptr ||
          !prepareInserts(&session, &insertFileRow, &insertAttrRow) ||
          sqlite3_exec(session.db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
        return -1;
      }
      bool ok = readTimestamps(&session, &cached);
      for (const ListedFile& file : files) {
        if (!ok || !needsCaching(cached, file)) continue;
        if (cached.count(file.name) != 0) {
          for (sqlite3_stmt* remove : {removeFile, removeAttrs}) {
            sqlite3_bind_text(remove, 1, file.name.c_str(), -1, SQLITE_TRANSIENT);
            ok = ok && sqlite3_step(remove) == SQLITE_DONE;
            sqlite3_reset(remove);
          }
        }
        ok = ok && insertFile(insertFileRow, insertAttrRow, file);
      }
      if (sqlite3_exec(session.db, ok ? "COMMIT" : "ROLLBACK", nullptr, nullptr, nullptr) !=
              SQLITE_OK ||
          !ok) {
        return -1;
      }
    }
  }
  return listRows(directory, files, cacheDb, fixedDb);
}

bool makeRawFixedDb(const std::string& path) {
  unlink(path.c_str());
  Session session;
  return session.open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) &&
         sqlite3_exec(session.db,
                      "CREATE TABLE v_attr (fname text, attr text, seq integer, v0, v1, v2, v3, "
                      "v4, v5, v6, v7, v8, v9);"
                      "CREATE INDEX v_attr_fname ON v_attr(fname);"
                      "CREATE TABLE v_symlink (fname TEXT, name TEXT);"
                      "CREATE TABLE v_object (fname TEXT, name TEXT);"
                      "CREATE INDEX v_object_fname ON v_object(fname);",
                      nullptr, nullptr, nullptr) == SQLITE_OK;
}

long rawWarmList(const std::string& directory, const std::string& cacheDb,
                 const std::string& fixedDb) {
  std::vector<ListedFile> files;
  if (!listFiles(directory, &files)) return -1;
  return listRows(directory, files, cacheDb, fixedDb);
}

}  // namespace qzbench
