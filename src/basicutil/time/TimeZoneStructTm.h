// struct tm bound to a zone object: what LocalStructTm (TimevalStructTm.h) is for the process's
// own zone, for any TimeZone.
#pragma once

#include <ctime>

#include "basicutil/time/TimeZone.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// Broken-down time bound to a zone: what LocalStructTm is for the process's zone. tm_gmtoff and
// tm_zone are filled; tm_zone points into the zone, which must outlive the record.
struct StructTmInTimezone : std::tm {
    // All fields zero, bound to `zone`.
    explicit StructTmInTimezone(TimeZonePtr zone) : std::tm{}, _zone(std::move(zone)) {}
    // On failure logs "StructTmInTimezone::fromUnixTime(<seconds>) failed!" and clamps as
    // LocalStructTm does, after a retry with time 0 for the zone fields.
    [[nodiscard]] bool fromUnixTime(std::int64_t seconds) noexcept;
    // tm_isdst 0 or 1 picks that instant of a repeated time; -1 the earlier. On failure logs
    // "StructTmInTimezone::toUnixTime(Y-M-D h:mm:ss) failed!" and yields MAX_TIME or MIN_TIME.
    Timeval toUnixTime() const noexcept;
    const TimeZonePtr& zone() const noexcept { return _zone; }  // the zone bound at construction

  protected:
    // fromUnixTime and toUnixTime, with the caller's name for the failure message.
    bool convert(std::int64_t seconds, const char* function) noexcept;
    Timeval inverse(const char* function) const noexcept;
    TimeZonePtr _zone;  // never null
};

// The same with microseconds.
struct StructTmInTimezoneHires : StructTmInTimezone {
    // StructTmInTimezone's constructor; tm_usec 0.
    using StructTmInTimezone::StructTmInTimezone;
    std::int64_t tm_usec = 0;  // 0..999999
    // Breaks down tv's seconds and keeps its microseconds.
    [[nodiscard]] bool fromUnixTime(const Timeval& tv) noexcept;
    Timeval toUnixTime() const noexcept;  // carries tm_usec over
};

}  // namespace basicutil
