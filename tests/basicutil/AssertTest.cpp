#include "basicutil/Assert.h"

#include <gtest/gtest.h>

#include <string_view>

#include "basicutil/Timeval.h"
#include "support/test-platform.h"

namespace {

using vestra::detail::assertUnitOf;

// Split files report their topic; the longest topic wins (StrVector is not Str).
static_assert(std::string_view(assertUnitOf("src/basicutil/Timeval.cpp")) == "basicutil/Timeval");
static_assert(std::string_view(assertUnitOf("src/basicutil/TimevalText.cpp")) == "basicutil/Timeval");
static_assert(std::string_view(assertUnitOf("/abs/src/basicutil/StrVector.h")) == "basicutil/StrVector");
static_assert(std::string_view(assertUnitOf("src/basicutil/StrSplit.cpp")) == "basicutil/Str");
static_assert(std::string_view(assertUnitOf("src/libzero/codepoint-width.cpp")) == "libzero/codepoint-width");

TEST(AssertDeathTest, ReportsExpressionFunctionAndUnitThroughTheCLibrary) {
    basicutil::Timeval tv{5, 123456};
    EXPECT_DEATH(tv.snapMillisecond(1000), vestra::test_platform::assertionReport(
                                               "span < 1000", "snapMillisecond", "basicutil/Timeval"));
}

}  // namespace
