// The process's repository event manager.
//
// Registrations live in an ordered map keyed by a growing sequence number, so
// that listeners are called in the order they were added and a listener that
// is removed and added again goes to the end. A notification copies the
// registrations under the lock and calls each listener outside it, checking
// just before each call that the listener is still registered: a listener
// removed meanwhile (by itself, by an earlier listener or by another thread)
// is not called any more.
//
// Removal and destruction: the header lets the owner destroy a listener once
// removeListener has returned. To make that safe against a notification
// running on another thread, removeListener waits until no other thread is
// inside that listener's callback. It does not wait when called from inside a
// callback of this manager (on the same thread): a listener removing itself
// would otherwise wait for itself, and two threads removing each other's
// listeners from their callbacks would wait for each other.
//
// The mutex is a std::mutex rather than a lock of the platform table: the
// manager is a process singleton that must work from its first use to the
// end of the process, and a mutex whose creation a fault-injecting table can
// fail would leave it without protection for good.
#include "qzbase/events.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

RepositoryListener::~RepositoryListener() = default;

namespace {

class RepositoryEventManagerImpl final : public RepositoryEventManager {
 public:
  RepositoryEventManagerImpl() = default;
  ~RepositoryEventManagerImpl() override = default;
  RepositoryEventManagerImpl(const RepositoryEventManagerImpl&) = delete;
  RepositoryEventManagerImpl& operator=(const RepositoryEventManagerImpl&) = delete;

  void addListener(RepositoryListener* listener) override {
    if (listener == nullptr) return;
    std::lock_guard<std::mutex> guard(mutex_);
    if (sequenceOf_.count(listener) != 0) return;
    const std::uint64_t sequence = nextSequence_++;
    ordered_.emplace(sequence, listener);
    sequenceOf_.emplace(listener, sequence);
    count_.store(ordered_.size(), std::memory_order_release);
  }

  void removeListener(RepositoryListener* listener) override {
    if (listener == nullptr) return;
    std::unique_lock<std::mutex> lock(mutex_);
    auto found = sequenceOf_.find(listener);
    if (found != sequenceOf_.end()) {
      ordered_.erase(found->second);
      sequenceOf_.erase(found);
      count_.store(ordered_.size(), std::memory_order_release);
    }
    const std::thread::id self = std::this_thread::get_id();
    if (isInCallbackLocked(self)) return;
    // Wait for callbacks of this listener that run on other threads.
    callDone_.wait(lock, [&] { return !isBeingCalledLocked(listener); });
  }

  bool hasListeners() const override { return count_.load(std::memory_order_acquire) != 0; }

  void fireContentChanged(const QzbString& repositoryId, const QzbString& reference,
                          RepositoryObjectChangeType changeType,
                          const QzbString& secondReference) override {
    if (!hasListeners()) return;
    std::vector<std::pair<std::uint64_t, RepositoryListener*>> snapshot;
    {
      std::lock_guard<std::mutex> guard(mutex_);
      snapshot.assign(ordered_.begin(), ordered_.end());
    }
    const std::thread::id self = std::this_thread::get_id();
    for (const auto& registration : snapshot) {
      {
        std::lock_guard<std::mutex> guard(mutex_);
        auto found = sequenceOf_.find(registration.second);
        // Removed since the snapshot, or removed and added again (then it is
        // called by later notifications only, at its new place).
        if (found == sequenceOf_.end() || found->second != registration.first) continue;
        inCall_.push_back(Call{registration.second, self});
      }
      CallGuard done(this, registration.second, self);
      // A listener is host code: an exception it lets out must not unwind
      // through the vault that notifies, nor skip the remaining listeners.
      try {
        registration.second->contentChanged(repositoryId, reference, changeType,
                                            secondReference);
      } catch (...) {
      }
    }
  }

 private:
  struct Call {
    RepositoryListener* listener;
    std::thread::id thread;
  };

  // Ends the bookkeeping of one callback and wakes waiting removals.
  class CallGuard {
   public:
    CallGuard(RepositoryEventManagerImpl* manager, RepositoryListener* listener,
              std::thread::id thread)
        : manager_(manager), listener_(listener), thread_(thread) {}
    ~CallGuard() { manager_->endCall(listener_, thread_); }
    CallGuard(const CallGuard&) = delete;
    CallGuard& operator=(const CallGuard&) = delete;

   private:
    RepositoryEventManagerImpl* manager_;
    RepositoryListener* listener_;
    std::thread::id thread_;
  };

  void endCall(RepositoryListener* listener, std::thread::id thread) {
    {
      std::lock_guard<std::mutex> guard(mutex_);
      // The most recent matching call is this one (callbacks on one thread nest).
      for (auto it = inCall_.rbegin(); it != inCall_.rend(); ++it) {
        if (it->listener == listener && it->thread == thread) {
          inCall_.erase(std::next(it).base());
          break;
        }
      }
    }
    callDone_.notify_all();
  }

  // REQUIRES: mutex_ held. The number of callbacks in progress is the number
  // of notifying threads times their nesting depth: small.
  bool isInCallbackLocked(std::thread::id thread) const {
    for (const Call& call : inCall_) {
      if (call.thread == thread) return true;
    }
    return false;
  }

  // REQUIRES: mutex_ held.
  bool isBeingCalledLocked(RepositoryListener* listener) const {
    for (const Call& call : inCall_) {
      if (call.listener == listener) return true;
    }
    return false;
  }

  mutable std::mutex mutex_;
  std::condition_variable callDone_;
  std::map<std::uint64_t, RepositoryListener*> ordered_;
  std::unordered_map<RepositoryListener*, std::uint64_t> sequenceOf_;
  std::vector<Call> inCall_;
  std::uint64_t nextSequence_ = 0;
  std::atomic<std::size_t> count_{0};
};

}  // namespace

RepositoryEventManager* getRepositoryEventManager(void) {
  // Never destroyed: a vault may still notify from another static object's
  // destructor at process exit.
  static RepositoryEventManagerImpl* const manager = new RepositoryEventManagerImpl();
  return manager;
}
