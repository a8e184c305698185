#include "basicutil/text/StrSearch.h"

#include <cstring>

#include "basicutil/platform/Platform.h"
#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/StrSearch_details.h"

namespace basicutil {

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
    const StrSegment range = clip(s, pos, n);
    const size_type blocks = range.size() / blocks::kBlock;
    size_type count = blocks::countEqual(range.data(), blocks, c);
    for (const char* p = range.data() + blocks * blocks::kBlock; p < range.end(); ++p) count += *p == c;
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

namespace search_details {

size_type findLineEndSse2(StrSegment s, size_type pos) noexcept {
    if (pos >= s._len) return npos;
    const char* p = s._data + pos;
    const char* const end = s.end();
    // Lines are long next to a block: four blocks are tested with one branch.
    for (; end - p >= 4 * blocks::kBlock; p += 4 * blocks::kBlock) {
        if (blocks::anyOfTwoIn4Blocks(p, '\n', '\r')) break;
    }
    for (; end - p >= blocks::kBlock; p += blocks::kBlock) {
        if (const unsigned found = blocks::positionsOf(p, '\n') | blocks::positionsOf(p, '\r'))
            return static_cast<size_type>(p - s._data) + static_cast<size_type>(__builtin_ctz(found));
    }
    for (; p < end; ++p)
        if (*p == '\n' || *p == '\r') return static_cast<size_type>(p - s._data);
    return npos;
}

}  // namespace search_details

size_type findLineEnd(StrSegment s, size_type pos) noexcept {
    // The wider path pays once the text is a few of its tests long.
    if (pos < s._len && s._len - pos >= 256 && platform::cpuHasAvx2())
        return search_details::findLineEndAvx2(s, pos);
    return search_details::findLineEndSse2(s, pos);
}

}  // namespace basicutil
