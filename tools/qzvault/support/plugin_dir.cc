#include "plugin_dir.h"

#include <filesystem>
#include <system_error>

#include "qzvault/qzvault.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

const char kPluginPathKey[] = "BASE/PLUGIN_PATH";

// The executable this process runs, with symbolic links resolved; empty when
// the system does not say.
fs::path ownExecutable() {
  std::error_code error;
  fs::path executable = fs::read_symlink("/proc/self/exe", error);
  if (error) return fs::path();
  return executable;
}

// True when this process runs the executable that the build wrote (not an
// installed copy).
bool runningFromBuildTree(const fs::path& executable) {
  if (executable.empty()) return false;
  std::error_code error;
  return fs::equivalent(executable.parent_path(), fs::path(QZ_TOOL_BUILD_DIR), error) && !error;
}

// The installed plug-in directory: compiled in relative to the directory of
// the installed executable, so that it holds for any prefix and after the
// installation is moved. Without the executable's path (no /proc), the
// relative path is all there is.
std::string installedPluginDirectory(const fs::path& executable) {
  const fs::path compiledIn(QZ_TOOL_INSTALLED_PLUGIN_DIR);
  if (compiledIn.is_absolute() || executable.empty()) return compiledIn.string();
  return (executable.parent_path() / compiledIn).lexically_normal().string();
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
  const fs::path executable = ownExecutable();
  PluginDirectory chosen =
      runningFromBuildTree(executable)
          ? PluginDirectory{QZ_TOOL_BUILD_PLUGIN_DIR, "build tree"}
          : PluginDirectory{installedPluginDirectory(executable), "installation"};
  setVaultPluginPath(chosen.path.c_str());
  return chosen;
}

}  // namespace qzvtool
