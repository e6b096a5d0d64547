// Escaping of "/"-separated parts; see part_escape.h.
#include "part_escape.h"

namespace qzb_internal {

bool hasControlCharacter(const std::string& text) {
  for (char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

void appendEscapedPart(const std::string& part, std::string* out) {
  out->reserve(out->size() + part.size());
  for (std::size_t i = 0; i < part.size(); ++i) {
    const char c = part[i];
    if (c == '%') {
      if (i + 1 < part.size() && part[i + 1] == '%') {
        out->append("%%");
        ++i;
      } else {
        out->append("%25");
      }
    } else if (c == '/') {
      out->append("%2F");
    } else {
      out->push_back(c);
    }
  }
}

std::vector<std::string> splitEscapedParts(const std::string& text) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    std::string& part = parts.back();
    if (c == '/') {
      parts.emplace_back();
    } else if (c != '%') {
      part.push_back(c);
    } else if (i + 1 < text.size() && text[i + 1] == '%') {
      part.append("%%");
      ++i;
    } else if (i + 2 < text.size() && text[i + 1] == '2' &&
               (text[i + 2] == 'F' || text[i + 2] == 'f')) {
      part.push_back('/');
      i += 2;
    } else if (i + 2 < text.size() && text[i + 1] == '2' && text[i + 2] == '5') {
      part.push_back('%');
      i += 2;
    } else {
      part.push_back('%');
    }
  }
  return parts;
}

}  // namespace qzb_internal
