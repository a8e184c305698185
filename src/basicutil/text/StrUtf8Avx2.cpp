// UTF-8 validity's AVX2 path, chosen at run time where the processor has AVX2.
//
// UTF-8 validity 32 bytes at a time: each byte is judged with the one before it through three
// 16-entry lookup tables (the high nibble of the previous byte, its low nibble, the high nibble
// of this byte), whose AND is non-zero exactly where the pair is wrong; bytes that must be the
// third or fourth of a sequence are checked from the bytes two and three back. The tables carry
// this library's rules: three-byte forms are not checked past their lead, so overlong forms
// (E0 80 80) and surrogates (ED A0 80) pass, as they do byte by byte.
#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/StrUtf8_details.h"

#if defined(VESTRA_HAVE_AVX2_BLOCKS)
#include <cstdint>

namespace basicutil::utf8_details {

namespace {

// What a pair of bytes can get wrong, one bit each.
constexpr char TOO_SHORT = 1 << 0;        // a lead, then no continuation
constexpr char TOO_LONG = 1 << 1;         // ASCII, then a continuation
constexpr char OVERLONG_2 = 1 << 5;       // C0 or C1
constexpr char TWO_CONTS = char(1 << 7);  // a continuation after a continuation (right only
                                          // as a third or fourth byte, checked apart)
constexpr char TOO_LARGE = 1 << 3;        // past U+10FFFF: F4 9x-Bx, or F5 and up
constexpr char TOO_LARGE_1000 = 1 << 6;   // F5 and up, then 8x
constexpr char OVERLONG_4 = 1 << 6;       // F0 8x
constexpr char CARRY = TOO_SHORT | TOO_LONG | TWO_CONTS;

// The bytes of `input` moved N places later, the last N of `previous` coming in front.
template <int N>
VESTRA_AVX2 inline __m256i earlier(__m256i input, __m256i previous) {
    return _mm256_alignr_epi8(input, _mm256_permute2x128_si256(previous, input, 0x21), 16 - N);
}

VESTRA_AVX2 inline __m256i highNibbles(__m256i v) {
    return _mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi8(0x0F));
}

struct Tables {
    __m256i byte1High, byte1Low, byte2High;
};

VESTRA_AVX2 Tables makeTables() {
    return {
        blocks::table32(TOO_LONG, TOO_LONG, TOO_LONG, TOO_LONG, TOO_LONG, TOO_LONG, TOO_LONG,
                        TOO_LONG,                                              // 0_______
                        TWO_CONTS, TWO_CONTS, TWO_CONTS, TWO_CONTS,            // 10______
                        TOO_SHORT | OVERLONG_2,                                // 1100____
                        TOO_SHORT,                                             // 1101____
                        TOO_SHORT,                                             // 1110____
                        TOO_SHORT | TOO_LARGE | TOO_LARGE_1000 | OVERLONG_4),  // 1111____
        blocks::table32(CARRY | OVERLONG_2 | OVERLONG_4,                       // ____0000
                        CARRY | OVERLONG_2,                                    // ____0001
                        CARRY, CARRY,                                          // ____001_
                        CARRY | TOO_LARGE,                                     // ____0100
                        CARRY | TOO_LARGE | TOO_LARGE_1000,
                        CARRY | TOO_LARGE | TOO_LARGE_1000,  // ____0101, 011_
                        CARRY | TOO_LARGE | TOO_LARGE_1000, CARRY | TOO_LARGE | TOO_LARGE_1000,  // ____1___
                        CARRY | TOO_LARGE | TOO_LARGE_1000, CARRY | TOO_LARGE | TOO_LARGE_1000,
                        CARRY | TOO_LARGE | TOO_LARGE_1000, CARRY | TOO_LARGE | TOO_LARGE_1000,
                        CARRY | TOO_LARGE | TOO_LARGE_1000, CARRY | TOO_LARGE | TOO_LARGE_1000,
                        CARRY | TOO_LARGE | TOO_LARGE_1000),
        blocks::table32(TOO_SHORT, TOO_SHORT, TOO_SHORT, TOO_SHORT, TOO_SHORT, TOO_SHORT, TOO_SHORT,
                        TOO_SHORT,                                                        // 0_______
                        TOO_LONG | OVERLONG_2 | TWO_CONTS | TOO_LARGE_1000 | OVERLONG_4,  // 1000____
                        TOO_LONG | OVERLONG_2 | TWO_CONTS | TOO_LARGE,                    // 1001____
                        TOO_LONG | OVERLONG_2 | TWO_CONTS | TOO_LARGE,                    // 101_____
                        TOO_LONG | OVERLONG_2 | TWO_CONTS | TOO_LARGE, TOO_SHORT, TOO_SHORT, TOO_SHORT,
                        TOO_SHORT),  // 11______
    };
}

// Non-zero where `input`, after `previous`, breaks a rule.
VESTRA_AVX2 inline __m256i blockErrors(const Tables& t, __m256i input, __m256i previous) {
    const __m256i prev1 = earlier<1>(input, previous);
    const __m256i pairs = _mm256_and_si256(
        _mm256_and_si256(_mm256_shuffle_epi8(t.byte1High, highNibbles(prev1)),
                         _mm256_shuffle_epi8(t.byte1Low, _mm256_and_si256(prev1, _mm256_set1_epi8(0x0F)))),
        _mm256_shuffle_epi8(t.byte2High, highNibbles(input)));
    // Two or three bytes after a three- or four-byte lead must be a continuation, and only there
    // may one follow another: the TWO_CONTS bit must equal "must be a continuation".
    const __m256i third = _mm256_subs_epu8(earlier<2>(input, previous), _mm256_set1_epi8(char(0xE0 - 0x80)));
    const __m256i fourth = _mm256_subs_epu8(earlier<3>(input, previous), _mm256_set1_epi8(char(0xF0 - 0x80)));
    const __m256i must = _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(char(0x80)));
    return _mm256_xor_si256(must, pairs);
}

}  // namespace

VESTRA_AVX2 bool isValidUtf8Avx2(StrSegment s) noexcept {
    const auto* p = reinterpret_cast<const unsigned char*>(s._data);
    const size_type n = s._len;
    const Tables t = makeTables();
    __m256i errors = _mm256_setzero_si256();
    __m256i previous = _mm256_setzero_si256();
    size_type i = 0;
    for (; n - i >= 32; i += 32) {
        const __m256i input = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i));
        // An ASCII block after a complete one has nothing to check.
        if (_mm256_movemask_epi8(input) != 0 || _mm256_movemask_epi8(previous) != 0) {
            errors = _mm256_or_si256(errors, blockErrors(t, input, previous));
        }
        previous = input;
        if ((i & 1023) == 0 && !_mm256_testz_si256(errors, errors)) return false;
    }
    if (!_mm256_testz_si256(errors, errors)) return false;
    // The tail byte by byte, from the start of the last character the blocks began (its
    // continuation bytes were not judged against their lead).
    size_type from = i;
    for (size_type back = 1; back <= 3 && back <= i; ++back) {
        const unsigned char b = p[i - back];
        if ((b & 0xC0) == 0x80) continue;
        if (b >= 0xC0) from = i - back;
        break;
    }
    return isValidUtf8Scalar(StrSegment(s._data + from, n - from));
}

}  // namespace basicutil::utf8_details

#else

namespace basicutil::utf8_details {
bool isValidUtf8Avx2(StrSegment s) noexcept {
    return isValidUtf8Scalar(s);
}
}  // namespace basicutil::utf8_details

#endif
