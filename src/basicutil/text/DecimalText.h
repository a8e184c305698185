// Digit writers beneath the printf engine, for the places that must not allocate or format
// (the fatal-error path, the engine's own digit work) and for plain decimal output.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace basicutil {

// 128-bit integers for exact intermediate results (both compilers have them on 64-bit targets).
__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 Uint128;

// Digits of the largest 64-bit value, 18446744073709551615.
inline constexpr std::size_t kMaxUint64Digits = 20;

// "00" "01" ... "99": two digits per division by 100.
inline constexpr char kDecimalPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// 10^0 to 10^19, every power of ten a 64-bit unsigned holds.
inline constexpr std::uint64_t kPowersOfTen[] = {
    1U,
    10U,
    100U,
    1000U,
    10000U,
    100000U,
    1000000U,
    10000000U,
    100000000U,
    1000000000U,
    10000000000U,
    100000000000U,
    1000000000000U,
    10000000000000U,
    100000000000000U,
    1000000000000000U,
    10000000000000000U,
    100000000000000000U,
    1000000000000000000U,
    10000000000000000000U,
};

// The number of decimal digits of v; 1 for 0.
inline unsigned decimalDigitCount(std::uint64_t v) noexcept {
    // log10(2) is about 1233/4096: a guess from the bit length, corrected by one comparison.
    // v | 1 makes 0 count as one digit and changes no other count (powers of ten are even).
    const auto bits = static_cast<unsigned>(64 - std::countl_zero(v | 1));
    const unsigned guess = (bits * 1233) >> 12;
    return guess + ((v | 1) >= kPowersOfTen[guess] ? 1 : 0);
}

// Writes exactly `count` digits of v to out[0, count), the last digit of v last; count must be
// at least decimalDigitCount(v). Leading positions beyond v's digits are left unwritten.
inline void writeDecimalDigits(char* out, std::uint64_t v, unsigned count) noexcept {
    char* p = out + count;
    // 64-bit divisions only while needed; the rest is 32-bit arithmetic, which is cheaper.
    while (v > 0xFFFFFFFFU) {
        const auto low = static_cast<std::uint32_t>(v % 100000000U);
        v /= 100000000U;
        const std::uint32_t high4 = low / 10000U, low4 = low % 10000U;
        p -= 8;
        std::memcpy(p, kDecimalPairs + 2 * (high4 / 100U), 2);
        std::memcpy(p + 2, kDecimalPairs + 2 * (high4 % 100U), 2);
        std::memcpy(p + 4, kDecimalPairs + 2 * (low4 / 100U), 2);
        std::memcpy(p + 6, kDecimalPairs + 2 * (low4 % 100U), 2);
    }
    auto w = static_cast<std::uint32_t>(v);
    while (w >= 100U) {
        const std::uint32_t q = w / 100U;
        p -= 2;
        std::memcpy(p, kDecimalPairs + 2 * (w - q * 100U), 2);
        w = q;
    }
    if (w >= 10U) {
        p -= 2;
        std::memcpy(p, kDecimalPairs + 2 * w, 2);
    } else {
        *--p = static_cast<char>('0' + w);
    }
}

// Writes v in exactly `count` digits, `fill` in the positions before its own (count at least
// decimalDigitCount(v)): fixed-width fields, "007" or "  7".
inline void writeFixedDigits(char* out, std::uint64_t v, unsigned count, char fill = '0') noexcept {
    std::memset(out, fill, count);
    writeDecimalDigits(out, v, count);
}

// Writes the decimal digits of v to out (room for kMaxUint64Digits) and returns their count.
inline std::size_t formatUnsigned(char* out, std::uint64_t v) noexcept {
    const unsigned count = decimalDigitCount(v);
    writeDecimalDigits(out, v, count);
    return count;
}

// Writes v in decimal, "-" first when negative, to out (room for kMaxUint64Digits + 1) and returns
// the count.
inline std::size_t formatSigned(char* out, std::int64_t v) noexcept {
    if (v >= 0) return formatUnsigned(out, static_cast<std::uint64_t>(v));
    out[0] = '-';
    return 1 + formatUnsigned(out + 1, 0 - static_cast<std::uint64_t>(v));
}

// The two digits of v < 100 at out.
inline void writeTwoDigits(char* out, unsigned v) noexcept {
    std::memcpy(out, kDecimalPairs + 2 * v, 2);
}

// Appends v in decimal ("-" before a negative value).
void appendUnsigned(std::string& out, std::uint64_t v);
void appendSigned(std::string& out, std::int64_t v);

}  // namespace basicutil
