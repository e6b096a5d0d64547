// Helpers for tests of the library's process-wide state (plug-in registry,
// plug-in path, creation error). Such a test runs its scenario in a forked
// child, so that it starts from a fresh process state and leaves none behind,
// whether CTest runs it alone or the whole binary runs in one process.
#ifndef QZ_TESTS_VAULT_CHILD_PROCESS_H_
#define QZ_TESTS_VAULT_CHILD_PROCESS_H_

#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>

namespace qztest {

// Runs `body` in a forked child and expects the child to end without a failed
// assertion (the child prints its failures itself). The child leaves through
// exit(), so that leak checking of sanitizer builds covers the scenario.
inline void runInChildProcess(const std::function<void()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = fork();
  ASSERT_NE(child, -1) << "fork failed";
  if (child == 0) {
    body();
    std::fflush(stdout);
    std::fflush(stderr);
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "the child process was killed by signal "
                                 << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the child process reported failures (see above)";
}

// Tests run as root on the build machines, and root reads any file. A test of
// unreadable files or directories calls this in a forked child first: when
// the process runs as root it becomes user and group nobody (65534). Returns
// false when that fails.
inline bool dropRootPrivileges() {
  if (getuid() != 0 && geteuid() != 0) return true;
  if (setgroups(0, nullptr) != 0) return false;
  if (setgid(65534) != 0) return false;
  if (setuid(65534) != 0) return false;
  return geteuid() == 65534;
}

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_CHILD_PROCESS_H_
