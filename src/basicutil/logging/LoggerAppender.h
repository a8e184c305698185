// Where log lines go: a file (rotated by size, reopened when an outside tool moves or deletes
// it) or standard error.
//
// An appender renders each line with its own layout before taking its mutex, so threads render
// in parallel and write one whole line at a time; a thread that finds the mutex taken spins for
// about as long as one write takes before it sleeps. Its warnings and errors go to the "Logger"
// channel at WARN and ERROR, and also to standard error when that channel has no working
// appender to carry them (its only one may be the appender in trouble).
//
// Nothing is lost silently. When the file cannot be opened, the first failure is reported at
// once and each later line tries the file once more; a failed write is reported the same way.
// Until a line gets through again, the appender counts the lines it could not write, and
// reports that count when one does, or when it goes.
//
// Buffered output (buffered = true) is written out when the buffer reaches bufferSize, for a
// line at ERROR or above, when the oldest buffered line is a second old at the next line, on
// flush(), within about a second by a background flusher thread (started by the first buffered
// appender), and when the appender goes (at exit for configured ones).
//
// Rotation: before a line is written, if the file is not empty and the line would take it past
// maxFileSize, the file is rotated first (F to F.1, F.1 to F.2, ... keeping maxBackupIndex
// copies); a single line longer than maxFileSize still goes whole into a fresh file. A rename
// that fails stops the rotation where it is: no copy is renamed over another, and lines go on
// being appended to the live file (reported once) until a later rotation, tried at most every
// 5 seconds of event time, succeeds.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "basicutil/log/Logger.h"
#include "basicutil/logging/LoggerFormat.h"

namespace basicutil {

// How message text is written: as it is, or with control bytes and backslashes as C escapes
// ("\n", "\t", "\\", "\x1b"), so that one message is one line.
enum class LogEscape : std::uint8_t { NONE, C };

// What an appender is configured with.
struct LogAppenderSettings {
    Str name;                                                 // the appender's name in the configuration
    bool hasFileName = false;                                 // none: standard error
    Str fileName;                                             // the file, with hasFileName
    std::uint64_t maxFileSize = 0;                            // 0: not set
    std::uint64_t maxBackupIndex = 0;                         // 0: not set
    std::shared_ptr<const LogFormat> layout;                  // null: the default "%m%n"
    LogSerialization serialization = LogSerialization::TEXT;  // another value is corrected to TEXT
    std::uint64_t maxMessageSize = 0;                         // 0: no limit
    std::uint64_t bufferSize = 8192;                          // bytes held before a buffered write
    bool buffered = false;                                    // hold lines (above) rather than write each
    LogEscape escape = LogEscape::NONE;                       // how message text is written
};

// A message of an appender's checks or of its first opening.
struct LogAppenderNotice {
    LogLevel level;  // WARN for the checks, ERROR for a failure, INFO for a success
    Str text;        // as it is logged
};

// One destination of log lines (above); shared by the channels a configuration points at it.
class LogAppender : public LogSink, private LogFormatCallback {
  public:
    // Runs the checks (each warning at WARN on the "Logger" channel) and, unless suspended,
    // opens the file.
    explicit LogAppender(LogAppenderSettings settings, bool suspended = false);
    // The same, with the checks' warnings and the first opening's outcome handed to `notices`
    // instead of being reported: a configuration reports them once its channels have their
    // appenders, so that they reach those appenders.
    LogAppender(LogAppenderSettings settings, bool suspended, std::vector<LogAppenderNotice>& notices);
    ~LogAppender() override;
    LogAppender(const LogAppender&) = delete;
    LogAppender& operator=(const LogAppender&) = delete;

    // The checks alone, as the constructor runs them: the warnings, in order, and the settings
    // as corrected (no file name: standard error and no rotation; a bad serialization: text).
    static std::vector<LogAppenderNotice> checkSettings(LogAppenderSettings& settings);
    // Whether `path` could be opened for appending, found without creating or changing
    // anything: an existing file is opened for writing and closed, a missing one needs a
    // directory that may be written. False with the reason in `error` ("Cannot append to
    // \"<path>\": <errno text>").
    [[nodiscard]] static bool probeFile(const char* path, Str& error);

    // Renders the event with the layout and writes the line (or buffers it); rotates first
    // when the line would pass the maximum file size. A disabled appender ignores it.
    void write(const LogEvent& event) override;
    // Writes out what is buffered.
    void flush();

    // A disabled appender ignores every line, before rendering it; the file stays open and
    // what is buffered is written out as usual. Appenders start enabled.
    void disable() noexcept;
    void enable() noexcept;
    bool disabled() const noexcept;

    // Whether lines reach the target now: standard error, or a file that is open and whose
    // last write succeeded.
    bool healthy() const noexcept;
    // Enabled and healthy: a line written now reaches the file.
    bool carries() const noexcept override { return !disabled() && healthy(); }

    // Output goes to the null device until unsuspend(), which reopens the file; unsuspend
    // requires that no file is open (false otherwise).
    void suspend();
    [[nodiscard]] bool unsuspend();
    bool suspended() const noexcept;

    // The four steps: find the first free numbered name, drop the oldest, rename downwards,
    // open a fresh file. False, with the error logged, when a step fails; after a failed
    // rename the live file stays open for appending.
    bool rotateFile();

    // Adds or removes an observer of every line the appender writes; not from inside one of
    // its own observers.
    void registerLogObserver(LogObserver* observer);
    void unregisterLogObserver(LogObserver* observer);

    // The settings, as checked.
    const LogAppenderSettings& settings() const noexcept { return _settings; }
    // The file name, or "stderr".
    const char* target() const noexcept {
        return _settings.hasFileName ? _settings.fileName.c_str() : "stderr";
    }

  private:
    bool trimOversizedMessage(Str& out, StrSegment message, std::uint64_t maxMessageSize,
                              std::uint64_t length) override;
    void check();
    void note(LogLevel level, Str text);
    void reportPending();
    void troubleLocked(Str text);
    void lostLocked(std::uint64_t lines);
    void deliveredLocked();
    void writeLocked(const LogEvent& event, const Str& line);
    bool rotateLocked();
    void openLocked(bool announce, const char* failure = "Failed opening \"%s\": %m");
    void closeLocked();
    void recheckLocked(std::int64_t eventSeconds);
    bool writeOutLocked();

    // Read by every write before it takes the lock, and written (almost) never: kept off the
    // cache lines that writers change under the lock, so that threads rendering in parallel do
    // not pull them back and forth.
    LogAppenderSettings _settings;
    std::atomic<bool> _disabled{false};
    std::atomic<bool> _hasPending{false};  // _pending is not empty

    alignas(64) mutable std::mutex _mutex;  // everything below
    std::atomic<bool> _healthy{false};      // written only when it changes
    int _fd = -1;
    bool _ownsFd = false;
    bool _suspended = false;
    dev_t _device = 0;
    ino_t _inode = 0;
    std::uint64_t _fileSize = 0;
    std::int64_t _lastCheck = 0;        // event seconds of the last identity check
    std::int64_t _oldestBuffered = -1;  // event seconds of the oldest buffered line, -1: none
    Str _buffer;
    std::uint64_t _bufferedLines = 0;
    // From a failed open or write until a line is written again: the failure reported last
    // and the lines lost since the trouble began.
    bool _inTrouble = false;
    Str _lastTrouble;
    std::uint64_t _lost = 0;
    // A rename failed: the live file takes the lines until a rotation, tried again at
    // _rotationRetry (event seconds), succeeds.
    bool _rotationStuck = false;
    std::int64_t _rotationRetry = 0;
    std::vector<LogObserver*> _observers;
    std::vector<LogAppenderNotice> _pending;  // messages about this appender, reported once its lock is free
};

}  // namespace basicutil
