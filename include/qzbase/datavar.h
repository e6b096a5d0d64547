// QzbDatavar: a variant holding null, a 32- or 64-bit integer, a double, a
// text or a date. Statement parameters are passed as QzbDatavar values.
//
// Assigning a null QzbString, a null text pointer or a null QzbDate makes the
// variant null. Thread safety: a value type.
#ifndef QZBASE_DATAVAR_H_
#define QZBASE_DATAVAR_H_

#include <cstdint>

#include "qzbase/date.h"
#include "qzbase/export.h"
#include "qzbase/string.h"

enum QzbDatavarType {
  QZB_DATAVAR_NULL = 0,
  QZB_DATAVAR_INT32 = 1,
  QZB_DATAVAR_INT64 = 2,
  QZB_DATAVAR_DOUBLE = 3,
  QZB_DATAVAR_STRING = 4,
  QZB_DATAVAR_DATE = 5,
};

class QZBASE_EXPORT QzbDatavar {
 public:
  QzbDatavar() noexcept;  // null
  explicit QzbDatavar(int value);
  explicit QzbDatavar(long value);
  explicit QzbDatavar(long long value);
  explicit QzbDatavar(double value);
  explicit QzbDatavar(const char* value);
  explicit QzbDatavar(const QzbString& value);
  explicit QzbDatavar(const QzbDate& value);

  void setNull();
  bool isNull() const;

  void assign(int value);
  void assign(long value);       // stored as a 64-bit integer
  void assign(long long value);  // stored as a 64-bit integer
  void assign(double value);
  void assign(const char* value);
  void assign(const QzbString& value);
  void assign(const QzbDate& value);

  QzbDatavarType type() const;

  // Conversions. Text converts as QzbString does; a date converts through its
  // numeric value; null converts to a null string, and to 0 with *ok false.
  // asString of a double uses the shortest text that reads back as the same
  // value; of a date, its numeric value.
  QzbString asString() const;
  int asInt(bool* ok = nullptr) const;
  long long asInt64(bool* ok = nullptr) const;
  double asDouble(bool* ok = nullptr) const;
  // The date held, or the date of the numeric value; null for null and for
  // text that is not a number.
  QzbDate asDate() const;

 private:
  QzbDatavarType type_;
  long long integer_;
  double real_;
  QzbString text_;
  QzbDate date_;
};

#endif  // QZBASE_DATAVAR_H_
