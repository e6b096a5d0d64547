// Lineage closure: everything that depends on a resource, or that it uses,
// through any chain of recorded edges, each resource with its distance; the
// edges among them; and the whole lineage graph, for export.
//
// QzvImpactAnalysis::getLineage hands out a QzvLineage; the caller ends it with
// release(). Unlike the one-step queries of QzvImpactAnalysis, a closure only
// reads the recorded edges: it records nothing (no table-to-database links)
// and substitutes no "%%NAME%%" macros. It also reads a store that is
// read-only. Cycles and duplicate edges are safe: every resource appears once,
// at its shortest distance. An edge to or from a resource that is no longer
// stored (a dangling edge) is skipped, and the walk does not pass through it.
//
// Every list returned is new and owned by the caller, ended with release().
// A failure returns null and leaves a one-line reason for getErrorMessage();
// an empty list means that nothing was found.
//
// Thread safety: one thread at a time per object; several objects and
// processes may read one store at once.
#ifndef QZVAULT_LINEAGE_H_
#define QZVAULT_LINEAGE_H_

#include "qzbase/string.h"
#include "qzvault/resource.h"

// The depth of a closure that follows every chain to its end.
#define QZV_LINEAGE_UNLIMITED 0

// Resources of a closure (or of the whole graph), ordered by distance and then
// by id. next() moves to the first row and then on; it is true while a row is
// current.
class QzvLineageList {
 public:
  virtual bool next() = 0;
  // Goes back before the first row.
  virtual void reset() = 0;
  // The number of rows.
  virtual int length() = 0;
  // The current row's resource, owned by the list (valid until release()), or
  // null off a row.
  virtual QzResource* getResource() = 0;
  // Steps from the start of the closure to the current row's resource: 1 for
  // a direct neighbour. 0 in a whole-graph list, and off a row.
  virtual int getDistance() = 0;
  virtual void release() = 0;

 protected:
  ~QzvLineageList() = default;
};

// Edges "user uses used", each pair once, ordered by the user's id and then
// the used resource's id. Ids are the resources' getId() texts.
class QzvLineageEdgeList {
 public:
  virtual bool next() = 0;
  virtual void reset() = 0;
  virtual int length() = 0;
  // The id of the resource that uses the other; a null string off a row.
  virtual QzbString getUserId() = 0;
  // The id of the resource that is used; a null string off a row.
  virtual QzbString getUsedId() = 0;
  virtual void release() = 0;

 protected:
  ~QzvLineageEdgeList() = default;
};

class QzvLineage {
 public:
  virtual void release() = 0;
  // The reason of the last failure; empty when none. A later success does not
  // clear it.
  virtual QzbString getErrorMessage() = 0;

  // The resources that use `resource` directly or through any chain ("down",
  // what a change to it affects), at most `maxDepth` steps away
  // (QZV_LINEAGE_UNLIMITED: no limit). `resource` itself is never listed, not
  // even when a cycle leads back to it. Null with getErrorMessage when
  // `resource` is null ("No resource was given"), is not stored ("Resource 12
  // is not in the lineage store"), `maxDepth` is negative ("Invalid lineage
  // depth -1: give a positive number of steps, or 0 for no limit"), or the
  // store cannot be read.
  virtual QzvLineageList* getDependents(QzResource* resource, int maxDepth) = 0;
  // The resources that `resource` uses directly or through any chain ("up",
  // where its data comes from). As getDependents otherwise.
  virtual QzvLineageList* getUsed(QzResource* resource, int maxDepth) = 0;

  // The edges among `resource` and the resources of getDependents (or
  // getUsed) with the same depth: every recorded edge whose two ends are both
  // in that set, cycles back into `resource` included. Same failures.
  virtual QzvLineageEdgeList* getDependentEdges(QzResource* resource, int maxDepth) = 0;
  virtual QzvLineageEdgeList* getUsedEdges(QzResource* resource, int maxDepth) = 0;

  // Every stored resource (distance 0), ordered by id; null on failure.
  virtual QzvLineageList* getAllResources() = 0;
  // Every recorded edge whose two ends are stored; null on failure.
  virtual QzvLineageEdgeList* getAllEdges() = 0;

 protected:
  ~QzvLineage() = default;
};

#endif  // QZVAULT_LINEAGE_H_
