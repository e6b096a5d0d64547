// check: the vault check of the library (qzvault/check.h), optionally with
// repair. Exit status 0 when nothing is wrong (or everything found was
// repaired), 1 when findings remain, 2 on usage errors.
#include <iostream>
#include <memory>
#include <string>

#include "cli.h"
#include "output.h"
#include "qzvault/check.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

struct CheckOptions {
  bool repair = false;
  bool json = false;
};

void runCheck(const GlobalOptions& global, const CheckOptions& options) {
  VaultSession session(global, vaultDirectoryOption(global), VaultSession::Mode::kRequireVault);
  Held<QzvVaultCheck> checker = hold(session.vault()->getVaultCheck());
  if (!checker) failWith(session.vault()->getErrorMessage(), "cannot make a vault check");
  Held<QzvItemList> findings = hold(checker->check(options.repair));
  if (!findings) failWith(checker->getErrorMessage(), "the vault check failed");

  Json rows = Json::array();
  TextTable table;
  int remaining = 0;
  int repaired = 0;
  while (findings->next()) {
    const std::string kind = text(findings->getValue(QZV_CHECK_COL_KIND));
    const std::string path = session.shown(findings->getValue(QZV_CHECK_COL_PATH));
    const std::string detail = text(findings->getValue(QZV_CHECK_COL_DETAIL));
    const bool fixed = text(findings->getValue(QZV_CHECK_COL_REPAIRED)) == "1";
    if (fixed) {
      ++repaired;
    } else {
      ++remaining;
    }
    rows.push_back(Json{{"kind", kind}, {"path", path}, {"detail", detail}, {"repaired", fixed}});
    table.addRow({fixed ? "repaired" : "found", kind, path, oneLine(detail)});
  }
  findings.reset();

  if (options.json) {
    printJson(Json{{"root", session.root()},
                   {"repair", options.repair},
                   {"findings", rows},
                   {"repaired", repaired},
                   {"remaining", remaining}});
  } else if (table.empty()) {
    printLine("Vault " + session.root() + ": no findings");
  } else {
    table.print(std::cout);
    printLine(std::to_string(repaired) + " repaired, " + std::to_string(remaining) + " remaining");
  }
  if (remaining > 0) {
    throw ToolError(kExitFailure,
                    std::to_string(remaining) + (remaining == 1 ? " finding remains" : " findings remain") +
                        (options.repair ? "" : " (run check --repair to repair what is safe)"));
  }
}

}  // namespace

void addCheckCommand(CLI::App& app, ToolContext& context) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check",
      "Check every metadata database, cached and fixed row, lock file, version file and "
      "lineage edge of the vault; exit status 1 when findings remain");
  command->add_flag("--repair", options->repair,
                    "Repair what is safe: delete stale rows, edges and unused resources, remove "
                    "stale locks and orphan version files, rebuild damaged indexes (a file that "
                    "is not a database is never touched)");
  addJsonFlag(command, &options->json);
  command->callback([&context, options] {
    context.action = [&context, options] { runCheck(context.global, *options); };
  });
}

}  // namespace qzvtool
