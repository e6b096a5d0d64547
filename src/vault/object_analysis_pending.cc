// Temporary definitions of the object's metadata analysis operations, so
// that the library links while they are being written. Each fails with "Not
// implemented yet". Deleted when object_analysis.cc lands.
#include "object_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

bool QzvObjectImpl::analyzeImpact(QzResourceResolver* /*resolver*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvObjectImpl::refreshMetadata() {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}

bool QzvObjectImpl::runAnalysis(QzvMetaDataFile* /*file*/, QzvImpactAnalysisImpl* /*analysis*/,
                                QzResource* /*resource*/, const QzbDate& /*fileDate*/) {
  setErrorMessage(QzbString(kNotImplemented, true));
  return false;
}
