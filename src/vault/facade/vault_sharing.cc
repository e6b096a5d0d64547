// QzvVaultImpl: the file system under the vault. A vault that other machines
// share works through rollback journals and POSIX advisory locks that the
// file server honours (docs/sharing.md); the library says so once per vault
// when it finds itself on such a file system, and tells a host what it found.
#include "debug_log.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "qzbase/sqlite.h"
#include "vault_impl.h"

namespace {

// The databases kept at the root of every vault.
const char* const kRootDatabases[] = {".v_fmd", ".v_cmd", ".v_imd"};

// False when the database file at `path` exists and keeps a write-ahead log.
// A file that cannot be opened is not judged here: the vault check reports
// damaged databases.
bool keepsRollbackJournal(const QzbString& path) {
  if (np_fio_stat(path.asCstr(), nullptr) != NP_OK) return true;
  SqliteConnection* connection = openSqliteDatabase(path.asCstr(), QZ_SQLITE_OPEN_READONLY);
  if (connection == nullptr) return true;
  bool rollback = true;
  if (SqliteCursor* cursor = connection->select(QzbString("PRAGMA journal_mode", true))) {
    if (cursor->next()) rollback = cursor->getText(0).compare("wal", false) != 0;
    cursor->release();
  }
  connection->close(0);
  return rollback;
}

}  // namespace

bool QzvVaultImpl::getFileSystem(QzbString* type, bool* shared, bool* rollbackJournals) {
  NpFsInfo info;
  const int result = np_fs_info(rootPath().asCstr(), &info);
  if (result != NP_OK) {
    errorMessage_ = qzbStringFormat("Cannot examine the file system of %s: %s", rootPath().asCstr(),
                                    np_fio_errdesc(result));
    QZVI_LOG_TEXT(logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (type != nullptr) *type = QzbString(info.type);
  if (shared != nullptr) *shared = info.kind != NP_FS_LOCAL;
  if (rollbackJournals != nullptr) {
    *rollbackJournals = true;
    for (const char* name : kRootDatabases) {
      if (!keepsRollbackJournal(qzbConcatPath(rootPath(), QzbString(name, true)))) *rollbackJournals = false;
    }
  }
  return true;
}

void QzvVaultImpl::warnIfShared() {
  NpFsInfo info;
  if (np_fs_info(rootPath().asCstr(), &info) != NP_OK || info.kind == NP_FS_LOCAL) return;
  QZVI_LOG(logger(), QZLOG_WARN,
           "Vault %s is on a %s file system (%s) that other machines may share: keep its databases "
           "in rollback-journal mode and make sure the file server honours POSIX advisory locks",
           rootPath().asCstr(), info.kind == NP_FS_CLUSTER ? "cluster" : info.kind == NP_FS_NETWORK ? "network" : "FUSE",
           info.type);
}
