// Reading and showing the impact-analysis (lineage) store: resources as rows,
// how a resource is named on the command line, analysis of objects, and the
// lineage report shared by the `lineage` command and the demo.
#ifndef QZVAULT_TOOL_REPORTS_IMPACT_REPORT_H_
#define QZVAULT_TOOL_REPORTS_IMPACT_REPORT_H_

#include <string>
#include <vector>

#include "held.h"
#include "listing.h"
#include "output.h"
#include "qzvault/qzvault.h"
#include "session.h"

namespace qzvtool {

struct ResourceRow {
  std::string id;
  std::string type;
  std::string name;
  std::string identity;
  std::string location;
  bool macro = false;
  bool resolved = true;
  // When the resource was last analysed; the date of numeric value 0 when it
  // never was.
  QzbDate analysed;
};

ResourceRow resourceRow(QzResource* resource);
// The rows of `list`, sorted by type, then identity.
std::vector<ResourceRow> resourceRows(QzResourceList* list);
// Every resource of the store, sorted; fails with the store's message.
std::vector<ResourceRow> allResources(QzvImpactAnalysis* analysis);

// An identity as the tool shows it: a file inside the vault by its vault
// path, anything else as stored.
std::string identityShown(const VaultSession& session, const std::string& identity);
// "IDENTITY (TYPE)", or "IDENTITY (TYPE, macro)", the identity as shown.
std::string resourceLine(const VaultSession& session, const ResourceRow& row);
Json resourceJson(const VaultSession& session, const ResourceRow& row);
// One resource a line: type, name, identity (and "macro" for identities with
// configuration macros). With `records` (-z) the same four fields of each
// resource are printed NUL-terminated, an unnamed resource with an empty name.
void printResources(const VaultSession& session, const std::vector<ResourceRow>& rows, bool json,
                    bool records = false);

// The resource a command-line argument names: a vault path (an object), or
// TYPE:IDENTITY ("Table:db:postgresql/sales//public/orders"). An object's
// resource is recorded if it was not yet. Fails when there is none.
Held<QzResource> findResource(VaultSession& session, QzvImpactAnalysis* analysis,
                              const std::string& argument);

// What `resource` uses, one step (the store's dependents of it: see
// cmd_impact.cc), with the resource its macros resolve to; and what uses it.
// Both fail with the store's message.
std::vector<ResourceRow> resourcesUsedBy(QzvImpactAnalysis* analysis, QzResource* resource);
std::vector<ResourceRow> resourcesUsing(QzvImpactAnalysis* analysis, QzResource* resource);

struct AnalysisFailure {
  std::string path;
  std::string message;
};

// Analyses each object (recording what it uses in the store), with a progress
// bar on a terminal. Objects whose plug-in cannot read them are not analysed
// and count as failures.
std::vector<AnalysisFailure> analyzeObjects(VaultSession& session,
                                            const std::vector<ObjectEntry>& objects);

// Every resource that uses others, each with what it uses (one step). Read
// edge by edge, without the macro resolution of usedBy, so that it records
// nothing.
void printLineage(VaultSession& session, QzvImpactAnalysis* analysis, bool json);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_IMPACT_REPORT_H_
