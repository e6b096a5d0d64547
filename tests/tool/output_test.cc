// What the tool prints and whether it could: every write to stdout and
// stderr is checked (a full disk or a closed pipe is exit status 1 and one
// line, or death by SIGPIPE where the shell left that signal alone), text
// output shows control characters in names as escapes, and JSON and -z
// output carry names exactly.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;

// Where the child's stdout goes.
enum class Sink {
  kFullDevice,  // /dev/full: every write fails with ENOSPC
  kClosedPipe,  // a pipe whose reading end is closed
};

// Runs the tool with stdout sent to `sink` and stderr read back (also sent to
// /dev/full when `fullStderr`). SIGPIPE is ignored in the child when
// `ignoreSigpipe`, as some shells and job runners leave it, otherwise set to
// its default.
ToolResult runWithBrokenStdout(const std::vector<std::string>& args, Sink sink, bool ignoreSigpipe,
                               bool fullStderr = false) {
  ToolResult result;
  int errPipe[2];
  int outPipe[2] = {-1, -1};
  if (pipe(errPipe) != 0) {
    ADD_FAILURE() << "pipe failed";
    return result;
  }
  if (sink == Sink::kClosedPipe) {
    if (pipe(outPipe) != 0) {
      ADD_FAILURE() << "pipe failed";
      return result;
    }
    close(outPipe[0]);  // nobody will ever read
  }
  const pid_t child = fork();
  if (child < 0) {
    ADD_FAILURE() << "fork failed";
    return result;
  }
  if (child == 0) {
    int out = sink == Sink::kClosedPipe ? outPipe[1] : open("/dev/full", O_WRONLY);
    if (out < 0) _exit(126);
    dup2(out, STDOUT_FILENO);
    if (fullStderr) {
      const int full = open("/dev/full", O_WRONLY);
      if (full < 0) _exit(126);
      dup2(full, STDERR_FILENO);
    } else {
      dup2(errPipe[1], STDERR_FILENO);
    }
    close(errPipe[0]);
    close(errPipe[1]);
    signal(SIGPIPE, ignoreSigpipe ? SIG_IGN : SIG_DFL);
    unsetenv("QZ_CONFIG_FILE");
    std::vector<char*> argv;
    const std::string program = qztool::toolPath();
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(errPipe[1]);
  if (outPipe[1] >= 0) close(outPipe[1]);
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(errPipe[0], buffer, sizeof buffer);
    if (got > 0) {
      result.err.append(buffer, static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  close(errPipe[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

class OutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("orders.csv"), "id\n1\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Data"}).status, 0);
  }

  std::vector<std::string> on(std::vector<std::string> args) const {
    args.insert(args.begin(), {"--vault", vault_});
    return args;
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(OutputTest, AFullDiskIsAFailureOfOneLine) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"ls"}, {"ls", "--json"}, {"ls", "-z"}, {"tree"}, {"info"},
        {"attr", "list", "Data"}, {"--help"}}) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const ToolResult result = runWithBrokenStdout(on(args), Sink::kFullDevice, false);
    expectOneLineError(result, 1, "cannot write to standard output: No space left on device");
  }
}

TEST_F(OutputTest, ALineageThatCannotBeWrittenFails) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  const std::string demo = dir_.join("demo");
  qztool::RunOptions options;
  options.env = {{"PATH", ""}};
  const ToolResult made = qztool::runTool({"demo", demo}, options);
  ASSERT_EQ(made.status, 0) << made.describe();
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"lineage"}, {"lineage", "--json"}, {"graph"},
        {"lineage", "Data/orders.csv", "--down"}}) {
    SCOPED_TRACE(::testing::PrintToString(args));
    std::vector<std::string> full{"--vault", demo};
    full.insert(full.end(), args.begin(), args.end());
    expectOneLineError(runWithBrokenStdout(full, Sink::kFullDevice, false), 1,
                       "cannot write to standard output: No space left on device");
  }
}

TEST_F(OutputTest, AClosedPipeEndsTheToolAsTheShellExpects) {
  // With SIGPIPE at its default the signal ends the tool, silently, as it
  // ends any program writing into a pipe whose reader has gone.
  const ToolResult killed = runWithBrokenStdout(on({"ls"}), Sink::kClosedPipe, false);
  EXPECT_EQ(killed.status, 128 + SIGPIPE) << killed.describe();
  EXPECT_TRUE(killed.err.empty()) << killed.describe();

  // Where SIGPIPE is ignored, the failed write is reported.
  const ToolResult reported = runWithBrokenStdout(on({"ls"}), Sink::kClosedPipe, true);
  expectOneLineError(reported, 1, "cannot write to standard output: Broken pipe");
}

TEST_F(OutputTest, AnUnwritableStderrStillGivesTheTrueStatus) {
  // Nothing to say and nothing said: success stays success.
  EXPECT_EQ(runWithBrokenStdout(on({"ls"}), Sink::kFullDevice, false, true).status, 1);
  // A failure whose message cannot be written is still a failure.
  const ToolResult failed = runWithBrokenStdout(on({"ls", "Nowhere"}), Sink::kFullDevice, false, true);
  EXPECT_EQ(failed.status, 1);
  const ToolResult usage = runWithBrokenStdout(on({"ls", "--colour"}), Sink::kFullDevice, false, true);
  EXPECT_EQ(usage.status, 2);
  // Log events that cannot be written make the run a failure.
  const ToolResult logged =
      runWithBrokenStdout(on({"--log-level", "1", "info", "--json"}), Sink::kFullDevice, false, true);
  EXPECT_EQ(logged.status, 1);
}

// Names with a line break, an escape sequence, a tab, DEL and a C1 control.
class ControlNamesTest : public OutputTest {
 protected:
  void SetUp() override {
    OutputTest::SetUp();
    ASSERT_EQ(runOn(vault_, {"mkdir", kBroken}).status, 0);
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("orders.csv"), "Data", "--name", kRed}).status, 0);
  }

  static constexpr const char* kBroken = "two\nlines";
  static constexpr const char* kRed = "\x1b[31mred\tdel\x7f c1\xc2\x9b end";
};

TEST_F(ControlNamesTest, TextOutputEscapesControlCharacters) {
  const ToolResult root = runOn(vault_, {"ls"});
  ASSERT_EQ(root.status, 0) << root.describe();
  EXPECT_EQ(root.out,
            "folder  Data        Data/\n"
            "folder  two\\nlines  two_lines/\n");

  const ToolResult data = runOn(vault_, {"ls", "Data"});
  ASSERT_EQ(data.status, 0) << data.describe();
  EXPECT_NE(data.out.find("\\033[31mred\\tdel\\177 c1\\302\\233 end"), std::string::npos) << data.out;
  for (char c : data.out) {
    const unsigned char byte = static_cast<unsigned char>(c);
    EXPECT_TRUE(byte == '\n' || (byte >= 0x20 && byte != 0x7f)) << "control byte " << int(byte);
  }
  EXPECT_EQ(data.out.find("\xc2\x9b"), std::string::npos);

  const ToolResult tree = runOn(vault_, {"tree"});
  ASSERT_EQ(tree.status, 0) << tree.describe();
  EXPECT_NE(tree.out.find("two_lines/  \"two\\nlines\""), std::string::npos) << tree.out;
  EXPECT_EQ(tree.out.find('\x1b'), std::string::npos) << tree.out;
}

TEST_F(ControlNamesTest, ErrorMessagesEscapeControlCharacters) {
  const ToolResult result = runOn(vault_, {"ls", "No\x1b[2Jwhere"});
  expectOneLineError(result, 1, "No\\033[2Jwhere");
}

TEST_F(ControlNamesTest, JsonCarriesNamesExactly) {
  const ToolResult root = runOn(vault_, {"ls", "--json"});
  ASSERT_EQ(root.status, 0) << root.describe();
  EXPECT_EQ(root.json()["folders"][1]["name"], kBroken);
  const ToolResult data = runOn(vault_, {"ls", "Data", "--json"});
  ASSERT_EQ(data.status, 0) << data.describe();
  const nlohmann::json listing = data.json();
  bool found = false;
  for (const auto& object : listing["objects"]) found = found || object["name"] == kRed;
  EXPECT_TRUE(found) << data.out;
}

TEST_F(ControlNamesTest, NulSeparatedRecordsCarryNamesExactly) {
  const std::string nul(1, '\0');
  const ToolResult root = runOn(vault_, {"ls", "-z"});
  ASSERT_EQ(root.status, 0) << root.describe();
  // Four fields a row: kind, display name, file name, flag.
  EXPECT_EQ(root.out, "folder" + nul + "Data" + nul + "Data" + nul + nul + "folder" + nul + kBroken + nul +
                          "two_lines" + nul + nul);

  const ToolResult data = runOn(vault_, {"ls", "Data", "--null"});
  ASSERT_EQ(data.status, 0) << data.describe();
  EXPECT_NE(data.out.find(nul + kRed + nul), std::string::npos);
  EXPECT_EQ(runOn(vault_, {"ls", "-z", "--json"}).status, 2);
}

}  // namespace
