#include "basicutil/text/StrEdit.h"

#include <cstdlib>
#include <cstring>

#include "basicutil/platform/Assert.h"

namespace basicutil {

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

}  // namespace basicutil
