#include "cli.h"

#include <filesystem>
#include <system_error>

namespace qzvtool {
namespace {

// --set KEY=VALUE: a key before the first "=", each part within its limit.
std::string checkSetting(const std::string& setting) {
  const std::size_t equals = setting.find('=');
  if (equals == std::string::npos || equals == 0) {
    return "'" + setting + "' is not KEY=VALUE";
  }
  const std::string keyProblem = lengthProblem(setting.substr(0, equals), kMaxNameBytes);
  if (!keyProblem.empty()) return "the key is " + keyProblem;
  const std::string valueProblem = lengthProblem(setting.substr(equals + 1), kMaxValueBytes);
  if (!valueProblem.empty()) return "the value is " + valueProblem;
  return std::string();
}

// --plugins DIR[:DIR...]: each directory named must exist.
std::string checkPluginDirectories(const std::string& value) {
  std::size_t start = 0;
  for (;;) {
    const std::size_t colon = value.find(':', start);
    const std::string part = value.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
    std::error_code error;
    if (!part.empty() && !std::filesystem::is_directory(part, error)) return part + " is not a directory";
    if (colon == std::string::npos) return std::string();
    start = colon + 1;
  }
}

}  // namespace

CLI::Validator maxBytes(std::size_t limit) {
  return CLI::Validator(
      [limit](std::string& value) {
        const std::string problem = lengthProblem(value, limit);
        return problem.empty() ? problem : "the value is " + problem;
      },
      std::string(), "max-bytes");
}

CLI::Option* addJsonFlag(CLI::App* command, bool* json) {
  return command->add_flag("--json", *json, "Print the result as JSON");
}

CLI::Option* addNulFlag(CLI::App* command, bool* nul, CLI::Option* json) {
  CLI::Option* option = command->add_flag(
      "-z,--null", *nul,
      "Print NUL-terminated fields with names exactly as they are (text output shows control "
      "characters in names as escapes)");
  if (json != nullptr) option->excludes(json);
  return option;
}

void setUpCommandLine(CLI::App& app, ToolContext& context) {
  app.description(
      "Works on a vault: a directory tree whose folders and objects the vault library "
      "keeps metadata, versions, locks and lineage for.\n"
      "Paths are vault paths: relative to the vault's root (\".\" is the root) or "
      "absolute inside it. Exit status: 0 success, 1 failure, 2 usage error.");
  // Global options may also follow the command ("qzvault ls --vault DIR").
  app.fallthrough();
  // At most one command; main() reports a missing one, so that an unknown
  // word is named as an unknown command rather than as a missing one.
  app.require_subcommand(0, 1);
  app.set_help_all_flag("--help-all", "Print the help of every command");

  GlobalOptions& global = context.global;
  app.add_option("-C", global.directories,
                 "Run as if started in DIR (repeatable; each is taken from the one before)")
      ->type_name("DIR")
      ->allow_extra_args(false);
  app.add_option("--vault", global.vault,
                 "The vault's root directory (default: $QZVAULT_DIR, else the vault the current "
                 "directory lies in)")
      ->type_name("DIR")
      ->check(maxBytes(kMaxPathBytes));
  app.add_option("--plugins", global.plugins,
                 "Load metadata plug-ins from these directories, separated by \":\" and read in "
                 "order (default: the configuration key BASE/PLUGIN_PATH, else the installed "
                 "plug-in directory)")
      ->type_name("DIRS")
      ->check(maxBytes(kMaxPathBytes))
      ->check(checkPluginDirectories);
  app.add_option("--log-level", global.logLevel,
                 "Print the library's log events of level N (1 trace .. 6 fatal) and above "
                 "on stderr")
      ->type_name("N")
      ->check(CLI::Range(1, 6));
  app.add_option("--set", global.settings,
                 "Set a configuration option for this run (repeatable), for example a "
                 "macro value used by impact analysis (key " + limitText(kMaxNameBytes) +
                     ", value " + limitText(kMaxValueBytes) + ")")
      ->type_name("KEY=VALUE")
      ->check(checkSetting);

  addVaultCommands(app, context);
  addBrowseCommands(app, context);
  addTreeChangeCommands(app, context);
  addAttributeCommands(app, context);
  addObjectCommands(app, context);
  addHistoryCommands(app, context);
  addImpactCommands(app, context);
  addLineageCommands(app, context);
  addDemoCommand(app, context);
  addCheckCommand(app, context);
  addConfigCommand(app, context);
  addLocksCommands(app, context);
  addHelpCommand(app, context);
  cleanHelpText(app);
}

}  // namespace qzvtool
