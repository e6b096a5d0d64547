// QzviFileList and the name helpers qzviParseFileExt, qzviExtractVersion,
// qzviPathIsEqual, qzviStringTrailingSlash and qzviFileExists.
#include "file_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/file_types.h"
#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/privileges.h"
#include "support/temp_dir.h"
#include "time_util.h"

namespace {

using qztest::TempDir;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

// Names returned by a listing of `path` in `mode`, sorted.
std::vector<std::string> listNames(const std::string& path, int mode) {
  QzviFileList list;
  QzbString error;
  EXPECT_TRUE(list.init(S(path), mode, &error)) << error.asCstr();
  std::vector<std::string> names;
  while (list.next()) names.push_back(list.getName().toStdString());
  std::sort(names.begin(), names.end());
  return names;
}

// A folder with two user files, a user sub-directory, the vault's files and a
// hidden directory.
class FileListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qztest::writeFile(dir_.join("report.txt"), "r");
    qztest::writeFile(dir_.join("load.job.def"), "j");
    qztest::makeDirs(dir_.join("sub"));
    qztest::writeFile(dir_.join(".v_fmd"), "");
    qztest::writeFile(dir_.join(".v_cmd"), "");
    qztest::writeFile(dir_.join(".v_lck"), "");
    qztest::makeDirs(dir_.join(".v_ver"));
  }
  TempDir dir_;
};

TEST_F(FileListTest, Mode4SkipsVaultFiles) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_ALL_ENTRIES),
            (std::vector<std::string>{"load.job.def", "report.txt", "sub"}));
}

TEST_F(FileListTest, Mode8ReturnsOnlyVaultFiles) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_ONLY_VAULT),
            (std::vector<std::string>{".v_cmd", ".v_fmd", ".v_lck", ".v_ver"}));
}

TEST_F(FileListTest, Mode0ReturnsEverything) {
  EXPECT_EQ(listNames(dir_.path(), 0),
            (std::vector<std::string>{".v_cmd", ".v_fmd", ".v_lck", ".v_ver", "load.job.def",
                                      "report.txt", "sub"}));
}

TEST_F(FileListTest, Mode5ListsUserFilesOnly) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_OBJECTS),
            (std::vector<std::string>{"load.job.def", "report.txt"}));
}

TEST_F(FileListTest, Mode6ListsUserDirectoriesOnly) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_FOLDERS), (std::vector<std::string>{"sub"}));
}

TEST_F(FileListTest, Mode1And2TogetherListEveryEntry) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_FILES | QZVI_LIST_DIRS | QZVI_LIST_SKIP_VAULT),
            (std::vector<std::string>{"load.job.def", "report.txt", "sub"}));
}

TEST_F(FileListTest, Mode9ReturnsOnlyVaultRegularFiles) {
  EXPECT_EQ(listNames(dir_.path(), QZVI_LIST_FILES | QZVI_LIST_ONLY_VAULT),
            (std::vector<std::string>{".v_cmd", ".v_fmd", ".v_lck"}));
}

TEST_F(FileListTest, EntryAccessors) {
  qztest::setMtime(dir_.join("report.txt"), 1500000000);
  QzviFileList list;
  QzbString error;
  ASSERT_TRUE(list.init(S(dir_.path()), 0, &error));
  // Before the first entry there is nothing to report.
  EXPECT_TRUE(list.getName().isNull());
  EXPECT_TRUE(list.getFullPathName().isNull());
  EXPECT_TRUE(list.isReadOnly());
  bool sawFile = false;
  bool sawDir = false;
  bool sawVault = false;
  while (list.next()) {
    const std::string name = list.getName().toStdString();
    EXPECT_EQ(list.getFullPathName().toStdString(), dir_.join(name));
    EXPECT_EQ(list.isVaultItem(), name[0] == '.') << name;
    if (name == "report.txt") {
      sawFile = true;
      EXPECT_FALSE(list.isDir());
      EXPECT_EQ(list.getTimestampLong(), 1500000000);
      EXPECT_EQ(list.getTimestamp(), qzviSeconds2QzbDate(1500000000));
    } else if (name == "sub") {
      sawDir = true;
      EXPECT_TRUE(list.isDir());
    } else if (name == ".v_ver") {
      sawVault = true;
      EXPECT_TRUE(list.isDir());
    }
  }
  EXPECT_TRUE(sawFile && sawDir && sawVault);
  // After the end, again nothing.
  EXPECT_FALSE(list.next());
  EXPECT_TRUE(list.getName().isNull());
  EXPECT_TRUE(list.getFullPathName().isNull());
  EXPECT_TRUE(list.isReadOnly());
  EXPECT_FALSE(list.isDir());
}

TEST_F(FileListTest, NextWithoutInitIsFalse) {
  QzviFileList list;
  EXPECT_FALSE(list.next());
  EXPECT_TRUE(list.getName().isNull());
}

TEST_F(FileListTest, InitAgainRestartsTheListing) {
  QzviFileList list;
  QzbString error;
  ASSERT_TRUE(list.init(S(dir_.path()), QZVI_LIST_OBJECTS, &error));
  ASSERT_TRUE(list.next());
  ASSERT_TRUE(list.init(S(dir_.path()), QZVI_LIST_FOLDERS, &error));
  ASSERT_TRUE(list.next());
  EXPECT_EQ(list.getName().toStdString(), "sub");
  EXPECT_FALSE(list.next());
}

TEST_F(FileListTest, DirectoryWithTrailingSeparatorGivesPlainFullNames) {
  QzviFileList list;
  QzbString error;
  ASSERT_TRUE(list.init(S(dir_.path() + "/"), QZVI_LIST_FOLDERS, &error));
  ASSERT_TRUE(list.next());
  EXPECT_EQ(list.getFullPathName().toStdString(), dir_.join("sub"));
}

TEST(FileListErrors, MissingDirectory) {
  TempDir dir;
  const std::string path = dir.join("missing");
  QzviFileList list;
  QzbString error;
  EXPECT_FALSE(list.init(S(path), QZVI_LIST_OBJECTS, &error));
  EXPECT_EQ(error.toStdString(), "Directory " + path + " not found");
  EXPECT_FALSE(list.next());
}

TEST(FileListErrors, NotADirectory) {
  TempDir dir;
  const std::string path = dir.join("file.txt");
  qztest::writeFile(path, "x");
  QzviFileList list;
  QzbString error;
  EXPECT_FALSE(list.init(S(path), QZVI_LIST_OBJECTS, &error));
  EXPECT_EQ(error.toStdString(), path + " is not a directory");
}

TEST(FileListErrors, UnknownErrorFromThePlatform) {
  TempDir dir;
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kDirOpen, 1, NP_ERR_UNKNOWN);
  QzviFileList list;
  QzbString error;
  EXPECT_FALSE(list.init(S(dir.path()), QZVI_LIST_OBJECTS, &error));
  EXPECT_EQ(error.toStdString(), "Unknown error reading directory " + dir.path());
}

TEST(FileListErrors, AnyOtherCodeIsAnUnknownError) {
  TempDir dir;
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kDirOpen, 1, NP_ERR_IO);
  QzviFileList list;
  QzbString error;
  EXPECT_FALSE(list.init(S(dir.path()), QZVI_LIST_OBJECTS, &error));
  EXPECT_EQ(error.toStdString(), "Unknown error reading directory " + dir.path());
}

TEST(FileListErrors, NullErrorPointerIsAllowed) {
  TempDir dir;
  QzviFileList list;
  EXPECT_FALSE(list.init(S(dir.join("missing")), QZVI_LIST_OBJECTS, nullptr));
}

// Root reads every directory, so the check runs in a child that has become
// user nobody; the parent makes the temporary directory reachable first.
TEST(FileListErrors, AccessDenied) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  const std::string locked = dir.join("locked");
  qztest::makeDirs(locked);
  ASSERT_EQ(chmod(locked.c_str(), 0700), 0);
  const std::string expected = "Access to " + locked + " is denied";
  const int status = qztest::runAsNobody([&]() {
    QzviFileList list;
    QzbString error;
    if (list.init(S(locked), QZVI_LIST_OBJECTS, &error)) return 1;
    if (error.toStdString() != expected) return 2;
    return 0;
  });
  EXPECT_EQ(status, 0);
}

// ---------------------------------------------------------------------------
// The flags handed to the platform layer.

struct RecordedCalls {
  std::vector<int> dirOpenFlags;
  std::vector<int> fioOpenFlags;
  std::vector<std::string> fioOpenPaths;
};
RecordedCalls* g_recorded = nullptr;

int recordingDirOpen(const char* path, int flags, NpDir** handle) {
  g_recorded->dirOpenFlags.push_back(flags);
  return npDefaultPlatformOps()->dir_open(path, flags, handle);
}

int recordingFioOpen(const char* path, int flags, NpFile** handle) {
  g_recorded->fioOpenFlags.push_back(flags);
  g_recorded->fioOpenPaths.push_back(path != nullptr ? path : "");
  return npDefaultPlatformOps()->fio_open(path, flags, handle);
}

// Installs a table that records dir_open and fio_open calls.
class RecordingPlatform {
 public:
  RecordingPlatform() : table_(*npDefaultPlatformOps()) {
    table_.dir_open = recordingDirOpen;
    table_.fio_open = recordingFioOpen;
    g_recorded = &calls_;
    previous_ = npSetPlatformOps(&table_);
  }
  ~RecordingPlatform() {
    npSetPlatformOps(previous_);
    g_recorded = nullptr;
  }
  RecordedCalls& calls() { return calls_; }

 private:
  NpPlatformOps table_;
  const NpPlatformOps* previous_;
  RecordedCalls calls_;
};

TEST(FileListFlags, ModeBitsChooseTheDirectoryOpenFlags) {
  TempDir dir;
  RecordingPlatform platform;
  const int modes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
  // Every listing is made without following entries (NP_DIR_NOFOLLOW): a
  // link is listed as a link, never as what it points to.
  const int expected[] = {37, 39, 53, 55, 37, 39, 53, 55, 37};
  for (int mode : modes) {
    QzviFileList list;
    QzbString error;
    ASSERT_TRUE(list.init(S(dir.path()), mode, &error));
  }
  ASSERT_EQ(platform.calls().dirOpenFlags.size(), 9u);
  for (std::size_t i = 0; i < 9; ++i) {
    EXPECT_EQ(platform.calls().dirOpenFlags[i], expected[i]) << "mode " << modes[i];
    EXPECT_NE(platform.calls().dirOpenFlags[i] & NP_DIR_NOFOLLOW, 0) << "mode " << modes[i];
  }
}

TEST(FileListFlags, IsReadOnlyProbesTheEntryForWriting) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "a");
  QzviFileList list;
  QzbString error;
  ASSERT_TRUE(list.init(S(dir.path()), QZVI_LIST_OBJECTS, &error));
  ASSERT_TRUE(list.next());
  RecordingPlatform platform;
  EXPECT_FALSE(list.isReadOnly());
  ASSERT_EQ(platform.calls().fioOpenFlags.size(), 1u);
  EXPECT_EQ(platform.calls().fioOpenFlags[0], NP_FIO_PROBE_WRITE);
  EXPECT_EQ(platform.calls().fioOpenPaths[0], dir.join("a.txt"));
}

TEST(FileListFlags, IsReadOnlyIsTrueWhenTheProbeFails) {
  TempDir dir;
  qztest::writeFile(dir.join("a.txt"), "a");
  QzviFileList list;
  QzbString error;
  ASSERT_TRUE(list.init(S(dir.path()), QZVI_LIST_OBJECTS, &error));
  ASSERT_TRUE(list.next());
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioOpen, 1, NP_ERR_ACCESS);
  EXPECT_TRUE(list.isReadOnly());
}

// A read-only file is writable for root; the check runs as nobody.
TEST(FileListFlags, ReadOnlyFileAsUnprivilegedUser) {
  TempDir dir;
  qztest::makeReachable(dir.path());
  qztest::writeFile(dir.join("locked.txt"), "x");
  qztest::writeFile(dir.join("open.txt"), "x");
  ASSERT_EQ(chmod(dir.join("locked.txt").c_str(), 0444), 0);
  ASSERT_EQ(chmod(dir.join("open.txt").c_str(), 0666), 0);
  const std::string path = dir.path();
  const int status = qztest::runAsNobody([&]() {
    QzviFileList list;
    QzbString error;
    if (!list.init(S(path), QZVI_LIST_OBJECTS, &error)) return 1;
    int seen = 0;
    while (list.next()) {
      const std::string name = list.getName().toStdString();
      if (name == "locked.txt" && !list.isReadOnly()) return 2;
      if (name == "open.txt" && list.isReadOnly()) return 3;
      ++seen;
    }
    return seen == 2 ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST(FileListStatic, IsVaultFileLooksAtTheFirstCharacterOnly) {
  EXPECT_TRUE(QzviFileList::isVaultFile(".v_fmd"));
  EXPECT_TRUE(QzviFileList::isVaultFile(".anything"));
  EXPECT_TRUE(QzviFileList::isVaultFile("."));
  EXPECT_FALSE(QzviFileList::isVaultFile("a.v_fmd"));
  EXPECT_FALSE(QzviFileList::isVaultFile(""));
  EXPECT_FALSE(QzviFileList::isVaultFile(nullptr));
}

// ---------------------------------------------------------------------------
// The two-part extension table.

TEST(TwoPartExtensions, ComeFromTheBaseLayerTable) {
  std::set<std::string> seen;
  for (int i = 0; i < 12; ++i) {
    const char* entry = kQzviTwoPartExtensions[i];
    ASSERT_NE(entry, nullptr);
    // The same storage as the base layer's entry: one source of the values.
    EXPECT_EQ(entry, qzbTwoPartExtensions[i]);
    const std::string text(entry);
    ASSERT_EQ(text.size(), 7u) << text;
    EXPECT_EQ(text[3], '.') << text;
    for (std::size_t c = 0; c < text.size(); ++c) {
      if (c == 3) continue;
      EXPECT_TRUE(text[c] >= 'a' && text[c] <= 'z') << text;
    }
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 12u);
}

// ---------------------------------------------------------------------------
// qzviParseFileExt

TEST(ParseFileExt, SimpleSplitsAtTheLastDot) {
  QzbString extension;
  EXPECT_EQ(qzviParseFileExt(S("a.b.c"), &extension, true).toStdString(), "a.b");
  EXPECT_EQ(extension.toStdString(), "c");
  EXPECT_EQ(qzviParseFileExt(S("x.job.def"), &extension, true).toStdString(), "x.job");
  EXPECT_EQ(extension.toStdString(), "def");
}

TEST(ParseFileExt, TwoPartExtensionInAnyCase) {
  QzbString extension;
  EXPECT_EQ(qzviParseFileExt(S("nightly-load.job.def"), &extension, false).toStdString(),
            "nightly-load");
  EXPECT_EQ(extension.toStdString(), "job.def");
  EXPECT_EQ(qzviParseFileExt(S("Sales.RPT.Tpl"), &extension, false).toStdString(), "Sales");
  EXPECT_EQ(extension.toStdString(), "RPT.Tpl");  // the name's own case
  EXPECT_EQ(qzviParseFileExt(S("a.b.MAP.DEF"), &extension, false).toStdString(), "a.b");
  EXPECT_EQ(extension.toStdString(), "MAP.DEF");
}

TEST(ParseFileExt, EveryTableEntryIsRecognised) {
  for (const char* entry : kQzviTwoPartExtensions) {
    QzbString extension;
    const std::string name = std::string("base.") + entry;
    EXPECT_EQ(qzviParseFileExt(S(name), &extension, false).toStdString(), "base") << name;
    EXPECT_EQ(extension.toStdString(), entry);
  }
}

TEST(ParseFileExt, OtherNamesSplitAtTheLastDot) {
  QzbString extension;
  EXPECT_EQ(qzviParseFileExt(S("a.b.c"), &extension, false).toStdString(), "a.b");
  EXPECT_EQ(extension.toStdString(), "c");
  // A two-part entry needs the dot before it.
  EXPECT_EQ(qzviParseFileExt(S("job.def"), &extension, false).toStdString(), "job");
  EXPECT_EQ(extension.toStdString(), "def");
  EXPECT_EQ(qzviParseFileExt(S("xjob.def"), &extension, false).toStdString(), "xjob");
  // Not at the end: no two-part split.
  EXPECT_EQ(qzviParseFileExt(S("a.job.def.txt"), &extension, false).toStdString(), "a.job.def");
  EXPECT_EQ(extension.toStdString(), "txt");
}

TEST(ParseFileExt, NameThatIsOnlyAnExtension) {
  QzbString extension;
  EXPECT_EQ(qzviParseFileExt(S(".job.def"), &extension, false).toStdString(), "");
  EXPECT_EQ(extension.toStdString(), "job.def");
  EXPECT_EQ(qzviParseFileExt(S("a."), &extension, false).toStdString(), "a");
  EXPECT_EQ(extension.toStdString(), "");
  EXPECT_FALSE(extension.isNull());
}

TEST(ParseFileExt, NoDotGivesTheWholeNameAndAnEmptyExtension) {
  QzbString extension("stale");
  EXPECT_EQ(qzviParseFileExt(S("README"), &extension, false).toStdString(), "README");
  EXPECT_TRUE(extension.isEmpty());
  EXPECT_FALSE(extension.isNull());
  extension = QzbString("stale");
  EXPECT_EQ(qzviParseFileExt(S("README"), &extension, true).toStdString(), "README");
  EXPECT_TRUE(extension.isEmpty());
}

TEST(ParseFileExt, ExtensionPointerMayBeNull) {
  EXPECT_EQ(qzviParseFileExt(S("a.job.def"), nullptr, false).toStdString(), "a");
  EXPECT_EQ(qzviParseFileExt(S("a.txt"), nullptr, true).toStdString(), "a");
  EXPECT_EQ(qzviParseFileExt(S("a"), nullptr, true).toStdString(), "a");
}

// ---------------------------------------------------------------------------
// qzviExtractVersion

TEST(ExtractVersion, NumberInTheExtension) {
  EXPECT_EQ(qzviExtractVersion(S("x.12")), 12);
  EXPECT_EQ(qzviExtractVersion(S("job.3")), 3);
  EXPECT_EQ(qzviExtractVersion(S("load.job.def.0")), 0);
  EXPECT_EQ(qzviExtractVersion(S("a.1.2")), 2);
}

TEST(ExtractVersion, MinusOneWithoutANumber) {
  EXPECT_EQ(qzviExtractVersion(S("x")), -1);
  EXPECT_EQ(qzviExtractVersion(S("job.txt")), -1);
  EXPECT_EQ(qzviExtractVersion(S("x.")), -1);
  EXPECT_EQ(qzviExtractVersion(S("")), -1);
  EXPECT_EQ(qzviExtractVersion(QzbString()), -1);
}

TEST(ExtractVersion, LeadingDigitsCount) {
  EXPECT_EQ(qzviExtractVersion(S("x.7a")), 7);
  EXPECT_EQ(qzviExtractVersion(S("x.99999999999")), 0x7FFFFFFF);
}

// ---------------------------------------------------------------------------
// qzviPathIsEqual, qzviStringTrailingSlash, qzviFileExists

TEST(PathIsEqual, OneTrailingSeparatorIsIgnored) {
  EXPECT_TRUE(qzviPathIsEqual(S("a/b/"), S("a/b")));
  EXPECT_TRUE(qzviPathIsEqual(S("a/b"), S("a/b/")));
  EXPECT_TRUE(qzviPathIsEqual(S("a\\b\\"), S("a\\b")));
  EXPECT_FALSE(qzviPathIsEqual(S("a/b//"), S("a/b")));
}

TEST(PathIsEqual, LetterCaseIsIgnored) {
  EXPECT_TRUE(qzviPathIsEqual(S("/Srv/Vault"), S("/srv/vault/")));
  EXPECT_FALSE(qzviPathIsEqual(S("/srv/vault1"), S("/srv/vault")));
}

TEST(StringTrailingSlash, DropsOneSeparator) {
  EXPECT_EQ(qzviStringTrailingSlash(S("dir/")).toStdString(), "dir");
  EXPECT_EQ(qzviStringTrailingSlash(S("dir\\")).toStdString(), "dir");
  EXPECT_EQ(qzviStringTrailingSlash(S("dir//")).toStdString(), "dir/");
  EXPECT_EQ(qzviStringTrailingSlash(S("dir")).toStdString(), "dir");
  EXPECT_EQ(qzviStringTrailingSlash(S("")).toStdString(), "");
  EXPECT_TRUE(qzviStringTrailingSlash(QzbString()).isNull());
}

TEST(StringTrailingSlash, RootsAreKept) {
  EXPECT_EQ(qzviStringTrailingSlash(S("C:\\")).toStdString(), "C:\\");
  EXPECT_EQ(qzviStringTrailingSlash(S("C:/")).toStdString(), "C:/");
  EXPECT_EQ(qzviStringTrailingSlash(S("/")).toStdString(), "/");
}

TEST(FileExists, ByJoinedPath) {
  TempDir dir;
  qztest::writeFile(dir.join("here.txt"), "x");
  qztest::makeDirs(dir.join("sub"));
  EXPECT_TRUE(qzviFileExists(S(dir.path()), S("here.txt")));
  EXPECT_TRUE(qzviFileExists(S(dir.path()), S("sub")));
  EXPECT_FALSE(qzviFileExists(S(dir.path()), S("gone.txt")));
}

TEST(FileExists, FalseWhenThePathCannotBeJoined) {
  TempDir dir;
  EXPECT_FALSE(qzviFileExists(S(dir.path()), S("..")));
  EXPECT_FALSE(qzviFileExists(S(dir.path()), S("")));
  EXPECT_FALSE(qzviFileExists(QzbString(), S("x")));
}

TEST(FileExists, OtherStatFailuresCountAsExisting) {
  TempDir dir;
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioStat, 1, NP_ERR_ACCESS);
  EXPECT_TRUE(qzviFileExists(S(dir.path()), S("unknown.txt")));
}

}  // namespace
