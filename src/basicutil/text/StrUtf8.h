// Measuring UTF-8 text: characters, truncation, display width, substrings and validity.
//
// The measuring routines never fail on malformed text: they step by the lead byte (below 0x80:
// 1 byte; 0x80-0xDF: 2, a stray continuation byte counting as a two-byte lead; 0xE0-0xEF: 3;
// 0xF0-0xF4: 4; 0xF5-0xFF: 1) without validating. Only isValidUtf8 judges. libzero/utf8-rules.h
// sets these two rules beside the library's third, well-formed UTF-8, and says who uses which.
#pragma once

#include <cstdint>

#include "basicutil/text/Str.h"

namespace basicutil {

// Bytes in the sequence that `lead` starts, by the rule above.
unsigned utf8SequenceLength(unsigned char lead) noexcept;

// Characters in the bytes; a last sequence that runs past the end counts as one.
size_type mem_count_utf8_codepoints(const char* bytes, size_type n) noexcept;
// Cuts the view to its first n characters. A view of at most n bytes is left alone: it cannot
// hold more than n characters.
void utf8_character_count_truncate(StrSegment& view, size_type n) noexcept;
// Terminal columns: the sum of the characters' widths (codepoint_width).
size_type utf8DisplayWidth(StrSegment s) noexcept;
// Byte offsets [start, end) of `count` characters from character `first`. False when the text
// ends before `first`. count 0 gives an empty range at the start.
[[nodiscard]] bool utf8Substring(StrSegment s, size_type first, size_type count, size_type& start,
                                 size_type& end) noexcept;
// Validity: leads 0xC2-0xF4 with their continuation bytes, the second byte at least 0x90 after
// 0xF0 and at most 0x8F after 0xF4. Three-byte forms are not checked further, so E0 80 80 and
// the surrogates pass.
bool isValidUtf8(StrSegment s) noexcept;
// The length of the longest start of `s` that is valid by those rules: s.size() when all of it
// is, else the offset of the first byte that is not part of a valid sequence.
size_type utf8ValidLength(StrSegment s) noexcept;
// Writes the UTF-8 form of cp (>= 0x80) and returns its length, or 0 above U+10FFFF. Surrogates
// are encoded like any other value. buffer needs 4 bytes.
unsigned _set(char* buffer, std::uint32_t codepoint) noexcept;

}  // namespace basicutil
