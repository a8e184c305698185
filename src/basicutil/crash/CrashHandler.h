// Crash reporting: when the process dies of a fault, an abort or a failed assertion, a crash log
// says where and why before it ends. Nothing installs it but this call:
//
//   int main() {
//       MainThread mainThread;
//       if (Status st = installCrashHandler(); !st) ...   // say st.text() and go on without
//       ...
//   }
//
// The handler takes SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP and SIGSYS (a requested stop,
// SIGTERM or SIGINT, is no crash) on an alternate signal stack with a guard page, which the
// calling thread gets at set-up and every Thread has in its frame from start to end (started
// before the set-up or after), so that a stack overflow still writes its log. The set-up unblocks
// those signals in the calling thread and Thread keeps them unblocked in the threads it starts.
// A thread the library did not start has no such stack unless the set-up ran in it.
//
// From a static constructor to an exit handler: the handler needs nothing that is made at start-up
// or undone at exit, and a crash before the thread list exists or after it is gone says "(no
// thread list: the process is starting or ending)" in its place.
//
// Where the log goes: with "VESTRA_HOME" set, a new file
//   $VESTRA_HOME/crash/<program>-<pid>-<YYYYMMDDTHHMMSSZ>.log
// (the directory made at set-up, mode 0700; the file created exclusively, mode 0600) and one line
// on standard error, "Crash log written to <path>". Without "VESTRA_HOME", or when the file cannot
// be made (a full disk, a directory that is not writable), the whole log goes to standard error.
//
// "VESTRA_WAIT_ON_CRASH" (read at set-up): a number of seconds, up to 86400, or "forever". After
// the log the handler then prints "Waiting for a debugger[ for N s]: gdb -p <pid>" (lldb on
// FreeBSD) on standard error and waits until a debugger attaches or the time is up, then goes on
// to end the process. Unset, empty, 0 or anything else: no wait.
//
// An uncaught exception: installCrashHandler also sets a terminate handler, which notes the
// exception's type (demangled) and message (what(); for a BaseException also its typeName()) for
// the log and lets the previous handler abort; the SIGABRT log then says "Uncaught exception: ".
//
// What it holds, in this order: the signal by name and number with si_code in words and the
// faulting address (for SIGSEGV and SIGBUS also what lies there: a mapping, a guard page or
// nothing, and "stack overflow" when the address is a guard or a gap within 64 KiB of the stack
// pointer); the program, process id, thread name and id, the UTC time, the library's version and
// the command line; the registers; the backtrace from the signal's context (address, module,
// offset in the module, its build id, and the function's name where the dynamic linker or the
// executable's symbol table knows one); every listed thread's state as its dumpState words it,
// with its notations (CrashNotation.h) and, for a thread asleep in a byte lock, the lock's state;
// the last lines the channels logged (LoggerRecentLines.h: "Last lines logged (oldest first):",
// each "  <UTC time> <LEVEL> [<channel>] thread <id>: <message>", control bytes escaped, a cut
// message ending " ... (cut: <n> bytes)"); the memory map; and hex dumps of the 256 bytes around
// the faulting address and the 512 at the top of the stack, where readable.
//
// The handler allocates nothing and takes no lock that another thread may hold (the thread list's
// lock is tried, not waited for). Only one thread writes a log: a second thread that faults at the
// same moment waits until the log is written and the process ends (at most a minute, then it ends
// the process itself by its own signal); a fault inside the handler itself gets the signal's
// default action at once. After the log the handler puts back the disposition there was before the
// set-up and sends the signal again (or, for a fault, returns to the faulting instruction), so a
// host program's or a sanitizer's handler still runs and the process still ends by the same signal,
// with a core dump where the system makes one. errno is kept across the handler.
#pragma once

#include "basicutil/text/Status.h"

namespace basicutil {

// What the set-up may add to the crash handling.
struct CrashHandlerOptions {
    // SIGQUIT writes a state report (below) beside the crash logs (a ".report" file of the same
    // name's shape, or standard error) and the process goes on: for looking into a stuck process.
    bool reportOnSigquit = false;
};
// Installs the handlers (the set-up above). A second call while installed does nothing. Fails,
// installing nothing, when a signal's handler cannot be set or the calling thread's alternate
// stack cannot be mapped. A "VESTRA_HOME" whose crash directory cannot be made is no failure: the
// logs then go to standard error, and crashLogDirectory() is empty. The executable's function
// symbols are read now, so that the log can name the frames in it.
[[nodiscard]] Status installCrashHandler(const CrashHandlerOptions& options = {});
// Puts back every disposition the set-up replaced and unmaps the calling thread's stack (when the
// calling thread is the one that installed). Threads keep their alternate stacks.
[[nodiscard]] Status removeCrashHandler();
// Whether the handlers are installed.
bool crashHandlerInstalled() noexcept;
// The directory crash logs are written to, or "" for standard error.
const char* crashLogDirectory() noexcept;

// A state report, without dying: "==== state report ====", then the program, process, calling
// thread (with its notations), time, version and command line, every listed thread's state and
// notations and other threads' notations, and the last lines logged, as the crash log words
// them; "==== end of state report
// ====". Written to `fd`; async-signal-safe, so a handler may call it. Returns 0 or the first
// write's errno.
int writeStateReport(int fd) noexcept;

namespace crash_handler_details {
// A test's way into the handler: called, when set, once the log's first part is out (a fault
// there is a fault inside the handler).
extern void (*g_whileWriting)();
// Called, when set, as the handler starts a log (before it opens the file): a test forbids
// allocating from there on.
extern void (*g_writingStarts)();
}  // namespace crash_handler_details

}  // namespace basicutil
