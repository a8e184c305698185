#include "basicutil/platform/Assert.h"

#include <gtest/gtest.h>

#include <string_view>

#include "basicutil/timevalue/Timeval.h"
#include "support/test-platform.h"

namespace {

using vestra::detail::assertUnitOf;

// Split files report their topic; the longest topic wins (StrVector is not Str).
static_assert(std::string_view(assertUnitOf("src/basicutil/timevalue/Timeval.cpp")) == "basicutil/Timeval");
static_assert(std::string_view(assertUnitOf("src/basicutil/timevalue/TimevalText.cpp")) ==
              "basicutil/Timeval");
static_assert(std::string_view(assertUnitOf("/abs/src/basicutil/text/StrVector.h")) == "basicutil/StrVector");
static_assert(std::string_view(assertUnitOf("src/basicutil/text/StrSplit.cpp")) == "basicutil/Str");
static_assert(std::string_view(assertUnitOf("src/libzero/codepoint-width.cpp")) == "libzero/codepoint-width");
// The layer folder is skipped, and a flat path reads the same.
static_assert(std::string_view(assertUnitOf("src/basicutil/Timeval.cpp")) == "basicutil/Timeval");
static_assert(std::string_view(assertUnitOf("src/main/vestra-helper.cpp")) == "main/vestra-helper");

TEST(AssertDeathTest, ReportsExpressionFunctionAndUnitThroughTheCLibrary) {
    basicutil::Timeval tv{5, 123456};
    EXPECT_DEATH(tv.snapMillisecond(1000), vestra::test_platform::assertionReport(
                                               "span < 1000", "snapMillisecond", "basicutil/Timeval"));
}

}  // namespace
