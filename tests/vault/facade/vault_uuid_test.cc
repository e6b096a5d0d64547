// The vault's UUID: the "_UUID" attribute of the root folder itself in the
// root's ".v_fmd".
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

// Allocation failure on demand. The library makes its folders with the
// non-throwing form of new; while the switch is on, that form fails, which
// is how a root folder that cannot be made is simulated. Every other
// allocation goes to the ordinary operator new, so delete stays matched.
namespace {
std::atomic<bool> g_failNothrowNew{false};
}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (g_failNothrowNew.load()) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

using qztest::LogCapture;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// The switch above, on for a scope.
class NothrowNewFails {
 public:
  NothrowNewFails() { g_failNothrowNew = true; }
  ~NothrowNewFails() { g_failNothrowNew = false; }
};

std::string fmdPath(const TempDir& dir) { return dir.join(".v_fmd"); }

Rows uuidRows(const TempDir& dir) {
  return qztest::query(fmdPath(dir),
                       "SELECT fname, seq, v0 FROM v_attr WHERE attr = '_UUID' ORDER BY rowid");
}

TEST(VaultUuid, NoneStoredGivesANullString) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const QzbString uuid = vault->getUUID();
  EXPECT_TRUE(uuid.isNull());
  EXPECT_TRUE(vault->getErrorMessage().isEmpty()) << vault->getErrorMessage().asCstr();
}

TEST(VaultUuid, ResetThenGetReturnsTheStoredValue) {
  TempDir dir;
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("5c1f7e0a-1111-4d2e-9a3b-000000000001")))
      << vault->getErrorMessage().asCstr();
  EXPECT_EQ(vault->getUUID().toStdString(), "5c1f7e0a-1111-4d2e-9a3b-000000000001");
  // A second vault over the same root reads the same value from disk.
  ScopedVault other(dir.path());
  EXPECT_EQ(other->getUUID().toStdString(), "5c1f7e0a-1111-4d2e-9a3b-000000000001");
}

TEST(VaultUuid, ResetTwiceKeepsOneRowWithTheSecondValue) {
  TempDir dir;
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("first")));
  ASSERT_TRUE(vault->resetUUID(S("second")));
  const Rows rows = uuidRows(dir);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], std::nullopt);
  EXPECT_EQ(rows[0][1], qztest::Cell("0"));
  EXPECT_EQ(rows[0][2], qztest::Cell("second"));
  EXPECT_EQ(vault->getUUID().toStdString(), "second");
}

TEST(VaultUuid, AnObjectAttributeOfThatNameIsNotTheVaultUuid) {
  TempDir dir;
  ScopedVault vault(dir.path());
  const std::string db = qztest::fixedDb(vault.get(), dir.path());
  qztest::execute(db, "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('a.txt', '_UUID', 0, 'x')");
  EXPECT_TRUE(vault->getUUID().isNull());
  ASSERT_TRUE(vault->resetUUID(S("vault")));
  EXPECT_EQ(vault->getUUID().toStdString(), "vault");
  EXPECT_EQ(qztest::query(db, "SELECT v0 FROM v_attr WHERE fname = 'a.txt'"),
            (Rows{{qztest::Cell("x")}}));
}

TEST(VaultUuid, ResetStoresAnyTextAsGiven) {
  TempDir dir;
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("")));
  EXPECT_EQ(vault->getUUID().toStdString(), "");
  EXPECT_FALSE(vault->getUUID().isNull());
  ASSERT_TRUE(vault->resetUUID(S("it's 100% 'quoted'")));
  EXPECT_EQ(vault->getUUID().toStdString(), "it's 100% 'quoted'");
}

TEST(VaultUuid, ResetSucceedsWithoutStoringWhenTheRootFolderCannotBeMade) {
  TempDir dir;
  ScopedVault vault(dir.path());
  bool result;
  {
    NothrowNewFails failing;
    result = vault->resetUUID(S("never stored"));
  }
  EXPECT_TRUE(result);  // kept on purpose: the caller sees success
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Out of memory");
  EXPECT_FALSE(qztest::pathExists(fmdPath(dir)));
  EXPECT_TRUE(vault->getUUID().isNull());
}

TEST(VaultUuid, GetFailsWhenTheRootFolderCannotBeMade) {
  TempDir dir;
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("stored")));
  QzbString uuid;
  {
    NothrowNewFails failing;
    uuid = vault->getUUID();
  }
  EXPECT_TRUE(uuid.isNull());
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Out of memory");
}

TEST(VaultUuid, AMissingRootIsNotAccessible) {
  TempDir dir;
  const std::string root = dir.join("gone");
  qztest::makeDirs(root);
  ScopedVault vault(root);
  ASSERT_EQ(rmdir(root.c_str()), 0);
  LogCapture log;
  EXPECT_TRUE(vault->getUUID().isNull());
  const std::string expected = "Folder " + root + " is not accessible";
  EXPECT_EQ(vault->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(vault->resetUUID(S("x")));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), expected);
  EXPECT_FALSE(qztest::pathExists(root));
}

TEST(VaultUuid, ADatabaseThatCannotBeOpenedIsReported) {
  // ".v_fmd" is a link to nowhere: it is taken as existing, and opening it
  // fails (a database file is never created through a link).
  TempDir dir;
  ASSERT_EQ(symlink(dir.join("nowhere/.v_fmd").c_str(), fmdPath(dir).c_str()), 0);
  ScopedVault vault(dir.path());
  LogCapture log;
  const std::string expected = "Error opening/creating fixed metadata file in " + dir.path();
  EXPECT_TRUE(vault->getUUID().isNull());
  EXPECT_EQ(vault->getErrorMessage().toStdString(), expected);
  EXPECT_TRUE(log.contains(expected, 5)) << log.dump();
  EXPECT_FALSE(vault->resetUUID(S("x")));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), expected);
  EXPECT_FALSE(qztest::pathExists(dir.join("nowhere")));
}

TEST(VaultUuid, AReadOnlyRootDatabaseRefusesReadingAndWriting) {
  // The root's ".v_fmd" has mode 0444 and the checks run as nobody (root
  // would write it anyway): it opens read-only, and both operations refuse.
  TempDir dir;
  {
    ScopedVault vault(dir.path());
    ASSERT_TRUE(vault->resetUUID(S("kept")));
  }
  qztest::makeReachable(dir.path());
  ASSERT_EQ(chmod(fmdPath(dir).c_str(), 0444), 0);
  const std::string expected = "Folder " + dir.path() + " is read only";
  const int status = qztest::runAsNobody([&]() -> int {
    LogCapture log;
    ScopedVault vault(dir.path());
    if (!vault->getUUID().isNull()) return 1;
    if (vault->getErrorMessage().toStdString() != expected) return 2;
    if (!log.contains(expected, 5)) return 3;
    if (vault->resetUUID(S("changed"))) return 4;
    if (vault->getErrorMessage().toStdString() != expected) return 5;
    return 0;
  });
  EXPECT_EQ(status, 0);
  const Rows rows = uuidRows(dir);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][2], qztest::Cell("kept"));
}

TEST(VaultUuid, AFailedQueryGivesTheDatabaseMessage) {
  TempDir dir;
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()), "DROP TABLE v_attr");
  EXPECT_TRUE(vault->getUUID().isNull());
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "no such table: v_attr");
  EXPECT_FALSE(vault->resetUUID(S("x")));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "no such table: v_attr");
}

TEST(VaultUuid, AFailedUpdateIsReported) {
  TempDir dir;
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("old")));
  qztest::execute(fmdPath(dir),
                  "CREATE TRIGGER refuse BEFORE UPDATE ON v_attr BEGIN "
                  "SELECT RAISE(ABORT, 'updates refused'); END");
  LogCapture log;
  EXPECT_FALSE(vault->resetUUID(S("new")));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Fix UUID in attribute metadata failed");
  EXPECT_TRUE(log.contains("Fix UUID in attribute metadata failed", 5)) << log.dump();
  EXPECT_EQ(vault->getUUID().toStdString(), "old");
}

TEST(VaultUuid, AFailedInsertGivesTheDatabaseMessage) {
  TempDir dir;
  ScopedVault vault(dir.path());
  qztest::execute(qztest::fixedDb(vault.get(), dir.path()),
                  "CREATE TRIGGER refuse BEFORE INSERT ON v_attr BEGIN "
                  "SELECT RAISE(ABORT, 'inserts refused'); END");
  EXPECT_FALSE(vault->resetUUID(S("new")));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "inserts refused");
  EXPECT_TRUE(uuidRows(dir).empty());
}

TEST(VaultUuid, WorksInMemoryWithTheBypassKey) {
  TempDir dir;
  qztest::ScopedOption bypass("QZVLT/BYPASS", "1");
  ScopedVault vault(dir.path());
  ASSERT_TRUE(vault->resetUUID(S("in memory")));
  EXPECT_EQ(vault->getUUID().toStdString(), "in memory");
  EXPECT_FALSE(qztest::pathExists(fmdPath(dir)));
}

}  // namespace
