// Versions, locks and status of objects: version create|list|rollback, lock,
// unlock and status.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "file_copy.h"
#include "iso_date.h"
#include "listing.h"
#include "output.h"
#include "qzbase/platform.h"
#include "session.h"
#include "tool_error.h"
#include "vault_status.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

struct VersionOptions {
  std::string path;
  std::string from;
  int version = 0;
  bool json = false;
  bool nul = false;
  bool discard = false;
};

struct StatusOptions {
  std::string path;
  bool recursive = false;
  bool json = false;
  bool nulSeparated = false;
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
    printLine("Kept version " + std::to_string(version) + " of " + path.shown());
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
    const std::string when = isoDateTime(date);
    versions.push_back(Json{{"version", version}, {"date", when.empty() ? Json(nullptr) : Json(when)}});
    table.addRow({std::to_string(version), when});
  }
  if (options.json) {
    printJson(Json{{"path", path.shown()}, {"versions", versions}});
  } else if (options.nul) {
    table.printRecords(std::cout, 2);
  } else {
    table.print(std::cout);
  }
}

// The newest version at or below `version` that has a file (gaps are
// skipped, as the library's rollback skips them), or 0.
int existingVersionAtOrBelow(QzvObject* object, int version) {
  for (int k = version; k >= 1; --k) {
    if (!object->getVersionFileName(k, nullptr).isNull()) return k;
  }
  return 0;
}

std::string versionRange(int from, int to) {
  return from == to ? "version " + std::to_string(from)
                    : "versions " + std::to_string(from) + " to " + std::to_string(to);
}

// --discard: the library's rollback. Version N becomes the content; the
// current content and every newer version are dropped.
void discardingRollback(QzvObject* object, const VaultPath& path, int asked, bool json) {
  const int highest = highestVersion(object, path);
  const int restored = existingVersionAtOrBelow(object, asked);
  if (!object->rollbackVersion(asked)) failWith(object->getErrorMessage(), "cannot roll " + path.shown() + " back");
  if (json) {
    printJson(Json{{"path", path.shown()}, {"restored", restored}, {"kept", nullptr}, {"discarded", true}});
    return;
  }
  std::cout << "Rolled " << path.shown() << " back to version " << restored << "; discarded its current content"
            << (highest > restored ? " and " + versionRange(restored + 1, highest) : std::string()) << '\n';
}

// The default: nothing is lost. The current content is kept as the next
// version, then version N's content becomes the object's content again;
// every version stays.
void keepingRollback(QzvObject* object, const VaultPath& path, int asked, bool json) {
  if (asked < 1) fail("Invalid rollback version number");
  const int restored = existingVersionAtOrBelow(object, asked);
  if (restored == 0) fail("No valid file for rollback operation");
  const QzbString restoredFile = object->getVersionFileName(restored, nullptr);
  std::error_code error;
  // Staged under a name of the vault's own (a leading "."), beside the object
  // so that the final rename stays on one file system.
  const fs::path staged = path.parent().absolute + "/.rollback-" + std::to_string(getpid()) + "-" + path.leaf();
  fs::copy_file(text(restoredFile), staged, fs::copy_options::overwrite_existing, error);
  if (error) fail("cannot read version " + std::to_string(restored) + " of " + path.shown() + ": " + error.message());
  if (!object->createVersion()) {
    fs::remove(staged, error);
    failWith(object->getErrorMessage(), "cannot keep the current content of " + path.shown());
  }
  const int kept = highestVersion(object, path);
  fs::rename(staged, path.absolute, error);
  if (error) {
    // Put the kept content back rather than leave the object without one.
    std::error_code ignored;
    fs::rename(text(object->getVersionFileName(kept, nullptr)), path.absolute, ignored);
    fs::remove(staged, ignored);
    fail("cannot roll " + path.shown() + " back: " + error.message());
  }
  if (json) {
    printJson(Json{{"path", path.shown()}, {"restored", restored}, {"kept", kept}, {"discarded", false}});
    return;
  }
  std::cout << "Kept the current content of " << path.shown() << " as version " << kept
            << "; its content is now that of version " << restored << '\n';
}

void runVersionRollback(const GlobalOptions& global, const VersionOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  const auto locks = session.lockFolders({path.parent()});
  Held<QzvObject> object = session.openObject(path);
  if (options.discard) {
    discardingRollback(object.get(), path, options.version, options.json);
  } else {
    keepingRollback(object.get(), path, options.version, options.json);
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

// status of a folder, or of the whole vault: one line (or JSON object, or
// NUL-terminated record) per finding.
void printVaultStatus(const VaultPath& path, bool recursive, const VaultStatus& status, const StatusOptions& options) {
  if (options.json) {
    Json findings = Json::array();
    for (const StatusFinding& finding : status.findings) {
      findings.push_back(Json{{"kind", finding.kind}, {"path", finding.path}, {"detail", finding.detail}});
    }
    printJson(Json{{"path", path.shown()}, {"recursive", recursive}, {"objects", status.objects}, {"findings", findings}});
    return;
  }
  TextTable table;
  for (const StatusFinding& finding : status.findings) table.addRow({finding.kind, finding.path, finding.detail});
  if (options.nulSeparated) {
    table.printRecords(std::cout, 3);
    return;
  }
  table.print(std::cout);
  const std::string objects = std::to_string(status.objects) + (status.objects == 1 ? " object" : " objects");
  if (status.findings.empty()) {
    std::cout << "Nothing locked, read-only, changed since its analysis or stale among " << objects << " of "
              << path.shown() << (recursive && !path.isRoot() ? " and below" : "") << '\n';
  } else {
    std::cout << status.findings.size() << (status.findings.size() == 1 ? " finding" : " findings") << " among "
              << objects << '\n';
  }
}

void runStatus(const GlobalOptions& global, const StatusOptions& options) {
  VaultSession session(global);
  // Without a path the whole vault, wherever in it the tool runs (like git
  // status); a path is read from the current folder like any other.
  const VaultPath path = options.path.empty() ? session.resolve(session.root()) : session.resolve(options.path);
  if (options.path.empty() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    // Without a path the whole vault, folder by folder.
    const bool recursive = options.recursive || options.path.empty();
    printVaultStatus(path, recursive, vaultStatus(session, path, recursive), options);
    return;
  }
  if (options.recursive) failUsage("--recursive needs a folder; " + path.shown() + " is an object");
  if (options.nulSeparated) failUsage("-z lists the findings of a folder; " + path.shown() + " is an object");
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
  createCommand->add_option("--from", create->from, "The object's new content")
      ->type_name("FILE")
      ->check(maxBytes(kMaxPathBytes));
  addJsonFlag(createCommand, &create->json);
  createCommand->callback([&context, create] {
    context.action = [&context, create] { runVersionCreate(context.global, *create); };
  });

  auto list = std::make_shared<VersionOptions>();
  CLI::App* listCommand = version->add_subcommand("list", "List an object's versions with their dates");
  listCommand->add_option("path", list->path, "The object")->required()->type_name("PATH");
  addNulFlag(listCommand, &list->nul, addJsonFlag(listCommand, &list->json));
  listCommand->callback([&context, list] {
    context.action = [&context, list] { runVersionList(context.global, *list); };
  });

  auto rollback = std::make_shared<VersionOptions>();
  CLI::App* rollbackCommand = version->add_subcommand(
      "rollback", "Make the content of version N (or the nearest older one) the object's content "
                  "again, keeping the current content as the next version; --discard drops the "
                  "current content and every version newer than N instead");
  rollbackCommand->add_option("path", rollback->path, "The object")->required()->type_name("PATH");
  // Numbers below 1 reach the library, whose refusal names the number as
  // invalid; numbers beyond int are not read at all.
  rollbackCommand->add_option("version", rollback->version, "The version (a number from 1)")
      ->required()
      ->type_name("N");
  rollbackCommand->add_flag("--discard", rollback->discard,
                            "Drop the current content and the versions newer than N (nothing is kept)");
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

  auto status = std::make_shared<StatusOptions>();
  CLI::App* statusCommand = app.add_subcommand(
      "status", "Show an object's display name, type, read-only flag, lock and versions; for a "
                "folder (--recursive: and below) or, without PATH, the whole vault: the objects "
                "that are locked, read-only or changed since their analysis, and stale lock files");
  statusCommand->add_option("path", status->path, "An object or a folder (default: the whole vault)")
      ->type_name("PATH");
  statusCommand->add_flag("--recursive,-r", status->recursive, "Include the folders below");
  addNulFlag(statusCommand, &status->nulSeparated, addJsonFlag(statusCommand, &status->json));
  statusCommand->callback([&context, status] {
    context.action = [&context, status] { runStatus(context.global, *status); };
  });
}

}  // namespace qzvtool
