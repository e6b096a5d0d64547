// An object's display-name rename (renameSelf) and the modifying-user stamp
// that opens it (setModifiedByUser).
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "plugin_registry.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "time_util.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::Owned;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

std::string currentUser() { return getCurrentUserName().toStdString(); }

Owned<QzvObjectImpl> openObject(QzvVaultImpl* vault, const std::string& path) {
  Owned<QzvObjectImpl> object(new QzvObjectImpl());
  EXPECT_TRUE(object->init(S(path), vault)) << object->getErrorMessage().asCstr();
  return object;
}

Rows nameRows(const std::string& db, const std::string& fileName) {
  return qztest::query(db, "SELECT name FROM v_object WHERE fname = " + qztest::sqlText(fileName));
}

Rows modifierRows(const std::string& db, const std::string& fileName) {
  return qztest::query(db, "SELECT seq, v0 FROM v_attr WHERE attr = '_MODIFIEDUSER' AND fname = " +
                               qztest::sqlText(fileName));
}

// A folder with objects and a fixed-metadata database to check against.
class ObjectRenameSelf : public ::testing::Test {
 protected:
  void SetUp() override { db_ = qztest::fixedDb(vault_.get(), dir_.path()); }
  std::string add(const std::string& fileName, const std::string& displayName = "") {
    qztest::writeFile(dir_.join(fileName), fileName);
    if (!displayName.empty()) {
      qztest::execute(db_, "INSERT INTO v_object (fname, name) VALUES (" +
                               qztest::sqlText(fileName) + ", " + qztest::sqlText(displayName) +
                               ")");
    }
    return dir_.join(fileName);
  }

  TempDir dir_;
  ScopedVault vault_{dir_.path()};
  std::string db_;
};

TEST_F(ObjectRenameSelf, ReplacesTheNameRowAndStampsTheModifier) {
  const std::string path = add("budget.txt", "Old name");
  auto object = openObject(vault_.get(), path);
  ASSERT_TRUE(object->renameSelf(S("New name"))) << object->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "New name");
  EXPECT_EQ(object->getFileName(true).toStdString(), "budget.txt");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("New name")}}));
  EXPECT_EQ(modifierRows(db_, "budget.txt"), (Rows{{Cell("0"), Cell(currentUser())}}));
  EXPECT_TRUE(qztest::pathExists(path));
}

TEST_F(ObjectRenameSelf, ANameHeldByAnotherFileOfTheSameExtensionIsRefused) {
  add("other.txt", "Taken");
  const std::string path = add("budget.txt", "Budget");
  auto object = openObject(vault_.get(), path);
  LogCapture log;
  EXPECT_FALSE(object->renameSelf(S("Taken")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "An object with that name already exists");
  EXPECT_TRUE(log.contains("An object with that name already exists", 5)) << log.dump();
  EXPECT_EQ(object->getName().toStdString(), "Budget");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
  // The modifier was stamped first, and stays.
  EXPECT_EQ(modifierRows(db_, "budget.txt").size(), 1u);
}

TEST_F(ObjectRenameSelf, TheExtensionIsMatchedWithoutRegardToLetterCase) {
  add("other.TXT", "Taken");
  auto object = openObject(vault_.get(), add("budget.txt", "Budget"));
  EXPECT_FALSE(object->renameSelf(S("Taken")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "An object with that name already exists");
}

TEST_F(ObjectRenameSelf, ANameHeldByAFileOfAnotherExtensionIsAllowed) {
  add("other.csv", "Shared");
  add("report.job.def", "Shared too");
  auto object = openObject(vault_.get(), add("budget.txt", "Budget"));
  ASSERT_TRUE(object->renameSelf(S("Shared"))) << object->getErrorMessage().asCstr();
  auto job = openObject(vault_.get(), add("plan.job.def"));
  EXPECT_FALSE(job->renameSelf(S("Shared too")));  // two-part extensions count whole
  EXPECT_TRUE(job->renameSelf(S("Shared")));
  EXPECT_EQ(qztest::query(db_, "SELECT count(*) FROM v_object WHERE name = 'Shared'"),
            (Rows{{Cell("3")}}));
}

TEST_F(ObjectRenameSelf, TheObjectsOwnNameCountsToo) {
  auto object = openObject(vault_.get(), add("budget.txt", "Budget"));
  EXPECT_FALSE(object->renameSelf(S("Budget")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "An object with that name already exists");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

TEST_F(ObjectRenameSelf, WithoutExtensionEveryFileCounts) {
  add("other.csv", "Taken");
  auto object = openObject(vault_.get(), add("README"));
  EXPECT_FALSE(object->renameSelf(S("Taken")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "An object with that name already exists");
  ASSERT_TRUE(object->renameSelf(S("Read me first")));
  EXPECT_EQ(nameRows(db_, "README"), (Rows{{Cell("Read me first")}}));
}

TEST_F(ObjectRenameSelf, AMissingFileFailsAtTheStampAndChangesNothing) {
  const std::string path = add("budget.txt", "Budget");
  auto object = openObject(vault_.get(), path);
  ASSERT_EQ(remove(path.c_str()), 0);
  LogCapture log;
  EXPECT_FALSE(object->renameSelf(S("New")));
  const std::string expected = "File " + path + " is not accessible";
  EXPECT_EQ(object->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
  EXPECT_TRUE(modifierRows(db_, "budget.txt").empty());
}

TEST_F(ObjectRenameSelf, AFailedCountGivesTheDatabaseMessage) {
  auto object = openObject(vault_.get(), add("budget.txt"));
  qztest::execute(db_, "DROP TABLE v_object");
  EXPECT_FALSE(object->renameSelf(S("New")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "no such table: v_object");
}

TEST_F(ObjectRenameSelf, AFailedRemovalIsRolledBack) {
  auto object = openObject(vault_.get(), add("budget.txt", "Budget"));
  qztest::execute(db_, "CREATE TRIGGER refuse BEFORE DELETE ON v_object BEGIN "
                       "SELECT RAISE(ABORT, 'removal refused'); END");
  LogCapture log;
  EXPECT_FALSE(object->renameSelf(S("New")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Remove metadata failed: removal refused");
  EXPECT_TRUE(log.contains("Remove metadata failed: removal refused", 5)) << log.dump();
  EXPECT_EQ(object->getName().toStdString(), "Budget");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

TEST_F(ObjectRenameSelf, AFailedInsertRestoresTheOldRow) {
  auto object = openObject(vault_.get(), add("budget.txt", "Budget"));
  qztest::execute(db_, "CREATE TRIGGER refuse BEFORE INSERT ON v_object BEGIN "
                       "SELECT RAISE(ABORT, 'names refused'); END");
  EXPECT_FALSE(object->renameSelf(S("New")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Add metadata failed: names refused");
  EXPECT_EQ(nameRows(db_, "budget.txt"), (Rows{{Cell("Budget")}}));
}

// ---------------------------------------------------------------------------
// The plug-in path

class ObjectRenameSelfPlugin : public ::testing::Test {
 protected:
  qztest::TestMetaRegistry plugins_;
  TempDir dir_;
  ScopedVault vault_{dir_.path(), plugins_.get()};
};

TEST_F(ObjectRenameSelfPlugin, ThePluginKeepsTheNameInTheFile) {
  qztest::writeFile(dir_.join("sales.tmeta"), "name Draft\n# kept\n");
  auto object = openObject(vault_.get(), dir_.join("sales.tmeta"));
  ASSERT_EQ(object->getName().toStdString(), "Draft");
  ASSERT_TRUE(object->renameSelf(S("Sales by region"))) << object->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "Sales by region");
  EXPECT_EQ(qztest::readFile(dir_.join("sales.tmeta")), "name Sales by region\n# kept\n");
  const std::string db = dir_.join(".v_fmd");
  EXPECT_TRUE(nameRows(db, "sales.tmeta").empty());
  EXPECT_EQ(modifierRows(db, "sales.tmeta").size(), 1u);
  // No uniqueness check on this path: the name lives in the file.
  qztest::writeFile(dir_.join("copy.tmeta"), "name Draft\n");
  auto copy = openObject(vault_.get(), dir_.join("copy.tmeta"));
  EXPECT_TRUE(copy->renameSelf(S("Sales by region")));
  auto* counters = qztest::TestMetaRegistry::counters();
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(counters->filesOpened.load(), counters->filesReleased.load());
}

TEST_F(ObjectRenameSelfPlugin, AFailedSaveIsReported) {
  const std::string content = "name Draft\nfail save\n";
  qztest::writeFile(dir_.join("sales.tmeta"), content);
  auto object = openObject(vault_.get(), dir_.join("sales.tmeta"));
  LogCapture log;
  EXPECT_FALSE(object->renameSelf(S("Sales")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Plugin failed to save file");
  EXPECT_TRUE(log.contains("Plugin failed to save file", 5)) << log.dump();
  EXPECT_EQ(qztest::readFile(dir_.join("sales.tmeta")), content);
  EXPECT_TRUE(nameRows(dir_.join(".v_fmd"), "sales.tmeta").empty());
}

TEST_F(ObjectRenameSelfPlugin, ARefusedNameGoesToTheDatabase) {
  const std::string content = "name Draft\nfail name\n";
  qztest::writeFile(dir_.join("sales.tmeta"), content);
  auto object = openObject(vault_.get(), dir_.join("sales.tmeta"));
  ASSERT_TRUE(object->renameSelf(S("Sales"))) << object->getErrorMessage().asCstr();
  EXPECT_EQ(object->getName().toStdString(), "Sales");
  EXPECT_EQ(qztest::readFile(dir_.join("sales.tmeta")), content);
  EXPECT_EQ(nameRows(dir_.join(".v_fmd"), "sales.tmeta"), (Rows{{Cell("Sales")}}));
}

// A plug-in that claims no file, but whose question is the moment at which
// the test's "other process" makes ".v_fmd" read-only: between the
// modifying-user stamp and the name row of renameSelf.
class ChmodOnAskPlugin final : public QzvMetaDataPlugin {
 public:
  explicit ChmodOnAskPlugin(std::string database) : database_(std::move(database)) {}
  QzbString getDescription() override { return QzbString("chmod on ask", true); }
  void release() override {}
  QzbString getTypeName() override { return QzbString("None", true); }
  bool canHandle(const QzbString&) override {
    chmod(database_.c_str(), 0444);
    return false;
  }
  QzvMetaDataFile* openFile(const QzbString&) override { return nullptr; }
  QzbString getResourceIdentity(const QzbString& path) override { return path; }
  QzbString getResourceType() override { return QzbString("None", true); }

 private:
  std::string database_;
};

TEST(ObjectRenameSelfReadOnly, ADatabaseThatTurnsReadOnlyIsRefused) {
  // Runs as nobody (root would write a 0444 file anyway).
  TempDir dir;
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const int status = qztest::runAsNobody([&]() -> int {
    ChmodOnAskPlugin plugin(dir.join(".v_fmd"));
    QzvMetaDataPlugin* list[] = {&plugin};
    QzviPluginRegistry registry;
    registry.count = 1;
    registry.plugins = list;
    qztest::writeFile(dir.join("budget.txt"), "x");
    ScopedVault vault(dir.path(), &registry);
    Owned<QzvObjectImpl> object(new QzvObjectImpl());
    if (!object->init(S(dir.join("budget.txt")), vault.get())) return 1;
    LogCapture log;
    if (object->renameSelf(S("Budget"))) return 2;
    if (object->getErrorMessage().toStdString() != "Data file is read only") return 3;
    if (!log.contains("Data file is read only", 5)) return 4;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(nameRows(dir.join(".v_fmd"), "budget.txt").empty());
}

TEST(ObjectRenameSelfReadOnly, AReadOnlyDatabaseStopsTheStamp) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "x");
  {
    ScopedVault vault(dir.path());
    qztest::fixedDb(vault.get(), dir.path());
  }
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(dir.join(".v_fmd").c_str(), 0444), 0);
  const std::string expected = "File " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    ScopedVault vault(dir.path());
    Owned<QzvObjectImpl> object(new QzvObjectImpl());
    if (!object->init(S(dir.join("budget.txt")), vault.get())) return 1;
    LogCapture log;
    if (object->setModifiedByUser(S("someone"))) return 2;
    if (object->getErrorMessage().toStdString() != expected) return 3;
    if (!log.contains(expected, 5)) return 4;
    if (object->renameSelf(S("Budget"))) return 5;
    if (object->getErrorMessage().toStdString() != expected) return 6;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(modifierRows(dir.join(".v_fmd"), "budget.txt").empty());
}

// ---------------------------------------------------------------------------
// setModifiedByUser

TEST_F(ObjectRenameSelf, TheStampNamesTheProcessUserWhateverTheCallerSays) {
  auto object = openObject(vault_.get(), add("budget.txt"));
  ASSERT_TRUE(object->setModifiedByUser(S("somebody-else")));
  EXPECT_EQ(modifierRows(db_, "budget.txt"), (Rows{{Cell("0"), Cell(currentUser())}}));
  // A second stamp updates the one row.
  qztest::execute(db_, "UPDATE v_attr SET v0 = 'previous' WHERE attr = '_MODIFIEDUSER'");
  ASSERT_TRUE(object->setModifiedByUser(S("another")));
  EXPECT_EQ(modifierRows(db_, "budget.txt"), (Rows{{Cell("0"), Cell(currentUser())}}));
}

TEST_F(ObjectRenameSelf, AFailedStampUpdateIsReportedAndRolledBack) {
  auto object = openObject(vault_.get(), add("budget.txt"));
  ASSERT_TRUE(object->setModifiedByUser(S("")));
  qztest::execute(db_, "UPDATE v_attr SET v0 = 'previous' WHERE attr = '_MODIFIEDUSER';"
                       "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr BEGIN "
                       "SELECT RAISE(ABORT, 'updates refused'); END");
  LogCapture log;
  EXPECT_FALSE(object->setModifiedByUser(S("")));
  const std::string expected = "Fix modified by user references in attribute metadata failed";
  EXPECT_EQ(object->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_EQ(modifierRows(db_, "budget.txt"), (Rows{{Cell("0"), Cell("previous")}}));
}

TEST_F(ObjectRenameSelf, AFailedStampInsertGivesTheDatabaseMessage) {
  auto object = openObject(vault_.get(), add("budget.txt"));
  qztest::execute(db_, "CREATE TRIGGER refuse BEFORE INSERT ON v_attr BEGIN "
                       "SELECT RAISE(ABORT, 'inserts refused'); END");
  EXPECT_FALSE(object->setModifiedByUser(S("")));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "inserts refused");
  EXPECT_TRUE(modifierRows(db_, "budget.txt").empty());
}

TEST(ObjectStamp, ADatabaseThatCannotBeOpenedIsReported) {
  TempDir dir;
  qztest::writeFile(dir.join("budget.txt"), "x");
  ScopedVault vault(dir.path());
  Owned<QzvObjectImpl> object(new QzvObjectImpl());
  ASSERT_TRUE(object->init(S(dir.join("budget.txt")), vault.get()));
  ASSERT_EQ(symlink(dir.join("nowhere/.v_fmd").c_str(), dir.join(".v_fmd").c_str()), 0);
  EXPECT_FALSE(object->setModifiedByUser(S("")));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Error opening/creating fixed metadata file in " + dir.path());
}

}  // namespace
