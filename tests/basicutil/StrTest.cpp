#include "basicutil/Str.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "basicutil/StrSearch.h"

namespace basicutil {
namespace {

TEST(StrTest, InlineThenHeapAlwaysTerminated) {
    Str s;
    EXPECT_EQ(s.capacity(), 15u);
    EXPECT_EQ(s.c_str()[0], '\0');
    s.append("0123456789abcde");  // 15 bytes still fit inline
    EXPECT_EQ(s.capacity(), 15u);
    s.push_back('f');
    EXPECT_GE(s.capacity(), 16u);
    EXPECT_EQ(std::string_view(s.c_str()), "0123456789abcdef");
    s.append(s.data() + 10, 6);  // appending a part of itself survives the move to a bigger buffer
    EXPECT_EQ(s, std::string_view("0123456789abcdefabcdef"));
    Str moved(std::move(s));
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.c_str()[0], '\0');
    Str shortOne("tiny");
    shortOne.swap(moved);
    EXPECT_EQ(shortOne, std::string_view("0123456789abcdefabcdef"));
    EXPECT_EQ(moved, std::string_view("tiny"));
    moved.erase(1, 2);
    EXPECT_EQ(moved, std::string_view("ty"));
    EXPECT_LT(Str("ab"), Str("abc"));
    EXPECT_LT(Str("abc"), Str("abd"));
}

TEST(StrTest, LengthLimitRaisesTheAppendError) {
    Str s("x");
    try {
        s.append(Str::kMaxLength, 'y');
        FAIL() << "appended past the limit";
    } catch (const std::length_error& e) {
        EXPECT_STREQ(e.what(), "basic_string::append");
    }
    EXPECT_EQ(s, std::string_view("x"));
}

TEST(StrDeathTest, AssertionTexts) {
    Str s;
    EXPECT_DEATH(s.pop_back(), "!empty\\(\\)");
    StrSegment view("abc");
    EXPECT_DEATH(view.setEnd(view._data + 4), "_len >= \\(size_type\\) \\(p - _data\\)");
}

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

TEST(StrSearchTest, CaseConversion) {
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

TEST(StrSearchTest, ReplaceStripTruncateReverse) {
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

TEST(StrSearchTest, Trimming) {
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

TEST(StrSearchTest, BinaryAppends) {
    Str s;
    appendBigEndian32(s, 0x01020304);
    appendBigEndian64(s, 0x05060708090A0B0CULL);
    _appendBase128(s, 300);
    _appendBase128(s, UINT64_MAX);
    EXPECT_EQ(s, std::string_view("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\xAC\x02"
                                  "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01",
                                  24));
}

TEST(StrTest, CharacterClassesHoldExactlyTheirMembers) {
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const std::string identifier = letters + "0123456789";
    struct Case {
        CharacterClass which;
        std::string members;
    } cases[] = {{CHARS_WHITESPACE, " \t\n\v\f\r"},
                 {CHARS_SIGNED_DIGITS, "-0123456789"},
                 {CHARS_NUMBER, "-+xX0123456789abcdefABCDEF"},
                 {CHARS_LETTERS, letters},
                 {CHARS_IDENTIFIER, identifier + "_"},
                 {CHARS_IDENTIFIER_DOT, identifier + "_."},
                 {CHARS_IDENTIFIER_DASH, identifier + "_-"},
                 {CHARS_IDENTIFIER_DASH_DOT, identifier + "_-."}};
    for (const Case& c : cases) {
        for (unsigned b = 0; b < 256; ++b) {
            const char byte = static_cast<char>(b);
            EXPECT_EQ(characterClass(c.which).contains(byte), c.members.find(byte) != std::string::npos)
                << "class " << c.which << ", byte " << b;
        }
    }
}

}  // namespace
}  // namespace basicutil
