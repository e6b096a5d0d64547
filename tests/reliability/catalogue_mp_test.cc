// The catalogue of mutating operations and the call interceptor that sweeps
// use (tests/support/operations, tests/support/call_interceptor.h): every
// operation succeeds on the standard vault; the interceptor
// numbers the calls of both layers, kills before a chosen call, and fails a
// chosen call with the code asked for.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "support/call_interceptor.h"
#include "support/operations/crash_sweep.h"
#include "support/operations/mutating_operations.h"
#include "support/operations/vault_fixture.h"
#include "support/temp_dir.h"

namespace {

using qztest::CallInterceptor;
using qztest::TempDir;

// The status of a forked child that runs `body`: its exit status, or
// -signal.
int inChild(const std::function<int()>& body) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(CallInterceptorTest, NumbersPlatformAndDatabaseCallsInOneSequence) {
  TempDir dir;
  CallInterceptor calls;
  calls.recordCalls(true);
  qztest::writeFile(dir.join("a"), "x");  // not through the platform: not counted
  EXPECT_EQ(NP_OK, np_fio_rename(dir.join("a").c_str(), dir.join("b").c_str()));
  NpStat st;
  EXPECT_EQ(NP_OK, np_fio_stat(dir.join("b").c_str(), &st));
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(dir.join("db").c_str(), &db));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "CREATE TABLE t(x)", nullptr, nullptr, nullptr));
  sqlite3_close(db);
  const std::vector<CallInterceptor::Call> recorded = calls.recorded();
  ASSERT_GE(recorded.size(), 3u);
  EXPECT_EQ("fio_rename", recorded[0].name);
  EXPECT_TRUE(recorded[0].changing);
  EXPECT_EQ("fio_stat", recorded[1].name);
  EXPECT_FALSE(recorded[1].changing);
  bool wrote = false;
  for (const CallInterceptor::Call& call : recorded) {
    wrote = wrote || (call.layer == CallInterceptor::Layer::kDatabase && call.name == "sqlite_write");
  }
  EXPECT_TRUE(wrote);
  EXPECT_EQ(static_cast<int>(recorded.size()), calls.calls(CallInterceptor::Count::kEvery));
  EXPECT_LT(calls.calls(CallInterceptor::Count::kChanging), calls.calls(CallInterceptor::Count::kEvery));
}

TEST(CallInterceptorTest, KillsBeforeTheChosenChangingCall) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "x");
  const int status = inChild([&] {
    CallInterceptor calls;
    calls.killBefore(2, CallInterceptor::Count::kChanging);
    np_fio_stat(dir.join("a").c_str(), nullptr);                        // not changing
    np_fio_rename(dir.join("a").c_str(), dir.join("b").c_str());        // changing 1
    np_fio_rename(dir.join("b").c_str(), dir.join("c").c_str());        // changing 2: killed
    return 0;
  });
  EXPECT_EQ(-SIGKILL, status);
  EXPECT_TRUE(qztest::pathExists(dir.join("b")));
  EXPECT_FALSE(qztest::pathExists(dir.join("c")));
}

TEST(CallInterceptorTest, FailsTheChosenCallOfEitherLayer) {
  TempDir dir;
  qztest::writeFile(dir.join("a"), "x");
  CallInterceptor calls;
  calls.failAt(1, CallInterceptor::Count::kChanging, NP_ERR_NO_SPACE);
  EXPECT_EQ(NP_ERR_NO_SPACE, np_fio_rename(dir.join("a").c_str(), dir.join("b").c_str()));
  EXPECT_TRUE(qztest::pathExists(dir.join("a")));
  EXPECT_EQ(NP_OK, np_fio_rename(dir.join("a").c_str(), dir.join("b").c_str()));
  EXPECT_EQ(1, calls.failuresInjected());

  // A database write fails as a full disk does.
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(dir.join("db").c_str(), &db));
  calls.failAt(1, CallInterceptor::Count::kChanging, NP_ERR_NO_SPACE, true);
  EXPECT_EQ(SQLITE_FULL, sqlite3_exec(db, "CREATE TABLE t(x)", nullptr, nullptr, nullptr));
  calls.clear();
  sqlite3_close(db);
  EXPECT_EQ(SQLITE_FULL, CallInterceptor::sqliteCodeFor(NP_ERR_NO_SPACE, "sqlite_write"));
  EXPECT_EQ(SQLITE_CANTOPEN, CallInterceptor::sqliteCodeFor(NP_ERR_TOO_MANY_FILES, "sqlite_open"));
}

TEST(CatalogueTest, EveryOperationSucceedsOnTheStandardVault) {
  std::string error;
  const std::string templateRoot = qztest::standardVaultTemplate(&error);
  ASSERT_FALSE(templateRoot.empty()) << error;
  const auto before = qztest::userContent(templateRoot);
  EXPECT_EQ("orders v3\n", before.at("Data/orders.csv"));
  EXPECT_EQ("orders v1\n", before.at("Data/.v_ver/orders.csv.1"));
  EXPECT_EQ(1u, qztest::objectPaths(templateRoot).count("Jobs/load.job.def"));
  EXPECT_GE(qztest::databasePaths(templateRoot).size(), 8u);

  TempDir work;
  int index = 0;
  for (const qztest::MutatingOperation& operation : qztest::mutatingOperations()) {
    SCOPED_TRACE(operation.name);
    const std::string root = work.join("run-" + std::to_string(++index));
    ASSERT_TRUE(qztest::copyTree(templateRoot, root, &error)) << error;
    const int status = inChild([&] {
      CallInterceptor calls;
      calls.setSyncs(false);
      return operation.run(root) ? 0 : 1;
    });
    EXPECT_EQ(0, status);
  }
}

}  // namespace
