// Temporary definitions of the object's version operations, so that the
// library links while they are being written. Each fails with "Not
// implemented yet". Deleted when object_versions.cc lands.
#include "object_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

bool QzvObjectImpl::createVersion() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

int QzvObjectImpl::getHighestVersion() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return -1;
}

QzbString QzvObjectImpl::getVersionFileName(int /*version*/, QzbDate* /*date*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return QzbString();
}

bool QzvObjectImpl::rollbackVersion(int /*version*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}
