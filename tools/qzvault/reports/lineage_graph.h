// The lineage graph as the `lineage` and `graph` commands show it: resources
// (nodes) with their distance from a starting resource, and "user uses used"
// edges, read through QzvLineage (qzvault/lineage.h).
//
// Direction. The store records what an analysed file names as the
// *dependents* of the file's resource (see cmd_impact.cc), so the closure
// that QzvLineage calls getDependents(job) is everything the job uses, and
// getUsed(job) everything that uses it; an edge's getUserId() is the resource
// that is used. The tool speaks of what things use, as `deps` and `used-by`
// do, and turns the store's names around here, in one place:
//   upstream   (--up)   what the resource uses, through any chain
//   downstream (--down) what uses the resource, through any chain
#ifndef QZVAULT_TOOL_REPORTS_LINEAGE_GRAPH_H_
#define QZVAULT_TOOL_REPORTS_LINEAGE_GRAPH_H_

#include <string>
#include <vector>

#include "impact_report.h"
#include "qzvault/qzvault.h"

namespace qzvtool {

enum class LineageDirection { kUpstream, kDownstream };

struct LineageNode {
  ResourceRow resource;
  int distance = 0;  // steps from the start; 0 for the start and in a whole graph
};

// `user` uses `used`; both are resource ids (ResourceRow::id).
struct LineageEdge {
  std::string user;
  std::string used;
};

struct LineageGraph {
  std::vector<LineageNode> nodes;  // the start first (when there is one), then by distance
  std::vector<LineageEdge> edges;  // sorted by user id, then used id; each pair once
  bool centred = false;            // nodes[0] is the resource the graph was made around
};

// The closure of `resource` in one direction, at most `maxDepth` steps
// (QZV_LINEAGE_UNLIMITED: no limit), with `resource` itself first (distance
// 0). Fails (ToolError, exit status 1) with the store's message.
LineageGraph lineageClosure(QzvImpactAnalysis* analysis, QzResource* resource,
                            LineageDirection direction, int maxDepth);

// Both closures of `resource` together: every resource it uses and every
// resource that uses it, within `maxDepth` steps, and the edges among them.
LineageGraph lineageAround(QzvImpactAnalysis* analysis, QzResource* resource, int maxDepth);

// Every stored resource and every recorded edge.
LineageGraph wholeLineage(QzvImpactAnalysis* analysis);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_LINEAGE_GRAPH_H_
