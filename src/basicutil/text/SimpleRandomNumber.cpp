#include "basicutil/text/SimpleRandomNumber.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

namespace {

using simple_random_details::splitmix64;

// The process-wide generator behind a spin lock: the lock is held for a few nanoseconds, and a
// spin lock can be taken in the fork handlers. `generation` changes whenever the generator is
// reseeded, and thread generators compare it with their own.
struct ProcessGenerator {
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    SimpleRandomNumber rng{0x5EED};  // until start-up seeds it
    std::atomic<std::uint64_t> generation{1};

    void lock() noexcept {
        while (busy.test_and_set(std::memory_order_acquire)) platform::cpuPause();
    }
    void unlock() noexcept { busy.clear(std::memory_order_release); }
};

ProcessGenerator& processGenerator() noexcept {
    static ProcessGenerator instance;
    return instance;
}

void beforeFork() noexcept {
    processGenerator().lock();
}
void afterForkInParent() noexcept {
    processGenerator().unlock();
}
// The child mixes its parent's next number with its own process id and the kernel's bytes (when
// it gives them), so that neither a sibling nor the parent shares its sequence.
void afterForkInChild() noexcept {
    ProcessGenerator& g = processGenerator();
    std::uint64_t mix = g.rng.next() ^ (static_cast<std::uint64_t>(::getpid()) << 32);
    std::uint64_t kernel = 0;
    if (platform::secureRandomBytes(&kernel, sizeof kernel) == 0) mix ^= kernel;
    g.rng.reseed(splitmix64(mix));
    g.generation.fetch_add(1, std::memory_order_release);
    g.unlock();
}

// Start-up order 15: the process-wide seed, and the fork handlers.
struct RandomStartup {
    RandomStartup() noexcept {
        const struct timeval now = platform::readWallClockOrAbort();
        reseedProcessRandom(startupSeed(static_cast<std::uint32_t>(::getpid()), now.tv_sec, now.tv_usec));
        const int error = ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        VESTRA_ASSERT_TEXT(error == 0, "pthread_atfork for the random generator");
    }
};

RandomStartup g_randomStartup VESTRA_STARTUP(STARTUP_RANDOM);

struct ThreadGenerator {
    SimpleRandomNumber rng;
    std::uint64_t generation = 0;  // never the process's: seeded on first use
};
thread_local ThreadGenerator t_generator;

}  // namespace

std::uint64_t SimpleRandomNumber::between(std::uint64_t low, std::uint64_t high) noexcept {
    VESTRA_ASSERT(low <= high);
    const std::uint64_t span = high - low;
    return span == UINT64_MAX ? next() : low + below(span + 1);
}

std::int64_t SimpleRandomNumber::between(std::int64_t low, std::int64_t high) noexcept {
    VESTRA_ASSERT(low <= high);
    const std::uint64_t span = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
    const std::uint64_t offset = span == UINT64_MAX ? next() : below(span + 1);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(low) + offset);
}

void SimpleRandomNumber::fill(void* out, std::size_t length) noexcept {
    auto* p = static_cast<unsigned char*>(out);
    for (; length > 0;) {
        std::uint64_t word = next();
        const std::size_t n = length < 8 ? length : 8;
        for (std::size_t i = 0; i < n; ++i, word >>= 8) p[i] = static_cast<unsigned char>(word);
        p += n;
        length -= n;
    }
}

std::uint64_t processRandom() noexcept {
    ProcessGenerator& g = processGenerator();
    g.lock();
    const std::uint64_t value = g.rng.next();
    g.unlock();
    return value;
}

void reseedProcessRandom(std::uint64_t seed) noexcept {
    ProcessGenerator& g = processGenerator();
    g.lock();
    g.rng.reseed(seed);
    g.generation.fetch_add(1, std::memory_order_release);
    g.unlock();
}

SimpleRandomNumber& threadRandom() noexcept {
    ThreadGenerator& t = t_generator;
    const std::uint64_t now = processGenerator().generation.load(std::memory_order_acquire);
    if (t.generation != now) {
        t.rng.reseed(processRandom());
        t.generation = now;
    }
    return t.rng;
}

std::uint32_t startupSeed(std::uint32_t pid, std::int64_t seconds, std::int64_t microseconds) noexcept {
    return ~(pid ^ static_cast<std::uint32_t>(seconds) ^ static_cast<std::uint32_t>(microseconds));
}

Status secureRandomBytes(void* out, std::size_t length) {
    const int error = platform::secureRandomBytes(out, length);
    if (error == 0) return {};
    char text[128];
    return Status::failure(error, strprintf("getrandom: %s", platform::errorText(error, text, sizeof text)));
}

}  // namespace basicutil
