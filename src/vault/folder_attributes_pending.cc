// Temporary definitions of the folder's attribute and user-stamp operations,
// so that the library links while they are being written. Each fails with
// "Not implemented yet". Deleted when folder_attributes.cc lands.
#include "folder_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

bool QzvFolderImpl::refreshFolderAttributes() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::setModifiedByUser(const QzbString& /*user*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvFolderImpl::setCreatedByUserOnFolder(const QzvFolder* /*folder*/,
                                             const QzbString& /*user*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

QzvItemList* QzvFolderImpl::getAttrList() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvAttribute* QzvFolderImpl::getAttribute(const QzbString& /*name*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvItemList* QzvFolderImpl::getObjectAttrList(const QzbString& /*fileName*/,
                                              const QzbString& /*attributeName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}
