// Broken-down calendar time for the local zone and for UTC.
//
// fromUnixTime never leaves a record half-filled: when the platform cannot convert (a year
// beyond what struct tm holds), it logs "<Type>::fromUnixTime(<seconds>) failed!" on the
// "Timeval" channel and clamps to 9999-12-31 23:59:59.999999 (non-negative input) or
// 1900-01-01 00:00:00.000000 (negative input), tm_isdst -1.
// toUnixTime logs "<Type>::toUnixTime(Y-M-D h:mm:ss) failed!" and yields MAX_TIME (years after
// 1969) or MIN_TIME when the platform reports -1, which includes one second before 1970 itself.
//
// Records bound to a zone object (StructTmInTimezone, StructTmInTimezoneHires) are in
// TimeZone.h.
#pragma once

#include <ctime>

#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

class Logger;

// The "Timeval" channel: failed conversions of broken-down time.
Logger& timevalChannel() noexcept;

// Broken-down time in the process's local zone.
struct LocalStructTm : std::tm {
    LocalStructTm() : std::tm{} {}
    [[nodiscard]] bool fromUnixTime(std::int64_t seconds) noexcept;  // localtime_r
    Timeval toUnixTime() const noexcept;                             // mktime; microseconds 0
};

// The same with microseconds.
struct LocalStructTmHires : LocalStructTm {
    std::int64_t tm_usec = 0;                                     // 0..999999
    [[nodiscard]] bool fromUnixTime(const Timeval& tv) noexcept;  // keeps tv's microseconds
    Timeval toUnixTime() const noexcept;                          // carries tm_usec over
};

// Broken-down time in UTC.
struct GmtStructTm : std::tm {
    GmtStructTm() : std::tm{} {}
    [[nodiscard]] bool fromUnixTime(std::int64_t seconds) noexcept;  // gmtime_r
    Timeval toUnixTime() const noexcept;                             // timegm; microseconds 0
};

}  // namespace basicutil
