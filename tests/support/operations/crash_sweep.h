// The crash sweep: an operation of the catalogue is run in a child process
// that is killed (SIGKILL) right before its k-th call that changes the file
// system, for every such k, each time on a fresh copy of the standard vault.
// After each crash the vault is judged:
//
//   1. every content the vault held before (objects and versions) is still
//      there, as an object, a version or in quarantine, unless the operation
//      discards it by design (MutatingOperation::mayDiscard);
//   2. every metadata database passes SQLite's integrity check (after the
//      roll-back of a journal that the crash left, which any next opener
//      does);
//   3. the vault check with repair runs, after which a second check finds
//      nothing, 1 still holds, and every object is at its place or at one of
//      the places the operation may move it to (MutatingOperation::mayMove).
//
// A kill before a call that only reads leaves the same files as a kill before
// the next call that changes them, so these crash points cover every state a
// crash of the operation can leave; the undisturbed run counts every call as
// well, for the report.
#ifndef QZ_TESTS_SUPPORT_OPERATIONS_CRASH_SWEEP_H_
#define QZ_TESTS_SUPPORT_OPERATIONS_CRASH_SWEEP_H_

#include <string>
#include <vector>

#include "support/operations/mutating_operations.h"

namespace qztest {

struct CrashSweepOptions {
  // Try every `stride`-th crash point only (1: all of them), starting with the
  // first; the last point is always tried.
  int stride = 1;
};

struct CrashSweepReport {
  std::string operation;
  bool undisturbedSucceeded = false;  // the operation reported success when not killed
  int everyCall = 0;      // calls the undisturbed run made (file system and database)
  int crashPoints = 0;    // of them, calls that change the file system
  int pointsTried = 0;    // crash points at which the child was killed and the vault judged
  int pointsViolated = 0; // of them, points after which a rule above was broken
  std::vector<std::string> violations;  // what was broken, the first few, with the call
};

// Builds the standard vault once for this process (in a temporary directory
// that lives until the process ends) and returns its root; empty with
// *error when it cannot be built.
std::string standardVaultTemplate(std::string* error);

// Runs the sweep for `operation` over copies of `templateRoot`.
CrashSweepReport runCrashSweep(const MutatingOperation& operation, const std::string& templateRoot,
                               const CrashSweepOptions& options = CrashSweepOptions());

// Judges the vault at `root` after a crash of `operation`, against the
// vault it was copied from; the broken rules, empty when none. Runs the
// vault check with repair (in a child process).
std::vector<std::string> judgeVaultAfterCrash(const MutatingOperation& operation,
                                              const std::string& templateRoot,
                                              const std::string& root);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_OPERATIONS_CRASH_SWEEP_H_
