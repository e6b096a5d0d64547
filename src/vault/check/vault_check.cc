// The walk of the vault check: every folder from the root down, depth first
// and sorted by name, each judged by the concerns of vault_check_*.cc; the
// findings become one item list.
#include "vault_check.h"

#include <algorithm>
#include <new>
#include <utility>

#include "qzbase/platform.h"
#include "debug_log.h"
#include "file_list.h"
#include "item_list_impl.h"
#include "metadata_db.h"
#include "vault_context.h"

std::string qzviCheckJoin(const std::string& directory, const std::string& name) {
  if (!directory.empty() && directory.back() == '/') return directory + name;
  return directory + "/" + name;
}

QzvVaultCheckImpl::QzvVaultCheckImpl(QzviVaultContext* vault)
    : vault_(vault), logger_(vault->logger()) {}

void QzvVaultCheckImpl::release() { delete this; }

QzbString QzvVaultCheckImpl::getErrorMessage() { return errorMessage_; }

bool QzvVaultCheckImpl::readFolder(const std::string& directory, QzviCheckFolder* folder,
                                   std::vector<std::string>* subdirectories, QzbString* error) {
  QzviFileList list;
  if (!list.init(QzbString(directory.c_str()), 0, error)) return false;
  folder->directory = directory;
  std::vector<std::string> names;
  while (list.next()) {
    const std::string name = list.getName().toStdString();
    if (list.isVaultItem()) {
      folder->vaultNames.push_back(name);
    } else if (list.isLink()) {
      // Never entered, never read: a link may lead out of the vault or round
      // in a loop.
      folder->links.insert(name);
    } else if (list.isDir()) {
      folder->directories.emplace(name, list.getTimestampLong());
      names.push_back(name);
    } else {
      folder->files.emplace(name, list.getTimestampLong());
    }
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) subdirectories->push_back(qzviCheckJoin(directory, name));
  return true;
}

void QzvVaultCheckImpl::checkFolder(QzviCheckFolder* folder, bool isRoot,
                                    QzviCheckReport* report) {
  // The vault's own files first: what is not what it should be is never
  // opened. Then the lock, then the versions, so that an object given back
  // its newest version keeps its rows when those are judged.
  qzviCheckVaultFiles(*folder, isRoot, report);
  qzviCheckLockFile(*folder, report);
  qzviCheckVersionFiles(folder, report);
  NpFileInfo status;
  const std::string fixedPath = qzviCheckJoin(folder->directory, QZVI_FIXED_METADATA_FILE);
  if (np_fio_lstat(fixedPath.c_str(), &status) == NP_OK && status.type == NP_TYPE_FILE) {
    SqliteConnection* db = qzviCheckOpenDatabase(fixedPath, report);
    if (db != nullptr) {
      qzviCheckFixedRows(db, *folder, report);
      db->close(0);
    }
  }
  const std::string cachedPath = qzviCheckJoin(folder->directory, QZVI_CACHED_METADATA_FILE);
  if (np_fio_lstat(cachedPath.c_str(), &status) == NP_OK && status.type == NP_TYPE_FILE) {
    SqliteConnection* db = qzviCheckOpenDatabase(cachedPath, report);
    if (db != nullptr) {
      qzviCheckCachedRows(db, *folder, report);
      db->close(0);
    }
  }
  if (!isRoot) return;
  const std::string impactPath = qzviCheckJoin(folder->directory, QZVI_IMPACT_METADATA_FILE);
  if (np_fio_lstat(impactPath.c_str(), &status) == NP_OK && status.type == NP_TYPE_FILE) {
    SqliteConnection* db = qzviCheckOpenDatabase(impactPath, report);
    if (db != nullptr) {
      qzviCheckLineageStore(db, impactPath, report);
      db->close(0);
    }
  }
}

QzvItemList* QzvVaultCheckImpl::check(bool repair) {
  QzviCheckReport report(repair);
  // Folders still to visit, the next one last, so that the walk goes depth
  // first in name order.
  std::vector<std::string> pending{vault_->rootPath().toStdString()};
  bool isRoot = true;
  try {
    while (!pending.empty()) {
      const std::string directory = std::move(pending.back());
      pending.pop_back();
      QzviCheckFolder folder;
      std::vector<std::string> subdirectories;
      QzbString error;
      if (!readFolder(directory, &folder, &subdirectories, &error)) {
        if (isRoot) {
          errorMessage_ = error;
          QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
          return nullptr;
        }
        report.add(QZV_CHECK_KIND_UNREADABLE_FOLDER, directory, error.toStdString(), false);
        continue;
      }
      checkFolder(&folder, isRoot, &report);
      isRoot = false;
      pending.insert(pending.end(), subdirectories.rbegin(), subdirectories.rend());
    }
  } catch (const std::bad_alloc&) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }

  QzvItemListImpl* list = new (std::nothrow) QzvItemListImpl(QZV_CHECK_COLUMNS);
  if (list == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    return nullptr;
  }
  for (const QzviCheckFinding& finding : report.findings()) {
    if (!list->addRow()) {
      list->release();
      errorMessage_ = QzbString("Out of memory", true);
      return nullptr;
    }
    list->setLastRowElement(QZV_CHECK_COL_KIND, QzbString(finding.kind));
    list->setLastRowElement(QZV_CHECK_COL_PATH, QzbString(finding.path.c_str()));
    list->setLastRowElement(QZV_CHECK_COL_DETAIL, QzbString(finding.detail.c_str()));
    list->setLastRowElement(QZV_CHECK_COL_REPAIRED, QzbString(finding.repaired ? "1" : "0"));
    list->setLastRowElement(QZV_CHECK_COL_SEVERITY, QzbString(qzviCheckSeverity(finding.kind)));
  }
  return list;
}
