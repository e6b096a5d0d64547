// createFolder, fsRename, moveSelf and deleteSelf with a failure injected at
// each platform step in turn (the k-th call of one kind, k = 1, 2, ...): every
// outcome must leave the tree and its ".v_fmd" rows in one of the states the
// order of the steps allows, and the operation must succeed once no call of
// that kind is left to fail.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "folder_test_util.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

using qztest::fmdOf;
using qztest::folderStamp;
using qztest::makeFolder;
using qztest::NpOp;
using qztest::Owned;
using qztest::pathExists;
using qztest::processUser;
using qztest::Rows;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// Every entry of a directory (dot-names included), sorted; empty when it
// cannot be read.
std::set<std::string> entriesOf(const std::string& directory) {
  std::set<std::string> names;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.insert(name);
  }
  closedir(dir);
  return names;
}

// The entries that are not the vault's own (no leading dot).
std::set<std::string> visibleEntriesOf(const std::string& directory) {
  std::set<std::string> visible;
  for (const std::string& name : entriesOf(directory)) {
    if (name[0] != '.') visible.insert(name);
  }
  return visible;
}

struct Fault {
  NpOp op;
  int code;
};

std::string describe(const Fault& fault, int k) {
  return std::string("failing call ") + std::to_string(k) + " of " + qztest::npOpName(fault.op) +
         " with code " + std::to_string(fault.code);
}

// Runs `attempt` on a fresh fixture once per call of the fault's kind,
// failing the k-th call, until a run makes no k-th call (which must then
// succeed). `attempt` returns the operation's result; `check` gets it and
// whether the failure was injected. Returns the number of injected runs.
template <typename Fixture>
int forEachStep(const Fault& fault, const std::function<bool(Fixture&)>& attempt,
                const std::function<void(Fixture&, bool ok, bool injected)>& check) {
  for (int k = 1; k <= 200; ++k) {
    SCOPED_TRACE(describe(fault, k));
    Fixture fixture;
    bool ok;
    bool injected;
    {
      qztest::FaultPlatform faults;
      faults.failCall(fault.op, k, fault.code);
      ok = attempt(fixture);
      injected = faults.fired();
    }
    check(fixture, ok, injected);
    if (!injected) {
      EXPECT_TRUE(ok) << "the run without failure must succeed";
      return k - 1;
    }
  }
  ADD_FAILURE() << "more than 200 calls of " << qztest::npOpName(fault.op);
  return 200;
}

// ---------------------------------------------------------------------------
// createFolder

struct CreateFixture {
  TempDir dir;
  ScopedVault vault{dir.path()};
  Owned<QzvFolderImpl> root = makeFolder(vault.get(), dir.path());
  Owned<QzvFolder> created;
  std::string message;
};

// A failure before the directory exists leaves nothing; after it, the
// directory stays (a valid folder showing under its directory name), with its
// name row once that was written, and stamps only once the new folder was
// made; each stamp is whole or absent.
void checkCreate(CreateFixture& f, bool ok, bool injected, const std::string& displayName,
                 const std::string& directoryName) {
  const std::string path = f.dir.join(directoryName);
  const bool needsNameRow = displayName != directoryName;
  const std::set<std::string> visible = visibleEntriesOf(f.dir.path());
  EXPECT_TRUE(visible.empty() || visible == std::set<std::string>{directoryName});
  EXPECT_FALSE(pathExists(fmdOf(f.dir.path()))) << "the parent's metadata is never touched";
  if (!ok) {
    EXPECT_FALSE(f.message.empty());
  }
  if (!pathExists(path)) {
    EXPECT_FALSE(ok);
    return;
  }
  EXPECT_TRUE(visibleEntriesOf(path).empty());
  const bool hasDb = pathExists(fmdOf(path));
  const Rows nameRows =
      hasDb ? qztest::query(fmdOf(path), "SELECT name FROM v_object WHERE fname IS NULL") : Rows{};
  if (ok) {
    EXPECT_EQ(f.created->getPath().toStdString(), path);
    if (needsNameRow) {
      EXPECT_EQ(nameRows, (Rows{{displayName}}));
    }
  }
  if (!needsNameRow) {
    EXPECT_TRUE(nameRows.empty());
  }
  if (needsNameRow && !nameRows.empty()) {
    EXPECT_EQ(nameRows, (Rows{{displayName}}));
  }
  const Rows creator = hasDb ? folderStamp(path, "_CREATOR") : Rows{};
  const Rows user = hasDb ? folderStamp(path, "_MODIFIEDUSER") : Rows{};
  const Rows date = hasDb ? folderStamp(path, "_MODIFIEDDATE") : Rows{};
  if (!ok) {
    EXPECT_TRUE(creator.empty() && user.empty() && date.empty())
        << "no stamp before the new folder was made";
    return;
  }
  EXPECT_LE(creator.size(), 1u);
  EXPECT_LE(user.size(), 1u);
  EXPECT_LE(date.size(), 1u);
  if (!creator.empty()) {
    EXPECT_EQ(user, (Rows{{"0", processUser()}}));
  }
  if (!date.empty()) {
    EXPECT_EQ(user, (Rows{{"0", processUser()}}));
  }
  if (!injected) {
    EXPECT_EQ(creator, (Rows{{"0", processUser()}}));
    EXPECT_EQ(date.size(), 1u);
  }
}

void runCreateFaults(const std::string& displayName, const std::string& directoryName) {
  const std::vector<Fault> faults = {
      {NpOp::kFioStat, NP_ERR_IO},   {NpOp::kFioStat, NP_ERR_NOT_FOUND},
      {NpOp::kDirCreate, NP_ERR_IO}, {NpOp::kFioLink, NP_ERR_IO},
      {NpOp::kFioRename, NP_ERR_IO}, {NpOp::kFioUnlink, NP_ERR_IO},
  };
  int injectedRuns = 0;
  for (const Fault& fault : faults) {
    injectedRuns += forEachStep<CreateFixture>(
        fault,
        [&](CreateFixture& f) {
          f.created.reset(f.root->createFolder(S(displayName)));
          f.message = f.root->getErrorMessage().toStdString();
          return f.created != nullptr;
        },
        [&](CreateFixture& f, bool ok, bool injected) {
          checkCreate(f, ok, injected, displayName, directoryName);
        });
  }
  EXPECT_GT(injectedRuns, 5);
}

TEST(CreateFolderFaults, APlainName) { runCreateFaults("Reports", "Reports"); }

TEST(CreateFolderFaults, ANameThatNeedsANameRow) { runCreateFaults("Q1: Sales", "Q1_ Sales"); }

TEST(CreateFolderFaults, AFailedDirectoryCreationLeavesNothing) {
  CreateFixture f;
  {
    qztest::FaultPlatform faults;
    faults.failCall(NpOp::kDirCreate, 1, NP_ERR_NO_SPACE);
    EXPECT_EQ(f.root->createFolder(S("Reports")), nullptr);
  }
  EXPECT_EQ(f.root->getErrorMessage().toStdString(), "Failed to create directory " +
                                                         f.dir.join("Reports") + " (" +
                                                         np_fio_errdesc(NP_ERR_NO_SPACE) + ")");
  EXPECT_TRUE(entriesOf(f.dir.path()).empty());
}

// ---------------------------------------------------------------------------
// fsRename and moveSelf: the directory is either where it was, with its
// metadata as it was, or in its new place; there the stamps of the user and
// the date (and, for fsRename, the creation date) are each whole or absent.

const char kInitialRows[] =
    "INSERT INTO v_object (fname, name) VALUES (NULL, 'Quarterly'), ('f.txt', 'A file');"
    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES (NULL, '_CREATOR', 0, 'creator'),"
    "(NULL, '_MODIFIEDUSER', 0, 'before'), (NULL, '_MODIFIEDDATE', 0, '5'),"
    "(NULL, 'Owner', 0, 'alice'), ('f.txt', 'Owner', 0, 'bob')";

struct MoveFixture {
  MoveFixture() {
    qztest::makeDirs(dir.join("old"));
    qztest::makeDirs(dir.join("target"));
    qztest::writeFile(dir.join("old/f.txt"), "content");
    qztest::execute(qztest::fixedDb(vault.get(), dir.join("old")), kInitialRows);
    initialRows = qztest::allAttrRows(fmdOf(dir.join("old")));
    folder = makeFolder(vault.get(), dir.join("old"));
    target = makeFolder(vault.get(), dir.join("target"));
  }
  TempDir dir;
  ScopedVault vault{dir.path()};
  Rows initialRows;
  Owned<QzvFolderImpl> folder;
  Owned<QzvFolderImpl> target;
};

// `newPath` is where a successful change puts the folder.
void checkMoved(MoveFixture& f, bool ok, bool injected, const std::string& newPath,
                bool refreshes) {
  const std::string oldPath = f.dir.join("old");
  const bool atOld = pathExists(oldPath);
  const bool atNew = pathExists(newPath);
  ASSERT_NE(atOld, atNew) << "the directory is in exactly one place";
  const std::string path = atOld ? oldPath : newPath;
  EXPECT_EQ(f.folder->getPath().toStdString(), path);
  EXPECT_EQ(qztest::readFile(path + "/f.txt"), "content");
  EXPECT_EQ(qztest::query(fmdOf(path), "SELECT fname, name FROM v_object ORDER BY fname"),
            (Rows{{std::nullopt, "Quarterly"}, {"f.txt", "A file"}}));
  EXPECT_TRUE(pathExists(f.dir.join("target")));
  if (atOld) {
    EXPECT_FALSE(ok);
    EXPECT_FALSE(f.folder->getErrorMessage().isEmpty());
    EXPECT_EQ(qztest::allAttrRows(fmdOf(path)), f.initialRows) << "metadata as it was";
    return;
  }
  const Rows user = folderStamp(path, "_MODIFIEDUSER");
  const Rows date = folderStamp(path, "_MODIFIEDDATE");
  const Rows creation = folderStamp(path, "_CREATIONDATE");
  const bool stamped = user == Rows{{"0", processUser()}};
  if (stamped) {
    EXPECT_EQ(date.size(), 1u);
    EXPECT_NE(date, (Rows{{"0", "5"}}));
  } else {
    EXPECT_EQ(user, (Rows{{"0", "before"}}));
    EXPECT_EQ(date, (Rows{{"0", "5"}}));
  }
  EXPECT_EQ(folderStamp(path, "_CREATOR"), (Rows{{"0", "creator"}}));
  EXPECT_LE(creation.size(), 1u);
  if (!refreshes) {
    EXPECT_TRUE(creation.empty());
  }
  if (ok) {
    EXPECT_TRUE(stamped);
    if (refreshes) {
      EXPECT_EQ(creation.size(), 1u);
    }
  } else {
    EXPECT_FALSE(f.folder->getErrorMessage().isEmpty());
  }
  if (!injected) {
    EXPECT_TRUE(ok);
  }
}

const std::vector<Fault> kMoveFaults = {
    {NpOp::kFioStat, NP_ERR_IO},   {NpOp::kFioStat, NP_ERR_NOT_FOUND},
    {NpOp::kFioRenameNoReplace, NP_ERR_IO}, {NpOp::kFioRenameNoReplace, NP_ERR_ACCESS},
    {NpOp::kFioLink, NP_ERR_IO},   {NpOp::kFioUnlink, NP_ERR_IO},
    {NpOp::kDirCreate, NP_ERR_IO}, {NpOp::kFioOpen, NP_ERR_IO},
};

TEST(FsRenameFaults, TheDirectoryIsEitherRenamedOrUntouched) {
  int injectedRuns = 0;
  for (const Fault& fault : kMoveFaults) {
    injectedRuns += forEachStep<MoveFixture>(
        fault, [](MoveFixture& f) { return f.folder->fsRename(S("renamed")); },
        [](MoveFixture& f, bool ok, bool injected) {
          checkMoved(f, ok, injected, f.dir.join("renamed"), true);
        });
  }
  EXPECT_GT(injectedRuns, 4);
}

TEST(MoveSelfFaults, TheDirectoryIsEitherMovedOrUntouched) {
  int injectedRuns = 0;
  for (const Fault& fault : kMoveFaults) {
    injectedRuns += forEachStep<MoveFixture>(
        fault, [](MoveFixture& f) { return f.folder->moveSelf(f.target.get()); },
        [](MoveFixture& f, bool ok, bool injected) {
          checkMoved(f, ok, injected, f.dir.join("target/old"), false);
        });
  }
  EXPECT_GT(injectedRuns, 4);
}

TEST(MoveSelfFaults, EachRenameCodeHasItsMessage) {
  const struct {
    int code;
    const char* prefix;
  } cases[] = {{NP_ERR_NOT_FOUND, "File not found moving "},
               {NP_ERR_ACCESS, "Access denied moving "},
               {NP_ERR_INVALID_PATH, "Invalid path moving "},
               {NP_ERR_CROSS_DEVICE, "Unknown error moving "}};
  for (const auto& c : cases) {
    MoveFixture f;
    {
      qztest::FaultPlatform faults;
      // A folder is moved by a rename that never replaces what is there.
      faults.failCall(NpOp::kFioRenameNoReplace, 1, c.code);
      EXPECT_FALSE(f.folder->moveSelf(f.target.get()));
    }
    EXPECT_EQ(f.folder->getErrorMessage().toStdString(),
              c.prefix + f.dir.join("old") + " to " + f.dir.join("target"));
    EXPECT_TRUE(pathExists(f.dir.join("old")));
    EXPECT_EQ(qztest::allAttrRows(fmdOf(f.dir.join("old"))), f.initialRows);
  }
}

// ---------------------------------------------------------------------------
// deleteSelf

struct DeleteFixture {
  explicit DeleteFixture(bool withOrdinaryFile) {
    path = dir.join("doomed");
    qztest::makeDirs(path + "/.v_ver");
    qztest::execute(qztest::fixedDb(vault.get(), path), kInitialRows);
    qztest::writeFile(path + "/.v_cmd", "cache");
    qztest::writeFile(path + "/.v_lck", "lock");
    // Versions are content: a folder keeps them until it is deleted, so only
    // the folder that is refused anyway (it holds a file) has some.
    if (withOrdinaryFile) {
      qztest::writeFile(path + "/.v_ver/job.1", "one");
      qztest::writeFile(path + "/.v_ver/job.2", "two");
      qztest::writeFile(path + "/report.txt", "keep me");
    }
    initialEntries = entriesOf(path);
    initialVersions = entriesOf(path + "/.v_ver");
    folder = makeFolder(vault.get(), path);
  }
  TempDir dir;
  ScopedVault vault{dir.path()};
  std::string path;
  std::set<std::string> initialEntries;
  std::set<std::string> initialVersions;
  Owned<QzvFolderImpl> folder;
};

struct EmptyFolderFixture : DeleteFixture {
  EmptyFolderFixture() : DeleteFixture(false) {}
};
struct FullFolderFixture : DeleteFixture {
  FullFolderFixture() : DeleteFixture(true) {}
};

bool isSubset(const std::set<std::string>& part, const std::set<std::string>& whole) {
  return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

const std::vector<Fault> kDeleteFaults = {
    {NpOp::kDirOpen, NP_ERR_IO},   {NpOp::kDirNextStat, NP_ERR_IO}, {NpOp::kFioUnlink, NP_ERR_IO},
    {NpOp::kDirUnlink, NP_ERR_IO}, {NpOp::kDirClose, NP_ERR_IO},    {NpOp::kFioStat, NP_ERR_IO},
};

TEST(DeleteSelfFaults, AFolderOfVaultFilesIsDeletedOrHalfEmptied) {
  int injectedRuns = 0;
  for (const Fault& fault : kDeleteFaults) {
    injectedRuns += forEachStep<EmptyFolderFixture>(
        fault, [](EmptyFolderFixture& f) { return f.folder->deleteSelf(); },
        [](EmptyFolderFixture& f, bool ok, bool /*injected*/) {
          if (ok) {
            EXPECT_FALSE(pathExists(f.path));
            return;
          }
          EXPECT_FALSE(f.folder->getErrorMessage().isEmpty());
          // What is left is part of what was there; nothing new appears.
          EXPECT_TRUE(pathExists(f.path)) << "a failed deletion keeps the folder";
          EXPECT_TRUE(isSubset(entriesOf(f.path), f.initialEntries));
          EXPECT_TRUE(isSubset(entriesOf(f.path + "/.v_ver"), f.initialVersions));
        });
  }
  EXPECT_GT(injectedRuns, 8);
}

TEST(DeleteSelfFaults, AFolderWithAnOrdinaryFileLosesNothingWhateverFails) {
  // A read error ends a directory listing as its end would: the emptiness
  // check must not be fooled into deleting the metadata of a folder that
  // still holds a file.
  for (const Fault& fault : kDeleteFaults) {
    forEachStep<FullFolderFixture>(
        fault,
        [](FullFolderFixture& f) {
          // Reports whether the deletion was refused as non-empty, which is
          // what the run without a fault must give.
          return !f.folder->deleteSelf() &&
                 f.folder->getErrorMessage().toStdString() == "Can't delete a non-empty folder";
        },
        [](FullFolderFixture& f, bool /*refused*/, bool /*injected*/) {
          EXPECT_EQ(entriesOf(f.path), f.initialEntries);
          EXPECT_EQ(entriesOf(f.path + "/.v_ver"), f.initialVersions);
          EXPECT_EQ(qztest::readFile(f.path + "/report.txt"), "keep me");
        });
  }
}

TEST(DeleteSelfFaults, EachRemovalStepHasItsMessage) {
  {
    EmptyFolderFixture f;
    {
      qztest::FaultPlatform faults;
      faults.failCall(NpOp::kDirUnlink, 1, NP_ERR_BUSY);  // the vault directory
      EXPECT_FALSE(f.folder->deleteSelf());
    }
    EXPECT_EQ(f.folder->getErrorMessage().toStdString(),
              "Error removing dir " + f.path + "/.v_ver (" + std::to_string(NP_ERR_BUSY) + ")");
  }
  {
    EmptyFolderFixture f;
    {
      qztest::FaultPlatform faults;
      faults.failCall(NpOp::kDirUnlink, 2, NP_ERR_BUSY);  // the folder itself
      EXPECT_FALSE(f.folder->deleteSelf());
    }
    EXPECT_EQ(f.folder->getErrorMessage().toStdString(),
              "Error removing dir " + f.path + " (" + std::to_string(NP_ERR_BUSY) + ")");
    EXPECT_TRUE(entriesOf(f.path).empty()) << "everything inside was deleted";
  }
  {
    EmptyFolderFixture f;
    {
      qztest::FaultPlatform faults;
      faults.failCall(NpOp::kDirOpen, 1, NP_ERR_ACCESS);
      EXPECT_FALSE(f.folder->deleteSelf());
    }
    EXPECT_EQ(f.folder->getErrorMessage().toStdString(), "Access to " + f.path + " is denied");
    EXPECT_EQ(entriesOf(f.path), f.initialEntries);
  }
}

}  // namespace
