#include "basicutil/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "basicutil/Platform.h"
#include "support/LogCapture.h"

namespace basicutil {
namespace {

// Most tests run with the main thread registered, as a program's main would.
class ThreadTest : public ::testing::Test {
  protected:
    EmptyMainThread _mainThread;
    testing::LogCapture _log;
};

using ThreadDeathTest = ThreadTest;

struct Counter : Thread::CleanupObject {
    explicit Counter(std::atomic<int>& n) : _n(n) {}
    ~Counter() override { ++_n; }
    std::atomic<int>& _n;
};

// A body that runs until released.
class Gate {
  public:
    void open() { _open.store(true); }
    void waitOpen() const {
        while (!_open.load()) std::this_thread::yield();
    }

  private:
    std::atomic<bool> _open{false};
};

TEST_F(ThreadTest, LifeCycles) {
    std::atomic<int> runs{0};
    const unsigned before = Thread::threadsActive();
    {
        ThreadFunction joined([&] { ++runs; }, "joined");
        EXPECT_EQ(Thread::threadsActive(), before + 1);
        joined.go();
        joined.join();
        ThreadFunction startedThenReaped([&] { ++runs; }, "reaped");
        startedThenReaped.go();
        startedThenReaped.joinEvenIfUnstarted();
        ThreadFunction neverStarted([&] { ++runs; }, "never");
        neverStarted.joinEvenIfUnstarted();
        ThreadFunction destroyedUnstarted([&] { ++runs; }, "destroyed");
    }
    EXPECT_EQ(runs.load(), 2);
    EXPECT_EQ(Thread::threadsActive(), before);
}

TEST_F(ThreadTest, NamesOfTheCallerAndOfTheThread) {
    std::string seenName, platformName;
    ThreadFunction worker(
        [&] {
            seenName = Thread::currentThreadName();
            char buf[64] = {};
            pthread_getname_np(pthread_self(), buf, sizeof buf);
            platformName = buf;
        },
        "Worker %d of %s", 3, "pool x");
    EXPECT_EQ(worker.name(), "Worker3ofpoolx");  // blanks removed after formatting
    worker.go();
    worker.join();
    EXPECT_EQ(seenName, "Worker3ofpoolx");
    EXPECT_EQ(platformName, std::string("Worker3ofpoolx").substr(0, platform::kThreadNameMaxBytes));
    EXPECT_STREQ(Thread::currentThreadName(), "MainThread");
    EXPECT_TRUE(Thread::currentIsMainThread());
    std::string foreign;
    std::thread([&] { foreign = Thread::currentThreadName(); }).join();
    EXPECT_EQ(foreign, "Unknown Thread");
}

TEST_F(ThreadTest, RunningThreadsAreListedUnlessExcluded) {
    struct Collect : Thread::iterate_running_threads_callback {
        std::vector<std::string> names;
        void visit(Thread& t) override { names.push_back(t.name()); }
    };
    Gate gate;
    std::atomic<int> started{0};
    auto body = [&] {
        ++started;
        gate.waitOpen();
    };
    ThreadFunction a(body, "a"), b(body, "b"), hidden(body, "hidden");
    hidden.excludeFromGlobalThreadList();
    for (Thread* t : {&a, &b, &hidden}) t->go();
    while (started.load() < 3) std::this_thread::yield();
    Collect running;
    Thread::iterateEachRunning(running);
    std::sort(running.names.begin(), running.names.end());
    EXPECT_EQ(running.names, (std::vector<std::string>{"a", "b"}));
    gate.open();
    for (Thread* t : {&a, &b, &hidden}) t->join();
    Collect after;
    Thread::iterateEachRunning(after);
    EXPECT_TRUE(after.names.empty());
}

TEST_F(ThreadTest, ListSurvivesConcurrentCreationAndExit) {
    struct Count : Thread::iterate_running_threads_callback {
        int n = 0;
        void visit(Thread&) override { ++n; }
    };
    constexpr int kCreators = 4, kPerCreator = 40;
    std::atomic<int> finished{0};
    std::vector<std::unique_ptr<ThreadFunction>> creators;
    for (int c = 0; c < kCreators; ++c) {
        creators.push_back(std::make_unique<ThreadFunction>(
            [&] {
                for (int i = 0; i < kPerCreator; ++i) {
                    ThreadFunction shortLived([&] { ++finished; }, "short%d", i);
                    shortLived.go();
                    shortLived.join();
                }
            },
            "creator%d", c));
    }
    for (auto& c : creators) c->go();
    for (int i = 0; i < 200; ++i) {  // walk the list while it changes underneath
        Count count;
        Thread::iterateEachRunning(count);
        EXPECT_LE(count.n, 2 * kCreators);
    }
    for (auto& c : creators) c->join();
    EXPECT_EQ(finished.load(), kCreators * kPerCreator);
    Count none;
    Thread::iterateEachRunning(none);
    EXPECT_EQ(none.n, 0);
}

TEST_F(ThreadTest, TerminateExceptionIsDiscardedAfterCleanup) {
    std::atomic<int> cleaned{0};
    struct Quitter : Thread {
        std::atomic<int>& cleaned;
        explicit Quitter(std::atomic<int>& c) : Thread("quitter"), cleaned(c) {}
        void main() override {
            addCleanup(std::make_unique<Counter>(cleaned));
            throw TerminateException("asked to stop");
        }
    } quitter(cleaned);
    quitter.go();
    quitter.join();
    EXPECT_EQ(cleaned.load(), 1);
    ASSERT_FALSE(_log.lines().empty());
    EXPECT_EQ(_log.lines().back().message, "caught Thread::TerminateException: asked to stop");
}

TEST_F(ThreadDeathTest, OtherExceptionsReachTerminate) {
    EXPECT_DEATH(
        {
            ThreadFunction thrower([] { throw std::runtime_error("boom"); }, "thrower");
            thrower.go();
            thrower.join();
        },
        "boom");
}

TEST_F(ThreadDeathTest, MisuseIsCaughtByAssertions) {
    EXPECT_DEATH(EmptyMainThread(), "Main Thread created twice!");
    EXPECT_DEATH(
        {
            ThreadFunction t([] {}, "twice");
            t.go();
            t.join();
            t.join();
        },
        "_did_join.load\\(\\) == DID_NOT_JOIN");
    EXPECT_DEATH(
        {
            ThreadFunction t([] {}, "unjoined");
            t.go();
        },
        "!_ready_to_run.load\\(\\)");
    EXPECT_DEATH(
        {
            ThreadFunction t([] {}, "gone twice");
            t.go();
            t.go();
        },
        "!_ready_to_run.load\\(\\)");
    EXPECT_DEATH(
        {
            ThreadFunction t([] {}, "started");
            t.go();
            t.join();
            Thread::assertNotMultithreadedYet();
        },
        "!have_already_started_threads");
    EXPECT_DEATH(_mainThread.runInUnixSignalContext(nullptr), "actor != nullptr");
}

TEST(ThreadWithoutMainDeathTest, ThreadBeforeMainThreadIsRefused) {
    EXPECT_DEATH(ThreadFunction([] {}, "early"), "Thread created before main thread!");
}

TEST_F(ThreadTest, SignalContextRunsTheActorOnTheTargetThread) {
    struct RecordSelf : Thread::InSignalContextActor {
        std::atomic<pthread_t> ranOn{};
        void run() override { ranOn.store(pthread_self()); }
    };
    Gate gate;
    std::atomic<pthread_t> workerHandle{};
    ThreadFunction worker(
        [&] {
            workerHandle.store(pthread_self());
            gate.waitOpen();
        },
        "target");
    worker.go();
    while (workerHandle.load() == pthread_t{}) std::this_thread::yield();
    RecordSelf actor;
    for (int i = 0; i < 3; ++i) {
        actor.ranOn.store(pthread_t{});
        worker.runInUnixSignalContext(&actor);
        EXPECT_TRUE(pthread_equal(actor.ranOn.load(), workerHandle.load()));
    }
    // And the other way round: the worker makes the main thread run it.
    RecordSelf fromWorker;
    ThreadFunction asker([&] { _mainThread.runInUnixSignalContext(&fromWorker); }, "asker");
    asker.go();
    asker.join();
    EXPECT_TRUE(pthread_equal(fromWorker.ranOn.load(), pthread_self()));
    gate.open();
    worker.join();
}

TEST_F(ThreadTest, ExplicitAttributesWarnAndCreationFailureThrows) {
    ThreadFunction odd([] {}, ThreadAttributes{12345, 0, ThreadAttributes::kDefaultStackBytes}, "odd");
    odd.go();
    odd.join();
    ASSERT_FALSE(_log.lines().empty());
    EXPECT_EQ(_log.lines()[0].message,
              "cannot override thread scheduling policy: pthread_attr_setschedpolicy(): Invalid argument");

    const unsigned before = Thread::threadsActive();
    try {
        ThreadFunction huge([] {}, ThreadAttributes{platform::kSchedOther, 0, std::size_t{1} << 46},
                            "Huge %s", "one");
        FAIL() << "a 64 TiB stack was granted";
    } catch (const ThreadException& e) {
        const std::string what = e.what();
        EXPECT_EQ(what.rfind("MainThread: about to throw a ThreadException: pthread_create: ", 0), 0u)
            << what;
        EXPECT_NE(what.find(" threads active. Trying to create Hugeone"), std::string::npos) << what;
        EXPECT_STREQ(e.typeName(), "ThreadException");
    }
    EXPECT_EQ(Thread::threadsActive(), before);
}

TEST_F(ThreadTest, StateDump) {
    ThreadFunction worker([] {}, "dumped");
    std::string before;
    worker.dumpState(before);
    worker.go();
    worker.join();
    std::string after;
    worker.dumpState(after);
    EXPECT_EQ(before.rfind("Thread: \"dumped\", did_join=0, token=", 0), 0u) << before;
    EXPECT_EQ(after.rfind("Thread: \"dumped\", did_join=1, ready_to_run, token=", 0), 0u) << after;
    std::string main;
    _mainThread.dumpState(main);
    EXPECT_EQ(main.rfind("Thread: \"MainThread\", did_join=0, main_thread, token=", 0), 0u) << main;
}

}  // namespace
}  // namespace basicutil
