#include "basicutil/threads/MutexByte.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/platform/Platform.h"
#include "basicutil/threads/Thread.h"
#include "basicutil/threads/ThreadMutex.h"
#include "basicutil/threads/Thread_details.h"

namespace basicutil {
namespace {

using mutex_byte_details::WaiterChain;
using std::chrono::milliseconds;

class MutexByteTest : public ::testing::Test {
  protected:
    // A released Thread running `body`.
    std::unique_ptr<ThreadFunction> start(std::function<void()> body) {
        auto thread = std::make_unique<ThreadFunction>(std::move(body), "MutexByteTest%d", ++_started);
        thread->go();
        return thread;
    }
    // Polls until `done` holds; fails the test after ten seconds.
    static void waitFor(const std::function<bool()>& done, const char* what) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "still waiting for " << what;
            std::this_thread::sleep_for(milliseconds(1));
        }
    }
    static std::string dump(const MutexByte& byte) {
        std::string out;
        byte.dumpState(out);
        return out;
    }
    static std::string dump(WaiterChain& chain) {
        std::string out;
        chain.dumpState(out);
        return out;
    }

    EmptyMainThread _mainThread;
    int _started = 0;
};

using MutexByteDeathTest = MutexByteTest;

// Sets a byte to any value, as only a broken program would.
void force(MutexByte& byte, std::uint8_t value) {
    mutex_byte_details::ByteAccess::store(byte, value);
}

TEST_F(MutexByteTest, StateTexts) {
    const struct {
        std::uint8_t state;
        const char* text;
    } cases[] = {
        {0, "MutexByte:unlocked"},   {1, "MutexByte:LOCKED"},        {3, "MutexByte:LOCKED+CONTENDED"},
        {2, "MutexByte:BAD(0x02)!"}, {0xFF, "MutexByte:BAD(0xFF)!"}, {0x10, "MutexByte:BAD(0x10)!"},
    };
    for (const auto& c : cases) {
        MutexByte byte;
        force(byte, c.state);
        EXPECT_EQ(dump(byte), c.text) << int{c.state};
    }
}

TEST_F(MutexByteTest, ChainAndEntryDumps) {
    WaiterChain chain;
    EXPECT_EQ(dump(chain), "MutexByte-chain={empty}");

    mutex_byte_details::WaitEntry entry;
    std::string text;
    entry.dumpState(text);
    EXPECT_EQ(text, "MutexByte-waiting={none}");

    MutexByte byte;
    entry.waitingOn = &byte;
    chain.head = &entry;
    chain.tailp = &entry.nextOnChain;
    const std::string linked = dump(chain);
    EXPECT_EQ(linked.rfind("MutexByte-chain={head=0x", 0), 0u) << linked;
    EXPECT_NE(linked.find(", tailp=0x"), std::string::npos) << linked;
    EXPECT_EQ(linked.find("CORRUPT"), std::string::npos) << linked;
    text.clear();
    entry.dumpState(text);
    EXPECT_EQ(text.rfind("MutexByte-waiting={0x", 0), 0u) << text;
    EXPECT_NE(text.find(", next=0x0}"), std::string::npos) << text;

    // An entry at the head with tailp still at head, and an empty head with tailp elsewhere.
    chain.tailp = &chain.head;
    EXPECT_NE(dump(chain).find(", CORRUPT}"), std::string::npos) << dump(chain);
    chain.head = nullptr;
    chain.tailp = &entry.nextOnChain;
    EXPECT_NE(dump(chain).find(", CORRUPT}"), std::string::npos) << dump(chain);
    chain.tailp = &chain.head;
    entry.waitingOn = nullptr;

    QMutex q;
    text.clear();
    q.dumpState(text);
    EXPECT_EQ(text, "qmutex{MutexByte-chain={empty}, MutexByte:unlocked}");
}

// The standard lock adaptors drive both locks, alone and together with other Lockables.
TEST_F(MutexByteTest, UncontendedPathsAndStandardAdaptors) {
    MutexByte byte;
    QMutex q;
    {
        std::lock_guard<MutexByte> hold(byte);
        EXPECT_EQ(byte.get(), MutexByte::STATE_LOCKED);
        EXPECT_FALSE(byte.try_lock());
    }
    EXPECT_EQ(byte.get(), MutexByte::STATE_UNLOCKED);
    {
        PthreadMutexImpl m;
        std::scoped_lock all(byte, q, m);
        EXPECT_EQ(byte.get(), MutexByte::STATE_LOCKED);
        EXPECT_FALSE(q.try_lock());
    }
    EXPECT_TRUE(q.try_lock());
    q.unlock();
    std::unique_lock<QMutex> deferred(q, std::defer_lock);
    EXPECT_TRUE(deferred.try_lock());
    deferred.unlock();
    EXPECT_EQ(byte.get(), MutexByte::STATE_UNLOCKED);
}

TEST_F(MutexByteTest, ShortSpinStopsAsTheStateSays) {
    const struct {
        std::uint8_t before;
        std::uint8_t result;
        std::uint8_t after;
        std::uint64_t pauses;
    } cases[] = {
        {0, 0, 1, 0},   // taken at once
        {3, 3, 3, 0},   // sleepers exist: no spinning
        {1, 1, 1, 39},  // nobody frees it: the 40th look ends the spin
    };
    for (const auto& c : cases) {
        MutexByte byte;
        force(byte, c.before);
        const std::uint64_t pauses = mutexByteThreadCounts().pauses;
        EXPECT_EQ(mutex_byte_details::shortSpin(byte), c.result) << int{c.before};
        EXPECT_EQ(byte.get(), c.after) << int{c.before};
        EXPECT_EQ(mutexByteThreadCounts().pauses - pauses, c.pauses) << int{c.before};
    }
}

TEST_F(MutexByteDeathTest, ShortSpinRefusesABadState) {
    MutexByte byte;
    force(byte, 2);
    EXPECT_DEATH(mutex_byte_details::shortSpin(byte),
                 "cur_state == \\(STATE_LOCKED \\| STATE_HAS_SLEEPERS\\)");
}

// A byte freed between the last spin and the enqueue: the sleeper takes itself off again and
// the chain, with a sleeper of another byte on it, is exactly as it was.
TEST_F(MutexByteTest, FailedEnqueueLeavesTheChainAsItWas) {
    WaiterChain chain;
    MutexByte other, byte;
    other.lock();
    auto sleeper = start([&] { mutex_byte_details::lockSlowpath(other, chain); });
    waitFor([&] { return chain.sleepersOn(&other) == 1; }, "the other byte's sleeper");
    const std::string before = dump(chain);

    const std::uint64_t failed = mutexByteThreadCounts().failedEnqueues;
    EXPECT_EQ(mutex_byte_details::attemptSleep(byte, chain, MutexByte::STATE_LOCKED), 0);  // it is 0
    EXPECT_EQ(dump(chain), before);
    EXPECT_EQ(byte.get(), MutexByte::STATE_UNLOCKED);
    EXPECT_EQ(mutexByteThreadCounts().failedEnqueues, failed + 1);
    // Seen with sleepers, now without: the same.
    byte.lock();
    EXPECT_EQ(mutex_byte_details::attemptSleep(byte, chain,
                                               MutexByte::STATE_LOCKED | MutexByte::STATE_HAS_SLEEPERS),
              0);
    EXPECT_EQ(dump(chain), before);
    byte.unlock();

    mutex_byte_details::unlockWithSleepers(other, chain);
    sleeper->join();
    EXPECT_EQ(other.get(), MutexByte::STATE_LOCKED);  // handed over, never freed
    EXPECT_EQ(dump(chain), "MutexByte-chain={empty}");
}

// Sleepers wake in the order they went to sleep; all but the last find the byte still marked
// as having sleepers.
TEST_F(MutexByteTest, SleepersAreServedInEnqueueOrder) {
    constexpr int kSleepers = 5;
    MutexByte byte;
    WaiterChain& chain = mutex_byte_details::chainFor(&byte);
    std::vector<std::pair<int, int>> woken;  // (sleeper, byte state on waking); under the byte
    std::vector<std::uint64_t> sleeps(kSleepers);
    byte.lock();
    std::vector<std::unique_ptr<ThreadFunction>> threads;
    for (int i = 0; i < kSleepers; ++i) {
        threads.push_back(start([&, i] {
            byte.lock();
            woken.emplace_back(i, byte.get());
            sleeps[static_cast<std::size_t>(i)] = mutexByteThreadCounts().sleeps;
            byte.unlock();
        }));
        waitFor([&] { return chain.sleepersOn(&byte) == static_cast<unsigned>(i + 1); }, "a sleeper");
    }
    EXPECT_EQ(dump(byte), "MutexByte:LOCKED+CONTENDED");
    byte.unlock();
    for (auto& t : threads) t->join();

    ASSERT_EQ(woken.size(), static_cast<std::size_t>(kSleepers));
    for (int i = 0; i < kSleepers; ++i) {
        EXPECT_EQ(woken[static_cast<std::size_t>(i)].first, i);
        EXPECT_EQ(woken[static_cast<std::size_t>(i)].second, i + 1 < kSleepers ? 3 : 1) << i;
        EXPECT_GE(sleeps[static_cast<std::size_t>(i)], 1u) << i;
    }
    EXPECT_EQ(byte.get(), MutexByte::STATE_UNLOCKED);
    EXPECT_EQ(dump(chain), "MutexByte-chain={empty}");
}

// Two bytes that hash to one chain: handing one over never wakes the other's sleeper, even
// when that sleeper stands between two of its own.
TEST_F(MutexByteTest, BytesSharingAChainNeverWakeEachOther) {
    static MutexByte bytes[4 * mutex_byte_details::kChainTableSize];
    MutexByte* a = &bytes[0];
    MutexByte* b = nullptr;
    for (MutexByte& candidate : bytes)
        if (&candidate != a && &mutex_byte_details::chainFor(&candidate) == &mutex_byte_details::chainFor(a))
            b = &candidate;
    ASSERT_NE(b, nullptr) << "no two bytes share a chain";
    WaiterChain& chain = mutex_byte_details::chainFor(a);

    std::vector<std::string> events;  // each appended under the byte it names
    PthreadMutexImpl eventsLock;
    auto note = [&](const char* who, const MutexByte& byte) {
        std::lock_guard<PthreadMutexImpl> hold(eventsLock);
        events.push_back(std::string(who) + ":" + std::to_string(byte.get()));
    };
    a->lock();
    b->lock();
    auto a1 = start([&] {
        std::lock_guard<MutexByte> hold(*a);
        note("a1", *a);
    });
    waitFor([&] { return chain.sleepersOn(a) == 1; }, "a1 asleep");
    auto b1 = start([&] {
        std::lock_guard<MutexByte> hold(*b);
        note("b1", *b);
    });
    waitFor([&] { return chain.sleepersOn(b) == 1; }, "b1 asleep");
    auto a2 = start([&] {
        std::lock_guard<MutexByte> hold(*a);
        note("a2", *a);
    });
    waitFor([&] { return chain.sleepersOn(a) == 2; }, "a2 asleep");

    a->unlock();
    a1->join();
    a2->join();
    EXPECT_EQ(chain.sleepersOn(b), 1u);
    EXPECT_EQ(b->get(), 3);
    b->unlock();
    b1->join();
    EXPECT_EQ(events, (std::vector<std::string>{"a1:3", "a2:1", "b1:1"}));
    EXPECT_EQ(dump(chain), "MutexByte-chain={empty}");
}

// Two bytes on one chain, their sleepers queued in every order and either byte handed over
// first: each sleeper wakes owning its byte, marked as having sleepers exactly while another of
// its own still sleeps, so that the last one's unlock frees the byte (a mark left behind would
// send that unlock looking for a sleeper there is not).
TEST_F(MutexByteTest, SharedChainsInEveryOrder) {
    static MutexByte bytes[4 * mutex_byte_details::kChainTableSize];
    MutexByte* const a = &bytes[0];
    MutexByte* b = nullptr;
    for (MutexByte& candidate : bytes)
        if (&candidate != a && &mutex_byte_details::chainFor(&candidate) == &mutex_byte_details::chainFor(a))
            b = &candidate;
    ASSERT_NE(b, nullptr) << "no two bytes share a chain";
    WaiterChain& chain = mutex_byte_details::chainFor(a);
    const std::vector<std::vector<std::string>> orders = {
        {"a1", "b1", "a2"}, {"b1", "a1"}, {"a1", "b1"}, {"b1", "a1", "b2", "a2"}};
    for (const auto& order : orders) {
        for (const char first : {'a', 'b'}) {
            SCOPED_TRACE(::testing::PrintToString(order) + " " + first + " first");
            std::vector<std::string> events;
            PthreadMutexImpl eventsLock;
            a->lock();
            b->lock();
            std::vector<std::unique_ptr<ThreadFunction>> sleepers;
            unsigned queued[2] = {0, 0};
            for (const std::string& name : order) {
                MutexByte* byte = name[0] == 'a' ? a : b;
                sleepers.push_back(start([&, name, byte] {
                    std::lock_guard<MutexByte> hold(*byte);
                    std::lock_guard<PthreadMutexImpl> note(eventsLock);
                    events.push_back(name + ":" + std::to_string(byte->get()));
                }));
                const unsigned want = ++queued[name[0] - 'a'];
                waitFor([&] { return chain.sleepersOn(byte) == want; }, "asleep");
            }
            // Each byte's sleepers, in queue order: 3 while another of its own sleeps, then 1.
            std::vector<std::string> expected;
            for (const char byteName : {first, first == 'a' ? 'b' : 'a'}) {
                unsigned seen = 0;
                for (const std::string& name : order) {
                    if (name[0] != byteName) continue;
                    expected.push_back(name + ":" + (++seen < queued[byteName - 'a'] ? "3" : "1"));
                }
            }
            (first == 'a' ? a : b)->unlock();
            waitFor(
                [&] {
                    std::lock_guard<PthreadMutexImpl> note(eventsLock);
                    return events.size() == queued[first - 'a'];
                },
                "the first byte's sleepers");
            (first == 'a' ? b : a)->unlock();
            for (auto& t : sleepers) t->join();
            EXPECT_EQ(events, expected);
            EXPECT_EQ(a->get(), MutexByte::STATE_UNLOCKED);
            EXPECT_EQ(b->get(), MutexByte::STATE_UNLOCKED);
            EXPECT_EQ(dump(chain), "MutexByte-chain={empty}");
        }
    }
}

// A lock held only briefly is taken by spinning: pauses, no sleep. How long the other thread
// takes to arrive and look depends on the processor and the build (a sanitizer's is slow), so
// the hold adapts: released before the first look, it grows; outlasting the spin, it shrinks a
// little (a holder descheduled on a busy machine outlasts any spin). One holder thread serves
// every round, and rounds go on for up to ten seconds.
TEST_F(MutexByteTest, BriefHoldIsTakenBySpinning) {
    MutexByte byte;
    std::atomic<int> round{0}, held{0}, coming{0};
    std::atomic<unsigned> holdPauses{1};
    auto holder = start([&] {
        for (int done = 0;;) {
            int next;
            while ((next = round.load()) == done) std::this_thread::yield();
            if (next < 0) return;
            byte.lock();
            held.store(next);
            while (coming.load() != next) platform::cpuPause();  // no yield
            for (unsigned i = holdPauses.load(); i > 0; --i) platform::cpuPause();
            byte.unlock();
            done = next;
        }
    });
    bool tookBySpinning = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int n = 1; !tookBySpinning && std::chrono::steady_clock::now() < deadline; ++n) {
        round.store(n);
        while (held.load() != n) std::this_thread::yield();
        const MutexByteThreadCounts before = mutexByteThreadCounts();
        coming.store(n);
        byte.lock();
        const MutexByteThreadCounts after = mutexByteThreadCounts();
        byte.unlock();
        const bool slept = after.sleeps != before.sleeps || after.failedEnqueues != before.failedEnqueues;
        const bool looked = after.pauses > before.pauses;
        tookBySpinning = looked && !slept;
        const unsigned hold = holdPauses.load();
        if (slept)
            holdPauses.store(hold - hold / 8);
        else if (!looked && hold < (1u << 16))
            holdPauses.store(hold + 1 + hold / 4);
    }
    round.store(-1);
    holder->join();
    EXPECT_TRUE(tookBySpinning) << "last hold: " << holdPauses.load() << " pauses";
}

// Threads hammer plain counters under each lock: a lost update shows in the total (and, under
// ThreadSanitizer, as a race).
TEST_F(MutexByteTest, StressNoLostUpdate) {
#if defined(__SANITIZE_THREAD__)
    constexpr int kRounds = 5000;
#else
    constexpr int kRounds = 20000;
#endif
    for (int threadCount : {2, 8}) {
        MutexByte byte;
        QMutex q;
        std::uint64_t underByte = 0, underQ[2] = {0, 0};
        std::vector<std::unique_ptr<ThreadFunction>> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.push_back(start([&] {
                for (int i = 0; i < kRounds; ++i) {
                    {
                        std::lock_guard<MutexByte> hold(byte);
                        ++underByte;
                    }
                    std::lock_guard<QMutex> hold(q);
                    underQ[0] += 1;
                    underQ[1] += 2;
                }
            }));
        }
        for (auto& t : threads) t->join();
        const auto total = static_cast<std::uint64_t>(threadCount) * kRounds;
        EXPECT_EQ(underByte, total) << threadCount << " threads";
        EXPECT_EQ(underQ[0], total) << threadCount << " threads";
        EXPECT_EQ(underQ[1], 2 * total) << threadCount << " threads";
        EXPECT_EQ(byte.get(), MutexByte::STATE_UNLOCKED);
        EXPECT_EQ(dump(mutex_byte_details::chainFor(&byte)).find("CORRUPT"), std::string::npos);
    }
}

TEST_F(MutexByteDeathTest, MisuseEndsTheProcess) {
    MutexByte byte;
    EXPECT_DEATH(byte.unlock(), "Fatal thread error: MutexByte::assertIsLockedAndHasSleepersFailed\\(\\)");
    // State 3 with nobody on its chain.
    WaiterChain chain;
    force(byte, 3);
    EXPECT_DEATH(mutex_byte_details::unlockWithSleepers(byte, chain), "e != nullptr");
    force(byte, 1);
    // Sleeping needs a Thread's wait entry.
    EXPECT_DEATH(std::thread([&] { (void)mutex_byte_details::attemptSleep(byte, chain, 1); }).join(),
                 "thr != nullptr");
}

// A thread's state must not go while it is asleep in a lock (here: marked so, then torn down).
TEST(MutexByteTeardownDeathTest, StateTornDownWhileWaiting) {
    EXPECT_DEATH(
        {
            auto mainThread = std::make_unique<EmptyMainThread>();
            static MutexByte byte;
            mainThread->scratchArea()->wait.waitingOn = &byte;
            mainThread.reset();
        },
        "pts._u.s.waitingOn == nullptr");
}

// Contention is impossible before any Thread ran; run in a fresh process so that no earlier
// test has started one.
TEST(MutexByteFreshProcessDeathTest, ContentionBeforeThreadsStarted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            EmptyMainThread mainThread;
            MutexByte byte;
            byte.lock();
            byte.lock();
        },
        "have_already_started_threads");
}

}  // namespace
}  // namespace basicutil
