#include "basicutil/text/StrUtf8.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "basicutil/platform/Platform.h"
#include "basicutil/text/StrUtf8_details.h"

namespace basicutil {
namespace {

TEST(StrUtf8Test, CountingStepsByTheLeadByte) {
    struct Case {
        std::string text;
        size_type count;
    } cases[] = {{"h\xC3\xA9llo", 5},
                 {"\xE2", 1},      // a last sequence cut off still counts
                 {"\x80\x80", 1},  // a stray continuation byte is a two-byte lead
                 {"\xF8\xF9", 2},  // 0xF5-0xFF stand alone
                 {std::string(35, 'a') + "\xF0\x9F\x98\x80" + "b", 37},
                 {"", 0}};
    for (const Case& c : cases) EXPECT_EQ(mem_count_utf8_codepoints(c.text.data(), c.text.size()), c.count);
}

TEST(StrUtf8Test, TruncateToCharacters) {
    struct Case {
        std::string text;
        size_type n;
        std::string kept;
    } cases[] = {{"h\xC3\xA9llo", 2, "h\xC3\xA9"},
                 {"abc", 5, "abc"},
                 {"abc", 0, ""},
                 {std::string(20, 'a') + "\xC3\xA9\xC3\xA9", 21, std::string(20, 'a') + "\xC3\xA9"},
                 {"ab\xE2", 3, "ab\xE2"},
                 {"a\xE2\x82\xAC\xE2", 2, "a\xE2\x82\xAC"}};
    for (const Case& c : cases) {
        StrSegment view(c.text);
        utf8_character_count_truncate(view, c.n);
        EXPECT_EQ(std::string(view.view()), c.kept) << c.n;
    }
}

TEST(StrUtf8Test, DisplayWidthAndSubstring) {
    EXPECT_EQ(utf8DisplayWidth(StrSegment("ab\xE4\xB8\xAD\xCC\x81\x01")),
              4u);                                             // a b 中(2) combining(0) ^A(0)
    EXPECT_EQ(utf8DisplayWidth(StrSegment("a\xE4\xB8")), 1u);  // stops at a cut-off sequence
    size_type start = 0, end = 0;
    const StrSegment text(
        "a\xC3\xA9\xE2\x82\xAC"
        "b");  // a é € b
    ASSERT_TRUE(utf8Substring(text, 1, 2, start, end));
    EXPECT_EQ(start, 1u);
    EXPECT_EQ(end, 6u);
    ASSERT_TRUE(utf8Substring(text, 3, 0, start, end));
    EXPECT_EQ(start, end);
    ASSERT_TRUE(utf8Substring(text, 0, 100, start, end));
    EXPECT_EQ(end, text.size());
    EXPECT_FALSE(utf8Substring(text, 5, 1, start, end));
}

TEST(StrUtf8Test, Validity) {
    struct Case {
        std::string text;
        bool valid;
    } cases[] = {{"plain ascii that is longer than one block", true},
                 {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", true},
                 {"\xC0\x80", false},
                 {"\xC1\xBF", false},
                 {"\xF0\x8F\xBF\xBF", false},
                 {"\xF4\x90\x80\x80", false},
                 {"\xF5\x80\x80\x80", false},
                 {"\xE2\x82", false},
                 {"\x80", false},
                 {"\xC3\x28", false},
                 {"\xE0\x80\x80", true},   // three-byte forms are not checked for overlongs
                 {"\xED\xA0\x80", true}};  // nor for surrogates
    for (const Case& c : cases)
        EXPECT_EQ(isValidUtf8(StrSegment(c.text)), c.valid) << testing::PrintToString(c.text);
    // The valid length is the longest start that isValidUtf8 accepts, whatever follows it.
    std::mt19937 rng(5);
    const std::string pieces[] = {"a",    "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                  "\xFF", "\x80",     "\xE2\x82",     "\xC3"};
    for (int round = 0; round < 500; ++round) {
        std::string text;
        const int count = static_cast<int>(rng() % 40);
        for (int i = 0; i < count; ++i) text += pieces[rng() % (rng() % 4 == 0 ? 8 : 4)];
        std::size_t longest = 0;
        for (std::size_t n = 0; n <= text.size(); ++n)
            if (isValidUtf8(StrSegment(text.data(), n))) longest = n;
        ASSERT_EQ(utf8ValidLength(StrSegment(text)), longest) << testing::PrintToString(text);
    }
}

TEST(StrUtf8Test, EncodingWithSet) {
    struct Case {
        std::uint32_t cp;
        std::string bytes;
    } cases[] = {{0xE9, "\xC3\xA9"},
                 {0x20AC, "\xE2\x82\xAC"},
                 {0xD800, "\xED\xA0\x80"},
                 {0x10FFFF, "\xF4\x8F\xBF\xBF"},
                 {0x110000, ""}};
    for (const Case& c : cases) {
        char buffer[4];
        const unsigned n = _set(buffer, c.cp);
        EXPECT_EQ(std::string(buffer, n), c.bytes) << std::hex << c.cp;
    }
}

}  // namespace
}  // namespace basicutil

namespace basicutil {
namespace {

// The vector paths against the scalar ones: every length 0..300 at every alignment within 32
// bytes, then with a bad byte at every position of every length.
TEST(StrUtf8Test, VectorPathsAgreeWithTheScalarOnes) {
    std::string text;
    std::mt19937 rng(17);
    const char* const pieces[] = {"a",
                                  "plain words ",
                                  "\xC3\xA9",
                                  "\xD0\x96",
                                  "\xE4\xB8\xAD",
                                  "\xF0\x9F\x98\x80",
                                  "\xE0\x80\x80",
                                  "\xED\xA0\x80",
                                  "\xF4\x8F\xBF\xBF",
                                  "\n"};
    while (text.size() < 340) text += pieces[rng() % std::size(pieces)];
    const bool avx2 = platform::cpuHasAvx2();
    std::string buffer(400, '\0');
    const auto check = [&](const char* data, std::size_t length) {
        const StrSegment s(data, length);
        const bool valid = utf8_details::isValidUtf8Scalar(s);
        if (avx2) {
            ASSERT_EQ(utf8_details::isValidUtf8Avx2(s), valid) << length;
        }
        ASSERT_EQ(isValidUtf8(s), valid) << length;
        for (size_type n :
             {size_type{0}, size_type{1}, length / 3, length / 2, length - length / 8, length}) {
            StrSegment a = s, b = s;
            utf8_details::truncateScalar(a, n);
            utf8_details::truncateBlocks(b, n);
            ASSERT_EQ(a._len, b._len) << "length " << length << " n " << n;
        }
    };
    for (std::size_t length = 0; length <= 300; ++length) {
        for (std::size_t align = 0; align < 32; ++align) {
            text.copy(buffer.data() + align, length);
            check(buffer.data() + align, length);
        }
    }
    const unsigned char bad[] = {0x80, 0xBF, 0xC0, 0xC2, 0xE0, 0xED, 0xF0, 0xF4, 0xF5, 0xFF, 'x'};
    std::string broken;
    for (std::size_t length = 1; length <= 300; ++length) {
        for (std::size_t at = 0; at < length; ++at) {
            broken.assign(text, 0, length);
            broken[at] = static_cast<char>(bad[(at + length) % sizeof bad]);
            check(broken.data(), length);
        }
    }
}

}  // namespace
}  // namespace basicutil
