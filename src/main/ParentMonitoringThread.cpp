#include "ParentMonitoringThread.h"

#include <cstdio>

#include "basicutil/log/Logger.h"
#include "basicutil/threads/Thread.h"
#include "basicutil/timevalue/Timeval.h"

namespace vestra {

void ParentMonitoringThread::main() {
    char line[kLineBufferBytes];
    // Unbuffered, fgets takes the line (at most 511 bytes) and nothing more from the pipe; a
    // buffered stream would swallow whatever else the parent wrote.
    if (std::setvbuf(stdin, nullptr, _IONBF, 0) != 0) {
        basicutil::threadChannel().log(basicutil::LOG_WARN, "cannot make standard input unbuffered");
    }
    // A line, end of file and a read error all mean the same: the parent is done with us.
    const char* const got = std::fgets(line, sizeof line, stdin);
    static_cast<void>(got);
    basicutil::sleepMs(static_cast<std::uint32_t>(kLingerMs));
    running.exchange(false);
}

}  // namespace vestra
