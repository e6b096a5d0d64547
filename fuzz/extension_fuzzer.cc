// Two-part extensions and extension filters: qzviParseFileExt (plain and
// two-part), qzbFindTwoPartExtension, getTypeForFileExtension and a folder's
// extension filter ("csv;job.def"). A split gives the name back when its
// parts are joined again; a two-part extension is one of the table's; a
// filter admits exactly the extensions that one of its ";"-separated pieces
// names (letter case aside).
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "file_list.h"
#include "folder_impl.h"
#include "fuzz_support.h"
#include "qzbase/file_types.h"
#include "vault_impl.h"

namespace {

std::string lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool isTwoPart(const std::string& extension) {
  for (const char* entry : qzbTwoPartExtensions) {
    if (lower(extension) == entry) return true;
  }
  return false;
}

void checkSplit(const std::string& name, bool simple) {
  QzbString extension;
  const QzbString base = qzviParseFileExt(QzbString::fromStdString(name), &extension, simple);
  const std::string ext = extension.toStdString();
  if (name.find('.') == std::string::npos) {
    FUZZ_CHECK(base.toStdString() == name && ext.empty(), name);
    return;
  }
  FUZZ_CHECK(base.toStdString() + "." + ext == name, name + " split into " + base.toStdString() + " / " + ext);
  // A plain split takes the text after the last dot; a two-part one may take
  // more, and only an extension of the table.
  if (simple || ext.find('.') == std::string::npos) {
    FUZZ_CHECK(ext.find('.') == std::string::npos, name);
  } else {
    FUZZ_CHECK(isTwoPart(ext), name + " gave " + ext);
  }
}

void checkTwoPart(const std::string& name) {
  const char* found = qzbFindTwoPartExtension(name.c_str());
  if (found == nullptr) return;
  const std::size_t length = std::strlen(found);
  FUZZ_CHECK(isTwoPart(found), name);
  FUZZ_CHECK(name.size() > length && name[name.size() - length - 1] == '.', name);
  FUZZ_CHECK(lower(name.substr(name.size() - length)) == found, name);
  // The type of a two-part extension is always known.
  FUZZ_CHECK(!getTypeForFileExtension(QzbString(found)).isNull(), name);
}

// The folder behind the filter: a vault over the scratch directory, made once.
QzvFolderImpl* filterFolder() {
  static QzvVaultImpl* vault = nullptr;
  static QzvFolderImpl* folder = nullptr;
  if (folder == nullptr) {
    const QzbString root = QzbString::fromStdString(qzfuzz::scratchDirectory());
    vault = new QzvVaultImpl(root, nullptr, QzbString(""));
    folder = new QzvFolderImpl();
    FUZZ_CHECK(folder->init(root, QzbString(""), vault), "no folder over the scratch directory");
  }
  return folder;
}

void checkFilter(const std::string& filter, const std::string& extension) {
  QzvFolderImpl* folder = filterFolder();
  folder->setCurrentFilter(QzbString::fromStdString(filter));
  bool expected = false;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = filter.find(';', start);
    const std::string piece = filter.substr(start, end == std::string::npos ? std::string::npos : end - start);
    expected = expected || lower(piece) == lower(extension);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  FUZZ_CHECK(folder->extInFilter(QzbString::fromStdString(extension)) == expected,
             "filter \"" + filter + "\" and extension \"" + extension + "\"");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = qzfuzz::splitInput(data, size, 2);
  const std::string name = qzfuzz::cText(parts[0]);
  const std::string second = qzfuzz::cText(parts[1]);
  checkSplit(name, true);
  checkSplit(name, false);
  checkTwoPart(name);
  getTypeForFileExtension(QzbString::fromStdString(second));
  checkFilter(name, second);
  // The extension a name has, against a filter made of the second text.
  QzbString extension;
  qzviParseFileExt(QzbString::fromStdString(name), &extension, false);
  checkFilter(second, extension.toStdString());
  return 0;
}
