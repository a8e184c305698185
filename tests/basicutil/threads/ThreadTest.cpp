#include "basicutil/threads/Thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>
#include <thread>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/threads/Thread_details.h"
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

// Threads on the process-wide list.
int runningThreads() {
    struct Count : Thread::iterate_running_threads_callback {
        int n = 0;
        void visit(Thread&) override { ++n; }
    } count;
    Thread::iterateEachRunning(count);
    return count.n;
}

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
            EXPECT_EQ(platform::threadName(pthread_self(), buf, sizeof buf), 0);
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
    EXPECT_EQ(runningThreads(), 0);
}

TEST_F(ThreadTest, ListSurvivesConcurrentCreationAndExit) {
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
    for (int i = 0; i < 200; ++i) EXPECT_LE(runningThreads(), 2 * kCreators);  // walk it while it changes
    for (auto& c : creators) c->join();
    EXPECT_EQ(finished.load(), kCreators * kPerCreator);
    EXPECT_EQ(runningThreads(), 0);
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
    EXPECT_DEATH(static_cast<void>(_mainThread.runInUnixSignalContext(nullptr)), "actor != nullptr");
    EXPECT_DEATH(
        {
            ThreadFunction t([] {}, "unreleased");
            t.join();  // would wait for ever
        },
        "[^!]_ready_to_run.load\\(\\)");
}

TEST(ThreadWithoutMainDeathTest, ThreadBeforeMainThreadIsRefused) {
    EXPECT_DEATH(ThreadFunction([] {}, "early"), "Thread created before main thread!");
}

TEST_F(ThreadTest, ExplicitAttributesWarnAndCreationFailureThrows) {
    ThreadFunction odd([] {}, ThreadAttributes{12345, 0, ThreadAttributes::kDefaultStackBytes}, "odd");
    odd.go();
    odd.join();
    ASSERT_FALSE(_log.lines().empty());
    // The error is the platform's own: EINVAL in glibc, ENOTSUP on FreeBSD.
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    const int refused = pthread_attr_setschedpolicy(&attributes, 12345);
    ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
    ASSERT_NE(refused, 0);
    EXPECT_EQ(_log.lines()[0].message,
              "cannot override thread scheduling policy: pthread_attr_setschedpolicy(): " +
                  std::string(std::strerror(refused)));

    const unsigned before = Thread::threadsActive();
    try {
        ThreadFunction huge([] {}, ThreadAttributes{platform::kSchedOther, 0, std::size_t{1} << 46},
                            "Huge %s", "one");
        // FreeBSD may map so large a stack lazily: then there is no failure to see here.
        huge.go();
        huge.join();
        GTEST_SKIP()
            << "this system grants a 64 TiB thread stack, so creation cannot be made to fail this way";
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

// --- The signal-context hand-over under stray signals, finished targets and rival requesters ---

// Counts its runs and remembers the thread; optionally lingers, so that an early return of the
// request would be seen.
struct CountingActor : Thread::InSignalContextActor {
    std::atomic<int> runs{0};
    std::atomic<pthread_t> ranOn{};
    int lingerMs = 0;
    int straysToSelf = 0;  // SIGUSR1s sent to the running thread from inside the handler
    void run() override {
        ranOn.store(pthread_self());
        for (int i = 0; i < straysToSelf; ++i) pthread_kill(pthread_self(), SIGUSR1);
        if (lingerMs > 0) {
            const timespec pause{0, lingerMs * 1000000L};
            nanosleep(&pause, nullptr);
        }
        ++runs;
    }
};

TEST_F(ThreadTest, StraySignalsRunNothing) {
    Gate gate;
    std::atomic<pthread_t> targetHandle{};
    ThreadFunction target(
        [&] {
            targetHandle.store(pthread_self());
            gate.waitOpen();
        },
        "target");
    target.go();
    while (targetHandle.load() == pthread_t{}) std::this_thread::yield();

    // Strays raised during a request arrive once the handler returns: neither they nor the next
    // request's early return may run anything or end a request before its actor has run.
    CountingActor straying;
    straying.straysToSelf = 3;
    ASSERT_TRUE(target.runInUnixSignalContext(&straying));
    CountingActor slow;
    slow.lingerMs = 30;
    ASSERT_TRUE(target.runInUnixSignalContext(&slow));
    EXPECT_EQ(slow.runs.load(), 1);  // it had finished when the request returned
    EXPECT_EQ(straying.runs.load(), 1);

    // Strays from another thread, between and during requests.
    std::atomic<bool> stop{false};
    std::thread stray([&] {
        while (!stop.load()) {
            pthread_kill(targetHandle.load(), SIGUSR1);
            std::this_thread::yield();
        }
    });
    CountingActor counted;
    for (int i = 1; i <= 300; ++i) {
        ASSERT_TRUE(target.runInUnixSignalContext(&counted));
        ASSERT_EQ(counted.runs.load(), i);
        ASSERT_TRUE(pthread_equal(counted.ranOn.load(), targetHandle.load()));
    }
    stop.store(true);
    stray.join();
    EXPECT_EQ(slow.runs.load(), 1);
    gate.open();
    target.join();
}

TEST_F(ThreadTest, RequestsToAThreadOutsideItsFrameFailAtOnce) {
    CountingActor actor;
    // Parked threads are inside their frame: they serve requests before go().
    ThreadFunction parked([] {}, "parked");
    EXPECT_TRUE(parked.runInUnixSignalContext(&actor));
    EXPECT_EQ(actor.runs.load(), 1);

    // A body that has ended, not yet joined: off the list means out of its frame.
    ThreadFunction finished([] {}, "finished");
    finished.go();
    while (runningThreads() != 0) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the frame's last steps
    EXPECT_FALSE(finished.runInUnixSignalContext(&actor));
    finished.join();
    EXPECT_FALSE(finished.runInUnixSignalContext(&actor));  // joined
    EXPECT_EQ(actor.runs.load(), 1);

    // A thread that leaves its frame while a request is on its way: served or refused, never
    // left waiting, and the actor runs on the target only when the answer is true.
    for (int i = 0; i < 200; ++i) {
        std::atomic<pthread_t> self{};
        ThreadFunction brief([&] { self.store(pthread_self()); }, "brief%d", i);
        brief.go();
        CountingActor racing;
        const bool ran = brief.runInUnixSignalContext(&racing);
        EXPECT_EQ(racing.runs.load(), ran ? 1 : 0);
        brief.join();
        if (ran) {
            EXPECT_TRUE(pthread_equal(racing.ranOn.load(), self.load()));  // self is set: go() ran the body
        }
    }
    parked.joinEvenIfUnstarted();
}

TEST_F(ThreadTest, RequestsFromTwoThreadsAreServedOneAtATime) {
    constexpr int kRequests = 300;
    const pthread_t mainHandle = pthread_self();
    auto requester = [this, mainHandle] {
        CountingActor mine;
        for (int i = 1; i <= kRequests; ++i) {
            ASSERT_TRUE(_mainThread.runInUnixSignalContext(&mine));
            ASSERT_EQ(mine.runs.load(), i);  // its own actor, finished before the return
            ASSERT_TRUE(pthread_equal(mine.ranOn.load(), mainHandle));
        }
    };
    ThreadFunction a(requester, "requesterA"), b(requester, "requesterB");
    a.go();
    b.go();
    a.join();  // the main thread serves both while it waits here
    b.join();
}

// A signal that goes missing (dropped here, as a sanitizer's runtime may hold one back for good)
// is sent again: the request is served, late, not never. A watchdog ends a test that would hang.
TEST_F(ThreadTest, ALostSignalIsSentAgain) {
    std::atomic<bool> done{false};
    std::thread watchdog([&done] {
        for (int tenths = 0; tenths < 100 && !done.load(); ++tenths)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (!done.load()) {
            std::fputs("ALostSignalIsSentAgain: the request was never served\n", stderr);
            std::_Exit(1);
        }
    });
    CountingActor actor;
    thread_details::g_dropSignals.store(2);
    const auto start = std::chrono::steady_clock::now();
    ThreadFunction requester([&] { EXPECT_TRUE(_mainThread.runInUnixSignalContext(&actor)); }, "requester");
    requester.go();
    requester.join();  // the main thread serves it while it waits here
    const auto waited = std::chrono::steady_clock::now() - start;
    done.store(true);
    watchdog.join();
    EXPECT_EQ(actor.runs.load(), 1);
    EXPECT_EQ(thread_details::g_dropSignals.load(), 0);
    EXPECT_GE(waited, std::chrono::milliseconds(150));  // two sends lost, served by the third
}

TEST(ThreadAttributesTest, DefaultsAreThePlatformsOwn) {
    // Default-initialised over a garbage-filled store: every member has its own default.
    alignas(ThreadAttributes) unsigned char storage[sizeof(ThreadAttributes)];
    std::memset(storage, 0xA5, sizeof storage);
    const ThreadAttributes* attributes = new (storage) ThreadAttributes;
    EXPECT_EQ(attributes->policy, platform::kSchedOther);
    EXPECT_EQ(attributes->priority, 0);
    EXPECT_EQ(attributes->stackBytes, ThreadAttributes::kDefaultStackBytes);
    EXPECT_EQ(ThreadAttributes::defaults().policy, platform::kSchedOther);
    EXPECT_STREQ(platform::schedulingPolicyName(ThreadAttributes{}.policy), "other");
}

TEST_F(ThreadDeathTest, EveryStateDumpCarriesTheFatalErrorRecord) {
    // The failing thread's name is longer than the record keeps: the record holds its first 63
    // bytes, and every thread's dump still says what killed the process.
    static const Thread* dumped[2];
    EXPECT_DEATH(
        {
            struct Dump : LogObserver {
                void observe(const LogEvent&, StrSegment) override {
                    std::string dumps;
                    for (const Thread* t : dumped) {
                        t->dumpState(dumps);
                        dumps += '\n';
                    }
                    std::fputs(dumps.c_str(), stderr);
                }
            };
            static Dump dump;
            threadChannel().registerLogObserver(&dump);
            ThreadFunction failing([] { fatalThreadError("pthread_join", EINVAL); }, "%s",
                                   std::string(80, 'n'));
            dumped[0] = &_mainThread;
            dumped[1] = &failing;
            failing.go();
            failing.join();
        },
        "Thread: \"MainThread\", did_join=0, main_thread, token=[0-9]+; Dying on fatal thread error: "
        "pthread_join, error 22, in n{63}\n"
        "Thread: \"n{80}\", did_join=1, ready_to_run, token=[0-9]+; Dying on fatal thread error: "
        "pthread_join, "
        "error 22, in n{63}\n");
}

// Other threads read the main thread's handle while it is recorded (ThreadSanitizer's view).
TEST(ThreadWithoutMainTest, MainThreadHandleIsSharedSafely) {
    std::atomic<bool> stop{false};
    std::atomic<int> seenMain{0};
    std::thread reader([&] {
        while (!stop.load()) seenMain += Thread::currentIsMainThread() ? 1 : 0;
    });
    for (int i = 0; i < 50; ++i) {
        EmptyMainThread mainThread;
        EXPECT_TRUE(Thread::currentIsMainThread());
    }
    stop.store(true);
    reader.join();
    EXPECT_EQ(seenMain.load(), 0);
}

}  // namespace
}  // namespace basicutil
