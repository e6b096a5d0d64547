// Where a command writes a document that --output names: "-" is stdout; a
// file is written whole under a temporary name beside it and then renamed
// into place, so that a failure never leaves half a document behind. A file
// among the vault's own files (a name beginning with "." inside the vault) is
// refused before anything is written.
#ifndef QZVAULT_TOOL_SUPPORT_OUTPUT_FILE_H_
#define QZVAULT_TOOL_SUPPORT_OUTPUT_FILE_H_

#include <string>

namespace qzvtool {

// True for the "-" that names stdout.
inline bool isStdout(const std::string& target) { return target == "-"; }

// Throws a usage error when `target` (a file-system path, not a vault path)
// lies inside the vault at `root` under a name that belongs to the vault.
void checkOutputTarget(const std::string& root, const std::string& target);

// Writes `content` to stdout ("-") or to the file `target` as described
// above. Throws ToolError (exit status 1) when the file cannot be written.
void writeOutput(const std::string& target, const std::string& content);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_OUTPUT_FILE_H_
