#include "basicutil/Platform.h"

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#if defined(__FreeBSD__)
#include <pthread_np.h>
#include <sys/param.h>  // MAXCOMLEN
#endif

namespace basicutil::platform {

#if defined(__FreeBSD__)
static_assert(SCHED_OTHER == 2 && SCHED_FIFO == 1 && SCHED_RR == 3);
static_assert(kThreadNameMaxBytes == MAXCOMLEN);
#elif !defined(__linux__)
#error "only FreeBSD and Linux are supported"
#endif

void assertFailed(const char* expression, const char* function, const char* unit, unsigned line) noexcept {
#if defined(__FreeBSD__)
    __assert(function, unit, static_cast<int>(line), expression);
#else
    __assert_fail(expression, unit, line, function);
#endif
    std::abort();
}

const char* schedulingPolicyName(int policy) noexcept {
    if (policy == kSchedOther) return "other";
    if (policy == kSchedFifo) return "fifo";
    if (policy == kSchedRoundRobin) return "round_robin";
    return nullptr;
}

int setThreadName(pthread_t thread, const char* name) noexcept {
    char cut[kThreadNameMaxBytes + 1];
    std::size_t len = std::strlen(name);
    if (len > kThreadNameMaxBytes) {
        len = kThreadNameMaxBytes;
        // Back off over continuation bytes so the cut never splits a UTF-8 sequence.
        while (len > 0 && (static_cast<unsigned char>(name[len]) & 0xC0) == 0x80) --len;
    }
    std::memcpy(cut, name, len);
    cut[len] = '\0';
    return pthread_setname_np(thread, cut);  // FreeBSD 12.2 and later return int, as glibc does
}

int threadName(pthread_t thread, char* buf, std::size_t len) noexcept {
    return pthread_getname_np(thread, buf, len);
}

std::uint64_t currentThreadId() noexcept {
#if defined(__FreeBSD__)
    return static_cast<std::uint64_t>(pthread_getthreadid_np());
#else
    return static_cast<std::uint64_t>(gettid());
#endif
}

const char* errorText(int errnum, char* buf, std::size_t len) noexcept {
    if (len == 0) return "";
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
    const char* text = strerror_r(errnum, buf, len);  // GNU: may return a static string
    if (text != buf) {
        std::strncpy(buf, text, len - 1);
        buf[len - 1] = '\0';
    }
#else
    if (strerror_r(errnum, buf, len) != 0) {  // XSI: fills buf
        std::strncpy(buf, "Unknown error", len - 1);
        buf[len - 1] = '\0';
    }
#endif
    return buf;
}

long long copyFileRange(int in, int out, std::size_t length) noexcept {
#if defined(__linux__) || (defined(__FreeBSD__) && __FreeBSD_version >= 1300000)
    return static_cast<long long>(::copy_file_range(in, nullptr, out, nullptr, length, 0));
#else
    static_cast<void>(in);
    static_cast<void>(out);
    static_cast<void>(length);
    errno = ENOSYS;
    return -1;
#endif
}

bool cpuHasAvx2() noexcept {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
#else
    return false;
#endif
}

bool readWallClock(struct timeval& out) noexcept {
    return gettimeofday(&out, nullptr) == 0;
}

bool readMonotonicClock(struct timespec& out) noexcept {
    return clock_gettime(CLOCK_MONOTONIC, &out) == 0;
}

bool readUtcClock(struct timespec& out) noexcept {
    // timespec_get returns the base on success and 0 on failure, and need not set errno.
    errno = 0;
    if (timespec_get(&out, TIME_UTC) == TIME_UTC) return true;
    if (errno == 0) errno = EINVAL;
    return false;
}

}  // namespace basicutil::platform

namespace vestra::detail {

void assertionFailed(const char* expression, const char* function, const char* unit, unsigned line) noexcept {
    basicutil::platform::assertFailed(expression, function, unit, line);
}

}  // namespace vestra::detail
