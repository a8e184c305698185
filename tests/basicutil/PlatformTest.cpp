#include "basicutil/Platform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
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

TEST(PlatformTest, ErrorTextIsTerminatedEvenWhenCut) {
    char buf[64];
    EXPECT_STREQ(errorText(EINVAL, buf, sizeof buf), "Invalid argument");
    char tiny[4];
    EXPECT_STREQ(errorText(EINVAL, tiny, sizeof tiny), "Inv");
}

}  // namespace
}  // namespace basicutil::platform
