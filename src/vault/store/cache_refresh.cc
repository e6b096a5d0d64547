// Bringing a folder's cached metadata up to date with its files: the whole
// folder (qzviRefreshCachedAttributes) or one file
// (qzviRefreshCachedFileAttributes).
#include "cache_refresh.h"

#include <cstdint>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "cache_writer.h"
#include "content_events.h"
#include "debug_log.h"
#include "file_list.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"

namespace {

const char kBegin[] = "BEGIN TRANSACTION";
const char kCommit[] = "COMMIT TRANSACTION";
const char kRollback[] = "ROLLBACK TRANSACTION";

void setError(QzbString* error, const QzbString& text) {
  if (error != nullptr) *error = text;
}

// A cached file of the folder: its time stamp as cached, and whether the
// listing still has it.
struct CachedFile {
  uint64_t timestamp;
  bool seen;
};

// A file to be (re)read into the cache, with its time stamp from the listing.
struct FileToAdd {
  QzbString name;
  int64_t timestamp;
  bool added;  // false when it vanished before it could be read
};

// Reads name and time stamp of every cached file into `cached`. False when
// the select fails; the failure is logged and its message is in *error.
bool readCachedFiles(SqliteConnection* connection, const QzbString& directory,
                     std::unordered_map<QzbString, CachedFile>* cached, QzbString* error) {
  QzvItemList* rows = qzviParamSelect(
      connection, QzbString("SELECT fname, tstamp FROM v_file WHERE fname NOT NULL", true), 0);
  if (rows == nullptr) {
    const QzbString message = connection->getErrorMessage();
    if (message.isEmpty()) {
      QZVI_LOG(qzviVaultLogger(), QZLOG_ERROR,
               "Error selecting file and timestamp information from cache \"%s\"",
               directory.asCstr());
    } else {
      QZVI_LOG(qzviVaultLogger(), QZLOG_ERROR,
               "Error selecting file and timestamp information from cache \"%s\": %s",
               directory.asCstr(), message.asCstr());
    }
    setError(error, message);
    return false;
  }
  while (rows->next()) {
    // Time stamps are whole seconds; read as 64 bits so that dates past 2038
    // compare right. A second row for a name (never written by this library)
    // keeps the first.
    const uint64_t timestamp = static_cast<uint64_t>(rows->getValue(1).asInt64());
    cached->emplace(rows->getValue(0), CachedFile{timestamp, false});
  }
  rows->release();
  return true;
}

// Ends a failed transaction: rolls back, so that the cache keeps its previous
// rows. The failure's message is already in *error.
void rollBack(SqliteConnection* connection) {
  connection->exec(QzbString(kRollback, true), 0);
}

}  // namespace

bool qzviRefreshCachedAttributes(const QzbString& directory, const QzviPluginRegistry* registry,
                                 QzbString* error, MemDBCache& cache, QzvVault* vault) {
  QzviDBHandle db(qzviOpenDB(directory, QZVI_CACHED_METADATA_FILE, error, cache), cache);
  if (!db) return false;

  std::unordered_map<QzbString, CachedFile> cached;
  if (!readCachedFiles(db.get(), directory, &cached, error)) return false;

  // Compare the listing with the cache. A file at most one second newer than
  // its cached time stamp (file systems and copies round times differently),
  // or older, is left alone.
  QzviFileList list;
  if (!list.init(directory, QZVI_LIST_OBJECTS, error)) return false;
  std::vector<QzbString> toRemove;
  std::vector<FileToAdd> toAdd;
  while (list.next()) {
    const QzbString name = list.getName();
    const int64_t timestamp = list.getTimestampLong();
    auto found = cached.find(name);
    if (found == cached.end()) {
      toAdd.push_back(FileToAdd{name, timestamp, true});
      continue;
    }
    found->second.seen = true;
    if (found->second.timestamp + 1 < static_cast<uint64_t>(timestamp)) {
      toRemove.push_back(name);
      toAdd.push_back(FileToAdd{name, timestamp, true});
    }
  }
  for (const auto& entry : cached) {
    if (!entry.second.seen) toRemove.push_back(entry.first);
  }
  if (toRemove.empty() && toAdd.empty()) return true;

  if (!db->exec(QzbString(kBegin, true), 0)) {
    setError(error, db->getErrorMessage());
    return false;
  }
  {
    QzviCacheWriter writer(db.get(), registry);
    for (const QzbString& name : toRemove) {
      if (!writer.removeFile(name, error)) {
        rollBack(db.get());
        return false;
      }
    }
    for (FileToAdd& file : toAdd) {
      // A file that vanished since the listing counts as removed: its old rows
      // are already gone (it was modified) or never existed (it was new), and
      // the rest of the folder is still refreshed.
      QzbString addError;
      const QzviCacheWriter::AddResult result =
          writer.addFile(directory, file.name, file.timestamp, &addError);
      if (result == QzviCacheWriter::AddResult::kFailed) {
        setError(error, addError);
        rollBack(db.get());
        return false;
      }
      file.added = result == QzviCacheWriter::AddResult::kAdded;
    }
  }
  // A failed commit is not rolled back: the transaction ends when the
  // connection is closed, and nothing is announced.
  if (!db->exec(QzbString(kCommit, true), 0)) {
    setError(error, db->getErrorMessage());
    return false;
  }
  db.close();

  // Announced only after the commit: a removed file as removed, a modified
  // one as removed and then added again.
  QzviChangeAnnouncer announcer(vault);
  for (const QzbString& name : toRemove) announcer.announce(directory, name, QZ_CHANGE_REMOVED);
  for (const FileToAdd& file : toAdd) {
    if (file.added) announcer.announce(directory, file.name, QZ_CHANGE_ADDED_OR_MODIFIED);
  }
  return true;
}

bool qzviRefreshCachedFileAttributes(const QzbString& path, const QzviPluginRegistry* registry,
                                     QzbString* error, MemDBCache& cache, bool force) {
  QzbString name;
  QzbString directory = qzbParsePath(path, &name);
  if (name.isEmpty()) {
    setError(error, QzbString("Cache failed to open file", true));
    return false;
  }
  if (directory.isNull()) directory = QzbString("", true);  // a name in the working directory

  QzviDBHandle db(qzviOpenDB(directory, QZVI_CACHED_METADATA_FILE, error, cache), cache);
  if (!db) return false;

  const QzbDatavar fileName(name);
  QzvItemList* rows = qzviParamSelect(
      db.get(), QzbString("SELECT tstamp FROM v_file WHERE fname  = ? ", true), 1, &fileName);
  if (rows == nullptr) {
    setError(error, db->getErrorMessage());
    return false;
  }
  const bool hasRows = rows->next();
  const uint64_t cachedTimestamp = hasRows ? static_cast<uint64_t>(rows->getValue(0).asInt64()) : 0;
  rows->release();

  NpStat status;
  const int statResult = np_fio_stat(path.asCstr(), &status);
  if (statResult != NP_OK && statResult != NP_ERR_NOT_FOUND) {
    setError(error, QzbString("Cache failed to open file", true));
    return false;
  }
  const bool exists = statResult == NP_OK;

  // What to do. Unlike the folder refresh, any newer modification time counts
  // here: a caller that asks about one file wants it exact.
  bool remove = false;
  bool add = false;
  if (!exists) {
    remove = hasRows;
  } else if (!hasRows) {
    add = true;
  } else if (force || cachedTimestamp < static_cast<uint64_t>(status.mtime)) {
    remove = true;
    add = true;
  }
  if (!remove && !add) return true;

  qzviDebugLog(qzbStringFormat("Refreshing cached file attributes for file \"%S\"", &path));
  if (!db->exec(QzbString(kBegin, true), 0)) {
    setError(error, db->getErrorMessage());
    return false;
  }
  {
    QzviCacheWriter writer(db.get(), registry);
    if (remove && !writer.removeFile(name, error)) {
      rollBack(db.get());
      return false;
    }
    // A file that vanished after the stat above is left removed.
    QzbString addError;
    if (add && writer.addFile(directory, name, status.mtime, &addError) ==
                   QzviCacheWriter::AddResult::kFailed) {
      setError(error, addError);
      rollBack(db.get());
      return false;
    }
  }
  if (!db->exec(QzbString(kCommit, true), 0)) {
    setError(error, db->getErrorMessage());
    return false;
  }
  return true;
}
