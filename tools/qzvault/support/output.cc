#include "output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "tool_error.h"

namespace qzvtool {
namespace {

// Below this many objects a progress bar would only flicker.
const std::size_t kProgressThreshold = 20;
const int kProgressWidth = 30;

// Characters of a UTF-8 text (continuation bytes do not count).
std::size_t characterCount(const std::string& value) {
  std::size_t count = 0;
  for (unsigned char c : value) {
    if ((c & 0xC0) != 0x80) ++count;
  }
  return count;
}

}  // namespace

std::string text(const QzbString& value) { return value.isNull() ? std::string() : value.toStdString(); }

Json jsonText(const QzbString& value) {
  if (value.isNull()) return Json(nullptr);
  return Json(value.toStdString());
}

void printJson(const Json& document) {
  std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

void TextTable::addRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void TextTable::print(std::ostream& out, const std::string& indent) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], characterCount(row[i]));
    }
  }
  for (const auto& row : rows_) {
    std::string line = indent;
    // Trailing empty cells add nothing but blanks.
    std::size_t used = row.size();
    while (used > 0 && row[used - 1].empty()) --used;
    for (std::size_t i = 0; i < used; ++i) {
      line += row[i];
      if (i + 1 < used) line.append(widths[i] - characterCount(row[i]) + 2, ' ');
    }
    out << line << '\n';
  }
}

void printError(const std::string& message) {
  std::cout.flush();
  std::cerr << "qzvault: " << oneLine(message) << std::endl;
}

void printWarning(const std::string& message) { printError("warning: " + message); }

ProgressBar::ProgressBar(const std::string& label, std::size_t total)
    : label_(label), total_(total), visible_(total >= kProgressThreshold && isatty(STDERR_FILENO) == 1) {
  if (visible_) draw();
}

ProgressBar::~ProgressBar() {
  if (visible_) std::fprintf(stderr, "\n");
}

void ProgressBar::step() {
  ++done_;
  if (visible_) draw();
}

void ProgressBar::draw() const {
  const int filled = total_ == 0 ? kProgressWidth
                                 : static_cast<int>(done_ * kProgressWidth / total_);
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.append(static_cast<std::size_t>(kProgressWidth - filled), '.');
  std::fprintf(stderr, "\r%s [%s] %zu/%zu", label_.c_str(), bar.c_str(), done_, total_);
  std::fflush(stderr);
}

}  // namespace qzvtool
