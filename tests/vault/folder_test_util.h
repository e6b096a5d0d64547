// Helpers for the tests of folder attributes, stamps and tree changes: folders
// made as the vault makes them, the rows of a ".v_fmd" read with SQLite
// itself, a fixed clock, and a platform table that lets a test put a prepared
// metadata database into a directory the moment the library creates it.
#ifndef QZ_TESTS_VAULT_FOLDER_TEST_UTIL_H_
#define QZ_TESTS_VAULT_FOLDER_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "folder_impl.h"
#include "qzbase/platform.h"
#include "support/temp_dir.h"
#include "time_util.h"
#include "vault_test_util.h"

namespace qztest {

// A folder over `path`, made as the vault makes them (empty filter).
inline Owned<QzvFolderImpl> makeFolder(QzvVaultImpl* vault, const std::string& path) {
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  EXPECT_TRUE(folder->init(S(path), QzbString("", true), vault));
  return folder;
}

inline std::string fmdOf(const std::string& directory) { return directory + "/.v_fmd"; }
inline std::string cmdOf(const std::string& directory) { return directory + "/.v_cmd"; }

// The folder's own rows of one attribute: (seq, v0) in seq order.
inline Rows folderStamp(const std::string& directory, const std::string& attribute) {
  return query(fmdOf(directory), "SELECT seq, v0 FROM v_attr WHERE fname IS NULL AND attr = " +
                                     sqlText(attribute) + " ORDER BY rowid");
}

// Every v_attr row of a database, in a fixed order, all thirteen columns.
inline Rows allAttrRows(const std::string& database) {
  return query(database,
               "SELECT fname, attr, seq, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr "
               "ORDER BY fname, attr, seq, rowid");
}

// The process user as the library names it.
inline std::string processUser() { return getCurrentUserName().toStdString(); }

// The status-change time the platform reports for `path` (the folder's
// "directory time").
inline int64_t statusChangeTime(const std::string& path) {
  NpStat status{};
  EXPECT_EQ(np_fio_stat(path.c_str(), &status), NP_OK) << path;
  return status.ctime;
}

// While it lives, the platform clock reads `seconds` (everything else is the
// platform in force when it was made). Not to be nested with a FaultPlatform.
class ScopedClock {
 public:
  explicit ScopedClock(int64_t seconds) : previous_(npGetPlatformOps()) {
    table_ = *previous_;
    fixedSeconds() = seconds;
    table_.time_now = []() -> int64_t { return fixedSeconds(); };
    npSetPlatformOps(&table_);
  }
  ~ScopedClock() { npSetPlatformOps(previous_); }
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

 private:
  static int64_t& fixedSeconds() {
    static int64_t seconds = 0;
    return seconds;
  }
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

// While it lives, the platform's stat of `path` reports `ctime` as the
// status-change time (everything else as the platform in force reports it).
// Not to be nested with a FaultPlatform.
class ScopedStatusTime {
 public:
  ScopedStatusTime(const std::string& path, int64_t ctime) : previous_(npGetPlatformOps()) {
    state() = State{path, ctime, previous_};
    table_ = *previous_;
    table_.fio_stat = [](const char* statPath, NpStat* st) -> int {
      const State& s = state();
      const int result = s.previous->fio_stat(statPath, st);
      if (result == NP_OK && st != nullptr && statPath != nullptr && s.path == statPath) {
        st->ctime = s.ctime;
      }
      return result;
    };
    npSetPlatformOps(&table_);
  }
  ~ScopedStatusTime() { npSetPlatformOps(previous_); }
  ScopedStatusTime(const ScopedStatusTime&) = delete;
  ScopedStatusTime& operator=(const ScopedStatusTime&) = delete;

 private:
  struct State {
    std::string path;
    int64_t ctime = 0;
    const NpPlatformOps* previous = nullptr;
  };
  static State& state() {
    static State s;
    return s;
  }
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

// While it lives, every directory that the platform layer creates receives a
// copy of the file `templatePath` as its ".v_fmd" (made with `mode`), as if
// another process had been quicker. Lets a test give createFolder a database
// that refuses the name row or is read-only.
class ScopedDirectorySeed {
 public:
  ScopedDirectorySeed(const std::string& templatePath, unsigned mode)
      : previous_(npGetPlatformOps()) {
    seed() = Seed{templatePath, mode, previous_};
    table_ = *previous_;
    table_.dir_create = [](const char* path, int createMode) -> int {
      const Seed& s = seed();
      const int result = s.previous->dir_create(path, createMode);
      if (result == NP_OK) {
        const std::string target = std::string(path) + "/.v_fmd";
        writeFile(target, readFile(s.templatePath));
        chmod(target.c_str(), s.mode);
      }
      return result;
    };
    npSetPlatformOps(&table_);
  }
  ~ScopedDirectorySeed() { npSetPlatformOps(previous_); }
  ScopedDirectorySeed(const ScopedDirectorySeed&) = delete;
  ScopedDirectorySeed& operator=(const ScopedDirectorySeed&) = delete;

 private:
  struct Seed {
    std::string templatePath;
    unsigned mode = 0644;
    const NpPlatformOps* previous = nullptr;
  };
  static Seed& seed() {
    static Seed s;
    return s;
  }
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_FOLDER_TEST_UTIL_H_
