// The vault check's look at the files a folder keeps beside its objects: the
// vault's own files when they are not what they should be, a lock file left
// by a host that has ended, and version files of objects that are no longer
// there. Repairs never delete what may be someone's only copy: an object
// whose file is gone gets its newest version back, a second name of a
// version goes only while the file keeps another, and what cannot be placed
// is moved into the folder's quarantine.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "folder_lock.h"
#include "qzbase/platform.h"
#include "file_list.h"
#include "metadata_db.h"
#include "vault_check.h"
#include "vault_files.h"

namespace {

// Removes `path`; the detail says what happened.
bool removeFile(const std::string& path, std::string* detail, const char* done = "; removed") {
  const int result = np_fio_unlink(path.c_str());
  if (result == NP_OK || result == NP_ERR_NOT_FOUND) {
    *detail += done;
    return true;
  }
  *detail += std::string("; not removed: ") + np_fio_errdesc(result);
  return false;
}

// A file of the folder's version directory: its object's name and number.
struct VersionFile {
  std::string name;
  int number;
};

}  // namespace

bool qzviCheckQuarantine(const std::string& directory, const std::string& path,
                         std::string* detail) {
  const std::string quarantine = qzviCheckJoin(directory, QZVI_QUARANTINE_DIRECTORY);
  QzbString reason;
  switch (qzviExamineVaultFile(QzbString(quarantine.c_str()), true, &reason)) {
    case QzviVaultFileState::kPresent:
      break;
    case QzviVaultFileState::kMissing: {
      const int made = np_dir_create(quarantine.c_str(), NP_DIR_CREATE_ONE);
      if (made != NP_OK && made != NP_ERR_EXISTS) {
        *detail += std::string("; not moved into quarantine: ") + np_fio_errdesc(made);
        return false;
      }
      break;
    }
    case QzviVaultFileState::kRefused:
      *detail += "; not moved into quarantine: " + quarantine + " is " + reason.toStdString();
      return false;
  }
  const std::string leaf = path.substr(path.rfind('/') + 1);
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const std::string target =
        qzviCheckJoin(quarantine, attempt == 0 ? leaf : leaf + "." + std::to_string(attempt));
    const int moved = np_fio_rename_noreplace(path.c_str(), target.c_str());
    if (moved == NP_OK) {
      *detail += "; moved to " + target;
      return true;
    }
    if (moved != NP_ERR_EXISTS) {
      *detail += std::string("; not moved into quarantine: ") + np_fio_errdesc(moved);
      return false;
    }
  }
  *detail += "; not moved into quarantine: no free name in " + quarantine;
  return false;
}

void qzviCheckVaultFiles(const QzviCheckFolder& folder, bool isRoot, QzviCheckReport* report) {
  struct Expected {
    std::string name;
    bool directory;
  };
  std::vector<Expected> expected;
  std::vector<std::string> databases = {QZVI_FIXED_METADATA_FILE, QZVI_CACHED_METADATA_FILE};
  if (isRoot) databases.push_back(QZVI_IMPACT_METADATA_FILE);
  for (const std::string& database : databases) {
    expected.push_back({database, false});
    expected.push_back({database + "-journal", false});
    expected.push_back({database + "-wal", false});
  }
  expected.push_back({QZVI_LOCK_FILE, false});
  expected.push_back({QZVI_VERSION_DIRECTORY, true});
  expected.push_back({QZVI_QUARANTINE_DIRECTORY, true});
  for (const Expected& entry : expected) {
    if (std::find(folder.vaultNames.begin(), folder.vaultNames.end(), entry.name) ==
        folder.vaultNames.end()) {
      continue;
    }
    const std::string path = qzviCheckJoin(folder.directory, entry.name);
    QzbString reason;
    if (qzviExamineVaultFile(QzbString(path.c_str()), entry.directory, &reason) !=
        QzviVaultFileState::kRefused) {
      continue;
    }
    std::string detail = "is " + reason.toStdString() + "; never opened or followed";
    // A quarantine that is itself wrong cannot take anything.
    const bool repaired = report->repair() && entry.name != QZVI_QUARANTINE_DIRECTORY &&
                          qzviCheckQuarantine(folder.directory, path, &detail);
    report->add(QZV_CHECK_KIND_REFUSED_FILE, path, detail, repaired);
  }
}

void qzviCheckLockFile(const QzviCheckFolder& folder, QzviCheckReport* report) {
  const std::string path = qzviCheckJoin(folder.directory, QZVI_LOCK_FILE);
  QzviLockHolder holder;
  int64_t age = 0;
  const QzviLockState state = qzviReadLockFile(QzbString(path.c_str()), &holder, &age);
  const std::string old = "lock file is " + std::to_string(age) + " seconds old";
  switch (state) {
    case QzviLockState::kNone:
    case QzviLockState::kLive:
    case QzviLockState::kRefused:  // reported with the vault's own files
      break;
    case QzviLockState::kEnded: {
      std::string detail =
          "lock of " + qzviDescribeLockHolder(holder) + ", whose process has ended";
      QzbString error;
      bool repaired = false;
      if (report->repair()) {
        repaired = qzviClearFolderLock(QzbString(folder.directory.c_str()), false, &error);
        detail += repaired ? "; removed" : "; not removed: " + error.toStdString();
      }
      report->add(QZV_CHECK_KIND_STALE_LOCK, path, detail, repaired);
      break;
    }
    case QzviLockState::kElsewhere:
    case QzviLockState::kUnrecorded: {
      // A holder that cannot be asked: only the age tells.
      if (age < QZV_CHECK_STALE_LOCK_SECONDS) break;
      std::string detail = state == QzviLockState::kElsewhere
                               ? old + ", held by " + qzviDescribeLockHolder(holder) +
                                     " on another machine"
                               : old + " and names no holder";
      const bool repaired = report->repair() && removeFile(path, &detail);
      report->add(QZV_CHECK_KIND_STALE_LOCK, path, detail, repaired);
      break;
    }
    case QzviLockState::kForeign: {
      // Not a lock record: someone's content under the lock file's name.
      std::string detail = "holds something other than a lock record";
      const bool repaired =
          report->repair() && qzviCheckQuarantine(folder.directory, path, &detail);
      report->add(QZV_CHECK_KIND_STALE_LOCK, path, detail, repaired);
      break;
    }
  }

  // Records of lockings that were interrupted before they were given the
  // lock file's name (or before their own name was removed).
  for (const std::string& name : folder.vaultNames) {
    if (!qzviIsLockFileInMaking(name)) continue;
    const std::string making = qzviCheckJoin(folder.directory, name);
    QzviLockHolder maker;
    int64_t makingAge = 0;
    const QzviLockState made = qzviReadLockFile(QzbString(making.c_str()), &maker, &makingAge);
    const bool ended = made == QzviLockState::kEnded ||
                       (made != QzviLockState::kLive && makingAge >= QZV_CHECK_STALE_LOCK_SECONDS);
    if (!ended || made == QzviLockState::kNone || made == QzviLockState::kRefused) continue;
    std::string detail = "record of a locking that was interrupted";
    bool repaired = false;
    if (report->repair()) {
      repaired = made == QzviLockState::kForeign
                     ? qzviCheckQuarantine(folder.directory, making, &detail)
                     : removeFile(making, &detail);
    }
    report->add(QZV_CHECK_KIND_STALE_LOCK, making, detail, repaired);
  }
}

void qzviCheckVersionFiles(QzviCheckFolder* folder, QzviCheckReport* report) {
  const std::string directory = qzviCheckJoin(folder->directory, QZVI_VERSION_DIRECTORY);
  if (qzviExamineVaultFile(QzbString(directory.c_str()), true, nullptr) !=
      QzviVaultFileState::kPresent) {
    return;  // missing, or refused with the vault's own files
  }
  QzviFileList list;
  QzbString error;
  if (!list.init(QzbString(directory.c_str()), QZVI_LIST_FILES, &error)) {
    report->add(QZV_CHECK_KIND_UNREADABLE_FOLDER, directory, error.toStdString(), false);
    return;
  }
  // Read every name first: moving files while the directory is read could
  // skip entries. "plan.txt.3" is version 3 of "plan.txt"; a name without a
  // number after its last dot is not a version file, and is left alone.
  std::map<std::string, std::vector<VersionFile>> orphans;
  while (list.next()) {
    const std::string name = list.getName().toStdString();
    const std::string::size_type dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) continue;
    const int number = qzviExtractVersion(QzbString(name.c_str()));
    if (number < 0) continue;
    const std::string object = name.substr(0, dot);
    if (folder->has(object)) continue;
    orphans[object].push_back(VersionFile{name, number});
  }

  for (auto& entry : orphans) {
    const std::string& object = entry.first;
    std::vector<VersionFile>& versions = entry.second;
    std::sort(versions.begin(), versions.end(),
              [](const VersionFile& a, const VersionFile& b) { return a.number < b.number; });
    // A second name of a file that keeps another (an interrupted rename or
    // move, which gives each version its new name before dropping the old
    // one): only this name goes.
    std::vector<VersionFile> only;
    for (const VersionFile& version : versions) {
      const std::string path = qzviCheckJoin(directory, version.name);
      NpFileInfo status;
      if (np_fio_lstat(path.c_str(), &status) != NP_OK) continue;
      if (status.links <= 1) {
        only.push_back(version);
        continue;
      }
      std::string detail = "version file of \"" + object +
                           "\", which is not in the folder; the same file has another name";
      const bool repaired = report->repair() && removeFile(path, &detail, "; this name removed");
      report->add(QZV_CHECK_KIND_ORPHAN_VERSION, path, detail, repaired);
    }
    if (only.empty()) continue;

    // The object's file is gone while its versions remain: an interrupted
    // version, or a host that ended before it wrote the new content. The
    // newest version becomes the object's file again.
    const VersionFile& newest = only.back();
    const std::string objectPath = qzviCheckJoin(folder->directory, object);
    std::string detail = "the file is gone while " + std::to_string(only.size()) +
                         (only.size() == 1 ? " version remains" : " versions remain") +
                         " (newest: version " + std::to_string(newest.number) + ")";
    bool repaired = false;
    if (report->repair()) {
      const std::string versionPath = qzviCheckJoin(directory, newest.name);
      const int restored = np_fio_rename_noreplace(versionPath.c_str(), objectPath.c_str());
      if (restored == NP_OK) {
        repaired = true;
        detail += "; version " + std::to_string(newest.number) + " restored as the object";
        NpFileInfo restoredStatus;
        const int64_t mtime = np_fio_lstat(objectPath.c_str(), &restoredStatus) == NP_OK
                                  ? restoredStatus.mtime
                                  : 0;
        folder->files.emplace(object, mtime);
      } else {
        detail += std::string("; not restored: ") + np_fio_errdesc(restored);
      }
    }
    report->add(QZV_CHECK_KIND_MISSING_OBJECT, objectPath, detail, repaired);
  }
}
