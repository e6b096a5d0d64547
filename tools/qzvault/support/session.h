// A run of the tool against one vault: starts the library, applies the
// configuration settings, the plug-in directory and the log level, opens the
// vault, and gives the commands folders and objects by vault path. Its
// destructor releases the vault, detaches the log sink and shuts the library
// down, so a command releases what it holds (Held<T>) before the session ends.
//
// The library supports one start-up per process: make one session per run.
#ifndef QZVAULT_TOOL_SUPPORT_SESSION_H_
#define QZVAULT_TOOL_SUPPORT_SESSION_H_

#include <memory>
#include <string>
#include <vector>

#include "global_options.h"
#include "held.h"
#include "plugin_dir.h"
#include "qzvault/qzvault.h"
#include "vault_paths.h"

namespace qzvtool {

// Applies the --set options (KEY=VALUE, checked by the parser) to the process
// configuration, where the library reads its keys and the values of
// impact-analysis macros; each remembers "--set" as its origin.
void applySettings(const std::vector<std::string>& settings);

// One loaded plug-in, as the vault describes it.
struct PluginInfo {
  std::string typeName;
  std::string description;
};

class VaultSession {
 public:
  // The vault that --vault or QZVAULT_DIR names, or that the current directory
  // lies in (vault_location.h). Throws ToolError: a usage error when there is
  // none, a failure when the library cannot open it.
  explicit VaultSession(const GlobalOptions& options);
  // A vault being made in `directory` (init, demo). Throws a usage error when
  // it is missing or not a directory.
  VaultSession(const GlobalOptions& options, const std::string& directory);
  ~VaultSession();
  VaultSession(const VaultSession&) = delete;
  VaultSession& operator=(const VaultSession&) = delete;

  QzvVault* vault() const { return vault_; }
  // The vault's root: absolute, symbolic links resolved.
  const std::string& root() const { return root_; }
  // How the root was found: "--vault", "QZVAULT_DIR", "current directory".
  const std::string& foundBy() const { return foundBy_; }
  const PluginDirectory& pluginDirectory() const { return pluginDirectory_; }
  const std::vector<PluginInfo>& plugins() const { return plugins_; }

  // A vault path given on the command line: relative to the current
  // directory when that lies inside the vault, else to the root.
  VaultPath resolve(const std::string& argument) const {
    return resolveVaultPath(root_, argument, base_);
  }
  // How a path the library reported is shown: the vault path when it lies
  // inside the vault, else as it is.
  std::string shown(const QzbString& fullPath) const;

  enum class Kind { kMissing, kFolder, kObject };
  Kind kindOf(const VaultPath& path) const;

  // The folder at `path`. A path that is an object is a usage error; a
  // missing one fails with the library's message.
  Held<QzvFolder> openFolder(const VaultPath& path);
  // The object at `path`. A path that is a folder is a usage error; a missing
  // one fails with the library's message.
  Held<QzvObject> openObject(const VaultPath& path);

  // Holds the folder lock of each folder in `paths` (vault paths of folders;
  // duplicates count once) for as long as the returned folders live, taken
  // in the order of their paths so that two commands never wait for each
  // other. A command that reads what it then changes holds the lock of the
  // folder whose metadata it changes, so that another process's change in
  // between cannot be lost. Waits up to the configured time (the key
  // QZVLT/LOCK_WAIT_MS, 30 seconds when not set) and fails (exit status 1)
  // naming the holder. Refuses first, as requireStoredMetadata does, when
  // nothing would be stored.
  std::vector<Held<QzvFolder>> lockFolders(std::vector<VaultPath> paths);
  // Fails (exit status 1) when the metadata of this run is kept in memory
  // only (the configuration key QZVLT/BYPASS is set): a change would report
  // success and store nothing.
  void requireStoredMetadata() const;

  // The type name of the loaded plug-in that stands for files named like
  // `fileName` (by the file family's extension table), or "".
  std::string pluginTypeFor(const std::string& fileName) const;
  // Fails (exit status 1) when a loaded plug-in stands for the object's file
  // type but could not read the file (`listedType`, the type the folder
  // listing reports, is then empty): such a file would be recorded with
  // nothing the plug-in should have read from it.
  void requireReadable(const VaultPath& object, const std::string& listedType) const;
  // The same, looking the object up in its folder's listing first.
  void requireReadable(const VaultPath& object);

 private:
  void open(const GlobalOptions& options);
  void end();

  std::unique_ptr<QzLogStreamSink> sink_;
  std::string root_;
  std::string base_;
  std::string foundBy_;
  PluginDirectory pluginDirectory_;
  std::vector<PluginInfo> plugins_;
  QzvVault* vault_ = nullptr;
  bool started_ = false;
};

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_SESSION_H_
