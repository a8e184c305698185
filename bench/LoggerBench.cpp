// A typical line, "%d %p %c [%t] %m%n" with a printf-style message of a string, an int and a
// double, rendered into memory; and a call at a level the channel drops. Ours beside spdlog's
// pattern formatter and log4cpp's PatternLayout, in one run.
#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/PatternLayout.hh>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "basicutil/logging/LoggerAppender.h"
#include "basicutil/logging/LoggerFormat.h"

namespace {

void BM_RenderLine_Ours(benchmark::State& state) {
    setenv("TZ", "UTC0", 1);
    static_cast<void>(basicutil::TimeZone::reloadLocal());
    const basicutil::LogFormat format("%d %p %c [%t] %m%n");
    basicutil::Str message, line;
    for (auto _ : state) {
        message.clear();
        basicutil::appendf(message, "user %s logged in after %d tries in %f s", "alice", 3, 1.25);
        line.clear();
        format.render(line, {"auth", basicutil::LOG_INFO, basicutil::Timeval::now(), message},
                      basicutil::LogSerialization::TEXT, 0, nullptr);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(BM_RenderLine_Ours);

void BM_RenderLine_Spdlog(benchmark::State& state) {
    spdlog::pattern_formatter formatter("%Y-%m-%d %H:%M:%S,%e %l %n [%t] %v", spdlog::pattern_time_type::utc);
    spdlog::memory_buf_t message, line;
    for (auto _ : state) {
        message.clear();
        fmt::format_to(std::back_inserter(message), "user {} logged in after {} tries in {:f} s", "alice", 3,
                       1.25);
        const spdlog::details::log_msg msg("auth", spdlog::level::info,
                                           spdlog::string_view_t(message.data(), message.size()));
        line.clear();
        formatter.format(msg, line);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(BM_RenderLine_Spdlog);

void BM_RenderLine_Log4cpp(benchmark::State& state) {
    log4cpp::PatternLayout layout;
    layout.setConversionPattern("%d %p %c [%t] %m%n");
    char message[256];
    for (auto _ : state) {
        std::snprintf(message, sizeof message, "user %s logged in after %d tries in %f s", "alice", 3, 1.25);
        const log4cpp::LoggingEvent event("auth", message, "", log4cpp::Priority::INFO);
        benchmark::DoNotOptimize(layout.format(event));
    }
}
BENCHMARK(BM_RenderLine_Log4cpp);

void BM_DisabledCall_Ours(benchmark::State& state) {
    static basicutil::LoggerSimple channel("bench.disabled", 0, 0, 0);
    channel.setThreshold(basicutil::LOG_WARN);
    for (auto _ : state) channel.logf(basicutil::LOG_DEBUG, "user %s logged in after %d tries", "alice", 3);
}
BENCHMARK(BM_DisabledCall_Ours);

void BM_DisabledCall_Spdlog(benchmark::State& state) {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
    logger.set_level(spdlog::level::warn);
    for (auto _ : state) logger.debug("user {} logged in after {} tries", "alice", 3);
}
BENCHMARK(BM_DisabledCall_Spdlog);

void BM_DisabledCall_Log4cpp(benchmark::State& state) {
    log4cpp::Category& category = log4cpp::Category::getInstance("bench");
    category.setPriority(log4cpp::Priority::WARN);
    for (auto _ : state) category.debug("user %s logged in after %d tries", "alice", 3);
}
BENCHMARK(BM_DisabledCall_Log4cpp);

}  // namespace

// Lines to a file through a channel, 1, 2 and 4 threads: ours unbuffered and buffered, spdlog's
// synchronous basic file sink (flushed after every line beside our unbuffered, left to its stdio
// buffer beside our buffered), log4cpp's FileAppender; the same pattern and message.
namespace {

const char* benchFile(const char* name) {
    static thread_local std::string path;
    path = std::string("/tmp/vestra-bench-") + name + ".log";
    return path.c_str();
}

basicutil::Logger& oursToFile(bool buffered) {
    static basicutil::LoggerSimple unbufferedChannel("bench.file", 0, 0, 0),
        bufferedChannel("bench.buffered", 0, 0, 0);
    static std::once_flag once;
    std::call_once(once, [] {
        for (bool b : {false, true}) {
            basicutil::LogAppenderSettings s;
            s.name = b ? "buffered" : "unbuffered";
            s.hasFileName = true;
            s.fileName = basicutil::Str(benchFile(b ? "ours-buffered" : "ours"));
            s.layout = std::make_shared<const basicutil::LogFormat>("%d %p %c [%t] %m%n");
            s.buffered = b;
            s.bufferSize = 64 * 1024;
            (b ? bufferedChannel : unbufferedChannel)
                .setAppenders({std::make_shared<basicutil::LogAppender>(std::move(s))});
        }
    });
    return buffered ? bufferedChannel : unbufferedChannel;
}

void fileOurs(benchmark::State& state, bool buffered) {
    basicutil::Logger& channel = oursToFile(buffered);
    for (auto _ : state) channel.logf(basicutil::LOG_INFO, "user %s logged in after %d tries", "alice", 3);
    state.SetItemsProcessed(state.iterations());
}

// Unbuffered: flushed after every line, as ours writes each line out; buffered: the sink's
// stdio buffer, written out when it fills.
void fileSpdlog(benchmark::State& state, bool buffered) {
    static auto make = [](bool everyLine) {
        auto l = std::make_shared<spdlog::logger>(
            "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(
                         benchFile(everyLine ? "spdlog-flushed" : "spdlog"), true));
        l->set_pattern("%Y-%m-%d %H:%M:%S,%e %l %n [%t] %v");
        if (everyLine) l->flush_on(spdlog::level::trace);
        return l;
    };
    static auto flushed = make(true), stdioBuffered = make(false);
    const auto& logger = buffered ? stdioBuffered : flushed;
    for (auto _ : state) logger->info("user {} logged in after {} tries", "alice", 3);
    state.SetItemsProcessed(state.iterations());
}

void fileLog4cpp(benchmark::State& state) {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        auto* appender = new log4cpp::FileAppender("file", benchFile("log4cpp"), false);
        auto* layout = new log4cpp::PatternLayout();
        layout->setConversionPattern("%d %p %c [%t] %m%n");
        appender->setLayout(layout);
        log4cpp::Category& c = log4cpp::Category::getInstance("bench.file");
        c.addAppender(appender);
        c.setPriority(log4cpp::Priority::INFO);
        return c;
    }();
    for (auto _ : state) category.info("user %s logged in after %d tries", "alice", 3);
    state.SetItemsProcessed(state.iterations());
}

void BM_FileUnbuffered_Ours(benchmark::State& state) {
    fileOurs(state, false);
}
void BM_FileUnbuffered_Spdlog(benchmark::State& state) {
    fileSpdlog(state, false);
}
void BM_FileUnbuffered_Log4cpp(benchmark::State& state) {
    fileLog4cpp(state);
}
void BM_FileBuffered_Ours(benchmark::State& state) {
    fileOurs(state, true);
}
void BM_FileBuffered_Spdlog(benchmark::State& state) {
    fileSpdlog(state, true);
}
void BM_FileBuffered_Log4cpp(benchmark::State& state) {
    fileLog4cpp(state);
}
BENCHMARK(BM_FileUnbuffered_Ours)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_FileUnbuffered_Spdlog)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_FileUnbuffered_Log4cpp)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_FileBuffered_Ours)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_FileBuffered_Spdlog)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_FileBuffered_Log4cpp)->Threads(1)->Threads(2)->Threads(4);

}  // namespace
