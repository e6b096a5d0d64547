// The process event manager: order of listeners, removal from callbacks,
// registration from several threads, removal waiting for running callbacks.
#include "qzbase/events.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// Records every notification it receives; may run an action on each call.
class RecordingListener : public RepositoryListener {
 public:
  explicit RecordingListener(std::string tag, std::vector<std::string>* journal = nullptr)
      : tag_(std::move(tag)), journal_(journal) {}

  void contentChanged(const QzbString& repositoryId, const QzbString& reference,
                      RepositoryObjectChangeType changeType,
                      const QzbString& secondReference) override {
    ++calls;
    lastRepositoryId = repositoryId;
    lastReference = reference;
    lastChangeType = changeType;
    lastSecondReference = secondReference;
    if (journal_ != nullptr) journal_->push_back(tag_);
    if (action) action();
  }

  std::atomic<int> calls{0};
  QzbString lastRepositoryId;
  QzbString lastReference;
  RepositoryObjectChangeType lastChangeType = QZ_CHANGE_RENAMED;
  QzbString lastSecondReference;
  std::function<void()> action;

 private:
  std::string tag_;
  std::vector<std::string>* journal_;
};

// Counts notifications only: safe to be called from several threads at once.
class CountingListener : public RepositoryListener {
 public:
  void contentChanged(const QzbString&, const QzbString&, RepositoryObjectChangeType,
                      const QzbString&) override {
    calls.fetch_add(1);
  }
  std::atomic<int> calls{0};
};

// Every test leaves the process manager without listeners.
class EventsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager_ = getRepositoryEventManager();
    ASSERT_NE(manager_, nullptr);
    ASSERT_FALSE(manager_->hasListeners());
  }
  void TearDown() override { EXPECT_FALSE(manager_->hasListeners()); }

  void fire(const char* reference = "file:///v/a.csv") {
    manager_->fireContentChanged(QzbString("uuid-1"), QzbString(reference),
                                 QZ_CHANGE_ADDED_OR_MODIFIED, QzbString());
  }

  RepositoryEventManager* manager_ = nullptr;
};

TEST_F(EventsTest, ManagerIsOneProcessObject) {
  EXPECT_EQ(getRepositoryEventManager(), getRepositoryEventManager());
}

TEST_F(EventsTest, FiringWithoutListenersDoesNothing) {
  EXPECT_FALSE(manager_->hasListeners());
  fire();
  EXPECT_FALSE(manager_->hasListeners());
}

TEST_F(EventsTest, ListenerReceivesTheNotificationArguments) {
  RecordingListener listener("a");
  manager_->addListener(&listener);
  EXPECT_TRUE(manager_->hasListeners());
  manager_->fireContentChanged(QzbString("uuid-7"), QzbString("file:///v/old.csv"),
                               QZ_CHANGE_RENAMED, QzbString("file:///v/new.csv"));
  EXPECT_EQ(listener.calls.load(), 1);
  EXPECT_STREQ(listener.lastRepositoryId.asCstr(), "uuid-7");
  EXPECT_STREQ(listener.lastReference.asCstr(), "file:///v/old.csv");
  EXPECT_EQ(listener.lastChangeType, QZ_CHANGE_RENAMED);
  EXPECT_STREQ(listener.lastSecondReference.asCstr(), "file:///v/new.csv");

  // Null texts reach the listener as null texts.
  manager_->fireContentChanged(QzbString(), QzbString("file:///v/x"), QZ_CHANGE_REMOVED,
                               QzbString());
  EXPECT_EQ(listener.calls.load(), 2);
  EXPECT_TRUE(listener.lastRepositoryId.isNull());
  EXPECT_TRUE(listener.lastSecondReference.isNull());
  EXPECT_EQ(listener.lastChangeType, QZ_CHANGE_REMOVED);
  manager_->removeListener(&listener);
  EXPECT_FALSE(manager_->hasListeners());
}

TEST_F(EventsTest, ChangeTypeValuesAreStable) {
  EXPECT_EQ(static_cast<int>(QZ_CHANGE_ADDED_OR_MODIFIED), 0);
  EXPECT_EQ(static_cast<int>(QZ_CHANGE_REMOVED), 1);
  EXPECT_EQ(static_cast<int>(QZ_CHANGE_RENAMED), 2);
}

TEST_F(EventsTest, ListenersAreCalledInOrderOfAddition) {
  std::vector<std::string> journal;
  RecordingListener a("a", &journal), b("b", &journal), c("c", &journal);
  manager_->addListener(&b);
  manager_->addListener(&a);
  manager_->addListener(&c);
  fire();
  EXPECT_EQ(journal, (std::vector<std::string>{"b", "a", "c"}));
  manager_->removeListener(&a);
  manager_->removeListener(&b);
  manager_->removeListener(&c);
}

TEST_F(EventsTest, AddingTwiceRegistersOnce) {
  std::vector<std::string> journal;
  RecordingListener a("a", &journal), b("b", &journal);
  manager_->addListener(&a);
  manager_->addListener(&b);
  manager_->addListener(&a);  // no effect: keeps its first place
  fire();
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b"}));
  manager_->removeListener(&a);
  EXPECT_TRUE(manager_->hasListeners());
  manager_->removeListener(&b);
}

TEST_F(EventsTest, RemovedAndAddedAgainGoesToTheEnd) {
  std::vector<std::string> journal;
  RecordingListener a("a", &journal), b("b", &journal);
  manager_->addListener(&a);
  manager_->addListener(&b);
  manager_->removeListener(&a);
  manager_->addListener(&a);
  fire();
  EXPECT_EQ(journal, (std::vector<std::string>{"b", "a"}));
  manager_->removeListener(&a);
  manager_->removeListener(&b);
}

TEST_F(EventsTest, NullAndUnknownListenersAreIgnored) {
  RecordingListener a("a");
  manager_->addListener(nullptr);
  EXPECT_FALSE(manager_->hasListeners());
  manager_->removeListener(nullptr);
  manager_->removeListener(&a);  // never added
  EXPECT_FALSE(manager_->hasListeners());
  fire();
  EXPECT_EQ(a.calls.load(), 0);
}

TEST_F(EventsTest, RemovedListenerIsNotCalled) {
  RecordingListener a("a"), b("b");
  manager_->addListener(&a);
  manager_->addListener(&b);
  manager_->removeListener(&a);
  fire();
  EXPECT_EQ(a.calls.load(), 0);
  EXPECT_EQ(b.calls.load(), 1);
  manager_->removeListener(&b);
}

TEST_F(EventsTest, ListenerMayRemoveItselfWhileCalled) {
  std::vector<std::string> journal;
  RecordingListener a("a", &journal), b("b", &journal), c("c", &journal);
  b.action = [&] { manager_->removeListener(&b); };
  manager_->addListener(&a);
  manager_->addListener(&b);
  manager_->addListener(&c);
  fire();
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b", "c"}));
  fire();
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b", "c", "a", "c"}));
  EXPECT_EQ(b.calls.load(), 1);
  manager_->removeListener(&a);
  manager_->removeListener(&c);
}

TEST_F(EventsTest, ListenerRemovedByAnEarlierOneIsNotCalled) {
  RecordingListener a("a"), b("b");
  a.action = [&] { manager_->removeListener(&b); };
  manager_->addListener(&a);
  manager_->addListener(&b);
  fire();
  EXPECT_EQ(a.calls.load(), 1);
  EXPECT_EQ(b.calls.load(), 0);
  manager_->removeListener(&a);
}

TEST_F(EventsTest, ListenerAddedDuringANotificationHearsTheNextOne) {
  RecordingListener a("a"), late("late");
  a.action = [&] { manager_->addListener(&late); };
  manager_->addListener(&a);
  fire();
  EXPECT_EQ(late.calls.load(), 0);
  fire();
  EXPECT_EQ(late.calls.load(), 1);
  manager_->removeListener(&a);
  manager_->removeListener(&late);
}

TEST_F(EventsTest, NestedNotificationFromACallbackIsDelivered) {
  RecordingListener a("a");
  int depth = 0;
  a.action = [&] {
    if (depth++ == 0) fire("file:///v/nested");
  };
  manager_->addListener(&a);
  fire();
  EXPECT_EQ(a.calls.load(), 2);
  manager_->removeListener(&a);
}

TEST_F(EventsTest, ThrowingListenerDoesNotStopTheOthers) {
  RecordingListener a("a"), b("b");
  a.action = [] { throw std::runtime_error("listener failure"); };
  manager_->addListener(&a);
  manager_->addListener(&b);
  fire();
  EXPECT_EQ(a.calls.load(), 1);
  EXPECT_EQ(b.calls.load(), 1);
  manager_->removeListener(&a);
  manager_->removeListener(&b);
}

TEST_F(EventsTest, RegistrationAndNotificationFromSeveralThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 300;
  CountingListener steady;
  manager_->addListener(&steady);
  std::vector<std::thread> threads;
  std::atomic<int> fired{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      CountingListener own;
      for (int i = 0; i < kRounds; ++i) {
        if (t % 2 == 0) {
          manager_->addListener(&own);
          fire();
          fired.fetch_add(1);
          manager_->removeListener(&own);
        } else {
          fire();
          fired.fetch_add(1);
        }
      }
      // Every notification of this thread happened while `own` was registered.
      if (t % 2 == 0) {
        EXPECT_GE(own.calls.load(), kRounds);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(steady.calls.load(), fired.load());
  EXPECT_TRUE(manager_->hasListeners());
  manager_->removeListener(&steady);
}

// removeListener returns only after a callback of that listener running on
// another thread has ended, so the owner may destroy the listener right after.
TEST_F(EventsTest, RemovalWaitsForACallbackOnAnotherThread) {
  std::mutex mutex;
  std::condition_variable changed;
  bool entered = false;
  bool mayLeave = false;
  std::atomic<bool> left{false};

  RecordingListener blocking("blocking");
  blocking.action = [&] {
    std::unique_lock<std::mutex> lock(mutex);
    entered = true;
    changed.notify_all();
    changed.wait(lock, [&] { return mayLeave; });
    left = true;
  };
  manager_->addListener(&blocking);
  std::thread notifier([&] { fire(); });
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return entered; });
  }
  std::atomic<bool> sawCallbackEnded{false};
  std::thread remover([&] {
    manager_->removeListener(&blocking);
    sawCallbackEnded = left.load();
  });
  // Give the remover time to reach its wait; the outcome checked below does
  // not depend on how long this takes.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  {
    std::lock_guard<std::mutex> lock(mutex);
    mayLeave = true;
  }
  changed.notify_all();
  remover.join();
  notifier.join();
  EXPECT_TRUE(sawCallbackEnded.load());
  EXPECT_EQ(blocking.calls.load(), 1);
  EXPECT_FALSE(manager_->hasListeners());
}

}  // namespace
