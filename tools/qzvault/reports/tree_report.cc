#include "tree_report.h"

#include <iostream>

#include "file_names.h"
#include "held.h"
#include "listing.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// A folder's name ends in "/". The display name is shown where it says more
// than the file name (an object's display name defaults to its base name).
std::string treeLabel(const std::string& fileName, bool folder, const std::string& displayName,
                      const std::string& type) {
  std::string label = folder ? fileName + "/" : fileName;
  const bool implied = displayName == fileName || (!folder && displayName == splitFileName(fileName).base);
  if (!displayName.empty() && !implied) label += "  \"" + displayName + "\"";
  if (!type.empty()) label += "  (" + type + ")";
  return label;
}

Held<QzvFolder> openChild(QzvFolder* folder, const FolderEntry& entry) {
  Held<QzvFolder> child = hold(folder->getChildFolder(QzbString(entry.path.leaf().c_str())));
  if (!child) failWith(folder->getErrorMessage(), "cannot open folder " + entry.path.shown());
  return child;
}

Json treeJson(VaultSession& session, QzvFolder* folder, const VaultPath& path) {
  const FolderContents contents = listFolder(session, folder, path, false);
  Json folders = Json::array();
  for (const FolderEntry& entry : contents.folders) {
    Held<QzvFolder> child = openChild(folder, entry);
    folders.push_back(treeJson(session, child.get(), entry.path));
  }
  Json objects = Json::array();
  for (const ObjectEntry& entry : contents.objects) objects.push_back(objectEntryJson(entry));
  Json links = Json::array();
  for (const LinkEntry& entry : contents.links) {
    links.push_back(Json{{"name", entry.name}, {"target", entry.target}});
  }
  return Json{{"name", text(folder->getName())},
              {"file", path.isRoot() ? Json(nullptr) : Json(path.leaf())},
              {"path", path.shown()},
              {"folders", folders},
              {"objects", objects},
              {"links", links}};
}

void printTree(VaultSession& session, QzvFolder* folder, const VaultPath& path,
               const std::string& indent) {
  const FolderContents contents = listFolder(session, folder, path, false);
  const std::size_t total = contents.folders.size() + contents.objects.size() + contents.links.size();
  std::size_t index = 0;
  auto branch = [&](bool last) { return indent + (last ? "`-- " : "|-- "); };
  for (const FolderEntry& entry : contents.folders) {
    const bool last = ++index == total;
    printLine(branch(last) + treeLabel(entry.path.leaf(), true, entry.name, ""));
    Held<QzvFolder> child = openChild(folder, entry);
    printTree(session, child.get(), entry.path, indent + (last ? "    " : "|   "));
  }
  for (const ObjectEntry& entry : contents.objects) {
    const bool last = ++index == total;
    printLine(branch(last) + treeLabel(entry.path.leaf(), false, entry.name, entry.type));
  }
  for (const LinkEntry& entry : contents.links) {
    const bool last = ++index == total;
    printLine(branch(last) + entry.name + " -> " + entry.target + "  (link)");
  }
}

void collectRecords(VaultSession& session, QzvFolder* folder, const VaultPath& path, TextTable* records) {
  const FolderContents contents = listFolder(session, folder, path, false);
  for (const FolderEntry& entry : contents.folders) {
    records->addRow({"folder", entry.name, entry.path.shown(), ""});
    Held<QzvFolder> child = openChild(folder, entry);
    collectRecords(session, child.get(), entry.path, records);
  }
  for (const ObjectEntry& entry : contents.objects) {
    records->addRow({entry.type.empty() ? "-" : entry.type, entry.name, entry.path.shown(), ""});
  }
  for (const LinkEntry& entry : contents.links) {
    const std::string linkPath = path.isRoot() ? entry.name : path.shown() + "/" + entry.name;
    records->addRow({"link", entry.name, linkPath, entry.target});
  }
}

}  // namespace

void printFolderTreeRecords(VaultSession& session, const VaultPath& path) {
  Held<QzvFolder> folder = session.openFolder(path);
  TextTable records;
  collectRecords(session, folder.get(), path, &records);
  records.printRecords(std::cout, 4);
}

void printFolderTree(VaultSession& session, const VaultPath& path) {
  Held<QzvFolder> folder = session.openFolder(path);
  const std::string name = text(folder->getName());
  if (path.isRoot()) {
    printLine(".");
  } else {
    printLine(treeLabel(path.shown(), true, name == path.leaf() ? "" : name, ""));
  }
  printTree(session, folder.get(), path, "");
}

Json folderTreeJson(VaultSession& session, const VaultPath& path) {
  Held<QzvFolder> folder = session.openFolder(path);
  return treeJson(session, folder.get(), path);
}

}  // namespace qzvtool
