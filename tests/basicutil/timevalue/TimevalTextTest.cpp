#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "basicutil/timevalue/Timeval.h"

namespace basicutil {
namespace {

constexpr Timeval MAXT = Timeval::MAX_TIME;
constexpr Timeval MINT = Timeval::MIN_TIME;

TEST(TimevalTextTest, DecimalParseAcceptedForms) {
    struct Case {
        const char* text;
        Timeval expected;
    } cases[] = {{"0", {0, 0}},
                 {"5.", {5, 0}},
                 {"-1.25", {-2, 750000}},
                 {"1.1234567", {1, 123456}},
                 {"1.0000009", {1, 0}},  // truncated, not rounded
                 {"-0", {0, 0}},
                 {"-0.5", {-1, 500000}},
                 {"9223372036854775807.999999", {INT64_MAX, 999999}},
                 {"-9223372036854775808", {INT64_MIN, 0}},
                 {"-9223372036854775806.5", {INT64_MIN + 1, 500000}}};
    for (const Case& c : cases) {
        Timeval tv{42, 42};
        EXPECT_TRUE(tv.parse_into(c.text)) << c.text;
        EXPECT_EQ(tv, c.expected) << c.text;
    }
}

TEST(TimevalTextTest, DecimalParseRejectedForms) {
    for (const char* text :
         {"", ".", ".5", "-", "-.5", "+1", " 1", "1 ", "1.2.3", "1e3", "1.5x", "0x10", "9223372036854775808",
          "-9223372036854775809", "18446744073709551616", "-9223372036854775807.5"}) {
        Timeval tv{42, 42};
        EXPECT_FALSE(tv.parse_into(text)) << text;
        EXPECT_EQ(tv, (Timeval{42, 42})) << text;  // the target is left alone
    }
    Timeval tv;
    EXPECT_FALSE(
        tv.mem_parse_into("12\0"
                          "3",
                          4));  // an embedded NUL is just a bad byte
}

TEST(TimevalTextTest, DecimalRender) {
    struct Case {
        Timeval tv;
        unsigned digits;
        const char* expected;
    } cases[] = {{{-2, 750000}, 3, "-1.250"},
                 {{-2, 750000}, 8, "-1.25000000"},
                 {{-1, 0}, 2, "-1.00"},
                 {{-1, 999999}, 6, "-0.000001"},
                 {{1, 999999}, 3, "1.999"} /* cut, never rounded */,
                 {{7, 5}, 0, "7"},
                 {MINT, 1, "-9223372036854775808.0"},
                 {MAXT, 6, "9223372036854775807.999999"},
                 {{INT64_MIN, 1}, 6, "-9223372036854775807.999999"}};
    for (const Case& c : cases) EXPECT_EQ(c.tv.toDecimal(c.digits), c.expected);
}

TEST(TimevalTextTest, DurationsInMilliseconds) {
    struct Case {
        const char* text;
        std::uint64_t ms;
    } cases[] = {{"0.0001", 1},
                 {"0.0004", 1},
                 {"0.0000", 0},
                 {"0.0005", 1},
                 {"1.2345", 1235},
                 {"2.5", 2500},
                 {".5", 500},
                 {"7", 7000},
                 {"0", 0},
                 {"1.00049", 1000},
                 {"1.0005", 1001},
                 {"18446744073709551", 18446744073709551000u},
                 {"18446744073709551.9999", UINT64_MAX},  // the addition would overflow
                 {"18446744073709552", UINT64_MAX},       // infinite from here on
                 {"99999999999999999999999.5", UINT64_MAX}};
    for (const Case& c : cases) {
        std::uint64_t ms = 12345;
        EXPECT_TRUE(mem_parse_seconds_as_ms(c.text, std::strlen(c.text), ms)) << c.text;
        EXPECT_EQ(ms, c.ms) << c.text;
    }
    for (const char* bad : {"", ".", "-1", "1.5s", "1..5", " 1", "18446744073709552x", "1.2.3"}) {
        std::uint64_t ms = 0;
        EXPECT_FALSE(mem_parse_seconds_as_ms(bad, std::strlen(bad), ms)) << bad;
    }
}

TEST(TimevalTextTest, SignedSeconds) {
    struct Case {
        const char* text;
        std::int64_t seconds;
    } cases[] = {{"0", 0},
                 {"-0", 0},
                 {"123", 123},
                 {"-9223372036854775808", INT64_MIN},
                 {"9223372036854775807", INT64_MAX},
                 {"9223372036854775808", INT64_MAX},
                 {"-99999999999999999999999", INT64_MIN}};
    for (const Case& c : cases) {
        std::int64_t s = 42;
        EXPECT_TRUE(mem_parse_signed_seconds(c.text, std::strlen(c.text), s)) << c.text;
        EXPECT_EQ(s, c.seconds) << c.text;
    }
    for (const char* bad : {"", "-", "+1", "1.5", "99999999999999999999x", "--1", "1-"}) {
        std::int64_t s = 0;
        EXPECT_FALSE(mem_parse_signed_seconds(bad, std::strlen(bad), s)) << bad;
    }
}

TEST(TimevalTextTest, MillisecondAndNanosecondTexts) {
    std::string out;
    appendMsAsSeconds(out, 1005);
    out += ' ';
    appendMsAsSeconds(out, UINT64_MAX);
    out += ' ';
    appendNsAsSeconds(out, 1000000001);
    out += ' ';
    (Timespec{-3, 5}).appendDecimal(out);
    EXPECT_EQ(out, "1.005 18446744073709551.615 1.000000001 -3.000000005");

    EXPECT_EQ(usecToMsRoundedUp(1001), 2u);
    EXPECT_EQ(usecToMsRoundedUp(UINT64_MAX - 1000), 18446744073709551u);
    EXPECT_EQ(usecToMsRoundedUp(UINT64_MAX - 1000 + 1), 18446744073709552u);
    EXPECT_EQ(usecToMsRoundedUp(UINT64_MAX), UINT64_MAX);
}

TEST(TimevalTextTest, SortableCodeEncoding) {
    struct Case {
        Timeval tv;
        const char* code;
    } cases[] = {{{0, 5}, "zNULLzTIMEzzzz"},
                 {MINT, "zMINzTIMEzzzzz"},
                 {MAXT, "zMAXzTIMEzzzzz"},
                 {{INT64_MAX, 0}, "VVVVVVVVTPLIFV"},  // not exactly a sentinel: the largest code
                 {{INT64_MIN, 1}, "VVVVVVVVTPLIFV"},
                 {{-11644473601, 0}, "VVVVVVVVTPLIFV"},  // before 1601
                 {{-11644473600, 0}, "00000000000000"},  // 1601-01-01
                 {{1, 1}, "0AR114810000V8"},
                 {{1700000000, 123456}, "0CDM90G03LNIG0"}};
    for (const Case& c : cases) EXPECT_EQ(c.tv.sortableCode(), c.code) << c.tv.tv_sec;
}

TEST(TimevalTextTest, SortableCodeDecoding) {
    struct Case {
        const char* code;
        bool ok;
        Timeval tv;
    } cases[] = {{"znullztimezzzz", true, {0, 0}},
                 {"ZMINZTIMEZZZZZ", true, MINT},
                 {"zmaxztimezzzzz", true, MAXT},
                 {"00000000000000", true, MAXT},  // before 1970: not an error
                 {"0cdm90g03lnig0", true, {1700000000, 123456}},
                 {"0CDM90G0TPLIFV", true, {1700000000, 1000000}},  // 999999999 ns: no carry into the seconds
                 {"0CDM90G0TPLIGV", false, {}},                    // 1000000031 ns
                 {"zNULLzTIMEzzz", false, {}},
                 {"zNOPEzTIMEzzzz", false, {}},
                 {"0CDM90G03LNIGW", false, {}}};
    for (const Case& c : cases) {
        Timeval tv{42, 42};
        EXPECT_EQ(tv.decodeSortable(c.code, std::strlen(c.code)), c.ok) << c.code;
        if (c.ok) {
            EXPECT_EQ(tv, c.tv) << c.code;
        }
    }
}

TEST(TimevalTextTest, DebugText) {
    setenv("TZ", "UTC0", 1);
    tzset();
    EXPECT_EQ((Timeval{0, 123}).debugText(), "ZERO_TIME");
    EXPECT_EQ(MAXT.debugText(), "MAX_TIME");
    EXPECT_EQ(MINT.debugText(), "MIN_TIME");
    EXPECT_EQ((Timeval{1700000000, 5}).debugText(), "Tue Nov 14 22:13:20 2023");
    EXPECT_EQ((Timeval{INT64_MAX, 0}).debugText(), "INVALID_TIME (9223372036854775807)");
    EXPECT_EQ((Timeval{-67768040609740801, 0}).debugText(), "INVALID_TIME (-67768040609740801)");
    // Years outside 1000-9999: the same layout, never a newline.
    struct Case {
        std::int64_t seconds;
        const char* text;
    } cases[] = {{-62135596800, "Mon Jan  1 00:00:00 1"},     {-61851600001, "Thu Dec 31 23:59:59 9"},
                 {-30610224001, "Tue Dec 31 23:59:59 999"},   {253402300799, "Fri Dec 31 23:59:59 9999"},
                 {253402300800, "Sat Jan  1 00:00:00 10000"}, {3093527980800, "Sat Jan  1 00:00:00 100000"},
                 {-62198755200, "Fri Jan  1 00:00:00 -1"}};
    for (const Case& c : cases) EXPECT_EQ((Timeval{c.seconds, 0}).debugText(), c.text) << c.seconds;
}

TEST(TimevalTextTest, StreamForm) {
    std::ostringstream os;
    os << MINT << ' ' << MAXT << ' ' << Timeval{0, 0} << ' ' << Timeval{0, 7} << ' ' << Timeval{1, 5} << ' '
       << Timeval{-2, 750000};
    EXPECT_EQ(os.str(), "<min> <max> <zero> 0.000007 1.000005 -1.250000");
}

}  // namespace
}  // namespace basicutil
