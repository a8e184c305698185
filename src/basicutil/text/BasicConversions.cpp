#include "basicutil/text/BasicConversions.h"

#include "basicutil/platform/Assert.h"

namespace basicutil {

bool parse_unsigned_val(const char* begin, const char* end, std::uint64_t& out, std::uint64_t max) noexcept {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    const char* p = begin;
    while (p < end && blank(*p)) ++p;
    if (p == end || *p < '0' || *p > '9') return false;
    std::uint64_t value = 0;
    const std::uint64_t tenth = max / 10;  // once, not per digit
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const auto digit = static_cast<std::uint64_t>(*p - '0');
        // Both sides stay within range: no `max - digit` below zero.
        if (digit > max || value > tenth || value * 10 > max - digit) return false;
        value = value * 10 + digit;
    }
    while (p < end && blank(*p)) ++p;
    if (p != end) return false;
    out = value;
    return true;
}

}  // namespace basicutil

namespace basicutil {

namespace {

bool isBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

bool do_signed_fetch(const char* begin, const char* end, std::int64_t& out, std::int64_t min,
                     std::int64_t max) noexcept {
    const char* p = begin;
    while (p < end && isBlank(*p)) ++p;
    const bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) ++p;
    // The magnitude may reach |min| for a negative value, max for a positive one.
    if (negative ? min > 0 : max < 0) return false;
    const std::uint64_t limit =
        negative ? 0 - static_cast<std::uint64_t>(min) : static_cast<std::uint64_t>(max);
    std::uint64_t magnitude = 0;
    if (!parse_unsigned_val(p, end, magnitude, limit) || p == end || *p < '0' || *p > '9') return false;
    const std::int64_t value =
        negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
    if (value < min || value > max) return false;  // "-0" with min 1, for one
    out = value;
    return true;
}

bool parse_from_hex(const char* begin, const char* end, unsigned char* dest, std::size_t size,
                    std::size_t& written) noexcept {
    VESTRA_ASSERT(size > 0);
    const char* p = begin;
    while (p < end && isBlank(*p)) ++p;
    const char* digits = p;
    while (p < end && hexValue(*p) >= 0) ++p;
    const auto count = static_cast<std::size_t>(p - digits);
    while (p < end && isBlank(*p)) ++p;
    if (p != end || count == 0 || count % 2 != 0 || count / 2 > size) return false;
    for (std::size_t i = 0; i < count / 2; ++i) {
        dest[i] = static_cast<unsigned char>(hexValue(digits[2 * i]) * 16 + hexValue(digits[2 * i + 1]));
    }
    written = count / 2;
    return true;
}

}  // namespace basicutil
