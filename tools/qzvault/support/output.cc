#include "output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "checked_output.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// Below this many objects a progress bar would only flicker.
const std::size_t kProgressThreshold = 20;
const int kProgressWidth = 30;

// Characters of a UTF-8 text (continuation bytes do not count).
std::size_t characterCount(const std::string& value) {
  std::size_t count = 0;
  for (unsigned char c : value) {
    if ((c & 0xC0) != 0x80) ++count;
  }
  return count;
}

// The buffer behind std::cout once startOutput has run, and the one it
// replaced (put back by finishOutput, so that nothing written after main()
// reaches a buffer that no longer exists).
CheckedFdBuffer* checkedStdout = nullptr;
std::streambuf* originalStdout = nullptr;

// The length of the valid UTF-8 character at `text[at]` (2 to 4), or 0 when
// the bytes there are not one (a stray continuation byte, a truncated or
// overlong sequence, a surrogate, or a value above U+10FFFF).
std::size_t utf8Length(const std::string& text, std::size_t at, unsigned* codePoint) {
  const unsigned char lead = static_cast<unsigned char>(text[at]);
  std::size_t length = 0;
  unsigned value = 0;
  unsigned minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = lead & 0x1Fu;
    minimum = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = lead & 0x0Fu;
    minimum = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = lead & 0x07u;
    minimum = 0x10000;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    value = (value << 6) | (next & 0x3Fu);
  }
  if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  *codePoint = value;
  return length;
}

void appendOctal(std::string* out, unsigned char byte) {
  out->push_back('\\');
  out->push_back(static_cast<char>('0' + ((byte >> 6) & 7)));
  out->push_back(static_cast<char>('0' + ((byte >> 3) & 7)));
  out->push_back(static_cast<char>('0' + (byte & 7)));
}

const char* shortEscape(unsigned char byte) {
  switch (byte) {
    case '\a': return "\\a";
    case '\b': return "\\b";
    case '\t': return "\\t";
    case '\n': return "\\n";
    case '\v': return "\\v";
    case '\f': return "\\f";
    case '\r': return "\\r";
    default: return nullptr;
  }
}

}  // namespace

void startOutput() {
  if (checkedStdout != nullptr) return;
  std::cout.flush();
  static CheckedFdBuffer buffer(STDOUT_FILENO, isatty(STDOUT_FILENO) == 1);
  checkedStdout = &buffer;
  originalStdout = std::cout.rdbuf(&buffer);
}

int finishOutput(int status) {
  std::cout.flush();
  int outputError = 0;
  if (checkedStdout != nullptr) {
    checkedStdout->flushAll();
    outputError = checkedStdout->error();
    std::cout.rdbuf(originalStdout);
    checkedStdout = nullptr;
  }
  // Anything that reached the C library's stdout directly.
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    if (outputError == 0) outputError = errno != 0 ? errno : EIO;
  }
  if (outputError != 0 && status == kExitSuccess) {
    printError(std::string("cannot write to standard output: ") + std::strerror(outputError));
    status = kExitFailure;
  }
  // A message that could not be written leaves nothing to say it with; the
  // exit status is all that is left.
  std::cerr.flush();
  if ((std::fflush(stderr) != 0 || std::ferror(stderr) != 0 || std::cerr.fail()) &&
      status == kExitSuccess) {
    status = kExitFailure;
  }
  return status;
}

std::string escapeControls(const std::string& text) {
  std::string shown;
  shown.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char byte = static_cast<unsigned char>(text[at]);
    if (byte >= 0x20 && byte < 0x7F) {
      shown.push_back(static_cast<char>(byte));
      ++at;
      continue;
    }
    if (byte < 0x80) {  // C0 controls and DEL
      const char* escape = shortEscape(byte);
      if (escape != nullptr) {
        shown += escape;
      } else {
        appendOctal(&shown, byte);
      }
      ++at;
      continue;
    }
    unsigned codePoint = 0;
    const std::size_t length = utf8Length(text, at, &codePoint);
    if (length == 0) {
      appendOctal(&shown, byte);
      ++at;
    } else if (codePoint <= 0x9F) {  // C1 controls: every byte escaped
      for (std::size_t i = 0; i < length; ++i) appendOctal(&shown, static_cast<unsigned char>(text[at + i]));
      at += length;
    } else {
      shown.append(text, at, length);
      at += length;
    }
  }
  return shown;
}

bool isValidUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    if (static_cast<unsigned char>(text[at]) < 0x80) {
      ++at;
      continue;
    }
    unsigned codePoint = 0;
    const std::size_t length = utf8Length(text, at, &codePoint);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string base64(const std::string& bytes) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t at = 0;
  for (; at + 3 <= bytes.size(); at += 3) {
    const unsigned value = (static_cast<unsigned char>(bytes[at]) << 16) |
                           (static_cast<unsigned char>(bytes[at + 1]) << 8) |
                           static_cast<unsigned char>(bytes[at + 2]);
    for (int shift = 18; shift >= 0; shift -= 6) out.push_back(kAlphabet[(value >> shift) & 0x3F]);
  }
  const std::size_t rest = bytes.size() - at;
  if (rest > 0) {
    unsigned value = static_cast<unsigned char>(bytes[at]) << 16;
    if (rest == 2) value |= static_cast<unsigned char>(bytes[at + 1]) << 8;
    out.push_back(kAlphabet[(value >> 18) & 0x3F]);
    out.push_back(kAlphabet[(value >> 12) & 0x3F]);
    out.push_back(rest == 2 ? kAlphabet[(value >> 6) & 0x3F] : '=');
    out.push_back('=');
  }
  return out;
}

void printLine(const std::string& line, std::ostream& out) { out << escapeControls(line) << '\n'; }

void printLine(const std::string& line) { printLine(line, std::cout); }

std::string text(const QzbString& value) { return value.isNull() ? std::string() : value.toStdString(); }

Json jsonText(const QzbString& value) {
  if (value.isNull()) return Json(nullptr);
  return Json(value.toStdString());
}

std::string jsonDocument(const Json& document) {
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

void printJson(const Json& document) { std::cout << jsonDocument(document); }

void TextTable::addRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void TextTable::print(std::ostream& out, const std::string& indent) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], characterCount(escapeControls(row[i])));
    }
  }
  for (const auto& row : rows_) {
    std::string line = indent;
    // Trailing empty cells add nothing but blanks.
    std::size_t used = row.size();
    while (used > 0 && row[used - 1].empty()) --used;
    for (std::size_t i = 0; i < used; ++i) {
      const std::string cell = escapeControls(row[i]);
      line += cell;
      if (i + 1 < used) line.append(widths[i] - characterCount(cell) + 2, ' ');
    }
    out << line << '\n';
  }
}

void TextTable::printRecords(std::ostream& out, std::size_t columns) const {
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < columns; ++i) {
      if (i < row.size()) out << row[i];
      out << '\0';
    }
  }
}

void printError(const std::string& message) {
  std::cout.flush();
  std::cerr << "qzvault: " << escapeControls(oneLine(message)) << std::endl;
}

void printWarning(const std::string& message) { printError("warning: " + message); }

ProgressBar::ProgressBar(const std::string& label, std::size_t total)
    : label_(label), total_(total), visible_(total >= kProgressThreshold && isatty(STDERR_FILENO) == 1) {
  if (visible_) draw();
}

ProgressBar::~ProgressBar() {
  if (visible_) std::fprintf(stderr, "\n");
}

void ProgressBar::step() {
  ++done_;
  if (visible_) draw();
}

void ProgressBar::draw() const {
  const int filled = total_ == 0 ? kProgressWidth
                                 : static_cast<int>(done_ * kProgressWidth / total_);
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.append(static_cast<std::size_t>(kProgressWidth - filled), '.');
  std::fprintf(stderr, "\r%s [%s] %zu/%zu", label_.c_str(), bar.c_str(), done_, total_);
  std::fflush(stderr);
}

}  // namespace qzvtool
