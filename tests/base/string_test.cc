// Tests of QzbString: null versus empty, every operation the library relies
// on, and its use as a key of ordered and hashed maps.
#include "qzbase/string.h"

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <gtest/gtest.h>

namespace {

TEST(String, DefaultIsNull) {
  const QzbString s;
  EXPECT_TRUE(s.isNull());
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(0u, s.length());
  ASSERT_NE(nullptr, s.asCstr());
  EXPECT_STREQ("", s.asCstr());
}

TEST(String, NullPointerGivesNull) {
  EXPECT_TRUE(QzbString(nullptr).isNull());
  EXPECT_TRUE(QzbString(nullptr, true).isNull());
}

TEST(String, EmptyTextIsNotNull) {
  const QzbString s("");
  EXPECT_FALSE(s.isNull());
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(0u, s.length());
}

TEST(String, StaticFlagGivesSameValue) {
  const QzbString literal("SELECT 1", true);
  const QzbString transient("SELECT 1", false);
  EXPECT_EQ(literal, transient);
  char buffer[] = "abc";
  const QzbString copy(buffer, false);
  buffer[0] = 'x';
  EXPECT_STREQ("abc", copy.asCstr());
}

TEST(String, CopyKeepsNullAndEmptyApart) {
  const QzbString null;
  const QzbString empty("");
  const QzbString nullCopy(null);
  const QzbString emptyCopy(empty);
  EXPECT_TRUE(nullCopy.isNull());
  EXPECT_FALSE(emptyCopy.isNull());
  EXPECT_EQ(0u, emptyCopy.length());
}

TEST(String, MoveKeepsNullAndEmptyApart) {
  QzbString null;
  QzbString empty("");
  QzbString text("abc");
  const QzbString movedNull(std::move(null));
  const QzbString movedEmpty(std::move(empty));
  const QzbString movedText(std::move(text));
  EXPECT_TRUE(movedNull.isNull());
  EXPECT_FALSE(movedEmpty.isNull());
  EXPECT_EQ(0u, movedEmpty.length());
  EXPECT_STREQ("abc", movedText.asCstr());
  // A moved-from string is left null, a valid state.
  EXPECT_TRUE(text.isNull());  // NOLINT(bugprone-use-after-move)
}

TEST(String, AssignmentKeepsNullAndEmptyApart) {
  QzbString target("something");
  target = QzbString();
  EXPECT_TRUE(target.isNull());
  target = QzbString("");
  EXPECT_FALSE(target.isNull());
  EXPECT_EQ(0u, target.length());

  const QzbString null;
  const QzbString empty("");
  QzbString a("x");
  a = null;
  EXPECT_TRUE(a.isNull());
  a = empty;
  EXPECT_FALSE(a.isNull());
  EXPECT_TRUE(a.isEmpty());

  QzbString moved;
  QzbString source("");
  moved = std::move(source);
  EXPECT_FALSE(moved.isNull());
}

TEST(String, SelfAssignment) {
  QzbString s("keep");
  const QzbString& alias = s;
  s = alias;
  EXPECT_STREQ("keep", s.asCstr());
  QzbString& movable = s;
  s = std::move(movable);
  EXPECT_STREQ("keep", s.asCstr());
}

TEST(String, Assign) {
  QzbString s;
  s.assign("text");
  EXPECT_FALSE(s.isNull());
  EXPECT_STREQ("text", s.asCstr());
  s.assign("");
  EXPECT_FALSE(s.isNull());
  EXPECT_EQ(0u, s.length());
  s.assign(static_cast<const char*>(nullptr));
  EXPECT_TRUE(s.isNull());
}

TEST(String, AssignBytesKeepsNulBytes) {
  QzbString s;
  s.assign("a\0b", 3);
  EXPECT_EQ(3u, s.length());
  EXPECT_EQ(std::string("a\0b", 3), s.toStdString());
  s.assign(nullptr, 5);
  EXPECT_TRUE(s.isNull());
  const QzbString bytes = QzbString::fromBytes("xyz", 2);
  EXPECT_STREQ("xy", bytes.asCstr());
  EXPECT_FALSE(QzbString::fromBytes("", 0).isNull());
  EXPECT_TRUE(QzbString::fromBytes(nullptr, 0).isNull());
  EXPECT_STREQ("std", QzbString::fromStdString("std").asCstr());
  EXPECT_FALSE(QzbString::fromStdString("").isNull());
}

TEST(String, SetNull) {
  QzbString s("error text");
  s.setNull(false);
  EXPECT_FALSE(s.isNull());
  EXPECT_EQ(0u, s.length());
  s.setNull(true);
  EXPECT_TRUE(s.isNull());
  s.setNull();
  EXPECT_TRUE(s.isNull());
  s.setNull(false);
  EXPECT_FALSE(s.isNull());
}

TEST(String, Length) {
  EXPECT_EQ(5u, QzbString("hello").length());
  EXPECT_EQ(2u, QzbString("\xC3\xA9").length());  // bytes, not characters
}

TEST(String, CompareCaseSensitive) {
  const QzbString abc("abc");
  EXPECT_EQ(0, abc.compare(QzbString("abc")));
  EXPECT_EQ(0, abc.compare("abc"));
  EXPECT_LT(abc.compare("abd"), 0);
  EXPECT_GT(abc.compare("abb"), 0);
  EXPECT_NE(0, abc.compare("ABC", true));
  EXPECT_GT(abc.compare("ABC", true), 0);  // 'a' sorts after 'A'
  EXPECT_LT(abc.compare("abcd"), 0);
  EXPECT_GT(abc.compare("ab"), 0);
  EXPECT_GT(abc.compare(""), 0);
}

TEST(String, CompareIgnoringCase) {
  const QzbString mixed("Database");
  EXPECT_EQ(0, mixed.compare("DATABASE", false));
  EXPECT_EQ(0, mixed.compare(QzbString("database"), false));
  EXPECT_LT(mixed.compare("DATABASES", false), 0);
  EXPECT_LT(QzbString("abc").compare("ABD", false), 0);
  EXPECT_GT(QzbString("ABD").compare("abc", false), 0);
  // Only ASCII letters fold: "É" and "é" differ.
  EXPECT_NE(0, QzbString("\xC3\x89").compare("\xC3\xA9", false));
  // Folding must not make letters equal to the punctuation between the cases.
  EXPECT_NE(0, QzbString("[").compare("{", false));
}

TEST(String, CompareBytesAsUnsigned) {
  EXPECT_GT(QzbString("\xC3\xA9").compare("z"), 0);
  EXPECT_GT(QzbString("\xC3\xA9").compare("z", false), 0);
}

TEST(String, CompareWithNull) {
  const QzbString null;
  const QzbString empty("");
  EXPECT_EQ(0, null.compare(QzbString()));
  EXPECT_EQ(0, null.compare(static_cast<const char*>(nullptr)));
  EXPECT_LT(null.compare(empty), 0);
  EXPECT_GT(empty.compare(null), 0);
  EXPECT_LT(null.compare(""), 0);
  EXPECT_GT(empty.compare(static_cast<const char*>(nullptr)), 0);
  EXPECT_LT(null.compare("a", false), 0);
}

TEST(String, MidTakesPrefixesAndMiddles) {
  const QzbString name("qzvmdjob.so");
  EXPECT_STREQ("qzvmd", name.mid(0, 5).asCstr());
  EXPECT_STREQ("job", name.mid(5, 3).asCstr());
  EXPECT_STREQ("job.so", name.mid(5).asCstr());
  EXPECT_STREQ("job.so", name.mid(5, -1).asCstr());
  EXPECT_STREQ("job.so", name.mid(5, -20).asCstr());
}

TEST(String, MidEdgeCases) {
  const QzbString s("abc");
  EXPECT_STREQ("bc", s.mid(1, 100).asCstr());
  EXPECT_STREQ("", s.mid(1, 0).asCstr());
  EXPECT_FALSE(s.mid(1, 0).isNull());
  EXPECT_STREQ("", s.mid(3).asCstr());
  EXPECT_FALSE(s.mid(3).isNull());
  EXPECT_STREQ("", s.mid(100, 2).asCstr());
  EXPECT_FALSE(s.mid(100, 2).isNull());
  EXPECT_TRUE(QzbString().mid(0, 2).isNull());
  EXPECT_FALSE(QzbString("").mid(0, 2).isNull());
}

TEST(String, LeftAndRight) {
  const QzbString s("report.rpt");
  EXPECT_STREQ("rpt", s.right(3).asCstr());
  EXPECT_STREQ("report.rpt", s.right(100).asCstr());
  EXPECT_STREQ("", s.right(0).asCstr());
  EXPECT_FALSE(s.right(0).isNull());
  EXPECT_TRUE(QzbString().right(2).isNull());
  EXPECT_STREQ("", QzbString("").right(2).asCstr());
  EXPECT_FALSE(QzbString("").right(2).isNull());
  EXPECT_STREQ("rep", s.left(3).asCstr());
  EXPECT_STREQ("report.rpt", s.left(50).asCstr());
  EXPECT_TRUE(QzbString().left(1).isNull());
}

TEST(String, Find) {
  const QzbString s("a.b.c");
  EXPECT_EQ(1, s.find("."));
  EXPECT_EQ(3, s.find(".", 2));
  EXPECT_EQ(3, s.find(".", 3));
  EXPECT_EQ(-1, s.find(".", 4));
  EXPECT_EQ(-1, s.find("x"));
  EXPECT_EQ(2, s.find("b.c"));
  EXPECT_EQ(-1, s.find("b.c.d"));
  EXPECT_EQ(1, s.find(QzbString(".")));
  EXPECT_EQ(3, s.find(QzbString("."), 2));
}

TEST(String, FindEdgeCases) {
  const QzbString s("abc");
  EXPECT_EQ(-1, s.find("a", 100));
  EXPECT_EQ(0, s.find(""));
  EXPECT_EQ(2, s.find("", 2));
  EXPECT_EQ(-1, s.find("", 4));
  EXPECT_EQ(-1, s.find(static_cast<const char*>(nullptr)));
  EXPECT_EQ(-1, s.find(QzbString()));
  EXPECT_EQ(-1, QzbString().find("a"));
  EXPECT_EQ(-1, QzbString().find(""));
  EXPECT_EQ(-1, QzbString("").find("a"));
}

TEST(String, Rfind) {
  const QzbString path("dir/sub/file.tar.gz");
  EXPECT_EQ(7, path.rfind("/"));
  EXPECT_EQ(16, path.rfind("."));
  EXPECT_EQ(16, path.rfind(QzbString(".")));
  EXPECT_EQ(-1, path.rfind("\\"));
  EXPECT_EQ(0, path.rfind("dir"));
  EXPECT_EQ(-1, path.rfind(static_cast<const char*>(nullptr)));
  EXPECT_EQ(-1, path.rfind(QzbString()));
  EXPECT_EQ(-1, QzbString().rfind("/"));
  EXPECT_EQ(-1, QzbString("ab").rfind("abc"));
}

TEST(String, StartsAndEndsWith) {
  const QzbString s("qzvmdJob.so");
  EXPECT_TRUE(s.startsWith("qzvmd"));
  EXPECT_FALSE(s.startsWith("QZVMD"));
  EXPECT_TRUE(s.startsWith("QZVMD", false));
  EXPECT_TRUE(s.endsWith(".so"));
  EXPECT_TRUE(s.endsWith(".SO", false));
  EXPECT_FALSE(s.endsWith(".SO"));
  EXPECT_FALSE(s.startsWith("qzvmdJob.so.1"));
  EXPECT_TRUE(s.startsWith(""));
  EXPECT_FALSE(s.startsWith(nullptr));
  EXPECT_FALSE(QzbString().startsWith(""));
  EXPECT_FALSE(QzbString().endsWith("a"));
}

TEST(String, AppendTextAndStrings) {
  QzbString s("SELECT");
  EXPECT_TRUE(s.append(" name"));
  EXPECT_TRUE(s.append(QzbString(" FROM v_object")));
  EXPECT_TRUE(s.append(';'));
  EXPECT_STREQ("SELECT name FROM v_object;", s.asCstr());
}

TEST(String, AppendToNullMakesNonNull) {
  QzbString a;
  EXPECT_TRUE(a.append("x"));
  EXPECT_FALSE(a.isNull());
  EXPECT_STREQ("x", a.asCstr());

  QzbString b;
  EXPECT_TRUE(b.append(""));
  EXPECT_FALSE(b.isNull());
  EXPECT_EQ(0u, b.length());

  QzbString c;
  EXPECT_TRUE(c.append(QzbString("")));
  EXPECT_FALSE(c.isNull());

  QzbString d;
  EXPECT_TRUE(d.append('z'));
  EXPECT_STREQ("z", d.asCstr());
}

TEST(String, AppendNullChangesNothing) {
  QzbString text("abc");
  EXPECT_TRUE(text.append(QzbString()));
  EXPECT_TRUE(text.append(static_cast<const char*>(nullptr)));
  EXPECT_STREQ("abc", text.asCstr());

  QzbString null;
  EXPECT_TRUE(null.append(QzbString()));
  EXPECT_TRUE(null.append(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(null.isNull());
}

TEST(String, AppendLeavesFailureFlagAloneOnSuccess) {
  QzbString s("a");
  bool failed = false;
  EXPECT_TRUE(s.append("b", &failed));
  EXPECT_TRUE(s.append(QzbString("c"), &failed));
  EXPECT_TRUE(s.append('d', &failed));
  EXPECT_FALSE(failed);
  EXPECT_STREQ("abcd", s.asCstr());
}

TEST(String, AppendItself) {
  QzbString s("ab");
  EXPECT_TRUE(s.append(s));
  EXPECT_STREQ("abab", s.asCstr());
  EXPECT_TRUE(s.append(s.asCstr()));
  EXPECT_STREQ("abababab", s.asCstr());
}

TEST(String, AppendNulCharacterCounts) {
  QzbString s("a");
  EXPECT_TRUE(s.append('\0'));
  EXPECT_EQ(2u, s.length());
}

TEST(String, AsInt) {
  bool ok = false;
  EXPECT_EQ(42, QzbString("42").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-7, QzbString("  -7\t").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(5, QzbString("+5").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(0, QzbString("0").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(2147483647, QzbString("2147483647").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(17, QzbString("017").asInt());  // decimal, not octal
  EXPECT_EQ(3, QzbString("3").asInt(nullptr));
}

TEST(String, AsIntWrapsAroundOutside32Bits) {
  bool ok = false;
  EXPECT_EQ(-2147483647 - 1, QzbString("2147483648").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(0, QzbString("4294967296").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(1, QzbString("4294967297").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-1, QzbString("4294967295").asInt(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(2147483647, QzbString("-2147483649").asInt(&ok));
  EXPECT_TRUE(ok);
}

TEST(String, AsIntFailures) {
  const char* bad[] = {"", "   ", "abc", "12abc", "1 2", "1.5", "0x10", "--1", "+", "-",
                       "99999999999999999999", "-99999999999999999999"};
  for (const char* text : bad) {
    bool ok = true;
    EXPECT_EQ(0, QzbString(text).asInt(&ok)) << "\"" << text << "\"";
    EXPECT_FALSE(ok) << "\"" << text << "\"";
  }
  bool ok = true;
  EXPECT_EQ(0, QzbString().asInt(&ok));
  EXPECT_FALSE(ok);
  ok = true;
  EXPECT_EQ(0, QzbString::fromBytes("1\0" "2", 3).asInt(&ok));
  EXPECT_FALSE(ok);
}

TEST(String, AsInt64) {
  bool ok = false;
  EXPECT_EQ(9223372036854775807LL, QzbString("9223372036854775807").asInt64(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-9223372036854775807LL - 1, QzbString("-9223372036854775808").asInt64(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(0, QzbString("9223372036854775808").asInt64(&ok));
  EXPECT_FALSE(ok);
}

TEST(String, AsDouble) {
  bool ok = false;
  EXPECT_EQ(1.5, QzbString("1.5").asDouble(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(-2000.0, QzbString(" -2e3 ").asDouble(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(1625140800.123, QzbString("1625140800.123").asDouble(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(7.0, QzbString("7").asDouble(&ok));
  EXPECT_TRUE(ok);
  EXPECT_EQ(0.25, QzbString(".25").asDouble(nullptr));
}

TEST(String, AsDoubleFailures) {
  const char* bad[] = {"", " ", "abc", "1.5x", "1e999", "-1e999", "inf", "nan", "1,5"};
  for (const char* text : bad) {
    bool ok = true;
    EXPECT_EQ(0.0, QzbString(text).asDouble(&ok)) << "\"" << text << "\"";
    EXPECT_FALSE(ok) << "\"" << text << "\"";
  }
  bool ok = true;
  EXPECT_EQ(0.0, QzbString().asDouble(&ok));
  EXPECT_FALSE(ok);
}

TEST(String, LowercaseAndUppercase) {
  QzbString ext("Report.RPT");
  ext.lowercase();
  EXPECT_STREQ("report.rpt", ext.asCstr());
  ext.uppercase();
  EXPECT_STREQ("REPORT.RPT", ext.asCstr());
  QzbString utf8("\xC3\x89T\xC3\xA9");  // "ÉTé": only the ASCII letter changes
  utf8.lowercase();
  EXPECT_STREQ("\xC3\x89t\xC3\xA9", utf8.asCstr());
  QzbString null;
  null.lowercase();
  EXPECT_TRUE(null.isNull());
  QzbString empty("");
  empty.uppercase();
  EXPECT_FALSE(empty.isNull());
}

TEST(String, EqualityKeepsNullAndEmptyApart) {
  EXPECT_TRUE(QzbString() == QzbString());
  EXPECT_TRUE(QzbString("") == QzbString(""));
  EXPECT_FALSE(QzbString() == QzbString(""));
  EXPECT_TRUE(QzbString() != QzbString(""));
  EXPECT_TRUE(QzbString("a") != QzbString("A"));
  EXPECT_TRUE(QzbString("a") == QzbString("a"));
}

TEST(String, LessThanOrdersNullFirstThenBytes) {
  EXPECT_TRUE(QzbString() < QzbString(""));
  EXPECT_FALSE(QzbString("") < QzbString());
  EXPECT_FALSE(QzbString() < QzbString());
  EXPECT_TRUE(QzbString("") < QzbString("a"));
  EXPECT_TRUE(QzbString("B") < QzbString("a"));
  EXPECT_TRUE(QzbString("ab") < QzbString("abc"));
  EXPECT_FALSE(QzbString("abc") < QzbString("abc"));
}

TEST(String, KeyOfOrderedMap) {
  std::map<QzbString, int> map;
  map[QzbString("beta")] = 2;
  map[QzbString("alpha")] = 1;
  map[QzbString("")] = 0;
  map[QzbString()] = -1;
  map[QzbString("alpha")] = 11;
  ASSERT_EQ(4u, map.size());
  auto it = map.begin();
  EXPECT_TRUE(it->first.isNull());
  EXPECT_EQ(-1, it->second);
  ++it;
  EXPECT_FALSE(it->first.isNull());
  EXPECT_EQ(0u, it->first.length());
  ++it;
  EXPECT_STREQ("alpha", it->first.asCstr());
  EXPECT_EQ(11, it->second);
  ++it;
  EXPECT_STREQ("beta", it->first.asCstr());
}

TEST(String, KeyOfHashedMap) {
  std::unordered_map<QzbString, int> map;
  map[QzbString("x")] = 1;
  map[QzbString("")] = 2;
  map[QzbString()] = 3;
  EXPECT_EQ(3u, map.size());
  EXPECT_EQ(1, map.at(QzbString("x")));
  EXPECT_EQ(2, map.at(QzbString("")));
  EXPECT_EQ(3, map.at(QzbString()));
  EXPECT_EQ(0u, map.count(QzbString("X")));
  EXPECT_EQ(QzbString("same").hash(), QzbString("same").hash());
  EXPECT_EQ(std::hash<QzbString>()(QzbString("k")), QzbString("k").hash());
}

TEST(String, HashSpreadsDistinctKeys) {
  std::unordered_set<std::size_t> hashes;
  for (int i = 0; i < 1000; ++i) {
    hashes.insert(QzbString(std::to_string(i).c_str()).hash());
  }
  EXPECT_GT(hashes.size(), 990u);
}

TEST(String, ToStdString) {
  EXPECT_EQ("abc", QzbString("abc").toStdString());
  EXPECT_EQ("", QzbString().toStdString());
}

}  // namespace
