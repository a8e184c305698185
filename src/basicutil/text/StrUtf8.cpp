#include "basicutil/text/StrUtf8.h"

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/StrUtf8_details.h"
#include "libzero/codepoint-width.h"

namespace basicutil {

unsigned utf8SequenceLength(unsigned char lead) noexcept {
    if (lead < 0x80) return 1;
    if (lead <= 0xDF) return 2;
    if (lead <= 0xEF) return 3;
    if (lead <= 0xF4) return 4;
    return 1;
}

size_type mem_count_utf8_codepoints(const char* bytes, size_type n) noexcept {
    size_type i = 0;
    size_type count = 0;
    while (n - i >= blocks::kBlock && blocks::isAscii(bytes + i)) {
        i += blocks::kBlock;
        count += blocks::kBlock;
    }
    if (i == n) return count;
    VESTRA_ASSERT(i < n);
    while (i < n) {
        i += utf8SequenceLength(static_cast<unsigned char>(bytes[i]));
        ++count;
    }
    return count;
}

namespace utf8_details {

void truncateScalar(StrSegment& view, size_type n) noexcept {
    if (view._len <= n) return;
    const char* p = view._data;
    const char* const pend = view._data + view._len;
    while (n >= blocks::kBlock && pend - p >= blocks::kBlock && blocks::isAscii(p)) {
        p += blocks::kBlock;
        n -= blocks::kBlock;
    }
    for (; n > 0 && p < pend; --n) {
        VESTRA_ASSERT(pend > p);
        p += utf8SequenceLength(static_cast<unsigned char>(*p));
    }
    if (p > pend) p = pend;  // a last sequence cut off by the end
    view.setEnd(p);
}

void truncateBlocks(StrSegment& view, size_type n) noexcept {
    if (view._len <= n) return;
    const char* p = view._data;
    const char* const pend = view._data + view._len;
    // Where every continuation byte is one its lead asks for and no lead goes without its own,
    // stepping from lead to lead counts exactly the bytes that are not continuations: whole
    // blocks are counted so, and the rest (and any block that breaks the rule) is stepped.
    blocks::Utf8Carry carry;
    while (pend - p >= blocks::kBlock) {
        const unsigned leads = blocks::utf8Leads(p, carry);
        if (leads == blocks::kNotWellFormed || leads >= n) break;
        n -= leads;
        p += blocks::kBlock;
    }
    // Back to the lead of a character that reaches past the blocks counted (it was counted, but
    // what follows it was not checked against it).
    for (size_type back = 1; back <= 3 && p - back >= view._data; ++back) {
        const auto b = static_cast<unsigned char>(p[-static_cast<std::ptrdiff_t>(back)]);
        if ((b & 0xC0) == 0x80) continue;
        if (utf8SequenceLength(b) > back) {
            p -= back;
            ++n;
        }
        break;
    }
    StrSegment rest(p, static_cast<size_type>(pend - p));
    truncateScalar(rest, n);
    view.setEnd(rest.end());
}

bool isValidUtf8Scalar(StrSegment s) noexcept {
    return validLengthScalar(s) == s._len;
}

size_type validLengthScalar(StrSegment s) noexcept {
    const auto* const begin = reinterpret_cast<const unsigned char*>(s._data);
    const auto* p = begin;
    const auto* const end = p + s._len;
    const auto stop = [&p, begin] { return static_cast<size_type>(p - begin); };
    while (p < end) {
        if (end - p >= blocks::kBlock && blocks::isAscii(reinterpret_cast<const char*>(p))) {
            p += blocks::kBlock;
            continue;
        }
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
        }
        unsigned n;
        unsigned char low = 0x80, high = 0xBF;  // bounds of the second byte
        if (lead >= 0xC2 && lead <= 0xDF)
            n = 2;
        else if (lead >= 0xE0 && lead <= 0xEF)
            n = 3;
        else if (lead >= 0xF0 && lead <= 0xF4)
            n = 4;
        else
            return stop();
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
        if (end - p < n) return stop();
        if (p[1] < low || p[1] > high) return stop();
        for (unsigned k = 2; k < n; ++k)
            if ((p[k] & 0xC0) != 0x80) return stop();
        p += n;
    }
    return stop();
}

}  // namespace utf8_details

void utf8_character_count_truncate(StrSegment& view, size_type n) noexcept {
    utf8_details::truncateBlocks(view, n);
}

size_type utf8ValidLength(StrSegment s) noexcept {
    return isValidUtf8(s) ? s._len : utf8_details::validLengthScalar(s);
}

bool isValidUtf8(StrSegment s) noexcept {
    // The vector path pays once a text is a few blocks long.
    if (s._len >= 128 && platform::cpuHasAvx2()) return utf8_details::isValidUtf8Avx2(s);
    return utf8_details::isValidUtf8Scalar(s);
}

size_type utf8DisplayWidth(StrSegment s) noexcept {
    size_type width = 0;
    const auto* p = reinterpret_cast<const unsigned char*>(s._data);
    const auto* const end = p + s._len;
    while (p < end) {
        const unsigned char lead = *p;
        std::uint32_t cp;
        unsigned n;
        if (lead < 0x80)
            cp = lead, n = 1;
        else if (lead <= 0xDF)
            cp = lead & 0x1Fu, n = 2;
        else if (lead <= 0xEF)
            cp = lead & 0x0Fu, n = 3;
        else
            cp = lead & 0x07u, n = 4;
        if (static_cast<size_type>(end - p) < n) break;
        for (unsigned k = 1; k < n; ++k) cp = (cp << 6) | (p[k] & 0x3Fu);
        width += static_cast<size_type>(codepoint_width(cp));
        p += n;
    }
    return width;
}

bool utf8Substring(StrSegment s, size_type first, size_type count, size_type& start,
                   size_type& end) noexcept {
    size_type i = 0;
    for (size_type k = 0; k < first; ++k) {
        if (i >= s._len) return false;
        i += utf8SequenceLength(static_cast<unsigned char>(s._data[i]));
    }
    if (i > s._len) return false;
    start = i;
    if (count == 0) {
        end = start;
    } else if (s._len <= count) {
        end = s._len;
    } else {
        for (size_type k = 0; k < count && i < s._len; ++k)
            i += utf8SequenceLength(static_cast<unsigned char>(s._data[i]));
        end = i < s._len ? i : s._len;
    }
    return true;
}

unsigned _set(char* buffer, std::uint32_t codepoint) noexcept {
    VESTRA_ASSERT(codepoint >= 0x80);
    auto put = [buffer](unsigned i, std::uint32_t v) { buffer[i] = static_cast<char>(v); };
    if (codepoint < 0x800) {
        put(0, 0xC0 | (codepoint >> 6));
        put(1, 0x80 | (codepoint & 0x3F));
        return 2;
    }
    if (codepoint < 0x10000) {
        put(0, 0xE0 | (codepoint >> 12));
        put(1, 0x80 | ((codepoint >> 6) & 0x3F));
        put(2, 0x80 | (codepoint & 0x3F));
        return 3;
    }
    if (codepoint > 0x10FFFF) return 0;
    put(0, 0xF0 | (codepoint >> 18));
    put(1, 0x80 | ((codepoint >> 12) & 0x3F));
    put(2, 0x80 | ((codepoint >> 6) & 0x3F));
    put(3, 0x80 | (codepoint & 0x3F));
    return 4;
}

}  // namespace basicutil
