// A folder's contents as the library lists them (sub-folders, objects, then
// links), sorted by file name (letter case aside) so that every listing of the
// tool comes out in the same order whatever order the directory gives.
#ifndef QZVAULT_TOOL_REPORTS_LISTING_H_
#define QZVAULT_TOOL_REPORTS_LISTING_H_

#include <string>
#include <vector>

#include "output.h"
#include "qzvault/qzvault.h"
#include "session.h"

namespace qzvtool {

struct FolderEntry {
  std::string name;  // display name
  VaultPath path;
};

struct ObjectEntry {
  std::string name;  // display name
  VaultPath path;
  std::string type;  // the type the plug-in reported; "" when none did
  bool readOnly = false;
};

struct LinkEntry {
  std::string name;
  std::string target;  // as the tool shows paths
};

struct FolderContents {
  std::vector<FolderEntry> folders;
  std::vector<ObjectEntry> objects;
  std::vector<LinkEntry> links;
};

// An object of a listing as JSON: name, file, path, type (null when no
// plug-in read it) and readOnly.
Json objectEntryJson(const ObjectEntry& entry);

// Lists `folder` (which lies at `path`). With `readOnlyFlags` the objects'
// read-only flags are read too. Fails with the folder's message.
FolderContents listFolder(VaultSession& session, QzvFolder* folder, const VaultPath& path,
                          bool readOnlyFlags);

// Every object at or below `path` (an object, or a folder; its sub-folders
// too when `recursive`), in listing order, folder by folder.
std::vector<ObjectEntry> collectObjects(VaultSession& session, const VaultPath& path,
                                        bool recursive);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_LISTING_H_
