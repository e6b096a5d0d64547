// How the tool ends: its exit statuses and the error that carries a one-line
// message up to main(), which prints it on stderr.
//
//   0  success
//   1  the library (or the system) reported a failure; the message is the
//      library's getErrorMessage text where there is one
//   2  a usage error: bad arguments, options or paths, found by the tool
//      before it asked the library for anything
#ifndef QZVAULT_TOOL_SUPPORT_TOOL_ERROR_H_
#define QZVAULT_TOOL_SUPPORT_TOOL_ERROR_H_

#include <stdexcept>
#include <string>

#include "qzbase/string.h"

namespace qzvtool {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

class ToolError : public std::runtime_error {
 public:
  ToolError(int exitStatus, const std::string& message)
      : std::runtime_error(message), exitStatus_(exitStatus) {}
  int exitStatus() const { return exitStatus_; }

 private:
  int exitStatus_;
};

// Throws a usage error (exit status 2).
[[noreturn]] void failUsage(const std::string& message);
// Throws a failure (exit status 1) with `message`.
[[noreturn]] void fail(const std::string& message);
// Throws a failure with the library's message, or with `fallback` when the
// library left none.
[[noreturn]] void failWith(const QzbString& libraryMessage, const std::string& fallback);

// `text` on one line: line breaks and tabs become blanks, trailing blanks go.
std::string oneLine(const std::string& text);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_TOOL_ERROR_H_
