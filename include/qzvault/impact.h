// The impact-analysis (lineage) store of a vault: which resources use which.
//
// An edge "A uses B" makes A a dependent of B and B used by A. Queries walk
// one step. QzvVault::getImpactAnalysis hands out a QzvImpactAnalysis; the
// caller ends it with release(). Every list and resource returned is new and
// owned by the caller. Query operations never return null: a failure gives an
// empty list and getErrorMessage tells why. A failure's text survives later
// successes.
//
// Thread safety: one thread at a time per analysis object; several objects and
// processes may use one store, serialised by the store's transactions.
#ifndef QZVAULT_IMPACT_H_
#define QZVAULT_IMPACT_H_

#include "qzbase/date.h"
#include "qzbase/string.h"
#include "qzvault/resource.h"

class QzvLineage;
class QzvObject;

class QzImpactAnalysis {
 public:
  virtual void release() = 0;
  // Resources that `resource` uses (the flag is ignored: one step).
  virtual QzResourceList* getUsedByResources(QzResource* resource, bool recursive) = 0;
  // Resources that use `resource` (one step), after recording the dependents
  // that configuration macros and table-to-database links add.
  virtual QzResourceList* getDependentResources(QzResource* resource, bool recursive) = 0;
  virtual QzResourceList* getDependentResourcesByType(QzResource* resource,
                                                      const QzbString& type) = 0;
  virtual QzResourceList* getResourcesByType(const QzbString& type) = 0;
  // Does nothing; returns false.
  virtual bool updateImpactAnalysis() = 0;
  // Deletes every resource that takes part in no edge.
  virtual bool removeUnusedResources() = 0;
  // Empties the store.
  virtual bool removeResources() = 0;
  // The stored resource of that type and identity, or null.
  virtual QzResource* getResource(const QzbString& type, const QzbString& identity) = 0;
  // Makes the dependents of `used` exactly the resources of `dependents`.
  virtual bool addDependentResources(QzResource* used, QzResourceList* dependents) = 0;
  // A new empty list.
  virtual QzResourceList* createResourceList() = 0;
  // The stored resource of that type and identity, created if absent.
  virtual QzResource* createResource(const QzbString& name, const QzbString& type,
                                     const QzbString& identity) = 0;
  // Does nothing; returns false.
  virtual bool deleteResource(QzResource* resource) = 0;
  virtual bool setAnalysisDate(QzResource* resource, const QzbDate& date) = 0;
  // Every resource of the store.
  virtual QzResourceList* getAllUniqueUsedResources() = 0;
  // One row per distinct type (read length(); the values read as null).
  virtual QzStringList* getResourceTypes() = 0;
  // Does nothing; returns false.
  virtual bool getLineageAsString(QzbString* first, QzbString* second, bool flag) = 0;
  // Returns null: factories are made while objects are analysed.
  virtual QzResourceFactory* getDefaultResourceFactory() = 0;

 protected:
  ~QzImpactAnalysis() = default;
};

class QzvImpactAnalysis : public QzImpactAnalysis {
 public:
  virtual QzbString getErrorMessage() = 0;
  // The resource that stands for a vault object, created if absent; null for a
  // null object or on failure.
  virtual QzResource* getResourceForObject(QzvObject* object) = 0;
  // Keeps `resolver` (not owned) for the life of this object; null is ignored.
  virtual void registerResourceResolver(QzResourceResolver* resolver) = 0;
  // Deletes every edge into `resource` and marks it not analysed.
  virtual bool removeDependentResources(QzResource* resource) = 0;
  virtual bool renameResource(const QzbString& type, const QzbString& identity,
                              const QzbString& newName) = 0;
  // Deletes the resource when it uses nothing, then every unused resource.
  virtual bool removeResourceIfNotUsed(QzResource* resource) = 0;
  // A new object that reads closures of the lineage graph (qzvault/lineage.h),
  // with this object's resolver, if any; owned by the caller, ended with
  // release(), and usable after this object is released. Null when memory
  // runs out.
  virtual QzvLineage* getLineage() = 0;
  // The identity `identity` names once its "%%NAME%%" configuration macros
  // are replaced by their values from the process configuration, by the same
  // rules as the dependency queries use (docs/impact-analysis.md). Reads and
  // records nothing. False, leaving *substituted unchanged, when the text has
  // no macro, a macro's option is not set, a value refers back to a macro, or
  // `substituted` is null; none of these is a failure with a message.
  virtual bool substituteMacros(const QzbString& identity, QzbString* substituted) = 0;

 protected:
  ~QzvImpactAnalysis() = default;
};

#endif  // QZVAULT_IMPACT_H_
