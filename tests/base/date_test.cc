// Tests of QzbDate: the numeric and element forms, validation, comparison,
// text form and the present moment in UTC and in local time.
#include "qzbase/date.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Elements {
  int year = -1, month = -1, day = -1, hour = -1, minute = -1, second = -1, fraction = -1;
};

Elements elementsOf(const QzbDate& date) {
  Elements e;
  EXPECT_TRUE(date.getElements(&e.year, &e.month, &e.day, &e.hour, &e.minute, &e.second,
                               &e.fraction));
  return e;
}

QzbDate makeDate(int year, int month, int day, int hour, int minute, int second, int fraction) {
  QzbDate date;
  EXPECT_TRUE(date.assign(year, month, day, hour, minute, second, fraction));
  return date;
}

// Sets TZ for the lifetime of the object and restores the previous value.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = std::getenv("TZ");
    hadOld_ = old != nullptr;
    if (hadOld_) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (hadOld_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool hadOld_ = false;
  std::string old_;
};

TEST(Date, DefaultIsNull) {
  QzbDate date;
  EXPECT_TRUE(date.isNull());
  EXPECT_EQ(0.0, date.asDouble());
  EXPECT_TRUE(date.asString().isNull());
}

TEST(Date, GetElementsOfNullDateWritesNothing) {
  QzbDate date;
  Elements e;
  EXPECT_FALSE(date.getElements(&e.year, &e.month, &e.day, &e.hour, &e.minute, &e.second,
                                &e.fraction));
  EXPECT_EQ(-1, e.year);
  EXPECT_EQ(-1, e.month);
  EXPECT_EQ(-1, e.fraction);
}

TEST(Date, GetElementsAcceptsNullPointers) {
  const QzbDate date = makeDate(2021, 7, 1, 12, 30, 45, 250);
  int minute = 0;
  EXPECT_TRUE(date.getElements(nullptr, nullptr, nullptr, nullptr, &minute, nullptr, nullptr));
  EXPECT_EQ(30, minute);
}

TEST(Date, ZeroIsTheEpochAndNotNull) {
  QzbDate date(0.0);
  EXPECT_FALSE(date.isNull());
  const Elements e = elementsOf(date);
  EXPECT_EQ(1970, e.year);
  EXPECT_EQ(1, e.month);
  EXPECT_EQ(1, e.day);
  EXPECT_EQ(0, e.hour);
  EXPECT_EQ(0, e.minute);
  EXPECT_EQ(0, e.second);
  EXPECT_EQ(0, e.fraction);
  EXPECT_STREQ("1970-01-01 00:00:00", date.asString().asCstr());
}

TEST(Date, ElementFormGivesSecondsOnUniformCalendar) {
  EXPECT_EQ(1625140800.0, makeDate(2021, 7, 1, 12, 0, 0, 0).asDouble());
  EXPECT_EQ(951782400.0, makeDate(2000, 2, 29, 0, 0, 0, 0).asDouble());
  EXPECT_EQ(-1.0, makeDate(1969, 12, 31, 23, 59, 59, 0).asDouble());
  EXPECT_EQ(-62135596800.0, makeDate(1, 1, 1, 0, 0, 0, 0).asDouble());
  EXPECT_EQ(253402300799.999, makeDate(9999, 12, 31, 23, 59, 59, 999).asDouble());
  EXPECT_EQ(4107542400.0, makeDate(2100, 3, 1, 0, 0, 0, 0).asDouble());
}

TEST(Date, FractionIsMilliseconds) {
  EXPECT_EQ(1625140800.123, makeDate(2021, 7, 1, 12, 0, 0, 123).asDouble());
  const Elements e = elementsOf(QzbDate(1.5));
  EXPECT_EQ(1, e.second);
  EXPECT_EQ(500, e.fraction);
  const Elements before = elementsOf(QzbDate(-0.25));
  EXPECT_EQ(1969, before.year);
  EXPECT_EQ(59, before.second);
  EXPECT_EQ(750, before.fraction);
}

TEST(Date, NumericValueRoundTripsThroughElements) {
  const double values[] = {0.0, 1.0, -1.0, 86399.999, 1625140800.123, -62135596800.0,
                           253402300799.999, 951782400.5, -12219292800.0};
  for (double value : values) {
    const QzbDate date(value);
    ASSERT_FALSE(date.isNull()) << value;
    const Elements e = elementsOf(date);
    QzbDate back;
    ASSERT_TRUE(back.assign(e.year, e.month, e.day, e.hour, e.minute, e.second, e.fraction));
    EXPECT_EQ(value, back.asDouble()) << value;
    EXPECT_EQ(0, back.compare(date)) << value;
  }
}

// Walks every day from year 1 to 9999 with a plain calendar counter and checks
// that the numeric form agrees with it in both directions.
TEST(Date, EveryDayOfTheCalendarAgreesWithACounter) {
  const double firstDay = -62135596800.0;
  int year = 1;
  int month = 1;
  int day = 1;
  const int monthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (long long n = 0;; ++n) {
    const double value = firstDay + static_cast<double>(n) * 86400.0;
    const QzbDate date(value);
    int y = 0;
    int m = 0;
    int d = 0;
    ASSERT_TRUE(date.getElements(&y, &m, &d, nullptr, nullptr, nullptr, nullptr)) << value;
    ASSERT_EQ(year, y) << n;
    ASSERT_EQ(month, m) << n;
    ASSERT_EQ(day, d) << n;
    QzbDate back;
    ASSERT_TRUE(back.assign(year, month, day, 0, 0, 0, 0));
    ASSERT_EQ(value, back.asDouble()) << year << "-" << month << "-" << day;

    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const int last = month == 2 && leap ? 29 : monthDays[month - 1];
    if (++day > last) {
      day = 1;
      if (++month > 12) {
        month = 1;
        ++year;
      }
    }
    if (year > 9999) break;
  }
}

TEST(Date, LeapDays) {
  QzbDate date;
  EXPECT_TRUE(date.assign(2000, 2, 29, 0, 0, 0, 0));
  EXPECT_TRUE(date.assign(2024, 2, 29, 0, 0, 0, 0));
  EXPECT_TRUE(date.assign(1600, 2, 29, 0, 0, 0, 0));
  EXPECT_FALSE(date.assign(1900, 2, 29, 0, 0, 0, 0));
  EXPECT_FALSE(date.assign(2023, 2, 29, 0, 0, 0, 0));
  EXPECT_FALSE(date.assign(2100, 2, 29, 0, 0, 0, 0));
}

TEST(Date, InvalidElementsGiveNull) {
  struct Case {
    int year, month, day, hour, minute, second, fraction;
  };
  const Case cases[] = {
      {0, 1, 1, 0, 0, 0, 0},     {10000, 1, 1, 0, 0, 0, 0},  {-5, 1, 1, 0, 0, 0, 0},
      {2021, 0, 1, 0, 0, 0, 0},  {2021, 13, 1, 0, 0, 0, 0},  {2021, 1, 0, 0, 0, 0, 0},
      {2021, 1, 32, 0, 0, 0, 0}, {2021, 4, 31, 0, 0, 0, 0},  {2021, 2, 30, 0, 0, 0, 0},
      {2021, 1, 1, 24, 0, 0, 0}, {2021, 1, 1, -1, 0, 0, 0},  {2021, 1, 1, 0, 60, 0, 0},
      {2021, 1, 1, 0, -1, 0, 0}, {2021, 1, 1, 0, 0, 60, 0},  {2021, 1, 1, 0, 0, -1, 0},
      {2021, 1, 1, 0, 0, 0, -1}, {2021, 1, 1, 0, 0, 0, 1000},
  };
  for (const Case& c : cases) {
    QzbDate date(12345.0);
    ASSERT_FALSE(date.isNull());
    EXPECT_FALSE(date.assign(c.year, c.month, c.day, c.hour, c.minute, c.second, c.fraction))
        << c.year << "-" << c.month << "-" << c.day << " " << c.hour << ":" << c.minute << ":"
        << c.second << "." << c.fraction;
    EXPECT_TRUE(date.isNull());
  }
}

TEST(Date, ExtremeValidElements) {
  QzbDate date;
  EXPECT_TRUE(date.assign(1, 1, 1, 0, 0, 0, 0));
  EXPECT_TRUE(date.assign(9999, 12, 31, 23, 59, 59, 999));
  EXPECT_STREQ("9999-12-31 23:59:59", date.asString().asCstr());
}

TEST(Date, NumericValueOutsideRangeGivesNull) {
  const double bad[] = {NAN, INFINITY, -INFINITY, -62135596800.001, -62135596801.0,
                        253402300800.0, 1e300, -1e300};
  for (double value : bad) {
    QzbDate date(5.0);
    date.assign(value);
    EXPECT_TRUE(date.isNull()) << value;
    EXPECT_TRUE(QzbDate(value).isNull()) << value;
  }
  EXPECT_FALSE(QzbDate(-62135596800.0).isNull());
  EXPECT_FALSE(QzbDate(253402300799.999).isNull());
}

TEST(Date, SetNull) {
  QzbDate date(100.0);
  date.setNull();
  EXPECT_TRUE(date.isNull());
  EXPECT_EQ(0.0, date.asDouble());
}

TEST(Date, CopyAndAssignKeepValueAndNullness) {
  const QzbDate source = makeDate(2010, 5, 6, 7, 8, 9, 10);
  QzbDate copy(source);
  EXPECT_EQ(0, copy.compare(source));
  QzbDate assigned;
  assigned.assign(source);
  EXPECT_EQ(source.asDouble(), assigned.asDouble());
  QzbDate nullDate;
  assigned.assign(nullDate);
  EXPECT_TRUE(assigned.isNull());
  copy = nullDate;
  EXPECT_TRUE(copy.isNull());
}

TEST(Date, CompareOrdersDates) {
  const QzbDate early = makeDate(2001, 1, 1, 0, 0, 0, 0);
  const QzbDate late = makeDate(2001, 1, 1, 0, 0, 0, 1);
  EXPECT_LT(early.compare(late), 0);
  EXPECT_GT(late.compare(early), 0);
  EXPECT_EQ(0, early.compare(makeDate(2001, 1, 1, 0, 0, 0, 0)));
  EXPECT_TRUE(early < late);
  EXPECT_TRUE(early != late);
  EXPECT_FALSE(late < early);
}

TEST(Date, CompareIsToTheMillisecond) {
  EXPECT_EQ(0, QzbDate(10.0).compare(QzbDate(10.0004)));
  EXPECT_EQ(0, QzbDate(10.0004).compare(QzbDate(9.9996)));
  EXPECT_LT(QzbDate(10.0).compare(QzbDate(10.001)), 0);
}

TEST(Date, NullOrdersFirstAndEqualsOnlyNull) {
  const QzbDate null1;
  const QzbDate null2;
  const QzbDate first = makeDate(1, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(0, null1.compare(null2));
  EXPECT_TRUE(null1 == null2);
  EXPECT_LT(null1.compare(first), 0);
  EXPECT_GT(first.compare(null1), 0);
  EXPECT_NE(0, null1.compare(QzbDate(0.0)));
}

TEST(Date, NumericValueThroughTextComparesEqual) {
  const QzbDate date = makeDate(2019, 11, 23, 17, 45, 12, 345);
  for (const char* format : {"%.3f", "%.6f", "%.15g", "%.17g"}) {
    char text[64];
    std::snprintf(text, sizeof text, format, date.asDouble());
    const QzbDate back(std::strtod(text, nullptr));
    EXPECT_EQ(0, back.compare(date)) << format << " " << text;
  }
}

TEST(Date, AsStringPadsEveryElement) {
  EXPECT_STREQ("0005-01-02 03:04:05", makeDate(5, 1, 2, 3, 4, 5, 678).asString().asCstr());
  EXPECT_STREQ("2021-12-31 23:59:59", makeDate(2021, 12, 31, 23, 59, 59, 0).asString().asCstr());
}

TEST(Date, NumericFormDoesNotDependOnTimeZone) {
  double values[2];
  const char* zones[2] = {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3"};
  for (int i = 0; i < 2; ++i) {
    ScopedTimeZone zone(zones[i]);
    values[i] = makeDate(2021, 7, 1, 12, 0, 0, 0).asDouble();
  }
  EXPECT_EQ(1625140800.0, values[0]);
  EXPECT_EQ(values[0], values[1]);
}

TEST(Date, CurrentDateUtcIsSecondsSinceEpoch) {
  const std::time_t before = std::time(nullptr);
  QzbDate date;
  date.currentDate(true);
  const std::time_t after = std::time(nullptr);
  ASSERT_FALSE(date.isNull());
  EXPECT_GE(date.asDouble(), static_cast<double>(before));
  EXPECT_LE(date.asDouble(), static_cast<double>(after));
  EXPECT_EQ(0, elementsOf(date).fraction);
}

// Takes local and UTC dates of one and the same second and returns the
// difference; retries when a second boundary falls between the two calls.
double localMinusUtc(long* expectedOffset) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::time_t before = std::time(nullptr);
    QzbDate local;
    local.currentDate(false);
    QzbDate utc;
    utc.currentDate(true);
    const std::time_t after = std::time(nullptr);
    if (before != after || local.isNull() || utc.isNull()) continue;
    struct tm parts {};
    localtime_r(&before, &parts);
    *expectedOffset = parts.tm_gmtoff;
    return local.asDouble() - utc.asDouble();
  }
  ADD_FAILURE() << "could not take both dates within one second";
  return 0.0;
}

TEST(Date, CurrentDateLocalFollowsFixedZone) {
  ScopedTimeZone zone("<+0530>-5:30");
  long offset = 0;
  EXPECT_EQ(19800.0, localMinusUtc(&offset));
  EXPECT_EQ(19800, offset);
}

TEST(Date, CurrentDateLocalInUtcZoneEqualsUtc) {
  ScopedTimeZone zone("UTC0");
  long offset = -1;
  EXPECT_EQ(0.0, localMinusUtc(&offset));
  EXPECT_EQ(0, offset);
}

TEST(Date, CurrentDateLocalHonoursDaylightSavingTime) {
  // Central European rules: one hour east of UTC, two in summer.
  ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  long offset = 0;
  const double difference = localMinusUtc(&offset);
  EXPECT_TRUE(offset == 3600 || offset == 7200) << offset;
  EXPECT_EQ(static_cast<double>(offset), difference);
}

TEST(Date, TimeZoneIsRestoredAfterScopedChange) {
  const char* before = std::getenv("TZ");
  const std::string saved = before == nullptr ? "" : before;
  { ScopedTimeZone zone("<+0530>-5:30"); }
  const char* after = std::getenv("TZ");
  EXPECT_EQ(before == nullptr, after == nullptr);
  if (after != nullptr) {
    EXPECT_EQ(saved, after);
  }
}

}  // namespace
