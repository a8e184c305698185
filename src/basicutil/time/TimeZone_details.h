// Machinery of the time-zone component: the POSIX rule, the data a zone is built from, and the
// readers of the file, serialized and archive forms. Callers use TimeZone.h.
#pragma once

#include <cstdint>
#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/timevalue/DateTimeCalendar.h"

namespace basicutil {

// A POSIX TZ rule: "std offset [dst [offset] [,start[/time],end[/time]]]". Offsets are kept as
// seconds east of UTC (the text counts west). A dst name without a rule follows
// ",M3.2.0,M11.1.0".
struct PosixTimeZoneRule {
    Str stdAbbreviation, dstAbbreviation;
    std::int32_t stdOffset = 0, dstOffset = 0;
    bool hasDst = false;
    DateRule start, end;

    // The whole text must be a rule. Hours up to 24 in offsets and -167..167 in transition
    // times, as TZif version 3 footers may write them.
    static Status parse(StrSegment text, PosixTimeZoneRule& out);

    // The instants at which daylight time starts and ends in the given local year (year within
    // a few thousand of 1970).
    void transitionsOfYear(std::int64_t year, std::int64_t& dstStarts, std::int64_t& dstEnds) const noexcept;
    // Whether daylight time is in force, and the stretch [since, until) of that state around the
    // instant (the 64-bit limits when the state never changes).
    bool stateAt(std::int64_t seconds, std::int64_t& since, std::int64_t& until) const noexcept;
};

struct TimeZone::Data {
    Str name;
    Str abbreviations;  // NUL-separated; every type's index starts a NUL-terminated run
    std::vector<Type> types;
    std::vector<std::int64_t> transitions;  // strictly ascending
    std::vector<std::uint8_t> transitionTypes;
    std::vector<LeapSecond> leaps;
    Str rule;  // empty, or a rule PosixTimeZoneRule::parse accepts
};

// A stretch of time with one type: [start, end).
struct TimeZone::Piece {
    std::size_t type;
    std::int64_t start, end;
};

// The version 1 to 4 file format; every count is checked against the bytes there are.
Status parseTzif(StrSegment bytes, TimeZone::Data& out);

Status parseSerializedTimeZone(StrSegment text, TimeZone::Data& out);

// Checks what every loader must guarantee before building a zone (the types' abbreviation
// indices, transition order and type indices, leap-second order, the rule).
Status checkTimeZoneData(const TimeZone::Data& data);

}  // namespace basicutil
