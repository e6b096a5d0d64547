// Macro substitution in resource identities: "%%NAME%%" replaced by the
// value of the configuration option NAME, leftmost first, pass after pass,
// until none is left, an option is missing, or a value keeps leading back to
// a macro (64 passes). The result is compared with a plain model of that
// rule; it never holds a macro when substitution succeeds, and it never
// grows beyond the identity plus 64 values, however the values refer to
// each other.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "impact_analysis_impl.h"
#include "qzbase/config.h"

namespace {

const int kPasses = 64;

bool findMacro(const std::string& text, std::size_t* open, std::size_t* close) {
  const std::size_t first = text.find("%%");
  if (first == std::string::npos) return false;
  const std::size_t second = text.find("%%", first + 2);
  if (second == std::string::npos) return false;
  *open = first;
  *close = second;
  return true;
}

// The rule as documented: false when there is no macro to begin with, an
// option is missing, or the passes run out.
bool model(const std::string& input, const std::map<std::string, std::string>& options, std::string* output) {
  std::string text = input;
  std::size_t open = 0;
  std::size_t close = 0;
  if (!findMacro(text, &open, &close)) return false;
  for (int pass = 1;; ++pass) {
    const std::string name = text.substr(open + 2, close - open - 2);
    const auto found = options.find(name);
    text = text.substr(0, open) + (found == options.end() ? std::string() : found->second) +
           text.substr(close + 2);
    *output = text;
    if (found == options.end()) return false;
    if (!findMacro(text, &open, &close)) return true;
    if (pass >= kPasses) return false;
  }
}

QzvImpactAnalysisImpl* analysis() {
  // Substitution reads only the configuration; no vault is needed.
  static QzvImpactAnalysisImpl* shared = new QzvImpactAnalysisImpl(nullptr);
  return shared;
}

std::set<std::string>& keysSet() {
  static std::set<std::string> keys;
  return keys;
}

}  // namespace

// Only the options each input sets exist: no operator's file is read.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  unsetenv(QZB_CONFIG_FILE_ENV);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = qzfuzz::splitInput(data, size, 5);
  const std::string identity = qzfuzz::cText(parts[0]);

  // The options of this run: "NAME=VALUE" texts; those of the last run go.
  QzbConfigOptions* config = qzbGetConfigOptions(nullptr);
  for (const std::string& key : keysSet()) config->removeOption(QzbString::fromStdString(key));
  keysSet().clear();
  std::map<std::string, std::string> options;
  std::size_t longestValue = 0;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const std::string setting = qzfuzz::cText(parts[i]);
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos || equals == 0) continue;
    const std::string key = setting.substr(0, equals);
    const std::string value = setting.substr(equals + 1);
    config->setOption(QzbString::fromStdString(key), QzbString::fromStdString(value));
    keysSet().insert(key);
    options[key] = value;
    if (value.size() > longestValue) longestValue = value.size();
  }
  QzbString substituted;
  const bool done = analysis()->getSubst(QzbString::fromStdString(identity), &substituted);
  std::string expected;
  const bool expectedDone = model(identity, options, &expected);
  FUZZ_CHECK(done == expectedDone, identity);
  if (done) {
    FUZZ_CHECK(substituted.toStdString() == expected, identity + " gave " + substituted.toStdString());
    std::size_t open = 0;
    std::size_t close = 0;
    FUZZ_CHECK(!findMacro(expected, &open, &close), identity);
  }
  if (!substituted.isNull()) {
    FUZZ_CHECK(substituted.length() <= identity.size() + kPasses * longestValue, identity);
  }
  return 0;
}
