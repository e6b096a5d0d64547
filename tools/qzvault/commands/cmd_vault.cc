// init and info: making a directory a vault, and what the tool knows of one.
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"
#include "vault_location.h"
#include "vault_uuid.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

struct InitOptions {
  std::string uuid;
  bool json = false;
};

// The vault's UUID, or "" when none is stored. When it cannot be read, false
// with the library's reason in *problem.
bool readUuid(QzvVault* vault, std::string* uuid, std::string* problem) {
  const QzbString value = vault->getUUID();
  *uuid = text(value);
  if (value.isNull() && !vault->getErrorMessage().isEmpty()) {
    *problem = text(vault->getErrorMessage());
    return false;
  }
  return true;
}

std::string storedUuid(QzvVault* vault) {
  std::string uuid;
  std::string problem;
  if (!readUuid(vault, &uuid, &problem)) fail(problem);
  return uuid;
}

void runInit(const GlobalOptions& global, const InitOptions& options) {
  if (!options.uuid.empty()) {
    if (!isUuid(options.uuid)) failUsage("--uuid: '" + options.uuid + "' is not a UUID");
  }
  std::string how;
  const std::string directory = directoryToMake(global, &how);
  // A folder of a vault made a vault would get a lineage store of its own.
  checkNotInsideAnotherVault(directory);
  std::error_code error;
  if (!fs::exists(directory, error)) {
    fs::create_directories(directory, error);
    if (error) fail("cannot create " + directory + ": " + error.message());
  }
  VaultSession session(global, directory);
  const auto locks = session.lockFolders({session.resolve(".")});

  const std::string existing = storedUuid(session.vault());
  std::string uuid = existing;
  bool stored = false;
  if (!options.uuid.empty() || existing.empty()) {
    uuid = options.uuid.empty() ? newVaultUuid() : options.uuid;
    if (!session.vault()->resetUUID(QzbString(uuid.c_str()))) {
      failWith(session.vault()->getErrorMessage(), "cannot store the vault's UUID");
    }
    stored = true;
  }
  // The marker is what the tool finds the root by from any folder below it.
  writeVaultMarker(session.root());

  if (options.json) {
    printJson(Json{{"root", session.root()}, {"uuid", uuid}, {"changed", stored}});
  } else if (stored) {
    printLine("Vault " + session.root() + " has the UUID " + uuid);
  } else {
    printLine("Vault " + session.root() + " already has the UUID " + uuid + " (give --uuid to replace it)");
  }
}

// What the vault's file system means for sharing it (docs/sharing.md).
struct FileSystemReport {
  std::string type;
  bool shared = false;
  bool rollbackJournals = true;

  // The vault works across machines only with rollback journals; whether
  // the file server honours POSIX advisory locks cannot be seen from here.
  bool supportedSharedMode() const { return rollbackJournals; }
  std::string describe() const {
    if (!shared) {
      return type + ", local" +
             (rollbackJournals ? "" : " (a metadata database uses write-ahead logging: not fit for sharing)");
    }
    return type + ", shared with other machines: " +
           (rollbackJournals ? "runs in the supported shared mode (rollback journals; the file server must "
                               "honour POSIX advisory locks)"
                             : "NOT in the supported shared mode (a metadata database uses write-ahead "
                               "logging, which does not work across machines)");
  }
};

FileSystemReport fileSystemOf(QzvVault* vault) {
  FileSystemReport report;
  QzbString type;
  if (!vault->getFileSystem(&type, &report.shared, &report.rollbackJournals)) {
    failWith(vault->getErrorMessage(), "cannot examine the vault's file system");
  }
  report.type = text(type);
  return report;
}

void runInfo(const GlobalOptions& global, bool json) {
  VaultSession session(global);
  std::string uuid;
  std::string problem;
  const bool readable = readUuid(session.vault(), &uuid, &problem);
  const FileSystemReport fileSystem = fileSystemOf(session.vault());
  if (json) {
    Json plugins = Json::array();
    for (const PluginInfo& plugin : session.plugins()) {
      plugins.push_back(Json{{"type", plugin.typeName}, {"description", plugin.description}});
    }
    printJson(Json{{"library", getVaultVersion()},
                   {"root", session.root()},
                   {"uuid", uuid.empty() ? Json(nullptr) : Json(uuid)},
                   {"uuidProblem", readable ? Json(nullptr) : Json(problem)},
                   {"pluginDirectory", session.pluginDirectory().path},
                   {"pluginDirectorySource", session.pluginDirectory().source},
                   {"plugins", plugins},
                   {"fileSystem", Json{{"type", fileSystem.type},
                                       {"shared", fileSystem.shared},
                                       {"rollbackJournals", fileSystem.rollbackJournals},
                                       {"supportedSharedMode", fileSystem.supportedSharedMode()}}}});
    return;
  }
  TextTable table;
  table.addRow({"Library:", getVaultVersion()});
  table.addRow({"Vault:", session.root()});
  table.addRow({"UUID:", !readable       ? "(cannot be read: " + oneLine(problem) + ")"
                        : uuid.empty() ? std::string("(none)")
                                       : uuid});
  table.addRow({"File system:", fileSystem.describe()});
  table.addRow({"Plug-ins:", session.pluginDirectory().path + " (" +
                                 session.pluginDirectory().source + ")"});
  table.print(std::cout);
  TextTable plugins;
  for (const PluginInfo& plugin : session.plugins()) {
    plugins.addRow({plugin.typeName, plugin.description});
  }
  if (plugins.empty()) {
    printLine("  (no plug-ins loaded)");
  } else {
    plugins.print(std::cout, "  ");
  }
}

}  // namespace

void addVaultCommands(CLI::App& app, ToolContext& context) {
  auto init = std::make_shared<InitOptions>();
  CLI::App* initCommand = app.add_subcommand(
      "init", "Make the directory (created if missing) a vault with a UUID of its own");
  initCommand->add_option("--uuid", init->uuid,
                          "Store this UUID (replacing any stored one) instead of a new one")
      ->type_name("UUID");
  addJsonFlag(initCommand, &init->json);
  initCommand->callback([&context, init] {
    context.action = [&context, init] { runInit(context.global, *init); };
  });

  auto infoJson = std::make_shared<bool>(false);
  CLI::App* infoCommand =
      app.add_subcommand("info", "Show the library version, the vault's root and UUID, and the loaded plug-ins");
  addJsonFlag(infoCommand, infoJson.get());
  infoCommand->callback([&context, infoJson] {
    context.action = [&context, infoJson] { runInfo(context.global, *infoJson); };
  });
}

}  // namespace qzvtool
