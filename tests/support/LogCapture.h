// Captures what every channel logs while it is alive.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "basicutil/log/Logger.h"

namespace basicutil::testing {

class LogCapture : private LogObserver {
  public:
    struct Line {
        std::string channel;
        LogLevel level;
        std::string message;
    };

    // Earlier counts of similar messages are written off first, so that every message logged
    // from here on is seen.
    LogCapture() {
        struct Register : Logger::iterate_channels_callback {
            LogCapture& capture;
            explicit Register(LogCapture& c) : capture(c) {}
            void visit(Logger& logger) override {
                logger.flushSimilar();
                logger.registerLogObserver(&capture);
                capture._channels.push_back(&logger);
            }
        } registration(*this);
        Logger::iterateChannels(registration);
        lines().clear();
    }
    ~LogCapture() override {
        for (Logger* logger : _channels) logger->unregisterLogObserver(this);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static std::vector<Line>& lines() {
        static std::vector<Line> captured;
        return captured;
    }

  private:
    void observe(const LogEvent& event, StrSegment) override {
        static std::mutex mutex;  // channels log from many threads
        std::lock_guard<std::mutex> lock(mutex);
        lines().push_back({std::string(event.component.view()), static_cast<LogLevel>(event.level),
                           std::string(event.message.view())});
    }
    std::vector<Logger*> _channels;
};

}  // namespace basicutil::testing
