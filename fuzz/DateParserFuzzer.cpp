// Arbitrary bytes as lines of one log. Checks: no crash and no assertion; a timestamp found lies
// inside its line; a reading that needed nothing from the stream (its year, date, zone and
// day-month order all written in the line) is what a fresh parser reads from the same line, and
// what one reads from the timestamp's text alone: the stream's shortcuts (the previous line's
// layout and hour) change nothing.
#include <cstddef>
#include <cstdint>

#include "FuzzReference.h"
#include "basicutil/dateparser/DateParser.h"
#include "basicutil/log/Logger.h"

using namespace basicutil;

namespace {

DateParserOptions fuzzOptions() {
    DateParserOptions options;
    options.zone = TimeZone::utc();
    options.reference = Timeval{1718452800, 0};
    return options;
}

bool selfContained(const DateParseResult& r) {
    return !r.warnings.has(DATE_WARN_YEAR_INFERRED) && !r.warnings.has(DATE_WARN_DATE_BORROWED) &&
           r.format != TimestampFormat::NUMERIC_SLASHED;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        dateParserChannel().setThreshold(LOG_EMERG + 1);
        dateParserVerboseChannel().setThreshold(LOG_EMERG + 1);
        return true;
    }();
    (void)quiet;
    const DateParserOptions options = fuzzOptions();
    DateParser stream(options);
    const char* text = reinterpret_cast<const char*>(data);
    std::size_t start = 0;
    while (start <= size) {
        std::size_t end = start;
        while (end < size && text[end] != '\n') ++end;
        const StrSegment line(text + start, end - start);
        const DateParseResult r = stream.parse(line);
        FUZZ_CHECK(r.found != r.warnings.has(DATE_WARN_NO_TIMESTAMP));
        if (r.found) {
            FUZZ_CHECK(r.length > 0 && r.offset + r.length <= line.size());
            FUZZ_CHECK(r.format != TimestampFormat::NONE);
            FUZZ_CHECK(r.time.tv_usec >= 0 && r.time.tv_usec < 1000000);
            if (selfContained(r)) {
                DateParser fresh(options);
                const DateParseResult again = fresh.parse(line);
                FUZZ_CHECK(again.found && again.time == r.time && again.offset == r.offset &&
                           again.length == r.length && again.format == r.format);
                DateParser alone(options);
                const DateParseResult just = alone.parse(StrSegment(line.data() + r.offset, r.length));
                // Epoch numbers and a time of day stand only at a line's start or after a key:
                // alone, they are at the start.
                FUZZ_CHECK(just.found && just.time == r.time && just.offset == 0 && just.length == r.length);
            }
        }
        start = end + 1;
    }
    return 0;
}
