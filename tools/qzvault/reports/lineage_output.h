// How lineage graphs are shown: the closure of one resource as an indented
// tree or JSON (the `lineage` command), and a whole or centred graph as
// Graphviz DOT or JSON (the `graph` command and the demo's picture).
#ifndef QZVAULT_TOOL_REPORTS_LINEAGE_OUTPUT_H_
#define QZVAULT_TOOL_REPORTS_LINEAGE_OUTPUT_H_

#include <iosfwd>
#include <string>

#include "lineage_graph.h"
#include "output.h"
#include "session.h"

namespace qzvtool {

// The closure `graph` (from lineageClosure) as a tree: the resource, then
// what it uses (upstream) or what uses it (downstream), one step deeper per
// indentation, each line with its distance in brackets. A resource reached
// on more than one shortest path is expanded once and marked "(see above)"
// after that.
void printLineageTree(const VaultSession& session, const LineageGraph& graph,
                      LineageDirection direction, std::ostream& out);

// The -z forms. A closure: every resource, the start first, as four
// NUL-terminated fields: distance, type, name, identity (an object by its
// vault path). A whole graph: every edge as six: the user's type, name and
// identity, then those of the resource it uses.
void printClosureRecords(const VaultSession& session, const LineageGraph& graph, std::ostream& out);
void printEdgeRecords(const VaultSession& session, const LineageGraph& graph, std::ostream& out);

// The closure as JSON: the resource, the direction, the depth asked for (null
// for no limit), the resources with their distance and the edges among them.
Json lineageClosureJson(const VaultSession& session, const LineageGraph& graph,
                        LineageDirection direction, int maxDepth);

// A graph as JSON: {"nodes": [...], "edges": [{"user": id, "used": id}]}.
// Nodes carry their id, and their distance when the graph is centred.
Json lineageGraphJson(const VaultSession& session, const LineageGraph& graph);

// A graph as Graphviz DOT. Nodes are quoted resource ids labelled with type
// and name; an arrow runs from a resource to the one that uses it, the way
// data flows. The resource a graph is centred on is drawn with a heavier
// border.
std::string lineageGraphDot(const VaultSession& session, const LineageGraph& graph);

// `text` as the inside of a DOT quoted string: control characters shown as
// escapes (escapeControls), then quotes and backslashes quoted, so that the
// escapes appear as text in a picture.
std::string dotEscape(const std::string& text);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_LINEAGE_OUTPUT_H_
