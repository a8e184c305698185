// The fatal-error routine for failed thread and clock calls.
//
// A failed call is recorded (for the crash log's thread state dump), one line
//   Fatal thread error: <call>: <strerror>; <n> threads active, in <thread name>
// is written to descriptor 2 with a single writev, the same line is logged on the "Thread"
// channel, and the process aborts.
#pragma once

#include <cstddef>

namespace basicutil {

class Logger;

// What the first fatal error recorded, for the state dump of every thread.
struct FatalThreadErrorRecord {
    static constexpr std::size_t kThreadNameBytes = 64;  // longer names are cut, never inside a character
    const char* call = "none";                           // the failed call's name
    int error = 999;                                     // its error number
    unsigned threadsActive = 0;                          // Thread objects alive then
    char threadName[kThreadNameBytes] = {};              // the failing thread's name, NUL-terminated
};

// What the routine reports about the threads, and where it logs. The thread framework installs
// the provider; until then it reports 0 threads, "Unknown Thread", and no channel. The routine
// and the clock choice sit below the threads, so they learn the "Thread" channel this way.
struct FatalThreadContext {
    unsigned threadsActive;  // Thread objects alive
    const char* callerName;  // the calling thread's name
    Logger* channel;         // the "Thread" channel, or null: no line is logged
};
// Answers for the calling thread; must be safe to call while the process is failing.
using FatalThreadContextProvider = FatalThreadContext (*)() noexcept;
// Sets the provider (null: back to the default answer).
void installFatalThreadContextProvider(FatalThreadContextProvider provider) noexcept;
// The provider's answer for the calling thread.
FatalThreadContext fatalThreadContext() noexcept;

// Records, writes and logs the failure of `call` with error `errnum` (above), then aborts.
[[noreturn]] void fatalThreadError(const char* call, int errnum) noexcept;

// A copy of the record: call "none" and error 999 until a fatal error happens. The first fatal
// error fills it once and publishes it; threads failing at the same moment leave it as it is, so
// any thread may read it while others die.
FatalThreadErrorRecord fatalThreadErrorRecord() noexcept;

// Failed POSIX thread calls are fatal unless switched off (tests of failure paths do that).
void setThreadCallFailuresFatal(bool fatal) noexcept;
bool threadCallFailuresFatal() noexcept;

// For pthread-style calls that return 0 or an error number.
inline void checkThreadCall(int result, const char* call) noexcept {
    if (result != 0 && threadCallFailuresFatal()) fatalThreadError(call, result);
}

}  // namespace basicutil
