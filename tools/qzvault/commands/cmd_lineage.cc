// Lineage beyond one step: lineage (every edge, or the closure of one
// resource upstream or downstream), lineage export (OpenLineage events for a
// catalogue) and graph (DOT or JSON, optionally rendered to SVG by Graphviz).
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "dot_render.h"
#include "impact_report.h"
#include "lineage_graph.h"
#include "lineage_output.h"
#include "openlineage.h"
#include "output.h"
#include "output_file.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

namespace fs = std::filesystem;

struct LineageOptions {
  std::string resource;
  bool up = false;
  bool down = false;
  int depth = QZV_LINEAGE_UNLIMITED;
  bool depthGiven = false;
  bool json = false;
  bool nul = false;
};

struct ExportOptions {
  std::string format;
  std::string jobNamespace;
  std::string output = "-";
};

struct GraphOptions {
  std::string resource;
  int depth = QZV_LINEAGE_UNLIMITED;
  bool depthGiven = false;
  std::string format = "dot";
  bool json = false;  // --json: the same as --format json
  std::string output;
  std::string svg;
  bool force = false;
};

// --depth counts steps; "no limit" is said by leaving it out.
void checkDepth(bool given, int depth, const std::string& resource) {
  if (!given) return;
  if (resource.empty()) failUsage("--depth needs a RESOURCE: the whole graph has no depth");
  if (depth <= 0) {
    failUsage("--depth " + std::to_string(depth) +
              " is not a number of steps: give 1 or more, or leave --depth out for no limit");
  }
}

Held<QzvImpactAnalysis> openAnalysis(VaultSession& session) {
  Held<QzvImpactAnalysis> analysis(session.vault()->getImpactAnalysis());
  if (!analysis) failWith(session.vault()->getErrorMessage(), "cannot open the impact-analysis store");
  return analysis;
}

void runLineage(const GlobalOptions& global, const LineageOptions& options) {
  if (options.resource.empty()) {
    if (options.up || options.down) failUsage("--up and --down need a RESOURCE");
    checkDepth(options.depthGiven, options.depth, options.resource);
  } else {
    if (options.up == options.down) {
      failUsage("give one of --up (what " + options.resource + " uses) and --down (what uses it)");
    }
    checkDepth(options.depthGiven, options.depth, options.resource);
  }

  VaultSession session(global);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  if (options.resource.empty()) {
    if (options.nul) {
      printEdgeRecords(session, wholeLineage(analysis.get()), std::cout);
    } else {
      printLineage(session, analysis.get(), options.json);
    }
    return;
  }
  Held<QzResource> resource = findResource(session, analysis.get(), options.resource);
  const LineageDirection direction = options.up ? LineageDirection::kUpstream : LineageDirection::kDownstream;
  const LineageGraph closure = lineageClosure(analysis.get(), resource.get(), direction, options.depth);
  if (options.json) {
    printJson(lineageClosureJson(session, closure, direction, options.depth));
  } else if (options.nul) {
    printClosureRecords(session, closure, std::cout);
  } else {
    printLineageTree(session, closure, direction, std::cout);
  }
}

void runExport(const GlobalOptions& global, const ExportOptions& options) {
  if (!options.jobNamespace.empty() && options.jobNamespace.find_first_not_of(" \t") == std::string::npos) {
    failUsage("--namespace is blank");
  }
  VaultSession session(global);
  checkOutputTarget(session.root(), options.output);
  std::string jobNamespace = options.jobNamespace;
  if (jobNamespace.empty()) {
    jobNamespace = text(session.vault()->getUUID());
    if (jobNamespace.empty()) fail("the vault has no UUID to name the jobs' namespace: give --namespace NS");
  }
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  const OpenLineageExport exported =
      openLineageExport(session, analysis.get(), jobNamespace, openLineageProducer());
  std::string lines;
  for (const Json& event : exported.events) {
    lines += event.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  }
  writeOutput(options.output, lines);
  if (!isStdout(options.output)) {
    std::cout << "Wrote " << options.output << " (" << exported.events.size()
              << (exported.events.size() == 1 ? " event" : " events") << ")\n";
  }
  if (!exported.unsetMacros.empty()) {
    std::string names;
    for (const std::string& name : exported.unsetMacros) names += (names.empty() ? "" : ", ") + name;
    printError("warning: configuration macros without a value here stay in the names of " +
               std::to_string(exported.inputsWithMacros) + (exported.inputsWithMacros == 1 ? " input: " : " inputs: ") +
               names + " (set them with --set KEY=VALUE)");
  }
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  if (!out) fail("cannot write " + path);
}

// Refuses (usage error, before anything is written) a FILE given to --output
// or --svg that is one of the vault's own files, lies inside a vault
// directory whose name is one of them, or is an existing entry of the vault:
// writing there would destroy metadata or an object. An existing file
// outside the vault is replaced only with --force, and only when it is an
// ordinary file.
void checkOutputFile(const VaultSession& session, const std::string& option, const std::string& file,
                     bool force) {
  std::error_code error;
  const fs::path given(file);
  // The directory resolved (links included); the last name as given.
  const fs::path directory = fs::weakly_canonical(fs::absolute(given, error).parent_path(), error);
  const fs::path target = directory / given.filename();
  const fs::path root = fs::weakly_canonical(fs::path(session.root()), error);
  const fs::path relative = target.lexically_relative(root);
  const bool inside = !relative.empty() && *relative.begin() != "..";
  if (inside) {
    for (const fs::path& part : relative) {
      const std::string name = part.string();
      if (!name.empty() && name[0] == '.') {
        failUsage(option + " " + file + " is one of the vault's own files; write it elsewhere");
      }
    }
  }
  const fs::file_status status = fs::symlink_status(target, error);
  if (!fs::exists(status)) return;  // a new file
  if (inside) failUsage(option + " " + file + " is an entry of the vault; write it elsewhere");
  if (!fs::is_regular_file(status)) failUsage(option + " " + file + " exists and is not an ordinary file");
  if (!force) failUsage(option + " " + file + " exists (give --force to replace it)");
}

std::string graphSize(const LineageGraph& graph) {
  return std::to_string(graph.nodes.size()) + (graph.nodes.size() == 1 ? " resource, " : " resources, ") +
         std::to_string(graph.edges.size()) + (graph.edges.size() == 1 ? " edge" : " edges");
}

void runGraph(const GlobalOptions& global, const GraphOptions& given) {
  // "--output -" is stdout, as with other tools.
  GraphOptions options = given;
  if (options.output == "-") options.output.clear();
  if (options.json) options.format = "json";
  checkDepth(options.depthGiven, options.depth, options.resource);
  if (!options.output.empty() && options.output == options.svg) {
    failUsage("--output and --svg name the same file " + options.output);
  }

  VaultSession session(global);
  if (!options.output.empty()) checkOutputFile(session, "--output", options.output, options.force);
  if (!options.svg.empty()) checkOutputFile(session, "--svg", options.svg, options.force);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  LineageGraph graph;
  if (options.resource.empty()) {
    graph = wholeLineage(analysis.get());
  } else {
    Held<QzResource> resource = findResource(session, analysis.get(), options.resource);
    graph = lineageAround(analysis.get(), resource.get(), options.depth);
  }
  const std::string dot = lineageGraphDot(session, graph);
  const std::string written =
      options.format == "json" ? jsonDocument(lineageGraphJson(session, graph)) : dot;

  // The graph goes to --output, else to stdout unless only a picture was
  // asked for.
  if (!options.output.empty()) {
    writeFile(options.output, written);
    printLine("Wrote " + options.output + " (" + graphSize(graph) + ")");
  } else if (options.svg.empty()) {
    std::cout << written;
  }
  if (options.svg.empty()) return;

  // When no picture can be made, the DOT is not lost: it goes to stdout if
  // no --output has it already.
  const std::string dotWhere = !options.output.empty() && options.format == "dot"
                                   ? "is in " + options.output
                                   : "was written on stdout";
  const auto keepDot = [&] {
    if (options.output.empty() || options.format != "dot") std::cout << dot << std::flush;
  };
  if (graph.nodes.size() > kMaxRenderedNodes) {
    keepDot();
    fail("not rendering " + options.svg + ": the graph has " + std::to_string(graph.nodes.size()) +
         " resources, more than the " + std::to_string(kMaxRenderedNodes) + " drawn; the DOT " + dotWhere);
  }
  if (!dotInstalled()) {
    keepDot();
    fail("cannot render " + options.svg + ": the dot program (Graphviz) is not installed (not on PATH); the DOT " +
         dotWhere);
  }
  renderSvg(dot, options.svg);
  printLine("Wrote " + options.svg + " (" + graphSize(graph) + ")");
}

void addDepthOption(CLI::App* command, int* depth, bool* given) {
  command->add_option_function<int>(
             "--depth",
             [depth, given](const int& value) {
               *depth = value;
               *given = true;
             },
             "At most N steps from RESOURCE, 1 to 2147483647 (default: no limit)")
      ->type_name("N");
}

}  // namespace

void addLineageCommands(CLI::App& app, ToolContext& context) {
  auto lineage = std::make_shared<LineageOptions>();
  CLI::App* lineageCommand = app.add_subcommand(
      "lineage",
      "Without RESOURCE: list every resource that uses others, with what it uses. With RESOURCE "
      "and --up: everything RESOURCE uses, through any chain; with --down: everything that uses "
      "it. Printed as a tree, each resource with its distance in steps");
  lineageCommand->add_option("resource", lineage->resource,
                             "An object (vault path) or TYPE:IDENTITY (" + limitText(kMaxPathBytes) + ")")
      ->type_name("RESOURCE")
      ->check(maxBytes(kMaxPathBytes));
  lineageCommand->add_flag("--up", lineage->up, "What RESOURCE uses (where its data comes from)");
  lineageCommand->add_flag("--down", lineage->down, "What uses RESOURCE (what a change to it affects)");
  addDepthOption(lineageCommand, &lineage->depth, &lineage->depthGiven);
  addNulFlag(lineageCommand, &lineage->nul, addJsonFlag(lineageCommand, &lineage->json));

  auto exportOptions = std::make_shared<ExportOptions>();
  CLI::App* exportCommand = lineageCommand->add_subcommand(
      "export",
      "Write the lineage of every analysed object as OpenLineage events (JSON lines, one static "
      "JobEvent per object, its inputs the resources it uses), for a catalogue that reads them");
  exportCommand->add_option("--format", exportOptions->format, "openlineage (the one format so far)")
      ->required()
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"openlineage"}));
  exportCommand->add_option("--namespace", exportOptions->jobNamespace,
                            "The jobs' namespace (default: the vault's UUID)")
      ->type_name("NS");
  exportCommand->add_option("--output,-o", exportOptions->output,
                            "Write the events to FILE; - (the default) is stdout")
      ->type_name("FILE");
  exportCommand->callback([&context, exportOptions] {
    context.action = [&context, exportOptions] { runExport(context.global, *exportOptions); };
  });

  lineageCommand->callback([&context, lineage, exportCommand] {
    // `lineage export` chose its own action.
    if (exportCommand->parsed()) return;
    context.action = [&context, lineage] { runLineage(context.global, *lineage); };
  });

  auto graph = std::make_shared<GraphOptions>();
  CLI::App* graphCommand = app.add_subcommand(
      "graph",
      "Write the lineage graph of the whole vault, or of everything within reach of RESOURCE in "
      "both directions, as Graphviz DOT or JSON; --svg renders it with Graphviz's dot program");
  graphCommand->add_option("resource", graph->resource,
                           "An object (vault path) or TYPE:IDENTITY (" + limitText(kMaxPathBytes) + ")")
      ->type_name("RESOURCE")
      ->check(maxBytes(kMaxPathBytes));
  addDepthOption(graphCommand, &graph->depth, &graph->depthGiven);
  CLI::Option* format = graphCommand->add_option("--format", graph->format, "dot (default) or json")
                            ->type_name("FORMAT")
                            ->check(CLI::IsMember({"dot", "json"}));
  graphCommand->add_flag("--json", graph->json, "Write the graph as JSON (the same as --format json)")
      ->excludes(format);
  graphCommand->add_option("--output,-o", graph->output, "Write the graph to FILE instead of stdout (\"-\": stdout)")
      ->type_name("FILE")
      ->check(maxBytes(kMaxPathBytes));
  graphCommand->add_option("--svg", graph->svg,
                           "Also render the graph to FILE as SVG with dot (when Graphviz is installed "
                           "and the graph has at most 2000 resources)")
      ->type_name("FILE")
      ->check(maxBytes(kMaxPathBytes));
  graphCommand->add_flag("--force", graph->force,
                         "Replace an existing ordinary file outside the vault given to --output or --svg");
  graphCommand->callback([&context, graph] {
    context.action = [&context, graph] { runGraph(context.global, *graph); };
  });
}

}  // namespace qzvtool
