#include "basicutil/platform/ReadMostly.h"

#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <thread>

#include "basicutil/platform/Assert.h"

namespace basicutil::read_mostly_details {

namespace {

constexpr unsigned kShards = 32;

// One thread group's reads: begun and not yet ended, by the parity of their epoch. A cache line
// of its own, so that readers in other groups never touch it.
struct alignas(64) Shard {
    std::atomic<std::int64_t> readers[2];
};

// Process-wide: the reads of every ReadMostly are counted together, so that each value costs one
// pointer, and a replacement of one waits for the reads of all (they are short).
struct Domain {
    std::atomic<unsigned> epoch{0};
    Shard shards[kShards]{};
    std::mutex writer;  // one replacement at a time: each drains the epoch the one before left
    Domain() {
        // A child has only the forking thread: the other threads' reads are gone with them.
        const int rc = ::pthread_atfork([] { domain().writer.lock(); }, [] { domain().writer.unlock(); },
                                        [] {
                                            for (Shard& s : domain().shards) {
                                                s.readers[0].store(0, std::memory_order_relaxed);
                                                s.readers[1].store(0, std::memory_order_relaxed);
                                            }
                                            domain().writer.unlock();
                                        });
        VESTRA_ASSERT(rc == 0);
    }
    static Domain& domain() {
        static Domain& instance = *new Domain;  // never destroyed: reads go on during teardown
        return instance;
    }
};

std::atomic<unsigned> g_nextShard{0};
thread_local Shard* t_shard = nullptr;
thread_local unsigned t_depth = 0;  // reads this thread is inside

Shard& myShard() noexcept {
    if (t_shard == nullptr) {
        t_shard = &Domain::domain().shards[g_nextShard.fetch_add(1, std::memory_order_relaxed) % kShards];
    }
    return *t_shard;
}

}  // namespace

unsigned enter() noexcept {
    Domain& d = Domain::domain();
    Shard& shard = myShard();
    ++t_depth;
    for (;;) {
        const unsigned epoch = d.epoch.load(std::memory_order_seq_cst);
        shard.readers[epoch & 1].fetch_add(1, std::memory_order_seq_cst);
        // Counted in the epoch that is still current: a replacement that moves the epoch on after
        // this waits for this read. Otherwise the count may be in the epoch being drained, too
        // late to be seen: count again in the new one.
        if (d.epoch.load(std::memory_order_seq_cst) == epoch) return epoch & 1;
        shard.readers[epoch & 1].fetch_sub(1, std::memory_order_release);
    }
}

void leave(unsigned ticket) noexcept {
    myShard().readers[ticket].fetch_sub(1, std::memory_order_release);
    --t_depth;
}

void synchronize() {
    VESTRA_ASSERT_TEXT(t_depth == 0, "a replacement from inside a read would wait for itself");
    Domain& d = Domain::domain();
    std::lock_guard<std::mutex> lock(d.writer);
    const unsigned old = d.epoch.fetch_add(1, std::memory_order_seq_cst) & 1;
    for (unsigned spins = 0;; ++spins) {
        std::int64_t inside = 0;
        for (Shard& s : d.shards) inside += s.readers[old].load(std::memory_order_acquire);
        if (inside == 0) return;
        if (spins < 64) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
}

}  // namespace basicutil::read_mostly_details
