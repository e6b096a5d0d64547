// Tests of qzbConcatPath and qzbParsePath.
#include "qzbase/path.h"

#include <gtest/gtest.h>

namespace {

QzbString join(const char* dir, const char* name) {
  return qzbConcatPath(QzbString(dir), QzbString(name));
}

// Expects a non-null join result with exactly this text.
void expectJoin(const char* dir, const char* name, const char* expected) {
  const QzbString joined = join(dir, name);
  ASSERT_FALSE(joined.isNull()) << "dir=\"" << dir << "\" name=\"" << name << "\"";
  EXPECT_STREQ(expected, joined.asCstr()) << "dir=\"" << dir << "\" name=\"" << name << "\"";
}

void expectNoJoin(const char* dir, const char* name) {
  EXPECT_TRUE(join(dir, name).isNull()) << "dir=\"" << (dir ? dir : "(null)") << "\" name=\""
                                        << (name ? name : "(null)") << "\"";
}

TEST(ConcatPath, JoinsDirectoryAndName) {
  expectJoin("/vault", "jobs", "/vault/jobs");
  expectJoin("/vault/a", "b.txt", "/vault/a/b.txt");
  expectJoin("relative/dir", "x", "relative/dir/x");
}

TEST(ConcatPath, TrailingSeparatorOfDirectoryIsNotDoubled) {
  expectJoin("/vault/", "jobs", "/vault/jobs");
  expectJoin("/", "jobs", "/jobs");
}

TEST(ConcatPath, DirectoryIsUsedAsGiven) {
  // Only the name is normalised; the directory keeps its own spelling.
  expectJoin("/a//b/./c", "x", "/a//b/./c/x");
  expectJoin("C:\\dir", "x", "C:\\dir/x");
  expectJoin("/a/..", "x", "/a/../x");
}

TEST(ConcatPath, EmptyDirectoryGivesNameAlone) {
  expectJoin("", "x", "x");
  expectJoin("", "a\\b", "a/b");
  expectJoin("", "./a//b/", "a/b");
}

TEST(ConcatPath, BackslashInNameIsSeparator) {
  expectJoin("/v", "a\\b", "/v/a/b");
  expectJoin("/v", "a\\b\\c.job", "/v/a/b/c.job");
  expectJoin("/v", "a\\/b", "/v/a/b");
  expectJoin("/v", "a\\", "/v/a");
}

TEST(ConcatPath, RunsOfSeparatorsCollapse) {
  expectJoin("/v", "a//b", "/v/a/b");
  expectJoin("/v", "a\\\\\\b", "/v/a/b");
  expectJoin("/v", "a/\\/b", "/v/a/b");
}

TEST(ConcatPath, DotComponentsAreDropped) {
  expectJoin("/v", "./a", "/v/a");
  expectJoin("/v", "a/./b", "/v/a/b");
  expectJoin("/v", "a/.", "/v/a");
  expectJoin("/v", ".\\a\\.\\b", "/v/a/b");
}

TEST(ConcatPath, TrailingSeparatorOfNameIsDropped) {
  expectJoin("/v", "a/", "/v/a");
  expectJoin("/v", "a/b//", "/v/a/b");
}

TEST(ConcatPath, NamesThatOnlyLookLikeDotsAreKept) {
  expectJoin("/v", "...", "/v/...");
  expectJoin("/v", ".hidden", "/v/.hidden");
  expectJoin("/v", "a..b", "/v/a..b");
  expectJoin("/v", "..x", "/v/..x");
}

TEST(ConcatPath, NullArgumentsGiveNull) {
  EXPECT_TRUE(qzbConcatPath(QzbString(), QzbString("x")).isNull());
  EXPECT_TRUE(qzbConcatPath(QzbString("/v"), QzbString()).isNull());
  EXPECT_TRUE(qzbConcatPath(QzbString(), QzbString()).isNull());
}

TEST(ConcatPath, EmptyNameGivesNull) {
  expectNoJoin("/v", "");
  expectNoJoin("", "");
}

TEST(ConcatPath, NameWithoutComponentGivesNull) {
  expectNoJoin("/v", ".");
  expectNoJoin("/v", "./");
  expectNoJoin("/v", ".\\.");
  expectNoJoin("", ".");
}

TEST(ConcatPath, AbsoluteNameGivesNull) {
  expectNoJoin("/v", "/etc");
  expectNoJoin("/v", "\\etc");
  expectNoJoin("/v", "/");
  expectNoJoin("/v", "\\");
  expectNoJoin("", "/x");
}

TEST(ConcatPath, DotDotComponentGivesNull) {
  expectNoJoin("/v", "..");
  expectNoJoin("/v", "../x");
  expectNoJoin("/v", "a/../b");
  expectNoJoin("/v", "a\\..\\..\\b");
  expectNoJoin("/v", "a/..");
  expectNoJoin("/v", "a\\..");
  expectNoJoin("", "..");
}

// Parses `path` and expects the directory (nullptr: a null result) and leaf.
void expectParse(const char* path, const char* expectedDir, const char* expectedName) {
  QzbString name("sentinel");
  const QzbString dir = qzbParsePath(QzbString(path), &name);
  if (expectedDir == nullptr) {
    EXPECT_TRUE(dir.isNull()) << "path \"" << path << "\" gave directory \"" << dir.asCstr()
                              << "\"";
  } else {
    ASSERT_FALSE(dir.isNull()) << "path \"" << path << "\"";
    EXPECT_STREQ(expectedDir, dir.asCstr()) << "path \"" << path << "\"";
  }
  ASSERT_FALSE(name.isNull()) << "path \"" << path << "\"";
  EXPECT_STREQ(expectedName, name.asCstr()) << "path \"" << path << "\"";
}

TEST(ParsePath, Root) { expectParse("/", nullptr, ""); }

TEST(ParsePath, LeafWithoutSeparator) { expectParse("x", nullptr, "x"); }

TEST(ParsePath, LeafBelowRoot) { expectParse("/x", "/", "x"); }

TEST(ParsePath, OneTrailingSeparatorIsIgnored) {
  expectParse("/a/b/", "/a", "b");
  expectParse("x/", nullptr, "x");
  expectParse("/x/", "/", "x");
}

TEST(ParsePath, EmptyPathHasNoDirectory) { expectParse("", nullptr, ""); }

TEST(ParsePath, NullPathGivesNullDirectoryAndName) {
  QzbString name("sentinel");
  EXPECT_TRUE(qzbParsePath(QzbString(), &name).isNull());
  EXPECT_TRUE(name.isNull());
}

TEST(ParsePath, NullNamePointerIsAllowed) {
  const QzbString dir = qzbParsePath(QzbString("/a/b"), nullptr);
  EXPECT_STREQ("/a", dir.asCstr());
  EXPECT_TRUE(qzbParsePath(QzbString("x"), nullptr).isNull());
  EXPECT_TRUE(qzbParsePath(QzbString(), nullptr).isNull());
}

TEST(ParsePath, SplitsAtLastSeparator) {
  expectParse("/a/b/c.job", "/a/b", "c.job");
  expectParse("rel/dir/f", "rel/dir", "f");
  expectParse("a/b", "a", "b");
}

TEST(ParsePath, BackslashIsPartOfTheLeaf) {
  expectParse("/v/a\\b", "/v", "a\\b");
  expectParse("a\\b", nullptr, "a\\b");
}

TEST(ParsePath, DoubledSeparatorsBeforeLeafAreDropped) {
  expectParse("a//b", "a", "b");
  expectParse("//x", "/", "x");
  expectParse("//", nullptr, "");
}

TEST(ParsePath, JoinedPathSplitsBack) {
  const QzbString joined = join("/vault/jobs", "sub\\report.rpt");
  QzbString leaf;
  const QzbString dir = qzbParsePath(joined, &leaf);
  EXPECT_STREQ("/vault/jobs/sub", dir.asCstr());
  EXPECT_STREQ("report.rpt", leaf.asCstr());
  EXPECT_STREQ(joined.asCstr(), qzbConcatPath(dir, leaf).asCstr());
}

std::string normal(const char* path) { return qzbNormalizePath(QzbString(path)).toStdString(); }

TEST(NormalizePath, OneFileHasOneName) {
  EXPECT_EQ(normal("a/../b"), "b");
  EXPECT_EQ(normal("./b"), "b");
  EXPECT_EQ(normal("a//b/"), "a/b");
  EXPECT_EQ(normal("a/./b/./"), "a/b");
  EXPECT_EQ(normal("/data/feeds/../in/x.csv"), "/data/in/x.csv");
  EXPECT_EQ(normal("//data///x.csv"), "/data/x.csv");
  // Already normal: unchanged.
  EXPECT_EQ(normal("/data/x.csv"), "/data/x.csv");
  EXPECT_EQ(normal("x.csv"), "x.csv");
}

TEST(NormalizePath, DotDotAboveTheStart) {
  EXPECT_EQ(normal(".."), "..");
  EXPECT_EQ(normal("../x"), "../x");
  EXPECT_EQ(normal("a/../../x"), "../x");
  EXPECT_EQ(normal("../../x/.."), "../..");
  // The root's parent is the root.
  EXPECT_EQ(normal("/.."), "/");
  EXPECT_EQ(normal("/../x"), "/x");
  EXPECT_EQ(normal("/a/../../x"), "/x");
}

TEST(NormalizePath, PathsThatNameNothingMore) {
  EXPECT_EQ(normal("."), ".");
  EXPECT_EQ(normal("a/.."), ".");
  EXPECT_EQ(normal("./"), ".");
  EXPECT_EQ(normal("/"), "/");
  EXPECT_EQ(normal("///"), "/");
  EXPECT_EQ(normal("/./"), "/");
  EXPECT_EQ(normal(""), "");
  EXPECT_TRUE(qzbNormalizePath(QzbString()).isNull());
}

// Macros and names with dots are components like any other.
TEST(NormalizePath, OnlyWholeComponentsAreSpecial) {
  EXPECT_EQ(normal("%%FEED_DIR%%/./x.csv"), "%%FEED_DIR%%/x.csv");
  EXPECT_EQ(normal("a/...b/..c/.d"), "a/...b/..c/.d");
}

}  // namespace
