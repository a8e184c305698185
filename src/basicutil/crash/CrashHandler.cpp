#include "basicutil/crash/CrashHandler.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cxxabi.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <typeinfo>

#include "basicutil/crash/CrashHandler_details.h"
#include "basicutil/crash/CrashNotation.h"
#include "basicutil/hexdump/HexDumper.h"
#include "basicutil/log/Logger.h"
#include "basicutil/log/LoggerRecentLines.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/platform/PlatformCrash.h"
#include "basicutil/platform/Version.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/text/BaseException.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/threads/Thread.h"
#include "libzero/bounded-path.h"
#include "libzero/create-crash-dump.h"

namespace basicutil {

namespace crash_handler_details {

void (*g_whileWriting)() = nullptr;
void (*g_writingStarts)() = nullptr;

__attribute__((no_sanitize("address", "thread"))) void copyRawMemory(unsigned char* out, std::uintptr_t from,
                                                                     std::size_t n) noexcept {
    const volatile unsigned char* p = reinterpret_cast<const volatile unsigned char*>(from);
    for (std::size_t i = 0; i < n; ++i) out[i] = p[i];  // volatile: no memcpy, which a sanitizer watches
}

}  // namespace crash_handler_details

namespace {

constexpr std::size_t kSignals = std::size(platform::kCrashSignals);
constexpr std::size_t kPathBytes = 4096;
constexpr std::uintptr_t kNearStack = 64 * 1024;  // a fault this near the stack pointer may be an overflow

// Everything the handler uses, set aside at set-up: it may not allocate.
struct CrashState {
    std::atomic<bool> installed{false};
    struct sigaction previous[kSignals] = {};
    char directory[kPathBytes] = {};  // "" for standard error
    char program[256] = {};
    char commandLine[8192] = {};
    platform::AlternateStack callerStack;
    std::uint64_t installingThread = 0;
    // The memory map, read raw into `scratch` and rendered into `map`.
    char scratch[1 << 20] = {};
    char map[1 << 18] = {};
    // Which thread is writing a log (0: none), and whether it has finished.
    std::atomic<std::uint64_t> crashingThread{0};
    std::atomic<bool> logWritten{false};
    // The ids of the threads the log's thread list showed, so that others' notations follow.
    std::uint64_t shown[crash_notation_details::kMaxThreads] = {};
    std::size_t shownCount = 0;
    // The terminate handler's words for an uncaught exception, written before it aborts.
    std::terminate_handler previousTerminate = nullptr;
    std::atomic<bool> haveUncaught{false};
    char uncaught[1024] = {};
    // VESTRA_WAIT_ON_CRASH, read at set-up: seconds to wait for a debugger (-1: until one comes).
    long waitSeconds = 0;
    // SIGQUIT's report, when the set-up asked for it: its previous disposition, and a report under way.
    bool reportOnSigquit = false;
    struct sigaction previousQuit = {};
    std::atomic<bool> reporting{false};
};
constinit CrashState g_state;  // no constructor to run: a set-up before main finds it ready

// --- Where addresses lie ------------------------------------------------------------------------

// One line of the rendered map: "start-end perms path".
struct Mapping {
    std::uintptr_t low = 0, high = 0;
    char perms[5] = {};
    const char* path = nullptr;
    std::size_t pathLength = 0;
};

std::uintptr_t parseHex(const char*& p, const char* end) noexcept {
    std::uintptr_t value = 0;
    for (; p < end; ++p) {
        const char c = *p;
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0) break;
        value = value * 16 + static_cast<std::uintptr_t>(digit);
    }
    return value;
}

// The mapping of the rendered map that holds `address`; false when none does.
bool findMapping(const char* map, std::size_t length, std::uintptr_t address, Mapping& out) noexcept {
    const char* const end = map + length;
    for (const char* line = map; line < end;) {
        const char* lineEnd = line;
        while (lineEnd < end && *lineEnd != '\n') ++lineEnd;
        Mapping m;
        const char* p = line;
        m.low = parseHex(p, lineEnd);
        if (p < lineEnd && *p == '-') ++p;
        m.high = parseHex(p, lineEnd);
        if (p < lineEnd && *p == ' ') ++p;
        for (int i = 0; i < 4 && p < lineEnd; ++i) m.perms[i] = *p++;
        if (p < lineEnd && *p == ' ') ++p;
        m.path = p;
        m.pathLength = static_cast<std::size_t>(lineEnd - p);
        if (address >= m.low && address < m.high) {
            out = m;
            return true;
        }
        line = lineEnd + 1;
    }
    return false;
}

// Whether [address, address + n) lies in readable mappings.
bool readable(const char* map, std::size_t length, std::uintptr_t address, std::size_t n) noexcept {
    while (n > 0) {
        Mapping m;
        if (!findMapping(map, length, address, m) || m.perms[0] != 'r') return false;
        const std::uintptr_t take = m.high - address < n ? m.high - address : n;
        address += take;
        n -= take;
    }
    return true;
}

// --- The log -----------------------------------------------------------------------------------------

void writeHexLine(crash_dump* d, const char* label, std::uintptr_t value) {
    crash_dump_text(d, label);
    crash_dump_text(d, "0x");
    crash_dump_hex(d, value, 16);
}

void writeSignal(crash_dump* d, int signo, const siginfo_t& info, const platform::Registers& registers,
                 bool haveRegisters, std::size_t mapLength) {
    crash_dump_text(d, "Signal: ");
    const char* name = platform::signalName(signo);
    crash_dump_text(d, name != nullptr ? name : "signal");
    crash_dump_text(d, " (");
    crash_dump_dec(d, signo);
    crash_dump_text(d, "), code ");
    const char* code = platform::signalCodeText(signo, info.si_code);
    if (code != nullptr) {
        crash_dump_text(d, code);
    } else {
        crash_dump_dec(d, info.si_code);
    }
    crash_dump_char(d, '\n');
    if (platform::signalWasSent(info)) {
        crash_dump_text(d, "Sent by process ");
        crash_dump_dec(d, info.si_pid);
        crash_dump_char(d, '\n');
        return;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    writeHexLine(d, "Address: ", address);
    if (signo == SIGSEGV || signo == SIGBUS) {
        Mapping m;
        const bool mapped = mapLength > 0 && findMapping(g_state.map, mapLength, address, m);
        const bool guard = mapped && m.perms[0] == '-' && m.perms[1] == '-' && m.perms[2] == '-';
        if (!mapped) {
            crash_dump_text(d, mapLength > 0 ? ", in no mapping" : ", (the memory map could not be read)");
        } else if (guard) {
            crash_dump_text(d, ", in a guard page (no access)");
        } else {
            crash_dump_text(d, ", in a mapping ");
            crash_dump_bytes(d, m.perms, 4);
            if (m.pathLength > 0) {
                crash_dump_char(d, ' ');
                crash_dump_bytes(d, m.path, m.pathLength);
            }
        }
        const std::uintptr_t sp = registers.sp;
        const bool nearStack = haveRegisters && (address > sp ? address - sp : sp - address) <= kNearStack;
        if (signo == SIGSEGV && nearStack && (guard || (!mapped && mapLength > 0)))
            crash_dump_text(d, "\nstack overflow: the fault is at the stack pointer's guard");
    }
    crash_dump_char(d, '\n');
}

// What the library knew was going wrong: an uncaught exception, a failed assertion, a fatal
// thread error.
void writeCause(crash_dump* d) {
    if (g_state.haveUncaught.load()) {
        crash_dump_text(d, "Uncaught exception: ");
        crash_dump_text(d, g_state.uncaught);
        crash_dump_char(d, '\n');
    }
    const FailedAssertion assertion = failedAssertion();
    if (assertion.expression != nullptr) {
        crash_dump_text(d, "Assertion failed: ");
        crash_dump_text(d, assertion.expression);
        crash_dump_text(d, ", function ");
        crash_dump_text(d, assertion.function);
        crash_dump_text(d, ", unit ");
        crash_dump_text(d, assertion.unit);
        crash_dump_text(d, ", line ");
        crash_dump_udec(d, assertion.line, 0);
        crash_dump_char(d, '\n');
    }
    const FatalThreadErrorRecord fatal = fatalThreadErrorRecord();
    if (std::strcmp(fatal.call, "none") != 0) {
        crash_dump_text(d, "Fatal thread error: ");
        crash_dump_text(d, fatal.call);
        crash_dump_text(d, ", error ");
        crash_dump_dec(d, fatal.error);
        crash_dump_text(d, ", ");
        crash_dump_udec(d, fatal.threadsActive, 0);
        crash_dump_text(d, " threads active, in ");
        crash_dump_text(d, fatal.threadName);
        crash_dump_char(d, '\n');
    }
}

void writeProcess(crash_dump* d) {
    struct timeval now {};
    const bool haveTime = gettimeofday(&now, nullptr) == 0;
    crash_dump_text(d, "Program: ");
    crash_dump_text(d, g_state.program);
    crash_dump_text(d, "\nProcess: ");
    crash_dump_dec(d, getpid());
    crash_dump_text(d, "\nThread: \"");
    crash_dump_text(d, Thread::currentThreadName());
    crash_dump_text(d, "\" (id ");
    crash_dump_udec(d, platform::currentThreadId(), 0);
    crash_dump_text(d, ")\n");
    writeCrashNotations(d, platform::currentThreadId(), "  noting: ");
    crash_dump_text(d, "Time: ");
    if (haveTime) {
        crash_dump_utc(d, now.tv_sec, static_cast<long>(now.tv_usec));
    } else {
        crash_dump_text(d, "(the clock could not be read)");
    }
    crash_dump_text(d, "\nVersion: ");
    crash_dump_text(d, libraryVersion());
    crash_dump_text(d, "\nCommand line: ");
    crash_dump_text(d, g_state.commandLine);
    crash_dump_char(d, '\n');
}

void writeRegisters(crash_dump* d, const platform::Registers& registers) {
    crash_dump_text(d, "Registers:\n");
    for (std::size_t i = 0; i < platform::Registers::kCount; ++i) {
        crash_dump_text(d, "  ");
        const char* name = platform::Registers::kNames[i];
        crash_dump_text(d, name);
        for (std::size_t pad = std::strlen(name); pad < 7; ++pad) crash_dump_char(d, ' ');
        crash_dump_text(d, "0x");
        crash_dump_hex(d, registers.values[i], 16);
        if (i % 4 == 3 || i + 1 == platform::Registers::kCount) crash_dump_char(d, '\n');
    }
}

constexpr std::size_t kDumpChunk = 256;  // a multiple of the dump's 16 bytes a line

void writeMemory(crash_dump* d, const char* title, std::uintptr_t start, std::size_t n,
                 std::size_t mapLength) {
    crash_dump_text(d, title);
    if (mapLength == 0 || !readable(g_state.map, mapLength, start, n)) {
        crash_dump_text(d, " not readable\n");
        return;
    }
    crash_dump_text(d, ":\n");
    HexDumper_to_CrashLog dumper(d);
    for (std::size_t done = 0; done < n; done += kDumpChunk) {
        unsigned char bytes[kDumpChunk];
        const std::size_t take = n - done < kDumpChunk ? n - done : kDumpChunk;
        crash_handler_details::copyRawMemory(bytes, start + done, take);
        dumper.dumpLines(bytes, take, start + done);
    }
}

// A listed thread's notations under its state line.
void notationsOfListedThread(crash_dump* d, const Thread& thread, void*) {
    writeCrashNotations(d, thread.threadId(), "    noting: ");
    if (g_state.shownCount < std::size(g_state.shown))
        g_state.shown[g_state.shownCount++] = thread.threadId();
}

// A thread with notations that the list did not show (the main thread, a thread of its own).
void notationsOfOtherThread(std::uint64_t threadId, void* arg) {
    auto* d = static_cast<crash_dump*>(arg);
    if (threadId == platform::currentThreadId()) return;  // shown with the crashing thread
    for (std::size_t i = 0; i < g_state.shownCount; ++i) {
        if (g_state.shown[i] == threadId) return;
    }
    crash_dump_text(d, "Thread id ");
    crash_dump_udec(d, threadId, 0);
    crash_dump_text(d, " (not on the thread list):\n");
    writeCrashNotations(d, threadId, "    noting: ");
}

// The threads: the listed ones with their notations, then others that have notations.
void writeThreads(crash_dump* d) {
    crash_dump_text(d, "Threads:\n");
    g_state.shownCount = 0;
    Thread::writeCrashStates(d, 100, notationsOfListedThread, nullptr);
    forEachNotedThread(notationsOfOtherThread, d);
}

// A logged text on one line of the log: control bytes escaped, the rest as it was.
void writeEscaped(crash_dump* d, StrSegment text) {
    const char* run = text.data();
    const char* const end = text.data() + text.size();
    for (const char* p = run; p < end; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != 0x7F) continue;
        crash_dump_bytes(d, run, static_cast<std::size_t>(p - run));
        run = p + 1;
        if (c == '\n') {
            crash_dump_text(d, "\\n");
        } else if (c == '\t') {
            crash_dump_text(d, "\\t");
        } else {
            crash_dump_text(d, "\\x");
            crash_dump_hex(d, c, 2);
        }
    }
    crash_dump_bytes(d, run, static_cast<std::size_t>(end - run));
}

void writeRecentLine(const RecentLogLine& line, void* arg) {
    auto* d = static_cast<crash_dump*>(arg);
    crash_dump_text(d, "  ");
    crash_dump_utc(d, line.time.tv_sec, static_cast<long>(line.time.tv_usec));
    crash_dump_char(d, ' ');
    crash_dump_text(d, logLevelName(line.level));
    crash_dump_text(d, " [");
    writeEscaped(d, line.channel());
    crash_dump_text(d, "] thread ");
    crash_dump_udec(d, line.threadId, 0);
    crash_dump_text(d, ": ");
    writeEscaped(d, line.message());
    if (line.cut()) {
        crash_dump_text(d, " ... (cut: ");
        crash_dump_udec(d, line.fullLength, 0);
        crash_dump_text(d, " bytes)");
    }
    crash_dump_char(d, '\n');
}

// The ring of lines the channels logged last, oldest first.
void writeRecentLines(crash_dump* d) {
    crash_dump_text(d, "Last lines logged (oldest first):\n");
    const std::size_t busy = forEachRecentLogLine(writeRecentLine, d);
    if (busy > 0) {
        crash_dump_text(d, "  (");
        crash_dump_udec(d, busy, 0);
        crash_dump_text(d, " more being written as the log was made)\n");
    }
}

void writeLog(crash_dump* d, int signo, const siginfo_t& info, const void* context) {
    platform::Registers registers;
    const bool haveRegisters = platform::registersOf(context, registers);
    const std::size_t mapLength =
        platform::readMemoryMap(g_state.map, sizeof g_state.map, g_state.scratch, sizeof g_state.scratch);

    crash_dump_text(d, "==== crash log ====\n");
    writeSignal(d, signo, info, registers, haveRegisters, mapLength);
    writeCause(d);
    writeProcess(d);
    // Out before the parts that read other threads and memory: a fault there loses only them.
    if (crash_dump_flush(d) != 0) {
        // The rest is counted as dropped; the handler goes on to end the process all the same.
    }
    if (crash_handler_details::g_whileWriting != nullptr) crash_handler_details::g_whileWriting();
    if (haveRegisters) writeRegisters(d, registers);
    crash_handler_details::writeBacktrace(d, context, registers, haveRegisters);
    writeThreads(d);
    writeRecentLines(d);
    crash_dump_text(d, "Memory map:\n");
    crash_dump_bytes(d, g_state.map, mapLength);
    if (!platform::signalWasSent(info)) {
        const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr) & ~std::uintptr_t{15};
        writeMemory(d, "Memory around the address", address >= 128 ? address - 128 : 0, 256, mapLength);
    }
    if (haveRegisters) writeMemory(d, "Top of the stack", registers.sp & ~std::uintptr_t{15}, 512, mapLength);
    crash_dump_text(d, "==== end of crash log ====\n");
}

// Opens the log's file (".log", or ".report") under the crash directory; false when there is none
// or it cannot be made.
bool openLogFile(crash_dump* d, char (&path)[kPathBytes], const char* suffix = ".log") {
    if (g_state.directory[0] == '\0') return false;
    struct timeval now {};
    if (gettimeofday(&now, nullptr) != 0) now.tv_sec = 0;
    char stamp[17], pid[21];
    crash_dump_utc_compact(now.tv_sec, stamp);
    crash_dump_format_udec(static_cast<unsigned long long>(getpid()), pid);
    bounded_path p;
    bounded_path_init(&p, path, sizeof path);
    if (bounded_path_set(&p, g_state.directory, std::strlen(g_state.directory)) != 0 ||
        bounded_path_push(&p, g_state.program, std::strlen(g_state.program)) != 0 ||
        bounded_path_append(&p, "-", 1) != 0 || bounded_path_append(&p, pid, std::strlen(pid)) != 0 ||
        bounded_path_append(&p, "-", 1) != 0 || bounded_path_append(&p, stamp, 16) != 0 ||
        bounded_path_append(&p, suffix, std::strlen(suffix)) != 0)
        return false;
    return crash_dump_create(d, path) == 0;
}

void resetToDefault(int signo) noexcept {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    // Failing, it leaves this handler in place: the next fault finds the log written and comes here.
    if (sigaction(signo, &action, nullptr) != 0) return;
}

void restorePrevious(int signo) noexcept {
    for (std::size_t i = 0; i < kSignals; ++i) {
        if (platform::kCrashSignals[i] == signo && sigaction(signo, &g_state.previous[i], nullptr) != 0)
            resetToDefault(signo);
    }
}

// Ends like the signal would have: a sent one is sent again (it waits, blocked, until the handler
// returns); a fault comes back when its instruction runs again.
void sendAgainIfSent(int signo, const siginfo_t& info) noexcept {
    // pthread_kill of the calling thread with a valid signal cannot fail; were it to, the process
    // would go on, which the default action below the handler's return then ends.
    if (platform::signalWasSent(info) && pthread_kill(pthread_self(), signo) != 0) resetToDefault(signo);
}

// VESTRA_WAIT_ON_CRASH: says how to attach and waits, until a debugger is there or the time is up.
void waitForDebugger() noexcept {
    if (g_state.waitSeconds == 0) return;
    crash_dump say;
    crash_dump_init(&say, STDERR_FILENO);
    crash_dump_text(&say, "Waiting for a debugger");
    if (g_state.waitSeconds > 0) {
        crash_dump_text(&say, " for ");
        crash_dump_dec(&say, g_state.waitSeconds);
        crash_dump_text(&say, " s");
    }
    crash_dump_text(&say, ": ");
    crash_dump_text(&say, platform::debuggerCommand());
    crash_dump_char(&say, ' ');
    crash_dump_dec(&say, getpid());
    crash_dump_char(&say, '\n');
    if (crash_dump_close(&say) != 0) {
        // Standard error is gone: the wait still gives a debugger its chance.
    }
    for (long tenths = 0; g_state.waitSeconds < 0 || tenths < g_state.waitSeconds * 10; ++tenths) {
        if (platform::debuggerAttached()) return;
        struct timespec tenth = {0, 100000000};
        nanosleep(&tenth, nullptr);  // an early wake only shortens one step
    }
}

// SIGQUIT, when asked for: a state report, and the process goes on.
void reportHandler(int) {
    const int savedErrno = errno;
    if (g_state.reporting.exchange(true)) {  // one report at a time
        errno = savedErrno;
        return;
    }
    crash_dump d;
    char path[kPathBytes];
    const bool toFile = openLogFile(&d, path, ".report");
    int error = 0;
    if (toFile) {
        error = writeStateReport(d.fd);
        if (crash_dump_close(&d) != 0 && error == 0) error = d.error;
        crash_dump say;
        crash_dump_init(&say, STDERR_FILENO);
        crash_dump_text(
            &say, error == 0 ? "State report written to " : "State report cut short (a write failed) in ");
        crash_dump_text(&say, path);
        crash_dump_char(&say, '\n');
        if (crash_dump_close(&say) != 0) {
            // Standard error is gone: the report's file is all there is.
        }
    } else if (writeStateReport(STDERR_FILENO) != 0) {
        // Standard error is gone: nowhere to say so.
    }
    g_state.reporting.store(false);
    errno = savedErrno;
}

void crashHandler(int signo, siginfo_t* info, void* context) {
    const int savedErrno = errno;
    const std::uint64_t me = platform::currentThreadId();
    std::uint64_t writer = 0;
    if (!g_state.crashingThread.compare_exchange_strong(writer, me)) {
        if (writer != me) {
            // Another thread is writing the log: its end ends this thread too.
            for (int waited = 0; waited < 60000 && !g_state.logWritten.load(); ++waited) {
                struct timespec millisecond = {0, 1000000};
                nanosleep(&millisecond, nullptr);
            }
        }
        // A fault inside this handler, or a log that never ended: the default action, now.
        resetToDefault(signo);
        sendAgainIfSent(signo, *info);
        errno = savedErrno;
        return;
    }

    if (crash_handler_details::g_writingStarts != nullptr) crash_handler_details::g_writingStarts();
    crash_dump d;
    char path[kPathBytes];
    const bool toFile = openLogFile(&d, path);
    if (!toFile) crash_dump_init(&d, STDERR_FILENO);
    writeLog(&d, signo, *info, context);
    const int error = crash_dump_close(&d);
    crash_dump say;
    crash_dump_init(&say, STDERR_FILENO);
    if (toFile) {
        crash_dump_text(&say,
                        error == 0 ? "Crash log written to " : "Crash log cut short (a write failed) in ");
        crash_dump_text(&say, path);
        crash_dump_char(&say, '\n');
    }
    if (crash_dump_close(&say) != 0) {
        // Standard error is gone: the log's file, when there is one, is all there is.
    }
    g_state.logWritten.store(true);
    waitForDebugger();

    restorePrevious(signo);
    sendAgainIfSent(signo, *info);
    errno = savedErrno;
}

// Appends text to the uncaught-exception buffer, cut at its end.
void noteUncaught(std::size_t& at, const char* text) noexcept {
    const std::size_t room = sizeof g_state.uncaught - 1 - at;
    std::size_t n = std::strlen(text);
    if (n > room) n = room;
    std::memcpy(g_state.uncaught + at, text, n);
    at += n;
    g_state.uncaught[at] = '\0';
}

// std::terminate: the exception's type and message go where the crash log will find them (the
// log itself is written by the SIGABRT handler, which allocates nothing: the demangling is done
// here, before), then the previous terminate handler runs, which aborts.
[[noreturn]] void onTerminate() {
    std::size_t at = 0;
    if (std::exception_ptr current = std::current_exception()) {
        const std::type_info* type = abi::__cxa_current_exception_type();
        int status = -1;
        char* readable =
            type != nullptr ? abi::__cxa_demangle(type->name(), nullptr, nullptr, &status) : nullptr;
        noteUncaught(at, status == 0 && readable != nullptr ? readable
                         : type != nullptr                  ? type->name()
                                                            : "unknown type");
        std::free(readable);
        try {
            std::rethrow_exception(current);
        } catch (const BaseException& e) {
            noteUncaught(at, " (");
            noteUncaught(at, e.typeName());
            noteUncaught(at, "): ");
            noteUncaught(at, e.what());
        } catch (const std::exception& e) {
            noteUncaught(at, ": ");
            noteUncaught(at, e.what());
        } catch (...) {
            noteUncaught(at, " (not a std::exception)");
        }
    } else {
        noteUncaught(at, "std::terminate called without an exception");
    }
    g_state.haveUncaught.store(true);
    if (g_state.previousTerminate != nullptr) g_state.previousTerminate();
    std::abort();
}

// The program's name: the command line's first word after its last slash.
void rememberProgram() {
    const char* first = g_state.commandLine;
    const char* end = std::strchr(first, ' ');
    if (end == nullptr) end = first + std::strlen(first);
    const char* base = first;
    for (const char* p = first; p < end; ++p) {
        if (*p == '/') base = p + 1;
    }
    std::size_t n = static_cast<std::size_t>(end - base);
    if (n == 0) {
        base = "unknown";
        n = 7;
    }
    if (n >= sizeof g_state.program) n = sizeof g_state.program - 1;
    std::memcpy(g_state.program, base, n);
    g_state.program[n] = '\0';
}

// VESTRA_WAIT_ON_CRASH: unset, empty or 0 for no wait; "forever"; or whole seconds (up to a day).
// Anything else is no wait: a crash must never hang on a typo.
long waitSecondsFrom(const char* value) noexcept {
    if (value == nullptr) return 0;
    if (std::strcmp(value, "forever") == 0) return -1;
    long seconds = 0;
    for (const char* p = value; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9' || seconds > 86400) return 0;
        seconds = seconds * 10 + (*p - '0');
    }
    return seconds <= 86400 ? seconds : 0;
}

// "$VESTRA_HOME/crash", made if missing; "" when there is no such place.
void rememberDirectory() {
    g_state.directory[0] = '\0';
    const char* home = std::getenv("VESTRA_HOME");
    if (home == nullptr || home[0] == '\0') return;
    bounded_path p;
    bounded_path_init(&p, g_state.directory, sizeof g_state.directory);
    if (bounded_path_set(&p, home, std::strlen(home)) != 0 || bounded_path_push(&p, "crash", 5) != 0) {
        g_state.directory[0] = '\0';
        return;
    }
    if (mkdir(g_state.directory, 0700) != 0 && errno != EEXIST) g_state.directory[0] = '\0';
}

}  // namespace

Status installCrashHandler(const CrashHandlerOptions& options) {
    if (g_state.installed.load()) return {};
    platform::AlternateStack stack;
    if (const int rc = platform::mapAlternateStack(stack))
        return Status::failure(rc, "cannot map an alternate signal stack");
    platform::readCommandLine(g_state.commandLine, sizeof g_state.commandLine);
    rememberProgram();
    rememberDirectory();
    g_state.waitSeconds = waitSecondsFrom(std::getenv("VESTRA_WAIT_ON_CRASH"));
    if (!crash_handler_details::executableSymbolsRead()) crash_handler_details::readExecutableSymbols();
    crash_handler_details::warmUpBacktrace();
    g_state.crashingThread.store(0);
    g_state.logWritten.store(false);

    struct sigaction action {};
    action.sa_sigaction = crashHandler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signo : platform::kCrashSignals) sigaddset(&action.sa_mask, signo);  // one fault at a time
    for (std::size_t i = 0; i < kSignals; ++i) {
        if (sigaction(platform::kCrashSignals[i], &action, &g_state.previous[i]) != 0) {
            const int error = errno;
            for (std::size_t j = 0; j < i; ++j)
                static_cast<void>(sigaction(platform::kCrashSignals[j], &g_state.previous[j], nullptr));
            static_cast<void>(platform::unmapAlternateStack(stack));
            return Status::failure(
                error, strprintf("cannot set the handler of signal %d", platform::kCrashSignals[i]));
        }
    }
    sigset_t faults;
    sigemptyset(&faults);
    for (int signo : platform::kCrashSignals) sigaddset(&faults, signo);
    if (const int rc = pthread_sigmask(SIG_UNBLOCK, &faults, nullptr); rc != 0)
        return Status::failure(rc, "cannot unblock the crash signals");
    g_state.reportOnSigquit = options.reportOnSigquit;
    if (options.reportOnSigquit) {
        struct sigaction quit {};
        quit.sa_handler = reportHandler;
        quit.sa_flags = SA_ONSTACK | SA_RESTART;  // a report interrupts nothing
        sigemptyset(&quit.sa_mask);
        if (sigaction(SIGQUIT, &quit, &g_state.previousQuit) != 0) {
            const int error = errno;
            for (std::size_t i = 0; i < kSignals; ++i)
                static_cast<void>(sigaction(platform::kCrashSignals[i], &g_state.previous[i], nullptr));
            static_cast<void>(platform::unmapAlternateStack(stack));
            return Status::failure(error, "cannot set the handler of SIGQUIT");
        }
    }
    g_state.callerStack = stack;
    g_state.installingThread = platform::currentThreadId();
    g_state.previousTerminate = std::set_terminate(onTerminate);
    Thread::setCrashAlternateStacks(true);
    g_state.installed.store(true);
    return {};
}

Status removeCrashHandler() {
    if (!g_state.installed.load()) return {};
    std::set_terminate(g_state.previousTerminate);
    Status result;
    if (g_state.reportOnSigquit && sigaction(SIGQUIT, &g_state.previousQuit, nullptr) != 0)
        result = Status::failure(errno, "cannot put back SIGQUIT's handler");
    g_state.reportOnSigquit = false;
    for (std::size_t i = 0; i < kSignals; ++i) {
        if (sigaction(platform::kCrashSignals[i], &g_state.previous[i], nullptr) != 0 && result)
            result = Status::failure(errno, "cannot put back a signal's handler");
    }
    if (g_state.installingThread == platform::currentThreadId()) {
        if (const int rc = platform::unmapAlternateStack(g_state.callerStack); rc != 0 && result)
            result = Status::failure(rc, "cannot unmap the alternate signal stack");
    }
    g_state.installed.store(false);
    return result;
}

bool crashHandlerInstalled() noexcept {
    return g_state.installed.load();
}

const char* crashLogDirectory() noexcept {
    return g_state.directory;
}

int writeStateReport(int fd) noexcept {
    if (g_state.commandLine[0] == '\0') {  // not installed: the names are read now
        platform::readCommandLine(g_state.commandLine, sizeof g_state.commandLine);
        rememberProgram();
    }
    crash_dump d;
    crash_dump_init(&d, fd);
    crash_dump_text(&d, "==== state report ====\n");
    writeProcess(&d);
    writeThreads(&d);
    writeRecentLines(&d);
    crash_dump_text(&d, "==== end of state report ====\n");
    return crash_dump_close(&d);
}

}  // namespace basicutil
