#include "iso_date.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace qzvtool {
namespace {

std::string format(const std::tm& local) {
  char text[64];
  const long offsetMinutes = local.tm_gmtoff / 60;
  const long absolute = std::labs(offsetMinutes);
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02ld:%02ld", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                offsetMinutes < 0 ? '-' : '+', absolute / 60, absolute % 60);
  return text;
}

}  // namespace

std::string isoDateTime(std::int64_t seconds) {
  const std::time_t when = static_cast<std::time_t>(seconds);
  std::tm local{};
  if (localtime_r(&when, &local) == nullptr) return std::string();
  return format(local);
}

std::string isoDateTime(const QzbDate& date) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (!date.getElements(&year, &month, &day, &hour, &minute, &second, nullptr)) return std::string();
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;  // the zone's own rule for that date
  if (std::mktime(&local) == static_cast<std::time_t>(-1)) return std::string();
  return format(local);
}

}  // namespace qzvtool
