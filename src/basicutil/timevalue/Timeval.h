// Points in time and signed spans of time: whole seconds plus microseconds since
// 1970-01-01 00:00:00 UTC (Timeval), and the nanosecond companion used for monotonic
// measurements and wait deadlines (Timespec).
//
// Arithmetic saturates at the sentinels MIN_TIME and MAX_TIME instead of overflowing; the
// sentinels are ordinary values that every renderer and the sortable code print specially.
//
// Broken-down calendar time is in TimevalStructTm.h, elapsed-time descriptions in
// TimevalElapsed.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <string>

namespace basicutil {

struct TimeFormatRawParseResult;
class TimeZone;

// A point in time, or a signed span: seconds and microseconds, always normalised.
struct Timeval {
    std::int64_t tv_sec = 0;  // seconds since the epoch (or of the span)
    // 0..999999 in every stored value, also before 1970: -1.25 s is {-2, 750000}.
    std::int64_t tv_usec = 0;

    static const Timeval MIN_TIME;  // {INT64_MIN, 0}
    static const Timeval MAX_TIME;  // {INT64_MAX, 999999}

    // Whether the value is the sentinel exactly.
    constexpr bool isMax() const noexcept { return tv_sec == INT64_MAX && tv_usec == 999999; }
    constexpr bool isMin() const noexcept { return tv_sec == INT64_MIN && tv_usec == 0; }
    // ZERO_TIME is any value whose seconds are 0; its microseconds are not looked at.
    constexpr bool isZero() const noexcept { return tv_sec == 0; }

    // --- Clocks (TimevalClock.cpp) ---
    static Timeval now() noexcept;              // gettimeofday; aborts if it fails
    static std::int64_t nowSeconds() noexcept;  // now().tv_sec

    // --- Saturating arithmetic ---
    // Adds or subtracts microseconds, milliseconds (_add, _subtract) or seconds, stopping at
    // MAX_TIME or MIN_TIME.
    void addUsec(std::uint64_t usec) noexcept;
    void _add(std::uint64_t ms) noexcept;
    void addSeconds(std::uint32_t seconds) noexcept;
    void subtractUsec(std::uint64_t usec) noexcept;
    void _subtract(std::uint64_t ms) noexcept;
    void subtractSeconds(std::uint32_t seconds) noexcept;

    // this - other. Microseconds wrap on overflow (unchecked); milliseconds round up.
    std::int64_t diffUsec(const Timeval& other) const noexcept;
    std::int64_t diffMsRoundedUp(const Timeval& other) const noexcept;
    double diffSeconds(const Timeval& other) const noexcept;

    // Negative, zero or positive, by seconds then microseconds.
    constexpr int compare(const Timeval& other) const noexcept {
        if (tv_sec != other.tv_sec) return tv_sec < other.tv_sec ? -1 : 1;
        if (tv_usec != other.tv_usec) return tv_usec < other.tv_usec ? -1 : 1;
        return 0;
    }

    // Comparisons in time order.
    friend constexpr bool operator==(const Timeval&, const Timeval&) = default;
    friend constexpr bool operator<(const Timeval& a, const Timeval& b) noexcept { return a.compare(b) < 0; }
    friend constexpr bool operator<=(const Timeval& a, const Timeval& b) noexcept {
        return a.compare(b) <= 0;
    }

    // For n > 1 moves the seconds to a multiple of n (toward zero for negative seconds);
    // always clears the microseconds.
    void truncateToSeconds(std::uint32_t n) noexcept;
    // Rounds the microseconds down to a multiple of span milliseconds. 0 < span < 1000.
    void snapMillisecond(std::uint32_t span) noexcept;

    // --- Encoded subseconds ---
    // A fraction of k digits whose first z are zeros and whose remaining digits form d is
    // ((d * 2) + 1) << z; an all-zero fraction is 1 << k. k <= 18.
    std::uint64_t encodeSubseconds(unsigned digits) const noexcept;
    // Adds an encoded fraction (a power of two adds nothing), carrying into the seconds.
    void addEncodedSubseconds(std::uint64_t encoded) noexcept;

    // --- Doubles ---
    // Negative fractions are kept as tv_sec - 1 + |f|, on purpose: -1.25 gives {-2, 250000}.
    // Values beyond +-9.223372036854776e18 saturate; NaN gives {0, 0}.
    static Timeval fromDouble(double seconds) noexcept;
    // Seconds as a double (microseconds are then approximate far from 1970).
    double toDouble() const noexcept {
        return static_cast<double>(tv_sec) + static_cast<double>(tv_usec) * 1e-6;
    }

    // --- Text (TimevalText.cpp) ---
    // Decimal seconds: optional "-", at least one digit, optionally "." and digits. Fraction
    // digits past the sixth are dropped. Returns false (target unchanged) on anything else.
    [[nodiscard]] bool mem_parse_into(const char* data, std::size_t len) noexcept;
    [[nodiscard]] bool parse_into(const char* text) noexcept;
    // Decimal seconds with `fractionDigits` digits after the point (none: no point); digits
    // past the sixth are "0", nothing is rounded.
    void appendDecimal(std::string& out, unsigned fractionDigits) const;
    std::string toDecimal(unsigned fractionDigits) const;

    // A 14-character code that sorts as text in time order and survives case folding.
    static constexpr std::size_t kSortableCodeLength = 14;
    void encodeSortable(char (&out)[kSortableCodeLength]) const noexcept;
    std::string sortableCode() const;
    // Exactly 14 bytes. A code before 1970 decodes to MAX_TIME.
    [[nodiscard]] bool decodeSortable(const char* data, std::size_t len) noexcept;

    // "MAX_TIME", "MIN_TIME", "ZERO_TIME", or the local time in asctime's layout without its
    // newline, the year unpadded whatever its digits ("Mon Jan  1 00:00:00 12345", "Sat Jan  1
    // 00:00:00 999"), the same on every platform; "INVALID_TIME (<seconds>)" when the local time
    // cannot be computed.
    std::string debugText() const;

    // "<min>", "<max>", "<zero>" or seconds "." six-digit microseconds.
    void appendStreamForm(std::string& out) const;

    // --- From parsed text (DateTimeParse.cpp) ---
    // The time a parse's fields stand for: its epoch when it found one; otherwise its date and
    // clock (missing: the reference's year as the zone sees it, January, the 1st, 00:00:00) read
    // with the parsed offset or abbreviation, else in `zone`. The subseconds count up from the
    // whole second. False for a date that does not exist or an unknown abbreviation; the value
    // is then left alone.
    [[nodiscard]] bool _set(const TimeFormatRawParseResult& parsed, const TimeZone& zone,
                            const Timeval& reference) noexcept;
};

inline constexpr Timeval Timeval::MIN_TIME{INT64_MIN, 0};
inline constexpr Timeval Timeval::MAX_TIME{INT64_MAX, 999999};

// Writes appendStreamForm's text.
std::ostream& operator<<(std::ostream& os, const Timeval& tv);

// Nanoseconds in a second, in tv_nsec's type.
inline constexpr std::int64_t ONE_BILLION_AS_TVNSECS_TYPE = 1000000000;

// A point on a clock, or a signed span, in seconds and nanoseconds, always normalised.
struct Timespec {
    std::int64_t tv_sec = 0;   // seconds
    std::int64_t tv_nsec = 0;  // 0..999999999

    static const Timespec MIN_TIME;  // {INT64_MIN, 0}
    static const Timespec MAX_TIME;  // {INT64_MAX, 999999999}

    // From and to the platform's struct timespec.
    static constexpr Timespec fromPlatform(const struct timespec& ts) noexcept {
        return {ts.tv_sec, ts.tv_nsec};
    }
    struct timespec toPlatform() const noexcept;

    // The clock chosen for waits (ThreadClockChoice.h): CLOCK_MONOTONIC, or the UTC clock. A
    // failed read is fatal.
    static Timespec monotonicNow() noexcept;
    // A condition-wait deadline `ms` from now on the same clock.
    static Timespec deadlineAfterMs(std::uint64_t ms) noexcept;

    // Adds or subtracts milliseconds or nanoseconds, stopping at MAX_TIME or MIN_TIME.
    void addMs(std::uint64_t ms) noexcept;
    void addNs(std::uint64_t ns) noexcept;
    void subtractMs(std::uint64_t ms) noexcept;
    void subtractNs(std::uint64_t ns) noexcept;

    double diffSeconds(const Timespec& other) const noexcept;  // this - other

    friend constexpr bool operator==(const Timespec&, const Timespec&) = default;  // both fields

    // "%lld.%09u": the fields as they are, 1.5 s is "1.500000000".
    void appendDecimal(std::string& out) const;
};

inline constexpr Timespec Timespec::MIN_TIME{INT64_MIN, 0};
inline constexpr Timespec Timespec::MAX_TIME{INT64_MAX, 999999999};

// --- Durations (TimevalText.cpp) ---

// Seconds with an optional fraction ("2.5", ".5") as milliseconds, rounded half up. A duration
// that is not zero never parses as 0 ms; from 18446744073709552 s on the result is the infinite
// duration 2^64-1.
[[nodiscard]] bool mem_parse_seconds_as_ms(const char* data, std::size_t len, std::uint64_t& ms) noexcept;

// Signed whole seconds with an optional "-"; saturates on overflow (the rest must be digits).
[[nodiscard]] bool mem_parse_signed_seconds(const char* data, std::size_t len,
                                            std::int64_t& seconds) noexcept;

void appendMsAsSeconds(std::string& out, std::uint64_t ms);  // "%llu.%03u"
void appendNsAsSeconds(std::string& out, std::uint64_t ns);  // "%llu.%09lu"

// Rounded up, saturating at ceil((2^64-1)/1000); 2^64-1 (infinite) passes through.
std::uint64_t usecToMsRoundedUp(std::uint64_t usec) noexcept;

// seconds * 1e6 as unsigned: from 2^63 on through the sign bit, negative values wrap as two's
// complement; 2^64 and above saturate to 2^64-1, NaN gives 0.
std::uint64_t doubleSecondsToUsec(double seconds) noexcept;

// --- Clocks (TimevalClock.cpp) ---

// usleep(ms * 1000) with the product in 32 bits: it wraps above 4294967 ms, on purpose.
// Returns early if a signal interrupts the sleep.
void sleepMs(std::uint32_t ms) noexcept;

// A process-wide "now" that readers take without locks or system calls; at most one update old.
class CoarseClock {
  public:
    // Stores gettimeofday as (seconds << 30) | (microseconds * 1000).
    static void updateCoarseNow() noexcept;
    // The stored time, or gettimeofday until the first update.
    static Timeval coarseNow() noexcept;
};

}  // namespace basicutil
