#include "dot_render.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tool_error.h"

extern char** environ;

namespace qzvtool {
namespace {

bool isExecutableFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string searchPath() {
  if (const char* path = std::getenv("PATH")) return path;
  // As execvp does when PATH is unset.
  const std::size_t size = confstr(_CS_PATH, nullptr, 0);
  if (size == 0) return "/bin:/usr/bin";
  std::string value(size, '\0');
  confstr(_CS_PATH, &value[0], size);
  value.resize(size - 1);
  return value;
}

// Ignores SIGPIPE while it lives, so that a `dot` that exits early makes the
// write fail with EPIPE instead of ending the tool.
class IgnoreSigpipe {
 public:
  IgnoreSigpipe() {
    struct sigaction ignore;
    std::memset(&ignore, 0, sizeof ignore);
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    restore_ = sigaction(SIGPIPE, &ignore, &previous_) == 0;
  }
  ~IgnoreSigpipe() {
    if (restore_) sigaction(SIGPIPE, &previous_, nullptr);
  }
  IgnoreSigpipe(const IgnoreSigpipe&) = delete;
  IgnoreSigpipe& operator=(const IgnoreSigpipe&) = delete;

 private:
  struct sigaction previous_;
  bool restore_ = false;
};

bool writeAll(int fd, const std::string& data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t wrote = write(fd, data.data() + done, data.size() - done);
    if (wrote < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(wrote);
  }
  return true;
}

}  // namespace

std::string findOnPath(const std::string& program) {
  const std::string path = searchPath();
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    // An empty entry means the current directory, as for the shell.
    const std::string directory = end == start ? "." : path.substr(start, end - start);
    const std::string candidate = directory + "/" + program;
    if (isExecutableFile(candidate)) return candidate;
    start = end + 1;
  }
  return std::string();
}

bool dotInstalled() { return !findOnPath("dot").empty(); }

void renderSvg(const std::string& dotText, const std::string& svgFile) {
  const std::string dot = findOnPath("dot");
  if (dot.empty()) {
    fail("cannot render " + svgFile + ": the dot program (Graphviz) is not installed (not found on PATH)");
  }
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) fail(std::string("cannot start dot: ") + std::strerror(errno));

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[0], STDIN_FILENO);
  std::vector<std::string> words = {dot, "-Tsvg", "-o", svgFile};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);

  pid_t child = -1;
  const int spawned = posix_spawn(&child, dot.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[0]);
  if (spawned != 0) {
    close(fds[1]);
    fail("cannot start " + dot + ": " + std::strerror(spawned));
  }
  bool written;
  {
    IgnoreSigpipe ignore;
    written = writeAll(fds[1], dotText);
    close(fds[1]);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) fail(std::string("cannot wait for dot: ") + std::strerror(errno));
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    fail("dot could not render " + svgFile + " (" +
         (WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                            : "killed by signal " + std::to_string(WTERMSIG(status))) +
         ")");
  }
  if (!written) fail("dot stopped reading before the whole graph was written");
}

}  // namespace qzvtool
