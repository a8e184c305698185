#include "basicutil/threads/DutyCycle.h"

#include <mutex>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/threads/Thread.h"
#include "basicutil/threads/Thread_details.h"

namespace basicutil {

namespace {

// The process-wide estimate, for code outside any Thread. It starts idle at time zero rather
// than at "now": an idle 0.0 reads 0.0 whatever its last update, and reading the clock here
// would make the process's clock decision (and log it) before the logger exists.
struct DutyCycleGlobals {
    DutyCycleEstimate processWide{DutyCycleEstimate::kWindowNs, Timespec{}};
    DutyCycleGlobals() { recordStartupEvent("+basicutil/DutyCycle"); }
    ~DutyCycleGlobals() { recordStartupEvent("-basicutil/DutyCycle"); }
};
DutyCycleGlobals globals VESTRA_STARTUP(STARTUP_DUTY_CYCLE);

}  // namespace

DutyCycleEstimate::DutyCycleEstimate(std::uint64_t windowNs)
    : DutyCycleEstimate(windowNs, Timespec::monotonicNow()) {}

DutyCycleEstimate::DutyCycleEstimate(std::uint64_t windowNs, const Timespec& lastUpdate) noexcept
    : _window(windowNs), _lastUpdate(lastUpdate), _inverseWindow(1.0 / static_cast<double>(windowNs)) {}

DutyCycleEstimate::~DutyCycleEstimate() {
    VESTRA_ASSERT(!_claimed);
}

double DutyCycleEstimate::estimateAt(const Timespec& t) const noexcept {
    // Wrapping 64-bit arithmetic, read as unsigned: a reading before the last update is huge.
    const std::uint64_t elapsed =
        (static_cast<std::uint64_t>(t.tv_sec) - static_cast<std::uint64_t>(_lastUpdate.tv_sec)) *
            static_cast<std::uint64_t>(ONE_BILLION_AS_TVNSECS_TYPE) +
        (static_cast<std::uint64_t>(t.tv_nsec) - static_cast<std::uint64_t>(_lastUpdate.tv_nsec));
    if (elapsed > _window) return _busy ? 1.0 : 0.0;
    const double remaining = static_cast<double>(_window - elapsed);
    const double busySpan = _busy ? static_cast<double>(elapsed) : 0.0;
    return (remaining * _estimate + busySpan) * _inverseWindow;
}

void DutyCycleEstimate::update(const Timespec& t, bool busy) noexcept {
    std::lock_guard<PthreadMutexImpl> hold(_lock);
    _estimate = estimateAt(t);
    _busy = busy;
    _lastUpdate = t;
}

double DutyCycleEstimate::estimateNow() noexcept {
    std::lock_guard<PthreadMutexImpl> hold(_lock);
    return estimateAt(Timespec::monotonicNow());
}

DutyCycleEstimate& perThread() noexcept {
    if (const Thread* thr = Thread::current()) {
        ThreadScratch* scratch = thr->scratchArea();
        VESTRA_ASSERT_TEXT(scratch != nullptr, "thr->_scratchp != nullptr");
        return scratch->dutyCycle;
    }
    return globals.processWide;
}

ScopedDutyCycleClaimThread::ScopedDutyCycleClaimThread(bool busy)
    : DutyCycleEstimate(kWindowNs), _dc(this), _busyRequest(busy) {
    DutyCycleEstimate& own = perThread();
    {
        std::lock_guard<PthreadMutexImpl> hold(own._lock);
        if (!own._claimed) {
            own._claimed = true;
            _dc = &own;
        }
    }
    if (_busyRequest) _dc->update(Timespec::monotonicNow(), true);
}

// The work is over: from here the estimate decays toward idle.
ScopedDutyCycleClaimThread::~ScopedDutyCycleClaimThread() {
    if (_busyRequest) _dc->update(Timespec::monotonicNow(), false);
    if (_dc != this) {
        std::lock_guard<PthreadMutexImpl> hold(_dc->_lock);
        VESTRA_ASSERT(_dc->_claimed);
        _dc->_claimed = false;
    }
}

}  // namespace basicutil
