// Platform failures at every step of fileRename, moveSelf, deleteSelf,
// createVersion and rollbackVersion. For each kind of platform call, the k-th
// call fails (k = 1, 2, ... until the operation makes no k-th call), on a fresh
// folder each time; afterwards the file, its version files and its ".v_fmd"
// rows (read with SQLite itself) must be in the state that the operation's
// result stands for: nothing lost, nothing half done.
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "folder_impl.h"
#include "object_impl.h"
#include "platform_override.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::FaultPlatform;
using qztest::NpOp;
using qztest::Owned;
using qztest::pathExists;
using qztest::readFile;
using qztest::Rows;
using qztest::S;

// Every kind that the operations under test can reach.
const NpOp kKinds[] = {NpOp::kFioStat,    NpOp::kFioRename,   NpOp::kFioUnlink,
                       NpOp::kFioOpen,    NpOp::kFioClose,    NpOp::kFioChperm,
                       NpOp::kDirOpen,    NpOp::kDirNext,     NpOp::kDirNextStat,
                       NpOp::kDirClose,   NpOp::kDirCreate,   NpOp::kDirUnlink,
                       NpOp::kOsinfUser,  NpOp::kTimeNow,     NpOp::kMutexCreate,
                       NpOp::kMutexLock,  NpOp::kMutexUnlock, NpOp::kFioLink};
// A bound on k, far above what any of the operations does, so that a runaway
// loop ends as a failure instead of hanging.
const int kMaxCalls = 400;

using Contents = std::map<std::string, std::string>;  // name -> content

// One folder: "a.txt" ("content") with a name row, two attribute rows and
// versions 1 and 2 (by default), a row of another file, and an empty sub-folder "dest".
class Scene {
 public:
  explicit Scene(int versions = 2) : vault_(dir_.path()) {
    qztest::writeFile(dir_.join("a.txt"), "content");
    qztest::makeDirs(dir_.join("dest"));
    if (versions > 0) qztest::makeDirs(dir_.join(".v_ver"));
    for (int number = 1; number <= versions; ++number) {
      qztest::writeFile(dir_.join(".v_ver/a.txt." + std::to_string(number)),
                        "v" + std::to_string(number));
    }
    db_ = qztest::fixedDb(vault_.get(), dir_.path());
    destDb_ = qztest::fixedDb(vault_.get(), dir_.join("dest"));
    qztest::execute(db_,
                    "INSERT INTO v_object (fname, name) VALUES ('a.txt', 'Alpha');"
                    "INSERT INTO v_attr (fname, attr, seq, v0, v9) VALUES "
                    "('a.txt', 'Owner', 0, 'finance', 'tenth');"
                    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                    "('a.txt', '_MODIFIEDUSER', 0, 'someone');"
                    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES ('other.txt', 'Keep', 0, 'x');");
    object_ = qztest::openObject(vault_.get(), dir_.join("a.txt"));
    destination_.reset(new QzvFolderImpl());
    destination_->init(S(dir_.join("dest")), QzbString(), vault_.get());
  }

  std::string path(const std::string& relative) const { return dir_.join(relative); }
  QzvObjectImpl* object() const { return object_.get(); }
  const QzvFolderImpl* destination() const { return destination_.get(); }
  const std::string& db() const { return db_; }
  const std::string& destDb() const { return destDb_; }

  // The version files of a version directory, by name.
  Contents versions(const std::string& relativeDirectory) const {
    Contents contents;
    for (const std::string& name : qztest::listDirectory(dir_.join(relativeDirectory))) {
      contents[name] = readFile(dir_.join(relativeDirectory + "/" + name));
    }
    return contents;
  }
  // (attr, seq, v0, v9) of a file's rows, and its display names.
  Rows attrs(const std::string& database, const std::string& fileName) const {
    return qztest::query(database, "SELECT attr, seq, v0, v9 FROM v_attr WHERE fname = " +
                                       qztest::sqlText(fileName) + " ORDER BY attr, seq");
  }
  Rows names(const std::string& database, const std::string& fileName) const {
    return qztest::query(database,
                         "SELECT name FROM v_object WHERE fname = " + qztest::sqlText(fileName));
  }

 private:
  qztest::TempDir dir_;
  qztest::ScopedVault vault_;
  std::string db_;
  std::string destDb_;
  Owned<QzvObjectImpl> object_;
  Owned<QzvFolderImpl> destination_;
};

// The rows of a.txt as the scene makes them, with the modifier as given.
Rows originalAttrs(const std::string& modifier = "someone") {
  return Rows{{Cell("Owner"), Cell("0"), Cell("finance"), Cell("tenth")},
              {Cell("_MODIFIEDUSER"), Cell("0"), Cell(modifier), std::nullopt}};
}
const Rows kAlpha{{Cell("Alpha")}};
const Contents kTwoVersions{{"a.txt.1", "v1"}, {"a.txt.2", "v2"}};

// Runs `body` once per kind and k with that call failing, on a fresh scene;
// `check` judges the outcome. Returns the number of failures injected.
template <typename Body, typename Check>
int sweep(const char* operation, int versions, Body body, Check check) {
  int injected = 0;
  for (NpOp kind : kKinds) {
    for (int k = 1;; ++k) {
      if (k > kMaxCalls) {
        ADD_FAILURE() << operation << " makes over " << kMaxCalls << " calls of "
                      << qztest::npOpName(kind);
        break;
      }
      Scene scene(versions);
      bool result;
      bool fired;
      {
        FaultPlatform faults;
        faults.failCall(kind, k, NP_ERR_IO);
        result = body(scene);
        fired = faults.fired();
      }
      SCOPED_TRACE(std::string(operation) + ", call " + std::to_string(k) + " of " +
                   qztest::npOpName(kind) + (fired ? " failed" : " (no such call)"));
      check(scene, result, kind);
      if (!fired) break;
      ++injected;
    }
  }
  return injected;
}

TEST(ObjectFaults, FileRenameEndsUnderOneNameOrTheOther) {
  const int injected = sweep(
      "fileRename", 2, [](Scene& s) { return s.object()->fileRename(S("b.txt")); },
      [](Scene& s, bool renamed, NpOp) {
        // Versions are carried after the metadata step and may stay behind,
        // but none is lost or changed.
        Contents versions = s.versions(".v_ver");
        Contents carried;
        for (const auto& entry : versions) {
          const std::string number = entry.first.substr(entry.first.rfind('.') + 1);
          carried["a.txt." + number] = entry.second;
        }
        EXPECT_EQ(carried, kTwoVersions);
        if (renamed) {
          EXPECT_FALSE(pathExists(s.path("a.txt")));
          EXPECT_EQ(readFile(s.path("b.txt")), "content");
          EXPECT_EQ(s.names(s.db(), "b.txt"), kAlpha);
          EXPECT_TRUE(s.names(s.db(), "a.txt").empty());
          EXPECT_EQ(s.attrs(s.db(), "b.txt").size(), 2u);
          EXPECT_TRUE(s.attrs(s.db(), "a.txt").empty());
          EXPECT_EQ(s.object()->getFileName(true).toStdString(), "b.txt");
        } else {
          EXPECT_FALSE(s.object()->getErrorMessage().isEmpty());
          EXPECT_EQ(readFile(s.path("a.txt")), "content");
          EXPECT_FALSE(pathExists(s.path("b.txt")));
          EXPECT_EQ(s.names(s.db(), "a.txt"), kAlpha);
          EXPECT_EQ(s.attrs(s.db(), "a.txt"), originalAttrs());
          EXPECT_EQ(versions, kTwoVersions);
          EXPECT_EQ(s.object()->getFileName(true).toStdString(), "a.txt");
        }
      });
  EXPECT_GT(injected, 0);
}

TEST(ObjectFaults, MoveSelfEndsInOneFolderOrTheOther) {
  const int injected = sweep(
      "moveSelf", 2, [](Scene& s) { return s.object()->moveSelf(s.destination()); },
      [](Scene& s, bool moved, NpOp kind) {
        Contents all = s.versions(".v_ver");
        for (const auto& entry : s.versions("dest/.v_ver")) all[entry.first] = entry.second;
        EXPECT_EQ(all, kTwoVersions);  // in one directory or the other, unchanged
        if (moved) {
          EXPECT_FALSE(pathExists(s.path("a.txt")));
          EXPECT_EQ(readFile(s.path("dest/a.txt")), "content");
          EXPECT_EQ(s.names(s.destDb(), "a.txt"), kAlpha);
          EXPECT_EQ(s.attrs(s.destDb(), "a.txt"), originalAttrs());  // name differs: kept
          // The source's rows are removed after the commit, and a failure to
          // remove them is ignored: where the source database could only be
          // opened read-only (its write probe failed), they stay as they were.
          if (kind == NpOp::kFioOpen && !s.names(s.db(), "a.txt").empty()) {
            EXPECT_EQ(s.names(s.db(), "a.txt"), kAlpha);
            EXPECT_EQ(s.attrs(s.db(), "a.txt"), originalAttrs());
          } else {
            EXPECT_TRUE(s.names(s.db(), "a.txt").empty());
            EXPECT_TRUE(s.attrs(s.db(), "a.txt").empty());
          }
          EXPECT_EQ(s.object()->getFileName(false).toStdString(), s.path("dest/a.txt"));
        } else {
          EXPECT_FALSE(s.object()->getErrorMessage().isEmpty());
          EXPECT_EQ(readFile(s.path("a.txt")), "content");
          EXPECT_FALSE(pathExists(s.path("dest/a.txt")));
          EXPECT_EQ(s.names(s.db(), "a.txt"), kAlpha);
          EXPECT_EQ(s.attrs(s.db(), "a.txt"), originalAttrs());
          EXPECT_TRUE(s.names(s.destDb(), "a.txt").empty());
          EXPECT_TRUE(s.attrs(s.destDb(), "a.txt").empty());
          EXPECT_EQ(s.versions(".v_ver"), kTwoVersions);
          EXPECT_EQ(s.object()->getFileName(false).toStdString(), s.path("a.txt"));
        }
        EXPECT_EQ(s.attrs(s.db(), "other.txt").size(), 1u);
      });
  EXPECT_GT(injected, 0);
}

TEST(ObjectFaults, DeleteSelfSucceedsExactlyWhenTheFileIsGone) {
  const int injected = sweep(
      "deleteSelf", 2, [](Scene& s) { return s.object()->deleteSelf(); },
      [](Scene& s, bool deleted, NpOp) {
        // Versions are deleted before the file; any that stay are unchanged.
        for (const auto& entry : s.versions(".v_ver")) {
          EXPECT_EQ(kTwoVersions.at(entry.first), entry.second);
        }
        EXPECT_EQ(deleted, !pathExists(s.path("a.txt")));
        EXPECT_EQ(s.attrs(s.db(), "other.txt").size(), 1u);
        if (deleted) {
          EXPECT_TRUE(s.names(s.db(), "a.txt").empty());
          EXPECT_TRUE(s.attrs(s.db(), "a.txt").empty());
          EXPECT_TRUE(s.object()->getFileName(false).isNull());
          return;
        }
        EXPECT_EQ(readFile(s.path("a.txt")), "content");
        const std::string message = s.object()->getErrorMessage().toStdString();
        const bool metadataGone = s.names(s.db(), "a.txt").empty();
        if (message == "File " + s.path("a.txt") + " could not be deleted" && metadataGone) {
          // The metadata went first, as the order of the steps has it, and
          // went whole.
          EXPECT_TRUE(s.attrs(s.db(), "a.txt").empty());
        } else {
          // The database could not be opened, or the folder was found not to
          // let the file go before anything was removed: nothing was done.
          EXPECT_FALSE(message.empty());
          EXPECT_EQ(s.names(s.db(), "a.txt"), kAlpha);
          EXPECT_EQ(s.attrs(s.db(), "a.txt"), originalAttrs());
          EXPECT_EQ(s.versions(".v_ver"), kTwoVersions);
        }
      });
  EXPECT_GT(injected, 0);
}

TEST(ObjectFaults, CreateVersionMovesTheFileAsideOrLeavesIt) {
  for (int existing : {0, 2}) {
    const int injected = sweep(
        "createVersion", existing, [](Scene& s) { return s.object()->createVersion(); },
        [existing](Scene& s, bool created, NpOp) {
          Contents expected;
          for (int number = 1; number <= existing; ++number) {
            expected["a.txt." + std::to_string(number)] = "v" + std::to_string(number);
          }
          Contents versions = s.versions(".v_ver");
          if (created) {
            EXPECT_FALSE(pathExists(s.path("a.txt")));
            // The next number, or 0 where the count of versions failed.
            const std::string next = "a.txt." + std::to_string(existing + 1);
            const std::string name = versions.count(next) != 0 ? next : "a.txt.0";
            EXPECT_EQ(versions[name], "content");
            versions.erase(name);
          } else {
            EXPECT_FALSE(s.object()->getErrorMessage().isEmpty());
            EXPECT_EQ(readFile(s.path("a.txt")), "content");
          }
          EXPECT_EQ(versions, expected);
          EXPECT_EQ(s.names(s.db(), "a.txt"), kAlpha);  // versions touch no metadata
        });
    EXPECT_GT(injected, 0);
  }
}

TEST(ObjectFaults, RollbackRestoresAVersionOrLeavesEverythingAsItWas) {
  const int injected = sweep(
      "rollbackVersion",
      3,
      [](Scene& s) { return s.object()->rollbackVersion(2); },
      [](Scene& s, bool rolledBack, NpOp kind) {
        const Contents all{{"a.txt.1", "v1"}, {"a.txt.2", "v2"}, {"a.txt.3", "v3"}};
        Contents versions = s.versions(".v_ver");
        for (const auto& entry : versions) EXPECT_EQ(all.at(entry.first), entry.second);
        if (!rolledBack) {
          EXPECT_FALSE(s.object()->getErrorMessage().isEmpty());
          EXPECT_EQ(readFile(s.path("a.txt")), "content");
          EXPECT_FALSE(pathExists(s.path("a.txt.bak")));
          EXPECT_EQ(versions, all);
          return;
        }
        // Version 2, or version 1 where version 2 could not be examined; the
        // restored version leaves the directory and those below it stay.
        const std::string current = readFile(s.path("a.txt"));
        ASSERT_TRUE(current == "v2" || current == "v1") << current;
        const int chosen = current == "v2" ? 2 : 1;
        EXPECT_EQ(versions.count("a.txt." + std::to_string(chosen)), 0u);
        for (int below = 1; below < chosen; ++below) {
          EXPECT_EQ(versions.count("a.txt." + std::to_string(below)), 1u);
        }
        // The backup goes unless its unlink was the call that failed; then it
        // still holds the replaced content.
        if (pathExists(s.path("a.txt.bak"))) {
          EXPECT_EQ(kind, NpOp::kFioUnlink);
          EXPECT_EQ(readFile(s.path("a.txt.bak")), "content");
        }
      });
  EXPECT_GT(injected, 0);
}

// ---------------------------------------------------------------------------
// Single failures, with the exact messages they give.

// Runs `body` with the k-th call of `op` failing with `code`.
template <typename Body>
bool withFault(NpOp op, int k, int code, Body body) {
  FaultPlatform faults;
  faults.failCall(op, k, code);
  const bool result = body();
  EXPECT_TRUE(faults.fired()) << qztest::npOpName(op) << " call " << k << " was never made";
  return result;
}

TEST(ObjectFaultMessages, AFailedMoveOfTheFileGivesThePlatformsReason) {
  Scene s;
  qztest::LogCapture log;
  // The file moves by a rename that never replaces a file already there.
  EXPECT_FALSE(withFault(NpOp::kFioRenameNoReplace, 1, NP_ERR_CROSS_DEVICE,
                         [&] { return s.object()->moveSelf(s.destination()); }));
  const std::string message =
      "Move file " + s.path("a.txt") + ": Invalid cross-device link";
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_EQ(s.attrs(s.db(), "a.txt"), originalAttrs());
  EXPECT_TRUE(s.attrs(s.destDb(), "a.txt").empty());
}

// np_fio_unlink refusing one path.
std::string g_undeletable;
int unlinkExceptOne(const char* path) {
  if (g_undeletable == path) return NP_ERR_ACCESS;
  return npDefaultPlatformOps()->fio_unlink(path);
}

TEST(ObjectFaultMessages, AFileThatCannotBeUnlinkedIsNotDeleted) {
  Scene s;
  qztest::LogCapture log;
  g_undeletable = s.path("a.txt");
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.fio_unlink = unlinkExceptOne;
  bool deleted;
  {
    qztest::PlatformOverride override(ops);
    deleted = s.object()->deleteSelf();
  }
  EXPECT_FALSE(deleted);
  const std::string message = "File " + s.path("a.txt") + " could not be deleted";
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  // The metadata was removed before the file, and the versions after it.
  EXPECT_TRUE(s.attrs(s.db(), "a.txt").empty());
  EXPECT_TRUE(s.versions(".v_ver").empty());
  EXPECT_EQ(s.object()->getFileName(false).toStdString(), s.path("a.txt"));
}

TEST(ObjectFaultMessages, AFailedRestoreOfTheVersionLeavesEverything) {
  Scene s(3);
  qztest::LogCapture log;
  // The only rename puts the version in the object's place, replacing the
  // current file in one step; no backup is made beside the object.
  EXPECT_FALSE(withFault(NpOp::kFioRename, 1, NP_ERR_IO,
                         [&] { return s.object()->rollbackVersion(2); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), "Failed to rollback: Input/output error");
  EXPECT_TRUE(log.contains("Failed to rollback: Input/output error", 5)) << log.dump();
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_FALSE(pathExists(s.path("a.txt.bak")));
  EXPECT_EQ(s.versions(".v_ver").size(), 3u);
}

TEST(ObjectFaultMessages, AFullDiskDuringTheRestoreLeavesEverything) {
  Scene s(3);
  EXPECT_FALSE(withFault(NpOp::kFioRename, 1, NP_ERR_NO_SPACE,
                         [&] { return s.object()->rollbackVersion(2); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(),
            "Failed to rollback: No space left on device");
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_EQ(s.versions(".v_ver").size(), 3u);
}

TEST(ObjectFaultMessages, TheVersionDirectoryThatCannotBeMadeGivesThePlatformsReason) {
  Scene s(0);
  qztest::LogCapture log;
  EXPECT_FALSE(withFault(NpOp::kDirCreate, 1, NP_ERR_READ_ONLY_FS,
                         [&] { return s.object()->createVersion(); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), "Read-only file system");
  EXPECT_TRUE(log.contains("Read-only file system", 5)) << log.dump();
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_FALSE(pathExists(s.path(".v_ver")));
}

TEST(ObjectFaultMessages, AVersionDirectoryThatCannotBeExaminedGivesThePlatformsReason) {
  Scene s;
  // The first call is the version directory's examination, which never
  // follows a link.
  EXPECT_FALSE(withFault(NpOp::kFioLstat, 1, NP_ERR_ACCESS,
                         [&] { return s.object()->createVersion(); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(),
            s.path(".v_ver") + " is not examinable: Permission denied");
  EXPECT_TRUE(withFault(NpOp::kFioLstat, 1, NP_ERR_IO,
                        [&] { return s.object()->getHighestVersion() == -1; }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(),
            s.path(".v_ver") + " is not examinable: Input/output error");
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
}

TEST(ObjectFaultMessages, AFailedMoveAsideGivesThePlatformsReason) {
  Scene s;
  // The file is moved aside by a rename that never replaces a version.
  EXPECT_FALSE(withFault(NpOp::kFioRenameNoReplace, 1, NP_ERR_NO_SPACE,
                         [&] { return s.object()->createVersion(); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), "No space left on device");
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_EQ(s.versions(".v_ver"), kTwoVersions);
}

TEST(ObjectFaultMessages, AVersionCountCutShortNeverOverwritesAVersion) {
  // The listing ends at its first entry, so the count comes out low and the
  // next number is taken already.
  Scene s;
  EXPECT_FALSE(withFault(NpOp::kDirNextStat, 1, NP_ERR_IO,
                         [&] { return s.object()->createVersion(); }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), "File exists");
  EXPECT_EQ(readFile(s.path("a.txt")), "content");
  EXPECT_EQ(s.versions(".v_ver"), kTwoVersions);
}

TEST(ObjectFaultMessages, AVersionDirectoryThatCannotBeListedFailsTheCount) {
  Scene s;
  qztest::LogCapture log;
  EXPECT_TRUE(withFault(NpOp::kDirOpen, 1, NP_ERR_IO,
                        [&] { return s.object()->getHighestVersion() == -1; }));
  const std::string message = "Unknown error reading directory " + s.path(".v_ver");
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(), message);
  EXPECT_TRUE(log.contains(message, 5)) << log.dump();
}

TEST(ObjectFaultMessages, AVersionFileThatCannotBeExaminedGivesThePlatformsReason) {
  Scene s;
  // Examination 1 is the version directory's, 2 the version file's.
  EXPECT_TRUE(withFault(NpOp::kFioLstat, 2, NP_ERR_ACCESS, [&] {
    return s.object()->getVersionFileName(1, nullptr).isNull();
  }));
  EXPECT_EQ(s.object()->getErrorMessage().toStdString(),
            s.path(".v_ver/a.txt.1") + " is not examinable: Permission denied");
}

}  // namespace
