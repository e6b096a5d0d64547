#include "plugin_dir.h"

#include <filesystem>
#include <system_error>

#include "qzvault/qzvault.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

const char kPluginPathKey[] = "BASE/PLUGIN_PATH";

// True when this process runs the executable that the build wrote (not an
// installed copy).
bool runningFromBuildTree() {
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  if (error) return false;
  return fs::equivalent(executable.parent_path(), fs::path(QZ_TOOL_BUILD_DIR), error) && !error;
}

}  // namespace

PluginDirectory applyPluginDirectory(const std::string& option) {
  QzbConfigOptions* config = qzbGetConfigOptions(nullptr);
  if (!option.empty()) {
    // The library prefers the configuration key to setVaultPluginPath, so the
    // option goes into the key, replacing what an operator's file said.
    config->setOptionFrom(QzbString(kPluginPathKey, true), QzbString(option.c_str()),
                          QzbString("--plugins", true));
    return PluginDirectory{option, "--plugins"};
  }
  QzbString configured;
  if (config->getOption(QzbString(kPluginPathKey, true), &configured)) {
    return PluginDirectory{configured.toStdString(), "configuration"};
  }
  PluginDirectory chosen = runningFromBuildTree()
                               ? PluginDirectory{QZ_TOOL_BUILD_PLUGIN_DIR, "build tree"}
                               : PluginDirectory{QZ_TOOL_INSTALLED_PLUGIN_DIR, "installation"};
  setVaultPluginPath(chosen.path.c_str());
  return chosen;
}

}  // namespace qzvtool
