// Tests of QzbDatavar: each kind of value, its type and its conversions.
#include "qzbase/datavar.h"

#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

namespace {

TEST(Datavar, DefaultIsNull) {
  const QzbDatavar v;
  EXPECT_TRUE(v.isNull());
  EXPECT_EQ(QZB_DATAVAR_NULL, v.type());
  EXPECT_TRUE(v.asString().isNull());
  bool ok = true;
  EXPECT_EQ(0, v.asInt(&ok));
  EXPECT_FALSE(ok);
  ok = true;
  EXPECT_EQ(0LL, v.asInt64(&ok));
  EXPECT_FALSE(ok);
  ok = true;
  EXPECT_EQ(0.0, v.asDouble(&ok));
  EXPECT_FALSE(ok);
  EXPECT_TRUE(v.asDate().isNull());
}

TEST(Datavar, Int32) {
  QzbDatavar v;
  v.assign(-42);
  EXPECT_FALSE(v.isNull());
  EXPECT_EQ(QZB_DATAVAR_INT32, v.type());
  EXPECT_STREQ("-42", v.asString().asCstr());
  bool ok = false;
  EXPECT_EQ(-42, v.asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-42LL, v.asInt64());
  EXPECT_EQ(-42.0, v.asDouble());
  EXPECT_EQ(QZB_DATAVAR_INT32, QzbDatavar(7).type());
}

TEST(Datavar, Int64FromLongAndLongLong) {
  const QzbDatavar fromLong(static_cast<long>(5000000000L));
  EXPECT_EQ(QZB_DATAVAR_INT64, fromLong.type());
  EXPECT_EQ(5000000000LL, fromLong.asInt64());
  EXPECT_STREQ("5000000000", fromLong.asString().asCstr());

  QzbDatavar v;
  v.assign(-9223372036854775807LL - 1);
  EXPECT_EQ(QZB_DATAVAR_INT64, v.type());
  EXPECT_STREQ("-9223372036854775808", v.asString().asCstr());
  EXPECT_EQ(-9223372036854775807LL - 1, v.asInt64());
}

TEST(Datavar, Int64AsIntKeepsLowBits) {
  const QzbDatavar v(4294967297LL);  // 2^32 + 1
  bool ok = false;
  EXPECT_EQ(1, v.asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-1, QzbDatavar(4294967295LL).asInt());
}

TEST(Datavar, DoubleAndShortestText) {
  QzbDatavar v(0.1);
  EXPECT_EQ(QZB_DATAVAR_DOUBLE, v.type());
  EXPECT_STREQ("0.1", v.asString().asCstr());
  EXPECT_STREQ("2.5", QzbDatavar(2.5).asString().asCstr());
  EXPECT_STREQ("-3", QzbDatavar(-3.0).asString().asCstr());
  EXPECT_STREQ("100", QzbDatavar(100.0).asString().asCstr());
  EXPECT_STREQ("0.0001", QzbDatavar(0.0001).asString().asCstr());
  EXPECT_STREQ("1e+16", QzbDatavar(1e16).asString().asCstr());
  EXPECT_STREQ("123456789012345680", QzbDatavar(123456789012345680.0).asString().asCstr());
  EXPECT_STREQ("-0", QzbDatavar(-0.0).asString().asCstr());
  EXPECT_STREQ("1e+300", QzbDatavar(1e300).asString().asCstr());
  const double third = 1.0 / 3.0;
  const QzbString text = QzbDatavar(third).asString();
  EXPECT_EQ(third, std::strtod(text.asCstr(), nullptr)) << text.asCstr();
  EXPECT_EQ(1625140800.123, std::strtod(QzbDatavar(1625140800.123).asString().asCstr(), nullptr));
}

TEST(Datavar, DoubleConversions) {
  bool ok = false;
  EXPECT_EQ(2, QzbDatavar(2.9).asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-2, QzbDatavar(-2.9).asInt());
  EXPECT_EQ(2.9, QzbDatavar(2.9).asDouble());
  ok = true;
  EXPECT_EQ(0, QzbDatavar(static_cast<double>(NAN)).asInt(&ok));
  EXPECT_FALSE(ok);
  ok = true;
  EXPECT_EQ(0LL, QzbDatavar(1e30).asInt64(&ok));
  EXPECT_FALSE(ok);
}

TEST(Datavar, Text) {
  QzbDatavar v("hello");
  EXPECT_EQ(QZB_DATAVAR_STRING, v.type());
  EXPECT_STREQ("hello", v.asString().asCstr());
  bool ok = true;
  EXPECT_EQ(0, v.asInt(&ok));
  EXPECT_FALSE(ok);
  ok = true;
  EXPECT_EQ(0.0, v.asDouble(&ok));
  EXPECT_FALSE(ok);

  v.assign(QzbString(" 12 "));
  ok = false;
  EXPECT_EQ(12, v.asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(12.0, v.asDouble());
  v.assign("4294967298");
  EXPECT_EQ(2, v.asInt());
  EXPECT_EQ(4294967298LL, v.asInt64());
}

TEST(Datavar, EmptyTextIsNotNull) {
  const QzbDatavar v("");
  EXPECT_FALSE(v.isNull());
  EXPECT_EQ(QZB_DATAVAR_STRING, v.type());
  EXPECT_FALSE(v.asString().isNull());
  EXPECT_EQ(0u, v.asString().length());
}

TEST(Datavar, NullTextMakesNull) {
  QzbDatavar v(5);
  v.assign(static_cast<const char*>(nullptr));
  EXPECT_TRUE(v.isNull());
  v.assign(3);
  v.assign(QzbString());
  EXPECT_TRUE(v.isNull());
  EXPECT_TRUE(QzbDatavar(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(QzbDatavar(QzbString()).isNull());
}

TEST(Datavar, Date) {
  QzbDate date;
  ASSERT_TRUE(date.assign(2021, 7, 1, 12, 0, 0, 0));
  const QzbDatavar v(date);
  EXPECT_EQ(QZB_DATAVAR_DATE, v.type());
  EXPECT_EQ(1625140800.0, v.asDouble());
  EXPECT_STREQ("1625140800", v.asString().asCstr());
  EXPECT_EQ(1625140800LL, v.asInt64());
  EXPECT_EQ(0, v.asDate().compare(date));
}

TEST(Datavar, NullDateMakesNull) {
  QzbDatavar v("x");
  v.assign(QzbDate());
  EXPECT_TRUE(v.isNull());
  EXPECT_TRUE(QzbDatavar(QzbDate()).isNull());
}

TEST(Datavar, AsDateFromNumbersAndText) {
  EXPECT_EQ(86400.0, QzbDatavar(86400).asDate().asDouble());
  EXPECT_EQ(1.5, QzbDatavar(1.5).asDate().asDouble());
  EXPECT_EQ(1625140800.0, QzbDatavar("1625140800").asDate().asDouble());
  EXPECT_FALSE(QzbDatavar(0).asDate().isNull());
  EXPECT_TRUE(QzbDatavar("yesterday").asDate().isNull());
  EXPECT_TRUE(QzbDatavar(1e300).asDate().isNull());
}

TEST(Datavar, ReassignReplacesTypeAndValue) {
  QzbDatavar v("text");
  v.assign(5);
  EXPECT_EQ(QZB_DATAVAR_INT32, v.type());
  EXPECT_STREQ("5", v.asString().asCstr());
  v.assign(2.25);
  EXPECT_STREQ("2.25", v.asString().asCstr());
  v.assign("again");
  EXPECT_STREQ("again", v.asString().asCstr());
}

TEST(Datavar, AssignItsOwnText) {
  QzbDatavar v("same");
  const QzbString held = v.asString();
  v.assign(held);
  EXPECT_STREQ("same", v.asString().asCstr());
  v.assign(held.asCstr());
  EXPECT_STREQ("same", v.asString().asCstr());
}

TEST(Datavar, SetNull) {
  QzbDatavar v(12LL);
  v.setNull();
  EXPECT_TRUE(v.isNull());
  EXPECT_EQ(QZB_DATAVAR_NULL, v.type());
  EXPECT_TRUE(v.asString().isNull());
}

TEST(Datavar, CopiesAreIndependent) {
  QzbDatavar original("first");
  QzbDatavar copy(original);
  original.assign("second");
  EXPECT_STREQ("first", copy.asString().asCstr());
  copy = original;
  EXPECT_STREQ("second", copy.asString().asCstr());
}

}  // namespace
