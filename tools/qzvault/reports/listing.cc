#include "listing.h"

#include <algorithm>
#include <cctype>

#include "held.h"
#include "output.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

const char kLinkType[] = "link";

VaultPath pathOfListed(VaultSession& session, const QzbString& fullPath) {
  VaultPath path;
  if (!vaultPathOf(session.root(), text(fullPath), &path)) {
    path.relative = text(fullPath);
    path.absolute = text(fullPath);
  }
  return path;
}

// File names in letter-case-blind order, ties broken byte by byte.
bool nameBefore(const std::string& a, const std::string& b) {
  std::string lowerA = a;
  std::string lowerB = b;
  for (char& c : lowerA) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (char& c : lowerB) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lowerA != lowerB ? lowerA < lowerB : a < b;
}

template <class Entry>
void sortByFileName(std::vector<Entry>* entries) {
  std::stable_sort(entries->begin(), entries->end(), [](const Entry& a, const Entry& b) {
    return nameBefore(a.path.leaf(), b.path.leaf());
  });
}

void collectInto(VaultSession& session, QzvFolder* folder, const VaultPath& path, bool recursive,
                 std::vector<ObjectEntry>* objects) {
  FolderContents contents = listFolder(session, folder, path, false);
  objects->insert(objects->end(), contents.objects.begin(), contents.objects.end());
  if (!recursive) return;
  for (const FolderEntry& child : contents.folders) {
    Held<QzvFolder> childFolder = hold(folder->getChildFolder(QzbString(child.path.leaf().c_str())));
    if (!childFolder) failWith(folder->getErrorMessage(), "cannot open folder " + child.path.shown());
    collectInto(session, childFolder.get(), child.path, true, objects);
  }
}

}  // namespace

Json objectEntryJson(const ObjectEntry& entry) {
  return Json{{"name", entry.name},
              {"file", entry.path.leaf()},
              {"path", entry.path.shown()},
              {"type", entry.type.empty() ? Json(nullptr) : Json(entry.type)},
              {"readOnly", entry.readOnly}};
}

FolderContents listFolder(VaultSession& session, QzvFolder* folder, const VaultPath& path,
                          bool readOnlyFlags) {
  FolderContents contents;
  Held<QzvItemList> folders = hold(folder->getFolderList());
  if (!folders) failWith(folder->getErrorMessage(), "cannot list the folders of " + path.shown());
  while (folders->next()) {
    contents.folders.push_back(FolderEntry{text(folders->getValue(0)),
                                           pathOfListed(session, folders->getValue(1))});
  }
  Held<QzvItemList> objects = hold(folder->getObjectList(readOnlyFlags));
  if (!objects) failWith(folder->getErrorMessage(), "cannot list the objects of " + path.shown());
  while (objects->next()) {
    const std::string type = text(objects->getValue(2));
    if (type == kLinkType) {
      contents.links.push_back(
          LinkEntry{text(objects->getValue(0)), session.shown(objects->getValue(1))});
      continue;
    }
    ObjectEntry entry;
    entry.name = text(objects->getValue(0));
    entry.path = pathOfListed(session, objects->getValue(1));
    entry.type = type;
    entry.readOnly = text(objects->getValue(3)) == "Y";
    contents.objects.push_back(entry);
  }
  sortByFileName(&contents.folders);
  sortByFileName(&contents.objects);
  std::stable_sort(contents.links.begin(), contents.links.end(),
                   [](const LinkEntry& a, const LinkEntry& b) { return nameBefore(a.name, b.name); });
  return contents;
}

std::vector<ObjectEntry> collectObjects(VaultSession& session, const VaultPath& path,
                                        bool recursive) {
  std::vector<ObjectEntry> objects;
  if (session.kindOf(path) == VaultSession::Kind::kFolder || path.isRoot()) {
    Held<QzvFolder> folder = session.openFolder(path);
    collectInto(session, folder.get(), path, recursive, &objects);
    return objects;
  }
  // One object: its folder's listing says what the plug-in made of it.
  Held<QzvObject> object = session.openObject(path);
  Held<QzvFolder> parent = session.openFolder(path.parent());
  for (const ObjectEntry& entry : listFolder(session, parent.get(), path.parent(), false).objects) {
    if (entry.path.relative == path.relative) objects.push_back(entry);
  }
  if (objects.empty()) {
    ObjectEntry entry;
    entry.name = text(object->getName());
    entry.path = path;
    objects.push_back(entry);
  }
  return objects;
}

}  // namespace qzvtool
