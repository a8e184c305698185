// Crash reporting's costs: a notation's push and pop (plain and formatted); a logged line's copy
// into the ring of recent lines; starting and joining a Thread with its alternate signal stack
// beside the same without (the goal: at most 10 % slower); and the time from a fault to the crash
// log fully written in a process of 50 threads (the goal: under 50 ms), measured from the parent
// of a child that faults.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "basicutil/crash/CrashHandler.h"
#include "basicutil/crash/CrashNotation.h"
#include "basicutil/log/Logger.h"
#include "basicutil/log/LoggerRecentLines.h"
#include "basicutil/threads/Thread.h"

namespace {

void ensureMainThread() {
    static basicutil::EmptyMainThread mainThread;
}

void BM_Notation_Ours(benchmark::State& state) {
    for (auto _ : state) {
        basicutil::CrashNotation note("handling request");
        benchmark::ClobberMemory();
    }
}
void BM_NotationFormatted_Ours(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        basicutil::CrashNotation note("handling request %d", ++i);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Notation_Ours);
BENCHMARK(BM_NotationFormatted_Ours);

// What every logged line adds for the crash log: its copy into the ring of recent lines.
void BM_KeepRecentLine_Ours(benchmark::State& state) {
    const basicutil::Str message("connection 42 from 192.0.2.7 closed after 1532 ms, 18 requests served");
    const basicutil::Timeval when{1700000000, 0};
    for (auto _ : state) {
        basicutil::keepRecentLogLine(basicutil::StrSegment("Server"), basicutil::LOG_INFO, when, message);
    }
}
BENCHMARK(BM_KeepRecentLine_Ours)->Threads(1)->Threads(2);

void startAndJoin(benchmark::State& state, bool alternateStacks) {
    ensureMainThread();
    basicutil::Thread::setCrashAlternateStacks(alternateStacks);
    for (auto _ : state) {
        basicutil::ThreadFunction t([] {}, "bench");
        t.go();
        t.join();
    }
    basicutil::Thread::setCrashAlternateStacks(false);
}
// Ours: the Thread as crash reporting starts it; the peer, the same Thread without the stack.
void BM_ThreadStartJoin_Ours(benchmark::State& state) {
    startAndJoin(state, true);
}
void BM_ThreadStartJoin_WithoutAltStack(benchmark::State& state) {
    startAndJoin(state, false);
}
BENCHMARK(BM_ThreadStartJoin_Ours);
BENCHMARK(BM_ThreadStartJoin_WithoutAltStack);

double monotonicSeconds() {
    struct timespec now {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) std::abort();
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A child with 50 parked threads faults; the time runs from just before its fault (sent through a
// pipe) to its end, which comes after the log is written and closed.
void BM_FaultToLog50Threads_Ours(benchmark::State& state) {
    char home[] = "/tmp/crash-bench.XXXXXX";
    if (mkdtemp(home) == nullptr) state.SkipWithError("mkdtemp");
    for (auto _ : state) {
        int times[2];
        if (pipe(times) != 0) state.SkipWithError("pipe");
        const pid_t child = fork();
        if (child == 0) {
            setenv("VESTRA_HOME", home, 1);
            ensureMainThread();  // made before the fork, or now
            if (!basicutil::installCrashHandler()) _exit(100);
            static std::atomic<int> parked{0};
            std::vector<std::unique_ptr<basicutil::ThreadFunction>> threads;
            for (int i = 0; i < 50; ++i) {
                threads.push_back(std::make_unique<basicutil::ThreadFunction>(
                    [] {
                        basicutil::CrashNotation note("parked");
                        ++parked;
                        pause();
                    },
                    "parked%d", i));
                threads.back()->go();
            }
            while (parked.load() < 50) sched_yield();
            const double before = monotonicSeconds();
            if (write(times[1], &before, sizeof before) != sizeof before) _exit(101);
            *static_cast<volatile int*>(nullptr) = 1;
        }
        close(times[1]);
        double before = 0;
        const bool got = read(times[0], &before, sizeof before) == sizeof before;
        close(times[0]);
        int status = 0;
        if (waitpid(child, &status, 0) != child || !got || !WIFSIGNALED(status))
            state.SkipWithError("the child");
        state.SetIterationTime(monotonicSeconds() - before);
    }
    // The logs are checked for their last line, then removed.
    const std::string dir = std::string(home) + "/crash";
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            const std::string path = dir + "/" + name;
            FILE* f = fopen(path.c_str(), "r");
            std::string text;
            char buf[65536];
            for (std::size_t n; f != nullptr && (n = fread(buf, 1, sizeof buf, f)) > 0;) text.append(buf, n);
            if (f != nullptr) fclose(f);
            if (text.find("==== end of crash log ====\n") == std::string::npos)
                state.SkipWithError("a log is cut short");
            unlink(path.c_str());
        }
        closedir(d);
    }
    rmdir(dir.c_str());
    rmdir(home);
}
BENCHMARK(BM_FaultToLog50Threads_Ours)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

}  // namespace
