// Time conversions between file-system seconds and local dates, the current
// time and the user name. Each test that needs a time zone sets it itself and
// restores the previous one.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "qzvault/entry.h"
#include "platform_override.h"
#include "time_util.h"

namespace {

using qztest::PlatformOverride;

// Sets TZ for the scope of a test and restores the previous setting.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    const char* previous = std::getenv("TZ");
    hadPrevious_ = previous != nullptr;
    if (hadPrevious_) previous_ = previous;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    if (hadPrevious_) {
      setenv("TZ", previous_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  bool hadPrevious_ = false;
  std::string previous_;
};

// Central European time: UTC+1, daylight-saving time UTC+2 from the last
// Sunday of March to the last Sunday of October.
const char kZoneWithDaylightSaving[] = "CET-1CEST,M3.5.0,M10.5.0/3";

struct Elements {
  int year, month, day, hour, minute, second, fraction;
};

Elements elementsOf(const QzbDate& date) {
  Elements e{};
  EXPECT_TRUE(date.getElements(&e.year, &e.month, &e.day, &e.hour, &e.minute, &e.second,
                               &e.fraction));
  return e;
}

void expectElements(const QzbDate& date, int year, int month, int day, int hour, int minute,
                    int second) {
  const Elements e = elementsOf(date);
  EXPECT_EQ(e.year, year);
  EXPECT_EQ(e.month, month);
  EXPECT_EQ(e.day, day);
  EXPECT_EQ(e.hour, hour);
  EXPECT_EQ(e.minute, minute);
  EXPECT_EQ(e.second, second);
  EXPECT_EQ(e.fraction, 0);
}

TEST(TimeUtil, SecondsBecomeTheirUtcCalendarElementsAndRoundTrip) {
  TimeZone utc("UTC0");
  expectElements(qzviSeconds2QzbDate(0), 1970, 1, 1, 0, 0, 0);
  expectElements(qzviSeconds2QzbDate(86399), 1970, 1, 1, 23, 59, 59);
  expectElements(qzviSeconds2QzbDate(951825600), 2000, 2, 29, 12, 0, 0);
  expectElements(qzviSeconds2QzbDate(1700000000), 2023, 11, 14, 22, 13, 20);
  for (int64_t seconds : {int64_t{0}, int64_t{86399}, int64_t{951825600}, int64_t{1700000000},
                          int64_t{4102444799}}) {
    EXPECT_EQ(qzviQzbDate2Seconds(qzviSeconds2QzbDate(seconds)), seconds) << seconds;
  }
}

TEST(TimeUtil, LocalDateFollowsTheTimeZone) {
  TimeZone zone(kZoneWithDaylightSaving);
  // 2023-01-15 12:00:00 UTC is 13:00 standard time.
  expectElements(qzviSeconds2QzbDate(1673784000), 2023, 1, 15, 13, 0, 0);
  // 2023-07-01 12:00:00 UTC is 14:00 daylight-saving time.
  expectElements(qzviSeconds2QzbDate(1688212800), 2023, 7, 1, 14, 0, 0);
}

TEST(TimeUtil, StandardTimeDatesRoundTrip) {
  TimeZone zone(kZoneWithDaylightSaving);
  const int64_t winter = 1673784000;  // 2023-01-15 12:00:00 UTC
  EXPECT_EQ(qzviQzbDate2Seconds(qzviSeconds2QzbDate(winter)), winter);
}

TEST(TimeUtil, DaylightSavingDatesComeBackOneHourLate) {
  // Dates are turned back into seconds as standard time, so a date inside
  // daylight-saving time comes back one hour later than it went in. Stored
  // metadata depends on this; it is not corrected.
  TimeZone zone(kZoneWithDaylightSaving);
  const int64_t summer = 1688212800;  // 2023-07-01 12:00:00 UTC
  EXPECT_EQ(qzviQzbDate2Seconds(qzviSeconds2QzbDate(summer)), summer + 3600);

  QzbDate localNoon;
  ASSERT_TRUE(localNoon.assign(2023, 7, 1, 12, 0, 0, 0));
  // 12:00 read as standard time (UTC+1) is 11:00 UTC.
  EXPECT_EQ(qzviQzbDate2Seconds(localNoon), 1688209200);
}

TEST(TimeUtil, FractionOfADateIsDropped) {
  TimeZone utc("UTC0");
  QzbDate date;
  ASSERT_TRUE(date.assign(2001, 9, 9, 1, 46, 40, 999));
  EXPECT_EQ(qzviQzbDate2Seconds(date), 1000000000);
}

TEST(TimeUtil, NullDateGivesMinusOne) {
  EXPECT_EQ(qzviQzbDate2Seconds(QzbDate()), -1);
}

TEST(TimeUtil, ExportedConversionForwardsToTheLibraryOne) {
  TimeZone zone(kZoneWithDaylightSaving);
  for (unsigned long seconds : {0UL, 1673784000UL, 1688212800UL, 4102444799UL}) {
    const QzbDate exported = qzvSeconds2QzbDate(seconds);
    EXPECT_FALSE(exported.isNull());
    EXPECT_EQ(exported, qzviSeconds2QzbDate(static_cast<int64_t>(seconds))) << seconds;
  }
  expectElements(qzvSeconds2QzbDate(1688212800UL), 2023, 7, 1, 14, 0, 0);
}

TEST(TimeUtil, CurrentSecondsComeFromThePlatformClock) {
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.time_now = []() -> int64_t { return 1234567890; };
  PlatformOverride platform(ops);
  EXPECT_EQ(qzviCurrentSeconds(), 1234567890);
}

TEST(TimeUtil, UserNameIsThePlatformsLoginName) {
  char expected[256] = "";
  ASSERT_EQ(np_osinf_user(expected, sizeof expected), 0);
  const QzbString name = getCurrentUserName();
  EXPECT_FALSE(name.isEmpty());
  EXPECT_EQ(name.toStdString(), expected);
}

TEST(TimeUtil, UserNameIsWhatThePlatformReports) {
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.osinf_user = [](char* buffer, std::size_t length) {
    std::strncpy(buffer, "operator7", length);
    return 0;
  };
  PlatformOverride platform(ops);
  EXPECT_EQ(getCurrentUserName().toStdString(), "operator7");
}

TEST(TimeUtil, UserNameIsEmptyWhenThePlatformCannotTell) {
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.osinf_user = [](char* buffer, std::size_t length) {
    if (length > 0) buffer[0] = 'x';  // a partial write must not leak out
    return static_cast<int>(NP_ERR_UNKNOWN);
  };
  PlatformOverride platform(ops);
  const QzbString name = getCurrentUserName();
  EXPECT_FALSE(name.isNull());
  EXPECT_EQ(name.toStdString(), "");
}

}  // namespace
