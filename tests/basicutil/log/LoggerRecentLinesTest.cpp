#include "basicutil/log/LoggerRecentLines.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Platform.h"

namespace basicutil {
namespace {

struct Kept {
    std::uint64_t sequence;
    Timeval time;
    std::uint64_t threadId;
    int level;
    std::string channel, message;
    std::size_t fullLength;
};

struct Read {
    std::vector<Kept> lines;
    std::size_t busy = 0;
};

Read readRing() {
    Read r;
    r.busy = forEachRecentLogLine(
        [](const RecentLogLine& line, void* arg) {
            static_cast<std::vector<Kept>*>(arg)->push_back(
                {line.sequence, line.time, line.threadId, line.level, std::string(line.channel().view()),
                 std::string(line.message().view()), line.fullLength});
        },
        &r.lines);
    return r;
}

// The newest line kept (the ring is the process's: other lines come before it); none: all empty.
Kept newest() {
    const Read r = readRing();
    return r.lines.empty() ? Kept{} : r.lines.back();
}

// What is kept of a channel name and a message: the name up to its limit, the message in the
// room left, neither cut inside a UTF-8 sequence, the full length always.
TEST(LoggerRecentLinesTest, KeepsWhatFitsAndSaysWhatWasCut) {
    const std::size_t room = kRecentLogTextBytes;
    const std::string euro = "\xE2\x82\xAC";  // three bytes
    const std::string longName(kRecentLogChannelBytes + 10, 'c');
    const struct {
        std::string channel, message;
        std::string keptChannel, keptMessage;
    } cases[] = {
        {"Zones", "loaded 12 zones", "Zones", "loaded 12 zones"},
        {"Zones", "", "Zones", ""},
        {"", "no channel", "", "no channel"},
        {"Z", std::string(room - 1, 'm'), "Z", std::string(room - 1, 'm')},
        {"Z", std::string(room, 'm'), "Z", std::string(room - 1, 'm')},
        {"Z", std::string(room - 2, 'm') + euro, "Z", std::string(room - 2, 'm')},
        {"Z", std::string(room - 4, 'm') + euro, "Z", std::string(room - 4, 'm') + euro},
        {longName, "after a long name", longName.substr(0, kRecentLogChannelBytes), "after a long name"},
        {std::string(kRecentLogChannelBytes - 1, 'c') + euro, "m",
         std::string(kRecentLogChannelBytes - 1, 'c'), "m"},
        {"NUL", std::string("a\0b\nc", 5), "NUL", std::string("a\0b\nc", 5)},
    };
    for (const auto& c : cases) {
        const Timeval when{1700000000 + static_cast<std::int64_t>(c.message.size()), 123456};
        keepRecentLogLine(StrSegment(c.channel), LOG_WARN, when, StrSegment(c.message));
        const Kept k = newest();
        EXPECT_EQ(k.channel, c.keptChannel) << c.channel;
        EXPECT_EQ(k.message, c.keptMessage) << c.message.size();
        EXPECT_EQ(k.fullLength, c.message.size());
        EXPECT_EQ(k.level, LOG_WARN);
        EXPECT_EQ(k.time.tv_sec, when.tv_sec);
        EXPECT_EQ(k.time.tv_usec, when.tv_usec);
        EXPECT_EQ(k.threadId, platform::currentThreadId());
    }
    // A level out of range is kept as it was (the log then says "???").
    keepRecentLogLine(StrSegment("Z"), -3, Timeval{}, StrSegment("odd level"));
    EXPECT_EQ(newest().level, -3);
}

// The ring keeps the last kRecentLogLines, oldest first, numbered without gaps.
TEST(LoggerRecentLinesTest, KeepsTheLastLinesInOrder) {
    for (int i = 0; i < 200; ++i)
        keepRecentLogLine(StrSegment("Order"), LOG_INFO, Timeval{i, 0}, StrSegment(std::to_string(i)));
    const Read r = readRing();
    EXPECT_EQ(r.busy, 0u);
    ASSERT_EQ(r.lines.size(), kRecentLogLines);
    for (std::size_t i = 0; i < kRecentLogLines; ++i) {
        EXPECT_EQ(r.lines[i].message, std::to_string(200 - kRecentLogLines + i));
        if (i > 0) {
            EXPECT_EQ(r.lines[i].sequence, r.lines[i - 1].sequence + 1);
        }
    }
}

// What a channel logs is kept, with or without appenders: not what its threshold drops, nor the
// repeats it counts; the count's report is.
TEST(LoggerRecentLinesTest, ChannelsKeepWhatTheyLog) {
    Logger plain("RecentPlain", 0, 0, 0);
    plain.setThreshold(LOG_NOTICE);
    plain.log(LOG_INFO, "below the threshold");
    EXPECT_NE(newest().message, "below the threshold");
    plain.logf(LOG_ERROR, "disk %s is %d%% full", "/var", 97);
    Kept k = newest();
    EXPECT_EQ(k.channel, "RecentPlain");
    EXPECT_EQ(k.message, "disk /var is 97% full");
    EXPECT_EQ(k.level, LOG_ERROR);
    const std::int64_t now = Timeval::nowSeconds();
    EXPECT_LE(std::abs(k.time.tv_sec - now), 2);

    Logger counting("RecentCounting", 0, 60, 10);
    counting.log(LOG_WARN, "again");
    const std::uint64_t first = newest().sequence;
    counting.log(LOG_WARN, "again");
    counting.log(LOG_WARN, "again");
    EXPECT_EQ(newest().sequence, first);
    counting.flushSimilar();
    k = newest();
    EXPECT_EQ(k.channel, "RecentCounting");
    EXPECT_EQ(k.message.rfind("2 similar messages suppressed.", 0), 0u) << k.message;
}

// Writers on several threads while a reader reads: every line read is whole (its text says which
// thread wrote it and the thread id agrees), and each thread's lines come in its order.
TEST(LoggerRecentLinesTest, ConcurrentWritersNeverShowATornLine) {
    constexpr int kWriters = 3;
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> ids[kWriters] = {};
    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.emplace_back([&, w] {
            ids[w] = platform::currentThreadId();
            const std::string pad(static_cast<std::size_t>(40 + 60 * w), static_cast<char>('a' + w));
            for (std::uint64_t n = 0; !stop.load(std::memory_order_relaxed); ++n) {
                const std::string text = std::to_string(w) + " " + std::to_string(n) + " " + pad;
                keepRecentLogLine(StrSegment("Torn"), LOG_DEBUG, Timeval{}, StrSegment(text));
            }
        });
    }
    for (int w = 0; w < kWriters; ++w)
        while (ids[w].load() == 0) std::this_thread::yield();
    std::size_t checked = 0;
    for (int round = 0; round < 2000; ++round) {
        const Read r = readRing();
        std::int64_t last[kWriters] = {-1, -1, -1};
        for (const Kept& k : r.lines) {
            if (k.channel != "Torn") continue;
            const int w = k.message[0] - '0';
            ASSERT_TRUE(w >= 0 && w < kWriters) << k.message;
            const std::size_t space = k.message.find(' ', 2);
            ASSERT_NE(space, std::string::npos) << k.message;
            const std::int64_t n = std::stoll(k.message.substr(2, space - 2));
            const std::string pad(static_cast<std::size_t>(40 + 60 * w), static_cast<char>('a' + w));
            ASSERT_EQ(k.message.substr(space + 1), pad) << k.message;
            ASSERT_EQ(k.threadId, ids[w].load());
            ASSERT_GT(n, last[w]) << "a thread's lines out of order";
            last[w] = n;
            ++checked;
        }
    }
    stop = true;
    for (std::thread& t : writers) t.join();
    EXPECT_GT(checked, 0u);
}

}  // namespace
}  // namespace basicutil
