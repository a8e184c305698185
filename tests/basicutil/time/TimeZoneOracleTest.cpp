// Every installed zone against the C library and cctz, and the inverse against mktime.
#include <cctz/time_zone.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "basicutil/time/TimeZone.h"
#include "support/test-platform.h"
#include "support/zones.h"

namespace basicutil {
namespace {

using vestra::test_platform::haveLeapSecondZones;
using vestra::test_zones::loadZone;

constexpr std::int64_t k1850 = -3786825600, k2200 = 7258118400;

std::vector<std::string> installedZones() {
    namespace fs = std::filesystem;
    const std::string dir = TimeZone::directory().c_str();
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        if (!entry.is_regular_file()) continue;
        char magic[4] = {};
        if (FILE* f = std::fopen(entry.path().c_str(), "rb")) {
            const bool read = std::fread(magic, 1, 4, f) == 4;
            std::fclose(f);
            if (read && std::memcmp(magic, "TZif", 4) == 0) {
                names.push_back(fs::relative(entry.path(), dir).generic_string());
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void useCLibraryZone(const std::string& tz) {
    setenv("TZ", tz.c_str(), 1);
    tzset();
}

// "1931-4-5 2:0:0 +3600 dst CEST" for both sides of a comparison.
std::string describe(std::int64_t year, int month, int day, int hour, int minute, int second, long offset,
                     bool dst, const char* abbreviation) {
    return std::to_string(year) + "-" + std::to_string(month) + "-" + std::to_string(day) + " " +
           std::to_string(hour) + ":" + std::to_string(minute) + ":" + std::to_string(second) + " " +
           std::to_string(offset) + (dst ? " dst " : " std ") + abbreviation;
}

std::string ours(const TimeZone& zone, std::int64_t t) {
    CivilTime c;
    TimeZoneLookup at;
    EXPECT_TRUE(zone.breakDown(t, c, &at));
    return describe(c.year, static_cast<int>(c.month), static_cast<int>(c.day), static_cast<int>(c.hour),
                    static_cast<int>(c.minute), static_cast<int>(c.second), at.utcOffset, at.isDst,
                    at.abbreviation) +
           " wd" + std::to_string(c.weekday) + " yd" + std::to_string(c.yearDay);
}

std::string cLibrary(std::int64_t t) {
    const time_t tt = static_cast<time_t>(t);
    std::tm tm{};
    EXPECT_NE(localtime_r(&tt, &tm), nullptr);
    return describe(tm.tm_year + 1900LL, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                    tm.tm_gmtoff, tm.tm_isdst > 0, tm.tm_zone) +
           " wd" + std::to_string(tm.tm_wday) + " yd" + std::to_string(tm.tm_yday);
}

std::string cctzLookup(const cctz::time_zone& zone, std::int64_t t) {
    const auto al = zone.lookup(std::chrono::system_clock::from_time_t(0) + std::chrono::seconds(t));
    return describe(al.cs.year(), al.cs.month(), al.cs.day(), al.cs.hour(), al.cs.minute(), al.cs.second(),
                    al.offset, al.is_dst, al.abbr);
}

// Each transition and leap second of the file, one second either side, and random instants.
std::vector<std::int64_t> probeTimes(const TimeZone& zone, std::mt19937_64& rng, int randomCount) {
    std::vector<std::int64_t> times;
    for (std::int64_t t : zone.transitions()) {
        if (t > k1850 && t < k2200) times.insert(times.end(), {t - 1, t, t + 1});
    }
    for (const TimeZone::LeapSecond& l : zone.leapSeconds())
        times.insert(times.end(), {l.occurrence - 1, l.occurrence, l.occurrence + 1});
    for (int i = 0; i < randomCount; ++i)
        times.push_back(k1850 + static_cast<std::int64_t>(rng() % (k2200 - k1850)));
    return times;
}

TEST(TimeZoneOracleTest, EveryInstalledZoneAgreesWithTheCLibraryAndCctz) {
    const std::vector<std::string> names = installedZones();
    ASSERT_GT(names.size(), 400u) << "is tzdata installed?";
    std::mt19937_64 rng(2026);
    std::size_t checks = 0, cctzChecks = 0;
    for (const std::string& name : names) {
        TimeZonePtr zone;
        const Status st = TimeZone::load(name.c_str(), zone);
        ASSERT_TRUE(st) << name << ": " << st.text().c_str();
        useCLibraryZone(":" + name);
        cctz::time_zone reference;
        // cctz does not count leap seconds.
        const bool withCctz = name.rfind("right/", 0) != 0 && cctz::load_time_zone(name, &reference);
        int failures = 0;
        for (std::int64_t t : probeTimes(*zone, rng, 200)) {
            const std::string mine = ours(*zone, t);
            ++checks;
            if (mine != cLibrary(t) && failures++ < 3)
                ADD_FAILURE() << name << " at " << t << ": " << mine << " vs " << cLibrary(t);
            if (withCctz) {
                ++cctzChecks;
                const std::string expected = cctzLookup(reference, t);
                if (mine.compare(0, expected.size(), expected) != 0 && failures++ < 3) {
                    ADD_FAILURE() << name << " at " << t << ": " << mine << " vs cctz " << expected;
                }
            }
        }
    }
    std::printf("%zu zones, %zu instants against the C library, %zu against cctz\n", names.size(), checks,
                cctzChecks);
}

// The C library reads rules right from 1971 on, and only where no change crosses a new year in
// UTC; rules beyond that are pinned by hand in TimeZoneTest.
TEST(TimeZoneOracleTest, PosixRulesAgreeWithTheCLibrary) {
    const char* rules[] = {"EST5EDT,M3.2.0,M11.1.0",
                           "<+0330>-3:30",
                           "CET-1CEST,M3.5.0,M10.5.0/3",
                           "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
                           "IST-2IDT,M3.4.4/26,M10.5.0",
                           "NZST-12NZDT,M9.5.0,M4.1.0/3",
                           "AAA3BBB,J60/2,J300/2",
                           "AAA3BBB,59,299",
                           "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
                           "XXX-5:45",
                           "<-01>1<+00>0,M3.5.0/0,M10.5.0/1",
                           "AAA-14BBB-15,M3.2.0,M11.1.0",
                           "EST5EDT"};  // no dates: the default ones
    std::mt19937_64 rng(7);
    for (const char* rule : rules) {
        TimeZonePtr zone;
        const Status st = TimeZone::fromPosixRule(rule, zone);
        ASSERT_TRUE(st) << rule << ": " << st.text().c_str();
        // "EST5EDT" alone names a file for the C library: give it the dates the default means.
        useCLibraryZone(std::strcmp(rule, "EST5EDT") == 0 ? "EST5EDT,M3.2.0,M11.1.0" : rule);
        // Every day's noon-ish instant, and each change found between two of them to the second.
        std::vector<std::int64_t> times;
        for (std::int64_t t = 31536000; t < k2200; t += 86400 + 7) {
            times.push_back(t);
            const std::int64_t next = t + 86400 + 7;
            if (zone->lookup(t).utcOffset == zone->lookup(next).utcOffset) continue;
            std::int64_t before = t, after = next;
            while (after - before > 1) {
                const std::int64_t middle = before + (after - before) / 2;
                (zone->lookup(middle).utcOffset == zone->lookup(t).utcOffset ? before : after) = middle;
            }
            times.insert(times.end(), {before - 1, before, after, after + 1});
        }
        int failures = 0;
        for (std::int64_t t : times) {
            if (ours(*zone, t) != cLibrary(t) && failures++ < 3) {
                ADD_FAILURE() << rule << " at " << t << ": " << ours(*zone, t) << " vs " << cLibrary(t);
            }
        }
    }
}

TEST(TimeZoneOracleTest, LocalFieldsBackToTimesAsMktimeDoes) {
    std::mt19937_64 rng(11);
    for (const char* name : {"America/New_York", "Europe/London", "Europe/Dublin", "Australia/Lord_Howe",
                             "Pacific/Apia", "America/St_Johns", "Asia/Kathmandu", "right/Europe/Berlin"}) {
        if (std::string_view(name).starts_with("right/") && !haveLeapSecondZones()) continue;
        const TimeZonePtr zone = loadZone(name);
        ASSERT_NE(zone, nullptr) << name;
        useCLibraryZone(std::string(":") + name);
        int failures = 0;
        for (int i = 0; i < 20000; ++i) {
            std::tm tm{};
            tm.tm_year = static_cast<int>(rng() % 250) + 1;  // 1901 .. 2150
            tm.tm_mon = static_cast<int>(rng() % 14) - 1;    // a little out of range, both ends
            tm.tm_mday = static_cast<int>(rng() % 33);
            tm.tm_hour = static_cast<int>(rng() % 24);
            tm.tm_min = static_cast<int>(rng() % 60);
            tm.tm_sec = static_cast<int>(rng() % 60);
            tm.tm_isdst = -1;
            LocalTimeResolution resolved;
            ASSERT_TRUE(zone->resolveLocal(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour,
                                           tm.tm_min, tm.tm_sec, resolved));
            std::tm copy = tm;
            const time_t expected = mktime(&copy);
            // Where the fields are skipped or repeated the C library's pick is its own; ours is
            // pinned in TimeZoneTest.
            if (resolved.kind == LocalTimeResolution::UNIQUE && resolved.seconds != expected &&
                failures++ < 3) {
                ADD_FAILURE() << name << ": " << tm.tm_year + 1900 << "-" << tm.tm_mon + 1 << "-"
                              << tm.tm_mday << " " << tm.tm_hour << ":" << tm.tm_min << ":" << tm.tm_sec
                              << " gives " << resolved.seconds << ", mktime " << expected;
            }
        }
    }
}

// Around every leap second of zones that count them: seconds 58 to 62 of the minute that holds
// it (60 is the leap second, 61 the next minute's first) and -1 of the minute after, normalised
// as mktime does: the minute first, then the seconds counted on.
TEST(TimeZoneOracleTest, LeapSecondFieldsAsMktimeDoes) {
    if (!haveLeapSecondZones()) GTEST_SKIP() << vestra::test_platform::kNoLeapSecondZones;
    for (const char* name : {"right/UTC", "right/Europe/Berlin", "right/America/New_York"}) {
        const TimeZonePtr zone = loadZone(name);
        ASSERT_NE(zone, nullptr) << name;
        ASSERT_GE(zone->leapSeconds().size(), 27u) << name;
        useCLibraryZone(std::string(":") + name);
        int checked = 0;
        for (const TimeZone::LeapSecond& leap : zone->leapSeconds()) {
            CivilTime civil;
            ASSERT_TRUE(zone->breakDown(leap.occurrence, civil));
            if (civil.second != 60) continue;  // a second taken out: none so far
            for (const auto& [minute, second] : std::initializer_list<std::pair<int, int>>{
                     {0, 58}, {0, 59}, {0, 60}, {0, 61}, {0, 62}, {1, -1}, {1, 0}, {0, 120}}) {
                std::tm tm{};
                tm.tm_year = static_cast<int>(civil.year) - 1900;
                tm.tm_mon = static_cast<int>(civil.month) - 1;
                tm.tm_mday = static_cast<int>(civil.day);
                tm.tm_hour = static_cast<int>(civil.hour);
                tm.tm_min = static_cast<int>(civil.minute) + minute;
                tm.tm_sec = second;
                tm.tm_isdst = -1;
                LocalTimeResolution resolved;
                ASSERT_TRUE(zone->resolveLocal(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour,
                                               tm.tm_min, tm.tm_sec, resolved));
                std::tm copy = tm;
                EXPECT_EQ(resolved.seconds, mktime(&copy))
                    << name << " " << civil.year << "-" << civil.month << "-" << civil.day << " "
                    << tm.tm_hour << ":" << tm.tm_min << ":" << tm.tm_sec;
                ++checked;
            }
        }
        EXPECT_GE(checked, 27 * 8) << name;
    }
    const TimeZonePtr utc = loadZone("right/UTC");
    LocalTimeResolution leap;
    ASSERT_TRUE(utc->resolveLocal(2016, 12, 31, 23, 59, 60, leap));
    EXPECT_EQ(leap.seconds, 1483228826);
}

}  // namespace
}  // namespace basicutil
