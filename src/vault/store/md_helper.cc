// Display names and types of a folder's files (QzviMDHelper), and the display
// name a folder keeps for itself (qzviGetFolderNameFromDirectory).
#include "cache_refresh.h"

#include <utility>

#include "debug_log.h"
#include "qzbase/path.h"
#include "statements.h"

namespace {

// The three readings of a folder's names.
const char kCachedNames[] = "SELECT fname, name, type FROM v_file";
const char kCachedNamedOnly[] = "SELECT fname, name, type FROM v_file WHERE name IS NOT NULL";
const char kFixedNames[] = "SELECT  fname, name, '' as type FROM v_object where fname is not null";

}  // namespace

QzviMDHelper::QzviMDHelper() : found_(nullptr) {}

bool QzviMDHelper::init(const QzbString& directory, bool namedOnly, bool fixed,
                        MemDBCache& cache) {
  entries_.clear();
  found_ = nullptr;
  const char* fileName = fixed ? QZVI_FIXED_METADATA_FILE : QZVI_CACHED_METADATA_FILE;
  const QzbString databasePath = qzbConcatPath(directory, QzbString(fileName, true));

  QzbString openError;
  QzviDBHandle db(qzviOpenDB(directory, fileName, &openError, cache), cache);
  if (!db) {
    QZVI_LOG(qzviMDHelperLogger(), QZLOG_ERROR, "Open %s failed with: %s", databasePath.asCstr(),
             openError.asCstr());
    return false;
  }
  const char* sql = fixed ? kFixedNames : (namedOnly ? kCachedNamedOnly : kCachedNames);
  QzvItemList* rows = qzviParamSelect(db.get(), QzbString(sql, true), 0);
  if (rows == nullptr) {
    QZVI_LOG(qzviMDHelperLogger(), QZLOG_ERROR, "SQL in %s failed with: %s",
             databasePath.asCstr(), db->getErrorMessage().asCstr());
    return false;
  }
  // The whole table is read once; every later lookup is a hash look-up.
  while (rows->next()) {
    QzbString fileNameValue = rows->getValue(0);
    if (fileNameValue.isNull()) continue;
    // The first row of a name wins, as a scan of the table would find it.
    entries_.emplace(std::move(fileNameValue), Entry{rows->getValue(1), rows->getValue(2)});
  }
  rows->release();
  return true;
}

bool QzviMDHelper::lookup(const QzbString& fileName) {
  auto found = entries_.find(fileName);
  found_ = found == entries_.end() ? nullptr : &found->second;
  return found_ != nullptr;
}

QzbString QzviMDHelper::getFoundName() const { return found_ != nullptr ? found_->name : QzbString(); }

QzbString QzviMDHelper::getFoundType() const { return found_ != nullptr ? found_->type : QzbString(); }

QzbString qzviGetFolderNameFromDirectory(const QzbString& directory, MemDBCache& cache) {
  QzviDBHandle db(qzviOpenDB(directory, QZVI_FIXED_METADATA_FILE, nullptr, cache), cache);
  if (!db) return QzbString();
  QzvItemList* rows =
      qzviParamSelect(db.get(), QzbString("SELECT name FROM v_object where fname is null", true), 0);
  if (rows == nullptr) return QzbString();
  QzbString name;
  if (rows->next()) name = rows->getValue(0);
  rows->release();
  return name;
}
