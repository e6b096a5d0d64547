// Numbered versions of an object's file: creation, the highest number, version
// file names and dates, and roll-back, including a version directory holding
// stray entries and version numbers out of range.
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::LogCapture;
using qztest::readFile;
using qztest::pathExists;
using qztest::S;

class ObjectVersions : public qztest::ObjectTest {
 protected:
  // plan.txt with versions holding "v1".."vN" and the current content "now".
  void makeVersions(int count) {
    for (int number = 1; number <= count; ++number) {
      qztest::writeFile(version("plan.txt", number), "v" + std::to_string(number));
    }
  }
  void SetUp() override {
    add("plan.txt", "now");
    qztest::makeDirs(versionDir());
  }
};

TEST_F(ObjectVersions, AnObjectWithoutVersionsHasHighestVersionZero) {
  qztest::removeTree(versionDir());
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), 0);
  EXPECT_FALSE(pathExists(versionDir()));  // looking makes nothing
}

TEST_F(ObjectVersions, TheFirstVersionMakesTheVersionDirectoryAndVersionOne) {
  qztest::removeTree(versionDir());
  auto object = open("plan.txt");
  ASSERT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
  EXPECT_EQ(qztest::listDirectory(versionDir()), std::vector<std::string>{"plan.txt.1"});
  EXPECT_EQ(readFile(version("plan.txt", 1)), "now");
  // The current file is gone until the caller writes it again.
  EXPECT_FALSE(pathExists(dir_.join("plan.txt")));
  EXPECT_EQ(object->getHighestVersion(), 1);
}

TEST_F(ObjectVersions, EachNewVersionTakesTheNextNumber) {
  auto object = open("plan.txt");
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
    add("plan.txt", "after " + std::to_string(round));
  }
  EXPECT_EQ(object->getHighestVersion(), 3);
  EXPECT_EQ(readFile(version("plan.txt", 1)), "now");
  EXPECT_EQ(readFile(version("plan.txt", 3)), "after 2");
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "after 3");
}

TEST_F(ObjectVersions, NumbersContinueAfterAGap) {
  qztest::writeFile(version("plan.txt", 1), "v1");
  qztest::writeFile(version("plan.txt", 3), "v3");
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), 3);
  ASSERT_TRUE(object->createVersion());
  EXPECT_EQ(readFile(version("plan.txt", 4)), "now");
}

TEST_F(ObjectVersions, OtherObjectsAndVaultFilesInTheDirectoryDoNotCount) {
  qztest::writeFile(version("plan.txt", 2), "v2");
  qztest::writeFile(versionDir() + "/other.txt.9", "x");
  qztest::writeFile(versionDir() + "/.plan.txt.tmp", "x");  // a vault file: skipped
  qztest::writeFile(versionDir() + "/notes", "x");
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), 2);
}

TEST_F(ObjectVersions, AnEntryThatMerelyBeginsWithTheFileNameCountsToo) {
  // The prefix test does not ask for the dot after the file name.
  qztest::writeFile(version("plan.txt", 2), "v2");
  qztest::writeFile(versionDir() + "/plan.txt2.7", "of another object");
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), 7);
}

TEST_F(ObjectVersions, AStrayFileNotEndingInDigitsFailsTheCount) {
  qztest::writeFile(version("plan.txt", 1), "v1");
  qztest::writeFile(versionDir() + "/plan.txtx", "stray");
  auto object = open("plan.txt");
  LogCapture log;
  EXPECT_EQ(object->getHighestVersion(), -1);
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Invalid version file (must end in digits)");
  EXPECT_TRUE(log.contains("Invalid version file (must end in digits)", 5)) << log.dump();
  // Nothing was touched.
  EXPECT_EQ(qztest::listDirectory(versionDir()),
            (std::vector<std::string>{"plan.txt.1", "plan.txtx"}));
}

TEST_F(ObjectVersions, AStrayDirectoryFailsTheCountAsWell) {
  qztest::writeFile(version("plan.txt", 1), "v1");
  qztest::makeDirs(versionDir() + "/plan.txt.backup");
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), -1);
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Invalid version file (must end in digits)");
}

TEST_F(ObjectVersions, AfterAFailedCountTheNewVersionIsNumberedZero) {
  // -1 + 1: follows from the arithmetic and is kept.
  qztest::writeFile(versionDir() + "/plan.txtx", "stray");
  auto object = open("plan.txt");
  ASSERT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(version("plan.txt", 0)), "now");
  EXPECT_FALSE(pathExists(dir_.join("plan.txt")));
}

TEST_F(ObjectVersions, AVersionNumberedAtTheTopOfTheRangeDoesNotOverflow) {
  qztest::writeFile(version("plan.txt", INT_MAX), "top");
  auto object = open("plan.txt");
  EXPECT_EQ(object->getHighestVersion(), INT_MAX);
  ASSERT_TRUE(object->createVersion()) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(versionDir() + "/plan.txt.2147483648"), "now");
}

TEST_F(ObjectVersions, VersionFileNameOfAMissingVersionIsNull) {
  qztest::writeFile(version("plan.txt", 1), "v1");
  qztest::writeFile(version("plan.txt", 3), "v3");
  auto object = open("plan.txt");
  LogCapture log;
  QzbDate date;
  date.assign(2001, 2, 3, 4, 5, 6, 0);
  EXPECT_TRUE(object->getVersionFileName(2, &date).isNull());
  EXPECT_EQ(object->getErrorMessage().toStdString(), "File does not exist");
  EXPECT_TRUE(log.contains("File does not exist", 5)) << log.dump();
  // Numbers with no file at all, however odd, give the same answer.
  EXPECT_TRUE(object->getVersionFileName(0, nullptr).isNull());
  EXPECT_TRUE(object->getVersionFileName(-4, nullptr).isNull());
  EXPECT_TRUE(object->getVersionFileName(INT_MAX, nullptr).isNull());
}

TEST_F(ObjectVersions, VersionFileNameGivesThePathAndTheFilesDate) {
  qztest::writeFile(version("plan.txt", 3), "v3");
  const long long seconds = 1300000000;  // a fixed moment; compared as a local date
  qztest::setMtime(version("plan.txt", 3), seconds);
  auto object = open("plan.txt");
  QzbDate date;
  const QzbString path = object->getVersionFileName(3, &date);
  EXPECT_EQ(path.toStdString(), version("plan.txt", 3));
  EXPECT_FALSE(date.isNull());
  EXPECT_EQ(date, qzviSeconds2QzbDate(seconds));
  // Without a date only the path is given.
  EXPECT_EQ(object->getVersionFileName(3, nullptr).toStdString(), version("plan.txt", 3));
}

TEST_F(ObjectVersions, RollbackFallsBackToTheNearestOlderVersionAndDropsNewerOnes) {
  qztest::writeFile(version("plan.txt", 1), "v1");
  qztest::writeFile(version("plan.txt", 3), "v3");
  auto object = open("plan.txt");
  ASSERT_TRUE(object->rollbackVersion(2)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v1");
  EXPECT_TRUE(qztest::listDirectory(versionDir()).empty());
  EXPECT_FALSE(pathExists(dir_.join("plan.txt.bak")));
  EXPECT_EQ(object->getHighestVersion(), 0);
}

TEST_F(ObjectVersions, RollbackToAnExistingVersionKeepsTheOlderOnes) {
  makeVersions(4);
  auto object = open("plan.txt");
  ASSERT_TRUE(object->rollbackVersion(3)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v3");
  EXPECT_EQ(qztest::listDirectory(versionDir()),
            (std::vector<std::string>{"plan.txt.1", "plan.txt.2"}));
  EXPECT_EQ(object->getHighestVersion(), 2);
  EXPECT_FALSE(pathExists(dir_.join("plan.txt.bak")));
}

TEST_F(ObjectVersions, RollbackToVersionZeroOrBelowIsRefused) {
  makeVersions(2);
  auto object = open("plan.txt");
  for (int number : {0, -1, INT_MIN}) {
    LogCapture log;
    EXPECT_FALSE(object->rollbackVersion(number));
    EXPECT_EQ(object->getErrorMessage().toStdString(), "Invalid rollback version number");
    EXPECT_TRUE(log.contains("Invalid rollback version number", 5)) << log.dump();
  }
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "now");
  EXPECT_EQ(object->getHighestVersion(), 2);
}

TEST_F(ObjectVersions, RollbackFarAboveTheHighestTakesTheHighest) {
  makeVersions(3);
  auto object = open("plan.txt");
  ASSERT_TRUE(object->rollbackVersion(INT_MAX)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v3");
  EXPECT_EQ(qztest::listDirectory(versionDir()),
            (std::vector<std::string>{"plan.txt.1", "plan.txt.2"}));
}

TEST_F(ObjectVersions, RollbackWithoutAnyVersionFails) {
  auto object = open("plan.txt");
  LogCapture log;
  EXPECT_FALSE(object->rollbackVersion(1));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "No valid file for rollback operation");
  EXPECT_TRUE(log.contains("No valid file for rollback operation", 5)) << log.dump();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "now");
}

TEST_F(ObjectVersions, RollbackWithoutACurrentFilePutsTheVersionInItsPlace) {
  // The version takes the object's place in one rename, which needs no
  // current file to set aside first; the newer versions go as in any
  // rollback.
  makeVersions(1);
  auto object = open("plan.txt");
  ASSERT_TRUE(object->createVersion());  // plan.txt is now version 2; no current file
  ASSERT_FALSE(pathExists(dir_.join("plan.txt")));
  ASSERT_TRUE(object->rollbackVersion(1)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v1");
  EXPECT_FALSE(pathExists(dir_.join("plan.txt.bak")));
  EXPECT_TRUE(qztest::listDirectory(versionDir()).empty());
}

TEST_F(ObjectVersions, RollbackBesideAStrayFileKeepsTheNewerVersions) {
  // The count fails (-1), so no newer version is known and none is removed.
  makeVersions(3);
  qztest::writeFile(versionDir() + "/plan.txt.old", "stray");
  auto object = open("plan.txt");
  ASSERT_TRUE(object->rollbackVersion(2)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v2");
  EXPECT_EQ(qztest::listDirectory(versionDir()),
            (std::vector<std::string>{"plan.txt.1", "plan.txt.3", "plan.txt.old"}));
  // A number far above the versions present still finds the newest one.
  ASSERT_TRUE(object->rollbackVersion(INT_MAX)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(readFile(dir_.join("plan.txt")), "v3");
}

TEST_F(ObjectVersions, ADeletedObjectCannotBuildItsVersionPaths) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->deleteSelf()) << object->getErrorMessage().asCstr();
  LogCapture log;
  EXPECT_EQ(object->getHighestVersion(), -1);
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Pathname creation error");
  EXPECT_TRUE(log.contains("Pathname creation error", 5)) << log.dump();
  EXPECT_TRUE(object->getVersionFileName(1, nullptr).isNull());
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Pathname creation error");
  EXPECT_FALSE(object->createVersion());
  EXPECT_EQ(object->getErrorMessage().toStdString(), "Pathname creation error");
}

}  // namespace
