#include "basicutil/platform/PlatformCrash.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#if defined(__FreeBSD__)
#include <pthread_np.h>
#include <sys/auxv.h>
#include <sys/proc.h>
#include <sys/sysctl.h>
#include <sys/user.h>
#else
#include <sys/auxv.h>
#endif

#if defined(VESTRA_HAVE_UNW_CONTEXT)
#include <libunwind.h>
#endif

namespace basicutil::platform {

namespace {

std::size_t pageBytes() noexcept {
    static const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return page;
}

// The kernel's smallest signal frame, where it tells it (0 elsewhere).
std::size_t minimumSignalFrame() noexcept {
#if defined(AT_MINSIGSTKSZ)
#if defined(__FreeBSD__)
    unsigned long value = 0;
    if (::elf_aux_info(AT_MINSIGSTKSZ, &value, sizeof value) != 0) return 0;
    return value;
#else
    return ::getauxval(AT_MINSIGSTKSZ);
#endif
#else
    return 0;
#endif
}

// Appends text to out[at..capacity - 1), keeping room for the NUL; returns the new length.
std::size_t put(char* out, std::size_t capacity, std::size_t at, const char* text, std::size_t n) noexcept {
    if (at + 1 >= capacity) return at;
    if (n > capacity - 1 - at) n = capacity - 1 - at;
    std::memcpy(out + at, text, n);
    return at + n;
}
[[maybe_unused]] std::size_t putHex(char* out, std::size_t capacity, std::size_t at,
                                    std::uint64_t value) noexcept {
    char digits[16];
    int n = 0;
    do {
        digits[15 - n++] = "0123456789abcdef"[value & 15];
        value >>= 4;
    } while (value != 0);
    return put(out, capacity, at, digits + 16 - n, static_cast<std::size_t>(n));
}

// A whole file read through a descriptor, into buf; the bytes read (0 on failure).
[[maybe_unused]] std::size_t readSmallFile(const char* path, char* buf, std::size_t capacity) noexcept {
    int fd;
    do {
        fd = ::open(path, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return 0;
    std::size_t used = 0;
    while (used < capacity) {
        const ssize_t n = ::read(fd, buf + used, capacity - used);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        used += static_cast<std::size_t>(n);
    }
    static_cast<void>(::close(fd));  // read-only: nothing is lost whatever close says
    return used;
}

}  // namespace

std::size_t alternateStackBytes() noexcept {
    static const std::size_t bytes = [] {
        std::size_t want = 64 * 1024;
#if defined(_SC_SIGSTKSZ)
        const long fromSysconf = ::sysconf(_SC_SIGSTKSZ);
        if (fromSysconf > 0 && static_cast<std::size_t>(fromSysconf) > want)
            want = static_cast<std::size_t>(fromSysconf);
#endif
        // The handler itself needs room beside the frame: four frames' worth.
        const std::size_t minimum = 4 * minimumSignalFrame();
        if (minimum > want) want = minimum;
        const std::size_t page = pageBytes();
        return (want + page - 1) / page * page;
    }();
    return bytes;
}

int useAlternateStack(AlternateStack& stack) noexcept {
    stack_t altstack{}, before{};
    altstack.ss_sp = static_cast<char*>(stack.mapping) + pageBytes();
    altstack.ss_size = stack.mappingBytes - pageBytes();
    if (::sigaltstack(&altstack, &before) != 0) return errno;
    const bool had = (before.ss_flags & SS_DISABLE) == 0 && before.ss_sp != nullptr;
    stack.previous = had ? before.ss_sp : nullptr;
    stack.previousBytes = had ? before.ss_size : 0;
    return 0;
}

int stopUsingAlternateStack(const AlternateStack& stack) noexcept {
    stack_t current{};
    if (::sigaltstack(nullptr, &current) != 0) return errno;
    if (current.ss_sp != static_cast<char*>(stack.mapping) + pageBytes()) return 0;  // not the thread's now
    if ((current.ss_flags & SS_ONSTACK) != 0) return EBUSY;                          // running on it
    stack_t back{};
    if (stack.previous != nullptr) {
        back.ss_sp = static_cast<char*>(stack.previous);
        back.ss_size = stack.previousBytes;
    } else {
        back.ss_flags = SS_DISABLE;
    }
    return ::sigaltstack(&back, nullptr) == 0 ? 0 : errno;
}

int mapAlternateStack(AlternateStack& stack) noexcept {
    const std::size_t page = pageBytes(), bytes = alternateStackBytes();
    void* mapping = ::mmap(nullptr, page + bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    if (mapping == MAP_FAILED) return errno;
    AlternateStack mapped;
    mapped.mapping = mapping;
    mapped.mappingBytes = page + bytes;
    int error = ::mprotect(mapping, page, PROT_NONE) == 0 ? 0 : errno;
    if (error == 0) error = useAlternateStack(mapped);
    if (error != 0) {
        static_cast<void>(::munmap(mapping, page + bytes));  // the error reported is the first one
        return error;
    }
    stack = mapped;
    return 0;
}

int unmapAlternateStack(AlternateStack& stack) noexcept {
    if (stack.mapping == nullptr) return 0;
    if (const int error = stopUsingAlternateStack(stack)) return error;
    if (::munmap(stack.mapping, stack.mappingBytes) != 0) return errno;
    stack = AlternateStack{};
    return 0;
}

const char* const Registers::kNames[kCount] = {"rax", "rbx", "rcx", "rdx",    "rsi",    "rdi", "rbp",
                                               "rsp", "r8",  "r9",  "r10",    "r11",    "r12", "r13",
                                               "r14", "r15", "rip", "rflags", "trapno", "err"};

bool registersOf(const void* context, Registers& out) noexcept {
#if defined(__x86_64__)
    const auto* uc = static_cast<const ucontext_t*>(context);
#if defined(__FreeBSD__)
    const mcontext_t& m = uc->uc_mcontext;
    const long values[Registers::kCount] = {m.mc_rax, m.mc_rbx, m.mc_rcx,    m.mc_rdx,    m.mc_rsi,
                                            m.mc_rdi, m.mc_rbp, m.mc_rsp,    m.mc_r8,     m.mc_r9,
                                            m.mc_r10, m.mc_r11, m.mc_r12,    m.mc_r13,    m.mc_r14,
                                            m.mc_r15, m.mc_rip, m.mc_rflags, m.mc_trapno, m.mc_err};
#else
    const greg_t* g = uc->uc_mcontext.gregs;
    const greg_t values[Registers::kCount] = {g[REG_RAX], g[REG_RBX], g[REG_RCX], g[REG_RDX],    g[REG_RSI],
                                              g[REG_RDI], g[REG_RBP], g[REG_RSP], g[REG_R8],     g[REG_R9],
                                              g[REG_R10], g[REG_R11], g[REG_R12], g[REG_R13],    g[REG_R14],
                                              g[REG_R15], g[REG_RIP], g[REG_EFL], g[REG_TRAPNO], g[REG_ERR]};
#endif
    for (std::size_t i = 0; i < Registers::kCount; ++i) out.values[i] = static_cast<std::uint64_t>(values[i]);
    out.pc = out.values[16];
    out.sp = out.values[7];
    out.fp = out.values[6];
    return true;
#else
    static_cast<void>(context);
    static_cast<void>(out);
    return false;
#endif
}

std::size_t unwindFromContext(const void* context, std::uintptr_t* pcs, std::size_t max) noexcept {
#if defined(VESTRA_HAVE_UNW_CONTEXT) && defined(__x86_64__)
    Registers registers;
    if (max == 0 || !registersOf(context, registers)) return 0;
    unw_context_t here;
    unw_cursor_t cursor;
    if (unw_getcontext(&here) != 0 || unw_init_local(&cursor, &here) != 0) return 0;
    // The context's registers in libunwind's numbering, the pc last: setting it finds the frame's
    // unwind information anew.
    const struct {
        int number;
        std::size_t ours;
    } map[] = {{UNW_X86_64_RAX, 0},  {UNW_X86_64_RBX, 1},  {UNW_X86_64_RCX, 2},  {UNW_X86_64_RDX, 3},
               {UNW_X86_64_RSI, 4},  {UNW_X86_64_RDI, 5},  {UNW_X86_64_RBP, 6},  {UNW_X86_64_RSP, 7},
               {UNW_X86_64_R8, 8},   {UNW_X86_64_R9, 9},   {UNW_X86_64_R10, 10}, {UNW_X86_64_R11, 11},
               {UNW_X86_64_R12, 12}, {UNW_X86_64_R13, 13}, {UNW_X86_64_R14, 14}, {UNW_X86_64_R15, 15},
               {UNW_REG_IP, 16}};
    for (const auto& m : map) {
        if (unw_set_reg(&cursor, m.number, static_cast<unw_word_t>(registers.values[m.ours])) != 0) return 0;
    }
    std::size_t count = 0;
    do {
        unw_word_t pc = 0;
        if (unw_get_reg(&cursor, UNW_REG_IP, &pc) != 0 || pc == 0) break;
        pcs[count++] = static_cast<std::uintptr_t>(pc);
    } while (count < max && unw_step(&cursor) > 0);
    return count;
#else
    static_cast<void>(context);
    static_cast<void>(pcs);
    static_cast<void>(max);
    return 0;
#endif
}

const char* signalName(int signo) noexcept {
    switch (signo) {
        case SIGSEGV:
            return "SIGSEGV";
        case SIGBUS:
            return "SIGBUS";
        case SIGILL:
            return "SIGILL";
        case SIGFPE:
            return "SIGFPE";
        case SIGABRT:
            return "SIGABRT";
        case SIGTRAP:
            return "SIGTRAP";
        case SIGSYS:
            return "SIGSYS";
        case SIGQUIT:
            return "SIGQUIT";
        case SIGTERM:
            return "SIGTERM";
        case SIGINT:
            return "SIGINT";
        case SIGKILL:
            return "SIGKILL";
        case SIGUSR1:
            return "SIGUSR1";
        case SIGUSR2:
            return "SIGUSR2";
        case SIGPIPE:
            return "SIGPIPE";
        default:
            return nullptr;
    }
}

const char* signalCodeText(int signo, int code) noexcept {
    switch (code) {  // sent, whatever the signal
        case SI_USER:
            return "SI_USER (sent by kill or raise)";
        case SI_QUEUE:
            return "SI_QUEUE (sent by sigqueue)";
        case SI_TIMER:
            return "SI_TIMER (a timer expired)";
#if defined(SI_TKILL)
        case SI_TKILL:
            return "SI_TKILL (sent by tgkill or pthread_kill)";
#endif
#if defined(SI_LWP)
        case SI_LWP:
            return "SI_LWP (sent by thr_kill or pthread_kill)";
#endif
#if defined(SI_KERNEL)
        case SI_KERNEL:
            return "SI_KERNEL (raised by the kernel)";
#endif
        default:
            break;
    }
    switch (signo) {
        case SIGSEGV:
            if (code == SEGV_MAPERR) return "SEGV_MAPERR (address not mapped to object)";
            if (code == SEGV_ACCERR) return "SEGV_ACCERR (invalid permissions for mapped object)";
            break;
        case SIGBUS:
            if (code == BUS_ADRALN) return "BUS_ADRALN (invalid address alignment)";
            if (code == BUS_ADRERR) return "BUS_ADRERR (nonexistent physical address)";
            if (code == BUS_OBJERR) return "BUS_OBJERR (object-specific hardware error)";
            break;
        case SIGILL:
            if (code == ILL_ILLOPC) return "ILL_ILLOPC (illegal opcode)";
            if (code == ILL_ILLOPN) return "ILL_ILLOPN (illegal operand)";
            if (code == ILL_ILLADR) return "ILL_ILLADR (illegal addressing mode)";
            if (code == ILL_ILLTRP) return "ILL_ILLTRP (illegal trap)";
            if (code == ILL_PRVOPC) return "ILL_PRVOPC (privileged opcode)";
            if (code == ILL_PRVREG) return "ILL_PRVREG (privileged register)";
            if (code == ILL_COPROC) return "ILL_COPROC (coprocessor error)";
            if (code == ILL_BADSTK) return "ILL_BADSTK (internal stack error)";
            break;
        case SIGFPE:
            if (code == FPE_INTDIV) return "FPE_INTDIV (integer divide by zero)";
            if (code == FPE_INTOVF) return "FPE_INTOVF (integer overflow)";
            if (code == FPE_FLTDIV) return "FPE_FLTDIV (floating-point divide by zero)";
            if (code == FPE_FLTOVF) return "FPE_FLTOVF (floating-point overflow)";
            if (code == FPE_FLTUND) return "FPE_FLTUND (floating-point underflow)";
            if (code == FPE_FLTRES) return "FPE_FLTRES (floating-point inexact result)";
            if (code == FPE_FLTINV) return "FPE_FLTINV (floating-point invalid operation)";
            if (code == FPE_FLTSUB) return "FPE_FLTSUB (subscript out of range)";
            break;
        case SIGTRAP:
            if (code == TRAP_BRKPT) return "TRAP_BRKPT (process breakpoint)";
            if (code == TRAP_TRACE) return "TRAP_TRACE (process trace trap)";
            break;
        default:
            break;
    }
    return nullptr;
}

bool signalWasSent(const siginfo_t& info) noexcept {
    switch (info.si_code) {
        case SI_USER:
        case SI_QUEUE:
        case SI_TIMER:
        case SI_MESGQ:
        case SI_ASYNCIO:
#if defined(SI_TKILL)
        case SI_TKILL:
#endif
#if defined(SI_LWP)
        case SI_LWP:
#endif
            return true;
        default:
            return false;
    }
}

std::size_t readMemoryMap(char* out, std::size_t capacity, char* scratch, std::size_t scratchBytes) noexcept {
    if (capacity == 0) return 0;
    std::size_t at = 0;
#if defined(__FreeBSD__)
    int mib[4] = {CTL_KERN, KERN_PROC, KERN_PROC_VMMAP, static_cast<int>(::getpid())};
    std::size_t length = scratchBytes;
    if (::sysctl(mib, 4, scratch, &length, nullptr, 0) != 0 && errno != ENOMEM) length = 0;
    for (std::size_t offset = 0; offset + sizeof(int) <= length;) {
        const auto* entry = reinterpret_cast<const kinfo_vmentry*>(scratch + offset);
        if (entry->kve_structsize <= 0) break;
        at = putHex(out, capacity, at, entry->kve_start);
        at = put(out, capacity, at, "-", 1);
        at = putHex(out, capacity, at, entry->kve_end);
        const char perms[5] = {(entry->kve_protection & KVME_PROT_READ) != 0 ? 'r' : '-',
                               (entry->kve_protection & KVME_PROT_WRITE) != 0 ? 'w' : '-',
                               (entry->kve_protection & KVME_PROT_EXEC) != 0 ? 'x' : '-', 'p', ' '};
        at = put(out, capacity, at, " ", 1);
        at = put(out, capacity, at, perms, 5);
        at = put(out, capacity, at, entry->kve_path, std::strlen(entry->kve_path));
        at = put(out, capacity, at, "\n", 1);
        offset += static_cast<std::size_t>(entry->kve_structsize);
    }
#else
    // "start-end perms offset device inode path": fields 1, 2 and 6 kept.
    const std::size_t length = readSmallFile("/proc/self/maps", scratch, scratchBytes);
    for (std::size_t start = 0; start < length;) {
        std::size_t end = start;
        while (end < length && scratch[end] != '\n') ++end;
        const char* line = scratch + start;
        const std::size_t lineLength = end - start;
        std::size_t field = 0, i = 0, pathAt = lineLength;
        std::size_t permsEnd = 0;
        while (i < lineLength && field < 5) {  // skip to the path, after five fields
            while (i < lineLength && line[i] != ' ') ++i;
            if (field == 1) permsEnd = i;
            while (i < lineLength && line[i] == ' ') ++i;
            ++field;
        }
        if (field == 5) pathAt = i;
        at = put(out, capacity, at, line, permsEnd);
        at = put(out, capacity, at, " ", 1);
        at = put(out, capacity, at, line + pathAt, lineLength - pathAt);
        at = put(out, capacity, at, "\n", 1);
        start = end + 1;
    }
#endif
    out[at] = '\0';
    return at;
}

std::size_t readCommandLine(char* out, std::size_t capacity) noexcept {
    if (capacity == 0) return 0;
    std::size_t length = 0;
#if defined(__FreeBSD__)
    int mib[4] = {CTL_KERN, KERN_PROC, KERN_PROC_ARGS, static_cast<int>(::getpid())};
    length = capacity - 1;
    if (::sysctl(mib, 4, out, &length, nullptr, 0) != 0 && errno != ENOMEM) length = 0;
#else
    length = readSmallFile("/proc/self/cmdline", out, capacity - 1);
#endif
    while (length > 0 && out[length - 1] == '\0') --length;  // the last argument's NUL
    for (std::size_t i = 0; i < length; ++i) {
        if (out[i] == '\0') out[i] = ' ';
    }
    out[length] = '\0';
    return length;
}

std::size_t readExecutablePath(char* out, std::size_t capacity) noexcept {
    if (capacity == 0) return 0;
#if defined(__FreeBSD__)
    int mib[4] = {CTL_KERN, KERN_PROC, KERN_PROC_PATHNAME, -1};
    std::size_t length = capacity;
    if (::sysctl(mib, 4, out, &length, nullptr, 0) != 0 || length == 0) {
        out[0] = '\0';
        return 0;
    }
    out[capacity - 1] = '\0';
    return std::strlen(out);
#else
    const ssize_t n = ::readlink("/proc/self/exe", out, capacity - 1);
    const std::size_t length = n > 0 ? static_cast<std::size_t>(n) : 0;
    out[length] = '\0';
    return length;
#endif
}

bool debuggerAttached() noexcept {
#if defined(__FreeBSD__)
    int mib[4] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, static_cast<int>(::getpid())};
    kinfo_proc info{};
    std::size_t length = sizeof info;
    if (::sysctl(mib, 4, &info, &length, nullptr, 0) != 0) return false;
    return (info.ki_flag & P_TRACED) != 0;
#else
    char status[4096];
    const std::size_t length = readSmallFile("/proc/self/status", status, sizeof status - 1);
    status[length] = '\0';
    const char* tracer = std::strstr(status, "TracerPid:");
    if (tracer == nullptr) return false;
    tracer += 10;
    while (*tracer == ' ' || *tracer == '\t') ++tracer;
    return *tracer != '0' && *tracer >= '1' && *tracer <= '9';
#endif
}

const char* debuggerCommand() noexcept {
#if defined(__FreeBSD__)
    return "lldb -p";
#else
    return "gdb -p";
#endif
}

bool currentStackBounds(std::uintptr_t& low, std::uintptr_t& high, std::size_t& guardBytes) noexcept {
    pthread_attr_t attributes;
#if defined(__FreeBSD__)
    if (::pthread_attr_init(&attributes) != 0) return false;
    if (::pthread_attr_get_np(::pthread_self(), &attributes) != 0) {
        static_cast<void>(::pthread_attr_destroy(&attributes));
        return false;
    }
#else
    if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return false;
#endif
    void* base = nullptr;
    std::size_t size = 0, guard = 0;
    const bool ok = ::pthread_attr_getstack(&attributes, &base, &size) == 0 &&
                    ::pthread_attr_getguardsize(&attributes, &guard) == 0;
    static_cast<void>(::pthread_attr_destroy(&attributes));  // nothing it holds is needed past here
    if (!ok) return false;
    low = reinterpret_cast<std::uintptr_t>(base);
    high = low + size;
    // The main thread's guard is the kernel's gap below its growing stack: a page at least.
    guardBytes = guard != 0 ? guard : pageBytes();
    return true;
}

}  // namespace basicutil::platform
