// The vault's boundaries as hosts meet them: names given for objects are one
// plain name of the folder, never a path elsewhere or one of the vault's own
// files; paths given for existing objects and folders lie inside the vault
// without passing through a symbolic link; the version directory is never
// used through a link.
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "folder_test_util.h"
#include "object_impl.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::makeFolder;
using qztest::own;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

class VaultBoundaries : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = dir_.join("vault");
    outside_ = dir_.join("outside");
    ASSERT_EQ(mkdir(root_.c_str(), 0755), 0);
    ASSERT_EQ(mkdir(outside_.c_str(), 0755), 0);
    qztest::writeFile(outside_ + "/victim.csv", "precious\n");
    vault_.reset(new ScopedVault(root_));
  }

  TempDir dir_;
  std::string root_;
  std::string outside_;
  std::unique_ptr<ScopedVault> vault_;
};

TEST_F(VaultBoundaries, CreateObjectRefusesTheVaultsOwnNamesAndPaths) {
  auto folder = makeFolder(vault_->get(), root_);
  for (const char* name : {".v_fmd", ".v_lck", "../outside/new.csv", "../../x.csv", "a/b.csv", "..", ""}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(folder->createObject(S(name), S("Name")), nullptr);
    EXPECT_NE(folder->getErrorMessage().toStdString().find("Invalid file name"), std::string::npos)
        << folder->getErrorMessage().asCstr();
    EXPECT_EQ(folder->createObjectFromFile(S(name), S("Name")), nullptr);
  }
  struct stat status;
  EXPECT_NE(lstat((outside_ + "/new.csv").c_str(), &status), 0);
}

TEST_F(VaultBoundaries, GetChildObjectRefusesPathsOutsideAndVaultFiles) {
  auto folder = makeFolder(vault_->get(), root_);
  EXPECT_EQ(folder->getChildObject(S(outside_ + "/victim.csv")), nullptr);
  EXPECT_NE(folder->getErrorMessage().toStdString().find("outside the vault"), std::string::npos)
      << folder->getErrorMessage().asCstr();
  EXPECT_EQ(folder->getChildObject(S(root_ + "/../outside/victim.csv")), nullptr);

  // The folder's own metadata is not an object that could be deleted.
  auto made = own(folder->createObject(S("data.csv"), S("Data")));
  ASSERT_NE(made, nullptr) << folder->getErrorMessage().asCstr();
  ASSERT_TRUE(qztest::pathExists(root_ + "/.v_fmd"));
  EXPECT_EQ(folder->getChildObject(S(root_ + "/.v_fmd")), nullptr);
  EXPECT_NE(folder->getErrorMessage().toStdString().find("vault's own files"), std::string::npos)
      << folder->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::readFile(outside_ + "/victim.csv"), "precious\n");
  EXPECT_TRUE(qztest::pathExists(root_ + "/.v_fmd"));
}

TEST_F(VaultBoundaries, GetChildObjectRefusesAPathThroughALink) {
  ASSERT_EQ(symlink(outside_.c_str(), (root_ + "/Linked").c_str()), 0);
  auto folder = makeFolder(vault_->get(), root_);
  EXPECT_EQ(folder->getChildObject(S(root_ + "/Linked/victim.csv")), nullptr);
  EXPECT_NE(folder->getErrorMessage().toStdString().find("symbolic link"), std::string::npos)
      << folder->getErrorMessage().asCstr();
  EXPECT_EQ(folder->getChildFolder(S("Linked")), nullptr);
  struct stat status;
  EXPECT_NE(lstat((outside_ + "/.v_fmd").c_str(), &status), 0);
}

TEST_F(VaultBoundaries, FileRenameRefusesTheVaultsOwnNames) {
  qztest::writeFile(root_ + "/data.csv", "x\n");
  auto folder = makeFolder(vault_->get(), root_);
  auto object = own(folder->createObjectFromFile(S("data.csv"), S("Data")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  for (const char* name : {".v_lck", "../outside.csv", "sub/x.csv"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(object->fileRename(S(name)));
    EXPECT_NE(object->getErrorMessage().toStdString().find("Invalid file name"), std::string::npos)
        << object->getErrorMessage().asCstr();
  }
  EXPECT_EQ(qztest::readFile(root_ + "/data.csv"), "x\n");
}

TEST_F(VaultBoundaries, FileRenameNeverReplacesAnExistingFile) {
  qztest::writeFile(root_ + "/a.csv", "a\n");
  qztest::writeFile(root_ + "/b.csv", "b\n");
  auto folder = makeFolder(vault_->get(), root_);
  auto object = own(folder->createObjectFromFile(S("a.csv"), S("A")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_FALSE(object->fileRename(S("b.csv")));
  EXPECT_EQ(qztest::readFile(root_ + "/a.csv"), "a\n");
  EXPECT_EQ(qztest::readFile(root_ + "/b.csv"), "b\n");
}

TEST_F(VaultBoundaries, AVersionDirectoryThatIsALinkIsNeverUsed) {
  qztest::writeFile(root_ + "/data.csv", "content\n");
  ASSERT_EQ(symlink(outside_.c_str(), (root_ + "/.v_ver").c_str()), 0);
  auto folder = makeFolder(vault_->get(), root_);
  auto object = own(folder->createObjectFromFile(S("data.csv"), S("Data")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_FALSE(object->createVersion());
  EXPECT_NE(object->getErrorMessage().toStdString().find("symbolic link"), std::string::npos)
      << object->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::readFile(root_ + "/data.csv"), "content\n");
  struct stat status;
  EXPECT_NE(lstat((outside_ + "/data.csv.1").c_str(), &status), 0);
}

TEST_F(VaultBoundaries, RollbackLeavesAFileNamedLikeABackupAlone) {
  qztest::writeFile(root_ + "/plan.txt", "first\n");
  qztest::writeFile(root_ + "/plan.txt.bak", "someone else's\n");
  auto folder = makeFolder(vault_->get(), root_);
  auto object = own(folder->createObjectFromFile(S("plan.txt"), S("Plan")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  ASSERT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
  qztest::writeFile(root_ + "/plan.txt", "second\n");
  ASSERT_TRUE(object->rollbackVersion(1)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::readFile(root_ + "/plan.txt"), "first\n");
  EXPECT_EQ(qztest::readFile(root_ + "/plan.txt.bak"), "someone else's\n");
}

}  // namespace
