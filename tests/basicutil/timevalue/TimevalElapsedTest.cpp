#include "basicutil/timevalue/TimevalElapsed.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(TimevalElapsedTest, MicrosecondForm) {
    struct Case {
        Timeval start, end;
        const char* text;
    } cases[] = {
        {{10, 0}, {10, 1000}, "1000 microseconds"},  // 3 ms is the threshold
        {{10, 0}, {10, 1}, "1 microsecond"},
        {{10, 0}, {10, 3000}, "3000 microseconds"},
        {{10, 0}, {10, 3001}, "3.001 milliseconds"},
        {{10, 0}, {10, 4000}, "4 milliseconds"},
        {{10, 0}, {12, 500000}, "2500 milliseconds"},  // 3 s is the threshold
        {{10, 1}, {12, 500001}, "2500.0 milliseconds"},
        {{10, 0}, {13, 0}, "3000 milliseconds"},
        {{10, 0}, {13, 1}, "3.000 seconds"},
        {{0, 0}, {25, 0}, "25.00 seconds"},
        {{0, 0}, {250, 0}, "250.0 seconds"},
        {{0, 0}, {8000, 0}, "8000.0 seconds"},
        {{0, 0}, {10000, 0}, "2.778 hours"},
        {{13, 0}, {10, 0}, "-3000 milliseconds"},
        {{5, 0}, {5, 0}, "0 microseconds"},
        {{0, 0}, {1000000000000, 0}, "277777777.8 hours"},
        // Past 2^64 us: hours from the signed difference in seconds, never saturated.
        {{0, 0}, {18446744073710, 0}, "5124095576.0 hours"},
        {{0, 0}, {18446744073709552, 0}, "5124095576030.4 hours"},
        {{18446744073709552, 0}, {0, 0}, "-5124095576030.4 hours"},
        {Timeval::MIN_TIME, Timeval::MAX_TIME, "5124095576030431.0 hours"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ElapsedDescription::between(c.start, c.end).toString(), c.text) << c.text;
    }
}

TEST(TimevalElapsedTest, NanosecondForm) {
    struct Case {
        Timespec start, end;
        const char* text;
    } cases[] = {{{1, 0}, {1, 1}, "1 nanosecond"},
                 {{1, 0}, {1, 3000}, "3000 nanoseconds"},
                 {{1, 0}, {1, 4000}, "4 microseconds"},
                 {{1, 0}, {1, 4001}, "4.001 microseconds"},
                 {{1, 0}, {1, 5000000}, "5 milliseconds"},
                 {{1, 0}, {1, 5000001}, "5.000 milliseconds"},
                 {{1, 0}, {3, 500000000}, "2500 milliseconds"},
                 {{1, 0}, {4, 500000000}, "3.500 seconds"},
                 {{0, 0}, {36000, 0}, "10.00 hours"},
                 {{4, 0}, {1, 0}, "-3000 milliseconds"},
                 // 10^12 s is past 2^64 ns.
                 {{0, 0}, {1000000000000, 0}, "277777777.8 hours"},
                 {{1000000000000, 0}, {0, 0}, "-277777777.8 hours"},
                 {Timespec::MIN_TIME, Timespec::MAX_TIME, "5124095576030431.0 hours"}};
    for (const Case& c : cases) {
        EXPECT_EQ(ElapsedDescription::between(c.start, c.end).toString(), c.text) << c.text;
    }
}

TEST(TimevalElapsedTest, SinceNowIsSmallAndPositive) {
    const ElapsedDescription d = ElapsedDescription::since(Timespec::monotonicNow());
    EXPECT_FALSE(d._negative);
    EXPECT_TRUE(std::string(d._unit, d._unitLen) == " nanoseconds" ||
                std::string(d._unit, d._unitLen) == " microseconds")
        << d.toString();
}

}  // namespace
}  // namespace basicutil
