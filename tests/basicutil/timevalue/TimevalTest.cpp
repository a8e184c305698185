#include "basicutil/timevalue/Timeval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace basicutil {
namespace {

constexpr Timeval MAXT = Timeval::MAX_TIME;
constexpr Timeval MINT = Timeval::MIN_TIME;

TEST(TimevalTest, ArithmeticSaturatesAtTheSentinels) {
    using Op = void (Timeval::*)(std::uint64_t);
    const Op add = &Timeval::addUsec, addMs = &Timeval::_add, sub = &Timeval::subtractUsec,
             subMs = &Timeval::_subtract;
    struct Case {
        Timeval start;
        Op op;
        std::uint64_t amount;
        Timeval expected;
    } cases[] = {{MAXT, add, 1, MAXT},
                 {{INT64_MAX - 1, 999999}, add, 1, {INT64_MAX, 0}},
                 {{INT64_MAX, 0}, add, 1000000, MAXT},
                 {{INT64_MAX, 0}, add, 999999, MAXT},
                 {{0, 999999}, add, UINT64_MAX, {18446744073709 + 1, 551614}},
                 {{INT64_MAX - 18446744073709, 0}, add, UINT64_MAX, {INT64_MAX, 551615}},
                 {{-1, 500000}, addMs, 1500, {1, 0}},
                 {{INT64_MAX, 500000}, addMs, 500, MAXT},
                 {{INT64_MAX - 1, 0}, addMs, UINT64_MAX, MAXT},
                 {MINT, subMs, 1, MINT},
                 {MINT, sub, 0, MINT},
                 {{INT64_MIN + 1, 0}, sub, 1, {INT64_MIN, 999999}},
                 {{INT64_MIN, 5}, sub, 6, MINT},
                 {{0, 0}, sub, 1250000, {-2, 750000}},
                 {{1, 0}, subMs, 1, {0, 999000}},
                 {{INT64_MIN + 5, 0}, sub, UINT64_MAX, MINT}};
    for (const Case& c : cases) {
        Timeval tv = c.start;
        (tv.*c.op)(c.amount);
        EXPECT_EQ(tv, c.expected) << c.start.tv_sec << "," << c.start.tv_usec << " by " << c.amount;
    }
}

TEST(TimevalTest, WholeSecondsSaturateAndKeepMicroseconds) {
    Timeval tv{INT64_MAX - 10, 7};
    tv.addSeconds(10);
    EXPECT_EQ(tv, (Timeval{INT64_MAX, 7}));
    tv.addSeconds(1);
    EXPECT_EQ(tv, MAXT);
    tv = {INT64_MIN + 3, 7};
    tv.subtractSeconds(3);
    EXPECT_EQ(tv, (Timeval{INT64_MIN, 7}));
    tv.subtractSeconds(UINT32_MAX);
    EXPECT_EQ(tv, MINT);
}

TEST(TimevalTest, Differences) {
    const Timeval a{10, 200}, b{8, 900000};
    EXPECT_EQ(a.diffUsec(b), 1100200);
    EXPECT_EQ(b.diffUsec(a), -1100200);
    EXPECT_EQ(a.diffMsRoundedUp(b), 1101);   // 1.1002 s, rounded up
    EXPECT_EQ(b.diffMsRoundedUp(a), -1100);  // borrow first, then round the positive remainder up
    EXPECT_DOUBLE_EQ(a.diffSeconds(b), 1.1002);
    EXPECT_EQ(MAXT.diffUsec(MINT), -1);  // unchecked: wraps without trapping
    // Near the sentinels the whole seconds are subtracted exactly: sign and microseconds survive.
    struct Case {
        Timeval a, b;
        double seconds;
    } cases[] = {{{INT64_MAX, 0}, {INT64_MAX - 1, 999999}, 1e-6},
                 {{INT64_MAX - 1, 999999}, {INT64_MAX, 0}, -1e-6},
                 {{INT64_MIN + 1, 0}, {INT64_MIN, 999999}, 1e-6},
                 {MAXT, MINT, 18446744073709551616.0},
                 {MINT, MAXT, -18446744073709551616.0}};
    for (const Case& c : cases) EXPECT_DOUBLE_EQ(c.a.diffSeconds(c.b), c.seconds) << c.a << " - " << c.b;
    EXPECT_DOUBLE_EQ((Timespec{INT64_MAX, 0}).diffSeconds({INT64_MAX - 1, 999999999}), 1e-9);
    EXPECT_DOUBLE_EQ((Timespec{INT64_MIN, 1}).diffSeconds({INT64_MIN + 1, 0}), -0.999999999);
}

TEST(TimevalTest, TruncateAndSnap) {
    Timeval tv{127, 999999};
    tv.truncateToSeconds(60);
    EXPECT_EQ(tv, (Timeval{120, 0}));
    tv = {-127, 5};
    tv.truncateToSeconds(60);  // remainder of the signed division: toward zero
    EXPECT_EQ(tv, (Timeval{-120, 0}));
    tv = {-127, 5};
    tv.truncateToSeconds(1);
    EXPECT_EQ(tv, (Timeval{-127, 0}));
    tv = {3, 987654};
    tv.snapMillisecond(250);
    EXPECT_EQ(tv, (Timeval{3, 750000}));
}

TEST(TimevalTest, FromDoubleKeepsTheNegativeFractionQuirk) {
    struct Case {
        double seconds;
        Timeval expected;
    } cases[] = {{-1.25, {-2, 250000}},  // denotes -1.75: kept on purpose
                 {1.9999999, {1, 999999}},
                 {1.5, {1, 500000}},
                 {-0.5, {-1, 500000}},
                 {9.223372036854776e18, MAXT},
                 {1e300, MAXT},
                 {-9.223372036854776e18, MINT},
                 {-INFINITY, MINT},
                 {NAN, {0, 0}}};
    for (const Case& c : cases) EXPECT_EQ(Timeval::fromDouble(c.seconds), c.expected) << c.seconds;
    EXPECT_DOUBLE_EQ((Timeval{-2, 750000}).toDouble(), -1.25);
}

TEST(TimevalTest, DoubleSecondsToUsecWrapsLikeTheHardware) {
    EXPECT_EQ(doubleSecondsToUsec(1.5), 1500000u);
    EXPECT_EQ(doubleSecondsToUsec(1.5e13), 15000000000000000000u);  // past 2^63
    EXPECT_EQ(doubleSecondsToUsec(-1.0), UINT64_MAX - 999999);
    EXPECT_EQ(doubleSecondsToUsec(1e300), UINT64_MAX);
    EXPECT_EQ(doubleSecondsToUsec(NAN), 0u);
}

TEST(TimevalTest, EncodedSubseconds) {
    struct Case {
        Timeval tv;
        unsigned digits;
        std::uint64_t encoded;
    } cases[] = {
        {{5, 250000}, 0, 1},
        {{5, 250000}, 2, (25 * 2 + 1)},
        {{5, 250000}, 3, (250 * 2 + 1)},
        {{5, 50000}, 3, (50 * 2 + 1) << 1},  // ".050": one leading zero
        {{5, 0}, 3, 1 << 3},
        {{5, 1}, 6, 3 << 5},
        {{5, 1}, 9, (1000 * 2 + 1) << 5},  // digits past the sixth are zeros
        {{-2, 750000}, 2, (25 * 2 + 1)}    // written as -1.25
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.tv.encodeSubseconds(c.digits), c.encoded) << c.tv.tv_usec << "/" << c.digits;
        // Adding the encoded fraction to the whole seconds gives the time back.
        Timeval whole{c.tv.tv_usec != 0 && c.tv.tv_sec < 0 ? c.tv.tv_sec + 1 : c.tv.tv_sec, 0};
        whole.addEncodedSubseconds(c.encoded);
        if (c.digits > 0) {
            EXPECT_EQ(whole, c.tv);  // every fraction here fits its digits
        }
    }
}

TEST(TimevalTest, AddEncodedSubsecondsRoundTripsEveryFraction) {
    std::mt19937 rng(7);
    for (int i = 0; i < 5000; ++i) {
        const Timeval tv{static_cast<std::int64_t>(rng() % 2000000) - 1000000,
                         static_cast<std::int64_t>(rng() % 1000000)};
        if (tv.tv_sec == -1 && tv.tv_usec != 0) continue;  // "-0.x": no whole seconds to carry the sign
        Timeval rebuilt{tv.tv_usec != 0 && tv.tv_sec < 0 ? tv.tv_sec + 1 : tv.tv_sec, 0};
        rebuilt.addEncodedSubseconds(tv.encodeSubseconds(6));
        ASSERT_EQ(rebuilt, tv);
    }
}

TEST(TimevalTest, AddEncodedSubsecondsAtTheEdges) {
    Timeval tv{7, 900000};
    tv.addEncodedSubseconds((5 * 2 + 1) << 0);  // ".5"
    EXPECT_EQ(tv, (Timeval{8, 400000}));
    tv = {INT64_MAX, 900000};
    tv.addEncodedSubseconds(5 * 2 + 1);
    EXPECT_EQ(tv, (Timeval{INT64_MAX, 999999}));
    tv = {INT64_MIN, 0};
    tv.addEncodedSubseconds(5 * 2 + 1);
    EXPECT_EQ(tv, MINT);
    tv = {3, 0};
    tv.addEncodedSubseconds(std::uint64_t{1} << 40);  // all zeros: nothing
    EXPECT_EQ(tv, (Timeval{3, 0}));
    tv.addEncodedSubseconds((1 * 2 + 1) << 6);  // ".0000001": below a microsecond
    EXPECT_EQ(tv, (Timeval{3, 0}));
}

TEST(TimevalDeathTest, AssertionTexts) {
    Timeval tv{1, 0};
    EXPECT_DEATH(tv.addEncodedSubseconds(0), "encoded > 1");
}

TEST(TimespecTest, ArithmeticSaturatesAtItsOwnSentinels) {
    Timespec ts{INT64_MAX, 999999998};
    ts.addNs(1);
    EXPECT_EQ(ts, Timespec::MAX_TIME);
    ts.addNs(1);
    EXPECT_EQ(ts, Timespec::MAX_TIME);
    ts = {1, 999000000};
    ts.addMs(1001);
    EXPECT_EQ(ts, (Timespec{3, 0}));
    ts.subtractNs(3000000001);
    EXPECT_EQ(ts, (Timespec{-1, 999999999}));
    ts.subtractMs(UINT64_MAX);
    EXPECT_EQ(ts, (Timespec{-1 - 18446744073709551, 999999999 - 615000000}));
    ts = {INT64_MIN, 0};
    ts.subtractNs(1);
    EXPECT_EQ(ts, Timespec::MIN_TIME);
    EXPECT_DOUBLE_EQ((Timespec{2, 500000000}).diffSeconds({1, 750000000}), 0.75);
}

}  // namespace
}  // namespace basicutil
