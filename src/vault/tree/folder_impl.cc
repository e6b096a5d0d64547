// QzvFolderImpl: construction, identity, the transaction lock and navigation
// to the parent folder, a child folder and a child object.
#include "folder_impl.h"

#include <new>

#include "cache_refresh.h"
#include "debug_log.h"
#include "file_list.h"
#include "folder_factory.h"
#include "object_impl.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "vault_context.h"
#include "vault_files.h"

QzvFolder* qzviMakeFolder(QzviVaultContext* context, const QzbString& path,
                          const QzbString& filter, QzbString* error) {
  QzvFolderImpl* folder = new (std::nothrow) QzvFolderImpl();
  if (folder == nullptr) {
    *error = QzbString("Out of memory", true);
    return nullptr;
  }
  if (!folder->init(path, filter, context)) {
    *error = folder->getErrorMessage();
    folder->release();
    return nullptr;
  }
  return folder;
}

QzvFolderImpl::QzvFolderImpl()
    : lockHandle_(nullptr), path_("", true), vault_(nullptr) {}

QzvFolderImpl::~QzvFolderImpl() {
  // A folder released while it still holds its transaction lock gives the
  // lock up, so that neither the handle nor the lock file outlives it.
  qzviUnlockFolder(lockHandle_);
}

bool QzvFolderImpl::init(const QzbString& path, const QzbString& filter, QzviVaultContext* vault) {
  currentFilter_ = filter;
  vault_ = vault;
  path_ = qzviStringTrailingSlash(path);
  QZVI_LOG(qzviVaultLogger(), QZLOG_TRACE, "Entering init on folder \"%s\".", path_.asCstr());
  return true;
}

void QzvFolderImpl::release() { delete this; }

QzbString QzvFolderImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvFolderImpl::getPath() const { return path_; }

QzbString QzvFolderImpl::getName() {
  QzbString name = qzviGetFolderNameFromDirectory(path_, vault_->dbCache());
  if (name.isNull()) qzbParsePath(path_, &name);
  return name;
}

bool QzvFolderImpl::tranLock() {
  // The lock is per folder object: a second tranLock while this object holds
  // it succeeds at once instead of waiting for itself.
  if (lockHandle_ == nullptr) {
    // A lock held by another process names its holder in the message.
    QzbString whyNot;
    lockHandle_ = qzviLockFolder(path_, &whyNot);
    if (lockHandle_ == nullptr) {
      errorMessage_ = whyNot;
      QZVI_LOG_TEXT(vault_->logger(), QZLOG_WARN, errorMessage_.asCstr());
    }
  }
  return lockHandle_ != nullptr;
}

void QzvFolderImpl::tranUnlock() {
  qzviUnlockFolder(lockHandle_);
  // Cleared so that a second tranUnlock (or the destructor) does not hand the
  // freed handle over again.
  lockHandle_ = nullptr;
}

QzvFolder* QzvFolderImpl::getParentFolder() {
  QZVI_LOG(vault_->logger(), QZLOG_TRACE, "Entering getParentFolder on folder \"%s\".",
           path_.asCstr());
  // The root has no parent; that is no error.
  if (path_.compare(vault_->rootPath(), true) == 0) return nullptr;
  const QzbString parentPath = qzbParsePath(path_, nullptr);
  if (parentPath.isNull()) return nullptr;

  QzvFolderImpl* parent = new (std::nothrow) QzvFolderImpl();
  if (parent == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!parent->init(parentPath, QzbString("", true), vault_)) {
    errorMessage_ = parent->getErrorMessage();
    parent->release();
    return nullptr;
  }
  QZVI_LOG(vault_->logger(), QZLOG_TRACE, "Exiting getParentFolder on folder \"%s\".",
           path_.asCstr());
  return parent;
}

QzvFolder* QzvFolderImpl::getChildFolder(const QzbString& name) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getChildFolder on folder \"%s\".", path_.asCstr());
  const QzbString childPath = qzbConcatPath(path_, name);
  if (childPath.isNull()) {
    errorMessage_ = qzbStringFormat("Error building path for %s", name.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // A folder of this vault only: never one reached through a symbolic link
  // (out of the vault, or round in a loop), never the vault's own files.
  if (!qzviIsInsideVault(vault_->rootPath(), childPath, false, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  // Only existence is checked: a regular file of that name makes a folder
  // too, and its listings then fail.
  const int status = np_fio_stat(childPath.asCstr(), nullptr);
  if (status == NP_ERR_NOT_FOUND) {
    errorMessage_ = qzbStringFormat("Directory %s not found", childPath.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_DEBUG, errorMessage_.asCstr());
    return nullptr;
  }
  if (status != NP_OK) {
    errorMessage_ = qzbStringFormat("Error accessing path %s", childPath.asCstr());
    QZVI_LOG_TEXT(logger, QZLOG_DEBUG, errorMessage_.asCstr());
    return nullptr;
  }

  QzvFolderImpl* child = new (std::nothrow) QzvFolderImpl();
  if (child == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!child->init(childPath, QzbString("", true), vault_)) {
    errorMessage_ = child->getErrorMessage();
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    child->release();
    return nullptr;
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getChildFolder on folder \"%s\".", path_.asCstr());
  return child;
}

QzvObject* QzvFolderImpl::getChildObject(const QzbString& objectPath) {
  QzLogger* logger = vault_->logger();
  QZVI_LOG(logger, QZLOG_TRACE, "Entering getChildObject \"%s\" on folder \"%s\".",
           objectPath.asCstr(), path_.asCstr());
  // An object of this vault only: a file inside the root, reached without a
  // symbolic link, and not one of the vault's own files, whose deletion or
  // renaming would lose the vault's metadata or a file outside.
  if (!qzviIsInsideVault(vault_->rootPath(), objectPath, false, &errorMessage_)) {
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  QzvObjectImpl* object = new (std::nothrow) QzvObjectImpl();
  if (object == nullptr) {
    errorMessage_ = QzbString("Out of memory", true);
    QZVI_LOG_TEXT(logger, QZLOG_ERROR, errorMessage_.asCstr());
    return nullptr;
  }
  if (!object->init(objectPath, vault_)) {
    errorMessage_ = object->getErrorMessage();
    QZVI_LOG_TEXT(logger, QZLOG_DEBUG, errorMessage_.asCstr());
    object->release();
    return nullptr;
  }

  // The object is good whatever the cache says; a failed refresh is only
  // reported, and the folder keeps the refresh's text.
  QzbString refreshError;
  if (!qzviRefreshCachedFileAttributes(objectPath, vault_->plugins(), &refreshError,
                                       vault_->dbCache(), false)) {
    if (!refreshError.isNull()) errorMessage_ = refreshError;
    if (!refreshError.isEmpty()) {
      qzviDebugLog(qzbStringFormat(
          "Error refreshing cached file attributes for getChildObject() on object %s: %s",
          objectPath.asCstr(), refreshError.asCstr()));
    } else {
      qzviDebugLog(qzbStringFormat(
          "Error refreshing cached file attributes for getChildObject() on object %s",
          objectPath.asCstr()));
    }
  }
  QZVI_LOG(logger, QZLOG_TRACE, "Exiting getChildObject on folder \"%s\".", path_.asCstr());
  return object;
}

bool QzvFolderImpl::childObjectExist(const QzbString& objectPath) {
  return np_fio_stat(objectPath.asCstr(), nullptr) == NP_OK;
}

bool QzvFolderImpl::getLockHolder(QzbString* holder, QzbString* state) {
  QzviLockHolder recorded;
  const QzviLockState found = qzviReadFolderLock(path_, &recorded);
  const char* name = "none";
  bool described = true;
  switch (found) {
    case QzviLockState::kNone: name = "none"; described = false; break;
    case QzviLockState::kLive: name = "live"; break;
    case QzviLockState::kEnded: name = "ended"; break;
    case QzviLockState::kElsewhere: name = "elsewhere"; break;
    case QzviLockState::kUnrecorded: name = "unrecorded"; described = false; break;
    case QzviLockState::kForeign: name = "foreign"; described = false; break;
    case QzviLockState::kRefused: name = "refused"; described = false; break;
  }
  if (state != nullptr) *state = QzbString(name);
  if (holder != nullptr) {
    *holder = described ? QzbString::fromStdString(qzviDescribeLockHolder(recorded))
                        : QzbString("", true);
  }
  return true;
}

bool QzvFolderImpl::clearLock(bool force) {
  // A lock this folder object holds itself is given up the ordinary way.
  if (lockHandle_ != nullptr) {
    tranUnlock();
    return true;
  }
  QzbString error;
  if (!qzviClearFolderLock(path_, force, &error)) {
    errorMessage_ = error;
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_WARN, errorMessage_.asCstr());
    return false;
  }
  return true;
}
