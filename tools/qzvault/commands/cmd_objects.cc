// Versions, locks and status of objects: version create|list|rollback, lock,
// unlock and status.
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "file_copy.h"
#include "listing.h"
#include "output.h"
#include "qzbase/platform.h"
#include "session.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

struct VersionOptions {
  std::string path;
  std::string from;
  int version = 0;
  bool json = false;
};

struct PathOptions {
  std::string path;
  bool json = false;
};

int highestVersion(QzvObject* object, const VaultPath& path) {
  const int highest = object->getHighestVersion();
  if (highest < 0) failWith(object->getErrorMessage(), "cannot read the versions of " + path.shown());
  return highest;
}

void runVersionCreate(const GlobalOptions& global, const VersionOptions& options) {
  std::error_code error;
  if (!options.from.empty() && !fs::is_regular_file(options.from, error)) {
    failUsage("version create: --from " + options.from + " is not a file");
  }
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  const auto locks = session.lockFolders({path.parent()});
  Held<QzvObject> object = session.openObject(path);
  if (!object->createVersion()) failWith(object->getErrorMessage(), "cannot version " + path.shown());
  // The library moved the file aside; the object needs content again: the new
  // content, or a copy of what was just kept. The copy appears whole or not
  // at all; a crash before it leaves the object to its newest version, which
  // the vault check gives back.
  const int version = highestVersion(object.get(), path);
  const QzbString kept = object->getVersionFileName(version, nullptr);
  const std::string source = options.from.empty() ? text(kept) : options.from;
  try {
    copyIntoPlace(source, path.absolute);
  } catch (const ToolError& failure) {
    // Put the kept file back rather than leave the object without one.
    np_fio_rename_noreplace(text(kept).c_str(), path.absolute.c_str());
    fail("cannot write the new content of " + path.shown() + ": " + failure.what());
  }
  if (options.json) {
    printJson(Json{{"path", path.shown()}, {"version", version}});
  } else {
    std::cout << "Kept version " << version << " of " << path.shown() << '\n';
  }
}

void runVersionList(const GlobalOptions& global, const VersionOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvObject> object = session.openObject(path);
  const int highest = highestVersion(object.get(), path);
  Json versions = Json::array();
  TextTable table;
  for (int version = 1; version <= highest; ++version) {
    QzbDate date;
    // Numbers without a file (gaps) are skipped.
    if (object->getVersionFileName(version, &date).isNull()) continue;
    versions.push_back(Json{{"version", version}, {"date", jsonText(date.asString())}});
    table.addRow({std::to_string(version), text(date.asString())});
  }
  if (options.json) {
    printJson(Json{{"path", path.shown()}, {"versions", versions}});
  } else {
    table.print(std::cout);
  }
}

void runVersionRollback(const GlobalOptions& global, const VersionOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  const auto locks = session.lockFolders({path.parent()});
  Held<QzvObject> object = session.openObject(path);
  if (!object->rollbackVersion(options.version)) {
    failWith(object->getErrorMessage(), "cannot roll " + path.shown() + " back");
  }
  if (options.json) {
    printJson(Json{{"path", path.shown()}, {"rolledBackTo", options.version},
                   {"versions", highestVersion(object.get(), path)}});
  }
}

// The login name the library records in a lock this process takes.
std::string currentUser() {
  char name[256] = "";
  if (np_osinf_user(name, sizeof name) != 0) return std::string();
  name[sizeof name - 1] = '\0';
  return name;
}

// The user named by the object's lock, or "" when the attribute cannot be read.
std::string lockOwner(QzvObject* object) {
  Held<QzvAttribute> owner = hold(object->getAttribute(QzbString("_LOCKEDUSER", true)));
  return owner ? text(owner->getSingletonValue()) : std::string();
}

void runLock(const GlobalOptions& global, const std::string& argument, bool lock, bool force,
             bool json) {
  VaultSession session(global);
  const VaultPath path = session.resolve(argument);
  // The lock row is tested and then written: the folder stays locked in
  // between, so that of several users locking at once exactly one succeeds.
  const auto locks = session.lockFolders({path.parent()});
  Held<QzvObject> object = session.openObject(path);
  bool locked = false;
  if (!object->getLockedStatus(&locked)) {
    failWith(object->getErrorMessage(), "cannot read the lock of " + path.shown());
  }
  // The library records a second lock beside the first; a lock that some
  // user already holds is refused here, so that it means something.
  if (lock && locked) fail(path.shown() + " is already locked by " + lockOwner(object.get()));
  // The library lets anyone unlock; the tool removes another user's lock only
  // when asked to in so many words.
  if (!lock && locked && !force) {
    const std::string owner = lockOwner(object.get());
    if (owner != currentUser()) {
      fail(path.shown() + " is locked by " + owner + ", not by you (run 'qzvault unlock --force " +
           argument + "' to remove the lock all the same)");
    }
  }
  if (!object->setLockedStatus(lock)) {
    failWith(object->getErrorMessage(), std::string("cannot ") + (lock ? "lock " : "unlock ") + path.shown());
  }
  if (json) {
    printJson(Json{{"path", path.shown()},
                   {"locked", lock},
                   {"lockedBy", lock ? Json(lockOwner(object.get())) : Json(nullptr)}});
  }
}

void runStatus(const GlobalOptions& global, const PathOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvObject> object = session.openObject(path);

  bool locked = false;
  std::string lockedBy;
  if (object->getLockedStatus(&locked)) {
    if (locked) lockedBy = lockOwner(object.get());
  } else {
    // The library does not read the lock of a folder it cannot write; the
    // lock row, read as the attribute it is, says the same to a reader.
    Held<QzvAttribute> owner = hold(object->getAttribute(QzbString("_LOCKEDUSER", true)));
    if (!owner) failWith(object->getErrorMessage(), "cannot read the lock of " + path.shown());
    lockedBy = text(owner->getSingletonValue());
    locked = !lockedBy.empty();
  }
  const int versions = highestVersion(object.get(), path);
  ObjectEntry listed;
  Held<QzvFolder> folder = session.openFolder(path.parent());
  for (const ObjectEntry& entry : listFolder(session, folder.get(), path.parent(), true).objects) {
    if (entry.path.relative == path.relative) listed = entry;
  }

  if (options.json) {
    printJson(Json{{"path", path.shown()},
                   {"name", text(object->getName())},
                   {"type", listed.type.empty() ? Json(nullptr) : Json(listed.type)},
                   {"readOnly", listed.readOnly},
                   {"locked", locked},
                   {"lockedBy", locked ? Json(lockedBy) : Json(nullptr)},
                   {"versions", versions}});
    return;
  }
  TextTable table;
  table.addRow({"Object:", path.shown()});
  table.addRow({"Name:", text(object->getName())});
  table.addRow({"Type:", listed.type.empty() ? "-" : listed.type});
  table.addRow({"Read-only:", listed.readOnly ? "yes" : "no"});
  table.addRow({"Locked:", locked ? "yes, by " + lockedBy : "no"});
  table.addRow({"Versions:", std::to_string(versions)});
  table.print(std::cout);
}

}  // namespace

void addObjectCommands(CLI::App& app, ToolContext& context) {
  CLI::App* version = app.add_subcommand("version", "Keep, list and roll back numbered versions of an object");
  version->require_subcommand(1);

  auto create = std::make_shared<VersionOptions>();
  CLI::App* createCommand = version->add_subcommand(
      "create", "Keep the object's current content as its next version; the object then holds "
                "the content of --from, or the same content");
  createCommand->add_option("path", create->path, "The object")->required()->type_name("PATH");
  createCommand->add_option("--from", create->from, "The object's new content")->type_name("FILE");
  addJsonFlag(createCommand, &create->json);
  createCommand->callback([&context, create] {
    context.action = [&context, create] { runVersionCreate(context.global, *create); };
  });

  auto list = std::make_shared<VersionOptions>();
  CLI::App* listCommand = version->add_subcommand("list", "List an object's versions with their dates");
  listCommand->add_option("path", list->path, "The object")->required()->type_name("PATH");
  addJsonFlag(listCommand, &list->json);
  listCommand->callback([&context, list] {
    context.action = [&context, list] { runVersionList(context.global, *list); };
  });

  auto rollback = std::make_shared<VersionOptions>();
  CLI::App* rollbackCommand = version->add_subcommand(
      "rollback", "Make version N (or the nearest older one) the object's content, dropping "
                  "every newer version");
  rollbackCommand->add_option("path", rollback->path, "The object")->required()->type_name("PATH");
  rollbackCommand->add_option("version", rollback->version, "The version")->required()->type_name("N");
  addJsonFlag(rollbackCommand, &rollback->json);
  rollbackCommand->callback([&context, rollback] {
    context.action = [&context, rollback] { runVersionRollback(context.global, *rollback); };
  });

  for (const bool lock : {true, false}) {
    auto path = std::make_shared<std::string>();
    auto force = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(
        lock ? "lock" : "unlock",
        lock ? "Lock an object in your name (an advisory lock)"
             : "Remove your lock on an object (another user's only with --force); the file "
               "becomes read-only");
    command->add_option("path", *path, "The object")->required()->type_name("PATH");
    if (!lock) command->add_flag("--force", *force, "Remove the lock whoever holds it");
    addJsonFlag(command, json.get());
    command->callback([&context, path, lock, force, json] {
      context.action = [&context, path, lock, force, json] {
        runLock(context.global, *path, lock, *force, *json);
      };
    });
  }

  auto status = std::make_shared<PathOptions>();
  CLI::App* statusCommand = app.add_subcommand(
      "status", "Show an object's display name, type, read-only flag, lock and versions");
  statusCommand->add_option("path", status->path, "The object")->required()->type_name("PATH");
  addJsonFlag(statusCommand, &status->json);
  statusCommand->callback([&context, status] {
    context.action = [&context, status] { runStatus(context.global, *status); };
  });
}

}  // namespace qzvtool
