// Allocation failures in the vault's, folders' and objects' operations: the
// library makes its objects and buffers with the non-throwing form of new, so
// this program replaces that form with one that fails the k-th call. Each
// operation is run once for every k until it no longer meets a failure; each
// run must end cleanly (a result, or null/false with a message), and the
// files on disk must be untouched.
#include <new>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "support/failing_new.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qztest::failingNothrowAllocate(size, false);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return qztest::failingNothrowAllocate(size, true);
}

namespace {

using qztest::own;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

class VaultMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    qztest::makeDirs(dir_.join("sub"));
    qztest::writeFile(dir_.join("a.txt"), "a");
    qztest::writeFile(dir_.join("b.csv"), "b");
  }
  void TearDown() override {
    EXPECT_EQ(qztest::readFile(dir_.join("a.txt")), "a");
    EXPECT_EQ(qztest::readFile(dir_.join("b.csv")), "b");
  }
  TempDir dir_;
};

TEST_F(VaultMemory, ObjectListing) {
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
    ScopedVault vault(dir_.path());  // a new vault each time: the refresh runs too
    auto folder = own(vault->getRootFolder());
    if (folder == nullptr) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    QzvItemList* list = folder->getObjectList(false);
    *message = folder->getErrorMessage().toStdString();
    if (list == nullptr) return false;
    const std::size_t rows = qztest::takeList(list).size();
    if (rows != 2) *message = "wrong row count " + std::to_string(rows);
    return rows == 2;
  });
  EXPECT_TRUE(messages.count("Out of memory")) << "the list allocation was never failed";
}

TEST_F(VaultMemory, FolderListingAndCount) {
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
    ScopedVault vault(dir_.path());
    auto folder = own(vault->getRootFolder());
    if (folder == nullptr) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    QzvItemList* list = folder->getFolderList();
    *message = folder->getErrorMessage().toStdString();
    if (list == nullptr) return false;
    const std::size_t rows = qztest::takeList(list).size();
    if (rows != 1) {
      *message = "wrong row count " + std::to_string(rows);
      return false;
    }
    const int count = folder->getFolderItemCount();
    *message = folder->getErrorMessage().toStdString();
    return count == 3;
  });
  EXPECT_TRUE(messages.count("Out of memory"));
}

TEST_F(VaultMemory, Navigation) {
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
    ScopedVault vault(dir_.path());
    auto root = own(vault->getRootFolder());
    if (root == nullptr) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    auto child = own(root->getChildFolder(S("sub")));
    if (child == nullptr) {
      *message = root->getErrorMessage().toStdString();
      return false;
    }
    auto parent = own(child->getParentFolder());
    if (parent == nullptr) {
      *message = child->getErrorMessage().toStdString();
      return false;
    }
    auto object = own(root->getChildObject(S(dir_.join("a.txt"))));
    if (object == nullptr) {
      *message = root->getErrorMessage().toStdString();
      return false;
    }
    auto objectParent = own(object->getParentFolder());
    if (objectParent == nullptr) {
      *message = object->getErrorMessage().toStdString();
      return false;
    }
    return true;
  });
  EXPECT_TRUE(messages.count("Out of memory")) << "no object allocation was failed";
}

TEST_F(VaultMemory, StockFoldersObjectsAndUuid) {
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
    ScopedVault vault(dir_.path());
    auto stock = own(vault->getStockFolder(13, true));
    if (stock == nullptr) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    if (vault->getStockObject(13, S("missing")) != nullptr) return false;
    if (!vault->resetUUID(S("id"))) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    // A failed root folder makes resetUUID report success without storing:
    // getUUID then tells.
    const QzbString uuid = vault->getUUID();
    *message = vault->getErrorMessage().toStdString();
    if (uuid.isNull() && message->empty()) *message = "(the UUID was not stored)";
    return uuid.toStdString() == "id";
  });
  EXPECT_TRUE(messages.count("Out of memory")) << "no object allocation was failed";
}

TEST_F(VaultMemory, ObjectCreation) {
  int made = 0;
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
    ScopedVault vault(dir_.path());
    auto root = own(vault->getRootFolder());
    if (root == nullptr) {
      *message = vault->getErrorMessage().toStdString();
      return false;
    }
    const std::string fileName = "new" + std::to_string(++made) + ".txt";
    auto object = own(root->createObject(S(fileName), S("New " + std::to_string(made))));
    if (object == nullptr) {
      *message = root->getErrorMessage().toStdString();
      if (message->empty()) *message = "(no message)";
      return false;
    }
    qztest::writeFile(dir_.join(fileName), "x");
    auto adopted = own(root->createObjectFromFile(S(fileName), S("Adopted " + fileName)));
    if (adopted == nullptr) {
      *message = root->getErrorMessage().toStdString();
      return false;
    }
    return true;
  });
  EXPECT_TRUE(messages.count("Out of memory")) << "no object allocation was failed";
}

}  // namespace
