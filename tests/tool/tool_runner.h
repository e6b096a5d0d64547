// Running the built qzvault tool as a user would: a child process with its own
// arguments, working directory and environment, whose exit status, stdout and
// stderr the test reads. Also small helpers to make vaults through the tool and
// to take a snapshot of a directory tree.
#ifndef QZ_TESTS_TOOL_TOOL_RUNNER_H_
#define QZ_TESTS_TOOL_TOOL_RUNNER_H_

#include <grp.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/privileges.h"
#include "support/temp_dir.h"

namespace qztool {

namespace fs = std::filesystem;

inline std::string toolPath() { return std::string(QZ_TEST_BINARY_ROOT) + "/tools/qzvault/qzvault"; }
// The plug-in directory of the build tree, which the tool uses by default.
inline std::string buildPluginDir() { return std::string(QZ_TEST_BINARY_ROOT) + "/plugins"; }
inline std::string sourcePath(const std::string& relative) {
  return std::string(QZ_TEST_SOURCE_ROOT) + "/" + relative;
}
// True when the shipped definition plug-in has been built.
inline bool definitionPluginBuilt() { return fs::exists(buildPluginDir() + "/qzvmddefs.so"); }

struct ToolResult {
  int status = -1;  // exit status; 128 + signal number when killed
  std::string out;
  std::string err;

  // For failure messages.
  std::string describe() const {
    return "exit status " + std::to_string(status) + "\n--- stdout\n" + out + "--- stderr\n" + err;
  }
  std::vector<std::string> errLines() const {
    std::vector<std::string> lines;
    std::istringstream in(err);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  nlohmann::json json() const { return nlohmann::json::parse(out); }
};

struct RunOptions {
  std::string cwd;                                          // empty: the test's own
  std::vector<std::pair<std::string, std::string>> env;     // set in the child
  std::vector<std::string> unset;                           // removed in the child
  bool asNobody = false;                                    // drop to user nobody first
};

// Runs `program` with `args`. QZ_CONFIG_FILE is set empty in the child's
// environment (which reads no configuration file at all) unless `options.env`
// sets it or `options.unset` removes it, so that no operator's or user's file
// leaks in.
inline ToolResult runProgram(const std::string& program, const std::vector<std::string>& args,
                             const RunOptions& options = {}) {
  ToolResult result;
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
    ADD_FAILURE() << "pipe failed";
    return result;
  }
  const pid_t child = fork();
  if (child < 0) {
    ADD_FAILURE() << "fork failed";
    return result;
  }
  if (child == 0) {
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(errPipe[1], STDERR_FILENO);
    close(outPipe[0]);
    close(outPipe[1]);
    close(errPipe[0]);
    close(errPipe[1]);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    setenv("QZ_CONFIG_FILE", "", 1);
    for (const auto& variable : options.env) setenv(variable.first.c_str(), variable.second.c_str(), 1);
    for (const std::string& variable : options.unset) unsetenv(variable.c_str());
    if (options.asNobody && geteuid() == 0) {
      const gid_t group = static_cast<gid_t>(qztest::kNobodyId);
      if (setgroups(1, &group) != 0 || setgid(group) != 0 ||
          setuid(static_cast<uid_t>(qztest::kNobodyId)) != 0) {
        _exit(125);
      }
    }
    std::vector<char*> argv;
    const std::string& path = program;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(path.c_str(), argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  // Read both pipes as they fill, so that neither blocks the child.
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open = 2;
  while (open > 0) {
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
      if (got > 0) {
        sinks[i]->append(buffer, static_cast<std::size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

// Runs the tool with `args` (see runProgram).
inline ToolResult runTool(const std::vector<std::string>& args, const RunOptions& options = {}) {
  return runProgram(toolPath(), args, options);
}

// Runs the tool on the vault at `vault` (--vault given first).
inline ToolResult runOn(const std::string& vault, std::vector<std::string> args,
                        const RunOptions& options = {}) {
  args.insert(args.begin(), {"--vault", vault});
  return runTool(args, options);
}

// A new vault in `directory` (made by `qzvault init`); fails the test when init
// fails.
inline void initVault(const std::string& directory) {
  const ToolResult result = runTool({"--vault", directory, "init"});
  ASSERT_EQ(result.status, 0) << result.describe();
}

// Every entry below `root` (relative paths, "/" after directories) with the
// size and modification time of files, so that a test sees any change.
inline std::map<std::string, std::string> snapshot(const std::string& root) {
  std::map<std::string, std::string> entries;
  std::error_code error;
  for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    const fs::path relative = it->path().lexically_relative(root);
    struct stat st;
    if (lstat(it->path().c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      entries[relative.string() + "/"] = "dir";
    } else {
      entries[relative.string()] = std::to_string(st.st_size) + "@" + std::to_string(st.st_mtim.tv_sec) +
                                   "." + std::to_string(st.st_mtim.tv_nsec);
    }
  }
  return entries;
}

// The entries of a snapshot whose path has no component beginning with ".":
// the folders and objects a user sees, without the vault's own files.
inline std::map<std::string, std::string> userEntries(const std::map<std::string, std::string>& all) {
  std::map<std::string, std::string> entries;
  for (const auto& entry : all) {
    bool hidden = false;
    std::istringstream in(entry.first);
    for (std::string part; std::getline(in, part, '/');) hidden = hidden || (!part.empty() && part[0] == '.');
    if (!hidden) entries.insert(entry);
  }
  return entries;
}

// Asserts that a failed run printed exactly one line on stderr, prefixed
// "qzvault: " and containing `fragment`.
inline void expectOneLineError(const ToolResult& result, int status, const std::string& fragment) {
  EXPECT_EQ(result.status, status) << result.describe();
  const std::vector<std::string> lines = result.errLines();
  ASSERT_EQ(lines.size(), 1u) << result.describe();
  EXPECT_EQ(lines[0].rfind("qzvault: ", 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find(fragment), std::string::npos)
      << "expected \"" << fragment << "\" in: " << lines[0];
}

inline void writeText(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  ASSERT_TRUE(out.good()) << "cannot write " << path;
}

}  // namespace qztool

#endif  // QZ_TESTS_TOOL_TOOL_RUNNER_H_
