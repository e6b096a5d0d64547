// Changes to the tree: mkdir, rmdir, rename, fsrename, mv, add and rm.
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli.h"
#include "file_copy.h"
#include "file_names.h"
#include "listing.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

struct MkdirOptions {
  std::string path;
  bool json = false;
};

struct TwoArguments {
  std::string first;
  std::string second;
  bool json = false;
};

struct PathOptions {
  std::string path;
  bool json = false;
};

struct AddOptions {
  std::string file;
  std::string folder;
  std::string name;
  bool json = false;
};

void runMkdir(const GlobalOptions& global, const MkdirOptions& options) {
  // The last component is a display name, which the library turns into a
  // directory name; only what comes before it is a vault path.
  const std::size_t slash = options.path.rfind('/');
  const std::string parentArgument = slash == std::string::npos ? "." : options.path.substr(0, slash);
  const std::string displayName =
      slash == std::string::npos ? options.path : options.path.substr(slash + 1);
  if (displayName.empty()) failUsage("mkdir: '" + options.path + "' ends without a display name");
  checkLength("mkdir: the display name", displayName, kMaxNameBytes);
  if (displayName == "." || displayName == "..") {
    failUsage("mkdir: '" + displayName + "' is not a display name");
  }

  VaultSession session(global);
  const VaultPath parentPath = session.resolve(parentArgument.empty() ? "/" : parentArgument);
  const auto locks = session.lockFolders({parentPath});
  Held<QzvFolder> parent = session.openFolder(parentPath);
  Held<QzvFolder> created = hold(parent->createFolder(QzbString(displayName.c_str())));
  if (!created) failWith(parent->getErrorMessage(), "cannot create folder " + displayName);
  const std::string shownPath = session.shown(created->getPath());
  const std::string name = text(created->getName());
  if (options.json) {
    printJson(Json{{"path", shownPath}, {"name", name}});
  } else {
    std::string line = "Created folder " + shownPath;
    if (name != VaultPath{shownPath, ""}.leaf()) line += " (display name \"" + name + "\")";
    printLine(line);
  }
}

void runRmdir(const GlobalOptions& global, const PathOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  if (path.isRoot()) failUsage("rmdir: the vault's root cannot be removed");
  const auto locks = session.lockFolders({path.parent(), path});
  Held<QzvFolder> folder = session.openFolder(path);
  if (!folder->deleteSelf()) failWith(folder->getErrorMessage(), "cannot remove " + path.shown());
  if (options.json) printJson(Json{{"removed", path.shown()}});
}

void runRename(const GlobalOptions& global, const TwoArguments& arguments) {
  if (arguments.second.empty()) failUsage("rename: the new display name is empty");
  VaultSession session(global);
  const VaultPath path = session.resolve(arguments.first);
  const QzbString newName(arguments.second.c_str());
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    const auto locks = session.lockFolders({path});
    Held<QzvFolder> folder = session.openFolder(path);
    if (!folder->renameSelf(newName)) failWith(folder->getErrorMessage(), "cannot rename " + path.shown());
  } else {
    const auto locks = session.lockFolders({path.parent()});
    session.requireReadable(path);
    Held<QzvObject> object = session.openObject(path);
    if (!object->renameSelf(newName)) failWith(object->getErrorMessage(), "cannot rename " + path.shown());
  }
  if (arguments.json) printJson(Json{{"path", path.shown()}, {"name", arguments.second}});
}

void runFsRename(const GlobalOptions& global, const TwoArguments& arguments) {
  checkComponentName(arguments.second, "fsrename: the new name");
  VaultSession session(global);
  const VaultPath path = session.resolve(arguments.first);
  const QzbString newName(arguments.second.c_str());
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    const auto locks = session.lockFolders({path.parent(), path});
    Held<QzvFolder> folder = session.openFolder(path);
    if (!folder->fsRename(newName)) failWith(folder->getErrorMessage(), "cannot rename " + path.shown());
  } else {
    const auto locks = session.lockFolders({path.parent()});
    Held<QzvObject> object = session.openObject(path);
    if (!object->fileRename(newName)) failWith(object->getErrorMessage(), "cannot rename " + path.shown());
  }
  if (arguments.json) {
    const VaultPath parent = path.parent();
    const std::string renamed =
        parent.isRoot() ? arguments.second : parent.relative + "/" + arguments.second;
    printJson(Json{{"previous", path.shown()}, {"path", renamed}});
  }
}

void runMv(const GlobalOptions& global, const TwoArguments& arguments) {
  VaultSession session(global);
  const VaultPath source = session.resolve(arguments.first);
  const VaultPath destination = session.resolve(arguments.second);
  if (source.isRoot()) failUsage("mv: the vault's root cannot be moved");
  const bool movesFolder = session.kindOf(source) == VaultSession::Kind::kFolder;
  if (movesFolder && (destination.relative == source.relative ||
                      destination.relative.rfind(source.relative + "/", 0) == 0)) {
    failUsage("mv: " + source.shown() + " cannot move into itself");
  }
  std::vector<VaultPath> lockedFolders = {source.parent(), destination};
  if (movesFolder) lockedFolders.push_back(source);
  const auto locks = session.lockFolders(lockedFolders);
  Held<QzvFolder> target = session.openFolder(destination);
  if (movesFolder) {
    Held<QzvFolder> folder = session.openFolder(source);
    if (!folder->moveSelf(target.get())) failWith(folder->getErrorMessage(), "cannot move " + source.shown());
  } else {
    Held<QzvObject> object = session.openObject(source);
    if (!object->moveSelf(target.get())) failWith(object->getErrorMessage(), "cannot move " + source.shown());
  }
  if (arguments.json) {
    const std::string moved =
        destination.isRoot() ? source.leaf() : destination.relative + "/" + source.leaf();
    printJson(Json{{"previous", source.shown()}, {"path", moved}});
  }
}

void runAdd(const GlobalOptions& global, const AddOptions& options) {
  std::error_code error;
  if (!fs::is_regular_file(options.file, error)) failUsage("add: " + options.file + " is not a file");
  const FileNameParts parts = splitFileName(fs::path(options.file).filename().string());
  const std::string& base = parts.base;
  const std::string& extension = parts.extension;

  VaultSession session(global);
  const VaultPath folderPath = session.resolve(options.folder);
  const auto locks = session.lockFolders({folderPath});
  Held<QzvFolder> folder = session.openFolder(folderPath);
  QzbString fullPath;
  QzbString fileName;
  const std::string nameForFile = options.name.empty() ? base : options.name;
  if (!folder->getFilenameForNewObject(QzbString(nameForFile.c_str()),
                                       QzbString(extension.c_str()), &fullPath, &fileName)) {
    failWith(folder->getErrorMessage(), "cannot choose a file name for " + nameForFile);
  }
  VaultPath objectPath;
  if (!vaultPathOf(session.root(), text(fullPath), &objectPath)) {
    fail("the library chose a file outside the vault: " + text(fullPath));
  }
  // Whole or not at all, and never over a file that appeared meanwhile.
  copyIntoPlace(options.file, text(fullPath));

  // From here on a failure takes the copy away again, so that nothing is left:
  // neither the file nor the rows that listing the folder cached for it.
  try {
    // The folder's listing tells whether a plug-in read the file, and the
    // display name it found in it.
    std::string listedName;
    std::string listedType;
    for (const ObjectEntry& entry : listFolder(session, folder.get(), folderPath, false).objects) {
      if (entry.path.relative == objectPath.relative) {
        listedName = entry.name;
        listedType = entry.type;
      }
    }
    session.requireReadable(objectPath, listedType);
    const std::string displayName =
        !options.name.empty() ? options.name : !listedName.empty() ? listedName : base;
    Held<QzvObject> object = hold(folder->createObjectFromFile(fileName, QzbString(displayName.c_str())));
    if (!object) failWith(folder->getErrorMessage(), "cannot add " + options.file);
    if (options.json) {
      printJson(Json{{"path", objectPath.shown()}, {"name", text(object->getName())}});
    } else {
      printLine("Added " + objectPath.shown() + " (display name \"" + text(object->getName()) + "\")");
    }
  } catch (...) {
    Held<QzvObject> copy = hold(folder->getChildObject(fullPath));
    fs::remove(text(fullPath), error);
    // Refreshing the object whose file is gone removes its cached rows.
    if (copy) copy->refreshMetadata();
    throw;
  }
}

void runRm(const GlobalOptions& global, const PathOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    failUsage("rm: " + path.shown() + " is a folder (use rmdir)");
  }
  const auto locks = session.lockFolders({path.parent()});
  Held<QzvObject> object = session.openObject(path);
  if (!object->deleteSelf()) failWith(object->getErrorMessage(), "cannot remove " + path.shown());
  if (options.json) printJson(Json{{"removed", path.shown()}});
}

CLI::App* twoArgumentCommand(CLI::App& app, const char* name, const char* help,
                             const char* firstName, const char* firstHelp, const char* secondName,
                             const char* secondHelp, TwoArguments* arguments) {
  CLI::App* command = app.add_subcommand(name, help);
  command->add_option(firstName, arguments->first, firstHelp)->required()->type_name("PATH");
  command->add_option(secondName, arguments->second, secondHelp)->required();
  addJsonFlag(command, &arguments->json);
  return command;
}

}  // namespace

void addTreeChangeCommands(CLI::App& app, ToolContext& context) {
  auto mkdir = std::make_shared<MkdirOptions>();
  CLI::App* mkdirCommand = app.add_subcommand(
      "mkdir", "Create a folder: PATH/DISPLAYNAME makes a sub-folder of PATH whose directory "
               "name the library derives from DISPLAYNAME");
  mkdirCommand->add_option("path", mkdir->path,
                           "The parent folder and the display name (the display name " +
                               limitText(kMaxNameBytes) + ", the whole " + limitText(kMaxPathBytes) +
                               ")")
      ->required()
      ->type_name("PATH/DISPLAYNAME")
      ->check(maxBytes(kMaxPathBytes));
  addJsonFlag(mkdirCommand, &mkdir->json);
  mkdirCommand->callback([&context, mkdir] {
    context.action = [&context, mkdir] { runMkdir(context.global, *mkdir); };
  });

  auto rmdir = std::make_shared<PathOptions>();
  CLI::App* rmdirCommand =
      app.add_subcommand("rmdir", "Remove an empty folder with the vault's own files in it");
  rmdirCommand->add_option("path", rmdir->path, "The folder")->required()->type_name("PATH");
  addJsonFlag(rmdirCommand, &rmdir->json);
  rmdirCommand->callback([&context, rmdir] {
    context.action = [&context, rmdir] { runRmdir(context.global, *rmdir); };
  });

  auto rename = std::make_shared<TwoArguments>();
  CLI::App* renameCommand = twoArgumentCommand(
      app, "rename", "Change the display name of a folder or object (its file name stays)",
      "path", "The folder or object", "newname", "The new display name", rename.get());
  renameCommand->get_option("newname")
      ->description("The new display name (" + limitText(kMaxNameBytes) + ")")
      ->check(maxBytes(kMaxNameBytes));
  renameCommand->callback([&context, rename] {
    context.action = [&context, rename] { runRename(context.global, *rename); };
  });

  auto fsrename = std::make_shared<TwoArguments>();
  CLI::App* fsrenameCommand = twoArgumentCommand(
      app, "fsrename",
      "Rename the directory of a folder, or the file of an object (the display name stays)",
      "path", "The folder or object", "newname", "The new directory or file name", fsrename.get());
  fsrenameCommand->get_option("newname")
      ->description("The new directory or file name (" + limitText(kMaxFileNameBytes) + ")")
      ->check(maxBytes(kMaxFileNameBytes));
  fsrenameCommand->callback([&context, fsrename] {
    context.action = [&context, fsrename] { runFsRename(context.global, *fsrename); };
  });

  auto mv = std::make_shared<TwoArguments>();
  CLI::App* mvCommand = twoArgumentCommand(
      app, "mv", "Move a folder or object into another folder", "source",
      "The folder or object to move", "destination", "The folder to move it into", mv.get());
  mvCommand->get_option("destination")->type_name("PATH");
  mvCommand->callback([&context, mv] {
    context.action = [&context, mv] { runMv(context.global, *mv); };
  });

  auto add = std::make_shared<AddOptions>();
  CLI::App* addCommand = app.add_subcommand(
      "add", "Copy a file into a folder as a new object");
  addCommand->add_option("file", add->file, "The file to copy in (any path, outside the vault too)")
      ->required()
      ->type_name("FILE")
      ->check(maxBytes(kMaxPathBytes));
  addCommand->add_option("folder", add->folder, "The folder that receives it")
      ->required()
      ->type_name("FOLDER");
  addCommand->add_option("--name", add->name,
                         "The object's display name (default: the name the file's plug-in "
                         "reads from it, else the file's base name); the file name is derived "
                         "from it (" + limitText(kMaxNameBytes) + ")")
      ->type_name("DISPLAY")
      ->check(maxBytes(kMaxNameBytes));
  addJsonFlag(addCommand, &add->json);
  addCommand->callback([&context, add] {
    context.action = [&context, add] { runAdd(context.global, *add); };
  });

  auto rm = std::make_shared<PathOptions>();
  CLI::App* rmCommand =
      app.add_subcommand("rm", "Delete an object with its metadata and versions");
  rmCommand->add_option("path", rm->path, "The object")->required()->type_name("PATH");
  addJsonFlag(rmCommand, &rm->json);
  rmCommand->callback([&context, rm] {
    context.action = [&context, rm] { runRm(context.global, *rm); };
  });
}

}  // namespace qzvtool
