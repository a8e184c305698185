// The timestamp scanner behind DateParser: what a line says, as written, before any inference.
#pragma once

#include <cstddef>
#include <cstdint>

#include "basicutil/dateparser/DateParser.h"

namespace basicutil::date_parser_details {

// What follows the time, as written.
enum class ZoneKind : std::uint8_t {
    NONE,          // nothing: the parser's zone
    UTC,           // Z, UTC, GMT, UT
    OFFSET,        // +01:00, -0700, +01
    ABBREVIATION,  // a word that may name a zone (CET, PST): the parser decides
};

// One timestamp as the line writes it. Fields are in range for what was read (a month 1..12, a
// day that the month has, an hour 0..23); what the line does not say is flagged.
struct RawTimestamp {
    TimestampFormat format = TimestampFormat::NONE;
    std::size_t offset = 0, length = 0;  // in the line

    bool hasYear = true;
    bool hasDate = true;  // false for TIME_OF_DAY
    std::int64_t year = 0;
    unsigned month = 0, day = 0;  // NUMERIC_SLASHED: the first and second fields as written
    unsigned hour = 0, minute = 0, second = 0;
    std::uint32_t micros = 0;

    // NUMERIC_SLASHED: which orders the two fields allow.
    bool monthFirstValid = false, dayFirstValid = false;

    ZoneKind zone = ZoneKind::NONE;
    std::int32_t utcOffset = 0;                  // OFFSET, UTC
    std::size_t wordOffset = 0, wordLength = 0;  // ABBREVIATION: the word in the line
    // ABBREVIATION: where the timestamp ends without the word (and, for date(1), without the year
    // that follows it), and the format it then is.
    std::size_t lengthWithoutWord = 0;
    TimestampFormat formatWithoutWord = TimestampFormat::NONE;
    bool yearAfterWord = false;  // date(1): the year is the word's next field

    // Where the minutes' digits start and where the time of day (seconds and fraction included)
    // ends, in the line: what a stream of one layout can take from its previous line as it is.
    std::size_t minuteAt = 0, timeEnd = 0;
    bool hadSeconds = false;
    bool afterWeekday = false;  // month-first forms: a weekday came first
    unsigned writtenHour = 0;   // NUMERIC_SLASHED: the hour as written, before AM or PM

    // Epoch formats: the instant itself.
    std::int64_t epochSeconds = 0;
    std::uint32_t epochMicros = 0;
};

// The leftmost timestamp that starts at a position in [from, to) of `line`; false when there is
// none. Linear in the line's length.
bool scanTimestamp(const char* line, std::size_t size, std::size_t from, std::size_t to,
                   RawTimestamp& out) noexcept;

// The end of what follows the time of day at `timeEnd` in a timestamp of out.format (a zone, a
// year, AM or PM), read as the format's reader reads it, with the zone's fields filled in; kNone
// (~0) when the format takes none of it. `out` brings the format and what the suffix depends on
// (month and day, afterWeekday, writtenHour, offset).
std::size_t readSuffix(const char* line, std::size_t size, std::size_t timeEnd, RawTimestamp& out) noexcept;

// Whether a timestamp may end at `end` of the line (no letter or digit goes on, nor ".", ":" or
// "," and a digit), and whether one may start at `at` (no letter, digit, "." or "_" before it).
bool endsCleanAt(const char* line, std::size_t size, std::size_t end) noexcept;
bool startsCleanAt(const char* line, std::size_t size, std::size_t at) noexcept;

// Whether `line` may hold a timestamp at all: every format but the epoch numbers and ISO's basic
// form has a colon in its time, and those two have a run of eight digits or more. False: none.
bool mayHoldTimestamp(const char* line, std::size_t size) noexcept;

// The timestamp that starts exactly at `at`, in whichever format is written there; false when
// none does.
bool readAt(const char* line, std::size_t size, std::size_t at, RawTimestamp& out) noexcept;

}  // namespace basicutil::date_parser_details
