// Log lines: the line pattern language (LogFormat), one-line JSON objects, and the trimming of
// long messages.
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
// JSON (LogSerialization::JSON): one object per line, the pattern's newlines after it. Members in
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

#include <cstdint>
#include <memory>
#include <vector>

#include "basicutil/log/Logger.h"
#include "basicutil/text/Str.h"
#include "basicutil/time/DateTime.h"

namespace basicutil {

namespace logger_details {
struct LogFormatAccess;
}

// How a line is written: as the pattern makes it, or as one JSON object (above). The values are
// those of the configuration's appenders (1 and 2); rendering takes anything but JSON as TEXT.
enum class LogSerialization : std::uint8_t { TEXT = 1, JSON = 2 };

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
class LogFormat : public LogLineLayout {
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
        Kind kind = KIND_LITERAL;                // what the atom renders
        const char* text = nullptr;              // a literal: into the pattern, or a constant
        std::uint32_t length = 0;                // the literal's length
        std::uint32_t min_width = 0;             // padded to this
        std::uint32_t max_width = kNoMaximum;    // cut (or, for the message, trimmed) to this
        char pad = ' ';                          // ' ', '0', or 0 for padding on the right
        std::shared_ptr<const TimeFormat> time;  // a date atom's format
    };

    // A line as the pattern's text, or as one JSON object (above).
    // A null pattern is the empty pattern.
    explicit LogFormat(const char* pattern);
    LogFormat(const LogFormat&) = delete;
    LogFormat& operator=(const LogFormat&) = delete;

    // Appends the event's line.
    void render(Str& out, const LogEvent& event, LogSerialization serialization, std::uint64_t maxMessageSize,
                LogFormatCallback* callback) const;
    // As text, with no message size limit: the line an observer sees.
    void renderLine(Str& out, const LogEvent& event) const override {
        render(out, event, LogSerialization::TEXT, 0, nullptr);
    }

    // The first thing compiling dropped or replaced, described with its offset in the pattern:
    // an unknown letter ("\"%x\" at offset 3 is no conversion"), a "%" without a letter, an
    // argument without its "}", a date format that does not compile. Empty when there was none.
    const Str& problem() const noexcept { return _problem; }

    // The pattern as given, and what it compiled to.
    const Str& pattern() const noexcept { return _pattern; }
    const std::vector<Atom>& atoms() const noexcept { return _atoms; }

  private:
    friend struct logger_details::LogFormatAccess;
    Str _pattern;
    std::vector<Atom> _atoms;
    Str _problem;
};

// The layout "%m%n", compiled once and shared by every appender without one of its own.
std::shared_ptr<const LogFormat> defaultLogLayout();

// Writes `length` bytes of `text` cut to exactly `trimTo` bytes (>= 45, < length): a head, the
// marker " ...{skipping N bytes}... " naming the bytes left out, and a tail of a quarter of the
// rest. With fewer than 64 bytes beside the marker, the head takes them all and the marker loses
// its last four characters. Backslashes that end the head are dropped from it, so that no escape
// sequence is cut in half.
void renderTrimmedTo(Str& out, const char* text, std::uint64_t length, std::uint64_t trimTo);

}  // namespace basicutil
