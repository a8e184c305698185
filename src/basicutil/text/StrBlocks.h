// Block tests behind the string hot paths: 16-byte blocks in SSE2 on x86-64 (every target we ship
// on), a portable two-word version elsewhere; and what the AVX2 paths share (32-byte tables), in
// functions compiled for AVX2 that run only where platform::cpuHasAvx2() says the processor has it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define VESTRA_HAVE_AVX2_BLOCKS 1
// A function compiled for AVX2 whatever the build's target.
#define VESTRA_AVX2 __attribute__((target("avx2")))
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

// How many of the bytes in `count` blocks at p equal c.
inline std::size_t countEqual(const char* p, std::size_t count, char c) {
    std::size_t total = 0;
#if defined(__SSE2__)
    // Each equal byte subtracts -1 from its lane; at most 255 blocks before a lane could wrap,
    // then the lanes are summed.
    const __m128i needle = _mm_set1_epi8(c);
    while (count > 0) {
        const std::size_t run = count < 255 ? count : 255;
        __m128i lanes = _mm_setzero_si128();
        for (std::size_t i = 0; i < run; ++i, p += kBlock)
            lanes = _mm_sub_epi8(lanes, _mm_cmpeq_epi8(load(p), needle));
        const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        total += static_cast<std::size_t>(_mm_cvtsi128_si64(sums)) +
                 static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
        count -= run;
    }
#else
    // Eight bytes at a time: a byte of x is zero where the text holds c; adding 0x7f to each
    // byte's low seven bits sets its top bit unless all eight bits were zero.
    constexpr std::uint64_t kLow7 = 0x7f7f7f7f7f7f7f7fULL, kOnes = 0x0101010101010101ULL;
    const std::uint64_t pattern = kOnes * static_cast<unsigned char>(c);
    for (const char* const end = p + count * kBlock; p < end; p += 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        const std::uint64_t x = word ^ pattern;
        const std::uint64_t hits = ~((((x & kLow7) + kLow7) | x) | kLow7) >> 7;  // 1 in each byte equal to c
        total += static_cast<std::size_t>((hits * kOnes) >> 56);
    }
#endif
    return total;
}

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

// Whether any of the four blocks (64 bytes) at p holds a or b: one test for a stretch where
// neither is expected, such as a long line.
inline bool anyOfTwoIn4Blocks(const char* p, char a, char b) {
#if defined(__SSE2__)
    const __m128i va = _mm_set1_epi8(a), vb = _mm_set1_epi8(b);
    const auto hits = [&](const char* q) {
        const __m128i v = load(q);
        return _mm_or_si128(_mm_cmpeq_epi8(v, va), _mm_cmpeq_epi8(v, vb));
    };
    const __m128i any =
        _mm_or_si128(_mm_or_si128(hits(p), hits(p + 16)), _mm_or_si128(hits(p + 32), hits(p + 48)));
    return _mm_movemask_epi8(any) != 0;
#else
    for (unsigned i = 0; i < 4 * kBlock; ++i) {
        if (p[i] == a || p[i] == b) return true;
    }
    return false;
#endif
}

#if defined(VESTRA_HAVE_AVX2_BLOCKS)
// A 16-entry table for _mm256_shuffle_epi8, the same in both 128-bit lanes.
VESTRA_AVX2 inline __m256i table32(char a0, char a1, char a2, char a3, char a4, char a5, char a6, char a7,
                                   char a8, char a9, char a10, char a11, char a12, char a13, char a14,
                                   char a15) {
    return _mm256_setr_epi8(a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a0, a1, a2,
                            a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15);
}
#endif

}  // namespace basicutil::blocks
