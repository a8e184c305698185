// The library's one string hash: 64 bits, the same value on every platform and in every build,
// usable at compile time.
//
//   constexpr std::uint64_t kInfo = strHash("INFO");         // a constant, hashed by the compiler
//   std::uint64_t h = strHash(line);                          // the same value at run time
//   std::uint64_t mine = strHash(key, tableSeed);             // seeded: tables of untrusted keys
//
// The algorithm is our own, built from the folded multiply (the 128-bit product of two 64-bit
// words, its halves xored), which mixes every bit of both words into the upper half and, through
// the xor, into every output bit. Inputs are read as little-endian words:
// - up to 16 bytes: two overlapping words (the first and last 8, the first and last 4, or three
//   bytes for 1 to 3), one folded multiply, then a final one with the length;
// - 17 to 256 bytes: 16-byte pairs from both ends toward the middle, each folded under its own
//   constant, summed, then the final fold;
// - longer: eight lanes over 128-byte stripes, each lane chaining its state into the next
//   stripe's fold (so stripes cannot be reordered or cancelled), the last 128 bytes taken as one
//   more stripe, the lanes folded together, then the final fold.
// It needs nothing beyond x86-64's baseline (the 64x64->128 multiply is one instruction there,
// and portable C++ where there is none); no instruction-set check, no table.
//
// Quality (StrHashTest measures both, in bounded time): flipping any input bit flips each output
// bit with probability within 0.5 +- 0.05 over random keys of every length class; no collision
// among 10^7 structured keys (decimal numbers, words, paths, keys differing in one byte).
//
// The seed changes every word that enters a multiply, so collisions found for one seed say
// nothing about another: use a random seed (secureRandomBytes in SimpleRandomNumber.h) for
// tables whose keys come from outside (hash flooding). The hash is not a cryptographic MAC: it
// does not authenticate anything. Never std::hash: its value changes between libraries.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace basicutil {

namespace str_hash_details {

inline constexpr std::uint64_t kSecret[12] = {
    0xa6f5e250ac9b03abULL, 0x22178fe337a136a7ULL, 0x06b678e3f5ec9a17ULL, 0x94b20d4d68aa6f11ULL,
    0x6392fa1b2f668e25ULL, 0x29c1cf4dc647ba35ULL, 0x26d40529be4f7ca3ULL, 0x7a687bee224f2321ULL,
    0x66a563c9730bb279ULL, 0x34417445969507edULL, 0xe6beac95269466b9ULL, 0x12ceeb3d8ae5c897ULL,
};

#if defined(__SIZEOF_INT128__)
__extension__ typedef unsigned __int128 Uint128;  // one multiply instruction on x86-64
#endif

// The 128-bit product's halves, xored.
constexpr std::uint64_t fold(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    const Uint128 product = static_cast<Uint128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const std::uint64_t aLow = a & 0xFFFFFFFFu, aHigh = a >> 32, bLow = b & 0xFFFFFFFFu, bHigh = b >> 32;
    const std::uint64_t ll = aLow * bLow, lh = aLow * bHigh, hl = aHigh * bLow, hh = aHigh * bHigh;
    const std::uint64_t middle = (ll >> 32) + (lh & 0xFFFFFFFFu) + (hl & 0xFFFFFFFFu);
    const std::uint64_t low = (middle << 32) | (ll & 0xFFFFFFFFu);
    const std::uint64_t high = hh + (lh >> 32) + (hl >> 32) + (middle >> 32);
    return low ^ high;
#endif
}

// Little-endian words, byte by byte where the compiler evaluates and in one load otherwise.
constexpr std::uint64_t read64(const char* p) noexcept {
    if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
        std::uint64_t v = 0;
        for (int i = 7; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(p[i]);
        return v;
    }
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}
constexpr std::uint64_t read32(const char* p) noexcept {
    if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
        std::uint64_t v = 0;
        for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(p[i]);
        return v;
    }
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// The seed as the two words that enter every first fold.
struct Keys {
    std::uint64_t a, b;
};
constexpr Keys keysOf(std::uint64_t seed) noexcept {
    return {kSecret[0] ^ seed, kSecret[1] ^ std::rotl(seed, 29)};
}

constexpr std::uint64_t finish(std::uint64_t h, std::size_t length, const Keys& k) noexcept {
    return fold(h ^ kSecret[2], static_cast<std::uint64_t>(length) ^ k.b ^ kSecret[3]);
}

// 17 to 256 bytes: the i-th 16 bytes from the front and from the back, until they meet.
constexpr std::uint64_t pairFold(const char* s, std::uint64_t key, std::uint64_t secret) noexcept {
    return fold(read64(s) ^ key, read64(s + 8) ^ secret);
}
constexpr std::uint64_t frontFold(const char* p, const Keys& k) noexcept {
    return pairFold(p, k.a ^ kSecret[2], kSecret[10]);
}
constexpr std::uint64_t backFold(const char* end, const Keys& k) noexcept {
    return pairFold(end - 16, k.b ^ kSecret[3], kSecret[11]);
}
constexpr std::uint64_t finishPairs(std::uint64_t front, std::uint64_t back, std::size_t n,
                                    const Keys& k) noexcept {
#if defined(__GNUC__)
    if (!std::is_constant_evaluated()) asm("" : "+r"(front), "+r"(back));  // as in strHashBytes
#endif
    return finish(front ^ std::rotl(back, 32), n, k);
}
// 33 to 256 bytes, out of line: its loop's registers would otherwise make every short hash save
// registers first. (17 to 32 bytes are the first and last pair alone, inline in strHashBytes.)
[[gnu::noinline]] constexpr std::uint64_t hashMedium(const char* p, std::size_t n, Keys k) noexcept {
    const char* const end = p + n;
    std::uint64_t front = frontFold(p, k) + pairFold(p + 16, k.a ^ kSecret[3], kSecret[10]);
    std::uint64_t back = backFold(end, k) + pairFold(end - 32, k.b ^ kSecret[4], kSecret[11]);
    for (std::size_t i = 2; 32 * i < n; ++i) {
        front += pairFold(p + 16 * i, k.a ^ kSecret[i + 2], kSecret[10]);
        back += pairFold(end - 16 * (i + 1), k.b ^ kSecret[i + 3], kSecret[11]);
    }
    return finishPairs(front, back, n, k);
}

// One 16-byte step of a lane: the lane's state enters the fold, so stripes chain.
constexpr std::uint64_t laneStep(std::uint64_t lane, const char* s, std::uint64_t key,
                                 std::uint64_t secret) noexcept {
    return fold(read64(s) ^ key ^ lane, read64(s + 8) ^ secret);
}

// More than 256 bytes: eight lanes of 16 bytes over 128-byte stripes. The one-shot hash and the
// streaming StrHasher both run it.
struct Lanes {
    std::uint64_t k0, k1, k2, k3, k4, k5, k6, k7;  // the seeded keys, one a lane
    std::uint64_t l0, l1, l2, l3, l4, l5, l6, l7;  // the lanes

    constexpr explicit Lanes(const Keys& k) noexcept
        : k0(kSecret[0] ^ k.b),
          k1(kSecret[1] ^ k.a),
          k2(kSecret[2] ^ k.b),
          k3(kSecret[3] ^ k.a),
          k4(kSecret[4] ^ k.b),
          k5(kSecret[5] ^ k.a),
          k6(kSecret[6] ^ k.b),
          k7(kSecret[7] ^ k.a),
          l0(kSecret[4] ^ k.a),
          l1(kSecret[5] ^ k.b),
          l2(kSecret[6] ^ k.a),
          l3(kSecret[7] ^ k.b),
          l4(kSecret[8] ^ k.a),
          l5(kSecret[9] ^ k.b),
          l6(kSecret[10] ^ k.a),
          l7(kSecret[11] ^ k.b) {}

    // One 128-byte stripe.
    constexpr void stripe(const char* s) noexcept {
        l0 = laneStep(l0, s, k0, kSecret[2]);
        l1 = laneStep(l1, s + 16, k1, kSecret[3]);
        l2 = laneStep(l2, s + 32, k2, kSecret[4]);
        l3 = laneStep(l3, s + 48, k3, kSecret[5]);
        l4 = laneStep(l4, s + 64, k4, kSecret[6]);
        l5 = laneStep(l5, s + 80, k5, kSecret[7]);
        l6 = laneStep(l6, s + 96, k6, kSecret[8]);
        l7 = laneStep(l7, s + 112, k7, kSecret[9]);
    }
    // The hash of n bytes once every stripe is in, the last 128 bytes included.
    constexpr std::uint64_t result(std::size_t n, const Keys& k) const noexcept {
        const std::uint64_t h =
            fold(l0 ^ kSecret[0], l1 ^ kSecret[1]) + fold(l2 ^ kSecret[2], l3 ^ kSecret[3]) +
            fold(l4 ^ kSecret[4], l5 ^ kSecret[5]) + fold(l6 ^ kSecret[6], l7 ^ kSecret[7]);
        return finish(h, n, k);
    }
};

// Out of line: its eight lanes would otherwise make every short hash save registers first.
[[gnu::noinline]] constexpr std::uint64_t hashLong(const char* p, std::size_t n, Keys k) noexcept {
    Lanes lanes(k);
    const char* const last = p + n - 128;
    for (; p < last; p += 128) lanes.stripe(p);
    lanes.stripe(last);  // the end, overlapping what came before
    return lanes.result(n, k);
}

// Up to 16 bytes as the two words the hash folds. They hold every byte of the text, so with the
// length they tell texts apart (the static sets compare these instead of the bytes).
struct ShortWords {
    std::uint64_t a = 0, b = 0;
};
// The words of 4 to 16 bytes, and of 0 to 3.
[[gnu::always_inline]] constexpr ShortWords wordsOf4To16(const char* p, std::size_t n) noexcept {
    ShortWords w;
    if (n > 8) {
        w.a = read64(p);
        w.b = read64(p + n - 8);
    } else {
        w.a = read32(p);
        w.b = read32(p + n - 4);
    }
    return w;
}
constexpr ShortWords wordsOf0To3(const char* p, std::size_t n) noexcept {
    ShortWords w;
    if (n > 0) {
        w.a = (std::uint64_t{static_cast<unsigned char>(p[0])} << 16) |
              (std::uint64_t{static_cast<unsigned char>(p[n >> 1])} << 8) |
              static_cast<unsigned char>(p[n - 1]);
    }
    return w;
}
// The words meet here in registers: without this GCC copies the multiply into each branch and
// joins the 128-bit products through the stack, a store and a load on the critical path.
[[gnu::always_inline]] constexpr ShortWords inRegisters(ShortWords w) noexcept {
#if defined(__GNUC__)
    if (!std::is_constant_evaluated()) asm("" : "+r"(w.a), "+r"(w.b));
#endif
    return w;
}
[[gnu::always_inline]] constexpr ShortWords shortWords(const char* p, std::size_t n) noexcept {
    return inRegisters(n >= 4 ? wordsOf4To16(p, n) : wordsOf0To3(p, n));
}
// The hash of a text of n <= 16 bytes from its words.
constexpr std::uint64_t hashShort(const ShortWords& w, std::size_t n, const Keys& k) noexcept {
    return finish(fold(w.a ^ k.a, w.b ^ k.b), n, k);
}

}  // namespace str_hash_details

// The hash of n bytes at p under `seed` (0 unless the caller asks for its own). Named apart from
// strHash so that strHash("key", seed) can never be taken for a pointer and a length.
[[gnu::always_inline]] constexpr std::uint64_t strHashBytes(const char* p, std::size_t n,
                                                            std::uint64_t seed = 0) noexcept {
    using namespace str_hash_details;
    const Keys k = keysOf(seed);
    // 4 to 16 bytes first: one test, then one more for the word width.
    if (n - 4 <= 12) [[likely]]
        return hashShort(inRegisters(wordsOf4To16(p, n)), n, k);
    if (n < 4) return hashShort(wordsOf0To3(p, n), n, k);
    if (n <= 32) return finishPairs(frontFold(p, k), backFold(p + n, k), n, k);
    if (n <= 256) return hashMedium(p, n, k);
    return hashLong(p, n, k);
}

// The same for a view.
[[gnu::always_inline]] constexpr std::uint64_t strHash(std::string_view text,
                                                       std::uint64_t seed = 0) noexcept {
    return strHashBytes(text.data(), text.size(), seed);
}

// The same hash of bytes given in pieces (a file read in blocks): finish() is strHash of all the
// bytes update() was given, with the same seed. Memory stays 512 bytes whatever the length.
class StrHasher {
  public:
    // Nothing given yet, hashing under `seed`.
    explicit StrHasher(std::uint64_t seed = 0) noexcept
        : _seed(seed), _keys(str_hash_details::keysOf(seed)), _lanes(_keys) {}
    // The next n bytes.
    void update(const void* data, std::size_t n) noexcept;
    // The hash of everything given so far (more may follow).
    std::uint64_t finish() const noexcept;
    // Bytes given so far.
    std::uint64_t size() const noexcept { return _total; }

  private:
    static constexpr std::size_t kBuffer = 512;
    std::uint64_t _seed;
    str_hash_details::Keys _keys;
    str_hash_details::Lanes _lanes;
    std::uint64_t _total = 0;      // bytes given
    std::uint64_t _processed = 0;  // bytes in the stripes folded so far
    std::uint64_t _start = 0;      // the offset of _buffer[0] in the bytes given
    std::size_t _used = 0;         // bytes in _buffer
    char _buffer[kBuffer];
};

}  // namespace basicutil
