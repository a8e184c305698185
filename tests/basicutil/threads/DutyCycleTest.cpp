#include "basicutil/threads/DutyCycle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "basicutil/threads/Thread.h"
#include "basicutil/threads/Thread_details.h"

namespace basicutil {
namespace {

constexpr std::uint64_t kWindow = DutyCycleEstimate::kWindowNs;

Timespec at(std::int64_t seconds, std::int64_t nanoseconds = 0) {
    return Timespec{seconds, nanoseconds};
}

double estimateAt(const DutyCycleEstimate& dc, const Timespec& t) {
    std::lock_guard<PthreadMutexImpl> hold(dc.lock());
    return dc.estimateAt(t);
}

// The estimate moves linearly over the window; outside it, only the current state counts. The
// clock is the test's: every time is given.
TEST(DutyCycleEstimateTest, EstimateAtTime) {
    const Timespec t0 = at(1000);
    const struct {
        const char* what;
        double start;  // the estimate at t0 (reached by a busy or idle window before it)
        bool busy;     // from t0 on
        Timespec t;
        double expected;
    } cases[] = {
        {"idle from idle", 0.0, false, at(1005), 0.0},
        {"a third of the window busy", 0.0, true, at(1005), 1.0 / 3},
        {"half the window idle after a busy one", 1.0, false, at(1007, 500000000), 0.5},
        {"nanoseconds borrow", 0.0, true, at(1001, 500000000), 0.1},
        {"at t0", 1.0, false, t0, 1.0},
        {"exactly one window, busy: the busy term alone", 1.0, true, at(1015), 1.0},
        {"exactly one window, idle: the busy term alone", 1.0, false, at(1015), 0.0},
        {"a nanosecond past the window, busy", 0.0, true, at(1015, 1), 1.0},
        {"a nanosecond past the window, idle", 1.0, false, at(1015, 1), 0.0},
        {"a clock reading before the update, busy", 0.0, true, at(999, 999999999), 1.0},
        {"a clock reading before the update, idle", 1.0, false, at(999, 999999999), 0.0},
        {"far in the past", 1.0, false, at(-5000), 0.0},
    };
    for (const auto& c : cases) {
        DutyCycleEstimate dc(kWindow, at(1000 - 15));
        dc.update(at(1000 - 15), c.start > 0.5);  // a whole window, busy or idle, before t0
        ASSERT_DOUBLE_EQ(estimateAt(dc, t0), c.start) << c.what;
        dc.update(t0, c.busy);
        EXPECT_NEAR(estimateAt(dc, c.t), c.expected, 1e-12) << c.what;
    }
}

// Updates fold what came before: busy 5 s, idle 5 s, busy 5 s of a 15 s window.
TEST(DutyCycleEstimateTest, UpdatesAccumulate) {
    DutyCycleEstimate dc(kWindow, at(0));
    dc.update(at(0), true);
    dc.update(at(5), false);
    dc.update(at(10), true);
    EXPECT_NEAR(estimateAt(dc, at(15)), (10.0 * (1.0 / 3) * (10.0 / 15) + 5.0) / 15, 1e-12);
    DutyCycleEstimate shortWindow(1000, at(0));  // 1 µs
    shortWindow.update(at(0), true);
    EXPECT_NEAR(estimateAt(shortWindow, at(0, 250)), 0.25, 1e-12);
}

class DutyCycleTest : public ::testing::Test {
  protected:
    EmptyMainThread _mainThread;
};

TEST_F(DutyCycleTest, ClaimsNestAndRelease) {
    DutyCycleEstimate& own = perThread();
    EXPECT_EQ(&own, &_mainThread.scratchArea()->dutyCycle);
    double estimate = -1;
    EXPECT_FALSE(_mainThread.dutyCycleEstimate(estimate));
    EXPECT_EQ(estimate, -1);
    {
        ScopedDutyCycleClaimThread outer(true);
        EXPECT_TRUE(outer.ownsThreadEstimate());
        EXPECT_EQ(&outer.estimate(), &own);
        EXPECT_TRUE(own.claimed());
        EXPECT_TRUE(own.busy());
        {
            ScopedDutyCycleClaimThread inner(false);
            EXPECT_FALSE(inner.ownsThreadEstimate());
            EXPECT_NE(&inner.estimate(), &own);
            EXPECT_FALSE(inner.estimate().claimed());
        }
        EXPECT_TRUE(own.claimed());  // the nested scope neither took nor released it
        EXPECT_TRUE(own.busy());
        EXPECT_TRUE(_mainThread.dutyCycleEstimate(estimate));
        EXPECT_GE(estimate, 0.0);
        EXPECT_LE(estimate, 1.0);
    }
    EXPECT_FALSE(own.claimed());
    EXPECT_FALSE(own.busy());  // the work is over
    EXPECT_FALSE(_mainThread.dutyCycleEstimate(estimate));
}

// Another thread reads a claimed estimate; a thread that has ended has none.
TEST_F(DutyCycleTest, QueryFromAnotherThread) {
    std::atomic<bool> claimed{false}, release{false};
    const DutyCycleEstimate* seen = nullptr;
    ThreadFunction worker(
        [&] {
            ScopedDutyCycleClaimThread working(true);
            seen = &working.estimate();
            claimed.store(true);
            while (!release.load()) std::this_thread::yield();
        },
        "DutyWorker");
    double estimate = -1;
    EXPECT_FALSE(worker.dutyCycleEstimate(estimate));  // parked: no per-thread state yet
    worker.go();
    while (!claimed.load()) std::this_thread::yield();
    EXPECT_TRUE(worker.dutyCycleEstimate(estimate));
    EXPECT_GT(estimate, 0.0);  // busy since the claim, on the monotonic clock
    EXPECT_LE(estimate, 1.0);
    EXPECT_EQ(seen, &worker.scratchArea()->dutyCycle);
    release.store(true);
    worker.join();
    EXPECT_FALSE(worker.dutyCycleEstimate(estimate));
}

// Threads that no Thread object owns share the process-wide estimate.
TEST_F(DutyCycleTest, OutsideAnyThreadTheProcessWideEstimate) {
    const DutyCycleEstimate* first = nullptr;
    const DutyCycleEstimate* second = nullptr;
    std::thread([&] { first = &perThread(); }).join();
    std::thread([&] { second = &perThread(); }).join();
    EXPECT_EQ(first, second);
    EXPECT_NE(first, &perThread());
    EXPECT_EQ(first->windowNs(), kWindow);
}

TEST(DutyCycleDeathTest, DestroyingAClaimedEstimate) {
    EXPECT_DEATH(
        {
            auto mainThread = std::make_unique<EmptyMainThread>();
            new ScopedDutyCycleClaimThread(false);  // never ends: the thread's estimate stays claimed
            mainThread.reset();
        },
        "!_claimed");
}

}  // namespace
}  // namespace basicutil
