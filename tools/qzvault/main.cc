// qzvault: the command-line tool of the vault library.
//
// main() parses the command line (usage errors end here with exit status 2),
// then runs the chosen command; a command reports failure by throwing
// ToolError, which main() prints as one line on stderr.
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "cli.h"
#include "output.h"
#include "tool_error.h"

namespace {

// The parser's message, with the unknown command named as such.
std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && app.get_subcommands().empty()) {
    const std::vector<std::string> extras = app.remaining();
    if (!extras.empty()) return "unknown command '" + extras.front() + "' (see qzvault --help)";
  }
  return std::string(error.what()) + " (see --help)";
}

}  // namespace

int main(int argc, char** argv) {
  qzvtool::ToolContext context;
  CLI::App app("qzvault", "qzvault");
  qzvtool::setUpCommandLine(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --help-all are not errors.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
    qzvtool::printError(usageMessage(app, error));
    return qzvtool::kExitUsage;
  }

  if (!context.action) {
    qzvtool::printError("no command given (see qzvault --help)");
    return qzvtool::kExitUsage;
  }
  try {
    context.action();
    std::cout.flush();
    return qzvtool::kExitSuccess;
  } catch (const qzvtool::ToolError& error) {
    // A command that says what it found on stdout (diff) ends without a message.
    if (*error.what() != '\0') qzvtool::printError(error.what());
    return error.exitStatus();
  } catch (const std::exception& error) {
    qzvtool::printError(error.what());
    return qzvtool::kExitFailure;
  }
}
