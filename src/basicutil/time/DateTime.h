// Compiled strftime-like formats: rendering a Timeval in a zone, and parsing text back into the
// fields of a time (TimeFormatRawParseResult), which Timeval::_set turns into a time.
//
// A format compiles once (_setFtime) into atoms, then renders and parses any number of times;
// compiled formats are immutable and may be shared between threads. An invalid format renders
// nothing and parses nothing. Format text and parsed text are user input: neither can reach an
// assertion.
//
// Conversions (flags "#", "^", "-", "_", "0", a width, a modifier "E" or "O", then the letter):
//   %a %A %b %h %B   weekday and month names ("Sun", "Sunday", "Jan", "January")
//   %C %y %Y %G %g %o   century, year of the century, year (%o too), ISO week-based year (4, 2)
//   %m %d %e %j      month, day of month (zero-, space-padded), day of year (3 digits)
//   %H %I %k %l %M %S   hours 00-23, 01-12, 0-23 and 1-12 space-padded, minutes, seconds
//   %p %P            "AM"/"PM" and "am"/"pm"
//   %U %W %V %u %w   weeks (Sunday first, Monday first, ISO), weekday 1-7 (Monday 1), 0-6
//   %Z %z %:z        abbreviation, "+hhmm", "+hh:mm"
//   %s               seconds since 1970 (the floor for times before it), any number of digits
//   %N %Q %f %q      subseconds: 9, 3, 6 and 6 digits by default, a width gives the count (at
//                    most 9; digits past the sixth are zeros); only the "0" flag is allowed
//   %UT              the seconds since 1970 as exactly ten digits: "%UT%3Q" is the 13-digit
//                    millisecond stamp, which "%s%3Q" cannot tell apart from a longer %s
//   %ST              the 14-character sortable code of the time (Timeval::sortableCode)
//   %n %t %%         newline, tab (any run of white space when parsing), "%"
//   %D %F %T %X %R %r %c %+ %v %x   composites: "%m/%d/%y", "%Y-%m-%d", "%H:%M:%S" (twice),
//                    "%H:%M", "%I:%M:%S %p", "%a %b %e %H:%M:%S %Y", the same with " %Z" before
//                    the year, "%e-%b-%Y", and "%a %b %e %Y"
// Rendering follows the C library's strftime in the C locale: "#" upper-cases names and
// lower-cases %p and %Z, "^" upper-cases (%^P too: "PM"); numbers pad with zeros (spaces for %e,
// %k, %l) unless a flag says otherwise; a width pads names with blanks (zeros with "0"); years
// below 1000 are not padded. On a composite, a width pads the whole expansion (zeros with "0",
// blanks otherwise) and "^" upper-cases it; other flags change nothing ("%10T" is
// "  22:13:20"). On %z the sign is a field of its own, padded to the width, and the four digits
// another, flags and width applying to them as to any number ("%_z" is "+ 100", "%-z" "+100");
// %:z, which the C library lacks, pads as GNU date does: "%_:z" is " +1:00", "%-:z" "+1:00". MIN_TIME,
// MAX_TIME and any time with tv_sec 0 render as "<min>", "<max>" and "<zero>", the forms the stream output
// uses, whatever the format, unless the caller asks for their calendar text (TimeFormat::SentinelText): tools
// that show a user a date do.
//
// Parsing: names match case-insensitively, full or abbreviated; numbers take up to their
// field's digits (the width, when given) after optional blanks, and a value too large for its
// field fails; two-digit years 69-99 are 19xx and 00-68 20xx; %z accepts "Z", "+hh", "+hhmm" and
// "+hh:mm"; %Z takes a run of letters, digits, "+" and "-", resolved later; white space in the
// format matches any run of white space, other characters match themselves. A subsecond
// conversion with a width takes exactly that many digits, without one 1 to 9.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "basicutil/text/Str.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/timevalue/DateTimeCalendar.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// Start-up constants (the zone component's own are in TimeZone.h).
extern const char* const kStandardTimeFormatTexts[6];  // "%FT%T%:z", "%FT%T.%Q%:z", ...

// The fields found by TimeFormat::rawParse, each with its bit in `have`.
struct TimeFormatRawParseResult {
    enum : std::uint32_t {
        HAVE_YEAR = 1u << 0,
        HAVE_MONTH = 1u << 1,
        HAVE_DAY = 1u << 2,
        HAVE_HOUR = 1u << 3,
        HAVE_MINUTE = 1u << 4,
        HAVE_SECOND = 1u << 5,
        HAVE_SUBSECONDS = 1u << 6,
        HAVE_YDAY = 1u << 7,
        HAVE_WEEK = 1u << 8,
        HAVE_WEEKDAY = 1u << 9,
        HAVE_EPOCH = 1u << 10,
        HAVE_ZONE = 1u << 11,
        HAVE_MERIDIAN = 1u << 12,  // hour is 1-12 and `pm` tells the half of the day
        HAVE_CENTURY = 1u << 13,   // year holds only the century's years (%y) until combined
    };
    // How `week` counts: %U (weeks start on Sunday), %W (on Monday), or %V (ISO 8601).
    enum WeekKind : std::uint8_t { WEEK_SUNDAY_FIRST, WEEK_MONDAY_FIRST, WEEK_ISO };

    std::uint32_t have = 0;                 // HAVE_ bits
    std::int64_t year = 0;                  // as written, or the century's years with HAVE_CENTURY
    unsigned month = 0;                     // 1-based
    unsigned day = 0;                       // 1-based
    unsigned hour = 0;                      // 0..23, or 1..12 with HAVE_MERIDIAN
    unsigned minute = 0;                    // 0..59
    unsigned second = 0;                    // 0..60
    unsigned yday = 0;                      // 0-based
    unsigned week = 0;                      // as %U, %W or %V number it
    WeekKind weekKind = WEEK_SUNDAY_FIRST;  // which of those
    unsigned weekday = 0;                   // 0 = Sunday
    bool pm = false;                        // with HAVE_MERIDIAN: the second half of the day
    unsigned century = 0;                   // %C, combined with a %y year
    std::int64_t epoch = 0;                 // seconds, with HAVE_EPOCH
    std::uint64_t fracsec = 0;              // encoded subseconds, with HAVE_SUBSECONDS
    std::uint8_t tzType = 0;                // TimeFormat::TZ_AS_SECOFFSET or TZ_AS_NEEDEDOFFSET
    std::int32_t tzOffset = 0;              // seconds east, with TZ_AS_SECOFFSET
    char tzName[16] = {};                   // with TZ_AS_NEEDEDOFFSET, NUL-terminated

    void setFracsec(std::uint64_t encoded) noexcept;         // sets HAVE_SUBSECONDS too
    void store_parsed_epoch(std::int64_t seconds) noexcept;  // sets HAVE_EPOCH too
    // False when the name is longer than tzName holds. zlen > 0.
    [[nodiscard]] bool store_parsed_tzname(const char* name, std::size_t zlen) noexcept;
};

// A compiled time format (the conversions above): renders times in a zone and parses text
// back into fields. Compile once, use from any thread.
class TimeFormat {
  public:
    // The compiled pieces, machinery of the renderers and the parser (DateTime_details.h).
    enum What : std::uint8_t;
    enum Padding : std::uint8_t;
    enum Casing : std::uint8_t;
    struct Atom;

    TimeFormat() noexcept;  // invalid until compiled
    ~TimeFormat();
    // Compiles `format`; valid() says whether it could.
    explicit TimeFormat(StrSegment format);

    TimeFormat(const TimeFormat&) = delete;
    TimeFormat& operator=(const TimeFormat&) = delete;

    // Compiles the format; false (and an invalid object) for an invalid one.
    [[nodiscard]] bool _setFtime(StrSegment format);
    bool valid() const noexcept { return _valid; }               // compiled
    std::size_t atomCount() const noexcept { return _n; }        // atoms compiled
    const Atom* atoms() const noexcept { return _atoms.get(); }  // ... and the atoms
    const Str& text() const noexcept { return _text; }           // the format as given
    // How many decimal digits of the subseconds the rendering depends on (0 to 6): two times in
    // one zone whose seconds and first that many digits agree render the same.
    unsigned subsecondDigitsRendered() const noexcept { return _subsecondDigits; }
    // Different for every compilation in the process, so that a cache can tell formats apart
    // even when one lives where another did.
    std::uint64_t serial() const noexcept { return _serial; }
    // A LITERAL atom's characters (a.x.text.length of them); defined with Atom.
    const char* literalText(const Atom& a) const noexcept;

    // How render() shows the sentinels MIN_TIME, MAX_TIME and ZERO_TIME (any tv_sec of 0).
    enum class SentinelText : std::uint8_t {
        MARKERS,   // "<min>", "<max>", "<zero>": the library's own output, logs included
        CALENDAR,  // the calendar text of their instants, as any other time (1970-01-01 for 0)
    };

    // Appends the time as the zone shows it.
    void render(const Timeval& tv, const TimeZone& zone, Str& output,
                SentinelText sentinels = SentinelText::MARKERS) const;
    // The same from the time's fields already broken down in the zone (several formats of one
    // time break it down once).
    void render(const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at, Str& output,
                SentinelText sentinels = SentinelText::MARKERS) const;
    // The whole text must match. On failure `result.have` may hold fields found before the
    // mismatch, but never a field that was not found.
    [[nodiscard]] bool rawParse(StrSegment text, TimeFormatRawParseResult& result) const noexcept;

    // The named epoch formats: 0 "%UT" .. 18 "%ST"; -1 for other texts.
    static int namedFormatNumber(StrSegment text) noexcept;
    // The entry's text, except number 2 ("UT.%3Q", without its "%", kept as callers know it);
    // "Unknown Vestra Time Format: <n>" for other numbers.
    static void appendNamedFormat(int number, Str& out);

    // The six standard formats, compiled once at start-up.
    static const TimeFormat& standard(std::size_t index) noexcept;

    // The characters PUNCT atoms stand for.
    static constexpr char kPunctuation[] = {',', ' ', ':', '/', '-', '\t', '\n'};

    struct Sink;  // where _fill writes: a buffer in front of the output string

  private:
    friend class TimeFormatParser;

  private:
    void _fill(const Atom& a, const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at,
               Sink& out) const;
    struct Compiler;

    void buildLayout();
    // Writes exactly _layout.size() bytes at text.
    void renderLayout(const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at, char* text) const;

    Str _text;
    Str _literals;
    std::unique_ptr<Atom[]> _atoms;
    std::size_t _n = 0;
    bool _valid = false;
    // For a format whose every atom has one width (most machine formats): the rendered text
    // with the fixed characters in place, and where each field goes. Rendering a year from 1000
    // to 9999 then copies it and writes the fields into the copy.
    enum TwoDigitField : std::uint8_t;
    struct Slot;
    static std::uint8_t twoDigitFieldOf(What what) noexcept;
    Str _layout;
    std::vector<Slot> _slots;
    bool _hasLayout = false;
    unsigned _subsecondDigits = 0;
    std::uint64_t _serial = 0;
};

// --- Calendar helpers over parsed fields ---

// Month (1-12) and day of the month of a 0-based day of the year, common and leap years alike.
// The day must lie inside the year.
void computeMmddFromYday(std::int64_t year, unsigned yday, unsigned& month, unsigned& monthday);
// 00:00:00 UTC of a date; month 0-based (< 12), monthday 1-based.
std::int64_t dayStartTime(std::int64_t year, unsigned month, unsigned monthday) noexcept;
// The day of result.week and result.weekday counted from January 1 of result.year (0), as
// result.weekKind counts weeks. An ISO week may begin in December or end in January, so its days
// may fall before or after the year; the other kinds give false for a day outside it. Needs the
// year.
[[nodiscard]] bool computeYdayFromYweek(const TimeFormatRawParseResult& result, int& yday);

}  // namespace basicutil
