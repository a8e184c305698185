#include "basicutil/logging/LoggerFormat.h"

// Compiling line patterns and rendering lines: fields, JSON members, message trimming.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <limits>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/StaticStrSet.h"
#include "basicutil/text/StrEscape.h"
#include "basicutil/threads/Thread.h"

namespace basicutil {

namespace {

// The level names in level order; parsed in any case ("warn", "Warn"). The members are literals,
// so each one's data() is NUL-terminated.
constexpr auto kLevelNames = makeStaticStrSet<STR_CASE_FOLD>(
    {"DEBUG", "INFO", "NOTICE", "WARN", "ERROR", "CRIT", "ALERT", "FATAL", "EMERG"});
constexpr const char* kDefaultDateFormat = "%Y-%m-%d %H:%M:%S,%l";
constexpr std::uint64_t kThreadNameLimit = 100;
constexpr std::uint32_t kMaxMinWidth = 65535;

// The logger's %l is milliseconds; the time-format engine's own %l is the 12-hour clock.
Str mapMilliseconds(std::string_view format) {
    Str out;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size()) {
            if (format[i + 1] == 'l') {
                out.append("%3Q");
                ++i;
                continue;
            }
            out.push_back('%');
            out.push_back(format[++i]);  // "%%" and every other conversion letter stay as they are
            continue;
        }
        out.push_back(format[i]);
    }
    return out;
}

// The date atom's format; false when the argument does not compile (the default is used).
bool dateFormat(std::string_view argument, std::shared_ptr<const TimeFormat>& out) {
    std::string_view text = argument;
    if (argument.empty() || argument == "ISO8601") {
        text = kDefaultDateFormat;
    } else if (argument == "ABSOLUTE") {
        text = "%H:%M:%S,%l";
    } else if (argument == "DATE") {
        text = "%d %b %Y %H:%M:%S,%l";
    }
    auto format = std::make_shared<TimeFormat>(mapMilliseconds(text));
    const bool valid = format->valid();
    if (!valid) format = std::make_shared<TimeFormat>(mapMilliseconds(kDefaultDateFormat));
    out = std::move(format);
    return valid;
}

// The base of the elapsed-time atoms: the first event time that renders one, set once.
std::atomic<std::int64_t> g_elapsedBaseUsec{std::numeric_limits<std::int64_t>::min()};

std::int64_t saturated(Int128 v) noexcept {
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    return v < kMin ? kMin : v > kMax ? kMax : static_cast<std::int64_t>(v);
}

// Microseconds from the base to the event, exact for every Timeval (128 bits); the base itself
// is kept in 64 bits, saturated, and set once.
Int128 elapsedUsec(const Timeval& time) noexcept {
    const Int128 now = static_cast<Int128>(time.tv_sec) * 1000000 + time.tv_usec;
    std::int64_t base = g_elapsedBaseUsec.load(std::memory_order_relaxed);
    if (base == std::numeric_limits<std::int64_t>::min()) {
        g_elapsedBaseUsec.compare_exchange_strong(base, saturated(now), std::memory_order_relaxed);
        base = g_elapsedBaseUsec.load(std::memory_order_relaxed);
    }
    return now - base;
}

void appendDecimal(Str& out, std::int64_t value) {
    char digits[kMaxUint64Digits + 1];
    out.append(digits, static_cast<size_type>(formatSigned(digits, value)));
}

// A field: cut to the maximum width, or padded to the minimum.
void appendField(Str& out, StrSegment text, const LogFormat::Atom& atom) {
    if (text.size() > atom.max_width) {
        out.append(text.data(), atom.max_width);
        return;
    }
    if (text.size() >= atom.min_width) {  // the common case: no padding
        out.append(text);
        return;
    }
    const size_type fill = atom.min_width - text.size();
    if (atom.pad == 0) {
        out.append(text);
        out.append(fill, ' ');
    } else {
        out.append(fill, atom.pad);
        out.append(text);
    }
}

}  // namespace

const char* logLevelName(int level) noexcept {
    return level >= 0 && level < static_cast<int>(kLevelNames.size())
               ? kLevelNames.member(static_cast<std::size_t>(level)).data()
               : "???";
}

bool parseLogLevel(StrSegment name, LogLevel& level) noexcept {
    const std::size_t i = kLevelNames.find(name.view());
    if (i == kLevelNames.npos) return false;
    level = static_cast<LogLevel>(i);
    return true;
}

LogFormatCallback::~LogFormatCallback() = default;
void LogFormatCallback::beforeOversizedLine(const LogEvent&) {}

std::shared_ptr<const LogFormat> defaultLogLayout() {
    static const std::shared_ptr<const LogFormat> layout = std::make_shared<const LogFormat>("%m%n");
    return layout;
}

void renderTrimmedTo(Str& out, const char* text, std::uint64_t length, std::uint64_t trimTo) {
    const std::uint64_t msgsize = length;
    VESTRA_ASSERT(trimTo >= 45);
    VESTRA_ASSERT(msgsize > trimTo);
    // The marker names the bytes it stands for, which depend on its own length: take the
    // shortest length that agrees with itself (one always does, from 26 to 44 bytes).
    std::uint64_t markerLength = 26;
    while (25 + decimalDigitCount(length - trimTo + markerLength) != markerLength) ++markerLength;
    const std::uint64_t skipped = length - (trimTo - markerLength);
    char buf[46];
    static constexpr char kBefore[] = " ...{skipping ";
    static constexpr char kAfter[] = " bytes}... ";
    char* p = buf;
    std::memcpy(p, kBefore, sizeof kBefore - 1);
    p += sizeof kBefore - 1;
    const unsigned digits = decimalDigitCount(skipped);
    writeDecimalDigits(p, skipped, digits);
    p += digits;
    std::memcpy(p, kAfter, sizeof kAfter - 1);
    p += sizeof kAfter - 1;
    std::uint64_t buflen = static_cast<std::uint64_t>(p - buf);
    VESTRA_ASSERT(buflen == markerLength && buflen < sizeof buf);

    const std::uint64_t budget = trimTo - markerLength;
    std::uint64_t emit_left = 0, emit_right = 0;
    if (budget < 64) {  // too little for a tail: the head takes it, the marker loses its end
        emit_left = budget + 4;
        buflen -= 4;
    } else {
        emit_right = budget / 4;
        emit_left = budget - emit_right;
    }
    VESTRA_ASSERT(emit_left + buflen + emit_right == trimTo);
    const size_type headStart = out.size();
    out.append(text, emit_left);
    while (out.size() > headStart && out.back() == '\\') out.pop_back();
    out.append(buf, buflen);
    out.append(text + length - emit_right, emit_right);
}

// --- Compiling ---

LogFormat::LogFormat(const char* pattern) : _pattern(pattern != nullptr ? pattern : "") {
    const char* p = _pattern.data();
    const char* const end = p + _pattern.size();
    // Runs that touch in the pattern ("a%" of "a%%b") are one atom.
    auto literal = [this](const char* text, std::uint32_t length) {
        if (!_atoms.empty()) {
            Atom& last = _atoms.back();
            const bool inPattern =
                last.text >= _pattern.data() && last.text < _pattern.data() + _pattern.size();
            if (last.kind == KIND_LITERAL && inPattern && last.text + last.length == text) {
                last.length += length;
                return;
            }
        }
        Atom atom;
        atom.text = text;
        atom.length = length;
        _atoms.push_back(std::move(atom));
    };
    auto dropped = [this](Str text) {
        if (_problem.empty()) _problem = std::move(text);
    };
    while (p < end) {
        if (*p != '%') {
            const char* start = p;
            while (p < end && *p != '%') ++p;
            literal(start, static_cast<std::uint32_t>(p - start));
            continue;
        }
        VESTRA_ASSERT(*p == '%');
        if (p + 1 < end && p[1] == '%') {  // the first "%" of the two is the run's
            literal(p, 1);
            p += 2;
            continue;
        }
        const char* const conversion = p++;
        const auto offset = static_cast<unsigned long long>(conversion - _pattern.data());
        Atom atom;
        if (p < end && (*p == '-' || *p == '0')) atom.pad = *p++ == '-' ? '\0' : '0';
        auto number = [&p, end](std::uint32_t& value) {
            std::uint64_t v = 0;
            while (p < end && *p >= '0' && *p <= '9')
                v = std::min<std::uint64_t>(v * 10 + static_cast<std::uint64_t>(*p++ - '0'), 0xfffffffeu);
            value = static_cast<std::uint32_t>(v);
        };
        number(atom.min_width);
        atom.min_width = std::min(atom.min_width, kMaxMinWidth);  // no pattern pads a field by gigabytes
        if (p < end && *p == '.') {
            ++p;
            if (p < end && *p >= '0' && *p <= '9') number(atom.max_width);
        }
        if (p == end) {  // a conversion without its letter
            dropped(strprintf("\"%s\" at offset %llu has no conversion letter",
                              std::string_view(conversion, static_cast<std::size_t>(end - conversion)),
                              offset));
            break;
        }
        const char letter = *p++;
        std::string_view argument;
        if (p < end && *p == '{') {
            const char* close =
                static_cast<const char*>(std::memchr(p, '}', static_cast<std::size_t>(end - p)));
            if (close == nullptr) {  // an unterminated argument drops the atom and the rest
                dropped(strprintf("the argument of \"%%%c\" at offset %llu has no closing \"}\"", letter,
                                  offset));
                break;
            }
            argument = std::string_view(p + 1, static_cast<std::size_t>(close - p - 1));
            p = close + 1;
        }
        switch (letter) {
            case 'm':
                atom.kind = KIND_MESSAGE;
                break;
            case 'n':
                atom.kind = KIND_LITERAL;
                atom.text = "\n";
                atom.length = 1;
                break;
            case 'c':
                atom.kind = KIND_COMPONENT;
                break;
            case 'p':
                atom.kind = KIND_LEVEL;
                break;
            case 't':
                atom.kind = KIND_THREAD_NAME;
                break;
            case 'T':
                atom.kind = KIND_THREAD_ID;
                break;
            case 'r':
                atom.kind = KIND_ELAPSED_MS;
                break;
            case 'R':
                atom.kind = KIND_ELAPSED_S;
                break;
            case 'u':
                atom.kind = KIND_CLOCK;
                break;
            case 'd':
                atom.kind = KIND_DATE;
                if (!dateFormat(argument, atom.time)) {
                    dropped(
                        strprintf("the date format \"%s\" at offset %llu does not compile; \"%s\" is used",
                                  argument, offset, kDefaultDateFormat));
                }
                break;
            default:  // an unknown letter: dropped
                dropped(strprintf("\"%s\" at offset %llu is no conversion",
                                  std::string_view(conversion, static_cast<std::size_t>(p - conversion)),
                                  offset));
                continue;
        }
        _atoms.push_back(std::move(atom));
    }
}

// --- Rendering ---

namespace {

// The date a thread rendered last, with what it depends on.
struct LastDate {
    std::uint64_t format = 0;  // TimeFormat::serial()
    const TimeZone* zone = nullptr;
    std::int64_t seconds = 0, fraction = 0;
    Str text;
    ~LastDate();
};
thread_local LastDate t_lastDate;
thread_local bool t_lastDateGone = false;  // as t_textsGone in Logger.cpp: teardown may still log
LastDate::~LastDate() {
    t_lastDateGone = true;
}

struct LineRenderer {
    const LogEvent& event;
    std::uint64_t maxMessageSize;
    LogFormatCallback* callback;
    // The event time broken down in the local zone, at most once per line.
    mutable bool brokenDown = false;
    mutable CivilTime civil{};
    mutable TimeZoneLookup at{};

    void message(Str& out, const LogFormat::Atom& atom) const {
        const StrSegment text = event.message;
        if (atom.max_width != LogFormat::kNoMaximum) {
            const std::uint64_t n = atom.max_width;
            if (text.size() <= n) {
                appendField(out, text, atom);
            } else if (n < 45) {
                out.append(text.data(), n);
            } else {
                renderTrimmedTo(out, text.data(), text.size(), n);
            }
            return;
        }
        if (maxMessageSize == 0 || text.size() <= maxMessageSize) {
            out.append(text);
            return;
        }
        bool trim = false;
        if (callback != nullptr) {
            callback->beforeOversizedLine(event);
            trim = callback->trimOversizedMessage(out, text, maxMessageSize, text.size());
        }
        const std::uint64_t trimTo = maxMessageSize >= 800 ? maxMessageSize / 8 : 100;
        if (!trim || trimTo >= text.size()) {
            out.append(text);
        } else {
            renderTrimmedTo(out, text.data(), text.size(), trimTo);
        }
    }

    // The text of a field atom, before padding.
    void field(Str& out, const LogFormat::Atom& atom) const {
        Str value;
        switch (atom.kind) {
            case LogFormat::KIND_COMPONENT:
                appendField(out, event.component, atom);
                return;
            case LogFormat::KIND_LEVEL:
                appendField(out,
                            event.level >= 0 && event.level <= 8
                                ? kLevelNames.member(static_cast<std::size_t>(event.level)).data()
                                : "???",
                            atom);
                return;
            case LogFormat::KIND_THREAD_NAME: {
                const StrSegment name = Thread::currentThreadName();
                if (name.size() > kThreadNameLimit && atom.max_width == LogFormat::kNoMaximum) {
                    renderTrimmedTo(value, name.data(), name.size(), kThreadNameLimit);
                    appendField(out, value, atom);
                } else {
                    appendField(out, name, atom);
                }
                return;
            }
            case LogFormat::KIND_THREAD_ID:
                appendDecimal(value, static_cast<std::int64_t>(platform::currentThreadId()));
                break;
            case LogFormat::KIND_ELAPSED_MS:  // saturated, as time arithmetic is everywhere
                appendDecimal(value, saturated(elapsedUsec(event.time) / 1000));
                break;
            case LogFormat::KIND_ELAPSED_S:
                appendDecimal(value, saturated(elapsedUsec(event.time) / 1000 / 1000));
                break;
            case LogFormat::KIND_CLOCK:
                appendDecimal(value, platform::processorTimeMicroseconds());
                break;
            case LogFormat::KIND_DATE: {
                // Lines come in bursts: the thread keeps the last date it rendered, and a line
                // within the same second and rendered subseconds reuses it.
                const TimeZone& zone = TimeZone::localZone();
                const TimeFormat& format = *atom.time;
                static constexpr std::int64_t kScale[] = {1000000, 100000, 10000, 1000, 100, 10, 1};
                const std::int64_t fraction = event.time.tv_usec / kScale[format.subsecondDigitsRendered()];
                if (t_lastDateGone) {  // the thread's cache is gone: render afresh
                    if (!brokenDown) brokenDown = zone.breakDown(event.time.tv_sec, civil, &at);
                    if (brokenDown) format.render(event.time, civil, at, value);
                    break;
                }
                LastDate& last = t_lastDate;
                if (last.format != format.serial() || last.zone != &zone ||
                    last.seconds != event.time.tv_sec || last.fraction != fraction) {
                    if (!brokenDown) brokenDown = zone.breakDown(event.time.tv_sec, civil, &at);
                    if (!brokenDown) break;
                    last.text.clear();
                    format.render(event.time, civil, at, last.text);
                    last.format = format.serial();
                    last.zone = &zone;
                    last.seconds = event.time.tv_sec;
                    last.fraction = fraction;
                }
                if (atom.min_width == 0 &&
                    atom.max_width == LogFormat::kNoMaximum) {  // no field rules: in place
                    out.append(last.text);
                    return;
                }
                value.append(last.text);
                break;
            }
            default:
                break;
        }
        appendField(out, value, atom);
    }
};

const char* jsonMember(LogFormat::Kind kind) noexcept {
    switch (kind) {
        case LogFormat::KIND_COMPONENT:
            return "component";
        case LogFormat::KIND_LEVEL:
            return "log_level";
        case LogFormat::KIND_THREAD_NAME:
            return "thread";
        case LogFormat::KIND_THREAD_ID:
            return "thread_id";
        case LogFormat::KIND_ELAPSED_MS:
            return "elapsed_ms";
        case LogFormat::KIND_ELAPSED_S:
            return "elapsed_s";
        case LogFormat::KIND_CLOCK:
            return "clock";
        case LogFormat::KIND_DATE:
            return "datetime";
        default:
            return nullptr;
    }
}

}  // namespace

void LogFormat::render(Str& out, const LogEvent& event, LogSerialization serialization,
                       std::uint64_t maxMessageSize, LogFormatCallback* callback) const {
    const size_type start = out.size();
    const LineRenderer line{event, maxMessageSize, callback, false, {}, {}};
    if (serialization != LogSerialization::JSON) {
        for (const Atom& atom : _atoms) {
            if (atom.kind == KIND_MESSAGE) {
                line.message(out, atom);
            } else if (atom.kind == KIND_LITERAL) {
                out.append(atom.text, atom.length);
            } else if (atom.kind <= KIND_DATE) {
                line.field(out, atom);
            } else {
                out.resize(start);
                out.append("_atoms array invalid!");
                return;
            }
        }
        return;
    }
    // One object: the members in pattern order, the message last, the newlines after it.
    out.push_back('{');
    bool first = true;
    const Atom* message = nullptr;
    size_type newlines = 0;
    Str value;
    for (const Atom& atom : _atoms) {
        if (atom.kind == KIND_MESSAGE) {
            if (message == nullptr) message = &atom;
            continue;
        }
        if (atom.kind == KIND_LITERAL) {
            if (atom.length == 1 && atom.text[0] == '\n') ++newlines;
            continue;
        }
        const char* member = jsonMember(atom.kind);
        if (member == nullptr) {
            out.resize(start);
            out.append("_atoms array invalid!");
            return;
        }
        value.clear();
        line.field(value, atom);
        if (!first) out.push_back(',');
        first = false;
        out.push_back('"');
        out.append(member);
        out.append("\":\"", 3);
        appendJsonEscaped(out, value);
        out.push_back('"');
    }
    if (message != nullptr) {
        value.clear();
        line.message(value, *message);
        if (!first) out.push_back(',');
        out.append("\"data\":\"", 8);
        appendJsonEscaped(out, value);
        out.push_back('"');
    }
    out.push_back('}');
    out.append(newlines, '\n');
}

}  // namespace basicutil
