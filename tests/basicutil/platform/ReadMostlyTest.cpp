#include "basicutil/platform/ReadMostly.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace basicutil {
namespace {

// A value that knows when it is gone: a reader that still holds it after its release sees the
// mark changed (and the sanitizers see the use after free).
struct Marked {
    static constexpr std::uint64_t kAlive = 0x600dcafe;
    explicit Marked(int v, std::atomic<int>* released = nullptr) : value(v), gone(released) {}
    ~Marked() {
        mark = 0xdead;
        if (gone != nullptr) gone->fetch_add(1);
    }
    std::uint64_t mark = kAlive;
    int value;
    std::atomic<int>* gone;
};

// A replacement returns only after the reads that could see the old value have ended, and
// releases it then; reads that begin later see the new value.
TEST(ReadMostlyTest, AReplacementWaitsForTheReadsBeforeIt) {
    ReadMostly<Marked> shared;
    std::atomic<int> released{0};
    shared.replace(std::make_shared<const Marked>(1, &released));
    std::atomic<bool> reading{false}, finish{false}, replaced{false};
    std::thread reader([&] {
        ReadMostly<Marked>::Reader read(shared);
        reading = true;
        while (!finish) std::this_thread::yield();
        EXPECT_EQ(read.get()->value, 1);
        EXPECT_EQ(read.get()->mark, Marked::kAlive);
    });
    while (!reading) std::this_thread::yield();
    std::thread writer([&] {
        shared.replace(std::make_shared<const Marked>(2, &released));
        replaced = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(replaced.load()) << "returned while a read of the old value was open";
    {
        ReadMostly<Marked>::Reader read(shared);  // began after the new value was put in place
        EXPECT_EQ(read.get()->value, 2);
    }
    EXPECT_EQ(released.load(), 0);
    finish = true;
    reader.join();
    writer.join();
    EXPECT_TRUE(replaced.load());
    EXPECT_EQ(released.load(), 1);
    EXPECT_EQ(shared.load()->value, 2);
    shared.replace(nullptr);
    EXPECT_EQ(released.load(), 2);
    ReadMostly<Marked>::Reader none(shared);
    EXPECT_EQ(none.get(), nullptr);
}

// Readers in many threads while the value changes under them: every read sees a whole, living
// value, and the values a thread sees never go back in time.
TEST(ReadMostlyTest, ReadersNeverSeeAReleasedValue) {
    ReadMostly<Marked> shared;
    shared.replace(std::make_shared<const Marked>(0));
    std::atomic<bool> done{false};
    std::atomic<long> reads{0}, faults{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&] {
            int last = 0;
            while (!done) {
                ReadMostly<Marked>::Reader read(shared);
                const Marked* m = read.get();
                if (m->mark != Marked::kAlive || m->value < last) ++faults;
                last = m->value;
                ++reads;
            }
        });
    }
    while (reads.load() < 4) std::this_thread::yield();  // every reader under way
    for (int v = 1; v <= 300; ++v) shared.replace(std::make_shared<const Marked>(v));
    done = true;
    for (std::thread& r : readers) r.join();
    EXPECT_EQ(faults.load(), 0);
    EXPECT_GT(reads.load(), 0);
}

TEST(ReadMostlyDeathTest, AReplacementInsideAReadIsRefused) {
    ReadMostly<Marked> shared;
    EXPECT_DEATH(
        {
            ReadMostly<Marked>::Reader read(shared);
            shared.replace(std::make_shared<const Marked>(1));
        },
        "a replacement from inside a read would wait for itself");
}

// A child of fork() does not wait for the reads of threads it does not have, whichever epoch
// those reads began in (two rounds: each replacement moves the epoch on).
TEST(ReadMostlyTest, AForkedChildReplacesDespiteTheParentsReads) {
    ReadMostly<Marked> shared;
    for (int round = 1; round <= 2; ++round) {
        SCOPED_TRACE(round);
        shared.replace(std::make_shared<const Marked>(round));
        std::atomic<bool> reading{false}, finish{false};
        std::thread reader([&] {
            ReadMostly<Marked>::Reader read(shared);
            reading = true;
            while (!finish) std::this_thread::yield();
        });
        while (!reading) std::this_thread::yield();
        const pid_t child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            alarm(10);  // a hang is a failure, not a stuck test run
            shared.replace(std::make_shared<const Marked>(100));
            _exit(shared.load()->value == 100 ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        finish = true;
        reader.join();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
}

}  // namespace
}  // namespace basicutil
