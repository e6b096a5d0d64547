// Warnings the library and its base layer log while the tool starts up: a
// configuration file that cannot be read or holds a malformed line, a plug-in
// directory that cannot be read, a plug-in that cannot be loaded. Each is shown
// on stderr as one line, "qzvault: warning: <reason>", and the command goes
// on.
#ifndef QZVAULT_TOOL_SUPPORT_WARNINGS_H_
#define QZVAULT_TOOL_SUPPORT_WARNINGS_H_

#include <string>

#include "qzbase/log.h"

namespace qzvtool {

// Prints the warning-level events of one logger (and the loggers below it)
// for as long as it lives.
class WarningPrinter final : public QzLogSink {
 public:
  explicit WarningPrinter(const char* logger);
  ~WarningPrinter() override;
  WarningPrinter(const WarningPrinter&) = delete;
  WarningPrinter& operator=(const WarningPrinter&) = delete;

  void onLogEvent(const QzLogEvent& event) override;

 private:
  // Only warnings: errors that end a command reach the operator through the
  // command's own one-line message.
  bool wanted(int level) const { return level == QZLOG_WARN; }
};

// The logger of the base layer, which reports the configuration file.
constexpr const char* kBaseLogger = "QZ.Base";
// The library's logger, which reports plug-in directories and plug-ins.
constexpr const char* kVaultLogger = "QZ.Repos.Vault";

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_WARNINGS_H_
