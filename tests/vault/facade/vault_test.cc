// The vault's hand-outs: root folder, stock folders, stock objects and
// impact-analysis objects.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "qzbase/path.h"
#include "qzvault/impact.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::LogCapture;
using qztest::own;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// The directory of stock folder `id` under `root`, as the vault joins it.
std::string stockPath(const std::string& root, int id) {
  return qzbConcatPath(S(root), QzvVaultImpl::getStockFolderRelativePath(id)).toStdString();
}

TEST(VaultRootFolder, IsTheVaultRootWithoutFilter) {
  TempDir dir;
  ScopedVault vault(dir.path() + "/");
  LogCapture log;
  auto root = own(vault->getRootFolder());
  ASSERT_NE(root, nullptr) << vault->getErrorMessage().asCstr();
  EXPECT_EQ(root->getPath().toStdString(), dir.path());
  EXPECT_TRUE(root->getCurrentFilter().isNull());
  EXPECT_TRUE(log.contains("Entering init on folder \"" + dir.path() + "\".", 1, "QZ.Repos.Vault"))
      << log.dump();
}

TEST(VaultRootFolder, EveryCallGivesANewFolder) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto first = own(vault->getRootFolder());
  auto second = own(vault->getRootFolder());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(first->getPath().toStdString(), second->getPath().toStdString());
}

TEST(VaultStockFolder, IdsOutsideTheTableFail) {
  TempDir dir;
  ScopedVault vault(dir.path());
  for (int id : {16, -1, 1000, -2147483647 - 1}) {
    LogCapture log;
    EXPECT_EQ(vault->getStockFolder(id, true), nullptr) << id;
    EXPECT_EQ(vault->getErrorMessage().toStdString(), "Stock folder id out of bounds") << id;
    EXPECT_TRUE(log.contains("Stock folder id out of bounds", 5, "QZ.Repos.Vault")) << log.dump();
  }
  // Nothing was made on disk.
  qztest::Owned<QzvFolder> root = own(vault->getRootFolder());
  EXPECT_EQ(root->getFolderItemCount(), 0);
}

TEST(VaultStockFolder, FilterStringOutsideTheTableIsNullWithoutMessage) {
  LogCapture log;
  EXPECT_TRUE(QzvVaultImpl::getStockFilterString(16).isNull());
  EXPECT_TRUE(QzvVaultImpl::getStockFilterString(-1).isNull());
  EXPECT_TRUE(log.events().empty()) << log.dump();
  EXPECT_FALSE(QzvVaultImpl::getStockFilterString(0).isNull());
}

TEST(VaultStockFolder, MissingDirectoryWithoutCreateFails) {
  TempDir dir;
  ScopedVault vault(dir.path());
  LogCapture log;
  EXPECT_EQ(vault->getStockFolder(0, false), nullptr);
  const std::string expected = "Directory " + stockPath(dir.path(), 0) + " does not exist";
  EXPECT_EQ(vault->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(qztest::pathExists(stockPath(dir.path(), 0)));
}

TEST(VaultStockFolder, MissingDirectoryWithCreateIsMadeWithItsParents) {
  TempDir dir;
  ScopedVault vault(dir.path());
  // Every row, one- and two-level alike, with the first component missing.
  for (int id = 0; id < QZVI_STOCK_FOLDER_COUNT; ++id) {
    const std::string path = stockPath(dir.path(), id);
    auto folder = own(vault->getStockFolder(id, true));
    ASSERT_NE(folder, nullptr) << id << ": " << vault->getErrorMessage().asCstr();
    EXPECT_TRUE(qztest::pathExists(path)) << path;
    EXPECT_EQ(folder->getPath().toStdString(), path);
    // The stock folder's listing is filtered by its row from the start.
    EXPECT_EQ(folder->getCurrentFilter().toStdString(),
              QzvVaultImpl::getStockFilterString(id).toStdString());
  }
  // An existing directory is found without create.
  auto again = own(vault->getStockFolder(3, false));
  EXPECT_NE(again, nullptr) << vault->getErrorMessage().asCstr();
}

TEST(VaultStockFolder, RowsHoldAtLeastOneTwoLevelPath) {
  bool twoLevels = false;
  for (int id = 0; id < QZVI_STOCK_FOLDER_COUNT; ++id) {
    const QzbString path = QzvVaultImpl::getStockFolderRelativePath(id);
    ASSERT_FALSE(path.isEmpty()) << id;
    if (path.find("\\") >= 0) twoLevels = true;
  }
  EXPECT_TRUE(twoLevels);
  EXPECT_TRUE(QzvVaultImpl::getStockFolderRelativePath(16).isNull());
}

TEST(VaultStockFolder, CreationFailureIsReported) {
  // As nobody in a root directory it cannot write (tests run as root, who
  // could): the creation fails with "access denied" (4) and nothing is made.
  TempDir dir;
  qztest::makeReachable(dir.path());
  const std::string path = stockPath(dir.path(), 0);
  const std::string expected = "Error creating directory " + path + " (4)";
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    if (vault->getStockFolder(0, true) != nullptr) return 1;
    if (vault->getErrorMessage().toStdString() != expected) return 2;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(qztest::pathExists(path));
}

TEST(VaultStockFolder, AccessFailureIsReportedWithTheStatResult) {
  // A vault root that nobody cannot search: the stat fails with 4, not 3.
  TempDir dir;
  qztest::makeReachable(dir.path());
  const std::string root = dir.join("closed");
  qztest::makeDirs(root);
  ASSERT_EQ(chmod(root.c_str(), 0700), 0);
  const std::string expected = "Error accessing path " + stockPath(root, 5) + " (4)";
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(root);
    if (vault->getStockFolder(5, true) != nullptr) return 1;
    if (vault->getErrorMessage().toStdString() != expected) return 2;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(VaultStockFolder, APathThatIsAFileGivesAFolderWhoseListingFails) {
  // Only existence is tested; the folder's listing then reports the file.
  TempDir dir;
  const std::string path = stockPath(dir.path(), 13);
  qztest::makeDirs(path.substr(0, path.rfind('/')));
  qztest::writeFile(path, "not a directory");
  ScopedVault vault(dir.path());
  auto folder = own(vault->getStockFolder(13, false));
  ASSERT_NE(folder, nullptr) << vault->getErrorMessage().asCstr();
  EXPECT_EQ(folder->getObjectList(false), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), path + " is not a directory");
  EXPECT_EQ(qztest::readFile(path), "not a directory");
}

// ---------------------------------------------------------------------------
// Stock objects

class VaultStockObject : public ::testing::Test {
 protected:
  void SetUp() override {
    folderPath_ = stockPath(dir_.path(), kId);
    qztest::makeDirs(folderPath_);
    extension_ = QzvVaultImpl::getStockFilterString(kId).toStdString();
    const std::size_t separator = extension_.find(';');
    if (separator != std::string::npos) extension_.resize(separator);
    ASSERT_FALSE(extension_.empty());
  }
  std::string file(const std::string& stem) const {
    return folderPath_ + "/" + stem + "." + extension_;
  }

  static const int kId = 0;
  TempDir dir_;
  std::string folderPath_;
  std::string extension_;
};

TEST_F(VaultStockObject, FindsTheObjectByItsExactDisplayName) {
  qztest::writeFile(file("Alpha"), "a");
  ScopedVault vault(dir_.path());
  auto object = own(vault->getStockObject(kId, S("Alpha")));
  ASSERT_NE(object, nullptr) << vault->getErrorMessage().asCstr();
  EXPECT_EQ(object->getFileName(false).toStdString(), file("Alpha"));
  EXPECT_EQ(object->getName().toStdString(), "Alpha");
}

TEST_F(VaultStockObject, LetterCaseMatters) {
  qztest::writeFile(file("Alpha"), "a");
  ScopedVault vault(dir_.path());
  LogCapture log;
  EXPECT_EQ(vault->getStockObject(kId, S("alpha")), nullptr);
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Object with name 'alpha' Not found");
  EXPECT_TRUE(log.contains("Object with name 'alpha' Not found", 5)) << log.dump();
}

TEST_F(VaultStockObject, TheFirstRowInListOrderWinsAmongEqualNames) {
  // Three files share one display name through their name rows.
  ScopedVault vault(dir_.path());
  for (const char* stem : {"one", "two", "three"}) qztest::writeFile(file(stem), stem);
  const std::string db = qztest::fixedDb(vault.get(), folderPath_);
  for (const char* stem : {"one", "two", "three"}) {
    qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES (" +
                            qztest::sqlText(std::string(stem) + "." + extension_) + ", 'Same')");
  }
  auto folder = own(vault->getStockFolder(kId, false));
  ASSERT_NE(folder, nullptr);
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  const Rows same = qztest::rowsWhere(rows, 0, "Same");
  ASSERT_EQ(same.size(), 3u);
  auto object = own(vault->getStockObject(kId, S("Same")));
  ASSERT_NE(object, nullptr) << vault->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::Cell(object->getFileName(false).toStdString()), same[0][1]);
}

TEST_F(VaultStockObject, MissingNameInAMissingFolderMakesTheFolder) {
  qztest::removeTree(folderPath_);
  ScopedVault vault(dir_.path());
  EXPECT_EQ(vault->getStockObject(kId, S("Nothing")), nullptr);
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Object with name 'Nothing' Not found");
  EXPECT_TRUE(qztest::pathExists(folderPath_));
}

TEST_F(VaultStockObject, FilesOutsideTheFilterAreNotFound) {
  qztest::writeFile(folderPath_ + "/Alpha.unrelated", "a");
  ScopedVault vault(dir_.path());
  EXPECT_EQ(vault->getStockObject(kId, S("Alpha")), nullptr);
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Object with name 'Alpha' Not found");
}

TEST_F(VaultStockObject, BadIdGivesTheStockFolderMessage) {
  ScopedVault vault(dir_.path());
  EXPECT_EQ(vault->getStockObject(16, S("Alpha")), nullptr);
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Stock folder id out of bounds");
}

TEST_F(VaultStockObject, AFailedListingGivesTheFolderMessage) {
  qztest::removeTree(folderPath_);
  qztest::writeFile(folderPath_, "a file where the folder should be");
  ScopedVault vault(dir_.path());
  EXPECT_EQ(vault->getStockObject(kId, S("Alpha")), nullptr);
  EXPECT_EQ(vault->getErrorMessage().toStdString(), folderPath_ + " is not a directory");
}

TEST(VaultImpactAnalysis, EveryCallGivesANewObject) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto first = own(vault->getImpactAnalysis());
  auto second = own(vault->getImpactAnalysis());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first.get(), second.get());
}

}  // namespace
