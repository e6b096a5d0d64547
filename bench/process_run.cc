#include "process_run.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace qzbench {

bool runProcess(const std::vector<std::string>& argv, ProcessRun* run, const std::string& output) {
  *run = ProcessRun();
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);

  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child < 0) {
    std::perror("fork");
    return false;
  }
  if (child == 0) {
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || dup2(out, STDOUT_FILENO) < 0) _exit(126);
    close(out);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (wait4(child, &status, 0, &usage) != child) {
    std::perror("wait4");
    return false;
  }
  const auto end = std::chrono::steady_clock::now();
  run->ms = std::chrono::duration<double, std::milli>(end - start).count();
  run->maxRssKb = usage.ru_maxrss;
  run->exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (run->exitStatus != 0) {
    std::fprintf(stderr, "%s exited with status %d\n", argv[0].c_str(), run->exitStatus);
  }
  return run->exitStatus == 0;
}

}  // namespace qzbench
