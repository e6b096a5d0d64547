// A folder's listings (sub-folders, objects, item count) and its extension
// filter.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::own;
using qztest::Owned;
using qztest::Row;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

Owned<QzvFolderImpl> makeFolder(QzvVaultImpl* vault, const std::string& path,
                                const QzbString& filter = QzbString()) {
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  EXPECT_TRUE(folder->init(S(path), filter, vault));
  return folder;
}

// The rows of a listing keyed by file path, for order-independent checks.
const Row* rowFor(const Rows& rows, const std::string& path) {
  for (const Row& row : rows) {
    if (row.size() > 1 && row[1] == Cell(path)) return &row;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Object listing

TEST(FolderObjectList, RowsHoldNamePathTypeAndReadOnlyFlagAndTrace) {
  TempDir dir;
  qztest::writeFile(dir.join("notes.txt"), "x");
  qztest::writeFile(dir.join("README"), "x");
  qztest::writeFile(dir.join("report.job.def"), "x");
  qztest::makeDirs(dir.join("sub"));
  qztest::writeFile(dir.join(".hidden"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  Owned<QzvItemList> list = own(folder->getObjectList(false));
  ASSERT_NE(list, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(list->getNumCols(), 4);
  const Rows rows = qztest::readList(list.get());
  ASSERT_EQ(rows.size(), 3u);
  // Without cached or stored names, the file name less its extension.
  EXPECT_EQ(*rowFor(rows, dir.join("notes.txt")),
            (Row{Cell("notes"), Cell(dir.join("notes.txt")), std::nullopt, Cell("N")}));
  EXPECT_EQ(*rowFor(rows, dir.join("README")),
            (Row{Cell("README"), Cell(dir.join("README")), std::nullopt, Cell("N")}));
  EXPECT_EQ(*rowFor(rows, dir.join("report.job.def")),
            (Row{Cell("report"), Cell(dir.join("report.job.def")), std::nullopt, Cell("N")}));
  EXPECT_TRUE(log.contains("Entering getObjectList on folder \"" + dir.path() + "\".", 1));
  EXPECT_TRUE(log.contains("Exit getObjectList on folder \"" + dir.path() + "\".", 1))
      << log.dump();
}

TEST(FolderObjectList, NamesComeFromThePluginThenTheStoredRowThenTheFileName) {
  qztest::TestMetaRegistry plugins;
  TempDir dir;
  qztest::writeFile(dir.join("named.tmeta"), "name From the file\n");
  qztest::writeFile(dir.join("unnamed.tmeta"), "# no name line\n");
  qztest::writeFile(dir.join("plain.txt"), "x");
  qztest::writeFile(dir.join("bare.txt"), "x");
  ScopedVault vault(dir.path(), plugins.get());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db,
                  "INSERT INTO v_object (fname, name) VALUES ('named.tmeta', 'Stored named'),"
                  " ('unnamed.tmeta', 'Stored unnamed'), ('plain.txt', 'Stored plain')");
  auto folder = makeFolder(vault.get(), dir.path());
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ((*rowFor(rows, dir.join("named.tmeta")))[0], Cell("From the file"));
  EXPECT_EQ((*rowFor(rows, dir.join("named.tmeta")))[2], Cell("TestMeta"));
  EXPECT_EQ((*rowFor(rows, dir.join("unnamed.tmeta")))[0], Cell("Stored unnamed"));
  EXPECT_EQ((*rowFor(rows, dir.join("unnamed.tmeta")))[2], Cell("TestMeta"));
  EXPECT_EQ((*rowFor(rows, dir.join("plain.txt")))[0], Cell("Stored plain"));
  EXPECT_EQ((*rowFor(rows, dir.join("plain.txt")))[2], std::nullopt);
  EXPECT_EQ((*rowFor(rows, dir.join("bare.txt")))[0], Cell("bare"));
}

TEST(FolderObjectList, LinksFollowTheFilesUnfilteredAndWithoutReadOnlyValue) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  qztest::writeFile(dir.join("b.csv"), "x");
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_symlink (name, fname) VALUES ('Shortcut', 'elsewhere/target.csv')");
  auto folder = makeFolder(vault.get(), dir.path(), S("txt"));
  const Rows rows = qztest::takeList(folder->getObjectList(true));
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0][1], Cell(dir.join("a.txt")));
  EXPECT_EQ(rows[1], (Row{Cell("Shortcut"), Cell(dir.join("elsewhere/target.csv")), Cell("link"),
                          std::nullopt}));
}

TEST(FolderObjectList, WithoutLinksOnlyFilesAreListed) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][2], std::nullopt);
}

TEST(FolderObjectList, AFailingLinkTableFailsTheWholeListing) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()), "DROP TABLE v_symlink");
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->getObjectList(false), nullptr);
  const std::string expected =
      "Failed to get data from symlink table in " + dir.path() + " (fixed metadata file)";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 2)) << log.dump();
  EXPECT_FALSE(log.containsFragment("Exit getObjectList")) << log.dump();
}

TEST(FolderObjectList, AFolderThatCannotBeListedFails) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.join("missing"));
  LogCapture log;
  EXPECT_EQ(folder->getObjectList(false), nullptr);
  const std::string expected = "Directory " + dir.join("missing") + " not found";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(qztest::pathExists(dir.join("missing")));
}

TEST(FolderObjectList, ReadOnlyColumnNeedsTheFlag) {
  // The checks run as nobody, for whom a file of mode 0444 (owned by root)
  // cannot be written; root could write it.
  TempDir dir;
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  qztest::writeFile(dir.join("writable.txt"), "x");
  qztest::writeFile(dir.join("locked.txt"), "x");
  ASSERT_EQ(chmod(dir.join("writable.txt").c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir.join("locked.txt").c_str(), 0444), 0);
  const std::string writable = dir.join("writable.txt");
  const std::string locked = dir.join("locked.txt");
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    const Rows without = qztest::takeList(folder->getObjectList(false));
    if (without.size() != 2) return 1;
    for (const Row& row : without) {
      if (row[3] != Cell("N")) return 2;  // read-only files too
    }
    const Rows with = qztest::takeList(folder->getObjectList(true));
    if (with.size() != 2) return 3;
    if ((*rowFor(with, writable))[3] != Cell("N")) return 4;
    if ((*rowFor(with, locked))[3] != Cell("Y")) return 5;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(FolderObjectList, ASecondListingNeedsNoRefresh) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  const std::string note = "Folder refresh not necessary for " + dir.path();
  LogCapture log;
  ASSERT_EQ(qztest::takeList(folder->getObjectList(false)).size(), 1u);
  EXPECT_FALSE(log.contains(note)) << log.dump();
  log.clear();
  ASSERT_EQ(qztest::takeList(folder->getObjectList(false)).size(), 1u);
  EXPECT_TRUE(log.contains(note, 2, "QZ.Repos.Vault.MDHelper")) << log.dump();
  // Another folder object over the same directory shares the vault's record.
  log.clear();
  auto other = makeFolder(vault.get(), dir.path());
  ASSERT_EQ(qztest::takeList(other->getObjectList(false)).size(), 1u);
  EXPECT_TRUE(log.contains(note, 2)) << log.dump();
}

TEST(FolderObjectList, AFailedRefreshDoesNotStopTheListing) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  qztest::writeFile(dir.join(".v_cmd"), "this is not a database, and it is long enough to show it");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("a"));
  const std::string refreshError = folder->getErrorMessage().toStdString();
  EXPECT_FALSE(refreshError.empty());
  EXPECT_TRUE(log.contains("Error refreshing cached folder attributes for getObjectList() on folder " +
                               dir.path() + ": " + refreshError,
                           2))
      << log.dump();
  // The attempt was recorded: the next listing does not try again.
  log.clear();
  ASSERT_EQ(qztest::takeList(folder->getObjectList(false)).size(), 1u);
  EXPECT_TRUE(log.contains("Folder refresh not necessary for " + dir.path())) << log.dump();
}

TEST(FolderObjectList, AReadOnlyFolderIsListedFromMemoryWithoutWritingToDisk) {
  // As nobody in a directory it cannot write: the metadata databases cannot
  // be made there and live in memory; nothing appears on disk.
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::writeFile(dir.join("a.txt"), "x");
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    const Rows rows = qztest::takeList(folder->getObjectList(false));
    if (rows.size() != 1 || rows[0][0] != Cell("a")) return 1;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_cmd")));
}

// ---------------------------------------------------------------------------
// Filters

TEST(FolderFilter, TwoExtensionsAdmitOnlyTheirFilesIgnoringCase) {
  TempDir dir;
  for (const char* name :
       {"a.job.def", "b.JOB.DEF", "c.txt", "d.TXT", "e.def", "f.csv", "g", "h.job.def.bak"}) {
    qztest::writeFile(dir.join(name), name);
  }
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_symlink (name, fname) VALUES ('Link', 'x.csv')");
  auto folder = makeFolder(vault.get(), dir.path(), S("job.def;Txt"));
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 5u);
  for (const char* name : {"a.job.def", "b.JOB.DEF", "c.txt", "d.TXT"}) {
    EXPECT_NE(rowFor(rows, dir.join(name)), nullptr) << name;
  }
  EXPECT_EQ(rows[4][2], Cell("link"));
}

TEST(FolderFilter, ExtensionsAreTheOnesTheNameRulesRecognise) {
  // "job.def" is a two-part extension: a filter "def" does not admit it.
  TempDir dir;
  qztest::writeFile(dir.join("a.job.def"), "x");
  qztest::writeFile(dir.join("b.def"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path(), S("def"));
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][1], Cell(dir.join("b.def")));
}

TEST(FolderFilter, EmptyOrNullFilterAdmitsEverything) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "x");
  qztest::writeFile(dir.join("b"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path(), S(""));
  EXPECT_EQ(qztest::takeList(folder->getObjectList(false)).size(), 2u);
  folder->setCurrentFilter(QzbString());
  EXPECT_EQ(qztest::takeList(folder->getObjectList(false)).size(), 2u);
}

TEST(FolderFilter, PiecesAreComparedUntrimmedIgnoringCase) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path(), S("csv; txt;LOG"));
  EXPECT_TRUE(folder->extInFilter(S("csv")));
  EXPECT_TRUE(folder->extInFilter(S("CSV")));
  EXPECT_TRUE(folder->extInFilter(S("log")));
  EXPECT_TRUE(folder->extInFilter(S(" txt")));
  EXPECT_FALSE(folder->extInFilter(S("txt")));
  EXPECT_FALSE(folder->extInFilter(S("")));
  EXPECT_FALSE(folder->extInFilter(S("cs")));
  // Empty pieces match an empty extension.
  folder->setCurrentFilter(S("a;;b"));
  EXPECT_TRUE(folder->extInFilter(S("")));
  folder->setCurrentFilter(S("a;"));
  EXPECT_TRUE(folder->extInFilter(S("")));
  EXPECT_TRUE(folder->extInFilter(S("A")));
  folder->setCurrentFilter(S("a"));
  EXPECT_FALSE(folder->extInFilter(S("")));
}

TEST(FolderFilter, AnEmptyPieceAdmitsFilesWithoutExtension) {
  TempDir dir;
  qztest::writeFile(dir.join("plain"), "x");
  qztest::writeFile(dir.join("b.csv"), "x");
  qztest::writeFile(dir.join("c.txt"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path(), S("csv;"));
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_NE(rowFor(rows, dir.join("plain")), nullptr);
  EXPECT_NE(rowFor(rows, dir.join("b.csv")), nullptr);
}

TEST(FolderFilter, SetByStockNumberOrByText) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  folder->setCurrentFilter(9);
  EXPECT_EQ(folder->getCurrentFilter().toStdString(),
            QzvVaultImpl::getStockFilterString(9).toStdString());
  folder->setCurrentFilter(16);
  EXPECT_TRUE(folder->getCurrentFilter().isNull());
  folder->setCurrentFilter(S("abc;def"));
  EXPECT_EQ(folder->getCurrentFilter().toStdString(), "abc;def");
}

// ---------------------------------------------------------------------------
// Sub-folder listing and item count

TEST(FolderFolderList, ListsSubDirectoriesWithTheirNames) {
  TempDir dir;
  qztest::makeDirs(dir.join("plain"));
  qztest::makeDirs(dir.join("named"));
  qztest::makeDirs(dir.join(".v_ver"));
  qztest::writeFile(dir.join("file.txt"), "x");
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.join("named")),
                  "INSERT INTO v_object (fname, name) VALUES (NULL, 'A Named Folder')");
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  Owned<QzvItemList> list = own(folder->getFolderList());
  ASSERT_NE(list, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(list->getNumCols(), 2);
  const Rows rows = qztest::readList(list.get());
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(*rowFor(rows, dir.join("plain")), (Row{Cell("plain"), Cell(dir.join("plain"))}));
  EXPECT_EQ(*rowFor(rows, dir.join("named")),
            (Row{Cell("A Named Folder"), Cell(dir.join("named"))}));
  EXPECT_TRUE(log.contains("Entering getFolderList on folder \"" + dir.path() + "\".", 1));
  EXPECT_TRUE(log.contains("Exit getFolderList on folder \"" + dir.path() + "\".", 1))
      << log.dump();
}

TEST(FolderFolderList, AFileWhereTheFolderShouldBeFails) {
  TempDir dir;
  qztest::writeFile(dir.join("file.txt"), "x");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.join("file.txt"));
  LogCapture log;
  EXPECT_EQ(folder->getFolderList(), nullptr);
  const std::string expected = dir.join("file.txt") + " is not a directory";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(qztest::readFile(dir.join("file.txt")), "x");
}

TEST(FolderItemCount, CountsFilesAndDirectoriesButNotVaultFilesOrLinks) {
  TempDir dir;
  qztest::makeDirs(dir.join("sub"));
  qztest::makeDirs(dir.join(".v_ver"));
  qztest::writeFile(dir.join("a.txt"), "x");
  qztest::writeFile(dir.join("b.csv"), "x");
  qztest::writeFile(dir.join(".v_lck"), "");
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "INSERT INTO v_symlink (name, fname) VALUES ('Link', 'x.csv')");
  auto folder = makeFolder(vault.get(), dir.path(), S("txt"));
  LogCapture log;
  EXPECT_EQ(folder->getFolderItemCount(), 3);  // the filter does not apply either
  EXPECT_TRUE(log.contains("Entering getFolderItemCount on folder \"" + dir.path() + "\".", 1));
  EXPECT_TRUE(log.contains("Exiting getFolderItemCount on folder \"" + dir.path() + "\".", 1))
      << log.dump();
}

TEST(FolderItemCount, AFolderThatCannotBeListedCountsZero) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.join("missing"));
  LogCapture log;
  EXPECT_EQ(folder->getFolderItemCount(), 0);
  const std::string expected = "Directory " + dir.join("missing") + " not found";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
}

}  // namespace
