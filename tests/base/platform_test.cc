// The POSIX platform table through the np_* functions, on real temporary
// files. Checks that need permission bits to count run in a forked child that
// has dropped to user nobody (tests run as root, which ignores them).
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "support/privileges.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

unsigned modeOf(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0xFFFFFFFFu;
  return static_cast<unsigned>(st.st_mode & 07777);
}

// Every entry of `path` as np_dir_next_stat returns it.
struct Listed {
  std::string name;
  NpDirEntry entry;
};
std::vector<Listed> listAll(const std::string& path, int flags) {
  std::vector<Listed> result;
  NpDir* dir = nullptr;
  if (np_dir_open(path.c_str(), flags, &dir) != NP_OK) {
    ADD_FAILURE() << "cannot open " << path;
    return result;
  }
  char name[NP_PATH_MAX];
  NpDirEntry entry;
  while (np_dir_next_stat(dir, name, sizeof name, &entry) == NP_OK) result.push_back({name, entry});
  EXPECT_EQ(NP_OK, np_dir_close(dir));
  return result;
}

std::set<std::string> namesOf(const std::vector<Listed>& listed) {
  std::set<std::string> names;
  for (const Listed& l : listed) names.insert(l.name);
  return names;
}

// ---------------------------------------------------------------------------
// Stat.

TEST(PlatformStat, ExistingFileFillsTheStatus) {
  TempDir dir;
  std::string file = dir.join("f");
  qztest::writeFile(file, "12345");
  qztest::setMtime(file, 1000000000);
  chmod(file.c_str(), 0640);
  NpStat st;
  ASSERT_EQ(NP_OK, np_fio_stat(file.c_str(), &st));
  EXPECT_EQ(5u, st.size);
  EXPECT_EQ(NP_TYPE_FILE, st.type);
  EXPECT_EQ(1000000000, st.mtime);
  EXPECT_EQ(1000000000, st.atime);
  EXPECT_GT(st.ctime, 0);
  EXPECT_EQ(0640u, st.mode);
}

TEST(PlatformStat, DirectoryHasTypeOne) {
  TempDir dir;
  NpStat st;
  ASSERT_EQ(NP_OK, np_fio_stat(dir.path().c_str(), &st));
  EXPECT_EQ(1, st.type);
  EXPECT_EQ(NP_OK, np_fio_stat(dir.path().c_str(), nullptr));
}

TEST(PlatformStat, MissingPathsGiveThree) {
  TempDir dir;
  qztest::writeFile(dir.join("file"), "");
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(dir.join("missing").c_str(), nullptr));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(dir.join("missing/below").c_str(), nullptr));
  // A path through a file names nothing.
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(dir.join("file/below").c_str(), nullptr));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(nullptr, nullptr));
}

TEST(PlatformStat, LinksAreFollowed) {
  TempDir dir;
  qztest::writeFile(dir.join("target"), "abc");
  ASSERT_EQ(0, symlink("target", dir.join("link").c_str()));
  ASSERT_EQ(0, symlink("nothing", dir.join("dangling").c_str()));
  NpStat st;
  ASSERT_EQ(NP_OK, np_fio_stat(dir.join("link").c_str(), &st));
  EXPECT_EQ(NP_TYPE_FILE, st.type);
  EXPECT_EQ(3u, st.size);
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_stat(dir.join("dangling").c_str(), &st));
}

// ---------------------------------------------------------------------------
// Rename and unlink.

TEST(PlatformRename, MovesAFile) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "content");
  ASSERT_EQ(NP_OK, np_fio_rename(dir.join("a").c_str(), dir.join("b").c_str()));
  EXPECT_FALSE(qztest::pathExists(dir.join("a")));
  EXPECT_EQ("content", qztest::readFile(dir.join("b")));
}

TEST(PlatformRename, ResultCodes) {
  TempDir dir;
  qztest::makeDirs(dir.join("d/sub"));
  qztest::makeDirs(dir.join("full/x"));
  qztest::makeDirs(dir.join("empty"));
  qztest::writeFile(dir.join("file"), "");
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_rename(dir.join("none").c_str(), dir.join("x").c_str()));
  // A directory onto a non-empty directory: the target exists.
  EXPECT_EQ(NP_ERR_EXISTS, np_fio_rename(dir.join("empty").c_str(), dir.join("full").c_str()));
  // A directory below itself.
  EXPECT_EQ(NP_ERR_INVALID_PATH,
            np_fio_rename(dir.join("d").c_str(), dir.join("d/sub/d").c_str()));
  // A component of the target that is not a directory.
  EXPECT_EQ(NP_ERR_INVALID_PATH,
            np_fio_rename(dir.join("empty").c_str(), dir.join("file/empty").c_str()));
  EXPECT_EQ(NP_ERR_IS_DIRECTORY, np_fio_rename(dir.join("file").c_str(), dir.join("d").c_str()));
}

TEST(PlatformRename, AccessDeniedAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::makeDirs(dir.join("locked"));
  chmod(dir.join("locked").c_str(), 0755);  // owned by the test user: nobody may not write
  qztest::writeFile(dir.join("locked/f"), "");
  std::string from = dir.join("locked/f");
  std::string to = dir.join("locked/g");
  int status = qztest::runAsNobody([&] {
    return np_fio_rename(from.c_str(), to.c_str()) == NP_ERR_ACCESS ? 0 : 1;
  });
  EXPECT_EQ(0, status);
  EXPECT_TRUE(qztest::pathExists(from));
}

TEST(PlatformUnlink, ResultCodes) {
  TempDir dir;
  qztest::writeFile(dir.join("f"), "");
  qztest::makeDirs(dir.join("d"));
  EXPECT_EQ(NP_OK, np_fio_unlink(dir.join("f").c_str()));
  EXPECT_FALSE(qztest::pathExists(dir.join("f")));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_unlink(dir.join("f").c_str()));
  EXPECT_EQ(NP_ERR_IS_DIRECTORY, np_fio_unlink(dir.join("d").c_str()));
  EXPECT_TRUE(qztest::pathExists(dir.join("d")));
}

// ---------------------------------------------------------------------------
// Open and close.

TEST(PlatformOpen, LockFileFlagsCreateExclusively) {
  TempDir dir;
  std::string path = dir.join("lock");
  NpFile* handle = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(path.c_str(), NP_FIO_LOCKFILE, &handle));
  ASSERT_NE(nullptr, handle);
  EXPECT_TRUE(qztest::pathExists(path));
  EXPECT_EQ(NP_OK, np_fio_close(handle));
  NpFile* second = reinterpret_cast<NpFile*>(&handle);
  EXPECT_EQ(NP_ERR_EXISTS, np_fio_open(path.c_str(), NP_FIO_LOCKFILE, &second));
  EXPECT_EQ(nullptr, second);
}

TEST(PlatformOpen, ResultCodes) {
  TempDir dir;
  NpFile* handle = nullptr;
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_open(dir.join("none").c_str(), NP_FIO_READ, &handle));
  EXPECT_EQ(NP_ERR_NOT_FOUND,
            np_fio_open(dir.join("none/f").c_str(), NP_FIO_LOCKFILE, &handle));
  EXPECT_EQ(NP_ERR_IS_DIRECTORY, np_fio_open(dir.path().c_str(), NP_FIO_READ, &handle));
  EXPECT_EQ(nullptr, handle);
  // Without NP_FIO_PROBE a handle pointer is needed.
  qztest::writeFile(dir.join("f"), "");
  EXPECT_EQ(NP_ERR_BUFFER, np_fio_open(dir.join("f").c_str(), NP_FIO_READ, nullptr));
  EXPECT_EQ(NP_OK, np_fio_close(nullptr));
}

TEST(PlatformOpen, CreateKeepsAndTruncateEmpties) {
  TempDir dir;
  std::string path = dir.join("f");
  qztest::writeFile(path, "content");
  NpFile* handle = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(path.c_str(), NP_FIO_WRITE | NP_FIO_CREATE, &handle));
  np_fio_close(handle);
  EXPECT_EQ("content", qztest::readFile(path));
  ASSERT_EQ(NP_OK, np_fio_open(path.c_str(), NP_FIO_WRITE | NP_FIO_TRUNCATE, &handle));
  np_fio_close(handle);
  EXPECT_EQ("", qztest::readFile(path));
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("new").c_str(), NP_FIO_WRITE | NP_FIO_CREATE, &handle));
  np_fio_close(handle);
  EXPECT_TRUE(qztest::pathExists(dir.join("new")));
}

TEST(PlatformOpen, ProbeKeepsNoHandleAndChangesNothing) {
  TempDir dir;
  std::string path = dir.join("f");
  qztest::writeFile(path, "content");
  EXPECT_EQ(NP_OK, np_fio_open(path.c_str(), NP_FIO_PROBE_WRITE, nullptr));
  EXPECT_EQ(NP_OK, np_fio_open(path.c_str(), NP_FIO_PROBE | NP_FIO_READ, nullptr));
  EXPECT_EQ(NP_OK,
            np_fio_open(path.c_str(), NP_FIO_PROBE | NP_FIO_WRITE | NP_FIO_TRUNCATE, nullptr));
  EXPECT_EQ("content", qztest::readFile(path));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_open(dir.join("none").c_str(), NP_FIO_PROBE_WRITE, nullptr));
  EXPECT_EQ(NP_ERR_NOT_FOUND,
            np_fio_open(dir.join("none").c_str(), NP_FIO_PROBE | NP_FIO_LOCKFILE, nullptr));
  EXPECT_FALSE(qztest::pathExists(dir.join("none")));
  // A writable directory probes as writable.
  EXPECT_EQ(NP_OK, np_fio_open(dir.path().c_str(), NP_FIO_PROBE_WRITE, nullptr));
}

TEST(PlatformOpen, WriteProbeAsNobodyIsDenied) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string file = dir.join("f");
  qztest::writeFile(file, "");
  chmod(file.c_str(), 0644);
  std::string sub = dir.join("sub");
  qztest::makeDirs(sub);
  chmod(sub.c_str(), 0755);
  std::string open = dir.join("open");
  qztest::makeDirs(open);
  chmod(open.c_str(), 0777);
  int status = qztest::runAsNobody([&] {
    if (np_fio_open(file.c_str(), NP_FIO_PROBE_WRITE, nullptr) != NP_ERR_ACCESS) return 1;
    if (np_fio_open(file.c_str(), NP_FIO_PROBE | NP_FIO_READ, nullptr) != NP_OK) return 2;
    if (np_fio_open(sub.c_str(), NP_FIO_PROBE_WRITE, nullptr) != NP_ERR_ACCESS) return 3;
    if (np_fio_open(open.c_str(), NP_FIO_PROBE_WRITE, nullptr) != NP_OK) return 4;
    NpFile* handle = nullptr;
    std::string lock = sub + "/lock";
    if (np_fio_open(lock.c_str(), NP_FIO_LOCKFILE, &handle) != NP_ERR_ACCESS) return 5;
    return 0;
  });
  EXPECT_EQ(0, status);
}

// ---------------------------------------------------------------------------
// Permissions.

TEST(PlatformChperm, AddsAndRemovesBySelectors) {
  TempDir dir;
  std::string path = dir.join("f");
  qztest::writeFile(path, "");
  chmod(path.c_str(), 0644);
  // The library's "make read-only" call.
  ASSERT_EQ(NP_OK, np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_REMOVE, NP_PERM_WRITE));
  EXPECT_EQ(0444u, modeOf(path));
  ASSERT_EQ(NP_OK, np_fio_chperm(path.c_str(), NP_PERM_OWNER, NP_PERM_ADD, NP_PERM_WRITE));
  EXPECT_EQ(0644u, modeOf(path));
  ASSERT_EQ(NP_OK, np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_ADD, NP_PERM_WRITE));
  EXPECT_EQ(0666u, modeOf(path));
  ASSERT_EQ(NP_OK, np_fio_chperm(path.c_str(), NP_PERM_OWNER, NP_PERM_ADD,
                                 NP_PERM_EXECUTE | NP_PERM_READ));
  EXPECT_EQ(0766u, modeOf(path));
  ASSERT_EQ(NP_OK, np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_REMOVE,
                                 NP_PERM_READ | NP_PERM_EXECUTE));
  EXPECT_EQ(0222u, modeOf(path));
}

TEST(PlatformChperm, BadArguments) {
  TempDir dir;
  std::string path = dir.join("f");
  qztest::writeFile(path, "");
  chmod(path.c_str(), 0644);
  EXPECT_EQ(NP_ERR_NOT_FOUND,
            np_fio_chperm(dir.join("none").c_str(), NP_PERM_ALL, NP_PERM_ADD, NP_PERM_WRITE));
  EXPECT_EQ(NP_ERR_UNKNOWN, np_fio_chperm(path.c_str(), 3, NP_PERM_ADD, NP_PERM_WRITE));
  EXPECT_EQ(NP_ERR_UNKNOWN, np_fio_chperm(path.c_str(), NP_PERM_ALL, 0, NP_PERM_WRITE));
  EXPECT_EQ(NP_ERR_UNKNOWN, np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_ADD, 8));
  EXPECT_EQ(NP_ERR_UNKNOWN, np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_ADD, 0));
  EXPECT_EQ(0644u, modeOf(path));
}

TEST(PlatformChperm, NobodyCannotChangeSomeoneElsesFile) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string path = dir.join("f");
  qztest::writeFile(path, "");
  chmod(path.c_str(), 0644);
  int status = qztest::runAsNobody([&] {
    return np_fio_chperm(path.c_str(), NP_PERM_ALL, NP_PERM_ADD, NP_PERM_WRITE) == NP_ERR_ACCESS
               ? 0
               : 1;
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ(0644u, modeOf(path));
}

// ---------------------------------------------------------------------------
// Directories.

TEST(PlatformDirOpen, ResultCodes) {
  TempDir dir;
  qztest::writeFile(dir.join("file"), "");
  NpDir* handle = nullptr;
  // Flags 0 only test that the directory exists; the handle is still closed.
  ASSERT_EQ(NP_OK, np_dir_open(dir.path().c_str(), 0, &handle));
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ(NP_OK, np_dir_close(handle));
  EXPECT_EQ(NP_ERR_DIR_NOT_FOUND, np_dir_open(dir.join("none").c_str(), NP_DIR_LIST, &handle));
  EXPECT_EQ(nullptr, handle);
  EXPECT_EQ(NP_ERR_NOT_A_DIRECTORY, np_dir_open(dir.join("file").c_str(), NP_DIR_LIST, &handle));
  EXPECT_EQ(nullptr, handle);
  EXPECT_EQ(NP_OK, np_dir_close(nullptr));
}

TEST(PlatformDirOpen, AccessDeniedGivesFour) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string closed = dir.join("closed");
  qztest::makeDirs(closed);
  chmod(closed.c_str(), 0700);
  int status = qztest::runAsNobody([&] {
    NpDir* handle = nullptr;
    int rc = np_dir_open(closed.c_str(), NP_DIR_LIST, &handle);
    if (handle != nullptr) np_dir_close(handle);
    return rc == NP_ERR_ACCESS ? 0 : 10 + rc;
  });
  EXPECT_EQ(0, status);
}

class PlatformListing : public ::testing::Test {
 protected:
  void SetUp() override {
    qztest::writeFile(dir_.join("a.txt"), "a");
    qztest::writeFile(dir_.join("b.txt"), "bb");
    qztest::writeFile(dir_.join(".v_fmd"), "");
    qztest::makeDirs(dir_.join("sub"));
    qztest::setMtime(dir_.join("b.txt"), 1234567890);
  }
  std::string p(const char* leaf) const { return dir_.join(leaf); }
  TempDir dir_;
};

TEST_F(PlatformListing, EveryEntryWithFullPathsAndNoDots) {
  std::set<std::string> expected = {p("a.txt"), p("b.txt"), p(".v_fmd"), p("sub")};
  EXPECT_EQ(expected, namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_STAT)));
  EXPECT_EQ(expected,
            namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_FILES | NP_DIR_DIRS | NP_DIR_STAT)));
  // A path given with a trailing separator is not doubled.
  EXPECT_EQ(expected, namesOf(listAll(dir_.path() + "/", NP_DIR_LIST)));
}

TEST_F(PlatformListing, FilesOnlyAndDirectoriesOnly) {
  EXPECT_EQ((std::set<std::string>{p("a.txt"), p("b.txt"), p(".v_fmd")}),
            namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_FILES | NP_DIR_STAT)));
  // The plug-in directory is listed with FILES | STAT and no LIST bit.
  EXPECT_EQ((std::set<std::string>{p("a.txt"), p("b.txt"), p(".v_fmd")}),
            namesOf(listAll(dir_.path(), NP_DIR_FILES | NP_DIR_STAT)));
  EXPECT_EQ((std::set<std::string>{p("sub")}),
            namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_DIRS | NP_DIR_STAT)));
}

TEST_F(PlatformListing, EntryStatus) {
  bool sawSub = false;
  bool sawB = false;
  for (const Listed& l : listAll(dir_.path(), NP_DIR_LIST | NP_DIR_STAT)) {
    if (l.name == p("sub")) {
      sawSub = true;
      EXPECT_EQ(1, l.entry.type);
    } else {
      EXPECT_EQ(NP_TYPE_FILE, l.entry.type) << l.name;
    }
    if (l.name == p("b.txt")) {
      sawB = true;
      EXPECT_EQ(1234567890, l.entry.mtime);
      EXPECT_EQ(2u, l.entry.size);
      EXPECT_GT(l.entry.ctime, 0);
    }
  }
  EXPECT_TRUE(sawSub);
  EXPECT_TRUE(sawB);
}

TEST_F(PlatformListing, LinksAreFollowedAndDanglingOnesAreOther) {
  ASSERT_EQ(0, symlink("sub", p("linkdir").c_str()));
  ASSERT_EQ(0, symlink("none", p("dangling").c_str()));
  EXPECT_EQ((std::set<std::string>{p("sub"), p("linkdir")}),
            namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_DIRS | NP_DIR_STAT)));
  bool sawDangling = false;
  for (const Listed& l : listAll(dir_.path(), NP_DIR_LIST | NP_DIR_STAT)) {
    if (l.name == p("dangling")) {
      sawDangling = true;
      EXPECT_EQ(NP_TYPE_OTHER, l.entry.type);
    }
  }
  EXPECT_TRUE(sawDangling);
  EXPECT_EQ(0u, namesOf(listAll(dir_.path(), NP_DIR_LIST | NP_DIR_FILES)).count(p("dangling")));
}

TEST_F(PlatformListing, EndIsReportedAgainAndAgain) {
  TempDir empty;
  NpDir* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dir_open(empty.path().c_str(), NP_DIR_LIST, &handle));
  char name[NP_PATH_MAX];
  EXPECT_NE(NP_OK, np_dir_next(handle, name, sizeof name));
  EXPECT_NE(NP_OK, np_dir_next(handle, name, sizeof name));
  np_dir_close(handle);
}

TEST_F(PlatformListing, TooSmallBufferKeepsTheEntryForARetry) {
  NpDir* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dir_open(dir_.path().c_str(), NP_DIR_LIST | NP_DIR_DIRS, &handle));
  char tiny[4];
  EXPECT_EQ(NP_ERR_BUFFER, np_dir_next(handle, tiny, sizeof tiny));
  char name[NP_PATH_MAX];
  ASSERT_EQ(NP_OK, np_dir_next(handle, name, sizeof name));
  EXPECT_EQ(p("sub"), name);
  EXPECT_NE(NP_OK, np_dir_next(handle, name, sizeof name));
  np_dir_close(handle);
}

TEST_F(PlatformListing, EntriesRemovedWhileReadingAreSkipped) {
  NpDir* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dir_open(dir_.path().c_str(), NP_DIR_LIST | NP_DIR_STAT, &handle));
  char name[NP_PATH_MAX];
  NpDirEntry entry;
  ASSERT_EQ(NP_OK, np_dir_next_stat(handle, name, sizeof name, &entry));
  std::string first = name;
  // The directory has been read into the stream's buffer by now; the
  // entries removed from under it must not come back.
  std::set<std::string> removed;
  for (const char* leaf : {"a.txt", "b.txt", ".v_fmd", "sub"}) {
    if (p(leaf) == first) continue;
    if (std::string(leaf) == "sub") {
      rmdir(p(leaf).c_str());
    } else {
      unlink(p(leaf).c_str());
    }
    removed.insert(p(leaf));
  }
  while (np_dir_next_stat(handle, name, sizeof name, &entry) == NP_OK) {
    EXPECT_EQ(0u, removed.count(name)) << name;
  }
  np_dir_close(handle);
}

TEST(PlatformDirCreate, OneLevel) {
  TempDir dir;
  std::string path = dir.join("d");
  EXPECT_EQ(NP_OK, np_dir_create(path.c_str(), NP_DIR_CREATE_ONE));
  NpStat st;
  ASSERT_EQ(NP_OK, np_fio_stat(path.c_str(), &st));
  EXPECT_EQ(NP_TYPE_DIRECTORY, st.type);
  EXPECT_EQ(NP_ERR_EXISTS, np_dir_create(path.c_str(), NP_DIR_CREATE_ONE));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_dir_create(dir.join("x/y").c_str(), NP_DIR_CREATE_ONE));
  EXPECT_FALSE(qztest::pathExists(dir.join("x")));
}

TEST(PlatformDirCreate, WithParents) {
  TempDir dir;
  std::string path = dir.join("x/y/z");
  EXPECT_EQ(NP_OK, np_dir_create(path.c_str(), NP_DIR_CREATE_PARENTS));
  EXPECT_TRUE(qztest::pathExists(path));
  EXPECT_EQ(NP_ERR_EXISTS, np_dir_create(path.c_str(), NP_DIR_CREATE_PARENTS));
  EXPECT_EQ(NP_OK, np_dir_create(dir.join("x/y/w/").c_str(), NP_DIR_CREATE_PARENTS));
  EXPECT_TRUE(qztest::pathExists(dir.join("x/y/w")));
  qztest::writeFile(dir.join("file"), "");
  EXPECT_EQ(NP_ERR_INVALID_PATH,
            np_dir_create(dir.join("file/a/b").c_str(), NP_DIR_CREATE_PARENTS));
}

TEST(PlatformDirCreate, AccessDeniedAsNobody) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  std::string path = dir.join("d");
  int status = qztest::runAsNobody([&] {
    return np_dir_create(path.c_str(), NP_DIR_CREATE_ONE) == NP_ERR_ACCESS ? 0 : 1;
  });
  EXPECT_EQ(0, status);
  EXPECT_FALSE(qztest::pathExists(path));
}

TEST(PlatformDirUnlink, ResultCodes) {
  TempDir dir;
  qztest::makeDirs(dir.join("empty"));
  qztest::makeDirs(dir.join("full/x"));
  EXPECT_EQ(NP_OK, np_dir_unlink(dir.join("empty").c_str()));
  EXPECT_FALSE(qztest::pathExists(dir.join("empty")));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_dir_unlink(dir.join("empty").c_str()));
  EXPECT_EQ(NP_ERR_NOT_EMPTY, np_dir_unlink(dir.join("full").c_str()));
  EXPECT_TRUE(qztest::pathExists(dir.join("full/x")));
}

TEST(PlatformDirPathlen, IsThePathMaximum) { EXPECT_EQ(NP_PATH_MAX, np_dir_pathlen()); }

// ---------------------------------------------------------------------------
// Shared objects.

TEST(PlatformDso, MissingFileFailsWithAReason) {
  TempDir dir;
  NpDso* handle = reinterpret_cast<NpDso*>(&dir);
  EXPECT_EQ(1, np_dso_load(dir.join("qzvmdnone.so").c_str(), 4, &handle));
  EXPECT_EQ(nullptr, handle);
  EXPECT_NE(nullptr, std::strstr(np_dso_error(), "qzvmdnone.so")) << np_dso_error();
}

TEST(PlatformDso, GarbageFileFailsWithAReason) {
  TempDir dir;
  std::string path = dir.join("qzvmdgarbage.so");
  qztest::writeFile(path, "this is not a shared object\n");
  NpDso* handle = nullptr;
  EXPECT_EQ(1, np_dso_load(path.c_str(), 4, &handle));
  EXPECT_EQ(nullptr, handle);
  EXPECT_STRNE("", np_dso_error());
}

// The loader would wait for ever on a FIFO without a writer and read a
// device without end; neither is handed to it.
TEST(PlatformDso, OnlyRegularFilesAreLoaded) {
  TempDir dir;
  const std::string fifo = dir.join("qzvmdfifo.so");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  for (const std::string& path : {fifo, std::string("/dev/zero"), dir.path()}) {
    NpDso* handle = reinterpret_cast<NpDso*>(&dir);
    EXPECT_EQ(1, np_dso_load(path.c_str(), 4, &handle)) << path;
    EXPECT_EQ(nullptr, handle);
    EXPECT_EQ(path + ": not a regular file", std::string(np_dso_error()));
  }
}

TEST(PlatformDso, LoadsLooksUpAndUnloads) {
  // The C math library is present wherever the tests run.
  NpDso* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dso_load("libm.so.6", 4, &handle)) << np_dso_error();
  ASSERT_NE(nullptr, handle);
  EXPECT_NE(nullptr, np_dso_getsym(handle, "cos"));
  EXPECT_EQ(nullptr, np_dso_getsym(handle, "no_such_symbol_anywhere"));
  EXPECT_EQ(NP_OK, np_dso_unload(handle));
  EXPECT_EQ(nullptr, np_dso_getsym(nullptr, "cos"));
  EXPECT_EQ(NP_OK, np_dso_unload(nullptr));
}

TEST(PlatformDsoName, AcceptsSharedObjectForms) {
  char out[64];
  EXPECT_EQ(NP_OK, np_dso_mklname("qzvmdjobs.so", out, sizeof out));
  EXPECT_STREQ("qzvmdjobs.so", out);
  EXPECT_EQ(NP_OK, np_dso_mklname("qzvmdjobs.so.1", out, sizeof out));
  EXPECT_STREQ("qzvmdjobs.so.1", out);
  EXPECT_EQ(NP_OK, np_dso_mklname("libx.so.1.2.3", out, sizeof out));
  EXPECT_EQ(NP_OK, np_dso_mklname("a.so.so", out, sizeof out));
}

TEST(PlatformDsoName, RefusesOtherNames) {
  char out[64];
  for (const char* name : {"qzvmdjobs.txt", "qzvmdjobs", ".so", "x.so.", "x.so.a", "x.sox",
                           "x.so.1.", "x.so..1", "", "dir.so/"}) {
    EXPECT_NE(NP_OK, np_dso_mklname(name, out, sizeof out)) << name;
  }
  EXPECT_NE(NP_OK, np_dso_mklname(nullptr, out, sizeof out));
  EXPECT_NE(NP_OK, np_dso_mklname("x.so", nullptr, 64));
}

TEST(PlatformDsoName, RefusesWhatDoesNotFit) {
  char out[64];
  EXPECT_EQ(NP_ERR_BUFFER, np_dso_mklname("x.so", out, 4));
  EXPECT_EQ(NP_OK, np_dso_mklname("x.so", out, 5));
  std::string longName(70, 'q');
  longName += ".so";
  EXPECT_EQ(NP_ERR_BUFFER, np_dso_mklname(longName.c_str(), out, sizeof out));
}

// ---------------------------------------------------------------------------
// User, clock, sleep, digits.

std::string expectedUserName(uid_t uid) {
  struct passwd* entry = getpwuid(uid);
  if (entry != nullptr && entry->pw_name != nullptr && entry->pw_name[0] != '\0') {
    return entry->pw_name;
  }
  return std::to_string(static_cast<unsigned long>(uid));
}

TEST(PlatformUser, NameOfTheEffectiveUser) {
  char buffer[256];
  ASSERT_EQ(NP_OK, np_osinf_user(buffer, sizeof buffer));
  EXPECT_STRNE("", buffer);
  EXPECT_EQ(expectedUserName(geteuid()), buffer);
}

TEST(PlatformUser, NameOfNobodyInAChild) {
  std::string expected = expectedUserName(static_cast<uid_t>(qztest::kNobodyId));
  int status = qztest::runAsNobody([&] {
    char buffer[256];
    if (np_osinf_user(buffer, sizeof buffer) != NP_OK) return 1;
    return expected == buffer ? 0 : 2;
  });
  EXPECT_EQ(0, status);
}

TEST(PlatformUser, SmallOrMissingBuffer) {
  char buffer[1] = {'x'};
  EXPECT_EQ(NP_ERR_BUFFER, np_osinf_user(buffer, sizeof buffer));
  EXPECT_EQ('\0', buffer[0]);
  EXPECT_EQ(NP_ERR_BUFFER, np_osinf_user(nullptr, 256));
}

TEST(PlatformClock, TimeNowIsTheSystemTime) {
  int64_t before = static_cast<int64_t>(time(nullptr));
  int64_t now = np_time_now();
  int64_t after = static_cast<int64_t>(time(nullptr));
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

TEST(PlatformClock, SleepOfNothingReturns) {
  EXPECT_EQ(NP_OK, np_proc_sleep(0));
  EXPECT_EQ(NP_OK, np_proc_sleep(-3));
}

TEST(PlatformDigit, FirstByteOnly) {
  EXPECT_TRUE(np_uchar_isdigit("0"));
  EXPECT_TRUE(np_uchar_isdigit("9abc"));
  EXPECT_FALSE(np_uchar_isdigit("a1"));
  EXPECT_FALSE(np_uchar_isdigit("/"));
  EXPECT_FALSE(np_uchar_isdigit(":"));
  EXPECT_FALSE(np_uchar_isdigit(" 1"));
  EXPECT_FALSE(np_uchar_isdigit(""));
  EXPECT_FALSE(np_uchar_isdigit(nullptr));
}

// ---------------------------------------------------------------------------
// Mutexes through the table.

TEST(PlatformMutex, RecursiveAndPlain) {
  const NpPlatformOps* ops = npGetPlatformOps();
  void* recursive = ops->mutex_create(0, 1);
  ASSERT_NE(nullptr, recursive);
  EXPECT_EQ(NP_OK, ops->mutex_lock(recursive, 1));
  EXPECT_EQ(NP_OK, ops->mutex_lock(recursive, 1));
  EXPECT_EQ(NP_OK, ops->mutex_unlock(recursive));
  EXPECT_EQ(NP_OK, ops->mutex_unlock(recursive));
  ops->mutex_destroy(recursive);

  void* plain = ops->mutex_create(0, 0);
  ASSERT_NE(nullptr, plain);
  EXPECT_EQ(NP_OK, ops->mutex_lock(plain, 1));
  EXPECT_EQ(NP_ERR_BUSY, ops->mutex_lock(plain, 0));  // held: a try fails
  EXPECT_EQ(NP_OK, ops->mutex_unlock(plain));
  EXPECT_EQ(NP_OK, ops->mutex_lock(plain, 0));
  EXPECT_EQ(NP_OK, ops->mutex_unlock(plain));
  ops->mutex_destroy(plain);
  EXPECT_NE(NP_OK, ops->mutex_lock(nullptr, 1));
  ops->mutex_destroy(nullptr);
}

// ---------------------------------------------------------------------------
// Path parsing and result texts.

struct Parsed {
  int rc;
  std::string dir;
  std::string name;
};
Parsed parse(const char* path, std::size_t dirLength = 256, std::size_t nameLength = 256) {
  char dir[256] = "?";
  char name[256] = "?";
  int rc = np_fio_pparse(path, dir, dirLength, name, nameLength);
  return {rc, dir, name};
}

TEST(PlatformPathParse, SplitsAtTheLastSeparator) {
  Parsed p = parse("a/b/c.txt");
  EXPECT_EQ(NP_OK, p.rc);
  EXPECT_EQ("a/b", p.dir);
  EXPECT_EQ("c.txt", p.name);
  p = parse("leaf");
  EXPECT_EQ("", p.dir);
  EXPECT_EQ("leaf", p.name);
  p = parse("/x");
  EXPECT_EQ("/", p.dir);
  EXPECT_EQ("x", p.name);
  p = parse("dir/");
  EXPECT_EQ("dir", p.dir);
  EXPECT_EQ("", p.name);
  p = parse(nullptr);
  EXPECT_EQ(NP_OK, p.rc);
  EXPECT_EQ("", p.dir);
  EXPECT_EQ("", p.name);
}

TEST(PlatformPathParse, NullBuffersAreSkipped) {
  char name[16];
  EXPECT_EQ(NP_OK, np_fio_pparse("a/b", nullptr, 0, name, sizeof name));
  EXPECT_STREQ("b", name);
  char dir[16];
  EXPECT_EQ(NP_OK, np_fio_pparse("a/b", dir, sizeof dir, nullptr, 0));
  EXPECT_STREQ("a", dir);
}

TEST(PlatformPathParse, SmallBuffersGetWhatFits) {
  Parsed p = parse("abcdef/ghijkl", 4, 256);
  EXPECT_EQ(NP_ERR_BUFFER, p.rc);
  EXPECT_EQ("abc", p.dir);
  EXPECT_EQ("ghijkl", p.name);
  p = parse("abcdef/ghijkl", 256, 3);
  EXPECT_EQ(NP_ERR_BUFFER, p.rc);
  EXPECT_EQ("abcdef", p.dir);
  EXPECT_EQ("gh", p.name);
}

TEST(PlatformErrdesc, EveryCodeHasItsOwnText) {
  EXPECT_STREQ("No such file or directory", np_fio_errdesc(NP_ERR_NOT_FOUND));
  EXPECT_STREQ("Permission denied", np_fio_errdesc(NP_ERR_ACCESS));
  EXPECT_STREQ("File exists", np_fio_errdesc(NP_ERR_EXISTS));
  EXPECT_STREQ("Directory not empty", np_fio_errdesc(NP_ERR_NOT_EMPTY));
  std::set<std::string> texts;
  for (int code = NP_OK; code <= NP_ERR_BUFFER; ++code) {
    const char* text = np_fio_errdesc(code);
    ASSERT_NE(nullptr, text);
    EXPECT_STRNE("", text);
    EXPECT_EQ(nullptr, std::strchr(text, '\n'));
    texts.insert(text);
  }
  EXPECT_EQ(static_cast<std::size_t>(NP_ERR_BUFFER + 1), texts.size());
}

TEST(PlatformErrdesc, UnknownCodesCarryTheirNumber) {
  EXPECT_STREQ("Unknown error (99)", np_fio_errdesc(99));
  EXPECT_STREQ("Unknown error (-1)", np_fio_errdesc(-1));
}

}  // namespace
