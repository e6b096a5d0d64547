// The metadata databases of a vault and the one routine that opens them.
//
// Each folder has a fixed-metadata database ".v_fmd" (attributes set by
// callers, display names, symbolic names) and a cached-metadata database
// ".v_cmd" (what plug-ins read out of the files); the vault root also has the
// impact-analysis database ".v_imd". A missing database is created with its
// schema at the first open; an existing one is opened as it is. A directory
// that cannot hold a file gets a private in-memory database instead, kept in
// the vault's MemDBCache for the vault's life, empty and read-only (every
// write to it is refused as in a read-only folder, since nothing written
// there would be kept); every database is kept in memory, and writable,
// while the configuration key "QZVLT/BYPASS" has a non-empty value.
//
// A database file is never opened through a symbolic link, nor when it or
// its journal is a fifo, a device or a directory: the open fails with a
// message naming the file.
//
// Callers open per operation and close before they return; connections are
// not shared between threads.
#ifndef QZVAULT_SRC_STORE_METADATA_DB_H_
#define QZVAULT_SRC_STORE_METADATA_DB_H_

#include <map>

#include "qzbase/sqlite.h"
#include "qzbase/string.h"

#define QZVI_FIXED_METADATA_FILE ".v_fmd"
#define QZVI_CACHED_METADATA_FILE ".v_cmd"
#define QZVI_IMPACT_METADATA_FILE ".v_imd"
#define QZVI_SCHEMA_VERSION 1

// In-memory databases by database path. Owned by the vault; not locked (one
// vault's threads do not open databases at the same moment).
class MemDBCache {
 public:
  MemDBCache() = default;
  // Closes every cached connection.
  ~MemDBCache();
  MemDBCache(const MemDBCache&) = delete;
  MemDBCache& operator=(const MemDBCache&) = delete;

  // The cached connection for `path`, or null.
  SqliteConnection* findMemDB(const QzbString& path) const;
  // A new private database entered under `path`; null (nothing entered) on
  // failure.
  SqliteConnection* createMemDB(const QzbString& path);
  // True when `connection` is one of the cached connections.
  bool lookupHandle(const SqliteConnection* connection) const;

 private:
  std::map<QzbString, SqliteConnection*> databases_;
};

// Opens (creating when missing) database `fileName` of `directory`. Returns
// the connection, owned by the caller and ended with qzviCloseDB, or null with
// the reason in *errorOut (when given). See the file comment for the rules.
SqliteConnection* qzviOpenDB(const QzbString& directory, const char* fileName,
                             QzbString* errorOut, MemDBCache& cache);
// Closes a connection from qzviOpenDB unless it belongs to the cache. A null
// connection is ignored.
void qzviCloseDB(SqliteConnection* connection, MemDBCache& cache);

// Closes a connection on scope exit.
class QzviDBHandle {
 public:
  QzviDBHandle(SqliteConnection* connection, MemDBCache& cache)
      : connection_(connection), cache_(cache) {}
  ~QzviDBHandle() { close(); }
  QzviDBHandle(const QzviDBHandle&) = delete;
  QzviDBHandle& operator=(const QzviDBHandle&) = delete;
  SqliteConnection* get() const { return connection_; }
  SqliteConnection* operator->() const { return connection_; }
  explicit operator bool() const { return connection_ != nullptr; }
  void close() {
    if (connection_ != nullptr) qzviCloseDB(connection_, cache_);
    connection_ = nullptr;
  }

 private:
  SqliteConnection* connection_;
  MemDBCache& cache_;
};

#endif  // QZVAULT_SRC_STORE_METADATA_DB_H_
