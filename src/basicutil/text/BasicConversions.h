// Strict parsing of decimal values out of text fields.
#pragma once

#include <cstddef>
#include <cstdint>

namespace basicutil {

// A field of blanks and tabs, digits, blanks and tabs: stores the value and returns true when it
// does not exceed `max` (the caller's maximum, not the type's). Empty or all-blank fields, signs,
// inner blanks and any other byte return false.
[[nodiscard]] bool parse_unsigned_val(const char* begin, const char* end, std::uint64_t& out,
                                      std::uint64_t max) noexcept;

}  // namespace basicutil

namespace basicutil {

// A signed field by the same rules: blanks and tabs, an optional "-" or "+" right before the
// digits, the digits, blanks and tabs. The value must lie within [min, max]; nothing overflows
// on the way, whatever the bounds.
[[nodiscard]] bool do_signed_fetch(const char* begin, const char* end, std::int64_t& out, std::int64_t min,
                                   std::int64_t max) noexcept;

// Hexadecimal text into bytes by the same field rules: blanks and tabs around one run of
// digit pairs ("0a1B", either case, no "0x", no separators), each pair one byte, the first pair
// the first byte. An odd count of digits, an empty run, or more bytes than `size` fail and leave
// dest alone. size must not be 0 (an assertion); `written` receives the byte count.
[[nodiscard]] bool parse_from_hex(const char* begin, const char* end, unsigned char* dest, std::size_t size,
                                  std::size_t& written) noexcept;

}  // namespace basicutil
