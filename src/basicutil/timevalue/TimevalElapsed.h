// A human description of elapsed time: "2500 milliseconds", "1 second", "-2.778 hours".
//
// The unit follows the size of the span: above 8000 s hours, above 3 s seconds, above 3 ms
// milliseconds, otherwise microseconds (nanoseconds for Timespec spans of 3 us and below).
// The value is an integer when both ends are whole in that unit, else a double written with
// "%5.*f" at precision 1 from 99.5 on, 2 from 9.95 on, else 3.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// The description's parts: a number and a unit. Build one with between() or since().
struct ElapsedDescription {
    const char* _unit = nullptr;  // " seconds" ..., with its leading blank
    std::size_t _unitLen = 0;     // the unit's length
    union {
        std::uint64_t _integer;
        double _real;
    };
    bool _negative = false;  // the span runs backwards
    bool _isInteger = true;  // _integer holds the number, else _real

    ElapsedDescription() : _integer(0) {}

    // From `start` to `end`; negative when start is the later one.
    static ElapsedDescription between(const Timeval& start, const Timeval& end) noexcept;
    static ElapsedDescription since(const Timeval& start) noexcept;  // to Timeval::now()
    static ElapsedDescription between(const Timespec& start, const Timespec& end) noexcept;
    static ElapsedDescription since(const Timespec& start) noexcept;  // to Timespec::monotonicNow()

    // The text: "2500 milliseconds".
    void appendTo(std::string& out) const;
    std::string toString() const;
};

}  // namespace basicutil
