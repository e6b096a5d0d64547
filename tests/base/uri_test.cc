// Generic URIs, file references, path helpers and data-source references.
#include "qzbase/uri.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

struct UriReleaser {
  void operator()(QzURI* uri) const { uri->release(); }
};
using UriPtr = std::unique_ptr<QzURI, UriReleaser>;

struct DataUriReleaser {
  void operator()(QzDataURI* uri) const { uri->release(); }
};
using DataUriPtr = std::unique_ptr<QzDataURI, DataUriReleaser>;

UriPtr parseUri(const QzbString& text) { return UriPtr(getURIFromURIString(text)); }

// ---------------------------------------------------------------------------
// getURIFromURIString

TEST(UriTest, ParsesEveryComponent) {
  UriPtr uri = parseUri("https://host.example:8080/a/b%20c?x=1&y=2#part");
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getScheme().asCstr(), "https");
  EXPECT_STREQ(uri->getAuthority().asCstr(), "host.example:8080");
  EXPECT_STREQ(uri->getPath().asCstr(), "/a/b%20c");
  EXPECT_STREQ(uri->getQuery().asCstr(), "x=1&y=2");
  EXPECT_STREQ(uri->getFragment().asCstr(), "part");
  EXPECT_STREQ(uri->toString().asCstr(), "https://host.example:8080/a/b%20c?x=1&y=2#part");
}

TEST(UriTest, FileUriHasAnEmptyAuthority) {
  UriPtr uri = parseUri("file:///vault/Jobs/load.job.def");
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getScheme().asCstr(), "file");
  EXPECT_FALSE(uri->getAuthority().isNull());
  EXPECT_STREQ(uri->getAuthority().asCstr(), "");
  EXPECT_STREQ(uri->getPath().asCstr(), "/vault/Jobs/load.job.def");
  EXPECT_TRUE(uri->getQuery().isNull());
  EXPECT_TRUE(uri->getFragment().isNull());
}

TEST(UriTest, QueryAndFragmentMayBeEmptyOrAbsent) {
  UriPtr emptyBoth = parseUri("s://h/p?#");
  ASSERT_NE(emptyBoth, nullptr);
  EXPECT_FALSE(emptyBoth->getQuery().isNull());
  EXPECT_STREQ(emptyBoth->getQuery().asCstr(), "");
  EXPECT_FALSE(emptyBoth->getFragment().isNull());
  EXPECT_STREQ(emptyBoth->getFragment().asCstr(), "");

  UriPtr fragmentOnly = parseUri("s://h#f?not-a-query");
  ASSERT_NE(fragmentOnly, nullptr);
  EXPECT_STREQ(fragmentOnly->getAuthority().asCstr(), "h");
  EXPECT_STREQ(fragmentOnly->getPath().asCstr(), "");
  EXPECT_TRUE(fragmentOnly->getQuery().isNull());
  EXPECT_STREQ(fragmentOnly->getFragment().asCstr(), "f?not-a-query");

  UriPtr queryWithoutPath = parseUri("s://h?q");
  ASSERT_NE(queryWithoutPath, nullptr);
  EXPECT_STREQ(queryWithoutPath->getPath().asCstr(), "");
  EXPECT_STREQ(queryWithoutPath->getQuery().asCstr(), "q");

  UriPtr bare = parseUri("s://");
  ASSERT_NE(bare, nullptr);
  EXPECT_STREQ(bare->getAuthority().asCstr(), "");
  EXPECT_STREQ(bare->getPath().asCstr(), "");
}

TEST(UriTest, SchemeMayHoldDigitsPlusMinusAndDot) {
  UriPtr uri = parseUri("svn+ssh.v-2://h/x");
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getScheme().asCstr(), "svn+ssh.v-2");
  UriPtr upper = parseUri("FILE:///x");
  ASSERT_NE(upper, nullptr);
  EXPECT_STREQ(upper->getScheme().asCstr(), "FILE");
}

TEST(UriTest, TextsThatAreNotUris) {
  const char* notUris[] = {
      "C:\\x",         "/x",           "db:pg/sales", "fileref:/d/x.csv", "x",
      "://host/path",  "1abc://h/p",   "a b://h/p",   "mailto:someone",   "file:/x",
      "file:x",        "http//h/p",    "+s://h",      "s:/",              "s:",
      "s://h/a b",     "s://h/a\tb",   "s://h/<x>",   "s://h/a\\b",       "s://h/{x}",
      "s://h/a|b",     "s://h/a^b",    "s://h/`x`",   "s://h/\"x\"",      " s://h/x",
      "s://h/x\n",     "s://h/x\x7f",
  };
  for (const char* text : notUris) {
    EXPECT_EQ(parseUri(text), nullptr) << text;
  }
  EXPECT_EQ(parseUri(QzbString()), nullptr);
  EXPECT_EQ(parseUri(QzbString("")), nullptr);
  EXPECT_EQ(parseUri(QzbString::fromBytes("s://h/a\0b", 9)), nullptr);
}

TEST(UriTest, MacrosAndNonAsciiBytesAreAccepted) {
  UriPtr uri = parseUri("jdbc://%%DB_HOST%%/sales");
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getAuthority().asCstr(), "%%DB_HOST%%");
  UriPtr utf8 = parseUri("file:///d\xC3\xA9j\xC3\xA0");
  ASSERT_NE(utf8, nullptr);
  EXPECT_STREQ(utf8->getPath().asCstr(), "/d\xC3\xA9j\xC3\xA0");
}

TEST(UriTest, VeryLongUriIsParsed) {
  std::string text = "file:///" + std::string(1 << 20, 'a') + "?" + std::string(1000, 'q');
  UriPtr uri = parseUri(text.c_str());
  ASSERT_NE(uri, nullptr);
  EXPECT_EQ(uri->getPath().length(), (1u << 20) + 1);
  EXPECT_EQ(uri->getQuery().length(), 1000u);
  // A very long run of scheme characters without "://" is not a URI.
  EXPECT_EQ(parseUri(std::string(1 << 20, 'a').c_str()), nullptr);
}

// ---------------------------------------------------------------------------
// generateURIReferenceFromFilename / getFilenameFromURIReference

TEST(FileReferenceTest, AbsolutePathGivesThreeSlashes) {
  EXPECT_STREQ(generateURIReferenceFromFilename("/vault/Jobs/load.job.def").asCstr(),
               "file:///vault/Jobs/load.job.def");
}

TEST(FileReferenceTest, CharactersAPathMayNotHoldAreEscaped) {
  EXPECT_STREQ(generateURIReferenceFromFilename("/v/a b.csv").asCstr(), "file:///v/a%20b.csv");
  EXPECT_STREQ(generateURIReferenceFromFilename("/v/50%?#x").asCstr(),
               "file:///v/50%25%3F%23x");
  EXPECT_STREQ(generateURIReferenceFromFilename("C:\\v\\x").asCstr(), "file://C:%5Cv%5Cx");
  EXPECT_STREQ(generateURIReferenceFromFilename("/v/\xC3\xA9\t").asCstr(),
               "file:///v/%C3%A9%09");
  EXPECT_STREQ(generateURIReferenceFromFilename("/v/<\"{}|^`>").asCstr(),
               "file:///v/%3C%22%7B%7D%7C%5E%60%3E");
  // What a path segment may hold stays as it is.
  EXPECT_STREQ(generateURIReferenceFromFilename("/v/a-b._~!$&'()*+,;=:@x").asCstr(),
               "file:///v/a-b._~!$&'()*+,;=:@x");
}

TEST(FileReferenceTest, NullOrEmptyPathGivesNull) {
  EXPECT_TRUE(generateURIReferenceFromFilename(QzbString()).isNull());
  EXPECT_TRUE(generateURIReferenceFromFilename(QzbString("")).isNull());
}

TEST(FileReferenceTest, GeneratedReferenceIsAUri) {
  const QzbString reference = generateURIReferenceFromFilename("/v/odd name {1}\n.csv");
  UriPtr uri = parseUri(reference);
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getScheme().asCstr(), "file");
  EXPECT_STREQ(uri->getPath().asCstr(), "/v/odd%20name%20%7B1%7D%0A.csv");
}

TEST(FileReferenceTest, RoundTripThroughTheReference) {
  const char* paths[] = {"/v/a.csv", "/v/a b/%%X%%/c?d#e", "relative/x", "/v/\xC3\xA9\x01\x7f",
                         "C:\\data\\x.txt", "/"};
  for (const char* path : paths) {
    const QzbString reference = generateURIReferenceFromFilename(path);
    EXPECT_STREQ(getFilenameFromURIReference(reference).asCstr(), path) << path;
  }
  const QzbString withNul = QzbString::fromBytes("/v/a\0b", 6);
  EXPECT_STREQ(generateURIReferenceFromFilename(withNul).asCstr(), "file:///v/a%00b");
  // A path cannot hold a NUL byte, so the reference gives no path back.
  EXPECT_TRUE(getFilenameFromURIReference(generateURIReferenceFromFilename(withNul)).isNull());
}

TEST(FileReferenceTest, ReadingReferences) {
  EXPECT_STREQ(getFilenameFromURIReference("FILE:///v/a%2fb").asCstr(), "/v/a/b");
  EXPECT_STREQ(getFilenameFromURIReference("file:///v/100%").asCstr(), "/v/100%");
  EXPECT_STREQ(getFilenameFromURIReference("file:///v/%zz%4").asCstr(), "/v/%zz%4");
  EXPECT_TRUE(getFilenameFromURIReference("file://").isNull());
  EXPECT_TRUE(getFilenameFromURIReference("http://h/x").isNull());
  EXPECT_TRUE(getFilenameFromURIReference("/v/a").isNull());
  EXPECT_TRUE(getFilenameFromURIReference(QzbString()).isNull());
  EXPECT_TRUE(getFilenameFromURIReference(QzbString("")).isNull());
}

// ---------------------------------------------------------------------------
// getComponentsFromFilesystemPath

struct Components {
  bool ok;
  QzbString extension, directory, name;
};

Components split(const QzbString& path) {
  Components c;
  c.ok = getComponentsFromFilesystemPath(path, &c.extension, &c.directory, &c.name);
  return c;
}

TEST(PathComponentsTest, SplitsDirectoryNameAndExtension) {
  Components c = split("/vault/Data/sales.csv");
  ASSERT_TRUE(c.ok);
  EXPECT_STREQ(c.directory.asCstr(), "/vault/Data");
  EXPECT_STREQ(c.name.asCstr(), "sales.csv");
  EXPECT_STREQ(c.extension.asCstr(), "csv");
}

TEST(PathComponentsTest, RecognisesTwoPartExtensionsInTheirOwnCase) {
  Components c = split("/vault/Jobs/nightly-load.Job.DEF");
  ASSERT_TRUE(c.ok);
  EXPECT_STREQ(c.extension.asCstr(), "Job.DEF");
  EXPECT_STREQ(c.name.asCstr(), "nightly-load.Job.DEF");
  Components other = split("/v/a.b.c");
  ASSERT_TRUE(other.ok);
  EXPECT_STREQ(other.extension.asCstr(), "c");
}

TEST(PathComponentsTest, BackslashIsASeparatorToo) {
  Components c = split("C:\\data\\in/x.rpt.tpl");
  ASSERT_TRUE(c.ok);
  EXPECT_STREQ(c.directory.asCstr(), "C:\\data\\in");
  EXPECT_STREQ(c.name.asCstr(), "x.rpt.tpl");
  EXPECT_STREQ(c.extension.asCstr(), "rpt.tpl");
  Components d = split("C:\\data\\x");
  ASSERT_TRUE(d.ok);
  EXPECT_STREQ(d.directory.asCstr(), "C:\\data");
}

TEST(PathComponentsTest, LeavesWithoutExtensionOrDirectory) {
  Components noExtension = split("/v/README");
  ASSERT_TRUE(noExtension.ok);
  EXPECT_FALSE(noExtension.extension.isNull());
  EXPECT_STREQ(noExtension.extension.asCstr(), "");
  EXPECT_STREQ(noExtension.name.asCstr(), "README");

  Components noDirectory = split("notes.txt");
  ASSERT_TRUE(noDirectory.ok);
  EXPECT_FALSE(noDirectory.directory.isNull());
  EXPECT_STREQ(noDirectory.directory.asCstr(), "");
  EXPECT_STREQ(noDirectory.name.asCstr(), "notes.txt");
  EXPECT_STREQ(noDirectory.extension.asCstr(), "txt");

  Components trailingDot = split("/v/x.");
  ASSERT_TRUE(trailingDot.ok);
  EXPECT_STREQ(trailingDot.extension.asCstr(), "");

  Components dotFile = split("/v/.profile");
  ASSERT_TRUE(dotFile.ok);
  EXPECT_STREQ(dotFile.extension.asCstr(), "profile");
}

TEST(PathComponentsTest, RootAndDoubledSeparators) {
  Components root = split("/x.csv");
  ASSERT_TRUE(root.ok);
  EXPECT_STREQ(root.directory.asCstr(), "/");
  EXPECT_STREQ(root.name.asCstr(), "x.csv");
  Components doubled = split("/v//x");
  ASSERT_TRUE(doubled.ok);
  EXPECT_STREQ(doubled.directory.asCstr(), "/v");
  Components doubledRoot = split("//x");
  ASSERT_TRUE(doubledRoot.ok);
  EXPECT_STREQ(doubledRoot.directory.asCstr(), "/");
}

TEST(PathComponentsTest, RefusesEmptyPathsAndDirectories) {
  QzbString extension("keep"), directory("keep"), name("keep");
  for (const QzbString& path :
       {QzbString(), QzbString(""), QzbString("/v/"), QzbString("/"), QzbString("C:\\d\\")}) {
    EXPECT_FALSE(getComponentsFromFilesystemPath(path, &extension, &directory, &name))
        << path.asCstr();
  }
  EXPECT_STREQ(extension.asCstr(), "keep");
  EXPECT_STREQ(directory.asCstr(), "keep");
  EXPECT_STREQ(name.asCstr(), "keep");
}

TEST(PathComponentsTest, OutputsMayBeLeftOut) {
  QzbString name;
  EXPECT_TRUE(getComponentsFromFilesystemPath("/v/a.csv", nullptr, nullptr, &name));
  EXPECT_STREQ(name.asCstr(), "a.csv");
  EXPECT_TRUE(getComponentsFromFilesystemPath("/v/a.csv", nullptr, nullptr, nullptr));
}

TEST(PathComponentsTest, HostilePathsDoNotHurt) {
  const std::string longLeaf(100000, 'x');
  Components c = split(("/v/" + longLeaf + ".job.def").c_str());
  ASSERT_TRUE(c.ok);
  EXPECT_EQ(c.name.length(), longLeaf.size() + 8);
  EXPECT_STREQ(c.extension.asCstr(), "job.def");
  Components control = split(QzbString::fromBytes("/v\n/a\0b.\x01", 9));
  ASSERT_TRUE(control.ok);
  EXPECT_EQ(control.name.length(), 5u);
  EXPECT_STREQ(control.extension.asCstr(), "\x01");
  EXPECT_STREQ(control.directory.asCstr(), "/v\n");
}

// ---------------------------------------------------------------------------
// fixFilesystemStringSlashes

TEST(FixSlashesTest, BackslashesBecomeSlashesAndRunsCollapse) {
  QzbString fixed;
  ASSERT_TRUE(fixFilesystemStringSlashes("C:\\data\\\\in//x.csv", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "C:/data/in/x.csv");
  ASSERT_TRUE(fixFilesystemStringSlashes("\\\\server\\share\\x", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "/server/share/x");
  ASSERT_TRUE(fixFilesystemStringSlashes("//v/a", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "/v/a");
  ASSERT_TRUE(fixFilesystemStringSlashes("/v/a/\\/", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "/v/a/");
  ASSERT_TRUE(fixFilesystemStringSlashes("a", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "a");
  ASSERT_TRUE(fixFilesystemStringSlashes("\\/\\", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "/");
}

TEST(FixSlashesTest, AlreadyNormalPathIsUnchanged) {
  QzbString fixed;
  ASSERT_TRUE(fixFilesystemStringSlashes("/vault/Jobs/load.job.def", &fixed));
  EXPECT_STREQ(fixed.asCstr(), "/vault/Jobs/load.job.def");
}

TEST(FixSlashesTest, NullOrEmptyPathProducesNothing) {
  QzbString fixed("keep");
  EXPECT_FALSE(fixFilesystemStringSlashes(QzbString(), &fixed));
  EXPECT_FALSE(fixFilesystemStringSlashes(QzbString(""), &fixed));
  EXPECT_STREQ(fixed.asCstr(), "keep");
  EXPECT_FALSE(fixFilesystemStringSlashes("/v/a", nullptr));
}

TEST(FixSlashesTest, LongRunsAndControlCharacters) {
  QzbString fixed;
  ASSERT_TRUE(fixFilesystemStringSlashes(("a" + std::string(1 << 20, '\\') + "b").c_str(), &fixed));
  EXPECT_STREQ(fixed.asCstr(), "a/b");
  ASSERT_TRUE(fixFilesystemStringSlashes(QzbString::fromBytes("a\0\\\\b\n", 6), &fixed));
  EXPECT_EQ(fixed.length(), 5u);
  EXPECT_EQ(std::string(fixed.asCstr(), fixed.length()), std::string("a\0/b\n", 5));
}

// ---------------------------------------------------------------------------
// QzDataURI

TEST(DataUriTest, MadeFromPartsAndRead) {
  DataUriPtr uri(createQzDataURI("postgresql", "sales", "crm", "public", "orders"));
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_SOURCE_TYPE).asCstr(), "postgresql");
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), "sales");
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_CATALOG).asCstr(), "crm");
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_SCHEMA).asCstr(), "public");
  EXPECT_STREQ(uri->getTablePart().asCstr(), "orders");
  EXPECT_TRUE(uri->getPart(4).isNull());
  EXPECT_TRUE(uri->getPart(-1).isNull());
  EXPECT_STREQ(uri->toString().asCstr(), "datasource://postgresql/sales/crm/public/orders");
}

TEST(DataUriTest, DatabaseReferenceHasTheShortForm) {
  DataUriPtr uri(createQzDataURI("sqlite", "inventory", QzbString(), QzbString(), QzbString()));
  ASSERT_NE(uri, nullptr);
  EXPECT_FALSE(uri->getTablePart().isNull());
  EXPECT_TRUE(uri->getTablePart().isEmpty());
  EXPECT_FALSE(uri->getPart(QZ_DATAURI_CATALOG).isNull());
  EXPECT_STREQ(uri->toString().asCstr(), "datasource://sqlite/inventory");
}

TEST(DataUriTest, EmptyCatalogAndSchemaKeepTheirPlaces) {
  DataUriPtr uri(createQzDataURI("sqlite", "inventory", "", "", "items"));
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->toString().asCstr(), "datasource://sqlite/inventory///items");
  DataUriPtr parsed(parseQzDataURI(uri->toString()));
  ASSERT_NE(parsed, nullptr);
  EXPECT_STREQ(parsed->getPart(QZ_DATAURI_CATALOG).asCstr(), "");
  EXPECT_STREQ(parsed->getPart(QZ_DATAURI_SCHEMA).asCstr(), "");
  EXPECT_STREQ(parsed->getTablePart().asCstr(), "items");
}

TEST(DataUriTest, SlashesAndPercentSignsInsidePartsAreEscaped) {
  DataUriPtr uri(createQzDataURI("sqlite", "/srv/db/sales.db", "", "", "50%/off"));
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->toString().asCstr(), "datasource://sqlite/%2Fsrv%2Fdb%2Fsales.db///50%25%2Foff");
  DataUriPtr parsed(parseQzDataURI(uri->toString()));
  ASSERT_NE(parsed, nullptr);
  EXPECT_STREQ(parsed->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), "/srv/db/sales.db");
  EXPECT_STREQ(parsed->getTablePart().asCstr(), "50%/off");
}

TEST(DataUriTest, MacrosSurviveFormattingAndParsingUnchanged) {
  DataUriPtr uri(createQzDataURI("postgresql", "%%SALES_DSN%%", "%%CAT%%", "", "%%T%%_2024"));
  ASSERT_NE(uri, nullptr);
  const QzbString text = uri->toString();
  EXPECT_STREQ(text.asCstr(), "datasource://postgresql/%%SALES_DSN%%/%%CAT%%//%%T%%_2024");
  DataUriPtr parsed(parseQzDataURI(text));
  ASSERT_NE(parsed, nullptr);
  EXPECT_STREQ(parsed->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), "%%SALES_DSN%%");
  EXPECT_STREQ(parsed->getPart(QZ_DATAURI_CATALOG).asCstr(), "%%CAT%%");
  EXPECT_STREQ(parsed->getTablePart().asCstr(), "%%T%%_2024");
  // Hex-looking macro names are not decoded either.
  DataUriPtr hexLike(parseQzDataURI("datasource://pg/%%2F%%"));
  ASSERT_NE(hexLike, nullptr);
  EXPECT_STREQ(hexLike->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), "%%2F%%");
}

TEST(DataUriTest, RoundTripOfAwkwardParts) {
  const char* awkward[] = {"%",    "%%",   "%%%",  "%/",   "/%",  "%%/",  "%2F", "%25",
                           "a%%b", "%%%%", "//",   "%%%2F", "%2",  "x%",   "",    "\xC3\xA9"};
  for (const char* part : awkward) {
    DataUriPtr made(createQzDataURI("t", part, part, part, part));
    ASSERT_NE(made, nullptr) << part;
    DataUriPtr parsed(parseQzDataURI(made->toString()));
    ASSERT_NE(parsed, nullptr) << made->toString().asCstr();
    EXPECT_STREQ(parsed->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), part);
    EXPECT_STREQ(parsed->getPart(QZ_DATAURI_CATALOG).asCstr(), part);
    EXPECT_STREQ(parsed->getPart(QZ_DATAURI_SCHEMA).asCstr(), part);
    EXPECT_STREQ(parsed->getTablePart().asCstr(), part);
  }
}

TEST(DataUriTest, ParsingIsLenientAboutPrefixCaseAndStrayPercentSigns) {
  DataUriPtr uri(parseQzDataURI("DataSource://pg/50%off/%2f/%41/t"));
  ASSERT_NE(uri, nullptr);
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_SOURCE_NAME).asCstr(), "50%off");
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_CATALOG).asCstr(), "/");
  EXPECT_STREQ(uri->getPart(QZ_DATAURI_SCHEMA).asCstr(), "%41");
}

TEST(DataUriTest, MalformedTextsAreRefused) {
  const char* malformed[] = {"",
                             "datasource://",
                             "datasource://pg",
                             "datasource://pg/s/c",
                             "datasource://pg/s/c/s",
                             "datasource://pg/s/c/s/t/x",
                             "data://pg/s",
                             "db:pg/s",
                             "datasource:/pg/s",
                             "pg/s",
                             "datasource://pg/s\n",
                             "datasource://pg/s\x7f/c/s/t"};
  for (const char* text : malformed) {
    EXPECT_EQ(DataUriPtr(parseQzDataURI(text)), nullptr) << text;
  }
  EXPECT_EQ(DataUriPtr(parseQzDataURI(QzbString())), nullptr);
  EXPECT_EQ(DataUriPtr(parseQzDataURI(QzbString::fromBytes("datasource://a/b\0", 17))), nullptr);
}

TEST(DataUriTest, ControlCharactersInPartsAreRefused) {
  EXPECT_EQ(DataUriPtr(createQzDataURI("pg", "a\tb", "", "", "t")), nullptr);
  EXPECT_EQ(DataUriPtr(createQzDataURI("pg", "s", "", "", "t\n")), nullptr);
  EXPECT_EQ(DataUriPtr(createQzDataURI("pg", "s", "", "", QzbString::fromBytes("t\0", 2))),
            nullptr);
  EXPECT_NE(DataUriPtr(createQzDataURI(QzbString(), QzbString(), QzbString(), QzbString(),
                                       QzbString())),
            nullptr);
}

TEST(DataUriTest, VeryLongParts) {
  const std::string longPart(1 << 20, 'p');
  DataUriPtr uri(createQzDataURI("pg", longPart.c_str(), "", "", (longPart + "/x").c_str()));
  ASSERT_NE(uri, nullptr);
  DataUriPtr parsed(parseQzDataURI(uri->toString()));
  ASSERT_NE(parsed, nullptr);
  EXPECT_EQ(parsed->getPart(QZ_DATAURI_SOURCE_NAME).length(), longPart.size());
  EXPECT_EQ(parsed->getTablePart().length(), longPart.size() + 2);
  const std::string manySlashes = "datasource://" + std::string(1 << 16, '/');
  EXPECT_EQ(DataUriPtr(parseQzDataURI(manySlashes.c_str())), nullptr);
}

}  // namespace
