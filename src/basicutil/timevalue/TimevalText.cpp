// Parsers and renderers of Timeval: decimal seconds, durations, the sortable code, the debug
// text and the stream form.
#include <cstring>
#include <ostream>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/timevalue/DateTimeCalendar.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

namespace {

constexpr std::uint64_t kTwo63 = 1ULL << 63;
constexpr std::int64_t FRAC_START_DIGIT = 100000;  // weight of the first fraction digit

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
unsigned digitValue(char c) {
    return static_cast<unsigned>(c - '0');
}

// Seconds and fraction as the decimal forms write them: a negative time with microseconds
// is written as -(|seconds| - 1) and the complement of its microseconds.
struct WrittenTime {
    bool negative;
    std::uint64_t magnitude;  // valid when negative
    std::int64_t fraction;
};

WrittenTime written(const Timeval& tv) {
    if (tv.tv_usec != 0 && tv.tv_sec < 0) {
        return {true, static_cast<std::uint64_t>(-(tv.tv_sec + 1)), 1000000 - tv.tv_usec};
    }
    return {false, 0, tv.tv_usec};
}

void appendWrittenSeconds(std::string& out, const Timeval& tv, const WrittenTime& w) {
    if (w.negative) {
        out.push_back('-');
        appendUnsigned(out, w.magnitude);
    } else {
        appendSigned(out, tv.tv_sec);
    }
}

}  // namespace

// --- Decimal seconds ---------------------------------------------------------------------------

bool Timeval::mem_parse_into(const char* data, std::size_t len) noexcept {
    const char* p = data;
    const char* const end = data + len;
    const bool negative = p != end && *p == '-';
    if (negative) ++p;
    if (p == end || !isDigit(*p)) return false;

    std::uint64_t whole = 0;
    for (; p != end && isDigit(*p); ++p) {
        const unsigned d = digitValue(*p);
        if (whole > (UINT64_MAX - d) / 10) return false;
        whole = whole * 10 + d;
    }
    std::int64_t fracPart = 0;
    if (p != end && *p == '.') {
        std::int64_t weight = FRAC_START_DIGIT;
        for (++p; p != end; ++p) {
            if (!isDigit(*p)) return false;
            fracPart += weight * digitValue(*p);
            weight /= 10;  // 0 after the sixth digit: later digits are checked, then dropped
        }
        VESTRA_ASSERT(fracPart < (FRAC_START_DIGIT * 10));
    }
    if (p != end) return false;

    if (!negative) {
        if (whole > static_cast<std::uint64_t>(INT64_MAX)) return false;
        *this = {static_cast<std::int64_t>(whole), fracPart};
    } else if (fracPart == 0) {
        if (whole > kTwo63) return false;
        *this = {static_cast<std::int64_t>(0 - whole), 0};  // 2^63 becomes INT64_MIN
    } else {
        if (whole >= kTwo63 - 1) return false;
        *this = {-static_cast<std::int64_t>(whole + 1), 1000000 - fracPart};
    }
    return true;
}

bool Timeval::parse_into(const char* text) noexcept {
    return mem_parse_into(text, std::strlen(text));
}

void Timeval::appendDecimal(std::string& out, unsigned fractionDigits) const {
    const WrittenTime w = written(*this);
    appendWrittenSeconds(out, *this, w);
    if (fractionDigits == 0) return;
    out.push_back('.');
    std::int64_t divisor = FRAC_START_DIGIT;
    for (unsigned i = 0; i < fractionDigits; ++i) {
        out.push_back(divisor != 0 ? static_cast<char>('0' + w.fraction / divisor % 10) : '0');
        divisor /= 10;
    }
}

std::string Timeval::toDecimal(unsigned fractionDigits) const {
    std::string out;
    appendDecimal(out, fractionDigits);
    return out;
}

// --- Durations ---------------------------------------------------------------------------------

bool mem_parse_seconds_as_ms(const char* data, std::size_t len, std::uint64_t& ms) noexcept {
    constexpr std::uint64_t kInfiniteSeconds = 18446744073709552;  // ceil((2^64-1) / 1000)
    const char* p = data;
    const char* const end = data + len;
    bool sawDigit = false;
    bool infinite = false;
    std::uint64_t whole = 0;
    for (; p != end && isDigit(*p); ++p) {
        sawDigit = true;
        if (infinite) continue;
        whole = whole * 10 + digitValue(*p);
        if (whole >= kInfiniteSeconds) infinite = true;
    }
    unsigned kept = 0;  // the first four fraction digits
    unsigned keptCount = 0;
    bool anyNonZero = false;
    if (p != end && *p == '.') {
        for (++p; p != end; ++p) {
            if (!isDigit(*p)) return false;
            sawDigit = true;
            if (*p != '0') anyNonZero = true;
            if (keptCount < 4) {
                kept = kept * 10 + digitValue(*p);
                ++keptCount;
            }
        }
    }
    if (p != end || !sawDigit) return false;
    if (infinite) {
        ms = UINT64_MAX;
        return true;
    }
    for (; keptCount < 4; ++keptCount) kept *= 10;
    const std::uint64_t fractionMs = (kept + 5) / 10;
    const std::uint64_t wholeMs = whole * 1000;
    if (wholeMs > UINT64_MAX - fractionMs) {
        ms = UINT64_MAX;
        return true;
    }
    ms = wholeMs + fractionMs;
    if (ms == 0 && anyNonZero) ms = 1;  // a positive duration never parses as zero
    return true;
}

bool mem_parse_signed_seconds(const char* data, std::size_t len, std::int64_t& seconds) noexcept {
    const char* p = data;
    const char* const end = data + len;
    const bool negative = p != end && *p == '-';
    if (negative) ++p;
    if (p == end) return false;
    const std::uint64_t limit = negative ? kTwo63 : kTwo63 - 1;
    std::uint64_t magnitude = 0;
    bool overflow = false;
    for (; p != end; ++p) {
        if (!isDigit(*p)) return false;
        if (overflow) continue;
        const unsigned d = digitValue(*p);
        if (magnitude > (limit - d) / 10) {
            overflow = true;
            magnitude = limit;
        } else {
            magnitude = magnitude * 10 + d;
        }
    }
    seconds = negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
    return true;
}

void appendMsAsSeconds(std::string& out, std::uint64_t ms) {
    appendf(out, "%llu.%03u", ms / 1000, static_cast<unsigned>(ms % 1000));
}

void appendNsAsSeconds(std::string& out, std::uint64_t ns) {
    appendf(out, "%llu.%09lu", ns / 1000000000, static_cast<unsigned long>(ns % 1000000000));
}

void Timespec::appendDecimal(std::string& out) const {
    appendf(out, "%lld.%09u", static_cast<long long>(tv_sec), static_cast<unsigned>(tv_nsec));
}

std::uint64_t usecToMsRoundedUp(std::uint64_t usec) noexcept {
    if (usec == UINT64_MAX) return UINT64_MAX;
    if (usec > UINT64_MAX - 1000) return 18446744073709552;
    return (usec + 999) / 1000;
}

// --- The sortable code -------------------------------------------------------------------------

namespace {

constexpr char kBase32Digits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUV";
constexpr std::uint64_t kSecondsFrom1601To1970 = 11644473600;
constexpr std::uint64_t kLargestCodeSeconds = (1ULL << 40) - 1;
constexpr std::uint64_t kLargestCodeNanoseconds = 999999999;
constexpr char kNullCode[] = "zNULLzTIMEzzzz";
constexpr char kMinCode[] = "zMINzTIMEzzzzz";
constexpr char kMaxCode[] = "zMAXzTIMEzzzzz";

void writeBase32(char* out, std::uint64_t value, unsigned digits) {
    for (unsigned i = 0; i < digits; ++i) out[i] = kBase32Digits[(value >> (5 * (digits - 1 - i))) & 31];
}

bool readBase32(const char* in, unsigned digits, std::uint64_t& value) {
    value = 0;
    for (unsigned i = 0; i < digits; ++i) {
        const char c = in[i];
        unsigned d;
        if (c >= '0' && c <= '9')
            d = static_cast<unsigned>(c - '0');
        else if (c >= 'A' && c <= 'V')
            d = static_cast<unsigned>(c - 'A' + 10);
        else if (c >= 'a' && c <= 'v')
            d = static_cast<unsigned>(c - 'a' + 10);
        else
            return false;
        value = (value << 5) | d;
    }
    return true;
}

bool equalsIgnoringCase(const char* a, const char* b, std::size_t len) {
    for (std::size_t i = 0; i < len; ++i) {
        char c = a[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        char d = b[i];
        if (d >= 'A' && d <= 'Z') d = static_cast<char>(d - 'A' + 'a');
        if (c != d) return false;
    }
    return true;
}

}  // namespace

void Timeval::encodeSortable(char (&out)[kSortableCodeLength]) const noexcept {
    static_assert(sizeof kNullCode - 1 == kSortableCodeLength && sizeof kMinCode - 1 == kSortableCodeLength &&
                  sizeof kMaxCode - 1 == kSortableCodeLength);
    if (tv_sec == 0) return static_cast<void>(std::memcpy(out, kNullCode, kSortableCodeLength));
    if (isMin()) return static_cast<void>(std::memcpy(out, kMinCode, kSortableCodeLength));
    if (isMax()) return static_cast<void>(std::memcpy(out, kMaxCode, kSortableCodeLength));
    std::uint64_t seconds = kLargestCodeSeconds;
    std::uint64_t nanoseconds = kLargestCodeNanoseconds;
    if (tv_sec != INT64_MIN && tv_sec != INT64_MAX) {
        // Unsigned on purpose: times before 1601 wrap to huge values and take the clamp below.
        seconds = static_cast<std::uint64_t>(tv_sec) + kSecondsFrom1601To1970;
        nanoseconds = static_cast<std::uint64_t>(tv_usec < 999999 ? tv_usec : 999999) * 1000;
        if (seconds > kLargestCodeSeconds) {
            seconds = kLargestCodeSeconds;
            nanoseconds = kLargestCodeNanoseconds;
        }
    }
    writeBase32(out, seconds, 8);
    writeBase32(out + 8, nanoseconds, 6);
}

std::string Timeval::sortableCode() const {
    char code[kSortableCodeLength];
    encodeSortable(code);
    return std::string(code, kSortableCodeLength);
}

bool Timeval::decodeSortable(const char* data, std::size_t len) noexcept {
    if (len != kSortableCodeLength) return false;
    if (data[0] == 'z' || data[0] == 'Z') {
        if (equalsIgnoringCase(data, kNullCode, len))
            *this = {0, 0};
        else if (equalsIgnoringCase(data, kMinCode, len))
            *this = MIN_TIME;
        else if (equalsIgnoringCase(data, kMaxCode, len))
            *this = MAX_TIME;
        else
            return false;
        return true;
    }
    std::uint64_t seconds = 0;
    std::uint64_t nanoseconds = 0;
    if (!readBase32(data, 8, seconds) || !readBase32(data + 8, 6, nanoseconds)) return false;
    if (nanoseconds > kLargestCodeNanoseconds) return false;
    if (seconds < kSecondsFrom1601To1970) {
        *this = MAX_TIME;  // before 1970: not an error
        return true;
    }
    // No carry: 999999500 ns and above give 1000000 microseconds.
    *this = {static_cast<std::int64_t>(seconds - kSecondsFrom1601To1970),
             static_cast<std::int64_t>((nanoseconds + 500) / 1000)};
    return true;
}

// --- Debug text and stream form ----------------------------------------------------------------

std::string Timeval::debugText() const {
    if (isMax()) return "MAX_TIME";
    if (isMin()) return "MIN_TIME";
    if (isZero()) return "ZERO_TIME";
    const auto seconds = static_cast<time_t>(tv_sec);
    struct tm local {};
    std::string text;
    if (localtime_r(&seconds, &local) == nullptr) {
        appendf(text, "INVALID_TIME (%lld)", static_cast<long long>(tv_sec));
        return text;
    }
    // asctime's layout, written here for every year: the C libraries differ on years below 1000
    // (glibc leaves them unpadded, FreeBSD pads them) and refuse years of five digits.
    VESTRA_ASSERT(local.tm_wday >= 0 && local.tm_wday < 7 && local.tm_mon >= 0 && local.tm_mon < 12);
    appendf(text, "%.3s %.3s%3d %.2d:%.2d:%.2d %lld", kWeekdayNames[local.tm_wday].substr(0, 3),
            kMonthNames[local.tm_mon].substr(0, 3), local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
            static_cast<long long>(local.tm_year) + 1900);
    return text;
}

void Timeval::appendStreamForm(std::string& out) const {
    static constexpr char kSpecial[] = "<min><max><zero>";
    if (isMin()) return static_cast<void>(out.append(kSpecial, 5));
    if (isMax()) return static_cast<void>(out.append(kSpecial + 5, 5));
    if (tv_sec == 0 && tv_usec == 0) return static_cast<void>(out.append(kSpecial + 10, 6));
    const WrittenTime w = written(*this);
    appendWrittenSeconds(out, *this, w);
    appendf(out, ".%06lld", static_cast<long long>(w.fraction));
}

std::ostream& operator<<(std::ostream& os, const Timeval& tv) {
    std::string text;
    tv.appendStreamForm(text);
    return os << text;
}

}  // namespace basicutil
