#include "basicutil/logging/LoggerAppender.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "basicutil/logging/Logger_details.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

namespace {

using logger_details::withErrno;

constexpr std::int64_t kRecheckSeconds = 5;
constexpr int kLockSpins = 200;  // about a microsecond: the time a write(2) of a line takes
constexpr const char* kNullDevice = "/dev/null";

// Every byte, retrying interrupted and short writes; false with errno set on failure, with the
// bytes that did go out in `written`.
bool writeAll(int fd, const char* data, std::size_t length, std::size_t& written) noexcept {
    written = 0;
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        data += n;
        length -= static_cast<std::size_t>(n);
        written += static_cast<std::size_t>(n);
    }
    return true;
}

void appendEscaped(Str& out, StrSegment text) {
    static constexpr char kHex[] = "0123456789abcdef";
    for (char c : text.view()) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '\\') {
            out.append("\\\\", 2);
        } else if (c == '\n') {
            out.append("\\n", 2);
        } else if (c == '\r') {
            out.append("\\r", 2);
        } else if (c == '\t') {
            out.append("\\t", 2);
        } else if (u < 0x20 || u == 0x7f) {
            const char escaped[4] = {'\\', 'x', kHex[u >> 4], kHex[u & 15]};
            out.append(escaped, 4);
        } else {
            out.push_back(c);
        }
    }
}

// Writes out every buffered appender once a second, so that no buffered line waits longer
// than that for a next line to push it out. Started by the first buffered appender.
//
// Never destroyed and its thread never joined: appenders that are globals are torn down at
// exit in no set order, and each leaves the list under the lock, so the thread never touches
// one that is gone. Around fork the lock is held, so a child never inherits it taken; the
// child has no flusher thread, and its next buffered appender starts one.
class BufferFlusher {
  public:
    static BufferFlusher& instance() {
        static BufferFlusher& flusher = *new BufferFlusher;
        return flusher;
    }
    void add(LogAppender* appender) {
        std::lock_guard<std::mutex> lock(_mutex);
        _appenders.push_back(appender);
        if (!_running) {
            std::thread([this] { run(); }).detach();
            _running = true;
        }
    }
    // Returns once no flush of the appender is under way.
    void remove(LogAppender* appender) {
        std::lock_guard<std::mutex> lock(_mutex);
        _appenders.erase(std::remove(_appenders.begin(), _appenders.end(), appender), _appenders.end());
    }

  private:
    // The fork handlers reach the flusher through g_self, not instance(): a fork while the
    // instance is still being made must not wait on its initialisation.
    BufferFlusher() {
        g_self = this;
        const int rc = ::pthread_atfork([] { g_self->_mutex.lock(); }, [] { g_self->_mutex.unlock(); },
                                        [] {
                                            g_self->_running = false;
                                            g_self->_mutex.unlock();
                                        });
        VESTRA_ASSERT(rc == 0);
    }
    ~BufferFlusher() = delete;
    [[noreturn]] void run() {
        std::unique_lock<std::mutex> lock(_mutex);
        for (;;) {
            _wake.wait_for(lock, std::chrono::seconds(1));
            for (LogAppender* appender : _appenders) appender->flush();
        }
    }

    static inline BufferFlusher* g_self = nullptr;
    std::mutex _mutex;
    std::condition_variable _wake;
    std::vector<LogAppender*> _appenders;
    bool _running = false;
};

// Set while an appender reports its own troubles: a report that comes back to an appender (the
// "Logger" channel may write to it) is kept for later rather than reported from inside another.
thread_local bool t_reporting = false;

}  // namespace

namespace logger_details {

void reportLogTrouble(LogLevel level, StrSegment text, const LogAppender* source) {
    Logger* channel = loggerChannelIfAlive();
    bool carried = false;
    if (channel != nullptr) {
        if (!channel->enabled(level)) return;  // a channel switched off by choice
        for (const std::shared_ptr<LogSink>& sink : channel->appenders()) {
            if (sink.get() != static_cast<const LogSink*>(source) && sink->carries()) carried = true;
        }
        channel->log(level, text);
    }
    if (!carried && level >= LOG_WARN) {
        // As a standard-error appender with the default layout would write it.
        Str line(text);
        line.push_back('\n');
        std::size_t written = 0;
        static_cast<void>(
            writeAll(STDERR_FILENO, line.data(), static_cast<std::size_t>(line.size()), written));
    }
}

}  // namespace logger_details

// Under _mutex: reported once the lock is released, since the report may come back here.
void LogAppender::note(LogLevel level, Str text) {
    _pending.push_back({level, std::move(text)});
    _hasPending.store(true, std::memory_order_relaxed);
}

// Not under _mutex.
void LogAppender::reportPending() {
    // Without the lock: a thread sees its own notes, and another thread's notes are that
    // thread's to report. Kept while reporting, for this appender's next report.
    if (!_hasPending.load(std::memory_order_relaxed) || t_reporting) return;
    std::vector<LogAppenderNotice> pending;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        pending.swap(_pending);
        _hasPending.store(false, std::memory_order_relaxed);
    }
    if (pending.empty()) return;
    t_reporting = true;
    for (const LogAppenderNotice& p : pending) logger_details::reportLogTrouble(p.level, p.text, this);
    t_reporting = false;
}

// Under _mutex: a failure, reported when it is the first since lines last got through or
// differs from the one reported last.
void LogAppender::troubleLocked(Str text) {
    if (!_inTrouble || text.view() != _lastTrouble.view()) note(LOG_ERROR, text);
    _inTrouble = true;
    _lastTrouble = std::move(text);
    _healthy.store(false, std::memory_order_relaxed);
}

// Under _mutex: lines that will never reach the target.
void LogAppender::lostLocked(std::uint64_t lines) {
    _lost += lines;
}

// Under _mutex: lines got through; the trouble, if any, is over and its count is reported.
void LogAppender::deliveredLocked() {
    if (_inTrouble) {
        if (_lost != 0) {
            note(LOG_WARN, strprintf("%llu lines could not be written to \"%s\"",
                                     static_cast<unsigned long long>(_lost), target()));
        }
        _inTrouble = false;
        _lastTrouble.clear();
        _lost = 0;
    }
    if (!_healthy.load(std::memory_order_relaxed)) _healthy.store(true, std::memory_order_relaxed);
}

std::vector<LogAppenderNotice> LogAppender::checkSettings(LogAppenderSettings& s) {
    std::vector<LogAppenderNotice> warnings;
    auto warn = [&warnings, &s](const char* format) {
        warnings.push_back({LOG_WARN, strprintf(format, s.name.view())});
    };
    if (!s.hasFileName) {
        warn("Appender \"%s\" has no filename, assuming stderr");
        if (s.maxBackupIndex != 0) {
            warn("Appender \"%s\" has maxBackupIndex set without specifying a filename, ignoring");
            s.maxBackupIndex = 0;
        }
        if (s.maxFileSize != 0) {
            warn("Appender \"%s\" has maxFileSize set without specifying a filename, ignoring");
            s.maxFileSize = 0;
            if (s.maxBackupIndex != 0) {
                warn("Appender \"%s\" has maxBackupIndex set without specifying maxFileSize, ignoring");
                s.maxBackupIndex = 0;
            }
        }
    } else if (s.maxFileSize == 0 && s.maxBackupIndex != 0) {
        warn("Appender \"%s\" has maxBackupIndex set without specifying maxFileSize, ignoring");
        s.maxBackupIndex = 0;
    }
    if (s.serialization != LogSerialization::TEXT && s.serialization != LogSerialization::JSON) {
        warn("Appender \"%s\" has _serialization set to non-normative value, BUG!, ignoring pointedly.");
        s.serialization = LogSerialization::TEXT;
    }
    return warnings;
}

bool LogAppender::probeFile(const char* path, Str& error) {
    auto fail = [&error, path] {
        error = withErrno("Cannot append to \"%s\": %m", path);
        return false;
    };
    struct stat st {};
    if (::stat(path, &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            errno = EISDIR;
            return fail();
        }
        // O_NONBLOCK: a FIFO without a reader answers at once instead of waiting for one.
        const int fd = ::open(path, O_WRONLY | O_APPEND | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) return fail();
        if (::close(fd) != 0) return fail();
        return true;
    }
    if (errno != ENOENT) return fail();
    const std::string_view p = path;
    const std::size_t slash = p.rfind('/');
    const Str directory = slash == std::string_view::npos ? Str(".")
                          : slash == 0                    ? Str("/")
                                                          : Str(p.substr(0, slash));
    if (::stat(directory.c_str(), &st) != 0) return fail();
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return fail();
    }
    if (::faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) != 0) return fail();
    return true;
}

void LogAppender::check() {
    if (_settings.layout == nullptr) _settings.layout = defaultLogLayout();
    std::lock_guard<std::mutex> lock(_mutex);
    for (LogAppenderNotice& warning : checkSettings(_settings)) note(warning.level, std::move(warning.text));
    openLocked(true);
}

LogAppender::LogAppender(LogAppenderSettings settings, bool suspended)
    : _settings(std::move(settings)), _suspended(suspended) {
    check();
    reportPending();
    if (_settings.buffered) BufferFlusher::instance().add(this);
}

LogAppender::LogAppender(LogAppenderSettings settings, bool suspended,
                         std::vector<LogAppenderNotice>& notices)
    : _settings(std::move(settings)), _suspended(suspended) {
    check();
    for (LogAppenderNotice& n : _pending) notices.push_back(std::move(n));
    _pending.clear();
    _hasPending.store(false, std::memory_order_relaxed);
    if (_settings.buffered) BufferFlusher::instance().add(this);
}

LogAppender::~LogAppender() {
    if (_settings.buffered) {
        BufferFlusher::instance().remove(this);
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
        closeLocked();
        if (_lost != 0) {
            note(LOG_ERROR, strprintf("%llu lines could not be written to \"%s\"",
                                      static_cast<unsigned long long>(_lost), target()));
        }
    }
    reportPending();
}

bool LogAppender::trimOversizedMessage(Str&, StrSegment, std::uint64_t, std::uint64_t) {
    return true;
}

// Opens the target: the file (or the null device while suspended), or standard error.
void LogAppender::openLocked(bool announce, const char* failure) {
    closeLocked();
    if (!_settings.hasFileName) {
        _fd = STDERR_FILENO;
        _ownsFd = false;
        if (!_inTrouble) _healthy.store(true, std::memory_order_relaxed);
        return;
    }
    const char* path = _suspended ? kNullDevice : _settings.fileName.c_str();
    const int fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        troubleLocked(withErrno(failure, path));
        return;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        troubleLocked(withErrno("Error calling fstat on \"%s\": %m", path));
        static_cast<void>(::close(fd));
        return;
    }
    _fd = fd;
    _ownsFd = true;
    _device = st.st_dev;
    _inode = st.st_ino;
    _fileSize = static_cast<std::uint64_t>(st.st_size);
    // Healthy once a line gets through, when it was in trouble.
    if (!_inTrouble) _healthy.store(true, std::memory_order_relaxed);
    if (announce && !_suspended) note(LOG_INFO, strprintf("Successfully opened \"%s\" now.", path));
}

void LogAppender::closeLocked() {
    if (_fd >= 0 && _ownsFd && ::close(_fd) != 0) {
        note(LOG_ERROR, withErrno("Error closing \"%s\": %m", target()));
    }
    _fd = -1;
    _ownsFd = false;
    _healthy.store(false, std::memory_order_relaxed);
}

// At most once in kRecheckSeconds of event time: is the path still the file that is open?
void LogAppender::recheckLocked(std::int64_t eventSeconds) {
    if (!_settings.hasFileName || _suspended) return;
    if (eventSeconds - _lastCheck < kRecheckSeconds && eventSeconds >= _lastCheck) return;
    _lastCheck = eventSeconds;
    struct stat st {};
    if (::stat(_settings.fileName.c_str(), &st) == 0 && st.st_dev == _device && st.st_ino == _inode) return;
    writeOutLocked();  // what is buffered belongs to the old file
    openLocked(true);
}

bool LogAppender::writeOutLocked() {
    if (_buffer.empty()) return true;
    bool ok = _fd >= 0;
    if (ok) {
        std::size_t written = 0;
        ok = writeAll(_fd, _buffer.data(), static_cast<std::size_t>(_buffer.size()), written);
        _fileSize += written;
        if (ok) {
            deliveredLocked();
        } else {
            troubleLocked(withErrno("Error writing to \"%s\": %m", target()));
        }
    }
    if (!ok) lostLocked(_bufferedLines);
    _buffer.clear();
    _bufferedLines = 0;
    _oldestBuffered = -1;
    return ok;
}

void LogAppender::write(const LogEvent& event) {
    if (_disabled.load(std::memory_order_relaxed)) return;
    // Rendered before the lock: threads render in parallel.
    Logger::ScratchText scratch;
    Str& line = scratch.text();
    if (_settings.escape == LogEscape::C) {
        Str escaped;
        appendEscaped(escaped, event.message);
        LogEvent copy = event;
        copy.message = escaped;
        _settings.layout->render(line, copy, _settings.serialization, _settings.maxMessageSize, this);
    } else {
        _settings.layout->render(line, event, _settings.serialization, _settings.maxMessageSize, this);
    }
    {
        // A thread that finds the lock taken usually waits for one write(2) to return: it spins
        // through that before it sleeps, so that neither it nor the holder pays a trip through
        // the kernel to hand the lock over.
        bool locked = _mutex.try_lock();
        for (int spin = 0; !locked && spin < kLockSpins; ++spin) {
            platform::cpuPause();
            locked = _mutex.try_lock();
        }
        if (!locked) _mutex.lock();
        const std::lock_guard<std::mutex> lock(_mutex, std::adopt_lock);
        writeLocked(event, line);
    }
    reportPending();
}

void LogAppender::writeLocked(const LogEvent& event, const Str& line) {
    const std::int64_t seconds = event.time.tv_sec;
    // One attempt at the file per line at most.
    if (_fd >= 0) {
        recheckLocked(seconds);
    } else {
        openLocked(true);
    }
    if (_fd < 0) {
        lostLocked(1);
        return;
    }
    for (LogObserver* observer : _observers) observer->observe(event, line);
    const std::uint64_t size = _fileSize + _buffer.size();
    if (_settings.maxFileSize != 0 && _settings.hasFileName && !_suspended && size > 0 &&
        size + line.size() > _settings.maxFileSize && (!_rotationStuck || seconds >= _rotationRetry)) {
        writeOutLocked();
        if (!rotateLocked()) _rotationRetry = seconds + kRecheckSeconds;
        if (_fd < 0) {  // the fresh file could not be opened
            lostLocked(1);
            return;
        }
    }
    if (_oldestBuffered < 0) _oldestBuffered = seconds;
    _buffer.append(line);
    ++_bufferedLines;
    const bool keep = _settings.buffered && _buffer.size() < _settings.bufferSize &&
                      event.level < LOG_ERROR && seconds - _oldestBuffered < 1;
    if (!keep) writeOutLocked();
}

void LogAppender::flush() {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
    }
    reportPending();
}

void LogAppender::disable() noexcept {
    _disabled.store(true, std::memory_order_relaxed);
}

void LogAppender::enable() noexcept {
    _disabled.store(false, std::memory_order_relaxed);
}

bool LogAppender::disabled() const noexcept {
    return _disabled.load(std::memory_order_relaxed);
}

bool LogAppender::healthy() const noexcept {
    return _healthy.load(std::memory_order_relaxed);
}

void LogAppender::suspend() {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
        closeLocked();
        _suspended = true;
        openLocked(false);
    }
    reportPending();
}

bool LogAppender::unsuspend() {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (!_suspended) return false;
        writeOutLocked();
        closeLocked();  // the null device
        _suspended = false;
        openLocked(true);
    }
    reportPending();
    return true;
}

bool LogAppender::suspended() const noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    return _suspended;
}

bool LogAppender::rotateFile() {
    bool ok = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
        ok = rotateLocked();
    }
    reportPending();
    return ok;
}

bool LogAppender::rotateLocked() {
    const Str& file = _settings.fileName;
    const std::uint64_t n = _settings.maxBackupIndex;
    auto numbered = [&file](std::uint64_t i) {
        return i == 0 ? file : strprintf("%s.%llu", file.view(), static_cast<unsigned long long>(i));
    };
    // Errors of a rotation that is already stuck were said when it got stuck.
    auto error = [this](Str text) {
        if (!_rotationStuck) note(LOG_ERROR, std::move(text));
    };
    // 1. The first free name, or N.
    std::uint64_t i = 0;
    for (; i < n; ++i) {
        struct stat st {};
        if (::stat(numbered(i).c_str(), &st) != 0) break;
    }
    // 2. At N the oldest goes.
    if (i == n && n > 0) {
        const Str oldest = numbered(n);
        if (::unlink(oldest.c_str()) != 0 && errno != ENOENT) {
            error(withErrno("Error unlinking \"%s\": %m", oldest.c_str()));
        }
    }
    // 3. Downwards: i-1 to i, ..., the file itself to .1. A rename that fails stops the shift,
    // so that nothing is renamed over the copy that stayed; a name that has vanished (moved
    // by another process) leaves nothing to overwrite, and the shift goes on.
    bool shifted = true;
    for (std::uint64_t k = std::min(i, n); k > 0; --k) {
        const Str from = numbered(k - 1), to = numbered(k);
        if (::rename(from.c_str(), to.c_str()) != 0) {
            const int saved = errno;
            error(withErrno("Error renaming \"%s\" to \"%s\": %m", from.c_str(), to.c_str()));
            if (saved != ENOENT) {
                shifted = false;
                break;
            }
        }
    }
    if (n == 0 && ::unlink(file.c_str()) != 0 && errno != ENOENT) {  // no copies kept: start afresh
        error(withErrno("Error unlinking \"%s\": %m", file.c_str()));
        shifted = false;
    }
    if (!shifted) {
        if (!_rotationStuck) {
            note(LOG_WARN,
                 strprintf("Appending to \"%s\" beyond maxFileSize until it can be rotated", file.c_str()));
        }
        _rotationStuck = true;
        return false;  // the live file stays open
    }
    _rotationStuck = false;
    // 4. A fresh file; never truncated, in case another process made one there meanwhile.
    openLocked(false, "Error opening \"%s\": %m");
    return _fd >= 0;
}

void LogAppender::registerLogObserver(LogObserver* observer) {
    std::lock_guard<std::mutex> lock(_mutex);
    _observers.push_back(observer);
}

void LogAppender::unregisterLogObserver(LogObserver* observer) {
    std::lock_guard<std::mutex> lock(_mutex);
    _observers.erase(std::remove(_observers.begin(), _observers.end(), observer), _observers.end());
}

}  // namespace basicutil
