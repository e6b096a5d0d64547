// np_fio_link: a second name for an existing file, refused when the name is
// taken.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

ino_t inodeOf(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

TEST(PlatformLinkTest, LinkGivesTheFileASecondName) {
  qztest::TempDir dir;
  const std::string original = dir.join("original");
  const std::string second = dir.join("second");
  qztest::writeFile(original, "content");
  ASSERT_EQ(np_fio_link(original.c_str(), second.c_str()), NP_OK);
  EXPECT_EQ(qztest::readFile(second), "content");
  EXPECT_EQ(inodeOf(original), inodeOf(second));
  ASSERT_EQ(np_fio_unlink(original.c_str()), NP_OK);
  EXPECT_EQ(qztest::readFile(second), "content") << "the file lives on under its second name";
}

TEST(PlatformLinkTest, ExistingNewNameIsRefusedAndKept) {
  qztest::TempDir dir;
  const std::string original = dir.join("original");
  const std::string taken = dir.join("taken");
  qztest::writeFile(original, "new");
  qztest::writeFile(taken, "old");
  EXPECT_EQ(np_fio_link(original.c_str(), taken.c_str()), NP_ERR_EXISTS);
  EXPECT_EQ(qztest::readFile(taken), "old");
}

TEST(PlatformLinkTest, MissingFileAndNullPathsFail) {
  qztest::TempDir dir;
  EXPECT_EQ(np_fio_link(dir.join("missing").c_str(), dir.join("x").c_str()), NP_ERR_NOT_FOUND);
  EXPECT_FALSE(qztest::pathExists(dir.join("x")));
  EXPECT_NE(np_fio_link(nullptr, dir.join("x").c_str()), NP_OK);
  EXPECT_NE(np_fio_link(dir.join("x").c_str(), nullptr), NP_OK);
}

TEST(PlatformLinkTest, FaultPlatformCountsAndFailsLinks) {
  qztest::TempDir dir;
  const std::string original = dir.join("original");
  qztest::writeFile(original, "");
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioLink, 1, NP_ERR_IO);
  EXPECT_EQ(np_fio_link(original.c_str(), dir.join("a").c_str()), NP_ERR_IO);
  EXPECT_FALSE(qztest::pathExists(dir.join("a")));
  EXPECT_EQ(np_fio_link(original.c_str(), dir.join("b").c_str()), NP_OK);
  EXPECT_EQ(faults.callCount(qztest::NpOp::kFioLink), 2);
  EXPECT_EQ(faults.failuresInjected(qztest::NpOp::kFioLink), 1);
  EXPECT_STREQ(qztest::npOpName(qztest::NpOp::kFioLink), "fio_link");
}

}  // namespace
