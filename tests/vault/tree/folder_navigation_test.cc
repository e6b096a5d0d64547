// A folder's identity (path, name, lock) and its navigation to the parent, a
// child folder and a child object.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "object_impl.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::LogCapture;
using qztest::own;
using qztest::Owned;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// A folder made as the vault makes them.
Owned<QzvFolderImpl> makeFolder(QzvVaultImpl* vault, const std::string& path,
                                const QzbString& filter = QzbString()) {
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  EXPECT_TRUE(folder->init(S(path), filter, vault));
  return folder;
}

TEST(FolderInit, KeepsThePathWithoutTrailingSeparatorAndTraces) {
  TempDir dir;
  ScopedVault vault(dir.path());
  LogCapture log;
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  // Nothing is looked at on disk: a missing directory is accepted.
  ASSERT_TRUE(folder->init(S(dir.join("missing/")), S("txt"), vault.get()));
  EXPECT_EQ(folder->getPath().toStdString(), dir.join("missing"));
  EXPECT_EQ(folder->getCurrentFilter().toStdString(), "txt");
  EXPECT_TRUE(folder->getErrorMessage().isNull());
  EXPECT_TRUE(log.contains("Entering init on folder \"" + dir.join("missing") + "\".", 1,
                           "QZ.Repos.Vault"))
      << log.dump();
  EXPECT_FALSE(qztest::pathExists(dir.join("missing")));
}

TEST(FolderInit, AFreshFolderHasAnEmptyPathAndNullFilter) {
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  EXPECT_FALSE(folder->getPath().isNull());
  EXPECT_EQ(folder->getPath().toStdString(), "");
  EXPECT_TRUE(folder->getCurrentFilter().isNull());
  EXPECT_TRUE(folder->getErrorMessage().isNull());
}

// ---------------------------------------------------------------------------
// Names

TEST(FolderName, WithoutANameRowIsTheLastPathComponent) {
  TempDir dir;
  qztest::makeDirs(dir.join("Quarterly Reports"));
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.join("Quarterly Reports"));
  EXPECT_EQ(folder->getName().toStdString(), "Quarterly Reports");
}

TEST(FolderName, TheStoredNameIsReadAfreshOnEveryCall) {
  TempDir dir;
  qztest::makeDirs(dir.join("q1"));
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.join("q1"));
  qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES (NULL, 'First quarter')");
  auto folder = makeFolder(vault.get(), dir.join("q1"));
  EXPECT_EQ(folder->getName().toStdString(), "First quarter");
  qztest::execute(db, "UPDATE v_object SET name = 'Q1' WHERE fname IS NULL");
  EXPECT_EQ(folder->getName().toStdString(), "Q1");
  // Object name rows are not the folder's name.
  qztest::execute(db, "DELETE FROM v_object; "
                      "INSERT INTO v_object (fname, name) VALUES ('a.txt', 'Object')");
  EXPECT_EQ(folder->getName().toStdString(), "q1");
}

// ---------------------------------------------------------------------------
// Transaction lock

TEST(FolderLock, LockMakesTheLockFileAndUnlockRemovesIt) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  ASSERT_TRUE(folder->tranLock());
  EXPECT_TRUE(qztest::pathExists(dir.join(".v_lck")));
  // The folder that holds the lock takes it again at once.
  EXPECT_TRUE(folder->tranLock());
  folder->tranUnlock();
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLock, UnlockWithoutLockIsHarmless) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  folder->tranUnlock();  // a null handle goes to the unlock operation
  folder->tranUnlock();
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
  ASSERT_TRUE(folder->tranLock());
  folder->tranUnlock();
  folder->tranUnlock();  // the handle was given up once, and only once
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
}

TEST(FolderLock, ReleasingALockedFolderGivesTheLockUp) {
  TempDir dir;
  ScopedVault vault(dir.path());
  {
    auto folder = makeFolder(vault.get(), dir.path());
    ASSERT_TRUE(folder->tranLock());
  }
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_lck")));
  auto other = makeFolder(vault.get(), dir.path());
  EXPECT_TRUE(other->tranLock());
  other->tranUnlock();
}

// ---------------------------------------------------------------------------
// Parent

TEST(FolderParent, TheRootHasNoParentAndKeepsItsMessage) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->getChildFolder(S("missing")), nullptr);  // leaves a message
  const std::string message = root->getErrorMessage().toStdString();
  ASSERT_FALSE(message.empty());
  LogCapture log;
  EXPECT_EQ(root->getParentFolder(), nullptr);
  EXPECT_EQ(root->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains("Entering getParentFolder on folder \"" + dir.path() + "\".", 1))
      << log.dump();
  EXPECT_FALSE(log.containsFragment("Exiting getParentFolder")) << log.dump();
}

TEST(FolderParent, AChildsParentIsTheDirectoryAboveWithEmptyFilter) {
  TempDir dir;
  qztest::makeDirs(dir.join("a/b"));
  ScopedVault vault(dir.path());
  auto child = makeFolder(vault.get(), dir.join("a/b"), S("txt"));
  LogCapture log;
  auto parent = own(child->getParentFolder());
  ASSERT_NE(parent, nullptr) << child->getErrorMessage().asCstr();
  EXPECT_EQ(parent->getPath().toStdString(), dir.join("a"));
  EXPECT_EQ(parent->getCurrentFilter().toStdString(), "");
  EXPECT_FALSE(parent->getCurrentFilter().isNull());
  EXPECT_TRUE(log.contains("Entering getParentFolder on folder \"" + dir.join("a/b") + "\".", 1));
  EXPECT_TRUE(log.contains("Exiting getParentFolder on folder \"" + dir.join("a/b") + "\".", 1))
      << log.dump();
  auto grandParent = own(parent->getParentFolder());
  ASSERT_NE(grandParent, nullptr);
  EXPECT_EQ(grandParent->getPath().toStdString(), dir.path());
  EXPECT_EQ(grandParent->getParentFolder(), nullptr);  // the vault root
}

// ---------------------------------------------------------------------------
// Child folder

TEST(FolderChild, FindsASubDirectoryAndTraces) {
  TempDir dir;
  qztest::makeDirs(dir.join("sub/deeper"));
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  LogCapture log;
  auto child = own(root->getChildFolder(S("sub")));
  ASSERT_NE(child, nullptr) << root->getErrorMessage().asCstr();
  EXPECT_EQ(child->getPath().toStdString(), dir.join("sub"));
  EXPECT_TRUE(log.contains("Entering getChildFolder on folder \"" + dir.path() + "\".", 1));
  EXPECT_TRUE(log.contains("Exiting getChildFolder on folder \"" + dir.path() + "\".", 1))
      << log.dump();
  // A relative path of several components is joined too.
  auto deeper = own(root->getChildFolder(S("sub/deeper")));
  ASSERT_NE(deeper, nullptr);
  EXPECT_EQ(deeper->getPath().toStdString(), dir.join("sub/deeper"));
}

TEST(FolderChild, ARegularFileIsAcceptedOnlyExistenceIsChecked) {
  TempDir dir;
  qztest::writeFile(dir.join("plain.txt"), "x");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  auto child = own(root->getChildFolder(S("plain.txt")));
  ASSERT_NE(child, nullptr) << root->getErrorMessage().asCstr();
  EXPECT_EQ(child->getPath().toStdString(), dir.join("plain.txt"));
}

TEST(FolderChild, AMissingNameFailsWithTheJoinedPath) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  LogCapture log;
  EXPECT_EQ(root->getChildFolder(S("nope")), nullptr);
  const std::string expected = "Directory " + dir.join("nope") + " not found";
  EXPECT_EQ(root->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 2, "QZ.Repos.Vault")) << log.dump();
  EXPECT_FALSE(log.containsFragment("Exiting getChildFolder"));
}

TEST(FolderChild, ANameThatCannotBeJoinedFails) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  for (const char* name : {"..", "/etc", ""}) {
    LogCapture log;
    EXPECT_EQ(root->getChildFolder(S(name)), nullptr) << name;
    const std::string expected = std::string("Error building path for ") + name;
    EXPECT_EQ(root->getErrorMessage().toStdString(), expected);
    EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  }
}

TEST(FolderChild, AStatFailureOtherThanMissingIsAnAccessError) {
  // As nobody below a directory it cannot search: the stat is refused.
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::makeDirs(dir.join("private/inside"));
  ASSERT_EQ(chmod(dir.join("private").c_str(), 0700), 0);
  // The path is examined, without following links, before it is used.
  const std::string expected =
      "Path " + dir.join("private/inside") + " cannot be examined: Permission denied";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.join("private"));
    if (folder->getChildFolder(S("inside")) != nullptr) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 5)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(FolderChild, NavigatedFoldersListEverythingWhateverTheParentsFilter) {
  TempDir dir;
  qztest::makeDirs(dir.join("filtered/inner"));
  for (const char* name : {"a.txt", "b.csv", "c.job.def"}) {
    qztest::writeFile(dir.join(std::string("filtered/") + name), name);
    qztest::writeFile(dir.join(std::string("filtered/inner/") + name), name);
  }
  ScopedVault vault(dir.path());
  auto parent = makeFolder(vault.get(), dir.join("filtered"), S("txt"));
  EXPECT_EQ(qztest::takeList(parent->getObjectList(false)).size(), 1u);
  auto child = own(parent->getChildFolder(S("inner")));
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->getCurrentFilter().toStdString(), "");
  EXPECT_EQ(qztest::takeList(child->getObjectList(false)).size(), 3u);
  auto back = own(child->getParentFolder());
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(qztest::takeList(back->getObjectList(false)).size(), 3u);
}

// ---------------------------------------------------------------------------
// Child object

TEST(FolderChildObject, TakesTheFullPathAndTraces) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  LogCapture log;
  auto object = own(root->getChildObject(S(dir.join("notes.txt"))));
  ASSERT_NE(object, nullptr) << root->getErrorMessage().asCstr();
  EXPECT_EQ(object->getFileName(true).toStdString(), "notes.txt");
  EXPECT_EQ(object->getName().toStdString(), "notes");
  EXPECT_TRUE(log.contains("Entering getChildObject \"" + dir.join("notes.txt") +
                               "\" on folder \"" + dir.path() + "\".",
                           1))
      << log.dump();
  EXPECT_TRUE(log.contains("Exiting getChildObject on folder \"" + dir.path() + "\".", 1));
  // The file's cache rows were brought up to date.
  EXPECT_EQ(qztest::query(dir.join(".v_cmd"), "SELECT fname FROM v_file"),
            (qztest::Rows{{qztest::Cell("notes.txt")}}));
}

TEST(FolderChildObject, ABareNameIsNotJoinedToTheFolder) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  LogCapture log;
  // (A name no working directory holds.) A bare name is no path of the
  // vault, even when the folder has a file of that name.
  qztest::writeFile(dir.join("qz-bare-name.txt"), "x");
  EXPECT_EQ(root->getChildObject(S("qz-bare-name.txt")), nullptr);
  const std::string expected = "Path qz-bare-name.txt is outside the vault " + dir.path();
  EXPECT_EQ(root->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(log.containsFragment("Exiting getChildObject"));
}

TEST(FolderChildObject, AFailedCacheRefreshStillGivesTheObject) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  qztest::writeFile(dir.join(".v_cmd"), "this is not a database, and it is long enough to show it");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  LogCapture log;
  auto object = own(root->getChildObject(S(dir.join("notes.txt"))));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getName().toStdString(), "notes");
  const std::string refreshError = root->getErrorMessage().toStdString();
  EXPECT_FALSE(refreshError.empty());
  EXPECT_TRUE(log.contains("Error refreshing cached file attributes for getChildObject() on object " +
                               dir.join("notes.txt") + ": " + refreshError,
                           2))
      << log.dump();
  EXPECT_TRUE(log.contains("Exiting getChildObject on folder \"" + dir.path() + "\".", 1));
}

TEST(FolderChildObject, ExistenceTestTakesTheFullPath) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  EXPECT_TRUE(root->childObjectExist(S(dir.join("notes.txt"))));
  EXPECT_FALSE(root->childObjectExist(S(dir.join("other.txt"))));
  EXPECT_FALSE(root->childObjectExist(S("notes.txt")));
}

}  // namespace
