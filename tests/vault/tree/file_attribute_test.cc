// Attributes kept inside a file (QzvFileAttributeImpl), reached through the
// "qzvmdtestmeta" test plug-in, which reads and writes them as "attr" lines.
#include <gtest/gtest.h>

#include <string>

#include "attribute_impl.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "vault_test_util.h"

namespace {

using qztest::own;
using qztest::Owned;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;
using qztest::TestMetaRegistry;

const char kReport[] =
    "name Monthly sales\n"
    "attr Owner 0 0 alice\n"
    "attr Owner 1 0 bob\n"
    "attr Owner 1 2 deputy\n"
    "readonly Locked\n"
    "attr Locked 0 0 fixed\n"
    "attr Wide 0 11 beyond the tenth column\n"
    "attr Wide 0 9 tenth\n";

std::string valueOf(const QzbString& value) {
  return value.isNull() ? std::string("<null>") : value.toStdString();
}

class FileAttributeTest : public ::testing::Test {
 protected:
  FileAttributeTest() : vault_(dir_.path(), plugins_.get()) {
    qztest::writeFile(dir_.join("sales.tmeta"), kReport);
  }

  // The attribute `name` of `file`, or null when init fails.
  Owned<QzvFileAttributeImpl> open(const std::string& file, const std::string& name) {
    Owned<QzvFileAttributeImpl> attribute(new QzvFileAttributeImpl());
    if (!attribute->init(vault_.get(), S(dir_.path()), S(file), S(name))) {
      // A failed init leaves no message.
      EXPECT_TRUE(attribute->getErrorMessage().isNull());
      return Owned<QzvFileAttributeImpl>();
    }
    return attribute;
  }

  // Every metadata file the plug-in opened has been released.
  void expectNoOpenFiles() {
    auto* counters = TestMetaRegistry::counters();
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->filesOpened.load(), counters->filesReleased.load());
  }

  TestMetaRegistry plugins_;
  TempDir dir_;
  ScopedVault vault_;
};

TEST_F(FileAttributeTest, ReadsTheAttributeThePlugInReports) {
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  EXPECT_EQ(owner->getName().toStdString(), "Owner");
  EXPECT_FALSE(owner->isReadOnly());
  EXPECT_EQ(owner->numRows(), 2);
  EXPECT_EQ(valueOf(owner->getSingletonValue()), "alice");
  EXPECT_EQ(valueOf(owner->getValue(0, 0)), "alice");
  EXPECT_EQ(valueOf(owner->getValue(0, 1)), "bob");
  EXPECT_EQ(valueOf(owner->getValue(2, 1)), "deputy");
  EXPECT_EQ(valueOf(owner->getValue(1, 1)), "<null>");
  owner.reset();
  expectNoOpenFiles();
}

TEST_F(FileAttributeTest, OutOfRangeCellsAreNullWithoutAskingThePlugIn) {
  auto wide = open("sales.tmeta", "Wide");
  ASSERT_NE(wide, nullptr);
  ASSERT_EQ(wide->numRows(), 1);
  EXPECT_EQ(valueOf(wide->getValue(9, 0)), "tenth");
  // The plug-in holds a twelfth column, but only ten are ever offered.
  EXPECT_TRUE(wide->getValue(11, 0).isNull());
  EXPECT_TRUE(wide->getValue(10, 0).isNull());
  EXPECT_TRUE(wide->getValue(-1, 0).isNull());
  EXPECT_TRUE(wide->getValue(9, 1).isNull());
  EXPECT_TRUE(wide->getValue(9, -1).isNull());
}

TEST_F(FileAttributeTest, TheReadOnlyFlagIsThePlugInsAndItsValuesCannotBeChanged) {
  auto locked = open("sales.tmeta", "Locked");
  ASSERT_NE(locked, nullptr);
  EXPECT_TRUE(locked->isReadOnly());
  locked->setValue(0, 0, S("changed"));
  locked->clear();
  EXPECT_EQ(valueOf(locked->getSingletonValue()), "fixed");
}

TEST_F(FileAttributeTest, NamesAreComparedWithLetterCase) {
  EXPECT_EQ(open("sales.tmeta", "owner"), nullptr);
  EXPECT_EQ(open("sales.tmeta", "OWNER"), nullptr);
  EXPECT_NE(open("sales.tmeta", "Owner"), nullptr);
  expectNoOpenFiles();
}

TEST_F(FileAttributeTest, InitFailsWithoutMessageWhenThereIsNoSuchAttributeOrFileOrPlugIn) {
  EXPECT_EQ(open("sales.tmeta", "Missing"), nullptr);
  qztest::writeFile(dir_.join("notes.txt"), "attr Owner 0 0 alice\n");
  EXPECT_EQ(open("notes.txt", "Owner"), nullptr);     // no plug-in for the type
  EXPECT_EQ(open("absent.tmeta", "Owner"), nullptr);  // the plug-in cannot open it
  qztest::writeFile(dir_.join("broken.tmeta"), "fail open\nattr Owner 0 0 alice\n");
  EXPECT_EQ(open("broken.tmeta", "Owner"), nullptr);
  EXPECT_EQ(open("../sales.tmeta", "Owner"), nullptr);  // the path cannot be joined
  expectNoOpenFiles();
}

TEST_F(FileAttributeTest, ChangesReachTheFileOnCommit) {
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  owner->setValue(0, 0, S("carol"));
  owner->setValue(4, 3, S("new row"));
  // Rows added by setValue read back at once.
  EXPECT_EQ(owner->numRows(), 4);
  EXPECT_EQ(valueOf(owner->getValue(4, 3)), "new row");
  // Nothing is written before commit.
  EXPECT_EQ(qztest::readFile(dir_.join("sales.tmeta")), kReport);
  const int commitsBefore = TestMetaRegistry::counters()->commits.load();
  ASSERT_TRUE(owner->commit());
  EXPECT_EQ(TestMetaRegistry::counters()->commits.load(), commitsBefore + 1);
  owner.reset();

  auto again = open("sales.tmeta", "Owner");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->numRows(), 4);
  EXPECT_EQ(valueOf(again->getValue(0, 0)), "carol");
  EXPECT_EQ(valueOf(again->getValue(0, 1)), "bob");
  EXPECT_EQ(valueOf(again->getValue(4, 3)), "new row");
  // The other attributes and the name are kept.
  auto locked = open("sales.tmeta", "Locked");
  ASSERT_NE(locked, nullptr);
  EXPECT_EQ(valueOf(locked->getSingletonValue()), "fixed");
}

TEST_F(FileAttributeTest, SetValueIgnoresANegativeRowAndAColumnOutsideTheTen) {
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  owner->setValue(0, -1, S("a"));
  owner->setValue(10, 0, S("b"));
  owner->setValue(-1, 0, S("c"));
  EXPECT_EQ(owner->numRows(), 2);
  ASSERT_TRUE(owner->commit());
  owner.reset();
  const std::string content = qztest::readFile(dir_.join("sales.tmeta"));
  EXPECT_EQ(content.find(" a\n"), std::string::npos) << content;
  EXPECT_EQ(content.find(" b\n"), std::string::npos) << content;
  EXPECT_EQ(content.find(" c\n"), std::string::npos) << content;
  auto again = open("sales.tmeta", "Owner");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(valueOf(again->getValue(0, 0)), "alice");
  EXPECT_EQ(again->numRows(), 2);
}

TEST_F(FileAttributeTest, ARowBeyondTheLimitNeverReachesThePlugIn) {
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  owner->setValue(0, QZV_ATTR_MAX_ROWS, S("far"));
  EXPECT_EQ(owner->numRows(), 2);
  const int commitsBefore = TestMetaRegistry::counters()->commits.load();
  EXPECT_FALSE(owner->commit());
  EXPECT_EQ(valueOf(owner->getErrorMessage()),
            "Row 100000 is beyond the last row an attribute may have (99999)");
  EXPECT_EQ(TestMetaRegistry::counters()->commits.load(), commitsBefore);
  EXPECT_EQ(qztest::readFile(dir_.join("sales.tmeta")), kReport);
  // Reported once: the next commit is the plug-in's again.
  EXPECT_TRUE(owner->commit());
}

TEST_F(FileAttributeTest, ClearIsHandedToThePlugIn) {
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  owner->clear();
  EXPECT_EQ(owner->numRows(), 1);
  EXPECT_TRUE(owner->getSingletonValue().isNull());
  ASSERT_TRUE(owner->commit());
  owner.reset();
  auto again = open("sales.tmeta", "Owner");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->numRows(), 1);
  EXPECT_TRUE(again->getValue(0, 0).isNull());
  EXPECT_TRUE(again->getValue(2, 0).isNull());
}

TEST_F(FileAttributeTest, CommitReturnsThePlugInsResult) {
  const std::string content = std::string("fail commit\n") + kReport;
  qztest::writeFile(dir_.join("stubborn.tmeta"), content);
  auto owner = open("stubborn.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  owner->setValue(0, 0, S("carol"));
  EXPECT_FALSE(owner->commit());
  EXPECT_EQ(qztest::readFile(dir_.join("stubborn.tmeta")), content);
}

TEST_F(FileAttributeTest, ReleaseReleasesTheMetadataFile) {
  auto* counters = TestMetaRegistry::counters();
  ASSERT_NE(counters, nullptr);
  const int openedBefore = counters->filesOpened.load();
  const int releasedBefore = counters->filesReleased.load();
  auto owner = open("sales.tmeta", "Owner");
  ASSERT_NE(owner, nullptr);
  EXPECT_EQ(counters->filesOpened.load(), openedBefore + 1);
  EXPECT_EQ(counters->filesReleased.load(), releasedBefore);
  owner.reset();
  EXPECT_EQ(counters->filesReleased.load(), releasedBefore + 1);
}

}  // namespace
