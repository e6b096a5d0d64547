#include "support/failing_new.h"

#include <atomic>

#include <gtest/gtest.h>

namespace qztest {
namespace {
std::atomic<int> g_nothrowCalls{0};
std::atomic<int> g_failAt{0};  // 0: never fail
}  // namespace

void failNothrowAllocation(int k) {
  g_nothrowCalls = 0;
  g_failAt = k;
}

bool stopFailingNothrowAllocation() {
  const int k = g_failAt.load();
  const bool fired = g_nothrowCalls.load() >= k;
  g_failAt = 0;
  return fired;
}

void* failingNothrowAllocate(std::size_t size, bool array) noexcept {
  if (g_failAt.load() > 0 && ++g_nothrowCalls == g_failAt.load()) return nullptr;
  try {
    return array ? ::operator new[](size) : ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

std::set<std::string> sweepAllocationFailures(
    const std::function<bool(std::string*)>& operation) {
  std::set<std::string> messages;
  for (int k = 1; k < 500; ++k) {
    failNothrowAllocation(k);
    std::string message;
    const bool ok = operation(&message);
    const bool fired = stopFailingNothrowAllocation();
    if (!fired) {
      EXPECT_TRUE(ok) << "without a failure at k=" << k << ": " << message;
      return messages;
    }
    if (!ok) {
      EXPECT_FALSE(message.empty()) << "k=" << k;
      messages.insert(message);
    }
  }
  ADD_FAILURE() << "the operation kept allocating";
  return messages;
}

}  // namespace qztest
