// The helper end to end, as its parent runs it: a child process with a pipe on standard input.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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
    close(out[1]);
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

int waitForExit(pid_t pid) {
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> readLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The names of the process's threads, sorted.
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
    EXPECT_EQ(waitForExit(child.pid), 0);
    EXPECT_EQ(readAll(child.stdinRead), "untouched\n");
    EXPECT_TRUE(readLines(_sleepLog).empty());
}

// Every other invocation monitors: end of file starts exactly one wrapped linger, then main
// notices within its one-second polls, and the process exits 0 having printed nothing.
TEST_F(VestraHelperTest, EndOfInputLingersOnceWithTheWrappedDelay) {
    const std::vector<std::vector<std::string>> invocations = {
        {}, {"--TEST"}, {"--tests"}, {"--test", "extra"}, {"-"}};
    for (const auto& args : invocations) {
        unlink(_sleepLog.c_str());
        Child child = spawnHelper(args, _sleepLog);
        close(child.stdinWrite);
        close(child.stdinRead);
        EXPECT_EQ(readAll(child.stdoutRead), "");
        EXPECT_EQ(waitForExit(child.pid), 0);
        const std::vector<std::string> sleeps = readLines(_sleepLog);
        EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), "2350112768"), 1) << args.size();
        EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), "1000000"), static_cast<long>(sleeps.size()) - 1);
    }
}

TEST_F(VestraHelperTest, TwoThreadsWaitForALineAndLeaveTheRestOfItInThePipe) {
    Child child = spawnHelper({}, _sleepLog);
    // The worker blocks in fgets: two threads, the worker named as far as Linux allows.
    std::vector<std::string> names;
    for (int i = 0; i < 200 && std::count(names.begin(), names.end(), "ParentMonitorin") == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        names = taskNames(child.pid);
    }
    EXPECT_EQ(names.size(), 2 + kSanitizerThreads);
    EXPECT_EQ(std::count(names.begin(), names.end(), "ParentMonitorin"), 1);
    EXPECT_EQ(names.back(), "vestra-helper");
    const std::vector<std::string> polls = readLines(_sleepLog);
    EXPECT_EQ(std::count(polls.begin(), polls.end(), "2350112768"), 0);  // no linger before the line

    const std::string line = std::string(600, 'x') + "\n";
    ASSERT_EQ(write(child.stdinWrite, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    EXPECT_EQ(waitForExit(child.pid), 0);
    close(child.stdinWrite);
    EXPECT_EQ(readAll(child.stdinRead).size(), line.size() - 511);  // fgets took 511 bytes
    EXPECT_EQ(readAll(child.stdoutRead), "");
    const std::vector<std::string> sleeps = readLines(_sleepLog);
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), "2350112768"), 1);
}

}  // namespace
