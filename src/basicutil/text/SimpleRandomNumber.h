// The simple random generator: fast, small, good statistics, the same sequence from the same seed
// on every platform. Not for secrets: secureRandomBytes is.
//
//   SimpleRandomNumber rng(42);                 // reproducible
//   std::uint64_t die = rng.between(1, 6);      // unbiased, inclusive
//   double u = rng.unit();                      // [0, 1)
//   rng.shuffle(cards.begin(), cards.end());
//
//   threadRandom().below(n);                    // this thread's, for hot loops (no lock)
//   processRandom();                            // the process-wide one, from any thread (a lock)
//
// The algorithm is xoshiro256** (Blackman and Vigna, "Scrambled linear pseudorandom number
// generators", ACM TOMS 47(4), 2021): 256 bits of state, period 2^256 - 1, a few shifts, xors and
// two multiplies a number. The authors report that it passes BigCrush (TestU01) and PractRand to
// at least 32 TB with no failures; its low bits have no linear artefacts (unlike xoshiro256+).
// A 64-bit seed becomes the state through splitmix64 (Steele, Lea and Flood 2014), so that
// neighbouring seeds give unrelated sequences and no seed gives the all-zero state.
//
// Every derived value is defined here, not by the standard library, so that a seed gives the
// same numbers everywhere: below(n) is Lemire's multiply-and-reject ("Fast random integer
// generation in an interval", ACM TOMS 2019), on one draw up to 2^62 and on two above, unbiased
// for every n; unit() is the top 53 bits times 2^-53; shuffle is Fisher-Yates from the end.
//
// The process-wide generator is seeded before main (start-up order 15) from the bitwise
// complement of (process id XOR the low 32 bits of gettimeofday's seconds XOR its microseconds),
// all in 32-bit unsigned arithmetic (startupSeed), then expanded as any seed. Each thread's
// generator is seeded from it on first use. After fork the child's process-wide generator is
// reseeded from its parent's next number, its process id and the kernel's random bytes, and
// every thread generator in the child reseeds on its next use: a child never repeats its
// parent's sequence.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/Status.h"

namespace basicutil {

namespace simple_random_details {
// splitmix64: each call gives the next word of a sequence in which every 64-bit state differs.
constexpr std::uint64_t splitmix64(std::uint64_t& x) noexcept {
    std::uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

__extension__ typedef unsigned __int128 Uint128;

// Uniform in [0, n) from two 64-bit draws: Lemire's multiply-and-reject on 128 bits. The draws
// are a 128-bit number r (the first its high word); the result is the top word of r * n, retried
// while the product's low 128 bits are below 2^128 mod n, which happens with probability below
// n / 2^128: there is no branch to mispredict, where 64 bits would retry up to half the time.
// `first` is the first draw, already made.
template <class Draw>
constexpr std::uint64_t belowWide(std::uint64_t n, std::uint64_t first, Draw&& draw) noexcept {
    for (;; first = draw()) {
        const Uint128 high = static_cast<Uint128>(first) * n;
        const Uint128 low = static_cast<Uint128>(draw()) * n;
        const auto highLow = static_cast<std::uint64_t>(high);
        const std::uint64_t middle = highLow + static_cast<std::uint64_t>(low >> 64);  // bits 64-127
        const std::uint64_t result = static_cast<std::uint64_t>(high >> 64) + (middle < highLow ? 1 : 0);
        const auto bottom = static_cast<std::uint64_t>(low);  // bits 0-63
        if (middle != 0 || bottom >= n) [[likely]]
            return result;
        const std::uint64_t mod64 = (0 - n) % n;  // 2^64 mod n; its square mod n is 2^128 mod n
        if (bottom >= static_cast<std::uint64_t>(static_cast<Uint128>(mod64) * mod64 % n)) return result;
    }
}
}  // namespace simple_random_details

// A generator: xoshiro256**, seeded through splitmix64. Copying it copies its sequence.
class SimpleRandomNumber {
  public:
    using result_type = std::uint64_t;  // a UniformRandomBitGenerator, for the standard algorithms

    // The generator of `seed`.
    explicit SimpleRandomNumber(std::uint64_t seed = 0) noexcept { reseed(seed); }
    // The state that `seed` expands to: the same sequence as a new generator made from it. Inline,
    // so that a generator made in a function need not live in memory: its state can stay in
    // registers.
    void reseed(std::uint64_t seed) noexcept {
        _s[0] = simple_random_details::splitmix64(seed);
        _s[1] = simple_random_details::splitmix64(seed);
        _s[2] = simple_random_details::splitmix64(seed);
        _s[3] = simple_random_details::splitmix64(seed);
    }

    // 64 random bits.
    std::uint64_t next() noexcept {
        const std::uint64_t result = rotl(_s[1] * 5, 7) * 9;
        const std::uint64_t t = _s[1] << 17;
        _s[2] ^= _s[0];
        _s[3] ^= _s[1];
        _s[1] ^= _s[2];
        _s[0] ^= _s[3];
        _s[2] ^= t;
        _s[3] = rotl(_s[3], 45);
        return result;
    }
    std::uint64_t operator()() noexcept { return next(); }  // next()
    static constexpr std::uint64_t min() noexcept { return 0; }
    static constexpr std::uint64_t max() noexcept { return std::numeric_limits<std::uint64_t>::max(); }

    // Uniform in [0, n); n must not be 0 (an assertion). Up to 2^62, Lemire's multiply-and-reject
    // on one draw (retried with probability below n / 2^64); above, where that would retry up to
    // half the time, the same on two draws (belowWide: retried with probability below 2^-64).
    std::uint64_t below(std::uint64_t n) noexcept {
        VESTRA_ASSERT(n != 0);
        const std::uint64_t first = next();
        if (n > (std::uint64_t{1} << 62)) [[unlikely]]
            return simple_random_details::belowWide(n, first, [this] { return next(); });
        Uint128 product = static_cast<Uint128>(first) * n;
        if (static_cast<std::uint64_t>(product) < n) [[unlikely]] {
            // The product's low word fell among the first n values: retry while it is among the
            // 2^64 mod n that would favour some results. Inline, so that the state stays in
            // registers: a call here would make the caller keep it in memory on every draw.
            const std::uint64_t threshold = (0 - n) % n;
            while (static_cast<std::uint64_t>(product) < threshold)
                product = static_cast<Uint128>(next()) * n;
        }
        return static_cast<std::uint64_t>(product >> 64);
    }
    // Uniform in [low, high], both included; low must not exceed high (an assertion).
    std::uint64_t between(std::uint64_t low, std::uint64_t high) noexcept;
    std::int64_t between(std::int64_t low, std::int64_t high) noexcept;  // the same, signed
    // Uniform in [0, 1): the top 53 bits, each double of the form k * 2^-53 equally likely.
    double unit() noexcept {
        return static_cast<double>(static_cast<std::int64_t>(next() >> 11)) * 0x1.0p-53;
    }
    // `length` random bytes (little-endian words, so the same bytes everywhere).
    void fill(void* out, std::size_t length) noexcept;

    // Every order of [first, last) equally likely.
    template <class RandomIt>
    void shuffle(RandomIt first, RandomIt last) noexcept {
        using std::swap;
        for (auto n = static_cast<std::uint64_t>(last - first); n > 1; --n)
            swap(first[static_cast<std::ptrdiff_t>(n - 1)], first[static_cast<std::ptrdiff_t>(below(n))]);
    }
    // One of [first, last), which must not be empty.
    template <class RandomIt>
    RandomIt choose(RandomIt first, RandomIt last) noexcept {
        return first + static_cast<std::ptrdiff_t>(below(static_cast<std::uint64_t>(last - first)));
    }

  private:
    using Uint128 = simple_random_details::Uint128;
    static constexpr std::uint64_t rotl(std::uint64_t x, int k) noexcept {
        return (x << k) | (x >> (64 - k));
    }
    std::uint64_t _s[4];
};

// The next 64 bits of the process-wide generator; safe from any thread (a short lock).
std::uint64_t processRandom() noexcept;
// Reseeds the process-wide generator (reproducible runs); thread generators reseed from it on
// their next use.
void reseedProcessRandom(std::uint64_t seed) noexcept;
// This thread's generator: no lock; seeded from the process-wide one on first use, and again
// after reseedProcessRandom or fork.
SimpleRandomNumber& threadRandom() noexcept;

// The start-up seed from its inputs: ~(pid ^ low 32 bits of seconds ^ microseconds), 32 bits.
std::uint32_t startupSeed(std::uint32_t pid, std::int64_t seconds, std::int64_t microseconds) noexcept;

// Cryptographically strong bytes from the kernel (getrandom on Linux, arc4random_buf on
// FreeBSD): for keys, tokens, seeds of tables that hold untrusted keys and unguessable names.
// A failure (the kernel's errno) leaves no usable bytes.
Status secureRandomBytes(void* out, std::size_t length);

}  // namespace basicutil
