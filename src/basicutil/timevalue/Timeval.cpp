#include "basicutil/timevalue/Timeval.h"

#include <bit>
#include <cmath>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/DecimalText.h"

namespace basicutil {

namespace {

constexpr std::int64_t kUsecPerSec = 1000000;
constexpr std::int64_t kNsecPerSec = ONE_BILLION_AS_TVNSECS_TYPE;

// --- Saturating arithmetic, once for both types --------------------------------------------

constexpr std::int64_t unitsPerSecond(const Timeval&) {
    return kUsecPerSec;
}
constexpr std::int64_t unitsPerSecond(const Timespec&) {
    return kNsecPerSec;
}
std::int64_t& fractionOf(Timeval& t) {
    return t.tv_usec;
}
std::int64_t& fractionOf(Timespec& t) {
    return t.tv_nsec;
}
std::int64_t fractionOf(const Timeval& t) {
    return t.tv_usec;
}
std::int64_t fractionOf(const Timespec& t) {
    return t.tv_nsec;
}

// Adds whole seconds and a fraction below one second (in T's own unit), saturating at MAX_TIME.
template <typename T>
void addSplit(T& t, std::int64_t seconds, std::int64_t fraction) noexcept {
    const std::int64_t perSecond = unitsPerSecond(t);
    if (t.tv_sec > INT64_MAX - seconds) {
        t = T::MAX_TIME;
        return;
    }
    t.tv_sec += seconds;
    std::int64_t& f = fractionOf(t);
    f += fraction;
    if (f < perSecond) return;
    VESTRA_ASSERT(f < 2 * perSecond);
    if (t.tv_sec == INT64_MAX) {
        t = T::MAX_TIME;
        return;
    }
    t.tv_sec += 1;
    f -= perSecond;
}

template <typename T>
void subtractSplit(T& t, std::int64_t seconds, std::int64_t fraction) noexcept {
    const std::int64_t perSecond = unitsPerSecond(t);
    if (t.tv_sec < INT64_MIN + seconds) {
        t = T::MIN_TIME;
        return;
    }
    t.tv_sec -= seconds;
    std::int64_t& f = fractionOf(t);
    f -= fraction;
    if (f >= 0) return;
    VESTRA_ASSERT(f >= -perSecond);
    if (t.tv_sec == INT64_MIN) {
        t = T::MIN_TIME;
        return;
    }
    t.tv_sec -= 1;
    f += perSecond;
}

// a - b in seconds: exact in 128 bits first, one rounding to double last. Near the sentinels the
// seconds as doubles would swallow the fraction, and its sign.
template <typename T>
double diffInSeconds(const T& a, const T& b) noexcept {
    const std::int64_t perSecond = unitsPerSecond(a);
    const Int128 units =
        (static_cast<Int128>(a.tv_sec) - b.tv_sec) * perSecond + (fractionOf(a) - fractionOf(b));
    return static_cast<double>(units) / static_cast<double>(perSecond);
}

// A count of 1/countPerSecond seconds, split into seconds and T's fraction unit.
template <typename T>
void addCount(T& t, std::uint64_t count, std::uint64_t countPerSecond) noexcept {
    const auto scale = static_cast<std::uint64_t>(unitsPerSecond(t)) / countPerSecond;
    addSplit(t, static_cast<std::int64_t>(count / countPerSecond),
             static_cast<std::int64_t>(count % countPerSecond * scale));
}
template <typename T>
void subtractCount(T& t, std::uint64_t count, std::uint64_t countPerSecond) noexcept {
    const auto scale = static_cast<std::uint64_t>(unitsPerSecond(t)) / countPerSecond;
    subtractSplit(t, static_cast<std::int64_t>(count / countPerSecond),
                  static_cast<std::int64_t>(count % countPerSecond * scale));
}

}  // namespace

// --- Timeval arithmetic -------------------------------------------------------------------

void Timeval::addUsec(std::uint64_t usec) noexcept {
    addCount(*this, usec, 1000000);
}

void Timeval::_add(std::uint64_t ms) noexcept {
    addCount(*this, ms, 1000);
}

void Timeval::addSeconds(std::uint32_t seconds) noexcept {
    if (tv_sec > INT64_MAX - seconds) {
        *this = MAX_TIME;
        return;
    }
    tv_sec += seconds;
}

void Timeval::subtractUsec(std::uint64_t usec) noexcept {
    subtractCount(*this, usec, 1000000);
}

void Timeval::_subtract(std::uint64_t ms) noexcept {
    subtractCount(*this, ms, 1000);
}

void Timeval::subtractSeconds(std::uint32_t seconds) noexcept {
    if (tv_sec < INT64_MIN + seconds) {
        *this = MIN_TIME;
        return;
    }
    tv_sec -= seconds;
}

std::int64_t Timeval::diffUsec(const Timeval& other) const noexcept {
    // Unsigned arithmetic: the result wraps instead of being undefined.
    const std::uint64_t dsec = static_cast<std::uint64_t>(tv_sec) - static_cast<std::uint64_t>(other.tv_sec);
    const std::uint64_t dusec =
        static_cast<std::uint64_t>(tv_usec) - static_cast<std::uint64_t>(other.tv_usec);
    return static_cast<std::int64_t>(dsec * 1000000 + dusec);
}

std::int64_t Timeval::diffMsRoundedUp(const Timeval& other) const noexcept {
    std::uint64_t dsec = static_cast<std::uint64_t>(tv_sec) - static_cast<std::uint64_t>(other.tv_sec);
    std::int64_t dusec = tv_usec - other.tv_usec;
    if (dusec < 0) {
        dsec -= 1;
        dusec += kUsecPerSec;
    }
    return static_cast<std::int64_t>(dsec * 1000 + static_cast<std::uint64_t>((dusec + 999) / 1000));
}

double Timeval::diffSeconds(const Timeval& other) const noexcept {
    return diffInSeconds(*this, other);
}

void Timeval::truncateToSeconds(std::uint32_t n) noexcept {
    if (n > 1) tv_sec -= tv_sec % static_cast<std::int64_t>(n);
    tv_usec = 0;
}

void Timeval::snapMillisecond(std::uint32_t span) noexcept {
    VESTRA_ASSERT(span < 1000);
    tv_usec -= tv_usec % (static_cast<std::int64_t>(span) * 1000);
}

// --- Encoded subseconds -------------------------------------------------------------------

namespace {

// The fraction as it is written after the point: for negative times the complement.
std::int64_t writtenFraction(const Timeval& tv) {
    return (tv.tv_sec < 0 && tv.tv_usec != 0) ? kUsecPerSec - tv.tv_usec : tv.tv_usec;
}

// Digit i (0-based, after the point) of a six-digit fraction; zero past the sixth.
unsigned fractionDigit(std::int64_t fraction, unsigned i) {
    static constexpr std::int64_t kDivisors[] = {100000, 10000, 1000, 100, 10, 1};
    return i < 6 ? static_cast<unsigned>(fraction / kDivisors[i] % 10) : 0;
}

}  // namespace

std::uint64_t Timeval::encodeSubseconds(unsigned digits) const noexcept {
    VESTRA_ASSERT(digits <= 18);
    if (digits == 0) return 1;
    const std::int64_t fraction = writtenFraction(*this);
    unsigned zeros = 0;
    while (zeros < digits && fractionDigit(fraction, zeros) == 0) ++zeros;
    if (zeros == digits) return std::uint64_t{1} << digits;
    std::uint64_t d = 0;
    for (unsigned i = zeros; i < digits; ++i) d = d * 10 + fractionDigit(fraction, i);
    return ((d * 2) + 1) << zeros;
}

void Timeval::addEncodedSubseconds(std::uint64_t encoded) noexcept {
    if (std::has_single_bit(encoded)) return;
    const auto zeros = static_cast<unsigned>(std::countr_zero(encoded));
    encoded = zeros < 64 ? encoded >> zeros : 0;  // the odd remainder
    VESTRA_ASSERT(encoded > 1);
    encoded >>= 1;
    for (unsigned position = zeros + decimalDigitCount(encoded); position != 6;) {
        if (position < 6) {
            encoded *= 10;
            ++position;
        } else {
            encoded /= 10;
            --position;
        }
    }
    VESTRA_ASSERT(encoded < 1000000);

    auto fraction = static_cast<std::int64_t>(encoded);
    Timeval& _tv = *this;
    if (_tv.tv_sec < 0 && fraction != 0) {
        if (_tv.tv_sec == INT64_MIN) {
            _tv.tv_usec = 0;
            return;
        }
        _tv.tv_sec -= 1;
        fraction = kUsecPerSec - fraction;
    }
    _tv.tv_usec += fraction;
    if (_tv.tv_usec <= 999999) return;
    VESTRA_ASSERT(_tv.tv_usec < 2000000);
    if (_tv.tv_sec == INT64_MAX) {
        _tv.tv_usec = 999999;
        return;
    }
    _tv.tv_sec += 1;
    _tv.tv_usec -= kUsecPerSec;
}

// --- Doubles --------------------------------------------------------------------------------

Timeval Timeval::fromDouble(double seconds) noexcept {
    if (std::isnan(seconds)) return {};
    if (seconds >= 9.223372036854776e18) return MAX_TIME;
    if (seconds <= -9.223372036854776e18) return MIN_TIME;
    double whole = 0;
    const double fraction = std::modf(seconds, &whole);
    Timeval tv;
    tv.tv_sec = static_cast<std::int64_t>(whole);
    if (fraction < 0) {
        tv.tv_sec -= 1;
        tv.tv_usec = static_cast<std::int32_t>(fraction * -1000000);
    } else {
        tv.tv_usec = static_cast<std::int32_t>(fraction * 1000000);
    }
    if (tv.tv_usec > 999999) {
        tv.tv_usec -= kUsecPerSec;
        tv.tv_sec += 1;
    }
    return tv;
}

std::uint64_t doubleSecondsToUsec(double seconds) noexcept {
    const double usec = seconds * 1e6;
    constexpr double kTwo63 = 9223372036854775808.0;
    if (std::isnan(usec)) return 0;
    if (usec >= 2 * kTwo63) return UINT64_MAX;
    if (usec >= kTwo63)
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(usec - kTwo63)) ^ (1ULL << 63);
    if (usec <= -kTwo63) return 1ULL << 63;
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(usec));
}

// --- Timespec -----------------------------------------------------------------------------

namespace {
struct SplitNanoseconds {
    std::uint64_t sec;
    std::uint64_t nsec;
};
}  // namespace

static void subtract_timespec(std::uint64_t ns, SplitNanoseconds* rvp) noexcept {
    rvp->sec = ns / static_cast<std::uint64_t>(ONE_BILLION_AS_TVNSECS_TYPE);
    rvp->nsec = ns % static_cast<std::uint64_t>(ONE_BILLION_AS_TVNSECS_TYPE);
    VESTRA_ASSERT_TEXT(rvp->nsec < static_cast<std::uint64_t>(ONE_BILLION_AS_TVNSECS_TYPE),
                       "rvp->nsec < (unsigned) ONE_BILLION_AS_TVNSECS_TYPE");
}

struct timespec Timespec::toPlatform() const noexcept {
    struct timespec ts {};
    ts.tv_sec = static_cast<time_t>(tv_sec);
    ts.tv_nsec = static_cast<long>(tv_nsec);
    return ts;
}

void Timespec::addMs(std::uint64_t ms) noexcept {
    addCount(*this, ms, 1000);
}

void Timespec::addNs(std::uint64_t ns) noexcept {
    addCount(*this, ns, 1000000000);
}

void Timespec::subtractMs(std::uint64_t ms) noexcept {
    subtractCount(*this, ms, 1000);
}

void Timespec::subtractNs(std::uint64_t ns) noexcept {
    SplitNanoseconds split{};
    subtract_timespec(ns, &split);
    subtractSplit(*this, static_cast<std::int64_t>(split.sec), static_cast<std::int64_t>(split.nsec));
}

double Timespec::diffSeconds(const Timespec& other) const noexcept {
    return diffInSeconds(*this, other);
}

}  // namespace basicutil
