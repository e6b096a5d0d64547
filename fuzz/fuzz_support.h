// What the fuzz harnesses share: splitting one input into several texts,
// checks that abort with a message (so that the fuzzer keeps the input that
// broke an invariant), and the invariants of a file name the vault makes.
#ifndef QZ_FUZZ_FUZZ_SUPPORT_H_
#define QZ_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace qzfuzz {

// Aborts with `message` when `condition` does not hold.
#define FUZZ_CHECK(condition, message)                                                   \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: invariant broken: %s (%s)\n", __FILE__, __LINE__, #condition, \
                   std::string(message).c_str());                                        \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)

// The input cut at NUL bytes into at most `count` texts (the last one keeps
// any further NUL bytes); missing texts are empty.
inline std::vector<std::string> splitInput(const std::uint8_t* data, std::size_t size, std::size_t count) {
  std::vector<std::string> parts;
  std::string current;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0 && parts.size() + 1 < count) {
      parts.push_back(current);
      current.clear();
    } else {
      current.push_back(static_cast<char>(data[i]));
    }
  }
  parts.push_back(current);
  while (parts.size() < count) parts.emplace_back();
  return parts;
}

// The text up to its first NUL byte: what a C string of it holds.
inline std::string cText(const std::string& text) { return std::string(text.c_str()); }

// Length of the well-formed UTF-8 character at text[at], or 0.
inline std::size_t utf8Length(const std::string& text, std::size_t at) {
  const unsigned char lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  const unsigned char second = static_cast<unsigned char>(text[at + 1]);
  if (second < low || second > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    const unsigned char next = static_cast<unsigned char>(text[at + i]);
    if (next < 0x80 || next > 0xBF) return 0;
  }
  return length;
}

inline bool isValidUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = utf8Length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

// Why `name` cannot be a file name the vault makes inside a folder, or "":
// it must be one component (no "/" or "\"), not empty, not "." or "..", not
// beginning with "." (the vault's own files), at most `limit` bytes, without
// control characters (C0, DEL, C1), and valid UTF-8 when `fromUtf8`.
inline std::string fileNameProblem(const std::string& name, std::size_t limit, bool fromUtf8) {
  if (name.empty()) return "empty";
  if (name == "." || name == "..") return "dot name";
  if (name[0] == '.') return "begins with a dot";
  if (name.size() > limit) return "longer than " + std::to_string(limit) + " bytes";
  for (std::size_t i = 0; i < name.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    if (c == '/' || c == '\\') return "holds a separator";
    if (c == 0) return "holds a NUL byte";
    if (c < 0x20 || c == 0x7F) return "holds a control character";
    if (c == 0xC2 && i + 1 < name.size() && static_cast<unsigned char>(name[i + 1]) <= 0x9F &&
        static_cast<unsigned char>(name[i + 1]) >= 0x80) {
      return "holds a C1 control character";
    }
  }
  if (fromUtf8 && !isValidUtf8(name)) return "not valid UTF-8";
  return std::string();
}

// A temporary directory made once per process (under TMPDIR or /tmp) and
// left for the fuzzer's whole run; its path has no trailing "/".
std::string scratchDirectory();

}  // namespace qzfuzz

#endif  // QZ_FUZZ_FUZZ_SUPPORT_H_
