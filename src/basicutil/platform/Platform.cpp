#include "basicutil/platform/Platform.h"

#include "basicutil/platform/Assert.h"

#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#if defined(__FreeBSD__)
#include <pthread_np.h>
#include <sys/param.h>  // MAXCOMLEN
#else
#include <sys/random.h>  // getrandom
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

namespace {

std::uint64_t systemThreadId() noexcept {
#if defined(__FreeBSD__)
    return static_cast<std::uint64_t>(pthread_getthreadid_np());
#else
    return static_cast<std::uint64_t>(gettid());
#endif
}

thread_local std::uint64_t t_threadId = 0;

void forgetThreadIdInChild() noexcept {
    t_threadId = 0;
}

// Without the fork handler a child would keep its parent's id: then nothing is kept.
const bool g_keepThreadId = pthread_atfork(nullptr, nullptr, forgetThreadIdInChild) == 0;

}  // namespace

std::uint64_t currentThreadId() noexcept {
    if (!g_keepThreadId) return systemThreadId();
    std::uint64_t id = t_threadId;
    if (id == 0) t_threadId = id = systemThreadId();
    return id;
}

std::uint64_t rereadThreadId() noexcept {
    t_threadId = 0;
    return currentThreadId();
}

#if defined(__GLIBC__)
// glibc's XSI strerror_r under its exported name: <string.h> maps strerror_r to it only when
// _GNU_SOURCE is off, and the library needs _GNU_SOURCE elsewhere.
extern "C" int __xpg_strerror_r(int errnum, char* buf, std::size_t len) noexcept;
#define VESTRA_XSI_STRERROR_R __xpg_strerror_r
#else
#define VESTRA_XSI_STRERROR_R strerror_r
#endif

const char* errorText(int errnum, char* buf, std::size_t len) noexcept {
    if (len == 0) return "";
    buf[0] = '\0';
    const int saved = errno;
    // Both libraries fill buf and say ERANGE when they cut the text, and EINVAL with their
    // "Unknown error" text for a number they do not know: the text is kept either way.
    const int rc = VESTRA_XSI_STRERROR_R(errnum, buf, len);
    errno = saved;
    if (rc != 0 && buf[0] == '\0') {
        std::strncpy(buf, "Unknown error", len - 1);
        buf[len - 1] = '\0';
    }
    return buf;
}

int openErrno(int directory, const char* path, int flags, int err) noexcept {
    if ((flags & O_NOFOLLOW) == 0) return err;
#if defined(__FreeBSD__)
    if (err == EMLINK) return ELOOP;
#endif
    if (err == ENOTDIR && (flags & O_DIRECTORY) != 0) {
        struct stat st {};
        if (::fstatat(directory, path, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) return ELOOP;
    }
    return err;
}

void setTmZone(struct tm& tm, const char* abbreviation) noexcept {
#if defined(__FreeBSD__)
    tm.tm_zone = const_cast<char*>(abbreviation);
#else
    tm.tm_zone = abbreviation;
#endif
}

std::int64_t processorTimeMicroseconds() noexcept {
    // glibc's clock() is this clock in microseconds, cut the same way.
    struct timespec ts {};
    if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts) != 0) return -1;
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
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

struct timeval readWallClockOrAbort() noexcept {
    struct timeval tv {};
    if (readWallClock(tv)) return tv;
    const int saved = errno;
    char text[256];
    errorText(saved, text, sizeof text);
    iovec line[] = {
        {const_cast<char*>("gettimeofday: "), 14}, {text, std::strlen(text)}, {const_cast<char*>("\n"), 1}};
    const ssize_t written = ::writev(STDERR_FILENO, line, static_cast<int>(std::size(line)));
    static_cast<void>(written);  // aborting either way
    std::abort();
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

int secureRandomBytes(void* out, std::size_t length) noexcept {
#if defined(__FreeBSD__)
    arc4random_buf(out, length);
    return 0;
#else
    auto* p = static_cast<unsigned char*>(out);
    while (length > 0) {
        const ssize_t got = ::getrandom(p, length, 0);
        if (got < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        p += got;
        length -= static_cast<std::size_t>(got);
    }
    return 0;
#endif
}

}  // namespace basicutil::platform

namespace {

// The first failure's texts (string literals, so the pointers stay good); `published` last.
std::atomic<bool> assertion_claimed{false}, assertion_published{false};
basicutil::FailedAssertion assertion_record;

}  // namespace

namespace vestra::detail {

void assertionFailed(const char* expression, const char* function, const char* unit, unsigned line) noexcept {
    if (!assertion_claimed.exchange(true)) {
        assertion_record = {expression, function, unit, line};
        assertion_published.store(true, std::memory_order_release);
    }
    basicutil::platform::assertFailed(expression, function, unit, line);
}

}  // namespace vestra::detail

namespace basicutil {

FailedAssertion failedAssertion() noexcept {
    return assertion_published.load(std::memory_order_acquire) ? assertion_record : FailedAssertion{};
}

}  // namespace basicutil
