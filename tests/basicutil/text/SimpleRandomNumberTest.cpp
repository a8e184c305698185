#include "basicutil/text/SimpleRandomNumber.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <numeric>
#include <thread>
#include <vector>

namespace basicutil {
namespace {

// Values from an independent model of splitmix64 seeding and xoshiro256** (written from the
// papers in a few lines of Python): the same seed gives these numbers on every platform.
TEST(SimpleRandomNumberTest, SeedsGiveTheirSequences) {
    const struct {
        std::uint64_t seed;
        std::array<std::uint64_t, 3> first;
    } cases[] = {{0, {0x99ec5f36cb75f2b4ULL, 0xbf6e1f784956452aULL, 0x1a5f849d4933e6e0ULL}},
                 {42, {0x15780b2e0c2ec716ULL, 0x6104d9866d113a7eULL, 0xae17533239e499a1ULL}}};
    for (const auto& c : cases) {
        SimpleRandomNumber rng(c.seed);
        for (std::uint64_t expected : c.first) EXPECT_EQ(rng.next(), expected) << c.seed;
        rng.reseed(c.seed);
        EXPECT_EQ(rng(), c.first[0]);
    }
    // ~(pid ^ low 32 bits of the seconds ^ microseconds), in 32 bits.
    EXPECT_EQ(startupSeed(1234, 0x100000005LL, 999999), 0xfff0b917u);
    EXPECT_EQ(startupSeed(0, 0, 0), 0xffffffffu);
}

// Chi-square of 600,000 draws in [0, 10) and [0, 7) at fixed seeds: under 27.88 and 22.46, the
// 0.1% points for 9 and 6 degrees of freedom (a fixed seed, so the test cannot flake).
TEST(SimpleRandomNumberTest, RangesAreUniform) {
    for (std::uint64_t n : {10u, 7u}) {
        SimpleRandomNumber rng(n);
        std::vector<double> counts(n);
        const int draws = 600000;
        for (int i = 0; i < draws; ++i) ++counts[rng.below(n)];
        double chi = 0;
        const double expected = static_cast<double>(draws) / static_cast<double>(n);
        for (double c : counts) chi += (c - expected) * (c - expected) / expected;
        EXPECT_LT(chi, n == 10 ? 27.88 : 22.46) << n;
    }
    // A range of 3 * 2^62: a modulo would put half the draws below 2^62; without bias, a third.
    SimpleRandomNumber rng(7);
    const std::uint64_t n = 3ULL << 62;
    int low = 0;
    const int draws = 300000;
    for (int i = 0; i < draws; ++i) low += rng.below(n) < (1ULL << 62);
    EXPECT_NEAR(low / static_cast<double>(draws), 1.0 / 3, 0.01);
}

// below(n) at both widths, from the same independent model: one draw up to 2^62, two above.
TEST(SimpleRandomNumberTest, RangesGiveTheirSequences) {
    const struct {
        std::uint64_t seed, n;
        std::array<std::uint64_t, 4> values;
    } cases[] = {
        {3, 1000, {0x2b2, 0x280, 0xda, 0x215}},
        {3,
         3ULL << 62,
         {0x849a40e42c0ce990ULL, 0x29e8083c659f7dfdULL, 0x5185b96bc59b7207ULL, 0x285a28c8697bd5c1ULL}},
        {11,
         UINT64_MAX,
         {0x39287fc26939a7deULL, 0x3ec96828463614adULL, 0x15d312ce905ffe56ULL, 0x832ed2c5e54dfabbULL}},
        {11,
         (1ULL << 62) + 1,
         {0xe4a1ff09a4e69f7ULL, 0xfb25a0a118d852bULL, 0x574c4b3a417ff95ULL, 0x20cbb4b179537eafULL}},
    };
    for (const auto& c : cases) {
        SimpleRandomNumber rng(c.seed);
        for (std::uint64_t expected : c.values) EXPECT_EQ(rng.below(c.n), expected) << c.seed << " " << c.n;
    }
}

// The two-draw form's rare steps, with draws chosen by hand for n = 3 * 2^62, where 2^128 mod n is
// 2^62: a product of 0 is below that and retried; one of 2^63 (the draws 1 and 0x5555...56) has
// its top 64 of 128 low bits zero and its last 64 below n, yet is above 2^62 and kept; the two
// draws' products overlap, and a carry between them reaches the result.
TEST(SimpleRandomNumberTest, WideRangesRejectOnlyTheBiasedProducts) {
    const std::uint64_t n = 3ULL << 62;
    const struct {
        std::vector<std::uint64_t> draws;
        std::uint64_t result;
    } cases[] = {
        {{0, 1}, 0},                                        // the product n: kept at once
        {{0, 0, 1, 0x5555555555555556ULL}, 1},              // 0 retried, 2^63 kept after the check
        {{UINT64_MAX, UINT64_MAX}, n - 1},                  // the largest draw gives the largest value
        {{0xAAAAAAAAAAAAAAAAULL, UINT64_MAX}, 1ULL << 63},  // the low product carries into the result
    };
    for (const auto& c : cases) {
        std::size_t used = 0;
        const std::uint64_t result = simple_random_details::belowWide(n, c.draws[used++], [&] {
            EXPECT_LT(used, c.draws.size());
            return used < c.draws.size() ? c.draws[used++] : UINT64_MAX;  // past the end: kept at once
        });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(used, c.draws.size());
    }
}

TEST(SimpleRandomNumberTest, BoundsDoublesBytesShufflesAndChoices) {
    SimpleRandomNumber rng(1);
    EXPECT_EQ(rng.between(std::uint64_t{5}, std::uint64_t{5}), 5u);
    EXPECT_EQ(rng.between(std::int64_t{-3}, std::int64_t{-3}), -3);
    for (int i = 0; i < 1000; ++i) {
        const std::int64_t v = rng.between(std::int64_t{-2}, std::int64_t{2});
        ASSERT_TRUE(v >= -2 && v <= 2);
        const double u = rng.unit();
        ASSERT_TRUE(u >= 0 && u < 1);
        const double scaled = u * 0x1.0p53;
        ASSERT_EQ(scaled, static_cast<double>(static_cast<std::uint64_t>(scaled)));  // k * 2^-53
    }
    rng.between(std::uint64_t{0}, UINT64_MAX);  // the whole range: no overflow in the span
    rng.between(INT64_MIN, INT64_MAX);
    // fill: little-endian words, whatever the length.
    SimpleRandomNumber a(9), b(9);
    unsigned char bytes[13];
    a.fill(bytes, sizeof bytes);
    const std::uint64_t w0 = b.next(), w1 = b.next();
    for (int i = 0; i < 8; ++i) EXPECT_EQ(bytes[i], static_cast<unsigned char>(w0 >> (8 * i)));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(bytes[8 + i], static_cast<unsigned char>(w1 >> (8 * i)));
    // Every order of three equally often (each near 1/6 of 60,000), each a permutation.
    std::map<std::array<int, 3>, int> orders;
    for (int i = 0; i < 60000; ++i) {
        std::array<int, 3> v{0, 1, 2};
        rng.shuffle(v.begin(), v.end());
        ++orders[v];
    }
    ASSERT_EQ(orders.size(), 6u);
    for (const auto& [order, count] : orders) EXPECT_NEAR(count, 10000, 400);
    std::vector<int> many(1000);
    std::iota(many.begin(), many.end(), 0);
    rng.shuffle(many.begin(), many.end());
    EXPECT_FALSE(std::is_sorted(many.begin(), many.end()));
    std::sort(many.begin(), many.end());
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(many[static_cast<std::size_t>(i)], i);
    const int pick = *rng.choose(many.begin(), many.end());
    EXPECT_TRUE(pick >= 0 && pick < 1000);
}

TEST(SimpleRandomNumberTest, ProcessAndThreadGeneratorsReseedAndSpanThreads) {
    reseedProcessRandom(5);
    const std::uint64_t first = processRandom();
    reseedProcessRandom(5);
    EXPECT_EQ(processRandom(), first);
    const std::uint64_t fromThread = threadRandom().next();  // reseeded from the process's after the reseed
    reseedProcessRandom(5);
    static_cast<void>(processRandom());
    EXPECT_EQ(SimpleRandomNumber(processRandom()).next(), fromThread);

    std::vector<std::uint64_t> drawn(4 * 1000);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&drawn, t] {
            for (std::size_t i = 0; i < 1000; ++i)
                drawn[t * 1000 + i] = (i % 2 == 0 ? processRandom() : threadRandom().next());
        });
    }
    for (std::thread& t : threads) t.join();
    std::sort(drawn.begin(), drawn.end());
    EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());  // no number handed out twice
}

// After fork, the child's process and thread generators give numbers the parent never does.
TEST(SimpleRandomNumberTest, AChildNeverRepeatsItsParent) {
    reseedProcessRandom(11);
    static_cast<void>(threadRandom().next());
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::uint64_t values[4] = {processRandom(), processRandom(), threadRandom().next(),
                                   threadRandom().next()};
        const bool sent = ::write(fds[1], values, sizeof values) == static_cast<ssize_t>(sizeof values);
        _exit(sent ? 0 : 1);
    }
    ::close(fds[1]);
    std::uint64_t fromChild[4] = {};
    ASSERT_EQ(::read(fds[0], fromChild, sizeof fromChild), static_cast<ssize_t>(sizeof fromChild));
    ::close(fds[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::vector<std::uint64_t> parent;
    for (int i = 0; i < 64; ++i) parent.push_back(processRandom());
    for (int i = 0; i < 64; ++i) parent.push_back(threadRandom().next());
    for (std::uint64_t v : fromChild) EXPECT_EQ(std::count(parent.begin(), parent.end(), v), 0);
}

TEST(SimpleRandomNumberTest, SecureBytesComeFromTheKernel) {
    unsigned char a[64] = {}, b[64] = {};
    ASSERT_TRUE(secureRandomBytes(a, sizeof a));
    ASSERT_TRUE(secureRandomBytes(b, sizeof b));
    EXPECT_NE(std::memcmp(a, b, sizeof a), 0);
    EXPECT_TRUE(secureRandomBytes(nullptr, 0));
}

}  // namespace
}  // namespace basicutil
