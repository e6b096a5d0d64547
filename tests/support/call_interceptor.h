// Intercepting every file-system call of an operation: the np_* platform
// calls (through the platform table) and SQLite's own file I/O (through a
// VFS that wraps the default one). While a CallInterceptor lives, each such
// call is numbered in one sequence, 1, 2, 3, ..., whichever layer makes it,
// and one chosen call can be made to kill the process before it runs, or to
// fail with a chosen error instead of running.
//
// Crash sweeps use killBefore: the child process that runs the operation dies
// (SIGKILL) right before its k-th call, leaving the files exactly as a crash
// there would. Fault sweeps use failAt: the k-th call fails with a platform
// result code (NP_ERR_NO_SPACE, NP_ERR_TOO_MANY_FILES, ...); a database call
// fails with the SQLite code that the same condition gives (sqliteCodeFor).
//
// What is counted: every platform call that touches the file system (status,
// open, close, read, write, rename, link, unlink, listings, directory
// changes, permission changes, locks of open files), and the SQLite calls
// that change files (open, delete, write, truncate, sync). Dynamic loading,
// the clock, the user and host names, process probes and mutexes are not
// counted. Each counted call says whether it can change the file system
// (Count::kChanging): a kill before a call that only reads leaves the same
// files as a kill before the next call that changes them, so a crash sweep
// over the changing calls alone meets every state a crash can leave.
//
// Typical crash sweep (see tests/support/operations/crash_sweep.h, which does
// this for every operation of the catalogue):
//
//   for (int k = 1;; ++k) {
//     pid_t child = fork();
//     if (child == 0) {
//       qztest::CallInterceptor calls;
//       calls.killBefore(k, qztest::CallInterceptor::Count::kChanging);
//       runOperation();
//       _exit(calls.fired() ? 3 : 0);      // never reached when killed
//     }
//     ... waitpid: killed by SIGKILL -> check the vault; exited -> done
//   }
//
// One interceptor per process at a time; it is not safe to construct or
// destroy while other threads use the file system. The counters themselves
// may be updated from several threads.
#ifndef QZ_TESTS_SUPPORT_CALL_INTERCEPTOR_H_
#define QZ_TESTS_SUPPORT_CALL_INTERCEPTOR_H_

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "qzbase/platform.h"

namespace qztest {

class CallInterceptor {
 public:
  enum class Count {
    kEvery,     // every counted call
    kChanging,  // only the calls that can change the file system
  };
  enum class Layer { kPlatform, kDatabase };

  // One counted call, as recorded by recordCalls(true).
  struct Call {
    Layer layer;
    std::string name;  // "fio_rename", "sqlite_write", ...
    std::string path;  // the path it names, or the file it works on ("" if unknown)
    bool changing;
  };

  // Installs the counting platform table and makes the counting VFS SQLite's
  // default; nothing is armed.
  CallInterceptor();
  // Restores the previous table and default VFS.
  ~CallInterceptor();
  CallInterceptor(const CallInterceptor&) = delete;
  CallInterceptor& operator=(const CallInterceptor&) = delete;

  // The k-th call (k >= 1) of the kind `which`, counted from now, kills this
  // process with SIGKILL before it runs.
  void killBefore(int k, Count which);
  // The k-th call of the kind `which` fails with the platform result code
  // `npCode` (a database call: with sqliteCodeFor(npCode, call)); once, or
  // with `fromThenOn`, that call and every later one of the kind.
  void failAt(int k, Count which, int npCode, bool fromThenOn = false);
  // Disarms.
  void clear();

  // Calls counted so far.
  int calls(Count which) const;
  // True when the armed call has been reached (and failed).
  bool fired() const { return fired_.load() > 0; }
  int failuresInjected() const { return fired_.load(); }

  // With false, SQLite's syncs are counted but not done. A killed process
  // leaves in the file system what it wrote, synced or not (only a machine
  // that stops loses what was not synced), so crash sweeps need no syncs,
  // and skipping them makes a sweep several times faster.
  void setSyncs(bool enabled) { syncs_.store(enabled); }
  bool syncsEnabled() const { return syncs_.load(); }

  // With true, every counted call is recorded (for messages that name the
  // call a sweep stopped at).
  void recordCalls(bool record);
  std::vector<Call> recorded() const;

  // The SQLite result code that a file-system failure `npCode` gives a
  // database call: a full disk or exceeded quota SQLITE_FULL, too many open
  // files SQLITE_CANTOPEN for an open, anything else an I/O error.
  static int sqliteCodeFor(int npCode, const std::string& databaseCall);

  // Used by the intercepting entries: counts a call and tells what to do
  // with it. Returns 0 to run it, or the code to fail it with; kills the
  // process when that is what is armed.
  int onCall(Layer layer, const char* name, const char* path, bool changing);

 private:
  struct Armed {
    int at = 0;  // absolute number in the chosen count; 0: nothing armed
    Count which = Count::kEvery;
    bool kill = false;
    bool fromThenOn = false;
    int code = 0;
  };

  const NpPlatformOps* previousTable_;
  NpPlatformOps table_;
  std::atomic<int> every_{0};
  std::atomic<int> changing_{0};
  std::atomic<int> fired_{0};
  std::atomic<bool> syncs_{true};
  mutable std::mutex mutex_;  // guards armed_ and recorded_
  Armed armed_;
  bool record_ = false;
  std::vector<Call> recorded_;
};

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_CALL_INTERCEPTOR_H_
