// An object's metadata analysis: analyzeImpact records what the file's plug-in
// says it uses in the impact store and stamps the analysis with the file's
// date (and skips a file unchanged since); refreshMetadata re-reads the cached
// attributes; rename, move and delete withdraw the object from the store
// first.
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "object_impl.h"
#include "platform_override.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::LogCapture;
using qztest::Owned;
using qztest::Rows;
using qztest::S;

const long long kFileTime = 1300000000;  // a fixed modification time

class ObjectAnalysis : public qztest::ObjectTest {
 protected:
  ObjectAnalysis() : ObjectTest(true) {}
  void SetUp() override { counters_ = qztest::TestMetaRegistry::counters(); }

  // plan.tmeta using two data files, dated kFileTime (its status change is
  // "now", after that date, which the skip test reads as unchanged).
  std::string addPlan(const std::string& extra = "") {
    const std::string path = add("plan.tmeta", "name Plan\n"
                                               "dep DataFile|orders.csv|/feeds/orders.csv\n"
                                               "dep DataFile|prices.csv|/feeds/prices.csv\n" +
                                                   extra);
    qztest::setMtime(path, kFileTime);
    return path;
  }
  std::string imd() const { return dir_.join(".v_imd"); }
  // (name, type, analysis date) of the resource with that identity.
  Rows resource(const std::string& identity) {
    return qztest::query(imd(), "SELECT name, res_type, mod_date FROM v_imparcs WHERE res_idty = " +
                                    qztest::sqlText(identity));
  }
  // Identities of the resources recorded as dependents of `identity`.
  Rows dependents(const std::string& identity) {
    return qztest::query(
        imd(), "SELECT d.res_idty FROM v_impadeps e JOIN v_imparcs d ON d.id = e.res_id "
               "JOIN v_imparcs u ON u.id = e.res_used WHERE u.res_idty = " +
                   qztest::sqlText(identity) + " ORDER BY d.res_idty");
  }
  static std::string dateText(long long seconds) {
    return qztest::query(":memory:", "SELECT " + std::to_string(
                                                     qzviSeconds2QzbDate(seconds).asDouble()))[0][0]
        .value();
  }
  int opened() const { return counters_->openCalls.load(); }
  int listed() const { return counters_->dependencyLists.load(); }

  QzTestMetaCounters* counters_ = nullptr;
};

TEST_F(ObjectAnalysis, TheDependenciesAndTheFilesDateAreRecorded) {
  const std::string path = addPlan();
  auto object = open("plan.tmeta");
  ASSERT_TRUE(object->analyzeImpact(nullptr)) << object->getErrorMessage().asCstr();
  EXPECT_EQ(resource(path), (Rows{{Cell("plan.tmeta"), Cell("TestMeta"), Cell(dateText(kFileTime))}}));
  EXPECT_EQ(dependents(path), (Rows{{Cell("/feeds/orders.csv")}, {Cell("/feeds/prices.csv")}}));
  EXPECT_EQ(listed(), 1);
  EXPECT_TRUE(object->getErrorMessage().isEmpty());
}

TEST_F(ObjectAnalysis, AnUnchangedFileIsNotAnalysedAgain) {
  addPlan();
  auto object = open("plan.tmeta");
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  const int openedBefore = opened();
  const int listedBefore = listed();
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(opened(), openedBefore);  // the skip test comes before the plug-in
  EXPECT_EQ(listed(), listedBefore);
}

TEST_F(ObjectAnalysis, AChangedFileIsAnalysedAgainAndItsDependenciesReplaced) {
  const std::string path = addPlan();
  auto object = open("plan.tmeta");
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  qztest::writeFile(path, "dep DataFile|stock.csv|/feeds/stock.csv\n");
  qztest::setMtime(path, kFileTime + 3600);
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(listed(), 2);
  EXPECT_EQ(dependents(path), (Rows{{Cell("/feeds/stock.csv")}}));
  EXPECT_EQ(resource(path)[0][2], Cell(dateText(kFileTime + 3600)));
}

// The skip test, exactly: the recorded date equals the file's, and the
// modification time less the status-change time, as unsigned 64-bit, is
// greater than 1. The status-change time is set through the platform layer.
int64_t g_ctimeOffset = 0;  // status-change time = modification time + offset
int statWithChosenCtime(const char* path, NpStat* status) {
  const int result = npDefaultPlatformOps()->fio_stat(path, status);
  const std::size_t length = std::strlen(path);
  const char suffix[] = "/plan.tmeta";
  if (result == NP_OK && status != nullptr && length >= sizeof suffix - 1 &&
      std::strcmp(path + length - (sizeof suffix - 1), suffix) == 0) {
    status->ctime = status->mtime + g_ctimeOffset;
  }
  return result;
}

TEST_F(ObjectAnalysis, TheSkipTestComparesModificationAndStatusChangeTimesAsUnsigned) {
  addPlan();
  auto object = open("plan.tmeta");
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.fio_stat = statWithChosenCtime;
  qztest::PlatformOverride override(ops);
  struct Case {
    int64_t offset;
    bool skipped;
  };
  // 0 and -1: a difference of 0 or 1 second is not "greater than 1".
  // -2: two seconds. +1: negative, which wraps to a huge unsigned value.
  for (const Case& c : {Case{0, false}, Case{-1, false}, Case{-2, true}, Case{1, true},
                        Case{1000000, true}}) {
    g_ctimeOffset = c.offset;
    const int before = listed();
    ASSERT_TRUE(object->analyzeImpact(nullptr));
    EXPECT_EQ(listed() == before, c.skipped) << "offset " << c.offset;
  }
}

TEST_F(ObjectAnalysis, AFileWithoutAPlugInIsRecordedWithNoDependencies) {
  const std::string path = add("notes.txt");
  qztest::setMtime(path, kFileTime);
  auto object = open("notes.txt");
  ASSERT_TRUE(object->analyzeImpact(nullptr)) << object->getErrorMessage().asCstr();
  Rows rows = resource(path);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][2], Cell(dateText(kFileTime)));
  EXPECT_TRUE(dependents(path).empty());
  EXPECT_EQ(opened(), 0);
}

TEST_F(ObjectAnalysis, AFileThePlugInCannotOpenIsRecordedWithNoDependencies) {
  const std::string path = addPlan("fail open\n");
  auto object = open("plan.tmeta");
  const int openedBefore = opened();
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(opened(), openedBefore + 1);
  EXPECT_EQ(resource(path)[0][2], Cell(dateText(kFileTime)));
  EXPECT_TRUE(dependents(path).empty());
  EXPECT_TRUE(object->getErrorMessage().isEmpty());
  EXPECT_EQ(counters_->filesReleased.load(), counters_->filesOpened.load());
}

TEST_F(ObjectAnalysis, AFailedListingLeavesTheDateUnsetAndTheMessage) {
  const std::string path = addPlan("fail dependencies\n");
  auto object = open("plan.tmeta");
  LogCapture log;
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(object->getErrorMessage().toStdString(),
            "Error analyzing dependencies from metadata file");
  EXPECT_TRUE(log.contains("Error analyzing dependencies from metadata file", 5)) << log.dump();
  EXPECT_EQ(resource(path), (Rows{{Cell("plan.tmeta"), Cell("TestMeta"), std::nullopt}}));
  EXPECT_TRUE(dependents(path).empty());
  // Not skipped next time: the date was not recorded.
  const int before = listed();
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(listed(), before + 1);
  EXPECT_EQ(counters_->filesReleased.load(), counters_->filesOpened.load());
}

TEST_F(ObjectAnalysis, AFailedRecordingOfTheEdgesIsReportedAndTheDateStillSet) {
  const std::string path = addPlan();
  auto object = open("plan.tmeta");
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  qztest::execute(imd(), "CREATE TRIGGER t BEFORE INSERT ON v_impadeps "
                         "BEGIN SELECT RAISE(ABORT, 'edges refused'); END");
  qztest::writeFile(path, "dep DataFile|stock.csv|/feeds/stock.csv\n");
  qztest::setMtime(path, kFileTime + 60);
  ASSERT_TRUE(object->analyzeImpact(nullptr));
  EXPECT_EQ(object->getErrorMessage().toStdString(), "edges refused");
  EXPECT_EQ(resource(path)[0][2], Cell(dateText(kFileTime + 60)));
}

TEST_F(ObjectAnalysis, AMissingFileIsReportedByTheResultAlone) {
  const std::string path = addPlan();
  auto object = open("plan.tmeta");
  qztest::removeTree(path);
  EXPECT_FALSE(object->analyzeImpact(nullptr));
  EXPECT_TRUE(object->getErrorMessage().isEmpty());
  EXPECT_FALSE(qztest::pathExists(imd()));
}

TEST_F(ObjectAnalysis, AnUnusableStoreIsReportedByTheResultAlone) {
  addPlan();
  auto object = open("plan.tmeta");
  qztest::writeFile(imd(), std::string(4096, 'x'));
  const int before = opened();
  EXPECT_FALSE(object->analyzeImpact(nullptr));
  EXPECT_TRUE(object->getErrorMessage().isEmpty());
  EXPECT_EQ(opened(), before);
}

// A resolver that records what it was asked.
class CountingResolver : public QzResourceResolver {
 public:
  bool resolveResource(const QzbString&, const QzbString&, const QzbString&, QzbString*,
                       QzbString* location) override {
    ++calls;
    *location = S("resolved here");
    return true;
  }
  QzResource* getResourceForURI(const QzbString&) override { return nullptr; }
  int calls = 0;
};

TEST_F(ObjectAnalysis, TheCallersResolverIsUsedDuringTheAnalysis) {
  addPlan();
  auto object = open("plan.tmeta");
  CountingResolver resolver;
  ASSERT_TRUE(object->analyzeImpact(&resolver));
  EXPECT_GT(resolver.calls, 0);
}

TEST_F(ObjectAnalysis, RefreshRereadsTheFileEvenWhenUnchanged) {
  add("plan.tmeta", "attr Colour 0 0 red\n");
  auto object = open("plan.tmeta");
  const int before = opened();
  ASSERT_TRUE(object->refreshMetadata());
  ASSERT_TRUE(object->refreshMetadata());
  EXPECT_EQ(opened(), before + 2);
  EXPECT_EQ(qztest::query(dir_.join(".v_cmd"),
                          "SELECT v0 FROM v_attr WHERE fname = 'plan.tmeta' AND attr = 'Colour'"),
            (Rows{{Cell("red")}}));
}

TEST_F(ObjectAnalysis, AFailedRefreshGoesToTheDiagnosticLogOnly) {
  add("plan.tmeta", "attr Colour 0 0 red\n");
  auto object = open("plan.tmeta");
  qztest::writeFile(dir_.join(".v_cmd"), std::string(4096, 'x'));
  LogCapture log;
  EXPECT_FALSE(object->refreshMetadata());
  EXPECT_TRUE(object->getErrorMessage().isEmpty());
  EXPECT_TRUE(log.contains("Error refreshing cached file attributes for refreshMetadata() on "
                           "object plan.tmeta: Error opening " +
                               dir_.join(".v_cmd") + ": file is not a database",
                           2))
      << log.dump();
}

// ---------------------------------------------------------------------------
// Withdrawal from the store before a rename, move or delete

class ObjectWithdrawal : public ObjectAnalysis {
 protected:
  void SetUp() override {
    ObjectAnalysis::SetUp();
    path_ = addPlan();
    object_ = open("plan.tmeta");
    ASSERT_TRUE(object_->analyzeImpact(nullptr));
    ASSERT_EQ(dependents(path_).size(), 2u);
  }
  int resourceCount() {
    return std::stoi(qztest::query(imd(), "SELECT count(*) FROM v_imparcs")[0][0].value());
  }
  std::string path_;
  Owned<QzvObjectImpl> object_;
};

TEST_F(ObjectWithdrawal, AFileRenameRemovesTheObjectAndWhatOnlyItUsed) {
  ASSERT_TRUE(object_->fileRename(S("renamed.tmeta"))) << object_->getErrorMessage().asCstr();
  EXPECT_TRUE(resource(path_).empty());
  EXPECT_EQ(resourceCount(), 0);
  // Analysed afresh under the new name.
  ASSERT_TRUE(object_->analyzeImpact(nullptr));
  EXPECT_EQ(dependents(dir_.join("renamed.tmeta")).size(), 2u);
}

TEST_F(ObjectWithdrawal, AMoveRemovesTheObject) {
  qztest::makeDirs(dir_.join("archive"));
  Owned<QzvFolderImpl> destination(new QzvFolderImpl());
  destination->init(S(dir_.join("archive")), QzbString(), vault_.get());
  ASSERT_TRUE(object_->moveSelf(destination.get())) << object_->getErrorMessage().asCstr();
  EXPECT_TRUE(resource(path_).empty());
  EXPECT_EQ(resourceCount(), 0);
}

TEST_F(ObjectWithdrawal, ADeleteRemovesTheObject) {
  ASSERT_TRUE(object_->deleteSelf());
  EXPECT_TRUE(resource(path_).empty());
  EXPECT_EQ(resourceCount(), 0);
}

TEST_F(ObjectWithdrawal, AResourceOthersStillUseIsKept) {
  add("other.tmeta", "dep DataFile|orders.csv|/feeds/orders.csv\n");
  auto other = open("other.tmeta");
  ASSERT_TRUE(other->analyzeImpact(nullptr));
  ASSERT_TRUE(object_->deleteSelf());
  EXPECT_TRUE(resource(path_).empty());
  EXPECT_EQ(dependents(dir_.join("other.tmeta")), (Rows{{Cell("/feeds/orders.csv")}}));
  EXPECT_TRUE(resource("/feeds/prices.csv").empty());
}

TEST_F(ObjectWithdrawal, AFailedWithdrawalIsReportedButDoesNotStopTheRename) {
  qztest::execute(imd(), "CREATE TRIGGER t BEFORE DELETE ON v_impadeps "
                         "BEGIN SELECT RAISE(ABORT, 'edges stay'); END");
  LogCapture log;
  ASSERT_TRUE(object_->fileRename(S("renamed.tmeta")));
  EXPECT_EQ(object_->getErrorMessage().toStdString(), "edges stay");
  EXPECT_TRUE(log.contains("edges stay", 5)) << log.dump();
  EXPECT_TRUE(qztest::pathExists(dir_.join("renamed.tmeta")));
  EXPECT_EQ(dependents(path_).size(), 2u);  // nothing was withdrawn
}

TEST_F(ObjectWithdrawal, AnUnusableStoreDoesNotStopTheDelete) {
  qztest::writeFile(imd(), std::string(4096, 'x'));
  ASSERT_TRUE(object_->deleteSelf());
  EXPECT_FALSE(qztest::pathExists(path_));
}

}  // namespace
