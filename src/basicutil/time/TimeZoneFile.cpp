// Reading TZif files, versions 1 to 4. The file is never trusted for sizes: every count is
// checked against the bytes that are there before anything is read.
#include <cstring>

#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

namespace {

constexpr std::size_t kHeaderBytes = 44;

struct Header {
    char version;
    std::uint64_t isutCount, isstdCount, leapCount, timeCount, typeCount, charCount;

    std::uint64_t dataBytes(std::uint64_t timeBytes) const noexcept {
        return timeCount * timeBytes + timeCount + typeCount * 6 + charCount + leapCount * (timeBytes + 4) +
               isstdCount + isutCount;
    }
};

std::uint32_t bigEndian32(const unsigned char* p) noexcept {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

std::int64_t signedBigEndian(const unsigned char* p, std::uint64_t bytes) noexcept {
    if (bytes == 4) return static_cast<std::int32_t>(bigEndian32(p));
    return static_cast<std::int64_t>((std::uint64_t{bigEndian32(p)} << 32) | bigEndian32(p + 4));
}

class TzifReader {
  public:
    explicit TzifReader(StrSegment bytes)
        : _p(reinterpret_cast<const unsigned char*>(bytes.data())), _begin(_p), _end(_p + bytes.size()) {}

    // Why read() returned false.
    Status status() const { return _status; }

    bool read(TimeZone::Data& out) {
        Header first{};
        if (!header(first)) return false;
        if (first.version == '\0') return block(first, 4, out) && finished();
        if (!skip(first.dataBytes(4))) return fail("truncated version 1 data");
        Header second{};
        if (!header(second)) return false;
        if (second.version != first.version) return fail("the two headers disagree on the version");
        return block(second, 8, out) && footer(out) && finished();
    }

  private:
    bool fail(const char* what) {
        _status =
            Status::invalid(strprintf("bad zone file: %s", what), static_cast<std::size_t>(_p - _begin));
        return false;
    }
    std::uint64_t left() const noexcept { return static_cast<std::uint64_t>(_end - _p); }
    bool skip(std::uint64_t n) noexcept {
        if (n > left()) return false;
        _p += n;
        return true;
    }

    bool header(Header& h) {
        if (left() < kHeaderBytes) return fail("truncated header");
        if (std::memcmp(_p, "TZif", 4) != 0) return fail("no TZif magic");
        h.version = static_cast<char>(_p[4]);
        if (h.version != '\0' && (h.version < '2' || h.version > '4')) return fail("unknown version");
        const unsigned char* c = _p + 20;
        h.isutCount = bigEndian32(c);
        h.isstdCount = bigEndian32(c + 4);
        h.leapCount = bigEndian32(c + 8);
        h.timeCount = bigEndian32(c + 12);
        h.typeCount = bigEndian32(c + 16);
        h.charCount = bigEndian32(c + 20);
        _p += kHeaderBytes;
        if (h.typeCount == 0 || h.typeCount > 256) return fail("type count outside 1..256");
        if (h.charCount == 0) return fail("no abbreviation bytes");
        if ((h.isutCount != 0 && h.isutCount != h.typeCount) ||
            (h.isstdCount != 0 && h.isstdCount != h.typeCount)) {
            return fail("indicator counts differ from the type count");
        }
        if (h.dataBytes(h.version == '\0' ? 4 : 8) > left()) return fail("counts larger than the file");
        return true;
    }

    bool block(const Header& h, std::uint64_t timeBytes, TimeZone::Data& out) {
        const unsigned char* times = _p;
        const unsigned char* indices = times + h.timeCount * timeBytes;
        const unsigned char* types = indices + h.timeCount;
        const unsigned char* chars = types + h.typeCount * 6;
        const unsigned char* leaps = chars + h.charCount;
        const unsigned char* isstd = leaps + h.leapCount * (timeBytes + 4);
        const unsigned char* isut = isstd + h.isstdCount;
        _p = isut + h.isutCount;

        out.transitions.resize(h.timeCount);
        out.transitionTypes.assign(indices, indices + h.timeCount);
        for (std::uint64_t i = 0; i < h.timeCount; ++i) {
            out.transitions[i] = signedBigEndian(times + i * timeBytes, timeBytes);
        }
        out.abbreviations.assign(reinterpret_cast<const char*>(chars), h.charCount);
        if (chars[h.charCount - 1] != '\0') out.abbreviations.push_back('\0');
        out.types.resize(h.typeCount);
        for (std::uint64_t i = 0; i < h.typeCount; ++i) {
            const unsigned char* t = types + i * 6;
            if (t[4] > 1) return fail("a daylight flag other than 0 or 1");
            if (t[5] >= h.charCount) return fail("an abbreviation index past the abbreviations");
            out.types[i] = {static_cast<std::int32_t>(bigEndian32(t)), t[4] == 1, t[5]};
        }
        out.leaps.resize(h.leapCount);
        for (std::uint64_t i = 0; i < h.leapCount; ++i) {
            const unsigned char* l = leaps + i * (timeBytes + 4);
            out.leaps[i] = {signedBigEndian(l, timeBytes),
                            static_cast<std::int32_t>(bigEndian32(l + timeBytes))};
        }
        if (!leapsValid(out.leaps, h.version)) return fail("leap-second records out of order or out of step");
        for (std::uint64_t i = 0; i < h.typeCount; ++i) {
            if ((h.isstdCount != 0 && isstd[i] > 1) || (h.isutCount != 0 && isut[i] > 1) ||
                (h.isutCount != 0 && isut[i] == 1 && (h.isstdCount == 0 || isstd[i] == 0))) {
                return fail("bad standard/UT indicators");
            }
        }
        return true;
    }

    // Ascending, one second added or taken at a time; version 4 may start the table anywhere
    // and end it with an expiry record that repeats the last correction.
    static bool leapsValid(const std::vector<TimeZone::LeapSecond>& leaps, char version) noexcept {
        for (std::size_t i = 0; i < leaps.size(); ++i) {
            const std::int64_t previous = i == 0 ? 0 : leaps[i - 1].correction;
            const std::int64_t step = leaps[i].correction - previous;
            const bool expiry = version >= '4' && i > 0 && i + 1 == leaps.size() && step == 0;
            if (i > 0 && leaps[i].occurrence <= leaps[i - 1].occurrence) return false;
            if (i == 0 && version >= '4') continue;
            if (step != 1 && step != -1 && !expiry) return false;
        }
        return true;
    }

    bool footer(TimeZone::Data& out) {
        if (left() == 0 || *_p != '\n') return fail("no footer");
        const auto* close = static_cast<const unsigned char*>(std::memchr(_p + 1, '\n', left() - 1));
        if (close == nullptr) return fail("unterminated footer");
        out.rule.assign(reinterpret_cast<const char*>(_p + 1), static_cast<size_type>(close - _p - 1));
        _p = close + 1;
        return true;
    }

    bool finished() { return left() == 0 || fail("bytes after the data"); }

    const unsigned char* _p;
    const unsigned char* _begin;
    const unsigned char* _end;
    Status _status;
};

}  // namespace

Status parseTzif(StrSegment bytes, TimeZone::Data& out) {
    TzifReader reader(bytes);
    if (!reader.read(out)) return reader.status();
    return checkTimeZoneData(out);
}

}  // namespace basicutil
