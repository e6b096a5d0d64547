#include "support/operations/crash_sweep.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "qzvault/qzvault.h"
#include "support/call_interceptor.h"
#include "support/operations/vault_fixture.h"
#include "support/temp_dir.h"

namespace qztest {

namespace fs = std::filesystem;

namespace {

const std::size_t kViolationsKept = 8;

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

// A short, one-line form of a file's content for messages.
std::string quoted(const std::string& content) {
  std::string shown = content.substr(0, 40);
  for (char& c : shown) {
    if (c == '\n') c = ' ';
  }
  return "\"" + shown + (content.size() > 40 ? "...\"" : "\"");
}

// Runs `body` in a forked child and returns its exit status, or -signal when
// it was killed.
int runInChild(const std::function<int()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = fork();
  if (child < 0) return -1000;
  if (child == 0) _exit(body());
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1000;
}

// Content of `before` (not discarded by design) that `after` lacks.
void checkContentKept(const MutatingOperation& operation,
                      const std::map<std::string, std::string>& before,
                      const std::map<std::string, std::string>& after, const std::string& when,
                      std::vector<std::string>* violations) {
  std::multiset<std::string> present;
  for (const auto& entry : after) present.insert(entry.second);
  std::set<std::string> discardable = operation.mayDiscard;
  for (const std::string& file : operation.mayDiscardFiles) {
    const auto found = before.find(file);
    if (found != before.end()) discardable.insert(found->second);
  }
  for (const auto& entry : before) {
    if (discardable.count(entry.second) != 0) continue;
    if (present.count(entry.second) == 0) {
      violations->push_back(when + ": the content of " + entry.first + " " + quoted(entry.second) +
                            " is gone");
    }
  }
}

template <class T>
struct Releaser {
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};

// In a child: the vault check with repair, then a second check; writes the
// second check's findings (one per line) to `reportPath`. Exit status 0 when
// the second check is clean, 1 when it is not, 2 when a check failed.
int repairAndRecheck(const std::string& root, const std::string& reportPath) {
  // Counted, never stopped; no syncs (see CallInterceptor::setSyncs).
  CallInterceptor interceptor;
  interceptor.setSyncs(false);
  qzVaultStartup();
  setVaultPluginPath(buildPluginDirectory().c_str());
  std::unique_ptr<QzvVault, Releaser<QzvVault>> vault(createVaultInstance(root.c_str()));
  std::ofstream report(reportPath, std::ios::trunc);
  if (!vault) {
    report << "cannot open the vault: " << getVaultCreateError() << "\n";
    return 2;
  }
  int remaining = 0;
  for (const bool repair : {true, false}) {
    std::unique_ptr<QzvVaultCheck, Releaser<QzvVaultCheck>> check(vault->getVaultCheck());
    if (!check) {
      report << "cannot make a vault check\n";
      return 2;
    }
    std::unique_ptr<QzvItemList, Releaser<QzvItemList>> findings(check->check(repair));
    if (!findings) {
      report << "the check failed: " << check->getErrorMessage().toStdString() << "\n";
      return 2;
    }
    while (findings->next()) {
      const bool repaired = findings->getValue(QZV_CHECK_COL_REPAIRED).toStdString() == "1";
      if (repair && repaired) continue;
      if (repair) {
        report << "not repaired: ";
      } else {
        ++remaining;
        report << "after repair: ";
      }
      report << findings->getValue(QZV_CHECK_COL_KIND).toStdString() << " "
             << findings->getValue(QZV_CHECK_COL_PATH).toStdString() << ": "
             << findings->getValue(QZV_CHECK_COL_DETAIL).toStdString() << "\n";
    }
  }
  report.close();
  vault.reset();
  qzVaultShutdown();
  return remaining == 0 ? 0 : 1;
}

}  // namespace

std::string standardVaultTemplate(std::string* error) {
  static TempDir* directory = nullptr;
  static std::string root;
  static std::string failure;
  if (directory == nullptr) {
    directory = new TempDir();  // lives until the process ends
    root = directory->join("template");
    if (::mkdir(root.c_str(), 0700) != 0 || !buildStandardVault(root, &failure)) {
      if (failure.empty()) failure = "cannot make " + root;
      root.clear();
    }
  }
  if (root.empty()) *error = failure;
  return root;
}

std::vector<std::string> judgeVaultAfterCrash(const MutatingOperation& operation,
                                              const std::string& templateRoot,
                                              const std::string& root) {
  std::vector<std::string> violations;
  const std::map<std::string, std::string> before = userContent(templateRoot);
  checkContentKept(operation, before, userContent(root), "after the crash", &violations);
  for (const std::string& database : databasePaths(root)) {
    const std::string verdict = databaseIntegrity(root + "/" + database);
    if (verdict != "ok") violations.push_back("after the crash: " + database + ": " + verdict);
  }

  const std::string reportPath = root + ".check";
  const int checked = runInChild([&] { return repairAndRecheck(root, reportPath); });
  if (checked != 0) {
    std::istringstream lines(readText(reportPath));
    std::string line;
    int shown = 0;
    while (std::getline(lines, line) && shown < 4) {
      violations.push_back("check: " + line);
      ++shown;
    }
    if (shown == 0) violations.push_back("the vault check ended with status " + std::to_string(checked));
  }
  std::remove(reportPath.c_str());

  checkContentKept(operation, before, userContent(root), "after the repair", &violations);
  const std::set<std::string> objects = objectPaths(root);
  for (const std::string& object : objectPaths(templateRoot)) {
    if (objects.count(object) != 0) continue;
    const auto moved = operation.mayMove.find(object);
    if (moved == operation.mayMove.end()) {
      violations.push_back("after the repair: the object " + object + " is gone");
      continue;
    }
    if (moved->second.empty()) continue;  // the operation may remove it
    bool found = false;
    for (const std::string& place : moved->second) found = found || objects.count(place) != 0;
    if (!found) {
      violations.push_back("after the repair: the object " + object +
                           " is neither at its place nor where the operation moves it");
    }
  }
  return violations;
}

CrashSweepReport runCrashSweep(const MutatingOperation& operation, const std::string& templateRoot,
                               const CrashSweepOptions& options) {
  CrashSweepReport report;
  report.operation = operation.name;
  TempDir work;
  std::string error;

  // The undisturbed run: how many calls, and which.
  const std::string countRoot = work.join("count");
  if (!copyTree(templateRoot, countRoot, &error)) {
    report.violations.push_back("cannot copy the standard vault: " + error);
    return report;
  }
  const std::string tracePath = work.join("trace");
  const int undisturbed = runInChild([&] {
    bool ok;
    std::vector<CallInterceptor::Call> calls;
    int every;
    int changing;
    {
      CallInterceptor interceptor;
      interceptor.setSyncs(false);
      interceptor.recordCalls(true);
      ok = operation.run(countRoot);
      calls = interceptor.recorded();
      every = interceptor.calls(CallInterceptor::Count::kEvery);
      changing = interceptor.calls(CallInterceptor::Count::kChanging);
    }
    std::ofstream trace(tracePath, std::ios::trunc);
    trace << every << " " << changing << "\n";
    for (const CallInterceptor::Call& call : calls) {
      if (call.changing) trace << call.name << " " << call.path << "\n";
    }
    trace.close();
    return ok ? 0 : 1;
  });
  report.undisturbedSucceeded = undisturbed == 0;
  std::vector<std::string> changingCalls;
  {
    std::istringstream trace(readText(tracePath));
    trace >> report.everyCall >> report.crashPoints;
    std::string line;
    std::getline(trace, line);
    while (std::getline(trace, line)) changingCalls.push_back(line);
  }
  if (undisturbed < 0 || report.everyCall == 0) {
    report.violations.push_back("the undisturbed run failed (status " + std::to_string(undisturbed) +
                                ")");
    return report;
  }
  {
    // The undisturbed run must leave a vault that the check finds clean.
    const std::vector<std::string> found = judgeVaultAfterCrash(operation, templateRoot, countRoot);
    for (const std::string& violation : found) {
      report.violations.push_back("undisturbed run: " + violation);
    }
  }

  // Every crash point in turn; the undisturbed count may fall short of a
  // later run's (temporary names are chosen at random), so without a stride
  // the sweep goes on until a run ends before its crash point.
  const int stride = options.stride > 0 ? options.stride : 1;
  int k = 1;
  for (;;) {
    const std::string root = work.join("point-" + std::to_string(k));
    if (!copyTree(templateRoot, root, &error)) {
      report.violations.push_back("cannot copy the standard vault: " + error);
      break;
    }
    const int status = runInChild([&] {
      CallInterceptor interceptor;
      interceptor.setSyncs(false);
      interceptor.killBefore(k, CallInterceptor::Count::kChanging);
      operation.run(root);
      return interceptor.fired() ? 3 : 0;
    });
    const bool killed = status == -SIGKILL;
    if (killed) {
      ++report.pointsTried;
      const std::vector<std::string> found = judgeVaultAfterCrash(operation, templateRoot, root);
      if (!found.empty()) {
        ++report.pointsViolated;
        const std::string call =
            k - 1 < static_cast<int>(changingCalls.size()) ? changingCalls[k - 1] : "?";
        for (const std::string& violation : found) {
          if (report.violations.size() >= kViolationsKept) break;
          report.violations.push_back("killed before call " + std::to_string(k) + " (" + call +
                                      "): " + violation);
        }
      }
    }
    fs::remove_all(root);
    fs::remove_all(root + ".outside");
    if (!killed) break;  // the operation ended before its k-th changing call
    if (stride == 1) {
      ++k;
    } else if (k >= report.crashPoints) {
      break;
    } else {
      k = std::min(k + stride, report.crashPoints);
    }
  }
  return report;
}

}  // namespace qztest
