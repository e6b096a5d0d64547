// locks [list [PATH]] and locks clear FOLDER [--force]: the folder locks of a
// vault (the ".v_lck" files that hosts and this tool take while they change a
// folder), who holds them, and clearing one whose holder has ended.
#include <iostream>
#include <memory>

#include "cli.h"
#include "listing.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

struct LocksOptions {
  std::string path;
  bool force = false;
  bool json = false;
  bool nul = false;
};

struct LockRow {
  std::string folder;
  std::string state;
  std::string holder;
};

// What each state means to the user.
std::string stateText(const std::string& state) {
  if (state == "live") return "held";
  if (state == "ended") return "stale: its process has ended";
  if (state == "elsewhere") return "held on another machine (stale only when old)";
  if (state == "unrecorded") return "held, holder not recorded";
  if (state == "foreign") return "not a lock file";
  if (state == "refused") return "not a lock file (a link or a special file)";
  return state;
}

void collectLocks(VaultSession& session, QzvFolder* folder, const VaultPath& path,
                  std::vector<LockRow>* rows) {
  QzbString holder;
  QzbString state;
  folder->getLockHolder(&holder, &state);
  if (text(state) != "none") rows->push_back(LockRow{path.shown(), text(state), text(holder)});
  Held<QzvItemList> folders = hold(folder->getFolderList());
  if (!folders) failWith(folder->getErrorMessage(), "cannot list the folders of " + path.shown());
  std::vector<VaultPath> children;
  while (folders->next()) {
    VaultPath child;
    if (vaultPathOf(session.root(), text(folders->getValue(1)), &child)) children.push_back(child);
  }
  folders.reset();
  for (const VaultPath& child : children) {
    Held<QzvFolder> childFolder = hold(folder->getChildFolder(QzbString(child.leaf().c_str())));
    if (!childFolder) failWith(folder->getErrorMessage(), "cannot open folder " + child.shown());
    collectLocks(session, childFolder.get(), child, rows);
  }
}

void runList(const GlobalOptions& global, const LocksOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvFolder> folder = session.openFolder(path);
  std::vector<LockRow> rows;
  collectLocks(session, folder.get(), path, &rows);
  if (options.json) {
    Json list = Json::array();
    for (const LockRow& row : rows) {
      list.push_back(Json{{"folder", row.folder},
                          {"state", row.state},
                          {"holder", row.holder.empty() ? Json(nullptr) : Json(row.holder)}});
    }
    printJson(list);
    return;
  }
  if (options.nul) {
    // folder, state, holder (empty when unknown)
    TextTable records;
    for (const LockRow& row : rows) records.addRow({row.folder, row.state, row.holder});
    records.printRecords(std::cout, 3);
    return;
  }
  if (rows.empty()) {
    printLine("No folder of " + path.shown() + " is locked");
    return;
  }
  TextTable table;
  for (const LockRow& row : rows) {
    table.addRow({row.folder, stateText(row.state), row.holder.empty() ? "-" : row.holder});
  }
  table.print(std::cout);
}

void runClear(const GlobalOptions& global, const LocksOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvFolder> folder = session.openFolder(path);
  QzbString holder;
  QzbString state;
  folder->getLockHolder(&holder, &state);
  if (text(state) == "none") {
    if (options.json) {
      printJson(Json{{"folder", path.shown()}, {"cleared", false}, {"holder", nullptr}});
    } else {
      printLine("Folder " + path.shown() + " is not locked");
    }
    return;
  }
  if (!folder->clearLock(options.force)) {
    const std::string hint = text(state) == "foreign" || text(state) == "refused"
                                 ? " (qzvault check --repair moves it aside)"
                                 : " (give --force to remove it anyway)";
    const std::string reason = text(folder->getErrorMessage());
    fail((reason.empty() ? "cannot clear the lock of " + path.shown() : reason) + hint);
  }
  if (options.json) {
    printJson(Json{{"folder", path.shown()},
                   {"cleared", true},
                   {"holder", text(holder).empty() ? Json(nullptr) : Json(text(holder))}});
    return;
  }
  printLine("Cleared the lock of " + path.shown() + (text(holder).empty() ? "" : " held by " + text(holder)));
}

}  // namespace

void addLocksCommands(CLI::App& app, ToolContext& context) {
  auto list = std::make_shared<LocksOptions>();
  CLI::App* locks = app.add_subcommand(
      "locks",
      "List the folder locks of the vault (the locks hosts and this tool hold while they change "
      "a folder) with their holders; 'locks clear' removes one whose holder has ended");
  locks->require_subcommand(0, 1);
  addNulFlag(locks, &list->nul, addJsonFlag(locks, &list->json));
  locks->callback([&context, list, locks] {
    if (locks->get_subcommands().empty()) {
      context.action = [&context, list] { runList(context.global, *list); };
    }
  });

  auto listOptions = std::make_shared<LocksOptions>();
  CLI::App* listCommand =
      locks->add_subcommand("list", "List the locked folders below PATH (default: the root)");
  listCommand->add_option("path", listOptions->path, "The folder to start from")->type_name("PATH");
  addNulFlag(listCommand, &listOptions->nul, addJsonFlag(listCommand, &listOptions->json));
  listCommand->callback([&context, listOptions] {
    context.action = [&context, listOptions] { runList(context.global, *listOptions); };
  });

  auto clear = std::make_shared<LocksOptions>();
  CLI::App* clearCommand = locks->add_subcommand(
      "clear",
      "Remove the lock of FOLDER when its holder has ended (a process of this machine that no "
      "longer runs); --force removes a lock that may still be held");
  clearCommand->add_option("folder", clear->path, "The locked folder")->required()->type_name("FOLDER");
  clearCommand->add_flag("--force", clear->force,
                         "Remove the lock even though its holder may still run (it then loses "
                         "the lock)");
  addJsonFlag(clearCommand, &clear->json);
  clearCommand->callback([&context, clear] {
    context.action = [&context, clear] { runClear(context.global, *clear); };
  });
}

}  // namespace qzvtool
