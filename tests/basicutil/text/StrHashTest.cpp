#include "basicutil/text/StrHash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "basicutil/text/HashedStr.h"

namespace basicutil {
namespace {

// The letters a..z repeated, cut to n bytes.
std::string alphabet(std::size_t n) {
    std::string s;
    for (std::size_t i = 0; i < n; ++i) s.push_back(static_cast<char>('a' + i % 26));
    return s;
}

// The values are the algorithm: any change to them is a change of every stored hash.
TEST(StrHashTest, KnownAnswersAtEveryLengthClass) {
    const struct {
        std::string text;
        std::uint64_t seed, hash;
    } cases[] = {
        {"", 0, 0x5340050a6baf3166ULL},
        {"a", 0, 0x8f0f087d5a0e8ce8ULL},
        {"abc", 0, 0xf1776f1a6471eba2ULL},
        {"INFO", 0, 0x2a6ea0468334c573ULL},
        {"12345678", 0, 0xa299020a347540bbULL},
        {"123456789", 0, 0x15ab0cdbebd3adaaULL},
        {"0123456789abcdef", 0, 0x423969cc577722e2ULL},
        {"0123456789abcdefg", 0, 0x6c61d1b9a348b68eULL},
        {"INFO", 42, 0x2bb34d0d9fba72a5ULL},
        {alphabet(100), 0, 0x8092b0f7a9dfd365ULL},
        {alphabet(256), 0, 0x70a40b382c9cb1a5ULL},
        {alphabet(257), 0, 0xb2ca881d642edd9aULL},
        {alphabet(1000), 0, 0xfd8fa661a3a7ddd4ULL},
        {alphabet(1000), 7, 0x841d2d33f07fd850ULL},
    };
    for (const auto& c : cases) EXPECT_EQ(strHash(c.text, c.seed), c.hash) << c.text.size() << " bytes";
    // The compiler's value is the run time's.
    static_assert(strHash("INFO") == 0x2a6ea0468334c573ULL);
    static_assert(strHash("0123456789abcdefg") == 0x6c61d1b9a348b68eULL);
    constexpr HashedStrSegment kInfo("INFO");
    static_assert(kInfo.hash() == 0x2a6ea0468334c573ULL);
}

// Flipping any input bit flips every output bit with probability near 1/2. With 1000 keys a
// cell's deviation has a standard deviation of 0.016; 0.08 is five of them. One-byte keys have
// only 128 distinct pairs per bit, so their bound is wider (five of 0.044).
TEST(StrHashTest, EveryInputBitFlipsEveryOutputBitHalfTheTime) {
    std::mt19937_64 rng(3);
    for (std::size_t length :
         {1u, 3u, 4u, 7u, 8u, 9u, 16u, 17u, 32u, 33u, 64u, 100u, 128u, 255u, 256u, 257u, 1000u}) {
        const int keys = 1000, bits = static_cast<int>(std::min<std::size_t>(length * 8, 64));
        std::vector<std::uint16_t> flips(static_cast<std::size_t>(bits) * 64);
        for (int k = 0; k < keys; ++k) {
            std::string s(length, '\0');
            for (char& c : s) c = static_cast<char>(rng());
            const std::uint64_t h = strHash(s);
            for (int b = 0; b < bits; ++b) {
                // Short keys: every bit; long ones: 64 bits anywhere, the first and last among them.
                const std::size_t bit = length * 8 <= 64 ? static_cast<std::size_t>(b)
                                        : b == 0         ? 0
                                        : b == 1         ? length * 8 - 1
                                                         : rng() % (length * 8);
                std::string t = s;
                t[bit / 8] = static_cast<char>(t[bit / 8] ^ (1 << (bit % 8)));
                const std::uint64_t d = h ^ strHash(t);
                for (int o = 0; o < 64; ++o)
                    flips[static_cast<std::size_t>(b) * 64 + static_cast<std::size_t>(o)] += (d >> o) & 1;
            }
        }
        const double bound = length == 1 ? 0.22 : 0.08;
        for (std::size_t cell = 0; cell < flips.size(); ++cell) {
            const double p = flips[cell] / static_cast<double>(keys);
            ASSERT_NEAR(p, 0.5, bound)
                << length << " bytes, input bit " << cell / 64 << ", output bit " << cell % 64;
        }
    }
}

// Ten million keys of the shapes tables hold: no two share a hash.
TEST(StrHashTest, NoCollisionAmongTenMillionStructuredKeys) {
    std::vector<std::uint64_t> hashes;
    hashes.reserve(10'000'000);
    char buffer[64];
    for (std::uint64_t i = 0; i < 4'000'000; ++i) {  // decimal numbers
        const std::string s = std::to_string(i);
        hashes.push_back(strHash(s));
    }
    for (std::uint64_t i = 0; i < 2'000'000; ++i) {  // paths
        const int n = std::snprintf(buffer, sizeof buffer, "/var/lib/app/%llu/part-%llu.dat",
                                    static_cast<unsigned long long>(i % 1000),
                                    static_cast<unsigned long long>(i / 1000));
        hashes.push_back(strHashBytes(buffer, static_cast<std::size_t>(n)));
    }
    static const char kSyllables[][4] = {"ka", "lo", "mi", "ne", "ru", "sa", "to", "vi", "be", "do",
                                         "fu", "ga", "hi", "jo", "ku", "ly", "mo", "nu", "pe", "qi"};
    for (std::uint64_t i = 0; i < 2'000'000; ++i) {  // words of two to five syllables
        std::string w;
        for (std::uint64_t x = i + 20; x > 0; x /= 20) w += kSyllables[x % 20];
        hashes.push_back(strHash(w));
    }
    const std::string base = alphabet(40);  // keys differing from one in a single byte
    for (std::size_t at = 0; at < base.size() && hashes.size() < 10'000'000; ++at) {
        for (int v = 0; v < 256 && hashes.size() < 10'000'000; ++v) {
            std::string s = base;
            s[at] = static_cast<char>(v);
            if (s != base || (at == 0 && v == 'a')) hashes.push_back(strHash(s));
        }
    }
    for (std::uint64_t i = 0; hashes.size() < 10'000'000; ++i) {  // ... and numbers with a prefix
        const int n = std::snprintf(buffer, sizeof buffer, "key:%llu", static_cast<unsigned long long>(i));
        hashes.push_back(strHashBytes(buffer, static_cast<std::size_t>(n)));
    }
    std::sort(hashes.begin(), hashes.end());
    EXPECT_EQ(std::adjacent_find(hashes.begin(), hashes.end()), hashes.end());
}

// In pieces of every size, the streaming hasher gives the one-shot hash at every length,
// across the 16-, 256-byte and stripe boundaries.
TEST(StrHashTest, StreamingGivesTheOneShotHash) {
    std::mt19937_64 rng(17);
    std::string text(1600, '\0');
    for (char& c : text) c = static_cast<char>(rng());
    // Every length to 300, then each multiple of the 128-byte stripe and its neighbours: the
    // stream must fold a stripe only when more than 128 bytes follow it.
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length <= 300; ++length) lengths.push_back(length);
    for (std::size_t stripes = 3; stripes <= 12; ++stripes) {
        for (std::size_t length : {128 * stripes - 1, 128 * stripes, 128 * stripes + 1})
            lengths.push_back(length);
    }
    for (std::size_t length : lengths) {
        for (std::uint64_t seed : {std::uint64_t{0}, std::uint64_t{99}}) {
            StrHasher hasher(seed);
            for (std::size_t at = 0; at < length;) {
                const std::size_t piece = std::min<std::size_t>(length - at, 1 + rng() % 700);
                hasher.update(text.data() + at, piece);
                at += piece;
            }
            ASSERT_EQ(hasher.finish(), strHashBytes(text.data(), length, seed))
                << length << " bytes, seed " << seed;
            ASSERT_EQ(hasher.size(), length);
        }
    }
}

TEST(StrHashTest, SeedsGiveUnrelatedValues) {
    std::unordered_set<std::uint64_t> seen;
    for (std::uint64_t seed = 0; seed < 1000; ++seed) seen.insert(strHash("same key", seed));
    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_NE(strHash(alphabet(300), 1), strHash(alphabet(300), 2));
}

TEST(HashedStrTest, EqualityAndContainersUseTheStoredHash) {
    const HashedStr a("alpha"), b(Str("alpha")), c("beta");
    EXPECT_EQ(a, b);
    EXPECT_FALSE(a == c);
    EXPECT_TRUE(a == HashedStrSegment("alpha"));
    EXPECT_EQ(HashedStr(HashedStrSegment("x")).hash(), strHash("x"));
    // A hash that matches with bytes that differ is no match.
    EXPECT_FALSE(HashedStrSegment::withHash("alpha", a.hash()) ==
                 HashedStrSegment::withHash("alphb", a.hash()));

    std::unordered_set<HashedStr> plain{a, c};
    EXPECT_EQ(plain.count(HashedStr("beta")), 1u);
    std::unordered_set<HashedStr, HashedStrHash, std::equal_to<>> byView{a, c};
    EXPECT_NE(byView.find(HashedStrSegment("alpha")), byView.end());
    EXPECT_EQ(byView.find(HashedStrSegment("gamma")), byView.end());
    EXPECT_EQ(std::hash<HashedStrSegment>()(HashedStrSegment("beta")),
              static_cast<std::size_t>(strHash("beta")));
}

}  // namespace
}  // namespace basicutil
