#include "basicutil/timevalue/TimevalElapsed.h"

#include <string_view>

#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

namespace {

enum ElapsedUnit { UNIT_NANOSECONDS, UNIT_MICROSECONDS, UNIT_MILLISECONDS, UNIT_SECONDS, UNIT_HOURS };
constexpr std::string_view kUnitNames[] = {" nanoseconds", " microseconds", " milliseconds", " seconds",
                                           " hours"};

ElapsedDescription make(ElapsedUnit unit, bool negative) {
    ElapsedDescription d;
    d._unit = kUnitNames[unit].data();
    d._unitLen = kUnitNames[unit].size();
    d._negative = negative;
    return d;
}

ElapsedDescription integer(ElapsedUnit unit, bool negative, std::uint64_t value) {
    ElapsedDescription d = make(unit, negative);
    d._integer = value;
    d._isInteger = true;
    return d;
}

ElapsedDescription real(ElapsedUnit unit, bool negative, double value) {
    ElapsedDescription d = make(unit, negative);
    d._real = value;
    d._isInteger = false;
    return d;
}

// |end - start| in the smaller unit; sets `negative` when start is the later one. False when the
// magnitude does not fit in 64 bits.
template <typename T>
bool absoluteDifference(const T& start, const T& end, std::int64_t T::*fraction, std::int64_t perSecond,
                        bool& negative, std::uint64_t& magnitude) {
    const Int128 diff =
        (static_cast<Int128>(end.tv_sec) - start.tv_sec) * perSecond + (end.*fraction - start.*fraction);
    negative = diff < 0;
    const Uint128 wide = static_cast<Uint128>(negative ? -diff : diff);
    magnitude = static_cast<std::uint64_t>(wide);
    return wide <= UINT64_MAX;
}

// Spans past 2^64 units (about 584942 years of microseconds, 584 of nanoseconds) are hours from
// the signed difference in seconds, never a saturated count.
template <typename T>
ElapsedDescription hugeSpan(const T& start, const T& end, bool negative) {
    const double seconds = end.diffSeconds(start);
    return real(UNIT_HOURS, negative, (seconds < 0 ? -seconds : seconds) / 3600);
}

}  // namespace

ElapsedDescription ElapsedDescription::between(const Timeval& start, const Timeval& end) noexcept {
    bool negative = false;
    std::uint64_t usec = 0;
    if (!absoluteDifference(start, end, &Timeval::tv_usec, 1000000, negative, usec))
        return hugeSpan(start, end, negative);
    const auto value = static_cast<double>(usec);
    if (usec > 8000000000ULL) return real(UNIT_HOURS, negative, value / 3.6e9);
    if (usec > 3000000) return real(UNIT_SECONDS, negative, value / 1e6);
    if (usec > 3000) {
        if (start.tv_usec % 1000 == 0 && end.tv_usec % 1000 == 0)
            return integer(UNIT_MILLISECONDS, negative, usec / 1000);
        return real(UNIT_MILLISECONDS, negative, value / 1000);
    }
    return integer(UNIT_MICROSECONDS, negative, usec);
}

ElapsedDescription ElapsedDescription::since(const Timeval& start) noexcept {
    return between(start, Timeval::now());
}

ElapsedDescription ElapsedDescription::between(const Timespec& start, const Timespec& end) noexcept {
    bool negative = false;
    std::uint64_t nsec = 0;
    if (!absoluteDifference(start, end, &Timespec::tv_nsec, 1000000000, negative, nsec))
        return hugeSpan(start, end, negative);
    const double seconds = static_cast<double>(nsec) / 1e9;  // exact at the thresholds
    if (seconds > 8000) return real(UNIT_HOURS, negative, seconds / 3600);
    if (seconds > 3.0) return real(UNIT_SECONDS, negative, seconds);
    if (seconds > 0.003) {
        if (start.tv_nsec % 1000000 == 0 && end.tv_nsec % 1000000 == 0)
            return integer(UNIT_MILLISECONDS, negative, nsec / 1000000);
        return real(UNIT_MILLISECONDS, negative, seconds * 1000);
    }
    if (seconds > 3e-6) {
        if (start.tv_nsec % 1000 == 0 && end.tv_nsec % 1000 == 0)
            return integer(UNIT_MICROSECONDS, negative, nsec / 1000);
        return real(UNIT_MICROSECONDS, negative, seconds * 1e6);
    }
    return integer(UNIT_NANOSECONDS, negative, nsec);
}

ElapsedDescription ElapsedDescription::since(const Timespec& start) noexcept {
    return between(start, Timespec::monotonicNow());
}

void ElapsedDescription::appendTo(std::string& out) const {
    if (_negative) out.push_back('-');
    if (_isInteger) {
        appendf(out, "%llu", static_cast<unsigned long long>(_integer));
        // "1 second", "2 seconds"
        out.append(_unit, _integer == 1 ? _unitLen - 1 : _unitLen);
        return;
    }
    const int precision = _real >= 99.5 ? 1 : _real >= 9.95 ? 2 : 3;
    appendf(out, "%5.*f", precision, _real);
    out.append(_unit, _unitLen);
}

std::string ElapsedDescription::toString() const {
    std::string out;
    appendTo(out);
    return out;
}

}  // namespace basicutil
