#include "basicutil/runtime/ThreadClockChoice.h"

#include <gtest/gtest.h>

#include "basicutil/threads/Thread.h"
#include "support/LogCapture.h"

namespace basicutil {
namespace {

TEST(ThreadClockChoiceTest, EnvironmentValueAndProbeDecide) {
    struct Case {
        const char* value;
        bool works;
        ClockChoice expected;
    } cases[] = {{nullptr, true, CLOCK_CHOICE_MONOTONIC},   {nullptr, false, CLOCK_CHOICE_UNAVAILABLE},
                 {"", true, CLOCK_CHOICE_MONOTONIC},        {"1", true, CLOCK_CHOICE_MONOTONIC},
                 {"yes", false, CLOCK_CHOICE_UNAVAILABLE},  {"garbage", true, CLOCK_CHOICE_MONOTONIC},
                 {"0", true, CLOCK_CHOICE_DISABLED},        {" Off\t", true, CLOCK_CHOICE_DISABLED},
                 {"FALSE", false, CLOCK_CHOICE_DISABLED},   {"no", true, CLOCK_CHOICE_DISABLED},
                 {"disabled", true, CLOCK_CHOICE_DISABLED}, {"00", true, CLOCK_CHOICE_MONOTONIC}};
    for (const Case& c : cases) {
        EXPECT_EQ(decideClockChoice(c.value, c.works), c.expected) << (c.value ? c.value : "(unset)");
    }
}

// Logged on the thread framework's channel, which tells the clock choice where it is.
TEST(ThreadClockChoiceTest, DecidedOnceAndLoggedOnce) {
    const Logger& channel = threadChannel();
    testing::LogCapture capture;
    const ClockChoice first = clockChoice();
    EXPECT_EQ(clockChoice(), first);
    EXPECT_EQ(useMonotonicClock(), first == CLOCK_CHOICE_MONOTONIC);
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].channel, "Thread");
    EXPECT_EQ(channel.name().view(), "Thread");
    const char* const expected[] = {"", "using CLOCK_MONOTONIC",
                                    "CLOCK_MONOTONIC support explicitly disabled",
                                    "CLOCK_MONOTONIC support not available"};
    EXPECT_EQ(capture.lines()[0].message, expected[first]);
}

}  // namespace
}  // namespace basicutil
