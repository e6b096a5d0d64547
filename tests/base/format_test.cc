// Tests of qzbStringFormat: the printf conversions and "%S" for QzbString.
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/path.h"
#include "qzbase/string.h"

namespace {

// What the C library makes of the same format and arguments.
std::string cFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char buffer[512];
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  return buffer;
}

QzbString viaVaList(const char* format, ...) {
  va_list args;
  va_start(args, format);
  QzbString result = qzbStringFormatV(format, args);
  va_end(args);
  return result;
}

TEST(Format, PlainText) {
  EXPECT_STREQ("no conversions here", qzbStringFormat("no conversions here").asCstr());
}

TEST(Format, NullFormatGivesNull) {
  EXPECT_TRUE(qzbStringFormat(nullptr).isNull());
}

TEST(Format, EmptyFormatGivesEmptyString) {
  const QzbString s = qzbStringFormat("");
  EXPECT_FALSE(s.isNull());
  EXPECT_EQ(0u, s.length());
}

TEST(Format, QzbStringConversion) {
  const QzbString dir("/vault/jobs");
  EXPECT_STREQ("Directory /vault/jobs not found",
               qzbStringFormat("Directory %S not found", &dir).asCstr());
  const QzbString a("a");
  const QzbString b("b");
  EXPECT_STREQ("a-b-a", qzbStringFormat("%S-%S-%S", &a, &b, &a).asCstr());
}

TEST(Format, NullQzbStringAndNullPointerInsertNothing) {
  const QzbString null;
  const QzbString empty("");
  EXPECT_STREQ("[]", qzbStringFormat("[%S]", &null).asCstr());
  EXPECT_STREQ("[]", qzbStringFormat("[%S]", &empty).asCstr());
  EXPECT_STREQ("[]", qzbStringFormat("[%S]", static_cast<const QzbString*>(nullptr)).asCstr());
  EXPECT_STREQ("[   ]", qzbStringFormat("[%3S]", &null).asCstr());
}

TEST(Format, QzbStringWidthAndPrecision) {
  const QzbString s("abc");
  EXPECT_STREQ("[     abc]", qzbStringFormat("[%8S]", &s).asCstr());
  EXPECT_STREQ("[abc     ]", qzbStringFormat("[%-8S]", &s).asCstr());
  EXPECT_STREQ("[ab]", qzbStringFormat("[%.2S]", &s).asCstr());
  EXPECT_STREQ("[   ab]", qzbStringFormat("[%5.2S]", &s).asCstr());
  EXPECT_STREQ("[abc]", qzbStringFormat("[%2S]", &s).asCstr());
  EXPECT_STREQ("[    abc]", qzbStringFormat("[%*S]", 7, &s).asCstr());
  EXPECT_STREQ("[a]", qzbStringFormat("[%.*S]", 1, &s).asCstr());
  EXPECT_STREQ("[abc]", qzbStringFormat("[%.*S]", -1, &s).asCstr());
}

TEST(Format, NegativeStarWidthLeftAligns) {
  const QzbString s("abc");
  EXPECT_STREQ("[abc  ]", qzbStringFormat("[%*S]", -5, &s).asCstr());
  EXPECT_STREQ("[xy   ]", qzbStringFormat("[%*s]", -5, "xy").asCstr());
  EXPECT_EQ(cFormat("[%*s]", -5, "xy"), qzbStringFormat("[%*s]", -5, "xy").toStdString());
  EXPECT_EQ(cFormat("[%*d]", -5, 42), qzbStringFormat("[%*d]", -5, 42).toStdString());
}

TEST(Format, QzbStringWithNulBytesKeepsThem) {
  const QzbString bytes = QzbString::fromBytes("a\0b", 3);
  const QzbString out = qzbStringFormat("<%S>", &bytes);
  EXPECT_EQ(5u, out.length());
  EXPECT_EQ(std::string("<a\0b>", 5), out.toStdString());
}

TEST(Format, ZeroTerminatedText) {
  EXPECT_STREQ("name=job1", qzbStringFormat("name=%s", "job1").asCstr());
  EXPECT_STREQ("[  abc]", qzbStringFormat("[%5s]", "abc").asCstr());
  EXPECT_STREQ("[abc  ]", qzbStringFormat("[%-5s]", "abc").asCstr());
  EXPECT_STREQ("[ab]", qzbStringFormat("[%.2s]", "abc").asCstr());
  EXPECT_STREQ("[ a]", qzbStringFormat("[%*.*s]", 2, 1, "abc").asCstr());
}

TEST(Format, NullTextPointer) {
  EXPECT_STREQ("(null)", qzbStringFormat("%s", static_cast<const char*>(nullptr)).asCstr());
  EXPECT_STREQ("(n", qzbStringFormat("%.2s", static_cast<const char*>(nullptr)).asCstr());
}

TEST(Format, PercentSign) {
  EXPECT_STREQ("100%", qzbStringFormat("100%%").asCstr());
  EXPECT_STREQ("%d", qzbStringFormat("%%d").asCstr());
  EXPECT_STREQ("%5%", qzbStringFormat("%%5%%").asCstr());
}

TEST(Format, Integers) {
  EXPECT_STREQ("42", qzbStringFormat("%d", 42).asCstr());
  EXPECT_STREQ("-42", qzbStringFormat("%i", -42).asCstr());
  EXPECT_STREQ("[   42]", qzbStringFormat("[%5d]", 42).asCstr());
  EXPECT_STREQ("[42   ]", qzbStringFormat("[%-5d]", 42).asCstr());
  EXPECT_STREQ("[00042]", qzbStringFormat("[%05d]", 42).asCstr());
  EXPECT_STREQ("[+42]", qzbStringFormat("[%+d]", 42).asCstr());
  EXPECT_STREQ("[ 42]", qzbStringFormat("[% d]", 42).asCstr());
  EXPECT_STREQ("[  007]", qzbStringFormat("[%5.3d]", 7).asCstr());
  EXPECT_STREQ("4294967295", qzbStringFormat("%u", 4294967295u).asCstr());
  EXPECT_STREQ("ff FF 0xff 777", qzbStringFormat("%x %X %#x %o", 255, 255, 255, 511).asCstr());
  EXPECT_STREQ("A", qzbStringFormat("%c", 'A').asCstr());
  EXPECT_STREQ("-2147483648", qzbStringFormat("%d", INT_MIN).asCstr());
}

TEST(Format, LengthModifiers) {
  EXPECT_STREQ("-9223372036854775808", qzbStringFormat("%lld", LLONG_MIN).asCstr());
  EXPECT_STREQ("9223372036854775807", qzbStringFormat("%lld", LLONG_MAX).asCstr());
  EXPECT_STREQ("18446744073709551615", qzbStringFormat("%llu", ULLONG_MAX).asCstr());
  EXPECT_STREQ("1234567890123", qzbStringFormat("%ld", 1234567890123L).asCstr());
  EXPECT_STREQ("4000000000", qzbStringFormat("%lu", 4000000000UL).asCstr());
  EXPECT_EQ(cFormat("%zu", SIZE_MAX), qzbStringFormat("%zu", SIZE_MAX).toStdString());
  EXPECT_STREQ("12345", qzbStringFormat("%zu", static_cast<std::size_t>(12345)).asCstr());
  EXPECT_STREQ("-5", qzbStringFormat("%zd", static_cast<std::ptrdiff_t>(-5)).asCstr());
  EXPECT_STREQ("-7", qzbStringFormat("%td", static_cast<std::ptrdiff_t>(-7)).asCstr());
  EXPECT_STREQ("-8", qzbStringFormat("%jd", static_cast<intmax_t>(-8)).asCstr());
  EXPECT_STREQ("1", qzbStringFormat("%hhd", 257).asCstr());
  EXPECT_STREQ("-1", qzbStringFormat("%hd", 65535).asCstr());
  // A 64-bit argument followed by another: each is fetched at its own size.
  EXPECT_STREQ("5000000000 7", qzbStringFormat("%lld %d", 5000000000LL, 7).asCstr());
  EXPECT_STREQ("7 5000000000 x", qzbStringFormat("%d %llu %s", 7, 5000000000ULL, "x").asCstr());
}

TEST(Format, Doubles) {
  EXPECT_STREQ("1.500000", qzbStringFormat("%f", 1.5).asCstr());
  EXPECT_STREQ("3.14", qzbStringFormat("%.2f", 3.14159).asCstr());
  EXPECT_STREQ("[     3.142]", qzbStringFormat("[%10.3f]", 3.14159).asCstr());
  EXPECT_STREQ("1.000000e+10", qzbStringFormat("%e", 1e10).asCstr());
  EXPECT_STREQ("1e+10", qzbStringFormat("%g", 1e10).asCstr());
  EXPECT_STREQ("0.1", qzbStringFormat("%g", 0.1).asCstr());
  EXPECT_STREQ("2.50", qzbStringFormat("%.*f", 2, 2.5).asCstr());
  EXPECT_STREQ("1.250000", qzbStringFormat("%Lf", 1.25L).asCstr());
  EXPECT_EQ(cFormat("%a", 1.0), qzbStringFormat("%a", 1.0).toStdString());
  EXPECT_STREQ("inf -inf", qzbStringFormat("%g %g", 1.0 / 0.0, -1.0 / 0.0).asCstr());
  EXPECT_STREQ("1.5 x 2", qzbStringFormat("%g %s %d", 1.5, "x", 2).asCstr());
}

TEST(Format, Pointer) {
  int value = 0;
  EXPECT_EQ(cFormat("%p", static_cast<void*>(&value)),
            qzbStringFormat("%p", static_cast<void*>(&value)).toStdString());
}

TEST(Format, WriteBackConversionWritesNothing) {
  int count = 77;
  EXPECT_STREQ("ab", qzbStringFormat("a%nb", &count).asCstr());
  EXPECT_EQ(77, count);
}

TEST(Format, DanglingAndUnknownConversionsAreCopied) {
  EXPECT_STREQ("abc%", qzbStringFormat("abc%").asCstr());
  EXPECT_STREQ("x%l", qzbStringFormat("x%l").asCstr());
  EXPECT_STREQ("%y 5", qzbStringFormat("%y %d", 5).asCstr());
}

TEST(Format, VeryLongOutput) {
  const std::string longText(100000, 'x');
  const QzbString s = qzbStringFormat("<%s>", longText.c_str());
  EXPECT_EQ(100002u, s.length());
  EXPECT_EQ("<" + longText + ">", s.toStdString());

  const QzbString q = QzbString::fromStdString(longText);
  const QzbString viaS = qzbStringFormat("%S%S", &q, &q);
  EXPECT_EQ(200000u, viaS.length());

  // Conversions wider than any small buffer.
  const QzbString wide = qzbStringFormat("%1000d|", 7);
  ASSERT_EQ(1001u, wide.length());
  EXPECT_EQ(std::string(999, ' ') + "7|", wide.toStdString());
  const QzbString precise = qzbStringFormat("%.400f", 1.0);
  EXPECT_EQ(402u, precise.length());
  EXPECT_EQ("1." + std::string(400, '0'), precise.toStdString());
}

TEST(Format, ManyConversions) {
  std::string format;
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    format += "%d,";
    expected += std::to_string(i) + ",";
  }
  const QzbString s = qzbStringFormat(format.c_str(), 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                      13, 14, 15, 16, 17, 18, 19);
  EXPECT_EQ(expected, s.toStdString());
}

TEST(Format, VaListForm) {
  const QzbString name("v");
  EXPECT_STREQ("v=3", viaVaList("%S=%d", &name, 3).asCstr());
  EXPECT_TRUE(viaVaList(nullptr).isNull());
}

}  // namespace
