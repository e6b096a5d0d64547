// Time conversions between file-system seconds and local dates, and the name
// of the user the process runs as.
#include "time_util.h"

#include <cstring>
#include <ctime>

#include "qzbase/platform.h"
#include "qzvault/entry.h"

QzbDate qzviSeconds2QzbDate(int64_t seconds) {
  QzbDate date;
  const time_t value = static_cast<time_t>(seconds);
  struct tm parts;
  std::memset(&parts, 0, sizeof parts);
  // localtime_r rather than localtime: folders of one vault may be listed from
  // several threads, and localtime shares one static result.
  if (localtime_r(&value, &parts) == nullptr) return date;  // out of range: null
  // A year outside what QzbDate holds leaves the date null.
  date.assign(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
              parts.tm_min, parts.tm_sec, 0);
  return date;
}

int64_t qzviQzbDate2Seconds(const QzbDate& date) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, fraction = 0;
  if (!date.getElements(&year, &month, &day, &hour, &minute, &second, &fraction)) return -1;
  struct tm parts;
  std::memset(&parts, 0, sizeof parts);
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  // Standard time always (never -1, "let the C library decide"): stored dates
  // have always been converted this way, so a date inside daylight-saving time
  // comes back one hour off, and existing metadata depends on that.
  parts.tm_isdst = 0;
  return static_cast<int64_t>(mktime(&parts));
}

int64_t qzviCurrentSeconds() { return np_time_now(); }

// An empty (not null) name when the platform cannot tell the user, so that a
// user stamp never turns into a NULL column.
QzbString getCurrentUserName() {
  char buffer[256];
  buffer[0] = '\0';
  if (np_osinf_user(buffer, sizeof buffer) != 0) buffer[0] = '\0';
  buffer[sizeof buffer - 1] = '\0';
  return QzbString(buffer);
}

extern "C" QzbDate qzvSeconds2QzbDate(unsigned long seconds) {
  return qzviSeconds2QzbDate(static_cast<int64_t>(seconds));
}
