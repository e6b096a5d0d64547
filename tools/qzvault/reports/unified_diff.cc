#include "unified_diff.h"

#include <ostream>
#include <vector>

#include <dtl/dtl.hpp>

namespace qzvtool {
namespace {

// Lines with their line breaks, so that a last line without one differs from
// the same line with one.
std::vector<std::string> splitLines(const std::string& content) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < content.size()) {
    const std::size_t end = content.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(content.substr(start));
      break;
    }
    lines.push_back(content.substr(start, end - start + 1));
    start = end + 1;
  }
  return lines;
}

void printLine(char mark, const std::string& line, std::ostream& out) {
  out << mark << line;
  if (line.empty() || line.back() != '\n') out << "\n\\ No newline at end of file\n";
}

// "-a,b": the first line and the count, as diff writes them: a range of one
// line is the line alone, and an empty range names the line before it.
std::string range(long long first, long long count) {
  if (count == 1) return std::to_string(first);
  return std::to_string(count == 0 && first > 0 ? first - 1 : first) + "," + std::to_string(count);
}

}  // namespace

bool isBinaryContent(const std::string& content) { return content.find('\0') != std::string::npos; }

bool printUnifiedDiff(const DiffSide& from, const DiffSide& to, std::ostream& out) {
  if (from.content == to.content) return false;
  if (isBinaryContent(from.content) || isBinaryContent(to.content)) {
    out << "Binary contents " << from.label << " and " << to.label << " differ\n";
    return true;
  }
  const std::vector<std::string> a = splitLines(from.content);
  const std::vector<std::string> b = splitLines(to.content);
  dtl::Diff<std::string, std::vector<std::string>> diff(a, b);
  diff.onHuge();
  diff.compose();
  diff.composeUnifiedHunks();

  out << "--- " << from.label << '\t' << from.date << '\n';
  out << "+++ " << to.label << '\t' << to.date << '\n';
  for (const auto& hunk : diff.getUniHunks()) {
    // dtl counts a hunk's lines in a and c, and its size on each side in b
    // and d; the side that has no line in the hunk starts at 0.
    out << "@@ -" << range(hunk.a, hunk.b) << " +" << range(hunk.c, hunk.d) << " @@\n";
    for (const auto& element : hunk.common[0]) printLine(' ', element.first, out);
    for (const auto& element : hunk.change) {
      const char mark = element.second.type == dtl::SES_ADD ? '+' : element.second.type == dtl::SES_DELETE ? '-' : ' ';
      printLine(mark, element.first, out);
    }
    for (const auto& element : hunk.common[1]) printLine(' ', element.first, out);
  }
  return true;
}

}  // namespace qzvtool
