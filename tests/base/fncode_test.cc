// np_fio_fncode guards the whole vault: whatever display name it is given, the
// file name it returns must be safe to create in a folder. Hostile names one
// by one, then a randomised sweep that checks every invariant.
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "qzbase/platform.h"

namespace {

std::string code(const char* name, std::size_t outLength = 256) {
  std::string out(outLength, '\x7f');
  int rc = np_fio_fncode(name, &out[0], outLength);
  EXPECT_EQ(NP_OK, rc) << "name " << (name != nullptr ? name : "(null)");
  return std::string(out.c_str());
}

std::string code(const std::string& name, std::size_t outLength = 256) {
  return code(name.c_str(), outLength);
}

bool isValidUtf8(const std::string& text) {
  std::size_t i = 0;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text.data());
  while (i < text.size()) {
    unsigned char c = s[i];
    std::size_t length;
    uint32_t value;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
      value = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      value = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      value = c & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
      value = (value << 6) | (s[i + k] & 0x3F);
    }
    if (length == 3 && (value < 0x800 || (value >= 0xD800 && value <= 0xDFFF))) return false;
    if (length == 4 && (value < 0x10000 || value > 0x10FFFF)) return false;
    i += length;
  }
  return true;
}

// Every property a converted name must have; empty when all hold.
std::string violations(const std::string& result, std::size_t outLength, bool inputWasUtf8) {
  std::string problems;
  std::size_t limit = std::min<std::size_t>(outLength - 1, NP_NAME_MAX);
  if (result.empty()) problems += "empty; ";
  if (result == "." || result == "..") problems += "dot name; ";
  if (!result.empty() && result[0] == '.') problems += "leading dot; ";
  if (result.size() > limit) problems += "too long; ";
  for (unsigned char c : result) {
    if (c == '/' || c == '\\') problems += "separator; ";
    if (c < 0x20 || c == 0x7F) problems += "control character; ";
  }
  for (std::size_t i = 0; i + 1 < result.size(); ++i) {
    if (static_cast<unsigned char>(result[i]) == 0xC2 && static_cast<unsigned char>(result[i + 1]) >= 0x80 &&
        static_cast<unsigned char>(result[i + 1]) <= 0x9F) {
      problems += "C1 control character; ";
    }
  }
  if (inputWasUtf8 && !isValidUtf8(result)) problems += "invalid UTF-8; ";
  return problems;
}

TEST(FileNameCode, OrdinaryNamesAreKept) {
  EXPECT_EQ("report.txt", code("report.txt"));
  EXPECT_EQ("Monthly sales (2024)", code("Monthly sales (2024)"));
  EXPECT_EQ("a.b.c", code("a.b.c"));
  EXPECT_EQ("caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC", code("caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC"));
  EXPECT_EQ("x_", code("x_"));
}

TEST(FileNameCode, EmptyAndNullGiveUnderscore) {
  EXPECT_EQ("_", code(""));
  EXPECT_EQ("_", code(nullptr));
}

TEST(FileNameCode, DotNamesNeverSurvive) {
  EXPECT_EQ("_", code("."));
  EXPECT_EQ("__", code(".."));
  EXPECT_EQ("___", code("..."));
  EXPECT_EQ("_v_fmd", code(".v_fmd"));
  EXPECT_EQ("_hidden.txt", code(".hidden.txt"));
}

TEST(FileNameCode, SeparatorsAreReplaced) {
  EXPECT_EQ("___x", code("../x"));
  EXPECT_EQ("a_b", code("a/b"));
  EXPECT_EQ("a_b", code("a\\b"));
  EXPECT_EQ("_etc_passwd", code("/etc/passwd"));
  EXPECT_EQ("__", code("//"));
}

TEST(FileNameCode, CharactersOtherFileSystemsRefuse) {
  EXPECT_EQ("a_b_c_d_e_f_g_h", code("a:b*c?d\"e<f>g|h"));
}

TEST(FileNameCode, ControlCharactersAndDelete) {
  EXPECT_EQ("a_b", code("a\tb"));
  EXPECT_EQ("a_b", code("a\nb"));
  EXPECT_EQ("a_b", code("a\x01" "b"));
  EXPECT_EQ("a_b", code("a\x1f" "b"));
  EXPECT_EQ("a_b", code("a\x7f" "b"));
  EXPECT_EQ("_", code("\x7f"));
  EXPECT_EQ("_", code("\r"));
  // C1 controls (U+0080 to U+009F): U+009B begins terminal control sequences
  // as ESC [ does. The characters after them are kept.
  EXPECT_EQ("a_b", code("a\xC2\x9B" "b"));
  EXPECT_EQ("a_b", code("a\xC2\x80" "b"));
  EXPECT_EQ("a\xC2\xA0" "b", code("a\xC2\xA0" "b"));
}

TEST(FileNameCode, Blanks) {
  EXPECT_EQ("__a", code("  a"));
  EXPECT_EQ("a", code("a   "));
  EXPECT_EQ("a b", code("a b"));
  EXPECT_EQ("___", code("   "));
  EXPECT_EQ("_", code(" "));
}

TEST(FileNameCode, TrailingDotsAndBlanksAreDropped) {
  EXPECT_EQ("name", code("name."));
  EXPECT_EQ("name", code("name. . "));
  EXPECT_EQ("____", code(". ._"));
  EXPECT_EQ("_a", code(".a."));
}

TEST(FileNameCode, OnlyDots) {
  EXPECT_EQ("_____", code("....."));
  EXPECT_EQ("___", code(". ."));
}

TEST(FileNameCode, LongNamesAreCutToTheLimit) {
  std::string name(1000, 'x');
  std::string result = code(name);
  EXPECT_EQ(static_cast<std::size_t>(NP_NAME_MAX), result.size());
  EXPECT_EQ(std::string(NP_NAME_MAX, 'x'), result);
  // A small buffer is the tighter limit.
  EXPECT_EQ("xxxxxxxxx", code(name, 10));
  EXPECT_EQ("x", code(name, 2));
}

TEST(FileNameCode, CutDropsTrailingDotsThatTheCutExposes) {
  std::string name = std::string(9, 'a') + ". tail";
  EXPECT_EQ("aaaaaaaaa", code(name, 12));  // "aaaaaaaaa. " cut, then trimmed
}

TEST(FileNameCode, MultiByteCharacterAtTheLimitIsNotSplit) {
  // 254 ASCII bytes, then a two-byte character: it does not fit in 255.
  std::string name = std::string(254, 'a') + "\xC3\xA9" + "zzz";
  std::string result = code(name);
  EXPECT_EQ(std::string(254, 'a'), result);
  // 253 bytes and the two-byte character fit exactly.
  name = std::string(253, 'a') + "\xC3\xA9" + "zzz";
  result = code(name);
  EXPECT_EQ(std::string(253, 'a') + "\xC3\xA9", result);
  // Three- and four-byte characters against a small buffer.
  EXPECT_EQ("ab", code("ab\xE6\x97\xA5", 5));
  EXPECT_EQ("ab\xE6\x97\xA5", code("ab\xE6\x97\xA5", 6));
  EXPECT_EQ("a", code("a\xF0\x9F\x98\x80", 5));
  EXPECT_EQ("a\xF0\x9F\x98\x80", code("a\xF0\x9F\x98\x80", 6));
}

TEST(FileNameCode, InvalidUtf8BytesBecomeUnderscores) {
  EXPECT_EQ("a_b", code("a\xFF" "b"));
  EXPECT_EQ("a_b", code("a\x80" "b"));           // stray continuation byte
  EXPECT_EQ("a__b", code("a\xC0\xAF" "b"));      // overlong "/"
  EXPECT_EQ("a___b", code("a\xED\xA0\x80" "b"));  // surrogate
  EXPECT_EQ("a__", code("a\xE6\x97"));            // cut short: one "_" for each byte
  EXPECT_TRUE(isValidUtf8(code("\xF5\x80\x80\x80")));
}

TEST(FileNameCode, BufferArguments) {
  char out[4];
  EXPECT_EQ(NP_ERR_BUFFER, np_fio_fncode("abc", nullptr, 10));
  EXPECT_EQ(NP_ERR_BUFFER, np_fio_fncode("abc", out, 1));
  EXPECT_EQ(NP_ERR_BUFFER, np_fio_fncode("abc", out, 0));
  EXPECT_EQ(NP_OK, np_fio_fncode("abc", out, 2));
  EXPECT_STREQ("a", out);
}

TEST(FileNameCode, SafeNamesAreFixedPoints) {
  for (const char* name : {"../x", ".v_fmd", "a\\b:c", "  lead", "trail. ", "\xFF\xFE",
                           "caf\xC3\xA9"}) {
    std::string once = code(name);
    EXPECT_EQ(once, code(once)) << name;
  }
}

// Random names drawn mostly from the characters that cause trouble.
std::string randomName(std::mt19937* random) {
  static const std::string kTroublesome[] = {
      ".", " ", "/", "\\", ":", "*", "?", "\"", "<", ">", "|", "\t", "\n", "\x01", "\x1f",
      "\x7f", "\xC3\xA9", "\xE6\x97\xA5", "\xF0\x9F\x98\x80", "\xFF", "\x80", "\xC3",
      "\xED\xA0\x80", "\xE6\x97", "a", "Z", "0", "_", "-", "v_fmd"};
  std::uniform_int_distribution<int> lengthDist(0, 300);
  std::uniform_int_distribution<int> pick(0, static_cast<int>(sizeof kTroublesome /
                                                              sizeof kTroublesome[0]) - 1);
  std::uniform_int_distribution<int> rawByte(1, 255);
  std::uniform_int_distribution<int> coin(0, 9);
  int length = lengthDist(*random);
  std::string name;
  for (int i = 0; i < length; ++i) {
    if (coin(*random) == 0) {
      name += static_cast<char>(rawByte(*random));
    } else {
      name += kTroublesome[pick(*random)];
    }
  }
  return name;
}

TEST(FileNameCode, RandomNamesKeepEveryInvariant) {
  std::mt19937 random(20240611u);  // fixed seed: the sweep is repeatable
  std::uniform_int_distribution<int> outLengthDist(2, 300);
  int utf8Inputs = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string name = randomName(&random);
    std::size_t outLength = static_cast<std::size_t>(outLengthDist(random));
    std::string result = code(name, outLength);
    bool inputUtf8 = isValidUtf8(name);
    if (inputUtf8) ++utf8Inputs;
    std::string problems = violations(result, outLength, inputUtf8);
    ASSERT_EQ("", problems) << "round " << round << " result \"" << result << "\"";
    // Invalid bytes are replaced too, so every result is valid UTF-8.
    ASSERT_TRUE(isValidUtf8(result)) << "round " << round;
    // A converted name converts to itself.
    ASSERT_EQ(result, code(result, outLength)) << "round " << round;
  }
  // The sweep must have covered both kinds of input.
  EXPECT_GT(utf8Inputs, 100);
  EXPECT_LT(utf8Inputs, 19900);
}

}  // namespace
