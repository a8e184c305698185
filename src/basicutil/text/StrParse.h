// Booleans, numbers and natural (digit-aware) order from text.
#pragma once

#include <cstdint>

#include "basicutil/text/Str.h"

namespace basicutil {

// "f", "false", "no" (any case) and "0" are false; "t", "true", "yes" (any case) and "1" are
// true. Anything else returns false and leaves `value` alone.
[[nodiscard]] bool parseBool(StrSegment s, bool& value) noexcept;
// ifEmpty for empty text, the parsed value when recognised, ifUnrecognised otherwise.
bool parseBoolOr(StrSegment s, bool ifEmpty, bool ifUnrecognised) noexcept;

// Decimal fields as parse_unsigned_val reads them (blanks around allowed). The signed form takes
// one leading '-'; each fails outside its type's range.
[[nodiscard]] bool parseUnsigned64(StrSegment s, std::uint64_t& value) noexcept;
[[nodiscard]] bool parseUnsigned32(StrSegment s, std::uint32_t& value) noexcept;
[[nodiscard]] bool parseInt32(StrSegment s, std::int32_t& value) noexcept;
// The same, with `fallback` for text that does not parse.
std::uint32_t parseUnsigned32Or(StrSegment s, std::uint32_t fallback) noexcept;
std::int32_t parseInt32Or(StrSegment s, std::int32_t fallback) noexcept;

// Takes the next run of digits or of non-digits from `input` (not empty) into `chunk` and
// advances past it. Returns npos for a non-digit run, else the count of leading '0's.
size_type getNextChunk(StrSegment& input, StrSegment& chunk) noexcept;

// Natural order: runs of digits compare by value ("a9" < "a10", "x01" equals "x1"), other runs
// as text (caseless on request). Text runs compared exactly return memcmp's own result, so only
// the sign is meaningful.
int naturalCompare(StrSegment lhs, StrSegment rhs, bool caseless = false) noexcept;

}  // namespace basicutil
