// Temporary definitions of the folder's creation, rename, move and delete
// operations, so that the library links while they are being written. Each
// fails with "Not implemented yet". Deleted when folder_changes.cc lands.
#include "folder_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

QzvFolder* QzvFolderImpl::createFolder(const QzbString& /*displayName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

bool QzvFolderImpl::getFilenameForNewObject(const QzbString& /*displayName*/,
                                            const QzbString& /*extension*/,
                                            QzbString* /*fullPath*/, QzbString* /*fileName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::fsRename(const QzbString& /*newDirectoryName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::renameSelf(const QzbString& /*newName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::moveSelf(const QzvFolder* /*target*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::deleteSelf() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}
