// Digit writers for the few places that render numbers before (and beneath) the printf engine.
// They never go through the C library's printf.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace basicutil {

// 128-bit integers for exact intermediate results (both compilers have them on 64-bit targets).
__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 Uint128;

// Digits of the largest 64-bit value, 18446744073709551615.
inline constexpr std::size_t kMaxUint64Digits = 20;

// Writes the decimal digits of v to out (room for kMaxUint64Digits) and returns their count.
std::size_t formatUnsigned(char* out, std::uint64_t v) noexcept;

void appendUnsigned(std::string& out, std::uint64_t v);
void appendSigned(std::string& out, std::int64_t v);
// At least `width` digits, zero-padded on the left: "%0*llu".
void appendZeroPadded(std::string& out, std::uint64_t v, unsigned width);

// "%*.*f" for a finite |v| < 2^64 and precision <= 9: the exact binary value rounded half to
// even, as C's printf does, then padded with blanks on the left to `width`.
void appendFixed(std::string& out, double v, unsigned precision, unsigned width);

}  // namespace basicutil
