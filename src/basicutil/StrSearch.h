// Searching, counting, replacing, case, trimming and binary appends on byte strings.
#pragma once

#include <cstdint>

#include "basicutil/Str.h"

namespace basicutil {

// --- Searching and counting --------------------------------------------------------------------
// Scanning back from min(pos, len - 1): the last byte that differs from c (npos if none).
size_type findLastNotOf(StrSegment s, char c, size_type pos = npos) noexcept;
// The same for bytes outside `members`; an empty member list yields the start index itself.
size_type findLastNotOf(StrSegment s, StrSegment members, size_type pos = npos) noexcept;
bool startsWithAnyOf(StrSegment s, const ByteSet& set) noexcept;
bool endsWithAnyOf(StrSegment s, const ByteSet& set) noexcept;
// Counts in [pos, pos + n), clipped to the text.
size_type countByte(StrSegment s, char c, size_type pos = 0, size_type n = npos) noexcept;
size_type countMembers(StrSegment s, const ByteSet& set, size_type pos = 0, size_type n = npos) noexcept;
bool startsWith(StrSegment s, StrSegment prefix) noexcept;
bool endsWith(StrSegment s, StrSegment suffix) noexcept;
bool containsWhitespace(StrSegment s) noexcept;  // CHARS_WHITESPACE
bool hasNonAscii(StrSegment s) noexcept;
size_type lineCount(StrSegment s) noexcept;  // 1 + line feeds: empty text is one line
// The first line feed or carriage return at or after pos; npos if none.
size_type findLineEnd(StrSegment s, size_type pos = 0) noexcept;

// --- Replacing and case ---------------------------------------------------------------------------
size_type replaceByte(Str& s, char from, char to) noexcept;  // returns the count
size_type replaceMembers(Str& s, const ByteSet& set, char to) noexcept;
// A copy with every member byte preceded by `escape`.
Str escapeMembers(StrSegment s, const ByteSet& set, char escape);
// ASCII in 16-byte blocks; text with non-ASCII bytes goes through the Unicode case mapper.
void toUpperInPlace(Str& s);
void toLowerInPlace(Str& s);
Str toUpperCopy(StrSegment s);
Str toLowerCopy(StrSegment s);
// Removes a first and last byte equal to q (length >= 2); returns the new length.
size_type stripQuotes(Str& s, char q) noexcept;
size_type stripQuotes(StrSegment& s, char q) noexcept;
// Cuts to at most n bytes, backing off over continuation bytes; returns the new length.
size_type truncateAtByteCount(StrSegment& s, size_type n) noexcept;
// Reverses the bytes of [a, b); b > a.
void reverseBytes(char* a, char* b) noexcept;
// A malloc'd NUL-terminated copy, or nullptr when memory runs out. Free with std::free.
char* duplicateCString(StrSegment s) noexcept;

// --- Trimming ------------------------------------------------------------------------------------
void trimInPlace(Str& s, const ByteSet& set = kWhitespace, bool trimLeft = true, bool trimRight = true);
void trimInPlace(StrSegment& s, const ByteSet& set = kWhitespace, bool trimLeft = true,
                 bool trimRight = true) noexcept;

// --- Binary appends --------------------------------------------------------------------------------
void appendBigEndian32(Str& s, std::uint32_t v);
void appendBigEndian64(Str& s, std::uint64_t v);
// v >= 128: seven bits a byte, least significant first, bit 7 set on all but the last.
void _appendBase128(Str& s, std::uint64_t v);

}  // namespace basicutil
