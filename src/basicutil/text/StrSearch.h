// Searching and counting bytes in byte strings.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

// Scanning back from min(pos, len - 1): the last byte that differs from c (npos if none).
size_type findLastNotOf(StrSegment s, char c, size_type pos = npos) noexcept;
// The same for bytes outside `members`; an empty member list yields the start index itself.
size_type findLastNotOf(StrSegment s, StrSegment members, size_type pos = npos) noexcept;

// Whether the first (last) byte is a member; false for empty text.
bool startsWithAnyOf(StrSegment s, const ByteSet& set) noexcept;
bool endsWithAnyOf(StrSegment s, const ByteSet& set) noexcept;

// Counts in [pos, pos + n), clipped to the text.
size_type countByte(StrSegment s, char c, size_type pos = 0, size_type n = npos) noexcept;
size_type countMembers(StrSegment s, const ByteSet& set, size_type pos = 0, size_type n = npos) noexcept;

// Whether the text begins (ends) with these bytes; an empty prefix (suffix) always does.
bool startsWith(StrSegment s, StrSegment prefix) noexcept;
bool endsWith(StrSegment s, StrSegment suffix) noexcept;

bool containsWhitespace(StrSegment s) noexcept;  // CHARS_WHITESPACE
bool hasNonAscii(StrSegment s) noexcept;         // a byte at or above 0x80
size_type lineCount(StrSegment s) noexcept;      // 1 + line feeds: empty text is one line
// The first line feed or carriage return at or after pos; npos if none.
size_type findLineEnd(StrSegment s, size_type pos = 0) noexcept;

}  // namespace basicutil
