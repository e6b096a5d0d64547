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

// The words of the command that was chosen ("attr set"), or "" when none was.
std::string chosenCommand(const CLI::App& app) {
  std::string words;
  const CLI::App* command = &app;
  for (;;) {
    const std::vector<CLI::App*> chosen = command->get_subcommands();
    if (chosen.empty()) return words;
    command = chosen.front();
    words += (words.empty() ? "" : " ") + command->get_name();
  }
}

// What to run to learn the right usage: the chosen command's help.
std::string seeHelp(const CLI::App& app) {
  const std::string command = chosenCommand(app);
  return command.empty() ? " (see qzvault --help)" : " (see qzvault help " + command + ")";
}

// True when a message already ends in a command to run.
bool saysWhatToRun(const std::string& message) {
  return message.find("(run 'qzvault ") != std::string::npos ||
         message.find("(see qzvault ") != std::string::npos;
}

// The parser's message, said in the tool's own words where the parser's
// would show its internals, with the unknown command named as such.
std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && app.get_subcommands().empty()) {
    const std::vector<std::string> extras = app.remaining();
    if (!extras.empty()) return "unknown command '" + extras.front() + "' (see qzvault --help)";
  }
  std::string message = error.what();
  // "Could not convert: version = abc"
  const std::string convert = "Could not convert: ";
  if (message.compare(0, convert.size(), convert) == 0) {
    const std::string rest = message.substr(convert.size());
    const std::size_t equals = rest.find(" = ");
    if (equals != std::string::npos) {
      message = rest.substr(0, equals) + ": '" + rest.substr(equals + 3) + "' is not a valid value";
    }
  }
  return oneLine(message) + seeHelp(app);
}

// Parses and runs; the exit status before the output is judged.
int parseAndRun(int argc, char** argv) {
  // The configuration file is read when the configuration is first asked
  // for; what goes wrong with it is shown, whichever command asks.
  WarningPrinter configurationWarnings(kBaseLogger);
  ToolContext context;
  CLI::App app("qzvault", "qzvault");
  setUpCommandLine(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help, --help-all and --version are not errors.
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
    // A usage error says what to run to learn the right usage. A command that
    // says what it found on stdout (diff) ends without a message.
    if (error.exitStatus() == kExitUsage) {
      printError(saysWhatToRun(error.what()) ? error.what() : error.what() + seeHelp(app));
    } else if (*error.what() != '\0') {
      printError(error.what());
    }
    return error.exitStatus();
  } catch (const std::exception& error) {
    printError(error.what());
    return kExitFailure;
  }
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  // Whatever the outcome, the status passes through finishOutput, so that
  // output that could not be written is never a success.
  startOutput();
  return finishOutput(parseAndRun(argc, argv));
}

}  // namespace qzvtool
