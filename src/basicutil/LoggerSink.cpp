#include "basicutil/LoggerSink.h"

#include <atomic>

namespace basicutil {

namespace {
std::atomic<LogSink> g_sink{nullptr};
constexpr const char* kLevelNames[] = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                                       "CRIT",  "ALERT", "FATAL",  "EMERG"};
}  // namespace

const char* logLevelName(int level) noexcept {
    if (level < 0 || level >= static_cast<int>(std::size(kLevelNames))) return "???";
    return kLevelNames[level];
}

LogSink installLogSink(LogSink sink) noexcept {
    return g_sink.exchange(sink);
}

void logToChannel(std::string_view channel, LogLevel level, std::string_view message) noexcept {
    if (LogSink sink = g_sink.load(std::memory_order_acquire)) sink(channel, level, message);
}

}  // namespace basicutil
