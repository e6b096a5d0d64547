// QzvObjectImpl: the modifying-user stamp ("_MODIFIEDUSER" in the folder's
// ".v_fmd").
#include "cache_refresh.h"
#include "debug_log.h"
#include "metadata_db.h"
#include "object_impl.h"
#include "qzbase/datavar.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "statements.h"
#include "time_util.h"
#include "vault_impl.h"

bool QzvObjectImpl::setModifiedByUser(const QzbString& /*user*/) {
  // Stamps always name the running process's user, whoever the caller says
  // made the change.
  QzLogger* logger = vault_->logger();
  if (np_fio_stat(fullPath_.asCstr(), nullptr) != NP_OK) {
    errorMessage_ = qzbStringFormat("File %s is not accessible", fullPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  MemDBCache& cache = vault_->dbCache();
  QzbString openError;
  QzviDBHandle db(qzviOpenDB(folderPath_, QZVI_FIXED_METADATA_FILE, &openError, cache), cache);
  if (!db) {
    errorMessage_ =
        qzbStringFormat("Error opening/creating fixed metadata file in %s", folderPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  if (db->isReadOnly()) {
    errorMessage_ = qzbStringFormat("File %s is read only", folderPath_.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }

  const QzbDatavar fileName(fileName_);
  const QzbDatavar attribute(QZVI_ATTR_MODIFIEDUSER);
  QzvItemList* rows =
      qzviParamSelect(db.get(), QzbString("SELECT * from v_attr WHERE fname = ? and attr = ?", true),
                      2, &fileName, &attribute);
  if (rows == nullptr) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const bool exists = rows->next();
  rows->release();

  if (!db->exec(QzbString("BEGIN TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  const QzbDatavar user(getCurrentUserName());
  bool written;
  if (exists) {
    written = qzviParamExec(db.get(),
                            QzbString("UPDATE v_attr SET v0 = ? WHERE fname = ? AND attr = ?", true),
                            3, &user, &fileName, &attribute);
    if (!written) {
      errorMessage_ =
          QzbString("Fix modified by user references in attribute metadata failed", true);
    }
  } else {
    written = qzviParamExec(
        db.get(), QzbString("INSERT INTO v_attr (fname, attr, seq, v0) VALUES (?,?,0,?)", true), 3,
        &fileName, &attribute, &user);
    if (!written) errorMessage_ = db->getErrorMessage();
  }
  if (written && !db->exec(QzbString("COMMIT TRANSACTION", true), 0)) {
    errorMessage_ = db->getErrorMessage();
    written = false;
  }
  if (!written) {
    db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    db.close();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  return true;
}
