// QzbString: the text value of the library and of its plug-ins.
//
// A QzbString is either null (never assigned) or holds a byte string, which
// may be empty. Null and empty are distinct and the distinction survives copy,
// move and assignment: many operations report failure by returning a null
// string. A default-constructed QzbString is null. Texts are UTF-8 or any
// other byte encoding; lengths and indexes count bytes. Letter case is folded
// for ASCII letters only.
//
// Thread safety: a QzbString is a value; distinct objects may be used from
// distinct threads, one object only from one thread at a time.
#ifndef QZBASE_STRING_H_
#define QZBASE_STRING_H_

#include <cstddef>
#include <functional>
#include <string>

#include "qzbase/export.h"

class QZBASE_EXPORT QzbString {
 public:
  // A null string.
  QzbString() noexcept;
  // A copy of `text`; a null pointer gives a null string. `isStatic` tells that
  // `text` has static storage (a literal); it is a hint only and both forms
  // copy, so the result is the same either way.
  QzbString(const char* text, bool isStatic = false);  // NOLINT: implicit on purpose
  QzbString(const QzbString& other);
  QzbString(QzbString&& other) noexcept;
  QzbString& operator=(const QzbString& other);
  QzbString& operator=(QzbString&& other) noexcept;
  ~QzbString();

  // Exactly `length` bytes of `bytes` (which may hold NUL bytes).
  static QzbString fromBytes(const char* bytes, std::size_t length);
  static QzbString fromStdString(const std::string& text);

  // Replaces the value; a null pointer makes the string null.
  void assign(const char* text);
  void assign(const char* bytes, std::size_t length);

  bool isNull() const;
  // setNull(true) makes the string null; setNull(false) makes it the empty,
  // non-null string (used to clear an error text before a call fills it).
  void setNull(bool makeNull = true);
  // True for a null string and for an empty one.
  bool isEmpty() const;

  // Number of bytes; 0 for a null string.
  unsigned length() const;
  // The text, zero-terminated; never a null pointer ("" for a null string).
  const char* asCstr() const;
  std::string toStdString() const;

  // Negative, 0 or positive. `caseSensitive` false folds ASCII letters. A null
  // string equals only a null string and orders before every other string; a
  // null `other` pointer counts as a null string.
  int compare(const QzbString& other, bool caseSensitive = true) const;
  int compare(const char* other, bool caseSensitive = true) const;

  // Sub-strings. Indexes past the end are clamped; a negative `count` takes
  // everything from `start`. A null string gives a null string.
  QzbString mid(unsigned start, int count = -1) const;
  QzbString left(unsigned count) const;
  QzbString right(unsigned count) const;

  // Byte index of the first occurrence of `needle` at or after `start`, or -1.
  // An empty needle is found at `start` when `start` is within the string.
  int find(const char* needle, unsigned start = 0) const;
  int find(const QzbString& needle, unsigned start = 0) const;
  // Byte index of the last occurrence of `needle`, or -1.
  int rfind(const char* needle) const;
  int rfind(const QzbString& needle) const;

  bool startsWith(const char* prefix, bool caseSensitive = true) const;
  bool endsWith(const char* suffix, bool caseSensitive = true) const;

  // Appends `text`; appending to a null string makes it non-null, appending a
  // null string or null pointer changes nothing. Returns true on success; on
  // failure (out of memory) returns false, sets *failed when given and leaves
  // the string as it was.
  bool append(const QzbString& text, bool* failed = nullptr);
  bool append(const char* text, bool* failed = nullptr);
  bool append(char c, bool* failed = nullptr);

  // Decimal conversion. Leading and trailing blanks are allowed; anything else
  // makes the conversion fail: the result is 0 and *ok is false. asInt parses
  // a 64-bit value and keeps its low 32 bits (a value out of the 32-bit range
  // wraps, as the C library's atoi does on 64-bit systems).
  int asInt(bool* ok = nullptr) const;
  long long asInt64(bool* ok = nullptr) const;
  double asDouble(bool* ok = nullptr) const;

  // ASCII case change in place.
  void lowercase();
  void uppercase();

  // Ordering for ordered maps: null first, then byte-wise.
  bool operator<(const QzbString& other) const;
  // Exact equality; two null strings are equal, null and empty are not.
  bool operator==(const QzbString& other) const;
  bool operator!=(const QzbString& other) const { return !(*this == other); }

  std::size_t hash() const noexcept;

 private:
  std::string text_;
  bool null_;
};

namespace std {
template <>
struct hash<QzbString> {
  std::size_t operator()(const QzbString& s) const noexcept { return s.hash(); }
};
}  // namespace std

#endif  // QZBASE_STRING_H_
