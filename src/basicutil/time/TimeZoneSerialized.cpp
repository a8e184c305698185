// The serialized text form of a zone, how a zone travels with data to a machine that lacks it.
// Each zone has exactly one text (numbers without leading zeros or "+"), so texts compare too:
//
//   ### SERIALIZED TIMEZONE FORMAT 1.0
//   name America/New_York
//   types 2                     then one line per type: offset, daylight flag, abbreviation
//   -18000 0 EST
//   -14400 1 EDT
//   transitions 1               then one line per transition: time, type index
//   -2717650800 0
//   leapseconds 0               then one line per record: occurrence, correction
//   rule EST5EDT,M3.2.0,M11.1.0 (the rest of the line; empty when there is none)
//   end
#include "basicutil/text/BasicConversions.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

Str TimeZone::serialize() const {
    Str out;
    appendf(out, "%s\nname %s\ntypes %zu\n", kSerializedTimeZoneHeader, _name.view(), _fileTypes);
    for (std::size_t i = 0; i < _fileTypes; ++i) {
        const Type& t = _types[i];
        appendf(out, "%d %d %s\n", t.utcOffset, t.isDst ? 1 : 0, _abbreviations.c_str() + t.abbreviation);
    }
    appendf(out, "transitions %zu\n", _transitions.size());
    for (std::size_t i = 0; i < _transitions.size(); ++i) {
        appendf(out, "%lld %u\n", static_cast<long long>(_transitions[i]), unsigned{_transitionTypes[i]});
    }
    appendf(out, "leapseconds %zu\n", _leaps.size());
    for (const LeapSecond& l : _leaps) {
        appendf(out, "%lld %lld\n", static_cast<long long>(l.occurrence),
                static_cast<long long>(l.correction));
    }
    appendf(out, "rule %s\nend\n", _ruleText.view());
    return out;
}

namespace {

class SerializedReader {
  public:
    explicit SerializedReader(StrSegment text) : _rest(text) {}

    // Why read() returned false.
    Status status() const { return _status; }

    bool read(TimeZone::Data& out) {
        StrSegment value;
        std::uint64_t count = 0;
        if (!line(value) || value.view() != kSerializedTimeZoneHeader) return fail("no header line");
        if (!keyed("name", value)) return false;
        out.name = Str(value);
        if (!counted("types", 256, count)) return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::int64_t offset = 0, dst = 0;
            if (!line(value) || !number(value, offset) || !number(value, dst) || (dst != 0 && dst != 1) ||
                offset < INT32_MIN || offset > INT32_MAX) {
                return fail("a bad type line");
            }
            for (char c : value.view()) {
                if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
                    return fail("a control byte in an abbreviation");
            }
            out.types.push_back({static_cast<std::int32_t>(offset), dst == 1,
                                 static_cast<std::uint32_t>(out.abbreviations.size())});
            out.abbreviations.append(value);
            out.abbreviations.push_back('\0');
        }
        if (!counted("transitions", _rest.size() / 4, count)) return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::int64_t at = 0, type = 0;
            if (!line(value) || !number(value, at) || !lastNumber(value, type) || type < 0 || type > 255) {
                return fail("a bad transition line");
            }
            out.transitions.push_back(at);
            out.transitionTypes.push_back(static_cast<std::uint8_t>(type));
        }
        if (!counted("leapseconds", _rest.size() / 4, count)) return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::int64_t at = 0, correction = 0;
            if (!line(value) || !number(value, at) || !lastNumber(value, correction))
                return fail("a bad leap-second line");
            out.leaps.push_back({at, correction});
        }
        if (!keyed("rule", value, true)) return false;
        out.rule = Str(value);
        if (!line(value) || value.view() != "end" || !_rest.empty())
            return fail("no end line, or text after it");
        return true;
    }

  private:
    bool fail(const char* what) {
        _status = Status::invalid(strprintf("bad serialized zone at line %llu: %s",
                                            static_cast<unsigned long long>(_lineNumber), what));
        return false;
    }

    bool line(StrSegment& out) noexcept {
        if (_rest.empty()) return false;
        const auto* newline = static_cast<const char*>(std::memchr(_rest.data(), '\n', _rest.size()));
        if (newline == nullptr) return false;  // every line ends with one
        out = StrSegment(_rest.data(), static_cast<size_type>(newline - _rest.data()));
        _rest.setBegin(newline + 1);
        ++_lineNumber;
        return true;
    }

    // "key value"; the value may be empty only when allowed.
    bool keyed(std::string_view key, StrSegment& value, bool mayBeEmpty = false) {
        StrSegment text;
        if (!line(text)) return fail("missing line");
        const std::string_view v = text.view();
        const std::size_t shortest = key.size() + (mayBeEmpty ? 1 : 2);
        if (v.size() < shortest || v.substr(0, key.size()) != key || v[key.size()] != ' ') {
            return fail("unexpected line");
        }
        value = StrSegment(text.data() + key.size() + 1, text.size() - key.size() - 1);
        return true;
    }

    bool counted(std::string_view key, std::uint64_t limit, std::uint64_t& count) {
        StrSegment value;
        if (!keyed(key, value)) return false;
        std::int64_t n = 0;
        if (!signedField(value, n) || n < 0 || static_cast<std::uint64_t>(n) > limit)
            return fail("a count out of range");
        count = static_cast<std::uint64_t>(n);
        return true;
    }

    // A signed decimal followed by one blank; the view moves past both.
    static bool number(StrSegment& text, std::int64_t& out) noexcept {
        const auto* blank = static_cast<const char*>(std::memchr(text.data(), ' ', text.size()));
        if (blank == nullptr) return false;
        StrSegment field(text.data(), static_cast<size_type>(blank - text.data()));
        text.setBegin(blank + 1);
        return signedField(field, out);
    }
    static bool lastNumber(StrSegment text, std::int64_t& out) noexcept { return signedField(text, out); }
    // Written one way only: digits without leading zeros, "-" before non-zero values.
    static bool signedField(StrSegment field, std::int64_t& out) noexcept {
        const bool negative = !field.empty() && field[0] == '-';
        if (negative) field.setBegin(field.begin() + 1);
        if (field.empty() || (field[0] == '0' && (field.size() > 1 || negative))) return false;
        for (char c : field.view()) {
            if (c < '0' || c > '9') return false;
        }
        std::uint64_t magnitude = 0;
        const std::uint64_t limit = negative ? std::uint64_t{1} << 63 : (std::uint64_t{1} << 63) - 1;
        if (!parse_unsigned_val(field.begin(), field.end(), magnitude, limit)) return false;
        out = negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
        return true;
    }

    StrSegment _rest;
    Status _status;
    std::uint64_t _lineNumber = 0;
};

}  // namespace

Status parseSerializedTimeZone(StrSegment text, TimeZone::Data& out) {
    SerializedReader reader(text);
    if (!reader.read(out)) return reader.status();
    return checkTimeZoneData(out);
}

}  // namespace basicutil
