#include "support/privileges.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace qztest {

int runAsNobody(const std::function<int()>& body) {
  pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    if (geteuid() == 0) {
      gid_t group = static_cast<gid_t>(kNobodyId);
      if (setgroups(1, &group) != 0 || setgid(group) != 0 ||
          setuid(static_cast<uid_t>(kNobodyId)) != 0) {
        _exit(120);
      }
    }
    int result = body();
    _exit(result >= 0 && result < 256 ? result : 121);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  if (!WIFEXITED(status)) return -1;
  int code = WEXITSTATUS(status);
  return code == 120 ? -1 : code;
}

void makeReachable(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return;
  chmod(path.c_str(), (st.st_mode & 07777) | S_IRUSR | S_IXUSR | S_IRGRP | S_IXGRP | S_IROTH |
                          S_IXOTH);
}

}  // namespace qztest
