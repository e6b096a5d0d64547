// Comparing two contents line by line as a unified diff, computed with the
// dtl library (the edit script and its hunks of three lines of context) and
// printed in the format of `diff -u`. Binary content (holding a NUL byte) is
// compared whole and never printed.
#ifndef QZVAULT_TOOL_REPORTS_UNIFIED_DIFF_H_
#define QZVAULT_TOOL_REPORTS_UNIFIED_DIFF_H_

#include <iosfwd>
#include <string>

namespace qzvtool {

// One side of a comparison: a label and a date for the header lines, and the
// bytes.
struct DiffSide {
  std::string label;    // "Data/orders.csv@1"
  std::string date;     // ISO 8601, shown after a tab
  std::string content;
};

// True when `content` is binary: it holds a NUL byte.
bool isBinaryContent(const std::string& content);

// Prints nothing and returns false when the two contents are equal. Otherwise
// prints the unified diff of `from` and `to` ("--- " and "+++ " header lines,
// then the hunks), or for binary content the line "Binary contents FROM and
// TO differ", and returns true. A last line without a line break is followed
// by "\ No newline at end of file".
bool printUnifiedDiff(const DiffSide& from, const DiffSide& to, std::ostream& out);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_UNIFIED_DIFF_H_
