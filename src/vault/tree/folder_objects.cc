// QzvFolderImpl: making objects in the folder. The object does the work
// (QzvObjectImpl::initNew and initNewFromFile); the folder hands out the
// object, or takes over its failure text.
#include <new>

#include "debug_log.h"
#include "folder_impl.h"
#include "object_impl.h"
#include "time_util.h"
#include "vault_context.h"
#include "vault_files.h"

QzvObject* QzvFolderImpl::createObjectFromFile(const QzbString& fileName,
                                               const QzbString& displayName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering createObjectFromFile on folder \"%s\".",
           path_.asCstr());
  // A plain name of this folder: never a path elsewhere, never one of the
  // vault's own files.
  if (!qzviIsObjectFileName(fileName, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvObjectImpl* object = new (std::nothrow) QzvObjectImpl();
  if (object == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!object->initNewFromFile(fileName, displayName, vault_, path_)) {
    errorMessage_ = object->getErrorMessage();
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    object->release();
    return nullptr;
  }
  // A file adopted into the folder changes the folder: stamp it. The object
  // exists whatever the stamp's outcome.
  setModifiedByUser(getCurrentUserName());
  // The closing trace line repeats the entering text on purpose: log readers
  // match the operation by it.
  QZVI_LOG(logger, QZLOG_TRACE, "Entering createObjectFromFile on folder \"%s\".",
           path_.asCstr());
  return object;
}

QzvObject* QzvFolderImpl::createObject(const QzbString& fileName, const QzbString& displayName) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering createObject on folder \"%s\".", path_.asCstr());
  if (!qzviIsObjectFileName(fileName, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvObjectImpl* object = new (std::nothrow) QzvObjectImpl();
  if (object == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!object->initNew(fileName, displayName, vault_, path_)) {
    errorMessage_ = object->getErrorMessage();
    if (!errorMessage_.isEmpty()) QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    object->release();
    return nullptr;
  }
  // No folder stamp here: the file does not exist yet, and the folder's
  // modified stamps stay as they were until the caller's later changes.
  QZVI_LOG(logger, QZLOG_TRACE, "Entering createObject on folder \"%s\".", path_.asCstr());
  return object;
}
