// check: the vault check of the library (qzvault/check.h), optionally with
// repair. Every finding is damage or a note (the library says which). Exit
// status 0 when no damage remains (notes are reported but harmless), 1 when
// damage remains, or, with --strict, when any finding remains; 2 on usage
// errors.
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
  bool strict = false;
  bool json = false;
  bool nul = false;
};

std::string counted(int count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

void runCheck(const GlobalOptions& global, const CheckOptions& options) {
  VaultSession session(global);
  Held<QzvVaultCheck> checker = hold(session.vault()->getVaultCheck());
  if (!checker) failWith(session.vault()->getErrorMessage(), "cannot make a vault check");
  Held<QzvItemList> findings = hold(checker->check(options.repair));
  if (!findings) failWith(checker->getErrorMessage(), "the vault check failed");

  Json rows = Json::array();
  TextTable table;
  TextTable records;
  int repaired = 0;
  int damage = 0;  // damage that remains
  int notes = 0;   // notes that remain
  while (findings->next()) {
    const std::string kind = text(findings->getValue(QZV_CHECK_COL_KIND));
    const std::string path = session.shown(findings->getValue(QZV_CHECK_COL_PATH));
    const std::string detail = text(findings->getValue(QZV_CHECK_COL_DETAIL));
    const bool fixed = text(findings->getValue(QZV_CHECK_COL_REPAIRED)) == "1";
    const std::string severity = text(findings->getValue(QZV_CHECK_COL_SEVERITY));
    const bool isNote = severity == QZV_CHECK_SEVERITY_NOTE;
    if (fixed) {
      ++repaired;
    } else if (isNote) {
      ++notes;
    } else {
      ++damage;
    }
    rows.push_back(Json{{"kind", kind},
                        {"severity", isNote ? QZV_CHECK_SEVERITY_NOTE : QZV_CHECK_SEVERITY_DAMAGE},
                        {"path", path},
                        {"detail", detail},
                        {"repaired", fixed}});
    table.addRow({fixed ? "repaired" : "found", isNote ? "note" : "damage", kind, path, oneLine(detail)});
    records.addRow({fixed ? "repaired" : "found", isNote ? "note" : "damage", kind, path, detail});
  }
  findings.reset();

  if (options.json) {
    printJson(Json{{"root", session.root()},
                   {"repair", options.repair},
                   {"strict", options.strict},
                   {"findings", rows},
                   {"repaired", repaired},
                   {"damage", damage},
                   {"notes", notes},
                   {"remaining", damage + notes}});
  } else if (options.nul) {
    // outcome, severity, kind, path, detail; no summary line
    records.printRecords(std::cout, 5);
  } else if (table.empty()) {
    printLine("Vault " + session.root() + ": no findings");
  } else {
    table.print(std::cout);
    printLine(std::to_string(repaired) + " repaired, " + counted(damage, "damage", "damage") +
              " and " + counted(notes, "note", "notes") + " remaining");
  }
  const int failing = damage + (options.strict ? notes : 0);
  if (failing > 0) {
    const std::string what = options.strict ? counted(failing, "finding remains", "findings remain")
                                            : counted(damage, "damage finding remains",
                                                      "damage findings remain");
    throw ToolError(kExitFailure,
                    what + (options.repair ? " that --repair cannot repair"
                                           : "; run 'qzvault check --repair' to repair what is safe"));
  }
}

}  // namespace

void addCheckCommand(CLI::App& app, ToolContext& context) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check",
      "Check every metadata database, cached and fixed row, lock file, version file and "
      "lineage edge of the vault. Each finding is damage or a note; exit status 1 when "
      "damage remains (with --strict: when any finding remains)");
  command->add_flag("--strict", options->strict,
                    "Fail (exit status 1) on notes too: resources that take part in no "
                    "dependency, cached rows older than their file");
  command->add_flag("--repair", options->repair,
                    "Repair what is safe: delete stale rows, edges and unused resources, remove "
                    "stale locks and orphan version files, rebuild damaged indexes (a file that "
                    "is not a database is never touched)");
  addNulFlag(command, &options->nul, addJsonFlag(command, &options->json));
  command->callback([&context, options] {
    context.action = [&context, options] { runCheck(context.global, *options); };
  });
}

}  // namespace qzvtool
