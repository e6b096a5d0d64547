// What the tool does to keep data safe: links are never followed out of the
// vault or round in a loop, the vault's own files are refused when they are
// links or special files (and the check never hangs on them), a repair gives
// an object whose file vanished its newest version back instead of deleting
// it, nothing is written to a metadata store that only lives in memory, and
// folder locks name their holders, are taken over when their holder has
// ended and can be listed and cleared.
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

namespace fs = std::filesystem;
using qztest::readFile;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::snapshot;
using qztool::ToolResult;

std::string hostName() {
  char name[256] = "";
  gethostname(name, sizeof name);
  return name;
}

// The id of a process that has ended (and been reaped).
pid_t endedProcessId() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = 0;
  waitpid(child, &status, 0);
  return child;
}

std::string lockRecord(pid_t processId, const std::string& host) {
  return "qzvault-lock 1\nhost=" + host + "\npid=" + std::to_string(processId) +
         "\nstart=0\ntime=1700000000\nuser=somebody\n";
}

class DataSafety : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    outside_ = dir_.join("outside");
    fs::create_directories(outside_);
    qztool::writeText(outside_ + "/victim.csv", "precious\n");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("plan.txt"), "first\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("plan.txt"), "Data"}).status, 0);
  }

  static void expectOk(const ToolResult& result) { EXPECT_EQ(result.status, 0) << result.describe(); }

  TempDir dir_;
  std::string vault_;
  std::string outside_;
};

TEST_F(DataSafety, ALinkedFolderIsNeverEntered) {
  ASSERT_EQ(symlink(outside_.c_str(), (vault_ + "/Data/Elsewhere").c_str()), 0);
  const auto before = snapshot(outside_);
  expectOk(runOn(vault_, {"ls", "Data"}));
  expectOk(runOn(vault_, {"tree"}));
  runOn(vault_, {"check", "--repair"});
  runOn(vault_, {"analyze"});
  EXPECT_EQ(snapshot(outside_), before);
  EXPECT_FALSE(fs::exists(outside_ + "/.v_fmd"));
  EXPECT_FALSE(fs::exists(outside_ + "/.v_cmd"));
}

TEST_F(DataSafety, LinksToTheFolderItselfDoNotMakeAWalkLoop) {
  ASSERT_EQ(symlink(".", (vault_ + "/Data/again").c_str()), 0);
  ASSERT_EQ(symlink(".", (vault_ + "/Data/more").c_str()), 0);
  const ToolResult tree = runOn(vault_, {"tree"});
  expectOk(tree);
  EXPECT_EQ(tree.out.find("again/"), std::string::npos) << tree.out;
  const ToolResult check = runOn(vault_, {"check"});
  EXPECT_EQ(check.status, 0) << check.describe();
}

TEST_F(DataSafety, AMetadataStoreThatIsALinkIsRefusedByName) {
  // A database outside the vault, linked in as the folder's metadata.
  fs::copy_file(vault_ + "/Data/.v_fmd", outside_ + "/other.db");
  const auto before = snapshot(outside_);
  fs::remove(vault_ + "/Data/.v_fmd");
  ASSERT_EQ(symlink((outside_ + "/other.db").c_str(), (vault_ + "/Data/.v_fmd").c_str()), 0);
  const ToolResult set = runOn(vault_, {"attr", "set", "Data/plan.txt", "Owner", "me"});
  expectOneLineError(set, 1, "/Data/.v_fmd: a symbolic link");
  EXPECT_EQ(snapshot(outside_), before);
}

TEST_F(DataSafety, AVersionDirectoryThatIsALinkIsRefused) {
  ASSERT_EQ(symlink(outside_.c_str(), (vault_ + "/Data/.v_ver").c_str()), 0);
  const auto before = snapshot(outside_);
  const ToolResult version = runOn(vault_, {"version", "create", "Data/plan.txt"});
  expectOneLineError(version, 1, ".v_ver is a symbolic link");
  EXPECT_EQ(readFile(vault_ + "/Data/plan.txt"), "first\n");
  EXPECT_EQ(snapshot(outside_), before);
}

TEST_F(DataSafety, TheCheckNeverHangsOnAFifoAndSetsItAside) {
  fs::remove(vault_ + "/Data/.v_cmd");
  ASSERT_EQ(mkfifo((vault_ + "/Data/.v_cmd").c_str(), 0644), 0);
  ToolResult check = runOn(vault_, {"check", "--json"});
  ASSERT_EQ(check.status, 1) << check.describe();
  bool refused = false;
  const nlohmann::json document = check.json();
  for (const auto& finding : document["findings"]) {
    refused = refused || (finding["kind"].get<std::string>() == "refused-file" &&
                          finding["path"].get<std::string>() == "Data/.v_cmd");
  }
  EXPECT_TRUE(refused) << check.out;
  // Reading the folder does not wait on the fifo either.
  expectOk(runOn(vault_, {"ls", "Data"}));

  check = runOn(vault_, {"check", "--repair"});
  EXPECT_EQ(check.status, 0) << check.describe();
  struct stat status;
  ASSERT_EQ(lstat((vault_ + "/Data/.v_quarantine/.v_cmd").c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
  expectOk(runOn(vault_, {"ls", "Data"}));
}

TEST_F(DataSafety, ARepairGivesAnObjectWithoutAFileItsNewestVersion) {
  expectOk(runOn(vault_, {"version", "create", "Data/plan.txt"}));
  qztool::writeText(vault_ + "/Data/plan.txt", "second\n");
  expectOk(runOn(vault_, {"version", "create", "Data/plan.txt"}));
  // What a crash between moving the file aside and writing its new content
  // leaves behind.
  fs::remove(vault_ + "/Data/plan.txt");
  ToolResult check = runOn(vault_, {"check", "--json"});
  ASSERT_EQ(check.status, 1) << check.describe();
  EXPECT_EQ(check.json()["findings"][0]["kind"], "missing-object") << check.out;
  check = runOn(vault_, {"check", "--repair"});
  EXPECT_EQ(check.status, 0) << check.describe();
  EXPECT_EQ(readFile(vault_ + "/Data/plan.txt"), "second\n");
  EXPECT_EQ(readFile(vault_ + "/Data/.v_ver/plan.txt.1"), "first\n");
  const ToolResult listing = runOn(vault_, {"ls", "Data"});
  EXPECT_THAT(listing.out, ::testing::HasSubstr("plan.txt"));
  expectOk(runOn(vault_, {"check"}));
}

TEST_F(DataSafety, RollbackLeavesAFileNamedLikeABackupAlone) {
  qztool::writeText(vault_ + "/Data/plan.txt.bak", "someone else's\n");
  expectOk(runOn(vault_, {"version", "create", "Data/plan.txt"}));
  qztool::writeText(vault_ + "/Data/plan.txt", "second\n");
  expectOk(runOn(vault_, {"version", "rollback", "Data/plan.txt", "1"}));
  EXPECT_EQ(readFile(vault_ + "/Data/plan.txt"), "first\n");
  EXPECT_EQ(readFile(vault_ + "/Data/plan.txt.bak"), "someone else's\n");
}

TEST_F(DataSafety, NothingIsWrittenToMetadataKeptInMemoryOnly) {
  const auto before = snapshot(vault_);
  expectOneLineError(
      runOn(vault_, {"--set", "QZVLT/BYPASS=1", "attr", "set", "Data/plan.txt", "Owner", "me"}), 1,
      "kept in memory only");
  EXPECT_EQ(snapshot(vault_), before);
}

TEST_F(DataSafety, InitFailsWhereTheIdentifierCannotBeStored) {
  const ToolResult init = qztool::runTool({"--vault", "/proc/self", "init"});
  EXPECT_NE(init.status, 0) << init.describe();
  EXPECT_EQ(init.errLines().size(), 1u) << init.describe();
}

TEST_F(DataSafety, AFolderLockNamesItsHolder) {
  // This test's own process holds the lock: it runs, so the lock is live.
  qztool::writeText(vault_ + "/Data/.v_lck", lockRecord(getpid(), hostName()));
  const ToolResult set = runOn(vault_, {"--set", "QZVLT/LOCK_WAIT_MS=50", "attr", "set",
                                        "Data/plan.txt", "Owner", "me"});
  expectOneLineError(set, 1, "is locked by somebody (process " + std::to_string(getpid()));
  const ToolResult list = runOn(vault_, {"locks", "--json"});
  ASSERT_EQ(list.status, 0) << list.describe();
  ASSERT_EQ(list.json().size(), 1u) << list.out;
  EXPECT_EQ(list.json()[0]["folder"], "Data");
  EXPECT_EQ(list.json()[0]["state"], "live");
  expectOneLineError(runOn(vault_, {"locks", "clear", "Data"}), 1, "--force");
  EXPECT_TRUE(fs::exists(vault_ + "/Data/.v_lck"));
  expectOk(runOn(vault_, {"locks", "clear", "Data", "--force"}));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_lck"));
}

TEST_F(DataSafety, TheLockOfAnEndedProcessIsStaleAtOnceAndTakenOver) {
  qztool::writeText(vault_ + "/Data/.v_lck", lockRecord(endedProcessId(), hostName()));
  ToolResult check = runOn(vault_, {"check", "--json"});
  ASSERT_EQ(check.status, 1) << check.describe();
  EXPECT_EQ(check.json()["findings"][0]["kind"], "stale-lock") << check.out;
  const ToolResult list = runOn(vault_, {"locks", "--json"});
  ASSERT_EQ(list.status, 0) << list.describe();
  EXPECT_EQ(list.json()[0]["state"], "ended") << list.out;
  // A command takes the lock over without waiting and leaves none behind.
  expectOk(runOn(vault_, {"attr", "set", "Data/plan.txt", "Owner", "me"}));
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_lck"));
}

TEST_F(DataSafety, AnotherMachinesLockIsStaleOnlyWhenOld) {
  qztool::writeText(vault_ + "/Data/.v_lck", lockRecord(12345, "some-other-machine"));
  expectOk(runOn(vault_, {"check"}));
  fs::last_write_time(vault_ + "/Data/.v_lck", fs::file_time_type::clock::now() - std::chrono::hours(2));
  const ToolResult check = runOn(vault_, {"check", "--repair"});
  EXPECT_EQ(check.status, 0) << check.describe();
  EXPECT_FALSE(fs::exists(vault_ + "/Data/.v_lck"));
}

TEST_F(DataSafety, GraphOutputNeverLandsOnAVaultFileOrAnObject) {
  qztool::writeText(outside_ + "/old.dot", "old\n");
  const auto before = snapshot(vault_);
  expectOneLineError(runOn(vault_, {"graph", "--output", vault_ + "/.v_imd"}), 2, "vault's own files");
  expectOneLineError(runOn(vault_, {"graph", "--svg", vault_ + "/Data/.v_fmd"}), 2, "vault's own files");
  expectOneLineError(runOn(vault_, {"graph", "--output", vault_ + "/Data/plan.txt"}), 2,
                     "an entry of the vault");
  expectOneLineError(runOn(vault_, {"graph", "--output", vault_ + "/Data/plan.txt", "--force"}), 2,
                     "an entry of the vault");
  EXPECT_EQ(snapshot(vault_), before);
  expectOneLineError(runOn(vault_, {"graph", "--output", outside_ + "/old.dot"}), 2, "--force");
  EXPECT_EQ(readFile(outside_ + "/old.dot"), "old\n");
  expectOk(runOn(vault_, {"graph", "--output", outside_ + "/old.dot", "--force"}));
  EXPECT_NE(readFile(outside_ + "/old.dot"), "old\n");
  expectOk(runOn(vault_, {"graph", "--output", vault_ + "/Data/new.dot"}));
}

}  // namespace
