// The state of many objects at once, for `qzvault status` on a folder or the
// whole vault: what a user should know before working there. Objects that
// are locked (and who holds them), that the running user cannot write, and
// that changed since their last analysis; lock files that are stale.
#ifndef QZVAULT_TOOL_REPORTS_VAULT_STATUS_H_
#define QZVAULT_TOOL_REPORTS_VAULT_STATUS_H_

#include <string>
#include <vector>

#include "session.h"
#include "vault_paths.h"

namespace qzvtool {

struct StatusFinding {
  std::string kind;    // "locked", "read-only", "changed", "stale-lock"
  std::string path;    // as the tool shows paths
  std::string detail;  // the holder, the analysis date, the lock's age
};

struct VaultStatus {
  std::size_t objects = 0;  // objects looked at
  std::vector<StatusFinding> findings;
};

// Looks at the objects of the folder at `path` (and of the folders below it
// when `recursive`) and at the lock files there. Reads only.
VaultStatus vaultStatus(VaultSession& session, const VaultPath& path, bool recursive);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_VAULT_STATUS_H_
