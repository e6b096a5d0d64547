// The command line: the shared options (global_options.h), the slot in which
// the chosen command leaves its action, and the functions that add each group
// of commands to the parser.
//
// Parsing only records what was asked; main() runs the action afterwards, so
// that a usage error is always found before the library is touched.
#ifndef QZVAULT_TOOL_COMMANDS_CLI_H_
#define QZVAULT_TOOL_COMMANDS_CLI_H_

#include <functional>

#include <CLI/CLI.hpp>

#include "global_options.h"
#include "input_limits.h"

namespace qzvtool {

struct ToolContext {
  GlobalOptions global;
  // Set by the parser callback of the command that was chosen.
  std::function<void()> action;
};

// Builds the whole parser: global options and every command.
void setUpCommandLine(CLI::App& app, ToolContext& context);

// The command groups (one source file each).
void addVaultCommands(CLI::App& app, ToolContext& context);       // init, info
void addBrowseCommands(CLI::App& app, ToolContext& context);      // ls, tree
void addTreeChangeCommands(CLI::App& app, ToolContext& context);  // mkdir ... rm
void addAttributeCommands(CLI::App& app, ToolContext& context);   // attr
void addObjectCommands(CLI::App& app, ToolContext& context);      // version, lock ...
void addHistoryCommands(CLI::App& app, ToolContext& context);     // log, show, diff
void addImpactCommands(CLI::App& app, ToolContext& context);      // analyze ... clean
void addLineageCommands(CLI::App& app, ToolContext& context);     // lineage, graph
void addDemoCommand(CLI::App& app, ToolContext& context);         // demo
void addCheckCommand(CLI::App& app, ToolContext& context);        // check
void addConfigCommand(CLI::App& app, ToolContext& context);       // config
void addLocksCommands(CLI::App& app, ToolContext& context);       // locks
void addHelpCommand(CLI::App& app, ToolContext& context);         // help, --version

// Makes the help text read as written for people: "COMMAND" rather than the
// parser's "SUBCOMMAND", and option values named without the type and range
// annotations the parser adds. Call once every command has been added.
void cleanHelpText(CLI::App& app);

// "qzvault (<library version>)", printed by --version.
std::string versionText();

// A validator that refuses a value longer than `limit` bytes (a usage error
// naming the option and the limit; see input_limits.h).
CLI::Validator maxBytes(std::size_t limit);

// Adds the --json flag to a command that prints data.
CLI::Option* addJsonFlag(CLI::App* command, bool* json);
// Adds -z (--null) to a listing: NUL-separated records, names exactly as
// they are (TextTable::printRecords). Excludes `json` when given.
CLI::Option* addNulFlag(CLI::App* command, bool* nul, CLI::Option* json = nullptr);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_COMMANDS_CLI_H_
