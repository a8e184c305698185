// vestra timestamps: each line's timestamp, as found by the library's DateParser, with its warnings;
// a summary of a log's formats and warnings; several logs merged in time order.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "basicutil/dateparser/DateParser.h"
#include "basicutil/log/Logger.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/StrEscape.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

// The lines of one input, read in blocks: a line is handed over where it lies in the block, and only
// a line that crosses blocks is gathered; memory is bounded by the longest line.
class LineReader {
  public:
    // Opens `path` ("-": standard input); false, with the reason diagnosed, when it cannot be.
    bool open(const std::string& path) {
        _name = path;
        if (path == "-") {
            _fd = FileDescriptor(0, "standard input");
            _stdin = true;
            return true;
        }
        if (Status st = _fd.open(path, O_RDONLY); !st) {
            diagnose(st.text().view());
            return false;
        }
        return true;
    }
    ~LineReader() {
        if (_stdin) static_cast<void>(_fd.release());  // standard input stays open
    }
    // The next line, without its newline; false at the end (or on a read error, diagnosed).
    bool next(std::string_view& line) {
        for (;;) {
            const char* start = _buffer.get() + _begin;
            const char* newline = static_cast<const char*>(std::memchr(start, '\n', _end - _begin));
            if (newline != nullptr) {
                const std::size_t length = static_cast<std::size_t>(newline - start);
                _begin += length + 1;
                if (_carry.empty()) {
                    line = std::string_view(start, length);
                } else {
                    _carry.append(start, length);
                    _line.swap(_carry);
                    _carry.clear();
                    line = _line;
                }
                return true;
            }
            _carry.append(start, _end - _begin);
            _begin = _end = 0;
            if (_done) {
                if (_carry.empty()) return false;
                _line.swap(_carry);
                _carry.clear();
                line = _line;  // the last line, without a newline
                return true;
            }
            std::size_t got = 0;
            if (Status st = _fd.readSome(_buffer.get(), kInputBlock, got); !st) {
                diagnose(st.text().view());
                _failed = true;
                _done = true;
                continue;
            }
            if (got == 0) _done = true;
            _end = got;
        }
    }
    bool failed() const noexcept { return _failed; }
    const std::string& name() const noexcept { return _name; }

  private:
    FileDescriptor _fd;
    bool _stdin = false, _done = false, _failed = false;
    std::string _name;
    std::unique_ptr<char[]> _buffer{new char[kInputBlock]};
    std::size_t _begin = 0, _end = 0;
    std::string _carry, _line;
};

// A count of seconds as the thresholds take one: digits, an optional fraction.
bool secondsValue(const std::string& text, Timeval& out) {
    const std::size_t dot = text.find('.');
    std::uint64_t whole = 0;
    if (!decimalCount(text.substr(0, dot), whole) || whole > 100000000000ull) return false;
    std::int64_t micros = 0;
    if (dot != std::string::npos) {
        const std::string fraction = text.substr(dot + 1);
        if (fraction.empty() || fraction.size() > 6 ||
            fraction.find_first_not_of("0123456789") != std::string::npos)
            return false;
        micros = std::stoll(fraction + std::string(6 - fraction.size(), '0'));
    }
    out = Timeval{static_cast<std::int64_t>(whole), micros};
    return true;
}

// "--now": an ISO 8601 time with its zone, or @SECONDS.
bool referenceValue(const std::string& text, Timeval& out) {
    if (!text.empty() && text[0] == '@') return secondsValue(text.substr(1), out);
    const DateParseResult r = findTimestamp(StrSegment(text), TimeZone::utc());
    const bool iso = r.format == TimestampFormat::ISO8601 || r.format == TimestampFormat::ISO8601_SPACE ||
                     r.format == TimestampFormat::ISO8601_BASIC;
    if (!r.found || !iso || r.offset != 0 || r.length != text.size()) return false;
    out = r.time;
    return true;
}

void appendNumber(std::string& out, std::uint64_t n) {
    char digits[20];
    out.append(digits, formatUnsigned(digits, n));
}

// The names, with their lengths.
struct Names {
    std::string_view formats[kTimestampFormats];
    std::string_view warnings[kDateWarnings];
    Names() {
        for (std::size_t f = 0; f < kTimestampFormats; ++f)
            formats[f] = timestampFormatName(static_cast<TimestampFormat>(f));
        for (std::size_t w = 0; w < kDateWarnings; ++w)
            warnings[w] = dateWarningName(static_cast<DateWarning>(w));
    }
};
const Names& names() {
    static const Names all;
    return all;
}

// One output line, built in place: every piece has a known bound, and the whole fits kBytes.
struct LineText {
    static constexpr std::size_t kBytes = 640;
    char text[kBytes];
    std::size_t n = 0;
    void add(std::string_view piece) noexcept {
        std::memcpy(text + n, piece.data(), piece.size());
        n += piece.size();
    }
    void add(char c) noexcept { text[n++] = c; }
    void number(std::uint64_t v) noexcept { n += formatUnsigned(text + n, v); }
    void utc(Timeval t) noexcept { n += formatUtcTimestamp(text + n, t); }
    std::string_view view() const noexcept { return std::string_view(text, n); }
};

// One line's reading, as JSON or as text; `file` before it when several files are read.
void describe(const DateParseResult& r, std::uint64_t line, const std::string* file, bool json) {
    if (file != nullptr) {
        Str prefix;
        if (json) {
            prefix.append(StrSegment("{\"file\":\""));
            appendJsonEscaped(prefix, StrSegment(*file));  // the library's one JSON string writer
            prefix.append(StrSegment("\","));
        } else {
            prefix.append(StrSegment(*file));
            prefix.push_back(':');
        }
        out().write(prefix);
    } else if (json) {
        out().write(std::string_view("{", 1));
    }
    const Names& n = names();
    LineText t;
    if (json) {
        t.add("\"line\":");
        t.number(line);
        if (r.found) {
            t.add(",\"found\":true,\"utc\":\"");
            t.utc(r.time);
            t.add("\",\"offset\":");
            t.number(r.offset);
            t.add(",\"length\":");
            t.number(r.length);
            t.add(",\"format\":\"");
            t.add(n.formats[static_cast<std::size_t>(r.format)]);
            t.add('"');
        } else {
            t.add(",\"found\":false");
        }
        t.add(",\"warnings\":[");
        bool first = true;
        for (std::size_t w = 0; w < kDateWarnings; ++w) {
            if (!r.warnings.has(static_cast<DateWarning>(w))) continue;
            t.add(first ? "\"" : ",\"");
            t.add(n.warnings[w]);
            t.add('"');
            first = false;
        }
        t.add(']');
        if (r.warnings.hasCheck() && r.hasPrevious) {
            t.add(",\"previous\":\"");
            t.utc(r.previous);
            t.add('"');
        }
        t.add("}\n");
    } else {
        t.number(line);
        t.add('\t');
        if (r.found) {
            t.utc(r.time);
            t.add('\t');
            t.add(n.formats[static_cast<std::size_t>(r.format)]);
        } else {
            t.add("-\t-");
        }
        for (std::size_t w = 0; w < kDateWarnings; ++w) {
            if (!r.warnings.has(static_cast<DateWarning>(w))) continue;
            t.add('\t');
            t.add(n.warnings[w]);
        }
        if (r.warnings.hasCheck() && r.hasPrevious) {
            t.add("\t(previous ");
            t.utc(r.previous);
            t.add(')');
        }
        t.add('\n');
    }
    out().write(t.view());
}

class TimestampsCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* app = parent.add_subcommand(
            "timestamps",
            "Finds the timestamp of each line of the FILEs (or standard input), in any of the usual log\n"
            "formats, and says what is odd: a year, zone or date inferred, time going backwards or\n"
            "jumping, the future, a change of format. One line out per line in: line number, UTC time,\n"
            "format and warnings (--json: one object each). Each FILE is a stream of its own.\n"
            "Examples: vestra timestamps --json /var/log/syslog\n"
            "          vestra timestamps --summary --zone Europe/Paris app.log\n"
            "          vestra timestamps --merge web.log db.log > all.log");
        app->add_option("FILE", _files, "the logs (\"-\" or none: standard input)");
        app->add_flag("--json", _json, "one JSON object per line");
        app->add_flag("--summary", _summary, "counts per format and per warning instead of the lines");
        app->add_flag(
            "--merge", _merge,
            "the lines of all FILEs in time order (lines without a timestamp stay with the one above)");
        app->add_option("-z,--zone", _zone, "the zone of times that name none (default: the local zone)");
        app->add_option("--now", _now,
                        "the reference time: an ISO 8601 time with its zone, or @SECONDS (default: now)");
        app->add_option("--year", _year, "the year of lines without one (default: inferred)");
        app->add_option("--tolerance", _tolerance, "seconds back that are no warning (default 1)");
        app->add_option("--jump", _jump, "seconds forward that are a jump (default 86400)");
        app->add_option("--future", _future,
                        "seconds after the reference time that are the future (default 300)");
        return app;
    }

    int run() override {
        // The warnings are this command's output; the channels stay quiet.
        dateParserChannel().setThreshold(LOG_EMERG + 1);
        dateParserVerboseChannel().setThreshold(LOG_EMERG + 1);
        if (!options(_options)) return kUsage;
        if (_files.empty()) _files.push_back("-");
        if (_merge) return merge();
        int status = kOk;
        for (const std::string& path : _files) {
            if (!stream(path, _files.size() > 1 ? &path : nullptr)) status = kNegative;
        }
        if (_summary) writeSummary();
        return status;
    }

  private:
    bool options(DateParserOptions& o) {
        if (!_zone.empty()) {
            if (Status st = TimeZone::load(StrSegment(_zone), o.zone); !st) {
                diagnose("--zone " + _zone + ": " + std::string(st.text().view()));
                return false;
            }
        }
        if (!_now.empty() && !referenceValue(_now, o.reference)) {
            diagnose("--now '" + _now + "': not an ISO 8601 time with its zone, nor @SECONDS");
            return false;
        }
        if (!_year.empty()) {
            std::uint64_t year = 0;
            if (!decimalCount(_year, year) || year < 1 || year > 9999) {
                diagnose("--year '" + _year + "': not a year from 1 to 9999");
                return false;
            }
            o.year = static_cast<std::int64_t>(year);
        }
        const struct {
            const char* name;
            const std::string& text;
            Timeval& value;
        } spans[] = {{"--tolerance", _tolerance, o.backwardsTolerance},
                     {"--jump", _jump, o.forwardLimit},
                     {"--future", _future, o.futureSlack}};
        for (const auto& span : spans) {
            if (!span.text.empty() && !secondsValue(span.text, span.value)) {
                diagnose(std::string(span.name) + " '" + span.text + "': not a number of seconds");
                return false;
            }
        }
        return true;
    }

    bool stream(const std::string& path, const std::string* file) {
        LineReader reader;
        if (!reader.open(path)) return false;
        DateParser parser(_options);
        std::string_view line;
        while (reader.next(line)) {
            const DateParseResult r = parser.parse(StrSegment(line.data(), line.size()));
            if (_summary) {
                count(r);
                continue;
            }
            describe(r, parser.lines(), file, _json);
        }
        return !reader.failed();
    }

    void count(const DateParseResult& r) {
        ++_lines;
        ++_formats[static_cast<std::size_t>(r.format)];
        for (std::size_t w = 0; w < kDateWarnings; ++w) {
            if (r.warnings.has(static_cast<DateWarning>(w))) ++_warnings[w];
        }
    }

    void writeSummary() {
        std::string text;
        if (_json) {
            text += "{\"lines\":";
            appendNumber(text, _lines);
            text += ",\"formats\":{";
            bool first = true;
            for (std::size_t f = 0; f < kTimestampFormats; ++f) {
                if (_formats[f] == 0) continue;
                text += first ? "\"" : ",\"";
                text += timestampFormatName(static_cast<TimestampFormat>(f));
                text += "\":";
                appendNumber(text, _formats[f]);
                first = false;
            }
            text += "},\"warnings\":{";
            first = true;
            for (std::size_t w = 0; w < kDateWarnings; ++w) {
                if (_warnings[w] == 0) continue;
                text += first ? "\"" : ",\"";
                text += dateWarningName(static_cast<DateWarning>(w));
                text += "\":";
                appendNumber(text, _warnings[w]);
                first = false;
            }
            text += "}}\n";
        } else {
            text += "lines\t";
            appendNumber(text, _lines);
            text += '\n';
            for (std::size_t f = 0; f < kTimestampFormats; ++f) {
                if (_formats[f] == 0) continue;
                text += "format\t";
                text += timestampFormatName(static_cast<TimestampFormat>(f));
                text += '\t';
                appendNumber(text, _formats[f]);
                text += '\n';
            }
            for (std::size_t w = 0; w < kDateWarnings; ++w) {
                if (_warnings[w] == 0) continue;
                text += "warning\t";
                text += dateWarningName(static_cast<DateWarning>(w));
                text += '\t';
                appendNumber(text, _warnings[w]);
                text += '\n';
            }
        }
        out().write(text);
    }

    // One input of a merge: its parser and the event it holds (a line with a timestamp and the
    // lines after it without one).
    struct Source {
        LineReader reader;
        std::unique_ptr<DateParser> parser;
        std::string event;  // the lines, each with its newline
        Timeval time;       // the event's time; lines before the first timestamp come first
        bool hasEvent = false, ended = false;
        std::string pending;  // a line read past the event: the next event's first
        bool hasPending = false;
        Timeval pendingTime;
    };

    // Reads the next event of `s`: the pending line (or the first lines) and what follows it up to
    // the next line with a timestamp.
    static void advance(Source& s) {
        s.event.clear();
        s.hasEvent = false;
        if (s.hasPending) {
            s.event = s.pending;
            s.time = s.pendingTime;
            s.hasPending = false;
            s.hasEvent = true;
        } else if (s.ended) {
            return;
        } else {
            s.time = Timeval{INT64_MIN, 0};  // lines before any timestamp
        }
        std::string_view line;
        while (s.reader.next(line)) {
            const DateParseResult r = s.parser->parse(StrSegment(line.data(), line.size()));
            if (r.found && (s.hasEvent || !s.event.empty())) {
                s.pending.assign(line.data(), line.size());
                s.pending += '\n';
                s.pendingTime = r.time;
                s.hasPending = true;
                return;
            }
            if (r.found) s.time = r.time;
            s.event.append(line.data(), line.size());
            s.event += '\n';
            s.hasEvent = true;
        }
        s.ended = true;
    }

    int merge() {
        std::vector<std::unique_ptr<Source>> sources;
        int status = kOk;
        for (const std::string& path : _files) {
            auto s = std::make_unique<Source>();
            if (!s->reader.open(path)) {
                status = kNegative;
                continue;
            }
            s->parser = std::make_unique<DateParser>(_options);
            advance(*s);
            sources.push_back(std::move(s));
        }
        // The earliest event first; among equal times, the earlier file: a stable merge.
        for (;;) {
            Source* next = nullptr;
            for (const std::unique_ptr<Source>& s : sources) {
                if (s->hasEvent && (next == nullptr || s->time < next->time)) next = s.get();
            }
            if (next == nullptr) break;
            out().write(next->event);
            advance(*next);
        }
        for (const std::unique_ptr<Source>& s : sources) {
            if (s->reader.failed()) status = kNegative;
        }
        return status;
    }

    std::vector<std::string> _files;
    bool _json = false, _summary = false, _merge = false;
    std::string _zone, _now, _year, _tolerance, _jump, _future;
    DateParserOptions _options;
    std::uint64_t _lines = 0;
    std::uint64_t _formats[kTimestampFormats] = {};
    std::uint64_t _warnings[kDateWarnings] = {};
};

}  // namespace

void addTimestampCommands(CLI::App& app, Context& context) {
    context.add<TimestampsCommand>(app);
}

}  // namespace vestra::tool
