#include "basicutil/text/Str.h"

#include <gtest/gtest.h>

#include <stdexcept>

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
