// The file-type table: the two-part extensions and the extension-to-type map.
#include "qzbase/file_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

namespace {

TEST(FileTypesTest, TwelveDistinctTwoPartExtensionsOfTheFamily) {
  const std::set<std::string> expected = {"job.def", "job.tpl", "rpt.def", "rpt.tpl",
                                          "sch.def", "sch.tpl", "ref.def", "ref.tpl",
                                          "map.def", "map.tpl", "qry.def", "qry.tpl"};
  std::set<std::string> actual;
  for (const char* extension : qzbTwoPartExtensions) actual.insert(extension);
  EXPECT_EQ(actual.size(), 12u);
  EXPECT_EQ(actual, expected);
}

TEST(FileTypesTest, TwoPartExtensionsHaveTheFormThreeDotThree) {
  for (const char* extension : qzbTwoPartExtensions) {
    ASSERT_EQ(std::strlen(extension), 7u) << extension;
    EXPECT_EQ(extension[3], '.') << extension;
    for (int i : {0, 1, 2, 4, 5, 6}) {
      EXPECT_TRUE(extension[i] >= 'a' && extension[i] <= 'z') << extension;
    }
  }
}

TEST(FileTypesTest, FileTypeTableHoldsEveryTwoPartExtension) {
  for (const char* extension : qzbTwoPartExtensions) {
    bool found = false;
    for (const QzbFileType& type : qzbFileTypes) {
      if (std::strcmp(type.extension, extension) == 0) found = true;
    }
    EXPECT_TRUE(found) << extension;
  }
}

TEST(FileTypesTest, FindsTwoPartExtensionInAnyLetterCase) {
  EXPECT_STREQ(qzbFindTwoPartExtension("nightly-load.job.def"), "job.def");
  EXPECT_STREQ(qzbFindTwoPartExtension("Nightly.JOB.DEF"), "job.def");
  EXPECT_STREQ(qzbFindTwoPartExtension("q.Qry.Tpl"), "qry.tpl");
  EXPECT_STREQ(qzbFindTwoPartExtension(".map.def"), "map.def");
  EXPECT_STREQ(qzbFindTwoPartExtension("a.b.rpt.tpl"), "rpt.tpl");
  EXPECT_STREQ(qzbFindTwoPartExtension(QzbString("sales.REF.def")), "ref.def");
}

TEST(FileTypesTest, ResultIsTheTableEntryItself) {
  const char* found = qzbFindTwoPartExtension("x.sch.tpl");
  bool isEntry = false;
  for (const char* extension : qzbTwoPartExtensions) isEntry = isEntry || extension == found;
  EXPECT_TRUE(isEntry);
}

TEST(FileTypesTest, NamesWithoutATwoPartExtension) {
  EXPECT_EQ(qzbFindTwoPartExtension("notes.txt"), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension("job.def"), nullptr);  // no dot before it
  EXPECT_EQ(qzbFindTwoPartExtension("xjob.def"), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension("a.job.def.bak"), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension("a.job.de"), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension("def"), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension(""), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension(QzbString()), nullptr);
  EXPECT_EQ(qzbFindTwoPartExtension(QzbString("")), nullptr);
}

TEST(FileTypesTest, NameWithEmbeddedNulIsJudgedByItsWholeLength) {
  const QzbString hidden = QzbString::fromBytes("a.job.def\0.txt", 14);
  EXPECT_EQ(qzbFindTwoPartExtension(hidden), nullptr);
  const QzbString real = QzbString::fromBytes("x\0y.job.def", 11);
  EXPECT_STREQ(qzbFindTwoPartExtension(real), "job.def");
}

TEST(FileTypesTest, TypesOfTheTwoPartExtensions) {
  EXPECT_STREQ(getTypeForFileExtension("job.def").asCstr(), "Job");
  EXPECT_STREQ(getTypeForFileExtension("job.tpl").asCstr(), "Job");
  EXPECT_STREQ(getTypeForFileExtension("rpt.def").asCstr(), "Report");
  EXPECT_STREQ(getTypeForFileExtension("rpt.tpl").asCstr(), "Report");
  EXPECT_STREQ(getTypeForFileExtension("sch.def").asCstr(), "Schedule");
  EXPECT_STREQ(getTypeForFileExtension("sch.tpl").asCstr(), "Schedule");
  EXPECT_STREQ(getTypeForFileExtension("ref.def").asCstr(), "ReferenceData");
  EXPECT_STREQ(getTypeForFileExtension("ref.tpl").asCstr(), "ReferenceData");
  EXPECT_STREQ(getTypeForFileExtension("map.def").asCstr(), "Mapping");
  EXPECT_STREQ(getTypeForFileExtension("map.tpl").asCstr(), "Mapping");
  EXPECT_STREQ(getTypeForFileExtension("qry.def").asCstr(), "Query");
  EXPECT_STREQ(getTypeForFileExtension("qry.tpl").asCstr(), "Query");
}

TEST(FileTypesTest, TypesOfOrdinaryFiles) {
  EXPECT_STREQ(getTypeForFileExtension("csv").asCstr(), "DataFile");
  EXPECT_STREQ(getTypeForFileExtension("txt").asCstr(), "DataFile");
  EXPECT_STREQ(getTypeForFileExtension("dat").asCstr(), "DataFile");
  EXPECT_STREQ(getTypeForFileExtension("sql").asCstr(), "Script");
  EXPECT_STREQ(getTypeForFileExtension("sh").asCstr(), "Script");
  EXPECT_STREQ(getTypeForFileExtension("py").asCstr(), "Script");
  EXPECT_STREQ(getTypeForFileExtension("log").asCstr(), "Log");
  EXPECT_STREQ(getTypeForFileExtension("pdf").asCstr(), "Document");
  EXPECT_STREQ(getTypeForFileExtension("html").asCstr(), "Document");
}

TEST(FileTypesTest, TypeLookUpIgnoresLetterCase) {
  EXPECT_STREQ(getTypeForFileExtension("CSV").asCstr(), "DataFile");
  EXPECT_STREQ(getTypeForFileExtension("Job.Def").asCstr(), "Job");
  EXPECT_STREQ(getTypeForFileExtension("HTML").asCstr(), "Document");
}

TEST(FileTypesTest, UnknownExtensionsHaveNoType) {
  EXPECT_TRUE(getTypeForFileExtension(QzbString()).isNull());
  EXPECT_TRUE(getTypeForFileExtension(QzbString("")).isNull());
  EXPECT_TRUE(getTypeForFileExtension("xlsx").isNull());
  EXPECT_TRUE(getTypeForFileExtension(".csv").isNull());  // the dot is not part of it
  EXPECT_TRUE(getTypeForFileExtension("job").isNull());
  EXPECT_TRUE(getTypeForFileExtension("def").isNull());
  EXPECT_TRUE(getTypeForFileExtension("csv ").isNull());
  EXPECT_TRUE(getTypeForFileExtension(QzbString::fromBytes("csv\0", 4)).isNull());
  EXPECT_TRUE(getTypeForFileExtension(std::string(100000, 'c').c_str()).isNull());
}

TEST(FileTypesTest, EveryTableRowMapsToItsType) {
  for (const QzbFileType& type : qzbFileTypes) {
    EXPECT_STREQ(getTypeForFileExtension(type.extension).asCstr(), type.resourceType)
        << type.extension;
  }
}

}  // namespace
