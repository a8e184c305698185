#include "basicutil/ThreadFatalError.h"

#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "basicutil/DecimalText.h"
#include "basicutil/LoggerSink.h"
#include "basicutil/Platform.h"

namespace basicutil {

namespace {

FatalThreadContext noThreadFramework() noexcept {
    return {0, "Unknown Thread"};
}

std::atomic<FatalThreadContextProvider> g_contextProvider{&noThreadFramework};
std::atomic<bool> g_failuresFatal{true};
FatalThreadErrorRecord g_record;

iovec piece(const char* text, std::size_t len) {
    return {const_cast<char*>(text), len};
}
iovec piece(const char* text) {
    return piece(text, std::strlen(text));
}

}  // namespace

void installFatalThreadContextProvider(FatalThreadContextProvider provider) noexcept {
    g_contextProvider.store(provider != nullptr ? provider : &noThreadFramework);
}

const FatalThreadErrorRecord& fatalThreadErrorRecord() noexcept {
    return g_record;
}

void setThreadCallFailuresFatal(bool fatal) noexcept {
    g_failuresFatal.store(fatal);
}
bool threadCallFailuresFatal() noexcept {
    return g_failuresFatal.load();
}

void fatalThreadError(const char* call, int errnum) noexcept {
    const FatalThreadContext context = g_contextProvider.load()();
    g_record.call = call;
    g_record.error = errnum;
    g_record.threadsActive = context.threadsActive;
    std::strncpy(g_record.threadName, context.callerName, sizeof g_record.threadName - 1);
    g_record.threadName[sizeof g_record.threadName - 1] = '\0';

    char errorText[256];
    platform::errorText(errnum, errorText, sizeof errorText);
    char count[kMaxUint64Digits];
    const std::size_t countLen = formatUnsigned(count, context.threadsActive);

    iovec line[] = {
        piece("Fatal thread error: "),
        piece(call),
        piece(": "),
        piece(errorText),
        piece("; "),
        piece(count, countLen),
        piece(" threads active, in "),
        piece(g_record.threadName),
        piece("\n"),
    };
    // Nothing sensible is left to do if standard error is gone: the abort below still happens.
    const ssize_t written = writev(STDERR_FILENO, line, static_cast<int>(std::size(line)));
    static_cast<void>(written);

    char message[512];
    std::size_t used = 0;
    for (std::size_t i = 0; i + 1 < std::size(line); ++i) {  // the same line, without its newline
        const std::size_t take = std::min(line[i].iov_len, sizeof message - used);
        std::memcpy(message + used, line[i].iov_base, take);
        used += take;
    }
    logToChannel("Thread", LOG_FATAL, std::string_view(message, used));
    std::abort();
}

}  // namespace basicutil
