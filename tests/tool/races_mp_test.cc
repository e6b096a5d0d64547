// Several tool processes changing one folder at the same moment: writers of
// different rows of one attribute all keep their rows, exactly one of several
// lockers wins, and of two renames to one name exactly one succeeds while
// both contents stay.
#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using qztest::readFile;
using qztest::TempDir;
using qztool::runOn;
using qztool::ToolResult;

const int kProcesses = 8;

// Starts every command at once (each a tool process, output discarded) and
// returns their exit statuses in order.
std::vector<int> runTogether(const std::string& vault, const std::vector<std::vector<std::string>>& commands) {
  int gate[2];
  if (pipe(gate) != 0) return {};
  std::vector<pid_t> children;
  for (const auto& command : commands) {
    const pid_t child = fork();
    if (child == 0) {
      close(gate[1]);
      char byte;
      // Every child waits until the parent has started them all.
      if (read(gate[0], &byte, 1) < 0) _exit(120);
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      dup2(null, 2);
      std::vector<std::string> words = {qztool::toolPath(), "--vault", vault};
      words.insert(words.end(), command.begin(), command.end());
      std::vector<char*> argv;
      for (std::string& word : words) argv.push_back(&word[0]);
      argv.push_back(nullptr);
      unsetenv("QZ_CONFIG_FILE");
      execv(argv[0], argv.data());
      _exit(127);
    }
    children.push_back(child);
  }
  close(gate[0]);
  close(gate[1]);  // end of file: every child goes
  std::vector<int> statuses;
  for (pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  }
  return statuses;
}

class ToolRaces : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Hot"}).status, 0);
    for (const char* name : {"ra.csv", "rb.csv"}) {
      qztool::writeText(dir_.join(name), std::string(name) + "\n");
      ASSERT_EQ(runOn(vault_, {"add", dir_.join(name), "Hot"}).status, 0);
    }
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(ToolRaces, WritersOfDifferentRowsAllKeepTheirRows) {
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::string attribute = "Shared" + std::to_string(round);
    std::vector<std::vector<std::string>> commands;
    for (int row = 0; row < kProcesses; ++row) {
      commands.push_back({"attr", "set", "Hot", attribute, "v" + std::to_string(row), "--row", std::to_string(row)});
    }
    const std::vector<int> statuses = runTogether(vault_, commands);
    ASSERT_EQ(statuses.size(), commands.size());
    for (int row = 0; row < kProcesses; ++row) {
      EXPECT_EQ(statuses[row], 0) << "writer of row " << row;
      const ToolResult value =
          runOn(vault_, {"attr", "get", "Hot", attribute, "--row", std::to_string(row), "--col", "0"});
      EXPECT_EQ(value.out, "v" + std::to_string(row) + "\n") << value.describe();
    }
  }
}

TEST_F(ToolRaces, ExactlyOneOfSeveralLockersWins) {
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::vector<int> statuses =
        runTogether(vault_, std::vector<std::vector<std::string>>(kProcesses, {"lock", "Hot/ra.csv"}));
    int won = 0;
    for (int status : statuses) won += status == 0 ? 1 : 0;
    EXPECT_EQ(won, 1);
    const ToolResult status = runOn(vault_, {"status", "Hot/ra.csv", "--json"});
    ASSERT_EQ(status.status, 0) << status.describe();
    EXPECT_TRUE(status.json()["locked"].get<bool>());
    ASSERT_EQ(runOn(vault_, {"unlock", "Hot/ra.csv"}).status, 0);
  }
}

TEST_F(ToolRaces, TwoRenamesToOneNameNeverDestroyContent) {
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::string target = "same" + std::to_string(round) + ".csv";
    const std::vector<int> statuses = runTogether(
        vault_, {{"fsrename", "Hot/ra.csv", target}, {"fsrename", "Hot/rb.csv", target}});
    ASSERT_EQ(statuses.size(), 2u);
    EXPECT_EQ((statuses[0] == 0 ? 1 : 0) + (statuses[1] == 0 ? 1 : 0), 1);
    // Both contents are still there, one under the new name.
    const std::string moved = readFile(vault_ + "/Hot/" + target);
    EXPECT_TRUE(moved == "ra.csv\n" || moved == "rb.csv\n") << moved;
    const std::string stayed = moved == "ra.csv\n" ? "rb.csv" : "ra.csv";
    EXPECT_EQ(readFile(vault_ + "/Hot/" + stayed), stayed + "\n");
    // Back to the start for the next round.
    ASSERT_EQ(runOn(vault_, {"fsrename", "Hot/" + target, moved == "ra.csv\n" ? "ra.csv" : "rb.csv"}).status, 0);
  }
}

}  // namespace
