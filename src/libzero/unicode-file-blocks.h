// The block steps of the Unicode file converters, 16 bytes at a time, each twice: in SSE2 and in
// portable code. The portable form is the reference (unicode-file-blocks-test holds the SSE2
// form against it) and what runs where SSE2 is missing; the converters use the `fast` names.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace libzero_blocks {

// Bytes per block.
inline constexpr size_t kBlock = 16;
// utf16Block's answer when all eight units were ASCII and went to `out` as eight bytes.
inline constexpr unsigned kAllAscii = 16;

namespace portable {

// Copies the 16 bytes at in to out when all are ASCII; false (nothing written) otherwise.
inline bool copyAsciiBlock(const unsigned char* in, char* out) {
    for (size_t i = 0; i < kBlock; ++i) {
        if (in[i] >= 0x80) return false;
    }
    memcpy(out, in, kBlock);
    return true;
}

// The eight UTF-16 units at in (big-endian when kBigEndian): when all are ASCII, writes them to
// out as eight bytes and returns kAllAscii; otherwise stores them in `units` as numbers and
// returns how many come before the first surrogate (8 when there is none).
template <bool kBigEndian>
unsigned utf16Block(const unsigned char* in, char* out, uint16_t units[8]) {
    bool ascii = true;
    unsigned plain = 8;
    for (unsigned k = 0; k < 8; ++k) {
        const unsigned char* p = in + 2 * k;
        const auto unit = static_cast<uint16_t>(kBigEndian ? (p[0] << 8) | p[1] : (p[1] << 8) | p[0]);
        units[k] = unit;
        ascii = ascii && unit < 0x80;
        if (plain == 8 && (unit & 0xF800) == 0xD800) plain = k;
    }
    if (!ascii) return plain;
    for (unsigned k = 0; k < 8; ++k) out[k] = static_cast<char>(units[k]);
    return kAllAscii;
}

}  // namespace portable

#if defined(__SSE2__)
namespace sse2 {

inline bool copyAsciiBlock(const unsigned char* in, char* out) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    if (_mm_movemask_epi8(v) != 0) return false;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
    return true;
}

template <bool kBigEndian>
unsigned utf16Block(const unsigned char* in, char* out, uint16_t units[8]) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    if (kBigEndian) v = _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
    const __m128i asciiMask = _mm_set1_epi16(static_cast<short>(0xFF80));
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, asciiMask), _mm_setzero_si128())) == 0xFFFF) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
        return kAllAscii;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(units), v);
    const __m128i surrogateMask = _mm_set1_epi16(static_cast<short>(0xF800));
    const __m128i surrogate = _mm_set1_epi16(static_cast<short>(0xD800));
    const unsigned surrogates =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, surrogateMask), surrogate)));
    return surrogates == 0 ? 8 : static_cast<unsigned>(__builtin_ctz(surrogates)) / 2;
}

}  // namespace sse2
namespace fast = sse2;
#else
namespace fast = portable;
#endif

}  // namespace libzero_blocks
