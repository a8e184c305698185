#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "basicutil/timevalue/Timeval.h"

// Stands in for the C library's usleep in this test program, so that sleepMs can be checked
// for the exact delay it asks for without sleeping.
namespace {
useconds_t g_lastUsleep = 0;
int g_usleepErrno = 0;
}  // namespace

extern "C" int usleep(useconds_t usec) {
    g_lastUsleep = usec;
    if (g_usleepErrno == 0) return 0;
    errno = g_usleepErrno;
    return -1;
}

namespace basicutil {
namespace {

TEST(TimevalClockTest, SleepMsKeepsTheThirtyTwoBitWrap) {
    struct Case {
        std::uint32_t ms;
        useconds_t usec;
    } cases[] = {
        {1000, 1000000},
        {4294967, 4294967000u},
        {4294968, 704},                                            // 4294968000 wraps
        {static_cast<std::uint32_t>(31536000000ULL), 2350112768u}  // one year in ms, cut to 32 bits
    };
    for (const Case& c : cases) {
        sleepMs(c.ms);
        EXPECT_EQ(g_lastUsleep, c.usec) << c.ms;
    }
}

TEST(TimevalClockTest, SleepInterruptedBySignalReturns) {
    g_usleepErrno = EINTR;
    sleepMs(5);
    g_usleepErrno = 0;
    EXPECT_EQ(g_lastUsleep, 5000u);
}

TEST(TimevalClockDeathTest, SleepFailureIsFatal) {
    EXPECT_DEATH(
        {
            g_usleepErrno = EINVAL;
            sleepMs(5);
        },
        "Fatal thread error: usleep: Invalid argument");
}

TEST(TimevalClockTest, CoarseClockFallsBackThenHoldsItsLastUpdate) {
    const Timeval before = Timeval::now();
    const Timeval fallback = CoarseClock::coarseNow();  // never updated: reads the wall clock
    EXPECT_LE(before, fallback);
    CoarseClock::updateCoarseNow();
    const Timeval stored = CoarseClock::coarseNow();
    EXPECT_LE(fallback, stored);
    // Until the next update every reader sees the same value.
    struct timespec pause {
        0, 2000000
    };
    ASSERT_EQ(nanosleep(&pause, nullptr), 0);
    EXPECT_EQ(CoarseClock::coarseNow(), stored);
    EXPECT_LT(stored, Timeval::now());
}

}  // namespace
}  // namespace basicutil
