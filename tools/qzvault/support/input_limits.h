// The limits on what a user gives the tool. Each one is checked before the
// library is asked for anything, and a value beyond it is a usage error (exit
// status 2) of one line that says the limit, never an attempt that grows
// memory or metadata without bound. docs/cli-reference.md lists them, and
// each option's --help states its own.
#ifndef QZVAULT_TOOL_SUPPORT_INPUT_LIMITS_H_
#define QZVAULT_TOOL_SUPPORT_INPUT_LIMITS_H_

#include <cstddef>
#include <string>

namespace qzvtool {

// Display names (mkdir, rename, add --name), attribute names, configuration
// keys, resource types and extension filters.
constexpr std::size_t kMaxNameBytes = 1024;
// One file or directory name (fsrename): what the file system takes.
constexpr std::size_t kMaxFileNameBytes = 255;
// Attribute values and configuration values (--set).
constexpr std::size_t kMaxValueBytes = 64 * 1024;
// Paths (vault paths and files outside the vault) and resources
// (TYPE:IDENTITY), as long as the longest path the library builds.
constexpr std::size_t kMaxPathBytes = 4096;

// The text of a limit for messages and help: "at most 1024 bytes".
std::string limitText(std::size_t limit);
// "" when `value` is at most `limit` bytes long; otherwise why it is refused
// ("2000 bytes, more than the 1024 allowed").
std::string lengthProblem(const std::string& value, std::size_t limit);
// Throws a usage error "<what> is <problem>" when `value` is too long.
void checkLength(const std::string& what, const std::string& value, std::size_t limit);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_INPUT_LIMITS_H_
