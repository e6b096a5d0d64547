#include "lineage_output.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "impact_report.h"

namespace qzvtool {
namespace {

// Light fills, one per resource type in the order of the type names, so that
// a picture of the same graph always looks the same.
const char* const kTypeFills[] = {"#dbe9f6", "#e3f1dc", "#fbe7d0", "#efe0f3", "#f9f1c7",
                                  "#d9f0ee", "#f6dde2", "#e6e6e6", "#d6e4d2", "#f3d9c9"};

std::unordered_map<std::string, const LineageNode*> nodesById(const LineageGraph& graph) {
  std::unordered_map<std::string, const LineageNode*> byId;
  for (const LineageNode& node : graph.nodes) byId.emplace(node.resource.id, &node);
  return byId;
}

Json nodeJson(const VaultSession& session, const LineageNode& node, bool withDistance) {
  Json json{{"id", node.resource.id}};
  const Json fields = resourceJson(session, node.resource);
  for (auto it = fields.begin(); it != fields.end(); ++it) json[it.key()] = *it;
  if (withDistance) json["distance"] = node.distance;
  return json;
}

Json edgesJson(const LineageGraph& graph) {
  Json edges = Json::array();
  for (const LineageEdge& edge : graph.edges) edges.push_back(Json{{"user", edge.user}, {"used", edge.used}});
  return edges;
}

const char* directionName(LineageDirection direction) {
  return direction == LineageDirection::kUpstream ? "up" : "down";
}

}  // namespace

void printClosureRecords(const VaultSession& session, const LineageGraph& graph, std::ostream& out) {
  TextTable records;
  for (const LineageNode& node : graph.nodes) {
    const ResourceRow& row = node.resource;
    records.addRow({std::to_string(node.distance), row.type, row.name, identityShown(session, row.identity)});
  }
  records.printRecords(out, 4);
}

void printEdgeRecords(const VaultSession& session, const LineageGraph& graph, std::ostream& out) {
  const auto byId = nodesById(graph);
  TextTable records;
  for (const LineageEdge& edge : graph.edges) {
    const auto user = byId.find(edge.user);
    const auto used = byId.find(edge.used);
    if (user == byId.end() || used == byId.end()) continue;
    const ResourceRow& a = user->second->resource;
    const ResourceRow& b = used->second->resource;
    records.addRow({a.type, a.name, identityShown(session, a.identity), b.type, b.name,
                    identityShown(session, b.identity)});
  }
  records.printRecords(out, 6);
}

void printLineageTree(const VaultSession& session, const LineageGraph& graph,
                      LineageDirection direction, std::ostream& out) {
  if (graph.nodes.empty()) return;
  const bool upstream = direction == LineageDirection::kUpstream;
  const auto byId = nodesById(graph);

  // A resource's children are its neighbours one step further out, so that
  // the tree follows shortest paths and each line's depth is its distance.
  std::unordered_map<std::string, std::vector<const LineageNode*>> children;
  for (const LineageEdge& edge : graph.edges) {
    const std::string& parent = upstream ? edge.user : edge.used;
    const std::string& child = upstream ? edge.used : edge.user;
    const auto parentNode = byId.find(parent);
    const auto childNode = byId.find(child);
    if (parentNode == byId.end() || childNode == byId.end()) continue;
    if (childNode->second->distance != parentNode->second->distance + 1) continue;
    if (childNode->second == &graph.nodes.front()) continue;
    children[parent].push_back(childNode->second);
  }
  for (auto& entry : children) {
    std::sort(entry.second.begin(), entry.second.end(), [](const LineageNode* a, const LineageNode* b) {
      const ResourceRow& x = a->resource;
      const ResourceRow& y = b->resource;
      return x.type != y.type ? x.type < y.type : x.identity < y.identity;
    });
  }

  const LineageNode& root = graph.nodes.front();
  printLine(resourceLine(session, root.resource), out);
  if (graph.nodes.size() == 1) {
    printLine(upstream ? "  (uses nothing)" : "  (used by nothing)", out);
    return;
  }
  // Depth first, without recursion: a long chain must not exhaust the stack.
  std::set<std::string> expanded{root.resource.id};
  std::vector<std::pair<const LineageNode*, int>> stack;
  const auto pushChildren = [&](const std::string& id, int level) {
    const auto found = children.find(id);
    if (found == children.end()) return;
    for (auto it = found->second.rbegin(); it != found->second.rend(); ++it) stack.emplace_back(*it, level);
  };
  pushChildren(root.resource.id, 1);
  while (!stack.empty()) {
    const LineageNode* node = stack.back().first;
    const int level = stack.back().second;
    stack.pop_back();
    std::string line = std::string(static_cast<std::size_t>(level) * 2, ' ') + '[' +
                       std::to_string(node->distance) + "] " + (upstream ? "uses " : "used by ") +
                       resourceLine(session, node->resource);
    if (!expanded.insert(node->resource.id).second) {
      printLine(line + "  (see above)", out);
      continue;
    }
    printLine(line, out);
    pushChildren(node->resource.id, level + 1);
  }
}

Json lineageClosureJson(const VaultSession& session, const LineageGraph& graph,
                        LineageDirection direction, int maxDepth) {
  Json resources = Json::array();
  for (std::size_t i = 1; i < graph.nodes.size(); ++i) resources.push_back(nodeJson(session, graph.nodes[i], true));
  Json json;
  json["resource"] = graph.nodes.empty() ? Json() : nodeJson(session, graph.nodes.front(), false);
  json["direction"] = directionName(direction);
  json["depth"] = maxDepth == QZV_LINEAGE_UNLIMITED ? Json() : Json(maxDepth);
  json["resources"] = resources;
  json["edges"] = edgesJson(graph);
  return json;
}

Json lineageGraphJson(const VaultSession& session, const LineageGraph& graph) {
  Json nodes = Json::array();
  for (const LineageNode& node : graph.nodes) nodes.push_back(nodeJson(session, node, graph.centred));
  return Json{{"nodes", nodes}, {"edges", edgesJson(graph)}};
}

std::string dotEscape(const std::string& text) {
  // Control characters are first shown as the text output shows them (a line
  // break as \n, an escape character as \033), so that a DOT file printed on a
  // terminal cannot drive it; the backslashes of those escapes are then
  // quoted like any other, and a picture shows the escape as text.
  const std::string shown = escapeControls(text);
  std::string escaped;
  escaped.reserve(shown.size());
  for (const char c : shown) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string lineageGraphDot(const VaultSession& session, const LineageGraph& graph) {
  std::map<std::string, const char*> fills;
  for (const LineageNode& node : graph.nodes) fills.emplace(node.resource.type, nullptr);
  std::size_t next = 0;
  for (auto& entry : fills) entry.second = kTypeFills[next++ % (sizeof kTypeFills / sizeof kTypeFills[0])];

  std::ostringstream dot;
  dot << "// The lineage graph of a vault: an arrow runs from a resource to the one that uses it.\n"
      << "digraph lineage {\n"
      << "  rankdir=LR;\n"
      << "  node [shape=box, style=\"rounded,filled\", fontname=\"Helvetica\", fontsize=10];\n"
      << "  edge [color=\"#555555\"];\n";
  for (const LineageNode& node : graph.nodes) {
    const ResourceRow& row = node.resource;
    const std::string name = row.name.empty() ? identityShown(session, row.identity) : row.name;
    dot << "  \"" << dotEscape(row.id) << "\" [label=\"" << dotEscape(row.type) << "\\n" << dotEscape(name)
        << "\", fillcolor=\"" << fills[row.type] << '"';
    if (graph.centred && &node == &graph.nodes.front()) dot << ", penwidth=2.5";
    dot << "];\n";
  }
  for (const LineageEdge& edge : graph.edges) {
    dot << "  \"" << dotEscape(edge.used) << "\" -> \"" << dotEscape(edge.user) << "\";\n";
  }
  dot << "}\n";
  return dot.str();
}

}  // namespace qzvtool
