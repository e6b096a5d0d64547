// Static lineage in the OpenLineage format, version 2-0-2 of its schema: one
// JobEvent per analysed object (a job named by its vault path, no run), whose
// inputs are the resources the object uses, named as datasets by the
// OpenLineage naming conventions. docs/openlineage.md gives the mapping.
#ifndef QZVAULT_TOOL_REPORTS_OPENLINEAGE_H_
#define QZVAULT_TOOL_REPORTS_OPENLINEAGE_H_

#include <set>
#include <string>
#include <vector>

#include "lineage_graph.h"
#include "output.h"
#include "session.h"

namespace qzvtool {

// The schema the events follow, as their schemaURL.
extern const char kOpenLineageJobEventSchema[];

// A dataset's name in the OpenLineage naming conventions.
struct OpenLineageDataset {
  std::string ns;    // "file", "postgres://sales", ...
  std::string name;  // "/srv/feeds/orders.csv", "public.orders", ...

  bool operator<(const OpenLineageDataset& other) const {
    return ns != other.ns ? ns < other.ns : name < other.name;
  }
};

// The dataset for a resource whose identity (macros already substituted
// where they could be) is `identity`:
//   a table  db:TYPE/SOURCE/CATALOG/SCHEMA/TABLE  the database's namespace
//            (below) and "CATALOG.SCHEMA.TABLE", empty parts left out;
//   a database  db:TYPE/SOURCE  its namespace SCHEME://SOURCE and SOURCE;
//   a file reference  fileref:DIR/NAME  "file" and DIR/NAME;
//   an absolute path  "file" and the path;
//   anything else  `fallbackNamespace` and "TYPE:IDENTITY".
// SCHEME is the naming conventions' name for the database type (postgresql
// is "postgres", sqlserver "mssql"), else the type itself.
OpenLineageDataset openLineageDataset(const std::string& type, const std::string& identity,
                                      const std::string& fallbackNamespace);

// The "%%NAME%%" macros of `identity` (their names), in order of appearance.
std::vector<std::string> macroNames(const std::string& identity);

struct OpenLineageExport {
  std::vector<Json> events;            // one per analysed object, by vault path
  std::set<std::string> unsetMacros;   // macros left in dataset names: no value
  std::size_t inputsWithMacros = 0;    // inputs whose names still hold a macro
};

// The events for every analysed object of the store: a resource whose
// identity is an object of the vault at `session`'s root and that has an
// analysis date. Jobs are in `jobNamespace`; `producer` is the events'
// producer URI. Macros are substituted from the process configuration where
// every one of an identity's macros has a value. Reads the store only.
OpenLineageExport openLineageExport(VaultSession& session, QzvImpactAnalysis* analysis,
                                    const std::string& jobNamespace, const std::string& producer);

// The producer URI of events written by this build of the tool.
std::string openLineageProducer();

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_OPENLINEAGE_H_
