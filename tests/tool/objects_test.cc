// version create|list|rollback, lock, unlock and status.
#include <sqlite3.h>
#include <sys/stat.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::readFile;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;

class ObjectsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Data"}).status, 0);
    qztool::writeText(dir_.join("plan.txt"), "first\n");
    ASSERT_EQ(runOn(vault_, {"add", dir_.join("plan.txt"), "Data"}).status, 0);
    object_ = vault_ + "/Data/plan.txt";
  }

  TempDir dir_;
  std::string vault_;
  std::string object_;
};

TEST_F(ObjectsTest, VersionCreateKeepsTheContent) {
  const ToolResult kept = runOn(vault_, {"version", "create", "Data/plan.txt"});
  ASSERT_EQ(kept.status, 0) << kept.describe();
  EXPECT_EQ(kept.out, "Kept version 1 of Data/plan.txt\n");
  EXPECT_EQ(readFile(object_), "first\n");

  qztool::writeText(dir_.join("second.txt"), "second\n");
  const ToolResult json =
      runOn(vault_, {"version", "create", "Data/plan.txt", "--from", dir_.join("second.txt"), "--json"});
  ASSERT_EQ(json.status, 0) << json.describe();
  EXPECT_EQ(json.json(), nlohmann::json({{"path", "Data/plan.txt"}, {"version", 2}}));
  EXPECT_EQ(readFile(object_), "second\n");

  const ToolResult list = runOn(vault_, {"version", "list", "Data/plan.txt", "--json"});
  ASSERT_EQ(list.status, 0) << list.describe();
  const nlohmann::json versions = list.json()["versions"];
  ASSERT_EQ(versions.size(), 2u);
  EXPECT_EQ(versions[0]["version"], 1);
  EXPECT_EQ(versions[1]["version"], 2);
  EXPECT_THAT(versions[0]["date"].get<std::string>(),
              ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[-+][0-9]{2}:[0-9]{2}"));

  const ToolResult text = runOn(vault_, {"version", "list", "Data/plan.txt"});
  ASSERT_EQ(text.status, 0) << text.describe();
  EXPECT_EQ(text.out.substr(0, 3), "1  ");
}

TEST_F(ObjectsTest, RollbackKeepsTheCurrentContentAsANewVersion) {
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  qztool::writeText(dir_.join("second.txt"), "second\n");
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt", "--from", dir_.join("second.txt")}).status, 0);
  qztool::writeText(dir_.join("third.txt"), "third\n");
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt", "--from", dir_.join("third.txt")}).status, 0);
  // Versions: 1 "first", 2 "first", 3 "second"; the content is "third".
  const ToolResult rolled = runOn(vault_, {"version", "rollback", "Data/plan.txt", "3"});
  ASSERT_EQ(rolled.status, 0) << rolled.describe();
  EXPECT_EQ(rolled.out, "Kept the current content of Data/plan.txt as version 4; its content is now that of version 3\n");
  EXPECT_EQ(readFile(object_), "second\n");
  EXPECT_EQ(readFile(dir_.join("vault/Data/.v_ver/plan.txt.4")), "third\n");
  EXPECT_EQ(readFile(dir_.join("vault/Data/.v_ver/plan.txt.3")), "second\n");
  EXPECT_EQ(runOn(vault_, {"version", "list", "Data/plan.txt", "--json"}).json()["versions"].size(), 4u);

  // A gap falls back to the nearest older version, as the library's rollback does.
  ASSERT_EQ(std::remove(dir_.join("vault/Data/.v_ver/plan.txt.3").c_str()), 0);
  const ToolResult json = runOn(vault_, {"version", "rollback", "Data/plan.txt", "3", "--json"});
  ASSERT_EQ(json.status, 0) << json.describe();
  EXPECT_EQ(json.json(), (nlohmann::json{{"path", "Data/plan.txt"}, {"restored", 2}, {"kept", 5}, {"discarded", false}}));
  EXPECT_EQ(readFile(object_), "first\n");
  EXPECT_EQ(readFile(dir_.join("vault/Data/.v_ver/plan.txt.5")), "second\n");
  // Nothing is left behind in the folder.
  EXPECT_EQ(qztool::userEntries(qztool::snapshot(dir_.join("vault/Data"))).size(), 1u);
  for (const auto& entry : qztool::snapshot(dir_.join("vault/Data"))) {
    EXPECT_EQ(entry.first.find(".rollback-"), std::string::npos) << entry.first;
  }
}

TEST_F(ObjectsTest, RollbackWithDiscardRestoresAVersionAndDropsNewerOnes) {
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  qztool::writeText(dir_.join("second.txt"), "second\n");
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt", "--from", dir_.join("second.txt")}).status, 0);
  qztool::writeText(dir_.join("third.txt"), "third\n");
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt", "--from", dir_.join("third.txt")}).status, 0);
  EXPECT_EQ(readFile(object_), "third\n");

  // Each create kept the content of its time: 1 "first", 2 "first" (the
  // content before --from second), 3 "second".
  const ToolResult rolled = runOn(vault_, {"version", "rollback", "Data/plan.txt", "3", "--discard"});
  ASSERT_EQ(rolled.status, 0) << rolled.describe();
  EXPECT_EQ(rolled.out, "Rolled Data/plan.txt back to version 3; discarded its current content\n");
  EXPECT_EQ(readFile(object_), "second\n");
  EXPECT_EQ(runOn(vault_, {"version", "list", "Data/plan.txt", "--json"}).json()["versions"].size(), 2u);

  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  const ToolResult dropped = runOn(vault_, {"version", "rollback", "Data/plan.txt", "1", "--discard"});
  ASSERT_EQ(dropped.status, 0) << dropped.describe();
  EXPECT_EQ(dropped.out, "Rolled Data/plan.txt back to version 1; discarded its current content and versions 2 to 3\n");
  EXPECT_EQ(readFile(object_), "first\n");
  EXPECT_EQ(runOn(vault_, {"version", "list", "Data/plan.txt", "--json"}).json()["versions"].size(), 0u);
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);
  ASSERT_EQ(runOn(vault_, {"version", "create", "Data/plan.txt"}).status, 0);

  ASSERT_EQ(runOn(vault_, {"version", "rollback", "Data/plan.txt", "2", "--discard"}).status, 0);
  EXPECT_EQ(readFile(object_), "first\n");
  EXPECT_EQ(runOn(vault_, {"version", "list", "Data/plan.txt", "--json"}).json()["versions"].size(), 1u);
}

TEST_F(ObjectsTest, RollbackFailures) {
  // Version numbers start at 1: 0 is refused with the library's own words.
  expectOneLineError(runOn(vault_, {"version", "rollback", "Data/plan.txt", "0"}), 1,
                     "Invalid rollback version number");
  expectOneLineError(runOn(vault_, {"version", "rollback", "Data/plan.txt", "3"}), 1,
                     "No valid file for rollback operation");
  expectOneLineError(runOn(vault_, {"version", "rollback", "Data/plan.txt", "0", "--discard"}), 1,
                     "Invalid rollback version number");
  expectOneLineError(runOn(vault_, {"version", "rollback", "Data/plan.txt", "3", "--discard"}), 1,
                     "No valid file for rollback operation");
  EXPECT_EQ(readFile(object_), "first\n");
}

TEST_F(ObjectsTest, VersionsOfAMissingObjectFail) {
  expectOneLineError(runOn(vault_, {"version", "create", "Data/absent.txt"}), 1, "absent.txt");
  expectOneLineError(runOn(vault_, {"version", "list", "Data/absent.txt"}), 1, "absent.txt");
}

TEST_F(ObjectsTest, LockStatusAndUnlock) {
  const ToolResult free = runOn(vault_, {"status", "Data/plan.txt", "--json"});
  ASSERT_EQ(free.status, 0) << free.describe();
  EXPECT_FALSE(free.json()["locked"].get<bool>());
  EXPECT_TRUE(free.json()["lockedBy"].is_null());
  EXPECT_EQ(free.json()["name"], "plan");
  EXPECT_EQ(free.json()["versions"], 0);
  EXPECT_FALSE(free.json()["readOnly"].get<bool>());

  const ToolResult locked = runOn(vault_, {"lock", "Data/plan.txt"});
  ASSERT_EQ(locked.status, 0) << locked.describe();
  EXPECT_TRUE(locked.out.empty());
  const nlohmann::json status = runOn(vault_, {"status", "Data/plan.txt", "--json"}).json();
  EXPECT_TRUE(status["locked"].get<bool>());
  EXPECT_FALSE(status["lockedBy"].get<std::string>().empty());

  // A lock that is held already is refused, naming the holder.
  const ToolResult again = runOn(vault_, {"lock", "Data/plan.txt"});
  qztool::expectOneLineError(again, 1, "Data/plan.txt is already locked by " +
                                           status["lockedBy"].get<std::string>());

  const ToolResult unlocked = runOn(vault_, {"unlock", "Data/plan.txt"});
  ASSERT_EQ(unlocked.status, 0) << unlocked.describe();
  const nlohmann::json after = runOn(vault_, {"status", "Data/plan.txt", "--json"}).json();
  EXPECT_FALSE(after["locked"].get<bool>());
  // Unlocking makes the file read-only. The listing's flag says whether the
  // running user can open the file for writing, which root still can.
  EXPECT_EQ(after["readOnly"].get<bool>(), geteuid() != 0);
  struct stat st;
  ASSERT_EQ(stat(object_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0222, 0u);
}

// The lock row names another user, as when someone else locked the object.
void handLockTo(const std::string& folder, const std::string& user) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((folder + "/.v_fmd").c_str(), &db), SQLITE_OK);
  const std::string sql = "UPDATE v_attr SET v0='" + user + "' WHERE attr='_LOCKEDUSER'";
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_changes(db), 1);
  sqlite3_close(db);
}

TEST_F(ObjectsTest, AnotherUsersLockIsRemovedOnlyWithForce) {
  ASSERT_EQ(runOn(vault_, {"lock", "Data/plan.txt"}).status, 0);
  handLockTo(vault_ + "/Data", "mallory");

  const ToolResult refused = runOn(vault_, {"unlock", "Data/plan.txt"});
  expectOneLineError(refused, 1,
                     "Data/plan.txt is locked by mallory, not by you (run 'qzvault unlock --force "
                     "Data/plan.txt' to remove the lock all the same)");
  nlohmann::json status = runOn(vault_, {"status", "Data/plan.txt", "--json"}).json();
  EXPECT_EQ(status["lockedBy"], "mallory");

  const ToolResult forced = runOn(vault_, {"unlock", "--force", "Data/plan.txt"});
  ASSERT_EQ(forced.status, 0) << forced.describe();
  status = runOn(vault_, {"status", "Data/plan.txt", "--json"}).json();
  EXPECT_FALSE(status["locked"].get<bool>());
}

TEST_F(ObjectsTest, StatusAsText) {
  const ToolResult result = runOn(vault_, {"status", "Data/plan.txt"});
  ASSERT_EQ(result.status, 0) << result.describe();
  EXPECT_EQ(result.out,
            "Object:     Data/plan.txt\n"
            "Name:       plan\n"
            "Type:       -\n"
            "Read-only:  no\n"
            "Locked:     no\n"
            "Versions:   0\n");
}

TEST_F(ObjectsTest, LocksOfAMissingObjectFail) {
  expectOneLineError(runOn(vault_, {"lock", "Data/absent.txt"}), 1, "absent.txt");
  expectOneLineError(runOn(vault_, {"unlock", "Data/absent.txt"}), 1, "absent.txt");
  expectOneLineError(runOn(vault_, {"status", "Data/absent.txt"}), 1, "absent.txt");
}

}  // namespace
