// URI parsers of the base layer: getURIFromURIString, the file references
// (generateURIReferenceFromFilename / getFilenameFromURIReference) and the
// data-source references (createQzDataURI / parseQzDataURI). A parsed URI's
// components are pieces of the text in order; a file name made into a
// reference and read back is the same name; a data-source reference's text
// form parses back to the same parts, and parsing any text and writing it
// out again is stable.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "qzbase/uri.h"

namespace {

template <class T>
struct Released {
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
template <class T>
using Owned = std::unique_ptr<T, Released<T>>;

void checkUri(const std::string& text) {
  Owned<QzURI> uri(getURIFromURIString(QzbString::fromStdString(text)));
  if (!uri) return;
  FUZZ_CHECK(uri->toString().toStdString() == text, text);
  const std::string scheme = uri->getScheme().toStdString();
  FUZZ_CHECK(!scheme.empty() && text.compare(0, scheme.size() + 3, scheme + "://") == 0, text);
  // The authority and path follow the scheme, in that order.
  const std::string rest = text.substr(scheme.size() + 3);
  const std::string authority = uri->getAuthority().toStdString();
  const std::string path = uri->getPath().toStdString();
  FUZZ_CHECK(rest.compare(0, authority.size(), authority) == 0, text);
  FUZZ_CHECK(rest.compare(authority.size(), path.size(), path) == 0, text);
  FUZZ_CHECK(path.empty() || path[0] == '/', text);
  if (!uri->getQuery().isNull()) FUZZ_CHECK(text.find('?') != std::string::npos, text);
  if (!uri->getFragment().isNull()) FUZZ_CHECK(text.find('#') != std::string::npos, text);
}

void checkFileReference(const std::string& path) {
  const QzbString reference = generateURIReferenceFromFilename(QzbString::fromStdString(path));
  if (path.empty()) {
    FUZZ_CHECK(reference.isNull(), path);
    return;
  }
  FUZZ_CHECK(!reference.isNull(), path);
  const std::string text = reference.toStdString();
  FUZZ_CHECK(text.compare(0, 7, "file://") == 0, text);
  for (std::size_t i = 7; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    FUZZ_CHECK(c > 0x20 && c < 0x7F && c != '\\' && c != '?' && c != '#', text);
  }
  FUZZ_CHECK(getFilenameFromURIReference(reference).toStdString() == path, text);
}

void checkReadReference(const std::string& text) {
  // Any text: a name read back from it, made into a reference, reads the same.
  const QzbString name = getFilenameFromURIReference(QzbString::fromStdString(text));
  if (name.isNull() || name.isEmpty()) return;
  const QzbString again = generateURIReferenceFromFilename(name);
  FUZZ_CHECK(getFilenameFromURIReference(again).toStdString() == name.toStdString(), text);
}

std::vector<std::string> dataParts(const Owned<QzDataURI>& uri) {
  std::vector<std::string> parts;
  for (int index = 0; index < QZ_DATAURI_PART_COUNT; ++index) {
    FUZZ_CHECK(!uri->getPart(index).isNull(), "a null part");
    parts.push_back(uri->getPart(index).toStdString());
  }
  parts.push_back(uri->getTablePart().toStdString());
  return parts;
}

void checkDataUri(const std::vector<std::string>& parts) {
  Owned<QzDataURI> made(createQzDataURI(
      QzbString::fromStdString(parts[0]), QzbString::fromStdString(parts[1]), QzbString::fromStdString(parts[2]),
      QzbString::fromStdString(parts[3]), QzbString::fromStdString(parts[4])));
  if (!made) return;
  const std::string text = made->toString().toStdString();
  FUZZ_CHECK(dataParts(made) == parts, text);
  Owned<QzDataURI> parsed(parseQzDataURI(made->toString()));
  FUZZ_CHECK(parsed != nullptr, text);
  FUZZ_CHECK(dataParts(parsed) == parts, text);
  FUZZ_CHECK(parsed->toString().toStdString() == text, text);
}

void checkParseDataUri(const std::string& text) {
  Owned<QzDataURI> parsed(parseQzDataURI(QzbString::fromStdString(text)));
  if (!parsed) return;
  const std::vector<std::string> parts = dataParts(parsed);
  const QzbString written = parsed->toString();
  Owned<QzDataURI> again(parseQzDataURI(written));
  FUZZ_CHECK(again != nullptr, text + " written as " + written.toStdString());
  FUZZ_CHECK(dataParts(again) == parts, text + " written as " + written.toStdString());
  FUZZ_CHECK(again->toString().toStdString() == written.toStdString(), text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> raw = qzfuzz::splitInput(data, size, 5);
  std::vector<std::string> parts;
  for (const std::string& part : raw) parts.push_back(qzfuzz::cText(part));
  checkUri(parts[0]);
  checkFileReference(parts[0]);
  checkReadReference(parts[0]);
  checkParseDataUri(parts[0]);
  checkDataUri(parts);
  return 0;
}
