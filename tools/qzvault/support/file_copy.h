// Copying a file into the vault without ever leaving a half-written object
// or replacing one: the content goes to a hidden file beside the target,
// which gets the target's name only when it is complete, and only while
// that name is free. Goes through the library's platform layer, as all the
// vault's own file work does.
#ifndef QZVAULT_TOOL_SUPPORT_FILE_COPY_H_
#define QZVAULT_TOOL_SUPPORT_FILE_COPY_H_

#include <string>

namespace qzvtool {

// Copies the regular file `source` to `target`, which must not exist.
// Throws ToolError (exit status 1) with the system's reason on failure, and
// leaves no file of its own behind then.
void copyIntoPlace(const std::string& source, const std::string& target);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_FILE_COPY_H_
