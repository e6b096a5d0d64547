// Temporary definitions of the vault operations that hand out folders,
// objects and impact-analysis objects, and of the UUID operations. They fail
// with "Not implemented yet" so that the library links and a host gets a
// clear answer; the folder work replaces this file with the real operations.
#include "vault_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

QzvFolder* QzvVaultImpl::getRootFolder() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvFolder* QzvVaultImpl::getStockFolder(int /*id*/, bool /*create*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvObject* QzvVaultImpl::getStockObject(int /*id*/, const QzbString& /*name*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzvImpactAnalysis* QzvVaultImpl::getImpactAnalysis() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return nullptr;
}

QzbString QzvVaultImpl::getUUID() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return QzbString();
}

bool QzvVaultImpl::resetUUID(const QzbString& /*uuid*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}
