#include "lineage_graph.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "held.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// Ids are decimal numbers: shorter first keeps them in numeric order.
bool idLess(const std::string& a, const std::string& b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

Held<QzvLineage> openLineage(QzvImpactAnalysis* analysis) {
  Held<QzvLineage> lineage(analysis->getLineage());
  if (!lineage) fail("cannot read the lineage graph: out of memory");
  return lineage;
}

void appendNodes(QzvLineage* lineage, QzvLineageList* answer, std::vector<LineageNode>* nodes) {
  Held<QzvLineageList> list(answer);
  if (!list) failWith(lineage->getErrorMessage(), "cannot read the lineage graph");
  list->reset();
  while (list->next()) {
    QzResource* resource = list->getResource();
    if (resource == nullptr) continue;
    nodes->push_back(LineageNode{resourceRow(resource), list->getDistance()});
  }
}

// The store's edge "res_id uses res_used" read the way the tool speaks: the
// store's used end is the resource that uses the other (see the header).
void appendEdges(QzvLineage* lineage, QzvLineageEdgeList* answer, std::vector<LineageEdge>* edges) {
  Held<QzvLineageEdgeList> list(answer);
  if (!list) failWith(lineage->getErrorMessage(), "cannot read the lineage graph");
  list->reset();
  while (list->next()) {
    edges->push_back(LineageEdge{text(list->getUsedId()), text(list->getUserId())});
  }
}

void sortEdges(std::vector<LineageEdge>* edges) {
  std::sort(edges->begin(), edges->end(), [](const LineageEdge& a, const LineageEdge& b) {
    if (a.user != b.user) return idLess(a.user, b.user);
    return idLess(a.used, b.used);
  });
  edges->erase(std::unique(edges->begin(), edges->end(),
                           [](const LineageEdge& a, const LineageEdge& b) {
                             return a.user == b.user && a.used == b.used;
                           }),
               edges->end());
}

}  // namespace

LineageGraph lineageClosure(QzvImpactAnalysis* analysis, QzResource* resource,
                            LineageDirection direction, int maxDepth) {
  Held<QzvLineage> lineage = openLineage(analysis);
  LineageGraph graph;
  graph.centred = true;
  graph.nodes.push_back(LineageNode{resourceRow(resource), 0});
  const bool upstream = direction == LineageDirection::kUpstream;
  appendNodes(lineage.get(),
              upstream ? lineage->getDependents(resource, maxDepth) : lineage->getUsed(resource, maxDepth),
              &graph.nodes);
  appendEdges(lineage.get(),
              upstream ? lineage->getDependentEdges(resource, maxDepth)
                       : lineage->getUsedEdges(resource, maxDepth),
              &graph.edges);
  sortEdges(&graph.edges);
  return graph;
}

LineageGraph lineageAround(QzvImpactAnalysis* analysis, QzResource* resource, int maxDepth) {
  LineageGraph up = lineageClosure(analysis, resource, LineageDirection::kUpstream, maxDepth);
  LineageGraph down = lineageClosure(analysis, resource, LineageDirection::kDownstream, maxDepth);
  // A cycle puts a resource on both sides: keep it once, at its shorter distance.
  std::map<std::string, std::size_t> at;
  LineageGraph graph;
  graph.centred = true;
  for (const LineageGraph* side : {&up, &down}) {
    for (const LineageNode& node : side->nodes) {
      const auto found = at.find(node.resource.id);
      if (found == at.end()) {
        at.emplace(node.resource.id, graph.nodes.size());
        graph.nodes.push_back(node);
      } else if (node.distance < graph.nodes[found->second].distance) {
        graph.nodes[found->second].distance = node.distance;
      }
    }
    graph.edges.insert(graph.edges.end(), side->edges.begin(), side->edges.end());
  }
  std::stable_sort(graph.nodes.begin() + 1, graph.nodes.end(),
                   [](const LineageNode& a, const LineageNode& b) {
                     if (a.distance != b.distance) return a.distance < b.distance;
                     return idLess(a.resource.id, b.resource.id);
                   });
  sortEdges(&graph.edges);
  return graph;
}

LineageGraph wholeLineage(QzvImpactAnalysis* analysis) {
  Held<QzvLineage> lineage = openLineage(analysis);
  LineageGraph graph;
  appendNodes(lineage.get(), lineage->getAllResources(), &graph.nodes);
  appendEdges(lineage.get(), lineage->getAllEdges(), &graph.edges);
  sortEdges(&graph.edges);
  return graph;
}

}  // namespace qzvtool
