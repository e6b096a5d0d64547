// Display name to file name: np_fio_fncode, and qzviGetNewValidFilename,
// which adds an extension and a number that makes the name free in its
// folder. Whatever the display name and extension hold, the file name is one
// component inside the folder that is not one of the vault's own files (no
// leading "."), not empty, within the length limit and free of control
// characters; joining it to the folder and splitting it off again gives it
// back, and it ends with the extension asked for.
#include <cstdint>
#include <cstring>
#include <string>

#include "file_list.h"
#include "fuzz_support.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"

namespace {

bool endsWithNoCase(const std::string& text, const std::string& tail) {
  if (tail.size() > text.size()) return false;
  for (std::size_t i = 0; i < tail.size(); ++i) {
    char a = text[text.size() - tail.size() + i];
    char b = tail[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = qzfuzz::splitInput(data, size, 3);
  const std::string name = qzfuzz::cText(parts[0]);
  const std::string extension = qzfuzz::cText(parts[1]);
  const bool nameIsUtf8 = qzfuzz::isValidUtf8(name);

  // The conversion itself, into buffers of every size from the smallest.
  const std::size_t outLength = 2 + (parts[2].empty() ? NP_NAME_MAX : parts[2].size() % 300);
  std::vector<char> out(outLength, 'X');
  FUZZ_CHECK(np_fio_fncode(name.c_str(), out.data(), out.size()) == NP_OK, name);
  const std::string converted(out.data());
  const std::size_t limit = outLength - 1 < NP_NAME_MAX ? outLength - 1 : NP_NAME_MAX;
  const std::string problem = qzfuzz::fileNameProblem(converted, limit, nameIsUtf8);
  FUZZ_CHECK(problem.empty(), problem + ": " + converted);

  // A name for a new object in an (empty) folder.
  const std::string folder = qzfuzz::scratchDirectory();
  const QzbString made = qzviGetNewValidFilename(QzbString::fromStdString(name),
                                                 QzbString::fromStdString(extension),
                                                 QzbString::fromStdString(folder));
  if (made.isNull()) {
    // Only an extension that is not one safe component is refused.
    FUZZ_CHECK(!extension.empty(), "no name for \"" + name + "\" without an extension");
    return 0;
  }
  const std::string file = made.toStdString();
  const std::string madeProblem =
      qzfuzz::fileNameProblem(file, NP_NAME_MAX, nameIsUtf8 && qzfuzz::isValidUtf8(extension));
  FUZZ_CHECK(madeProblem.empty(), madeProblem + ": " + file);
  if (!extension.empty()) FUZZ_CHECK(endsWithNoCase(file, "." + extension), file + " / " + extension);

  // Joined to the folder and split off again, it is the same one name.
  const QzbString joined = qzbConcatPath(QzbString::fromStdString(folder), made);
  FUZZ_CHECK(!joined.isNull(), file);
  QzbString leaf;
  const QzbString directory = qzbParsePath(joined, &leaf);
  FUZZ_CHECK(directory.toStdString() == folder, joined.toStdString());
  FUZZ_CHECK(leaf.toStdString() == file, joined.toStdString());

  // Its extension, read back, is the last part of what was asked for.
  QzbString readExtension;
  const QzbString base = qzviParseFileExt(made, &readExtension, false);
  FUZZ_CHECK(base.toStdString() + "." + readExtension.toStdString() == file || readExtension.isEmpty(),
             file);
  return 0;
}
