#include "tool_error.h"

namespace qzvtool {

void failUsage(const std::string& message) { throw ToolError(kExitUsage, message); }

void fail(const std::string& message) { throw ToolError(kExitFailure, message); }

void failWith(const QzbString& libraryMessage, const std::string& fallback) {
  if (!libraryMessage.isEmpty()) fail(libraryMessage.toStdString());
  fail(fallback);
}

std::string oneLine(const std::string& text) {
  std::string line;
  line.reserve(text.size());
  for (char c : text) {
    line.push_back(c == '\n' || c == '\r' || c == '\t' ? ' ' : c);
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace qzvtool
