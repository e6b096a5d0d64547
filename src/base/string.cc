// QzbString: a std::string plus a null flag. Every member is out of line so
// that memory is always managed inside libqzbase, whichever module calls.
#include "qzbase/string.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

inline char foldAscii(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

int compareBytes(const char* a, std::size_t aLength, const char* b, std::size_t bLength,
                 bool caseSensitive) {
  const std::size_t n = aLength < bLength ? aLength : bLength;
  if (caseSensitive) {
    const int r = n == 0 ? 0 : std::memcmp(a, b, n);
    if (r != 0) return r < 0 ? -1 : 1;
  } else {
    for (std::size_t i = 0; i < n; ++i) {
      const unsigned char x = static_cast<unsigned char>(foldAscii(a[i]));
      const unsigned char y = static_cast<unsigned char>(foldAscii(b[i]));
      if (x != y) return x < y ? -1 : 1;
    }
  }
  if (aLength == bLength) return 0;
  return aLength < bLength ? -1 : 1;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// The text with surrounding blanks removed; false when nothing is left.
bool trimmedNumber(const std::string& text, std::string* out) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && isBlank(text[begin])) ++begin;
  while (end > begin && isBlank(text[end - 1])) --end;
  if (begin == end) return false;
  out->assign(text, begin, end - begin);
  return out->find('\0') == std::string::npos;
}

}  // namespace

QzbString::QzbString() noexcept : null_(true) {}

QzbString::QzbString(const char* text, bool /*isStatic*/) : null_(text == nullptr) {
  if (text != nullptr) text_.assign(text);
}

QzbString::QzbString(const QzbString& other) = default;
QzbString::QzbString(QzbString&& other) noexcept
    : text_(std::move(other.text_)), null_(other.null_) {
  other.text_.clear();
  other.null_ = true;
}
QzbString& QzbString::operator=(const QzbString& other) = default;
QzbString& QzbString::operator=(QzbString&& other) noexcept {
  if (this != &other) {
    text_ = std::move(other.text_);
    null_ = other.null_;
    other.text_.clear();
    other.null_ = true;
  }
  return *this;
}
QzbString::~QzbString() = default;

QzbString QzbString::fromBytes(const char* bytes, std::size_t length) {
  QzbString s;
  s.assign(bytes, length);
  return s;
}

QzbString QzbString::fromStdString(const std::string& text) {
  return fromBytes(text.data(), text.size());
}

void QzbString::assign(const char* text) {
  if (text == nullptr) {
    setNull(true);
    return;
  }
  text_.assign(text);
  null_ = false;
}

void QzbString::assign(const char* bytes, std::size_t length) {
  if (bytes == nullptr) {
    setNull(true);
    return;
  }
  text_.assign(bytes, length);
  null_ = false;
}

bool QzbString::isNull() const { return null_; }

void QzbString::setNull(bool makeNull) {
  text_.clear();
  null_ = makeNull;
}

bool QzbString::isEmpty() const { return null_ || text_.empty(); }

unsigned QzbString::length() const { return static_cast<unsigned>(text_.size()); }

const char* QzbString::asCstr() const { return text_.c_str(); }

std::string QzbString::toStdString() const { return text_; }

int QzbString::compare(const QzbString& other, bool caseSensitive) const {
  if (null_ || other.null_) {
    if (null_ && other.null_) return 0;
    return null_ ? -1 : 1;
  }
  return compareBytes(text_.data(), text_.size(), other.text_.data(), other.text_.size(),
                      caseSensitive);
}

int QzbString::compare(const char* other, bool caseSensitive) const {
  if (null_ || other == nullptr) {
    if (null_ && other == nullptr) return 0;
    return null_ ? -1 : 1;
  }
  return compareBytes(text_.data(), text_.size(), other, std::strlen(other), caseSensitive);
}

QzbString QzbString::mid(unsigned start, int count) const {
  if (null_) return QzbString();
  if (start >= text_.size()) return QzbString("");
  const std::size_t available = text_.size() - start;
  const std::size_t n = (count < 0 || static_cast<std::size_t>(count) > available)
                            ? available
                            : static_cast<std::size_t>(count);
  return fromBytes(text_.data() + start, n);
}

QzbString QzbString::left(unsigned count) const {
  if (null_) return QzbString();
  return fromBytes(text_.data(), count < text_.size() ? count : text_.size());
}

QzbString QzbString::right(unsigned count) const {
  if (null_) return QzbString();
  if (count >= text_.size()) return *this;
  return fromBytes(text_.data() + (text_.size() - count), count);
}

int QzbString::find(const char* needle, unsigned start) const {
  if (null_ || needle == nullptr || start > text_.size()) return -1;
  const std::size_t at = text_.find(needle, start);
  return at == std::string::npos ? -1 : static_cast<int>(at);
}

int QzbString::find(const QzbString& needle, unsigned start) const {
  if (null_ || needle.null_ || start > text_.size()) return -1;
  const std::size_t at = text_.find(needle.text_, start);
  return at == std::string::npos ? -1 : static_cast<int>(at);
}

int QzbString::rfind(const char* needle) const {
  if (null_ || needle == nullptr) return -1;
  const std::size_t at = text_.rfind(needle);
  return at == std::string::npos ? -1 : static_cast<int>(at);
}

int QzbString::rfind(const QzbString& needle) const {
  if (null_ || needle.null_) return -1;
  const std::size_t at = text_.rfind(needle.text_);
  return at == std::string::npos ? -1 : static_cast<int>(at);
}

bool QzbString::startsWith(const char* prefix, bool caseSensitive) const {
  if (null_ || prefix == nullptr) return false;
  const std::size_t n = std::strlen(prefix);
  if (n > text_.size()) return false;
  return compareBytes(text_.data(), n, prefix, n, caseSensitive) == 0;
}

bool QzbString::endsWith(const char* suffix, bool caseSensitive) const {
  if (null_ || suffix == nullptr) return false;
  const std::size_t n = std::strlen(suffix);
  if (n > text_.size()) return false;
  return compareBytes(text_.data() + (text_.size() - n), n, suffix, n, caseSensitive) == 0;
}

bool QzbString::append(const QzbString& text, bool* failed) {
  if (text.null_) return true;
  try {
    text_.append(text.text_);
  } catch (const std::exception&) {
    if (failed != nullptr) *failed = true;
    return false;
  }
  null_ = false;
  return true;
}

bool QzbString::append(const char* text, bool* failed) {
  if (text == nullptr) return true;
  try {
    text_.append(text);
  } catch (const std::bad_alloc&) {
    if (failed != nullptr) *failed = true;
    return false;
  } catch (const std::length_error&) {
    if (failed != nullptr) *failed = true;
    return false;
  }
  null_ = false;
  return true;
}

bool QzbString::append(char c, bool* failed) {
  try {
    text_.push_back(c);
  } catch (const std::bad_alloc&) {
    if (failed != nullptr) *failed = true;
    return false;
  } catch (const std::length_error&) {
    if (failed != nullptr) *failed = true;
    return false;
  }
  null_ = false;
  return true;
}

long long QzbString::asInt64(bool* ok) const {
  std::string number;
  if (null_ || !trimmedNumber(text_, &number)) {
    if (ok != nullptr) *ok = false;
    return 0;
  }
  errno = 0;
  char* end = nullptr;
  const long long value = std::strtoll(number.c_str(), &end, 10);
  const bool good = end != nullptr && *end == '\0' && errno == 0;
  if (ok != nullptr) *ok = good;
  return good ? value : 0;
}

int QzbString::asInt(bool* ok) const {
  // Keep the low 32 bits, as atoi does with a 64-bit long.
  return static_cast<int>(static_cast<unsigned long long>(asInt64(ok)) & 0xffffffffULL);
}

double QzbString::asDouble(bool* ok) const {
  std::string number;
  if (null_ || !trimmedNumber(text_, &number)) {
    if (ok != nullptr) *ok = false;
    return 0.0;
  }
  errno = 0;
  char* end = nullptr;
  const double value = std::strtod(number.c_str(), &end);
  const bool good = end != nullptr && *end == '\0' && errno == 0 && std::isfinite(value);
  if (ok != nullptr) *ok = good;
  return good ? value : 0.0;
}

void QzbString::lowercase() {
  for (char& c : text_) c = foldAscii(c);
}

void QzbString::uppercase() {
  for (char& c : text_) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
}

bool QzbString::operator<(const QzbString& other) const { return compare(other, true) < 0; }

bool QzbString::operator==(const QzbString& other) const {
  return null_ == other.null_ && text_ == other.text_;
}

std::size_t QzbString::hash() const noexcept {
  return null_ ? 0x9e3779b97f4a7c15ULL : std::hash<std::string>()(text_);
}
