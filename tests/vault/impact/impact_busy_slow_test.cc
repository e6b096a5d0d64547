// The busy retry with its real waits: another connection holds "BEGIN
// IMMEDIATE" on ".v_imd" while a writing operation starts. These tests sleep
// for real (5 to 15 seconds each), which is why they carry the slow label.
//
// The holder lets go from inside the library's first sleep (a platform table
// that wraps np_proc_sleep), so the order of events is fixed and nothing
// races: the first attempt always meets the lock, the second never does.
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "impact_fixture.h"
#include "support/log_capture.h"

namespace {

using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::RawStore;
using qztest::ResourcePtr;
using qztest::str;

const char kBusyNotice[] =
    "Detected SQLite aquisition timeout, waiting 5 seconds and trying again.";

// Calls a hook at every np_proc_sleep, then sleeps for real; counts the calls.
class SleepHook {
 public:
  explicit SleepHook(std::function<void()> hook) {
    hook_() = std::move(hook);
    calls_() = 0;
    table_ = *npGetPlatformOps();
    table_.proc_sleep = &SleepHook::sleepWithHook;
    previous_ = npSetPlatformOps(&table_);
  }
  ~SleepHook() {
    npSetPlatformOps(previous_);
    hook_() = nullptr;
  }
  SleepHook(const SleepHook&) = delete;
  SleepHook& operator=(const SleepHook&) = delete;
  int calls() const { return calls_(); }

 private:
  static std::function<void()>& hook_() {
    static std::function<void()> hook;
    return hook;
  }
  static int& calls_() {
    static int calls = 0;
    return calls;
  }
  static int sleepWithHook(int seconds) {
    ++calls_();
    if (hook_()) hook_()();
    return npDefaultPlatformOps()->proc_sleep(seconds);
  }
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
};

TEST_F(ImpactTest, WriterThatLetsGoWithinTheFirstWaitIsWaitedFor) {
  ResourcePtr used = make("used", "File", "/v/used");
  ResourcePtr user = make("user", "File", "/v/user");
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  bool released = false;
  SleepHook sleeps([&]() {
    if (!released) released = holder.exec("ROLLBACK TRANSACTION");
  });
  LogCapture log;
  EXPECT_TRUE(analysis_->addDependentResources(used.get(), listOf({user.get()}).get()))
      << str(analysis_->getErrorMessage());
  EXPECT_TRUE(released);
  EXPECT_EQ(sleeps.calls(), 1);
  EXPECT_EQ(log.count(kBusyNotice, QZLOG_DEBUG, "QZ.Repos.Vault.Lineage"), 1) << log.dump();
  EXPECT_EQ(edges(), (std::vector<std::string>{"/v/user>/v/used"}));
}

TEST_F(ImpactTest, WriterThatHoldsOnMakesTheOperationFailAfterFourAttempts) {
  ResourcePtr resource = make("r", "File", "/v/r");
  RawStore holder(storePath());
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE TRANSACTION"));
  SleepHook sleeps(nullptr);
  LogCapture log;
  EXPECT_FALSE(analysis_->setAnalysisDate(resource.get(), QzbDate(5000.0)));
  EXPECT_EQ(str(analysis_->getErrorMessage()), "database is locked");
  EXPECT_EQ(sleeps.calls(), 3);
  EXPECT_EQ(log.count(kBusyNotice, QZLOG_DEBUG), 3) << log.dump();
  EXPECT_EQ(log.count("database is locked", QZLOG_ERROR), 5)  // four attempts and the result
      << log.dump();
  ASSERT_TRUE(holder.exec("ROLLBACK TRANSACTION"));
  ResourcePtr reread(analysis_->getResource(QzbString("File"), QzbString("/v/r")));
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(reread->getAnalysisDate().asDouble(), 0.0);
}

}  // namespace
