// The configuration file reader (QzbConfigOptions::loadFile), compared with
// the format the configuration header describes: blank lines and lines
// beginning with "#" are skipped, the key is the text before the first "="
// trimmed of blanks, the value the rest trimmed of blanks, later keys replace
// earlier ones, and a line without a key makes the load report failure while
// every other line is still kept. What was read, written out as key=value
// lines and read again, is the same.
#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "qzbase/config.h"

namespace {

std::string trim(const std::string& text) {
  const char* blanks = " \t\r\n\f\v";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return std::string();
  const std::size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end - begin + 1);
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  FUZZ_CHECK(out.good(), "cannot write " + path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  const std::string path = qzfuzz::scratchDirectory() + "/config";
  writeFile(path, content);

  // What the format says the file holds.
  std::map<std::string, std::string> expected;
  bool wellFormed = true;
  std::size_t start = 0;
  while (start < content.size()) {
    std::size_t end = content.find('\n', start);
    if (end == std::string::npos) end = content.size();
    const std::string text = trim(content.substr(start, end - start));
    start = end + 1;
    if (text.empty() || text[0] == '#') continue;
    const std::size_t equals = text.find('=');
    const std::string key = equals == std::string::npos ? std::string() : trim(text.substr(0, equals));
    if (key.empty()) {
      wellFormed = false;
      continue;
    }
    expected[key] = trim(text.substr(equals + 1));
  }

  QzbConfigOptions* store = qzbGetConfigOptions("fuzz");
  store->clear();
  QzbString error;
  const bool loaded = store->loadFile(QzbString::fromStdString(path), &error);
  FUZZ_CHECK(loaded == wellFormed, error.toStdString());
  if (!loaded) FUZZ_CHECK(!error.isEmpty() && error.toStdString().find('\n') == std::string::npos, "no one-line reason");

  std::string written;
  for (const auto& entry : expected) {
    QzbString value;
    FUZZ_CHECK(store->getOption(QzbString::fromStdString(entry.first), &value, 0), "missing key " + entry.first);
    FUZZ_CHECK(value.toStdString() == entry.second, "key " + entry.first);
    written += entry.first + "=" + entry.second + "\n";
  }

  // Written out and read again: the same options.
  writeFile(path, written);
  QzbConfigOptions* again = qzbGetConfigOptions("fuzz-again");
  again->clear();
  FUZZ_CHECK(again->loadFile(QzbString::fromStdString(path), nullptr), written);
  for (const auto& entry : expected) {
    QzbString value;
    FUZZ_CHECK(again->getOption(QzbString::fromStdString(entry.first), &value, 0) &&
                   value.toStdString() == entry.second,
               "key " + entry.first + " after writing it out");
  }
  return 0;
}
