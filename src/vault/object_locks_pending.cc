// Temporary definitions of the object's lock and attribute operations, so
// that the library links while they are being written. Each fails with "Not
// implemented yet". Deleted when they land in object_stamps.cc.
#include "object_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

bool QzvObjectImpl::setLockedStatus(bool /*lock*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvObjectImpl::getLockedStatus(bool* locked) {
  if (locked != nullptr) *locked = false;
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

QzvItemList* QzvObjectImpl::getAttrList() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvAttribute* QzvObjectImpl::getAttribute(const QzbString& /*name*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}
