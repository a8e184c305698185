// Parsing text with a compiled format, the calendar helpers, and Timeval::_set, which turns the
// parsed fields into a time.
#include <array>
#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/time/DateTime.h"
#include "basicutil/time/DateTime_details.h"

namespace basicutil {

namespace {

// The months of a leap year (2000 is one).
constexpr unsigned daysInLeapYearMonth(unsigned month0) noexcept {
    return daysInMonth(2000, month0 + 1);
}

bool isSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}
bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}
char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Field limits: digits taken by default and the largest value.
struct Limits {
    unsigned digits;
    std::int64_t max;
};

// The letter's digits and largest value; years take more digits when a width asks.
constexpr auto kLimits = [] {
    std::array<Limits, TimeFormat::TZ_AS_SECOFFSET + 1> t{};
    t.fill({19, INT64_MAX});
    t[TimeFormat::CENTURY] = {2, 99};
    t[TimeFormat::MONTHDAY_NUM] = {2, 31};
    t[TimeFormat::ISO_YEAR] = {4, 9999};
    t[TimeFormat::ISO_YEAR2] = {2, 99};
    t[TimeFormat::HOUR24_NUM] = {2, 23};
    t[TimeFormat::HOUR12_NUM] = {2, 12};
    t[TimeFormat::YDAY_NUM] = {3, 366};
    t[TimeFormat::MINUTE_NUM] = {2, 59};
    t[TimeFormat::SECOND_NUM] = {2, 60};
    t[TimeFormat::MONTH_NUM] = {2, 12};
    t[TimeFormat::MONTHWEEK_NUM] = {2, 53};
    t[TimeFormat::WEEKDAY_NUM] = {1, 6};
    t[TimeFormat::YEAR_NUM] = {4, 99999999999};
    t[TimeFormat::YEAR2_NUM] = {2, 99};
    return t;
}();

Limits limitsOf(TimeFormat::What what, char letter) noexcept {
    return what == TimeFormat::WEEKDAY_NUM && letter == 'u' ? Limits{1, 7} : kLimits[what];
}

// The separators between fields are a byte or two: a loop beats a call to memcmp.
bool sameBytes(const char* a, const char* b, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
}

std::int64_t widenTwoDigitYear(std::int64_t yy) noexcept {
    return yy < 69 ? 2000 + yy : 1900 + yy;
}

}  // namespace

// Walks the text atom by atom.
class TimeFormatParser {
  public:
    TimeFormatParser(const TimeFormat& format, const char* text, const char* end,
                     TimeFormatRawParseResult& pr)
        : _format(format), _begin(text), _p(text), _end(end), _pr(pr) {}

    bool run() {
        if (_format._hasLayout && fixedRun()) {
            finish();
            return true;
        }
        _pr = TimeFormatRawParseResult{};
        _p = _begin;
        _twoDigitYear = _twelveHour = false;
        const TimeFormat::Atom* atoms = _format.atoms();
        const std::size_t n = _format.atomCount();
        for (std::size_t i = 0; i < n; ++i) {
            const TimeFormat::Atom* following = i + 1 < n ? &atoms[i + 1] : nullptr;
            if (!atom(atoms[i], following)) {
                _annotator._extra = _p;
                VESTRA_ASSERT(_annotator._extra != nullptr);
                break;
            }
        }
        if (_annotator._extra == nullptr && _p != _end) _annotator._extra = _p;
        if (_annotator._extra != nullptr) return false;
        finish();
        return true;
    }

  private:
    // Text laid out exactly as the format renders it (the common case for machine formats):
    // the fixed characters compared in runs, two-digit fields read in place. Anything else, a
    // trailing "Z" for an offset included, goes to the general walk.
    bool fixedRun() noexcept {
        const Str& layout = _format._layout;
        const auto& slots = _format._slots;
        const std::size_t length = layout.size();
        if (static_cast<std::size_t>(_end - _begin) != length) return false;
        std::size_t fixedFrom = 0;
        for (const TimeFormat::Slot& slot : slots) {
            if (!sameBytes(_begin + fixedFrom, layout.data() + fixedFrom, slot.position - fixedFrom))
                return false;
            const char* p = _begin + slot.position;
            if (slot.twoDigitField != TimeFormat::NOT_TWO) {  // most fields: two digits in place
                // %e %k %l may lead with a blank.
                const unsigned d0 =
                    p[0] == ' ' && slot.lead == ' ' ? 0u : static_cast<unsigned char>(p[0]) - 48u;
                const unsigned d1 = static_cast<unsigned char>(p[1]) - 48u;
                if (d0 > 9 || d1 > 9 ||
                    !storeTwoDigits(static_cast<TimeFormat::TwoDigitField>(slot.twoDigitField),
                                    d0 * 10 + d1)) {
                    return false;
                }
                fixedFrom = slot.position + 2;
                continue;
            }
            const TimeFormat::Atom& a = _format._atoms[slot.atom];
            const std::size_t width = a.what == TimeFormat::YEAR_NUM ? slot.width : 0;
            if (width != 0) {  // the year's four digits
                unsigned v = 0;
                for (std::size_t k = 0; k < width; ++k) {
                    const unsigned d = static_cast<unsigned char>(p[k]) - 48u;
                    if (d > 9) return false;
                    v = v * 10 + d;
                }
                if (!store(a, v)) return false;
                fixedFrom = slot.position + width;
                continue;
            }
            if (a.what == TimeFormat::TZ_AS_SECOFFSET && (p[0] == '+' || p[0] == '-')) {  // "+hh:mm", "+hhmm"
                const char* m = p + (a.x.conv.colon != 0 ? 4 : 3);
                const unsigned h1 = static_cast<unsigned char>(p[1]) - 48u,
                               h0 = static_cast<unsigned char>(p[2]) - 48u;
                const unsigned m1 = static_cast<unsigned char>(m[0]) - 48u,
                               m0 = static_cast<unsigned char>(m[1]) - 48u;
                if ((a.x.conv.colon == 0 || p[3] == ':') && h1 <= 9 && h0 <= 9 && m1 <= 5 && m0 <= 9 &&
                    h1 * 10 + h0 <= 24) {
                    const auto seconds =
                        static_cast<std::int32_t>((h1 * 10 + h0) * 3600 + (m1 * 10 + m0) * 60);
                    storeOffset(p[0] == '-' ? -seconds : seconds);
                    fixedFrom = slot.position + slot.width;
                    continue;
                }
            }
            _p = p;
            if (!atom(a, nullptr) || _p != p + slot.width) return false;
            fixedFrom = slot.position + slot.width;
        }
        return sameBytes(_begin + fixedFrom, layout.data() + fixedFrom, length - fixedFrom) &&
               (_p = _end, true);
    }

    // A two-digit field of a fixed layout, as store() would take it.
    bool storeTwoDigits(TimeFormat::TwoDigitField field, unsigned v) noexcept {
        using R = TimeFormatRawParseResult;
        switch (field) {
            case TimeFormat::TWO_DAY:
                if (v == 0 || v > 31) return false;
                _pr.day = v;
                _pr.have |= R::HAVE_DAY;
                return true;
            case TimeFormat::TWO_HOUR:
                if (v > 23) return false;
                _pr.hour = v;
                _twelveHour = false;
                _pr.have |= R::HAVE_HOUR;
                return true;
            case TimeFormat::TWO_HOUR12:
                if (v == 0 || v > 12) return false;
                _pr.hour = v;
                _twelveHour = true;
                _pr.have |= R::HAVE_HOUR;
                return true;
            case TimeFormat::TWO_MINUTE:
                if (v > 59) return false;
                _pr.minute = v;
                _pr.have |= R::HAVE_MINUTE;
                return true;
            case TimeFormat::TWO_SECOND:
                if (v > 60) return false;
                _pr.second = v;
                _pr.have |= R::HAVE_SECOND;
                return true;
            case TimeFormat::TWO_MONTH:
                if (v == 0 || v > 12) return false;
                _pr.month = v;
                _pr.have |= R::HAVE_MONTH;
                return true;
            case TimeFormat::TWO_YY:
                _pr.year = widenTwoDigitYear(v);
                _twoDigitYear = true;
                _pr.have |= R::HAVE_YEAR;
                return true;
            case TimeFormat::TWO_CENTURY:
                _pr.century = v;
                _pr.have |= R::HAVE_CENTURY;
                return true;
            default:
                return false;
        }
    }

    void skipSpace() noexcept {
        while (_p < _end && isSpace(*_p)) ++_p;
    }

    // A character of the format: white space matches any run of it, others match themselves.
    bool literal(char c) noexcept {
        if (isSpace(c)) {
            skipSpace();
            return true;
        }
        const char* post_ws = _p;
        if (_p == _end || *_p != c) return false;
        ++_p;
        VESTRA_ASSERT_TEXT(_p > post_ws, "p > post_ws");
        return true;
    }

    // Up to maxDigits digits (at least one) after optional blanks and, where allowed, a sign;
    // fails on a value above max ("value_too_big").
    bool number(unsigned maxDigits, std::int64_t max, bool signAllowed, std::int64_t& value) noexcept {
        while (_p < _end && *_p == ' ') ++_p;
        const bool negative = signAllowed && _p < _end && *_p == '-';
        if (signAllowed && _p < _end && (*_p == '-' || *_p == '+')) ++_p;
        const char* a = _p;
        const char* end = _end - a > static_cast<std::ptrdiff_t>(maxDigits) ? a + maxDigits : _end;
        VESTRA_ASSERT(end >= a);
        std::uint64_t v = 0;
        const auto limit = static_cast<std::uint64_t>(max);
        while (a < end && isDigit(*a)) {
            VESTRA_ASSERT(a < end);
            VESTRA_ASSERT(*a >= '0' && *a <= '9');
            if (v > (UINT64_MAX - 9) / 10) return false;  // value_too_big
            v = v * 10 + static_cast<std::uint64_t>(*a - '0');
            if (v > limit) return false;  // value_too_big
            ++a;
        }
        if (a == _p) return false;
        _p = a;
        value = negative ? -static_cast<std::int64_t>(v) : static_cast<std::int64_t>(v);
        return true;
    }

    // One of the names, full or its first three letters, ignoring case.
    // A day or month name, whole or its three letters, in any case. The three letters find the
    // name (no two names share them); the whole name is taken when it follows.
    template <class Abbreviations>
    bool name(const std::string_view* names, const Abbreviations& abbreviations, unsigned& index) noexcept {
        if (_end - _p < 3) return false;
        const std::size_t i = abbreviations.find(std::string_view(_p, 3));
        if (i == abbreviations.npos) return false;
        const std::string_view whole = names[i];
        std::size_t length = 3;
        if (static_cast<std::size_t>(_end - _p) >= whole.size()) {
            std::size_t k = 3;
            while (k < whole.size() && lowered(_p[k]) == lowered(whole[k])) ++k;
            if (k == whole.size()) length = whole.size();
        }
        _p += length;
        index = static_cast<unsigned>(i);
        return true;
    }

    // "Z", or a sign, two digits of hours, and optionally two of minutes with or without ":".
    bool offset() noexcept {
        if (_p < _end && (*_p == 'Z' || *_p == 'z')) {
            ++_p;
            return storeOffset(0);
        }
        if (_p == _end || (*_p != '+' && *_p != '-')) return false;
        const bool negative = *_p++ == '-';
        if (_end - _p < 2 || !isDigit(_p[0]) || !isDigit(_p[1])) return false;
        std::int32_t seconds = ((_p[0] - '0') * 10 + (_p[1] - '0')) * 3600;
        _p += 2;
        if (seconds > 24 * 3600) return false;
        if (_p < _end && *_p == ':') {
            if (!tzoff_fetch_postcolon(seconds)) return false;
        } else if (_end - _p >= 2 && isDigit(_p[0]) && isDigit(_p[1])) {
            const int minutes = (_p[0] - '0') * 10 + (_p[1] - '0');
            if (minutes > 59) return false;
            seconds += minutes * 60;
            _p += 2;
        }
        return storeOffset(negative ? -seconds : seconds);
    }

    // The two digits of minutes after the ":" of a numeric offset.
    bool tzoff_fetch_postcolon(std::int32_t& seconds) noexcept {
        VESTRA_ASSERT_TEXT(*_p == ':', "*p == ':'");
        const char* a = _p + 1;
        if (_end - a < 2 || !isDigit(a[0]) || !isDigit(a[1])) return false;
        VESTRA_ASSERT_TEXT(_end > a, "end > a");
        const int minutes = (a[0] - '0') * 10 + (a[1] - '0');
        if (minutes > 59) return false;
        seconds += minutes * 60;
        _p = a + 2;
        return true;
    }

    bool storeOffset(std::int32_t seconds) noexcept {
        _pr.tzType = TimeFormat::TZ_AS_SECOFFSET;
        _pr.tzOffset = seconds;
        _pr.have |= TimeFormatRawParseResult::HAVE_ZONE;
        return true;
    }

    bool zoneName(const TimeFormat::Atom& a) noexcept {
        VESTRA_ASSERT_TEXT(a.what == TimeFormat::TZ_AS_NEEDEDOFFSET, "a->what == TZ_AS_NEEDEDOFFSET");
        if (_p < _end && (*_p == '+' || *_p == '-')) return offset();
        const char* start = _p;
        while (_p < _end && (isDigit(*_p) || (lowered(*_p) >= 'a' && lowered(*_p) <= 'z'))) ++_p;
        if (_p == start || !_pr.store_parsed_tzname(start, static_cast<std::size_t>(_p - start)))
            return false;
        _pr.have |= TimeFormatRawParseResult::HAVE_ZONE;
        return true;
    }

    // Exactly `width` digits, or 1 to 9 without one.
    bool subseconds(unsigned width) noexcept {
        const char* a = _p;
        const char* pend = width != 0 ? a + width : a;
        if (width != 0 && _end - a < static_cast<std::ptrdiff_t>(width)) return false;
        if (width == 0) {
            while (pend < _end && pend - a < 9 && isDigit(*pend)) ++pend;
            if (pend == a) return false;
        }
        std::uint64_t d = 0;
        unsigned zeros = 0;
        const auto digits = static_cast<unsigned>(pend - a);
        for (const char* p = a; p < pend; ++p) {
            if (!isDigit(*p)) return false;
            if (d == 0 && *p == '0') ++zeros;
            d = d * 10 + static_cast<std::uint64_t>(*p - '0');
            _p = p + 1;
        }
        VESTRA_ASSERT_TEXT(_p == pend, "p == pend");
        _pr.setFracsec(d == 0 ? std::uint64_t{1} << digits : ((d * 2) + 1) << zeros);
        return true;
    }

    bool atom(const TimeFormat::Atom& a, const TimeFormat::Atom* following) noexcept {
        using TF = TimeFormat;
        using R = TimeFormatRawParseResult;
        const char letter = static_cast<char>(a.x.conv.letter);
        std::int64_t v = 0;
        switch (a.what) {
            case TF::LITERAL: {
                const char* text = _format.literalText(a);
                for (std::uint32_t i = 0; i < a.x.text.length; ++i) {
                    if (!literal(text[i])) return false;
                }
                return true;
            }
            case TF::PUNCT:
                return literal(TF::kPunctuation[a.x.tmp]);
            case TF::WHITESPACE:
                skipSpace();
                return true;
            case TF::WEEKDAY_NAME:
                if (!name(kWeekdayNames, kWeekdayAbbreviations, _pr.weekday)) return false;
                _pr.have |= R::HAVE_WEEKDAY;
                return true;
            case TF::MONTH_NAME: {
                unsigned month = 0;
                if (!name(kMonthNames, kMonthAbbreviations, month)) return false;
                _pr.month = month + 1;
                _pr.have |= R::HAVE_MONTH;
                return true;
            }
            case TF::MERIDIAN: {
                skipSpace();
                if (_end - _p < 2 || lowered(_p[1]) != 'm' ||
                    (lowered(_p[0]) != 'a' && lowered(_p[0]) != 'p')) {
                    return false;
                }
                _pr.pm = lowered(_p[0]) == 'p';
                _p += 2;
                _pr.have |= R::HAVE_MERIDIAN;
                return true;
            }
            case TF::SUBSECONDS:
                return subseconds(a.x.conv.width);
            case TF::EPOCH: {
                // Followed at once by subseconds, it leaves their digits to them.
                unsigned digits = 19;
                if (following != nullptr && following->what == TF::SUBSECONDS) {
                    const char* q = _p + (_p < _end && *_p == '-' ? 1 : 0);
                    const char* run = q;
                    while (run < _end && isDigit(*run)) ++run;
                    const auto available = static_cast<unsigned>(run - q);
                    const unsigned reserved = subsecondDigitsOf(*following);
                    if (available <= reserved) return false;
                    digits = std::min(19u, available - reserved);
                }
                if (!number(digits, INT64_MAX, true, v)) return false;
                _pr.store_parsed_epoch(v);
                return true;
            }
            case TF::EPOCH10: {
                if (_end - _p < 10) return false;
                const char* start = _p;
                if (!number(10, INT64_MAX, false, v) || _p - start != 10) return false;
                _pr.store_parsed_epoch(v);
                return true;
            }
            case TF::SORTABLE: {
                Timeval tv;
                if (_end - _p < 14 || !tv.decodeSortable(_p, 14)) return false;
                _p += 14;
                _pr.store_parsed_epoch(tv.tv_sec);
                _pr.setFracsec(tv.encodeSubseconds(6));
                return true;
            }
            case TF::TZ_AS_SECOFFSET:
                return offset();
            case TF::TZ_AS_NEEDEDOFFSET:
                return zoneName(a);
            case TF::COMPOSITE: {  // its expansion, after the blanks a width pads it with
                const TimeFormat& expansion = date_time_details::compositeFormat(letter);
                skipSpace();
                for (std::size_t i = 0; i < expansion.atomCount(); ++i) {
                    if (!atom(expansion.atoms()[i], nullptr)) return false;
                }
                return true;
            }
            default:
                break;
        }
        // The numeric fields.
        const Limits limits = limitsOf(a.what, letter);
        const unsigned digits = a.x.conv.width != 0 ? a.x.conv.width : limits.digits;
        const bool signAllowed = a.what == TF::YEAR_NUM || a.what == TF::ISO_YEAR;
        return number(digits, limits.max, signAllowed, v) && store(a, v);
    }

    // A numeric field's value into the result; false for a value its field cannot hold.
    bool store(const TimeFormat::Atom& a, std::int64_t v) noexcept {
        using TF = TimeFormat;
        using R = TimeFormatRawParseResult;
        const char letter = static_cast<char>(a.x.conv.letter);
        const auto u = static_cast<unsigned>(v < 0 ? 0 : v);
        switch (a.what) {
            case TF::CENTURY:
                _pr.century = u;
                _pr.have |= R::HAVE_CENTURY;
                break;
            case TF::MONTHDAY_NUM:
                if (u == 0) return false;
                _pr.day = u;
                _pr.have |= R::HAVE_DAY;
                break;
            case TF::ISO_YEAR:
            case TF::YEAR_NUM:
                _pr.year = v;
                _twoDigitYear = false;
                _pr.have |= R::HAVE_YEAR;
                break;
            case TF::ISO_YEAR2:
            case TF::YEAR2_NUM:
                _pr.year = widenTwoDigitYear(v);
                _twoDigitYear = true;
                _pr.have |= R::HAVE_YEAR;
                break;
            case TF::HOUR24_NUM:
                _pr.hour = u;
                _twelveHour = false;
                _pr.have |= R::HAVE_HOUR;
                break;
            case TF::HOUR12_NUM:
                if (u == 0) return false;
                _pr.hour = u;
                _twelveHour = true;
                _pr.have |= R::HAVE_HOUR;
                break;
            case TF::YDAY_NUM:
                if (u == 0) return false;
                _pr.yday = u - 1;
                _pr.have |= R::HAVE_YDAY;
                break;
            case TF::MINUTE_NUM:
                _pr.minute = u;
                _pr.have |= R::HAVE_MINUTE;
                break;
            case TF::SECOND_NUM:
                _pr.second = u;
                _pr.have |= R::HAVE_SECOND;
                break;
            case TF::MONTH_NUM:
                if (u == 0) return false;
                _pr.month = u;
                _pr.have |= R::HAVE_MONTH;
                break;
            case TF::MONTHWEEK_NUM:
                if (letter == 'V' && u == 0) return false;
                _pr.week = u;
                _pr.weekKind = letter == 'U'   ? R::WEEK_SUNDAY_FIRST
                               : letter == 'W' ? R::WEEK_MONDAY_FIRST
                                               : R::WEEK_ISO;
                _pr.have |= R::HAVE_WEEK;
                break;
            case TF::WEEKDAY_NUM:
                if (letter == 'u' && u == 0) return false;
                _pr.weekday = u % 7;
                _pr.have |= R::HAVE_WEEKDAY;
                break;
            default:
                return false;
        }
        return true;
    }

    // Fields that only mean something together: the century with the year, the half of the day
    // with a 12-hour clock.
    void finish() noexcept {
        using R = TimeFormatRawParseResult;
        if ((_pr.have & R::HAVE_CENTURY) != 0) {
            const auto hundreds = static_cast<std::int64_t>(_pr.century) * 100;
            if (_twoDigitYear) {
                _pr.year = hundreds + floorMod(_pr.year, 100);
            } else if ((_pr.have & R::HAVE_YEAR) == 0) {
                _pr.year = hundreds;
                _pr.have |= R::HAVE_YEAR;
            }
        }
        if (_twelveHour) _pr.hour = _pr.hour % 12 + ((_pr.have & R::HAVE_MERIDIAN) != 0 && _pr.pm ? 12 : 0);
    }

    const TimeFormat& _format;
    const char* _begin;
    const char* _p;
    const char* _end;
    TimeFormatRawParseResult& _pr;
    bool _twoDigitYear = false;
    bool _twelveHour = false;
    struct {
        const char* _extra = nullptr;  // where the text stopped matching
    } _annotator;
};

void TimeFormatRawParseResult::setFracsec(std::uint64_t encoded) noexcept {
    fracsec = encoded;
    have |= HAVE_SUBSECONDS;
}

void TimeFormatRawParseResult::store_parsed_epoch(std::int64_t seconds) noexcept {
    epoch = seconds;
    have |= HAVE_EPOCH;
}

bool TimeFormatRawParseResult::store_parsed_tzname(const char* name, std::size_t zlen) noexcept {
    VESTRA_ASSERT(zlen > 0);
    if (zlen >= sizeof tzName) return false;
    std::memcpy(tzName, name, zlen);
    tzName[zlen] = '\0';
    tzType = TimeFormat::TZ_AS_NEEDEDOFFSET;
    return true;
}

bool TimeFormat::rawParse(StrSegment text, TimeFormatRawParseResult& result) const noexcept {
    TimeFormatRawParseResult* pr = &result;
    *pr = TimeFormatRawParseResult{};
    VESTRA_ASSERT((pr->have & TimeFormatRawParseResult::HAVE_MINUTE) == 0);
    if (!_valid) return false;
    return TimeFormatParser(*this, text.begin(), text.end(), result).run();
}

// --- Calendar helpers ---

void computeMmddFromYday(std::int64_t year, unsigned yday, unsigned& month, unsigned& monthday) {
    // The leap-year table serves common years too once their days from March on move one up.
    unsigned tday = yday;
    if (!is_leap_year(year) && tday >= 59) ++tday;
    unsigned m = 0;
    while (tday >= daysInLeapYearMonth(m)) {
        tday -= daysInLeapYearMonth(m);
        ++m;
        VESTRA_ASSERT_TEXT(m < 12, "month < 12");
    }
    VESTRA_ASSERT_TEXT(tday < daysInLeapYearMonth(m), "tday < (int) days_in_month_leapyear[month]");
    monthday = tday + 1;
    VESTRA_ASSERT_TEXT(m != 1 || monthday != 29 || is_leap_year(year),
                       "month != 1 || monthday != 29 || is_leap_year(year)");
    month = m + 1;
    VESTRA_ASSERT(month > 0);
}

std::int64_t dayStartTime(std::int64_t year, unsigned month, unsigned monthday) noexcept {
    VESTRA_ASSERT(month < 12);
    return daysFromCivil(year, month + 1, monthday) * kSecondsPerDay;
}

bool computeYdayFromYweek(const TimeFormatRawParseResult& result, int& yday) {
    using R = TimeFormatRawParseResult;
    const std::uint32_t have = result.have;
    VESTRA_ASSERT_TEXT((have & R::HAVE_YEAR) != 0, "(have & HAVE_YEAR) != 0");
    const auto january1 = static_cast<int>(weekdayFromDays(daysFromCivil(result.year, 1, 1)));  // 0 = Sunday
    const auto mondayBased = static_cast<int>((result.weekday + 6) % 7);
    const auto week = static_cast<int>(result.week);
    int day = 0;
    switch (result.weekKind) {
        case R::WEEK_SUNDAY_FIRST:  // week 1 starts on the first Sunday
            day = (7 - january1) % 7 + (week - 1) * 7 + static_cast<int>(result.weekday);
            break;
        case R::WEEK_MONDAY_FIRST:
            day = (8 - january1) % 7 + (week - 1) * 7 + mondayBased;
            break;
        case R::WEEK_ISO:  // week 1 holds January 4
            day = 3 - (january1 + 6 + 3) % 7 + (week - 1) * 7 + mondayBased;
            break;
    }
    if (result.weekKind != R::WEEK_ISO && (day < 0 || day >= (is_leap_year(result.year) ? 366 : 365)))
        return false;
    yday = day;
    return true;
}

// --- Parsed fields to a time ---

bool Timeval::_set(const TimeFormatRawParseResult& parsed, const TimeZone& zone,
                   const Timeval& reference) noexcept {
    using R = TimeFormatRawParseResult;
    std::int64_t seconds = 0;
    if ((parsed.have & R::HAVE_EPOCH) != 0) {
        seconds = parsed.epoch;
    } else {
        std::int64_t year = parsed.year;
        if ((parsed.have & R::HAVE_YEAR) == 0) {  // the reference's year, as the zone sees it
            CivilTime now;
            if (!zone.breakDown(reference.tv_sec, now)) return false;
            year = now.year;
        }
        const R& fields = parsed;
        unsigned month = 1, day = 1;
        if ((fields.have & (R::HAVE_MONTH | R::HAVE_DAY)) != 0) {
            month = (fields.have & R::HAVE_MONTH) != 0 ? fields.month : 1;
            day = (fields.have & R::HAVE_DAY) != 0 ? fields.day : 1;
            if (day > daysInMonth(year, month)) return false;
        } else if ((fields.have & R::HAVE_YDAY) != 0) {
            if (fields.yday >= (is_leap_year(year) ? 366u : 365u)) return false;
            computeMmddFromYday(year, fields.yday, month, day);
        } else if ((fields.have & R::HAVE_WEEK) != 0 && (fields.have & R::HAVE_WEEKDAY) != 0) {
            R withYear = fields;  // the week helpers count from the year's January 1
            withYear.year = year;
            withYear.have |= R::HAVE_YEAR;
            int yday = 0;
            if (!computeYdayFromYweek(withYear, yday)) return false;
            const CivilDate date = civilFromDays(daysFromCivil(year, 1, 1) + yday);
            year = date.year;
            month = date.month;
            day = date.day;
        }
        const std::int64_t clock = std::int64_t{fields.hour} * 3600 + fields.minute * 60 + fields.second;
        if ((fields.have & R::HAVE_ZONE) != 0) {
            std::int32_t offset = fields.tzOffset;
            const std::uint8_t fty = fields.tzType;
            if (fty == TimeFormat::TZ_AS_NEEDEDOFFSET) {
                const auto candidates =
                    zone.offsetsForAbbreviation(fields.tzName, dayStartTime(year, month - 1, day) + clock);
                if (candidates.empty()) return false;
                offset = candidates.front().utcOffset;
            } else {
                VESTRA_ASSERT(fty == TimeFormat::TZ_AS_SECOFFSET);
            }
            seconds = dayStartTime(year, month - 1, day) + clock - offset;
        } else {
            LocalTimeResolution resolved;
            if (!zone.resolveLocal(year, month, day, fields.hour, fields.minute, fields.second, resolved)) {
                return false;
            }
            seconds = resolved.seconds;
        }
    }
    // The fraction counts up from the whole second, before 1970 too: "%s.%3Q" of {-2, 750000}
    // is "-2.750", and reads back as it was written.
    Timeval fraction;
    if ((parsed.have & R::HAVE_SUBSECONDS) != 0) fraction.addEncodedSubseconds(parsed.fracsec);
    tv_sec = seconds;
    tv_usec = fraction.tv_usec;
    return true;
}

}  // namespace basicutil
