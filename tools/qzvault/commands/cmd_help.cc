// help and --version, and the help text itself: labels and option columns
// written for people rather than as the parser names its own types.
#include <cctype>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "output.h"
#include "qzvault/qzvault.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// Help text for people rather than as the parser names its own types:
// arguments by their upper-case names ("PATH", "COMMAND ..."), options with
// the name of their value only ("--log-level N", not "N:INT in [1 - 6]"),
// and none of the parser's notes ("REQUIRED", "Excludes: --null"): the
// usage line and the descriptions say that.
class HelpFormatter : public CLI::Formatter {
 public:
  // An argument by the value name it was given ("PATH", "PATH@N"), or its
  // own name in capitals where it has only the parser's ("TEXT").
  std::string make_option_name(const CLI::Option* option, bool positional) const override {
    if (!positional) return CLI::Formatter::make_option_name(option, positional);
    std::string name = option->get_type_name();
    const bool parserName = name.empty() || name == "TEXT" || name.find(':') != std::string::npos ||
                            name == "INT" || name == "UINT" || name == "FLOAT";
    if (!parserName) return name;
    name = option->get_name(true, false);
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
  }

  // An argument in the usage line: in brackets when it may be left out,
  // with "..." when it may be repeated.
  std::string make_option_usage(const CLI::Option* option) const override {
    std::string usage = make_option_name(option, true);
    if (option->get_expected_max() >= CLI::detail::expected_max_vector_size) usage += "...";
    return option->get_required() ? usage : "[" + usage + "]";
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    if (option->get_type_size() == 0) return std::string();  // a flag takes no value
    const bool repeated = option->get_expected_max() >= CLI::detail::expected_max_vector_size;
    if (!option->nonpositional()) return repeated ? " ..." : "";
    std::string value = option->get_type_name();
    const std::size_t colon = value.find(':');
    if (colon != std::string::npos) value.erase(colon);
    if (value.empty()) return std::string();
    return " " + value + (repeated ? " ..." : "");
  }
};

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

// Every command gets the formatter (a command copies its parent's when it is
// made, so the ones made already need it too), and the parser's
// "Subcommands" heading becomes "Commands".
void useFormatter(CLI::App* app, const std::shared_ptr<HelpFormatter>& formatter) {
  app->formatter(formatter);
  for (CLI::App* command : app->get_subcommands([](CLI::App*) { return true; })) {
    command->group("Commands");
    useFormatter(command, formatter);
  }
}

// What `help --json` says of a command: its usage, description, arguments,
// options and sub-commands, as the text help says them.
Json commandJson(CLI::App* command, const std::string& usage) {
  Json arguments = Json::array();
  Json options = Json::array();
  for (const CLI::Option* option : command->get_options()) {
    const HelpFormatter words;
    std::string value = words.make_option_opts(option);
    if (!value.empty()) value.erase(0, 1);  // the blank before it
    if (!option->nonpositional()) {
      arguments.push_back(Json{{"name", words.make_option_name(option, true)},
                               {"required", option->get_required()},
                               {"repeated", value == "..."},
                               {"description", option->get_description()}});
      continue;
    }
    Json names = Json::array();
    for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    options.push_back(Json{{"names", names},
                           {"value", option->get_type_size() == 0 || value.empty() ? Json(nullptr) : Json(value)},
                           {"description", option->get_description()}});
  }
  Json commands = Json::array();
  for (const CLI::App* sub : command->get_subcommands([](CLI::App*) { return true; })) {
    commands.push_back(Json{{"name", sub->get_name()}, {"description", sub->get_description()}});
  }
  return Json{{"command", usage},
              {"description", command->get_description()},
              {"arguments", arguments},
              {"options", options},
              {"commands", commands}};
}

}  // namespace

std::string versionText() {
  return std::string("qzvault (") + getVaultVersion() + ")";
}

void addHelpCommand(CLI::App& app, ToolContext& context) {
  app.set_version_flag("--version", [] { return versionText(); },
                       "Print the version of the tool and its library, then exit");

  auto words = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  CLI::App* help = app.add_subcommand(
      "help", "Print the help of the tool, or of COMMAND (for example: qzvault help attr set)");
  help->add_option("COMMAND", *words, "The command whose help to print")->type_name("COMMAND");
  addJsonFlag(help, json.get());
  CLI::App* root = &app;
  help->callback([&context, root, words, json] {
    context.action = [root, words, json] {
      CLI::App* command = findCommand(root, *words);
      if (command == nullptr) {
        std::string name;
        for (const std::string& word : *words) name += (name.empty() ? "" : " ") + word;
        failUsage("unknown command '" + name + "' (see qzvault --help)");
      }
      std::string usage = "qzvault";
      for (const std::string& word : *words) usage += " " + word;
      if (*json) {
        printJson(commandJson(command, usage));
        return;
      }
      std::cout << command->get_formatter()->make_help(command, usage, CLI::AppFormatMode::Normal);
    };
  });
}

void cleanHelpText(CLI::App& app) {
  auto formatter = std::make_shared<HelpFormatter>();
  formatter->label("SUBCOMMAND", "COMMAND");
  formatter->label("SUBCOMMANDS", "COMMANDS");
  formatter->label("Positionals", "Arguments");
  formatter->column_width(32);
  useFormatter(&app, formatter);
}

}  // namespace qzvtool
