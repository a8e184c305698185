#include "libzero/create-crash-dump.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

// What a dump into a file it does not own wrote, read back after close.
template <class Write>
std::string written(Write write) {
    FILE* file = tmpfile();
    EXPECT_NE(file, nullptr);
    crash_dump d;
    crash_dump_init(&d, fileno(file));
    write(&d);
    EXPECT_EQ(crash_dump_close(&d), 0);
    EXPECT_NE(fcntl(fileno(file), F_GETFD), -1);  // still open: not the dump's to close
    std::string out;
    rewind(file);
    char buf[8192];
    for (size_t n; (n = fread(buf, 1, sizeof buf, file)) > 0;) out.append(buf, n);
    EXPECT_EQ(fclose(file), 0);
    return out;
}

TEST(CreateCrashDumpTest, NumbersInEveryForm) {
    const struct {
        char form;  // d(ec), u(dec), h(ex)
        long long value;
        unsigned width;
        const char* text;
    } cases[] = {
        {'d', 0, 0, "0"},
        {'d', -1, 0, "-1"},
        {'d', LLONG_MAX, 0, "9223372036854775807"},
        {'d', LLONG_MIN, 0, "-9223372036854775808"},
        {'u', -1, 0, "18446744073709551615"},
        {'u', 7, 3, "007"},
        {'u', 12345, 2, "12345"},
        {'u', 5, 25, "00000000000000000005"},  // widths above 20 count as 20
        {'h', 0, 0, "0"},
        {'h', 0xdeadbeef, 16, "00000000deadbeef"},
        {'h', -1, 0, "ffffffffffffffff"},
        {'h', 0xabc, 2, "abc"},
    };
    for (const auto& c : cases) {
        const std::string out = written([&](crash_dump* d) {
            if (c.form == 'd') crash_dump_dec(d, c.value);
            if (c.form == 'u') crash_dump_udec(d, static_cast<unsigned long long>(c.value), c.width);
            if (c.form == 'h') crash_dump_hex(d, static_cast<unsigned long long>(c.value), c.width);
        });
        EXPECT_EQ(out, c.text) << c.form << " " << c.value;
    }
    char name[21];
    EXPECT_EQ(crash_dump_format_udec(0, name), 1u);
    EXPECT_STREQ(name, "0");
    EXPECT_EQ(crash_dump_format_udec(ULLONG_MAX, name), 20u);
    EXPECT_STREQ(name, "18446744073709551615");
}

// The dates against the C library's gmtime_r, which a test may use: leap days, centuries, years
// before 1970, and random seconds over 1900 to 9999.
TEST(CreateCrashDumpTest, UtcTimesAgreeWithTheCLibrary) {
    std::vector<long long> seconds = {
        0,          -1,       951782400, 951868799, 4107542400LL, -2208988800LL, 253402300799LL,
        1709164800, 68169600, -86400};
    std::mt19937_64 rng(3);
    for (int i = 0; i < 20000; ++i)
        seconds.push_back(-2208988800LL + static_cast<long long>(rng() % (253402300800ULL + 2208988800ULL)));
    for (long long s : seconds) {
        const time_t t = static_cast<time_t>(s);
        struct tm tm {};
        ASSERT_NE(gmtime_r(&t, &tm), nullptr);
        char expected[64], compact[32];
        ASSERT_GT(strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S.000042 UTC", &tm), 0u);
        ASSERT_GT(strftime(compact, sizeof compact, "%Y%m%dT%H%M%SZ", &tm), 0u);
        ASSERT_EQ(written([&](crash_dump* d) { crash_dump_utc(d, s, 42); }), expected) << s;
        char ours[17];
        crash_dump_utc_compact(s, ours);
        ASSERT_STREQ(ours, compact) << s;
    }
    EXPECT_EQ(written([](crash_dump* d) { crash_dump_utc(d, 0, 999999); }), "1970-01-01 00:00:00.999999 UTC");
}

// Text larger than the buffer, in pieces of every size, comes out whole and in order.
TEST(CreateCrashDumpTest, TextCrossesTheBufferWhole) {
    std::string expected;
    const std::string out = written([&](crash_dump* d) {
        std::mt19937 rng(1);
        for (int i = 0; i < 300; ++i) {
            std::string piece(rng() % 5000, '\0');
            for (char& c : piece) c = static_cast<char>('a' + rng() % 26);
            crash_dump_bytes(d, piece.data(), piece.size());
            crash_dump_char(d, '\n');
            expected += piece + "\n";
        }
        crash_dump_text(d, nullptr);  // nothing
        crash_dump_text(d, "end");
        expected += "end";
    });
    EXPECT_EQ(out.size(), expected.size());
    EXPECT_TRUE(out == expected);
}

// A created log is new, private to its owner, and complete when closed; a second create of the
// same name fails and leaves the first alone.
TEST(CreateCrashDumpTest, CreatedLogsAreExclusiveAndPrivate) {
    char dir[] = "/tmp/crash-dump-test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/log";
    const mode_t old = umask(0);
    crash_dump d, second;
    ASSERT_EQ(crash_dump_create(&d, path.c_str()), 0);
    umask(old);
    crash_dump_text(&d, "hello");
    EXPECT_EQ(crash_dump_create(&second, path.c_str()), EEXIST);
    EXPECT_EQ(crash_dump_close(&d), 0);
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(st.st_size, 5);
    EXPECT_EQ(crash_dump_create(&second, (std::string(dir) + "/missing/log").c_str()), ENOENT);
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(rmdir(dir), 0);
}

// A descriptor that fails keeps the first error; what follows is counted, not written, and the
// dump goes on without blocking or ending the caller.
TEST(CreateCrashDumpTest, FailuresAreKeptAndTheRestDropped) {
    struct sigaction ignore {
    }, old{};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGPIPE, &ignore, &old), 0);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(close(fds[0]), 0);  // no reader: EPIPE
    crash_dump d;
    crash_dump_init(&d, fds[1]);
    crash_dump_text(&d, "lost");
    EXPECT_EQ(crash_dump_flush(&d), EPIPE);
    crash_dump_text(&d, "more");
    EXPECT_EQ(crash_dump_close(&d), EPIPE);
    EXPECT_EQ(d.written, 0u);
    EXPECT_EQ(d.dropped, 8u);
    ASSERT_EQ(close(fds[1]), 0);
    ASSERT_EQ(sigaction(SIGPIPE, &old, nullptr), 0);

    const int full = open("/dev/full", O_WRONLY);
    if (full >= 0) {  // Linux: every write fails with ENOSPC, as on a full disk
        crash_dump_init(&d, full);
        std::string big(10000, 'x');
        crash_dump_bytes(&d, big.data(), big.size());
        EXPECT_EQ(crash_dump_close(&d), ENOSPC);
        EXPECT_EQ(d.dropped, 10000u);
        EXPECT_EQ(close(full), 0);
    }
}

}  // namespace
