// Generic URIs, file references, path helpers and data-source references.
#include "qzbase/uri.h"

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "part_escape.h"
#include "qzbase/file_types.h"

namespace {

using qzb_internal::appendEscapedPart;
using qzb_internal::hasControlCharacter;
using qzb_internal::splitEscapedParts;

std::string toStd(const QzbString& text) { return std::string(text.asCstr(), text.length()); }

QzbString fromStd(const std::string& text) { return QzbString::fromBytes(text.data(), text.size()); }

bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// Bytes that never appear in a URI, escaped or not: blanks, control
// characters and the characters RFC 3986 excludes outright.
bool isForbiddenInURI(char c) {
  const unsigned char byte = static_cast<unsigned char>(c);
  if (byte <= 0x20 || byte == 0x7F) return true;
  return std::strchr("\"<>\\^`{|}", c) != nullptr;
}

// Bytes a URI path may hold unescaped: unreserved, sub-delims, ":", "@", "/".
bool isPathCharacter(char c) {
  if (isAsciiLetter(c) || isAsciiDigit(c)) return true;
  return c != '\0' && std::strchr("-._~!$&'()*+,;=:@/", c) != nullptr;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool startsWithFolded(const std::string& text, const char* prefix) {
  const std::size_t length = std::strlen(prefix);
  if (text.size() < length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != prefix[i]) return false;
  }
  return true;
}

bool isSeparator(char c) { return c == '/' || c == '\\'; }

class QzURIImpl final : public QzURI {
 public:
  QzURIImpl(QzbString text, QzbString scheme, QzbString authority, QzbString path,
            QzbString query, QzbString fragment)
      : text_(std::move(text)),
        scheme_(std::move(scheme)),
        authority_(std::move(authority)),
        path_(std::move(path)),
        query_(std::move(query)),
        fragment_(std::move(fragment)) {}

  void release() override { delete this; }
  QzbString getScheme() const override { return scheme_; }
  QzbString getAuthority() const override { return authority_; }
  QzbString getPath() const override { return path_; }
  QzbString getQuery() const override { return query_; }
  QzbString getFragment() const override { return fragment_; }
  QzbString toString() const override { return text_; }

 private:
  ~QzURIImpl() override = default;

  const QzbString text_;
  const QzbString scheme_;
  const QzbString authority_;
  const QzbString path_;
  const QzbString query_;
  const QzbString fragment_;
};

const char kDataURIPrefix[] = "datasource://";

class QzDataURIImpl final : public QzDataURI {
 public:
  QzDataURIImpl(std::string sourceType, std::string sourceName, std::string catalog,
                std::string schema, std::string table)
      : parts_{std::move(sourceType), std::move(sourceName), std::move(catalog),
               std::move(schema)},
        table_(std::move(table)) {}

  void release() override { delete this; }

  QzbString getPart(int index) const override {
    if (index < 0 || index >= QZ_DATAURI_PART_COUNT) return QzbString();
    return fromStd(parts_[index]);
  }

  QzbString getTablePart() const override { return fromStd(table_); }

  QzbString toString() const override {
    std::string text(kDataURIPrefix);
    appendEscapedPart(parts_[0], &text);
    text.push_back('/');
    appendEscapedPart(parts_[1], &text);
    if (!parts_[2].empty() || !parts_[3].empty() || !table_.empty()) {
      text.push_back('/');
      appendEscapedPart(parts_[2], &text);
      text.push_back('/');
      appendEscapedPart(parts_[3], &text);
      text.push_back('/');
      appendEscapedPart(table_, &text);
    }
    return fromStd(text);
  }

 private:
  ~QzDataURIImpl() override = default;

  const std::string parts_[QZ_DATAURI_PART_COUNT];
  const std::string table_;
};

}  // namespace

QzURI* getURIFromURIString(const QzbString& text) {
  if (text.isEmpty()) return nullptr;
  const std::string whole = toStd(text);
  for (char c : whole) {
    if (isForbiddenInURI(c)) return nullptr;
  }
  if (!isAsciiLetter(whole[0])) return nullptr;
  std::size_t schemeEnd = 1;
  while (schemeEnd < whole.size()) {
    const char c = whole[schemeEnd];
    if (!isAsciiLetter(c) && !isAsciiDigit(c) && c != '+' && c != '-' && c != '.') break;
    ++schemeEnd;
  }
  if (whole.compare(schemeEnd, 3, "://") != 0) return nullptr;

  const std::size_t authorityStart = schemeEnd + 3;
  std::size_t pathStart = whole.find_first_of("/?#", authorityStart);
  if (pathStart == std::string::npos) pathStart = whole.size();
  std::size_t queryMark = whole.find_first_of("?#", pathStart);
  if (queryMark == std::string::npos) queryMark = whole.size();
  QzbString query;
  QzbString fragment;
  std::size_t fragmentMark = whole.find('#', queryMark);
  if (queryMark < whole.size() && whole[queryMark] == '?') {
    const std::size_t queryEnd = fragmentMark == std::string::npos ? whole.size() : fragmentMark;
    query = fromStd(whole.substr(queryMark + 1, queryEnd - queryMark - 1));
  }
  if (fragmentMark != std::string::npos) fragment = fromStd(whole.substr(fragmentMark + 1));

  return new (std::nothrow) QzURIImpl(
      text, fromStd(whole.substr(0, schemeEnd)),
      fromStd(whole.substr(authorityStart, pathStart - authorityStart)),
      fromStd(whole.substr(pathStart, queryMark - pathStart)), std::move(query),
      std::move(fragment));
}

QzbString generateURIReferenceFromFilename(const QzbString& path) {
  if (path.isEmpty()) return QzbString();
  static const char kHex[] = "0123456789ABCDEF";
  const char* bytes = path.asCstr();
  const unsigned length = path.length();
  std::string reference("file://");
  reference.reserve(reference.size() + length);
  for (unsigned i = 0; i < length; ++i) {
    const char c = bytes[i];
    if (isPathCharacter(c)) {
      reference.push_back(c);
    } else {
      const unsigned char byte = static_cast<unsigned char>(c);
      reference.push_back('%');
      reference.push_back(kHex[byte >> 4]);
      reference.push_back(kHex[byte & 0x0F]);
    }
  }
  return fromStd(reference);
}

QzbString getFilenameFromURIReference(const QzbString& reference) {
  if (reference.isEmpty()) return QzbString();
  const std::string text = toStd(reference);
  static const char kPrefix[] = "file://";
  const std::size_t prefixLength = sizeof(kPrefix) - 1;
  if (!startsWithFolded(text, kPrefix) || text.size() == prefixLength) return QzbString();
  std::string path;
  path.reserve(text.size() - prefixLength);
  for (std::size_t i = prefixLength; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
        hexValue(text[i + 2]) >= 0) {
      const char decoded = static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      if (decoded == '\0') return QzbString();
      path.push_back(decoded);
      i += 2;
    } else {
      if (c == '\0') return QzbString();
      path.push_back(c);
    }
  }
  return fromStd(path);
}

bool getComponentsFromFilesystemPath(const QzbString& path, QzbString* extension,
                                     QzbString* directory, QzbString* name) {
  if (path.isEmpty()) return false;
  const std::string text = toStd(path);
  if (isSeparator(text.back())) return false;
  const std::size_t separator = text.find_last_of("/\\");
  std::string directoryPart;
  std::string leaf;
  if (separator == std::string::npos) {
    leaf = text;
  } else {
    leaf = text.substr(separator + 1);
    // Trailing separators are dropped, except the one that names the root.
    std::size_t end = separator;
    while (end > 0 && isSeparator(text[end - 1])) --end;
    directoryPart = end == 0 ? text.substr(0, 1) : text.substr(0, end);
  }
  std::string extensionPart;
  const QzbString leafString = fromStd(leaf);
  if (const char* twoPart = qzbFindTwoPartExtension(leafString)) {
    extensionPart = leaf.substr(leaf.size() - std::strlen(twoPart));
  } else {
    const std::size_t dot = leaf.rfind('.');
    if (dot != std::string::npos) extensionPart = leaf.substr(dot + 1);
  }
  if (extension != nullptr) *extension = fromStd(extensionPart);
  if (directory != nullptr) *directory = fromStd(directoryPart);
  if (name != nullptr) *name = leafString;
  return true;
}

bool fixFilesystemStringSlashes(const QzbString& path, QzbString* fixed) {
  if (path.isEmpty() || fixed == nullptr) return false;
  const char* bytes = path.asCstr();
  const unsigned length = path.length();
  std::string result;
  result.reserve(length);
  for (unsigned i = 0; i < length; ++i) {
    if (isSeparator(bytes[i])) {
      if (result.empty() || result.back() != '/') result.push_back('/');
    } else {
      result.push_back(bytes[i]);
    }
  }
  *fixed = fromStd(result);
  return true;
}

QzDataURI* createQzDataURI(const QzbString& sourceType, const QzbString& sourceName,
                           const QzbString& catalog, const QzbString& schema,
                           const QzbString& table) {
  std::string parts[] = {toStd(sourceType), toStd(sourceName), toStd(catalog), toStd(schema),
                         toStd(table)};
  for (const std::string& part : parts) {
    if (hasControlCharacter(part)) return nullptr;
  }
  return new (std::nothrow) QzDataURIImpl(std::move(parts[0]), std::move(parts[1]),
                                          std::move(parts[2]), std::move(parts[3]),
                                          std::move(parts[4]));
}

QzDataURI* parseQzDataURI(const QzbString& text) {
  if (text.isEmpty()) return nullptr;
  const std::string whole = toStd(text);
  if (!startsWithFolded(whole, kDataURIPrefix) || hasControlCharacter(whole)) return nullptr;
  std::vector<std::string> parts = splitEscapedParts(whole.substr(sizeof(kDataURIPrefix) - 1));
  if (parts.size() == 2) parts.resize(5);
  if (parts.size() != 5) return nullptr;
  return new (std::nothrow) QzDataURIImpl(std::move(parts[0]), std::move(parts[1]),
                                          std::move(parts[2]), std::move(parts[3]),
                                          std::move(parts[4]));
}
