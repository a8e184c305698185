// The crash handler allocates nothing while it writes a log: this program replaces malloc, calloc
// and realloc (support/allocation-guard.c), and each child forbids them as its handler starts. An
// allocation ends the child with status 97 instead of its signal. (Built without the sanitizers,
// whose runtimes define malloc themselves.)
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>

#include "basicutil/crash/CrashHandler.h"
#include "basicutil/crash/CrashNotation.h"
#include "basicutil/threads/Thread.h"
#include "support/allocation-guard.h"
#include "support/stack-overflow.h"

namespace basicutil {
namespace {

using vestra_test::recurse;

TEST(CrashAllocationTest, TheHandlerAllocatesNothing) {
    char home[] = "/tmp/crash-allocation.XXXXXX";
    ASSERT_NE(mkdtemp(home), nullptr);
    const struct {
        const char* name;
        int signo;
        std::function<void()> crash;
    } kinds[] = {
        {"null write", SIGSEGV, [] { *static_cast<volatile int*>(nullptr) = 1; }},
        {"abort", SIGABRT, [] { std::abort(); }},
        {"stack overflow in a Thread, notations on two threads", SIGSEGV,
         [] {
             static std::atomic<bool> noted{false};
             ThreadFunction other(
                 [] {
                     CrashNotation note("waiting %d", 1);
                     noted.store(true);
                     pause();
                 },
                 "other");
             other.go();
             while (!noted.load()) sched_yield();
             ThreadFunction deep(
                 [] {
                     CrashNotation note("recursing");
                     recurse(0);
                 },
                 "deep");
             deep.go();
             deep.join();
         }},
    };
    for (const auto& kind : kinds) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            setenv("VESTRA_HOME", home, 1);
            EmptyMainThread mainThread;
            if (!installCrashHandler()) _exit(100);
            crash_handler_details::g_writingStarts = [] { vestra_forbid_allocations(1); };
            kind.crash();
            _exit(101);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == kind.signo)
            << kind.name << ": status " << status
            << (WIFEXITED(status) && WEXITSTATUS(status) == 97 ? " (an allocation)" : "");
    }
    ASSERT_EQ(system((std::string("rm -rf ") + home).c_str()), 0);
}

}  // namespace
}  // namespace basicutil
