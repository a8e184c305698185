// Where log lines go: a file (rotated by size, reopened when an outside tool moves or deletes
// it) or standard error.
//
// An appender renders each line with its own layout before taking its mutex, so threads render
// in parallel and write one whole line at a time. Its warnings and errors go to the "Logger"
// channel at WARN and ERROR.
//
// Buffered output (buffered = true) is written out when the buffer reaches bufferSize, for a
// line at ERROR or above, when the oldest buffered line is a second old at the next line, on
// flush(), within about a second by a background flusher thread (started by the first buffered
// appender), and when the appender goes (at exit for configured ones).
//
// Rotation: before a line is written, if the file is not empty and the line would take it past
// maxFileSize, the file is rotated first (F to F.1, F.1 to F.2, ... keeping maxBackupIndex
// copies); a single line longer than maxFileSize still goes whole into a fresh file.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "basicutil/Logger.h"

namespace basicutil {

// How message text is written: as it is, or with control bytes and backslashes as C escapes
// ("\n", "\t", "\\", "\x1b"), so that one message is one line.
enum class LogEscape : std::uint8_t { NONE, C };

// What an appender is configured with.
struct LogAppenderSettings {
    Str name;                                 // the appender's name in the configuration
    bool hasFileName = false;                 // none: standard error
    Str fileName;                             // the file, with hasFileName
    std::uint64_t maxFileSize = 0;            // 0: not set
    std::uint64_t maxBackupIndex = 0;         // 0: not set
    std::shared_ptr<const LogFormat> layout;  // null: the default "%m%n"
    int serialization = 1;                    // 1 text, 2 JSON
    std::uint64_t maxMessageSize = 0;         // 0: no limit
    std::uint64_t bufferSize = 8192;          // bytes held before a buffered write
    bool buffered = false;                    // hold lines (above) rather than write each
    LogEscape escape = LogEscape::NONE;       // how message text is written
};

// One destination of log lines (above); shared by the channels a configuration points at it.
class LogAppender : private LogFormatCallback {
  public:
    // Runs the checks (each warning at WARN on the "Logger" channel) and, unless suspended,
    // opens the file.
    explicit LogAppender(LogAppenderSettings settings, bool suspended = false);
    ~LogAppender() override;
    LogAppender(const LogAppender&) = delete;
    LogAppender& operator=(const LogAppender&) = delete;

    // Renders the event with the layout and writes the line (or buffers it); rotates first
    // when the line would pass the maximum file size.
    void write(const LogEvent& event);
    // Writes out what is buffered.
    void flush();

    // Output goes to the null device until unsuspend(), which reopens the file; unsuspend
    // requires that no file is open (false otherwise).
    void suspend();
    [[nodiscard]] bool unsuspend();
    bool suspended() const noexcept;

    // The four steps: find the first free numbered name, drop the oldest, rename downwards,
    // open a fresh file. False, with the error logged, when a step fails.
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
    struct Pending {
        LogLevel level;
        Str text;
    };
    void note(LogLevel level, Str text);
    void reportPending();
    void writeLocked(const LogEvent& event, const Str& line);
    bool rotateLocked();
    void openLocked(bool announce);
    void closeLocked();
    void recheckLocked(std::int64_t eventSeconds);
    bool writeOutLocked();

    LogAppenderSettings _settings;
    mutable std::mutex _mutex;  // the descriptor, the buffer, the reopen check and rotation
    int _fd = -1;
    bool _ownsFd = false;
    bool _suspended = false;
    dev_t _device = 0;
    ino_t _inode = 0;
    std::uint64_t _fileSize = 0;
    std::int64_t _lastCheck = 0;        // event seconds of the last identity check
    std::int64_t _oldestBuffered = -1;  // event seconds of the oldest buffered line, -1: none
    Str _buffer;
    std::vector<LogObserver*> _observers;
    std::vector<Pending> _pending;  // messages about this appender, logged once its lock is free
};

}  // namespace basicutil
