// What the tests' oracles do on the machine they run on. The tests compare the library with the
// C library and with command-line tools, and those differ between glibc with GNU tools (where the
// tests are written) and FreeBSD (the target). Each fact is asked of the machine itself, never read
// off the system's name, so a test either holds the library against what this machine's own
// oracle does or skips with the reason below.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

namespace vestra::test_platform {

// Whether this C library's strftime is the one the rendering grid was written against: GNU flags
// ("_", "-", "0", "^", "#") with field widths, and years below 1000 unpadded. FreeBSD's takes
// neither the "^"/"#" flags nor widths, and pads such years to four digits.
inline bool strftimeIsGlibcs() {
    std::tm tm{};
    tm.tm_year = 999 - 1900;
    tm.tm_mday = 5;
    tm.tm_wday = 1;
    char out[64];
    const std::string format = "%Y|%_4d|%^a|%#b|%-5m";  // not a literal: the flags are the question
    const std::size_t n = std::strftime(out, sizeof out, format.c_str(), &tm);
    return std::string_view(out, n) == "999|   5|MON|JAN|    1";
}
inline constexpr const char* kNoGnuStrftime =
    "this C library's strftime is not glibc's (no GNU flags or widths, years below 1000 padded): "
    "the grid's expectations are glibc's";

// The command that runs GNU date (date on Linux, gdate from coreutils on FreeBSD), or empty.
inline std::string gnuDate() {
    for (const char* candidate : {"date", "gdate"}) {
        const std::string command = std::string(candidate) + " --version 2>/dev/null";
        FILE* p = ::popen(command.c_str(), "r");
        if (p == nullptr) continue;
        char line[128] = {};
        const bool read = std::fgets(line, sizeof line, p) != nullptr;
        const int status = ::pclose(p);
        if (read && status == 0 && std::string_view(line).find("GNU coreutils") != std::string_view::npos) {
            return candidate;
        }
    }
    return {};
}
inline constexpr const char* kNoGnuDate =
    "no GNU date here (FreeBSD's date has no -d @SECONDS or %N; coreutils' gdate does)";

// Whether a write that crosses RLIMIT_FSIZE is cut at the limit (Linux, newer FreeBSD) rather
// than refused whole with EFBIG (older FreeBSD kernels). Asked of the kernel in a child.
inline bool fileSizeLimitCutsWrites() {
    char name[] = "/tmp/vestra-fsize-probe.XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd < 0) return true;
    ::unlink(name);
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{10, 10};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) std::_Exit(2);
        std::_Exit(::write(fd, "0123456789abcdef", 16) == 10 ? 0 : 1);
    }
    int status = 0;
    const bool cut =
        child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    ::close(fd);
    return cut;
}

// Whether the zone directory holds the zones that count leap seconds.
inline bool haveLeapSecondZones() {
    const char* dir = std::getenv("TZDIR");
    const std::string file =
        std::string(dir != nullptr && *dir != '\0' ? dir : "/usr/share/zoneinfo") + "/right/UTC";
    return ::access(file.c_str(), R_OK) == 0;
}
// The C library's assertion report, as a death-test pattern; each library words it its own way.
// The expression must hold no character a regular expression treats specially.
inline std::string assertionReport(const std::string& expression, const std::string& function,
                                   const std::string& unit) {
#if defined(__FreeBSD__)
    // __assert: "Assertion failed: (<expr>), function <function>, file <unit>, line <line>."
    return "Assertion failed: \\(" + expression + "\\), function " + function + ", file " + unit +
           ", line [0-9]+\\.";
#else
    // glibc's __assert_fail: "<prog>: <unit>:<line>: <function>: Assertion `<expr>' failed."
    return unit + ":[0-9]+: " + function + ": Assertion `" + expression + "' failed";
#endif
}

// Processor time by the C library's clock(), scaled by its own unit (1/1,000,000 s in glibc,
// 1/128 s on FreeBSD), in microseconds; and a busy loop that spends at least `seconds` of it.
inline double processorMicrosecondsByClock() {
    return static_cast<double>(std::clock()) * 1e6 / CLOCKS_PER_SEC;
}
inline bool spendProcessorTime(double seconds) {
    const std::clock_t start = std::clock();
    if (start == static_cast<std::clock_t>(-1)) return false;
    while (static_cast<double>(std::clock() - start) < seconds * CLOCKS_PER_SEC) {
    }
    return true;
}

inline constexpr const char* kNoLeapSecondZones =
    "this zone directory has no right/ zones (FreeBSD installs none by default)";

}  // namespace vestra::test_platform
