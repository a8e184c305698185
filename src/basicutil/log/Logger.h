// Log channels: what a unit needs to log. The nine levels, the channels (printf-style and
// stream-style messages, the level check, similar-message suppression, observers), and the two
// interfaces the logging layer implements: the sinks a channel writes to (the appenders of
// LoggerAppender.h) and the layout that renders the lines its observers see (LogFormat of
// LoggerFormat.h). It needs strings, printf and the time value, nothing above them.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "basicutil/platform/ReadMostly.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/Str.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// The nine levels, least to most severe; a channel writes a level at or above its threshold.
enum LogLevel : std::uint8_t {
    LOG_DEBUG = 0,
    LOG_INFO = 1,
    LOG_NOTICE = 2,
    LOG_WARN = 3,
    LOG_ERROR = 4,
    LOG_CRIT = 5,
    LOG_ALERT = 6,
    LOG_FATAL = 7,
    LOG_EMERG = 8,
};

// "DEBUG" ... "EMERG"; "???" for a value out of range.
const char* logLevelName(int level) noexcept;

// The level whose name matches, ignoring case, as a whole word ("warn" is WARN, "WARNING" is
// nothing). False, with `level` unchanged, for any other text.
[[nodiscard]] bool parseLogLevel(StrSegment name, LogLevel& level) noexcept;

// What a line is rendered from.
struct LogEvent {
    StrSegment component;  // the channel's name
    int level = LOG_INFO;  // out of range renders "???"
    Timeval time;          // when it was logged (the date, clock and elapsed conversions)
    StrSegment message;    // the text, before any trimming
};

class Logger;

// Where a channel writes its lines: the logging layer's appenders. Called after the channel has
// let go of its lock, possibly from several threads at once.
class LogSink {
  public:
    virtual ~LogSink();
    // Renders and writes (or buffers) one line.
    virtual void write(const LogEvent& event) = 0;
    // Whether a line written now would reach the destination: enabled, and not failing.
    virtual bool carries() const noexcept = 0;
};

// How a channel renders the lines its observers see; LogFormat (LoggerFormat.h) is one. Without
// one, a channel writes the message and a newline, as the pattern "%m%n" does.
class LogLineLayout {
  public:
    virtual ~LogLineLayout();
    // Appends the event's line.
    virtual void renderLine(Str& out, const LogEvent& event) const = 0;
};

// Sees every line a channel or an appender renders (event.component names the channel). Called
// under their mutex, in the logging thread: observers must be quick and must not log on, or
// (un)register with, what they observe.
class LogObserver {
  public:
    virtual ~LogObserver();
    // One rendered line (with its newline, as the layout makes it) and the event behind it.
    virtual void observe(const LogEvent& event, StrSegment line) = 0;
};

// A named channel. Components keep one as a process-wide global ("Thread", "Timeval", ...) and
// log on it in two styles: printf-style through the library's printf engine (logf), and
// stream-style through LoggerStreamAccumulator. A level below the channel's threshold costs a
// load and a compare, and nothing is rendered.
//
// The constructor's arguments, after the name:
//   quiet           1: the channel starts switched off (threshold above EMERG) until a
//                   configuration turns it on, for chatty diagnostic channels; 0: it starts
//                   at DEBUG.
//   similarSeconds  repeats of a message within this many seconds of its first occurrence are
//                   counted instead of written (0: never).
//   similarCapacity how many distinct messages the count keeps at once (0: none).
// Two messages are similar when they have the same level and the same format text (printf
// style) or the same text (otherwise). The counts are reported, one line per message, at the
// message's level: "<n> similar messages suppressed.  First occurred at:\n\t\t\t\t<first text>",
// when the first occurrence's window has passed and the channel logs again, when the table is
// full, on flushSimilar(), and when the channel is destroyed (at exit for the globals): no count
// is lost.
class Logger {
  public:
    // Registers the channel under `name`; the arguments are described above.
    Logger(const char* name, int quiet, unsigned similarSeconds, unsigned similarCapacity);
    virtual ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // The channel's name.
    const Str& name() const noexcept { return _name; }
    // Whether `level` is at or above the threshold: the check every logging call makes first.
    bool enabled(int level) const noexcept { return level >= _threshold.load(std::memory_order_relaxed); }
    // The lowest level written; above LOG_EMERG switches the channel off.
    void setThreshold(int level) noexcept { _threshold.store(level, std::memory_order_relaxed); }
    int threshold() const noexcept { return _threshold.load(std::memory_order_relaxed); }

    // Formats with the library's printf (PrintfFormat.h) and logs the text; the format text is
    // the similarity key. Nothing is formatted below the threshold.
    template <typename... Args>
    void logf(LogLevel level, std::string_view format, const Args&... args) {
        if (!enabled(level)) return;
        ScratchText message;
        appendf(message.text(), format, args...);
        submit(level, message.text(), format);
    }

    // A per-thread buffer for one message being built, reused from call to call; a message
    // built while another is (a logging call made by an appender or observer) gets its own.
    class ScratchText {
      public:
        ScratchText();
        ~ScratchText();
        ScratchText(const ScratchText&) = delete;
        ScratchText& operator=(const ScratchText&) = delete;
        // The buffer, empty when the ScratchText is made.
        Str& text() noexcept { return *_text; }

      private:
        Str* _text;
        bool _owned;
    };
    // The text as it is (it is also its own similarity key).
    void log(LogLevel level, std::string_view text) {
        if (enabled(level)) submit(level, text, text);
    }
    // A message of several lines as one line each, split at "\n" and "\r" (an empty line between
    // two breaks is left out).
    void debugSplitLines(LogLevel level, StrSegment text);

    // Adds or removes an observer of every line the channel renders; not from inside an
    // observer of this channel.
    void registerLogObserver(LogObserver* observer);
    void unregisterLogObserver(LogObserver* observer);
    // Writes the counts of suppressed messages now.
    void flushSimilar();

    // The layout lines are rendered with for observers (null: "%m%n").
    void setLayout(std::shared_ptr<const LogLineLayout> layout);

    // Every channel in the process, in creation order.
    class iterate_channels_callback {
      public:
        virtual ~iterate_channels_callback();
        // Called once for each channel that existed when the walk began (the list is copied
        // first, so it may create channels); it must not destroy any.
        virtual void visit(Logger& logger) = 0;
    };
    // Calls `callback` for each channel.
    static void iterateChannels(iterate_channels_callback& callback);
    // The channel named `name` (exactly), or null.
    static Logger* find(StrSegment name) noexcept;

    // What a configuration does to a channel (its level and appenders). Set it, then call
    // initialize() to have it take effect.
    static void setChannelSetup(std::function<void(Logger&)> setup);
    // Runs the channel setup over every channel made so far (the globals of every unit
    // included), and from then on each channel's constructor runs it too. Before the first
    // call, channels are made with no setup: their level from `quiet` and no appenders. Call it
    // again after each setChannelSetup; configureLogging (LoggerConfig.h) does both. A channel
    // made while it runs ends with the newest setup; making one never waits for it (a setup may
    // wait for lines in flight, and one of those may be making a channel).
    static void initialize();
    // Whether initialize() has been called.
    static bool initialized() noexcept;

    // The event path below the level check: suppression, then the line to every observer.
    void submit(LogLevel level, StrSegment message, StrSegment similarityKey);

    // Where the channel's lines are written (a configuration sets its appenders); none by
    // default. Returns once no line in flight can reach the sinks replaced; not from inside a
    // sink's or an observer's call (an assertion).
    void setAppenders(std::vector<std::shared_ptr<LogSink>> appenders);
    std::vector<std::shared_ptr<LogSink>> appenders() const;

  private:
    struct Similar;
    using AppenderList = std::vector<std::shared_ptr<LogSink>>;
    // Lines decided under the mutex, written to the appenders after it: reports of suppressed
    // messages (owned), then the submitted message (the caller's text, still alive).
    struct Outgoing {
        // One report of suppressed messages.
        struct Line {
            LogLevel level;  // the suppressed message's
            Timeval time;    // when the report was decided
            Str message;     // the report's text
        };
        std::vector<Line> reports;
        bool hasMessage = false;
        LogLevel level = LOG_DEBUG;
        Timeval time;
        StrSegment message;
        const AppenderList* appenders = nullptr;  // alive while the read that gave it lasts
    };
    void emit(LogLevel level, StrSegment message, Outgoing& out, bool owned);
    void reportLocked(Similar& entry, Outgoing& out);
    void submitLocked(LogLevel level, StrSegment message, StrSegment similarityKey, Outgoing& out);
    void deliver(const Outgoing& out) const;

    Str _name;
    std::atomic<int> _threshold;
    unsigned _similarSeconds, _similarCapacity;
    mutable std::mutex _mutex;  // the observers and the similar-message table
    std::vector<LogObserver*> _observers;
    std::atomic<bool> _hasObservers{false};
    ReadMostly<AppenderList> _appenders;  // null: none
    std::vector<Similar> _similar;
    std::shared_ptr<const LogLineLayout> _layout;  // null: "%m%n"
};

// The "Logger" channel: the logging system's own messages.
Logger& loggerChannel() noexcept;
// The same, or null before it is made and after it is gone (the appenders of other channels may
// report during the process's teardown).
Logger* loggerChannelIfAlive() noexcept;

// A channel with nothing of its own beyond Logger: what components declare.
class LoggerSimple : public Logger {
  public:
    // Logger's constructor.
    using Logger::Logger;
};

// Registers in its constructor, unregisters in its destructor.
class ScopedLogObserverRegistration {
  public:
    // Registers `observer` with `logger`; both must outlive this object.
    ScopedLogObserverRegistration(Logger& logger, LogObserver& observer)
        : _logger(logger), _observer(observer) {
        _logger.registerLogObserver(&_observer);
    }
    ~ScopedLogObserverRegistration() { _logger.unregisterLogObserver(&_observer); }
    ScopedLogObserverRegistration(const ScopedLogObserverRegistration&) = delete;
    ScopedLogObserverRegistration& operator=(const ScopedLogObserverRegistration&) = delete;

  private:
    Logger& _logger;
    LogObserver& _observer;
};

// Stream-style logging: LoggerStreamAccumulator(logger, LOG_INFO) << "n=" << n; the message is
// logged when the accumulator ends (finish_vlog). Each thread has one buffer that serves one
// message at a time; an accumulator made while the thread's buffer is in use (a message built
// inside another) gets a buffer of its own, marked by DYNAMIC_FLAG in its logger word.
class LoggerStreamAccumulator {
  public:
    // Marks an accumulator whose buffer is its own.
    static constexpr std::uintptr_t DYNAMIC_FLAG = 1;

    // Starts a message at `level` on `logger`.
    LoggerStreamAccumulator(Logger& logger, LogLevel level) : LoggerStreamAccumulator(&logger, level) {}
    // Not null, and without DYNAMIC_FLAG (an assertion).
    LoggerStreamAccumulator(Logger* logger, LogLevel level);
    ~LoggerStreamAccumulator() { finish_vlog(); }
    LoggerStreamAccumulator(const LoggerStreamAccumulator&) = delete;
    LoggerStreamAccumulator& operator=(const LoggerStreamAccumulator&) = delete;

    // Appends text, a byte, or a number (integers in decimal, doubles as printf's "%g" does).
    LoggerStreamAccumulator& operator<<(StrSegment text);
    LoggerStreamAccumulator& operator<<(const char* text) { return *this << StrSegment(text); }
    LoggerStreamAccumulator& operator<<(char c);
    LoggerStreamAccumulator& operator<<(long long v);
    LoggerStreamAccumulator& operator<<(unsigned long long v);
    LoggerStreamAccumulator& operator<<(int v) { return *this << static_cast<long long>(v); }
    LoggerStreamAccumulator& operator<<(long v) { return *this << static_cast<long long>(v); }
    LoggerStreamAccumulator& operator<<(unsigned v) { return *this << static_cast<unsigned long long>(v); }
    LoggerStreamAccumulator& operator<<(unsigned long v) {
        return *this << static_cast<unsigned long long>(v);
    }
    LoggerStreamAccumulator& operator<<(double v);

    // Logs what was gathered (once) and gives the buffer back.
    void finish_vlog();

  private:
    Logger* logger() const noexcept;

    std::uintptr_t _logger;  // the logger, with DYNAMIC_FLAG when _buffer is this one's own
    LogLevel _level;
    Str* _buffer;  // null once finished
};

}  // namespace basicutil
