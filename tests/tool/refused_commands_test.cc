// Nothing is left behind by a refused command: every refusal path of add,
// mkdir, mv, rename, fsrename, version, lock and attr exits non-zero with one
// line on stderr and leaves every file, directory and metadata row of the
// vault as it was (vault_state.h compares them all).
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"
#include "tool/vault_state.h"

namespace {

using qztest::TempDir;
using qztool::runOn;
using qztool::ToolResult;

class RefusedCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    inbox_ = dir_.join("inbox");
    qztest::makeDirs(inbox_);
    qztool::writeText(inbox_ + "/a.csv", "id\n1\n");
    qztool::writeText(inbox_ + "/b.csv", "id\n2\n");
    qztool::writeText(inbox_ + "/nightly.job.def", "{\n  \"name\": \"Nightly\",\n  \"uses\": []\n}\n");
    qztool::writeText(inbox_ + "/broken.job.def", "{ not json\n");
    qztool::initVault(vault_);
    ok({"mkdir", "Data"});
    ok({"mkdir", "Other"});
    ok({"mkdir", "Jobs"});
    ok({"add", inbox_ + "/a.csv", "Data", "--name", "Alpha"});
    ok({"add", inbox_ + "/b.csv", "Data", "--name", "Beta"});
    ok({"add", inbox_ + "/a.csv", "Other", "--name", "Alpha"});
    ok({"add", inbox_ + "/nightly.job.def", "Jobs"});
    ok({"lock", "Data/Alpha.csv"});
    ok({"version", "create", "Data/Beta.csv"});
    ok({"analyze"});
    // Everything listed once, so that the stamps and caches a first look
    // writes are there before the state is taken.
    for (const char* path : {".", "Data", "Other", "Jobs", "Data/Alpha.csv", "Data/Beta.csv",
                             "Other/Alpha.csv", "Jobs/nightly.job.def"}) {
      ok({"attr", "list", path});
    }
    for (const char* path : {".", "Data", "Other", "Jobs"}) ok({"ls", path});
    before_ = qztool::vaultState(vault_);
  }

  // Spoils the definition in the vault after it was added. Its time stamp is
  // moved on, so that the cache sees the change even within the second.
  void spoilDefinition() {
    const std::string path = vault_ + "/Jobs/nightly.job.def";
    qztool::writeText(path, "{ broken\n");
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::minutes(5));
    ok({"ls", "Jobs"});
    before_ = qztool::vaultState(vault_);
  }

  void ok(const std::vector<std::string>& args) {
    const ToolResult result = runOn(vault_, args);
    ASSERT_EQ(result.status, 0) << ::testing::PrintToString(args) << "\n" << result.describe();
  }

  // Runs a command that must be refused with `status` and a one-line message
  // holding `fragment`, and checks that the vault is exactly as it was.
  void expectRefused(const std::vector<std::string>& args, int status, const std::string& fragment) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const ToolResult result = runOn(vault_, args);
    qztool::expectOneLineError(result, status, fragment);
    const std::vector<std::string> after = qztool::vaultState(vault_);
    EXPECT_TRUE(after == before_) << "the vault changed:\n" << qztool::stateDifference(before_, after);
    before_ = after;
  }

  TempDir dir_;
  std::string vault_;
  std::string inbox_;
  std::vector<std::string> before_;
};

TEST_F(RefusedCommands, Add) {
  // A display name the folder already has: the file copied in and the rows
  // written for it go again.
  expectRefused({"add", inbox_ + "/b.csv", "Data", "--name", "Alpha"}, 1,
                "An object with that name already exists");
  // A definition its plug-in cannot read.
  expectRefused({"add", inbox_ + "/broken.job.def", "Jobs"}, 1, "cannot read this file");
  expectRefused({"add", inbox_ + "/a.csv", "Nowhere"}, 1, "Nowhere");
  expectRefused({"add", inbox_ + "/a.csv", "Data/Alpha.csv"}, 2, "is an object, not a folder");
  expectRefused({"add", inbox_ + "/absent.csv", "Data"}, 2, "is not a file");
}

TEST_F(RefusedCommands, Mkdir) {
  expectRefused({"mkdir", "Nowhere/Reports"}, 1, "Nowhere");
  expectRefused({"mkdir", "Data/Alpha.csv/Reports"}, 2, "is an object, not a folder");
  expectRefused({"mkdir", "Data/.."}, 2, "is not a display name");
  expectRefused({"mkdir", "Data/"}, 2, "ends without a display name");
}

TEST_F(RefusedCommands, Mv) {
  expectRefused({"mv", "Data/Alpha.csv", "Other"}, 1, "A file by that name already exists");
  expectRefused({"mv", "Data/Alpha.csv", "Nowhere"}, 1, "Nowhere");
  expectRefused({"mv", "Data", "Data"}, 2, "cannot move into itself");
  expectRefused({"mv", "Data", "Jobs/nightly.job.def"}, 2, "is an object, not a folder");
  expectRefused({"mv", "Data/Missing.csv", "Other"}, 1, "Missing.csv");
}

TEST_F(RefusedCommands, Rename) {
  expectRefused({"rename", "Data/Beta.csv", "Alpha"}, 1, "An object with that name already exists");
  expectRefused({"rename", "Data/Beta.csv", "Beta"}, 1, "An object with that name already exists");
  expectRefused({"rename", "Data/Missing.csv", "Gamma"}, 1, "Missing.csv");
  expectRefused({"rename", "Data/Beta.csv", ""}, 2, "the new display name is empty");
}

TEST_F(RefusedCommands, RenameOfAnUnreadableDefinition) {
  spoilDefinition();
  expectRefused({"rename", "Jobs/nightly.job.def", "Weekly"}, 1, "cannot read this file");
}

TEST_F(RefusedCommands, FsRename) {
  expectRefused({"fsrename", "Data/Beta.csv", "Alpha.csv"}, 1, "A file by that name already exists");
  expectRefused({"fsrename", "Data", "Other"}, 1, "already exists");
  expectRefused({"fsrename", "Data/Beta.csv", ".hidden"}, 2, "begins with \".\"");
  expectRefused({"fsrename", "Data/Beta.csv", "a/b"}, 2, "without \"/\"");
  expectRefused({"fsrename", "Data/Missing.csv", "Gamma.csv"}, 1, "Missing.csv");
}

TEST_F(RefusedCommands, Version) {
  expectRefused({"version", "rollback", "Data/Alpha.csv", "3"}, 1, "No valid file for rollback operation");
  expectRefused({"version", "rollback", "Data/Beta.csv", "0"}, 1, "Invalid rollback version number");
  expectRefused({"version", "create", "Data/Beta.csv", "--from", inbox_ + "/absent.csv"}, 2, "is not a file");
  expectRefused({"version", "create", "Data/Missing.csv"}, 1, "Missing.csv");
  expectRefused({"version", "list", "Data"}, 2, "is a folder, not an object");
}

TEST_F(RefusedCommands, Lock) {
  expectRefused({"lock", "Data/Alpha.csv"}, 1, "is already locked by");
  expectRefused({"lock", "Data/Missing.csv"}, 1, "Missing.csv");
  expectRefused({"unlock", "Data"}, 2, "is a folder, not an object");
}

TEST_F(RefusedCommands, Attr) {
  expectRefused({"attr", "set", "Data", "_CREATOR", "mallory"}, 2, "belongs to the library");
  expectRefused({"attr", "clear", "Data/Alpha.csv", "_LOCKEDUSER"}, 2, "belongs to the library");
  expectRefused({"attr", "set", "Data", "Owner", "x", "--col", "10"}, 2, "--col 10 is outside 0..9");
  expectRefused({"attr", "set", "Data/Missing.csv", "Owner", "x"}, 1, "Missing.csv");
  expectRefused({"attr", "set", "Nowhere", "Owner", "x"}, 1, "Nowhere");
}

TEST_F(RefusedCommands, AttrOfAnUnreadableDefinition) {
  spoilDefinition();
  expectRefused({"attr", "set", "Jobs/nightly.job.def", "Owner", "x"}, 1, "cannot read this file");
  expectRefused({"attr", "clear", "Jobs/nightly.job.def", "Owner"}, 1, "cannot read this file");
}

}  // namespace
