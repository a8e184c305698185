#include "basicutil/time/DateTime.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "support/test-platform.h"
#include "support/zones.h"

namespace basicutil {
namespace {

using vestra::test_zones::loadZone;
using vestra::test_zones::ruleZone;

// Instants that exercise the calendar: before 1970, leap days, the ISO week-year boundaries
// (2014-12-29 is 2015-W01, 2016-01-03 is 2015-W53, 2021-01-03 is 2020-W53, 2024-12-30 is
// 2025-W01), midnight and noon for the 12-hour clock, and a year below 1000.
const std::int64_t kInstants[] = {-2,
                                  -86400 * 365 - 1,
                                  951782400 /* 2000-02-29 */,
                                  1709208000 /* 2024-02-29 12:00 */,
                                  1419811200,
                                  1451779200,
                                  1609632000,
                                  1735516800,
                                  1700000000,
                                  1704067199 /* 2023-12-31 23:59:59 */,
                                  -31000000000,
                                  1720000000,
                                  1000000000,
                                  2147483648,
                                  -2208988800 /* 1900-01-01 */,
                                  4102444800 /* 2100-01-01 */,
                                  1609416000 /* 2020-12-31 12:00, the last day of a leap year: 2020-W53 */};

std::string rendered(const TimeFormat& format, std::int64_t t, const TimeZone& zone) {
    Str out;
    format.render({t, 0}, zone, out);
    return out.c_str();
}

std::string cStrftime(const std::string& format, std::int64_t t) {
    const auto tt = static_cast<time_t>(t);
    std::tm tm{};
    EXPECT_NE(localtime_r(&tt, &tm), nullptr);
    char buf[512];
    const std::size_t n = strftime(buf, sizeof buf, format.c_str(), &tm);
    return std::string(buf, n);
}

// Every letter the C library shares with us (the composites among them), under every flag, at
// several widths, in zones with daylight time, half-hour offsets and a POSIX rule.
TEST(DateTimeTest, RendersAsStrftimeOverTheGrid) {
    if (!vestra::test_platform::strftimeIsGlibcs()) GTEST_SKIP() << vestra::test_platform::kNoGnuStrftime;
    const char letters[] = "aAbhBCdeGgHIjklMSmnptPsUWVuwYyZzDFTRrcX";
    const char* const flags[] = {"", "-", "_", "0", "^", "#", "^_", "#-"};
    const char* const widths[] = {"", "1", "3", "12"};
    std::size_t compared = 0;
    for (const char* zoneName : {"UTC", "America/New_York", "Asia/Kolkata", "Australia/Lord_Howe",
                                 "<+0330>-3:30<+0430>,J79/24,J263/24"}) {
        const TimeZonePtr zone = zoneName[0] == '<' ? ruleZone(zoneName) : loadZone(zoneName);
        ASSERT_NE(zone, nullptr) << zoneName;
        setenv("TZ", (zoneName[0] == '<' ? std::string(zoneName) : ":" + std::string(zoneName)).c_str(), 1);
        tzset();
        for (const char* letter = letters; *letter != '\0'; ++letter) {
            for (const char* flag : flags) {
                for (const char* width : widths) {
                    // "^" upper-cases %P here; the C library leaves it as it is.
                    if (*letter == 'P' && flag[0] == '^') continue;
                    const std::string text = std::string("%") + flag + width + *letter;
                    const TimeFormat format{StrSegment(text)};
                    ASSERT_TRUE(format.valid()) << text;
                    for (std::int64_t t : kInstants) {
                        if (zoneName[0] == '<' && t < 31536000)
                            continue;  // the C library reads rules from 1971 on
                        ASSERT_EQ(rendered(format, t, *zone), cStrftime(text, t))
                            << text << " at " << t << " in " << zoneName;
                        ++compared;
                    }
                }
            }
        }
    }
    std::printf("%zu renderings compared with strftime\n", compared);
    unsetenv("TZ");
}

// GNU date's %N at every width, against ours with the same widths and the letters' defaults.
TEST(DateTimeTest, SubsecondsAsGnuDateWritesThem) {
    const std::string widths = "%N|%1N|%2N|%3N|%4N|%5N|%6N|%7N|%8N|%9N|%3N|%6N|%6N|%s";
    const TimeFormat ours("%N|%1N|%2N|%3N|%4N|%5N|%6N|%7N|%8N|%9N|%Q|%f|%q|%s");
    const Timeval times[] = {{1700000000, 123456},  {-2, 750000}, {1700000000, 5},
                             {1700000000, 999999},  {-1, 1},      {86400, 100000},
                             {-31000000000, 999000}};
    {
        Str out;
        TimeFormat("%T.%3Q %UT%3Q %UT").render({-2, 750000}, *TimeZone::utc(), out);
        TimeFormat(" %UT").render({5, 0}, *TimeZone::utc(), out);
        EXPECT_EQ(out.view(), "23:59:58.750 -000000002750 -000000002 0000000005");
    }
    const std::string gnuDate = vestra::test_platform::gnuDate();
    if (gnuDate.empty()) GTEST_SKIP() << vestra::test_platform::kNoGnuDate;
    for (const Timeval& tv : times) {
        const std::string command = gnuDate + " -u -d @" + tv.toDecimal(6) + " +'" + widths + "'";
        FILE* date = popen(command.c_str(), "r");
        ASSERT_NE(date, nullptr);
        char line[256] = {};
        const bool read = std::fgets(line, sizeof line, date) != nullptr;
        ASSERT_EQ(pclose(date), 0) << command;
        ASSERT_TRUE(read) << command;
        std::string expected = line;
        if (!expected.empty() && expected.back() == '\n') expected.pop_back();
        Str out;
        ours.render(tv, *TimeZone::utc(), out);
        EXPECT_EQ(out.view(), expected) << command;
    }
}

// Offsets as %z and %:z write them, down to a lookup made by hand with 100 hours or more, which
// no zone can hold: its hours are written in full.
TEST(DateTimeTest, OffsetsAtTheirLimits) {
    struct Case {
        std::int32_t offset;
        const char* text;  // "%z|%:z"
    } cases[] = {{0, "+0000|+00:00"},
                 {-(3 * 3600 + 30 * 60), "-0330|-03:30"},
                 {93599, "+2559|+25:59"},
                 {100 * 3600 + 30 * 60, "+10030|+100:30"},
                 {-(596 * 3600), "-59600|-596:00"}};
    const TimeFormat format("%z|%:z");
    CivilTime civil;
    ASSERT_TRUE(TimeZone::utc()->breakDown(1700000000, civil));
    for (const Case& c : cases) {
        TimeZoneLookup at;
        at.utcOffset = c.offset;
        Str out;
        format.render({1700000000, 0}, civil, at, out);
        EXPECT_EQ(out.view(), c.text) << c.offset;
    }
}

TEST(DateTimeTest, CompilingFormats) {
    struct Case {
        const char* format;
        bool valid;
        std::size_t atoms;
        const char* rendering;  // of 2023-11-14 22:13:20.123456 UTC
    } cases[] = {
        {"%c", true, 13, "Tue Nov 14 22:13:20 2023"},
        {"%+", true, 15, "Tue Nov 14 22:13:20 UTC 2023"},
        {"%x", true, 7, "Tue Nov 14 2023"},
        {"%D|%F|%T|%X|%R|%r|%v", true, 4 * 5 + 3 + 7 + 5 + 6,
         "11/14/23|2023-11-14|22:13:20|22:13:20|22:13|10:13:20 PM|14-Nov-2023"},
        {"", true, 0, ""},
        {"a%%b", true, 1, "a%b"},
        {"%5%|%-%", true, 1, "%|%"},
        {"%3Q|%Q|%N|%f", true, 7, "123|123|123456000|123456"},
        {"%9N", true, 1, "123456000"},
        {"%Ey|%OH|%:z|%z", true, 7, "23|22|+00:00|+0000"},
        {"%ST|%UT|%S|%U", true, 7, "0CDM90G03LNIG0|1700000000|20|46"},
        {"%", false, 0, ""},
        {"%-", false, 0, ""},
        {"%5", false, 0, ""},
        {"%-Q", false, 0, ""},
        {"%_N", false, 0, ""},
        {"%10N", false, 0, ""},
        {"%20N", false, 0, ""},
        {"%--d", false, 0, ""},
        {"%-_d", false, 0, ""},
        {"%#^a", false, 0, ""},
        {"%E-d", false, 0, ""},
        {"%EOd", false, 0, ""},
        {"%:d", false, 0, ""},
        {"%K", false, 0, ""},
        {"%256d", false, 0, ""},
        // Flags and widths on composites and %z, as the C library does (the grid compares those it
        // has); "^" upper-cases %P, where the C library does not.
        {"%-D|%10T|%^c|%3v|%12v|%#D", true, 19,
         "11/14/23|  22:13:20|TUE NOV 14 22:13:20 2023|14-Nov-2023| 14-Nov-2023|11/14/23"},
        {"%^+|%^10x|%010R|%_8r", true, 7,
         "TUE NOV 14 22:13:20 UTC 2023|TUE NOV 14 2023|0000022:13|10:13:20 PM"},
        {"%_z|%-z|%6z|%_:z|%-:z|%9:z|%^P|%^p|%#P", true, 17,
         "+   0|+0|     +000000| +0:00|+0:00|+00000:00|PM|PM|pm"},
    };
    for (const Case& c : cases) {
        const TimeFormat format(c.format);
        EXPECT_EQ(format.valid(), c.valid) << c.format;
        EXPECT_EQ(format.atomCount(), c.atoms) << c.format;
        Str out;
        format.render({1700000000, 123456}, *TimeZone::utc(), out);
        EXPECT_EQ(out.view(), c.rendering) << c.format;
    }
    Str sentinels;
    const TimeFormat iso("%FT%T");
    for (const Timeval& tv : {Timeval::MIN_TIME, Timeval::MAX_TIME, Timeval{0, 5}})
        iso.render(tv, *TimeZone::utc(), sentinels);
    EXPECT_EQ(sentinels.view(), "<min><max><zero>");
    sentinels.clear();
    for (const Timeval& tv : {Timeval::MIN_TIME, Timeval::MAX_TIME, Timeval{0, 5}}) {
        iso.render(tv, *TimeZone::utc(), sentinels, TimeFormat::SentinelText::CALENDAR);
        sentinels.push_back('|');
    }
    EXPECT_EQ(sentinels.view(),
              "-292277022657-01-27T08:29:52|292277026596-12-04T15:30:07|1970-01-01T00:00:00|");
}

TEST(DateTimeTest, NamedEpochFormats) {
    EXPECT_EQ(TimeFormat::namedFormatNumber("%UT"), 0);
    EXPECT_EQ(TimeFormat::namedFormatNumber("%s.%6Q"), 8);
    EXPECT_EQ(TimeFormat::namedFormatNumber("%ST"), 18);
    EXPECT_EQ(TimeFormat::namedFormatNumber("%s.%6"), -1);
    Str out;
    for (int n : {0, 2, 13, 18, 19, -1}) {
        TimeFormat::appendNamedFormat(n, out);
        out += '|';
    }
    EXPECT_EQ(out.view(),
              "%UT|UT.%3Q|%UT%9Q|%ST|Unknown Vestra Time Format: 19|Unknown Vestra Time Format: -1|");
}

// Parsing against strptime where the two overlap: the fields each finds.
TEST(DateTimeTest, ParsesAsStrptimeReadsTheFields) {
    const char* const formats[] = {
        "%Y-%m-%d %H:%M:%S", "%a %b %e %H:%M:%S %Y", "%d/%m/%y %I:%M %p",   "%A, %d-%B-%Y %T", "%D %R",
        "%j %Y %H",          "%C%y %b %d",           "%B %d %Y %I:%M:%S %p"};
    std::size_t compared = 0;
    for (const char* text : formats) {
        const TimeFormat format(text);
        for (std::int64_t t : kInstants) {
            if (t < -2208988800) continue;  // strptime's %y and %C read 1900 on
            const std::string input = rendered(format, t, *TimeZone::utc());
            std::tm expected{};
            const char* end = strptime(input.c_str(), text, &expected);
            ASSERT_NE(end, nullptr) << input;
            TimeFormatRawParseResult r;
            ASSERT_TRUE(format.rawParse(StrSegment(input), r)) << text << ": " << input;
            Timeval tv;
            ASSERT_TRUE(tv._set(r, *TimeZone::utc(), {0, 0}));
            CivilTime civil;
            ASSERT_TRUE(TimeZone::utc()->breakDown(tv.tv_sec, civil));
            const bool hasDate =
                (r.have & (TimeFormatRawParseResult::HAVE_DAY | TimeFormatRawParseResult::HAVE_YDAY)) != 0;
            if (hasDate && std::string(text) != "%j %Y %H") {  // strptime leaves %j to the caller
                EXPECT_EQ(civil.year - 1900, expected.tm_year) << text << ": " << input;
                EXPECT_EQ(static_cast<int>(civil.month) - 1, expected.tm_mon) << text << ": " << input;
                EXPECT_EQ(static_cast<int>(civil.day), expected.tm_mday) << text << ": " << input;
            }
            EXPECT_EQ(static_cast<int>(civil.hour), expected.tm_hour) << text << ": " << input;
            EXPECT_EQ(static_cast<int>(civil.minute), expected.tm_min) << text << ": " << input;
            ++compared;
        }
    }
    std::printf("%zu parses compared with strptime\n", compared);
}

TEST(DateTimeTest, StandardFormatsRoundTrip) {
    const TimeZonePtr zones[] = {TimeZone::utc(), loadZone("America/New_York"), loadZone("Asia/Kathmandu")};
    for (std::size_t i = 0; i < 6; ++i) {
        const TimeFormat& format = TimeFormat::standard(i);
        ASSERT_TRUE(format.valid()) << kStandardTimeFormatTexts[i];
        const std::string source = kStandardTimeFormatTexts[i];
        const bool literalGmt = source.find("GMT") != std::string::npos;
        const bool twoDigitYear = source.find("%y") != std::string::npos;
        for (const TimeZonePtr& zone : zones) {
            if (literalGmt && zone != zones[0]) continue;  // those formats write UTC under a fixed name
            for (std::int64_t t : kInstants) {
                // What the text cannot carry: a century beside %y, seconds of a local mean time's offset.
                if (twoDigitYear && (t < -31536000 || t >= 3124224000)) continue;
                if (zone->lookup(t).utcOffset % 60 != 0) continue;
                const Timeval tv{t, 123456};
                Str text;
                format.render(tv, *zone, text);
                TimeFormatRawParseResult r;
                ASSERT_TRUE(format.rawParse(text, r)) << text.c_str();
                Timeval back;
                ASSERT_TRUE(back._set(r, *zone, tv)) << text.c_str();
                const bool subseconds = i == 1;
                EXPECT_EQ(back, (Timeval{t, subseconds ? 123000 : 0}))
                    << kStandardTimeFormatTexts[i] << ": " << text.c_str();
            }
        }
    }
}

TEST(DateTimeTest, ParsedFieldsAndFailures) {
    struct Case {
        const char* format;
        const char* text;
        bool ok;
        Timeval expected;
    } cases[] = {
        {"%Y-%m-%dT%H:%M:%S%z", "2023-11-14T17:13:20-0500", true, {1700000000, 0}},
        {"%Y-%m-%dT%H:%M:%S%z", "2023-11-14T22:13:20Z", true, {1700000000, 0}},
        {"%Y-%m-%dT%H:%M:%S%z", "2023-11-14T23:43:20+01:30", true, {1700000000, 0}},
        {"%Y-%m-%d %H:%M:%S %Z", "2023-11-14 16:13:20 CST", true, {1700000000, 0}},  // in Chicago
        {"%Y-%m-%d %H:%M:%S %Z", "2023-11-14 16:13:20 XYZ", false, {}},
        {"%s.%3Q", "-2.750", true, {-2, 750000}},
        {"%UT%3Q", "1700000000123", true, {1700000000, 123000}},
        {"%s%3Q", "1700000000123", true, {1700000000, 123000}},
        {"%ST", "0CDM90G03LNIG0", true, {1700000000, 123456}},
        {"%b %d %H:%M:%S", "nov 14 16:13:20", true, {1700000000, 0}},  // the reference's year
        {"%Y %j", "2024 366", true, {1735624800, 0}},                  // Chicago's midnight
        {"%Y %j", "2023 366", false, {}},
        {"%Y %U %a", "2023 46 Tue", true, {1699941600, 0}},
        {"%G %V %u", "2015 53 7", true, {1451800800, 0}},  // 2016-01-03
        {"%Y-%m-%d", "2023-02-29", false, {}},
        {"%Y-%m-%d", "2023-13-01", false, {}},  // value_too_big
        {"%H:%M", "24:00", false, {}},
        {"%H:%M", "12:60", false, {}},
        {"%Y-%m-%d", "2023-11-14x", false, {}},
        {"%Y-%m-%d", "2023-11", false, {}},
        {"%d %B", "14 Novembre", false, {}},
        {"%d %B", "14 November", true, {1699941600, 0}},  // a whole name that ends the text
        {"%d %B", "14 nov", true, {1699941600, 0}},
        {"%A %d %B %Y", "tuesday 14 NOVEMBER 2023", true, {1699941600, 0}},
        {"%I %p", "12 am", true, {1672552800, 0}},
        {"%Y%t%m", "2023 \t\n 01", true, {1672552800, 0}},
        {"%N", "1234567890", false, {}},
        {"%3N", "12", false, {}},
        {"%F %10T", "2023-11-14   16:13:20", true, {1700000000, 0}},  // a composite as one field
        {"%^c", "TUE NOV 14 16:13:20 2023", true, {1700000000, 0}},
        {"%12D", "2023 11/14/23", false, {}},
    };
    const TimeZonePtr chicago = loadZone("America/Chicago");
    for (const Case& c : cases) {
        const TimeFormat format(c.format);
        ASSERT_TRUE(format.valid()) << c.format;
        TimeFormatRawParseResult r;
        Timeval tv{42, 42};
        const bool ok = format.rawParse(c.text, r) && tv._set(r, *chicago, {1700000000, 0});
        EXPECT_EQ(ok, c.ok) << c.format << " / " << c.text;
        if (c.ok) {
            EXPECT_EQ(tv, c.expected) << c.format << " / " << c.text;
        }
    }
    TimeFormatRawParseResult r;
    ASSERT_TRUE(TimeFormat("%3Q").rawParse("050", r));
    EXPECT_EQ(r.fracsec, (50u * 2 + 1) << 1);  // one leading zero, then "50"
    ASSERT_TRUE(TimeFormat("%Q").rawParse("000", r));
    EXPECT_EQ(r.fracsec, 1u << 3);
    EXPECT_FALSE(TimeFormat("%H:%M").rawParse("12:3x", r));
    EXPECT_EQ(r.have, TimeFormatRawParseResult::HAVE_HOUR | TimeFormatRawParseResult::HAVE_MINUTE);
}

TEST(DateTimeTest, CalendarHelpers) {
    struct Case {
        std::int64_t year;
        unsigned yday, month, day;
    } cases[] = {{2023, 0, 1, 1},  {2023, 58, 2, 28},   {2023, 59, 3, 1},   {2024, 59, 2, 29},
                 {2024, 60, 3, 1}, {2023, 364, 12, 31}, {2024, 365, 12, 31}};
    for (const Case& c : cases) {
        unsigned month = 0, day = 0;
        computeMmddFromYday(c.year, c.yday, month, day);
        EXPECT_EQ(month, c.month) << c.year << "/" << c.yday;
        EXPECT_EQ(day, c.day) << c.year << "/" << c.yday;
    }
    EXPECT_EQ(dayStartTime(2023, 10, 14), 1699920000);
}

TEST(DateTimeDeathTest, HelpersAssertOnImpossibleDays) {
    unsigned month = 0, day = 0;
    EXPECT_DEATH(computeMmddFromYday(2023, 365, month, day), "month < 12");
    EXPECT_DEATH(static_cast<void>(dayStartTime(2023, 12, 1)), "month < 12");
    TimeFormatRawParseResult noYear;
    int yday = 0;
    EXPECT_DEATH(static_cast<void>(computeYdayFromYweek(noYear, yday)), "\\(have & HAVE_YEAR\\) != 0");
}

}  // namespace
}  // namespace basicutil
