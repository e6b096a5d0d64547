// Rendering DOT into SVG with Graphviz's `dot` program, when it is installed.
// The tool does not depend on Graphviz: it looks the program up on PATH when a
// picture is asked for, and says plainly when it is not there.
#ifndef QZVAULT_TOOL_REPORTS_DOT_RENDER_H_
#define QZVAULT_TOOL_REPORTS_DOT_RENDER_H_

#include <cstddef>
#include <string>

namespace qzvtool {

// Graphs with more nodes than this are not rendered: `dot` takes minutes on
// them and the picture is unreadable anyway.
constexpr std::size_t kMaxRenderedNodes = 2000;

// The full path of the executable `program` in the directories of PATH (the
// system's default search path when PATH is unset), or "" when none has it.
std::string findOnPath(const std::string& program);

// True when `dot` is on PATH.
bool dotInstalled();

// Runs `dot -Tsvg -o svgFile` (no shell; the DOT text on its stdin).
// Throws ToolError (exit status 1) when `dot` is not installed, cannot be
// started, or fails.
void renderSvg(const std::string& dotText, const std::string& svgFile);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_REPORTS_DOT_RENDER_H_
