// The helper's one worker: it waits for the parent's signal on standard input (a line, end of
// file or a read error, all alike), lingers, and then clears `running` for main to notice.
#pragma once

#include <atomic>
#include <cstdint>

#include "basicutil/threads/Thread.h"

namespace vestra {

class ParentMonitoringThread : public basicutil::Thread {
  public:
    // One year in milliseconds. sleepMs takes 32 bits and multiplies in 32 bits, so the thread
    // lingers usleep(2350112768), about 39 minutes, not a year: that wrap is the behaviour the
    // parent relies on.
    static constexpr std::uint64_t kLingerMs = 31536000000ULL;
    // One line of at most this many bytes (with its NUL) is consumed; the rest stays in the pipe.
    static constexpr int kLineBufferBytes = 512;

    ParentMonitoringThread() : Thread("ParentMonitoringThread") {}
    ~ParentMonitoringThread() override { joinEvenIfUnstarted(); }

    void main() override;

    std::atomic<bool> running{false};  // set by main before go(), cleared once by the thread
};

}  // namespace vestra
