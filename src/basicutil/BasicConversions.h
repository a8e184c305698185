// Strict parsing of decimal values out of text fields.
#pragma once

#include <cstdint>

namespace basicutil {

// A field of blanks and tabs, digits, blanks and tabs: stores the value and returns true when it
// does not exceed `max` (the caller's maximum, not the type's). Empty or all-blank fields, signs,
// inner blanks and any other byte return false.
[[nodiscard]] bool parse_unsigned_val(const char* begin, const char* end, std::uint64_t& out,
                                      std::uint64_t max) noexcept;

}  // namespace basicutil
