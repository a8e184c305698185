// How busy a thread has been: the fraction of a sliding window it spent busy.
//
// The estimate is one number from 0.0 to 1.0 that moves linearly toward the current state as
// time passes, so it is read at any moment in constant time with no history kept. Over a span
// of `elapsed` nanoseconds since the last update (within the window W),
//
//   estimate(t) = ((W - elapsed) * estimate + (busy ? elapsed : 0)) / W
//
// and a span longer than the window (or a clock reading before the last update) reads as
// exactly 1.0 when busy and 0.0 when idle.
//
// Each Thread carries one estimate in its per-thread state; code outside any Thread shares the
// process-wide one. A ScopedDutyCycleClaimThread claims the calling thread's estimate for a
// piece of work:
//
//   {
//       ScopedDutyCycleClaimThread working(true);   // busy from here...
//       serve(request);
//   }                                               // ...to here
//
// Nested claims work on a private estimate and leave the thread's alone. Another thread reads
// a claimed estimate with Thread::dutyCycleEstimate.
#pragma once

#include <cstdint>

#include "basicutil/threads/ThreadMutex.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// One estimate and its lock.
class DutyCycleEstimate {
  public:
    static constexpr std::uint64_t kWindowNs = 15000000000;  // 15 s, everywhere in the program

    // Idle at 0.0, last updated now (on the clock of Timespec::monotonicNow).
    explicit DutyCycleEstimate(std::uint64_t windowNs);
    // Idle at 0.0, last updated at `lastUpdate`.
    DutyCycleEstimate(std::uint64_t windowNs, const Timespec& lastUpdate) noexcept;
    ~DutyCycleEstimate();  // must not be claimed
    DutyCycleEstimate(const DutyCycleEstimate&) = delete;
    DutyCycleEstimate& operator=(const DutyCycleEstimate&) = delete;

    // The estimate at time t; the caller holds lock().
    double estimateAt(const Timespec& t) const noexcept;
    // Folds the time up to t into the estimate, then counts from t as busy or idle. Takes the
    // lock.
    void update(const Timespec& t, bool busy) noexcept;
    // The estimate now. Takes the lock.
    double estimateNow() noexcept;

    PthreadMutexImpl& lock() const noexcept { return _lock; }     // guards the fields below
    bool busy() const noexcept { return _busy; }                  // under lock()
    bool claimed() const noexcept { return _claimed; }            // under lock()
    std::uint64_t windowNs() const noexcept { return _window; }   // as constructed
    Timespec lastUpdate() const noexcept { return _lastUpdate; }  // under lock()

  private:
    friend class ScopedDutyCycleClaimThread;

    double _estimate = 0.0;
    bool _busy = false;
    bool _claimed = false;
    std::uint64_t _window;
    Timespec _lastUpdate;
    double _inverseWindow;
    mutable PthreadMutexImpl _lock;
};

// The calling thread's estimate: its Thread's, or the process-wide one outside any Thread.
DutyCycleEstimate& perThread() noexcept;

// Claims the calling thread's estimate for its lifetime, unless an enclosing claim has it; with
// busy true, the time from construction to destruction counts as busy.
class [[nodiscard]] ScopedDutyCycleClaimThread : private DutyCycleEstimate {
  public:
    // Claims the estimate (above); `busy` says how the scope's time counts.
    explicit ScopedDutyCycleClaimThread(bool busy);
    ~ScopedDutyCycleClaimThread();
    ScopedDutyCycleClaimThread(const ScopedDutyCycleClaimThread&) = delete;
    ScopedDutyCycleClaimThread& operator=(const ScopedDutyCycleClaimThread&) = delete;

    // Whether this scope owns the thread's estimate (false when nested).
    bool ownsThreadEstimate() const noexcept { return _dc != this; }
    // The estimate this scope works on.
    DutyCycleEstimate& estimate() const noexcept { return *_dc; }

  private:
    DutyCycleEstimate* _dc;
    bool _busyRequest;
};

}  // namespace basicutil
