// help and --version, and the help text itself: labels and option columns
// written for people rather than as the parser names its own types.
#include <iostream>
#include <string>
#include <vector>

#include "cli.h"
#include "output.h"
#include "qzvault/qzvault.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// The parser shows an option's value as its type name followed by whatever
// its checks add ("N:INT in [1 - 6]"); the description already says what is
// allowed, so only the name the option was given stays, with "..." for an
// option that may be repeated.
void cleanOptionColumns(CLI::App* app) {
  for (CLI::Option* option : app->get_options()) {
    if (option->get_type_size() == 0) continue;  // a flag takes no value
    std::string name = option->get_type_name();
    const std::size_t colon = name.find(':');
    if (colon != std::string::npos) name.erase(colon);
    if (name.empty()) continue;
    if (option->get_expected_max() == CLI::detail::expected_max_vector_size) name += " ...";
    option->option_text(name);
  }
  for (CLI::App* command : app->get_subcommands([](CLI::App*) { return true; })) {
    cleanOptionColumns(command);
  }
}

// The command named by the words of `help WORDS...` ("attr set" is a command
// of attr), or nullptr when there is none of that name.
CLI::App* findCommand(CLI::App* app, const std::vector<std::string>& words) {
  CLI::App* command = app;
  for (const std::string& word : words) {
    CLI::App* next = nullptr;
    try {
      next = command->get_subcommand(word);
    } catch (const CLI::OptionNotFound&) {
      return nullptr;
    }
    if (next == nullptr) return nullptr;
    command = next;
  }
  return command;
}

}  // namespace

std::string versionText() {
  return std::string("qzvault (") + getVaultVersion() + ")";
}

void addHelpCommand(CLI::App& app, ToolContext& context) {
  app.set_version_flag("--version", [] { return versionText(); },
                       "Print the version of the tool and its library, then exit");

  auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* help = app.add_subcommand(
      "help", "Print the help of the tool, or of COMMAND (for example: qzvault help attr set)");
  help->add_option("COMMAND", *words, "The command whose help to print")->type_name("COMMAND");
  CLI::App* root = &app;
  help->callback([&context, root, words] {
    context.action = [root, words] {
      CLI::App* command = findCommand(root, *words);
      if (command == nullptr) {
        std::string name;
        for (const std::string& word : *words) name += (name.empty() ? "" : " ") + word;
        failUsage("unknown command '" + name + "' (see qzvault --help)");
      }
      std::string usage = "qzvault";
      for (const std::string& word : *words) usage += " " + word;
      std::cout << command->get_formatter()->make_help(command, usage, CLI::AppFormatMode::Normal);
    };
  });
}

void cleanHelpText(CLI::App& app) {
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.get_formatter()->label("SUBCOMMANDS", "COMMANDS");
  app.get_formatter()->label("Positionals", "Arguments");
  cleanOptionColumns(&app);
  // The parser files commands under "Subcommands".
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    command->group("Commands");
    for (CLI::App* sub : command->get_subcommands([](CLI::App*) { return true; })) sub->group("Commands");
  }
}

}  // namespace qzvtool
