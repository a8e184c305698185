#include "basicutil/platform/Platform.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

namespace basicutil::platform {
namespace {

TEST(PlatformTest, ThreadNameIsCutToTheLimitWithoutSplittingUtf8) {
    struct Case {
        std::string name;
        std::string expected;
    } cases[] = {{"ParentMonitoringThread", std::string("ParentMonitoringThread", kThreadNameMaxBytes)},
                 {"short", "short"},
                 // A two-byte character straddling the limit is dropped whole.
                 {std::string(kThreadNameMaxBytes - 1, 'a') + "\xC3\xA9xyz",
                  std::string(kThreadNameMaxBytes - 1, 'a')}};
    for (const Case& c : cases) {
        ASSERT_EQ(setThreadName(pthread_self(), c.name.c_str()), 0) << c.name;
        char got[64] = {};
        ASSERT_EQ(threadName(pthread_self(), got, sizeof got), 0);
        EXPECT_EQ(std::string(got), c.expected);
    }
}

// The C library's own text in every case: cut to fit a short buffer (ERANGE), and its unknown-number
// text with the number (EINVAL: "Unknown error 999" here, "Unknown error: 999" on FreeBSD).
TEST(PlatformTest, ErrorTextKeepsTheLibrarysTextWhenCutOrUnknown) {
    char buf[64];
    errno = EBADF;
    EXPECT_STREQ(errorText(EINVAL, buf, sizeof buf), "Invalid argument");
    char tiny[4];
    EXPECT_STREQ(errorText(EINVAL, tiny, sizeof tiny), "Inv");
    const std::string unknown = errorText(999, buf, sizeof buf);
    EXPECT_EQ(unknown.rfind("Unknown error", 0), 0u) << unknown;
    EXPECT_NE(unknown.find("999"), std::string::npos) << unknown;
    char cutUnknown[10];
    EXPECT_STREQ(errorText(999, cutUnknown, sizeof cutUnknown), "Unknown e");
    EXPECT_EQ(errno, EBADF);  // left as the caller had it
    char one[1];
    EXPECT_STREQ(errorText(EINVAL, one, sizeof one), "");
}

TEST(PlatformTest, RefusedSymbolicLinksAreEloopEverywhere) {
    const int flags = O_RDONLY | O_NOFOLLOW;
    EXPECT_EQ(openErrno(AT_FDCWD, "/", flags, ELOOP), ELOOP);
    EXPECT_EQ(openErrno(AT_FDCWD, "/", flags, ENOENT), ENOENT);
    EXPECT_EQ(openErrno(AT_FDCWD, "/", O_RDONLY, EMLINK),
              EMLINK);  // without O_NOFOLLOW it means what it says
    // ENOTDIR stays ENOTDIR where the name is no link.
    EXPECT_EQ(openErrno(AT_FDCWD, "/dev/null", flags | O_DIRECTORY, ENOTDIR), ENOTDIR);
}

TEST(PlatformTest, StructTmZoneAndProcessorTime) {
    std::tm tm{};
    static const char kAbbreviation[] = "CEST";
    setTmZone(tm, kAbbreviation);
    EXPECT_EQ(tm.tm_zone, kAbbreviation);
    const std::int64_t before = processorTimeMicroseconds();
    ASSERT_GE(before, 0);
    volatile std::uint64_t sink = 0;
    for (unsigned i = 0; i < 20000000; ++i) sink = sink + i;
    EXPECT_GT(processorTimeMicroseconds(), before);
}

}  // namespace
}  // namespace basicutil::platform
