// What the tool prints: aligned text tables for people and JSON documents
// (--json) for programs. Data goes to stdout; errors, warnings and the
// progress bar go to stderr.
#ifndef QZVAULT_TOOL_SUPPORT_OUTPUT_H_
#define QZVAULT_TOOL_SUPPORT_OUTPUT_H_

#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "qzbase/string.h"

namespace qzvtool {

using Json = nlohmann::ordered_json;

// The text of a library string ("" for a null string).
std::string text(const QzbString& value);
// A library string as JSON: null for a null string.
Json jsonText(const QzbString& value);

// Prints `document` indented, on stdout. Bytes that are not UTF-8 are shown
// as U+FFFD rather than failing the command.
void printJson(const Json& document);

// Rows of columns, printed with every column but the last padded to the
// widest cell (counted in characters, not bytes) and two blanks between.
class TextTable {
 public:
  void addRow(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }
  void print(std::ostream& out, const std::string& indent = std::string()) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// Prints "qzvault: <message>" on stderr, on one line.
void printError(const std::string& message);
// Prints "qzvault: warning: <message>" on stderr, on one line.
void printWarning(const std::string& message);

// A progress bar on stderr, drawn only when stderr is a terminal and there is
// enough work to watch; otherwise it prints nothing.
class ProgressBar {
 public:
  ProgressBar(const std::string& label, std::size_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  void step();

 private:
  void draw() const;
  std::string label_;
  std::size_t total_;
  std::size_t done_ = 0;
  bool visible_;
};

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_OUTPUT_H_
