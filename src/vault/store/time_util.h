// The library's time conversions and user name.
//
// Seconds are seconds since 1970-01-01 00:00 UTC as the file system keeps
// them; dates are local dates (QzbDate).
#ifndef QZVAULT_SRC_STORE_TIME_UTIL_H_
#define QZVAULT_SRC_STORE_TIME_UTIL_H_

#include <cstdint>

#include "qzbase/date.h"
#include "qzbase/string.h"

// The local date of `seconds` (localtime); the fraction is 0.
QzbDate qzviSeconds2QzbDate(int64_t seconds);
// mktime of the date's elements with the daylight-saving field 0 (standard
// time): a date inside daylight-saving time does not round-trip, on purpose.
// A null date gives -1.
int64_t qzviQzbDate2Seconds(const QzbDate& date);
// The current time in seconds (through the platform layer's clock).
int64_t qzviCurrentSeconds();
// The login name of the process's user (np_osinf_user).
QzbString getCurrentUserName();

#endif  // QZVAULT_SRC_STORE_TIME_UTIL_H_
