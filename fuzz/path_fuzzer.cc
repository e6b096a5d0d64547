// Path parsing and joining of the base layer: qzbConcatPath, qzbParsePath,
// np_fio_pparse, fixFilesystemStringSlashes, getComponentsFromFilesystemPath
// and the store's qzviStringTrailingSlash. A joined path never leaves the
// directory it was joined to (no ".." and no absolute name gets through);
// joining a plain name and splitting it off again gives it back; splits
// write only within the buffers they are given; normalising separators is
// idempotent.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "file_list.h"
#include "fuzz_support.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "qzbase/uri.h"

namespace {

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// The components of a relative path as qzbConcatPath reads it.
std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> parts;
  std::string current;
  for (char c : path) {
    if (isSeparator(c)) {
      parts.push_back(current);
      current.clear();
    } else {
      current.push_back(c);
    }
  }
  parts.push_back(current);
  return parts;
}

void checkConcat(const std::string& dir, const std::string& name) {
  const QzbString joined = qzbConcatPath(QzbString::fromStdString(dir), QzbString::fromStdString(name));
  if (joined.isNull()) return;
  const std::string path = joined.toStdString();
  // The directory is kept as given, and what follows it stays below it.
  std::string rest = path;
  if (!dir.empty()) {
    FUZZ_CHECK(path.compare(0, dir.size(), dir) == 0, dir + " + " + name + " = " + path);
    rest = path.substr(dir.size());
    if (dir.back() != '/') {
      FUZZ_CHECK(!rest.empty() && rest[0] == '/', dir + " + " + name + " = " + path);
      rest = rest.substr(1);
    }
  }
  FUZZ_CHECK(!rest.empty(), dir + " + " + name);
  for (const std::string& part : components(rest)) {
    FUZZ_CHECK(!part.empty() && part != "." && part != "..", dir + " + " + name + " = " + path);
  }

  // A plain name comes back whole from the split.
  const bool plain = !name.empty() && name != "." && name != ".." &&
                     name.find_first_of("/\\") == std::string::npos;
  if (plain && !dir.empty() && !(dir.size() > 1 && dir.back() == '/')) {
    QzbString leaf;
    const QzbString parent = qzbParsePath(joined, &leaf);
    FUZZ_CHECK(leaf.toStdString() == name, path);
    FUZZ_CHECK(parent.toStdString() == dir, path + " split into " + parent.toStdString());
  }
}

void checkParse(const std::string& path) {
  QzbString leaf;
  const QzbString parent = qzbParsePath(QzbString::fromStdString(path), &leaf);
  FUZZ_CHECK(leaf.toStdString().find('/') == std::string::npos, path);
  if (!parent.isNull()) {
    FUZZ_CHECK(path.compare(0, parent.length(), parent.toStdString()) == 0, path);
  }
}

void checkPparse(const std::string& path, std::size_t dirLength, std::size_t nameLength) {
  // Exactly sized heap buffers, so that a write beyond them is seen.
  std::vector<char> dir(dirLength == 0 ? 1 : dirLength);
  std::vector<char> name(nameLength == 0 ? 1 : nameLength);
  np_fio_pparse(path.c_str(), dirLength == 0 ? nullptr : dir.data(), dirLength,
                nameLength == 0 ? nullptr : name.data(), nameLength);
  if (nameLength > 0) {
    FUZZ_CHECK(std::memchr(name.data(), 0, name.size()) != nullptr, path);
    FUZZ_CHECK(std::strchr(name.data(), '/') == nullptr, path);
  }
  if (dirLength > 0) FUZZ_CHECK(std::memchr(dir.data(), 0, dir.size()) != nullptr, path);
}

void checkSlashes(const std::string& path) {
  QzbString fixed;
  if (!fixFilesystemStringSlashes(QzbString::fromStdString(path), &fixed)) {
    FUZZ_CHECK(path.empty(), path);
    return;
  }
  const std::string once = fixed.toStdString();
  FUZZ_CHECK(once.find('\\') == std::string::npos && once.find("//") == std::string::npos, once);
  QzbString twice;
  FUZZ_CHECK(fixFilesystemStringSlashes(fixed, &twice) && twice.toStdString() == once, once);
}

void checkComponents(const std::string& path) {
  QzbString extension;
  QzbString directory;
  QzbString name;
  if (!getComponentsFromFilesystemPath(QzbString::fromStdString(path), &extension, &directory, &name)) {
    return;
  }
  const std::string leaf = name.toStdString();
  FUZZ_CHECK(!leaf.empty() && leaf.find_first_of("/\\") == std::string::npos, path);
  FUZZ_CHECK(path.size() >= leaf.size() && path.compare(path.size() - leaf.size(), leaf.size(), leaf) == 0,
             path);
  const std::string ext = extension.toStdString();
  FUZZ_CHECK(ext.size() <= leaf.size(), path);
  if (!ext.empty()) FUZZ_CHECK(leaf.compare(leaf.size() - ext.size(), ext.size(), ext) == 0, path);
  FUZZ_CHECK(path.compare(0, directory.length(), directory.toStdString()) == 0, path);
}

void checkTrailingSlash(const std::string& path) {
  const std::string trimmed = qzviStringTrailingSlash(QzbString::fromStdString(path)).toStdString();
  FUZZ_CHECK(trimmed == path || (trimmed.size() + 1 == path.size() && isSeparator(path.back()) &&
                                 path.compare(0, trimmed.size(), trimmed) == 0),
             path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = qzfuzz::splitInput(data, size, 3);
  const std::string first = qzfuzz::cText(parts[0]);
  const std::string second = qzfuzz::cText(parts[1]);
  checkConcat(first, second);
  checkConcat("/vault/Data", first);
  checkParse(first);
  const std::size_t sizes = parts[2].size();
  checkPparse(first, sizes % 17, (sizes / 17) % 17);
  checkPparse(first, 4096, 4096);
  checkSlashes(first);
  checkComponents(first);
  checkTrailingSlash(first);
  return 0;
}
