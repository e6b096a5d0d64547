// `qzvault ls` against `ls -la` on the same folder of n plain files, each a
// whole process, interleaved: the wall time of each and its peak resident
// memory. The vault is made with `qzvault init` and listed once before the
// runs, so that its metadata is on disk, as it is in a vault in use. Both
// programs write to /dev/null and run in the benchmark's environment (locale
// included).
#include <string>
#include <vector>

#include "bench_files.h"
#include "paired.h"
#include "process_run.h"

namespace {

void runSize(qzbench::Runner& runner, long files) {
  const std::string tool = qzbench::toolPath();
  qzbench::TempDir vault("qzvault-ls-bench");
  const std::string& path = vault.path();
  qzbench::ProcessRun run;
  const std::vector<std::string> qzvaultLs = {tool, "--vault", path, "--plugins",
                                              qzbench::pluginDirectory(), "ls"};
  if (!qzbench::makeFiles(path, files, "object", "txt") ||
      !qzbench::runProcess({tool, "--vault", path, "init"}, &run) ||
      !qzbench::runProcess(qzvaultLs, &run)) {
    runner.fail(files, "making the vault");
    return;
  }

  std::vector<double> toolKb;
  std::vector<double> lsKb;
  qzbench::Case ls;
  ls.name = "qzvault ls, metadata on disk";
  ls.rawName = "ls -la";
  ls.target = 1.5;
  ls.library.run = [&] {
    const bool ok = qzbench::runProcess(qzvaultLs, &run);
    toolKb.push_back(static_cast<double>(run.maxRssKb));
    return ok;
  };
  ls.raw.run = [&] {
    const bool ok = qzbench::runProcess({"ls", "-la", path}, &run);
    lsKb.push_back(static_cast<double>(run.maxRssKb));
    return ok;
  };
  if (!runner.run(files, ls)) return;
  const double toolMedian = qzbench::median(&toolKb);
  const double lsMedian = qzbench::median(&lsKb);
  char text[160];
  std::snprintf(text, sizeof text, "qzvault ls %.1f MB, ls -la %.1f MB: ratio %.2f (target <= 1.5)",
                toolMedian / 1024, lsMedian / 1024, lsMedian > 0 ? toolMedian / lsMedian : 0.0);
  runner.note(files, "peak resident memory (medians)", text);
}

}  // namespace

int main(int argc, char** argv) {
  qzbench::Runner runner(argc, argv, "ls_command_bench", "files", {10000, 100000},
                         {1000, 10000, 100000}, 500);
  if (qzbench::toolPath().empty()) {
    std::fprintf(stderr, "ls_command_bench: built without the qzvault tool\n");
    return 1;
  }
  for (long files : runner.sizes()) runSize(runner, files);
  return runner.finish();
}
