// Which vault a command works on, found the way git finds a repository.
//
// A vault's root holds the marker file ".v_vault", which `qzvault init` (and
// `qzvault demo`) write. Without --vault and QZVAULT_DIR, the tool walks up
// from the current directory to the nearest directory that is a root: one with
// the marker, or, for a vault made before the marker existed, one whose
// ".v_fmd" holds the vault's UUID (`_UUID`); when no directory above has
// either, the topmost of the directories, from the current one up, that hold
// the vault's metadata files. --vault DIR, else the environment variable
// QZVAULT_DIR, names the root itself; a directory named so that is a folder
// inside another vault is refused, so that no sub-folder ever gets a lineage
// store of its own. `-C DIR` (main.cc) changes the current directory first.
//
// Vault paths on the command line are relative to the current directory when
// that lies inside the vault, and to the root otherwise.
#ifndef QZVAULT_TOOL_SUPPORT_VAULT_LOCATION_H_
#define QZVAULT_TOOL_SUPPORT_VAULT_LOCATION_H_

#include <string>

#include "global_options.h"

namespace qzvtool {

// The marker file of a vault's root.
constexpr const char* kVaultMarker = ".v_vault";
// The environment variable that names the vault's root.
constexpr const char* kVaultDirVariable = "QZVAULT_DIR";

struct VaultLocation {
  std::string root;  // absolute, symbolic links resolved
  std::string base;  // the current directory as a vault path ("" outside, or at the root)
  std::string how;   // "--vault", "QZVAULT_DIR" or "current directory"
};

// The vault a command works on (see above). Throws a usage error when there is
// none, naming `qzvault init`.
VaultLocation locateVault(const GlobalOptions& options);

// The directory a vault is made in by init: --vault, else QZVAULT_DIR, else
// the current directory; absolute, not checked. `how` as above.
std::string directoryToMake(const GlobalOptions& options, std::string* how);

// Refuses (usage error) to make a vault of `directory` when it lies inside
// another vault (it would be one of that vault's folders). A directory that is
// already a vault's root is fine.
void checkNotInsideAnotherVault(const std::string& directory);

// True when `directory` is a vault's root by the marker or by its UUID row.
bool isMarkedRoot(const std::string& directory);

// Writes the marker into `directory` (a vault's root) unless it is there.
// Throws a failure with the system's reason when it cannot be written.
void writeVaultMarker(const std::string& directory);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_VAULT_LOCATION_H_
