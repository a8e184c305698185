// Preloaded into the helper by its end-to-end test. Every usleep request is written to the file
// named by VESTRA_SLEEP_LOG as two lines, "B <usec> <ns>" when it begins and "E <usec> <ns>"
// when it ends (CLOCK_MONOTONIC, which the test shares), and every request sleeps a real 20 ms:
// long enough for the order of polls and linger to show, short enough that the linger of 39
// minutes takes no time.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "basicutil/text/DecimalText.h"

namespace {

void record(char mark, useconds_t usec) {
    const char* const path = std::getenv("VESTRA_SLEEP_LOG");
    if (path == nullptr) return;
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) std::abort();
    char line[2 * basicutil::kMaxUint64Digits + 5];
    std::size_t n = 0;
    line[n++] = mark;
    line[n++] = ' ';
    n += basicutil::formatUnsigned(line + n, usec);
    line[n++] = ' ';
    const auto ns =
        static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
    n += basicutil::formatUnsigned(line + n, ns);
    line[n++] = '\n';
    // One write of an O_APPEND descriptor: the two threads' lines never interleave.
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, line, n) != static_cast<ssize_t>(n) || close(fd) != 0) std::abort();
}

}  // namespace

extern "C" int usleep(useconds_t usec) {
    record('B', usec);
    const timespec brief{0, 20000000};
    const int rc = nanosleep(&brief, nullptr);
    record('E', usec);
    return rc;
}
