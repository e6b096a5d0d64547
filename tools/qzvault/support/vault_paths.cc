#include "vault_paths.h"

#include <filesystem>
#include <system_error>

#include "tool_error.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

// `path` relative to `root` when it lies inside (".": the root itself).
bool insideRoot(const fs::path& root, const fs::path& path, fs::path* relative) {
  fs::path difference = path.lexically_relative(root);
  if (difference.empty()) return false;
  auto first = difference.begin();
  if (first != difference.end() && *first == "..") return false;
  *relative = difference;
  return true;
}

// The generic form of a relative path, without "." and trailing separators.
std::string relativeText(const fs::path& relative) {
  std::string text;
  for (const fs::path& component : relative) {
    const std::string part = component.string();
    if (part.empty() || part == ".") continue;
    if (!text.empty()) text += '/';
    text += part;
  }
  return text;
}

VaultPath makePath(const std::string& root, const std::string& relative) {
  VaultPath path;
  path.relative = relative;
  path.absolute = relative.empty() ? root : root + "/" + relative;
  return path;
}

}  // namespace

std::string VaultPath::leaf() const {
  const std::size_t slash = relative.rfind('/');
  return slash == std::string::npos ? relative : relative.substr(slash + 1);
}

VaultPath VaultPath::parent() const {
  const std::size_t slash = relative.rfind('/');
  const std::string root =
      relative.empty() ? absolute : absolute.substr(0, absolute.size() - relative.size() - 1);
  return makePath(root, slash == std::string::npos ? std::string() : relative.substr(0, slash));
}

VaultPath resolveVaultPath(const std::string& root, const std::string& argument,
                           const std::string& base) {
  const fs::path rootPath(root);
  const fs::path given(argument);
  const fs::path full = (given.is_absolute() ? given : rootPath / base / given).lexically_normal();

  fs::path relative;
  bool inside = insideRoot(rootPath, full, &relative);
  if (!inside && given.is_absolute()) {
    // The root may have been written through a symbolic link or another
    // spelling: compare the resolved forms.
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(full, error);
    inside = !error && insideRoot(rootPath, resolved, &relative);
  }
  if (!inside) failUsage("path '" + argument + "' leaves the vault");

  for (const fs::path& component : relative) {
    const std::string part = component.string();
    if (!part.empty() && part != "." && part[0] == '.') {
      failUsage("path '" + argument + "' names one of the vault's own files (names beginning with \".\")");
    }
  }

  const std::string text = relativeText(relative);
  // A symbolic link inside the vault may lead out of it.
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(rootPath / text, error);
  fs::path ignored;
  if (error || !insideRoot(rootPath, resolved, &ignored)) {
    failUsage("path '" + argument + "' leaves the vault through a symbolic link");
  }
  return makePath(root, text);
}

bool vaultPathOf(const std::string& root, const std::string& absolute, VaultPath* path) {
  fs::path relative;
  if (!insideRoot(fs::path(root), fs::path(absolute).lexically_normal(), &relative)) return false;
  *path = makePath(root, relativeText(relative));
  return true;
}

void checkComponentName(const std::string& name, const std::string& what) {
  if (name.empty()) failUsage(what + " is empty");
  if (name.find('/') != std::string::npos) {
    failUsage(what + " '" + name + "' must be a single name without \"/\"");
  }
  if (name == "." || name == "..") failUsage(what + " '" + name + "' is not a name");
  if (name[0] == '.') {
    failUsage(what + " '" + name + "' begins with \".\", which the vault keeps for its own files");
  }
}

}  // namespace qzvtool
