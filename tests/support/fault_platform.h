// A fault-injecting platform for tests: while a FaultPlatform object lives, a
// table of its own is installed in the np_* layer (qzbase/platform.h). Every
// entry forwards to the default (POSIX) table, counts its calls per kind, and
// can be told to fail the k-th call of one kind with a chosen result code,
// once or from then on. The destructor puts back the table that was in force.
//
// Typical use, proving that an operation survives a failure at each step:
//
//   for (int k = 1;; ++k) {
//     ResetFixture();                                   // fresh files
//     qztest::FaultPlatform faults;
//     faults.failCall(qztest::NpOp::kFioRename, k, NP_ERR_IO);
//     bool ok = DoOperation();
//     if (!faults.fired()) { EXPECT_TRUE(ok); break; }  // no k-th rename
//     EXPECT_FALSE(ok);
//     ExpectConsistent();                               // files and metadata
//   }
//
// How a failure looks for each kind:
//   - operations returning a result code return the chosen code without
//     calling the real operation; handle out-parameters are set to null;
//   - kDsoGetsym and kMutexCreate return null; kTimeNow and kProcId return -1;
//   - kFioClose, kDirClose, kDsoUnload and kMutexUnlock do release what they
//     were given (as a failing close() still frees the descriptor) and then
//     report the chosen code, so that a test does not leak or deadlock;
//   - kMutexDestroy cannot fail (it is counted only).
// setSleepEnabled(false) makes np_proc_sleep return at once (still counted),
// for tests of retry loops that must not wait.
//
// Thread safety: the counters may be updated from several threads; arming
// faults and constructing or destroying the object happen while no other
// thread uses the platform layer. Only the innermost FaultPlatform counts and
// injects; nested objects restore their predecessor on destruction.
#ifndef QZ_TESTS_SUPPORT_FAULT_PLATFORM_H_
#define QZ_TESTS_SUPPORT_FAULT_PLATFORM_H_

#include <atomic>

#include "qzbase/platform.h"

namespace qztest {

// One value per entry of NpPlatformOps, in the table's order.
enum class NpOp {
  kFioStat,
  kFioRename,
  kFioUnlink,
  kFioOpen,
  kFioClose,
  kFioChperm,
  kDirOpen,
  kDirNext,
  kDirNextStat,
  kDirClose,
  kDirCreate,
  kDirUnlink,
  kDsoLoad,
  kDsoGetsym,
  kDsoUnload,
  kOsinfUser,
  kProcSleep,
  kTimeNow,
  kMutexCreate,
  kMutexLock,
  kMutexUnlock,
  kMutexDestroy,
  kFioLink,
  kFioLstat,
  kFioFinfo,
  kFioRenameNoReplace,
  kFioRead,
  kFioWrite,
  kFioTrylock,
  kOsinfHost,
  kProcId,
  kProcProbe,
  kFsInfo,
};
constexpr int kNpOpCount = static_cast<int>(NpOp::kFsInfo) + 1;

// The kind's name as in the np_* layer ("fio_rename"), for test messages.
const char* npOpName(NpOp op);

class FaultPlatform {
 public:
  enum class Mode {
    kOnce,        // only the k-th call fails
    kFromThenOn,  // the k-th call and every later call of the kind fail
  };

  // Installs the counting table; counts start at 0 and no fault is armed.
  FaultPlatform();
  // Restores the table (and the FaultPlatform) that was in force before.
  ~FaultPlatform();
  FaultPlatform(const FaultPlatform&) = delete;
  FaultPlatform& operator=(const FaultPlatform&) = delete;

  // Arms a fault: the k-th call of `op` counted from now (k = 1 is the very
  // next call) fails with `code`. REQUIRES: k >= 1; `code` non-zero (0 is
  // taken as NP_ERR_UNKNOWN). Replaces any fault armed earlier for `op`;
  // faults of other kinds stay armed.
  void failCall(NpOp op, int k, int code, Mode mode = Mode::kOnce);
  // Disarms every fault; counts are kept.
  void clearFaults();

  // Calls of `op` since construction or the last resetCounts(), failed ones
  // included.
  int callCount(NpOp op) const;
  // Calls of every kind.
  int totalCalls() const;
  void resetCounts();

  // Failures injected so far, of one kind or of every kind.
  int failuresInjected(NpOp op) const;
  int failuresInjected() const;
  // True when at least one failure has been injected.
  bool fired() const { return failuresInjected() > 0; }

  // With false, np_proc_sleep returns 0 at once instead of sleeping.
  void setSleepEnabled(bool enabled);

  // Makes np_fs_info report a file system of type `type` (at most 31 bytes)
  // and kind `kind` (NP_FS_*) for every path that exists, as if the vault
  // were on a file server or a cluster; an empty type asks the system again.
  void fakeFileSystem(const char* type, int kind);
  // The fake of fakeFileSystem, if any: false when there is none.
  bool fakedFileSystem(NpFsInfo* info) const;

  // The table this object installed (for tests that want to wrap it).
  const NpPlatformOps* table() const { return &table_; }

  // Used by the forwarding entries: counts a call of `op` and tells whether
  // it must fail, with which code.
  bool countAndCheck(NpOp op, int* code);
  bool sleepEnabled() const { return sleepEnabled_.load(); }

 private:
  struct Slot {
    std::atomic<int> calls{0};
    std::atomic<int> failAt{0};  // absolute call number; 0 = not armed
    std::atomic<int> code{0};
    std::atomic<bool> persistent{false};
    std::atomic<int> injected{0};
  };

  NpPlatformOps table_;
  const NpPlatformOps* previousTable_;
  FaultPlatform* previousActive_;
  Slot slots_[kNpOpCount];
  std::atomic<bool> sleepEnabled_{true};
  NpFsInfo fakeFileSystem_{};
  bool fakingFileSystem_ = false;
};

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_FAULT_PLATFORM_H_
