// Log lines: the nine levels, the line pattern language (LogFormat), one-line JSON objects, and
// the trimming of long messages.
//
// Pattern: literal text, "%%" for "%", and conversions "%" [flag] [min width] ["." max width]
// letter ["{" argument "}"]. Flags: "-" pads on the right, "0" pads with zeros. Letters:
//   m message    n newline     c component (the channel)    p level name
//   t thread name    T thread id    r elapsed ms    R elapsed s
//   u processor time the process has used, in microseconds on every platform (glibc's clock())
//   d date and time; argument none, "ISO8601" ("%Y-%m-%d %H:%M:%S,%l"), "ABSOLUTE"
//     ("%H:%M:%S,%l"), "DATE" ("%d %b %Y %H:%M:%S,%l"), or a time format of its own
//     (DateTime.h; %l there is milliseconds); a format that does not compile gives the first.
// An unknown letter, its argument and a "%" at the end are dropped silently. A field longer than
// its maximum width is cut to it; a shorter one is padded to its minimum width (at most 65535). The message
// is never padded, and a maximum width on it trims (below).
//
// JSON (SERIALIZE_JSON): one object per line, the pattern's newlines after it. Members in
// pattern order: "datetime", "log_level", "component", "thread", "thread_id", "elapsed_ms",
// "elapsed_s", "clock", each a string; then "data", the message as a JSON string, last. Other
// literal text is left out. Quotes, backslashes and control bytes are escaped, and a byte that
// is not part of valid UTF-8 is written as \u00XX of the byte.
//
// Long messages: a maximum width N on %m keeps the first N bytes when N < 45, else trims to N
// with renderTrimmedTo. Without one, a message longer than the maximum message size M (0: no
// limit) is offered to the LogFormatCallback; if it accepts, the message is trimmed to M/8 when
// M >= 800, else to 100 bytes; otherwise it is written whole.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "basicutil/DateTime.h"
#include "basicutil/PrintfFormat.h"
#include "basicutil/ReadMostly.h"
#include "basicutil/Str.h"
#include "basicutil/Timeval.h"

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

// Consulted when a message is longer than the maximum message size.
class LogFormatCallback {
  public:
    virtual ~LogFormatCallback();
    // Before each line that has an oversized message; the default does nothing.
    virtual void beforeOversizedLine(const LogEvent& event);
    // True to have the message trimmed; false to have it written whole. May append to `out`
    // first (a note that a long message follows, for instance).
    virtual bool trimOversizedMessage(Str& out, StrSegment message, std::uint64_t maxMessageSize,
                                      std::uint64_t length) = 0;
};

// A compiled line pattern (the language above): the pattern is parsed once into atoms, and each
// line is rendered from them.
class LogFormat {
  public:
    // What an atom renders: the conversions, and literal text.
    enum Kind : std::uint32_t {
        KIND_MESSAGE = 0,
        KIND_LITERAL = 1,
        KIND_COMPONENT = 2,
        KIND_LEVEL = 3,
        KIND_THREAD_NAME = 4,
        KIND_THREAD_ID = 5,
        KIND_ELAPSED_MS = 6,
        KIND_ELAPSED_S = 7,
        KIND_CLOCK = 8,
        KIND_DATE = 9,
    };
    // An atom's max_width when the conversion gave none.
    static constexpr std::uint32_t kNoMaximum = 0xffffffffu;

    // One piece of the pattern.
    struct Atom {
        std::uint32_t kind = KIND_LITERAL;       // a Kind
        const char* text = nullptr;              // a literal: into the pattern, or a constant
        std::uint32_t length = 0;                // the literal's length
        std::uint32_t min_width = 0;             // padded to this
        std::uint32_t max_width = kNoMaximum;    // cut (or, for the message, trimmed) to this
        char pad = ' ';                          // ' ', '0', or 0 for padding on the right
        std::shared_ptr<const TimeFormat> time;  // a date atom's format
    };

    // A line as the pattern's text, or as one JSON object (above).
    enum Serialization : int { SERIALIZE_TEXT = 0, SERIALIZE_JSON = 2 };

    // A null pattern is the empty pattern.
    explicit LogFormat(const char* pattern);
    LogFormat(const LogFormat&) = delete;
    LogFormat& operator=(const LogFormat&) = delete;

    // Appends the event's line.
    void render(Str& out, const LogEvent& event, int serialization, std::uint64_t maxMessageSize,
                LogFormatCallback* callback) const;

    // The first thing compiling dropped or replaced, described with its offset in the pattern:
    // an unknown letter ("\"%x\" at offset 3 is no conversion"), a "%" without a letter, an
    // argument without its "}", a date format that does not compile. Empty when there was none.
    const Str& problem() const noexcept { return _problem; }

    // The pattern as given, and what it compiled to.
    const Str& pattern() const noexcept { return _pattern; }
    const std::vector<Atom>& atoms() const noexcept { return _atoms; }
    // For tests of the corrupt-list path: a kind no pattern produces.
    void corruptForTesting() {
        Atom bad;
        bad.kind = 99;
        _atoms.push_back(std::move(bad));
    }

  private:
    Str _pattern;
    std::vector<Atom> _atoms;
    Str _problem;
};

class Logger;
class LogAppender;

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

    // The layout lines are rendered with for observers ("%m%n" unless set).
    void setLayout(std::shared_ptr<const LogFormat> layout);

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

    // Where the channel's lines are written (a configuration sets them); none by default.
    // Returns once no line in flight can reach the appenders replaced; not from inside an
    // appender's or an observer's call (an assertion).
    void setAppenders(std::vector<std::shared_ptr<LogAppender>> appenders);
    std::vector<std::shared_ptr<LogAppender>> appenders() const;

  private:
    struct Similar;
    using AppenderList = std::vector<std::shared_ptr<LogAppender>>;
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
    std::shared_ptr<const LogFormat> _layout;
};

// The "Logger" channel: the logging system's own messages.
Logger& loggerChannel() noexcept;
// The default layout "%m%n", compiled once at start-up and shared by every channel and appender
// without one of its own.
std::shared_ptr<const LogFormat> defaultLogLayout();
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

// Writes `length` bytes of `text` cut to exactly `trimTo` bytes (>= 45, < length): a head, the
// marker " ...{skipping N bytes}... " naming the bytes left out, and a tail of a quarter of the
// rest. With fewer than 64 bytes beside the marker, the head takes them all and the marker loses
// its last four characters. Backslashes that end the head are dropped from it, so that no escape
// sequence is cut in half.
void renderTrimmedTo(Str& out, const char* text, std::uint64_t length, std::uint64_t trimTo);

}  // namespace basicutil
