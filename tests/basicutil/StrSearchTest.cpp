#include "basicutil/StrSearch.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrSearchTest, SearchingAndCounting) {
    const StrSegment s("xxabxx");
    EXPECT_EQ(findLastNotOf(s, 'x'), 3u);
    EXPECT_EQ(findLastNotOf(s, 'x', 1), npos);
    EXPECT_EQ(findLastNotOf(s, StrSegment("xb")), 2u);
    EXPECT_EQ(findLastNotOf(s, StrSegment(""), 4), 4u);  // an empty list: the start itself
    EXPECT_EQ(findLastNotOf(StrSegment(""), 'x'), npos);
    EXPECT_TRUE(startsWithAnyOf(s, ByteSet("yx")));
    EXPECT_FALSE(endsWithAnyOf(StrSegment(""), ByteSet("x")));
    EXPECT_EQ(countByte(s, 'x', 1, 3), 1u);
    EXPECT_EQ(countByte(s, 'x', 9), 0u);
    EXPECT_EQ(countMembers(s, ByteSet("ab"), 0, 100), 2u);
    EXPECT_TRUE(startsWith(s, "xxa"));
    EXPECT_FALSE(endsWith(StrSegment("x"), "xx"));
    EXPECT_TRUE(containsWhitespace(StrSegment("a\vb")));
    EXPECT_FALSE(
        containsWhitespace(StrSegment("a\x85\xA0"
                                      "b")));  // bytes past ASCII are not blanks
    EXPECT_EQ(lineCount(StrSegment("")), 1u);
    EXPECT_EQ(lineCount(StrSegment(std::string(40, '\n'))), 41u);  // across 16-byte blocks
    const std::string longLine = std::string(37, 'a') + "\r\nb";
    EXPECT_EQ(findLineEnd(StrSegment(longLine)), 37u);
    EXPECT_EQ(findLineEnd(StrSegment(longLine), 38), 38u);
    EXPECT_EQ(findLineEnd(StrSegment(longLine), 39), npos);
    EXPECT_TRUE(hasNonAscii(StrSegment(std::string(33, 'a') + "\xC3\xA9")));
    EXPECT_FALSE(hasNonAscii(StrSegment(std::string(33, 'a'))));
}

}  // namespace
}  // namespace basicutil
