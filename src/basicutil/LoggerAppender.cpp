#include "basicutil/LoggerAppender.h"

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

#include "basicutil/Assert.h"
#include "basicutil/Logger_details.h"
#include "basicutil/PrintfFormat.h"

namespace basicutil {

namespace {

using logger_details::withErrno;

constexpr std::int64_t kRecheckSeconds = 5;
constexpr const char* kNullDevice = "/dev/null";

// Every byte, retrying interrupted and short writes; false with errno set on failure.
bool writeAll(int fd, const char* data, std::size_t length) noexcept {
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        data += n;
        length -= static_cast<std::size_t>(n);
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

void warn(const char* format, const char* name) {
    loggerChannel().logf(LOG_WARN, format, name);
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

// Set while an appender reports its own troubles, so that a report that comes back to it (the
// "Logger" channel may write to it) cannot start another.
thread_local bool t_reporting = false;

}  // namespace

// Under _mutex: kept until the lock is released, since the report may come back here.
void LogAppender::note(LogLevel level, Str text) {
    if (!t_reporting) _pending.push_back({level, std::move(text)});
}

// Not under _mutex.
void LogAppender::reportPending() {
    std::vector<Pending> pending;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        pending.swap(_pending);
    }
    if (pending.empty() || t_reporting) return;
    Logger* channel = loggerChannelIfAlive();
    if (channel == nullptr) return;
    t_reporting = true;
    for (const Pending& p : pending) channel->log(p.level, p.text);
    t_reporting = false;
}

LogAppender::LogAppender(LogAppenderSettings settings, bool suspended)
    : _settings(std::move(settings)), _suspended(suspended) {
    LogAppenderSettings& s = _settings;
    const char* name = s.name.c_str();
    if (s.layout == nullptr) s.layout = defaultLogLayout();
    if (!s.hasFileName) {
        warn("Appender \"%s\" has no filename, assuming stderr", name);
        if (s.maxBackupIndex != 0) {
            warn("Appender \"%s\" has maxBackupIndex set without specifying a filename, ignoring", name);
            s.maxBackupIndex = 0;
        }
        if (s.maxFileSize != 0) {
            warn("Appender \"%s\" has maxFileSize set without specifying a filename, ignoring", name);
            s.maxFileSize = 0;
            if (s.maxBackupIndex != 0) {
                warn("Appender \"%s\" has maxBackupIndex set without specifying maxFileSize, ignoring", name);
                s.maxBackupIndex = 0;
            }
        }
    } else if (s.maxFileSize == 0 && s.maxBackupIndex != 0) {
        warn("Appender \"%s\" has maxBackupIndex set without specifying maxFileSize, ignoring", name);
        s.maxBackupIndex = 0;
    }
    if (s.serialization != 1 && s.serialization != 2) {
        warn("Appender \"%s\" has _serialization set to non-normative value, BUG!, ignoring pointedly.",
             name);
        s.serialization = 1;
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        openLocked(true);
    }
    reportPending();
    if (_settings.buffered) {
        BufferFlusher::instance().add(this);
    }
}

LogAppender::~LogAppender() {
    if (_settings.buffered) {
        BufferFlusher::instance().remove(this);
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
        closeLocked();
    }
    reportPending();
}

bool LogAppender::trimOversizedMessage(Str&, StrSegment, std::uint64_t, std::uint64_t) {
    return true;
}

// Opens the target: the file (or the null device while suspended), or standard error.
void LogAppender::openLocked(bool announce) {
    closeLocked();
    if (!_settings.hasFileName) {
        _fd = STDERR_FILENO;
        _ownsFd = false;
        return;
    }
    const char* path = _suspended ? kNullDevice : _settings.fileName.c_str();
    const int fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        note(LOG_ERROR, withErrno("Failed opening \"%s\": %m", path));
        return;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        note(LOG_ERROR, withErrno("Error calling fstat on \"%s\": %m", path));
        static_cast<void>(::close(fd));
        return;
    }
    _fd = fd;
    _ownsFd = true;
    _device = st.st_dev;
    _inode = st.st_ino;
    _fileSize = static_cast<std::uint64_t>(st.st_size);
    if (announce && !_suspended) note(LOG_INFO, strprintf("Successfully opened \"%s\" now.", path));
}

void LogAppender::closeLocked() {
    if (_fd >= 0 && _ownsFd && ::close(_fd) != 0) {
        note(LOG_ERROR, withErrno("Error closing \"%s\": %m", target()));
    }
    _fd = -1;
    _ownsFd = false;
}

// At most once in kRecheckSeconds of event time: is the path still the file that is open?
void LogAppender::recheckLocked(std::int64_t eventSeconds) {
    if (!_settings.hasFileName || _suspended) return;
    if (_fd >= 0 && eventSeconds - _lastCheck < kRecheckSeconds && eventSeconds >= _lastCheck) return;
    _lastCheck = eventSeconds;
    struct stat st {};
    const bool same =
        ::stat(_settings.fileName.c_str(), &st) == 0 && st.st_dev == _device && st.st_ino == _inode;
    if (_fd >= 0 && same) return;
    writeOutLocked();  // what is buffered belongs to the old file
    openLocked(true);
}

bool LogAppender::writeOutLocked() {
    if (_buffer.empty()) return true;
    bool ok = _fd >= 0;
    if (ok && !writeAll(_fd, _buffer.data(), static_cast<std::size_t>(_buffer.size()))) {
        note(LOG_ERROR, withErrno("Error writing to \"%s\": %m", target()));
        ok = false;
    }
    if (ok) _fileSize += _buffer.size();
    _buffer.clear();
    _oldestBuffered = -1;
    return ok;
}

void LogAppender::write(const LogEvent& event) {
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
        std::lock_guard<std::mutex> lock(_mutex);
        writeLocked(event, line);
    }
    reportPending();
}

void LogAppender::writeLocked(const LogEvent& event, const Str& line) {
    recheckLocked(event.time.tv_sec);
    if (_fd < 0) {
        openLocked(true);
        if (_fd < 0) return;  // dropped: nowhere to write it
    }
    for (LogObserver* observer : _observers) observer->observe(event, line);
    if (_settings.maxFileSize != 0 && _settings.hasFileName && !_suspended &&
        _fileSize + _buffer.size() > 0 && _fileSize + _buffer.size() + line.size() > _settings.maxFileSize) {
        writeOutLocked();
        rotateLocked();
    }
    if (_oldestBuffered < 0) _oldestBuffered = event.time.tv_sec;
    _buffer.append(line);
    const bool keep = _settings.buffered && _buffer.size() < _settings.bufferSize &&
                      event.level < LOG_ERROR && event.time.tv_sec - _oldestBuffered < 1;
    if (!keep) writeOutLocked();
}

void LogAppender::flush() {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        writeOutLocked();
    }
    reportPending();
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
    // 1. The first free name, or N.
    std::uint64_t i = 0;
    for (; i < n; ++i) {
        struct stat st {};
        if (::stat(numbered(i).c_str(), &st) != 0) break;
    }
    bool ok = true;
    // 2. At N the oldest goes.
    if (i == n && n > 0) {
        const Str oldest = numbered(n);
        if (::unlink(oldest.c_str()) != 0 && errno != ENOENT) {
            note(LOG_ERROR, withErrno("Error unlinking \"%s\": %m", oldest.c_str()));
            ok = false;
        }
    }
    // 3. Downwards: i-1 to i, ..., the file itself to .1.
    closeLocked();
    for (std::uint64_t k = std::min(i, n); k > 0; --k) {
        const Str from = numbered(k - 1), to = numbered(k);
        if (::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            note(LOG_ERROR, withErrno("Error renaming \"%s\" to \"%s\": %m", from.c_str(), to.c_str()));
            ok = false;
        }
    }
    if (n == 0 && ::unlink(file.c_str()) != 0 && errno != ENOENT) {  // no copies kept: start afresh
        note(LOG_ERROR, withErrno("Error unlinking \"%s\": %m", file.c_str()));
        ok = false;
    }
    // 4. A fresh file.
    const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        note(LOG_ERROR, withErrno("Error opening \"%s\": %m", file.c_str()));
        return false;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        note(LOG_ERROR, withErrno("Error calling fstat on \"%s\": %m", file.c_str()));
        static_cast<void>(::close(fd));
        return false;
    }
    _fd = fd;
    _ownsFd = true;
    _device = st.st_dev;
    _inode = st.st_ino;
    _fileSize = 0;
    return ok;
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
