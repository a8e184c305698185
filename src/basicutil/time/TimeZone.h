// Time zones: for a zone and a time, the offset from UTC, the abbreviation and whether daylight
// time is in force; and the inverse, local fields to a time.
//
// Zones come from TZif files (versions 1 to 4) in the zone directory ($TZDIR, else
// /usr/share/zoneinfo), from a packed archive of such files (TimeZoneArchive.h), from a POSIX
// TZ rule ("CET-1CEST,M3.5.0,M10.5.0/3"), from the serialized text form, or are fixed (UTC, or
// an offset with an abbreviation). Times past a file's last transition follow the rule in its
// footer. Zones with leap-second records ("right/...") count leap seconds in their times, and a
// leap second breaks down as second 60.
//
// A zone is immutable once built and safe to share between threads; zones loaded by name are
// cached for the life of the process. Bad input never crashes or asserts: loaders return null
// and say why in *error.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"
#include "basicutil/timevalue/DateTimeCalendar.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

class TimeZone;
// Zones are shared: a loaded zone lives as long as its last holder (and the cache).
using TimeZonePtr = std::shared_ptr<const TimeZone>;

// Start-up constants of the unit.
extern const char* const kTimeZoneDirectoryName;     // "zoneinfo", under /usr/share unless $TZDIR
extern const char* const kLocalTimeZoneFile;         // "/etc/localtime"
extern const char* const kSerializedTimeZoneHeader;  // "### SERIALIZED TIMEZONE FORMAT 1.0"

// The local time in force at one instant.
struct TimeZoneLookup {
    std::int32_t utcOffset = 0;     // seconds east of UTC
    bool isDst = false;             // daylight (or other non-standard) time
    const char* abbreviation = "";  // NUL-terminated, lives as long as the zone
};

// Local fields, normalised: month 1..12, day 1..31, hour 0..23, minute 0..59, second 0..60
// (60 only for a leap second of a zone that counts them).
struct CivilTime {
    std::int64_t year = 1970;  // proleptic Gregorian; 0 is 1 BC
    unsigned month = 1;        // 1..12
    unsigned day = 1;          // 1..31
    unsigned hour = 0;         // 0..23
    unsigned minute = 0;       // 0..59
    unsigned second = 0;       // 0..60
    unsigned weekday = 4;      // 0 = Sunday
    unsigned yearDay = 0;      // 0-based
};

// Which instant local fields stand for when a transition makes them skipped or repeated.
enum class LocalTimeChoice : std::uint8_t {
    // The offset in force before the transition: a repeated time is its earlier instant, a
    // skipped time reads as if the clock had not moved (02:30 in a spring-forward gap is
    // 03:30 daylight time). What C's mktime does with tm_isdst -1.
    PRE_TRANSITION,
    // The offset in force after it: the later instant of a repeated time; a skipped time reads
    // with the new offset (02:30 becomes 01:30 standard time).
    POST_TRANSITION,
};

// What local fields resolved to (TimeZone::resolveLocal).
struct LocalTimeResolution {
    // The fields name one instant, none (a gap), or two (an overlap).
    enum Kind : std::uint8_t { UNIQUE, SKIPPED, REPEATED };
    std::int64_t seconds = 0;  // the instant chosen, seconds since the epoch
    Kind kind = UNIQUE;
    TimeZoneLookup lookup;  // at the chosen instant
};

// One offset an abbreviation may stand for (see offsetsForAbbreviation).
struct AbbreviationOffset {
    std::int32_t utcOffset;  // seconds east of UTC
    bool isDst;              // daylight time
    friend bool operator==(const AbbreviationOffset&, const AbbreviationOffset&) = default;  // both fields
};

// One zone: its local time types, the transitions between them, leap seconds, and the rule for
// times past the last transition. Immutable; shared through TimeZonePtr.
class TimeZone {
  public:
    // A local time type: an offset, whether it is daylight time, and its abbreviation.
    struct Type {
        std::int32_t utcOffset;      // seconds east of UTC
        bool isDst;                  // daylight time
        std::uint32_t abbreviation;  // index into the zone's abbreviation bytes
        friend bool operator==(const Type&, const Type&) = default;  // all fields
    };
    // A leap-second record.
    struct LeapSecond {
        std::int64_t occurrence;  // in the zone's own count of seconds
        std::int64_t correction;  // seconds to subtract from then on
        friend bool operator==(const LeapSecond&, const LeapSecond&) = default;  // both fields
    };

    // --- Getting a zone ---
    // UTC: offset 0, abbreviation "UTC".
    static TimeZonePtr utc();
    // Each loader below sets `out` and returns success, or returns why not and leaves `out`
    // alone: EINVAL for text or bytes that are malformed, the errno of a file that cannot be read.
    //
    // Offset -25 h .. +25 h exclusive; an empty abbreviation gives "+hh", "+hhmm" or "+hhmmss".
    static Status fixed(std::int32_t utcOffset, StrSegment abbreviation, TimeZonePtr& out);
    // "America/New_York": the installed archive (useArchive) first, then the zone directory.
    // Cached. A name that could leave the directory (absolute, "..") is refused.
    static Status load(StrSegment name, TimeZonePtr& out);
    // A zone as the TZ variable gives one: an optional ":", then an absolute file, a name that
    // load() finds, or a POSIX rule ("CET-1CEST,M3.5.0,M10.5.0/3", "<+0330>-3:30"). A failure
    // for an empty value or one that is none of these (ENOENT when no such zone is installed);
    // the text never repeats the value, so that a caller names it once ("no such zone in
    // /usr/share/zoneinfo, and not a POSIX TZ rule (the standard-time offset)").
    static Status fromTzValue(StrSegment value, TimeZonePtr& out);
    // $TZ as fromTzValue reads it, else /etc/localtime, else UTC (also when $TZ names nothing).
    // Read once; reloadLocal() reads them again.
    static TimeZonePtr local();
    static TimeZonePtr reloadLocal();
    // The local zone without a lock or a reference count, for hot paths; valid for the life of
    // the process (zones replaced by reloadLocal are kept).
    static const TimeZone& localZone();

    // A zone from a TZif file, TZif bytes (named `name`), a POSIX TZ rule (the offset of a
    // failure is where the rule stopped making sense), or the text serialize() writes.
    static Status fromFile(const char* path, TimeZonePtr& out);
    static Status fromTzif(StrSegment name, StrSegment bytes, TimeZonePtr& out);
    static Status fromPosixRule(StrSegment rule, TimeZonePtr& out);
    static Status fromSerialized(StrSegment text, TimeZonePtr& out);
    // The zone directory: $TZDIR, else /usr/share/zoneinfo.
    static Str directory();

    // --- Converting ---
    // The local time in force at `seconds` (seconds since the epoch; any 64-bit value).
    TimeZoneLookup lookup(std::int64_t seconds) const noexcept;
    // False only when the year does not fit in 64 bits (never for a 64-bit time).
    [[nodiscard]] bool breakDown(std::int64_t seconds, CivilTime& civil,
                                 TimeZoneLookup* at = nullptr) const noexcept;
    // Fields may be out of range (month 14, day 0, second -1) and are normalised as mktime does:
    // seconds outside 0..59 count on from the start of the minute, so that 23:59:60 is the leap
    // second itself in a zone that counts them, and the kind is the minute's. False when the
    // fields, as seconds, or the result do not fit in a 64-bit time.
    [[nodiscard]] bool resolveLocal(std::int64_t year, std::int64_t month, std::int64_t day,
                                    std::int64_t hour, std::int64_t minute, std::int64_t second,
                                    LocalTimeResolution& out,
                                    LocalTimeChoice choice = LocalTimeChoice::PRE_TRANSITION) const noexcept;

    // True, with the offset, for a zone whose offset never changes (UTC, fixed zones).
    bool fixedOffset(std::int32_t& utcOffset) const noexcept {
        if (!_table.empty() || _rule != nullptr || !_leaps.empty()) return false;
        utcOffset = _types[_initialType].utcOffset;
        return true;
    }

    // --- Describing ---
    // The name it was loaded by ("America/New_York", a file's path, the rule, "UTC").
    const Str& name() const noexcept { return _name; }
    // The transitions read from the source, ascending, and the local time each one starts.
    const std::vector<std::int64_t>& transitions() const noexcept { return _transitions; }
    const std::vector<LeapSecond>& leapSeconds() const noexcept { return _leaps; }  // ascending
    // The footer or source rule ("EST5EDT,M3.2.0,M11.1.0"), empty when there is none.
    const Str& posixRule() const noexcept { return _ruleText; }
    Str serialize() const;  // a text form that fromSerialized reads back as the same zone
    // Same name, types, transitions, leap seconds and rule.
    bool sameAs(const TimeZone& other) const noexcept;

    // The offsets an abbreviation ("CST", "ist", "UTC") may stand for near the reference time,
    // most likely first: the types of this zone in use within a year of the reference time
    // (nearest first), then the library's table of common abbreviations in its order of
    // preference (CST: US Central, China, Cuba; IST: India, Ireland, Israel; BST: British
    // Summer Time, Bangladesh). Case-insensitive; empty when nothing matches. Numeric forms are
    // the caller's business.
    std::vector<AbbreviationOffset> offsetsForAbbreviation(StrSegment abbreviation,
                                                           std::int64_t reference) const;

    // Built by the loaders; public for make_shared.
    struct Data;
    // Takes a loader's checked data.
    explicit TimeZone(Data&& data);

    ~TimeZone();
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

  private:
    struct Piece;
    Piece pieceAt(std::int64_t seconds) const noexcept;
    TimeZoneLookup lookupType(std::size_t type) const noexcept {
        const Type& t = _types[type];
        return {t.utcOffset, t.isDst, _abbreviations.c_str() + t.abbreviation};
    }
    std::int64_t leapCorrection(std::int64_t seconds, unsigned* hit) const noexcept;
    void buildTable();

    Str _name;
    Str _abbreviations;  // NUL-separated
    std::vector<Type> _types;
    std::size_t _fileTypes = 0;  // the rule's types, when not among these, come after them
    std::vector<std::int64_t> _transitions;
    std::vector<std::uint8_t> _transitionTypes;
    std::size_t _initialType = 0;  // before the first transition
    std::vector<LeapSecond> _leaps;
    Str _ruleText;
    std::unique_ptr<struct PosixTimeZoneRule> _rule;  // null without a rule
    std::size_t _ruleStdType = 0, _ruleDstType = 0;
    std::int64_t _ruleFrom = 0;  // the rule governs from here on (the last transition)
    // What lookups search: the transitions, then the rule's changes worked out to 2200, each with
    // the type in force from it; and for each span of 2^22 s (48 days) from the first entry, the
    // last entry at or before the span's start, so that a lookup is a load and a step or two.
    std::vector<std::int64_t> _table;
    std::vector<std::uint8_t> _tableTypes;
    std::vector<std::uint32_t> _buckets;
    std::int32_t _minOffset = 0, _maxOffset = 0;
};

}  // namespace basicutil
