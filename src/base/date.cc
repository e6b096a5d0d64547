// QzbDate. The numeric value counts the calendar elements on the proleptic
// Gregorian calendar with no time zone, so it never depends on the process's
// zone or on daylight-saving rules; only currentDate() asks the system which
// local time it is. The value is kept rounded to the millisecond, which is
// the precision of the element form.
#include "qzbase/date.h"

#include <cmath>
#include <cstdint>
#include <ctime>

#include "qzbase/path.h"
#include "qzbase/platform.h"

namespace {

constexpr long long kMsPerSecond = 1000;
constexpr long long kMsPerMinute = 60 * kMsPerSecond;
constexpr long long kMsPerHour = 60 * kMsPerMinute;
constexpr long long kMsPerDay = 24 * kMsPerHour;

constexpr int kFirstYear = 1;
constexpr int kLastYear = 9999;

bool isLeapYear(long long year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(long long year, int month) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && isLeapYear(year)) return 29;
  return kDays[month - 1];
}

// Days from 1970-01-01 to year-month-day (proleptic Gregorian). The year is
// shifted to begin in March so that the leap day is the last day of a year;
// 400-year eras of 146097 days then make the count exact for any year.
long long daysFromCivil(long long year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const long long era = (year >= 0 ? year : year - 399) / 400;
  const long long yearOfEra = year - era * 400;                          // [0, 399]
  const long long monthFromMarch = month > 2 ? month - 3 : month + 9;    // [0, 11]
  const long long dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;  // [0, 365]
  const long long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

// The inverse of daysFromCivil.
void civilFromDays(long long days, int* year, int* month, int* day) {
  days += 719468;
  const long long era = (days >= 0 ? days : days - 146096) / 146097;
  const long long dayOfEra = days - era * 146097;  // [0, 146096]
  const long long yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;  // [0, 399]
  const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long long monthFromMarch = (5 * dayOfYear + 2) / 153;  // [0, 11]
  const long long m = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  *day = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
  *month = static_cast<int>(m);
  *year = static_cast<int>(yearOfEra + era * 400 + (m <= 2 ? 1 : 0));
}

long long floorDiv(long long a, long long b) {
  const long long q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

const long long kMinMs = daysFromCivil(kFirstYear, 1, 1) * kMsPerDay;
const long long kMaxMs = daysFromCivil(kLastYear + 1, 1, 1) * kMsPerDay - 1;

// The stored value in whole milliseconds. Values are kept as ms / 1000.0, so
// rounding recovers the exact count.
long long toMilliseconds(double value) { return std::llround(value * 1000.0); }

}  // namespace

QzbDate::QzbDate() noexcept : value_(0.0), null_(true) {}

QzbDate::QzbDate(double value) : value_(0.0), null_(true) { assign(value); }

bool QzbDate::isNull() const { return null_; }

void QzbDate::setNull() {
  value_ = 0.0;
  null_ = true;
}

void QzbDate::assign(const QzbDate& other) { *this = other; }

void QzbDate::assign(double value) {
  if (!std::isfinite(value)) {
    setNull();
    return;
  }
  const double ms = value * 1000.0;
  // Range test in floating point first: llround of a huge value is undefined.
  if (ms < static_cast<double>(kMinMs) - 0.5 || ms >= static_cast<double>(kMaxMs) + 0.5) {
    setNull();
    return;
  }
  const long long rounded = std::llround(ms);
  if (rounded < kMinMs || rounded > kMaxMs) {
    setNull();
    return;
  }
  value_ = static_cast<double>(rounded) / 1000.0;
  null_ = false;
}

bool QzbDate::assign(int year, int month, int day, int hour, int minute, int second,
                     int fraction) {
  const bool valid = year >= kFirstYear && year <= kLastYear && month >= 1 && month <= 12 &&
                     day >= 1 && day <= daysInMonth(year, month) && hour >= 0 && hour <= 23 &&
                     minute >= 0 && minute <= 59 && second >= 0 && second <= 59 &&
                     fraction >= 0 && fraction <= 999;
  if (!valid) {
    setNull();
    return false;
  }
  const long long ms = daysFromCivil(year, month, day) * kMsPerDay + hour * kMsPerHour +
                       minute * kMsPerMinute + second * kMsPerSecond + fraction;
  value_ = static_cast<double>(ms) / 1000.0;
  null_ = false;
  return true;
}

int QzbDate::compare(const QzbDate& other) const {
  if (null_ || other.null_) {
    if (null_ && other.null_) return 0;
    return null_ ? -1 : 1;
  }
  const long long a = toMilliseconds(value_);
  const long long b = toMilliseconds(other.value_);
  if (a == b) return 0;
  return a < b ? -1 : 1;
}

double QzbDate::asDouble() const { return null_ ? 0.0 : value_; }

void QzbDate::currentDate(bool utc) {
  const std::time_t now = static_cast<std::time_t>(np_time_now());
  struct tm parts {};
  const bool converted = utc ? gmtime_r(&now, &parts) != nullptr
                             : localtime_r(&now, &parts) != nullptr;
  if (!converted || !assign(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                            parts.tm_hour, parts.tm_min,
                            // A leap second (60) is shown as the last second.
                            parts.tm_sec > 59 ? 59 : parts.tm_sec, 0)) {
    setNull();
  }
}

bool QzbDate::getElements(int* year, int* month, int* day, int* hour, int* minute, int* second,
                          int* fraction) const {
  if (null_) return false;
  const long long ms = toMilliseconds(value_);
  const long long days = floorDiv(ms, kMsPerDay);
  long long rest = ms - days * kMsPerDay;
  int y = 0;
  int mo = 0;
  int d = 0;
  civilFromDays(days, &y, &mo, &d);
  if (year != nullptr) *year = y;
  if (month != nullptr) *month = mo;
  if (day != nullptr) *day = d;
  if (hour != nullptr) *hour = static_cast<int>(rest / kMsPerHour);
  rest %= kMsPerHour;
  if (minute != nullptr) *minute = static_cast<int>(rest / kMsPerMinute);
  rest %= kMsPerMinute;
  if (second != nullptr) *second = static_cast<int>(rest / kMsPerSecond);
  if (fraction != nullptr) *fraction = static_cast<int>(rest % kMsPerSecond);
  return true;
}

QzbString QzbDate::asString() const {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (!getElements(&year, &month, &day, &hour, &minute, &second, nullptr)) return QzbString();
  return qzbStringFormat("%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute,
                         second);
}
