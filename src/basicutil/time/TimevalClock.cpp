// Reading the clocks and sleeping.
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "basicutil/platform/Platform.h"
#include "basicutil/runtime/ThreadClockChoice.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

namespace {

using platform::readWallClockOrAbort;

// Seconds in the high 34 bits, nanoseconds (below 2^30) in the low 30.
constexpr unsigned kCoarseShift = 30;

std::atomic<std::uint64_t>& coarseCell() noexcept {
    static std::atomic<std::uint64_t> cell{0};
    return cell;
}

}  // namespace

Timeval Timeval::now() noexcept {
    const struct timeval tv = readWallClockOrAbort();
    return {tv.tv_sec, tv.tv_usec};
}

std::int64_t Timeval::nowSeconds() noexcept {
    return readWallClockOrAbort().tv_sec;
}

void CoarseClock::updateCoarseNow() noexcept {
    const struct timeval tv = readWallClockOrAbort();
    coarseCell().store((static_cast<std::uint64_t>(tv.tv_sec) << kCoarseShift) |
                           static_cast<std::uint64_t>(tv.tv_usec * 1000),
                       std::memory_order_relaxed);
}

Timeval CoarseClock::coarseNow() noexcept {
    const std::uint64_t cell = coarseCell().load(std::memory_order_relaxed);
    if (cell == 0) return Timeval::now();
    return {static_cast<std::int64_t>(cell >> kCoarseShift),
            static_cast<std::int64_t>((cell & ((1ULL << kCoarseShift) - 1)) / 1000)};
}

Timespec Timespec::monotonicNow() noexcept {
    struct timespec ts {};
    if (useMonotonicClock()) {
        if (!platform::readMonotonicClock(ts)) fatalThreadError("clock_gettime(CLOCK_MONOTONIC)", errno);
    } else {
        if (!platform::readUtcClock(ts)) fatalThreadError("timespec_get", errno);
    }
    return fromPlatform(ts);
}

Timespec Timespec::deadlineAfterMs(std::uint64_t ms) noexcept {
    Timespec deadline = monotonicNow();
    deadline.addMs(ms);
    return deadline;
}

void sleepMs(std::uint32_t ms) noexcept {
    const std::uint32_t usec = ms * 1000u;  // 32-bit product: wraps above 4294967 ms, on purpose
    if (usleep(usec) != 0 && errno != EINTR) fatalThreadError("usleep", errno);
}

}  // namespace basicutil
