// 16-byte block tests behind the string hot paths. SSE2 on x86-64 (every target we ship on);
// a portable two-word version elsewhere.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace basicutil::blocks {

// Bytes per block.
inline constexpr unsigned kBlock = 16;

#if defined(__SSE2__)
// The 16 bytes at p, unaligned.
inline __m128i load(const char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
// Bit i set when byte i of the block has its high bit set (is not ASCII).
inline unsigned highBits(const char* p) {
    return static_cast<unsigned>(_mm_movemask_epi8(load(p)));
}
// Bit i set when byte i of the block equals c.
inline unsigned equalMask(const char* p, char c) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(p), _mm_set1_epi8(c))));
}
#else
inline unsigned bitsOf(std::uint64_t word) {  // bit 7 of each byte, gathered
    unsigned m = 0;
    for (unsigned i = 0; i < 8; ++i) m |= static_cast<unsigned>((word >> (8 * i + 7)) & 1) << i;
    return m;
}
inline unsigned highBits(const char* p) {
    std::uint64_t w[2];
    std::memcpy(w, p, 16);
    return bitsOf(w[0] & 0x8080808080808080ULL) | bitsOf(w[1] & 0x8080808080808080ULL) << 8;
}
inline unsigned equalMask(const char* p, char c) {
    unsigned m = 0;
    for (unsigned i = 0; i < 16; ++i) m |= static_cast<unsigned>(p[i] == c) << i;
    return m;
}
#endif

// Swaps the case of the letters `first` ('A' or 'a') to `first` + 25 in the 16 bytes at p, all
// of which are below 0x80.
inline void swapAsciiCase(char* p, char first) {
#if defined(__SSE2__)
    const __m128i v = load(p);
    const __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(first - 1))),
                                          _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(first + 26))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p),
                     _mm_xor_si128(v, _mm_and_si128(letters, _mm_set1_epi8(0x20))));
#else
    for (unsigned i = 0; i < 16; ++i) {
        if (static_cast<unsigned char>(p[i] - first) < 26) p[i] = static_cast<char>(p[i] ^ 0x20);
    }
#endif
}

// Whether all 16 bytes at p are below 0x80.
inline bool isAscii(const char* p) {
    return highBits(p) == 0;
}
// Bit i set where p[i] is c.
inline unsigned positionsOf(const char* p, char c) {
    return equalMask(p, c);
}

}  // namespace basicutil::blocks
