// QzvFolderImpl: the sub-folder and object listings, the item count and the
// extension filter.
//
// The object listing is where a folder's cached metadata is brought up to
// date: the vault's folder-time map tells whether the directory changed since
// the last refresh, and only then are the files read through the plug-ins.
// Names are then looked up in two hash maps read once per listing (cached and
// fixed metadata), so a listing costs one pass over the directory whatever
// the number of files.
#include <new>
#include <utility>

#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "folder_impl.h"
#include "item_list_impl.h"
#include "metadata_db.h"
#include "qzbase/path.h"
#include "statements.h"
#include "stock_folders.h"
#include "vault_context.h"

namespace {

const int kFolderListColumns = 2;
const int kObjectListColumns = 4;
const char kOutOfMemory[] = "Out of memory";

}  // namespace

QzvItemList* QzvFolderImpl::getFolderList() {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getFolderList on folder \"%s\".", path_.asCstr());
  QzviFileList entries;
  QzbString listError;
  if (!entries.init(path_, QZVI_LIST_FOLDERS, &listError)) {
    errorMessage_ = listError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvItemListImpl* list = new (std::nothrow) QzvItemListImpl(kFolderListColumns);
  if (list == nullptr) {
    errorMessage_ = QzbString(kOutOfMemory, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  while (entries.next()) {
    if (!list->addRow()) {
      errorMessage_ = QzbString(kOutOfMemory, true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      list->release();
      return nullptr;
    }
    const QzbString fullPath = entries.getFullPathName();
    QzbString name = qzviGetFolderNameFromDirectory(fullPath, vault_->dbCache());
    if (name.isNull()) name = entries.getName();
    list->setLastRowElement(0, std::move(name));
    list->setLastRowElement(1, fullPath);
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exit getFolderList on folder \"%s\".", path_.asCstr());
  return list;
}

int QzvFolderImpl::getFolderItemCount() {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getFolderItemCount on folder \"%s\".",
           path_.asCstr());
  QzviFileList entries;
  QzbString listError;
  if (!entries.init(path_, QZVI_LIST_ALL_ENTRIES, &listError)) {
    errorMessage_ = listError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return 0;
  }
  int count = 0;
  while (entries.next()) ++count;
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getFolderItemCount on folder \"%s\".",
           path_.asCstr());
  return count;
}

QzvItemList* QzvFolderImpl::getObjectList(bool readOnlyFlag) {
  QzLogger* logger = vault_->logger();
  MemDBCache& cache = vault_->dbCache();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getObjectList on folder \"%s\".", path_.asCstr());

  QzviFileList entries;
  QzbString listError;
  if (!entries.init(path_, QZVI_LIST_OBJECTS, &listError)) {
    errorMessage_ = listError;
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }

  // A reader whose database cannot be opened simply finds nothing, so the
  // outcome of either init is not needed.
  QzviMDHelper fixedNames;
  fixedNames.init(path_, false, true, cache);

  const bool refreshRan = vault_->doesFolderNeedCachedRefreshed(path_);
  if (refreshRan) {
    QzbString refreshError;
    if (!qzviRefreshCachedAttributes(path_, vault_->plugins(), &refreshError, cache,
                                     vault_->publicVault())) {
      if (!refreshError.isNull()) errorMessage_ = refreshError;
      if (!refreshError.isEmpty()) {
        qzviDebugLog(qzbStringFormat(
            "Error refreshing cached folder attributes for getObjectList() on folder %s: %s",
            path_.asCstr(), refreshError.asCstr()));
      } else {
        qzviDebugLog(qzbStringFormat(
            "Error refreshing cached folder attributes for getObjectList() on folder %s",
            path_.asCstr()));
      }
    }
  } else {
    QZVI_LOG(qzviMDHelperLogger(), QZLOG_DEBUG, "Folder refresh not necessary for %s",
             path_.asCstr());
  }
  // Read after the refresh, so that it sees the refreshed rows.
  QzviMDHelper cachedNames;
  cachedNames.init(path_, false, false, cache);

  QzvItemListImpl* list = new (std::nothrow) QzvItemListImpl(kObjectListColumns);
  if (list == nullptr) {
    errorMessage_ = QzbString(kOutOfMemory, true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  const bool filtered = currentFilter_.length() != 0;
  bool readOnly = false;
  const QzbString yes("Y", true);
  const QzbString no("N", true);
  while (entries.next()) {
    const QzbString fileName = entries.getName();
    QzbString extension;
    QzbString baseName = qzviParseFileExt(fileName, &extension, false);
    if (filtered && !extInFilter(extension)) continue;
    if (!list->addRow()) {
      errorMessage_ = QzbString(kOutOfMemory, true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      list->release();
      return nullptr;
    }
    // Display name: what the plug-in read (cached), else the stored name,
    // else the file name without its extension.
    QzbString displayName;
    QzbString type;
    if (cachedNames.lookup(fileName)) {
      displayName = cachedNames.getFoundName();
      type = cachedNames.getFoundType();
    }
    if (displayName.isNull() && fixedNames.lookup(fileName)) {
      displayName = fixedNames.getFoundName();
    }
    if (displayName.isNull()) displayName = std::move(baseName);
    // Without the flag the probe is skipped and every row reads "N".
    if (readOnlyFlag) readOnly = entries.isReadOnly();
    list->setLastRowElement(0, std::move(displayName));
    list->setLastRowElement(1, entries.getFullPathName());
    list->setLastRowElement(2, std::move(type));
    list->setLastRowElement(3, readOnly ? yes : no);
  }

  QzviDBHandle db(qzviOpenDB(path_, QZVI_FIXED_METADATA_FILE, &errorMessage_, cache), cache);
  if (!db) {
    list->release();
    return nullptr;
  }
  QzvItemList* links =
      qzviParamSelect(db.get(), QzbString("SELECT name, fname FROM v_symlink", true), 0);
  if (links == nullptr) {
    errorMessage_ =
        qzbStringFormat("Failed to get data from symlink table in %s (fixed metadata file)",
                        path_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_DEBUG, errorMessage_.asCstr());
    list->release();
    return nullptr;
  }
  const QzbString linkType("link", true);
  while (links->next()) {
    if (!list->addRow()) {
      errorMessage_ = QzbString(kOutOfMemory, true);
      QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
      links->release();
      list->release();
      return nullptr;
    }
    list->setLastRowElement(0, links->getValue(0));
    list->setLastRowElement(1, qzbConcatPath(path_, links->getValue(1)));
    list->setLastRowElement(2, linkType);
  }
  links->release();
  db.close();

  // Recorded after every refresh attempt, failed ones included, so that a
  // refresh that keeps failing is not retried on every listing.
  if (refreshRan) vault_->updateFolderCachedDate(path_);
  QZVI_LOG(logger, QZLOG_TRACE, "Exit getObjectList on folder \"%s\".", path_.asCstr());
  return list;
}

QzbString QzvFolderImpl::getCurrentFilter() { return currentFilter_; }

void QzvFolderImpl::setCurrentFilter(const QzbString& filter) { currentFilter_ = filter; }

void QzvFolderImpl::setCurrentFilter(int stockId) {
  currentFilter_ = qzviStockFilterString(stockId);
}

bool QzvFolderImpl::extInFilter(const QzbString& extension) {
  // Pieces are compared as they stand (not trimmed), so an empty piece
  // matches an empty extension.
  unsigned position = 0;
  for (;;) {
    const int separator = currentFilter_.find(";", position);
    const QzbString piece =
        separator < 0 ? currentFilter_.mid(position)
                      : currentFilter_.mid(position, separator - static_cast<int>(position));
    if (piece.compare(extension, false) == 0) return true;
    if (separator < 0) return false;
    position = static_cast<unsigned>(separator) + 1;
  }
}
