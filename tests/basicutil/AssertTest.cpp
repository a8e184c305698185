#include "basicutil/Assert.h"

#include <gtest/gtest.h>

#include <string_view>

#include "basicutil/Timeval.h"

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
    // Each C library words it its own way.
#if defined(__FreeBSD__)
    // __assert: "Assertion failed: (<expr>), function <function>, file <unit>, line <line>."
    EXPECT_DEATH(tv.snapMillisecond(1000),
                 "Assertion failed: \\(span < 1000\\), function snapMillisecond, file basicutil/Timeval, "
                 "line [0-9]+\\.");
#else
    // glibc's __assert_fail: "<prog>: <unit>:<line>: <function>: Assertion `<expr>' failed."
    EXPECT_DEATH(tv.snapMillisecond(1000),
                 "basicutil/Timeval:[0-9]+: snapMillisecond: Assertion `span < 1000' failed");
#endif
}

}  // namespace
