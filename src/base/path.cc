// Joining and splitting of POSIX paths. Pure text work: no file system call.
#include "qzbase/path.h"

#include <string>
#include <vector>

namespace {

inline bool isNameSeparator(char c) { return c == '/' || c == '\\'; }

// Appends the components of relative `name` to *out, each preceded by "/".
// False when `name` is absolute, holds "..", or names no component at all.
bool appendRelativeComponents(const std::string& name, std::string* out) {
  if (name.empty() || isNameSeparator(name[0])) return false;
  bool any = false;
  std::size_t pos = 0;
  while (pos < name.size()) {
    while (pos < name.size() && isNameSeparator(name[pos])) ++pos;
    std::size_t end = pos;
    while (end < name.size() && !isNameSeparator(name[end])) ++end;
    const std::size_t length = end - pos;
    if (length == 0) break;
    if (length == 1 && name[pos] == '.') {
      pos = end;
      continue;
    }
    // ".." would climb out of the directory the caller gave us.
    if (length == 2 && name[pos] == '.' && name[pos + 1] == '.') return false;
    out->push_back('/');
    out->append(name, pos, length);
    any = true;
    pos = end;
  }
  return any;
}

}  // namespace

QzbString qzbConcatPath(const QzbString& dir, const QzbString& name) {
  if (dir.isNull() || name.isNull()) return QzbString();
  std::string components;
  if (!appendRelativeComponents(name.toStdString(), &components)) return QzbString();

  const std::string base = dir.toStdString();
  if (base.empty()) return QzbString::fromStdString(components.substr(1));
  // `components` begins with "/": drop it when `dir` already ends with one.
  if (base.back() == '/') return QzbString::fromStdString(base + components.substr(1));
  return QzbString::fromStdString(base + components);
}

QzbString qzbNormalizePath(const QzbString& path) {
  if (path.isNull()) return QzbString();
  const std::string text = path.toStdString();
  if (text.empty()) return QzbString("");
  const bool absolute = text[0] == '/';
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t slash = text.find('/', start);
    if (slash == std::string::npos) slash = text.size();
    const std::string part = text.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (!absolute) {
        parts.push_back(part);  // above where the path starts: kept
      }
      continue;  // at the root: the root's parent is the root
    }
    parts.push_back(part);
  }
  std::string normal = absolute ? "/" : "";
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) normal += '/';
    normal += parts[i];
  }
  if (normal.empty()) normal = ".";
  return QzbString::fromStdString(normal);
}

QzbString qzbParsePath(const QzbString& path, QzbString* name) {
  if (path.isNull()) {
    if (name != nullptr) name->setNull(true);
    return QzbString();
  }
  std::string text = path.toStdString();
  if (text.size() > 1 && text.back() == '/') text.pop_back();

  // The root (and "//", which is the root once its trailing "/" is ignored).
  if (text == "/") {
    if (name != nullptr) *name = QzbString("");
    return QzbString();
  }

  const std::size_t slash = text.rfind('/');
  if (slash == std::string::npos) {
    if (name != nullptr) *name = QzbString::fromStdString(text);
    return QzbString();
  }
  if (name != nullptr) *name = QzbString::fromStdString(text.substr(slash + 1));

  // Doubled separators before the leaf ("a//b") belong to neither part; a
  // directory made only of separators is the root.
  std::size_t dirEnd = slash;
  while (dirEnd > 0 && text[dirEnd - 1] == '/') --dirEnd;
  if (dirEnd == 0) return QzbString("/");
  return QzbString::fromStdString(text.substr(0, dirEnd));
}
