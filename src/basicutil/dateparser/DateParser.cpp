// The stream: what a line does not say, inferred; the checks against the previous event; the
// channels.
#include "basicutil/dateparser/DateParser.h"

#include <cstring>

#include "basicutil/dateparser/DateParser_details.h"
#include "basicutil/log/Logger.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/timevalue/DateTimeCalendar.h"

namespace basicutil {

using namespace date_parser_details;

namespace {

struct DateParserGlobals {
    LoggerSimple log{"DateParser", 0, 60, 100};
    LoggerSimple verbose{"DateParserVerbose", 1, 300, 10};
    DateParserGlobals() { recordStartupEvent("+basicutil/DateParser"); }
    ~DateParserGlobals() { recordStartupEvent("-basicutil/DateParser"); }
};
DateParserGlobals g_dateParser VESTRA_STARTUP(STARTUP_DATE_PARSER);

constexpr const char* kFormatNames[kTimestampFormats] = {
    "NONE",          "ISO8601",      "ISO8601_SPACE", "ISO8601_BASIC",   "YMD_SLASHED",    "RFC2822",
    "SYSLOG",        "CLF",          "ASCTIME",       "NUMERIC_SLASHED", "NUMERIC_DOTTED", "MYSQL",
    "EPOCH_SECONDS", "EPOCH_MILLIS", "EPOCH_MICROS",  "EPOCH_NANOS",     "TIME_OF_DAY",
};
constexpr const char* kWarningNames[kDateWarnings] = {
    "NO_TIMESTAMP",  "WENT_BACKWARDS",      "JUMPED_FORWARD",
    "IN_FUTURE",     "FORMAT_CHANGED",      "YEAR_INFERRED",
    "ZONE_ASSUMED",  "DAY_MONTH_AMBIGUOUS", "ZONE_ABBREVIATION_AMBIGUOUS",
    "DATE_BORROWED",
};

constexpr std::int64_t kHalfDay = 12 * 3600;
constexpr std::int32_t kParserZone = INT32_MIN;  // the hour cache's key for "the parser's zone"

std::int64_t microseconds(Timeval span) noexcept {
    return span.tv_sec * 1000000 + span.tv_usec;
}

// Local seconds (days * 86400 + time of day) to an instant at a known offset.
std::int64_t localSeconds(std::int64_t year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                          unsigned second) noexcept {
    return daysFromCivil(year, month, day) * kSecondsPerDay + hour * 3600 + minute * 60 + second;
}

}  // namespace

Logger& dateParserChannel() noexcept {
    return g_dateParser.log;
}
Logger& dateParserVerboseChannel() noexcept {
    return g_dateParser.verbose;
}

const char* timestampFormatName(TimestampFormat format) noexcept {
    const auto i = static_cast<std::size_t>(format);
    return i < kTimestampFormats ? kFormatNames[i] : "?";
}

const char* dateWarningName(DateWarning warning) noexcept {
    return warning < kDateWarnings ? kWarningNames[warning] : "?";
}

std::size_t formatUtcTimestamp(char* text, Timeval time) noexcept {
    const std::int64_t days = floorDiv(time.tv_sec, kSecondsPerDay);
    const std::int64_t second = floorMod(time.tv_sec, kSecondsPerDay);
    const CivilDate date = civilFromDays(days);
    std::size_t n = 0;
    if (date.year >= 0 && date.year <= 9999) {
        writeFixedDigits(text, static_cast<std::uint64_t>(date.year), 4);
        n = 4;
    } else {
        n = formatSigned(text, date.year);
    }
    text[n++] = '-';
    writeTwoDigits(text + n, date.month);
    text[n + 2] = '-';
    writeTwoDigits(text + n + 3, date.day);
    text[n + 5] = 'T';
    writeTwoDigits(text + n + 6, static_cast<unsigned>(second / 3600));
    text[n + 8] = ':';
    writeTwoDigits(text + n + 9, static_cast<unsigned>(second / 60 % 60));
    text[n + 11] = ':';
    writeTwoDigits(text + n + 12, static_cast<unsigned>(second % 60));
    text[n + 14] = '.';
    const auto micros = time.tv_usec >= 0 && time.tv_usec < 1000000 ? time.tv_usec : 0;
    writeFixedDigits(text + n + 15, static_cast<std::uint64_t>(micros), 6);
    text[n + 21] = 'Z';
    return n + 22;
}

void appendUtcTimestamp(Str& out, Timeval time) {
    char text[kUtcTimestampBytes];
    out.append(StrSegment(text, formatUtcTimestamp(text, time)));
}

// --- The stream's state ------------------------------------------------------------------------------

struct DateParser::State {
    TimeZonePtr zone;
    std::int32_t fixedOffset = 0;
    bool zoneIsFixed = false;
    Timeval reference;
    bool referenceFromClock = false;

    // The previous event: its instant, format, and local date and time of day (at its own offset).
    bool hasPrevious = false;
    Timeval previous;
    TimestampFormat previousFormat = TimestampFormat::NONE;
    std::size_t previousOffset = 0;
    std::int64_t previousDays = 0, previousSecondOfDay = 0;
    std::int64_t previousYear = 0;
    unsigned previousMonth = 0;

    enum class Order : std::uint8_t { UNDECIDED, MONTH_FIRST, DAY_FIRST };
    Order order = Order::UNDECIDED;
    DateWarnings saidOnce;  // inference warnings already logged

    // The last local hour converted: its fields, the offset it was read at (kParserZone: the
    // parser's zone), and its first second as an instant and its offset. Valid while the
    // offset holds over the whole hour.
    struct Hour {
        bool valid = false;
        std::int64_t year = 0;
        unsigned month = 0, day = 0, hour = 0;
        std::int32_t key = 0;
        std::int64_t start = 0;
        std::int32_t offset = 0;
    } hour;
    // Whether the last conversion's hour maps local minutes and seconds to instants one for one
    // (a known offset, or the zone's offset constant all through it).
    bool lastHourUniform = false;

    // The previous line's layout, for the next line that repeats its date and hour: the text from
    // the timestamp's start to the minutes, and from the end of the seconds (and fraction) to the
    // timestamp's end, byte for byte; the hour's first second as an instant, at its offset; the
    // inference warnings the reading had. Only minutes, seconds and fraction are then read.
    struct Lock {
        bool valid = false;
        std::size_t offset = 0;
        TimestampFormat format = TimestampFormat::NONE;
        char head[40] = {};
        std::uint8_t headLength = 0;
        // What followed the time as its format's suffix reader took it (a word that named no zone
        // included), and how much of it the timestamp kept.
        char tail[24] = {};
        std::uint8_t tailLength = 0, keptTail = 0;
        // What the suffix reader needs of the timestamp: its format as written, where it starts,
        // its month and day, a weekday before it, its hour as written.
        TimestampFormat writtenFormat = TimestampFormat::NONE;
        unsigned month = 0, day = 0, writtenHour = 0;
        bool afterWeekday = false;
        bool hadSeconds = false, comma = false;
        std::int64_t hourStart = 0;
        std::int32_t utcOffset = 0;
        DateWarnings warnings;
    } lock;

    // The thresholds, in microseconds.
    std::int64_t toleranceUs = 0, forwardUs = 0, slackUs = 0;

    // The last zone words looked up: a word of the line ("CET", "INFO") and what it named.
    struct Word {
        char text[5] = {};
        std::uint8_t length = 0;
        bool known = false, ambiguous = false;
        std::int32_t offset = 0;
    };
    Word words[8];
    unsigned nextWord = 0;

    void resetStream() noexcept {
        lock.valid = false;
        hasPrevious = false;
        previousFormat = TimestampFormat::NONE;
        previousOffset = 0;
        order = Order::UNDECIDED;
        saidOnce = DateWarnings{};
    }

    const Word& lookUpWord(const char* text, std::size_t length) {
        for (const Word& w : words) {
            if (w.length == length && std::memcmp(w.text, text, length) == 0) return w;
        }
        Word& w = words[nextWord++ % std::size(words)];
        std::memcpy(w.text, text, length);
        w.length = static_cast<std::uint8_t>(length);
        const std::vector<AbbreviationOffset> offsets =
            zone->offsetsForAbbreviation(StrSegment(text, length), reference.tv_sec);
        w.known = !offsets.empty();
        w.offset = w.known ? offsets[0].utcOffset : 0;
        w.ambiguous = false;
        for (const AbbreviationOffset& o : offsets) {
            if (o.utcOffset != w.offset) w.ambiguous = true;
        }
        return w;
    }

    // Local fields to an instant: at `offset`, or in the parser's zone when offset is kParserZone.
    // False when they do not fit a 64-bit time.
    bool toInstant(std::int64_t year, unsigned month, unsigned day, unsigned h, unsigned m, unsigned s,
                   std::int32_t key, std::int64_t& seconds, std::int32_t& offset) const {
        if (key != kParserZone || zoneIsFixed) {
            offset = key != kParserZone ? key : fixedOffset;
            seconds = localSeconds(year, month, day, h, m, s) - offset;
            return true;
        }
        LocalTimeResolution r;
        if (!zone->resolveLocal(year, month, day, h, m, s, r)) return false;
        seconds = r.seconds;
        offset = r.lookup.utcOffset;
        return true;
    }

    // The same through the hour cache.
    bool convert(std::int64_t year, unsigned month, unsigned day, unsigned h, unsigned m, unsigned s,
                 std::int32_t key, std::int64_t& seconds, std::int32_t& offset) {
        if (key == kParserZone && zoneIsFixed) key = fixedOffset;
        if (key != kParserZone) {
            // A known offset: arithmetic, and every hour uniform.
            offset = key;
            seconds = localSeconds(year, month, day, h, m, s) - key;
            lastHourUniform = true;
            return true;
        }
        lastHourUniform = false;
        if (hour.valid && hour.hour == h && hour.day == day && hour.month == month && hour.year == year &&
            hour.key == key) {
            seconds = hour.start + m * 60 + s;
            offset = hour.offset;
            lastHourUniform = true;
            return true;
        }
        if (!toInstant(year, month, day, h, m, s, key, seconds, offset)) return false;
        // The hour is cached when one offset holds all through it, from its first second on.
        std::int64_t start = 0;
        std::int32_t startOffset = 0;
        hour.valid = false;
        if (toInstant(year, month, day, h, 0, 0, key, start, startOffset) && startOffset == offset &&
            seconds == start + m * 60 + s) {
            bool uniform = true;
            if (key == kParserZone && !zoneIsFixed) {
                uniform =
                    zone->lookup(start).utcOffset == offset && zone->lookup(start + 3599).utcOffset == offset;
                LocalTimeResolution r;
                uniform = uniform && zone->resolveLocal(year, month, day, h, 0, 0, r) &&
                          r.kind == LocalTimeResolution::UNIQUE &&
                          zone->resolveLocal(year, month, day, h, 59, 59, r) &&
                          r.kind == LocalTimeResolution::UNIQUE;
            }
            if (uniform) hour = {true, year, month, day, h, key, start, offset};
            lastHourUniform = uniform;
        }
        return true;
    }

    // The local year of `seconds` in the parser's zone.
    std::int64_t yearAt(std::int64_t seconds) const noexcept {
        CivilTime civil;
        return zone->breakDown(seconds, civil) ? civil.year : 1970;
    }
    // The local date (days since 1970-01-01) and second of the day of `seconds` in the zone.
    void localDayAt(std::int64_t seconds, std::int64_t& days, std::int64_t& secondOfDay) const noexcept {
        const std::int64_t local = seconds + zone->lookup(seconds).utcOffset;
        days = floorDiv(local, kSecondsPerDay);
        secondOfDay = floorMod(local, kSecondsPerDay);
    }
};

// --- Reading a line ------------------------------------------------------------------------------

namespace {

// What resolve() made of a raw timestamp.
struct Reading {
    Timeval time;
    std::int32_t utcOffset = 0;
    DateWarnings warnings;
};

// The year for a date without one, as the header says; false when none holds the date.
bool inferYear(DateParser::State& s, const RawTimestamp& raw, std::int32_t key, std::int64_t& year) {
    if (s.hasPrevious) {
        year = s.previousYear;
        if (raw.month + 6 < s.previousMonth) ++year;  // December, then January: New Year
        if (raw.month > s.previousMonth + 6) --year;  // January, then December: the year before
        for (int k = 0; k < 8 && !(raw.day <= daysInMonth(year, raw.month)); ++k) --year;
        return raw.day <= daysInMonth(year, raw.month);
    }
    const std::int64_t referenceYear = s.yearAt(s.reference.tv_sec);
    for (std::int64_t candidate = referenceYear + 1; candidate > referenceYear - 9; --candidate) {
        if (raw.day > daysInMonth(candidate, raw.month)) continue;
        std::int64_t seconds = 0;
        std::int32_t offset = 0;
        if (!s.toInstant(candidate, raw.month, raw.day, raw.hour, raw.minute, raw.second, key, seconds,
                         offset))
            continue;
        if (seconds <= s.reference.tv_sec) {
            year = candidate;
            return true;
        }
    }
    return false;
}

}  // namespace

// Completes and converts; false when the fields name no time a 64-bit count holds.
static bool resolve(DateParser::State& s, const char* line, RawTimestamp& raw, std::int64_t forcedYear,
                    Reading& out) {
    if (raw.format >= TimestampFormat::EPOCH_SECONDS && raw.format <= TimestampFormat::EPOCH_NANOS) {
        out.time = Timeval{raw.epochSeconds, raw.epochMicros};
        out.utcOffset = 0;
        return true;
    }
    // The zone. A word that names none is no part of the timestamp.
    std::int32_t key = kParserZone;
    if (raw.zone == ZoneKind::UTC) {
        key = 0;
    } else if (raw.zone == ZoneKind::OFFSET) {
        key = raw.utcOffset;
    } else if (raw.zone == ZoneKind::ABBREVIATION) {
        const DateParser::State::Word& w = s.lookUpWord(line + raw.wordOffset, raw.wordLength);
        if (w.known) {
            key = w.offset;
            if (w.ambiguous) out.warnings.add(DATE_WARN_ZONE_ABBREVIATION_AMBIGUOUS);
        } else {
            raw.length = raw.lengthWithoutWord;
            raw.format = raw.formatWithoutWord;
            if (raw.yearAfterWord) raw.hasYear = false;
            raw.zone = ZoneKind::NONE;
        }
    }
    if (raw.zone == ZoneKind::NONE) out.warnings.add(DATE_WARN_ZONE_ASSUMED);

    // Day and month order.
    if (raw.format == TimestampFormat::NUMERIC_SLASHED) {
        using Order = DateParser::State::Order;
        if (raw.month > 12) s.order = Order::DAY_FIRST;
        if (raw.day > 12 && s.order == Order::UNDECIDED) s.order = Order::MONTH_FIRST;
        bool dayFirst = s.order == Order::DAY_FIRST;
        if (dayFirst && !raw.dayFirstValid) dayFirst = false;
        if (!dayFirst && !raw.monthFirstValid) dayFirst = true;
        if (s.order == Order::UNDECIDED && raw.monthFirstValid && raw.dayFirstValid)
            out.warnings.add(DATE_WARN_DAY_MONTH_AMBIGUOUS);
        if (dayFirst) std::swap(raw.month, raw.day);
    }

    std::int64_t seconds = 0;
    std::int32_t offset = 0;
    if (!raw.hasDate) {
        // A time of day alone: the previous event's date (or the reference time's), the next day
        // when it would be more than half a day before the previous event.
        out.warnings.add(DATE_WARN_DATE_BORROWED);
        std::int64_t days = 0, secondOfDay = 0;
        if (s.hasPrevious) {
            days = s.previousDays;
            secondOfDay = s.previousSecondOfDay;
        } else {
            s.localDayAt(s.reference.tv_sec, days, secondOfDay);
        }
        const std::int64_t here = raw.hour * 3600 + raw.minute * 60 + raw.second;
        if (s.hasPrevious && here + kHalfDay < secondOfDay) ++days;
        if (!s.hasPrevious && here > secondOfDay) --days;  // not after the reference time
        const CivilDate date = civilFromDays(days);
        if (!s.convert(date.year, date.month, date.day, raw.hour, raw.minute, raw.second, key, seconds,
                       offset))
            return false;
    } else {
        std::int64_t year = raw.year;
        if (!raw.hasYear) {
            if (forcedYear != 0) {
                year = forcedYear;
                if (raw.day > daysInMonth(year, raw.month)) return false;
            } else {
                out.warnings.add(DATE_WARN_YEAR_INFERRED);
                if (!inferYear(s, raw, key, year)) return false;
            }
        }
        if (!s.convert(year, raw.month, raw.day, raw.hour, raw.minute, raw.second, key, seconds, offset))
            return false;
    }
    out.time = Timeval{seconds, static_cast<std::int64_t>(raw.micros)};
    out.utcOffset = offset;
    return true;
}

namespace {

// Every line on "DateParserVerbose", when it is on (the caller has asked).
void logLine(const DateParseResult& r, std::uint64_t line, StrSegment text) {
    Logger& verbose = dateParserVerboseChannel();
    Str message = strprintf("line %llu: ", static_cast<unsigned long long>(line));
    if (r.found) {
        message.append(StrSegment(timestampFormatName(r.format)));
        message.append(StrSegment(" at "));
        message.append(strprintf("%zu+%zu ", r.offset, r.length));
        message.append(StrSegment(text.data() + r.offset, r.length));
        message.append(StrSegment(" = "));
        appendUtcTimestamp(message, r.time);
    } else {
        message.append(StrSegment("no timestamp"));
    }
    for (std::size_t w = 0; w < kDateWarnings; ++w) {
        if (!r.warnings.has(static_cast<DateWarning>(w))) continue;
        message.push_back(' ');
        message.append(StrSegment(dateWarningName(static_cast<DateWarning>(w))));
    }
    verbose.log(LOG_DEBUG, message.view());
}

// A check warning: what, the time, and what it was compared with.
void logCheck(DateWarning w, std::uint64_t line, const DateParseResult& r, Timeval reference) {
    Logger& log = dateParserChannel();
    if (!log.enabled(LOG_WARN)) return;
    Str message = strprintf("line %llu: %s: ", static_cast<unsigned long long>(line), dateWarningName(w));
    appendUtcTimestamp(message, r.time);
    if (w == DATE_WARN_IN_FUTURE) {
        message.append(StrSegment(" is after the reference time "));
        appendUtcTimestamp(message, reference);
    } else if (w == DATE_WARN_FORMAT_CHANGED) {
        message.append(StrSegment(" is written as "));
        message.append(StrSegment(timestampFormatName(r.format)));
        message.append(StrSegment(", the previous event "));
        appendUtcTimestamp(message, r.previous);
        message.append(StrSegment(" otherwise"));
    } else {
        message.append(StrSegment(w == DATE_WARN_WENT_BACKWARDS ? " is before" : " is far after"));
        message.append(StrSegment(" the previous event "));
        appendUtcTimestamp(message, r.previous);
    }
    log.logf(LOG_WARN, "%s", message);
}

}  // namespace

DateParser::DateParser() : DateParser(DateParserOptions{}) {}

DateParser::DateParser(const DateParserOptions& options)
    : _options(options), _state(std::make_unique<State>()) {
    State& s = *_state;
    s.zone = options.zone != nullptr ? options.zone : TimeZone::local();
    if (s.zone == nullptr) s.zone = TimeZone::utc();
    s.zoneIsFixed = s.zone->fixedOffset(s.fixedOffset);
    s.referenceFromClock = options.reference.isZero();
    s.reference = s.referenceFromClock ? Timeval::now() : options.reference;
    s.toleranceUs = microseconds(options.backwardsTolerance);
    s.forwardUs = microseconds(options.forwardLimit);
    s.slackUs = microseconds(options.futureSlack);
}

DateParser::~DateParser() = default;

void DateParser::reset() noexcept {
    _state->resetStream();
    _lines = 0;
    _found = 0;
}

namespace {

bool isDigitByte(char c) noexcept {
    return static_cast<unsigned char>(c - '0') < 10;
}

// RFC 5424's "-" in place of the time: "<PRI>VERSION - ...": the header says there is no time,
// whatever the message holds.
bool nilSyslogTime(const char* line, std::size_t size) noexcept {
    if (size < 6 || line[0] != '<') return false;
    std::size_t i = 1;
    while (i < size && i < 5 && isDigitByte(line[i])) ++i;
    return i > 1 && i + 4 <= size && line[i] == '>' && line[i + 1] >= '1' && line[i + 1] <= '9' &&
           line[i + 2] == ' ' && line[i + 3] == '-' && (i + 4 == size || line[i + 4] == ' ');
}

bool lockable(TimestampFormat f) noexcept {
    return f != TimestampFormat::NONE && f != TimestampFormat::ISO8601_BASIC &&
           f != TimestampFormat::TIME_OF_DAY &&
           (f < TimestampFormat::EPOCH_SECONDS || f > TimestampFormat::EPOCH_NANOS);
}

}  // namespace

// The line read with the previous line's layout: the same date and hour, written the same way, at
// the same place, and nothing that could be a timestamp before it. False sends it the long way.
static bool readLocked(const DateParser::State& s, const char* line, std::size_t size, DateParseResult& r) {
    const DateParser::State::Lock& k = s.lock;
    const std::size_t at = k.offset;
    if (at + k.headLength + k.tailLength + 2 > size || std::memcmp(line + at, k.head, k.headLength) != 0 ||
        !startsCleanAt(line, size, at))
        return false;
    std::size_t j = at + k.headLength;
    const char* p = line + j;
    if (!isDigitByte(p[0]) || !isDigitByte(p[1])) return false;
    const unsigned minute = static_cast<unsigned>(p[0] - '0') * 10 + static_cast<unsigned>(p[1] - '0');
    unsigned second = 0;
    std::uint32_t micros = 0;
    j += 2;
    if (k.hadSeconds) {
        if (j + 3 > size || line[j] != ':' || !isDigitByte(line[j + 1]) || !isDigitByte(line[j + 2]))
            return false;
        second = static_cast<unsigned>(line[j + 1] - '0') * 10 + static_cast<unsigned>(line[j + 2] - '0');
        j += 3;
        if (j < size && (line[j] == '.' || (k.comma && line[j] == ',')) && j + 1 < size &&
            isDigitByte(line[j + 1])) {
            ++j;
            unsigned count = 0;
            while (j < size && isDigitByte(line[j])) {
                if (++count > 9) return false;
                if (count <= 6) micros = micros * 10 + static_cast<std::uint32_t>(line[j] - '0');
                ++j;
            }
            for (unsigned c = count; c < 6; ++c) micros *= 10;
        }
    }
    if (j < size && (isDigitByte(line[j]) || (!k.hadSeconds && line[j] == ':'))) return false;
    if (minute > 59 || second > 60) return false;
    // The suffix must be the one the previous line had. Where the format's reader took one (a zone,
    // a year, AM or PM), the same bytes and a clean end after them are the same suffix: the reader
    // looks no further. Where it took none, it is asked whether it takes none here too.
    if (k.tailLength > 0) {
        if (size - j < k.tailLength || std::memcmp(line + j, k.tail, k.tailLength) != 0 ||
            !endsCleanAt(line, size, j + k.tailLength))
            return false;
    } else {
        RawTimestamp suffix;
        suffix.format = k.writtenFormat;
        suffix.offset = k.offset;
        suffix.month = k.month;
        suffix.day = k.day;
        suffix.writtenHour = k.writtenHour;
        suffix.afterWeekday = k.afterWeekday;
        if (readSuffix(line, size, j, suffix) != j) return false;
    }
    const std::size_t end = j + k.keptTail;
    if (at > 0) {
        RawTimestamp earlier;
        if (scanTimestamp(line, size, 0, at, earlier)) return false;
    }
    r.time = Timeval{k.hourStart + minute * 60 + second, static_cast<std::int64_t>(micros)};
    r.offset = at;
    r.length = end - at;
    r.format = k.format;
    r.utcOffset = k.utcOffset;
    r.warnings = k.warnings;
    return true;
}

DateParseResult DateParser::parse(StrSegment text) {
    State& s = *_state;
    ++_lines;
    // Without its line end.
    std::size_t size = text.size();
    while (size > 0 && (text.data()[size - 1] == '\n' || text.data()[size - 1] == '\r')) --size;
    const char* line = text.data();

    DateParseResult r;
    bool found = false;
    if (!nilSyslogTime(line, size)) {
        if (s.lock.valid && readLocked(s, line, size, r)) {
            found = true;
        } else if (mayHoldTimestamp(line, size)) {
            RawTimestamp raw;
            // The last line's place first: a stream keeps its layout. Anything before it wins.
            if (s.hasPrevious && s.previousOffset < size && readAt(line, size, s.previousOffset, raw)) {
                RawTimestamp earlier;
                if (s.previousOffset > 0 && scanTimestamp(line, size, 0, s.previousOffset, earlier))
                    raw = earlier;
                found = true;
            } else {
                found = scanTimestamp(line, size, 0, size, raw);
            }
            Reading reading;
            // As written, before resolve() completes the reading.
            const TimestampFormat writtenFormat = raw.format;
            const std::size_t writtenEnd = raw.offset + raw.length;
            const unsigned writtenMonth = raw.month, writtenDay = raw.day;
            if (found && !resolve(s, line, raw, _options.year, reading)) found = false;
            s.lock.valid = false;
            if (found) {
                r.time = reading.time;
                r.offset = raw.offset;
                r.length = raw.length;
                r.format = raw.format;
                r.utcOffset = reading.utcOffset;
                r.warnings = reading.warnings;
                // The layout is kept when the hour's conversion holds for all of it.
                const std::size_t headLength = raw.minuteAt - raw.offset;
                const std::size_t tailLength = writtenEnd - raw.timeEnd;
                const std::size_t keptTail = raw.offset + raw.length - raw.timeEnd;
                const std::int64_t hourStart =
                    reading.time.tv_sec - static_cast<std::int64_t>(raw.minute * 60 + raw.second);
                if (lockable(raw.format) && raw.minuteAt > raw.offset && headLength <= sizeof s.lock.head &&
                    raw.timeEnd <= raw.offset + raw.length && tailLength <= sizeof s.lock.tail &&
                    s.lastHourUniform) {
                    State::Lock& k = s.lock;
                    k.valid = true;
                    k.offset = raw.offset;
                    k.format = raw.format;
                    std::memcpy(k.head, line + raw.offset, headLength);
                    k.headLength = static_cast<std::uint8_t>(headLength);
                    std::memcpy(k.tail, line + raw.timeEnd, tailLength);
                    k.tailLength = static_cast<std::uint8_t>(tailLength);
                    k.keptTail = static_cast<std::uint8_t>(keptTail);
                    k.writtenFormat = writtenFormat;
                    k.month = writtenMonth;
                    k.day = writtenDay;
                    k.writtenHour = raw.writtenHour;
                    k.afterWeekday = raw.afterWeekday;
                    k.hadSeconds = raw.hadSeconds;
                    k.comma = raw.format == TimestampFormat::ISO8601 ||
                              raw.format == TimestampFormat::ISO8601_SPACE;
                    k.hourStart = hourStart;
                    k.utcOffset = reading.utcOffset;
                    k.warnings = reading.warnings;
                }
            }
        }
    }
    if (!found) {
        r = DateParseResult{};
        r.warnings.add(DATE_WARN_NO_TIMESTAMP);
        r.hasPrevious = s.hasPrevious;
        r.previous = s.previous;
        if (g_dateParser.verbose.enabled(LOG_DEBUG)) logLine(r, _lines, StrSegment(line, size));
        return r;
    }
    ++_found;
    r.found = true;

    // The checks.
    const auto since = [](Timeval a, Timeval b) {
        return (a.tv_sec - b.tv_sec) * 1000000 + (a.tv_usec - b.tv_usec);
    };
    if (s.hasPrevious) {
        r.hasPrevious = true;
        r.previous = s.previous;
        const std::int64_t elapsed = since(r.time, s.previous);
        if (elapsed < -s.toleranceUs) r.warnings.add(DATE_WARN_WENT_BACKWARDS);
        if (elapsed > s.forwardUs) r.warnings.add(DATE_WARN_JUMPED_FORWARD);
        if (r.format != s.previousFormat) r.warnings.add(DATE_WARN_FORMAT_CHANGED);
    }
    if (since(r.time, s.reference) > s.slackUs) {
        if (s.referenceFromClock) s.reference = Timeval::now();
        if (since(r.time, s.reference) > s.slackUs) r.warnings.add(DATE_WARN_IN_FUTURE);
    }

    // The stream moves on.
    s.hasPrevious = true;
    s.previous = r.time;
    s.previousFormat = r.format;
    s.previousOffset = r.offset;
    const std::int64_t local = r.time.tv_sec + r.utcOffset;
    const std::int64_t days = floorDiv(local, kSecondsPerDay);
    s.previousSecondOfDay = local - days * kSecondsPerDay;
    if (days != s.previousDays || s.previousMonth == 0) {
        const CivilDate date = civilFromDays(days);
        s.previousYear = date.year;
        s.previousMonth = date.month;
        s.previousDays = days;
    }

    // The channels: each check warning; each inference warning the first time.
    // Inference warnings are said once a stream: most lines have nothing new to say.
    // Nothing is said on a channel that is off (its threshold above NOTICE).
    if ((r.warnings.hasCheck() || (r.warnings.bits() & ~s.saidOnce.bits()) != 0) &&
        g_dateParser.log.enabled(LOG_NOTICE))
        sayWarnings(s, r, _lines, line);
    if (g_dateParser.verbose.enabled(LOG_DEBUG)) logLine(r, _lines, StrSegment(line, size));
    return r;
}

void DateParser::sayWarnings(State& s, const DateParseResult& r, std::uint64_t lineNumber, const char* line) {
    for (DateWarning w : {DATE_WARN_WENT_BACKWARDS, DATE_WARN_JUMPED_FORWARD, DATE_WARN_IN_FUTURE,
                          DATE_WARN_FORMAT_CHANGED}) {
        if (r.warnings.has(w)) logCheck(w, lineNumber, r, s.reference);
    }
    for (DateWarning w : {DATE_WARN_YEAR_INFERRED, DATE_WARN_ZONE_ASSUMED, DATE_WARN_DAY_MONTH_AMBIGUOUS,
                          DATE_WARN_ZONE_ABBREVIATION_AMBIGUOUS, DATE_WARN_DATE_BORROWED}) {
        if (!r.warnings.has(w) || s.saidOnce.has(w)) continue;
        s.saidOnce.add(w);
        Logger& log = dateParserChannel();
        if (log.enabled(LOG_NOTICE)) {
            log.logf(LOG_NOTICE, "line %llu: %s (said once per stream): %s",
                     static_cast<unsigned long long>(lineNumber), dateWarningName(w),
                     StrSegment(line + r.offset, r.length));
        }
    }
}

DateParseResult findTimestamp(StrSegment text, const TimeZonePtr& zone) {
    DateParserOptions options;
    options.zone = zone;
    DateParser parser(options);
    DateParseResult r = parser.parse(text);
    return r;
}

}  // namespace basicutil
