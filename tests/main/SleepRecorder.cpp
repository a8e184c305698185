// Preloaded into the helper by its end-to-end test: records every usleep request in the file
// named by VESTRA_SLEEP_LOG, one decimal count a line, and sleeps only a millisecond, so the
// test sees the exact linger without waiting 39 minutes.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "basicutil/DecimalText.h"

extern "C" int usleep(useconds_t usec) {
    if (const char* path = std::getenv("VESTRA_SLEEP_LOG")) {
        char line[basicutil::kMaxUint64Digits + 1];
        std::size_t n = basicutil::formatUnsigned(line, usec);
        line[n++] = '\n';
        const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0 || write(fd, line, n) != static_cast<ssize_t>(n) || close(fd) != 0) std::abort();
    }
    const timespec brief{0, 1000000};
    return nanosleep(&brief, nullptr);
}
