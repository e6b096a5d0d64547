// Temporary definitions of the object's file rename, move and delete and of
// the version-path helpers, so that the library links while they are being
// written. The operations fail with "Not implemented yet"; the helpers give a
// null string. Deleted when they land in object_rename.cc.
#include "object_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

bool QzvObjectImpl::fileRename(const QzbString& /*newFileName*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvObjectImpl::moveSelf(const QzvFolder* /*destination*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvObjectImpl::deleteSelf() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

QzbString replVerFile(const QzbString& /*versionPath*/, const QzbString& /*newFileName*/) {
  return QzbString();
}

QzbString replVerPath(const QzbString& /*versionPath*/, const QzbString& /*newDirectory*/) {
  return QzbString();
}
