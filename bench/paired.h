// Paired benchmarks: every case runs the library and its raw baseline (the
// same work done with POSIX calls and SQLite alone) on the same data, one
// right after the other in each repetition, and reports the median of the
// per-repetition ratios. On a machine shared with other work, absolute times
// drift from one minute to the next; a ratio taken within one repetition
// does not, because both sides meet the same load.
//
// A benchmark program makes a Runner from its command line, prepares its data
// for each size the Runner asks for, runs its cases and returns
// Runner::finish(). Options every program understands:
//
//   --repetitions N   repetitions per case (default 7)
//   --size N          run at this size only (may be given several times)
//   --sweep           run at the program's sweep sizes (1k, 10k, 100k for
//                     most) and print the cost per item and its slope
//   --smoke           one repetition at a small size: shows that every case
//                     runs and prints its ratio (what CI runs)
//   --filter TEXT     only the cases whose name contains TEXT
//
// The order of the two sides alternates between repetitions, so that neither
// always runs on a warmer cache. Timings are wall-clock (steady clock).
// Targets are printed beside the ratios for the reader; nothing fails on a
// ratio: a failed run (the work reported an error) is the only failure.
//
// Single-threaded; one Runner per program.
#ifndef QZ_BENCH_PAIRED_H_
#define QZ_BENCH_PAIRED_H_

#include <functional>
#include <string>
#include <vector>

namespace qzbench {

// One side of a case. `prepare` (optional) runs untimed before every timed
// run; `run` is the timed work. Both return false when they failed (after
// writing why to stderr).
struct Work {
  std::function<bool()> prepare;
  std::function<bool()> run;
};

struct Case {
  std::string name;     // what the library does ("list, no metadata yet")
  std::string rawName;  // what the baseline does ("raw cold refresh")
  Work library;
  Work raw;
  // The ratio the library should stay within, printed beside the figure; 0
  // when the case has none.
  double target = 0;
  // 0: a run is one pass over the n items, and a sweep prints the cost per
  // item. Otherwise a run makes this many operations (look-ups), times are
  // printed per operation, and a sweep shows how that time grows with n.
  long operations = 0;
};

class Runner {
 public:
  // `unit` names what the size counts ("files", "resources"). `sizes` is the
  // default run, `sweepSizes` the sweep and `smokeSize` the smoke run's size.
  // Exits with status 2 on a usage error, 0 after --help.
  Runner(int argc, char** argv, const std::string& program, const std::string& unit,
         std::vector<long> sizes, std::vector<long> sweepSizes, long smokeSize);

  const std::vector<long>& sizes() const { return sizes_; }
  int repetitions() const { return repetitions_; }
  bool smoke() const { return smoke_; }
  bool sweep() const { return sweep_; }
  // True when the case is selected by --filter (or there is none).
  bool wants(const std::string& caseName) const;

  // Runs `c` at size `n` and records its figures; returns false when a run
  // failed (recorded too). Skips, returning true, a case that --filter leaves
  // out.
  bool run(long n, const Case& c);
  // Runs `work` `repetitions()` times (prepare untimed) and records its
  // median time, with no baseline: for figures that are compared with
  // another figure of the same program (a second analysis against the
  // first). Returns the median in milliseconds, or a negative number when a
  // run failed.
  double measure(long n, const std::string& name, const Work& work);
  // Records a figure that is not a time (memory, calls per operation); it
  // is printed with the results of size `n`.
  void note(long n, const std::string& name, const std::string& text);
  // Records a failure that is not a run (data that could not be made).
  void fail(long n, const std::string& what);

  // Prints every result (and, in a sweep, the cost per item and its slope);
  // returns the exit status: 1 when anything failed, else 0.
  int finish();

 private:
  struct Result {
    long n;
    std::string name;
    std::string rawName;  // empty for measure()
    double library;       // medians, ms (per operation when operations > 0)
    double raw;
    long operations;
    double ratio;         // median of the paired ratios
    double target;
    bool failed;
  };
  struct Note {
    long n;
    std::string name;
    std::string text;
  };
  void printResults() const;
  void printSweep() const;

  std::string program_;
  std::string unit_;
  std::vector<long> sizes_;
  int repetitions_ = 7;
  bool smoke_ = false;
  bool sweep_ = false;
  std::string filter_;
  std::vector<Result> results_;
  std::vector<Note> notes_;
  bool failed_ = false;
};

// Milliseconds that `run` takes (wall clock); a negative number when it
// returns false.
double timeMs(const std::function<bool()>& run);
// The median of `values` (which it sorts); 0 when empty.
double median(std::vector<double>* values);
// "12.3 ms", "1.20 s", "45.6 us": a duration for people.
std::string formatMs(double ms);

}  // namespace qzbench

#endif  // QZ_BENCH_PAIRED_H_
