// Listing a folder end to end: a vault made by createVaultInstance over the
// directory of the "qzvmdtestmeta" plug-in, whose files carry their display
// names. The plug-in's counters tell which files the library opened, so the
// tests see exactly when the cached metadata is refreshed and for which
// files.
#include <string>

#include <gtest/gtest.h>

#include "qzvault/qzvault.h"
#include "support/log_capture.h"
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
using qztest::TempDir;

// Display name of the listed file `path`, or "(missing)".
std::string nameOf(const Rows& rows, const std::string& path) {
  for (const Row& row : rows) {
    if (row[1] == Cell(path)) return row[0].value_or("(null)");
  }
  return "(missing)";
}

class ListingEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    setVaultPluginPath(qztest::testMetaPluginDir().c_str());
    vault_ = own(createVaultInstance(dir_.path().c_str()));
    ASSERT_NE(vault_, nullptr) << getVaultCreateError();
    counters_ = qztest::TestMetaRegistry::counters();
    ASSERT_NE(counters_, nullptr) << "the test plug-in was not loaded";
    counters_->reset();
    root_ = own(vault_->getRootFolder());
    ASSERT_NE(root_, nullptr) << vault_->getErrorMessage().asCstr();
  }
  void TearDown() override {
    root_.reset();
    vault_.reset();
  }

  Rows list() {
    QzvItemList* list = root_->getObjectList(false);
    EXPECT_NE(list, nullptr) << root_->getErrorMessage().asCstr();
    return qztest::takeList(list);
  }
  // Moves the directory's modification time away from what the vault
  // recorded (file-system times have whole seconds, so a file added within
  // the same second would otherwise go unnoticed).
  void changeDirectoryTime() { qztest::setMtime(dir_.path(), qztest::getMtime(dir_.path()) + 100); }
  int opened() const { return counters_->openCalls.load(); }
  std::string notNecessary() const { return "Folder refresh not necessary for " + dir_.path(); }

  TempDir dir_;
  Owned<QzvVault> vault_;
  Owned<QzvFolder> root_;
  QzTestMetaCounters* counters_ = nullptr;
};

TEST_F(ListingEndToEnd, TheFirstListingRefreshesOnceAndTheSecondNotAtAll) {
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha\n");
  qztest::writeFile(dir_.join("b.tmeta"), "name Beta\n");
  qztest::writeFile(dir_.join("run.job.def"), "name Nightly run\n");
  qztest::writeFile(dir_.join("c.txt"), "no plug-in for this one");
  LogCapture log;
  Rows rows = list();
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(nameOf(rows, dir_.join("a.tmeta")), "Alpha");
  EXPECT_EQ(nameOf(rows, dir_.join("b.tmeta")), "Beta");
  EXPECT_EQ(nameOf(rows, dir_.join("run.job.def")), "Nightly run");
  EXPECT_EQ(nameOf(rows, dir_.join("c.txt")), "c");
  EXPECT_EQ(qztest::rowsWhere(rows, 2, "TestMeta").size(), 2u);
  EXPECT_EQ(qztest::rowsWhere(rows, 2, "TestJob").size(), 1u);
  EXPECT_EQ(opened(), 3);  // each plug-in file once, by the refresh
  EXPECT_FALSE(log.contains(notNecessary())) << log.dump();
  EXPECT_EQ(qztest::query(dir_.join(".v_cmd"), "SELECT count(*) FROM v_file"),
            (Rows{{Cell("4")}}));

  log.clear();
  rows = list();
  EXPECT_EQ(rows.size(), 4u);
  EXPECT_EQ(nameOf(rows, dir_.join("a.tmeta")), "Alpha");
  EXPECT_EQ(opened(), 3);
  EXPECT_TRUE(log.contains(notNecessary(), 2)) << log.dump();
  EXPECT_EQ(counters_->filesOpened.load(), counters_->filesReleased.load());
}

TEST_F(ListingEndToEnd, AnAddedFileIsTheOnlyOneRead) {
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha\n");
  qztest::writeFile(dir_.join("b.tmeta"), "name Beta\n");
  list();
  ASSERT_EQ(opened(), 2);

  qztest::writeFile(dir_.join("e.tmeta"), "name Echo\n");
  changeDirectoryTime();
  LogCapture log;
  const Rows rows = list();
  EXPECT_EQ(rows.size(), 3u);
  EXPECT_EQ(nameOf(rows, dir_.join("e.tmeta")), "Echo");
  EXPECT_EQ(opened(), 3);
  EXPECT_FALSE(log.contains(notNecessary())) << log.dump();
}

TEST_F(ListingEndToEnd, ATouchedFileIsReadAgainOnlyWhenItIsMoreThanASecondNewer) {
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha\n");
  qztest::writeFile(dir_.join("b.tmeta"), "name Beta\n");
  const long long aTime = 1500000000;
  const long long bTime = 1500000000;
  qztest::setMtime(dir_.join("a.tmeta"), aTime);
  qztest::setMtime(dir_.join("b.tmeta"), bTime);
  list();
  ASSERT_EQ(opened(), 2);

  // a: two seconds newer, re-read. b: one second newer, left alone.
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha, second edition\n");
  qztest::writeFile(dir_.join("b.tmeta"), "name Beta, second edition\n");
  qztest::setMtime(dir_.join("a.tmeta"), aTime + 2);
  qztest::setMtime(dir_.join("b.tmeta"), bTime + 1);
  changeDirectoryTime();
  const Rows rows = list();
  EXPECT_EQ(nameOf(rows, dir_.join("a.tmeta")), "Alpha, second edition");
  EXPECT_EQ(nameOf(rows, dir_.join("b.tmeta")), "Beta");
  EXPECT_EQ(opened(), 3);
}

TEST_F(ListingEndToEnd, AChangedFileIsNotSeenUntilTheDirectoryChanges) {
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha\n");
  qztest::setMtime(dir_.join("a.tmeta"), 1500000000);
  list();
  const long long recorded = qztest::getMtime(dir_.path());

  // Rewriting a file's content leaves the directory's time alone.
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha renamed\n");
  qztest::setMtime(dir_.join("a.tmeta"), 1500000100);
  qztest::setMtime(dir_.path(), recorded);
  LogCapture log;
  Rows rows = list();
  EXPECT_EQ(nameOf(rows, dir_.join("a.tmeta")), "Alpha");
  EXPECT_TRUE(log.contains(notNecessary())) << log.dump();
  EXPECT_EQ(opened(), 1);

  changeDirectoryTime();
  rows = list();
  EXPECT_EQ(nameOf(rows, dir_.join("a.tmeta")), "Alpha renamed");
  EXPECT_EQ(opened(), 2);
}

TEST_F(ListingEndToEnd, ARemovedFileLeavesListingAndCache) {
  qztest::writeFile(dir_.join("a.tmeta"), "name Alpha\n");
  qztest::writeFile(dir_.join("b.tmeta"), "name Beta\n");
  list();
  ASSERT_EQ(std::remove(dir_.join("b.tmeta").c_str()), 0);
  changeDirectoryTime();
  const Rows rows = list();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("Alpha"));
  EXPECT_EQ(qztest::query(dir_.join(".v_cmd"), "SELECT fname FROM v_file"),
            (Rows{{Cell("a.tmeta")}}));
  EXPECT_EQ(opened(), 2);
}

TEST_F(ListingEndToEnd, NamesComeFromPluginThenFixedMetadataThenFileName) {
  qztest::writeFile(dir_.join("named.tmeta"), "name From the plug-in\n");
  qztest::writeFile(dir_.join("unnamed.tmeta"), "attr Owner 0 0 someone\n");
  qztest::writeFile(dir_.join("stored.txt"), "x");
  qztest::writeFile(dir_.join("bare.txt"), "x");
  list();
  qztest::execute(dir_.join(".v_fmd"),
                  "INSERT INTO v_object (fname, name) VALUES ('named.tmeta', 'Stored for named'),"
                  " ('unnamed.tmeta', 'Stored for unnamed'), ('stored.txt', 'Stored for text')");
  const Rows rows = list();
  EXPECT_EQ(nameOf(rows, dir_.join("named.tmeta")), "From the plug-in");
  EXPECT_EQ(nameOf(rows, dir_.join("unnamed.tmeta")), "Stored for unnamed");
  EXPECT_EQ(nameOf(rows, dir_.join("stored.txt")), "Stored for text");
  EXPECT_EQ(nameOf(rows, dir_.join("bare.txt")), "bare");
  // The objects agree with the listing.
  for (const char* file : {"named.tmeta", "unnamed.tmeta", "stored.txt", "bare.txt"}) {
    auto object = own(root_->getChildObject(S(dir_.join(file))));
    ASSERT_NE(object, nullptr) << file;
    EXPECT_EQ(object->getName().toStdString(), nameOf(rows, dir_.join(file))) << file;
  }
}

TEST_F(ListingEndToEnd, StockObjectsAreFoundByThePluginsName) {
  auto folder = own(vault_->getStockFolder(0, true));
  ASSERT_NE(folder, nullptr) << vault_->getErrorMessage().asCstr();
  const std::string path = folder->getPath().toStdString();
  qztest::writeFile(path + "/p.job.def", "name Payroll run\n");
  qztest::writeFile(path + "/q.job.def", "name Quarter close\n");
  auto object = own(vault_->getStockObject(0, S("Payroll run")));
  ASSERT_NE(object, nullptr) << vault_->getErrorMessage().asCstr();
  EXPECT_EQ(object->getFileName(true).toStdString(), "p.job.def");
  EXPECT_EQ(object->getName().toStdString(), "Payroll run");
  EXPECT_EQ(vault_->getStockObject(0, S("payroll run")), nullptr);
  EXPECT_EQ(vault_->getErrorMessage().toStdString(), "Object with name 'payroll run' Not found");
}

TEST_F(ListingEndToEnd, AnObjectCreatedFromAPluginFileIsListedUnderItsNewName) {
  qztest::writeFile(dir_.join("draft.tmeta"), "name Draft\n");
  qztest::setMtime(dir_.join("draft.tmeta"), 1500000000);  // so that the save makes it newer
  list();
  auto object = own(root_->createObjectFromFile(S("draft.tmeta"), S("Final report")));
  ASSERT_NE(object, nullptr) << root_->getErrorMessage().asCstr();
  changeDirectoryTime();
  const Rows rows = list();
  EXPECT_EQ(nameOf(rows, dir_.join("draft.tmeta")), "Final report");
}

}  // namespace
