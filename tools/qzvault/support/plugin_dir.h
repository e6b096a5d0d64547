// Where the tool's vaults load their metadata plug-ins from, in this order:
//   1. the --plugins option;
//   2. the configuration key "BASE/PLUGIN_PATH" (an operator's QZ_CONFIG_FILE);
//   3. the installed plug-in directory, found from the executable's own
//      directory (compiled in relative to it), so any prefix works;
//   4. for the tool in the build tree, the build tree's plug-in directory
//      (compiled in), which takes the place of 3 there, so that a build
//      never picks up the plug-ins of an older installation.
#ifndef QZVAULT_TOOL_SUPPORT_PLUGIN_DIR_H_
#define QZVAULT_TOOL_SUPPORT_PLUGIN_DIR_H_

#include <string>

namespace qzvtool {

struct PluginDirectory {
  std::string path;
  std::string source;  // "--plugins", "configuration", "installation", "build tree"
};

// Chooses the directory and hands it to the library (setVaultPluginPath, or
// the configuration key when it must win over an operator's file). Call after
// qzVaultStartup and before createVaultInstance.
PluginDirectory applyPluginDirectory(const std::string& option);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_PLUGIN_DIR_H_
