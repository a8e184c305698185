#include "basicutil/threads/MutexByte.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/threads/Thread.h"
#include "basicutil/threads/Thread_details.h"

namespace basicutil {

namespace {

using mutex_byte_details::ByteAccess;
using mutex_byte_details::WaitEntry;
using mutex_byte_details::WaiterChain;

constexpr unsigned kSpinLooks = 40;  // looks at a held byte before going to sleep

// A chain per cache line, so that sleepers on unrelated bytes rarely share a chain mutex.
struct alignas(64) ChainSlot {
    WaiterChain chain;
};
// Never torn down: locks are taken by other threads and by destructors while the process exits.
union ChainTable {
    constexpr ChainTable() : slots() {}
    ~ChainTable() {}
    ChainSlot slots[mutex_byte_details::kChainTableSize];
};
constinit ChainTable g_chains;

thread_local MutexByteThreadCounts t_counts;

// Whole addresses: the printf engine's %p keeps only the low 32 bits.
unsigned long long address(const void* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

}  // namespace

// --- States and dumps -----------------------------------------------------------------------

void MutexByte::stateText(std::uint8_t state, char (&out)[kStateTextBytes]) noexcept {
    const char* text = nullptr;
    switch (state) {
        case STATE_UNLOCKED:
            text = "unlocked";
            break;
        case STATE_LOCKED:
            text = "LOCKED";
            break;
        case STATE_LOCKED | STATE_HAS_SLEEPERS:
            text = "LOCKED+CONTENDED";
            break;
        default: {
            static const char kHex[] = "0123456789ABCDEF";
            const char bad[] = {'B', 'A', 'D', '(', '0', 'x', kHex[state >> 4], kHex[state & 15],
                                ')', '!', '\0'};
            std::memcpy(out, bad, sizeof bad);
            return;
        }
    }
    std::memcpy(out, text, std::strlen(text) + 1);
}

void MutexByte::appendStateText(std::string& out, std::uint8_t state) {
    char text[kStateTextBytes];
    stateText(state, text);
    out += text;
}

void MutexByte::dumpState(std::string& out) const {
    out += "MutexByte:";
    appendStateText(out, get(std::memory_order_relaxed));
}

void mutex_byte_details::WaitEntry::dumpState(std::string& out) const {
    out += "MutexByte-waiting={";
    if (waitingOn == nullptr) {
        out += "none}";
        return;
    }
    appendf(out, "0x%llx, next=0x%llx}", address(waitingOn), address(nextOnChain));
}

void mutex_byte_details::WaiterChain::dumpState(std::string& out) {
    std::lock_guard<PthreadMutexImpl> hold(mutex);
    out += "MutexByte-chain={";
    if (head == nullptr && tailp == &head) {
        out += "empty}";
        return;
    }
    appendf(out, "head=0x%llx, tailp=0x%llx", address(head), address(tailp));
    if ((head == nullptr) != (tailp == &head)) out += ", CORRUPT";
    out += '}';
}

unsigned mutex_byte_details::WaiterChain::sleepersOn(const MutexByte* byte) {
    std::lock_guard<PthreadMutexImpl> hold(mutex);
    unsigned n = 0;
    for (const WaitEntry* e = head; e != nullptr; e = e->nextOnChain)
        n += byte == nullptr || e->waitingOn == byte;
    return n;
}

void QMutex::dumpState(std::string& out) const {
    out += "qmutex{";
    const_cast<WaiterChain&>(_chain).dumpState(out);  // takes the chain mutex, changes nothing
    out += ", ";
    _byte.dumpState(out);
    out += '}';
}

MutexByteThreadCounts mutexByteThreadCounts() noexcept {
    return t_counts;
}

// --- The contended steps --------------------------------------------------------------------

std::uint8_t mutex_byte_details::shortSpin(MutexByte& byte) noexcept {
    unsigned looks = 0;  // at a held byte; each but the last is followed by one pause
    std::uint8_t cur_state = byte.get();
    for (;;) {
        switch (cur_state) {
            case MutexByte::STATE_LOCKED:
                if (++looks == kSpinLooks) {
                    t_counts.pauses += looks - 1;
                    return cur_state;
                }
                platform::cpuPause();
                cur_state = byte.get();
                break;
            case MutexByte::STATE_UNLOCKED:
                // A failed exchange leaves the new value in cur_state: looked at again, not counted.
                if (ByteAccess::compareExchange(byte, cur_state, MutexByte::STATE_LOCKED)) {
                    t_counts.pauses += looks;
                    return 0;
                }
                break;
            default:
                VESTRA_ASSERT_TEXT(cur_state == (MutexByte::STATE_LOCKED | MutexByte::STATE_HAS_SLEEPERS),
                                   "cur_state == (STATE_LOCKED | STATE_HAS_SLEEPERS)");
                t_counts.pauses += looks;
                return cur_state;  // sleepers exist: spinning is useless
        }
    }
}

int mutex_byte_details::attemptSleep(MutexByte& byte, WaiterChain& chain, std::uint8_t observed) noexcept {
    VESTRA_ASSERT_TEXT(Thread::mainThreadCreated(), "main_thread_created");
    Thread* const thr = Thread::current();
    VESTRA_ASSERT(thr != nullptr);
    ThreadScratch* const scratch = thr->scratchArea();
    VESTRA_ASSERT_TEXT(scratch != nullptr, "thr->_scratchp != nullptr");
    WaitEntry& e = scratch->wait;
    VESTRA_ASSERT_TEXT(e.waitingOn == nullptr, "pts._u.s.waitingOn == nullptr");
    e.waitingOn = &byte;
    e.nextOnChain = nullptr;

    chain.mutex.lock();
    WaitEntry** const old_tail = chain.tailp;
    VESTRA_ASSERT(*old_tail == nullptr);
    *old_tail = &e;
    chain.tailp = &e.nextOnChain;

    std::uint8_t expected = observed;
    if (!ByteAccess::compareExchange(byte, expected,
                                     MutexByte::STATE_LOCKED | MutexByte::STATE_HAS_SLEEPERS)) {
        // Changed meanwhile (freed, or got sleepers): the chain goes back as it was.
        *old_tail = nullptr;
        chain.tailp = old_tail;
        e.waitingOn = nullptr;
        chain.mutex.unlock();
        ++t_counts.failedEnqueues;
        return 0;
    }
    // The unlocker clears waitingOn when it hands the byte over; anything else is spurious.
    while (e.waitingOn != nullptr) {
        ++t_counts.sleeps;
        e.condition.wait(chain.mutex);
    }
    chain.mutex.unlock();
    return 1;
}

void mutex_byte_details::unlockWithSleepers(MutexByte& byte, WaiterChain& chain) noexcept {
    if (byte.get() != (MutexByte::STATE_LOCKED | MutexByte::STATE_HAS_SLEEPERS))
        fatalThreadError("MutexByte::assertIsLockedAndHasSleepersFailed()", EPERM);
    chain.mutex.lock();
    WaitEntry** slot = &chain.head;
    WaitEntry* e = *slot;
    while (e != nullptr && e->waitingOn != &byte) {
        slot = &e->nextOnChain;
        e = *slot;
    }
    VESTRA_ASSERT(e != nullptr);  // state 3 promises a sleeper on this chain
    *slot = e->nextOnChain;
    ++t_counts.handOffs;
    if (e->nextOnChain != nullptr) {
        VESTRA_ASSERT_TEXT(chain.tailp != &e->nextOnChain, "chain->tailp != &e->_u.s.nextOnChain");
        const WaitEntry* next = e->nextOnChain;
        while (next != nullptr && next->waitingOn != &byte) next = next->nextOnChain;
        if (next != nullptr) {  // more sleepers on this byte: it stays at 3
            e->waitingOn = nullptr;
            e->condition.signal();
            chain.mutex.unlock();
            return;
        }
    } else {
        VESTRA_ASSERT_TEXT(chain.tailp == &e->nextOnChain, "chain->tailp == &e->_u.s.nextOnChain");
        chain.tailp = slot;
    }
    // The last sleeper on this byte: it wakes owning a byte in state 1. Never free in between.
    ByteAccess::store(byte, MutexByte::STATE_LOCKED);
    e->waitingOn = nullptr;
    e->condition.signal();
    chain.mutex.unlock();
}

void mutex_byte_details::lockSlowpath(MutexByte& _byte, WaiterChain& chain) noexcept {
    VESTRA_ASSERT_TEXT(Thread::haveAlreadyStartedThreads(), "have_already_started_threads");
    for (;;) {
        const std::uint8_t state = shortSpin(_byte);
        if (state == 0 || attemptSleep(_byte, chain, state) != 0) break;
    }
    VESTRA_ASSERT_TEXT(
        (_byte.get(std::memory_order_relaxed) & ~MutexByte::STATE_HAS_SLEEPERS) == MutexByte::STATE_LOCKED,
        "(_byte.get(std::memory_order_relaxed) & ~MutexByte::STATE_HAS_SLEEPERS) == MutexByte::STATE_LOCKED");
}

// --- Finding the chain ----------------------------------------------------------------------

WaiterChain& mutex_byte_details::chainFor(const MutexByte* byte) noexcept {
    // Fibonacci hashing: neighbouring bytes (fields of one object) land on different chains.
    const auto address = reinterpret_cast<std::uintptr_t>(byte);
    const std::uint64_t mixed = static_cast<std::uint64_t>(address) * 0x9E3779B97F4A7C15ull;
    static_assert((mutex_byte_details::kChainTableSize & (mutex_byte_details::kChainTableSize - 1)) == 0);
    constexpr unsigned kShift = 64 - std::countr_zero(mutex_byte_details::kChainTableSize);
    return g_chains.slots[mixed >> kShift].chain;
}

void MutexByte::bounceContended() noexcept {
    mutex_byte_details::lockSlowpath(*this, mutex_byte_details::chainFor(this));
}

void MutexByte::unlockContended() noexcept {
    mutex_byte_details::unlockWithSleepers(*this, mutex_byte_details::chainFor(this));
}

void _lock_slowpath(QMutex& lock) noexcept {
    mutex_byte_details::lockSlowpath(lock._byte, lock._chain);
}

}  // namespace basicutil
