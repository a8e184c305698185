#include "basicutil/crash/CrashHandler.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "basicutil/crash/CrashHandler_details.h"
#include "basicutil/crash/CrashNotation.h"
#include "basicutil/log/Logger.h"
#include "basicutil/log/LoggerRecentLines.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/PlatformCrash.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/threads/MutexByte.h"
#include "basicutil/threads/Thread.h"
#include "support/stack-overflow.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VESTRA_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VESTRA_TEST_SANITIZED 1
#endif
#endif

namespace basicutil {
namespace {

// The sanitizers' own fatal-signal handlers end a process their way (a report and exit code 1),
// so a child cannot end by its signal under them.
#define SKIP_UNDER_SANITIZERS()                                                                             \
    do {                                                                                                    \
        if (kSanitized) GTEST_SKIP() << "a sanitizer's handler ends the process itself, not by the signal"; \
    } while (0)
#if defined(VESTRA_TEST_SANITIZED)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// How a child that installed the handler and then ran `crash` ended, and what it logged.
struct Ending {
    int status = 0;
    std::string log;  // the crash log's text (from its file, or standard error without one)
    std::string stderrText;
    std::vector<std::string> files;  // in $VESTRA_HOME/crash
};

std::string readAll(int fd) {
    std::string out;
    char buf[4096];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<std::size_t>(n));
    return out;
}

// Runs `crash` in a forked child with the handler installed, under VESTRA_HOME (or none) and the
// other variables given as "NAME=value".
Ending crashInChild(const std::function<void()>& crash, bool withHome = true,
                    const std::vector<std::string>& environment = {},
                    const std::function<void()>& beforeSetUp = {}) {
    char dir[] = "/tmp/crash-handler-test.XXXXXX";
    EXPECT_NE(mkdtemp(dir), nullptr);
    int errPipe[2];
    EXPECT_EQ(pipe(errPipe), 0);
    const pid_t child = fork();
    EXPECT_GE(child, 0);
    if (child == 0) {
        dup2(errPipe[1], STDERR_FILENO);
        close(errPipe[0]);
        if (withHome) {
            setenv("VESTRA_HOME", dir, 1);
        } else {
            unsetenv("VESTRA_HOME");
        }
        for (const std::string& setting : environment) {
            const std::size_t equals = setting.find('=');
            setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
        }
        EmptyMainThread mainThread;
        if (beforeSetUp) beforeSetUp();
        if (!installCrashHandler()) _exit(100);
        crash();
        _exit(101);  // no crash
    }
    close(errPipe[1]);
    Ending e;
    e.stderrText = readAll(errPipe[0]);
    close(errPipe[0]);
    EXPECT_EQ(waitpid(child, &e.status, 0), child);
    const std::string crashDir = std::string(dir) + "/crash";
    if (DIR* d = opendir(crashDir.c_str())) {
        while (const dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            e.files.push_back(name);
            std::ifstream in(crashDir + "/" + name);
            std::stringstream text;
            text << in.rdbuf();
            e.log = text.str();
            unlink((crashDir + "/" + name).c_str());
        }
        closedir(d);
        rmdir(crashDir.c_str());
    }
    rmdir(dir);
    if (!withHome) e.log = e.stderrText;
    return e;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool endedBy(int status, int signo) {
    return WIFSIGNALED(status) && WTERMSIG(status) == signo;
}

// An exception that leaves a function that may not throw: std::terminate (the test framework would
// catch one that reached it).
void escapes(const std::function<void()>& body) noexcept {
    body();
}

using vestra_test::g_depthLimit;
using vestra_test::recurse;

// Each fatal kind: the child ends by the same signal, one log is written under VESTRA_HOME, one
// line on standard error names it, and the log says what happened.
TEST(CrashHandlerTest, EachFatalKindWritesItsLog) {
    SKIP_UNDER_SANITIZERS();
    struct Kind {
        const char* name;
        int signo;
        std::function<void()> crash;
        std::vector<std::string> says;
    };
    const std::vector<Kind> kinds = {
        {"null write",
         SIGSEGV,
         [] { *static_cast<volatile int*>(nullptr) = 1; },
         {"Signal: SIGSEGV (11), code SEGV_MAPERR (address not mapped to object)",
          "Address: 0x0000000000000000, in no mapping"}},
        {"abort", SIGABRT, [] { std::abort(); }, {"Signal: SIGABRT (6), code SI_TKILL", "Sent by process"}},
        {"division by zero",
         SIGFPE,
         [] {
             volatile int zero = 0, some = 12345;  // 1 / x would be turned into a comparison
             volatile int result = some / zero;
             static_cast<void>(result);
         },
         {"Signal: SIGFPE (8), code FPE_INTDIV (integer divide by zero)"}},
        {"illegal instruction", SIGILL, [] { __builtin_trap(); }, {"Signal: SIGILL (4), code ILL_ILLOPN"}},
        {"failed assertion",
         SIGABRT,
         [] { VESTRA_ASSERT(g_depthLimit == 3); },
         {"Assertion failed: g_depthLimit == 3, function operator(), unit basicutil/CrashHandler, line "}},
        {"fatal thread error",
         SIGABRT,
         [] { fatalThreadError("pthread_mutex_lock", EINVAL); },
         {"Fatal thread error: pthread_mutex_lock, error 22, 1 threads active, in MainThread\n"}},
        {"uncaught std::exception",
         SIGABRT,
         [] { escapes([] { throw std::runtime_error("disk on fire"); }); },
         {"Uncaught exception: std::runtime_error: disk on fire\n"}},
        {"uncaught BaseException",
         SIGABRT,
         [] { escapes([] { throw Thread::TerminateException("stop now"); }); },
         {"Uncaught exception: basicutil::Thread::TerminateException (Thread::TerminateException): stop "
          "now\n"}},
        {"stack overflow in main", SIGSEGV, [] { recurse(0); }, {"stack overflow", "recurse"}},
        {"stack overflow in a Thread",
         SIGSEGV,
         [] {
             ThreadFunction t([] { recurse(0); }, "deep");
             t.go();
             t.join();
         },
         {"stack overflow", "Thread: \"deep\""}},
        {"stack overflow in a Thread on a stack another left",
         SIGSEGV,
         [] {
             ThreadFunction first([] {}, "first");  // ends, and its alternate stack is kept
             first.go();
             first.join();
             ThreadFunction t([] { recurse(0); }, "second");
             t.go();
             t.join();
         },
         {"stack overflow", "Thread: \"second\""}},
    };
    for (const Kind& kind : kinds) {
        const Ending e = crashInChild(kind.crash);
        EXPECT_TRUE(endedBy(e.status, kind.signo)) << kind.name << ": status " << e.status << "\n"
                                                   << e.stderrText;
        ASSERT_EQ(e.files.size(), 1u) << kind.name << "\n" << e.stderrText;
        EXPECT_TRUE(contains(e.stderrText, "Crash log written to ")) << e.stderrText;
        EXPECT_TRUE(contains(e.stderrText, e.files[0])) << e.stderrText;
        for (const std::string& part : kind.says)
            EXPECT_TRUE(contains(e.log, part)) << kind.name << ": " << part << "\n" << e.log;
        for (const char* section :
             {"==== crash log ====\n", "\nProgram: CrashHandlerTest\n", "\nThread: \"",
              "\nRegisters:\n  rax    0x", "\nBacktrace:\n  #00 0x", "\n  #02 0x", "CrashHandlerTest +0x",
              "\nMemory map:\n", "\nTop of the stack", "==== end of crash log ====\n"})
            EXPECT_TRUE(contains(e.log, section)) << kind.name << ": " << section << "\n" << e.log;
        // The backtrace starts at the faulting instruction, not in the handler, and goes on to its
        // callers (#02 above).
        const std::size_t rip = e.log.find("rip    0x");
        ASSERT_NE(rip, std::string::npos) << e.log;
        EXPECT_TRUE(contains(e.log, "#00 " + e.log.substr(rip + 7, 18))) << kind.name << "\n" << e.log;
        EXPECT_TRUE(e.files[0].rfind("CrashHandlerTest-", 0) == 0 && e.files[0].size() > 22 &&
                    e.files[0].substr(e.files[0].size() - 4) == ".log")
            << e.files[0];
    }
}

// A Thread that started before the set-up has its alternate stack too: its stack overflow is
// logged.
TEST(CrashHandlerTest, ThreadsStartedBeforeTheSetUpHaveTheirStack) {
    SKIP_UNDER_SANITIZERS();
    static std::atomic<bool> running{false}, setUp{false};
    static std::unique_ptr<ThreadFunction> early;
    const Ending e = crashInChild(
        [] {
            setUp.store(true);
            early->join();
        },
        true, {},
        [] {
            early = std::make_unique<ThreadFunction>(
                [] {
                    running.store(true);
                    while (!setUp.load()) sched_yield();
                    recurse(0);
                },
                "early");
            early->go();
            while (!running.load()) sched_yield();  // in its body: past where its frame begins
        });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV)) << e.status << "\n" << e.stderrText;
    EXPECT_TRUE(contains(e.log, "stack overflow")) << e.log;
    EXPECT_TRUE(contains(e.log, "Thread: \"early\"")) << e.log;
}

// A bus error: a mapped file truncated under its mapping.
TEST(CrashHandlerTest, BusErrorOnATruncatedMapping) {
    SKIP_UNDER_SANITIZERS();
    const Ending e = crashInChild([] {
        FILE* file = std::tmpfile();
        if (file == nullptr || ftruncate(fileno(file), 8192) != 0) _exit(102);
        auto* p = static_cast<volatile char*>(mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fileno(file), 0));
        if (p == MAP_FAILED || ftruncate(fileno(file), 0) != 0) _exit(103);
        static_cast<void>(p[4096]);
    });
    EXPECT_TRUE(endedBy(e.status, SIGBUS)) << e.status;
    EXPECT_TRUE(contains(e.log, "Signal: SIGBUS (7), code BUS_ADRERR")) << e.log;
}

// Without VESTRA_HOME the whole log goes to standard error; the thread list shows every listed
// thread as dumpState words it.
TEST(CrashHandlerTest, WithoutAHomeTheLogGoesToStandardError) {
    SKIP_UNDER_SANITIZERS();
    const Ending e = crashInChild(
        [] {
            static std::atomic<bool> running{false};
            ThreadFunction idle(
                [] {
                    running.store(true);
                    pause();
                },
                "idler");
            idle.go();
            while (!running.load()) sched_yield();  // listed before its body runs
            *static_cast<volatile int*>(nullptr) = 1;
        },
        false);
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    EXPECT_TRUE(e.files.empty());
    EXPECT_FALSE(contains(e.stderrText, "Crash log written to"));
    EXPECT_TRUE(contains(e.log, "==== crash log ====\nSignal: SIGSEGV")) << e.log;
    EXPECT_TRUE(contains(e.log, "Threads:\nThread: \"idler\", did_join=0, ready_to_run, token=")) << e.log;
    EXPECT_TRUE(contains(e.log, "==== end of crash log ====\n"));
}

// Notations three deep on two threads: the crashing thread's under its own line, the other's under
// its state in the thread list, each innermost first.
TEST(CrashHandlerTest, NotationsOfTwoThreadsInnermostFirst) {
    SKIP_UNDER_SANITIZERS();
    const Ending e = crashInChild([] {
        static std::atomic<bool> noted{false};
        ThreadFunction worker(
            [] {
                CrashNotation outer("worker outer");
                CrashNotation middle("worker middle %d", 2);
                CrashNotation inner("worker inner");
                noted.store(true);
                pause();
            },
            "worker");
        worker.go();
        while (!noted.load()) sched_yield();
        CrashNotation outer("main outer");
        CrashNotation middle("main middle");
        CrashNotation inner("main inner");
        *static_cast<volatile int*>(nullptr) = 1;
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    EXPECT_TRUE(
        contains(e.log, ")\n  noting: main inner\n  noting: main middle\n  noting: main outer\nTime: "))
        << e.log;
    const std::size_t worker = e.log.find("Thread: \"worker\", did_join=0, ready_to_run, token=");
    ASSERT_NE(worker, std::string::npos) << e.log;
    const std::size_t lineEnd = e.log.find('\n', worker);
    const std::string expected =
        "\n    noting: worker inner\n    noting: worker middle 2\n    noting: worker outer\n";
    EXPECT_EQ(e.log.substr(lineEnd, expected.size()), expected) << e.log;
}

// The hard cases: a fault inside the handler, two threads at once, the thread list's lock held by
// a stopped thread, a crash directory that cannot take the file, VESTRA_WAIT_ON_CRASH.
TEST(CrashHandlerTest, HardCases) {
    SKIP_UNDER_SANITIZERS();
    // A fault while the log is written: the default action at once, the first part of the log kept.
    Ending e = crashInChild([] {
        crash_handler_details::g_whileWriting = [] { *static_cast<volatile int*>(nullptr) = 2; };
        *static_cast<volatile int*>(nullptr) = 1;
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV)) << e.status;
    EXPECT_TRUE(contains(e.log, "Signal: SIGSEGV") && contains(e.log, "\nCommand line: ")) << e.log;
    EXPECT_FALSE(contains(e.log, "==== end of crash log ====")) << e.log;

    // Two threads fault together: one log, by one of them.
    e = crashInChild([] {
        static std::atomic<int> ready{0};
        auto crash = [] {
            ++ready;
            while (ready.load() < 2) {
            }
            *static_cast<volatile int*>(nullptr) = 3;
        };
        ThreadFunction a(crash, "crasher-a"), b(crash, "crasher-b");
        a.go();
        b.go();
        a.join();
        b.join();
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV)) << e.status;
    ASSERT_EQ(e.files.size(), 1u);
    EXPECT_EQ(e.log.find("==== crash log ===="), e.log.rfind("==== crash log ===="));
    EXPECT_TRUE(contains(e.log, "Thread: \"crasher-")) << e.log;
    EXPECT_TRUE(contains(e.log, "==== end of crash log ====\n"));

    // A thread stopped while it holds the thread list's lock: the log still comes, and says so.
    e = crashInChild([] {
        static std::atomic<bool> holding{false};
        ThreadFunction holder(
            [] {
                struct Stop : Thread::iterate_running_threads_callback {
                    void visit(Thread&) override {
                        holding.store(true);
                        pause();
                    }
                } stop;
                Thread::iterateEachRunning(stop);
            },
            "holder");
        holder.go();
        while (!holding.load()) sched_yield();
        *static_cast<volatile int*>(nullptr) = 4;
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV)) << e.status;
    EXPECT_TRUE(contains(e.log,
                         "Threads:\n(the thread list's lock is held: the list is read as it is)\n"
                         "Thread: \"holder\""))
        << e.log;
    EXPECT_TRUE(contains(e.log, "==== end of crash log ====\n"));

    // $VESTRA_HOME/crash is a file: no log file can be made there, so all of it goes to standard error.
    char home[] = "/tmp/crash-home.XXXXXX";
    ASSERT_NE(mkdtemp(home), nullptr);
    const std::string blocker = std::string(home) + "/crash";
    ASSERT_EQ(close(open(blocker.c_str(), O_CREAT | O_WRONLY, 0600)), 0);
    e = crashInChild([] { *static_cast<volatile int*>(nullptr) = 5; }, false,
                     {"VESTRA_HOME=" + std::string(home)});
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    EXPECT_TRUE(contains(e.stderrText, "==== crash log ====\nSignal: SIGSEGV")) << e.stderrText;
    EXPECT_TRUE(contains(e.stderrText, "==== end of crash log ====\n"));
    ASSERT_EQ(unlink(blocker.c_str()), 0);
    ASSERT_EQ(rmdir(home), 0);

    // VESTRA_WAIT_ON_CRASH=1: a second's wait, and how to attach.
    const auto start = std::chrono::steady_clock::now();
    e = crashInChild([] { *static_cast<volatile int*>(nullptr) = 6; }, true, {"VESTRA_WAIT_ON_CRASH=1"});
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    EXPECT_GE(waited, std::chrono::milliseconds(900));
    EXPECT_TRUE(contains(e.stderrText, "Waiting for a debugger for 1 s: gdb -p ") ||
                contains(e.stderrText, "Waiting for a debugger for 1 s: lldb -p "))
        << e.stderrText;
}

// The last lines logged come with the log, oldest first, on one line each, though the thread that
// logged the last of them is stopped holding its channel's lock.
TEST(CrashHandlerTest, LastLinesLoggedComeWithTheLog) {
    SKIP_UNDER_SANITIZERS();
    const Ending e = crashInChild([] {
        static Logger channel("CrashRecent", 0, 0, 0);
        channel.log(LOG_INFO, "first line");
        channel.logf(LOG_WARN, "two%slines", "\n");
        channel.log(LOG_ERROR, std::string(300, 'x'));
        static std::atomic<bool> holding{false};
        struct Stop : LogObserver {
            void observe(const LogEvent&, StrSegment) override {
                holding.store(true);
                pause();
            }
        };
        static Stop stop;
        channel.registerLogObserver(&stop);
        ThreadFunction holder([] { channel.log(LOG_NOTICE, "logged while the lock is held"); }, "holder");
        holder.go();
        while (!holding.load()) sched_yield();
        *static_cast<volatile int*>(nullptr) = 8;
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    const std::size_t start = e.log.find("\nLast lines logged (oldest first):\n");
    ASSERT_NE(start, std::string::npos) << e.log;
    const std::string section = e.log.substr(start, e.log.find("\nMemory map:\n") + 1 - start);
    const std::string expected[] = {
        " INFO [CrashRecent] thread ",
        ": first line\n",
        " WARN [CrashRecent] thread ",
        ": two\\nlines\n",
        " ERROR [CrashRecent] thread ",
        ": " + std::string(kRecentLogTextBytes - 11, 'x') + " ... (cut: 300 bytes)\n",
        " NOTICE [CrashRecent] thread ",
        ": logged while the lock is held\n",
    };
    std::size_t at = 0;
    for (const std::string& part : expected) {
        const std::size_t found = section.find(part, at);
        ASSERT_NE(found, std::string::npos) << part << "\n" << section;
        at = found + part.size();
    }
    EXPECT_TRUE(contains(e.log, "==== end of crash log ====\n"));
}

// A thread asleep in a byte lock: the lock's state under its line, in the lock's own words.
TEST(CrashHandlerTest, SleepersShowTheirLock) {
    SKIP_UNDER_SANITIZERS();
    const Ending e = crashInChild([] {
        static MutexByte byte;
        byte.lock();
        ThreadFunction sleeper([] { byte.lock(); }, "sleeper");
        sleeper.go();
        while (byte.get() != (MutexByte::STATE_LOCKED | MutexByte::STATE_HAS_SLEEPERS)) sched_yield();
        *static_cast<volatile int*>(nullptr) = 7;
    });
    EXPECT_TRUE(endedBy(e.status, SIGSEGV));
    const std::size_t line = e.log.find("Thread: \"sleeper\"");
    ASSERT_NE(line, std::string::npos) << e.log;
    const std::size_t next = e.log.find('\n', line) + 1;
    EXPECT_EQ(e.log.substr(next, 26), "    asleep in byte lock 0x") << e.log;
    EXPECT_TRUE(contains(e.log.substr(next, e.log.find('\n', next) - next), ": LOCKED+CONTENDED")) << e.log;
}

// A state report without dying: the call, and SIGQUIT when the set-up asks for it.
TEST(CrashHandlerTest, StateReportsWithoutDying) {
    EmptyMainThread mainThread;
    std::atomic<bool> noted{false}, stop{false};
    ThreadFunction worker(
        [&] {
            CrashNotation note("waiting for work");
            noted.store(true);
            while (!stop.load()) sched_yield();
        },
        "worker");
    worker.go();
    while (!noted.load()) sched_yield();
    CrashNotation mine("reporting");
    keepRecentLogLine(StrSegment("Report"), LOG_NOTICE, Timeval{0, 0}, StrSegment("just before"));
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(writeStateReport(fileno(file)), 0);
    std::rewind(file);
    std::string report;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, file)) > 0;) report.append(buf, n);
    EXPECT_EQ(std::fclose(file), 0);
    stop.store(true);
    worker.join();
    EXPECT_EQ(report.rfind("==== state report ====\nProgram: CrashHandlerTest\n", 0), 0u) << report;
    EXPECT_TRUE(contains(report, "\n  noting: reporting\n")) << report;
    EXPECT_TRUE(contains(report, "Thread: \"worker\", did_join=0, ready_to_run, token=")) << report;
    EXPECT_TRUE(contains(report, "\n    noting: waiting for work\n")) << report;
    EXPECT_TRUE(contains(report, "\n  1970-01-01 00:00:00.000000 UTC NOTICE [Report] thread " +
                                     std::to_string(platform::currentThreadId()) +
                                     ": just before\n==== end of state report ====\n"))
        << report;
    EXPECT_FALSE(contains(report, "Signal:"));

    // SIGQUIT, asked for: a report file beside the crash logs, and the process goes on.
    char home[] = "/tmp/crash-report.XXXXXX";
    ASSERT_NE(mkdtemp(home), nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv("VESTRA_HOME", home, 1);
        CrashHandlerOptions options;
        options.reportOnSigquit = true;
        if (!installCrashHandler(options)) _exit(100);
        if (raise(SIGQUIT) != 0) _exit(101);
        _exit(removeCrashHandler() ? 0 : 102);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    const std::string dir = std::string(home) + "/crash";
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            names.push_back(name);
            std::ifstream in(dir + "/" + name);
            std::stringstream text;
            text << in.rdbuf();
            EXPECT_TRUE(contains(text.str(), "==== end of state report ====\n")) << text.str();
            unlink((dir + "/" + name).c_str());
        }
        closedir(d);
    }
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0].substr(names[0].size() - 7), ".report");
    rmdir(dir.c_str());
    rmdir(home);
}

}  // namespace
}  // namespace basicutil

// A function of this program whose address the symbol table must name.
extern "C" [[gnu::noinline]] int crashSymbolProbe(int x) {
    return x * 3 + 1;
}

namespace basicutil {
namespace {

int firstModule(struct dl_phdr_info* info, std::size_t, void* arg) {
    *static_cast<std::uintptr_t*>(arg) = info->dlpi_addr;
    return 1;
}

// The executable's function symbols, as read at set-up: a function found by any address inside it,
// nothing outside functions, nothing from a file that is no ELF file.
TEST(CrashHandlerTest, ExecutableSymbolsNameFunctions) {
    char path[4096];
    ASSERT_GT(platform::readExecutablePath(path, sizeof path), 0u);
    crash_handler_details::SymbolTable table;
    ASSERT_TRUE(table.read(path));
    EXPECT_GT(table.size(), 100u);
    std::uintptr_t base = 0;
    dl_iterate_phdr(firstModule, &base);
    const auto probe = reinterpret_cast<std::uintptr_t>(&crashSymbolProbe) - base;
    std::uint64_t offset = 99;
    const char* name = table.find(probe, offset);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "crashSymbolProbe");
    EXPECT_EQ(offset, 0u);
    name = table.find(probe + 1, offset);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "crashSymbolProbe");
    EXPECT_EQ(offset, 1u);
    EXPECT_EQ(table.find(0, offset), nullptr);
    EXPECT_EQ(table.find(~std::uint64_t{0}, offset), nullptr);
    EXPECT_FALSE(table.read("/etc/hostname"));
    EXPECT_EQ(table.size(), 0u);
    EXPECT_FALSE(table.read("/nonexistent/file"));
    EXPECT_EQ(crashSymbolProbe(1), 4);
}

// The dumps read memory as it is: around a stack array, which an address sanitizer surrounds with
// poisoned zones, without the sanitizer stopping the read (the test matters in the asan build).
TEST(CrashHandlerTest, DumpsReadMemoryAsItIs) {
    volatile char array[8] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    unsigned char copy[64];
    const auto at = reinterpret_cast<std::uintptr_t>(&array[0]);
    crash_handler_details::copyRawMemory(copy, at - 16, sizeof copy);
    EXPECT_EQ(std::memcmp(copy + 16, "abcdefgh", 8), 0);
}

// Installing twice is one installation; removing puts the previous handler back.
TEST(CrashHandlerTest, RemovePutsBackThePreviousHandler) {
    struct sigaction mine {
    }, seen{};
    mine.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGSEGV, &mine, nullptr), 0);
    EmptyMainThread mainThread;
    stack_t before{};  // none, or a sanitizer's: it comes back
    ASSERT_EQ(sigaltstack(nullptr, &before), 0);
    ASSERT_TRUE(installCrashHandler());
    ASSERT_TRUE(installCrashHandler());
    EXPECT_TRUE(crashHandlerInstalled());
    ASSERT_EQ(sigaction(SIGSEGV, nullptr, &seen), 0);
    EXPECT_NE(seen.sa_handler, mine.sa_handler);
    EXPECT_NE(seen.sa_flags & SA_ONSTACK, 0);
    stack_t altstack{};
    ASSERT_EQ(sigaltstack(nullptr, &altstack), 0);
    EXPECT_EQ(altstack.ss_flags & SS_DISABLE, 0);
    ASSERT_TRUE(removeCrashHandler());
    EXPECT_FALSE(crashHandlerInstalled());
    ASSERT_EQ(sigaction(SIGSEGV, nullptr, &seen), 0);
    EXPECT_EQ(seen.sa_handler, mine.sa_handler);
    ASSERT_EQ(sigaltstack(nullptr, &altstack), 0);
    EXPECT_EQ(altstack.ss_flags & SS_DISABLE, before.ss_flags & SS_DISABLE);
    EXPECT_EQ(altstack.ss_sp, before.ss_sp);
    mine.sa_handler = SIG_DFL;
    ASSERT_EQ(sigaction(SIGSEGV, &mine, nullptr), 0);
}

}  // namespace
}  // namespace basicutil
