// Running part of a test as an unprivileged user. Tests run as root on the
// build machines, and root ignores permission bits; a test of read-only files,
// folders or databases runs its checks in a forked child that has dropped to
// user and group "nobody" (65534) first.
#ifndef QZ_TESTS_SUPPORT_PRIVILEGES_H_
#define QZ_TESTS_SUPPORT_PRIVILEGES_H_

#include <functional>
#include <string>

namespace qztest {

constexpr unsigned kNobodyId = 65534;

// Forks; the child drops to the unprivileged user (when it runs as root; a
// non-root test process already is one), runs `body` and exits with its
// result. Returns the child's exit status (0 for success), or -1 when the
// child could not be started, could not drop privileges or died of a signal.
// The body must not use gtest assertions (they would not reach the parent):
// it returns a distinct non-zero value for each check that fails.
// REQUIRES: the paths the body uses are reachable by that user (see
// makeReachable).
int runAsNobody(const std::function<int()>& body);

// Adds search and read permission for everybody to the directory `path`
// (only to it, never to its ancestors), so that a child running as nobody can
// reach what lies below. A TempDir's own directory needs this; the system's
// temporary directory above it is searchable by everybody.
void makeReachable(const std::string& path);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_PRIVILEGES_H_
