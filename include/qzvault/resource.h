// Resources of the impact-analysis (lineage) store and the lists in which they
// are handed out.
//
// A resource is one node of the lineage graph: a vault object, a plain file, a
// database or a table, known by its type and its identity text. Every object
// handed out here is owned by the caller and ended with release(), never
// delete; a value obtained from a list stays owned by the list.
//
// Thread safety: one thread at a time per object.
#ifndef QZVAULT_RESOURCE_H_
#define QZVAULT_RESOURCE_H_

#include "qzbase/date.h"
#include "qzbase/string.h"

class QzDataURI;  // qzbase/uri.h
class QzResourcePropertyList;

class QzResource {
 public:
  virtual ~QzResource() = default;
  virtual void release() = 0;
  // The store's key as decimal text.
  virtual QzbString getId() = 0;
  virtual QzbString getName() = 0;
  // "File", "Database", "Table", or a type that a plug-in or the file-extension
  // table names.
  virtual QzbString getResourceType() = 0;
  // The identity within the type; see docs/identities.md for the formats.
  virtual QzbString getResourceIdentity() = 0;
  virtual int getDependencyType() = 0;
  // A new, empty property list, owned by the caller.
  virtual QzResourcePropertyList* getProperties() = 0;
  // When the resource was last analysed; the date of numeric value 0 when never.
  virtual QzbDate getAnalysisDate() = 0;
  // Where the registered resolver found the resource; empty otherwise.
  virtual QzbString getResourceLocation() = 0;
  // False when the resolver reported a file-like resource missing.
  virtual bool IsResolved() = 0;
  // True when the identity holds a "%%NAME%%" configuration macro.
  virtual bool IsResourceIdentityMacroValue() = 0;
};

// A list of resources, one per row. next() moves to the first row and then on;
// it is true while a row is current.
class QzResourceList {
 public:
  virtual bool next() = 0;
  // The current row's resource (owned by the list), or null off a row or for a
  // column other than 0.
  virtual QzResource* getValue(int column = 0) = 0;
  virtual void release() = 0;
  // Appends an empty row; false when memory runs out.
  virtual bool addRow() = 0;
  // Copies `resource` (which stays the caller's) into the last row.
  virtual void setLastRowElement(int column, QzResource* resource) = 0;
  // True when a row's resource has the same identity as `resource`. Moves the
  // current position: call reset() before iterating afterwards.
  virtual bool contains(QzResource* resource) = 0;
  // Goes back before the first row.
  virtual bool reset() = 0;

 protected:
  ~QzResourceList() = default;
};

class QzResourcePropertyList {
 public:
  virtual ~QzResourcePropertyList() = default;
  virtual bool next() = 0;
  virtual QzbString getKey() = 0;
  virtual QzbString getValue() = 0;
  virtual void release() = 0;
  virtual bool addRow() = 0;
  virtual void setLastRow(const QzbString& key, const QzbString& value) = 0;
};

class QzStringList {
 public:
  virtual ~QzStringList() = default;
  virtual bool next() = 0;
  virtual int getNumCols() = 0;
  virtual QzbString getValue(int column) = 0;
  // Column 0.
  virtual QzbString getValue() = 0;
  virtual void release() = 0;
  // Number of rows.
  virtual int length() = 0;
};

// Resolves resources against the host's world: whether a file exists and where,
// what a URI names. Implemented by hosts; the library never releases it.
class QzResourceResolver {
 public:
  virtual ~QzResourceResolver() = default;
  // Tells whether the resource exists. May fill *newName with a better display
  // name and *location with where it was found (both start empty).
  virtual bool resolveResource(const QzbString& name, const QzbString& identity,
                               const QzbString& type, QzbString* newName,
                               QzbString* location) = 0;
  // The resource that a URI names, as a new resource owned by the caller, or
  // null when the host does not know it.
  virtual QzResource* getResourceForURI(const QzbString& uri) = 0;
};

// Made by the library while it analyses a file and handed to the plug-in, which
// creates through it the resources the file uses.
class QzResourceFactory {
 public:
  virtual ~QzResourceFactory() = default;
  virtual void release() = 0;
  virtual QzbString getErrorMessage() = 0;
  // The stored resource of that type and identity, created when it does not
  // exist yet; a new object owned by the caller, or null on failure.
  virtual QzResource* getResource(const QzbString& name, const QzbString& type,
                                  const QzbString& identity) = 0;
  virtual QzbString getPluginPath() = 0;
  virtual void registerResourceResolver(QzResourceResolver* resolver) = 0;
  virtual QzResourceResolver* getResourceResolver() = 0;
  // The database (no table part) or table resource that a data URI names;
  // null when the URI is null or names neither.
  virtual QzResource* getDataResource(QzDataURI* uri) = 0;
};

#endif  // QZVAULT_RESOURCE_H_
