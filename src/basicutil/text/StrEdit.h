// Editing byte strings: replacing and escaping bytes, stripping quotes, truncating, reversing,
// trimming.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

size_type replaceByte(Str& s, char from, char to) noexcept;              // returns the count
size_type replaceMembers(Str& s, const ByteSet& set, char to) noexcept;  // every member byte; the count
// A copy with every member byte preceded by `escape`.
Str escapeMembers(StrSegment s, const ByteSet& set, char escape);
// Removes a first and last byte equal to q (length >= 2); returns the new length.
size_type stripQuotes(Str& s, char q) noexcept;
size_type stripQuotes(StrSegment& s, char q) noexcept;
// Cuts to at most n bytes, backing off over continuation bytes; returns the new length.
size_type truncateAtByteCount(StrSegment& s, size_type n) noexcept;
// Reverses the bytes of [a, b); b > a.
void reverseBytes(char* a, char* b) noexcept;
// A malloc'd NUL-terminated copy, or nullptr when memory runs out. Free with std::free.
char* duplicateCString(StrSegment s) noexcept;

// Removes members of `set` from either end; a text of members only becomes empty.
void trimInPlace(Str& s, const ByteSet& set = kWhitespace, bool trimLeft = true, bool trimRight = true);
void trimInPlace(StrSegment& s, const ByteSet& set = kWhitespace, bool trimLeft = true,
                 bool trimRight = true) noexcept;

}  // namespace basicutil
