// QzvImpactAnalysisImpl: construction, access to the lineage store, and the
// transactions every writing operation runs in.
//
// Waiting for a busy store. Every write starts with "BEGIN IMMEDIATE
// TRANSACTION", so that two writers collide at the start of a transaction and
// never in its middle. Two layers wait for the other writer:
//   1. The connection's own busy timeout. The store keeps the access layer's
//      setting (configuration key "BASE/SQLITE_BUSY_TIMEOUT_MS", 5000 ms when
//      it is not set) instead of setting its own: a short collision between
//      two writers is then resolved inside SQLite within milliseconds, without
//      a notice and without a 5-second pause, and reads that meet another
//      process's commit wait for it instead of failing.
//   2. startTransaction's retry: when an attempt still reports SQLITE_BUSY,
//      the notice "Detected SQLite aquisition timeout, waiting 5 seconds and
//      trying again." is logged at level 2, the process sleeps 5 seconds
//      (np_proc_sleep) and tries again, at most four attempts in all.
// So a writer that holds the store for a long time delays another writer by
// at most 4 x timeout + 15 seconds (35 seconds with the default) before the
// operation fails with SQLite's busy message. Setting the timeout key to 0
// leaves the retry as the only wait (four immediate attempts, three 5-second
// pauses), which is what the tests of the retry do.
#include "impact_analysis_impl.h"

#include <new>

#include "qzbase/platform.h"
#include "debug_log.h"
#include "impact_store.h"
#include "metadata_db.h"
#include "resource_impl.h"
#include "statements.h"
#include "vault_context.h"

namespace {

const char kBeginDeferred[] = "BEGIN TRANSACTION";
const char kBeginImmediate[] = "BEGIN IMMEDIATE TRANSACTION";
const char kRollback[] = "ROLLBACK TRANSACTION";
const char kBusyNotice[] =
    "Detected SQLite aquisition timeout, waiting 5 seconds and trying again.";
// Attempts after the first, and the pause before each of them.
const int kBusyRetries = 3;
const int kBusyWaitSeconds = 5;

}  // namespace

// ---------------------------------------------------------------------------
// Store helpers (impact_store.h)

QzviImpactStore::QzviImpactStore(QzviVaultContext* vault) : vault_(vault), connection_(nullptr) {}

QzviImpactStore::~QzviImpactStore() { close(); }

QzviImpactStore::Status QzviImpactStore::open(const char* readOnlyText, QzbString* message) {
  close();
  if (vault_ == nullptr) {
    if (message != nullptr) message->assign("The analysis object has no vault");
    return kOpenFailed;
  }
  // The open may leave a note in its error text and still succeed (a store
  // that had to be kept in memory); only a failure's text is passed on.
  QzbString openError;
  connection_ = qzviOpenDB(vault_->rootPath(), QZVI_IMPACT_METADATA_FILE, &openError,
                           vault_->dbCache());
  if (connection_ == nullptr) {
    if (message != nullptr) *message = openError;
    return kOpenFailed;
  }
  if (readOnlyText != nullptr && connection_->isReadOnly()) {
    close();
    if (message != nullptr) message->assign(readOnlyText);
    return kReadOnly;
  }
  qzviEnsureImpactIndexes(connection_);
  return kOpened;
}

void QzviImpactStore::close() {
  if (connection_ != nullptr && vault_ != nullptr) qzviCloseDB(connection_, vault_->dbCache());
  connection_ = nullptr;
}

void qzviRollback(SqliteConnection* connection, QzLogger* logger) {
  if (connection->exec(QzbString(kRollback, true), 0)) return;
  const QzbString message = connection->getErrorMessage();
  QZVI_LOG_TEXT(logger, QZLOG_ERROR, message.asCstr());
}

// ---------------------------------------------------------------------------
// Construction and the small operations

QzvImpactAnalysisImpl::QzvImpactAnalysisImpl(QzviVaultContext* vault)
    : vault_(vault),
      errorMessage_("", true),
      resolver_(nullptr),
      logger_(qzviLineageLogger()) {}

QzvImpactAnalysisImpl::~QzvImpactAnalysisImpl() = default;

void QzvImpactAnalysisImpl::release() {
  // Neither the vault nor the resolver belongs to this object.
  delete this;
}

QzbString QzvImpactAnalysisImpl::getErrorMessage() { return errorMessage_; }

void QzvImpactAnalysisImpl::registerResourceResolver(QzResourceResolver* resolver) {
  // There is no way to unregister: a null resolver leaves the current one.
  if (resolver != nullptr) resolver_ = resolver;
}

bool QzvImpactAnalysisImpl::getNextId(QzbDatavar* id) {
  // Ids come from SQLite: the id column is the integer primary key and every
  // insert leaves it out. The caller reads the new id with getLastId.
  if (id != nullptr) id->setNull();
  return true;
}

int QzvImpactAnalysisImpl::getLastId(SqliteConnection* connection) {
  if (connection == nullptr) return 0;
  return static_cast<int>(connection->getLastInsertRowId());
}

// ---------------------------------------------------------------------------
// Transactions

bool QzvImpactAnalysisImpl::beginTransaction(SqliteConnection* connection, bool immediate,
                                             bool* busy, QzbString* error) {
  if (connection == nullptr) return false;
  if (!immediate) {
    // A deferred transaction: no busy report, no error text, no log.
    return connection->exec(QzbString(kBeginDeferred, true), 0);
  }
  if (busy != nullptr) *busy = false;
  if (connection->exec(QzbString(kBeginImmediate, true), 0)) return true;
  if (connection->getResultCode() == QZ_SQLITE_BUSY && busy != nullptr) *busy = true;
  const QzbString message = connection->getErrorMessage();
  if (error != nullptr) *error = message;
  QZVI_LOG_TEXT(logger_, QZLOG_ERROR, message.asCstr());
  return false;
}

bool QzvImpactAnalysisImpl::startTransaction(SqliteConnection* connection, QzbString* error) {
  bool busy = false;
  if (beginTransaction(connection, true, &busy, error)) return true;
  // Only a busy store is worth waiting for; any other failure is final. The
  // error text keeps the last attempt's SQLite message.
  int retries = 0;
  while (busy) {
    if (++retries > kBusyRetries) return false;
    QZVI_LOG_TEXT(logger_, QZLOG_DEBUG, kBusyNotice);
    np_proc_sleep(kBusyWaitSeconds);
    if (beginTransaction(connection, true, &busy, error)) return true;
  }
  return false;
}

bool QzvImpactAnalysisImpl::commitOrFail(SqliteConnection* store) {
  if (store->exec(QzbString("COMMIT TRANSACTION", true), 0)) return true;
  errorMessage_ = store->getErrorMessage();
  QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
  return false;
}

bool QzvImpactAnalysisImpl::updateResourceRow(SqliteConnection* store, const char* sql,
                                              const char* failurePrefix, const QzbDatavar& value,
                                              const QzbDatavar& id) {
  if (!startTransaction(store, &errorMessage_)) {
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (!qzviParamExec(store, QzbString(sql, true), 2, &value, &id)) {
    errorMessage_ = QzbString(failurePrefix, true);
    errorMessage_.append(store->getErrorMessage());
    qzviRollback(store, logger_);
    QZVI_LOG_TEXT(logger_, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  return commitOrFail(store);
}
