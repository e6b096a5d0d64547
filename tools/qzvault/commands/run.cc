#include "run.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "cli.h"
#include "output.h"
#include "tool_error.h"
#include "warnings.h"

namespace qzvtool {
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

int runCommandLine(int argc, char** argv) {
  // The configuration file is read when the configuration is first asked
  // for; what goes wrong with it is shown, whichever command asks.
  WarningPrinter configurationWarnings(kBaseLogger);
  ToolContext context;
  CLI::App app("qzvault", "qzvault");
  setUpCommandLine(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --help-all are not errors.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
    printError(usageMessage(app, error));
    return kExitUsage;
  }

  if (!context.action) {
    printError("no command given (see qzvault --help)");
    return kExitUsage;
  }
  // -C: the command runs as if started there, like git's.
  for (const std::string& directory : context.global.directories) {
    if (chdir(directory.c_str()) != 0) {
      printError("-C " + directory + ": " + std::strerror(errno));
      return kExitUsage;
    }
  }
  try {
    context.action();
    std::cout.flush();
    return kExitSuccess;
  } catch (const ToolError& error) {
    printError(error.what());
    return error.exitStatus();
  } catch (const std::exception& error) {
    printError(error.what());
    return kExitFailure;
  }
}

}  // namespace qzvtool
