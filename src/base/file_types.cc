// The vault's family of file types; see docs/file-types.md.
#include "qzbase/file_types.h"

#include <cstring>
#include <string>
#include <unordered_map>

const char* const qzbTwoPartExtensions[QZB_TWO_PART_EXTENSION_COUNT] = {
    "job.def", "job.tpl", "rpt.def", "rpt.tpl", "sch.def", "sch.tpl",
    "ref.def", "ref.tpl", "map.def", "map.tpl", "qry.def", "qry.tpl",
};

const QzbFileType qzbFileTypes[QZB_FILE_TYPE_COUNT] = {
    {"job.def", "Job"},           {"job.tpl", "Job"},
    {"rpt.def", "Report"},        {"rpt.tpl", "Report"},
    {"sch.def", "Schedule"},      {"sch.tpl", "Schedule"},
    {"ref.def", "ReferenceData"}, {"ref.tpl", "ReferenceData"},
    {"map.def", "Mapping"},       {"map.tpl", "Mapping"},
    {"qry.def", "Query"},         {"qry.tpl", "Query"},
    {"csv", "DataFile"},          {"txt", "DataFile"},
    {"dat", "DataFile"},          {"sql", "Script"},
    {"sh", "Script"},             {"py", "Script"},
    {"log", "Log"},               {"pdf", "Document"},
    {"html", "Document"},
};

namespace {

inline char lowerAscii(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// True when the `length` bytes at `text` equal the lower-case `lower`,
// ignoring the letter case of `text`.
bool equalsFolded(const char* text, const char* lower, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (lowerAscii(text[i]) != lower[i]) return false;
  }
  return true;
}

const char* findTwoPart(const char* name, std::size_t length) {
  for (const char* extension : qzbTwoPartExtensions) {
    const std::size_t extensionLength = std::strlen(extension);
    if (length < extensionLength + 1) continue;
    const char* tail = name + length - extensionLength;
    if (tail[-1] == '.' && equalsFolded(tail, extension, extensionLength)) return extension;
  }
  return nullptr;
}

// Extension (lower case) to resource type, built once from qzbFileTypes.
const std::unordered_map<std::string, const char*>& typeByExtension() {
  static const std::unordered_map<std::string, const char*> table = [] {
    std::unordered_map<std::string, const char*> map;
    for (const QzbFileType& type : qzbFileTypes) map.emplace(type.extension, type.resourceType);
    return map;
  }();
  return table;
}

}  // namespace

const char* qzbFindTwoPartExtension(const char* fileName) {
  if (fileName == nullptr) return nullptr;
  return findTwoPart(fileName, std::strlen(fileName));
}

const char* qzbFindTwoPartExtension(const QzbString& fileName) {
  if (fileName.isNull()) return nullptr;
  // By length, so that a name holding a NUL byte is judged by its real end.
  return findTwoPart(fileName.asCstr(), fileName.length());
}

QzbString getTypeForFileExtension(const QzbString& extension) {
  if (extension.isEmpty()) return QzbString();
  std::string key(extension.asCstr(), extension.length());
  for (char& c : key) c = lowerAscii(c);
  const auto& table = typeByExtension();
  const auto found = table.find(key);
  if (found == table.end()) return QzbString();
  return QzbString(found->second);
}
