// The file system under a vault: np_fs_info through the platform table, the
// warning a vault on a shared file system logs once when it is created, and
// QzvVault::getFileSystem with its type, shared flag and the journal mode of
// the root's databases. Shared file systems are faked through the
// fault-injecting platform (fakeFileSystem), which also fails np_fs_info.
#include <sqlite3.h>

#include <string>

#include <gtest/gtest.h>

#include "child_process.h"
#include "qzbase/config.h"
#include "qzvault/entry.h"
#include "qzvault/qzvault.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_plugins.h"
#include "vault_impl.h"

namespace {

using qztest::FaultPlatform;
using qztest::LogCapture;
using qztest::NpOp;
using qztest::runInChildProcess;
using qztest::TempDir;

const char kSharedWarningStart[] = "Vault ";

// The warnings about sharing among the captured events.
int sharingWarnings(const LogCapture& log) {
  int count = 0;
  for (const qztest::CapturedEvent& event : log.events()) {
    if (event.level == QZLOG_WARN && event.logger == "QZ.Repos.Vault" &&
        event.text.find("that other machines may share") != std::string::npos) {
      ++count;
    }
  }
  return count;
}

// A vault made through createVaultInstance, in a child process (the entry
// points keep process-wide state).
QzvVault* createVault(const std::string& root) {
  qzbGetConfigOptions(nullptr)->removeOption(QzbString("BASE/PLUGIN_PATH"));
  setVaultPluginPath(qztest::testPluginDir("working").c_str());
  return createVaultInstance(root.c_str());
}

void setJournalMode(const std::string& database, const char* mode) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, (std::string("PRAGMA journal_mode=") + mode).c_str(), nullptr, nullptr, nullptr),
            SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
}

TEST(PlatformFileSystem, NamesTheFileSystemOfAnExistingPath) {
  TempDir dir;
  NpFsInfo info{};
  ASSERT_EQ(np_fs_info(dir.path().c_str(), &info), NP_OK);
  EXPECT_NE(std::string(info.type), "");
  EXPECT_TRUE(info.kind == NP_FS_LOCAL || info.kind == NP_FS_NETWORK || info.kind == NP_FS_CLUSTER ||
              info.kind == NP_FS_USERSPACE);
  EXPECT_EQ(np_fs_info(dir.join("missing").c_str(), &info), NP_ERR_NOT_FOUND);
  EXPECT_NE(np_fs_info(nullptr, &info), NP_OK);
  EXPECT_NE(np_fs_info(dir.path().c_str(), nullptr), NP_OK);
}

TEST(PlatformFileSystem, TheFaultPlatformCountsFailsAndFakesIt) {
  TempDir dir;
  FaultPlatform faults;
  faults.fakeFileSystem("nfs", NP_FS_NETWORK);
  NpFsInfo info{};
  ASSERT_EQ(np_fs_info(dir.path().c_str(), &info), NP_OK);
  EXPECT_STREQ(info.type, "nfs");
  EXPECT_EQ(info.kind, NP_FS_NETWORK);
  // A missing path is still missing.
  EXPECT_EQ(np_fs_info(dir.join("missing").c_str(), &info), NP_ERR_NOT_FOUND);
  faults.failCall(NpOp::kFsInfo, 1, NP_ERR_IO);
  EXPECT_EQ(np_fs_info(dir.path().c_str(), &info), NP_ERR_IO);
  EXPECT_EQ(faults.callCount(NpOp::kFsInfo), 3);
  EXPECT_STREQ(qztest::npOpName(NpOp::kFsInfo), "fs_info");
}

TEST(VaultSharing, ALocalVaultLogsNoWarningAndReportsItsFileSystem) {
  runInChildProcess([] {
    TempDir dir;
    FaultPlatform faults;
    faults.fakeFileSystem("ext4", NP_FS_LOCAL);
    LogCapture log;
    QzvVault* vault = createVault(dir.path());
    ASSERT_NE(vault, nullptr) << getVaultCreateError();
    EXPECT_EQ(sharingWarnings(log), 0) << log.dump();
    QzbString type;
    bool shared = true;
    bool rollback = false;
    ASSERT_TRUE(vault->getFileSystem(&type, &shared, &rollback)) << vault->getErrorMessage().toStdString();
    EXPECT_EQ(type.toStdString(), "ext4");
    EXPECT_FALSE(shared);
    EXPECT_TRUE(rollback);
    EXPECT_TRUE(vault->getFileSystem(nullptr, nullptr, nullptr));
    vault->release();
  });
}

TEST(VaultSharing, AVaultOnASharedFileSystemWarnsOnceWhenItIsCreated) {
  struct Case {
    const char* type;
    int kind;
    const char* said;
  };
  const Case cases[] = {{"nfs", NP_FS_NETWORK, "network"},
                        {"ceph", NP_FS_CLUSTER, "cluster"},
                        {"fuse", NP_FS_USERSPACE, "FUSE"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    runInChildProcess([&c] {
      TempDir dir;
      FaultPlatform faults;
      faults.fakeFileSystem(c.type, c.kind);
      LogCapture log;
      QzvVault* vault = createVault(dir.path());
      ASSERT_NE(vault, nullptr) << getVaultCreateError();
      const std::string expected = kSharedWarningStart + dir.path() + " is on a " + c.said + " file system (" +
                                   c.type +
                                   ") that other machines may share: keep its databases in rollback-journal "
                                   "mode and make sure the file server honours POSIX advisory locks";
      EXPECT_EQ(log.count(expected, QZLOG_WARN, "QZ.Repos.Vault"), 1) << log.dump();
      // Asking again, and using the vault, does not repeat it.
      QzbString type;
      bool shared = false;
      ASSERT_TRUE(vault->getFileSystem(&type, &shared, nullptr));
      EXPECT_EQ(type.toStdString(), c.type);
      EXPECT_TRUE(shared);
      QzvFolder* root = vault->getRootFolder();
      ASSERT_NE(root, nullptr);
      root->release();
      EXPECT_EQ(sharingWarnings(log), 1) << log.dump();
      vault->release();
    });
  }
}

TEST(VaultSharing, EachVaultWarnsForItself) {
  runInChildProcess([] {
    TempDir dir;
    FaultPlatform faults;
    faults.fakeFileSystem("cifs", NP_FS_NETWORK);
    LogCapture log;
    QzvVault* first = createVault(dir.join("a"));
    ASSERT_EQ(first, nullptr);  // the root must exist
    qztest::makeDirs(dir.join("a"));
    qztest::makeDirs(dir.join("b"));
    first = createVault(dir.join("a"));
    QzvVault* second = createVault(dir.join("b"));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(sharingWarnings(log), 2) << log.dump();
    first->release();
    second->release();
  });
}

TEST(VaultSharing, AWriteAheadLogInARootDatabaseLeavesTheSupportedMode) {
  TempDir dir;
  QzvVaultImpl* vault = new QzvVaultImpl(QzbString(dir.path().c_str()), nullptr, QzbString(""));
  // The root's databases come into being when the root folder is used.
  QzvFolder* root = vault->getRootFolder();
  ASSERT_NE(root, nullptr);
  QzvItemList* list = root->getObjectList(false);
  if (list != nullptr) list->release();
  root->release();
  ASSERT_EQ(np_fio_stat(dir.join(".v_fmd").c_str(), nullptr), NP_OK);

  bool rollback = false;
  ASSERT_TRUE(vault->getFileSystem(nullptr, nullptr, &rollback));
  EXPECT_TRUE(rollback);
  setJournalMode(dir.join(".v_fmd"), "WAL");
  ASSERT_TRUE(vault->getFileSystem(nullptr, nullptr, &rollback));
  EXPECT_FALSE(rollback);
  setJournalMode(dir.join(".v_fmd"), "DELETE");
  ASSERT_TRUE(vault->getFileSystem(nullptr, nullptr, &rollback));
  EXPECT_TRUE(rollback);
  vault->release();
}

TEST(VaultSharing, AFileSystemThatCannotBeExaminedIsAFailureWithAMessage) {
  TempDir dir;
  QzvVaultImpl* vault = new QzvVaultImpl(QzbString(dir.path().c_str()), nullptr, QzbString(""));
  FaultPlatform faults;
  faults.failCall(NpOp::kFsInfo, 1, NP_ERR_IO);
  QzbString type("unchanged");
  EXPECT_FALSE(vault->getFileSystem(&type, nullptr, nullptr));
  EXPECT_EQ(type.toStdString(), "unchanged");
  EXPECT_EQ(vault->getErrorMessage().toStdString(),
            "Cannot examine the file system of " + dir.path() + ": " + np_fio_errdesc(NP_ERR_IO));
  // And creating a vault whose file system cannot be examined warns of nothing.
  faults.failCall(NpOp::kFsInfo, 1, NP_ERR_IO);
  LogCapture log;
  vault->warnIfShared();
  EXPECT_EQ(sharingWarnings(log), 0);
  vault->release();
}

}  // namespace
