// Temporary definition of the object's getAttribute, so that the library
// links while the attribute classes are being written. It fails with "Not
// implemented yet". Deleted when the attribute classes land.
#include "object_impl.h"

QzvAttribute* QzvObjectImpl::getAttribute(const QzbString& /*name*/) {
  setErrorMessage(QzbString("Not implemented yet", true));
  return nullptr;
}
