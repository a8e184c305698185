#include "basicutil/text/UnicodeCodepoint.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "basicutil/text/StrUtf8.h"
#include "basicutil/text/UnicodeCodepointTables.h"

namespace basicutil {
namespace {

TEST(UnicodeCodepointTest, PropertyTableShape) {
    int byCase[4] = {0, 0, 0, 0};
    for (unsigned i = 0; i < kUnicodePropertyRangeCount; ++i) {
        ++byCase[(unicode_property_ranges[i].flags & UNICODE_CASE_MASK) >> 29];
        ASSERT_LT(unicode_property_ranges[i].utf8bytes, unicode_property_ranges[i + 1].utf8bytes) << i;
        if (i > 0) {
            ASSERT_NE(unicode_property_ranges[i].flags, unicode_property_ranges[i - 1].flags) << i;
        }
    }
    EXPECT_EQ(byCase[0], 1587);
    EXPECT_EQ(byCase[1], 224);
    EXPECT_EQ(byCase[2], 291);
    EXPECT_EQ(byCase[3], 37);
    EXPECT_EQ(unicode_property_ranges[kUnicodePropertyRangeCount].utf8bytes, 0xFFFFFFFFu);
}

// The two-stage table answers exactly as the range search, for every codepoint; and a block
// numbered as uncased holds no cased letter.
TEST(UnicodeCodepointTest, TwoStageTableAgreesWithTheRanges) {
    for (std::uint32_t cp = 0x80; cp <= 0x10FFFF; ++cp) {
        const std::uint32_t expected = unicodeFlagsBySearch(codepoint_to_utf8bytes(cp));
        ASSERT_EQ(unicodeFlagsOf(cp), expected) << std::hex << cp;
        ASSERT_EQ(flags_from_cp(cp), expected) << std::hex << cp;
        if (unicode_property_stage1[cp >> kUnicodeStageShift] < unicode_first_cased_block) {
            ASSERT_EQ(expected & UNICODE_CASE_MASK, 0u) << std::hex << cp;
        }
    }
    // Values that are no codepoint's packing keep the search's answer.
    for (std::uint32_t packed :
         {0xC2C0u, 0xC2FFu, 0xE08080u, 0xE0BFC0u, 0xF0808080u, 0xF4908080u, 0xF0A0C0BFu}) {
        EXPECT_EQ(flags_from_utf8bytes(packed), unicodeFlagsBySearch(packed)) << std::hex << packed;
    }
}

TEST(UnicodeCodepointTest, PropertySpotChecks) {
    const std::pair<uint32_t, uint32_t> cases[] = {
        {0xC280, 0x04000000},   {0xC2A0, 0x08000000},     {0xC2A1, 0x03000000},    {0xC2A2, 0x02000000},
        {0xC2AA, 0x82000000},   {0xC3A9, 0xC2000020},     {0xC389, 0xA2000020},    {0xC2B5, 0xC2000C29},
        {0xC3BF, 0xC2000607},   {0xC39F, 0xC2000000},     {0xC480, 0xE2000000},    {0xC481, 0xE2000000},
        {0xC4B0, 0xA200C4D9},   {0xC4B1, 0xC200C4F8},     {0xC788, 0xE2000000},    {0xC789, 0xC200000E},
        {0xCF82, 0xC2000121},   {0xE1BA9E, 0xA2E17901},   {0xE284AA, 0xA2E284C1},  {0xE4B880, 0x82000000},
        {0xE4B881, 0x00000000}, {0xF09090A8, 0xC2000028}, {0xF3A08081, 0x08000000}};
    for (const auto& [packed, flags] : cases)
        EXPECT_EQ(flags_from_utf8bytes(packed), flags) << std::hex << packed;
    // Every listed alternating block, first and last codepoint.
    const std::pair<uint32_t, uint32_t> alternating[] = {
        {0x0100, 0x012F}, {0x0132, 0x0137}, {0x014A, 0x0177}, {0x01DE, 0x01EF}, {0x01F8, 0x021F},
        {0x0460, 0x0481}, {0x048A, 0x04BF}, {0x04D0, 0x052F}, {0x1E00, 0x1E95}, {0x1EA0, 0x1EFF},
        {0x2C80, 0x2CE3}, {0xA640, 0xA66D}, {0xA722, 0xA72F}, {0xA732, 0xA76F}, {0xA7B4, 0xA7B7}};
    for (const auto& [first, last] : alternating) {
        EXPECT_EQ(flags_from_cp(first) & UNICODE_CASE_MASK, UNICODE_CASE_ALTERNATING) << std::hex << first;
        EXPECT_EQ(flags_from_cp(last) & UNICODE_CASE_MASK, UNICODE_CASE_ALTERNATING) << std::hex << last;
    }
}

TEST(UnicodeCodepointTest, PackingRoundTripsEveryCodepointInOrder) {
    EXPECT_EQ(codepoint_to_utf8bytes(0xE9), 0xC3A9u);
    EXPECT_EQ(codepoint_to_utf8bytes(0x10FFFF), 0xF48FBFBFu);
    EXPECT_EQ(utf8bytes_to_codepoint(0x41), 0x41u);
    uint32_t previous = 0;
    for (uint32_t cp = 0x80; cp <= 0x10FFFF; ++cp) {
        const uint32_t packed = codepoint_to_utf8bytes(cp);
        ASSERT_GT(packed, previous) << std::hex << cp;  // packed values sort as codepoints do
        ASSERT_EQ(utf8bytes_to_codepoint(packed), cp) << std::hex << cp;
        previous = packed;
    }
}

TEST(UnicodeCodepointDeathTest, PackingRangeAssertions) {
    EXPECT_DEATH(codepoint_to_utf8bytes(0x7F), "_cp >= 0x80");
    EXPECT_DEATH(codepoint_to_utf8bytes(0x110000), "cp <= 0x10FFFF");
    EXPECT_DEATH(utf8bytes_to_codepoint(0xE0807F), "u <= 0xDFBF");
    EXPECT_DEATH(flags_from_utf8bytes(0xC27F), "utf8bytes >= 0xC280");
}

struct DecodeCase {
    std::string bytes;
    bool strictOk;       // decode_next_codepoint succeeds
    uint32_t cp;         // its codepoint
    bool incrementalOk;  // feeding the bytes completes a character
};

const DecodeCase kDecodeCases[] = {
    {"\xC3\xA9", true, 0xE9, true},
    {"\xE2\x82\xAC", true, 0x20AC, true},
    {"\xF0\x9F\x98\x80", true, 0x1F600, true},
    {"\xF4\x8F\xBF\xBF", true, 0x10FFFF, true},
    {"\xED\xA0\x80", true, 0xD800, false},  // surrogate: strict accepts, incremental drops
    {"\xC0\x80", false, 0, false},          // overlong
    {"\xC1\xBF", false, 0, false},
    {"\xE0\x9F\xBF", false, 0, false},
    {"\xF0\x8F\xBF\xBF", false, 0, false},
    {"\xF4\x90\x80\x80", false, 0, false},  // above U+10FFFF
    {"\xF5\x80\x80\x80", false, 0, false},
    {"\xE2\x82", false, 0, false},  // truncated
    {"\x80", false, 0, false},      // stray continuation
    {"\xC3\x41", false, 0, true},   // the ASCII byte completes at once
};

TEST(UnicodeCodepointTest, StrictDecoder) {
    for (const DecodeCase& c : kDecodeCases) {
        const std::string text = c.bytes + "z";
        std::string_view view = text;
        uint32_t cp = 0;
        EXPECT_EQ(decode_next_codepoint(view, cp), c.strictOk) << testing::PrintToString(c.bytes);
        if (c.strictOk) {
            EXPECT_EQ(cp, c.cp);
            EXPECT_EQ(view, "z");
        } else {
            EXPECT_EQ(view.size(), text.size()) << "a failure does not advance";
        }
    }
    std::string_view empty;
    uint32_t cp = 0;
    EXPECT_FALSE(decode_next_codepoint(empty, cp));
}

TEST(UnicodeCodepointTest, IncrementalDecoder) {
    for (const DecodeCase& c : kDecodeCases) {
        uint32_t state = 0;
        bool done = false;
        for (const char ch : c.bytes) {
            const auto by = static_cast<unsigned char>(ch);
            if (state == 0 && by < 0x80) continue;  // ASCII between characters is the caller's
            done = _accumulateUtf8Byte(state, by);
        }
        EXPECT_EQ(done, c.incrementalOk) << testing::PrintToString(c.bytes);
        if (done && c.strictOk) {
            EXPECT_EQ(state, c.cp);
        }
    }
    // A new lead abandons the open sequence and starts its own.
    uint32_t state = 0;
    EXPECT_FALSE(_accumulateUtf8Byte(state, 0xE2));
    EXPECT_FALSE(_accumulateUtf8Byte(state, 0xC3));
    EXPECT_TRUE(_accumulateUtf8Byte(state, 0xA9));
    EXPECT_EQ(state, 0xE9u);
    state = 0;
    EXPECT_FALSE(_accumulateUtf8Byte(state, 0xC0));  // an impossible lead is ignored
    EXPECT_EQ(state, 0u);
}

TEST(UnicodeCodepointTest, CaseMappingOfEachClass) {
    struct Case {
        uint32_t cp, lower, upper;
        bool isLower, isUpper;
    } cases[] = {
        {'A', 'a', 'A', false, true},          {'z', 'z', 'Z', true, false},
        {'5', '5', '5', false, false},         {0xC9, 0xE9, 0xC9, false, true},
        {0xE9, 0xE9, 0xC9, true, false},  // É é: upper / lower class
        {0x100, 0x101, 0x100, false, true},    {0x101, 0x101, 0x100, true, false},  // alternating pair
        {0x130, 'i', 0x130, false, true},      {0x131, 0x131, 'I', true, false},    // ASCII targets
        {0x17F, 0x17F, 'S', true, false},      {0x212A, 'k', 0x212A, false, true},
        {0xDF, 0xDF, 0xDF, true, false},       {0x1E9E, 0xDF, 0x1E9E, false, true},  // ß has no simple upper
        {0x1C5, 0x1C6, 0x1C5, false, true},  // titlecase: upper class, mapped down only
        {0x250, 0x250, 0x2C6F, true, false},   {0x2160, 0x2160, 0x2160, false, false},
        {0x4E00, 0x4E00, 0x4E00, false, false}};
    for (const Case& c : cases) {
        EXPECT_EQ(codepoint_to_lower(c.cp), c.lower) << std::hex << c.cp;
        EXPECT_EQ(codepoint_to_upper(c.cp), c.upper) << std::hex << c.cp;
        EXPECT_EQ(codepoint_is_lower(c.cp), c.isLower) << std::hex << c.cp;
        EXPECT_EQ(codepoint_is_upper(c.cp), c.isUpper) << std::hex << c.cp;
    }
}

TEST(UnicodeCodepointTest, TextCaseConversion) {
    struct Case {
        std::string text, upper, lower;
    } cases[] = {{"Grüße, Ärger", "GRÜßE, ÄRGER", "grüße, ärger"},
                 {"ΣΑΣ ǅ", "ΣΑΣ ǅ", "σασ ǆ"},
                 {"ɐ", "Ɐ", "ɐ"},                             // grows from two bytes to three
                 {"ıİK", "IİK", "ıik"},                       // ASCII targets shrink
                 {"a\x80z\xC3", "A\x80Z\xC3", "a\x80z\xC3"},  // stray and truncated bytes pass through
                 {"\xE0\x80\x80\xED\xA0\x80", "\xE0\x80\x80\xED\xA0\x80", "\xE0\x80\x80\xED\xA0\x80"}};
    for (const Case& c : cases) {
        std::string out = "old";
        utf8_to_upper(c.text, out);
        EXPECT_EQ(out, c.upper);
        utf8_to_lower(c.text, out);
        EXPECT_EQ(out, c.lower);
    }
}

// Every codepoint, with ASCII runs of every length between them, converted as one text: the same
// as mapping each character on its own.
TEST(UnicodeCodepointTest, TextCaseConversionOfEveryCodepoint) {
    std::string text, upper, lower;
    const auto put = [](std::string& s, std::uint32_t cp) {
        char bytes[4];
        if (cp < 0x80) {
            s.push_back(static_cast<char>(cp));
        } else {
            s.append(bytes, _set(bytes, cp));
        }
    };
    const std::string ascii = "The Quick Brown Fox Jumps Over The Lazy Dog 0123456789 @[`{";
    for (std::uint32_t cp = 0x80; cp <= 0x10FFFF; ++cp) {
        put(text, cp);
        put(upper, codepoint_to_upper(cp));
        put(lower, codepoint_to_lower(cp));
        if (cp % 97 == 0) {
            const std::string run = ascii.substr(0, cp % ascii.size());
            text += run;
            for (char c : run) {
                put(upper, codepoint_to_upper(static_cast<unsigned char>(c)));
                put(lower, codepoint_to_lower(static_cast<unsigned char>(c)));
            }
        }
    }
    std::string out;
    utf8_to_upper(text, out);
    EXPECT_TRUE(out == upper);
    utf8_to_lower(text, out);
    EXPECT_TRUE(out == lower);
}

// Long texts with malformed bytes anywhere, against the rule applied one character at a time:
// ASCII by the ASCII rule, a well-formed sequence by its codepoint's mapping, any other byte as
// it is.
TEST(UnicodeCodepointTest, TextCaseConversionWithMalformedBytes) {
    const char* const pieces[] = {
        "a",        "Z",        " ",        "\xC3\xA9",     "\xC3\x89",     "\xD0\x96",
        "\xD1\x91", "\xC9\x90", "\xC4\xB0", "\xE4\xB8\xAD", "\xEA\xB5\xAD", "\xF0\x90\x90\xA8",
        "\x80",     "\xC3",     "\xE2\x82", "\xF0\x9F",     "\xED\xA0\x80", "\xE0\x80\x80",
        "\xFF",     "\xC0\xAF"};
    std::mt19937 rng(23);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        const std::size_t length = rng() % 300;
        while (text.size() < length) text += pieces[rng() % std::size(pieces)];
        for (bool toLower : {false, true}) {
            std::string expected;
            for (std::size_t i = 0; i < text.size();) {
                std::string_view view(text.data() + i, text.size() - i);
                std::uint32_t cp;
                const auto c = static_cast<unsigned char>(text[i]);
                if (c >= 0x80 && decode_next_codepoint(view, cp)) {
                    const std::uint32_t mapped = toLower ? codepoint_to_lower(cp) : codepoint_to_upper(cp);
                    char bytes[4];
                    if (mapped < 0x80) {
                        expected.push_back(static_cast<char>(mapped));
                    } else {
                        expected.append(bytes, _set(bytes, mapped));
                    }
                    i = text.size() - view.size();
                } else {
                    const std::uint32_t mapped = toLower ? codepoint_to_lower(c) : codepoint_to_upper(c);
                    expected.push_back(static_cast<char>(c < 0x80 ? mapped : c));
                    ++i;
                }
            }
            std::string out;
            (toLower ? utf8_to_lower : utf8_to_upper)(text, out);
            ASSERT_EQ(out, expected) << "round " << round << (toLower ? " lower" : " upper");
        }
    }
}

TEST(UnicodeCodepointTest, CaselessComparison) {
    struct Case {
        std::string lhs, rhs;
        int expected;
    } cases[] = {
        {"Hello", "hELLO", 0}, {"Émile", "émile", 0}, {"KELVIN", "kelvin", 0}, {"İstanbul", "istanbul", 0},
        {"abc", "abd", -1},    {"abd", "abc", 1},     {"ab", "abc", -1},       {"abc", "ab", 1},
        {"", "", 0},           {"a", "é", -1},        {"\x80", "\x80", 0},     {"\xC3", "\xC3\xA9", -1},
        {"ΑΒΓ", "αβγ", 0},     {"Ā", "ā", 0}};
    for (const Case& c : cases) {
        EXPECT_EQ(mem_compare_caseless(c.lhs.data(), c.lhs.data() + c.lhs.size(), c.rhs.data(),
                                       c.rhs.data() + c.rhs.size()),
                  c.expected)
            << c.lhs << " vs " << c.rhs;
    }
}

TEST(UnicodeCodepointTest, CombiningMarksCompose) {
    struct Case {
        std::string text, composed;
    } cases[] = {
        {"e\xCC\x81", "é"},
        {"cafe\xCC\x81 nai\xCC\x88ve", "café naïve"},
        {"A\xCC\x8A\xCC\x81", "Ǻ"},          // mark after mark: Å then Ǻ
        {"Ü\xCC\x84", "Ǖ"},                  // a precomposed base takes the macron
        {"U\xCC\x88\xCC\x84", "Ü\xCC\x84"},  // but U written with two marks never reaches U+01D5
        {"u\xCC\x88\xCC\x84", "ü\xCC\x84"},
        {"\xCC\x81x", "\xCC\x81x"},                   // no base
        {"q\xCC\x81", "q\xCC\x81"},                   // no precomposed form
        {"a\xCC\x9B\xCC\x81", "a\xCC\x9B\xCC\x81"}};  // a mark that does not compose ends the cluster
    for (const Case& c : cases) {
        std::string out;
        EXPECT_EQ(resolveUnicodeCombiningMarks(c.text, out), c.text != c.composed) << c.text;
        EXPECT_EQ(out, c.composed);
    }
}

}  // namespace
}  // namespace basicutil
