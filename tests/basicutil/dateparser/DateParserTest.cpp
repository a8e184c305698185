#include "basicutil/dateparser/DateParser.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "basicutil/dateparser/DateParser_details.h"

namespace basicutil {
namespace {

TimeZonePtr zoneNamed(const std::string& name) {
    TimeZonePtr zone;
    EXPECT_TRUE(TimeZone::load(StrSegment(name), zone)) << name;
    return zone;
}

std::string utcText(Timeval t) {
    Str out;
    appendUtcTimestamp(out, t);
    return std::string(out.view());
}

// Mid-June 2024: lines without a year are read in 2024 unless that would put them later.
const Timeval kReference{1718452800, 0};  // 2024-06-15T12:00:00Z

DateParserOptions optionsIn(const std::string& zone) {
    DateParserOptions options;
    options.zone = zoneNamed(zone);
    options.reference = kReference;
    return options;
}

// One line of each format, each read by a fresh parser; the instants come from Python's datetime
// (format-table.py beside this file), not from the parser.
TEST(DateParserTest, ReadsEachFormat) {
    const struct {
        const char* line;
        const char* zone;
        const char* found;
        const char* format;
        const char* utc;
    } cases[] = {
        {"2024-01-02T03:04:05.678Z GET /", "UTC", "2024-01-02T03:04:05.678Z", "ISO8601",
         "2024-01-02T03:04:05.678000Z"},
        {"2024-01-02T03:04:05.678+01:00 x", "UTC", "2024-01-02T03:04:05.678+01:00", "ISO8601",
         "2024-01-02T02:04:05.678000Z"},
        {"at 2024-01-02T03:04:05-0700 y", "UTC", "2024-01-02T03:04:05-0700", "ISO8601",
         "2024-01-02T10:04:05.000000Z"},
        {"2024-01-02T03:04:05+05", "UTC", "2024-01-02T03:04:05+05", "ISO8601", "2024-01-01T22:04:05.000000Z"},
        {"2024-01-02T03:04:05.1234567Z", "UTC", "2024-01-02T03:04:05.1234567Z", "ISO8601",
         "2024-01-02T03:04:05.123456Z"},
        {"2024-01-02T03:04:05,5 comma", "UTC", "2024-01-02T03:04:05,5", "ISO8601",
         "2024-01-02T03:04:05.500000Z"},
        {"2024-01-02T03:04Z minutes only", "UTC", "2024-01-02T03:04Z", "ISO8601",
         "2024-01-02T03:04:00.000000Z"},
        {"2024-07-02T03:04:05 no zone", "Europe/Paris", "2024-07-02T03:04:05", "ISO8601",
         "2024-07-02T01:04:05.000000Z"},
        {"2024-01-02 03:04:05,678 INFO main", "Europe/Paris", "2024-01-02 03:04:05,678", "ISO8601_SPACE",
         "2024-01-02T02:04:05.678000Z"},
        {"2024-01-02 03:04:05.123 UTC [42] LOG", "Europe/Paris", "2024-01-02 03:04:05.123 UTC",
         "ISO8601_SPACE", "2024-01-02T03:04:05.123000Z"},
        {"2024-01-02 03:04:05 CET x", "UTC", "2024-01-02 03:04:05 CET", "ISO8601_SPACE",
         "2024-01-02T02:04:05.000000Z"},
        {"2024-01-02 03:04:05 +0100 x", "UTC", "2024-01-02 03:04:05 +0100", "ISO8601_SPACE",
         "2024-01-02T02:04:05.000000Z"},
        {"Start-Date: 2025-06-24  14:36:25", "Europe/Paris", "2025-06-24  14:36:25", "ISO8601_SPACE",
         "2025-06-24T12:36:25.000000Z"},
        {"20240102T030405Z basic", "UTC", "20240102T030405Z", "ISO8601_BASIC", "2024-01-02T03:04:05.000000Z"},
        {"20240102T030405.25+0130", "UTC", "20240102T030405.25+0130", "ISO8601_BASIC",
         "2024-01-02T01:34:05.250000Z"},
        {"2024/01/02 03:04:05 [error] 7#7: open()", "America/New_York", "2024/01/02 03:04:05", "YMD_SLASHED",
         "2024-01-02T08:04:05.000000Z"},
        {"Tue, 02 Jan 2024 03:04:05 +0000", "Europe/Paris", "Tue, 02 Jan 2024 03:04:05 +0000", "RFC2822",
         "2024-01-02T03:04:05.000000Z"},
        {"Date: Tue, 2 Jan 2024 03:04:05 GMT", "Europe/Paris", "Tue, 2 Jan 2024 03:04:05 GMT", "RFC2822",
         "2024-01-02T03:04:05.000000Z"},
        {"02 Jan 2024 03:04:05 -0500 msg", "UTC", "02 Jan 2024 03:04:05 -0500", "RFC2822",
         "2024-01-02T08:04:05.000000Z"},
        {"Jan  2 03:04:05 host sshd[1]: ok", "UTC", "Jan  2 03:04:05", "SYSLOG",
         "2024-01-02T03:04:05.000000Z"},
        {"<13>Mar 10 14:15:16 host app: x", "UTC", "Mar 10 14:15:16", "SYSLOG",
         "2024-03-10T14:15:16.000000Z"},
        {"Jan  2 03:04:05 2023 host", "UTC", "Jan  2 03:04:05 2023", "SYSLOG", "2023-01-02T03:04:05.000000Z"},
        {"10.0.0.1 - - [02/Jan/2024:03:04:05 -0700] \"GET / HTTP/1.1\" 200", "UTC",
         "02/Jan/2024:03:04:05 -0700", "CLF", "2024-01-02T10:04:05.000000Z"},
        {"Tue Jan  2 03:04:05 2024", "Asia/Tokyo", "Tue Jan  2 03:04:05 2024", "ASCTIME",
         "2024-01-01T18:04:05.000000Z"},
        {"Tue Jan  2 03:04:05 UTC 2024", "Asia/Tokyo", "Tue Jan  2 03:04:05 UTC 2024", "ASCTIME",
         "2024-01-02T03:04:05.000000Z"},
        {"01/02/2024 03:04:05 PM x", "UTC", "01/02/2024 03:04:05 PM", "NUMERIC_SLASHED",
         "2024-01-02T15:04:05.000000Z"},
        {"1/2/2024, 12:04:05 AM", "UTC", "1/2/2024, 12:04:05 AM", "NUMERIC_SLASHED",
         "2024-01-02T00:04:05.000000Z"},
        {"25/12/2024 03:04:05 day first", "UTC", "25/12/2024 03:04:05", "NUMERIC_SLASHED",
         "2024-12-25T03:04:05.000000Z"},
        {"02.01.2024 03:04:05 dotted", "UTC", "02.01.2024 03:04:05", "NUMERIC_DOTTED",
         "2024-01-02T03:04:05.000000Z"},
        {"240102  3:04:05 mysqld", "UTC", "240102  3:04:05", "MYSQL", "2024-01-02T03:04:05.000000Z"},
        {"240102 13:04:05 mysqld", "UTC", "240102 13:04:05", "MYSQL", "2024-01-02T13:04:05.000000Z"},
        {"1704164645 event", "Europe/Paris", "1704164645", "EPOCH_SECONDS", "2024-01-02T03:04:05.000000Z"},
        {"1704164645.5 event", "Europe/Paris", "1704164645.5", "EPOCH_SECONDS",
         "2024-01-02T03:04:05.500000Z"},
        {"level=info ts=1704164645123 msg=x", "UTC", "1704164645123", "EPOCH_MILLIS",
         "2024-01-02T03:04:05.123000Z"},
        {"{\"level\":\"info\",\"ts\":1704164645.123456,\"msg\":\"x\"}", "UTC", "1704164645.123456",
         "EPOCH_SECONDS", "2024-01-02T03:04:05.123456Z"},
        {"{\"time\": 1704164645123456, \"m\": 1}", "UTC", "1704164645123456", "EPOCH_MICROS",
         "2024-01-02T03:04:05.123456Z"},
        {"1704164645123456789 nanos", "UTC", "1704164645123456789", "EPOCH_NANOS",
         "2024-01-02T03:04:05.123456Z"},
        {"{\"@timestamp\":\"2024-01-02T03:04:05.000Z\"}", "UTC", "2024-01-02T03:04:05.000Z", "ISO8601",
         "2024-01-02T03:04:05.000000Z"},
        {"<34>1 2024-01-02T03:04:05.003Z host app 1 ID47 - msg", "UTC", "2024-01-02T03:04:05.003Z", "ISO8601",
         "2024-01-02T03:04:05.003000Z"},
    };
    for (const auto& c : cases) {
        DateParser parser(optionsIn(c.zone));
        const DateParseResult r = parser.parse(StrSegment(c.line));
        ASSERT_TRUE(r.found) << c.line;
        EXPECT_EQ(std::string(c.line).substr(r.offset, r.length), c.found) << c.line;
        EXPECT_STREQ(timestampFormatName(r.format), c.format) << c.line;
        EXPECT_EQ(utcText(r.time), c.utc) << c.line;
        EXPECT_FALSE(r.warnings.has(DATE_WARN_NO_TIMESTAMP)) << c.line;
    }
}

// What only looks like a timestamp is none.
TEST(DateParserTest, NoFalseTimestamps) {
    const std::string lines[] = {
        "connected to 192.168.1.10 port 22",
        "version 1.2.3 and 2.4.10 released",
        "took 12:30 minutes",
        "elapsed 00:12:30 of 01:00:00",
        "call +1 555-123-4567 or 555-1234",
        "id deadbeef20240102T030405 and 0x2024010203",
        "wrote 1704164645 bytes",
        "size=1704164645123",
        "2024-13-02T03:04:05Z month 13",
        "2024-02-30 03:04:05 no such day",
        "2023-02-29T03:04:05Z not a leap year",
        "2024-01-02T25:04:05Z hour 25",
        "2024-01-02 03:61:00 minute 61",
        "2024-01-02T03:04:05.1234567890Z ten fraction digits",
        "2024-01-02 only a date",
        "v2024-01-02T03:04:05Z glued to a word",
        "2024-01-02T03:04:05Zulu glued after",
        "1.2024-01-02T03:04:05Z after a dot",
        "Jan 32 03:04:05 no such day",
        "Janus 2 03:04:05 not a month",
        "13/13/2024 03:04:05 no such month either way",
        "<34>1 - host app - - 2024-01-02T03:04:05Z in the message",
        "12345678901 eleven digits",
        "03:04 no seconds",
        "",
        std::string("\0\0 03:04:05 \0", 13),
    };
    for (const std::string& line : lines) {
        DateParser parser(optionsIn("UTC"));
        const DateParseResult r = parser.parse(StrSegment(line));
        EXPECT_FALSE(r.found) << line << " -> " << line.substr(r.offset, r.length);
        EXPECT_TRUE(r.warnings.has(DATE_WARN_NO_TIMESTAMP)) << line;
    }
}

// The leftmost timestamp wins, whatever the formats.
TEST(DateParserTest, LeftmostWins) {
    DateParser parser(optionsIn("UTC"));
    const std::string line = "Jan  2 03:04:05 host app: started 2024-05-06T07:08:09Z";
    const DateParseResult r = parser.parse(StrSegment(line));
    ASSERT_TRUE(r.found);
    EXPECT_EQ(r.offset, 0u);
    EXPECT_EQ(r.format, TimestampFormat::SYSLOG);
    // A short number where the previous line had an epoch number is none.
    DateParser epochs(optionsIn("UTC"));
    ASSERT_TRUE(epochs.parse(StrSegment("1704164645 first")).found);
    EXPECT_FALSE(epochs.parse(StrSegment("169 items")).found);
    // The next line has the ISO one further left than where the stream's format stood.
    const DateParseResult next = parser.parse(StrSegment("2024-05-06T07:08:09Z then Jan  2 03:04:05"));
    EXPECT_EQ(next.offset, 0u);
    EXPECT_EQ(next.format, TimestampFormat::ISO8601);
}

// Bad input: no crash, no assertion, and time linear in the length: a line twice as long takes
// about twice as long, whatever it repeats (runs the scanner could try at every position).
TEST(DateParserTest, BadInputIsReadInLinearTime) {
    const std::string pieces[] = {
        "9",                     // a million digits
        "1/1/",                  // slashed dates that never end
        "2024-01-02T03:04:",     // ISO that never ends
        "Jan  2 03:04:05",       // syslog glued to itself: never clean
        "Tue, ",                 // a weekday, then another
        "\xff\xfe\x80",          // invalid UTF-8
        std::string("\0\0", 2),  // NUL bytes
        "12:34:56.",             // times and dots
    };
    for (const std::string& piece : pieces) {
        double seconds[2] = {};
        for (int k = 0; k < 2; ++k) {
            std::string line;
            while (line.size() < (std::size_t{1} << (20 + k))) line += piece;
            DateParser parser(optionsIn("UTC"));
            const auto start = std::chrono::steady_clock::now();
            const DateParseResult r = parser.parse(StrSegment(line));
            seconds[k] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (r.found) {
                EXPECT_LE(r.offset + r.length, line.size());
            }
        }
        EXPECT_LT(seconds[1], 2.0) << piece;
        EXPECT_LT(seconds[1], 4 * seconds[0] + 0.05)
            << piece << ": " << seconds[0] << " s, then " << seconds[1];
    }
}

// The pre-test that lets a line without a colon or a run of eight digits go unscanned, against its
// plain definition, with the runs at every place around the 16-byte blocks it reads.
TEST(DateParserTest, LinesThatCannotHoldATimestamp) {
    const auto plain = [](const std::string& line) {
        std::size_t run = 0;
        for (const char c : line) {
            if (c == ':') return true;
            run = c >= '0' && c <= '9' ? run + 1 : 0;
            if (run >= 8) return true;
        }
        return false;
    };
    for (std::size_t length = 0; length <= 40; ++length) {
        for (std::size_t at = 0; at <= length; ++at) {
            for (std::size_t run = 6; run <= 9; ++run) {
                std::string line(length, 'x');
                for (std::size_t k = at; k < at + run && k < length; ++k)
                    line[k] = static_cast<char>('0' + k % 10);
                EXPECT_EQ(date_parser_details::mayHoldTimestamp(line.data(), line.size()), plain(line))
                    << line;
                if (at < length) {
                    line[at] = ':';
                    EXPECT_TRUE(date_parser_details::mayHoldTimestamp(line.data(), line.size())) << line;
                }
            }
        }
    }
}

// The warnings of a result, by name, in the enum's order.
std::string warningsOf(const DateParseResult& r) {
    std::string out;
    for (std::size_t w = 0; w < kDateWarnings; ++w) {
        if (!r.warnings.has(static_cast<DateWarning>(w))) continue;
        if (!out.empty()) out += ' ';
        out += dateWarningName(static_cast<DateWarning>(w));
    }
    return out;
}

// Streams: each line's instant and warnings, what is inferred and what is checked against the
// previous event. The instants were worked out by hand and with Python's datetime.
TEST(DateParserTest, StreamsInferAndCheck) {
    struct Line {
        const char* text;
        const char* utc;  // "" for none found
        const char* warnings;
    };
    struct Stream {
        const char* name;
        const char* zone;
        Timeval reference;
        std::vector<Line> lines;
    };
    const Timeval june2025{1749988800, 0};  // 2025-06-15T12:00:00Z
    const std::vector<Stream> streams = {
        {"New Year, without a year",
         "UTC",
         kReference,
         {{"Dec 31 23:59:58 a", "2023-12-31T23:59:58.000000Z", "YEAR_INFERRED ZONE_ASSUMED"},
          {"Jan  1 00:00:01 b", "2024-01-01T00:00:01.000000Z", "YEAR_INFERRED ZONE_ASSUMED"},
          {"Dec 31 23:59:59 late", "2023-12-31T23:59:59.000000Z",
           "WENT_BACKWARDS YEAR_INFERRED ZONE_ASSUMED"}}},
        {"February 29 takes the latest leap year not after the reference",
         "UTC",
         june2025,
         {{"Feb 29 10:00:00 x", "2024-02-29T10:00:00.000000Z", "YEAR_INFERRED ZONE_ASSUMED"}}},
        {"backwards within the tolerance and beyond, forward past the limit",
         "UTC",
         kReference,
         {{"2024-01-02T03:04:05.900Z", "2024-01-02T03:04:05.900000Z", ""},
          {"2024-01-02T03:04:05.000Z", "2024-01-02T03:04:05.000000Z", ""},
          {"2024-01-02T03:04:01.000Z", "2024-01-02T03:04:01.000000Z", "WENT_BACKWARDS"},
          {"2024-01-03T03:04:02.000Z", "2024-01-03T03:04:02.000000Z", "JUMPED_FORWARD"},
          {"no time here", "", "NO_TIMESTAMP"},
          {"2024-01-03T03:04:03.000Z", "2024-01-03T03:04:03.000000Z", ""}}},
        {"the future, and a format change",
         "UTC",
         kReference,
         {{"2024-06-15T12:04:00Z", "2024-06-15T12:04:00.000000Z", ""},
          {"2024-06-15T12:06:00Z", "2024-06-15T12:06:00.000000Z", "IN_FUTURE"},
          {"Jun 15 12:03:00 syslog", "2024-06-15T12:03:00.000000Z",
           "WENT_BACKWARDS FORMAT_CHANGED YEAR_INFERRED ZONE_ASSUMED"}}},
        {"day first once a first field is above 12",
         "UTC",
         kReference,
         {{"01/02/2024 03:04:05", "2024-01-02T03:04:05.000000Z", "ZONE_ASSUMED DAY_MONTH_AMBIGUOUS"},
          {"13/02/2024 03:04:05", "2024-02-13T03:04:05.000000Z", "JUMPED_FORWARD ZONE_ASSUMED"},
          {"01/03/2024 03:04:05", "2024-03-01T03:04:05.000000Z", "JUMPED_FORWARD ZONE_ASSUMED"}}},
        {"month first once a second field is above 12",
         "UTC",
         kReference,
         {{"01/13/2024 03:04:05", "2024-01-13T03:04:05.000000Z", "ZONE_ASSUMED"},
          {"01/14/2024 03:04:05", "2024-01-14T03:04:05.000000Z", "ZONE_ASSUMED"},
          {"02/01/2024 03:04:05", "2024-02-01T03:04:05.000000Z", "JUMPED_FORWARD ZONE_ASSUMED"}}},
        {"a time of day alone borrows the date, over midnight",
         "UTC",
         kReference,
         {{"2024-01-02T23:59:59Z start", "2024-01-02T23:59:59.000000Z", ""},
          {"00:00:01.250 next", "2024-01-03T00:00:01.250000Z", "FORMAT_CHANGED ZONE_ASSUMED DATE_BORROWED"},
          {"[00:00:02] next", "2024-01-03T00:00:02.000000Z", "ZONE_ASSUMED DATE_BORROWED"}}},
        {"the first time of day alone borrows the reference date",
         "UTC",
         kReference,
         {{"11:00:00 before noon", "2024-06-15T11:00:00.000000Z", "ZONE_ASSUMED DATE_BORROWED"}}},
        {"a zone by its abbreviation, and one with several meanings",
         "Asia/Shanghai",
         kReference,
         {{"2024-01-02 03:04:05 CST a", "2024-01-01T19:04:05.000000Z", "ZONE_ABBREVIATION_AMBIGUOUS"},
          {"2024-01-02 03:04:05 PST b", "2024-01-02T11:04:05.000000Z", ""},
          {"2024-01-02 03:04:05 INFO c", "2024-01-01T19:04:05.000000Z", "WENT_BACKWARDS ZONE_ASSUMED"}}},
        {"the zone's transitions: a repeated hour is its earlier instant, a skipped one reads as before",
         "Europe/Paris",
         june2025,
         {{"2024-10-27 02:30:00 repeated", "2024-10-27T00:30:00.000000Z", "ZONE_ASSUMED"},
          {"2024-03-31 02:30:00 skipped", "2024-03-31T01:30:00.000000Z", "WENT_BACKWARDS ZONE_ASSUMED"},
          {"2024-07-02 03:04:05 summer", "2024-07-02T01:04:05.000000Z", "JUMPED_FORWARD ZONE_ASSUMED"}}},
    };
    for (const Stream& stream : streams) {
        DateParserOptions options = optionsIn(stream.zone);
        options.reference = stream.reference;
        DateParser parser(options);
        Timeval previous;
        bool hasPrevious = false;
        for (const Line& line : stream.lines) {
            const DateParseResult r = parser.parse(StrSegment(line.text));
            EXPECT_EQ(r.found ? utcText(r.time) : "", line.utc) << stream.name << ": " << line.text;
            EXPECT_EQ(warningsOf(r), line.warnings) << stream.name << ": " << line.text;
            // A check warning says what it was compared with.
            EXPECT_EQ(r.hasPrevious, hasPrevious) << stream.name << ": " << line.text;
            if (hasPrevious) {
                EXPECT_EQ(r.previous, previous) << stream.name << ": " << line.text;
            }
            if (r.found) {
                previous = r.time;
                hasPrevious = true;
            }
        }
    }
}

}  // namespace
}  // namespace basicutil
