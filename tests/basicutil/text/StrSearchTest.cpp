#include "basicutil/text/StrSearch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "basicutil/platform/Platform.h"
#include "basicutil/text/StrSearch_details.h"

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

// The vector paths find the first line end exactly as a byte loop does: every length up to 300,
// every alignment within 32 bytes, "\n" or "\r" at every position, and every starting offset.
// Counting in blocks agrees with counting byte by byte at every length and offset.
TEST(StrSearchTest, CountingBytesInBlocks) {
    std::mt19937 rng(9);
    std::string text(5000, '\0');
    for (char& c : text) c = "\n\nab\xff\x0a\x8a"[rng() % 7];
    for (int round = 0; round < 300; ++round) {
        const std::size_t pos = rng() % 64, n = rng() % 4900;
        for (char c : {'\n', 'a', '\xff', '\x8a'}) {
            std::size_t expected = 0;
            for (std::size_t i = pos; i < pos + n; ++i) expected += text[i] == c;
            ASSERT_EQ(countByte(StrSegment(text), c, pos, n), expected) << pos << "+" << n;
        }
    }
    EXPECT_EQ(countByte(StrSegment(std::string(70000, '\n')), '\n'), 70000u);  // past a lane's 255 blocks
}

TEST(StrSearchTest, LineEndVectorPathsAgree) {
    std::string buffer(400, 'x');
    const bool avx2 = platform::cpuHasAvx2();
    for (std::size_t length = 0; length <= 300; ++length) {
        for (std::size_t at = 0; at <= length; ++at) {
            const std::size_t align = (length + at) % 32;
            std::fill(buffer.begin(), buffer.end(), '\xC3');
            if (at < length) buffer[align + at] = (at & 1) != 0 ? '\n' : '\r';
            if (at + 7 < length) buffer[align + at + 7] = '\n';  // a later one must not win
            const StrSegment s(buffer.data() + align, length);
            for (size_type pos :
                 {size_type{0}, size_type{1}, static_cast<size_type>(at), static_cast<size_type>(length)}) {
                size_type expected = npos;
                for (size_type i = pos; i < length; ++i) {
                    if (s[i] == '\n' || s[i] == '\r') {
                        expected = i;
                        break;
                    }
                }
                ASSERT_EQ(findLineEnd(s, pos), expected) << length << " " << at << " " << pos;
                ASSERT_EQ(search_details::findLineEndSse2(s, pos), expected)
                    << length << " " << at << " " << pos;
                if (avx2) {
                    ASSERT_EQ(search_details::findLineEndAvx2(s, pos), expected)
                        << length << " " << at << " " << pos;
                }
            }
        }
    }
}

}  // namespace
}  // namespace basicutil
