#include "basicutil/time/TimeZone.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstring>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "basicutil/time/TimeZoneArchive.h"
#include "basicutil/time/TimeZonePack.h"
#include "basicutil/time/TimeZoneStructTm.h"
#include "basicutil/time/TimeZoneWindows.h"
#include "support/LogCapture.h"
#include "support/test-platform.h"
#include "support/zones.h"

namespace basicutil {
namespace {

using namespace vestra::test_zones;

constexpr std::int64_t H = 3600;

std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string zonePath(const char* name) {
    return std::string(TimeZone::directory().c_str()) + "/" + name;
}

TEST(TimeZoneCalendarTest, CivilDaysRoundTripAndRulesFindTheirDays) {
    // Around 1970 and on both sides of the switch from 32-bit to 64-bit arithmetic.
    for (std::int64_t centre :
         {std::int64_t{0}, std::int64_t{1} << 30, -(std::int64_t{1} << 30), std::int64_t{1} << 45}) {
        for (std::int64_t days = centre - 800000; days < centre + 800000; days += 13) {
            const CivilDate d = civilFromDays(days);
            ASSERT_EQ(daysFromCivil(d.year, d.month, d.day), days);
            ASSERT_LE(d.day, daysInMonth(d.year, d.month));
            ASSERT_EQ(d.yearDay, dayOfYear(d.year, d.month, d.day)) << days;
        }
    }
    EXPECT_EQ(daysFromCivil(2000, 3, 1), 11017);
    EXPECT_EQ(civilFromDays(-719468).year, 0);  // 0000-03-01
    struct Case {
        DateRule rule;
        std::int64_t year;
        std::int64_t day;                                       // 0-based day of the year the rule falls on
    } cases[] = {{{DateRule::DOW, 0, 3, 2, 0, 0}, 2024, 69},    // second Sunday of March 2024: the 10th
                 {{DateRule::DOW, 0, 3, 5, 0, 0}, 2024, 90},    // last Sunday: the 31st
                 {{DateRule::DOW, 0, 2, 5, 4, 0}, 2024, 59},    // last Thursday of February: the 29th
                 {{DateRule::DOW, 0, 10, 5, 0, 0}, 2023, 301},  // last Sunday of October 2023: the 29th
                 {{DateRule::JULIAN_NO_LEAP, 60, 0, 0, 0, 0}, 2024, 60},  // March 1, leap year or not
                 {{DateRule::JULIAN_NO_LEAP, 60, 0, 0, 0, 0}, 2023, 59},
                 {{DateRule::ZERO_BASED, 59, 0, 0, 0, 0}, 2024, 59}};  // February 29
    for (const Case& c : cases) {
        EXPECT_EQ(c.rule.secondsFromJanuary(c.year), c.day * 86400) << c.year << " " << int{c.rule._month};
    }
}

TEST(TimeZoneRuleTest, MalformedRulesAreRefusedWithTheReason) {
    struct Case {
        const char* rule;
        const char* reason;
    } cases[] = {{"", "the standard-time name"},
                 {"ES5", "the standard-time name"},
                 {"<AB>5", "the standard-time name"},
                 {"<ABC5", "the standard-time name"},
                 {"EST", "the standard-time offset"},
                 {"EST25", "the standard-time offset"},
                 {"EST5:60", "the standard-time offset"},
                 {"EST5ED", "the daylight-time name"},
                 {"EST5EDT,M3.2.0", "the daylight-time dates"},
                 {"EST5EDT,M13.2.0,M11.1.0", "the daylight-time dates"},
                 {"EST5EDT,M3.6.0,M11.1.0", "the daylight-time dates"},
                 {"EST5EDT,M3.2.7,M11.1.0", "the daylight-time dates"},
                 {"EST5EDT,J0,J365", "the daylight-time dates"},
                 {"EST5EDT,366,0", "the daylight-time dates"},
                 {"EST5EDT,M3.2.0/168,M11.1.0", "the daylight-time dates"},
                 {"EST5EDT,M3.2.0,M11.1.0x", "text after the rule"},
                 {"EST5 ", "the daylight-time name"}};
    for (const Case& c : cases) {
        TimeZonePtr zone;
        const Status st = TimeZone::fromPosixRule(c.rule, zone);
        EXPECT_FALSE(st) << c.rule;
        EXPECT_EQ(zone, nullptr);
        EXPECT_EQ(st.error(), EINVAL);
        EXPECT_EQ(st.text().view(), std::string("bad time-zone rule \"") + c.rule + "\": " + c.reason);
        EXPECT_LE(st.offset(), std::strlen(c.rule)) << c.rule;
    }
}

// Changes that cross a new year, and all-year daylight time: instant, expected offset.
TEST(TimeZoneRuleTest, ChangesAcrossTheNewYear) {
    struct Case {
        const char* rule;
        std::int64_t t;
        std::int64_t offset;
        const char* abbreviation;
    } cases[] = {
        // Daylight time from January 1 00:30 to December 31 23:59:59: New Year's Eve is still daylight.
        {"PST8PDT7:30,J1/0:30,J365/23:59:59", 2366861871 /* 2044-12-31 19:37 PST */, -(7 * H + 1800), "PDT"},
        {"PST8PDT7:30,J1/0:30,J365/23:59:59", 2366870000 /* 2045-01-01 07:53 UTC */, -8 * H, "PST"},
        {"EST5EDT,0/0,J365/25", 1735707600 /* 2025-01-01 05:00 UTC */, -4 * H, "EDT"},
        {"EST5EDT,0/0,J365/25", 1751328000, -4 * H, "EDT"},
        // Daylight time starts at 26:00 on December 31: 02:00 on New Year's Day.
        {"AAA-1BBB-2,J365/26,J60", 1704072600 /* 2024-01-01 01:30 UTC */, 2 * H, "BBB"},
        {"AAA-1BBB-2,J365/26,J60", 1704065400 /* 2023-12-31 23:30 UTC */, 1 * H, "AAA"},
    };
    for (const Case& c : cases) {
        const TimeZonePtr zone = ruleZone(c.rule);
        ASSERT_NE(zone, nullptr) << c.rule;
        const TimeZoneLookup at = zone->lookup(c.t);
        EXPECT_EQ(at.utcOffset, c.offset) << c.rule << " at " << c.t;
        EXPECT_STREQ(at.abbreviation, c.abbreviation) << c.rule << " at " << c.t;
    }
}

TEST(TimeZoneTest, SkippedAndRepeatedLocalTimes) {
    const TimeZonePtr ny = loadZone("America/New_York");
    ASSERT_NE(ny, nullptr);
    struct Case {
        int month, day, hour, minute;
        LocalTimeChoice choice;
        LocalTimeResolution::Kind kind;
        std::int64_t seconds;
        const char* abbreviation;
    } cases[] = {
        // 2024-03-10 02:30 does not exist; 2024-11-03 01:30 happens twice.
        {3, 10, 2, 30, LocalTimeChoice::PRE_TRANSITION, LocalTimeResolution::SKIPPED, 1710055800, "EDT"},
        {3, 10, 2, 30, LocalTimeChoice::POST_TRANSITION, LocalTimeResolution::SKIPPED, 1710052200, "EST"},
        {11, 3, 1, 30, LocalTimeChoice::PRE_TRANSITION, LocalTimeResolution::REPEATED, 1730611800, "EDT"},
        {11, 3, 1, 30, LocalTimeChoice::POST_TRANSITION, LocalTimeResolution::REPEATED, 1730615400, "EST"},
        {7, 1, 12, 0, LocalTimeChoice::POST_TRANSITION, LocalTimeResolution::UNIQUE, 1719849600, "EDT"},
    };
    for (const Case& c : cases) {
        LocalTimeResolution r;
        ASSERT_TRUE(ny->resolveLocal(2024, c.month, c.day, c.hour, c.minute, 0, r, c.choice));
        EXPECT_EQ(r.kind, c.kind) << c.month << "/" << c.day;
        EXPECT_EQ(r.seconds, c.seconds) << c.month << "/" << c.day;
        EXPECT_STREQ(r.lookup.abbreviation, c.abbreviation);
    }
    LocalTimeResolution r;
    EXPECT_FALSE(ny->resolveLocal(std::int64_t{1} << 41, 1, 1, 0, 0, 0, r));
    EXPECT_FALSE(ny->resolveLocal(292277026596, 12, 4, 15, 30, 8, r));  // past the 64-bit end
}

TEST(TimeZoneTest, FixedZonesAndTheLocalZone) {
    struct Case {
        std::int32_t offset;
        const char* abbreviation;
        const char* expected;
    } cases[] = {
        {0, "UTC", "UTC"}, {19800, "", "+0530"}, {-3600, "", "-01"}, {-(2 * 3600 + 61), "", "-020101"}};
    for (const Case& c : cases) {
        const TimeZonePtr zone = fixedZone(c.offset, c.abbreviation);
        ASSERT_NE(zone, nullptr);
        EXPECT_STREQ(zone->lookup(1700000000).abbreviation, c.expected);
        EXPECT_EQ(zone->lookup(INT64_MIN).utcOffset, c.offset);
        CivilTime civil;
        ASSERT_TRUE(zone->breakDown(INT64_MAX, civil));  // no overflow at the ends
    }
    EXPECT_EQ(fixedZone(25 * 3600, "X"), nullptr);
    EXPECT_EQ(fixedZone(0, "A B"), nullptr);

    struct LocalCase {
        const char* tz;
        const char* name;
    } locals[] = {{"Europe/Paris", "Europe/Paris"},
                  {":Asia/Tokyo", "Asia/Tokyo"},
                  {"<+0330>-3:30", "<+0330>-3:30"},
                  {"", "UTC"},
                  {"Not/A_Zone", "UTC"},
                  {"../../etc/passwd", "UTC"}};
    for (const LocalCase& c : locals) {
        setenv("TZ", c.tz, 1);
        EXPECT_EQ(TimeZone::reloadLocal()->name().view(), c.name) << c.tz;
        EXPECT_EQ(TimeZone::local()->name().view(), c.name);
    }
    setenv("TZ", ("/" + zonePath("Europe/Paris").substr(1)).c_str(), 1);
    EXPECT_STREQ(TimeZone::reloadLocal()->lookup(1700000000).abbreviation, "CET");
    unsetenv("TZ");
}

TEST(TimeZoneTest, DamagedZoneFilesAreRefusedAtEveryLength) {
    const std::string good = fileBytes(zonePath("Europe/London"));
    ASSERT_GT(good.size(), 1000u);
    ASSERT_NE(tzifZone("x", std::string_view(good)), nullptr);
    for (std::size_t n = 0; n < good.size(); ++n) {
        ASSERT_EQ(tzifZone("x", StrSegment(good.data(), n)), nullptr) << n;
    }
    struct Damage {
        std::size_t at;
        char byte;
        const char* reason;
    } damages[] = {{0, 'X', "bad zone file: no TZif magic"},
                   {4, '9', "bad zone file: unknown version"},
                   {32, 0x7f, "bad zone file: counts larger than the file"},  // the transition count
                   {39, 0, "bad zone file: type count outside 1..256"},
                   {21, 1, "bad zone file: indicator counts differ from the type count"}};
    for (const Damage& d : damages) {
        std::string bad = good;
        bad[d.at] = d.byte;
        TimeZonePtr zone;
        const Status st = TimeZone::fromTzif("x", std::string_view(bad), zone);
        EXPECT_EQ(st.error(), EINVAL);
        EXPECT_EQ(st.text().view(), d.reason) << d.at << " " << st.text().c_str();
    }
    TimeZonePtr zone;
    Status st = TimeZone::fromTzif("x", std::string_view(good + "x"), zone);
    EXPECT_EQ(st.text().view(), "bad zone file: bytes after the data");
    EXPECT_EQ(st.offset(), good.size());
    st = TimeZone::load("../etc/passwd", zone);
    EXPECT_EQ(st.text().view(), "not a zone name: \"../etc/passwd\"");
    EXPECT_EQ(zone, nullptr);
    // What TZ may hold: the reason never repeats the value.
    struct TzCase {
        const char* value;
        const char* name;    // of the zone, or null
        const char* reason;  // without one
        int error;           // ... and its number
    } tzCases[] = {
        {"Europe/Paris", "Europe/Paris", nullptr, 0},
        {":Europe/Paris", "Europe/Paris", nullptr, 0},
        {"CET-1CEST,M3.5.0,M10.5.0/3", "CET-1CEST,M3.5.0,M10.5.0/3", nullptr, 0},
        {"<+0330>-3:30", "<+0330>-3:30", nullptr, 0},
        {"", nullptr, "an empty zone name", EINVAL},
        {":", nullptr, "an empty zone name", EINVAL},
        {"No/Such_Zone", nullptr, "no such zone in ", ENOENT},
        {"../etc/passwd", nullptr, "not a zone name, and not a POSIX TZ rule (", EINVAL},
        {"EST5EDT,M3", nullptr, "not a zone name, and not a POSIX TZ rule (the daylight-time dates)", EINVAL},
        {"/no/such/file", nullptr, "open: No such file or directory", ENOENT},
    };
    for (const TzCase& c : tzCases) {
        TimeZonePtr valued;
        const Status status = TimeZone::fromTzValue(c.value, valued);
        const Str& why = status.text();
        EXPECT_EQ(status.error(), c.error) << c.value;
        if (c.name != nullptr) {
            ASSERT_NE(valued, nullptr) << c.value << ": " << why.c_str();
            EXPECT_EQ(valued->name().view(), c.name);
        } else {
            EXPECT_EQ(valued, nullptr) << c.value;
            EXPECT_EQ(why.view().substr(0, std::strlen(c.reason)), c.reason)
                << c.value << ": " << why.c_str();
            if (*c.value != '\0' && *c.value != ':') {
                EXPECT_EQ(why.view().find(c.value), std::string_view::npos) << why.c_str();
            }
        }
    }
    st = TimeZone::load("No/Such_Zone", zone);
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_NE(st.text().view().find("No/Such_Zone): No such file or directory"), std::string_view::npos)
        << st.text().c_str();
}

TEST(TimeZoneTest, SerializedZonesComeBackIdentical) {
    for (const char* name :
         {"America/New_York", "Europe/Dublin", "right/UTC", "Australia/Lord_Howe", "Etc/GMT-14"}) {
        if (std::string_view(name) == "right/UTC" && !vestra::test_platform::haveLeapSecondZones()) continue;
        const TimeZonePtr zone = loadZone(name);
        ASSERT_NE(zone, nullptr) << name;
        const Str text = zone->serialize();
        EXPECT_EQ(text.view().rfind("### SERIALIZED TIMEZONE FORMAT 1.0\nname ", 0), 0u);
        TimeZonePtr back;
        const Status st = TimeZone::fromSerialized(text, back);
        ASSERT_TRUE(st) << name << ": " << st.text().c_str() << "\n" << text.c_str();
        EXPECT_TRUE(back->sameAs(*zone)) << name;
        EXPECT_EQ(back->serialize().view(), text.view());
    }
    for (const TimeZonePtr& zone : {fixedZone(19800, ""), ruleZone("CET-1CEST,M3.5.0,M10.5.0/3")}) {
        const TimeZonePtr back = serializedZone(zone->serialize());
        ASSERT_NE(back, nullptr);
        EXPECT_TRUE(back->sameAs(*zone));
        EXPECT_EQ(back->lookup(1690000000).utcOffset, zone->lookup(1690000000).utcOffset);
    }
    const std::string good = ruleZone("EST5EDT")->serialize().c_str();
    struct Damage {
        const char* from;
        const char* to;
        const char* reason;
    } damages[] = {
        {"### SERIALIZED TIMEZONE FORMAT 1.0", "### SERIALIZED TIMEZONE FORMAT 2.0",
         "line 1: no header line"},
        {"types 1", "types 2", "line 5: a bad type line"},
        {"types 1", "types 257", "line 3: a count out of range"},
        {"-18000 0 EST", "-18000 2 EST", "line 4: a bad type line"},
        {"transitions 0", "transitions 1", "line 6: a bad transition line"},
        {"rule EST5EDT", "rule EST5EDT,M3", "bad time-zone rule \"EST5EDT,M3\": the daylight-time dates"},
        {"\nend\n", "\nend\nx", "line 8: no end line, or text after it"}};
    for (const Damage& d : damages) {
        std::string bad = good;
        bad.replace(bad.find(d.from), std::strlen(d.from), d.to);
        TimeZonePtr zone;
        const Status st = TimeZone::fromSerialized(std::string_view(bad), zone);
        EXPECT_EQ(st.error(), EINVAL) << d.to;
        EXPECT_NE(st.text().view().find(d.reason), std::string_view::npos) << st.text().c_str();
    }
}

TEST(TimeZoneArchiveTest, PackedZonesLoadLikeTheDirectory) {
    Str archive;
    Status st = packTimeZoneDirectory(zonePath("Europe").c_str(), archive);
    ASSERT_TRUE(st) << st.text().c_str();
    std::shared_ptr<const TimeZoneArchive> opened;
    st = TimeZoneArchive::fromBytes(archive, opened);
    ASSERT_TRUE(st) << st.text().c_str();
    EXPECT_GT(opened->size(), 50u);
    StrSegment tzif;
    ASSERT_TRUE(opened->find("London", tzif));
    EXPECT_TRUE(tzifZone("Europe/London", tzif)->sameAs(*loadZone("Europe/London")));
    EXPECT_FALSE(opened->find("Londo", tzif));

    const std::string path = ::testing::TempDir() + "zones.archive";
    st = packTimeZoneArchive(zonePath("Asia").c_str(), path.c_str());
    ASSERT_TRUE(st) << st.text().c_str();
    std::shared_ptr<const TimeZoneArchive> installed;
    ASSERT_TRUE(TimeZoneArchive::open(path.c_str(), installed));
    useTimeZoneArchive(installed);
    EXPECT_EQ(loadZone("Tokyo")->lookup(0).utcOffset, 9 * H);  // from the archive
    EXPECT_NE(loadZone("Europe/Paris"), nullptr);              // from the directory
    useTimeZoneArchive(nullptr);
    EXPECT_EQ(loadZone("Tokyo"), nullptr);
    ASSERT_EQ(unlink(path.c_str()), 0);

    // Every cut and every damaged count is refused.
    for (size_type n = 0; n < 200; ++n) EXPECT_EQ(archiveOf(Str(archive.data(), n)), nullptr);
    for (size_type at : {size_type{0}, size_type{23}, size_type{27}, size_type{28}}) {
        Str bad = archive;
        bad[at] = static_cast<char>(bad[at] ^ 0x01);
        EXPECT_EQ(archiveOf(bad), nullptr) << at;
    }
    st = packTimeZoneDirectory("/nonexistent", archive);
    EXPECT_EQ(st.error(), ENOENT) << st.text().c_str();
}

TEST(TimeZoneNamesTest, WindowsNamesAndAbbreviations) {
    EXPECT_STREQ(windowsZoneToIana("Pacific Standard Time"), "America/Los_Angeles");
    EXPECT_STREQ(windowsZoneToIana("Pacific Standard Time", "CA"), "America/Vancouver");
    EXPECT_STREQ(windowsZoneToIana("W. Europe Standard Time"), "Europe/Berlin");
    EXPECT_EQ(windowsZoneToIana("Pacific Standard Time", "FR"), nullptr);
    EXPECT_EQ(windowsZoneToIana("Mars Standard Time"), nullptr);
    EXPECT_STREQ(ianaZoneToWindows("America/Los_Angeles"), "Pacific Standard Time");
    EXPECT_STREQ(ianaZoneToWindows("America/Vancouver"), "Pacific Standard Time");
    EXPECT_STREQ(ianaZoneToWindows("Etc/GMT+12"), "Dateline Standard Time");
    EXPECT_EQ(ianaZoneToWindows("America/Nowhere"), nullptr);

    struct Case {
        const char* zone;
        const char* abbreviation;
        std::vector<AbbreviationOffset> expected;
    } cases[] = {
        {"Asia/Shanghai", "CST", {{8 * H, false}, {-6 * H, false}, {-5 * H, true}}},
        {"America/Chicago", "cst", {{-6 * H, false}, {8 * H, false}, {-5 * H, true}}},
        {"America/Havana", "CST", {{-5 * H, false}, {-6 * H, false}, {8 * H, false}, {-5 * H, true}}},
        {"Europe/Dublin", "IST", {{1 * H, false}, {5 * H + 1800, false}, {1 * H, true}, {2 * H, false}}},
        {"UTC", "BST", {{1 * H, true}, {6 * H, false}}},
        {"UTC", "XYZ", {}},
    };
    for (const Case& c : cases) {
        const TimeZonePtr zone = loadZone(c.zone);
        ASSERT_NE(zone, nullptr) << c.zone;
        EXPECT_EQ(zone->offsetsForAbbreviation(c.abbreviation, 1700000000), c.expected)
            << c.zone << " " << c.abbreviation;
    }
}

TEST(TimeZoneStructTmTest, RecordsBoundToAZone) {
    testing::LogCapture log;
    const TimeZonePtr ny = loadZone("America/New_York");
    StructTmInTimezoneHires tm(ny);
    ASSERT_TRUE(tm.fromUnixTime({1730611800, 250}));  // 2024-11-03 01:30 EDT, the first of two
    EXPECT_EQ(tm.tm_hour, 1);
    EXPECT_EQ(tm.tm_isdst, 1);
    EXPECT_STREQ(tm.tm_zone, "EDT");
    EXPECT_EQ(tm.toUnixTime(), (Timeval{1730611800, 250}));
    tm.tm_isdst = 0;  // the second 01:30
    EXPECT_EQ(tm.toUnixTime(), (Timeval{1730615400, 250}));
    tm.tm_isdst = -1;
    EXPECT_EQ(tm.toUnixTime(), (Timeval{1730611800, 250}));

    StructTmInTimezone far(ny);
    EXPECT_FALSE(far.fromUnixTime(INT64_MAX));
    EXPECT_EQ(far.tm_year, 9999 - 1900);
    EXPECT_EQ(far.tm_isdst, -1);
    EXPECT_EQ(far.tm_gmtoff, -5 * H);  // zone fields from time 0
    far.tm_year = INT32_MAX;           // far, but within 64-bit seconds
    EXPECT_EQ(far.toUnixTime(), (Timeval{67768036191694799, 0}));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].message, "StructTmInTimezone::fromUnixTime(9223372036854775807) failed!");
}

}  // namespace
}  // namespace basicutil
