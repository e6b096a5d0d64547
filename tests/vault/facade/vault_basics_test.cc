// QzvVaultImpl's own operations: construction, the stock-folder table, path
// helpers and the folder-time map that decides when a folder's cached
// metadata is refreshed.
#include <atomic>
#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vault_impl.h"

namespace {

using qztest::LogCapture;
using qztest::TempDir;

// A vault for one test, released at the end of the scope.
class ScopedVault {
 public:
  explicit ScopedVault(const std::string& root, QzviPluginRegistry* plugins = nullptr,
                       const char* pluginPath = "plugin-dir")
      : vault_(new QzvVaultImpl(QzbString(root.c_str()), plugins, QzbString(pluginPath))) {}
  ~ScopedVault() { vault_->release(); }
  ScopedVault(const ScopedVault&) = delete;
  ScopedVault& operator=(const ScopedVault&) = delete;
  QzvVaultImpl* operator->() const { return vault_; }

 private:
  QzvVaultImpl* vault_;
};

// A fixed time well in the past, so that any change to a directory moves its
// modification time away from it whatever the clock says.
const long long kPastSeconds = 1000000000;

TEST(VaultBasics, ConstructorKeepsRootPluginsAndPluginPath) {
  TempDir dir;
  QzviPluginRegistry registry;
  LogCapture log;
  ScopedVault vault(dir.path(), &registry, "some/plugins");
  EXPECT_EQ(vault->rootPath().toStdString(), dir.path());
  EXPECT_EQ(vault->plugins(), &registry);
  EXPECT_EQ(vault->getPluginPath().toStdString(), "some/plugins");
  ASSERT_NE(vault->logger(), nullptr);
  EXPECT_STREQ(vault->logger()->getName(), "QZ.Repos.Vault");
  EXPECT_TRUE(vault->getErrorMessage().isEmpty());
  EXPECT_FALSE(log.containsFragment("Failed to create folder modified lock")) << log.dump();
}

TEST(VaultBasics, RootPathLosesOneTrailingSeparator) {
  EXPECT_EQ(ScopedVault("/data/vault/")->rootPath().toStdString(), "/data/vault");
  EXPECT_EQ(ScopedVault("/data/vault\\")->rootPath().toStdString(), "/data/vault");
  EXPECT_EQ(ScopedVault("/data/vault//")->rootPath().toStdString(), "/data/vault/");
  EXPECT_EQ(ScopedVault("/data/vault")->rootPath().toStdString(), "/data/vault");
  EXPECT_EQ(ScopedVault("C:\\")->rootPath().toStdString(), "C:\\");
  EXPECT_EQ(ScopedVault("")->rootPath().toStdString(), "");
}

TEST(VaultBasics, FailedLockCreationIsLoggedAndTheVaultStillWorks) {
  LogCapture log;
  TempDir dir;
  {
    qztest::FaultPlatform faults;
    faults.failCall(qztest::NpOp::kMutexCreate, 1, NP_ERR_UNKNOWN);
    ScopedVault vault(dir.path());
    ASSERT_EQ(faults.failuresInjected(qztest::NpOp::kMutexCreate), 1);
    EXPECT_TRUE(log.contains("Failed to create folder modified lock", 6, "QZ.Repos.Vault"))
        << log.dump();
    // The folder-time map works unguarded.
    EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString(dir.path().c_str())));
    EXPECT_TRUE(vault->updateFolderCachedDate(QzbString(dir.path().c_str())));
    EXPECT_FALSE(vault->doesFolderNeedCachedRefreshed(QzbString(dir.path().c_str())));
  }
}

TEST(VaultBasics, StockFilterStringsFollowTheFileFamily) {
  const char* const expected[QZVI_STOCK_FOLDER_COUNT] = {
      "job.def",     "job.tpl",         "rpt.def",         "rpt.tpl",
      "pdf;html;csv", "sch.def;sch.tpl", "ref.def;csv",     "ref.tpl",
      "map.def;map.tpl", "qry.def;qry.tpl;sql", "sh;py;sql", "log",
      "csv;txt;dat", "",                "job.def;job.tpl", "rpt.def;rpt.tpl"};
  for (int id = 0; id < QZVI_STOCK_FOLDER_COUNT; ++id) {
    const QzbString filter = QzvVaultImpl::getStockFilterString(id);
    EXPECT_FALSE(filter.isNull()) << id;
    EXPECT_EQ(filter.toStdString(), expected[id]) << id;
  }
}

TEST(VaultBasics, StockFolderPathsAreStoredWithBackslashes) {
  const char* const expected[QZVI_STOCK_FOLDER_COUNT] = {
      "Jobs\\Definitions",    "Jobs\\Templates",         "Reports\\Definitions",
      "Reports\\Templates",   "Reports\\Output",         "Schedules",
      "ReferenceData\\Tables", "ReferenceData\\Templates", "Mappings",
      "Queries",              "Scripts",                 "Logs",
      "Data",                 "Shared",                  "Archive\\Jobs",
      "Archive\\Reports"};
  for (int id = 0; id < QZVI_STOCK_FOLDER_COUNT; ++id) {
    EXPECT_EQ(QzvVaultImpl::getStockFolderRelativePath(id).toStdString(), expected[id]) << id;
  }
}

TEST(VaultBasics, StockIdsOutsideTheTableGiveNullStringsWithoutMessage) {
  LogCapture log;
  for (int id : {16, -1, 17, 1000, INT_MAX, INT_MIN}) {
    EXPECT_TRUE(QzvVaultImpl::getStockFilterString(id).isNull()) << id;
    EXPECT_TRUE(QzvVaultImpl::getStockFolderRelativePath(id).isNull()) << id;
  }
  EXPECT_TRUE(log.events().empty()) << log.dump();
}

TEST(VaultBasics, BuildPathJoinsLikeThePathHelper) {
  ScopedVault vault("/vault");
  EXPECT_EQ(vault->buildPath(QzbString("/vault"), QzbString("Jobs\\Definitions")).toStdString(),
            "/vault/Jobs/Definitions");
  EXPECT_EQ(vault->buildPath(QzbString("/vault/"), QzbString("a.job.def")).toStdString(),
            "/vault/a.job.def");
  // Nothing is looked up on disk: the directory need not exist.
  EXPECT_EQ(vault->buildPath(QzbString("/no/such/dir"), QzbString("x")).toStdString(),
            "/no/such/dir/x");
  EXPECT_TRUE(vault->buildPath(QzbString("/vault"), QzbString("")).isNull());
  EXPECT_TRUE(vault->buildPath(QzbString("/vault"), QzbString("../escape")).isNull());
  EXPECT_TRUE(vault->buildPath(QzbString(), QzbString("x")).isNull());
}

TEST(VaultBasics, ParsePathSplitsLikeThePathHelper) {
  ScopedVault vault("/vault");
  QzbString name;
  EXPECT_EQ(vault->parsePath(QzbString("/no/such/dir/file.txt"), &name).toStdString(),
            "/no/such/dir");
  EXPECT_EQ(name.toStdString(), "file.txt");
  EXPECT_EQ(vault->parsePath(QzbString("/x"), &name).toStdString(), "/");
  EXPECT_EQ(name.toStdString(), "x");
  EXPECT_TRUE(vault->parsePath(QzbString("leaf"), &name).isNull());
  EXPECT_EQ(name.toStdString(), "leaf");
  EXPECT_TRUE(vault->parsePath(QzbString(), &name).isNull());
  EXPECT_TRUE(name.isNull());
  EXPECT_EQ(vault->parsePath(QzbString("a/b"), nullptr).toStdString(), "a");
}

TEST(VaultBasics, FolderNeverRecordedNeedsARefresh) {
  TempDir dir;
  ScopedVault vault(dir.path());
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString(dir.path().c_str())));
}

TEST(VaultBasics, RecordedFolderNeedsNoRefreshUntilAFileIsAdded) {
  TempDir dir;
  const QzbString folder(dir.path().c_str());
  qztest::setMtime(dir.path(), kPastSeconds);
  ScopedVault vault(dir.path());
  EXPECT_TRUE(vault->updateFolderCachedDate(folder));
  EXPECT_FALSE(vault->doesFolderNeedCachedRefreshed(folder));

  qztest::writeFile(dir.join("new.job.def"), "{}");
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(folder));
  EXPECT_TRUE(vault->updateFolderCachedDate(folder));
  EXPECT_FALSE(vault->doesFolderNeedCachedRefreshed(folder));
}

TEST(VaultBasics, RecordedFolderNeedsARefreshAfterAFileIsRemoved) {
  TempDir dir;
  const QzbString folder(dir.path().c_str());
  qztest::writeFile(dir.join("old.txt"), "x");
  qztest::setMtime(dir.path(), kPastSeconds);
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->updateFolderCachedDate(folder));
  ASSERT_FALSE(vault->doesFolderNeedCachedRefreshed(folder));
  ASSERT_EQ(std::remove(dir.join("old.txt").c_str()), 0);
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(folder));
}

TEST(VaultBasics, EmptyFolderNameAlwaysNeedsARefreshAndRecordsNothing) {
  ScopedVault vault("/vault");
  LogCapture log;
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString("")));
  EXPECT_TRUE(vault->updateFolderCachedDate(QzbString("")));
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString("")));
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString()));
  EXPECT_TRUE(vault->updateFolderCachedDate(QzbString()));
  EXPECT_TRUE(log.events().empty()) << log.dump();
}

TEST(VaultBasics, InaccessibleFolderIsLoggedAndAnsweredAsDue) {
  TempDir dir;
  const std::string missing = dir.join("gone");
  ScopedVault vault(dir.path());
  LogCapture log;
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString(missing.c_str())));
  EXPECT_TRUE(log.contains("Folder " + missing + " is not accessible to determine refresh status",
                           4, "QZ.Repos.Vault"))
      << log.dump();
  EXPECT_TRUE(vault->updateFolderCachedDate(QzbString(missing.c_str())));
  EXPECT_TRUE(log.contains("Folder " + missing + " is not accessible to update cache date", 4,
                           "QZ.Repos.Vault"))
      << log.dump();
  EXPECT_TRUE(vault->getErrorMessage().isEmpty()) << "only logged, no error message";

  // Nothing was recorded: once the folder exists it still needs a refresh.
  qztest::makeDirs(missing);
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString(missing.c_str())));
}

TEST(VaultBasics, FolderTimesAreKeyedByTheExactPathText) {
  TempDir dir;
  qztest::setMtime(dir.path(), kPastSeconds);
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->updateFolderCachedDate(QzbString(dir.path().c_str())));
  EXPECT_FALSE(vault->doesFolderNeedCachedRefreshed(QzbString(dir.path().c_str())));
  EXPECT_TRUE(vault->doesFolderNeedCachedRefreshed(QzbString((dir.path() + "/").c_str())));
}

TEST(VaultBasics, EachVaultStartsWithAnEmptyFolderTimeMap) {
  TempDir dir;
  const QzbString folder(dir.path().c_str());
  ScopedVault first(dir.path());
  ASSERT_TRUE(first->updateFolderCachedDate(folder));
  ASSERT_FALSE(first->doesFolderNeedCachedRefreshed(folder));
  ScopedVault second(dir.path());
  EXPECT_TRUE(second->doesFolderNeedCachedRefreshed(folder));
}

TEST(VaultBasics, FolderTimeMapIsSafeToUseFromSeveralThreads) {
  TempDir dir;
  const int kThreads = 4;
  std::vector<std::string> folders;
  for (int index = 0; index < kThreads; ++index) {
    folders.push_back(dir.join("f" + std::to_string(index)));
    qztest::makeDirs(folders.back());
  }
  ScopedVault vault(dir.path());
  std::atomic<int> wrongAnswers{0};
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) {
    threads.emplace_back([&, index] {
      const QzbString folder(folders[index].c_str());
      for (int round = 0; round < 200; ++round) {
        vault->updateFolderCachedDate(folder);
        if (vault->doesFolderNeedCachedRefreshed(folder)) ++wrongAnswers;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrongAnswers.load(), 0);
}

}  // namespace
