// The machinery under MutexByte and QMutex: waiter chains, wait entries, and the steps of the
// contended lock and unlock. Tests drive the steps one by one; callers use MutexByte.h.
#pragma once

#include <cstdint>
#include <string>

#include "basicutil/threads/ThreadMutex.h"

namespace basicutil {

class MutexByte;

namespace mutex_byte_details {

// One per thread, in its per-thread state: a thread sleeps on at most one byte at a time. Its
// fields are read and written only under the mutex of the chain it is on.
struct WaitEntry {
    PthreadCondition condition;            // the sleeper waits here; the unlocker signals it
    const MutexByte* waitingOn = nullptr;  // null whenever the thread is not asleep in a lock
    WaitEntry* nextOnChain = nullptr;

    // "MutexByte-waiting={none}" or "MutexByte-waiting={<byte>, next=<entry>}".
    void dumpState(std::string& out) const;
};

// Sleepers in the order they went to sleep. Several bytes may share a chain, so every step
// selects entries by waitingOn. tailp == &head exactly when the chain is empty.
struct WaiterChain {
    constexpr WaiterChain() noexcept = default;
    WaiterChain(const WaiterChain&) = delete;
    WaiterChain& operator=(const WaiterChain&) = delete;

    WaitEntry* head = nullptr;
    WaitEntry** tailp = &head;  // the slot the next entry is linked into
    PthreadMutexImpl mutex;     // guards the chain and every entry on it

    // "MutexByte-chain={empty}" or "MutexByte-chain={head=<entry>, tailp=<slot>}", with
    // ", CORRUPT" before the brace when head and tailp disagree. Takes the mutex.
    void dumpState(std::string& out);
    // How many entries wait on `byte` (on any byte when null). Takes the mutex.
    unsigned sleepersOn(const MutexByte* byte);
};

// 0 when it took the lock, or else the state that ended the spin (1 after the 40th look at a
// held byte, 3 at once when it has sleepers).
std::uint8_t shortSpin(MutexByte& byte) noexcept;

// 0 when the byte changed from `observed` before the caller could sleep (the caller spins
// again); non-zero once the caller has been woken as the byte's new owner.
int attemptSleep(MutexByte& byte, WaiterChain& chain, std::uint8_t observed) noexcept;

// The unlock of a byte in state 3: hands it to the first sleeper on it.
void unlockWithSleepers(MutexByte& byte, WaiterChain& chain) noexcept;

// The contended lock of a byte on a given chain; returns once the caller owns it.
void lockSlowpath(MutexByte& byte, WaiterChain& chain) noexcept;

// The chain a MutexByte at this address sleeps on.
WaiterChain& chainFor(const MutexByte* byte) noexcept;

struct ByteAccess;

// Chains in the process-wide table that MutexByte hashes into.
inline constexpr unsigned kChainTableSize = 128;

}  // namespace mutex_byte_details
}  // namespace basicutil
