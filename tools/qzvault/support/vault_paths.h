// Vault paths: how the tool reads a path given on the command line.
//
// A vault path names a folder or an object by its file-system names,
// relative to the vault's root ("Jobs/Definitions/load.job.def"; "" is the
// root) or absolute inside it. On the command line a relative path is read
// from the current directory when that lies inside the vault ("." is then the
// current folder), else from the root. The tool refuses, as usage
// errors, every path that leaves the vault ("..", an absolute path elsewhere,
// a symbolic link that points outside) and every path through the vault's
// own files (names beginning with ".").
#ifndef QZVAULT_TOOL_SUPPORT_VAULT_PATHS_H_
#define QZVAULT_TOOL_SUPPORT_VAULT_PATHS_H_

#include <string>

namespace qzvtool {

struct VaultPath {
  std::string relative;  // components joined with "/"; empty for the root
  std::string absolute;  // the root joined with `relative`

  bool isRoot() const { return relative.empty(); }
  // `relative`, or "." for the root: how the tool shows the path.
  std::string shown() const { return relative.empty() ? std::string(".") : relative; }
  // The last component ("" for the root).
  std::string leaf() const;
  // The path of the folder that holds this one (the root's parent is the root).
  VaultPath parent() const;
};

// Resolves `argument` against `root` (an absolute path without symbolic links
// or a trailing separator): an absolute path as it is, a relative one below
// `base` (a vault path, "" for the root). Throws a usage error (ToolError,
// exit status 2) naming the argument when the path leaves the vault or passes
// through one of the vault's own files. The path need not exist.
VaultPath resolveVaultPath(const std::string& root, const std::string& argument,
                           const std::string& base = std::string());

// The vault path of `absolute`, a path that the library reported (which lies
// inside `root`); false when it does not lie inside.
bool vaultPathOf(const std::string& root, const std::string& absolute, VaultPath* path);

// Throws a usage error unless `name` can be one component of a vault path: not
// empty, no "/", not "." or "..", not beginning with ".". `what` names the
// argument in the message.
void checkComponentName(const std::string& name, const std::string& what);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_VAULT_PATHS_H_
