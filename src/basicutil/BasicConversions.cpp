#include "basicutil/BasicConversions.h"

namespace basicutil {

bool parse_unsigned_val(const char* begin, const char* end, std::uint64_t& out, std::uint64_t max) noexcept {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    const char* p = begin;
    while (p < end && blank(*p)) ++p;
    if (p == end || *p < '0' || *p > '9') return false;
    std::uint64_t value = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const auto digit = static_cast<std::uint64_t>(*p - '0');
        // Both sides stay within range: no `max - digit` below zero.
        if (digit > max || value > max / 10 || value * 10 > max - digit) return false;
        value = value * 10 + digit;
    }
    while (p < end && blank(*p)) ++p;
    if (p != end) return false;
    out = value;
    return true;
}

}  // namespace basicutil
