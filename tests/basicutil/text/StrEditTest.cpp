#include "basicutil/text/StrEdit.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrEditTest, ReplaceStripTruncateReverse) {
    Str s("a-b-c");
    EXPECT_EQ(replaceByte(s, '-', '+'), 2u);
    EXPECT_EQ(replaceMembers(s, ByteSet("+c"), '_'), 3u);
    EXPECT_EQ(s, std::string_view("a_b__"));
    EXPECT_EQ(escapeMembers(StrSegment("a,b\"c"), ByteSet(",\""), '\\'), std::string_view("a\\,b\\\"c"));
    Str quoted("'x'");
    EXPECT_EQ(stripQuotes(quoted, '\''), 1u);
    StrSegment lone("'");
    EXPECT_EQ(stripQuotes(lone, '\''), 1u);
    StrSegment text("a\xC3\xA9z");                // "aéz"
    EXPECT_EQ(truncateAtByteCount(text, 2), 1u);  // never inside é
    char bytes[] = "abcd";
    reverseBytes(bytes, bytes + 4);
    EXPECT_STREQ(bytes, "dcba");
    char* copy = duplicateCString(StrSegment("dup", 2));
    EXPECT_STREQ(copy, "du");
    std::free(copy);
}

TEST(StrEditTest, Trimming) {
    struct Case {
        const char* text;
        bool left, right;
        const char* expected;
    } cases[] = {{"   ", true, true, ""},       {"   ", false, true, ""},    {"  a  ", true, false, "a  "},
                 {"  a  ", false, true, "  a"}, {"  a  ", true, true, "a"},  {"  a  ", false, false, "  a  "},
                 {"", true, true, ""},          {"\t a \t", true, true, "a"}};
    for (const Case& c : cases) {
        Str s(c.text);
        trimInPlace(s, kWhitespace, c.left, c.right);
        EXPECT_EQ(s, std::string_view(c.expected)) << c.text << c.left << c.right;
        StrSegment v(c.text);
        trimInPlace(v, kWhitespace, c.left, c.right);
        EXPECT_EQ(v.view(), c.expected);
    }
}

}  // namespace
}  // namespace basicutil
