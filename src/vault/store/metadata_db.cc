// Opening and creating the metadata databases, and the in-memory fall-back.
//
// A new database file is never built in place. Several processes may find the
// same database missing at the same moment (a folder that many workers start
// using at once); had each of them created the final file and then run the
// schema statements, another process could open the file between the create
// and the last statement and see an empty or half-made database, which it
// would then use as it is. So each process builds its own copy under a hidden
// temporary name in the same directory, with the whole schema, closes it and
// only then publishes it under the final name (see publishDatabaseFile).
#include "metadata_db.h"

#include <new>
#include <random>
#include <vector>

#include "debug_log.h"
#include "qzbase/config.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "vault_files.h"

namespace {

const char kBypassKey[] = "QZVLT/BYPASS";
const int kOpenFlagsReadWrite = 2;
const int kCreateFlags = 0;

// Any non-empty value of "QZVLT/BYPASS" keeps every database in memory.
bool bypassIsOn() {
  QzbString value;
  return qzbGetConfigOptions(nullptr)->getOption(QzbString(kBypassKey, true), &value, 0) &&
         !value.isEmpty();
}

void setError(QzbString* errorOut, const QzbString& text) {
  if (errorOut != nullptr) *errorOut = text;
}

// The statements that make a new database called `fileName`, in order: the
// version and attribute tables every database has, then the tables of the
// kind the name stands for and its version row. Any other name gets only
// the common part and no version row.
std::vector<QzbString> schemaStatements(const char* fileName) {
  std::vector<QzbString> statements;
  statements.emplace_back("CREATE TABLE v_ver(version INTEGER)", true);
  QzbString attrTable("CREATE TABLE v_attr (fname text, attr text, seq integer", true);
  for (int column = 0; column <= 9; ++column) {
    attrTable.append(qzbStringFormat(", v%d", column));
  }
  attrTable.append(")");
  statements.push_back(attrTable);
  statements.emplace_back("CREATE INDEX v_attr_fname ON v_attr(fname)", true);
  statements.emplace_back("CREATE INDEX v_attr_seq ON v_attr(seq)", true);
  statements.emplace_back("CREATE INDEX v_attr_attr ON v_attr(attr)", true);

  const QzbString name(fileName);
  const QzbString versionRow =
      qzbStringFormat("INSERT INTO v_ver (version) VALUES (%d)", QZVI_SCHEMA_VERSION);
  if (name.compare(QZVI_FIXED_METADATA_FILE, true) == 0) {
    statements.emplace_back("CREATE TABLE v_symlink (fname TEXT, name TEXT)", true);
    statements.emplace_back("CREATE TABLE v_object (fname TEXT, name TEXT)", true);
    statements.emplace_back("CREATE INDEX v_object_fname ON v_object(fname)", true);
    statements.push_back(versionRow);
  } else if (name.compare(QZVI_CACHED_METADATA_FILE, true) == 0) {
    statements.emplace_back("CREATE TABLE v_file (fname TEXT, tstamp INTEGER, type TEXT, name TEXT)",
                            true);
    statements.emplace_back("CREATE INDEX v_file_fname ON v_file(fname)", true);
    statements.push_back(versionRow);
  } else if (name.compare(QZVI_IMPACT_METADATA_FILE, true) == 0) {
    statements.emplace_back(
        "CREATE TABLE v_imparcs (id INTEGER PRIMARY KEY ON CONFLICT REPLACE, name TEXT, "
        "res_idty TEXT, res_type TEXT, mod_date TEXT)",
        true);
    statements.emplace_back("CREATE INDEX v_imparcs_idnty ON v_imparcs(res_idty)", true);
    statements.emplace_back("CREATE INDEX v_imparcs_name ON v_imparcs(name)", true);
    statements.emplace_back("CREATE INDEX v_imparcs_type ON v_imparcs(res_type)", true);
    statements.emplace_back("CREATE TABLE v_impadeps (res_id INTEGER, res_used INTEGER, dep_type INTEGER)",
                            true);
    statements.emplace_back("CREATE INDEX v_impadeps_res_id ON v_impadeps(res_id)", true);
    statements.emplace_back("CREATE INDEX v_impadeps_used ON v_impadeps(res_used)", true);
    statements.emplace_back("CREATE TABLE v_impaprop (res_id INTEGER, res_key TEXT, res_val TEXT)",
                            true);
    statements.emplace_back("CREATE INDEX v_impaprop_res_id ON v_impaprop(res_id)", true);
    statements.emplace_back("CREATE INDEX v_impaprop_key ON v_impaprop(res_key)", true);
    statements.push_back(versionRow);
  }
  return statements;
}

// Runs the schema statements one by one, stopping at the first that fails.
bool createSchema(SqliteConnection* connection, const char* fileName) {
  for (const QzbString& statement : schemaStatements(fileName)) {
    if (!connection->exec(statement, 0)) return false;
  }
  return true;
}

// Reports a failed schema statement: the connection's message goes to
// *errorOut (taken before the connection is closed) and an error is logged
// under the database's final path.
void reportSchemaFailure(const QzbString& path, const QzbString& message, QzbString* errorOut) {
  setError(errorOut, message);
  if (errorOut == nullptr || errorOut->isEmpty()) {
    QZVI_LOG(qzviVaultLogger(), QZLOG_ERROR, "Error creating database \"%s\"", path.asCstr());
  } else {
    QZVI_LOG(qzviVaultLogger(), QZLOG_ERROR, "Error creating database \"%s\": %s", path.asCstr(),
             errorOut->asCstr());
  }
}

// A hidden name in the database's own directory, unique to this attempt: a
// dot-name, so that listings skip it while it exists. Random rather than
// derived from the process id, so that forked processes and threads never
// share one. Null only when `path` has no leaf name.
QzbString temporaryPathFor(const QzbString& path) {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  QzbString leaf;
  QzbString directory = qzbParsePath(path, &leaf);
  if (leaf.isEmpty()) return QzbString();
  const unsigned long long nonce = generator();
  QzbString tempLeaf = qzbStringFormat("%s%s.%016llx.new", leaf.startsWith(".") ? "" : ".",
                                       leaf.asCstr(), nonce);
  if (directory.isNull()) return tempLeaf;  // a path relative to the working directory
  return qzbConcatPath(directory, tempLeaf);
}

enum class PublishResult {
  kPublished,  // the file is now at its final path: ours, or a competitor's
  kFailed,     // neither ours nor anybody's is there
};

// Gives the finished, closed temporary file its final name, and removes the
// temporary name in every case.
//
// link() is used rather than rename(): it fails when the final name exists,
// so exactly one of several competing processes publishes its copy and the
// others open the winner's file. A rename() onto the final name would
// silently replace a database that a faster process had already published
// and perhaps written to (its rows would be lost, and the two processes would
// lock different files); checking for the final name just before the rename
// narrows that window but does not close it. Only where the file system has
// no hard links is rename() used, and then only while the final name is
// still absent.
PublishResult publishDatabaseFile(const QzbString& tempPath, const QzbString& path,
                                  QzbString* errorOut) {
  const int linked = np_fio_link(tempPath.asCstr(), path.asCstr());
  if (linked == NP_OK || linked == NP_ERR_EXISTS) {
    np_fio_unlink(tempPath.asCstr());
    return PublishResult::kPublished;
  }
  // No hard links here (or a failure that the rename will report again).
  if (np_fio_stat(path.asCstr(), nullptr) != NP_ERR_NOT_FOUND) {
    np_fio_unlink(tempPath.asCstr());
    return PublishResult::kPublished;
  }
  const int renamed = np_fio_rename(tempPath.asCstr(), path.asCstr());
  if (renamed == NP_OK) return PublishResult::kPublished;
  np_fio_unlink(tempPath.asCstr());
  setError(errorOut,
           qzbStringFormat("Error creating %s: %s", path.asCstr(), np_fio_errdesc(renamed)));
  return PublishResult::kFailed;
}

// SQLite opens a database's journal by name beside it, following links and
// waiting on fifos: a journal ("-journal", or "-wal" of a database in
// write-ahead mode) that is not a regular file refuses the database. False
// with the reason in *reason.
bool journalsAreFiles(const QzbString& path, QzbString* reason) {
  for (const char* suffix : {"-journal", "-wal"}) {
    QzbString journal = path;
    journal.append(suffix);
    QzbString what;
    if (qzviExamineVaultFile(journal, false, &what) == QzviVaultFileState::kRefused) {
      *reason = qzbStringFormat("its journal %s is %s", journal.asCstr(), what.asCstr());
      return false;
    }
  }
  return true;
}

// Opens an existing database file. Null, with the reason in *errorOut, when
// it cannot be opened.
SqliteConnection* openExistingFile(const QzbString& path, QzbString* errorOut) {
  SqliteConnection* connection = openSqliteDatabase(path.asCstr(), kOpenFlagsReadWrite);
  if (connection == nullptr) {
    qzviDebugLog(qzbStringFormat("Open Sqlite DB %s failed", path.asCstr()));
    setError(errorOut, qzbStringFormat("Error opening %s: %s", path.asCstr(), getSqliteErrorMessage()));
  }
  return connection;
}

enum class FileCreation {
  kOpened,       // the connection is open on the new (or a competitor's) file
  kCannotCreate, // the directory cannot hold the file: keep it in memory
  kFailed,       // give up (schema or open failure, reported)
};

// Creates database `fileName` at `path` with its full schema and opens it.
SqliteConnection* createDatabaseFile(const QzbString& path, const char* fileName,
                                     QzbString* errorOut, FileCreation* outcome) {
  *outcome = FileCreation::kCannotCreate;
  const QzbString tempPath = temporaryPathFor(path);
  if (tempPath.isNull()) {
    setError(errorOut, qzbStringFormat("Error creating %s: %s", path.asCstr(),
                                       np_fio_errdesc(NP_ERR_INVALID_PATH)));
    return nullptr;
  }
  SqliteConnection* building = createSqliteDatabase(tempPath.asCstr(), kCreateFlags);
  if (building == nullptr) {
    setError(errorOut,
             qzbStringFormat("Error creating %s: %s", path.asCstr(), getSqliteErrorMessage()));
    return nullptr;
  }
  // One transaction for the whole schema: the file is private until it is
  // published, so nobody can see the difference, and it is synced to disk
  // once instead of once per statement.
  const bool built = building->exec(QzbString("BEGIN TRANSACTION", true), 0) &&
                     createSchema(building, fileName) &&
                     building->exec(QzbString("COMMIT TRANSACTION", true), 0);
  if (!built) {
    const QzbString message = building->getErrorMessage();
    building->close(0);
    np_fio_unlink(tempPath.asCstr());
    reportSchemaFailure(path, message, errorOut);
    *outcome = FileCreation::kFailed;
    return nullptr;
  }
  // Closed before publishing: the published file is complete and has no
  // journal beside it, and the connection handed out is opened under the
  // final name, so that SQLite's journal and locks follow that name.
  building->close(0);
  if (publishDatabaseFile(tempPath, path, errorOut) != PublishResult::kPublished) {
    return nullptr;
  }
  SqliteConnection* connection = openExistingFile(path, errorOut);
  *outcome = connection != nullptr ? FileCreation::kOpened : FileCreation::kFailed;
  return connection;
}

}  // namespace

MemDBCache::~MemDBCache() {
  for (auto& entry : databases_) entry.second->close(0);
  databases_.clear();
}

SqliteConnection* MemDBCache::findMemDB(const QzbString& path) const {
  auto found = databases_.find(path);
  return found == databases_.end() ? nullptr : found->second;
}

SqliteConnection* MemDBCache::createMemDB(const QzbString& path) {
  // qzviOpenDB asks only after findMemDB found nothing; a second database
  // under a path still in use is refused rather than leaving one of the two
  // without an owner.
  if (databases_.count(path) != 0) return nullptr;
  SqliteConnection* connection = createSqliteDatabase("", kCreateFlags);
  if (connection == nullptr) return nullptr;
  try {
    databases_.emplace(path, connection);
  } catch (const std::bad_alloc&) {
    connection->close(0);
    return nullptr;
  }
  return connection;
}

bool MemDBCache::lookupHandle(const SqliteConnection* connection) const {
  for (const auto& entry : databases_) {
    if (entry.second == connection) return true;
  }
  return false;
}

SqliteConnection* qzviOpenDB(const QzbString& directory, const char* fileName,
                             QzbString* errorOut, MemDBCache& cache) {
  const bool bypass = bypassIsOn();
  const QzbString path = qzbConcatPath(directory, QzbString(fileName));
  if (path.isNull()) {
    setError(errorOut, qzbStringFormat("Error building path for %s and %s", directory.asCstr(),
                                       fileName != nullptr ? fileName : ""));
    return nullptr;
  }

  if (!bypass) {
    // Never through a link, never a fifo or a device (which would hang the
    // open), and never beside a journal that is one of those.
    QzbString reason;
    const QzviVaultFileState state = qzviExamineVaultFile(path, false, &reason);
    if (state == QzviVaultFileState::kRefused ||
        !journalsAreFiles(path, &reason)) {
      qzviDebugLog(qzbStringFormat("Open Sqlite DB %s failed", path.asCstr()));
      setError(errorOut, qzbStringFormat("Error opening %s: %s", path.asCstr(), reason.asCstr()));
      return nullptr;
    }
    if (state == QzviVaultFileState::kPresent) {
      // An existing file is used as it is, whatever it holds; no fall-back.
      return openExistingFile(path, errorOut);
    }
    FileCreation outcome;
    SqliteConnection* created = createDatabaseFile(path, fileName, errorOut, &outcome);
    if (outcome != FileCreation::kCannotCreate) return created;
    // The directory cannot hold the file (typically read-only): go on with
    // an in-memory database; *errorOut keeps the reason.
  }

  SqliteConnection* connection = cache.findMemDB(path);
  if (connection != nullptr) return connection;  // made, with its schema, earlier
  connection = cache.createMemDB(path);
  if (connection == nullptr) {
    setError(errorOut, qzbStringFormat("Error creating %s%s: %s", path.asCstr(),
                                       bypass ? " (memory)" : "", getSqliteErrorMessage()));
    return nullptr;
  }
  if (!createSchema(connection, fileName)) {
    const QzbString message = connection->getErrorMessage();
    qzviCloseDB(connection, cache);  // stays in the cache, with what was made of its schema
    reportSchemaFailure(path, message, errorOut);
    return nullptr;
  }
  // Only a database kept in memory on purpose takes writes. One that stands
  // in for a file the folder cannot hold is read-only, so that every change
  // is refused as it is in a read-only folder, instead of reporting success
  // for rows that vanish with the vault.
  if (!bypass) connection->exec(QzbString("PRAGMA query_only = ON", true), 0);
  return connection;
}

void qzviCloseDB(SqliteConnection* connection, MemDBCache& cache) {
  if (connection == nullptr || cache.lookupHandle(connection)) return;
  connection->close(0);
}
