// config: the configuration the tool runs with, and where each part of it
// came from: the operator's file (and why it could not be read), every option
// with its origin, and the plug-in directory with the reason it was chosen.
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "cli.h"
#include "output.h"
#include "plugin_dir.h"
#include "qzbase/config.h"
#include "session.h"
#include "tool_error.h"
#include "vault_location.h"

namespace qzvtool {
namespace {

struct ConfigOption {
  std::string key;
  std::string value;
  std::string origin;
};

std::vector<ConfigOption> effectiveOptions() {
  QzbConfigOptions* config = qzbGetConfigOptions(nullptr);
  std::vector<ConfigOption> options;
  std::istringstream names(text(config->getOptionNames()));
  for (std::string key; std::getline(names, key);) {
    QzbString value;
    if (!config->getOption(QzbString(key.c_str()), &value, 0)) continue;
    options.push_back(ConfigOption{key, text(value), text(config->getOptionOrigin(QzbString(key.c_str())))});
  }
  return options;
}

void runConfig(const GlobalOptions& global, bool json) {
  applySettings(global.settings);
  QzbString origin;
  QzbString problem;
  const QzbString file = qzbGetConfigFileState(&origin, &problem);
  const PluginDirectory plugins = applyPluginDirectory(global.plugins);
  const std::vector<ConfigOption> options = effectiveOptions();
  // The vault a command would work on here, when there is one.
  std::string root;
  std::string foundBy;
  try {
    const VaultLocation location = locateVault(global);
    root = location.root;
    foundBy = location.how;
  } catch (const ToolError&) {
  }

  if (json) {
    Json fileJson(nullptr);
    if (!file.isNull()) {
      fileJson = Json{{"path", text(file)}, {"origin", text(origin)}, {"problem", jsonText(problem)}};
    }
    Json list = Json::array();
    for (const ConfigOption& option : options) {
      list.push_back(Json{{"key", option.key}, {"value", option.value}, {"origin", option.origin}});
    }
    printJson(Json{{"vault", root.empty() ? Json(nullptr) : Json{{"root", root}, {"foundBy", foundBy}}},
                   {"file", fileJson},
                   {"options", list},
                   {"pluginDirectory", Json{{"path", plugins.path}, {"source", plugins.source}}}});
    return;
  }
  TextTable head;
  head.addRow({"Vault:", root.empty() ? "(none here)" : root + " (" + foundBy + ")"});
  std::string fileLine = "(none)";
  if (!file.isNull()) {
    fileLine = text(file) + " (" + text(origin) + ")";
    if (!problem.isNull()) fileLine += "; not read whole: " + oneLine(text(problem));
  }
  head.addRow({"Configuration file:", fileLine});
  head.addRow({"Plug-in directory:", plugins.path + " (" + plugins.source + ")"});
  head.addRow({"Options:", options.empty() ? "(none)" : ""});
  head.print(std::cout);
  TextTable table;
  for (const ConfigOption& option : options) table.addRow({option.key, option.value, option.origin});
  table.print(std::cout, "  ");
}

}  // namespace

void addConfigCommand(CLI::App& app, ToolContext& context) {
  auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand(
      "config",
      "Show the configuration in force: the vault found from here, the file read (QZ_CONFIG_FILE, else "
      "$XDG_CONFIG_HOME/qzvault/config, else /etc/qzvault/config), every option with where it "
      "came from, and the plug-in directory");
  addJsonFlag(command, json.get());
  command->callback([&context, json] {
    context.action = [&context, json] { runConfig(context.global, *json); };
  });
}

}  // namespace qzvtool
