// Everything that differs between FreeBSD x86-64 (the target) and Linux/glibc (where the
// library is built and tested) lives here and nowhere else.
#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace basicutil::platform {

// Reports a failed assertion through the C library's own routine (__assert on FreeBSD,
// __assert_fail on glibc), which prints its standard message; then aborts.
[[noreturn]] void assertFailed(const char* expression, const char* function, const char* unit,
                               unsigned line) noexcept;

// Scheduling policies as the platform numbers them. On FreeBSD these are 2, 1 and 3.
inline constexpr int kSchedOther = SCHED_OTHER;
inline constexpr int kSchedFifo = SCHED_FIFO;
inline constexpr int kSchedRoundRobin = SCHED_RR;

// The name of a scheduling policy ("other", "fifo", "round_robin"), or nullptr if unknown.
const char* schedulingPolicyName(int policy) noexcept;

// Longest thread name, in bytes without the terminating NUL, that pthread_setname_np accepts.
#if defined(__FreeBSD__)
inline constexpr std::size_t kThreadNameMaxBytes = 19;  // MAXCOMLEN
#else
inline constexpr std::size_t kThreadNameMaxBytes = 15;  // TASK_COMM_LEN - 1
#endif

// Names the thread, cutting the name to kThreadNameMaxBytes (never inside a UTF-8 sequence).
// Returns the pthread_setname_np result (0 or an error number).
[[nodiscard]] int setThreadName(pthread_t thread, const char* name) noexcept;

// Reads a thread's name into buf (NUL-terminated); returns the pthread_getname_np result. On
// FreeBSD it is declared in <pthread_np.h>, on glibc in <pthread.h>.
[[nodiscard]] int threadName(pthread_t thread, char* buf, std::size_t len) noexcept;

// The kernel's numeric id of the calling thread (gettid on Linux, pthread_getthreadid_np on FreeBSD),
// read once per thread and kept: loggers and the crash log ask often. A fork's child forgets the
// forking thread's id (a fork handler), so it reads its own. Safe in a signal handler.
std::uint64_t currentThreadId() noexcept;
// Reads the calling thread's id again and keeps it: for fork handlers that need the child's id
// whatever order the handlers run in.
std::uint64_t rereadThreadId() noexcept;

// Writes the text of an error number into buf (always NUL-terminated) and returns it: the C
// library's own text, cut to fit when buf is short, and its "Unknown error" text with the number
// for a number it does not know ("Unknown error 999" on glibc, "Unknown error: 999" on FreeBSD).
// The XSI strerror_r on both; glibc's default is the GNU one, which may return a static string.
const char* errorText(int errnum, char* buf, std::size_t len) noexcept;

// The errno of an openat(2) of `path` (relative to `directory`, or AT_FDCWD) with `flags` that
// failed with `err`, as both platforms report it: O_NOFOLLOW refusing a symbolic link is ELOOP.
// FreeBSD says EMLINK, and Linux ENOTDIR when O_DIRECTORY meets a link to something else.
int openErrno(int directory, const char* path, int flags, int err) noexcept;

// Sets struct tm's zone abbreviation: `char*` on FreeBSD, `const char*` in glibc. The text is
// never written through.
void setTmZone(struct tm& tm, const char* abbreviation) noexcept;

// The processor time the process has used, in microseconds, or -1 if the clock cannot be read.
// clock() would count in CLOCKS_PER_SEC units, 1,000,000 on glibc and 128 on FreeBSD.
std::int64_t processorTimeMicroseconds() noexcept;

// Clock reads: each returns true on success and leaves errno set on failure.
[[nodiscard]] bool readWallClock(struct timeval& out) noexcept;        // gettimeofday
[[nodiscard]] bool readMonotonicClock(struct timespec& out) noexcept;  // clock_gettime(CLOCK_MONOTONIC)
[[nodiscard]] bool readUtcClock(struct timespec& out) noexcept;        // timespec_get(TIME_UTC)
// The wall clock, or, should gettimeofday fail, "gettimeofday: <error text>" on descriptor 2 and
// abort: no time value can stand for a clock that cannot be read, and nothing may be logged about
// it (the logger itself reads this clock).
struct timeval readWallClockOrAbort() noexcept;

// Copies up to `length` bytes from `in` to `out` at their file positions inside the kernel
// (copy_file_range on Linux and FreeBSD 13 on). Ask for what remains to be copied: FreeBSD checks
// the requested length, not the copied one, against RLIMIT_FSIZE. Returns the bytes copied (0 at the end of
// `in`), or -1 with errno; ENOSYS where the platform has no such call, and EXDEV, EINVAL or
// EOPNOTSUPP where it refuses this pair of files: the caller then copies through a buffer.
[[nodiscard]] long long copyFileRange(int in, int out, std::size_t length) noexcept;

// Fills `length` bytes with cryptographically strong random bytes from the kernel: getrandom(2)
// on Linux (retried on EINTR and continued after a short read), arc4random_buf(3) on FreeBSD.
// Returns 0, or an errno value (ENOSYS on a Linux kernel without getrandom); the bytes are then
// not to be used.
[[nodiscard]] int secureRandomBytes(void* out, std::size_t length) noexcept;

// Whether the processor runs AVX2 code (x86-64 only; asked once). Vector paths that need more
// than SSE2, which every x86-64 processor has, are chosen by it at run time.
bool cpuHasAvx2() noexcept;

// One processor pause in a spin loop: it eases the pipeline and the sibling hyperthread.
inline void cpuPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#else
    asm volatile("" ::: "memory");
#endif
}

}  // namespace basicutil::platform
