// An object's history: log (its versions, newest first, with dates, sizes and
// digests), show (the content of one version) and diff (two versions, or a
// version and the current file, as a unified diff).
#include <iostream>
#include <memory>
#include <sstream>

#include "cli.h"
#include "content_digest.h"
#include "iso_date.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"
#include "unified_diff.h"
#include "version_history.h"

namespace qzvtool {
namespace {

// The digest in a text line: enough digits to tell versions apart at a
// glance; --json gives all of them.
const std::size_t kShortDigest = 16;

struct LogOptions {
  std::string path;
  bool json = false;
  bool nul = false;
};

struct DiffOptions {
  std::string path;
  std::vector<std::string> versions;
  bool json = false;
};

struct ShowOptions {
  std::string argument;  // PATH@N or PATH@current
  bool json = false;
};

// A content's version, date, size and digest, as log gives them.
Json contentJson(const ContentState& state) {
  return Json{{"version", state.version == kCurrentVersion ? Json("current") : Json(state.version)},
              {"date", isoDateTime(state.modified)},
              {"size", state.size},
              {"sha256", sha256OfFile(state.file)}};
}

void runLog(const GlobalOptions& global, const LogOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvObject> object = session.openObject(path);
  const std::vector<ContentState> history = contentHistory(object.get(), path);

  Json versions = Json::array();
  TextTable table;
  TextTable records;  // -z: version, date, size in bytes, full digest
  for (const ContentState& state : history) {
    const std::string digest = sha256OfFile(state.file);
    const std::string date = isoDateTime(state.modified);
    versions.push_back(Json{{"version", state.version == kCurrentVersion ? Json("current") : Json(state.version)},
                            {"date", date},
                            {"size", state.size},
                            {"sha256", digest}});
    table.addRow({versionText(state.version), date, std::to_string(state.size) + (state.size == 1 ? " byte" : " bytes"),
                  "sha256:" + digest.substr(0, kShortDigest)});
    records.addRow({versionText(state.version), date, std::to_string(state.size), digest});
  }
  if (options.json) {
    printJson(Json{{"path", path.shown()}, {"versions", versions}});
  } else if (options.nul) {
    records.printRecords(std::cout, 4);
  } else {
    table.print(std::cout);
  }
}

void runShow(const GlobalOptions& global, const ShowOptions& options) {
  std::string pathText;
  int version = kCurrentVersion;
  splitVersionedPath(options.argument, &pathText, &version);
  VaultSession session(global);
  const VaultPath path = session.resolve(pathText);
  Held<QzvObject> object = session.openObject(path);
  const ContentState state = contentState(object.get(), path, version);
  const std::string content = readContent(state);
  if (options.json) {
    // Text content as it is; other bytes in base64, which JSON carries whole.
    Json document = contentJson(state);
    document["path"] = path.shown();
    const bool text = isValidUtf8(content);
    document["encoding"] = text ? "utf-8" : "base64";
    document["content"] = text ? content : base64(content);
    printJson(document);
    return;
  }
  std::cout.write(content.data(), static_cast<std::streamsize>(content.size()));
  std::cout.flush();
  if (!std::cout) fail("cannot write the content on stdout");
}

void runDiff(const GlobalOptions& global, const DiffOptions& options) {
  if (options.versions.size() > 2) failUsage("diff takes at most two versions");
  int from = -1;
  int to = kCurrentVersion;
  if (!options.versions.empty()) from = parseVersion(options.versions[0], "version");
  if (options.versions.size() == 2) to = parseVersion(options.versions[1], "version");

  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvObject> object = session.openObject(path);
  if (from < 0) {
    // Default: what changed since the newest version was kept.
    from = highestVersion(object.get(), path);
    if (from == 0) fail(path.shown() + " has no versions to compare with (keep one with version create)");
  }
  const ContentState fromState = contentState(object.get(), path, from);
  const ContentState toState = contentState(object.get(), path, to);
  const DiffSide fromSide{fromState.label(path), isoDateTime(fromState.modified), readContent(fromState)};
  const DiffSide toSide{toState.label(path), isoDateTime(toState.modified), readContent(toState)};
  if (options.json) {
    std::ostringstream diff;
    const bool differ = printUnifiedDiff(fromSide, toSide, diff);
    printJson(Json{{"path", path.shown()},
                   {"from", contentJson(fromState)},
                   {"to", contentJson(toState)},
                   {"identical", !differ},
                   {"diff", diff.str()}});
    // The exit status says the same as without --json.
    if (differ) {
      std::cout.flush();
      throw ToolError(kExitFailure, std::string());
    }
    return;
  }
  if (printUnifiedDiff(fromSide, toSide, std::cout)) {
    // Exit status 1 without a message, as diff says that contents differ.
    std::cout.flush();
    throw ToolError(kExitFailure, std::string());
  }
}

}  // namespace

void addHistoryCommands(CLI::App& app, ToolContext& context) {
  auto log = std::make_shared<LogOptions>();
  CLI::App* logCommand = app.add_subcommand(
      "log", "List an object's current content and its versions, newest first, with date, size "
             "and SHA-256 digest");
  logCommand->add_option("path", log->path, "The object")->required()->type_name("PATH");
  addNulFlag(logCommand, &log->nul, addJsonFlag(logCommand, &log->json));
  logCommand->callback([&context, log] {
    context.action = [&context, log] { runLog(context.global, *log); };
  });

  auto show = std::make_shared<ShowOptions>();
  CLI::App* showCommand =
      app.add_subcommand("show", "Write the content of version N of an object (or its current content) on stdout");
  showCommand->add_option("version", show->argument, "The object and its version N (PATH@current: its current content)")->required()->type_name("PATH@N");
  addJsonFlag(showCommand, &show->json);
  showCommand->callback([&context, show] {
    context.action = [&context, show] { runShow(context.global, *show); };
  });

  auto diff = std::make_shared<DiffOptions>();
  CLI::App* diffCommand = app.add_subcommand(
      "diff", "Show how an object changed as a unified diff: from its newest version to its current "
              "content, from version N to the current content, or from N to M. Exit status 1 when "
              "they differ");
  diffCommand->add_option("path", diff->path, "The object")->required()->type_name("PATH");
  diffCommand->add_option("versions", diff->versions, "From version N (default: the newest) to version M (default: the current content); a number or current")
      ->type_name("N [M]")
      ->expected(0, 2);
  addJsonFlag(diffCommand, &diff->json);
  diffCommand->callback([&context, diff] {
    context.action = [&context, diff] { runDiff(context.global, *diff); };
  });
}

}  // namespace qzvtool
