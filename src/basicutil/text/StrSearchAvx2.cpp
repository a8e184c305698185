// Line-end search's AVX2 path, chosen at run time where the processor has AVX2.
#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/StrSearch_details.h"

#if defined(VESTRA_HAVE_AVX2_BLOCKS)
#include <cstdint>

namespace basicutil::search_details {

VESTRA_AVX2 size_type findLineEndAvx2(StrSegment s, size_type pos) noexcept {
    if (pos >= s._len) return npos;
    const char* p = s._data + pos;
    const char* const end = s.end();
    // A byte is a line end when it equals the table entry of its low nibble: the table holds
    // 0x0A and 0x0D at their own nibbles and 0xFF elsewhere, and bytes with the top bit set look
    // up 0. One shuffle and one compare test both characters.
    const __m256i ends = blocks::table32(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, '\n', -1, -1, '\r', -1, -1);
    const auto hits = [&](const char* q) VESTRA_AVX2 {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
        return _mm256_cmpeq_epi8(_mm256_shuffle_epi8(ends, v), v);
    };
    // The first block unaligned, then from the next 32-byte boundary on, so that no load
    // straddles two cache lines (those that do cost about a third more).
    if (end - p >= 64) {
        if (const auto found = static_cast<unsigned>(_mm256_movemask_epi8(hits(p)))) {
            return static_cast<size_type>(p - s._data) + static_cast<size_type>(__builtin_ctz(found));
        }
        p = reinterpret_cast<const char*>((reinterpret_cast<std::uintptr_t>(p) + 32) & ~std::uintptr_t{31});
    }
    // Four blocks per test while nothing is found.
    for (; end - p >= 128; p += 128) {
        const __m256i any = _mm256_or_si256(_mm256_or_si256(hits(p), hits(p + 32)),
                                            _mm256_or_si256(hits(p + 64), hits(p + 96)));
        if (!_mm256_testz_si256(any, any)) break;
    }
    for (; end - p >= 32; p += 32) {
        if (const auto found = static_cast<unsigned>(_mm256_movemask_epi8(hits(p)))) {
            return static_cast<size_type>(p - s._data) + static_cast<size_type>(__builtin_ctz(found));
        }
    }
    const size_type at = findLineEndSse2(StrSegment(p, static_cast<size_type>(end - p)), 0);
    return at == npos ? npos : static_cast<size_type>(p - s._data) + at;
}

}  // namespace basicutil::search_details

#else

namespace basicutil::search_details {
size_type findLineEndAvx2(StrSegment s, size_type pos) noexcept {
    return findLineEndSse2(s, pos);
}
}  // namespace basicutil::search_details

#endif
