// Block tests behind the string hot paths: 16 bytes at a time. Every test exists twice: in SSE2
// (x86-64, every target we ship on) and in portable code. The portable form is the reference:
// StrBlocksTest holds the SSE2 form against it on every input it makes, and it is what runs
// where SSE2 is missing. Callers use the names in `blocks`, which are the fast form the build
// has. What the AVX2 paths share (32-byte tables) sits at the end, in functions compiled for
// AVX2 that run only where platform::cpuHasAvx2() says the processor has it.
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

// utf8Leads' answer for a block that breaks the lead/continuation rule.
inline constexpr unsigned kNotWellFormed = ~0u;

// Up to eight ranges of byte values, for finding the bytes of a block that lie in any of them.
class ByteRanges {
  public:
    static constexpr unsigned kMaxRanges = 8;
    // Adds [low, high]; false (nothing added) once kMaxRanges are held or when low > high.
    bool add(unsigned char low, unsigned char high) noexcept {
        if (_count == kMaxRanges || low > high) return false;
        _low[_count] = low;
        _span[_count] = static_cast<unsigned char>(high - low);
#if defined(__SSE2__)
        _lowBlock[_count] = _mm_set1_epi8(static_cast<char>(low));
        _spanBlock[_count] = _mm_set1_epi8(static_cast<char>(high - low));
#endif
        ++_count;
        return true;
    }
    unsigned count() const noexcept {
        return _count;
    }
    // Whether range r (r < count()) holds b.
    bool holds(unsigned r, unsigned char b) const noexcept {
        return static_cast<unsigned char>(b - _low[r]) <= _span[r];
    }
#if defined(__SSE2__)
    __m128i lowBlock(unsigned r) const noexcept {
        return _lowBlock[r];
    }
    __m128i spanBlock(unsigned r) const noexcept {
        return _spanBlock[r];
    }
#endif

  private:
    unsigned char _low[kMaxRanges] = {}, _span[kMaxRanges] = {};
#if defined(__SSE2__)
    __m128i _lowBlock[kMaxRanges], _spanBlock[kMaxRanges];
#endif
    unsigned _count = 0;
};

// --- The portable forms: the reference ---------------------------------------------------------
namespace portable {

// Bit i set when byte i of the block has its high bit set (is not ASCII).
inline unsigned highBits(const char* p) {
    unsigned m = 0;
    for (unsigned i = 0; i < kBlock; ++i)
        m |= static_cast<unsigned>(static_cast<unsigned char>(p[i]) >> 7) << i;
    return m;
}
// Bit i set when byte i of the block equals c.
inline unsigned equalMask(const char* p, char c) {
    unsigned m = 0;
    for (unsigned i = 0; i < kBlock; ++i) m |= static_cast<unsigned>(p[i] == c) << i;
    return m;
}

// How many of the bytes in `count` blocks at p equal c: eight bytes at a time. A byte of x is
// zero where the text holds c; adding 0x7f to each byte's low seven bits sets its top bit unless
// all eight bits were zero.
inline std::size_t countEqual(const char* p, std::size_t count, char c) {
    constexpr std::uint64_t kLow7 = 0x7f7f7f7f7f7f7f7fULL, kOnes = 0x0101010101010101ULL;
    const std::uint64_t pattern = kOnes * static_cast<unsigned char>(c);
    std::size_t total = 0;
    for (const char* const end = p + count * kBlock; p < end; p += 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        const std::uint64_t x = word ^ pattern;
        const std::uint64_t hits = ~((((x & kLow7) + kLow7) | x) | kLow7) >> 7;  // 1 in each byte equal to c
        total += static_cast<std::size_t>((hits * kOnes) >> 56);
    }
    return total;
}

// The 16 bytes at in, with the case of the letters `first` ('A' or 'a') to `first` + 25 swapped,
// to out (which may be in). Bytes at or above 0x80 are copied as they are.
inline void swapAsciiCase(const char* in, char* out, char first) {
    for (unsigned i = 0; i < kBlock; ++i) {
        const char c = in[i];
        out[i] = static_cast<unsigned char>(c - first) < 26 ? static_cast<char>(c ^ 0x20) : c;
    }
}

// Whether any of the four blocks (64 bytes) at p holds a or b.
inline bool anyOfTwoIn4Blocks(const char* p, char a, char b) {
    for (unsigned i = 0; i < 4 * kBlock; ++i) {
        if (p[i] == a || p[i] == b) return true;
    }
    return false;
}

// Bit i set when byte i of the block lies in one of the ranges.
inline unsigned inRanges(const char* p, const ByteRanges& ranges) {
    unsigned m = 0;
    for (unsigned i = 0; i < kBlock; ++i) {
        for (unsigned r = 0; r < ranges.count(); ++r) {
            if (ranges.holds(r, static_cast<unsigned char>(p[i]))) {
                m |= 1u << i;
                break;
            }
        }
    }
    return m;
}

// What a block's UTF-8 lead count carries into the next: bit k of `wantsN` is set when byte k of
// the block is a lead of N or more bytes.
struct Utf8Carry {
    unsigned wants2 = 0, wants3 = 0, wants4 = 0;
};
// The number of bytes in the block that are not continuation bytes (80-BF), when every
// continuation byte is one a lead before it asks for and no lead goes without its own (the
// leads counted are C0-F4, the continuation bytes 80-BF; ranges and overlongs are not checked).
// kNotWellFormed, with `carry` left alone, otherwise.
inline unsigned utf8Leads(const char* p, Utf8Carry& carry) {
    Utf8Carry next;
    unsigned continuation = 0;
    for (unsigned i = 0; i < kBlock; ++i) {
        const auto b = static_cast<unsigned char>(p[i]);
        continuation |= static_cast<unsigned>(b >= 0x80 && b <= 0xBF) << i;
        next.wants2 |= static_cast<unsigned>(b >= 0xC0 && b <= 0xF4) << i;
        next.wants3 |= static_cast<unsigned>(b >= 0xE0 && b <= 0xF4) << i;
        next.wants4 |= static_cast<unsigned>(b >= 0xF0 && b <= 0xF4) << i;
    }
    // A byte must continue when one, two or three bytes back is a lead that long or longer.
    const unsigned must = ((next.wants2 << 1) | (carry.wants2 >> 15) | (next.wants3 << 2) |
                           (carry.wants3 >> 14) | (next.wants4 << 3) | (carry.wants4 >> 13)) &
                          0xFFFF;
    if (must != continuation) return kNotWellFormed;
    carry = next;
    return kBlock - static_cast<unsigned>(__builtin_popcount(continuation));
}

}  // namespace portable

// --- The SSE2 forms --------------------------------------------------------------------------
#if defined(__SSE2__)
namespace sse2 {

// The 16 bytes at p, unaligned.
inline __m128i load(const char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline unsigned highBits(const char* p) {
    return static_cast<unsigned>(_mm_movemask_epi8(load(p)));
}
inline unsigned equalMask(const char* p, char c) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(p), _mm_set1_epi8(c))));
}

// Each equal byte subtracts -1 from its lane; at most 255 blocks before a lane could wrap, then
// the lanes are summed.
inline std::size_t countEqual(const char* p, std::size_t count, char c) {
    std::size_t total = 0;
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
    return total;
}

// Bytes at or above 0x80 are negative as signed values, so they are never taken for letters.
inline void swapAsciiCase(const char* in, char* out, char first) {
    const __m128i v = load(in);
    const __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(first - 1))),
                                          _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(first + 26))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_xor_si128(v, _mm_and_si128(letters, _mm_set1_epi8(0x20))));
}

inline bool anyOfTwoIn4Blocks(const char* p, char a, char b) {
    const __m128i va = _mm_set1_epi8(a), vb = _mm_set1_epi8(b);
    const auto hits = [&](const char* q) {
        const __m128i v = load(q);
        return _mm_or_si128(_mm_cmpeq_epi8(v, va), _mm_cmpeq_epi8(v, vb));
    };
    const __m128i any =
        _mm_or_si128(_mm_or_si128(hits(p), hits(p + 16)), _mm_or_si128(hits(p + 32), hits(p + 48)));
    return _mm_movemask_epi8(any) != 0;
}

// b is in [low, low + span] when (b - low) saturated down by span is 0; the smallest of those
// over all ranges is 0 where any range holds b.
inline unsigned inRanges(const char* p, const ByteRanges& ranges) {
    const __m128i v = load(p);
    __m128i distance = _mm_set1_epi8(static_cast<char>(0xFF));
    for (unsigned r = 0; r < ranges.count(); ++r) {
        distance =
            _mm_min_epu8(distance, _mm_subs_epu8(_mm_sub_epi8(v, ranges.lowBlock(r)), ranges.spanBlock(r)));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(distance, _mm_setzero_si128())));
}

struct Utf8Carry {
    __m128i wants2 = _mm_setzero_si128(), wants3 = _mm_setzero_si128(), wants4 = _mm_setzero_si128();
};
inline unsigned utf8Leads(const char* p, Utf8Carry& carry) {
    const auto range = [](__m128i v, int low, int high) {  // signed bounds, inclusive
        return _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(low - 1))),
                             _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(high + 1))));
    };
    const __m128i v = load(p);
    const __m128i continuation = _mm_cmplt_epi8(v, _mm_set1_epi8(-64));          // 80-BF
    const __m128i two = _mm_or_si128(range(v, -64, -17), range(v, -16, -12));    // C0-EF, F0-F4
    const __m128i three = _mm_or_si128(range(v, -32, -17), range(v, -16, -12));  // E0-EF, F0-F4
    const __m128i four = range(v, -16, -12);                                     // F0-F4
    const __m128i must =
        _mm_or_si128(_mm_or_si128(_mm_or_si128(_mm_slli_si128(two, 1), _mm_srli_si128(carry.wants2, 15)),
                                  _mm_or_si128(_mm_slli_si128(three, 2), _mm_srli_si128(carry.wants3, 14))),
                     _mm_or_si128(_mm_slli_si128(four, 3), _mm_srli_si128(carry.wants4, 13)));
    if (_mm_movemask_epi8(_mm_xor_si128(must, continuation)) != 0) return kNotWellFormed;
    carry.wants2 = two;
    carry.wants3 = three;
    carry.wants4 = four;
    return static_cast<unsigned>(__builtin_popcount(~_mm_movemask_epi8(continuation) & 0xFFFF));
}

}  // namespace sse2
#endif

// --- What callers use: the fastest form the build has ------------------------------------------
#if defined(__SSE2__)
namespace fast = sse2;
#else
namespace fast = portable;
#endif
using fast::anyOfTwoIn4Blocks;
using fast::countEqual;
using fast::equalMask;
using fast::highBits;
using fast::inRanges;
using fast::swapAsciiCase;
using fast::Utf8Carry;
using fast::utf8Leads;

// Whether all 16 bytes at p are below 0x80.
inline bool isAscii(const char* p) {
    return highBits(p) == 0;
}
// Bit i set where p[i] is c.
inline unsigned positionsOf(const char* p, char c) {
    return equalMask(p, c);
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
