// A typical line, "%d %p %c [%t] %m%n" with a printf-style message of a string, an int and a
// double, rendered into memory; and a call at a level the channel drops. Ours beside spdlog's
// pattern formatter and log4cpp's PatternLayout, in one run.
#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/null_sink.h>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/PatternLayout.hh>

#include <cstdio>
#include <cstdlib>

#include "basicutil/Logger.h"

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
                      basicutil::LogFormat::SERIALIZE_TEXT, 0, nullptr);
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
