// Unicode codepoints and their UTF-8 bytes: packing, strict and incremental decoding, the
// property table (character class and case), case mapping on UTF-8 text, caseless comparison and
// composition of combining marks. Data: Unicode 8.0.0.
//
// A packed value (`utf8bytes`) is the UTF-8 encoding of one codepoint >= 0x80 held big-endian in
// 32 bits: U+00E9 is 0xC3A9, U+20AC is 0xE282AC, U+1F600 is 0xF09F9880. Packed values sort in
// codepoint order, so the property table is keyed by them and case maps without decoding.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace basicutil {

// --- Flags of the property table ---------------------------------------------------------------
// Case class (bits 29-30). Upper and lower: XOR the packed value with the low 24 bits to get the
// other case. Alternating: a block of pairs whose even codepoint is upper and odd one lower.
inline constexpr std::uint32_t UNICODE_CASE_MASK = 0x60000000;
inline constexpr std::uint32_t UNICODE_CASE_UPPER = 0x20000000;
inline constexpr std::uint32_t UNICODE_CASE_LOWER = 0x40000000;
inline constexpr std::uint32_t UNICODE_CASE_ALTERNATING = 0x60000000;
inline constexpr std::uint32_t UNICODE_CASE_DELTA_MASK = 0x00FFFFFF;
// Character class: a letter bit, and a nibble that says graphic (letters, numbers, symbols),
// punctuation, control (Cc, and the surrogates) or separator (Z*, and the format characters Cf).
// Marks, private use and unassigned codepoints have no class bits.
inline constexpr std::uint32_t UNICODE_CLASS_LETTER = 0x80000000;
inline constexpr std::uint32_t UNICODE_CLASS_MASK = 0x0F000000;
inline constexpr std::uint32_t UNICODE_CLASS_GRAPHIC = 0x02000000;
inline constexpr std::uint32_t UNICODE_CLASS_PUNCTUATION = 0x03000000;
inline constexpr std::uint32_t UNICODE_CLASS_CONTROL = 0x04000000;
inline constexpr std::uint32_t UNICODE_CLASS_SEPARATOR = 0x08000000;

// --- Packing -------------------------------------------------------------------------------------
// 0x80 <= cp <= 0x10FFFF.
std::uint32_t codepoint_to_utf8bytes(std::uint32_t cp) noexcept;
// A value below 0x80 is returned as it is; otherwise a valid packed value.
std::uint32_t utf8bytes_to_codepoint(std::uint32_t u) noexcept;

// --- Properties ----------------------------------------------------------------------------------
std::uint32_t flags_from_utf8bytes(std::uint32_t utf8bytes) noexcept;  // utf8bytes >= 0xC280
std::uint32_t flags_from_cp(std::uint32_t cp) noexcept;                // cp >= 0x80
// Below 0x80 these follow the C library's islower/isupper.
bool codepoint_is_lower(std::uint32_t cp) noexcept;
bool codepoint_is_upper(std::uint32_t cp) noexcept;
// Simple (one-to-one) case mapping; codepoints without one are returned unchanged. Four letters
// map to ASCII: U+0130 and U+212A to lower, U+0131 and U+017F to upper.
std::uint32_t codepoint_to_lower(std::uint32_t cp) noexcept;
std::uint32_t codepoint_to_upper(std::uint32_t cp) noexcept;

// --- Decoding ------------------------------------------------------------------------------------
// Strict: decodes the codepoint at the front of `view` and advances past it. Fails, leaving the
// view alone, on an empty view, a missing or wrong continuation byte, an overlong form or a value
// above U+10FFFF. Surrogates (ED A0 80 ...) are accepted.
[[nodiscard]] bool decode_next_codepoint(std::string_view& view, std::uint32_t& cp) noexcept;

// Incremental: feed the bytes of a text one at a time, starting with state 0; the caller handles
// ASCII itself, so the first byte of a character is >= 0x80. Returns true when a character is
// complete, with its codepoint in `state`; the caller resets state to 0 before the next one.
// Invalid leads are ignored, overlongs, surrogates and values above U+10FFFF are dropped (false,
// state 0). A byte that is not a continuation abandons the open sequence and starts anew (an
// ASCII byte completes at once).
[[nodiscard]] bool _accumulateUtf8Byte(std::uint32_t& state, std::uint8_t by) noexcept;

// --- Text ----------------------------------------------------------------------------------------
// Upper or lower case of UTF-8 text into dst (replacing its contents). Each well-formed
// sequence is mapped on its packed value; anything else (stray continuation bytes, overlong or
// truncated sequences) is copied as it is. The result is at most 3/2 the input's length (U+0250
// and its kin grow from two bytes to three).
void utf8_to_upper(std::string_view src, std::string& dst);
void utf8_to_lower(std::string_view src, std::string& dst);

// Compares character by character after folding to lower case: ASCII letters, and non-ASCII
// upper-case letters through the property table (so "É" equals "é", "K" (Kelvin) equals "k"
// and "İ" equals "i"). A well-formed sequence compares as its packed value, any other byte as
// itself, so the order is codepoint order. Returns -1, 0 or 1; a proper prefix is less.
int mem_compare_caseless(const char* lhs, const char* lhs_end, const char* rhs, const char* rhs_end) noexcept;

// The precomposed character for `base` (packed, or an ASCII byte) followed by the combining mark
// `utf8bytes` (U+0300..U+036F, packed), or 0 when there is none. `p` is where the base began in
// the original text: a U or u written there never becomes U+01D5 or U+01D6 (that would need two
// marks folded into one step).
std::uint32_t replacement_for_utf8bytes(std::uint32_t utf8bytes, std::uint32_t base, const char* p) noexcept;

// Copies src to dst, composing each base character and the combining marks U+0300..U+036F that
// follow it into precomposed characters where Unicode has them, mark after mark ("e" + U+0301
// becomes "é"). Returns whether anything was composed.
bool resolveUnicodeCombiningMarks(std::string_view src, std::string& dst);

}  // namespace basicutil
