// The helper end to end, as its parent runs it: a child process with a pipe on standard input.
// Its sleeps are recorded by a preloaded usleep (SleepRecorder.cpp), which pins down the
// monitoring protocol from outside: main polls once a second from the start, the worker lingers
// once, and only after the line or the end of input, and the process exits within one poll of
// the linger's end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/platform/Platform.h"

namespace {

// ThreadSanitizer runs a background thread of its own in every process.
#if defined(__has_feature)
#define VESTRA_HAS_FEATURE(x) __has_feature(x)
#else
#define VESTRA_HAS_FEATURE(x) 0
#endif
#if VESTRA_HAS_FEATURE(thread_sanitizer) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kSanitizerThreads = 1;
#else
constexpr std::size_t kSanitizerThreads = 0;
#endif

constexpr std::uint64_t kPollUsec = 1000000;          // sleepMs(1000)
constexpr std::uint64_t kLingerUsec = 2350112768u;    // sleepMs(31536000000) after its 32-bit wraps
constexpr std::uint64_t kRecordedSleepNs = 20000000;  // what the recorder really sleeps

std::uint64_t monotonicNs() {
    timespec now{};
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
}

struct Child {
    pid_t pid = -1;
    int stdinWrite = -1;  // the parent's end of the helper's standard input
    int stdinRead = -1;   // a copy of the helper's end, to see what it left unread
    int stdoutRead = -1;
};

Child spawnHelper(const std::vector<std::string>& args, const std::string& sleepLog) {
    int in[2], out[2];
    EXPECT_EQ(pipe(in), 0);
    EXPECT_EQ(pipe(out), 0);
    Child child;
    child.pid = fork();
    if (child.pid == 0) {
        if (dup2(in[0], 0) < 0 || dup2(out[1], 1) < 0) _exit(126);
        close(in[1]);
        close(out[0]);
        std::vector<char*> argv{const_cast<char*>(VESTRA_HELPER_PATH)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        setenv("LD_PRELOAD", VESTRA_SLEEP_RECORDER_PATH, 1);
        setenv("VESTRA_SLEEP_LOG", sleepLog.c_str(), 1);
        execv(VESTRA_HELPER_PATH, argv.data());
        _exit(127);
    }
    EXPECT_GT(child.pid, 0);
    EXPECT_EQ(close(out[1]), 0);
    child.stdinWrite = in[1];
    child.stdinRead = in[0];
    child.stdoutRead = out[0];
    return child;
}

std::string readAll(int fd) {
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<std::size_t>(n));
    return text;
}

// The exit status (128 + signal for a signal), and when the parent saw it.
struct Exit {
    int status = -1;
    std::uint64_t atNs = 0;
};

// Waits at most `limitMs`; a child still running then is killed and reported as -1.
Exit waitForExit(pid_t pid, int limitMs = 10000) {
    Exit exit;
    int status = 0;
    for (int waited = 0;; ++waited) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        EXPECT_NE(done, -1);
        if (done == pid) break;
        if (waited == limitMs) {
            ADD_FAILURE() << "the helper did not exit within " << limitMs << " ms";
            EXPECT_EQ(kill(pid, SIGKILL), 0);
            EXPECT_EQ(waitpid(pid, &status, 0), pid);
            return exit;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    exit.atNs = monotonicNs();
    exit.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return exit;
}

// One recorded usleep: its request and when it began and ended (0: not yet).
struct Sleep {
    std::uint64_t usec = 0, beganNs = 0, endedNs = 0;
};

// The recorder's lines, paired: each "E" closes the oldest open sleep of the same request.
std::vector<Sleep> readSleeps(const std::string& path) {
    std::ifstream in(path);
    std::vector<Sleep> sleeps;
    char mark;
    std::uint64_t usec, ns;
    while (in >> mark >> usec >> ns) {
        if (mark == 'B') {
            sleeps.push_back({usec, ns, 0});
            continue;
        }
        auto open = std::find_if(sleeps.begin(), sleeps.end(),
                                 [&](const Sleep& s) { return s.usec == usec && s.endedNs == 0; });
        EXPECT_NE(open, sleeps.end()) << "an end without a beginning: " << usec;
        if (open != sleeps.end()) open->endedNs = ns;
    }
    return sleeps;
}

long countOf(const std::vector<Sleep>& sleeps, std::uint64_t usec) {
    return std::count_if(sleeps.begin(), sleeps.end(), [&](const Sleep& s) { return s.usec == usec; });
}

// Waits (at most two seconds) until main has finished a poll.
std::vector<Sleep> afterFirstPoll(const std::string& path) {
    std::vector<Sleep> sleeps;
    for (int i = 0; i < 200; ++i) {
        sleeps = readSleeps(path);
        for (const Sleep& s : sleeps)
            if (s.usec == kPollUsec && s.endedNs != 0) return sleeps;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "main never polled with sleepMs(1000)";
    return sleeps;
}

// What holds once the helper has gone: exactly one linger, begun no earlier than `signalNs`
// (the parent's line or end of input), polls of one second and nothing else, and an exit within
// one poll of the linger's end.
void expectLingeredOnceThenExited(const std::vector<Sleep>& sleeps, std::uint64_t signalNs,
                                  const Exit& exit) {
    ASSERT_EQ(countOf(sleeps, kLingerUsec), 1);
    EXPECT_EQ(countOf(sleeps, kPollUsec), static_cast<long>(sleeps.size()) - 1)
        << "a sleep of another length";
    const Sleep linger =
        *std::find_if(sleeps.begin(), sleeps.end(), [](const Sleep& s) { return s.usec == kLingerUsec; });
    EXPECT_GE(linger.beganNs, signalNs) << "lingered before the parent's signal";
    ASSERT_NE(linger.endedNs, 0u);
    // main may start one more poll before the worker clears the flag, never two.
    const long pollsAfter = std::count_if(sleeps.begin(), sleeps.end(), [&](const Sleep& s) {
        return s.usec == kPollUsec && s.beganNs > linger.endedNs;
    });
    EXPECT_LE(pollsAfter, 1);
    ASSERT_NE(exit.atNs, 0u);
    EXPECT_LT(exit.atNs - linger.endedNs, 2 * kRecordedSleepNs + 500000000u)
        << "exit came late after the linger";
    EXPECT_EQ(exit.status, 0);
}

// The names of the process's threads, sorted; empty where the system has no /proc.
std::vector<std::string> taskNames(pid_t pid) {
    std::vector<std::string> names;
    std::error_code ignored;  // the process may be gone already
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", ignored)) {
        std::ifstream comm(task.path() / "comm");
        std::getline(comm, names.emplace_back());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool haveProcTasks() {
    std::error_code ignored;
    return std::filesystem::exists("/proc/self/task", ignored);
}

class VestraHelperTest : public ::testing::Test {
  protected:
    std::string _sleepLog = ::testing::TempDir() + "vestra-sleep-" + std::to_string(getpid()) + ".log";
    void SetUp() override { unlink(_sleepLog.c_str()); }
    void TearDown() override { unlink(_sleepLog.c_str()); }
};

TEST_F(VestraHelperTest, SelfTestAnswersWithoutReadingInputOrSleeping) {
    Child child = spawnHelper({"--test"}, _sleepLog);
    ASSERT_EQ(write(child.stdinWrite, "untouched\n", 10), 10);
    close(child.stdinWrite);
    EXPECT_EQ(readAll(child.stdoutRead), "Test passed");  // 11 bytes, no newline
    EXPECT_EQ(waitForExit(child.pid).status, 0);
    EXPECT_EQ(readAll(child.stdinRead), "untouched\n");
    EXPECT_TRUE(readSleeps(_sleepLog).empty());
}

// Every other invocation monitors: end of input starts exactly one wrapped linger, main notices
// at its next poll, and the process exits 0 having printed nothing.
TEST_F(VestraHelperTest, EndOfInputLingersOnceWithTheWrappedDelay) {
    const std::vector<std::vector<std::string>> invocations = {
        {}, {"--TEST"}, {"--tests"}, {"--test", "extra"}, {"-"}};
    for (const auto& args : invocations) {
        SCOPED_TRACE(args.empty() ? std::string("no arguments")
                                  : args[0] + " and " + std::to_string(args.size() - 1) + " more");
        unlink(_sleepLog.c_str());
        Child child = spawnHelper(args, _sleepLog);
        const std::vector<Sleep> before = afterFirstPoll(_sleepLog);
        EXPECT_EQ(countOf(before, kLingerUsec), 0) << "lingered before the end of input";
        const std::uint64_t closedNs = monotonicNs();
        close(child.stdinWrite);
        close(child.stdinRead);
        const Exit exit = waitForExit(child.pid);
        EXPECT_EQ(readAll(child.stdoutRead), "");
        expectLingeredOnceThenExited(readSleeps(_sleepLog), closedNs, exit);
    }
}

TEST_F(VestraHelperTest, TwoThreadsWaitForALineAndLeaveTheRestOfItInThePipe) {
    Child child = spawnHelper({}, _sleepLog);
    const std::vector<Sleep> before = afterFirstPoll(_sleepLog);
    EXPECT_EQ(countOf(before, kLingerUsec), 0) << "lingered before the line";

    if (haveProcTasks()) {
        // The worker blocks in fgets: two threads, the worker named as far as the platform allows.
        const std::string workerName =
            std::string("ParentMonitoringThread").substr(0, basicutil::platform::kThreadNameMaxBytes);
        std::vector<std::string> names;
        for (int i = 0; i < 200 && std::count(names.begin(), names.end(), workerName) == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            names = taskNames(child.pid);
        }
        EXPECT_EQ(names.size(), 2 + kSanitizerThreads);
        EXPECT_EQ(std::count(names.begin(), names.end(), workerName), 1);
        EXPECT_EQ(names.back(), "vestra-helper");
    }

    const std::string line = std::string(600, 'x') + "\n";
    const std::uint64_t writtenNs = monotonicNs();
    ASSERT_EQ(write(child.stdinWrite, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    const Exit exit = waitForExit(child.pid);
    close(child.stdinWrite);
    EXPECT_EQ(readAll(child.stdinRead).size(), line.size() - 511);  // fgets took 511 bytes
    EXPECT_EQ(readAll(child.stdoutRead), "");
    expectLingeredOnceThenExited(readSleeps(_sleepLog), writtenNs, exit);
}

}  // namespace
