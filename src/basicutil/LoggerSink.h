// The seam between components that log and the logger.
//
// Components write finished messages to a named channel ("Thread", "Timeval") through
// logToChannel. The logger installs itself as the one sink; until it does, messages go nowhere.
#pragma once

#include <cstdint>
#include <string_view>

namespace basicutil {

enum LogLevel : std::uint8_t {
    LOG_DEBUG = 0,
    LOG_INFO = 1,
    LOG_NOTICE = 2,
    LOG_WARN = 3,
    LOG_ERROR = 4,
    LOG_CRIT = 5,
    LOG_ALERT = 6,
    LOG_FATAL = 7,
    LOG_EMERG = 8,
};

// "DEBUG" ... "EMERG"; "???" for a value out of range.
const char* logLevelName(int level) noexcept;

using LogSink = void (*)(std::string_view channel, LogLevel level, std::string_view message);

// Installs the sink (nullptr: drop everything) and returns the previous one.
LogSink installLogSink(LogSink sink) noexcept;

void logToChannel(std::string_view channel, LogLevel level, std::string_view message) noexcept;

}  // namespace basicutil
