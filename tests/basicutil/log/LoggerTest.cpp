#include "basicutil/logging/LoggerFormat.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/threads/Thread.h"
#include "basicutil/time/TimevalStructTm.h"

namespace basicutil {
namespace {

// Keeps the lines one channel renders.
struct Lines : LogObserver {
    std::mutex mutex;
    std::vector<std::string> lines;
    void observe(const LogEvent&, StrSegment line) override {
        std::lock_guard<std::mutex> lock(mutex);
        lines.emplace_back(line.view());
    }
};

TEST(LoggerTest, LevelsBelowTheThresholdRenderNothing) {
    LoggerSimple log("test.levels", 0, 0, 0);
    Lines seen;
    ScopedLogObserverRegistration registration(log, seen);
    log.setThreshold(LOG_WARN);
    log.logf(LOG_INFO, "%s %d", "dropped", 1);
    log.logf(LOG_WARN, "%s %d", "kept", 2);
    log.log(LOG_ERROR, "plain");
    { LoggerStreamAccumulator(log, LOG_DEBUG) << "dropped " << 3; }
    { LoggerStreamAccumulator(log, LOG_ALERT) << "n=" << 5 << ' ' << 2.5 << ' ' << -7L << ' ' << 8u; }
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"kept 2\n", "plain\n", "n=5 2.5 -7 8\n"}));

    LoggerSimple quiet("test.quiet", 1, 0, 0);
    EXPECT_FALSE(quiet.enabled(LOG_EMERG));
    quiet.setThreshold(LOG_DEBUG);
    EXPECT_TRUE(quiet.enabled(LOG_DEBUG));
}

TEST(LoggerTest, SimilarMessagesAreCountedAndReported) {
    Lines seen;
    {
        LoggerSimple log("test.similar", 0, 60, 2);
        log.registerLogObserver(&seen);
        for (int i = 0; i < 5; ++i) log.logf(LOG_WARN, "disk %d full", i);  // one format: similar
        log.logf(LOG_ERROR, "disk %d full", 9);                             // another level: not
        log.flushSimilar();
        EXPECT_EQ(seen.lines,
                  (std::vector<std::string>{
                      "disk 0 full\n", "disk 9 full\n",
                      "4 similar messages suppressed.  First occurred at:\n\t\t\t\tdisk 0 full\n"}));
        seen.lines.clear();
        // A full table reports and empties itself to make room.
        log.log(LOG_INFO, "a");
        log.log(LOG_INFO, "a");
        log.log(LOG_INFO, "b");
        log.log(LOG_INFO, "c");
        log.log(LOG_INFO, "c");
        EXPECT_EQ(seen.lines, (std::vector<std::string>{
                                  "a\n", "b\n",
                                  "1 similar messages suppressed.  First occurred at:\n\t\t\t\ta\n", "c\n"}));
        seen.lines.clear();
    }  // the channel goes: the count left for "c" is reported
    EXPECT_EQ(seen.lines,
              (std::vector<std::string>{"1 similar messages suppressed.  First occurred at:\n\t\t\t\tc\n"}));

    LoggerSimple brief("test.window", 0, 1, 10);
    Lines later;
    ScopedLogObserverRegistration registration(brief, later);
    brief.log(LOG_INFO, "tick");
    brief.log(LOG_INFO, "tick");
    const std::int64_t start = Timeval::nowSeconds();
    while (Timeval::nowSeconds() < start + 2) usleep(50000);  // past the one-second window
    brief.log(LOG_INFO, "tick");
    EXPECT_EQ(later.lines,
              (std::vector<std::string>{
                  "tick\n", "1 similar messages suppressed.  First occurred at:\n\t\t\t\ttick\n", "tick\n"}));
}

TEST(LoggerTest, MultiLineDebugMessagesSplit) {
    LoggerSimple log("test.split", 0, 0, 0);
    Lines seen;
    ScopedLogObserverRegistration registration(log, seen);
    log.debugSplitLines(LOG_DEBUG, "first\nsecond\r\nthird\n\nlast");
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"first\n", "second\n", "third\n", "last\n"}));
}

TEST(LoggerTest, NestedStreamMessagesGetTheirOwnBuffer) {
    LoggerSimple log("test.nested", 0, 0, 0);
    Lines seen;
    ScopedLogObserverRegistration registration(log, seen);
    {
        LoggerStreamAccumulator outer(log, LOG_INFO);
        outer << "outer ";
        { LoggerStreamAccumulator(log, LOG_INFO) << "inner"; }
        outer << "done";
    }
    { LoggerStreamAccumulator(log, LOG_INFO) << "after"; }  // the thread's buffer is free again
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"inner\n", "outer done\n", "after\n"}));
}

TEST(LoggerTest, ChannelsAreListedAndFound) {
    LoggerSimple mine("test.listed", 0, 0, 0);
    struct Names : Logger::iterate_channels_callback {
        std::vector<std::string> names;
        void visit(Logger& logger) override { names.emplace_back(logger.name().view()); }
    } names;
    Logger::iterateChannels(names);
    for (const char* expected : {"Thread", "Timeval", "Logger", "test.listed"}) {
        EXPECT_NE(std::find(names.names.begin(), names.names.end(), expected), names.names.end()) << expected;
    }
    EXPECT_EQ(Logger::find("test.listed"), &mine);
    EXPECT_EQ(Logger::find("Thread"), &threadChannel());
    EXPECT_EQ(Logger::find("Timeval"), &timevalChannel());
    EXPECT_EQ(Logger::find("nope"), nullptr);
    mine.setLayout(std::make_shared<const LogFormat>("[%c %p] %m%n"));
    Lines seen;
    ScopedLogObserverRegistration registration(mine, seen);
    mine.log(LOG_NOTICE, "laid out");
    EXPECT_EQ(seen.lines, (std::vector<std::string>{"[test.listed NOTICE] laid out\n"}));
}

// Many threads log while observers come and go (ThreadSanitizer's view).
TEST(LoggerThreadTest, ConcurrentLoggingAndObservers) {
    LoggerSimple log("test.concurrent", 0, 60, 8);
    Lines steady;
    ScopedLogObserverRegistration registration(log, steady);
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w) {
        writers.emplace_back([&log, w] {
            for (int i = 0; i < 500; ++i) {
                log.logf(LOG_INFO, "writer %d message %d", w, i % 16);
                LoggerStreamAccumulator(log, LOG_INFO) << "stream " << w << ' ' << i;
            }
        });
    }
    std::thread churn([&] {
        while (!stop.load()) {
            Lines passing;
            ScopedLogObserverRegistration brief(log, passing);
        }
    });
    for (std::thread& t : writers) t.join();
    stop.store(true);
    churn.join();
    log.flushSimilar();
    std::size_t printf = 0, reports = 0, stream = 0;
    for (const std::string& line : steady.lines) {
        printf += line.rfind("writer ", 0) == 0 ? 1u : 0u;
        reports += line.find(" similar messages suppressed.") != std::string::npos ? 1u : 0u;
        stream += line.rfind("stream ", 0) == 0 ? 1u : 0u;
    }
    EXPECT_EQ(stream, 2000u);  // all different: none suppressed (a table of 8 turns over)
    EXPECT_GE(printf, 1u);     // one format for every writer: similar, counted
    EXPECT_GE(reports, 1u);
}

TEST(LoggerDeathTest, AnAccumulatorRefusesAFlaggedLogger) {
    LoggerSimple log("test.flag", 0, 0, 0);
    auto* flagged = reinterpret_cast<Logger*>(reinterpret_cast<std::uintptr_t>(&log) |
                                              LoggerStreamAccumulator::DYNAMIC_FLAG);
    EXPECT_DEATH(LoggerStreamAccumulator(flagged, LOG_INFO), "DYNAMIC_FLAG");
    EXPECT_DEATH(LoggerStreamAccumulator(static_cast<Logger*>(nullptr), LOG_INFO), "logp != nullptr");
}

}  // namespace
}  // namespace basicutil
