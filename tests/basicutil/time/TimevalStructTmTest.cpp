#include "basicutil/time/TimevalStructTm.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/LogCapture.h"

namespace basicutil {
namespace {

class TimevalStructTmTest : public ::testing::Test {
  protected:
    // A POSIX rule needs no zone files: one hour east of UTC, summer time from March to October.
    void SetUp() override {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    testing::LogCapture _log;
};

TEST_F(TimevalStructTmTest, ConvertsBothWays) {
    LocalStructTm local;
    ASSERT_TRUE(local.fromUnixTime(1700000000));  // 2023-11-14 22:13:20 UTC, winter
    EXPECT_EQ(local.tm_hour, 23);
    EXPECT_EQ(local.tm_isdst, 0);
    EXPECT_EQ(local.toUnixTime(), (Timeval{1700000000, 0}));

    LocalStructTmHires hires;
    ASSERT_TRUE(hires.fromUnixTime({1690000000, 654321}));  // summer
    EXPECT_EQ(hires.tm_isdst, 1);
    EXPECT_EQ(hires.tm_usec, 654321);
    EXPECT_EQ(hires.toUnixTime(), (Timeval{1690000000, 654321}));

    GmtStructTm gmt;
    ASSERT_TRUE(gmt.fromUnixTime(-1));
    EXPECT_EQ(gmt.tm_year, 69);
    EXPECT_EQ(gmt.tm_sec, 59);
    EXPECT_TRUE(_log.lines().empty());
}

TEST_F(TimevalStructTmTest, FailedConversionsClampAndLog) {
    LocalStructTmHires high;
    EXPECT_FALSE(high.fromUnixTime({INT64_MAX, 5}));
    EXPECT_EQ(high.tm_year + 1900, 9999);
    EXPECT_EQ(high.tm_mon, 11);
    EXPECT_EQ(high.tm_mday, 31);
    EXPECT_EQ(high.tm_hour * 3600 + high.tm_min * 60 + high.tm_sec, 86399);
    EXPECT_EQ(high.tm_wday, 5);
    EXPECT_EQ(high.tm_yday, 364);
    EXPECT_EQ(high.tm_isdst, -1);
    EXPECT_EQ(high.tm_usec, 999999);
    EXPECT_EQ(high.tm_gmtoff, 3600);  // zone fields come from time 0

    GmtStructTm low;
    EXPECT_FALSE(low.fromUnixTime(INT64_MIN));
    EXPECT_EQ(low.tm_year, 0);
    EXPECT_EQ(low.tm_mday, 1);
    EXPECT_EQ(low.tm_wday, 1);
    EXPECT_EQ(low.tm_yday, 0);
    EXPECT_EQ(low.tm_isdst, -1);

    ASSERT_EQ(_log.lines().size(), 2u);
    EXPECT_EQ(_log.lines()[0].channel, "Timeval");
    EXPECT_EQ(_log.lines()[0].message, "LocalStructTmHires::fromUnixTime(9223372036854775807) failed!");
    EXPECT_EQ(_log.lines()[1].message, "GmtStructTm::fromUnixTime(-9223372036854775808) failed!");
}

TEST_F(TimevalStructTmTest, FailedInversesGiveSentinelsAndLog) {
    GmtStructTm huge;
    huge.tm_year = 2147483647;  // month 13 pushes the year past what an int holds
    huge.tm_mon = 12;
    huge.tm_mday = 2;
    huge.tm_hour = 3;
    huge.tm_min = 4;
    huge.tm_sec = 5;
    EXPECT_EQ(huge.toUnixTime(), Timeval::MAX_TIME);

    GmtStructTm lastSecondOf1969;  // timegm's -1 is a real time here, but reads as failure
    ASSERT_TRUE(lastSecondOf1969.fromUnixTime(-1));
    EXPECT_EQ(lastSecondOf1969.toUnixTime(), Timeval::MIN_TIME);

    ASSERT_EQ(_log.lines().size(), 2u);
    EXPECT_EQ(_log.lines()[0].message, "GmtStructTm::toUnixTime(2147485547-13-2 3:04:05) failed!");
    EXPECT_EQ(_log.lines()[1].message, "GmtStructTm::toUnixTime(1969-12-31 23:59:59) failed!");
}

}  // namespace
}  // namespace basicutil
