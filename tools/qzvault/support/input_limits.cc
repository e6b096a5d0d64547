#include "input_limits.h"

#include "tool_error.h"

namespace qzvtool {

std::string limitText(std::size_t limit) { return "at most " + std::to_string(limit) + " bytes"; }

std::string lengthProblem(const std::string& value, std::size_t limit) {
  if (value.size() <= limit) return std::string();
  return std::to_string(value.size()) + " bytes long, more than the " + std::to_string(limit) + " allowed";
}

void checkLength(const std::string& what, const std::string& value, std::size_t limit) {
  const std::string problem = lengthProblem(value, limit);
  if (!problem.empty()) failUsage(what + " is " + problem);
}

}  // namespace qzvtool
