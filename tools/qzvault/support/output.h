// What the tool prints: aligned text tables for people, JSON documents
// (--json) and NUL-separated records (-z) for programs. Data goes to stdout;
// errors, warnings and the progress bar go to stderr.
//
// Every write is checked. main() installs a checked buffer on std::cout
// before a command runs (startOutput) and asks at the end whether stdout and
// stderr took everything (finishOutput): a full disk, a closed pipe (when
// SIGPIPE is ignored; otherwise the signal ends the tool as a shell expects)
// or any other write error turns a success into exit status 1 with one line
// on stderr.
//
// Text output is for people and terminals: a name can hold any byte, and a
// line break or an escape sequence in a name must neither break a listing's
// lines nor drive the terminal. Lines therefore go through printLine (and
// tables through TextTable), which show control characters as escapes; JSON
// and -z output carry names exactly.
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

// Installs the checked buffer on std::cout. Called once, by main(), before
// anything is printed.
void startOutput();
// Flushes stdout and stderr. Returns `status` when everything was written or
// a failure has already been reported (`status` non-zero); otherwise prints
// "qzvault: cannot write to standard output: <reason>" (when stderr still
// works) and returns kExitFailure.
int finishOutput(int status);

// `text` with every control character (C0, DEL and the C1 range) and every
// byte that is not part of a valid UTF-8 character shown as an escape, as
// ls does for names on a terminal: \a \b \t \n \v \f \r, and \ooo (three
// octal digits) for the other bytes. Everything else is kept as it is.
std::string escapeControls(const std::string& text);

// True when every byte of `text` is part of a valid UTF-8 character.
bool isValidUtf8(const std::string& text);
// `bytes` in base64 (RFC 4648, with padding), for content that JSON cannot
// carry as text.
std::string base64(const std::string& bytes);

// Prints `line` and a line break on `out`, the line's control characters
// escaped (escapeControls).
void printLine(const std::string& line, std::ostream& out);
void printLine(const std::string& line);  // on stdout

// Prints `document` indented, on stdout. Bytes that are not UTF-8 are shown
// as U+FFFD rather than failing the command.
void printJson(const Json& document);
// The text printJson prints, for writing to a file.
std::string jsonDocument(const Json& document);

// Rows of columns, printed with every column but the last padded to the
// widest cell (counted in characters, not bytes) and two blanks between.
// Cells are shown with their control characters escaped.
class TextTable {
 public:
  void addRow(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }
  void print(std::ostream& out, const std::string& indent = std::string()) const;
  // The -z form: every row as exactly `columns` fields (missing cells are
  // empty, further cells dropped), each field written exactly as it is and
  // followed by a NUL byte. A reader takes `columns` fields per row.
  void printRecords(std::ostream& out, std::size_t columns) const;

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
