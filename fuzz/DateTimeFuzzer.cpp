// Time formats: arbitrary format text compiled, arbitrary times rendered, arbitrary text parsed
// and resolved; and every standard format reads back what it renders.
#include <cstring>
#include <string>

#include "FuzzReference.h"
#include "basicutil/time/DateTime.h"

using namespace basicutil;

namespace {

TimeZonePtr ruled(const char* rule) {
    TimeZonePtr zone;
    FUZZ_CHECK(TimeZone::fromPosixRule(rule, zone).ok());
    return zone;
}

const TimeZone& zoneFor(std::uint8_t selector) {
    static const TimeZonePtr zones[] = {TimeZone::utc(), ruled("<+0545>-5:45"),
                                        ruled("EST5EDT,M3.2.0,M11.1.0")};
    return *zones[selector % 3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 10) return 0;
    std::int64_t seconds = 0;
    std::memcpy(&seconds, data, 8);
    const TimeZone& zone = zoneFor(data[8]);
    const std::string_view rest(reinterpret_cast<const char*>(data + 9), size - 9);
    const std::size_t split = rest.find('\x01');
    const std::string_view formatText = rest.substr(0, split);
    const std::string_view text = split == std::string_view::npos ? rest : rest.substr(split + 1);

    const TimeFormat format{StrSegment(formatText)};
    Str out;
    format.render({seconds, static_cast<std::int64_t>(static_cast<std::uint64_t>(seconds) % 1000000)}, zone,
                  out);
    FUZZ_CHECK(format.valid() || out.empty());
    TimeFormatRawParseResult parsed;
    if (format.rawParse(StrSegment(text), parsed)) {
        Timeval tv;
        static_cast<void>(tv._set(parsed, zone, {seconds, 0}));
    }

    // The standard formats read back what they write, within the years they can carry.
    // Years 1000 to 9999 in every zone (%Y reads four digits); not the zero time, which renders
    // as "<zero>".
    constexpr std::int64_t kFirst = -30610224000 + 86400, kEnd = 253402300800 - 86400;
    const std::int64_t t = kFirst + floorMod(seconds, kEnd - kFirst);
    if (t == 0) return 0;
    for (std::size_t i = 0; i < 6; ++i) {
        const std::string source = kStandardTimeFormatTexts[i];
        if (source.find("%y") != std::string::npos && (t < -31536000 || t >= 3124224000)) continue;
        const bool literalGmt = source.find("GMT") != std::string::npos;
        const TimeZone& in = literalGmt ? *TimeZone::utc() : zone;
        if (source.find("%z") == std::string::npos && source.find("%:z") == std::string::npos) {
            // Without an offset, a local time that a transition repeats reads as its first instant.
            CivilTime civil;
            LocalTimeResolution resolved;
            FUZZ_CHECK(in.breakDown(t, civil));
            FUZZ_CHECK(in.resolveLocal(civil.year, civil.month, civil.day, civil.hour, civil.minute,
                                       civil.second, resolved));
            if (resolved.kind != LocalTimeResolution::UNIQUE) continue;
        }
        const Timeval tv{t, 456789};
        Str rendered;
        TimeFormat::standard(i).render(tv, in, rendered);
        TimeFormatRawParseResult r;
        FUZZ_CHECK(TimeFormat::standard(i).rawParse(rendered, r));
        Timeval back;
        FUZZ_CHECK(back._set(r, in, tv));
        FUZZ_CHECK(back.tv_sec == t);
    }
    return 0;
}
