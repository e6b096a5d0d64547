// The vault check's look at the files a folder keeps beside its objects: a
// lock file left by a host that is long gone, and version files of objects
// that are no longer there. Each repair is the removal of one file.
#include <string>
#include <vector>

#include "qzbase/platform.h"
#include "file_list.h"
#include "vault_check.h"

namespace {

const char kLockFile[] = ".v_lck";
const char kVersionDirectory[] = ".v_ver";

// Removes `path`; the detail says what happened.
bool removeFile(const std::string& path, std::string* detail) {
  const int result = np_fio_unlink(path.c_str());
  if (result == NP_OK || result == NP_ERR_NOT_FOUND) {
    *detail += "; removed";
    return true;
  }
  *detail += std::string("; not removed: ") + np_fio_errdesc(result);
  return false;
}

}  // namespace

void qzviCheckLockFile(const QzviCheckFolder& folder, QzviCheckReport* report) {
  const std::string path = qzviCheckJoin(folder.directory, kLockFile);
  NpStat status;
  if (np_fio_stat(path.c_str(), &status) != NP_OK) return;
  const int64_t age = np_time_now() - status.mtime;
  if (age < QZV_CHECK_STALE_LOCK_SECONDS) return;  // a lock that may well be held
  std::string detail = "lock file is " + std::to_string(age) + " seconds old";
  const bool repaired = report->repair() && removeFile(path, &detail);
  report->add(QZV_CHECK_KIND_STALE_LOCK, path, detail, repaired);
}

void qzviCheckVersionFiles(const QzviCheckFolder& folder, QzviCheckReport* report) {
  const std::string directory = qzviCheckJoin(folder.directory, kVersionDirectory);
  NpStat status;
  if (np_fio_stat(directory.c_str(), &status) != NP_OK) return;
  QzviFileList list;
  QzbString error;
  if (!list.init(QzbString(directory.c_str()), QZVI_LIST_FILES, &error)) {
    report->add(QZV_CHECK_KIND_UNREADABLE_FOLDER, directory, error.toStdString(), false);
    return;
  }
  // Read every name first: removing files while the directory is read could
  // skip entries.
  std::vector<std::string> names;
  while (list.next()) names.push_back(list.getName().toStdString());
  for (const std::string& name : names) {
    // "plan.txt.3" is version 3 of "plan.txt"; a name without a number after
    // its last dot is not a version file, and is left alone.
    const std::string::size_type dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) continue;
    if (qzviExtractVersion(QzbString(name.c_str())) < 0) continue;
    const std::string object = name.substr(0, dot);
    if (folder.has(object)) continue;
    std::string detail = "version file of \"" + object + "\", which is not in the folder";
    const std::string path = qzviCheckJoin(directory, name);
    const bool repaired = report->repair() && removeFile(path, &detail);
    report->add(QZV_CHECK_KIND_ORPHAN_VERSION, path, detail, repaired);
  }
}
