// A stream read line after line allocates nothing once it is under way: its layout, hour and zone
// words are kept, and the channels say an inference once. The program's allocations are counted
// by support/allocation-guard.c (not in the sanitized builds, whose runtimes own malloc).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "basicutil/dateparser/DateParser.h"
#include "support/allocation-guard.h"

namespace basicutil {
namespace {

// Line i of a stream of one layout, a second apart from the one before.
std::string lineOf(const std::string& kind, int i) {
    const int s = i % 60, m = i / 60 % 60, h = 3 + i / 3600;
    char text[160];
    if (kind == "iso") {
        std::snprintf(text, sizeof text, "2024-01-02T%02d:%02d:%02d.%03d+01:00 INFO [main] request %d", h, m,
                      s, i % 1000, i);
    } else if (kind == "iso-space") {
        std::snprintf(text, sizeof text, "2024-01-02 %02d:%02d:%02d,%03d WARN  c.e.Service - slow", h, m, s,
                      i % 1000);
    } else if (kind == "syslog") {
        std::snprintf(text, sizeof text, "Jan  2 %02d:%02d:%02d host sshd[%d]: Accepted", h, m, s, i);
    } else if (kind == "clf") {
        std::snprintf(text, sizeof text,
                      "192.0.2.7 - - [02/Jan/2024:%02d:%02d:%02d -0700] \"GET / HTTP/1.1\" 200", h, m, s);
    } else if (kind == "rfc2822") {
        std::snprintf(text, sizeof text, "Date: Tue, 02 Jan 2024 %02d:%02d:%02d GMT", h, m, s);
    } else if (kind == "slashed") {
        std::snprintf(text, sizeof text, "01/02/2024 %d:%02d:%02d AM job %d", h, m, s, i);
    } else if (kind == "epoch") {
        std::snprintf(text, sizeof text, "level=info ts=%d.%03d msg=tick", 1704164645 + i, i % 1000);
    } else {
        std::snprintf(text, sizeof text, "    at com.example.Service.handle(Service.java:%d) caused by: x",
                      i);
    }
    return text;
}

TEST(DateParserAllocationTest, AStreamUnderWayAllocatesNothing) {
    // The count sees an allocation: a zero below means none, not an interposer that is not there.
    const unsigned long start = vestra_allocations();
    const auto* probe = new std::vector<int>(1000);
    EXPECT_GT(vestra_allocations(), start);
    delete probe;
    for (const char* kind : {"iso", "iso-space", "syslog", "clf", "rfc2822", "slashed", "epoch", "none"}) {
        std::vector<std::string> lines;
        for (int i = 0; i < 4000; ++i) lines.push_back(lineOf(kind, i));
        DateParserOptions options;
        options.zone = TimeZone::utc();
        options.reference = Timeval{1718452800, 0};
        DateParser parser(options);
        for (int i = 0; i < 100; ++i)
            static_cast<void>(parser.parse(StrSegment(lines[static_cast<std::size_t>(i)])));
        const unsigned long before = vestra_allocations();
        std::size_t found = 0;
        for (std::size_t i = 100; i < lines.size(); ++i)
            found += parser.parse(StrSegment(lines[i])).found ? std::size_t{1} : std::size_t{0};
        EXPECT_EQ(vestra_allocations() - before, 0u) << kind;
        EXPECT_EQ(found, std::string(kind) == "none" ? std::size_t{0} : lines.size() - 100) << kind;
    }
}

}  // namespace
}  // namespace basicutil
