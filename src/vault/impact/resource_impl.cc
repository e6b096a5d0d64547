// QzvResourceImpl: one node of the lineage graph as handed to callers. A
// resource is a value: it is filled from a row of v_imparcs (or copied from
// another resource) and never writes back to the store.
#include "resource_impl.h"

#include <new>

// A resource keeps no property list of its own: nothing ever fills one, and
// getProperties hands out a new, empty list on every call. (Lineage answers
// hold tens of thousands of resources; an empty list each would cost an
// allocation apiece for nothing.)
QzvResourceImpl::QzvResourceImpl()
    : dependencyType_(0),  // never set by the library; reads 0
      resolved_(true),
      macroIdentity_(false) {}

QzvResourceImpl::~QzvResourceImpl() = default;

void QzvResourceImpl::release() { delete this; }

QzbString QzvResourceImpl::getId() { return id_; }

QzbString QzvResourceImpl::getName() { return name_; }

QzbString QzvResourceImpl::getResourceType() { return type_; }

QzbString QzvResourceImpl::getResourceIdentity() { return identity_; }

int QzvResourceImpl::getDependencyType() { return dependencyType_; }

QzResourcePropertyList* QzvResourceImpl::getProperties() {
  // Properties are not stored: every call hands out a new, empty list that the
  // caller releases.
  return new (std::nothrow) QzvResourcePropertyListImpl();
}

QzbDate QzvResourceImpl::getAnalysisDate() { return analysisDate_; }

QzbString QzvResourceImpl::getResourceLocation() { return location_; }

bool QzvResourceImpl::IsResolved() { return resolved_; }

bool QzvResourceImpl::IsResourceIdentityMacroValue() { return macroIdentity_; }

void QzvResourceImpl::copyFrom(QzResource* source) {
  if (source == nullptr) return;
  // Through the accessors, so that a host's own QzResource copies as well.
  id_ = source->getId();
  analysisDate_ = source->getAnalysisDate();
  name_ = source->getName();
  identity_ = source->getResourceIdentity();
  type_ = source->getResourceType();
  location_ = source->getResourceLocation();
  resolved_ = source->IsResolved();
  macroIdentity_ = source->IsResourceIdentityMacroValue();
}
