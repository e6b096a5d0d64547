// The catalogue of mutating operations: every host operation that changes
// files or metadata, and every mutating command of the qzvault tool, each
// ready to run against a vault of known content. Sweeps use it to stop an
// operation at each of its file-system calls (a crash, a full disk, no free
// inodes, too many open files) and then check the vault; see crash_sweep.h
// for the crash sweep and call_interceptor.h for the stopping.
//
// An entry sets up nothing itself: every operation works on the standard
// vault of vault_fixture.h (built once, copied for each run), and says what
// it may legitimately take away or move (so that a check can tell an
// operation's own effect from a loss).
//
// run() is meant for a forked child: it starts the library (through its
// public entry points, as a host does, or through the tool's
// runCommandLine), and a process can start the library once only. It
// returns whether the operation reported success.
#ifndef QZ_TESTS_SUPPORT_OPERATIONS_MUTATING_OPERATIONS_H_
#define QZ_TESTS_SUPPORT_OPERATIONS_MUTATING_OPERATIONS_H_

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qztest {

struct MutatingOperation {
  enum class Kind {
    kHost,  // a host operation through the library's public interfaces
    kTool,  // a command of the qzvault tool, run in this process
  };

  std::string name;  // "object.fileRename", "tool mv object", ...
  Kind kind = Kind::kHost;
  // Runs the operation on the vault at `root` (a copy of the standard vault).
  // True when it reports success. May only be called once per process.
  std::function<bool(const std::string& root)> run;
  // Contents (the exact bytes of a file of the standard vault: an object or
  // a version) that the operation may discard by design, such as the current
  // content and the newer versions a roll-back drops.
  std::set<std::string> mayDiscard;
  // Files (vault paths) whose content in the standard vault the operation
  // may discard by design, such as a definition it rewrites.
  std::set<std::string> mayDiscardFiles;
  // Objects (vault paths, "Data/orders.csv") that the operation may move or
  // remove, with where they may be afterwards; an empty list of places means
  // the object may be gone.
  std::map<std::string, std::vector<std::string>> mayMove;
};

// Every operation of the catalogue, host operations first.
const std::vector<MutatingOperation>& mutatingOperations();

// The entry named `name`, or null.
const MutatingOperation* findOperation(const std::string& name);

// Runs the tool in this process with `args` (no program name; --vault and
// --plugins are the caller's), its output thrown away. Returns the exit
// status. Once per process.
int runToolInProcess(const std::vector<std::string>& args);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_OPERATIONS_MUTATING_OPERATIONS_H_
