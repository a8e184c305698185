// Captures what components log while it is alive.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "basicutil/LoggerSink.h"

namespace basicutil::testing {

class LogCapture {
  public:
    struct Line {
        std::string channel;
        LogLevel level;
        std::string message;
    };

    LogCapture() : _previous(installLogSink(&record)) { lines().clear(); }
    ~LogCapture() { installLogSink(_previous); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static std::vector<Line>& lines() {
        static std::vector<Line> captured;
        return captured;
    }

  private:
    static void record(std::string_view channel, LogLevel level, std::string_view message) {
        lines().push_back({std::string(channel), level, std::string(message)});
    }
    LogSink _previous;
};

}  // namespace basicutil::testing
