// Digit writers beneath the printf engine, for the places that must not allocate or format
// (the fatal-error path, the engine's own digit work) and for plain decimal output.
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

}  // namespace basicutil
