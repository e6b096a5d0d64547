// Impact analysis: analyze, deps, used-by, resources, types, clean (lineage
// and graph are in cmd_lineage.cc).
#include <iostream>
#include <map>
#include <memory>

#include "cli.h"
#include "impact_report.h"
#include "listing.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

struct AnalyzeOptions {
  std::string path;
  bool recursive = false;
  bool json = false;
};

struct ResourceOptions {
  std::string resource;
  std::string type;
  bool json = false;
  bool nul = false;
};

struct TypesOptions {
  bool json = false;
  bool nul = false;
};

Held<QzvImpactAnalysis> openAnalysis(VaultSession& session) {
  Held<QzvImpactAnalysis> analysis(session.vault()->getImpactAnalysis());
  if (!analysis) failWith(session.vault()->getErrorMessage(), "cannot open the impact-analysis store");
  return analysis;
}

void runAnalyze(const GlobalOptions& global, const AnalyzeOptions& options) {
  VaultSession session(global);
  // Without a path the current folder and everything below it is analysed
  // (the whole vault at its root), folder by folder.
  const VaultPath path = session.resolve(options.path);
  const bool recursive = options.recursive || options.path.empty();
  const std::vector<ObjectEntry> objects = collectObjects(session, path, recursive);
  const std::vector<AnalysisFailure> failures = analyzeObjects(session, objects);
  const std::size_t analysed = objects.size() - failures.size();

  if (options.json) {
    Json failed = Json::array();
    for (const AnalysisFailure& failure : failures) {
      failed.push_back(Json{{"path", failure.path}, {"error", oneLine(failure.message)}});
    }
    printJson(Json{{"analyzed", analysed}, {"failed", failed}});
  } else {
    printLine("Analysed " + std::to_string(analysed) + (analysed == 1 ? " object" : " objects"));
  }
  if (failures.empty()) return;
  // One object asked for: its failure is the one line; otherwise each
  // failure, then the count.
  if (objects.size() == 1) fail(failures.front().path + ": " + failures.front().message);
  for (const AnalysisFailure& failure : failures) printError(failure.path + ": " + failure.message);
  fail(std::to_string(failures.size()) + " of " + std::to_string(objects.size()) +
       (objects.size() == 1 ? " object" : " objects") + " could not be analysed");
}

// deps (what the resource uses) and used-by (what uses it), one step each.
//
// Object analysis records the resources a file names as the "dependents" of
// the object's resource (QzImpactAnalysis::addDependentResources), so the
// store's getDependentResources answers what a resource uses, and
// getUsedByResources what uses it. The first also resolves configuration
// macros and records a table's database, as the store does for every caller.
void runNeighbours(const GlobalOptions& global, const ResourceOptions& options, bool users) {
  VaultSession session(global);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  Held<QzResource> resource = findResource(session, analysis.get(), options.resource);
  const std::vector<ResourceRow> rows = users ? resourcesUsing(analysis.get(), resource.get())
                                              : resourcesUsedBy(analysis.get(), resource.get());
  printResources(session, rows, options.json, options.nul);
}

void runResources(const GlobalOptions& global, const ResourceOptions& options) {
  VaultSession session(global);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  if (options.type.empty()) {
    printResources(session, allResources(analysis.get()), options.json, options.nul);
    return;
  }
  const QzbString before = analysis->getErrorMessage();
  Held<QzResourceList> list(analysis->getResourcesByType(QzbString(options.type.c_str())));
  if (!list) failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  const std::vector<ResourceRow> rows = resourceRows(list.get());
  if (rows.empty() && analysis->getErrorMessage() != before) {
    failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  }
  printResources(session, rows, options.json, options.nul);
}

void runTypes(const GlobalOptions& global, const TypesOptions& options) {
  VaultSession session(global);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  // The store's own list of types tells how many there are but not their
  // names, so they are counted from the resources.
  std::map<std::string, int> counts;
  for (const ResourceRow& row : allResources(analysis.get())) ++counts[row.type];
  if (options.json) {
    Json types = Json::array();
    for (const auto& entry : counts) types.push_back(Json{{"type", entry.first}, {"resources", entry.second}});
    printJson(types);
    return;
  }
  TextTable table;
  for (const auto& entry : counts) table.addRow({entry.first, std::to_string(entry.second)});
  if (options.nul) {
    table.printRecords(std::cout, 2);
  } else {
    table.print(std::cout);
  }
}

void runClean(const GlobalOptions& global, bool json) {
  VaultSession session(global);
  Held<QzvImpactAnalysis> analysis = openAnalysis(session);
  const std::size_t before = allResources(analysis.get()).size();
  if (!analysis->removeUnusedResources()) {
    failWith(analysis->getErrorMessage(), "cannot clean the impact-analysis store");
  }
  const std::size_t after = allResources(analysis.get()).size();
  const std::size_t removed = before - after;
  if (json) {
    printJson(Json{{"removed", removed}, {"remaining", after}});
  } else {
    printLine("Removed " + std::to_string(removed) + (removed == 1 ? " unused resource" : " unused resources") +
              "; " + std::to_string(after) + " remain");
  }
}

void addResourceArgument(CLI::App* command, ResourceOptions* options) {
  command->add_option("resource", options->resource,
                      "An object (vault path) or TYPE:IDENTITY, for example "
                      "Table:db:postgresql/sales//public/orders (" +
                          limitText(kMaxPathBytes) + ")")
      ->required()
      ->type_name("RESOURCE")
      ->check(maxBytes(kMaxPathBytes));
  addNulFlag(command, &options->nul, addJsonFlag(command, &options->json));
}

}  // namespace

void addImpactCommands(CLI::App& app, ToolContext& context) {
  auto analyze = std::make_shared<AnalyzeOptions>();
  CLI::App* analyzeCommand = app.add_subcommand(
      "analyze", "Record what objects use in the impact-analysis store: one object, the objects "
                 "of a folder (--recursive: and below), or without PATH everything below the "
                 "current folder (the whole vault at its root)");
  analyzeCommand->add_option("path", analyze->path,
                             "The object or folder (default: the current folder and below)")
      ->type_name("PATH");
  analyzeCommand->add_flag("--recursive,-r", analyze->recursive, "Include the folders below");
  addJsonFlag(analyzeCommand, &analyze->json);
  analyzeCommand->callback([&context, analyze] {
    context.action = [&context, analyze] { runAnalyze(context.global, *analyze); };
  });

  for (const bool users : {false, true}) {
    auto options = std::make_shared<ResourceOptions>();
    CLI::App* command = app.add_subcommand(
        users ? "used-by" : "deps",
        users ? "List the resources that use RESOURCE (one step)"
              : "List the resources that RESOURCE uses (one step); an identity with "
                "configuration macros also gives the resource its values name");
    addResourceArgument(command, options.get());
    command->callback([&context, options, users] {
      context.action = [&context, options, users] { runNeighbours(context.global, *options, users); };
    });
  }

  auto resources = std::make_shared<ResourceOptions>();
  CLI::App* resourcesCommand =
      app.add_subcommand("resources", "List the resources of the impact-analysis store");
  resourcesCommand
      ->add_option("--type", resources->type, "Only resources of this type (" + limitText(kMaxNameBytes) + ")")
      ->type_name("T")
      ->check(maxBytes(kMaxNameBytes));
  addNulFlag(resourcesCommand, &resources->nul, addJsonFlag(resourcesCommand, &resources->json));
  resourcesCommand->callback([&context, resources] {
    context.action = [&context, resources] { runResources(context.global, *resources); };
  });

  auto types = std::make_shared<TypesOptions>();
  CLI::App* typesCommand =
      app.add_subcommand("types", "List the resource types of the store, with how many resources each has");
  addNulFlag(typesCommand, &types->nul, addJsonFlag(typesCommand, &types->json));
  typesCommand->callback([&context, types] {
    context.action = [&context, types] { runTypes(context.global, *types); };
  });

  auto cleanJson = std::make_shared<bool>(false);
  CLI::App* cleanCommand = app.add_subcommand(
      "clean", "Remove the resources that take part in no dependency from the store");
  addJsonFlag(cleanCommand, cleanJson.get());
  cleanCommand->callback([&context, cleanJson] {
    context.action = [&context, cleanJson] { runClean(context.global, *cleanJson); };
  });
}

}  // namespace qzvtool
