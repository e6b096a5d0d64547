// The analysis object itself: construction, the resolver slot, the error
// message that survives successes, ids, transactions with the busy retry (the
// waits are switched off here; impact_busy_slow_test waits for real), and the
// refusal of a store that is read-only or not a database.
//
// Read-only stores: tests run as root, which may write any file, so those
// checks run in a forked child that drops to user nobody (runAsNobody) after
// the file was made 0444 and the directory reachable.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "impact_fixture.h"
#include "metadata_db.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/privileges.h"

namespace {

using qztest::ConfigKey;
using qztest::FakeResolver;
using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::RawStore;
using qztest::ResourcePtr;
using qztest::str;

const char kBusyNotice[] =
    "Detected SQLite aquisition timeout, waiting 5 seconds and trying again.";
const char kLineage[] = "QZ.Repos.Vault.Lineage";

// Records np_proc_sleep calls (and their arguments) without sleeping, for the
// life of the object.
class SleepRecorder {
 public:
  SleepRecorder() {
    table_ = *npGetPlatformOps();
    table_.proc_sleep = &SleepRecorder::recordSleep;
    previous_ = npSetPlatformOps(&table_);
    seconds().clear();
  }
  ~SleepRecorder() { npSetPlatformOps(previous_); }
  SleepRecorder(const SleepRecorder&) = delete;
  SleepRecorder& operator=(const SleepRecorder&) = delete;

  static std::vector<int>& seconds() {
    static std::vector<int> calls;
    return calls;
  }

 private:
  static int recordSleep(int secondsToSleep) {
    seconds().push_back(secondsToSleep);
    return 0;
  }
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

// An open connection of the analysis object's own kind, closed on scope exit.
class StoreConnection {
 public:
  explicit StoreConnection(QzvVaultImpl* vault) : vault_(vault) {
    QzbString error;
    connection_ = qzviOpenDB(vault->rootPath(), ".v_imd", &error, vault->dbCache());
    EXPECT_NE(connection_, nullptr) << str(error);
  }
  ~StoreConnection() {
    if (connection_ != nullptr) qzviCloseDB(connection_, vault_->dbCache());
  }
  SqliteConnection* get() const { return connection_; }

 private:
  QzvVaultImpl* vault_;
  SqliteConnection* connection_;
};

TEST_F(ImpactTest, NewObjectHasAnEmptyMessageAndNoResolver) {
  EXPECT_FALSE(analysis_->getErrorMessage().isNull());
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
  EXPECT_EQ(analysis_->getResourceResolver(), nullptr);
  EXPECT_EQ(analysis_->vault(), vault_);
}

TEST(ImpactWithoutVault, EveryOperationFailsCleanly) {
  QzvImpactAnalysisImpl* orphan = new QzvImpactAnalysisImpl(nullptr);
  EXPECT_EQ(orphan->getResource(QzbString("File"), QzbString("/a")), nullptr);
  EXPECT_EQ(str(orphan->getErrorMessage()), "The analysis object has no vault");
  EXPECT_EQ(orphan->createResource(QzbString("a"), QzbString("File"), QzbString("/a")), nullptr);
  EXPECT_FALSE(orphan->removeResources());
  qztest::ResourceListPtr all(orphan->getAllUniqueUsedResources());
  ASSERT_NE(all, nullptr);
  EXPECT_FALSE(all->next());
  orphan->release();
}

TEST_F(ImpactTest, NullResolverKeepsTheRegisteredOne) {
  FakeResolver first;
  analysis_->registerResourceResolver(&first);
  EXPECT_EQ(analysis_->getResourceResolver(), &first);
  analysis_->registerResourceResolver(nullptr);
  EXPECT_EQ(analysis_->getResourceResolver(), &first);
  FakeResolver second;
  analysis_->registerResourceResolver(&second);
  EXPECT_EQ(analysis_->getResourceResolver(), &second);
}

TEST_F(ImpactTest, FailureMessageSurvivesLaterSuccess) {
  ResourcePtr user = make("user", "File", "/v/user");
  ResourcePtr used = make("used", "File", "/v/used");
  ASSERT_TRUE(analysis_->addDependentResources(used.get(), listOf({user.get()}).get()));
  // The user still uses something, so it cannot go.
  EXPECT_FALSE(analysis_->removeResourceIfNotUsed(user.get()));
  const std::string failure = "The resource could not be deleted.  It is still a dependency.";
  EXPECT_EQ(str(analysis_->getErrorMessage()), failure);

  ResourcePtr other = make("other", "File", "/v/other");
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(analysis_->setAnalysisDate(other.get(), QzbDate(1000.0)));
  EXPECT_EQ(str(analysis_->getErrorMessage()), failure);
}

TEST_F(ImpactTest, GetNextIdMakesTheIdNull) {
  QzbDatavar id(42);
  EXPECT_TRUE(analysis_->getNextId(&id));
  EXPECT_TRUE(id.isNull());
}

TEST_F(ImpactTest, GetLastIdIsTheInsertedRowId) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  ASSERT_TRUE(store.get()->exec("INSERT INTO v_imparcs (id, name) VALUES (77, 'x')", 0));
  EXPECT_EQ(analysis_->getLastId(store.get()), 77);
  ASSERT_TRUE(store.get()->exec("INSERT INTO v_imparcs (name) VALUES ('y')", 0));
  EXPECT_EQ(analysis_->getLastId(store.get()), 78);
}

TEST_F(ImpactTest, DeferredBeginTouchesNeitherBusyFlagNorErrorNorLog) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  LogCapture log;
  bool busy = true;
  QzbString error("untouched", true);
  EXPECT_TRUE(analysis_->beginTransaction(store.get(), false, &busy, &error));
  EXPECT_TRUE(busy);
  EXPECT_EQ(str(error), "untouched");
  // Deferred: another writer can still take the write lock.
  RawStore other(storePath());
  EXPECT_TRUE(other.exec("BEGIN IMMEDIATE TRANSACTION")) << other.lastError();
  EXPECT_TRUE(other.exec("ROLLBACK TRANSACTION"));
  // A second BEGIN inside the transaction fails, without log or error text.
  EXPECT_FALSE(analysis_->beginTransaction(store.get(), false, &busy, &error));
  EXPECT_EQ(str(error), "untouched");
  EXPECT_TRUE(log.events().empty()) << log.dump();
  EXPECT_TRUE(store.get()->exec("ROLLBACK TRANSACTION", 0));
}

TEST_F(ImpactTest, ImmediateBeginClearsBusyAndTakesTheWriteLock) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  bool busy = true;
  QzbString error;
  EXPECT_TRUE(analysis_->beginTransaction(store.get(), true, &busy, &error));
  EXPECT_FALSE(busy);
  RawStore other(storePath());
  EXPECT_FALSE(other.exec("BEGIN IMMEDIATE TRANSACTION"));
  EXPECT_EQ(other.lastError(), "database is locked");
  EXPECT_TRUE(store.get()->exec("ROLLBACK TRANSACTION", 0));
}

TEST_F(ImpactTest, ImmediateBeginOnABusyStoreReportsBusyAndLogs) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  LogCapture log;
  bool busy = false;
  QzbString error;
  EXPECT_FALSE(analysis_->beginTransaction(store.get(), true, &busy, &error));
  EXPECT_TRUE(busy);
  EXPECT_EQ(str(error), "database is locked");
  EXPECT_TRUE(log.contains("database is locked", QZLOG_ERROR, kLineage)) << log.dump();
  // Without a busy flag the attempt fails alike.
  EXPECT_FALSE(analysis_->beginTransaction(store.get(), true, nullptr, nullptr));
}

TEST_F(ImpactTest, StartTransactionRetriesABusyStoreThreeTimesWithFiveSecondWaits) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  SleepRecorder sleeps;
  LogCapture log;
  QzbString error;
  EXPECT_FALSE(analysis_->startTransaction(store.get(), &error));
  EXPECT_EQ(str(error), "database is locked");
  EXPECT_EQ(SleepRecorder::seconds(), (std::vector<int>{5, 5, 5}));
  EXPECT_EQ(log.count(kBusyNotice, QZLOG_DEBUG, kLineage), 3) << log.dump();
  // Four attempts, each logging SQLite's message.
  EXPECT_EQ(log.count("database is locked", QZLOG_ERROR, kLineage), 4) << log.dump();
}

TEST_F(ImpactTest, StartTransactionDoesNotRetryOtherFailures) {
  StoreConnection store(vault_);
  ASSERT_NE(store.get(), nullptr);
  ASSERT_TRUE(store.get()->exec("BEGIN TRANSACTION", 0));
  SleepRecorder sleeps;
  LogCapture log;
  QzbString error;
  EXPECT_FALSE(analysis_->startTransaction(store.get(), &error));
  EXPECT_EQ(str(error), "cannot start a transaction within a transaction");
  EXPECT_TRUE(SleepRecorder::seconds().empty());
  EXPECT_EQ(log.count(kBusyNotice), 0);
  EXPECT_TRUE(store.get()->exec("ROLLBACK TRANSACTION", 0));
}

TEST_F(ImpactTest, WritingOperationOnABusyStoreFailsWithSqliteMessage) {
  make("a", "File", "/v/a");
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  SleepRecorder sleeps;
  LogCapture log;
  EXPECT_FALSE(analysis_->removeResources());
  EXPECT_EQ(str(analysis_->getErrorMessage()), "database is locked");
  EXPECT_EQ(log.count(kBusyNotice), 3);
  EXPECT_TRUE(holder.exec("ROLLBACK TRANSACTION"));
  EXPECT_EQ(count("v_imparcs"), 1);  // nothing was written
}

TEST_F(ImpactTest, OperationsOpenAndCloseTheStoreEachTime) {
  make("a", "File", "/v/a");
  // No connection is kept between calls: another connection can take the
  // write lock at once, and a second analysis object sees the change.
  RawStore other(storePath());
  EXPECT_TRUE(other.exec("BEGIN IMMEDIATE TRANSACTION")) << other.lastError();
  EXPECT_TRUE(other.exec("ROLLBACK TRANSACTION"));
  QzvImpactAnalysisImpl* second = new QzvImpactAnalysisImpl(vault_);
  ResourcePtr seen(second->getResource(QzbString("File"), QzbString("/v/a")));
  EXPECT_NE(seen, nullptr);
  second->release();
}

TEST_F(ImpactTest, StoreNotADatabaseFailsWithTheOpenMessage) {
  qztest::writeFile(storePath(), std::string(2048, 'x'));
  LogCapture log;
  EXPECT_EQ(analysis_->getResource(QzbString("File"), QzbString("/v/a")), nullptr);
  const std::string expected = "Error opening " + storePath() + ": file is not a database";
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  // getResource reports an open failure without a log line of its own.
  EXPECT_EQ(log.count(expected, 0, kLineage), 0);

  EXPECT_EQ(analysis_->createResource(QzbString("a"), QzbString("File"), QzbString("/v/a")),
            nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  EXPECT_FALSE(analysis_->removeResources());
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  qztest::ResourceListPtr all(analysis_->getAllUniqueUsedResources());
  ASSERT_NE(all, nullptr);
  EXPECT_FALSE(all->next());
  EXPECT_EQ(str(analysis_->getErrorMessage()), expected);
  EXPECT_TRUE(log.contains(expected, QZLOG_ERROR, kLineage)) << log.dump();
  // The file was left as it was.
  EXPECT_EQ(qztest::readFile(storePath()), std::string(2048, 'x'));
}

TEST_F(ImpactTest, StoreThatCannotBeOpenedOrCreatedGivesTheOpenMessage) {
  // A directory in place of the database file cannot be opened.
  qztest::makeDirs(storePath());
  EXPECT_EQ(analysis_->getResource(QzbString("File"), QzbString("/v/a")), nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()).rfind("Error opening " + storePath() + ": ", 0),
            0u)
      << str(analysis_->getErrorMessage());
}

// Exit codes of the read-only child: 0 when every check passed, else the
// number of the first check that failed.
TEST_F(ImpactTest, ReadOnlyStoreRefusesReadingAndWriting) {
  ResourcePtr a = make("a", "File", "/v/a");
  ASSERT_NE(a, nullptr);
  ASSERT_EQ(chmod(storePath().c_str(), 0444), 0);
  qztest::makeReachable(dir_.path());
  int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    const std::string dataReadOnly = "Data file is read only";
    // getResource only reads, and is refused all the same, without a log line.
    if (analysis_->getResource(QzbString("File"), QzbString("/v/a")) != nullptr) return 1;
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 2;
    if (log.count(dataReadOnly) != 0) return 3;
    // createResource logs its refusal.
    if (analysis_->createResource(QzbString("b"), QzbString("File"), QzbString("/v/b")) !=
        nullptr) {
      return 4;
    }
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 5;
    if (!log.contains(dataReadOnly, QZLOG_ERROR, kLineage)) return 6;
    // The graph queries give empty lists with the same text.
    QzResourceList* used = analysis_->getUsedByResources(a.get(), false);
    if (used == nullptr || used->next()) return 7;
    used->release();
    QzResourceList* byType = analysis_->getResourcesByType(QzbString("File"));
    if (byType == nullptr || byType->next()) return 8;
    byType->release();
    if (str(analysis_->getErrorMessage()) != dataReadOnly) return 9;
    // Listing every resource makes no read-only check.
    QzResourceList* all = analysis_->getAllUniqueUsedResources();
    if (all == nullptr || !all->next()) return 10;
    all->release();
    return 0;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
