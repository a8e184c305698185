#include "basicutil/threads/ThreadMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace basicutil {
namespace {

// From another thread, so that the answer is about other holders, not about recursion.
template <typename F>
bool fromAnotherThread(F f) {
    bool result = false;
    std::thread([&] { result = f(); }).join();
    return result;
}

TEST(ThreadMutexTest, MutexTryLockSeesOtherHolders) {
    PthreadMutexImpl mutex;
    {
        std::lock_guard<PthreadMutexImpl> hold(mutex);
        EXPECT_FALSE(fromAnotherThread([&] { return mutex.try_lock(); }));
    }
    EXPECT_TRUE(fromAnotherThread([&] {
        const bool took = mutex.try_lock();
        if (took) mutex.unlock();
        return took;
    }));
}

TEST(ThreadMutexTest, ReadersShareWritersDoNot) {
    PthreadRWLock lock;
    auto tryRead = [&] {
        const bool took = lock.try_lock_shared();
        if (took) lock.unlock_shared();
        return took;
    };
    auto tryWrite = [&] {
        const bool took = lock.try_lock();
        if (took) lock.unlock();
        return took;
    };
    {
        ScopedReader reading(lock);
        EXPECT_TRUE(fromAnotherThread(tryRead));
        EXPECT_FALSE(fromAnotherThread(tryWrite));
    }
    {
        ScopedWriter writing(lock);
        EXPECT_FALSE(fromAnotherThread(tryRead));
        EXPECT_FALSE(fromAnotherThread(tryWrite));
    }
    {
        std::shared_lock<PthreadRWLock> reading(lock);
        EXPECT_TRUE(fromAnotherThread(tryRead));
    }
    EXPECT_TRUE(fromAnotherThread(tryWrite));
}

TEST(ThreadMutexTest, ConditionWaitsAndTimesOut) {
    PthreadMutexImpl mutex;
    PthreadCondition condition;
    {
        std::lock_guard<PthreadMutexImpl> hold(mutex);
        EXPECT_FALSE(condition.waitUntil(mutex, Timespec::deadlineAfterMs(20)));
        Timespec past = Timespec::monotonicNow();
        past.subtractMs(1000);
        EXPECT_FALSE(condition.waitUntil(mutex, past));
    }
    bool ready = false;
    std::thread signaller([&] {
        std::lock_guard<PthreadMutexImpl> hold(mutex);
        ready = true;
        condition.signal();
    });
    {
        std::lock_guard<PthreadMutexImpl> hold(mutex);
        const Timespec deadline = Timespec::deadlineAfterMs(10000);
        while (!ready) ASSERT_TRUE(condition.waitUntil(mutex, deadline));
    }
    signaller.join();
}

// Writers under the read-write lock and holders of the mutex never lose an update.
TEST(ThreadMutexTest, StressNoLostUpdate) {
    constexpr int kRounds = 20000;
    for (int threadCount : {2, 8}) {
        PthreadMutexImpl mutex;
        PthreadRWLock rw;
        std::uint64_t underMutex = 0, underWriter = 0;
        std::atomic<std::uint64_t> readerSawOdd{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < kRounds; ++i) {
                    {
                        std::lock_guard<PthreadMutexImpl> hold(mutex);
                        ++underMutex;
                    }
                    if (i % 4 == 0) {
                        ScopedReader reading(rw);
                        if (underWriter % 2 != 0) readerSawOdd.fetch_add(1);
                    } else {
                        ScopedWriter writing(rw);
                        ++underWriter;  // odd only inside a writer's hold
                        ++underWriter;
                    }
                }
            });
        }
        for (auto& t : threads) t.join();
        const auto total = static_cast<std::uint64_t>(threadCount) * kRounds;
        EXPECT_EQ(underMutex, total);
        EXPECT_EQ(underWriter, 2 * (total - static_cast<std::uint64_t>(threadCount) * (kRounds / 4)));
        EXPECT_EQ(readerSawOdd.load(), 0u);
    }
}

}  // namespace
}  // namespace basicutil
