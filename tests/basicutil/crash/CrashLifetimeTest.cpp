// Crashes outside main: from a static constructor that runs before any of the library's, and from
// an exit handler that runs after all of the library's statics are gone. This program runs itself
// again with VESTRA_TEST_CRASH saying when, and reads the log from the child's standard error.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "basicutil/crash/CrashHandler.h"
#include "basicutil/platform/PlatformCrash.h"

extern char** environ;

namespace basicutil {
namespace {

int* volatile g_null = nullptr;  // not known to be null: a path through the write is not dropped
[[gnu::noinline]] void nullWrite() {
    *g_null = 1;
}

// Before every prioritised static of the library: its exit handler runs after all of them are gone.
struct CrashOutsideMain {
    CrashOutsideMain() {
        const char* when = std::getenv("VESTRA_TEST_CRASH");
        if (when == nullptr) return;
        if (!installCrashHandler()) _exit(100);
        if (std::strcmp(when, "before-main") == 0) nullWrite();
        if (std::strcmp(when, "after-teardown") == 0 && std::atexit(nullWrite) != 0) _exit(101);
    }
};
__attribute__((init_priority(101))) CrashOutsideMain g_crashOutsideMain;

struct Ending {
    int status = 0;
    std::string log;
};

Ending runSelf(const char* when) {
    char self[4096];
    EXPECT_GT(platform::readExecutablePath(self, sizeof self), 0u);
    int pipeFds[2];
    EXPECT_EQ(pipe(pipeFds), 0);
    posix_spawn_file_actions_t actions;
    EXPECT_EQ(posix_spawn_file_actions_init(&actions), 0);
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO), 0);
    EXPECT_EQ(posix_spawn_file_actions_addclose(&actions, pipeFds[0]), 0);
    const std::string setting = std::string("VESTRA_TEST_CRASH=") + when;
    std::vector<char*> env;
    for (char** e = environ; *e != nullptr; ++e) {
        if (std::strncmp(*e, "VESTRA_HOME=", 12) != 0) env.push_back(*e);  // the log on standard error
    }
    env.push_back(const_cast<char*>(setting.c_str()));
    env.push_back(nullptr);
    char* argv[] = {self, const_cast<char*>("--gtest_filter=-*"), nullptr};
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, self, &actions, nullptr, argv, env.data()), 0);
    EXPECT_EQ(posix_spawn_file_actions_destroy(&actions), 0);
    EXPECT_EQ(close(pipeFds[1]), 0);
    Ending e;
    char buf[4096];
    for (ssize_t n; (n = read(pipeFds[0], buf, sizeof buf)) > 0;)
        e.log.append(buf, static_cast<std::size_t>(n));
    EXPECT_EQ(close(pipeFds[0]), 0);
    EXPECT_EQ(waitpid(child, &e.status, 0), child);
    return e;
}

// Each moment: the process ends by its signal, and the log is whole, without a thread list.
TEST(CrashLifetimeTest, CrashesBeforeMainAndAfterTeardownAreLogged) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's handler ends the process itself, not by the signal";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a sanitizer's handler ends the process itself, not by the signal";
#endif
#endif
    for (const char* when : {"before-main", "after-teardown"}) {
        const Ending e = runSelf(when);
        EXPECT_TRUE(WIFSIGNALED(e.status) && WTERMSIG(e.status) == SIGSEGV) << when << ": " << e.status;
        for (const char* part :
             {"==== crash log ====\nSignal: SIGSEGV (11), code SEGV_MAPERR", "\nProgram: CrashLifetimeTest\n",
              "\nThreads:\n(no thread list: the process is starting or ending)\n", "nullWrite",
              "\n==== end of crash log ====\n"})
            EXPECT_NE(e.log.find(part), std::string::npos) << when << ": " << part << "\n" << e.log;
    }
}

}  // namespace
}  // namespace basicutil
