// What crash reporting needs of the system and differs between FreeBSD and Linux: the alternate
// signal stack's size, a signal context's registers, si_code in words, the process's memory map
// and command line, a thread's stack bounds. Everything here is async-signal-safe unless it says
// otherwise (the set-up calls), and none of it allocates.
#pragma once

#include <signal.h>

#include <cstddef>
#include <cstdint>

namespace basicutil::platform {

// The signals a crash handler takes: the processor's faults, abort and the bad system call. Not
// SIGTERM or SIGINT: a requested stop is no crash.
inline constexpr int kCrashSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};

// --- The alternate signal stack -----------------------------------------------------------------

// Bytes of an alternate signal stack: at least 64 KiB, sysconf(_SC_SIGSTKSZ) and, where the
// kernel tells it, four times its minimum signal frame (AT_MINSIGSTKSZ; AVX-512 frames are
// large), rounded up to whole pages. Asked once; not for a signal handler's first call.
std::size_t alternateStackBytes() noexcept;

// A thread's alternate signal stack: a mapping of a guard page (no access, below) and the stack,
// and the stack the thread had before it (a sanitizer's or a host's), put back when it stops.
struct AlternateStack {
    void* mapping = nullptr;        // the whole mapping, guard included; null when none
    std::size_t mappingBytes = 0;   // its length, guard included
    void* previous = nullptr;       // the earlier stack's base; null when there was none
    std::size_t previousBytes = 0;  // its length
};
// Maps a stack for the calling thread and makes it the thread's alternate stack. Returns 0 or an
// errno value (nothing is then mapped). Not async-signal-safe in the C library's sense (mmap), but
// a system call and no lock: a signal handler may call it.
[[nodiscard]] int mapAlternateStack(AlternateStack& stack) noexcept;
// Stops using the stack (only when it is the thread's current one, putting back the one it
// replaced) and unmaps it. Returns 0 or an errno value.
[[nodiscard]] int unmapAlternateStack(AlternateStack& stack) noexcept;
// The two halves of a stack's use without its mapping, for stacks kept for the next thread
// (mapping and unmapping cost more than a thread's start: unmapping flushes every processor's
// TLB): makes a mapped stack the calling thread's alternate stack, or stops that (only when it is
// the thread's current one, putting back the one it replaced). Each returns 0 or an errno value
// (EBUSY: running on it).
[[nodiscard]] int useAlternateStack(AlternateStack& stack) noexcept;
[[nodiscard]] int stopUsingAlternateStack(const AlternateStack& stack) noexcept;

// --- A signal's context ---------------------------------------------------------------------------

// The x86-64 registers of a signal context, in a fixed order with their names.
struct Registers {
    static constexpr std::size_t kCount = 20;  // registers kept
    static const char* const kNames[kCount];   // "rax", ..., "rip", "rflags", "trapno", "err"
    std::uint64_t values[kCount] = {};         // in kNames' order
    std::uint64_t pc = 0;                      // rip again
    std::uint64_t sp = 0;                      // rsp again
    std::uint64_t fp = 0;                      // rbp again
};
// The registers of `context` (the handler's third argument). False where the platform's context
// is not known here (not x86-64).
bool registersOf(const void* context, Registers& out) noexcept;

// The code addresses of the frames from a signal's context outward (the faulting pc first, then
// return addresses) into `pcs`; the count. 0 when the C++ runtime's unwinder cannot start from a
// context (libgcc's): the caller then walks from its own frame with _Unwind_Backtrace, which on
// glibc passes the kernel's signal frame. Through LLVM's libunwind (FreeBSD's, libc++'s), whose
// unw_* calls take the context's registers.
std::size_t unwindFromContext(const void* context, std::uintptr_t* pcs, std::size_t max) noexcept;

// The name of a signal ("SIGSEGV"), or null for one not known here.
const char* signalName(int signo) noexcept;
// si_code in words ("SEGV_MAPERR (address not mapped to object)"), or null when not known.
const char* signalCodeText(int signo, int code) noexcept;
// Whether the signal was sent (kill, raise, abort, a timer) rather than raised by the processor
// for the instruction at the context's pc: a sent one does not come back on returning.
bool signalWasSent(const siginfo_t& info) noexcept;

// --- The process ----------------------------------------------------------------------------------

// The process's memory map as lines "start-end perms path" (hexadecimal addresses; perms "rwxp"
// with "-" for a missing right; path empty for anonymous memory), into out (NUL-terminated);
// returns the length, or 0 when it cannot be read. Reads /proc/self/maps on Linux and
// kern.proc.vmmap on FreeBSD, the latter through `scratch`, a buffer of `scratchBytes` given by the
// caller (set aside at set-up) since a handler may not allocate.
std::size_t readMemoryMap(char* out, std::size_t capacity, char* scratch, std::size_t scratchBytes) noexcept;

// The command line, its arguments separated by single spaces, into out (NUL-terminated); the
// length. Called at set-up (it may read a file).
std::size_t readCommandLine(char* out, std::size_t capacity) noexcept;

// Whether a debugger (any tracer) is attached to the process: TracerPid in /proc/self/status on
// Linux, P_TRACED of kern.proc.pid on FreeBSD.
bool debuggerAttached() noexcept;
// The command that attaches the system's debugger to a process, the id to follow: "gdb -p" on
// Linux, "lldb -p" on FreeBSD.
const char* debuggerCommand() noexcept;

// The running executable's path into out (NUL-terminated); its length, 0 when it cannot be told:
// /proc/self/exe on Linux, kern.proc.pathname on FreeBSD. For the set-up.
std::size_t readExecutablePath(char* out, std::size_t capacity) noexcept;

// The lowest and highest address of the calling thread's stack and its guard's size below it.
// False when the thread library will not tell.
bool currentStackBounds(std::uintptr_t& low, std::uintptr_t& high, std::size_t& guardBytes) noexcept;

}  // namespace basicutil::platform
