// The generated tables behind UnicodeCodepoint.h (UnicodeCodepointTables.cpp, written by
// tools/gen-unicode-tables.py from Unicode 8.0.0).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

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

// The same flags for every codepoint in two stages, for constant-time lookups: stage 1 names the
// block of each 128 codepoints, stage 2 holds each distinct block once (0 below 0x80).
inline constexpr unsigned kUnicodeStageShift = 7;
extern const std::uint8_t unicode_property_stage1[0x110000 >> kUnicodeStageShift];
extern const std::uint32_t unicode_property_stage2[];
// Blocks numbered below this hold no cased letter: case conversion copies them as they are.
extern const unsigned unicode_first_cased_block;

// cp <= 0x10FFFF.
inline std::uint32_t unicodeFlagsOf(std::uint32_t cp) noexcept {
    const unsigned block = unicode_property_stage1[cp >> kUnicodeStageShift];
    return unicode_property_stage2[(block << kUnicodeStageShift) | (cp & ((1u << kUnicodeStageShift) - 1))];
}

// Flags by binary search of the range table, for any packed value: the reference the two-stage
// tables are checked against, and the answer for values that are not a codepoint's packing.
std::uint32_t unicodeFlagsBySearch(std::uint32_t utf8bytes) noexcept;

// utf8_to_upper/utf8_to_lower into a caller's buffer of at least 2 * src.size() + 16 bytes (the
// conversion stores whole words past what it keeps); returns the bytes written.
std::size_t utf8CaseInto(std::string_view src, char* out, bool toLower) noexcept;

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
