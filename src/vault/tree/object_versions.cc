// QzvObjectImpl: numbered versions of an object's file and roll-back.
//
// The versions of every object of a folder lie in the folder's hidden
// sub-directory ".v_ver", named after the object's file with "." and the
// version number appended ("plan.txt.1", "plan.txt.2", ...). The directory is
// the only record: nothing about versions is kept in a database, and the
// object computes its versions from the directory on every call.
#include <cstring>

#include "debug_log.h"
#include "file_list.h"
#include "object_impl.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "time_util.h"
#include "vault_context.h"
#include "vault_files.h"

namespace {

const char kVersionDirectory[] = ".v_ver";
const char kPathnameError[] = "Pathname creation error";

// folderPath/.v_ver, or a null string when it cannot be built.
QzbString versionDirectoryOf(const QzbString& folderPath) {
  return qzbConcatPath(folderPath, QzbString(kVersionDirectory, true));
}

// Whether the version directory exists, as a real directory: NP_OK when it
// does, NP_ERR_NOT_FOUND when it does not, and otherwise a failure with its
// message in *error (a link, a file, a fifo in its place is never used:
// versions would be moved out of the vault or lost).
int versionDirectoryState(const QzbString& versionDirectory, QzbString* error) {
  QzbString reason;
  switch (qzviExamineVaultFile(versionDirectory, true, &reason)) {
    case QzviVaultFileState::kPresent:
      return NP_OK;
    case QzviVaultFileState::kMissing:
      return NP_ERR_NOT_FOUND;
    case QzviVaultFileState::kRefused:
      break;
  }
  *error = qzviRefusalMessage(versionDirectory, reason);
  return NP_ERR_NOT_REGULAR;
}

// versionDirectory/fileName.number, or a null string when the join fails.
QzbString versionPathOf(const QzbString& versionDirectory, const QzbString& fileName,
                        long long number) {
  QzbString path = qzbConcatPath(versionDirectory, fileName);
  if (path.isNull()) return path;
  path.append(qzbStringFormat(".%lld", number));
  return path;
}

// The highest number of a well-formed version file ("fileName.N") of the
// object in the directory, at most `limit`; 0 when there is none or the
// directory cannot be listed. Stray entries are passed over. Used to bound a
// roll-back's search when the strict count of getHighestVersion has failed.
int highestWellFormedVersion(const QzbString& versionDirectory, const QzbString& fileName,
                             int limit) {
  QzviFileList list;
  QzbString error;
  if (!list.init(versionDirectory, QZVI_LIST_ALL_ENTRIES, &error)) return 0;
  const unsigned prefixLength = fileName.length();
  int highest = 0;
  while (list.next()) {
    const QzbString name = list.getName();
    if (name.length() <= prefixLength + 1) continue;
    if (std::strncmp(name.asCstr(), fileName.asCstr(), prefixLength) != 0) continue;
    const char* digits = name.asCstr() + prefixLength;
    if (*digits++ != '.' || *digits == '0') continue;
    long long number = 0;
    bool wellFormed = true;
    for (const char* c = digits; *c != '\0'; ++c) {
      if (*c < '0' || *c > '9' || number > limit) {
        wellFormed = false;
        break;
      }
      number = number * 10 + (*c - '0');
    }
    if (wellFormed && number <= limit && number > highest) highest = static_cast<int>(number);
  }
  return highest;
}

}  // namespace

bool QzvObjectImpl::createVersion() {
  QzLogger* logger = vault_->logger();
  const QzbString versionDirectory = versionDirectoryOf(folderPath_);
  if (versionDirectory.isNull()) {
    errorMessage_ = QzbString(kPathnameError, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The directory is made with the first version of any object of the folder.
  QzbString refusal;
  const int found = versionDirectoryState(versionDirectory, &refusal);
  if (found == NP_ERR_NOT_FOUND) {
    const int created = np_dir_create(versionDirectory.asCstr(), NP_DIR_CREATE_ONE);
    if (created != NP_OK) {
      errorMessage_ = QzbString(np_fio_errdesc(created));
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return false;
    }
  } else if (found != NP_OK) {
    errorMessage_ = refusal;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // A failed count (-1) numbers the new version 0; that follows from the
  // arithmetic and is kept. The sum is taken in 64 bits so that a version
  // file numbered at the top of the int range cannot overflow it.
  const int highest = getHighestVersion();
  const QzbString target =
      versionPathOf(versionDirectory, fileName_, static_cast<long long>(highest) + 1);
  if (target.isNull()) {
    errorMessage_ = QzbString(kPathnameError, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // An existing version is never replaced: a count that came out low (a
  // directory listing cut short by a read error, another process making a
  // version at the same moment) would otherwise overwrite an older version
  // with the current file. The rename itself refuses a taken name.
  const int moved = np_fio_rename_noreplace(fullPath_.asCstr(), target.asCstr());
  if (moved != NP_OK) {
    errorMessage_ = QzbString(np_fio_errdesc(moved));
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  // The object's file is now absent until the caller writes it anew.
  return true;
}

int QzvObjectImpl::getHighestVersion() {
  QzLogger* logger = vault_->logger();
  const QzbString versionDirectory = versionDirectoryOf(folderPath_);
  if (versionDirectory.isNull()) {
    errorMessage_ = QzbString(kPathnameError, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return -1;
  }
  QzbString refusal;
  const int found = versionDirectoryState(versionDirectory, &refusal);
  if (found == NP_ERR_NOT_FOUND) return 0;
  if (found != NP_OK) {
    errorMessage_ = refusal;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return -1;
  }

  QzviFileList list;
  QzbString listError;
  if (!list.init(versionDirectory, QZVI_LIST_ALL_ENTRIES, &listError)) {
    errorMessage_ = listError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return -1;
  }
  // Every entry that begins with the file name counts, with or without the
  // dot after it; one that does not end in a number fails the whole count,
  // deliberately, so that a damaged version directory is noticed.
  const unsigned prefixLength = fileName_.length();
  int highest = 0;
  while (list.next()) {
    const QzbString name = list.getName();
    if (name.length() < prefixLength ||
        std::strncmp(name.asCstr(), fileName_.asCstr(), prefixLength) != 0) {
      continue;
    }
    const int number = qzviExtractVersion(name);
    if (number == -1) {
      errorMessage_ = QzbString("Invalid version file (must end in digits)", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return -1;
    }
    if (number > highest) highest = number;
  }
  return highest;
}

QzbString QzvObjectImpl::getVersionFileName(int version, QzbDate* date) {
  QzLogger* logger = vault_->logger();
  const QzbString versionDirectory = versionDirectoryOf(folderPath_);
  const QzbString path = versionDirectory.isNull()
                             ? QzbString()
                             : versionPathOf(versionDirectory, fileName_, version);
  if (path.isNull()) {
    errorMessage_ = QzbString(kPathnameError, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return QzbString();
  }
  // Any number is accepted; one without a file gives a null string. Neither
  // the directory nor the version is used through a link.
  QzbString refusal;
  if (versionDirectoryState(versionDirectory, &refusal) == NP_ERR_NOT_REGULAR) {
    errorMessage_ = refusal;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return QzbString();
  }
  NpFileInfo status;
  QzbString reason;
  switch (qzviExamineVaultFile(path, false, &reason, &status)) {
    case QzviVaultFileState::kPresent:
      break;
    case QzviVaultFileState::kMissing:
      errorMessage_ = QzbString("File does not exist", true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return QzbString();
    case QzviVaultFileState::kRefused:
      errorMessage_ = qzviRefusalMessage(path, reason);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      return QzbString();
  }
  if (date != nullptr) *date = qzviSeconds2QzbDate(status.mtime);
  return path;
}

bool QzvObjectImpl::rollbackVersion(int version) {
  QzLogger* logger = vault_->logger();
  if (version < 1) {
    errorMessage_ = QzbString("Invalid rollback version number", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const int top = getHighestVersion();

  // The requested version, or the nearest older one that exists. No version
  // above the highest can exist, so the search starts there at the latest;
  // when the strict count failed (a stray entry), the highest well-formed
  // version file bounds it instead. Either way the cost follows the versions
  // present, not the number asked for.
  int start = version;
  if (top >= 0) {
    if (start > top) start = top;
  } else {
    const int wellFormed = highestWellFormedVersion(versionDirectoryOf(folderPath_), fileName_,
                                                    version);
    if (start > wellFormed) start = wellFormed;
  }
  int chosen = 0;
  QzbString chosenPath;
  for (int k = start; k >= 1; --k) {
    chosenPath = getVersionFileName(k, nullptr);
    if (!chosenPath.isNull()) {
      chosen = k;
      break;
    }
  }
  if (chosen == 0) {
    errorMessage_ = QzbString("No valid file for rollback operation", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The chosen version takes the object's place in one step, replacing the
  // current file: at no moment is the object without a file, and a failed
  // rename leaves the current file as it was. (No backup beside the object
  // is made: a file of that name could be somebody else's.)
  const int restored = np_fio_rename(chosenPath.asCstr(), fullPath_.asCstr());
  if (restored != NP_OK) {
    errorMessage_ = qzbStringFormat("Failed to rollback: %s", np_fio_errdesc(restored));
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  // The versions newer than the one restored are discarded.
  for (int j = top; j > chosen; --j) {
    const QzbString newer = getVersionFileName(j, nullptr);
    if (!newer.isNull()) np_fio_unlink(newer.asCstr());
  }
  return true;
}
