// demo DIR: a sample vault made from the definition plug-in's sample files,
// then listed, analysed and its lineage printed (and drawn, with Graphviz).
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "demo_samples.h"
#include "dot_render.h"
#include "file_names.h"
#include "impact_report.h"
#include "lineage_graph.h"
#include "lineage_output.h"
#include "listing.h"
#include "output.h"
#include "qzbase/file_types.h"
#include "session.h"
#include "tool_error.h"
#include "tree_report.h"
#include "vault_location.h"
#include "vault_uuid.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

// Values for the configuration macros that the samples' dependencies hold.
const char* const kDemoSettings[] = {
    "FEED_DIR=/data/feeds",
    "CRM_DB=crm.db",
    "SALES_DSN=sales",
};

// A table named through the %%SALES_DSN%% macro; what it uses includes the
// table that the demo's value of the macro names.
const char kMacroExample[] = "Table:db:postgresql/%%SALES_DSN%%//public/orders";

// The picture of the demo's lineage, in the demo directory.
const char kLineagePicture[] = "lineage.svg";

void checkTarget(const std::string& directory) {
  std::error_code error;
  const fs::file_status status = fs::status(directory, error);
  if (!fs::exists(status)) return;
  if (!fs::is_directory(status)) failUsage("demo: " + directory + " is not a directory");
  if (!fs::is_empty(directory, error) || error) {
    failUsage("demo: " + directory + " is not empty: give a new or empty directory");
  }
}

// The folder at `path`, made (with the library) where it is missing.
Held<QzvFolder> ensureFolder(VaultSession& session, const VaultPath& path) {
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    return session.openFolder(path);
  }
  Held<QzvFolder> parent = ensureFolder(session, path.parent());
  Held<QzvFolder> folder = hold(parent->createFolder(QzbString(path.leaf().c_str())));
  if (!folder) failWith(parent->getErrorMessage(), "cannot create folder " + path.shown());
  if (session.shown(folder->getPath()) != path.relative) {
    fail("the library made " + session.shown(folder->getPath()) + " for folder " + path.shown());
  }
  return folder;
}

// The display name of a sample: the name a definition carries, else the file
// name without its extension.
std::string sampleDisplayName(const DemoSample& sample, const std::string& base) {
  if (qzbFindTwoPartExtension(sample.path) != nullptr) {
    const Json document = Json::parse(sample.bytes, sample.bytes + sample.size, nullptr, false);
    if (document.is_object() && document.contains("name") && document["name"].is_string()) {
      return document["name"].get<std::string>();
    }
  }
  return base;
}

void addSample(VaultSession& session, const DemoSample& sample) {
  const VaultPath path = session.resolve(sample.path);
  Held<QzvFolder> folder = ensureFolder(session, path.parent());
  const std::string fileName = path.leaf();
  const FileNameParts parts = splitFileName(fileName);
  const std::string& base = parts.base;
  const std::string& extension = parts.extension;

  QzbString fullPath;
  QzbString chosenName;
  if (!folder->getFilenameForNewObject(QzbString(base.c_str()), QzbString(extension.c_str()),
                                       &fullPath, &chosenName)) {
    failWith(folder->getErrorMessage(), "cannot choose a file name for " + path.shown());
  }
  if (text(chosenName) != fileName) {
    fail("the library chose the file name " + text(chosenName) + " for " + path.shown());
  }
  {
    std::ofstream out(text(fullPath), std::ios::binary);
    out.write(reinterpret_cast<const char*>(sample.bytes), static_cast<std::streamsize>(sample.size));
    if (!out) fail("cannot write " + text(fullPath));
  }
  Held<QzvObject> object = hold(folder->createObjectFromFile(
      chosenName, QzbString(sampleDisplayName(sample, base).c_str())));
  if (!object) failWith(folder->getErrorMessage(), "cannot add " + path.shown());
}

// lineage.svg in the demo directory, when Graphviz's dot is installed. A
// picture that cannot be made is no reason to fail the demo. Returns the
// picture's path, or "" with *why when there is none.
std::string drawLineage(VaultSession& session, QzvImpactAnalysis* analysis, std::string* why) {
  const std::string picture = session.root() + "/" + kLineagePicture;
  if (!dotInstalled()) {
    *why = "the dot program (Graphviz) is not on PATH";
    return std::string();
  }
  try {
    renderSvg(lineageGraphDot(session, wholeLineage(analysis)), picture);
    return picture;
  } catch (const ToolError& error) {
    *why = error.what();
    return std::string();
  }
}

// The demo's report as one JSON document (--json): the vault, what was
// analysed, the lineage graph, the picture and the two example queries.
Json demoJson(VaultSession& session, QzvImpactAnalysis* analysis, const std::string& uuid,
              const std::vector<ObjectEntry>& objects, const std::vector<AnalysisFailure>& failures) {
  Json settings = Json::array();
  for (const char* setting : kDemoSettings) settings.push_back(setting);
  Json failed = Json::array();
  for (const AnalysisFailure& failure : failures) {
    failed.push_back(Json{{"path", failure.path}, {"error", oneLine(failure.message)}});
  }
  std::string why;
  const std::string picture = drawLineage(session, analysis, &why);
  Held<QzResource> orders = findResource(session, analysis, "Data/orders.csv");
  Held<QzResource> table = findResource(session, analysis, kMacroExample);
  Json usedBy = Json::array();
  for (const ResourceRow& row : resourcesUsing(analysis, orders.get())) usedBy.push_back(resourceJson(session, row));
  Json deps = Json::array();
  for (const ResourceRow& row : resourcesUsedBy(analysis, table.get())) deps.push_back(resourceJson(session, row));
  return Json{{"root", session.root()},
              {"uuid", uuid},
              {"settings", settings},
              {"tree", folderTreeJson(session, session.resolve("."))},
              {"analyzed", objects.size() - failures.size()},
              {"failed", failed},
              {"lineage", lineageGraphJson(session, wholeLineage(analysis))},
              {"svg", picture.empty() ? Json(nullptr) : Json(picture)},
              {"svgSkipped", picture.empty() ? Json(why) : Json(nullptr)},
              {"usedBy", Json{{"resource", "Data/orders.csv"}, {"resources", usedBy}}},
              {"deps", Json{{"resource", kMacroExample}, {"resources", deps}}}};
}

void runDemo(const GlobalOptions& global, const std::string& target, bool json) {
  if (demoSampleCount() == 0) fail("this qzvault was built without the sample files");
  std::error_code error;
  const std::string directory = fs::absolute(target, error).lexically_normal().string();
  checkTarget(directory);
  checkNotInsideAnotherVault(directory);
  fs::create_directories(directory, error);
  if (error) fail("cannot create " + directory + ": " + error.message());

  // The samples' macros get values for this run; --set still wins.
  GlobalOptions options = global;
  options.settings.insert(options.settings.begin(), std::begin(kDemoSettings), std::end(kDemoSettings));
  VaultSession session(options, directory);

  const std::string uuid = newVaultUuid();
  if (!session.vault()->resetUUID(QzbString(uuid.c_str()))) {
    failWith(session.vault()->getErrorMessage(), "cannot store the vault's UUID");
  }
  writeVaultMarker(session.root());
  for (std::size_t i = 0; i < demoSampleCount(); ++i) addSample(session, demoSamples()[i]);

  if (json) {
    const std::vector<ObjectEntry> objects = collectObjects(session, session.resolve("."), true);
    const std::vector<AnalysisFailure> failures = analyzeObjects(session, objects);
    Held<QzvImpactAnalysis> analysis(session.vault()->getImpactAnalysis());
    if (!analysis) failWith(session.vault()->getErrorMessage(), "cannot open the impact-analysis store");
    printJson(demoJson(session, analysis.get(), uuid, objects, failures));
    if (!failures.empty()) fail(std::to_string(failures.size()) + " sample objects could not be analysed");
    return;
  }

  printLine("Made a sample vault in " + session.root() + " (UUID " + uuid + ")");
  printLine("Its definitions use configuration macros; this run sets them:");
  for (const char* setting : kDemoSettings) printLine(std::string("  ") + setting);

  printLine("");
  printLine("== qzvault tree");
  printFolderTree(session, session.resolve("."));

  printLine("");
  printLine("== qzvault analyze");
  const std::vector<ObjectEntry> objects = collectObjects(session, session.resolve("."), true);
  const std::vector<AnalysisFailure> failures = analyzeObjects(session, objects);
  printLine("Analysed " + std::to_string(objects.size() - failures.size()) + " objects");
  for (const AnalysisFailure& failure : failures) printError(failure.path + ": " + failure.message);

  Held<QzvImpactAnalysis> analysis(session.vault()->getImpactAnalysis());
  if (!analysis) failWith(session.vault()->getErrorMessage(), "cannot open the impact-analysis store");
  printLine("");
  printLine("== qzvault lineage");
  printLineage(session, analysis.get(), false);
  printLine("");
  printLine(std::string("== qzvault graph --svg ") + kLineagePicture);
  std::string why;
  const std::string picture = drawLineage(session, analysis.get(), &why);
  if (!picture.empty()) {
    printLine("Drew the lineage graph in " + picture);
  } else if (!dotInstalled()) {
    printLine("Skipped the picture: " + why);
  } else {
    printError(why);
  }

  printLine("");
  printLine("== qzvault used-by Data/orders.csv");
  Held<QzResource> orders = findResource(session, analysis.get(), "Data/orders.csv");
  printResources(session, resourcesUsing(analysis.get(), orders.get()), false);

  printLine("");
  printLine(std::string("== qzvault deps '") + kMacroExample + "'");
  Held<QzResource> table = findResource(session, analysis.get(), kMacroExample);
  printResources(session, resourcesUsedBy(analysis.get(), table.get()), false);
  printLine("");
  printLine("Try: qzvault --vault " + session.root() + " ls Jobs/Definitions");
  if (!failures.empty()) {
    fail(std::to_string(failures.size()) + " sample objects could not be analysed");
  }
}

}  // namespace

void addDemoCommand(CLI::App& app, ToolContext& context) {
  auto target = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand(
      "demo", "Make a sample vault in DIR (new or empty) from the shipped sample files, "
              "list it, analyse it and print its lineage");
  command->add_option("directory", *target, "Where to make the vault")
      ->required()
      ->type_name("DIR")
      ->check(maxBytes(kMaxPathBytes));
  addJsonFlag(command, json.get());
  command->callback([&context, target, json] {
    context.action = [&context, target, json] { runDemo(context.global, *target, *json); };
  });
}

}  // namespace qzvtool
