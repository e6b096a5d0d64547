// Path handling of the definition plug-ins.
#include "defs_paths.h"

#include <vector>

namespace qzvmd_defs {
namespace {

bool isDrive(const std::string& component) {
  if (component.size() != 2 || component[1] != ':') return false;
  const char c = component[0];
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool holdsMacro(const std::string& component) { return component.find("%%") != std::string::npos; }

std::vector<std::string> splitComponents(const std::string& path) {
  std::vector<std::string> components;
  std::string current;
  for (char c : path) {
    if (c == '/') {
      if (!current.empty()) components.push_back(current);
      current.clear();
    } else {
      current.push_back(c);
    }
  }
  if (!current.empty()) components.push_back(current);
  return components;
}

}  // namespace

std::string normaliseSeparators(const std::string& path) {
  std::string result;
  result.reserve(path.size());
  for (char c : path) {
    if (c == '/' || c == '\\') {
      if (result.empty() || result.back() != '/') result.push_back('/');
    } else {
      result.push_back(c);
    }
  }
  return result;
}

bool isAnchoredPath(const std::string& path) {
  if (path.empty()) return false;
  if (path[0] == '/') return true;
  if (path.compare(0, 2, "%%") == 0) return true;
  const std::size_t slash = path.find('/');
  return isDrive(path.substr(0, slash));
}

std::string resolvePath(const std::string& path, const std::string& baseDirectory) {
  std::string full = normaliseSeparators(path);
  if (!isAnchoredPath(full)) {
    const std::string base = normaliseSeparators(baseDirectory);
    if (full.empty()) {
      full = base;
    } else if (!base.empty()) {
      full = base.back() == '/' ? base + full : base + "/" + full;
    }
  }
  const bool rooted = !full.empty() && full[0] == '/';
  std::vector<std::string> folded;
  std::size_t floor = 0;  // components that ".." may not remove (a drive)
  for (const std::string& component : splitComponents(full)) {
    if (folded.empty() && !rooted && isDrive(component)) {
      folded.push_back(component);
      floor = 1;
      continue;
    }
    if (component == ".") continue;
    if (component == "..") {
      if (folded.size() > floor && folded.back() != ".." && !holdsMacro(folded.back())) {
        folded.pop_back();
        continue;
      }
      // Above the root (or a drive) there is nothing: the root's ".." is the root.
      if (folded.size() == floor && (rooted || floor > 0)) continue;
      folded.push_back(component);
      continue;
    }
    folded.push_back(component);
  }
  std::string result = rooted ? "/" : "";
  for (std::size_t i = 0; i < folded.size(); ++i) {
    if (i > 0) result.push_back('/');
    result += folded[i];
  }
  if (floor > 0 && folded.size() == 1) result.push_back('/');  // "C:" alone is "C:/"
  return result;
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string leafOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace qzvmd_defs
