// Making objects: a new object whose file comes later (createObject /
// initNew) and a file already written into the folder (createObjectFromFile /
// initNewFromFile).
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "object_impl.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "time_util.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::own;
using qztest::Owned;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

std::string currentUser() { return getCurrentUserName().toStdString(); }

Owned<QzvFolderImpl> makeFolder(QzvVaultImpl* vault, const std::string& path) {
  Owned<QzvFolderImpl> folder(new QzvFolderImpl());
  EXPECT_TRUE(folder->init(S(path), QzbString(), vault));
  return folder;
}

Rows attrRows(const std::string& db, const std::string& fileName) {
  return qztest::query(db, "SELECT attr, seq, v0 FROM v_attr WHERE fname = " +
                               qztest::sqlText(fileName) + " ORDER BY attr");
}

Rows nameRows(const std::string& db, const std::string& fileName) {
  return qztest::query(db, "SELECT name FROM v_object WHERE fname = " + qztest::sqlText(fileName));
}

Rows folderStampRows(const std::string& db) {
  return qztest::query(db, "SELECT attr, v0 FROM v_attr WHERE fname IS NULL ORDER BY attr");
}

// True when the folder's own user stamps are built (they come from the
// folder-attribute work); tests of the stamp skip otherwise.
bool folderStampsAvailable(QzvFolderImpl* folder) {
  const bool stamped = folder->setModifiedByUser(S("someone"));
  return stamped || folder->getErrorMessage().toStdString() != "Not implemented yet";
}

// ---------------------------------------------------------------------------
// createObject / initNew

TEST(ObjectCreateNew, RecordsCreatorModifierAndNameWithoutTouchingTheFile) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  auto object = own(folder->createObject(S("budget.txt"), S("Budget 2024")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "Budget 2024");
  EXPECT_EQ(object->getFileName(true).toStdString(), "budget.txt");
  EXPECT_EQ(object->getFileName(false).toStdString(), dir.join("budget.txt"));
  EXPECT_FALSE(qztest::pathExists(dir.join("budget.txt")));  // the caller writes it
  const std::string db = dir.join(".v_fmd");
  EXPECT_EQ(attrRows(db, "budget.txt"),
            (Rows{{Cell("_CREATOR"), Cell("0"), Cell(currentUser())},
                  {Cell("_MODIFIEDUSER"), Cell("0"), Cell(currentUser())}}));
  EXPECT_EQ(nameRows(db, "budget.txt"), (Rows{{Cell("Budget 2024")}}));
  // The entering text opens and closes the operation.
  EXPECT_EQ(log.count("Entering createObject on folder \"" + dir.path() + "\".", 1), 2)
      << log.dump();
}

TEST(ObjectCreateNew, AnEarlierNameRowOfTheSameFileNameIsReplaced) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES ('budget.txt', 'Stale one'),"
                      " ('budget.txt', 'Stale two'), ('other.txt', 'Other')");
  auto folder = makeFolder(vault.get(), dir.path());
  auto object = own(folder->createObject(S("budget.txt"), S("Fresh")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(nameRows(db, "budget.txt"), (Rows{{Cell("Fresh")}}));
  EXPECT_EQ(nameRows(db, "other.txt"), (Rows{{Cell("Other")}}));
  EXPECT_EQ(attrRows(db, "budget.txt").size(), 2u);
}

TEST(ObjectCreateNew, LeavesTheFolderStampsAlone) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  const Rows before = folderStampRows(db);
  auto object = own(folder->createObject(S("budget.txt"), S("Budget")));
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(folderStampRows(db), before);
}

TEST(ObjectCreateNew, AFailedStatementRollsEverythingBack) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db, "CREATE TRIGGER refuse BEFORE INSERT ON v_object BEGIN "
                      "SELECT RAISE(ABORT, 'names refused'); END");
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->createObject(S("budget.txt"), S("Budget")), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "names refused");
  EXPECT_TRUE(log.contains("names refused", 5)) << log.dump();
  EXPECT_EQ(log.count("Entering createObject on folder \"" + dir.path() + "\"."), 1);
  EXPECT_TRUE(attrRows(db, "budget.txt").empty());  // the two stamps were rolled back
}

TEST(ObjectCreateNew, AReadOnlyDatabaseFailsWithoutText) {
  // A ".v_fmd" of mode 0444, and the check as nobody (root could write it):
  // the refusal goes to the diagnostic log only.
  TempDir dir;
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(dir.join(".v_fmd").c_str(), 0444), 0);
  const std::string note = "File " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    if (folder->createObject(S("budget.txt"), S("Budget")) != nullptr) return 1;
    if (!folder->getErrorMessage().isEmpty()) return 2;
    if (!log.contains(note, 2)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(attrRows(dir.join(".v_fmd"), "budget.txt").empty());
}

TEST(ObjectCreateNew, AFolderThatCannotHoldTheDatabaseRefusesTheObject) {
  // As nobody in a root-owned directory: ".v_fmd" cannot be made. The object
  // is refused with the reason rather than named in a database kept in
  // memory, whose rows would vanish with the vault.
  TempDir dir;
  qztest::makeReachable(dir.path());
  const std::string expected = "Error creating " + dir.join(".v_fmd") + ": Permission denied";
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    LogCapture log;
    auto object = own(folder->createObject(S("budget.txt"), S("Budget")));
    if (object != nullptr) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 5)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
  EXPECT_FALSE(qztest::pathExists(dir.join("budget.txt")));
}

TEST(ObjectCreateNew, WithTheBypassKeyTheNameIsListedFromMemory) {
  TempDir dir;
  qztest::ScopedOption bypass("QZVLT/BYPASS", "yes");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  auto object = own(folder->createObject(S("budget.txt"), S("Budget in memory")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  qztest::writeFile(dir.join("budget.txt"), "figures");
  const Rows rows = qztest::takeList(folder->getObjectList(false));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("Budget in memory"));
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_cmd")));
}

// ---------------------------------------------------------------------------
// createObjectFromFile / initNewFromFile

TEST(ObjectCreateFromFile, StampsCreatorThenRenamesAndTraces) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "figures");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  auto object = own(folder->createObjectFromFile(S("budget.txt"), S("Budget 2024")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "Budget 2024");
  EXPECT_EQ(object->getFileName(false).toStdString(), dir.join("budget.txt"));
  const std::string db = dir.join(".v_fmd");
  EXPECT_EQ(attrRows(db, "budget.txt"),
            (Rows{{Cell("_CREATOR"), Cell("0"), Cell(currentUser())},
                  {Cell("_MODIFIEDUSER"), Cell("0"), Cell(currentUser())}}));
  EXPECT_EQ(nameRows(db, "budget.txt"), (Rows{{Cell("Budget 2024")}}));
  EXPECT_EQ(qztest::readFile(dir.join("budget.txt")), "figures");
  EXPECT_EQ(log.count("Entering createObjectFromFile on folder \"" + dir.path() + "\".", 1), 2)
      << log.dump();
}

TEST(ObjectCreateFromFile, StampsTheFolder) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "figures");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  {
    auto probe = makeFolder(vault.get(), dir.join("probe"));
    qztest::makeDirs(dir.join("probe"));
    if (!folderStampsAvailable(probe.get())) {
      GTEST_SKIP() << "the folder's user stamps are not built yet";
    }
  }
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  EXPECT_TRUE(qztest::rowsWhere(folderStampRows(db), 0, "_MODIFIEDUSER").empty());
  auto object = own(folder->createObjectFromFile(S("budget.txt"), S("Budget")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::rowsWhere(folderStampRows(db), 0, "_MODIFIEDUSER"),
            (Rows{{Cell("_MODIFIEDUSER"), Cell(currentUser())}}));
}

TEST(ObjectCreateFromFile, AMissingFileFailsAndWritesNothing) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->createObjectFromFile(S("missing.txt"), S("Missing")), nullptr);
  const std::string expected = "File " + dir.join("missing.txt") + " is not accessible";
  EXPECT_EQ(folder->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(log.count("Entering createObjectFromFile on folder \"" + dir.path() + "\"."), 1);
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
}

TEST(ObjectCreateFromFile, AFileNameThatNamesNoFileOfTheFolderFails) {
  TempDir dir;
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  EXPECT_EQ(folder->createObjectFromFile(S("../escape.txt"), S("Escape")), nullptr);
  // Refused by its form, before anything outside the folder is looked at.
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Invalid file name \"../escape.txt\": a file name is one name of the folder, "
            "without a separator");
  EXPECT_FALSE(qztest::pathExists(dir.join(".v_fmd")));
}

TEST(ObjectCreateFromFile, APluginFileKeepsTheNameInsideTheFile) {
  qztest::TestMetaRegistry plugins;
  TempDir dir;
  qztest::writeFile(dir.join("sales.tmeta"), "name Draft\nattr Owner 0 0 someone\n");
  ScopedVault vault(dir.path(), plugins.get());
  auto folder = makeFolder(vault.get(), dir.path());
  auto object = own(folder->createObjectFromFile(S("sales.tmeta"), S("Sales by region")));
  ASSERT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "Sales by region");
  EXPECT_EQ(qztest::readFile(dir.join("sales.tmeta")).rfind("name Sales by region\n", 0), 0u);
  EXPECT_TRUE(nameRows(dir.join(".v_fmd"), "sales.tmeta").empty());
  EXPECT_EQ(attrRows(dir.join(".v_fmd"), "sales.tmeta").size(), 2u);  // creator, modifier
}

TEST(ObjectCreateFromFile, APluginThatCannotSaveFailsTheCreation) {
  qztest::TestMetaRegistry plugins;
  TempDir dir;
  const std::string content = "name Draft\nfail save\n";
  qztest::writeFile(dir.join("sales.tmeta"), content);
  ScopedVault vault(dir.path(), plugins.get());
  auto folder = makeFolder(vault.get(), dir.path());
  LogCapture log;
  EXPECT_EQ(folder->createObjectFromFile(S("sales.tmeta"), S("Sales")), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "Plugin failed to save file");
  EXPECT_TRUE(log.contains("Plugin failed to save file", 5)) << log.dump();
  EXPECT_EQ(qztest::readFile(dir.join("sales.tmeta")), content);
  EXPECT_TRUE(attrRows(dir.join(".v_fmd"), "sales.tmeta").empty());
}

TEST(ObjectCreateFromFile, ADisplayNameInUseFailsAndLeavesNoRows) {
  TempDir dir;
  qztest::writeFile(dir.join("one.txt"), "1");
  qztest::writeFile(dir.join("two.txt"), "2");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  auto first = own(folder->createObjectFromFile(S("one.txt"), S("Figures")));
  ASSERT_NE(first, nullptr) << folder->getErrorMessage().asCstr();
  EXPECT_EQ(folder->createObjectFromFile(S("two.txt"), S("Figures")), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "An object with that name already exists");
  // The creator and modifying-user stamps committed before the naming was
  // refused are taken back: nothing stands for an object that was not made.
  const std::string db = dir.join(".v_fmd");
  EXPECT_TRUE(attrRows(db, "two.txt").empty());
  EXPECT_TRUE(nameRows(db, "two.txt").empty());
  EXPECT_EQ(attrRows(db, "one.txt").size(), 2u);
}

TEST(ObjectCreateFromFile, RowsAFileNameHadBeforeAFailedCreationArePutBack) {
  TempDir dir;
  qztest::writeFile(dir.join("one.txt"), "1");
  qztest::writeFile(dir.join("two.txt"), "2");
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  auto first = own(folder->createObjectFromFile(S("one.txt"), S("Figures")));
  ASSERT_NE(first, nullptr) << folder->getErrorMessage().asCstr();
  const std::string db = dir.join(".v_fmd");
  // Rows left behind by an earlier file of the same name.
  qztest::execute(db,
                  "INSERT INTO v_attr (fname, attr, seq, v0, v3) VALUES "
                  "('two.txt', '_MODIFIEDUSER', 0, 'earlier', 'x'), ('two.txt', 'Owner', 1, 'team', NULL)");
  const std::string everyColumn =
      "SELECT attr, seq, typeof(seq), v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 FROM v_attr "
      "WHERE fname = 'two.txt' ORDER BY attr, seq";
  const Rows rowsBefore = qztest::query(db, everyColumn);
  ASSERT_EQ(rowsBefore.size(), 2u);
  EXPECT_EQ(folder->createObjectFromFile(S("two.txt"), S("Figures")), nullptr);
  EXPECT_EQ(qztest::query(db, everyColumn), rowsBefore);
  EXPECT_TRUE(nameRows(db, "two.txt").empty());
}

TEST(ObjectCreateFromFile, AReadOnlyDatabaseIsRefused) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "figures");
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(dir.join(".v_fmd").c_str(), 0444), 0);
  const std::string expected = "File " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    auto folder = makeFolder(vault.get(), dir.path());
    if (folder->createObjectFromFile(S("budget.txt"), S("Budget")) != nullptr) return 1;
    if (folder->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 5)) return 3;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(attrRows(dir.join(".v_fmd"), "budget.txt").empty());
  EXPECT_EQ(qztest::readFile(dir.join("budget.txt")), "figures");
}

TEST(ObjectCreateFromFile, ADatabaseThatCannotBeOpenedIsReported) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "figures");
  ASSERT_EQ(symlink(dir.join("nowhere/.v_fmd").c_str(), dir.join(".v_fmd").c_str()), 0);
  ScopedVault vault(dir.path());
  auto folder = makeFolder(vault.get(), dir.path());
  EXPECT_EQ(folder->createObjectFromFile(S("budget.txt"), S("Budget")), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(),
            "Error opening/creating fixed metadata file in " + dir.path());
}

TEST(ObjectCreateFromFile, AFailedCreatorStampIsRolledBack) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "figures");
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db, "CREATE TRIGGER refuse BEFORE INSERT ON v_attr BEGIN "
                      "SELECT RAISE(ABORT, 'stamps refused'); END");
  auto folder = makeFolder(vault.get(), dir.path());
  EXPECT_EQ(folder->createObjectFromFile(S("budget.txt"), S("Budget")), nullptr);
  EXPECT_EQ(folder->getErrorMessage().toStdString(), "stamps refused");
  EXPECT_TRUE(attrRows(db, "budget.txt").empty());
  EXPECT_TRUE(nameRows(db, "budget.txt").empty());
}

}  // namespace
