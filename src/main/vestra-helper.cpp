// The helper process. Its parent starts it with a pipe on standard input and ends it by writing
// a line or closing the pipe; it then lingers a fixed while and exits 0. "--test" answers at once.
#include <cstdio>
#include <memory>
#include <string>

#include "ParentMonitoringThread.h"
#include "basicutil/threads/Thread.h"
#include "basicutil/timevalue/Timeval.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--test") {
        // No Thread of any kind exists on this path, and standard input is never read.
        std::printf("Test passed");
        return 0;
    }

    basicutil::EmptyMainThread mainThread;
    auto monitor = std::make_unique<vestra::ParentMonitoringThread>();
    monitor->running.store(true);  // before go: the thread can never clear an unset flag
    monitor->go();
    while (monitor->running.load()) basicutil::sleepMs(1000);
    monitor.reset();  // joins
    return 0;
}
