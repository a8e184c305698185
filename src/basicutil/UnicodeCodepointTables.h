// The generated tables behind UnicodeCodepoint.h (UnicodeCodepointTables.cpp, written by
// tools/gen-unicode-tables.py from Unicode 8.0.0).
#pragma once

#include <cstdint>

namespace basicutil {

// A range of codepoints with equal flags, from `utf8bytes` (packed) to the next entry's start.
struct UnicodePropertyRange {
    std::uint32_t utf8bytes;
    std::uint32_t flags;
};
inline constexpr unsigned kUnicodePropertyRangeCount = 2139;
// kUnicodePropertyRangeCount ranges, then a terminating entry with key 0xFFFFFFFF.
extern const UnicodePropertyRange unicode_property_ranges[kUnicodePropertyRangeCount + 1];

// Per block of 256 codepoints, the last range starting at or before the block's first codepoint;
// a lookup searches entries [cp >> 8] .. [(cp >> 8) + 1] only.
extern const std::uint16_t unicode_property_block_index[0x1100 + 1];

// base followed by a mark composes to result (both packed).
struct CombinerRule {
    std::uint32_t base;
    std::uint32_t result;
};
struct CombinerRules {
    const CombinerRule* rules;  // sorted by base
    std::uint32_t nrules;
};
inline constexpr std::uint32_t kFirstCombiningMark = 0x300;
// One entry per mark U+0300..U+036F.
extern const CombinerRules utf8_combiners[0x70];
extern const CombinerRule utf8_combiner_marks[];

}  // namespace basicutil
