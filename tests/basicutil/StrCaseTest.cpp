#include "basicutil/StrCase.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrCaseTest, UpperAndLower) {
    struct Case {
        const char *text, *upper, *lower;
    } cases[] = {{"hello, world 0123456789 mixed CASE", "HELLO, WORLD 0123456789 MIXED CASE",
                  "hello, world 0123456789 mixed case"},
                 {"abcdefghijklmnopqrstuvwxyz grüße", "ABCDEFGHIJKLMNOPQRSTUVWXYZ GRÜßE",
                  "abcdefghijklmnopqrstuvwxyz grüße"},
                 {"Émile @[`{", "ÉMILE @[`{", "émile @[`{"}};
    for (const Case& c : cases) {
        Str s(c.text);
        toUpperInPlace(s);
        EXPECT_EQ(s, std::string_view(c.upper));
        EXPECT_EQ(toLowerCopy(StrSegment(c.text)), std::string_view(c.lower));
    }
}

}  // namespace
}  // namespace basicutil
