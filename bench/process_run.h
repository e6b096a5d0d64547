// Runs a program as a child process for the whole-process benchmarks: its
// wall time and its peak resident memory, its output thrown away.
#ifndef QZ_BENCH_PROCESS_RUN_H_
#define QZ_BENCH_PROCESS_RUN_H_

#include <cstdlib>
#include <string>
#include <vector>

namespace qzbench {

struct ProcessRun {
  double ms = 0;         // from fork to the end of the child, wall clock
  long maxRssKb = 0;     // the child's peak resident set, in KiB
  int exitStatus = -1;   // the child's exit status, -1 when it did not exit
};

// Runs `argv` (argv[0] is looked up on PATH) with standard output sent to
// `output` (a file, replaced; "/dev/null" by default) and standard error
// inherited. True when the child ran and exited with status 0; *run is filled
// either way.
bool runProcess(const std::vector<std::string>& argv, ProcessRun* run,
                const std::string& output = "/dev/null");

// The qzvault tool and the plug-in directory the benchmarks use: the
// environment variables QZ_BENCH_TOOL and QZ_BENCH_PLUGIN_DIR when they are
// set (to measure an installed tool), else the build tree's, when the
// benchmark was built with the tool; empty otherwise. Inline, as the build
// defines the build tree's paths for each benchmark program.
inline std::string toolPath() {
  if (const char* given = std::getenv("QZ_BENCH_TOOL")) return given;
#ifdef QZ_BENCH_TOOL
  return QZ_BENCH_TOOL;
#else
  return std::string();
#endif
}

inline std::string pluginDirectory() {
  if (const char* given = std::getenv("QZ_BENCH_PLUGIN_DIR")) return given;
#ifdef QZ_BENCH_PLUGIN_DIR
  return QZ_BENCH_PLUGIN_DIR;
#else
  return std::string();
#endif
}

}  // namespace qzbench

#endif  // QZ_BENCH_PROCESS_RUN_H_
