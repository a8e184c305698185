// Timestamps in lines of text: find the time a log line was written, whatever wrote it, check it
// against the previous event's time, and say what is odd.
//
//   DateParser parser;                        // the local zone, now as the reference time
//   while (read(line)) {
//       const DateParseResult r = parser.parse(line);
//       if (r.found) use(r.time, r.offset, r.length, timestampFormatName(r.format));
//       if (r.warnings.has(DATE_WARN_WENT_BACKWARDS)) say("went back from", r.previous);
//   }
//
//   DateParseResult once = findTimestamp(text);   // one piece of text, no stream: stateless
//
// What is found. Each format below is recognised anywhere in the line, and the leftmost timestamp
// wins (at one position, the longest reading: a date with its time and zone). Fractions of 1 to 9
// digits are kept to microseconds (cut, not rounded). Every format but the epoch numbers needs a
// time of day with its seconds or, in ISO forms, at least its minutes.
//   ISO8601         2024-01-02T03:04:05.678Z, with +01:00, +0100, +01 or no zone; RFC 3339; RFC 5424
//                   syslog (whose "-" in place of the time is no timestamp)
//   ISO8601_SPACE   2024-01-02 03:04:05,678 (Java, Python), also with a zone or " UTC", and with
//                   two spaces (apt)
//   ISO8601_BASIC   20240102T030405Z
//   YMD_SLASHED     2024/01/02 03:04:05 (Go, nginx error logs)
//   RFC2822         Tue, 02 Jan 2024 03:04:05 +0000, "... GMT", with or without the weekday (HTTP)
//   SYSLOG          Jan  2 03:04:05 (no year; "Jan  2 03:04:05 2024" has one)
//   CLF             [02/Jan/2024:03:04:05 -0700] (the text found is inside the brackets)
//   ASCTIME         Tue Jan  2 03:04:05 2024, Tue Jan  2 03:04:05 UTC 2024 (date(1))
//   NUMERIC_SLASHED 01/02/2024 03:04:05 [AM|PM]: month first unless the stream has shown a first
//                   field above 12 (then day first)
//   NUMERIC_DOTTED  02.01.2024 03:04:05: day first
//   MYSQL           240102  3:04:05
//   EPOCH_SECONDS, EPOCH_MILLIS, EPOCH_MICROS, EPOCH_NANOS: 10, 13, 16 or 19 digits, a fraction
//                   allowed, at the start of a line or as the value of a time key: ts=, time=,
//                   timestamp=, "ts":, "time":, "timestamp":, "@timestamp":
//   TIME_OF_DAY     03:04:05.678 at the start of a line, dated by the previous event (rolling over
//                   midnight) or, for the first, by the reference time
// Zone names after the time (UTC, GMT, Z, CET, PST, ...) are read through the zone abbreviations
// of TimeZone::offsetsForAbbreviation, near the reference time; a name with several offsets takes
// the likeliest (the reference zone's own first) and is warned about.
//
// What is never a timestamp: a candidate preceded by a letter, a digit, "." or "_", or followed by
// a letter, a digit, or "." or ":" and a digit (IP addresses, version numbers like 1.2.3 or
// 2.4.10, hex ids); a time of day anywhere but at a line's start (durations like 12:30:00 in
// prose); a field out of range (2024-13-45, 25:61:00, February 30); an epoch number outside the
// start of a line and the time keys (sizes, phone numbers). Bad input (invalid UTF-8, NUL bytes,
// megabyte lines, a million digits) gets no crash and no assertion, and time linear in its length.
//
// What is inferred, each with its warning:
//   a missing year      from the previous event, stepping over New Year either way (a December
//                       line after January is the year before, a January line after December the
//                       year after); with none, the latest year that does not put the time after
//                       the reference time (and holds the date: February 29); or the caller's
//   a missing zone      the parser's zone (default the local zone); a local time a transition
//                       repeats is its earlier instant, one it skips reads with the offset before
//   day and month order in slashed numeric dates (above); warned while undecided
//   a missing date      (TIME_OF_DAY) the previous event's date in the parser's zone, the next day
//                       when the time is more than 12 hours before the previous event's
//
// What is checked against the previous event (the previous line that had a timestamp), with the
// thresholds of DateParserOptions: time went backwards by more than the tolerance, jumped forward
// by more than the limit, lies in the future (after the reference time plus the slack), or the
// format changed. A check warning comes with the previous event's time.
//
// Logging: check warnings on the "DateParser" channel at WARN, one line each; inference warnings
// at NOTICE the first time each occurs in a stream; every line's reading on "DateParserVerbose"
// (switched off until a configuration turns it on).
//
// Cost: a stream whose lines keep one format and offset tries that first and reuses the last
// conversion while the date and hour repeat: tens of nanoseconds a line, no allocation.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "basicutil/text/Str.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

class Logger;

// The "DateParser" channel (warnings) and the "DateParserVerbose" channel (every line).
Logger& dateParserChannel() noexcept;
Logger& dateParserVerboseChannel() noexcept;

// The formats, as named in the comment above.
enum class TimestampFormat : std::uint8_t {
    NONE,
    ISO8601,
    ISO8601_SPACE,
    ISO8601_BASIC,
    YMD_SLASHED,
    RFC2822,
    SYSLOG,
    CLF,
    ASCTIME,
    NUMERIC_SLASHED,
    NUMERIC_DOTTED,
    MYSQL,
    EPOCH_SECONDS,
    EPOCH_MILLIS,
    EPOCH_MICROS,
    EPOCH_NANOS,
    TIME_OF_DAY,
};
inline constexpr std::size_t kTimestampFormats = 17;  // NONE included
// "NONE", "ISO8601", ...: the enumerator's name.
const char* timestampFormatName(TimestampFormat format) noexcept;

// The warnings; dateWarningName gives each name without the prefix ("NO_TIMESTAMP").
enum DateWarning : std::uint8_t {
    DATE_WARN_NO_TIMESTAMP,
    DATE_WARN_WENT_BACKWARDS,
    DATE_WARN_JUMPED_FORWARD,
    DATE_WARN_IN_FUTURE,
    DATE_WARN_FORMAT_CHANGED,
    DATE_WARN_YEAR_INFERRED,
    DATE_WARN_ZONE_ASSUMED,
    DATE_WARN_DAY_MONTH_AMBIGUOUS,
    DATE_WARN_ZONE_ABBREVIATION_AMBIGUOUS,
    DATE_WARN_DATE_BORROWED,
};
inline constexpr std::size_t kDateWarnings = 10;
// "NO_TIMESTAMP", ..., "DATE_BORROWED"; "?" out of range.
const char* dateWarningName(DateWarning warning) noexcept;

// A set of warnings.
class DateWarnings {
  public:
    // Adds one.
    void add(DateWarning w) noexcept { _bits = static_cast<std::uint16_t>(_bits | 1u << w); }
    // Whether it holds `w`.
    bool has(DateWarning w) const noexcept { return (_bits >> w & 1u) != 0; }
    // Whether it holds none.
    bool empty() const noexcept { return _bits == 0; }
    // One bit per warning, DateWarning's value as its position.
    std::uint16_t bits() const noexcept { return _bits; }
    // Whether any of the check warnings (backwards, forward, future, format) is held.
    bool hasCheck() const noexcept {
        return (_bits & (1u << DATE_WARN_WENT_BACKWARDS | 1u << DATE_WARN_JUMPED_FORWARD |
                         1u << DATE_WARN_IN_FUTURE | 1u << DATE_WARN_FORMAT_CHANGED)) != 0;
    }
    friend bool operator==(DateWarnings, DateWarnings) = default;  // the same warnings

  private:
    std::uint16_t _bits = 0;
};

// One line's reading.
struct DateParseResult {
    bool found = false;                              // whether the line has a timestamp
    Timeval time;                                    // the instant (UTC, microseconds), when found
    std::size_t offset = 0;                          // where the timestamp's text starts, in bytes
    std::size_t length = 0;                          // its length in bytes
    TimestampFormat format = TimestampFormat::NONE;  // how it is written
    std::int32_t utcOffset = 0;  // the offset the fields were read with, seconds east of UTC
    DateWarnings warnings;       // what was inferred, and what the checks found
    bool hasPrevious = false;    // whether there was a previous event to check against
    Timeval previous;            // its time, when there was one
};

// How a parser reads and checks; the defaults are what a log reader wants.
struct DateParserOptions {
    // The zone of lines that name none; null: the local zone.
    TimeZonePtr zone;
    // "Now" for the future check, a first line without a year and a first time of day alone;
    // zero: the wall clock, read when the parser starts and again before a line is called future.
    Timeval reference;
    // The year of lines without one; 0: inferred.
    std::int64_t year = 0;
    // Backwards by at most this much is no warning: threads of one program log slightly out of
    // order.
    Timeval backwardsTolerance{1, 0};
    // Forward by more than this is a jump: a day.
    Timeval forwardLimit{86400, 0};
    // After the reference time by more than this is in the future: five minutes of clock skew.
    Timeval futureSlack{300, 0};
};

// "2024-01-02T03:04:05.678000Z": the instant in UTC, six fraction digits (years outside 0..9999
// with their sign and all their digits).
void appendUtcTimestamp(Str& out, Timeval time);
// The same into `out`, which holds kUtcTimestampBytes; returns the length written (no NUL).
inline constexpr std::size_t kUtcTimestampBytes = 48;
std::size_t formatUtcTimestamp(char* out, Timeval time) noexcept;

// Finds the first timestamp in `text` without a stream: no previous event, the local zone (or
// `zone`), now as the reference time. The checks are not made; NO_TIMESTAMP when none is found.
DateParseResult findTimestamp(StrSegment text, const TimeZonePtr& zone = nullptr);

// A parser for one stream of lines. Not for several threads at once.
class DateParser {
  public:
    // With the defaults above.
    DateParser();
    // With options of the caller's.
    explicit DateParser(const DateParserOptions& options);
    ~DateParser();
    DateParser(const DateParser&) = delete;
    DateParser& operator=(const DateParser&) = delete;

    // Reads one line (without its line end; one with it reads the same) and updates the stream's
    // state: the previous event, the format tried first, what has been decided.
    DateParseResult parse(StrSegment line);

    // Lines read, and lines with a timestamp.
    std::uint64_t lines() const noexcept { return _lines; }
    std::uint64_t linesWithTimestamp() const noexcept { return _found; }
    // Forgets the stream (previous event, decisions, warnings said once), not the options.
    void reset() noexcept;

    struct State;  // the stream's state (DateParser.cpp)

  private:
    void sayWarnings(State& s, const DateParseResult& r, std::uint64_t lineNumber, const char* line);

    DateParserOptions _options;
    std::unique_ptr<State> _state;
    std::uint64_t _lines = 0;
    std::uint64_t _found = 0;
};

}  // namespace basicutil
