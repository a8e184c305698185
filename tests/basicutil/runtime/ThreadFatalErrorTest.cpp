#include "basicutil/runtime/ThreadFatalError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "basicutil/log/Logger.h"
#include "basicutil/threads/Thread.h"

namespace basicutil {
namespace {

TEST(ThreadFatalErrorTest, RecordStartsEmpty) {
    EXPECT_STREQ(fatalThreadErrorRecord().call, "none");
    EXPECT_EQ(fatalThreadErrorRecord().error, 999);
}

TEST(ThreadFatalErrorDeathTest, WritesOneLineAndAborts) {
    EXPECT_DEATH(
        fatalThreadError("pthread_join", EINVAL),
        "^Fatal thread error: pthread_join: Invalid argument; 0 threads active, in Unknown Thread\n$");
}

TEST(ThreadFatalErrorDeathTest, ReportsWhatTheThreadFrameworkProvides) {
    installFatalThreadContextProvider([]() noexcept { return FatalThreadContext{3, "Worker", nullptr}; });
    EXPECT_DEATH(checkThreadCall(EDEADLK, "pthread_mutex_lock"),
                 "pthread_mutex_lock: Resource deadlock avoided; 3 threads active, in Worker");
    installFatalThreadContextProvider(nullptr);
}

TEST(ThreadFatalErrorDeathTest, RecordsAndLogsBeforeAborting) {
    EXPECT_DEATH(
        {
            // Print what the record and the log saw, then let the routine abort.
            struct Print : LogObserver {
                void observe(const LogEvent& event, StrSegment) override {
                    const FatalThreadErrorRecord r = fatalThreadErrorRecord();
                    fprintf(stderr, "[%.*s/%d] %.*s | %s %d\n", static_cast<int>(event.component.size()),
                            event.component.data(), event.level, static_cast<int>(event.message.size()),
                            event.message.data(), r.call, r.error);
                }
            } print;
            threadChannel().registerLogObserver(&print);
            fatalThreadError("pthread_cond_wait", EPERM);
        },
        "\\[Thread/7\\] Fatal thread error: pthread_cond_wait: Operation not permitted; 0 threads active, in "
        "Unknown Thread \\| pthread_cond_wait 1");
}

// Not a *DeathTest by name, so that the ThreadSanitizer run takes it: another thread reads the
// record while it is written. A data race there ends the child with the sanitizer's own status
// instead of SIGABRT. Re-executed rather than forked, which the sanitizer needs.
TEST(ThreadFatalErrorTest, RecordIsReadSafelyWhileAThreadDies) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::thread reader([] {
                for (;;) {
                    const FatalThreadErrorRecord r = fatalThreadErrorRecord();
                    if (std::string_view(r.call) != "none" && r.error != EINVAL) std::abort();
                }
            });
            reader.detach();
            fatalThreadError("pthread_join", EINVAL);
        },
        ::testing::KilledBySignal(SIGABRT), "Fatal thread error: pthread_join: Invalid argument");
}

TEST(ThreadFatalErrorTest, NonFatalSwitchLetsFailuresThrough) {
    setThreadCallFailuresFatal(false);
    checkThreadCall(EAGAIN, "pthread_create");  // would abort with the switch on
    setThreadCallFailuresFatal(true);
    EXPECT_STREQ(fatalThreadErrorRecord().call, "none");
    checkThreadCall(0, "pthread_mutex_lock");  // success is never fatal
}

}  // namespace
}  // namespace basicutil
