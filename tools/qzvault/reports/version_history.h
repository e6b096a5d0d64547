// An object's content over time, as log, show and diff see it: its numbered
// versions (the files the library keeps in the folder's version directory)
// and its current file, each with its date, size and content digest.
#ifndef QZVAULT_TOOL_REPORTS_VERSION_HISTORY_H_
#define QZVAULT_TOOL_REPORTS_VERSION_HISTORY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "held.h"
#include "qzvault/qzvault.h"
#include "vault_paths.h"

namespace qzvtool {

// Version number 0 stands for the object's current file.
constexpr int kCurrentVersion = 0;

struct ContentState {
  int version = kCurrentVersion;
  std::string file;             // the file that holds the content
  std::int64_t modified = 0;    // its modification time, seconds since the epoch
  std::uint64_t size = 0;       // bytes

  // "PATH@N" or "PATH@current": how the tool names it.
  std::string label(const VaultPath& object) const;
};

// "3" or "current".
std::string versionText(int version);

// Reads "N" (1 or more) or "current"; throws a usage error naming `what`
// otherwise.
int parseVersion(const std::string& text, const std::string& what);

// Splits "PATH@N" / "PATH@current" at its last "@". Throws a usage error when
// there is no "@" or what follows it is not a version.
void splitVersionedPath(const std::string& argument, std::string* path, int* version);

// The highest version number of `object` (0 when it has none). Fails with the
// library's message.
int highestVersion(QzvObject* object, const VaultPath& path);

// The state of version `version` (or of the current file, kCurrentVersion).
// Fails (exit status 1) when there is no such version.
ContentState contentState(QzvObject* object, const VaultPath& path, int version);

// The current file and every version, newest first (numbers without a file
// are gaps and are left out).
std::vector<ContentState> contentHistory(QzvObject* object, const VaultPath& path);

// The whole content of `state`'s file. Fails when it cannot be read.
std::string readContent(const ContentState& state);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_VERSION_HISTORY_H_
