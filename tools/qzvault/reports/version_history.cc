#include "version_history.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "output.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

const char kCurrent[] = "current";

bool statFile(const std::string& file, ContentState* state) {
  struct stat status;
  if (stat(file.c_str(), &status) != 0) return false;
  state->modified = static_cast<std::int64_t>(status.st_mtime);
  state->size = static_cast<std::uint64_t>(status.st_size);
  return true;
}

}  // namespace

std::string versionText(int version) { return version == kCurrentVersion ? kCurrent : std::to_string(version); }

std::string ContentState::label(const VaultPath& object) const { return object.shown() + "@" + versionText(version); }

int parseVersion(const std::string& text, const std::string& what) {
  if (text == kCurrent) return kCurrentVersion;
  const bool digits = !text.empty() && text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
  if (!digits || std::stoi(text) < 1) {
    failUsage(what + " '" + text + "' is not a version: give a number from 1, or current");
  }
  return std::stoi(text);
}

void splitVersionedPath(const std::string& argument, std::string* path, int* version) {
  const std::size_t at = argument.rfind('@');
  if (at == std::string::npos || at == 0) {
    failUsage("'" + argument + "' names no version: give PATH@N or PATH@current");
  }
  *path = argument.substr(0, at);
  *version = parseVersion(argument.substr(at + 1), "'" + argument + "':");
}

int highestVersion(QzvObject* object, const VaultPath& path) {
  const int highest = object->getHighestVersion();
  if (highest < 0) failWith(object->getErrorMessage(), "cannot read the versions of " + path.shown());
  return highest;
}

ContentState contentState(QzvObject* object, const VaultPath& path, int version) {
  ContentState state;
  state.version = version;
  if (version == kCurrentVersion) {
    state.file = path.absolute;
    if (!statFile(state.file, &state)) fail("cannot read " + path.shown() + ": " + std::strerror(errno));
    return state;
  }
  const QzbString file = object->getVersionFileName(version, nullptr);
  if (file.isNull()) {
    const int highest = highestVersion(object, path);
    fail(path.shown() + " has no version " + std::to_string(version) +
         (highest == 0 ? " (it has no versions)" : " (its highest is " + std::to_string(highest) + ")"));
  }
  state.file = text(file);
  if (!statFile(state.file, &state)) {
    fail("cannot read version " + std::to_string(version) + " of " + path.shown() + ": " + std::strerror(errno));
  }
  return state;
}

std::vector<ContentState> contentHistory(QzvObject* object, const VaultPath& path) {
  std::vector<ContentState> history;
  history.push_back(contentState(object, path, kCurrentVersion));
  for (int version = highestVersion(object, path); version >= 1; --version) {
    const QzbString file = object->getVersionFileName(version, nullptr);
    if (file.isNull()) continue;  // a gap
    ContentState state;
    state.version = version;
    state.file = text(file);
    if (!statFile(state.file, &state)) continue;  // gone since it was listed
    history.push_back(state);
  }
  return history;
}

std::string readContent(const ContentState& state) {
  std::ifstream in(state.file, std::ios::binary);
  if (!in) fail("cannot read " + state.file + ": " + std::strerror(errno));
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) fail("cannot read " + state.file);
  return content.str();
}

}  // namespace qzvtool
