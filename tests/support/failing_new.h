// Allocation-failure sweeps. The library makes its objects and buffers with
// the non-throwing form of new; a test program replaces that form with one
// that forwards to qztest::failingNothrowAllocate, and then runs an operation
// once for every k with the k-th such allocation failing.
//
// The replacement itself stays in each test program that wants it (a
// replacement operator new must be defined by the program, and one in this
// support library would either reach every test or none, depending on link
// order):
//
//   void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
//     return qztest::failingNothrowAllocate(size, false);
//   }
//   void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
//     return qztest::failingNothrowAllocate(size, true);
//   }
//
// Thread safety: the counters are atomic, but a sweep assumes that only the
// operation under test allocates while it runs.
#ifndef QZ_TESTS_SUPPORT_FAILING_NEW_H_
#define QZ_TESTS_SUPPORT_FAILING_NEW_H_

#include <cstddef>
#include <functional>
#include <new>
#include <set>
#include <string>

namespace qztest {

// Allocates `size` bytes (with the array form when `array`), or returns null
// when this is the allocation that the running sweep fails. Never throws.
void* failingNothrowAllocate(std::size_t size, bool array) noexcept;

// From now on, fails the k-th non-throwing allocation (k >= 1), counting from
// this call.
void failNothrowAllocation(int k);
// Stops failing allocations; returns whether the k-th one was reached (and
// so failed) since failNothrowAllocation(k).
bool stopFailingNothrowAllocation();

// Runs `operation` with the k-th non-throwing allocation failing, for k = 1,
// 2, ... until a run meets no failure (which must then succeed). `operation`
// returns whether it succeeded and leaves its failure text in *message; a
// failed run must leave a message. Returns the messages of the failed runs.
// Adds a test failure when a run without a failure does not succeed, or when
// the operation is still allocating after 500 runs.
std::set<std::string> sweepAllocationFailures(
    const std::function<bool(std::string*)>& operation);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_FAILING_NEW_H_
