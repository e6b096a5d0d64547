// Dates as the tool prints them: ISO 8601 with the zone, in the local time of
// the run ("2025-03-14T03:40:03+01:00"), so that a date means the same moment
// wherever it is read. JSON output uses the same form.
#ifndef QZVAULT_TOOL_SUPPORT_ISO_DATE_H_
#define QZVAULT_TOOL_SUPPORT_ISO_DATE_H_

#include <cstdint>
#include <string>

#include "qzbase/date.h"

namespace qzvtool {

// The local date and time of `seconds` since the epoch, with its offset from
// UTC ("+01:00", "-05:00", "+00:00").
std::string isoDateTime(std::int64_t seconds);

// A library date (a local calendar date and time) with the offset the local
// zone had then; "" for a null date. In the hour a clock is set back the
// earlier of the two moments is taken.
std::string isoDateTime(const QzbDate& date);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_ISO_DATE_H_
