#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "basicutil/logging/LoggerFormat.h"
#include "basicutil/logging/Logger_details.h"
#include "basicutil/threads/Thread.h"
#include "support/test-platform.h"

namespace basicutil {
namespace {

// 2026-11-13 04:00:00.123456 UTC, rendered in UTC.
const Timeval kTime{1794542400, 123456};

class LoggerFormatTest : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        static_cast<void>(TimeZone::reloadLocal());
    }
    void TearDown() override {
        unsetenv("TZ");
        static_cast<void>(TimeZone::reloadLocal());
    }
    static std::string render(const char* pattern, std::string_view message, int level = LOG_WARN,
                              LogSerialization serialization = LogSerialization::TEXT,
                              std::uint64_t maxMessageSize = 0, LogFormatCallback* callback = nullptr,
                              std::string_view component = "comp") {
        Str out;
        LogFormat(pattern).render(out, {component, level, kTime, message}, serialization, maxMessageSize,
                                  callback);
        return out.c_str();
    }
};

TEST_F(LoggerFormatTest, PatternsRender) {
    struct Case {
        const char* pattern;
        const char* component;
        int level;
        const char* expected;
    } cases[] = {
        {"%-8p: %m%n", "comp", LOG_WARN, "WARN    : hello\n"},
        {"%5.3c", "abcdef", LOG_WARN, "abc"},
        {"%5.3c", "ab", LOG_WARN, "   ab"},
        {"%05c|%-5c|%c", "ab", LOG_WARN, "000ab|ab   |ab"},
        {"100%% %p", "c", LOG_EMERG, "100% EMERG"},
        {"a%%b%%%%c", "c", LOG_INFO, "a%b%%c"},
        {"%p|%p", "c", 9, "???|???"},
        {"%p", "c", -1, "???"},
        {"[%q]%m%", "c", LOG_INFO, "[]hello"},         // an unknown letter, a "%" at the end
        {"%x{abc}%c%n", "c", LOG_INFO, "c\n"},         // its argument goes with it
        {"%c%d{unterminated %m", "c", LOG_INFO, "c"},  // the rest with it
        {"%20m|", "c", LOG_INFO, "hello|"},            // never padded
        {"%.3m|%10.4m", "c", LOG_INFO, "hel|hell"},
        {"%.10m", "c", LOG_INFO, "hello"},
        {"%d{DATE}", "c", LOG_INFO, "13 Nov 2026 04:00:00,123"},
        {"%d", "c", LOG_INFO, "2026-11-13 04:00:00,123"},
        {"%d{ISO8601}|%d{ABSOLUTE}", "c", LOG_INFO, "2026-11-13 04:00:00,123|04:00:00,123"},
        {"%d{%H:%M %l}|%d{%K}", "c", LOG_INFO, "04:00 123|2026-11-13 04:00:00,123"},  // custom, fall-back
        {"%p{}%c", "c", LOG_DEBUG, "DEBUGc"},
        {"%.2p%.0c|", "c", LOG_DEBUG, "DE|"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(render(c.pattern, "hello", c.level, LogSerialization::TEXT, 0, nullptr, c.component),
                  c.expected)
            << c.pattern;
    }
    EXPECT_EQ(LogFormat("a%%b").atoms().size(), 2u);
    EXPECT_EQ(LogFormat("%99999999999c").atoms()[0].min_width, 65535u);
    EXPECT_EQ(render("%99999999999c", "m").size(), 65535u);
    EXPECT_EQ(LogFormat(nullptr).atoms().size(), 0u);
    LogFormat corrupt("%p %m");
    logger_details::LogFormatAccess::appendCorruptAtom(corrupt);
    Str out("kept:");
    corrupt.render(out, {"c", LOG_INFO, kTime, "m"}, LogSerialization::TEXT, 0, nullptr);
    EXPECT_EQ(out.view(), "kept:_atoms array invalid!");
}

// A message exactly as long as the maximum width is a field; one byte more is trimmed (or cut,
// below 45).
TEST_F(LoggerFormatTest, MaximumWidthsOnTheMessage) {
    for (const std::size_t width : {10u, 44u, 45u, 60u}) {
        const std::string pattern = "%." + std::to_string(width) + "m|";
        for (const std::size_t length : {width - 1, width, width + 1, width + 100}) {
            SCOPED_TRACE(pattern + " of " + std::to_string(length));
            const std::string message(length, 'm');
            const std::string line = render(pattern.c_str(), message);
            if (length <= width) {
                EXPECT_EQ(line, message + "|");
            } else {
                EXPECT_EQ(line.size(), width + 1);
                EXPECT_EQ(line.find("...{skipping") != std::string::npos, width >= 45);
            }
        }
    }
}

// What compiling drops is said, with where it was.
TEST_F(LoggerFormatTest, DroppedConversionsAreDescribed) {
    struct Case {
        const char* pattern;
        const char* problem;
    } cases[] = {
        {"%d %p %c [%t] %m%n", ""},
        {"%d{%H:%M} %-5.9p %%", ""},
        {"%d %x %m", "\"%x\" at offset 3 is no conversion"},
        {"ab%-10.3q{arg}%m%Q", "\"%-10.3q{arg}\" at offset 2 is no conversion"},
        {"%m %-5", "\"%-5\" at offset 3 has no conversion letter"},
        {"%c%d{unterminated", "the argument of \"%d\" at offset 2 has no closing \"}\""},
        {"%d{%K}", "the date format \"%K\" at offset 0 does not compile; \"%Y-%m-%d %H:%M:%S,%l\" is used"},
    };
    for (const Case& c : cases) EXPECT_EQ(LogFormat(c.pattern).problem().view(), c.problem) << c.pattern;
}

// Dates are reused within what the format shows, and only there.
TEST_F(LoggerFormatTest, DatesFollowTheirOwnResolution) {
    struct Case {
        const char* pattern;
        Timeval time;
        const char* expected;
    } cases[] = {{"%d", {kTime.tv_sec, 123456}, "2026-11-13 04:00:00,123"},
                 {"%d", {kTime.tv_sec, 123999}, "2026-11-13 04:00:00,123"},
                 {"%d", {kTime.tv_sec, 124000}, "2026-11-13 04:00:00,124"},
                 {"%d{%T.%6Q}", {kTime.tv_sec, 124000}, "04:00:00.124000"},
                 {"%d{%T.%6Q}", {kTime.tv_sec, 124001}, "04:00:00.124001"},
                 {"%d{%T}", {kTime.tv_sec, 999999}, "04:00:00"},
                 {"%d{%T}", {kTime.tv_sec + 1, 0}, "04:00:01"},
                 {"%d", {kTime.tv_sec + 1, 0}, "2026-11-13 04:00:01,000"}};
    for (const Case& c : cases) {
        Str out;
        LogFormat(c.pattern).render(out, {"c", LOG_INFO, c.time, "m"}, LogSerialization::TEXT, 0, nullptr);
        EXPECT_EQ(out.view(), c.expected) << c.pattern << " " << c.time.tv_usec;
    }
}

TEST_F(LoggerFormatTest, ThreadAndClockFields) {
    EmptyMainThread mainThread;
    EXPECT_EQ(render("[%t]", "m"), "[MainThread]");
    EXPECT_EQ(render("[%.4t|%12t]", "m"), "[Main|  MainThread]");
    const std::string id = render("%T", "m");
    EXPECT_EQ(id, std::to_string(platform::currentThreadId()));
    // Processor time in microseconds whatever the C library's clock() unit: spend a twentieth of a
    // second, then hold %u against clock() scaled by its own unit.
    ASSERT_TRUE(vestra::test_platform::spendProcessorTime(0.05));
    const std::int64_t cpu = std::stoll(render("%u", "m"));
    EXPECT_GE(cpu, 50000);
    EXPECT_NEAR(static_cast<double>(cpu), vestra::test_platform::processorMicrosecondsByClock(), 20000.0);
    // Elapsed time counts from the first event that rendered it.
    Str out;
    const LogFormat elapsed("%r %R|");
    elapsed.render(out, {"c", LOG_INFO, {100, 0}, "m"}, LogSerialization::TEXT, 0, nullptr);
    elapsed.render(out, {"c", LOG_INFO, {101, 500000}, "m"}, LogSerialization::TEXT, 0, nullptr);
    EXPECT_EQ(out.view(), "0 0|1500 1|");
    // At the ends of time: exact where it fits, saturated where it does not.
    out.clear();
    elapsed.render(out, {"c", LOG_INFO, Timeval::MAX_TIME, "m"}, LogSerialization::TEXT, 0, nullptr);
    elapsed.render(out, {"c", LOG_INFO, Timeval::MIN_TIME, "m"}, LogSerialization::TEXT, 0, nullptr);
    EXPECT_EQ(out.view(),
              "9223372036854775807 9223372036854775707|-9223372036854775808 -9223372036854775808|");
}

TEST_F(LoggerFormatTest, TrimmingKeepsHeadMarkerAndTail) {
    std::string message(123456, 'x');
    for (std::size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>('a' + i % 26);
    Str out;
    renderTrimmedTo(out, message.data(), 10000, 80);
    EXPECT_EQ(out.view(), message.substr(0, 55) + " ...{skipping 9949 bytes}");
    out.clear();
    renderTrimmedTo(out, message.data(), 10000, 200);
    EXPECT_EQ(out.view(),
              message.substr(0, 129) + " ...{skipping 9829 bytes}... " + message.substr(10000 - 42, 42));

    // Over a grid: exactly the target, and the count agrees with the full marker's length.
    for (std::uint64_t length : {46u, 99u, 100u, 1000u, 9999u, 10000u, 123456u}) {
        for (std::uint64_t target : {45u, 46u, 63u, 80u, 90u, 91u, 100u, 200u, 1000u, 9998u}) {
            if (target >= length) continue;
            out.clear();
            renderTrimmedTo(out, message.data(), length, target);
            ASSERT_EQ(out.size(), target) << length << " to " << target;
            const std::string text = out.c_str();
            const std::size_t at = text.find(" ...{skipping ");
            ASSERT_NE(at, std::string::npos);
            const std::uint64_t count = std::stoull(text.substr(at + 14));
            const std::uint64_t markerLength = 25 + std::to_string(count).size();
            EXPECT_EQ(count, length - (target - markerLength)) << length << " to " << target;
        }
    }
    // Backslashes that end the head go; the rest of the line is untouched.
    // (254 bytes to 100: a 28-byte marker, 72 bytes beside it, a head of 54 ending in the two.)
    std::string escaped = std::string(52, 'a') + "\\\\" + std::string(200, 'b');
    out = "pre\\";
    renderTrimmedTo(out, escaped.data(), escaped.size(), 100);
    EXPECT_EQ(out.view().substr(0, 56), "pre\\" + std::string(52, 'a'));
    EXPECT_EQ(out.view().substr(56, 14), " ...{skipping ");
}

struct Deciding : LogFormatCallback {
    bool accept = false;
    int offered = 0;
    bool trimOversizedMessage(Str& out, StrSegment, std::uint64_t, std::uint64_t) override {
        ++offered;
        if (accept) out.append("[long] ");
        return accept;
    }
};

TEST_F(LoggerFormatTest, OversizedMessagesGoToTheCallback) {
    const std::string big(5000, 'q');
    Deciding callback;
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 0, &callback), big);  // no limit
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 5000, &callback), big);
    EXPECT_EQ(callback.offered, 0);
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 4999, &callback), big);  // declined
    EXPECT_EQ(callback.offered, 1);
    callback.accept = true;
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 4000, &callback).size(), 7u + 500u);  // M/8
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 799, &callback).size(), 7u + 100u);
    EXPECT_EQ(render("%m", std::string(99, 'q'), LOG_INFO, LogSerialization::TEXT, 50, &callback).size(),
              7u + 99u);                                                                 // 100 is no cut
    EXPECT_EQ(render("%m", big, LOG_INFO, LogSerialization::TEXT, 4000, nullptr), big);  // nobody to accept
}

TEST_F(LoggerFormatTest, JsonLinesAreJson) {
    EXPECT_EQ(render("%d %p %c %m%n", "hello", LOG_WARN, LogSerialization::JSON),
              "{\"datetime\":\"2026-11-13 04:00:00,123\",\"log_level\":\"WARN\",\"component\":\"comp\","
              "\"data\":\"hello\"}\n");
    EXPECT_EQ(render("%m text %p%n%n", "m", LOG_INFO, LogSerialization::JSON),
              "{\"log_level\":\"INFO\",\"data\":\"m\"}\n\n");
    EXPECT_EQ(render("plain", "m", LOG_INFO, LogSerialization::JSON), "{}");

    const char* const patterns[] = {"%d %p %c %m%n", "%m",         "%c%c%n",   "%r %R %u %T %t %-5p %m %n",
                                    "%.3m%5c",       "%d{%Y}%m%m", "x%%y %n%m"};
    const std::string messages[] = {"plain",
                                    "quote \" and backslash \\ and slash /",
                                    std::string("nul \0 bell \a del \x7f", 18),
                                    "tab\tnew\nline\rcarriage",
                                    "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
                                    "bad \xc3 \xff \xed\xa0\x80 \xe0\x80\x80 \xf4\x90\x80\x80 end\xe2\x82",
                                    std::string(3000, '\\'),
                                    "trailing backslash \\"};
    std::mt19937 rng(3);
    int parsed = 0;
    for (const char* pattern : patterns) {
        for (const std::string& message : messages) {
            for (std::uint64_t limit : {std::uint64_t{0}, std::uint64_t{120}}) {
                Deciding trim;
                trim.accept = true;
                const std::string line = render(pattern, message, static_cast<int>(rng() % 11) - 1,
                                                LogSerialization::JSON, limit, &trim, "co\"mp\n");
                const std::size_t close = line.find_last_of('}');
                ASSERT_NE(close, std::string::npos) << line;
                EXPECT_EQ(line.find_first_not_of('\n', close + 1), std::string::npos) << line;
                nlohmann::json object;
                ASSERT_NO_THROW(object = nlohmann::json::parse(line.substr(0, close + 1))) << line;
                ASSERT_TRUE(object.is_object());
                if (object.contains("component")) {
                    EXPECT_EQ(object["component"], "co\"mp\n");
                }
                if (limit == 0 && object.contains("data") && message.find('\xff') == std::string::npos &&
                    std::string(pattern).find("%.3m") == std::string::npos) {
                    EXPECT_EQ(object["data"].get<std::string>(), message) << pattern;
                }
                ++parsed;
            }
        }
    }
    EXPECT_EQ(parsed, 7 * 8 * 2);
}

TEST(LoggerLevelTest, NamesBothWays) {
    struct Case {
        const char* name;
        bool ok;
        LogLevel level;
    } cases[] = {{"DEBUG", true, LOG_DEBUG},   {"warn", true, LOG_WARN},      {"Emerg", true, LOG_EMERG},
                 {"NOTICE", true, LOG_NOTICE}, {"WARNING", false, LOG_ALERT}, {"", false, LOG_ALERT},
                 {"INF", false, LOG_ALERT},    {"crit ", false, LOG_ALERT}};
    for (const Case& c : cases) {
        LogLevel level = LOG_ALERT;
        EXPECT_EQ(parseLogLevel(c.name, level), c.ok) << c.name;
        EXPECT_EQ(level, c.level) << c.name;
    }
    EXPECT_STREQ(logLevelName(LOG_FATAL), "FATAL");
    EXPECT_STREQ(logLevelName(9), "???");
}

TEST(LoggerFormatDeathTest, TrimmingAssertsItsBounds) {
    const std::string text(100, 'a');
    Str out;
    EXPECT_DEATH(renderTrimmedTo(out, text.data(), text.size(), 44), "trimTo >= 45");
    EXPECT_DEATH(renderTrimmedTo(out, text.data(), 45, 45), "msgsize > trimTo");
}

}  // namespace
}  // namespace basicutil
