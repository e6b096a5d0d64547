// qzviGetNewValidFilename: free names in a folder made from any display name.
// Whatever the display name, the result is one component of the folder, does
// not begin with "." (which would make it one of the vault's own files), fits
// NP_NAME_MAX bytes, is valid UTF-8 and is free.
#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "file_list.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

bool isValidUtf8(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    std::size_t length;
    unsigned minimum;
    unsigned code;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      length = 2, minimum = 0x80, code = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3, minimum = 0x800, code = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4, minimum = 0x10000, code = c & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

// Every promise of qzviGetNewValidFilename about one result. Returns an empty
// text when the result keeps them, else what is wrong.
std::string checkResult(const std::string& directory, const QzbString& result) {
  if (result.isNull()) return "null result";
  const std::string name = result.toStdString();
  if (name.empty()) return "empty name";
  if (name.size() > NP_NAME_MAX) return "longer than NP_NAME_MAX: " + std::to_string(name.size());
  if (name[0] == '.') return "begins with a dot: " + name;
  for (unsigned char c : name) {
    if (c == '/' || c == '\\') return "holds a separator: " + name;
    if (c < 0x20 || c == 0x7F) return "holds a control character: " + name;
  }
  if (!isValidUtf8(name)) return "not valid UTF-8: " + name;
  // Joining it to the folder gives a path directly inside the folder.
  QzbString leaf;
  const QzbString parent = qzbParsePath(qzbConcatPath(S(directory), result), &leaf);
  if (parent.toStdString() != directory || leaf.toStdString() != name) {
    return "not a component of the folder: " + name;
  }
  if (access((directory + "/" + name).c_str(), F_OK) == 0) return "not free: " + name;
  return std::string();
}

// Creates the file, proving that the file system takes the name.
void createFile(const std::string& path) {
  const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0644);
  ASSERT_GE(fd, 0) << "cannot create " << path;
  close(fd);
}

TEST(NewValidFilename, FreeNameIsTheNameWithItsExtension) {
  TempDir dir;
  EXPECT_EQ(qzviGetNewValidFilename(S("report"), S("txt"), S(dir.path())).toStdString(),
            "report.txt");
}

TEST(NewValidFilename, TakenNameGetsANumberInFront) {
  TempDir dir;
  qztest::writeFile(dir.join("report.txt"), "");
  EXPECT_EQ(qzviGetNewValidFilename(S("report"), S("txt"), S(dir.path())).toStdString(),
            "1report.txt");
  qztest::writeFile(dir.join("1report.txt"), "");
  qztest::makeDirs(dir.join("2report.txt"));  // a directory takes the name too
  EXPECT_EQ(qzviGetNewValidFilename(S("report"), S("txt"), S(dir.path())).toStdString(),
            "3report.txt");
}

TEST(NewValidFilename, ExtensionIsNotDoubled) {
  TempDir dir;
  EXPECT_EQ(qzviGetNewValidFilename(S("report.txt"), S("txt"), S(dir.path())).toStdString(),
            "report.txt");
  // The name keeps its own letter case.
  EXPECT_EQ(qzviGetNewValidFilename(S("Report.TXT"), S("txt"), S(dir.path())).toStdString(),
            "Report.TXT");
  EXPECT_EQ(qzviGetNewValidFilename(S("load.job.def"), S("job.def"), S(dir.path())).toStdString(),
            "load.job.def");
  // Only a whole ".ext" counts.
  EXPECT_EQ(qzviGetNewValidFilename(S("reporttxt"), S("txt"), S(dir.path())).toStdString(),
            "reporttxt.txt");
}

TEST(NewValidFilename, EmptyExtensionAddsNothing) {
  TempDir dir;
  EXPECT_EQ(qzviGetNewValidFilename(S("notes"), S(""), S(dir.path())).toStdString(), "notes");
  EXPECT_EQ(qzviGetNewValidFilename(S("notes"), QzbString(), S(dir.path())).toStdString(),
            "notes");
}

TEST(NewValidFilename, HostileDisplayNames) {
  TempDir dir;
  const std::string hostile[] = {"",        ".",       "..",         "../x",     "../../etc/passwd",
                                 ".v_fmd",  ".v_cmd",  "a/b",        "a\\b",     "/abs",
                                 "tab\there", "nl\nx", std::string("\x01\x1f\x7f", 3), " .. ",
                                 "...",     "a:b*c?d\"e<f>g|h", "trailing. . "};
  for (const std::string& name : hostile) {
    for (const char* extension : {"", "txt"}) {
      const QzbString result = qzviGetNewValidFilename(S(name), S(extension), S(dir.path()));
      EXPECT_EQ(checkResult(dir.path(), result), "") << "display name \"" << name << "\"";
      if (*extension != '\0' && !result.isNull()) {
        EXPECT_TRUE(result.endsWith(".txt")) << result.asCstr();
      }
    }
  }
}

TEST(NewValidFilename, SpecificConversions) {
  TempDir dir;
  const QzbString d = S(dir.path());
  EXPECT_EQ(qzviGetNewValidFilename(S(""), S(""), d).toStdString(), "_");
  EXPECT_EQ(qzviGetNewValidFilename(S(".v_fmd"), S(""), d).toStdString(), "_v_fmd");
  EXPECT_EQ(qzviGetNewValidFilename(S("a/b"), S("txt"), d).toStdString(), "a_b.txt");
  EXPECT_EQ(qzviGetNewValidFilename(S("a\\b"), S("txt"), d).toStdString(), "a_b.txt");
  EXPECT_EQ(qzviGetNewValidFilename(S("..x"), S(""), d).toStdString(), "__x");
}

TEST(NewValidFilename, HostileNamesThatCollide) {
  TempDir dir;
  // "a/b", "a\\b" and "a:b" all become "a_b.txt"; each call gets a free name.
  std::string previous;
  for (const char* name : {"a/b", "a\\b", "a:b", "a_b", "a|b"}) {
    const QzbString result = qzviGetNewValidFilename(S(name), S("txt"), S(dir.path()));
    ASSERT_EQ(checkResult(dir.path(), result), "") << name;
    EXPECT_NE(result.toStdString(), previous);
    previous = result.toStdString();
    createFile(dir.join(result.toStdString()));
  }
  EXPECT_EQ(previous, "4a_b.txt");
}

TEST(NewValidFilename, LongNameIsShortenedToFit) {
  TempDir dir;
  const std::string name(2000, 'n');
  const QzbString result = qzviGetNewValidFilename(S(name), S("txt"), S(dir.path()));
  ASSERT_EQ(checkResult(dir.path(), result), "");
  EXPECT_EQ(result.length(), static_cast<unsigned>(NP_NAME_MAX));
  EXPECT_TRUE(result.endsWith(".txt"));
  createFile(dir.join(result.toStdString()));

  // Taken: the number in front still fits, the stem gives way.
  const QzbString second = qzviGetNewValidFilename(S(name), S("txt"), S(dir.path()));
  ASSERT_EQ(checkResult(dir.path(), second), "");
  EXPECT_EQ(second.length(), static_cast<unsigned>(NP_NAME_MAX));
  EXPECT_TRUE(second.startsWith("1n"));
  EXPECT_TRUE(second.endsWith(".txt"));
  createFile(dir.join(second.toStdString()));
}

TEST(NewValidFilename, LongNameWithoutExtension) {
  TempDir dir;
  const std::string name(2000, 'n');
  const QzbString result = qzviGetNewValidFilename(S(name), S(""), S(dir.path()));
  ASSERT_EQ(checkResult(dir.path(), result), "");
  EXPECT_EQ(result.toStdString(), std::string(NP_NAME_MAX, 'n'));
}

// Multi-byte characters of every length, placed so that the limit falls
// inside a character: the cut moves back to the character's start.
TEST(NewValidFilename, MultiByteCharactersAtTheLengthLimit) {
  const std::string characters[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  for (const std::string& character : characters) {
    for (int shift = 0; shift < 4; ++shift) {
      TempDir dir;
      std::string name(static_cast<std::size_t>(shift), 'a');
      while (name.size() < 600) name += character;
      for (int round = 0; round < 3; ++round) {
        const QzbString result = qzviGetNewValidFilename(S(name), S("txt"), S(dir.path()));
        ASSERT_EQ(checkResult(dir.path(), result), "")
            << "character of " << character.size() << " bytes, shift " << shift;
        EXPECT_TRUE(result.endsWith(".txt"));
        EXPECT_GT(result.length(), static_cast<unsigned>(NP_NAME_MAX) - character.size() - 1);
        createFile(dir.join(result.toStdString()));
      }
    }
  }
}

TEST(NewValidFilename, ExtensionWithSeparatorOrControlCharacterGivesNull) {
  TempDir dir;
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("a/b"), S(dir.path())).isNull());
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("..\\b"), S(dir.path())).isNull());
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("t\nx"), S(dir.path())).isNull());
  // A C1 control (U+0080 to U+009F) as well: U+009B begins terminal control
  // sequences. Found by fuzzing, behind bytes that are not UTF-8.
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("c\xC2\x9B" "1"), S(dir.path())).isNull());
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("\xC2\xC2\x8F"), S(dir.path())).isNull());
  EXPECT_EQ(qzviGetNewValidFilename(S("x"), S("\xC2\xA0"), S(dir.path())).toStdString(), "x.\xC2\xA0");
}

TEST(NewValidFilename, ExtensionTooLongToFitGivesNull) {
  TempDir dir;
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S(std::string(254, 'e')), S(dir.path())).isNull());
  // 253 bytes of extension leave room for a one-byte name and the dot.
  const QzbString fits = qzviGetNewValidFilename(S("x"), S(std::string(253, 'e')), S(dir.path()));
  ASSERT_EQ(checkResult(dir.path(), fits), "");
  EXPECT_EQ(fits.length(), 255u);
}

TEST(NewValidFilename, NullWhenThePathCannotBeJoined) {
  EXPECT_TRUE(qzviGetNewValidFilename(S("x"), S("txt"), QzbString()).isNull());
}

TEST(NewValidFilename, OddStatResultIsLoggedAndGivesNull) {
  TempDir dir;
  qztest::LogCapture log;
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioStat, 1, NP_ERR_ACCESS);
  EXPECT_TRUE(qzviGetNewValidFilename(S("report"), S("txt"), S(dir.path())).isNull());
  EXPECT_TRUE(log.contains("Stat on " + dir.join("report.txt") + " returned 4", 2,
                           "QZ.Repos.Vault"))
      << log.dump();
}

TEST(NewValidFilename, OddStatResultAfterATakenName) {
  TempDir dir;
  qztest::writeFile(dir.join("report.txt"), "");
  qztest::LogCapture log;
  qztest::FaultPlatform faults;
  faults.failCall(qztest::NpOp::kFioStat, 2, NP_ERR_IO);
  EXPECT_TRUE(qzviGetNewValidFilename(S("report"), S("txt"), S(dir.path())).isNull());
  EXPECT_TRUE(log.contains("Stat on " + dir.join("1report.txt") + " returned 11")) << log.dump();
}

// Many generated display names (fixed seed, so a failure can be replayed):
// bytes of every kind, multi-byte characters, broken sequences, dots and
// separators, lengths from 0 to 600. Half of the results are created, so
// later names collide with earlier ones.
TEST(NewValidFilename, RandomDisplayNames) {
  TempDir dir;
  std::mt19937 random(20240517u);
  const std::string pieces[] = {"a",  "Z",  "0",  ".",  "..", "/",  "\\", " ",  "\t", "\n",
                                ":",  "*",  "?",  "\"", "<",  ">",  "|",  "\x7f", "\x01",
                                "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                "\xC3",      // a lead byte without its continuation
                                "\x80",      // a stray continuation byte
                                "\xED\xA0\x80",  // an encoded surrogate
                                "v_fmd", "report", "-", "_"};
  const char* extensions[] = {"", "txt", "job.def", "x", "TXT"};
  const int pieceCount = static_cast<int>(sizeof pieces / sizeof pieces[0]);
  std::uniform_int_distribution<int> pickPiece(0, pieceCount - 1);
  std::uniform_int_distribution<int> pickLength(0, 600);
  std::uniform_int_distribution<int> pickExtension(0, 4);
  std::uniform_int_distribution<int> coin(0, 1);
  for (int i = 0; i < 1500; ++i) {
    std::string name;
    const std::size_t length = static_cast<std::size_t>(pickLength(random));
    while (name.size() < length) name += pieces[pickPiece(random)];
    const char* extension = extensions[pickExtension(random)];
    const QzbString result = qzviGetNewValidFilename(S(name), S(extension), S(dir.path()));
    const std::string problem = checkResult(dir.path(), result);
    ASSERT_EQ(problem, "") << "name #" << i << " of " << name.size() << " bytes";
    if (*extension != '\0') {
      EXPECT_TRUE(result.endsWith((std::string(".") + extension).c_str(), false))
          << result.asCstr();
    }
    if (coin(random) == 1) createFile(dir.join(result.toStdString()));
  }
}

}  // namespace
