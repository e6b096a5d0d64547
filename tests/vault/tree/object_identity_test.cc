// An object's identity: where its display name comes from, its file name,
// extension and parent folder, and what looking at a file leaves on disk.
#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "vault_test_util.h"

namespace {

using qztest::LogCapture;
using qztest::own;
using qztest::Owned;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// An object over an existing file, as a folder makes it; null when init fails
// (the object's message then goes to *error).
Owned<QzvObjectImpl> openObject(QzvVaultImpl* vault, const std::string& path,
                                std::string* error = nullptr) {
  Owned<QzvObjectImpl> object(new QzvObjectImpl());
  if (!object->init(S(path), vault)) {
    if (error != nullptr) *error = object->getErrorMessage().toStdString();
    return nullptr;
  }
  return object;
}

TEST(ObjectIdentity, ThePluginsNameWinsOverTheStoredName) {
  qztest::TestMetaRegistry plugins;
  TempDir dir;
  qztest::writeFile(dir.join("report.tmeta"), "name Sales by region\n");
  ScopedVault vault(dir.path(), plugins.get());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_object (fname, name) VALUES ('report.tmeta', 'Stored name')");
  auto object = openObject(vault.get(), dir.join("report.tmeta"));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getName().toStdString(), "Sales by region");
  // The metadata file the plug-in opened was released again.
  auto* counters = qztest::TestMetaRegistry::counters();
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(counters->filesOpened.load(), counters->filesReleased.load());
}

TEST(ObjectIdentity, APluginFileWithoutNameFallsBackToTheStoredName) {
  qztest::TestMetaRegistry plugins;
  TempDir dir;
  qztest::writeFile(dir.join("report.tmeta"), "attr Owner 0 0 someone\n");
  qztest::writeFile(dir.join("broken.tmeta"), "fail open\n");
  ScopedVault vault(dir.path(), plugins.get());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_object (fname, name) VALUES ('report.tmeta', 'Stored name')");
  auto object = openObject(vault.get(), dir.join("report.tmeta"));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getName().toStdString(), "Stored name");
  // A file the plug-in cannot open is named as if there were no plug-in.
  auto broken = openObject(vault.get(), dir.join("broken.tmeta"));
  ASSERT_NE(broken, nullptr);
  EXPECT_EQ(broken->getName().toStdString(), "broken");
}

TEST(ObjectIdentity, WithoutFixedMetadataTheNameIsTheFileNameLessExtension) {
  TempDir dir;
  qztest::writeFile(dir.join("Monthly totals.job.def"), "x");
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto job = openObject(vault.get(), dir.join("Monthly totals.job.def"));
  ASSERT_NE(job, nullptr);
  EXPECT_EQ(job->getName().toStdString(), "Monthly totals");
  auto notes = openObject(vault.get(), dir.join("notes.txt"));
  ASSERT_NE(notes, nullptr);
  EXPECT_EQ(notes->getName().toStdString(), "notes");
  // Looking never creates the folder's fixed metadata.
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
}

TEST(ObjectIdentity, ThroughTheFolderNoFixedMetadataIsCreatedEither) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto root = own(vault->getRootFolder());
  auto object = own(root->getChildObject(S(dir.join("notes.txt"))));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getName().toStdString(), "notes");
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
}

TEST(ObjectIdentity, AStoredRowWithoutNameCountsAsNoName) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_object (fname, name) VALUES ('notes.txt', NULL)");
  auto object = openObject(vault.get(), dir.join("notes.txt"));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getName().toStdString(), "notes");
}

TEST(ObjectIdentity, AMissingFileIsReportedToTheDiagnosticLogOnly) {
  TempDir dir;
  ScopedVault vault(dir.path());
  LogCapture log;
  std::string error;
  EXPECT_EQ(openObject(vault.get(), dir.join("missing.txt"), &error), nullptr);
  const std::string expected = "File " + dir.join("missing.txt") + " is inaccessible";
  EXPECT_EQ(error, expected);
  EXPECT_TRUE(log.contains(expected, 2)) << log.dump();
  EXPECT_EQ(log.count(expected), 1);
}

TEST(ObjectIdentity, AnUnreadableFixedMetadataFileFailsWithTheDatabaseMessage) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  qztest::writeFile(dir.join(".v_fmd"), "this is not a database, and it is long enough to show it");
  ScopedVault vault(dir.path());
  LogCapture log;
  std::string error;
  EXPECT_EQ(openObject(vault.get(), dir.join("notes.txt"), &error), nullptr);
  EXPECT_FALSE(error.empty());
  EXPECT_TRUE(log.contains(error, 5)) << log.dump();
  EXPECT_EQ(qztest::readFile(dir.join(".v_fmd")),
            "this is not a database, and it is long enough to show it");
}

TEST(ObjectIdentity, FileNameAndFullPathDifferByTheFolderPath) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto object = openObject(vault.get(), dir.join("notes.txt"));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getFileName(true).toStdString(), "notes.txt");
  EXPECT_EQ(object->getFileName(false).toStdString(), dir.join("notes.txt"));
  EXPECT_EQ(object->folderPath().toStdString(), dir.path());
}

TEST(ObjectIdentity, ExtensionsSimpleTwoPartAndNone) {
  TempDir dir;
  ScopedVault vault(dir.path());
  struct Case {
    const char* file;
    const char* extension;
  };
  for (const Case& c : {Case{"a.txt", "txt"}, Case{"b.job.def", "job.def"},
                        Case{"c.JOB.DEF", "JOB.DEF"}, Case{"d.tar.gz", "gz"},
                        Case{"README", ""}, Case{"e.", ""}}) {
    qztest::writeFile(dir.join(c.file), "x");
    auto object = openObject(vault.get(), dir.join(c.file));
    ASSERT_NE(object, nullptr) << c.file;
    const QzbString extension = object->getFileExtension();
    EXPECT_FALSE(extension.isNull()) << c.file;
    EXPECT_EQ(extension.toStdString(), c.extension) << c.file;
  }
}

TEST(ObjectIdentity, TheParentFolderIsTheFilesDirectoryWithoutFilter) {
  TempDir dir;
  qztest::makeDirs(dir.join("sub"));
  qztest::writeFile(dir.join("sub/notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto object = openObject(vault.get(), dir.join("sub/notes.txt"));
  ASSERT_NE(object, nullptr);
  auto folder = own(object->getParentFolder());
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->getPath().toStdString(), dir.join("sub"));
  EXPECT_TRUE(folder->getCurrentFilter().isNull());
}

TEST(ObjectIdentity, NamesAreKeptWhenTheFileIsRenamedBehindTheObject) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  ScopedVault vault(dir.path());
  auto object = openObject(vault.get(), dir.join("notes.txt"));
  ASSERT_NE(object, nullptr);
  ASSERT_EQ(rename(dir.join("notes.txt").c_str(), dir.join("other.txt").c_str()), 0);
  EXPECT_EQ(object->getName().toStdString(), "notes");
  EXPECT_EQ(object->getFileName(true).toStdString(), "notes.txt");
}

}  // namespace
