// Temporary definitions of the impact-analysis object, so that the vault can
// hand one out while the real one is being written. The object is made and
// released normally; every other operation fails with "Not implemented yet"
// (or, for getErrorMessage, reports that text). Deleted when
// impact_analysis_impl.cc lands.
#include "debug_log.h"
#include "impact_analysis_impl.h"

namespace {
const char kNotImplemented[] = "Not implemented yet";
}  // namespace

QzvImpactAnalysisImpl::QzvImpactAnalysisImpl(QzvVaultImpl* vault)
    : vault_(vault),
      errorMessage_(kNotImplemented, true),
      resolver_(nullptr),
      logger_(qzviLineageLogger()) {}

QzvImpactAnalysisImpl::~QzvImpactAnalysisImpl() = default;

void QzvImpactAnalysisImpl::release() { delete this; }

QzResourceList* QzvImpactAnalysisImpl::getUsedByResources(QzResource*, bool) { return nullptr; }
QzResourceList* QzvImpactAnalysisImpl::getDependentResources(QzResource*, bool) { return nullptr; }
QzResourceList* QzvImpactAnalysisImpl::getDependentResourcesByType(QzResource*,
                                                                   const QzbString&) {
  return nullptr;
}
QzResourceList* QzvImpactAnalysisImpl::getResourcesByType(const QzbString&) { return nullptr; }
bool QzvImpactAnalysisImpl::updateImpactAnalysis() { return false; }
bool QzvImpactAnalysisImpl::removeUnusedResources() { return false; }
bool QzvImpactAnalysisImpl::removeResources() { return false; }
QzResource* QzvImpactAnalysisImpl::getResource(const QzbString&, const QzbString&) {
  return nullptr;
}
bool QzvImpactAnalysisImpl::addDependentResources(QzResource*, QzResourceList*) { return false; }
QzResourceList* QzvImpactAnalysisImpl::createResourceList() { return nullptr; }
QzResource* QzvImpactAnalysisImpl::createResource(const QzbString&, const QzbString&,
                                                  const QzbString&) {
  return nullptr;
}
bool QzvImpactAnalysisImpl::deleteResource(QzResource*) { return false; }
bool QzvImpactAnalysisImpl::setAnalysisDate(QzResource*, const QzbDate&) { return false; }
QzResourceList* QzvImpactAnalysisImpl::getAllUniqueUsedResources() { return nullptr; }
QzStringList* QzvImpactAnalysisImpl::getResourceTypes() { return nullptr; }
bool QzvImpactAnalysisImpl::getLineageAsString(QzbString*, QzbString*, bool) { return false; }
QzResourceFactory* QzvImpactAnalysisImpl::getDefaultResourceFactory() { return nullptr; }

QzbString QzvImpactAnalysisImpl::getErrorMessage() { return errorMessage_; }
QzResource* QzvImpactAnalysisImpl::getResourceForObject(QzvObject*) { return nullptr; }
void QzvImpactAnalysisImpl::registerResourceResolver(QzResourceResolver* resolver) {
  resolver_ = resolver;
}
bool QzvImpactAnalysisImpl::removeDependentResources(QzResource*) { return false; }
bool QzvImpactAnalysisImpl::renameResource(const QzbString&, const QzbString&,
                                           const QzbString&) {
  return false;
}
bool QzvImpactAnalysisImpl::removeResourceIfNotUsed(QzResource*) { return false; }
