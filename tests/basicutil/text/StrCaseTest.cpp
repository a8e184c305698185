#include "basicutil/text/StrCase.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrCaseTest, UpperAndLower) {
    struct Case {
        const char *text, *upper, *lower;
    } cases[] = {// ASCII only: every letter through the block path, both ends of each range
                 {"abcdefghijklmnopqrstuvwxyz 0123456789 ABCDEFGHIJKLMNOPQRSTUVWXYZ",
                  "ABCDEFGHIJKLMNOPQRSTUVWXYZ 0123456789 ABCDEFGHIJKLMNOPQRSTUVWXYZ",
                  "abcdefghijklmnopqrstuvwxyz 0123456789 abcdefghijklmnopqrstuvwxyz"},
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
