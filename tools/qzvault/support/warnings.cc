#include "warnings.h"

#include "output.h"

namespace qzvtool {

WarningPrinter::WarningPrinter(const char* logger) { qzlogAddSink(this, QZLOG_WARN, logger); }

WarningPrinter::~WarningPrinter() { qzlogRemoveSink(this); }

void WarningPrinter::onLogEvent(const QzLogEvent& event) {
  if (!wanted(event.level)) return;
  printWarning(event.text == nullptr ? std::string() : std::string(event.text));
}

}  // namespace qzvtool
