// Locks: an uncontended lock and unlock, and 2 and 4 threads contending for one lock, ours
// (MutexByte, QMutex) beside pthread_mutex_t, std::mutex and absl::Mutex in one run.
//
// Contended: each thread runs kRounds of [lock; a short critical section on shared counters;
// unlock; a little work of its own]. Throughput is the wall time per round of all threads
// together. The worst wait is the longest any one lock() took in the run, measured in a second
// family so that reading the clock around every lock does not weigh on the throughput.
// Every contender runs on the library's Thread objects (our lock sleeps on their wait entries).
#include <absl/synchronization/mutex.h>
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "basicutil/threads/MutexByte.h"
#include "basicutil/threads/Thread.h"

namespace {

using Clock = std::chrono::steady_clock;

// The main thread's object, and one more thread, parked: the C library takes shortcuts in a
// process that has only ever had one thread, which a program using locks never is.
void ensureMainThread() {
    static basicutil::EmptyMainThread mainThread;
    static basicutil::ThreadFunction parked([] {}, "LockBenchParked");
}

struct PthreadMutex {
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    void lock() { pthread_mutex_lock(&m); }
    void unlock() { pthread_mutex_unlock(&m); }
};

struct AbslMutex {
    absl::Mutex m;
    void lock() { m.Lock(); }
    void unlock() { m.Unlock(); }
};

template <typename Lock>
void BM_Uncontended(benchmark::State& state) {
    ensureMainThread();
    Lock lock;
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}
BENCHMARK(BM_Uncontended<basicutil::MutexByte>)->Name("BM_Uncontended_Ours");
BENCHMARK(BM_Uncontended<basicutil::QMutex>)->Name("BM_Uncontended_OursQMutex");
BENCHMARK(BM_Uncontended<PthreadMutex>)->Name("BM_Uncontended_Pthread");
BENCHMARK(BM_Uncontended<std::mutex>)->Name("BM_Uncontended_StdMutex");
BENCHMARK(BM_Uncontended<AbslMutex>)->Name("BM_Uncontended_Absl");

constexpr int kRounds = 20000;

// Work outside the lock: `steps` dependent multiplications. 32 is about as long as the critical
// section (heavy contention); 512 is sixteen times that (moderate).
inline std::uint64_t ownWork(std::uint64_t x, int steps) {
    for (int i = 0; i < steps; ++i) x = x * 6364136223846793005ull + 1442695040888963407ull;
    return x;
}

struct alignas(64) Shared {
    std::uint64_t counters[8] = {};
};

// One run of `threads` threads; returns the wall time and the longest single lock() if timed.
template <typename Lock, bool kTimeWaits>
std::pair<double, double> contendedRun(int threads, int work) {
    Lock lock;
    Shared shared;
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<double> worst(static_cast<std::size_t>(threads), 0.0);
    std::vector<std::unique_ptr<basicutil::ThreadFunction>> workers;
    for (int t = 0; t < threads; ++t) {
        workers.push_back(std::make_unique<basicutil::ThreadFunction>(
            [&, t] {
                std::uint64_t x = static_cast<std::uint64_t>(t) + 1;
                double longest = 0;
                ready.fetch_add(1);
                while (!go.load(std::memory_order_acquire)) {
                }
                for (int i = 0; i < kRounds; ++i) {
                    if constexpr (kTimeWaits) {
                        const auto before = Clock::now();
                        lock.lock();
                        longest =
                            std::max(longest, std::chrono::duration<double>(Clock::now() - before).count());
                    } else {
                        lock.lock();
                    }
                    for (std::uint64_t& c : shared.counters) c += x & 7;
                    lock.unlock();
                    x = ownWork(x, work);
                }
                worst[static_cast<std::size_t>(t)] = longest;
                benchmark::DoNotOptimize(x);
            },
            "LockBench%d", t));
        workers.back()->go();
    }
    while (ready.load() != threads) {
    }
    const auto start = Clock::now();
    go.store(true, std::memory_order_release);
    for (auto& w : workers) w->join();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    benchmark::DoNotOptimize(shared.counters[0]);
    return {elapsed, *std::max_element(worst.begin(), worst.end())};
}

// Time per round of all threads together (lower is more throughput).
template <typename Lock>
void BM_Contended(benchmark::State& state) {
    ensureMainThread();
    const int threads = static_cast<int>(state.range(0));
    const int work = static_cast<int>(state.range(1));
    for (auto _ : state) {
        const double elapsed = contendedRun<Lock, false>(threads, work).first;
        state.SetIterationTime(elapsed / (threads * kRounds));
    }
}

// The longest single wait for the lock in a run, reported as the iteration time.
template <typename Lock>
void BM_WorstWait(benchmark::State& state) {
    ensureMainThread();
    const int threads = static_cast<int>(state.range(0));
    const int work = static_cast<int>(state.range(1));
    for (auto _ : state) state.SetIterationTime(contendedRun<Lock, true>(threads, work).second);
}

#define VESTRA_LOCK_BENCH(family, type, name) \
    BENCHMARK(BM_##family<type>)              \
        ->Name("BM_" #family "_" name)        \
        ->ArgNames({"threads", "work"})       \
        ->ArgsProduct({{2, 4}, {32, 512}})    \
        ->Iterations(3)                       \
        ->UseManualTime()

VESTRA_LOCK_BENCH(Contended, basicutil::MutexByte, "Ours");
VESTRA_LOCK_BENCH(Contended, basicutil::QMutex, "OursQMutex");
VESTRA_LOCK_BENCH(Contended, PthreadMutex, "Pthread");
VESTRA_LOCK_BENCH(Contended, std::mutex, "StdMutex");
VESTRA_LOCK_BENCH(Contended, AbslMutex, "Absl");
VESTRA_LOCK_BENCH(WorstWait, basicutil::MutexByte, "Ours");
VESTRA_LOCK_BENCH(WorstWait, basicutil::QMutex, "OursQMutex");
VESTRA_LOCK_BENCH(WorstWait, PthreadMutex, "Pthread");
VESTRA_LOCK_BENCH(WorstWait, std::mutex, "StdMutex");
VESTRA_LOCK_BENCH(WorstWait, AbslMutex, "Absl");

}  // namespace
