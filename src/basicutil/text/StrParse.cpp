#include "basicutil/text/StrParse.h"

#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/BasicConversions.h"
#include "basicutil/text/UnicodeCodepoint.h"

namespace basicutil {

namespace {
bool caselessEquals(StrSegment s, std::string_view word) {
    return mem_compare_caseless(s.begin(), s.end(), word.data(), word.data() + word.size()) == 0;
}
}  // namespace

bool parseBool(StrSegment s, bool& value) noexcept {
    if (caselessEquals(s, "f") || caselessEquals(s, "false") || caselessEquals(s, "no") || s.view() == "0") {
        value = false;
        return true;
    }
    if (caselessEquals(s, "t") || caselessEquals(s, "true") || caselessEquals(s, "yes") || s.view() == "1") {
        value = true;
        return true;
    }
    return false;
}

bool parseBoolOr(StrSegment s, bool ifEmpty, bool ifUnrecognised) noexcept {
    if (s.empty()) return ifEmpty;
    bool value = false;
    return parseBool(s, value) ? value : ifUnrecognised;
}

bool parseUnsigned64(StrSegment s, std::uint64_t& value) noexcept {
    std::uint64_t parsed = 0;
    if (!parse_unsigned_val(s.begin(), s.end(), parsed, UINT64_MAX)) return false;
    const char* p = s.begin();
    while (p < s.end() && (*p == ' ' || *p == '\t')) ++p;
    if (p < s.end() && *p == '-') return false;
    value = parsed;
    return true;
}

bool parseUnsigned32(StrSegment s, std::uint32_t& value) noexcept {
    std::uint64_t parsed = 0;
    if (!parseUnsigned64(s, parsed) || parsed > UINT32_MAX) return false;
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

bool parseInt32(StrSegment s, std::int32_t& value) noexcept {
    const char* p = s.begin();
    while (p < s.end() && (*p == ' ' || *p == '\t')) ++p;
    const bool negative = p < s.end() && *p == '-';
    if (negative) ++p;
    std::uint64_t magnitude = 0;
    const std::uint64_t limit = negative ? 2147483648ULL : 2147483647ULL;
    if (!parse_unsigned_val(p, s.end(), magnitude, limit)) return false;
    if (negative && p < s.end() && (*p == ' ' || *p == '\t')) return false;  // "- 5" is no number
    value = negative ? static_cast<std::int32_t>(-static_cast<std::int64_t>(magnitude))
                     : static_cast<std::int32_t>(magnitude);
    return true;
}

std::uint32_t parseUnsigned32Or(StrSegment s, std::uint32_t fallback) noexcept {
    std::uint32_t value = fallback;
    return parseUnsigned32(s, value) ? value : fallback;
}

std::int32_t parseInt32Or(StrSegment s, std::int32_t fallback) noexcept {
    std::int32_t value = fallback;
    return parseInt32(s, value) ? value : fallback;
}

size_type getNextChunk(StrSegment& input, StrSegment& chunk) noexcept {
    const auto digit = [](char c) { return c >= '0' && c <= '9'; };
    const char* p = input.begin();
    const char* pend = input.end();
    VESTRA_ASSERT(p < pend);
    const bool numeric = digit(*p);
    const char* chunkEnd = p;
    while (chunkEnd < pend && digit(*chunkEnd) == numeric) ++chunkEnd;
    chunk = StrSegment(p, static_cast<size_type>(chunkEnd - p));
    input.setBegin(chunkEnd);
    if (!numeric) return npos;
    // Leading zeros, then the significant digits, must end exactly at the chunk's end.
    pend = chunkEnd;
    size_type zeros = 0;
    for (; p < pend && *p == '0'; ++p) ++zeros;
    while (p < pend && digit(*p)) ++p;
    VESTRA_ASSERT(p == pend);
    return zeros;
}

int naturalCompare(StrSegment lhs, StrSegment rhs, bool caseless) noexcept {
    while (true) {
        if (lhs.empty()) return rhs.empty() ? 0 : -1;
        if (rhs.empty()) return 1;
        StrSegment a, b;
        const size_type zerosA = getNextChunk(lhs, a);
        const size_type zerosB = getNextChunk(rhs, b);
        int result;
        if (zerosA == npos || zerosB == npos) {
            if (caseless) {
                result = mem_compare_caseless(a.begin(), a.end(), b.begin(), b.end());
            } else {
                const size_type shorter = a._len < b._len ? a._len : b._len;
                result = std::memcmp(a._data, b._data, static_cast<std::size_t>(shorter));
                if (result == 0 && a._len != b._len) result = a._len < b._len ? -1 : 1;
            }
        } else {
            const size_type lengthA = a._len - zerosA, lengthB = b._len - zerosB;
            if (lengthA != lengthB) {
                result = lengthA < lengthB ? -1 : 1;
            } else {
                result = std::memcmp(a._data + zerosA, b._data + zerosB, static_cast<std::size_t>(lengthA));
            }
        }
        if (result != 0) return result;
    }
}

}  // namespace basicutil
