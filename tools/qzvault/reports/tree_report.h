// The tree below a folder, as text (the `tree` command and the demo) or JSON.
#ifndef QZVAULT_TOOL_REPORTS_TREE_REPORT_H_
#define QZVAULT_TOOL_REPORTS_TREE_REPORT_H_

#include "output.h"
#include "session.h"

namespace qzvtool {

// One line per folder, object and link, by file name, with the display name
// where it differs and the type a plug-in reported:
//   |-- Definitions/
//   |   `-- customer-sync.job.def  "Customer sync"  (Job)
void printFolderTree(VaultSession& session, const VaultPath& path);
Json folderTreeJson(VaultSession& session, const VaultPath& path);
// The -z form: every folder, object and link below the folder (depth first,
// in the text tree's order) as four NUL-terminated fields: the kind
// ("folder", "link", the object's type or "-"), the display name, the vault
// path, and a link's target (empty for the others).
void printFolderTreeRecords(VaultSession& session, const VaultPath& path);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_TREE_REPORT_H_
