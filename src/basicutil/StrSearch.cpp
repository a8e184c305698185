#include "basicutil/StrSearch.h"

#include <cstdlib>

#include "basicutil/Assert.h"
#include "basicutil/StrBlocks.h"
#include "basicutil/UnicodeCodepoint.h"

namespace basicutil {

// --- Searching and counting --------------------------------------------------------------------

size_type findLastNotOf(StrSegment s, char c, size_type pos) noexcept {
    if (s._len == 0) return npos;
    for (size_type i = pos < s._len - 1 ? pos : s._len - 1;; --i) {
        if (s._data[i] != c) return i;
        if (i == 0) return npos;
    }
}

size_type findLastNotOf(StrSegment s, StrSegment members, size_type pos) noexcept {
    if (s._len == 0) return npos;
    const size_type start = pos < s._len - 1 ? pos : s._len - 1;
    if (members._len == 0) return start;
    const ByteSet set(members.view());
    for (size_type i = start;; --i) {
        if (!set.contains(s._data[i])) return i;
        if (i == 0) return npos;
    }
}

bool startsWithAnyOf(StrSegment s, const ByteSet& set) noexcept {
    return s._len > 0 && set.contains(s._data[0]);
}
bool endsWithAnyOf(StrSegment s, const ByteSet& set) noexcept {
    return s._len > 0 && set.contains(s._data[s._len - 1]);
}

namespace {
// [pos, pos + n) clipped to the text; empty when pos is past the end.
StrSegment clip(StrSegment s, size_type pos, size_type n) {
    if (pos >= s._len) return {};
    const size_type left = s._len - pos;
    return {s._data + pos, n < left ? n : left};
}
}  // namespace

size_type countByte(StrSegment s, char c, size_type pos, size_type n) noexcept {
    size_type count = 0;
    for (char b : clip(s, pos, n).view()) count += b == c;
    return count;
}

size_type countMembers(StrSegment s, const ByteSet& set, size_type pos, size_type n) noexcept {
    size_type count = 0;
    for (char b : clip(s, pos, n).view()) count += set.contains(b);
    return count;
}

bool startsWith(StrSegment s, StrSegment prefix) noexcept {
    return prefix._len <= s._len && std::memcmp(s._data, prefix._data, prefix._len) == 0;
}

bool endsWith(StrSegment s, StrSegment suffix) noexcept {
    return suffix._len <= s._len && std::memcmp(s.end() - suffix._len, suffix._data, suffix._len) == 0;
}

bool containsWhitespace(StrSegment s) noexcept {
    const ByteSet& whitespace = characterClass(CHARS_WHITESPACE);
    for (char c : s.view())
        if (whitespace.contains(c)) return true;
    return false;
}

bool hasNonAscii(StrSegment s) noexcept {
    const char* p = s._data;
    const char* const end = s.end();
    for (; end - p >= blocks::kBlock; p += blocks::kBlock)
        if (!blocks::isAscii(p)) return true;
    for (; p < end; ++p)
        if (static_cast<unsigned char>(*p) >= 0x80) return true;
    return false;
}

size_type lineCount(StrSegment s) noexcept {
    size_type count = 1;
    const char* p = s._data;
    const char* const end = s.end();
    for (; end - p >= blocks::kBlock; p += blocks::kBlock)
        count += static_cast<size_type>(__builtin_popcount(blocks::positionsOf(p, '\n')));
    for (; p < end; ++p) count += *p == '\n';
    return count;
}

size_type findLineEnd(StrSegment s, size_type pos) noexcept {
    if (pos >= s._len) return npos;
    const char* p = s._data + pos;
    const char* const end = s.end();
    for (; end - p >= blocks::kBlock; p += blocks::kBlock) {
        if (const unsigned hits = blocks::positionsOf(p, '\n') | blocks::positionsOf(p, '\r'))
            return static_cast<size_type>(p - s._data) + static_cast<size_type>(__builtin_ctz(hits));
    }
    for (; p < end; ++p)
        if (*p == '\n' || *p == '\r') return static_cast<size_type>(p - s._data);
    return npos;
}

// --- Replacing and case ---------------------------------------------------------------------------

size_type replaceByte(Str& s, char from, char to) noexcept {
    size_type count = 0;
    for (size_type i = 0; i < s.size(); ++i) {
        if (s[i] == from) {
            s[i] = to;
            ++count;
        }
    }
    return count;
}

size_type replaceMembers(Str& s, const ByteSet& set, char to) noexcept {
    size_type count = 0;
    for (size_type i = 0; i < s.size(); ++i) {
        if (set.contains(s[i])) {
            s[i] = to;
            ++count;
        }
    }
    return count;
}

Str escapeMembers(StrSegment s, const ByteSet& set, char escape) {
    Str out;
    out.reserve(s._len);
    for (char c : s.view()) {
        if (set.contains(c)) out.push_back(escape);
        out.push_back(c);
    }
    return out;
}

namespace {

// ASCII case in 16-byte blocks while the text is ASCII; false at the first block (or tail byte)
// that is not, leaving the rest for the Unicode mapper.
bool asciiCaseInPlace(char* p, char* end, char first) {
    const auto convert = [first](char& c) {
        if (static_cast<unsigned char>(c - first) < 26) c = static_cast<char>(c ^ 0x20);
    };
    for (; end - p >= blocks::kBlock; p += blocks::kBlock) {
        if (!blocks::isAscii(p)) return false;
        for (unsigned i = 0; i < blocks::kBlock; ++i) convert(p[i]);
    }
    for (; p < end; ++p) {
        if (static_cast<unsigned char>(*p) >= 0x80) return false;
        convert(*p);
    }
    return true;
}

void caseInPlace(Str& s, bool upper) {
    if (asciiCaseInPlace(s.data(), s.data() + s.size(), upper ? 'a' : 'A')) return;
    std::string mapped;
    (upper ? utf8_to_upper : utf8_to_lower)(s.view(), mapped);
    s.assign(mapped.data(), mapped.size());
}

}  // namespace

void toUpperInPlace(Str& s) {
    caseInPlace(s, true);
}
void toLowerInPlace(Str& s) {
    caseInPlace(s, false);
}

Str toUpperCopy(StrSegment s) {
    Str out(s);
    toUpperInPlace(out);
    return out;
}

Str toLowerCopy(StrSegment s) {
    Str out(s);
    toLowerInPlace(out);
    return out;
}

size_type stripQuotes(Str& s, char q) noexcept {
    if (s.size() >= 2 && s[0] == q && s.back() == q) {
        s.pop_back();
        s.erase(0, 1);
    }
    return s.size();
}

size_type stripQuotes(StrSegment& s, char q) noexcept {
    if (s._len >= 2 && s._data[0] == q && s._data[s._len - 1] == q) {
        ++s._data;
        s._len -= 2;
    }
    return s._len;
}

size_type truncateAtByteCount(StrSegment& s, size_type n) noexcept {
    if (s._len <= n) return s._len;
    while (n > 0 && (static_cast<unsigned char>(s._data[n]) & 0xC0) == 0x80) --n;
    s._len = n;
    return n;
}

void reverseBytes(char* a, char* b) noexcept {
    VESTRA_ASSERT(b > a);
    for (--b; a < b; ++a, --b) {
        const char t = *a;
        *a = *b;
        *b = t;
    }
}

char* duplicateCString(StrSegment s) noexcept {
    char* copy = static_cast<char*>(std::malloc(static_cast<std::size_t>(s._len) + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, s._data, static_cast<std::size_t>(s._len));
    copy[s._len] = '\0';
    return copy;
}

// --- Trimming ------------------------------------------------------------------------------------

namespace {

// The trimmed bounds [begin, end) of s; false when nothing is left. Shared by both forms.
bool trimmedBounds(StrSegment s, const ByteSet& set, bool trimLeft, bool trimRight, size_type& begin,
                   size_type& end) {
    begin = 0;
    end = s._len;
    if (trimLeft) {
        if (s._len == 0) return false;
        while (begin < s._len && set.contains(s._data[begin])) ++begin;
        if (begin == s._len) return false;
        if (!trimRight) return true;
    }
    if (trimRight) {
        while (end > begin && set.contains(s._data[end - 1])) --end;
        if (end == begin) {
            VESTRA_ASSERT(!trimLeft);  // step one would have emptied the text
            return false;
        }
    }
    return true;
}

}  // namespace

void trimInPlace(Str& s, const ByteSet& set, bool trimLeft, bool trimRight) {
    size_type begin, end;
    if (!trimmedBounds(s, set, trimLeft, trimRight, begin, end)) {
        if (trimLeft || trimRight) s.clear();
        return;
    }
    s.resize(end);
    s.erase(0, begin);
}

void trimInPlace(StrSegment& s, const ByteSet& set, bool trimLeft, bool trimRight) noexcept {
    size_type begin, end;
    if (!trimmedBounds(s, set, trimLeft, trimRight, begin, end)) {
        if (trimLeft || trimRight) s._len = 0;
        return;
    }
    s._data += begin;
    s._len = end - begin;
}

// --- Binary appends --------------------------------------------------------------------------------

void appendBigEndian32(Str& s, std::uint32_t v) {
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                           static_cast<char>(v)};
    s.append(bytes, 4);
}

void appendBigEndian64(Str& s, std::uint64_t v) {
    appendBigEndian32(s, static_cast<std::uint32_t>(v >> 32));
    appendBigEndian32(s, static_cast<std::uint32_t>(v));
}

void _appendBase128(Str& s, std::uint64_t v) {
    VESTRA_ASSERT(v >= 128);
    char bytes[10];  // ceil(64 / 7)
    unsigned n = 0;
    while (v > 127) {
        bytes[n++] = static_cast<char>((v & 0x7F) | 0x80);
        v >>= 7;
    }
    bytes[n++] = static_cast<char>(v);
    s.append(bytes, n);
}

}  // namespace basicutil
