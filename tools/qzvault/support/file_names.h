// File names as the vault's file family reads them: a base name and an
// extension, where the extension is one of the two-part extensions
// ("job.def") when the name ends in one, else what follows the last dot.
#ifndef QZVAULT_TOOL_SUPPORT_FILE_NAMES_H_
#define QZVAULT_TOOL_SUPPORT_FILE_NAMES_H_

#include <string>

namespace qzvtool {

struct FileNameParts {
  std::string base;       // "nightly-load" of "nightly-load.job.def"
  std::string extension;  // "job.def"; "" when there is none
};

// A leading dot does not start an extension (".profile" has none).
FileNameParts splitFileName(const std::string& fileName);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_FILE_NAMES_H_
