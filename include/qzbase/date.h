// QzbDate: a calendar date and time of day, in local time, with a null state.
//
// The numeric form (asDouble / assign(double)) is the number of seconds from
// 1970-01-01 00:00:00 to the date, counting the date's calendar elements on a
// uniform calendar without any time zone, plus the milliseconds as a decimal
// fraction. It is what the metadata tables store. The value 0 is the date
// 1970-01-01 00:00:00, which is not null. Dates compare to the millisecond, so
// a numeric value that went through a text column compares equal to the date
// it was made from.
//
// Thread safety: a value type, like QzbString.
#ifndef QZBASE_DATE_H_
#define QZBASE_DATE_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

class QZBASE_EXPORT QzbDate {
 public:
  // A null date.
  QzbDate() noexcept;
  // The date of a numeric value.
  explicit QzbDate(double value);
  QzbDate(const QzbDate& other) = default;
  QzbDate& operator=(const QzbDate& other) = default;

  bool isNull() const;
  void setNull();

  void assign(const QzbDate& other);
  // Sets the date from its numeric value. A value that is not finite, or lies
  // outside the years 1 to 9999, makes the date null.
  void assign(double value);
  // Sets the date from its elements: year 1..9999, month 1..12, day 1..last of
  // the month, hour 0..23, minute 0..59, second 0..59, fraction in
  // milliseconds 0..999. Returns false and makes the date null when an element
  // is out of range.
  bool assign(int year, int month, int day, int hour, int minute, int second,
              int fraction);

  // Negative, 0 or positive, to the millisecond. Null orders before every
  // date; two null dates are equal.
  int compare(const QzbDate& other) const;
  bool operator==(const QzbDate& other) const { return compare(other) == 0; }
  bool operator!=(const QzbDate& other) const { return compare(other) != 0; }
  bool operator<(const QzbDate& other) const { return compare(other) < 0; }

  // The numeric value; 0 for a null date.
  double asDouble() const;

  // Sets the date to the present moment: local time when `utc` is false, the
  // UTC calendar time when it is true.
  void currentDate(bool utc = false);

  // Writes the elements in the order of assign(); returns false (writing
  // nothing) for a null date. Any pointer may be null.
  bool getElements(int* year, int* month, int* day, int* hour, int* minute,
                   int* second, int* fraction) const;

  // "YYYY-MM-DD hh:mm:ss", or a null string for a null date.
  QzbString asString() const;

 private:
  double value_;
  bool null_;
};

#endif  // QZBASE_DATE_H_
