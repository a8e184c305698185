#include <algorithm>
#include <limits>

#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

namespace {

// A cursor over the rule text; each reader consumes what it accepts.
class RuleReader {
  public:
    explicit RuleReader(StrSegment text) : _begin(text.begin()), _p(_begin), _end(text.end()) {}

    bool atEnd() const noexcept { return _p == _end; }
    bool take(char c) noexcept {
        if (_p == _end || *_p != c) return false;
        ++_p;
        return true;
    }
    char peek() const noexcept { return _p == _end ? '\0' : *_p; }
    std::size_t offset() const noexcept { return static_cast<std::size_t>(_p - _begin); }

    // An abbreviation: three or more letters, or "<...>" of letters, digits, '+' and '-'.
    bool name(Str& out) {
        const char* start = _p;
        if (take('<')) {
            start = _p;
            while (_p != _end && (isAlnum(*_p) || *_p == '+' || *_p == '-')) ++_p;
            if (_p - start < 3 || !take('>')) return false;
            out.assign(start, static_cast<size_type>(_p - 1 - start));
            return true;
        }
        while (_p != _end && isAlpha(*_p)) ++_p;
        if (_p - start < 3) return false;
        out.assign(start, static_cast<size_type>(_p - start));
        return true;
    }

    // [+-]h[h[h]][:mm[:ss]] as seconds; hours up to maxHours.
    bool duration(std::int32_t maxHours, std::int32_t& seconds) noexcept {
        const bool negative = take('-');
        if (!negative) take('+');
        std::int32_t hours = 0, minutes = 0, secs = 0;
        if (!number(3, hours) || hours > maxHours) return false;
        if (take(':')) {
            if (!number(2, minutes) || minutes > 59) return false;
            if (take(':') && (!number(2, secs) || secs > 59)) return false;
        }
        seconds = hours * 3600 + minutes * 60 + secs;
        if (negative) seconds = -seconds;
        return true;
    }

    bool date(DateRule& rule) noexcept {
        std::int32_t value = 0;
        if (take('J')) {
            if (!number(3, value) || value < 1 || value > 365) return false;
            rule._type = DateRule::JULIAN_NO_LEAP;
            rule._day = static_cast<std::uint16_t>(value);
        } else if (take('M')) {
            std::int32_t week = 0, weekday = 0;
            if (!number(2, value) || value < 1 || value > 12 || !take('.') || !number(1, week) || week < 1 ||
                week > 5 || !take('.') || !number(1, weekday) || weekday > 6) {
                return false;
            }
            rule._type = DateRule::DOW;
            rule._month = static_cast<std::uint8_t>(value);
            rule._week = static_cast<std::uint8_t>(week);
            rule._weekday = static_cast<std::uint8_t>(weekday);
        } else {
            if (!number(3, value) || value > 365) return false;
            rule._type = DateRule::ZERO_BASED;
            rule._day = static_cast<std::uint16_t>(value);
        }
        rule._time = 2 * 3600;
        return !take('/') || duration(167, rule._time);
    }

  private:
    static bool isAlpha(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
    static bool isAlnum(char c) noexcept { return isAlpha(c) || (c >= '0' && c <= '9'); }

    // One to maxDigits decimal digits.
    bool number(int maxDigits, std::int32_t& value) noexcept {
        value = 0;
        int digits = 0;
        while (_p != _end && *_p >= '0' && *_p <= '9' && digits < maxDigits) {
            value = value * 10 + (*_p++ - '0');
            ++digits;
        }
        return digits > 0 && (_p == _end || *_p < '0' || *_p > '9');
    }

    const char* _begin;
    const char* _p;
    const char* _end;
};

}  // namespace

Status PosixTimeZoneRule::parse(StrSegment text, PosixTimeZoneRule& out) {
    RuleReader in(text);
    PosixTimeZoneRule rule;
    std::int32_t west = 0;
    auto fail = [&](const char* what) {
        return Status::invalid(strprintf("bad time-zone rule \"%s\": %s", text.view(), what),
                               static_cast<std::size_t>(in.offset()));
    };
    if (!in.name(rule.stdAbbreviation)) return fail("the standard-time name");
    if (!in.duration(24, west)) return fail("the standard-time offset");
    rule.stdOffset = -west;
    if (!in.atEnd()) {
        if (!in.name(rule.dstAbbreviation)) return fail("the daylight-time name");
        rule.hasDst = true;
        rule.dstOffset = rule.stdOffset + 3600;
        if (!in.atEnd() && in.peek() != ',') {
            if (!in.duration(24, west)) return fail("the daylight-time offset");
            rule.dstOffset = -west;
        }
        if (in.atEnd()) {
            rule.start = {DateRule::DOW, 0, 3, 2, 0, 7200};
            rule.end = {DateRule::DOW, 0, 11, 1, 0, 7200};
        } else if (!in.take(',') || !in.date(rule.start) || !in.take(',') || !in.date(rule.end)) {
            return fail("the daylight-time dates");
        }
    }
    if (!in.atEnd()) return fail("text after the rule");
    out = std::move(rule);
    return {};
}

void PosixTimeZoneRule::transitionsOfYear(std::int64_t year, std::int64_t& dstStarts,
                                          std::int64_t& dstEnds) const noexcept {
    const std::int64_t january = daysFromCivil(year, 1, 1) * kSecondsPerDay;
    dstStarts = january + start.secondsFromJanuary(year) - stdOffset;
    dstEnds = january + end.secondsFromJanuary(year) - dstOffset;
}

bool PosixTimeZoneRule::stateAt(std::int64_t seconds, std::int64_t& since,
                                std::int64_t& until) const noexcept {
    since = std::numeric_limits<std::int64_t>::min();
    until = std::numeric_limits<std::int64_t>::max();
    if (!hasDst) return false;
    // Into 1970..2369, where the arithmetic is small: the calendar repeats every 400 years.
    const std::int64_t cycles = floorDiv(seconds, kSecondsPer400Years);
    const std::int64_t t = floorMod(seconds, kSecondsPer400Years);
    const std::int64_t year = civilFromDays(t / kSecondsPerDay).year;
    // The changes of the years around, in order; at equal instants daylight time wins, so that
    // a rule for all-year daylight time ("0/0,J365/25") never falls back.
    struct Change {
        std::int64_t at;
        bool dst;
    } changes[10];
    std::size_t n = 0;
    for (std::int64_t y = year - 2; y <= year + 2; ++y) {
        std::int64_t starts = 0, ends = 0;
        transitionsOfYear(y, starts, ends);
        changes[n++] = {starts, true};
        changes[n++] = {ends, false};
    }
    std::sort(changes, changes + n,
              [](const Change& a, const Change& b) { return a.at != b.at ? a.at < b.at : !a.dst && b.dst; });
    bool dst = false;
    bool known = false;  // whether a change at or before t set the state
    std::int64_t runStart = 0;
    std::size_t i = 0;
    for (; i < n && changes[i].at <= t; ++i) {
        if (!known || changes[i].dst != dst) runStart = changes[i].at;
        dst = changes[i].dst;
        known = true;
    }
    while (i < n && changes[i].dst == dst) ++i;
    // Back to the instant's own 400 years; the limits stand for "beyond what can be said".
    const Int128 shift = static_cast<Int128>(cycles) * kSecondsPer400Years;
    auto shifted = [&](std::int64_t at, std::int64_t limit) {
        const Int128 v = at + shift;
        return v < std::numeric_limits<std::int64_t>::min() || v > std::numeric_limits<std::int64_t>::max()
                   ? limit
                   : static_cast<std::int64_t>(v);
    };
    if (known) since = shifted(runStart, since);
    if (i < n) until = shifted(changes[i].at, until);
    return dst;
}

}  // namespace basicutil
