// The platform calls that keep the vault's files safe: status without
// following links, renames that never replace, reads and writes of open
// files, advisory locks of open files, and what tells a running process from
// one that has ended.
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

TEST(PlatformLstat, TellsLinksFifosAndDirectoriesApart) {
  TempDir dir;
  qztest::writeFile(dir.join("file"), "abc");
  ASSERT_EQ(0, symlink("file", dir.join("link").c_str()));
  ASSERT_EQ(0, symlink("nothing", dir.join("dangling").c_str()));
  ASSERT_EQ(0, mkfifo(dir.join("fifo").c_str(), 0600));
  qztest::makeDirs(dir.join("sub"));

  NpFileInfo info;
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("file").c_str(), &info));
  EXPECT_EQ(NP_TYPE_FILE, info.type);
  EXPECT_EQ(3u, info.size);
  EXPECT_EQ(1u, info.links);
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("link").c_str(), &info));
  EXPECT_EQ(NP_TYPE_LINK, info.type);
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("dangling").c_str(), &info));
  EXPECT_EQ(NP_TYPE_LINK, info.type);
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("fifo").c_str(), &info));
  EXPECT_EQ(NP_TYPE_FIFO, info.type);
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("sub").c_str(), &info));
  EXPECT_EQ(NP_TYPE_DIRECTORY, info.type);
  ASSERT_EQ(NP_OK, np_fio_lstat("/dev/null", &info));
  EXPECT_EQ(NP_TYPE_DEVICE, info.type);
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_fio_lstat(dir.join("missing").c_str(), &info));
}

TEST(PlatformLstat, TwoNamesOfOneFileShareDeviceAndInode) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "x");
  qztest::writeFile(dir.join("b"), "x");
  ASSERT_EQ(NP_OK, np_fio_link(dir.join("a").c_str(), dir.join("a2").c_str()));
  NpFileInfo a;
  NpFileInfo a2;
  NpFileInfo b;
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("a").c_str(), &a));
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("a2").c_str(), &a2));
  ASSERT_EQ(NP_OK, np_fio_lstat(dir.join("b").c_str(), &b));
  EXPECT_EQ(a.device, a2.device);
  EXPECT_EQ(a.inode, a2.inode);
  EXPECT_EQ(2u, a.links);
  EXPECT_NE(a.inode, b.inode);
}

TEST(PlatformRenameNoReplace, RenamesWhenTheNameIsFree) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "content");
  ASSERT_EQ(NP_OK, np_fio_rename_noreplace(dir.join("a").c_str(), dir.join("b").c_str()));
  EXPECT_FALSE(qztest::pathExists(dir.join("a")));
  EXPECT_EQ("content", qztest::readFile(dir.join("b")));
}

TEST(PlatformRenameNoReplace, NeverReplacesAFileADirectoryOrALink) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "mine");
  qztest::writeFile(dir.join("taken"), "theirs");
  qztest::makeDirs(dir.join("emptydir"));
  ASSERT_EQ(0, symlink("nothing", dir.join("dangling").c_str()));
  EXPECT_EQ(NP_ERR_EXISTS, np_fio_rename_noreplace(dir.join("a").c_str(), dir.join("taken").c_str()));
  EXPECT_EQ(NP_ERR_EXISTS,
            np_fio_rename_noreplace(dir.join("a").c_str(), dir.join("emptydir").c_str()));
  EXPECT_EQ(NP_ERR_EXISTS,
            np_fio_rename_noreplace(dir.join("a").c_str(), dir.join("dangling").c_str()));
  EXPECT_EQ("mine", qztest::readFile(dir.join("a")));
  EXPECT_EQ("theirs", qztest::readFile(dir.join("taken")));
}

TEST(PlatformRenameNoReplace, RenamesDirectoriesToo) {
  TempDir dir;
  qztest::makeDirs(dir.join("d1"));
  qztest::makeDirs(dir.join("d2"));
  EXPECT_EQ(NP_ERR_EXISTS, np_fio_rename_noreplace(dir.join("d1").c_str(), dir.join("d2").c_str()));
  ASSERT_EQ(NP_OK, np_fio_rename_noreplace(dir.join("d1").c_str(), dir.join("d3").c_str()));
  EXPECT_TRUE(qztest::pathExists(dir.join("d3")));
  EXPECT_EQ(NP_ERR_NOT_FOUND,
            np_fio_rename_noreplace(dir.join("missing").c_str(), dir.join("x").c_str()));
}

TEST(PlatformOpenNoFollow, RefusesLinksFifosAndDevices) {
  TempDir dir;
  qztest::writeFile(dir.join("file"), "abc");
  ASSERT_EQ(0, symlink("file", dir.join("link").c_str()));
  ASSERT_EQ(0, mkfifo(dir.join("fifo").c_str(), 0600));
  NpFile* file = nullptr;
  EXPECT_EQ(NP_ERR_IS_LINK, np_fio_open(dir.join("link").c_str(), NP_FIO_READ | NP_FIO_NOFOLLOW, &file));
  EXPECT_EQ(nullptr, file);
  // A fifo without a writer would make a plain open wait for ever.
  EXPECT_EQ(NP_ERR_NOT_REGULAR,
            np_fio_open(dir.join("fifo").c_str(), NP_FIO_READ | NP_FIO_NOFOLLOW, &file));
  EXPECT_EQ(NP_ERR_NOT_REGULAR, np_fio_open("/dev/null", NP_FIO_READ | NP_FIO_NOFOLLOW, &file));
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("file").c_str(), NP_FIO_READ | NP_FIO_NOFOLLOW, &file));
  np_fio_close(file);
  EXPECT_STREQ("Is a symbolic link", np_fio_errdesc(NP_ERR_IS_LINK));
  EXPECT_STREQ("Not a regular file", np_fio_errdesc(NP_ERR_NOT_REGULAR));
}

TEST(PlatformReadWrite, WritesAndReadsBackAnOpenFile) {
  TempDir dir;
  NpFile* file = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("f").c_str(), NP_FIO_WRITE | NP_FIO_CREATE_NEW, &file));
  ASSERT_EQ(NP_OK, np_fio_write(file, "hello, world", 12));
  NpFileInfo info;
  ASSERT_EQ(NP_OK, np_fio_finfo(file, &info));
  EXPECT_EQ(12u, info.size);
  EXPECT_EQ(NP_TYPE_FILE, info.type);
  np_fio_close(file);

  ASSERT_EQ(NP_OK, np_fio_open(dir.join("f").c_str(), NP_FIO_READ, &file));
  char buffer[64];
  std::size_t got = 0;
  ASSERT_EQ(NP_OK, np_fio_read(file, buffer, sizeof buffer, &got));
  EXPECT_EQ("hello, world", std::string(buffer, got));
  ASSERT_EQ(NP_OK, np_fio_read(file, buffer, sizeof buffer, &got));
  EXPECT_EQ(0u, got);
  np_fio_close(file);
}

TEST(PlatformTrylock, OneHandleHoldsTheLockUntilItCloses) {
  TempDir dir;
  qztest::writeFile(dir.join("lock"), "");
  NpFile* first = nullptr;
  NpFile* second = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("lock").c_str(), NP_FIO_READ | NP_FIO_WRITE, &first));
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("lock").c_str(), NP_FIO_READ | NP_FIO_WRITE, &second));
  ASSERT_EQ(NP_OK, np_fio_trylock(first));
  EXPECT_EQ(NP_ERR_BUSY, np_fio_trylock(second)) << "a second handle, even of this process";
  // Closing an unrelated handle of the same file keeps the lock.
  NpFile* third = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("lock").c_str(), NP_FIO_READ, &third));
  np_fio_close(third);
  EXPECT_EQ(NP_ERR_BUSY, np_fio_trylock(second));
  np_fio_close(first);
  EXPECT_EQ(NP_OK, np_fio_trylock(second));
  np_fio_close(second);
}

TEST(PlatformTrylock, ALockEndsWithItsProcess) {
  TempDir dir;
  qztest::writeFile(dir.join("lock"), "");
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    NpFile* file = nullptr;
    if (np_fio_open(dir.join("lock").c_str(), NP_FIO_READ | NP_FIO_WRITE, &file) != NP_OK) _exit(1);
    if (np_fio_trylock(file) != NP_OK) _exit(2);
    const char byte = 'x';
    if (write(ready[1], &byte, 1) != 1) _exit(3);
    pause();
    _exit(0);
  }
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(1, read(ready[0], &byte, 1));
  close(ready[0]);
  NpFile* file = nullptr;
  ASSERT_EQ(NP_OK, np_fio_open(dir.join("lock").c_str(), NP_FIO_READ | NP_FIO_WRITE, &file));
  EXPECT_EQ(NP_ERR_BUSY, np_fio_trylock(file));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(NP_OK, np_fio_trylock(file));
  np_fio_close(file);
}

TEST(PlatformProcess, ProbeTellsARunningProcessFromAnEndedOne) {
  EXPECT_EQ(static_cast<int64_t>(getpid()), np_proc_id());
  uint64_t token = 0;
  ASSERT_EQ(NP_OK, np_proc_probe(np_proc_id(), &token));
  EXPECT_NE(0u, token) << "the start time of this process can be read";
  uint64_t again = 0;
  ASSERT_EQ(NP_OK, np_proc_probe(np_proc_id(), &again));
  EXPECT_EQ(token, again);

  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) _exit(0);
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_proc_probe(child, nullptr));
  // Ids that would address process groups name no process.
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_proc_probe(0, nullptr));
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_proc_probe(-1, nullptr));
}

TEST(PlatformProcess, AProcessThatEndedButWasNotWaitedForRunsNoMore) {
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) _exit(0);
  // Until it is waited for, the child is a zombie.
  for (int i = 0; i < 200 && np_proc_probe(child, nullptr) == NP_OK; ++i) usleep(5000);
  EXPECT_EQ(NP_ERR_NOT_FOUND, np_proc_probe(child, nullptr));
  int status = 0;
  waitpid(child, &status, 0);
}

TEST(PlatformProcess, HostNameIsThisMachines) {
  char expected[256] = "";
  ASSERT_EQ(0, gethostname(expected, sizeof expected));
  char name[256] = "";
  ASSERT_EQ(NP_OK, np_osinf_host(name, sizeof name));
  EXPECT_STREQ(expected, name);
  char tiny[1];
  EXPECT_EQ(NP_ERR_BUFFER, np_osinf_host(tiny, sizeof tiny));
}

TEST(PlatformListingNoFollow, LinksAreListedAsLinksAndNeverAsWhatTheyName) {
  TempDir dir;
  qztest::makeDirs(dir.join("sub"));
  qztest::writeFile(dir.join("file"), "x");
  ASSERT_EQ(0, symlink("sub", dir.join("linkdir").c_str()));
  ASSERT_EQ(0, symlink("file", dir.join("linkfile").c_str()));
  NpDir* handle = nullptr;
  ASSERT_EQ(NP_OK, np_dir_open(dir.path().c_str(),
                               NP_DIR_LIST | NP_DIR_STAT | NP_DIR_NOFOLLOW, &handle));
  char name[NP_PATH_MAX];
  NpDirEntry entry;
  int links = 0;
  while (np_dir_next_stat(handle, name, sizeof name, &entry) == NP_OK) {
    const std::string leaf = std::strrchr(name, '/') + 1;
    if (leaf == "linkdir" || leaf == "linkfile") {
      EXPECT_EQ(NP_TYPE_LINK, entry.type) << leaf;
      ++links;
    } else if (leaf == "sub") {
      EXPECT_EQ(NP_TYPE_DIRECTORY, entry.type);
    } else {
      EXPECT_EQ(NP_TYPE_FILE, entry.type);
    }
  }
  np_dir_close(handle);
  EXPECT_EQ(2, links);

  // A directories-only listing leaves the linked directory out.
  ASSERT_EQ(NP_OK, np_dir_open(dir.path().c_str(),
                               NP_DIR_LIST | NP_DIR_STAT | NP_DIR_DIRS | NP_DIR_NOFOLLOW, &handle));
  int directories = 0;
  while (np_dir_next_stat(handle, name, sizeof name, &entry) == NP_OK) {
    EXPECT_EQ(dir.join("sub"), std::string(name));
    ++directories;
  }
  np_dir_close(handle);
  EXPECT_EQ(1, directories);
}

TEST(PlatformSafetyFaults, NewEntriesAreCountedAndFailed) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "x");
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioRenameNoReplace, 1, NP_ERR_IO);
  EXPECT_EQ(NP_ERR_IO, np_fio_rename_noreplace(dir.join("a").c_str(), dir.join("b").c_str()));
  EXPECT_TRUE(qztest::pathExists(dir.join("a")));
  faults.failCall(qztest::NpOp::kProcProbe, 1, NP_ERR_UNKNOWN);
  EXPECT_EQ(NP_ERR_UNKNOWN, np_proc_probe(np_proc_id(), nullptr));
  faults.failCall(qztest::NpOp::kFioLstat, 1, NP_ERR_ACCESS);
  NpFileInfo info;
  EXPECT_EQ(NP_ERR_ACCESS, np_fio_lstat(dir.join("a").c_str(), &info));
  EXPECT_EQ(1, faults.callCount(qztest::NpOp::kFioRenameNoReplace));
  EXPECT_EQ(3, faults.failuresInjected());
}

}  // namespace
