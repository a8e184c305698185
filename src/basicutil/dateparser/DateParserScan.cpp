// The scanner: where a timestamp starts, in which format, with which fields. Each reader takes the
// position of a candidate's first byte and returns the end of the timestamp, or kNone.
#include <array>
#include <cstring>

#include "basicutil/dateparser/DateParser_details.h"
#include "basicutil/text/StrBlocks.h"
#include "basicutil/timevalue/DateTimeCalendar.h"

namespace basicutil::date_parser_details {

namespace {

constexpr std::size_t kNone = ~std::size_t{0};

inline bool isDigit(char c) noexcept {
    return static_cast<unsigned char>(c - '0') < 10;
}
inline bool isAlpha(char c) noexcept {
    return static_cast<unsigned char>((c | 0x20) - 'a') < 26;
}
inline bool isUpper(char c) noexcept {
    return static_cast<unsigned char>(c - 'A') < 26;
}
inline bool isAlnum(char c) noexcept {
    return isDigit(c) || isAlpha(c);
}

// The line, read with a NUL past its end: every reader stops at a byte that is no digit, no
// letter and no punctuation it expects, and a NUL inside the line is such a byte too.
struct Text {
    const char* p;
    std::size_t n;
    char at(std::size_t i) const noexcept { return i < n ? p[i] : '\0'; }

    // Exactly `count` digits at i.
    bool digits(std::size_t i, unsigned count, unsigned& value) const noexcept {
        if (i + count > n) return false;
        unsigned v = 0;
        for (unsigned k = 0; k < count; ++k) {
            const char c = p[i + k];
            if (!isDigit(c)) return false;
            v = v * 10 + static_cast<unsigned>(c - '0');
        }
        value = v;
        return true;
    }
    // One or two digits at i (no third): their value, and the index after them; kNone otherwise.
    std::size_t oneOrTwo(std::size_t i, unsigned& value) const noexcept {
        if (!isDigit(at(i))) return kNone;
        if (isDigit(at(i + 1))) {
            if (isDigit(at(i + 2))) return kNone;
            value = static_cast<unsigned>(p[i] - '0') * 10 + static_cast<unsigned>(p[i + 1] - '0');
            return i + 2;
        }
        value = static_cast<unsigned>(p[i] - '0');
        return i + 1;
    }
    std::size_t digitRun(std::size_t i) const noexcept {
        std::size_t j = i;
        while (j < n && isDigit(p[j])) ++j;
        return j - i;
    }
    // A timestamp may start at i: nothing before it that would make it part of a word, a number,
    // a version or an address.
    bool startsClean(std::size_t i) const noexcept {
        if (i == 0) return true;
        const char c = p[i - 1];
        return !isAlnum(c) && c != '.' && c != '_';
    }
    // A timestamp may end at e: no letter or digit goes on, nor ".", ":" or "," and a digit.
    bool endsClean(std::size_t e) const noexcept {
        if (e >= n) return true;
        const char c = p[e];
        if (isAlnum(c)) return false;
        return !((c == '.' || c == ':' || c == ',') && isDigit(at(e + 1)));
    }
};

// The month of a three-letter English abbreviation at i ("Jan", any case), 1..12; 0 for none. The
// name must end there (no fourth letter: "Janus" is no month).
// Three letters folded to lower case in one word ("jan" as 'j' << 16 | 'a' << 8 | 'n'); 0 unless
// all three are letters.
std::uint32_t threeLetters(const Text& t, std::size_t i) noexcept {
    if (i + 3 > t.n || !isAlpha(t.p[i]) || !isAlpha(t.p[i + 1]) || !isAlpha(t.p[i + 2])) return 0;
    const auto lower = [](char c) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(c | 0x20));
    };
    return lower(t.p[i]) << 16 | lower(t.p[i + 1]) << 8 | lower(t.p[i + 2]);
}
constexpr std::uint32_t packed(const char (&w)[4]) {
    return static_cast<std::uint32_t>(w[0]) << 16 | static_cast<std::uint32_t>(w[1]) << 8 |
           static_cast<std::uint32_t>(w[2]);
}
unsigned monthAt(const Text& t, std::size_t i) noexcept {
    if (isAlpha(t.at(i + 3))) return 0;
    switch (threeLetters(t, i)) {  // a few compares, not a loop over the names
        case packed("jan"):
            return 1;
        case packed("feb"):
            return 2;
        case packed("mar"):
            return 3;
        case packed("apr"):
            return 4;
        case packed("may"):
            return 5;
        case packed("jun"):
            return 6;
        case packed("jul"):
            return 7;
        case packed("aug"):
            return 8;
        case packed("sep"):
            return 9;
        case packed("oct"):
            return 10;
        case packed("nov"):
            return 11;
        case packed("dec"):
            return 12;
        default:
            return 0;
    }
}
bool weekdayAt(const Text& t, std::size_t i) noexcept {
    if (isAlpha(t.at(i + 3))) return false;
    switch (threeLetters(t, i)) {
        case packed("sun"):
        case packed("mon"):
        case packed("tue"):
        case packed("wed"):
        case packed("thu"):
        case packed("fri"):
        case packed("sat"):
            return true;
        default:
            return false;
    }
}

// 1..9 digits after a fraction mark at i ("." or also "," where allowed): microseconds, cut.
// Returns the index after them, i itself when there is no fraction, kNone for ten digits or more.
std::size_t fraction(const Text& t, std::size_t i, bool comma, std::uint32_t& micros) noexcept {
    const char mark = t.at(i);
    if (!(mark == '.' || (comma && mark == ',')) || !isDigit(t.at(i + 1))) return i;
    std::size_t j = i + 1;
    std::uint32_t value = 0;
    unsigned count = 0;
    while (j < t.n && isDigit(t.p[j])) {
        if (++count > 9) return kNone;
        if (count <= 6) value = value * 10 + static_cast<std::uint32_t>(t.p[j] - '0');
        ++j;
    }
    for (unsigned k = count; k < 6; ++k) value *= 10;
    micros = value;
    return j;
}

struct TimeRules {
    bool oneDigitHour = false;     // " 3:04:05" (MySQL), "3:04:05 PM"
    bool secondsOptional = false;  // ISO's hh:mm
    bool comma = false;            // "," before a fraction (ISO forms)
};

// hh:mm[:ss[.f]] at i; the index after it or kNone.
std::size_t timeOfDay(const Text& t, std::size_t i, const TimeRules& rules, RawTimestamp& out) noexcept {
    unsigned hour = 0, minute = 0, second = 0;
    std::size_t j;
    if (rules.oneDigitHour) {
        j = t.oneOrTwo(i, hour);
        if (j == kNone) return kNone;
    } else {
        if (!t.digits(i, 2, hour)) return kNone;
        j = i + 2;
    }
    if (t.at(j) != ':' || !t.digits(j + 1, 2, minute)) return kNone;
    const std::size_t minuteAt = j + 1;
    j += 3;
    std::uint32_t micros = 0;
    bool hadSeconds = false;
    if (t.at(j) == ':' && t.digits(j + 1, 2, second)) {
        j += 3;
        if (isDigit(t.at(j))) return kNone;
        j = fraction(t, j, rules.comma, micros);
        if (j == kNone) return kNone;
        hadSeconds = true;
    } else if (!rules.secondsOptional || isDigit(t.at(j))) {
        return kNone;
    }
    if (hour > 23 || minute > 59 || second > 60) return kNone;
    out.minuteAt = minuteAt;
    out.timeEnd = j;
    out.hadSeconds = hadSeconds;
    out.hour = hour;
    out.minute = minute;
    out.second = second;
    out.micros = micros;
    return j;
}

bool validDate(std::int64_t year, unsigned month, unsigned day) noexcept {
    return month >= 1 && month <= 12 && day >= 1 && day <= daysInMonth(year, month);
}

// "UTC", "GMT", "UT" or "Z" as a whole word of `length` letters at i.
bool utcWord(const Text& t, std::size_t i, std::size_t length) noexcept {
    const std::string_view w(t.p + i, length);
    return w == "UTC" || w == "GMT" || w == "UT" || w == "Z";
}

// A zone word at i: 1 to 5 upper-case letters (the parser decides whether it names a zone). Its
// length, or 0.
std::size_t zoneWord(const Text& t, std::size_t i) noexcept {
    std::size_t k = 0;
    while (k < 6 && isUpper(t.at(i + k))) ++k;
    if (k == 0 || k > 5 || isAlnum(t.at(i + k))) return 0;
    return k;
}

// A numeric offset at i: +hh:mm, +hhmm, or +hh (when `hoursAlone`); the index after it or kNone.
std::size_t numericOffset(const Text& t, std::size_t i, bool hoursAlone, std::int32_t& offset) noexcept {
    const char sign = t.at(i);
    if (sign != '+' && sign != '-') return kNone;
    unsigned hours = 0, minutes = 0;
    if (!t.digits(i + 1, 2, hours)) return kNone;
    std::size_t j = i + 3;
    if (t.at(j) == ':' && t.digits(j + 1, 2, minutes)) {
        j += 3;
    } else if (t.digits(j, 2, minutes)) {
        j += 2;
    } else if (!hoursAlone) {
        return kNone;
    }
    if (isDigit(t.at(j)) || hours > 18 || minutes > 59) return kNone;
    const std::int32_t seconds = static_cast<std::int32_t>(hours * 3600 + minutes * 60);
    offset = sign == '-' ? -seconds : seconds;
    return j;
}

// After a time, at e: " WORD" (a zone word), kept for the parser to decide; the index after it, or
// e when there is none.
std::size_t trailingWord(const Text& t, std::size_t e, RawTimestamp& out) noexcept {
    if (t.at(e) != ' ') return e;
    const std::size_t k = zoneWord(t, e + 1);
    if (k == 0) return e;
    if (utcWord(t, e + 1, k)) {
        out.zone = ZoneKind::UTC;
        out.utcOffset = 0;
        return e + 1 + k;
    }
    out.zone = ZoneKind::ABBREVIATION;
    out.wordOffset = e + 1;
    out.wordLength = k;
    out.lengthWithoutWord = e - out.offset;
    out.formatWithoutWord = out.format;
    return e + 1 + k;
}

// --- The formats ------------------------------------------------------------------------------------

// --- What follows a time: each format's suffix, read from the end of the time at j. ---------
// The stream's shortcut (DateParser.cpp) reads a line's suffix with these alone.

// "Z" or a numeric offset right after the time: the index after it; j when neither starts there;
// kNone for an offset that does not read.
std::size_t attachedZone(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    const char z = t.at(j);
    if (z == 'Z' || z == 'z') {
        out.zone = ZoneKind::UTC;
        return j + 1;
    }
    if (z != '+' && z != '-') return j;
    const std::size_t e = numericOffset(t, j, true, out.utcOffset);
    if (e == kNone) return kNone;
    out.zone = ZoneKind::OFFSET;
    return e;
}

// " +hhmm" or " -07:00" after the time (never a bare " +01"): the index after it; j when none
// starts there; kNone for one that does not read.
std::size_t spacedOffset(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    if (t.at(j) != ' ' || (t.at(j + 1) != '+' && t.at(j + 1) != '-')) return j;
    const std::size_t e = numericOffset(t, j + 1, false, out.utcOffset);
    if (e == kNone) return kNone;
    out.zone = ZoneKind::OFFSET;
    return e;
}

// ISO forms: Z, +hh:mm, +hhmm, +hh, " +hhmm", " WORD", or nothing. A spaced offset that does not
// read ends the timestamp before the space.
std::size_t isoSuffix(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    out.zone = ZoneKind::NONE;
    std::size_t e = attachedZone(t, j, out);
    if (e != j) return e;
    e = spacedOffset(t, j, out);
    if (e != j) return e == kNone ? j : e;
    return trailingWord(t, j, out);
}

// RFC 2822: " +hhmm", " WORD", or nothing.
std::size_t rfcSuffix(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    out.zone = ZoneKind::NONE;
    const std::size_t e = spacedOffset(t, j, out);
    return e != j ? e : trailingWord(t, j, out);
}

// CLF: " +hhmm" or nothing.
std::size_t clfSuffix(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    out.zone = ZoneKind::NONE;
    return spacedOffset(t, j, out);
}

// Slashed numeric dates: " AM" or " PM" (any case) with the written hour 1..12, or nothing.
std::size_t ampmSuffix(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    out.zone = ZoneKind::NONE;
    if (t.at(j) == ' ') {
        const char a = static_cast<char>(t.at(j + 1) | 0x20), m = static_cast<char>(t.at(j + 2) | 0x20);
        if ((a == 'a' || a == 'p') && m == 'm' && !isAlnum(t.at(j + 3))) {
            if (out.writtenHour < 1 || out.writtenHour > 12) return kNone;
            out.hour = out.writtenHour % 12 + (a == 'p' ? 12 : 0);
            return j + 3;
        }
    }
    return j;
}

// Month-first forms: " YYYY" (the year), after a weekday also " WORD YYYY" (date(1)), or nothing;
// the format is SYSLOG or ASCTIME accordingly.
std::size_t monthFirstSuffix(const Text& t, std::size_t j, RawTimestamp& out) noexcept {
    out.format = TimestampFormat::SYSLOG;
    out.hasYear = false;
    out.zone = ZoneKind::NONE;
    unsigned year = 0;
    if (t.at(j) == ' ' && t.digits(j + 1, 4, year) && t.endsClean(j + 5)) {
        if (!validDate(year, out.month, out.day)) return kNone;
        out.format = out.afterWeekday ? TimestampFormat::ASCTIME : TimestampFormat::SYSLOG;
        out.hasYear = true;
        out.year = year;
        return j + 5;
    }
    if (out.afterWeekday && t.at(j) == ' ') {
        // date(1): "Tue Jan  2 03:04:05 UTC 2024".
        const std::size_t k = zoneWord(t, j + 1);
        if (k != 0 && t.at(j + 1 + k) == ' ' && t.digits(j + 2 + k, 4, year) && t.endsClean(j + 6 + k)) {
            if (!validDate(year, out.month, out.day)) return kNone;
            out.hasYear = true;
            out.year = year;
            out.format = TimestampFormat::ASCTIME;
            if (utcWord(t, j + 1, k)) {
                out.zone = ZoneKind::UTC;
            } else {
                out.zone = ZoneKind::ABBREVIATION;
                out.wordOffset = j + 1;
                out.wordLength = k;
                out.lengthWithoutWord = j - out.offset;
                out.formatWithoutWord = TimestampFormat::SYSLOG;
                out.yearAfterWord = true;
            }
            return j + 6 + k;
        }
    }
    return j;
}

// YYYY-MM-DD[T ]hh:mm[:ss[.f]][zone] and YYYY/MM/DD hh:mm:ss[.f]; i at the year.
std::size_t isoDate(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned year = 0, month = 0, day = 0;
    if (!t.digits(i, 4, year)) return kNone;
    const char dash = t.at(i + 4);
    if (!t.digits(i + 5, 2, month) || t.at(i + 7) != dash || !t.digits(i + 8, 2, day)) return kNone;
    if (!validDate(year, month, day)) return kNone;
    const char sep = t.at(i + 10);
    std::size_t j = i + 11;
    if (dash == '-') {
        if (sep == 'T' || sep == 't') {
            out.format = TimestampFormat::ISO8601;
        } else if (sep == ' ') {
            out.format = TimestampFormat::ISO8601_SPACE;
            if (t.at(j) == ' ') ++j;  // "2025-06-24  14:36:25", as apt writes it
        } else {
            return kNone;
        }
    } else {
        if (sep != ' ') return kNone;
        out.format = TimestampFormat::YMD_SLASHED;
    }
    TimeRules rules;
    rules.secondsOptional = dash == '-';
    rules.comma = dash == '-';
    j = timeOfDay(t, j, rules, out);
    if (j == kNone) return kNone;
    out.year = year;
    out.month = month;
    out.day = day;
    return isoSuffix(t, j, out);
}

// YYYYMMDDThhmmss[.f][Z|+hhmm|+hh]; i at the year.
std::size_t isoBasic(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!t.digits(i, 4, year) || !t.digits(i + 4, 2, month) || !t.digits(i + 6, 2, day)) return kNone;
    const char sep = t.at(i + 8);
    if ((sep != 'T' && sep != 't') || !validDate(year, month, day)) return kNone;
    if (!t.digits(i + 9, 2, hour) || !t.digits(i + 11, 2, minute) || !t.digits(i + 13, 2, second))
        return kNone;
    std::size_t j = i + 15;
    if (isDigit(t.at(j)) || hour > 23 || minute > 59 || second > 60) return kNone;
    std::uint32_t micros = 0;
    j = fraction(t, j, true, micros);
    if (j == kNone) return kNone;
    out.format = TimestampFormat::ISO8601_BASIC;
    out.year = year;
    out.month = month;
    out.day = day;
    out.hour = hour;
    out.minute = minute;
    out.second = second;
    out.micros = micros;
    out.zone = ZoneKind::NONE;
    return attachedZone(t, j, out);
}

// YYMMDD  h:mm:ss or YYMMDD hh:mm:ss (MySQL); i at the year.
std::size_t mysql(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned year = 0, month = 0, day = 0;
    if (!t.digits(i, 2, year) || !t.digits(i + 2, 2, month) || !t.digits(i + 4, 2, day)) return kNone;
    if (!validDate(2000 + year, month, day) || t.at(i + 6) != ' ') return kNone;
    std::size_t j = i + 7;
    TimeRules rules;
    if (t.at(j) == ' ') {
        ++j;
        if (!isDigit(t.at(j)) || isDigit(t.at(j + 1))) return kNone;  // two spaces: a one-digit hour
        rules.oneDigitHour = true;
    }
    j = timeOfDay(t, j, rules, out);
    if (j == kNone) return kNone;
    out.format = TimestampFormat::MYSQL;
    out.year = 2000 + year;
    out.month = month;
    out.day = day;
    out.zone = ZoneKind::NONE;
    return j;
}

// DD/Mon/YYYY:hh:mm:ss [+-]hhmm (Common Log Format); i at the day.
std::size_t clf(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned day = 0, year = 0;
    std::size_t j = t.oneOrTwo(i, day);
    if (j == kNone || t.at(j) != '/') return kNone;
    const unsigned month = monthAt(t, j + 1);
    if (month == 0 || t.at(j + 4) != '/' || !t.digits(j + 5, 4, year) || t.at(j + 9) != ':') return kNone;
    if (!validDate(year, month, day)) return kNone;
    j = timeOfDay(t, j + 10, TimeRules{}, out);
    if (j == kNone) return kNone;
    out.format = TimestampFormat::CLF;
    out.year = year;
    out.month = month;
    out.day = day;
    return clfSuffix(t, j, out);
}

// A or B/B/YYYY[,][ ]h:mm:ss[.f][ AM|PM] (month or day first) and DD.MM.YYYY hh:mm:ss[.f];
// i at the first field.
std::size_t numericDate(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned first = 0, second = 0, year = 0;
    std::size_t j = t.oneOrTwo(i, first);
    if (j == kNone) return kNone;
    const char mark = t.at(j);
    if (mark != '/' && mark != '.') return kNone;
    j = t.oneOrTwo(j + 1, second);
    if (j == kNone || t.at(j) != mark || !t.digits(j + 1, 4, year) || isDigit(t.at(j + 5))) return kNone;
    j += 5;
    if (mark == '/' && t.at(j) == ',') ++j;  // "1/2/2024, 3:04:05 PM"
    if (t.at(j) != ' ') return kNone;
    ++j;
    TimeRules rules;
    rules.oneDigitHour = true;
    j = timeOfDay(t, j, rules, out);
    if (j == kNone) return kNone;
    out.year = year;
    out.zone = ZoneKind::NONE;
    if (mark == '.') {
        if (!validDate(year, second, first)) return kNone;
        out.format = TimestampFormat::NUMERIC_DOTTED;
        out.month = second;
        out.day = first;
        return j;
    }
    out.format = TimestampFormat::NUMERIC_SLASHED;
    out.month = first;  // as written: the parser decides the order
    out.day = second;
    out.monthFirstValid = validDate(year, first, second);
    out.dayFirstValid = validDate(year, second, first);
    if (!out.monthFirstValid && !out.dayFirstValid) return kNone;
    out.writtenHour = out.hour;
    return ampmSuffix(t, j, out);  // a 12-hour clock
}

// [Www, ]D Mon YYYY hh:mm[:ss] [zone] (RFC 2822, HTTP); i at the day.
std::size_t rfc2822(const Text& t, std::size_t i, RawTimestamp& out) noexcept {
    unsigned day = 0, year = 0;
    std::size_t j = t.oneOrTwo(i, day);
    if (j == kNone || t.at(j) != ' ') return kNone;
    const unsigned month = monthAt(t, j + 1);
    if (month == 0 || t.at(j + 4) != ' ' || !t.digits(j + 5, 4, year) || t.at(j + 9) != ' ') return kNone;
    if (!validDate(year, month, day)) return kNone;
    TimeRules rules;
    rules.secondsOptional = true;
    j = timeOfDay(t, j + 10, rules, out);
    if (j == kNone) return kNone;
    out.format = TimestampFormat::RFC2822;
    out.year = year;
    out.month = month;
    out.day = day;
    return rfcSuffix(t, j, out);
}

// Mon DD hh:mm:ss[.f][ YYYY] (syslog; the day space-padded or not), and after a weekday
// Mon DD hh:mm:ss[ ZONE] YYYY (asctime, date(1)); i at the month.
std::size_t monthFirst(const Text& t, std::size_t i, bool afterWeekday, RawTimestamp& out) noexcept {
    const unsigned month = monthAt(t, i);
    if (month == 0 || t.at(i + 3) != ' ') return kNone;
    std::size_t j = i + 4;
    if (t.at(j) == ' ') ++j;  // "Jan  2"
    unsigned day = 0;
    j = t.oneOrTwo(j, day);
    if (j == kNone || t.at(j) != ' ' || !validDate(2000, month, day)) return kNone;  // 2000: Feb 29 passes
    j = timeOfDay(t, j + 1, TimeRules{}, out);
    if (j == kNone) return kNone;
    out.month = month;
    out.day = day;
    out.afterWeekday = afterWeekday;
    return monthFirstSuffix(t, j, out);
}

// The epoch numbers: 10, 13, 16 or 19 digits and an optional fraction; i at the first digit.
std::size_t epoch(const Text& t, std::size_t i, std::size_t digits, RawTimestamp& out) noexcept {
    std::uint64_t value = 0;  // 19 digits fit in 64 bits unsigned
    for (std::size_t k = 0; k < digits; ++k)
        value = value * 10 + static_cast<std::uint64_t>(t.p[i + k] - '0');
    std::size_t j = i + digits;
    std::uint32_t fractionMicros = 0;
    std::size_t afterFraction = fraction(t, j, false, fractionMicros);
    if (afterFraction == kNone) return kNone;
    std::uint64_t seconds = 0, micros = 0;
    switch (digits) {
        case 10:
            out.format = TimestampFormat::EPOCH_SECONDS;
            seconds = value;
            micros = fractionMicros;
            break;
        case 13:
            out.format = TimestampFormat::EPOCH_MILLIS;
            seconds = value / 1000;
            micros = value % 1000 * 1000 + fractionMicros / 1000;
            break;
        case 16:
            out.format = TimestampFormat::EPOCH_MICROS;
            seconds = value / 1000000;
            micros = value % 1000000;
            break;
        default:
            out.format = TimestampFormat::EPOCH_NANOS;
            seconds = value / 1000000000;
            micros = value % 1000000000 / 1000;
            break;
    }
    out.epochSeconds = static_cast<std::int64_t>(seconds);
    out.epochMicros = static_cast<std::uint32_t>(micros);
    out.zone = ZoneKind::UTC;
    return afterFraction;
}

// Whether an epoch number may stand at i: at the line's start, or as a time key's value.
bool epochPlace(const Text& t, std::size_t i, std::size_t lineStart) noexcept {
    if (i == lineStart) return true;
    static constexpr std::string_view kKeys[] = {
        "ts=", "time=", "timestamp=", "\"ts\":", "\"time\":", "\"timestamp\":", "\"@timestamp\":"};
    std::size_t end = i;
    if (end > 0 && t.p[end - 1] == ' ' && end > 1 && t.p[end - 2] == ':') --end;  // "ts": 17...
    for (const std::string_view key : kKeys) {
        if (end < key.size() || std::memcmp(t.p + end - key.size(), key.data(), key.size()) != 0) continue;
        const std::size_t keyStart = end - key.size();
        if (keyStart == 0 || !isAlnum(t.p[keyStart - 1])) return true;
    }
    return false;
}

// Where a line's own start is for the formats that stand only there: after blanks and a "[".
std::size_t lineStartOf(const Text& t) noexcept {
    std::size_t i = 0;
    while (i < t.n && (t.p[i] == ' ' || t.p[i] == '\t')) ++i;
    if (t.at(i) == '[') ++i;
    return i;
}

// The candidate at i (which startsClean); the index after it or kNone, `out` filled.
// Which reader a candidate at i goes to, from its first bytes alone; NONE for no candidate. Most
// runs of a line are no candidate, and are turned away here before anything is written.
enum class Reader : std::uint8_t {
    NONE,
    ISO_DATE,
    ISO_BASIC,
    MYSQL,
    CLF,
    NUMERIC,
    RFC2822,
    TIME,
    EPOCH,
    RFC_WEEKDAY,
    ASCTIME_WEEKDAY,
    MONTH
};

Reader readerFor(const Text& t, std::size_t i, std::size_t run, std::size_t lineStart) noexcept {
    const char c = t.p[i];
    if (isDigit(c)) {
        const char next = t.at(i + run);
        if (run == 4) return next == '-' || next == '/' ? Reader::ISO_DATE : Reader::NONE;
        if (run == 8) return next == 'T' || next == 't' ? Reader::ISO_BASIC : Reader::NONE;
        if (run == 6) return next == ' ' ? Reader::MYSQL : Reader::NONE;
        if (run <= 2) {
            if (next == '/') return isAlpha(t.at(i + run + 1)) ? Reader::CLF : Reader::NUMERIC;
            if (next == '.') return Reader::NUMERIC;
            if (next == ' ') return monthAt(t, i + run + 1) != 0 ? Reader::RFC2822 : Reader::NONE;
            if (next == ':') return run == 2 && i == lineStart ? Reader::TIME : Reader::NONE;
            return Reader::NONE;
        }
        const bool epochLength = run == 10 || run == 13 || run == 16 || run == 19;
        return epochLength && epochPlace(t, i, lineStart) ? Reader::EPOCH : Reader::NONE;
    }
    if (weekdayAt(t, i)) {
        if (t.at(i + 3) == ',') return Reader::RFC_WEEKDAY;
        return t.at(i + 3) == ' ' ? Reader::ASCTIME_WEEKDAY : Reader::NONE;
    }
    return monthAt(t, i) != 0 ? Reader::MONTH : Reader::NONE;
}

// The candidate at i (which startsClean), of `run` digits or letters; the index after it or kNone,
// `out` filled.
std::size_t readCandidate(const Text& t, std::size_t i, std::size_t run, std::size_t lineStart,
                          RawTimestamp& out) noexcept {
    const Reader reader = readerFor(t, i, run, lineStart);
    if (reader == Reader::NONE) return kNone;
    out = RawTimestamp{};
    out.offset = i;
    std::size_t e = kNone;
    switch (reader) {
        case Reader::ISO_DATE:
            e = isoDate(t, i, out);
            break;
        case Reader::ISO_BASIC:
            e = isoBasic(t, i, out);
            break;
        case Reader::MYSQL:
            e = mysql(t, i, out);
            break;
        case Reader::CLF:
            e = clf(t, i, out);
            break;
        case Reader::NUMERIC:
            e = numericDate(t, i, out);
            break;
        case Reader::RFC2822:
            e = rfc2822(t, i, out);
            break;
        case Reader::TIME:
            e = timeOfDay(t, i, TimeRules{false, false, true}, out);
            if (e != kNone) {
                out.format = TimestampFormat::TIME_OF_DAY;
                out.hasDate = false;
                out.hasYear = false;
                out.zone = ZoneKind::NONE;
                e = trailingWord(t, e, out);
            }
            break;
        case Reader::EPOCH:
            e = epoch(t, i, run, out);
            break;
        case Reader::RFC_WEEKDAY:
            e = rfc2822(t, t.at(i + 4) == ' ' ? i + 5 : i + 4, out);
            break;
        case Reader::ASCTIME_WEEKDAY:
            e = monthFirst(t, i + 4, true, out);
            break;
        case Reader::MONTH:
            e = monthFirst(t, i, false, out);
            break;
        case Reader::NONE:
            break;
    }
    if (e == kNone || !t.endsClean(e)) return kNone;
    out.offset = i;
    out.length = e - i;
    return e;
}

// Each byte's kind: 1 a digit, 2 a letter, 0 anything else.
constexpr std::array<std::uint8_t, 256> kKinds = [] {
    std::array<std::uint8_t, 256> kinds{};
    for (int c = '0'; c <= '9'; ++c) kinds[static_cast<std::size_t>(c)] = 1;
    for (int c = 'a'; c <= 'z'; ++c)
        kinds[static_cast<std::size_t>(c)] = kinds[static_cast<std::size_t>(c - 32)] = 2;
    return kinds;
}();

}  // namespace

bool mayHoldTimestamp(const char* line, std::size_t size) noexcept {
    if (std::memchr(line, ':', size) != nullptr) return true;
    // No colon: only a run of eight digits or more can start one (ISO's basic form, an epoch
    // number). Sixteen bytes at a time; `window` keeps the previous block's digits below this one's.
    static const blocks::ByteRanges kDigits = [] {
        blocks::ByteRanges r;
        static_cast<void>(r.add('0', '9'));
        return r;
    }();
    std::uint32_t previous = 0;
    for (std::size_t i = 0; i < size; i += blocks::kBlock) {
        char block[blocks::kBlock] = {};
        const char* p = line + i;
        if (size - i < blocks::kBlock) {
            std::memcpy(block, p, size - i);
            p = block;
        }
        const std::uint32_t window =
            static_cast<std::uint32_t>(blocks::inRanges(p, kDigits)) << 16 | previous;
        std::uint32_t run = window & window >> 1;  // bit k: digits at k and k + 1
        run &= run >> 2;                           // at k .. k + 3
        run &= run >> 4;                           // at k .. k + 7
        if (run != 0) return true;                 // eight digits within the window
        previous = window >> 16;
    }
    return false;
}

std::size_t readSuffix(const char* line, std::size_t size, std::size_t timeEnd, RawTimestamp& out) noexcept {
    const Text t{line, size};
    std::size_t e = kNone;
    switch (out.format) {
        case TimestampFormat::ISO8601:
        case TimestampFormat::ISO8601_SPACE:
        case TimestampFormat::YMD_SLASHED:
            e = isoSuffix(t, timeEnd, out);
            break;
        case TimestampFormat::RFC2822:
            e = rfcSuffix(t, timeEnd, out);
            break;
        case TimestampFormat::CLF:
            e = clfSuffix(t, timeEnd, out);
            break;
        case TimestampFormat::NUMERIC_SLASHED:
            e = ampmSuffix(t, timeEnd, out);
            break;
        case TimestampFormat::SYSLOG:
        case TimestampFormat::ASCTIME:
            e = monthFirstSuffix(t, timeEnd, out);
            break;
        case TimestampFormat::NUMERIC_DOTTED:
        case TimestampFormat::MYSQL:
            out.zone = ZoneKind::NONE;
            e = timeEnd;
            break;
        default:
            return kNone;
    }
    return e != kNone && t.endsClean(e) ? e : kNone;
}

bool endsCleanAt(const char* line, std::size_t size, std::size_t end) noexcept {
    return Text{line, size}.endsClean(end);
}
bool startsCleanAt(const char* line, std::size_t size, std::size_t at) noexcept {
    return Text{line, size}.startsClean(at);
}

bool readAt(const char* line, std::size_t size, std::size_t at, RawTimestamp& out) noexcept {
    const Text t{line, size};
    if (at >= size || !t.startsClean(at)) return false;
    const auto* bytes = reinterpret_cast<const unsigned char*>(line);
    const std::uint8_t kind = kKinds[bytes[at]];
    if (kind == 0) return false;
    std::size_t j = at + 1;
    while (j < size && kKinds[bytes[j]] == kind) ++j;
    return readCandidate(t, at, j - at, lineStartOf(t), out) != kNone;
}

bool scanTimestamp(const char* line, std::size_t size, std::size_t from, std::size_t to,
                   RawTimestamp& out) noexcept {
    const Text t{line, size};
    if (to > size) to = size;
    const std::size_t lineStart = lineStartOf(t);
    const auto* bytes = reinterpret_cast<const unsigned char*>(line);
    // Nothing starts inside a run of digits or of letters: each run is looked at once, and only
    // runs of the lengths a format begins with (a day, a year, a date, an epoch number; a month or a
    // weekday) are read further.
    constexpr std::uint32_t kDigitStarts =
        1u << 1 | 1u << 2 | 1u << 4 | 1u << 6 | 1u << 8 | 1u << 10 | 1u << 13 | 1u << 16 | 1u << 19;
    std::size_t i = from;
    while (i < to) {
        const std::uint8_t kind = kKinds[bytes[i]];
        if (kind == 0) {
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        while (j < size && kKinds[bytes[j]] == kind) ++j;
        const std::size_t run = j - i;
        const bool starts = kind == 1 ? run < 32 && (kDigitStarts >> run & 1u) != 0 : run == 3;
        if (starts && t.startsClean(i) && readCandidate(t, i, run, lineStart, out) != kNone) return true;
        i = j;
    }
    return false;
}

}  // namespace basicutil::date_parser_details
