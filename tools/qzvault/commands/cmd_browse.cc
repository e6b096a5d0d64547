// ls and tree: a folder's contents, and the tree below a folder.
#include <iostream>
#include <memory>

#include "cli.h"
#include "listing.h"
#include "tree_report.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

const int kStockFolderCount = 16;

struct LsOptions {
  std::string path;
  std::string filter;
  int stock = -1;
  bool json = false;
  bool nul = false;
};

// The fields of an ls row: kind, display name, file name (a link's target),
// flag. -z prints them as they are; the text table adds "/" and "-> ".
const std::size_t kLsFields = 4;

struct TreeOptions {
  std::string path;
  bool json = false;
  bool nul = false;
};

std::string typeShown(const std::string& type) { return type.empty() ? "-" : type; }

void runLs(const GlobalOptions& global, const LsOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvFolder> folder = session.openFolder(path);
  if (!options.filter.empty()) folder->setCurrentFilter(QzbString(options.filter.c_str()));
  if (options.stock >= 0) folder->setCurrentFilter(options.stock);
  const FolderContents contents = listFolder(session, folder.get(), path, true);

  if (options.json) {
    Json folders = Json::array();
    for (const FolderEntry& entry : contents.folders) {
      folders.push_back(Json{{"name", entry.name}, {"file", entry.path.leaf()}, {"path", entry.path.shown()}});
    }
    Json objects = Json::array();
    for (const ObjectEntry& entry : contents.objects) objects.push_back(objectEntryJson(entry));
    Json links = Json::array();
    for (const LinkEntry& entry : contents.links) {
      links.push_back(Json{{"name", entry.name}, {"target", entry.target}});
    }
    printJson(Json{{"path", path.shown()},
                   {"name", text(folder->getName())},
                   {"filter", jsonText(folder->getCurrentFilter())},
                   {"folders", folders},
                   {"objects", objects},
                   {"links", links}});
    return;
  }
  const bool text = !options.nul;
  TextTable table;
  for (const FolderEntry& entry : contents.folders) {
    table.addRow({"folder", entry.name, entry.path.leaf() + (text ? "/" : "")});
  }
  for (const ObjectEntry& entry : contents.objects) {
    table.addRow({typeShown(entry.type), entry.name, entry.path.leaf(),
                  entry.readOnly ? "read-only" : ""});
  }
  for (const LinkEntry& entry : contents.links) {
    table.addRow({"link", entry.name, (text ? "-> " : "") + entry.target});
  }
  if (options.nul) {
    table.printRecords(std::cout, kLsFields);
  } else {
    table.print(std::cout);
  }
}

void runTree(const GlobalOptions& global, const TreeOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  if (options.json) {
    printJson(folderTreeJson(session, path));
  } else if (options.nul) {
    printFolderTreeRecords(session, path);
  } else {
    printFolderTree(session, path);
  }
}

}  // namespace

void addBrowseCommands(CLI::App& app, ToolContext& context) {
  auto ls = std::make_shared<LsOptions>();
  CLI::App* lsCommand = app.add_subcommand(
      "ls", "List a folder: its sub-folders, then its objects (type, display name, file "
            "name, read-only flag), then its links");
  lsCommand->add_option("path", ls->path, "The folder (default: the current folder, or the vault's root from outside it)")
      ->type_name("PATH");
  CLI::Option* filter = lsCommand->add_option(
      "--filter", ls->filter,
      "List only objects with these extensions (\"csv;job.def\"; " + limitText(kMaxNameBytes) + ")")
      ->type_name("F")
      ->check(maxBytes(kMaxNameBytes));
  lsCommand->add_option("--stock", ls->stock, "List only objects that stock folder N admits")
      ->type_name("N")
      ->check(CLI::Range(0, kStockFolderCount - 1))
      ->excludes(filter);
  addNulFlag(lsCommand, &ls->nul, addJsonFlag(lsCommand, &ls->json));
  lsCommand->callback([&context, ls] {
    context.action = [&context, ls] { runLs(context.global, *ls); };
  });

  auto tree = std::make_shared<TreeOptions>();
  CLI::App* treeCommand =
      app.add_subcommand("tree", "Show the folders and objects below a folder, by file name");
  treeCommand->add_option("path", tree->path, "The folder (default: the current folder, or the vault's root from outside it)")
      ->type_name("PATH");
  addNulFlag(treeCommand, &tree->nul, addJsonFlag(treeCommand, &tree->json));
  treeCommand->callback([&context, tree] {
    context.action = [&context, tree] { runTree(context.global, *tree); };
  });
}

}  // namespace qzvtool
