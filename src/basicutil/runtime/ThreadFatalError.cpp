#include "basicutil/runtime/ThreadFatalError.h"

#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/DecimalText.h"

namespace basicutil {

namespace {

FatalThreadContext noThreadFramework() noexcept {
    return {0, "Unknown Thread", nullptr};
}

std::atomic<FatalThreadContextProvider> g_contextProvider{&noThreadFramework};
std::atomic<bool> g_failuresFatal{true};
// Written once, by whoever claims it, before it is published; never written again.
FatalThreadErrorRecord g_record;
std::atomic<bool> g_recordClaimed{false};
std::atomic<bool> g_recordPublished{false};

// Copies at most `size - 1` bytes of `name`, backing off over a cut UTF-8 sequence.
void copyName(char* out, std::size_t size, const char* name) noexcept {
    std::size_t len = ::strnlen(name, size);
    if (len == size) {
        len = size - 1;
        while (len > 0 && (static_cast<unsigned char>(name[len]) & 0xC0) == 0x80) --len;
    }
    std::memcpy(out, name, len);
    out[len] = '\0';
}

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

FatalThreadContext fatalThreadContext() noexcept {
    return g_contextProvider.load()();
}

FatalThreadErrorRecord fatalThreadErrorRecord() noexcept {
    return g_recordPublished.load(std::memory_order_acquire) ? g_record : FatalThreadErrorRecord{};
}

void setThreadCallFailuresFatal(bool fatal) noexcept {
    g_failuresFatal.store(fatal);
}
bool threadCallFailuresFatal() noexcept {
    return g_failuresFatal.load();
}

void fatalThreadError(const char* call, int errnum) noexcept {
    const FatalThreadContext context = g_contextProvider.load()();
    FatalThreadErrorRecord record;
    record.call = call;
    record.error = errnum;
    record.threadsActive = context.threadsActive;
    copyName(record.threadName, sizeof record.threadName, context.callerName);
    if (!g_recordClaimed.exchange(true)) {
        g_record = record;
        g_recordPublished.store(true, std::memory_order_release);
    }

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
        piece(record.threadName),
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
    if (context.channel != nullptr) context.channel->log(LOG_FATAL, std::string_view(message, used));
    std::abort();
}

}  // namespace basicutil
