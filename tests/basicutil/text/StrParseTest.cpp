#include "basicutil/text/StrParse.h"

#include <gtest/gtest.h>

#include "basicutil/text/BasicConversions.h"

namespace basicutil {
namespace {

TEST(StrParseTest, Booleans) {
    struct Case {
        const char* text;
        int expected;  // -1: not recognised
    } cases[] = {{"Yes", 1}, {"TRUE", 1}, {"t", 1},   {"1", 1}, {"no", 0},    {"False", 0},
                 {"F", 0},   {"0", 0},    {"00", -1}, {"", -1}, {"yes ", -1}, {"nope", -1}};
    for (const Case& c : cases) {
        bool value = true;
        EXPECT_EQ(parseBool(StrSegment(c.text), value), c.expected >= 0) << c.text;
        EXPECT_EQ(value, c.expected != 0) << c.text;  // unrecognised leaves it alone
        EXPECT_EQ(parseBoolOr(StrSegment(c.text), true, false), c.text[0] == '\0' || c.expected == 1)
            << c.text;
    }
}

TEST(StrParseTest, Numbers) {
    std::uint64_t u = 0;
    const std::string_view field(" 42\t");
    EXPECT_TRUE(parse_unsigned_val(field.data(), field.data() + field.size(), u, 100));
    EXPECT_EQ(u, 42u);
    for (const char* bad : {"101", "4 2", "", "  ", "-1", "+1", "1x"}) {
        const std::string_view v(bad);
        EXPECT_FALSE(parse_unsigned_val(v.data(), v.data() + v.size(), u, 100)) << bad;
    }
    // The caller's maximum holds whatever it is: small ones, zero, and the type's own.
    struct Bound {
        const char* text;
        std::uint64_t max;
        bool ok;
        std::uint64_t value;
    } bounds[] = {{"7", 5, false, 0},
                  {"5", 5, true, 5},
                  {"05", 0, false, 0},
                  {"00", 0, true, 0},
                  {"9", 8, false, 0},
                  {"18446744073709551615", UINT64_MAX, true, UINT64_MAX},
                  {"18446744073709551616", UINT64_MAX, false, 0},
                  {"18446744073709551610", UINT64_MAX - 6, false, 0}};
    for (const Bound& b : bounds) {
        const std::string_view v(b.text);
        u = 12345;
        EXPECT_EQ(parse_unsigned_val(v.data(), v.data() + v.size(), u, b.max), b.ok)
            << b.text << " " << b.max;
        EXPECT_EQ(u, b.ok ? b.value : 12345u) << b.text;  // a failure leaves the target alone
    }
    EXPECT_TRUE(parseUnsigned64(StrSegment("18446744073709551615"), u));
    EXPECT_FALSE(parseUnsigned64(StrSegment("18446744073709551616"), u));
    std::int32_t i = 0;
    EXPECT_TRUE(parseInt32(StrSegment(" -2147483648 "), i));
    EXPECT_EQ(i, INT32_MIN);
    EXPECT_FALSE(parseInt32(StrSegment("2147483648"), i));
    EXPECT_FALSE(parseInt32(StrSegment("- 5"), i));
    EXPECT_EQ(parseInt32Or(StrSegment("x"), 7), 7);
    EXPECT_EQ(parseUnsigned32Or(StrSegment("4294967296"), 9u), 9u);
    EXPECT_EQ(parseUnsigned32Or(StrSegment("4294967295"), 9u), 4294967295u);
}

TEST(StrParseTest, Chunks) {
    StrSegment input("ab007x");
    StrSegment chunk;
    EXPECT_EQ(getNextChunk(input, chunk), npos);
    EXPECT_EQ(chunk.view(), "ab");
    EXPECT_EQ(getNextChunk(input, chunk), 2u);
    EXPECT_EQ(chunk.view(), "007");
    EXPECT_EQ(getNextChunk(input, chunk), npos);
    EXPECT_TRUE(input.empty());
    StrSegment zeros("000");
    EXPECT_EQ(getNextChunk(zeros, chunk), 3u);
}

TEST(StrParseTest, NaturalOrder) {
    const auto sign = [](int v) { return (v > 0) - (v < 0); };
    struct Case {
        const char *a, *b;
        bool caseless;
        int expected;
    } cases[] = {{"a9", "a10", false, -1},       {"x01", "x1", false, 0},  {"a", "ab", false, -1},
                 {"file007", "file7", false, 0}, {"", "", false, 0},       {"", "a", false, -1},
                 {"B", "a", false, -1},          {"B", "a", true, 1},      {"Abc2", "aBC10", true, -1},
                 {"10", "9", false, 1},          {"a1b", "a1a", false, 1}, {"1", "a", false, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(sign(naturalCompare(StrSegment(c.a), StrSegment(c.b), c.caseless)), c.expected)
            << c.a << " " << c.b;
        EXPECT_EQ(sign(naturalCompare(StrSegment(c.b), StrSegment(c.a), c.caseless)), -c.expected)
            << c.b << " " << c.a;
    }
    EXPECT_EQ(naturalCompare(StrSegment("ac"), StrSegment("aa"), false), 2);  // memcmp's own value
}

}  // namespace
}  // namespace basicutil
