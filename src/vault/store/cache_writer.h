// QzviCacheWriter: writes and removes the cached rows of files in an open
// cached-metadata database (".v_cmd"), inside the caller's transaction.
//
// A refresh of a folder touches many files; the writer prepares each of its
// statements once, at first use, and reuses it for every file, so that a
// refresh of N files costs N executions and not N preparations. addToCache
// (cache_refresh.h) is a one-file writer.
//
// Thread safety: one writer per connection, used from one thread.
#ifndef QZVAULT_SRC_STORE_CACHE_WRITER_H_
#define QZVAULT_SRC_STORE_CACHE_WRITER_H_

#include <cstdint>

#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "plugin_registry.h"

class QzviCacheWriter {
 public:
  enum class AddResult {
    kAdded,     // the file's rows are written
    kVanished,  // the file no longer exists; nothing was written
    kFailed,    // a statement failed; the transaction must be rolled back
  };

  // `connection` (an open ".v_cmd") and `registry` (may be null: no plug-ins)
  // are not owned and must outlive the writer.
  QzviCacheWriter(SqliteConnection* connection, const QzviPluginRegistry* registry);
  // Releases the prepared statements (the connection stays open).
  ~QzviCacheWriter();
  QzviCacheWriter(const QzviCacheWriter&) = delete;
  QzviCacheWriter& operator=(const QzviCacheWriter&) = delete;

  // Deletes the v_file and v_attr rows of file `name`. False with the
  // connection's message in *error.
  bool removeFile(const QzbString& name, QzbString* error);

  // Reads file `name` of `directory` and writes its rows: a v_file row (unless
  // one exists already) with `timestamp`, the plug-in's type and the display
  // name (both NULL when no plug-in handles or opens the file), the
  // "_CREATIONDATE" and "_MODIFIEDDATE" rows from the file's status, and one
  // v_attr row per row of each plug-in attribute (its first ten columns).
  // kVanished and kFailed set *error: "Cache failed to open file" when the
  // path cannot be formed or examined, else the connection's or statement's
  // message.
  AddResult addFile(const QzbString& directory, const QzbString& name, int64_t timestamp,
                    QzbString* error);

 private:
  enum Slot { kSelectFile, kInsertFile, kInsertAttr, kDeleteFile, kDeleteAttr, kSlotCount };

  static QzbString sqlFor(Slot slot);
  // The statement of `slot`, prepared at first use; null with the
  // connection's message in *error when it cannot be prepared.
  SqliteStatement* statement(Slot slot, QzbString* error);
  bool fileRowExists(const QzbString& name, bool* exists, QzbString* error);
  bool insertFileRow(const QzbString& name, int64_t timestamp, const QzbString& type,
                     const QzbString& displayName, QzbString* error);
  bool insertDateRow(const QzbString& name, const char* attribute, int64_t seconds,
                     QzbString* error);

  SqliteConnection* connection_;
  const QzviPluginRegistry* registry_;
  SqliteStatement* statements_[kSlotCount];
};

// Reads one file into the open cache database (inside the caller's
// transaction); a one-file QzviCacheWriter. False with
// "Cache failed to open file" (also when the file is gone) or the database's
// message in *error.
bool addToCache(const QzbString& directory, const QzbString& name,
                const QzviPluginRegistry* registry, int64_t timestamp,
                SqliteConnection* connection, QzbString* error);

#endif  // QZVAULT_SRC_STORE_CACHE_WRITER_H_
