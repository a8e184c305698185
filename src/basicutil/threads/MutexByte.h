// One-byte locks with first-come, first-served hand-off.
//
// An uncontended lock is one byte changed by compare-and-swap. A thread that finds it taken
// spins briefly (40 looks, one pause each), then sleeps on a waiter chain: a list, guarded by a
// POSIX mutex, of the wait entries of sleeping threads. Unlocking a byte that has sleepers never
// frees it: ownership passes straight to the first sleeper in chain order, so a thread that went
// to sleep is served before any that went to sleep after it, and a woken thread never competes
// for the byte again.
//
//   MutexByte guard;                        // one byte; constant initialised
//   std::lock_guard<MutexByte> hold(guard);
//
//   QMutex table_lock;                      // a byte with a chain of its own
//   std::scoped_lock both(table_lock, guard);
//
// A MutexByte finds its chain in a fixed process-wide table, by a hash of its address; bytes
// that share a chain never wake each other's sleepers. A QMutex carries its own chain, so its
// sleepers never share a chain mutex with anyone else's.
//
// Sleeping needs the caller's wait entry, which lives in the per-thread state of its Thread (the
// MainThread included): contention between threads that are not Thread objects, or before any
// Thread was released by go(), fails an assertion. Neither lock is recursive.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "basicutil/threads/MutexByte_details.h"

namespace basicutil {

// A one-byte lock sleeping on a shared chain (above).
class MutexByte {
  public:
    // The byte's values.
    enum State : std::uint8_t {
        STATE_UNLOCKED = 0,
        STATE_LOCKED = 1,
        STATE_HAS_SLEEPERS = 2,  // only ever with STATE_LOCKED
    };

    constexpr MutexByte() noexcept = default;
    MutexByte(const MutexByte&) = delete;
    MutexByte& operator=(const MutexByte&) = delete;

    // Takes the byte: at once, after spinning, or when an unlocker hands it over.
    void lock() noexcept {
        std::uint8_t expected = STATE_UNLOCKED;
        if (!_state.compare_exchange_strong(expected, STATE_LOCKED)) bounceContended();
    }
    // Takes the byte only if it is free now.
    [[nodiscard]] bool try_lock() noexcept {
        std::uint8_t expected = STATE_UNLOCKED;
        return _state.compare_exchange_strong(expected, STATE_LOCKED);
    }
    // Frees the byte, or hands it to the first sleeper.
    void unlock() noexcept {
        std::uint8_t expected = STATE_LOCKED;
        if (!_state.compare_exchange_strong(expected, STATE_UNLOCKED)) unlockContended();
    }

    // The byte's State bits now.
    std::uint8_t get(std::memory_order order = std::memory_order_seq_cst) const noexcept {
        return _state.load(order);
    }

    // "unlocked", "LOCKED", "LOCKED+CONTENDED", or "BAD(0x%02X)!".
    static constexpr std::size_t kStateTextBytes = 17;  // "LOCKED+CONTENDED" and its NUL
    static void appendStateText(std::string& out, std::uint8_t state);
    // The same into `out` (NUL-terminated), allocating nothing: for a crash log.
    static void stateText(std::uint8_t state, char (&out)[kStateTextBytes]) noexcept;
    // "MutexByte:" and the state.
    void dumpState(std::string& out) const;

  private:
    // The slow paths change the byte through these (MutexByte_details.h).
    friend struct mutex_byte_details::ByteAccess;
    // Changes the byte only from `expected`; on failure `expected` receives the value seen.
    bool compareExchange(std::uint8_t& expected, std::uint8_t desired) noexcept {
        return _state.compare_exchange_strong(expected, desired);
    }
    // Only the unlocker's hand-off to the last sleeper stores, under the chain mutex.
    void store(std::uint8_t value) noexcept { _state.store(value); }

    void bounceContended() noexcept;
    void unlockContended() noexcept;

    std::atomic<std::uint8_t> _state{STATE_UNLOCKED};
};

namespace mutex_byte_details {

// The byte's raw operations, for the slow paths and QMutex.
struct ByteAccess {
    static bool compareExchange(MutexByte& byte, std::uint8_t& expected, std::uint8_t desired) noexcept {
        return byte.compareExchange(expected, desired);
    }
    static void store(MutexByte& byte, std::uint8_t value) noexcept { byte.store(value); }
};

}  // namespace mutex_byte_details

// What the slow paths did on the calling thread, for tests and diagnostics.
struct MutexByteThreadCounts {
    std::uint64_t pauses = 0;          // spin pauses
    std::uint64_t sleeps = 0;          // condition waits while asleep in a lock
    std::uint64_t failedEnqueues = 0;  // the byte changed while going to sleep
    std::uint64_t handOffs = 0;        // locks passed to a sleeper by this thread's unlocks
};
// The calling thread's counts so far.
MutexByteThreadCounts mutexByteThreadCounts() noexcept;

// A byte with a waiter chain of its own. Dumps as "qmutex{" chain ", " byte "}".
class QMutex {
  public:
    constexpr QMutex() noexcept = default;
    QMutex(const QMutex&) = delete;
    QMutex& operator=(const QMutex&) = delete;

    // As MutexByte's, on the QMutex's own chain.
    void lock() noexcept {
        if (!_byte.try_lock()) _lock_slowpath(*this);
    }
    [[nodiscard]] bool try_lock() noexcept { return _byte.try_lock(); }
    void unlock() noexcept {
        std::uint8_t expected = MutexByte::STATE_LOCKED;
        if (!mutex_byte_details::ByteAccess::compareExchange(_byte, expected, MutexByte::STATE_UNLOCKED))
            mutex_byte_details::unlockWithSleepers(_byte, _chain);
    }

    // "qmutex{" chain ", " byte "}".
    void dumpState(std::string& out) const;

    // The contended lock: returns once the caller owns the byte.
    friend void _lock_slowpath(QMutex& lock) noexcept;

  private:
    mutex_byte_details::WaiterChain _chain;
    MutexByte _byte;
};

}  // namespace basicutil
