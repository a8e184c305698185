#include "basicutil/text/BasicConversions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "basicutil/text/PrintHexBytes.h"

namespace basicutil {
namespace {

TEST(BasicConversionsTest, SignedFieldsWithinTheirBounds) {
    struct Case {
        const char* text;
        std::int64_t min, max;
        bool ok;
        std::int64_t value;
    } cases[] = {
        {" -42\t", -100, 100, true, -42},
        {"+7", -100, 100, true, 7},
        {"0", 0, 0, true, 0},
        {"-0", 0, 0, true, 0},
        {"-9223372036854775808", INT64_MIN, INT64_MAX, true, INT64_MIN},
        {"9223372036854775807", INT64_MIN, INT64_MAX, true, INT64_MAX},
        {"9223372036854775808", INT64_MIN, INT64_MAX, false, 0},
        {"-9223372036854775809", INT64_MIN, INT64_MAX, false, 0},
        {"-101", -100, 100, false, 0},
        {"101", -100, 100, false, 0},
        {"-1", 0, 10, false, 0},   // no negative values allowed
        {"5", -10, -1, false, 0},  // no positive ones
        {"-5", 3, 10, false, 0},
        {"- 5", -10, 10, false, 0},
        {"--5", -10, 10, false, 0},
        {"+-5", -10, 10, false, 0},
        {"-", -10, 10, false, 0},
        {"", -10, 10, false, 0},
        {"  ", -10, 10, false, 0},
        {"5 5", -10, 10, false, 0},
        {"5x", -10, 10, false, 0},
    };
    for (const Case& c : cases) {
        std::int64_t v = 12345;
        EXPECT_EQ(do_signed_fetch(c.text, c.text + std::strlen(c.text), v, c.min, c.max), c.ok) << c.text;
        EXPECT_EQ(v, c.ok ? c.value : 12345) << c.text;
    }
}

TEST(BasicConversionsTest, HexTextIntoBytes) {
    struct Case {
        const char* text;
        std::size_t size;
        bool ok;
        std::string bytes;
    } cases[] = {
        {"0a1B", 4, true, std::string("\x0a\x1b", 2)},
        {" \tff00\t ", 2, true, std::string("\xff\x00", 2)},
        {"abcdef0123456789", 8, true, "\xab\xcd\xef\x01\x23\x45\x67\x89"},
        {"abc", 4, false, ""},     // an odd count
        {"0a0b0c", 2, false, ""},  // more than fits
        {"", 4, false, ""},
        {"  ", 4, false, ""},
        {"0x0a", 4, false, ""},
        {"0a 0b", 4, false, ""},
        {"0g", 4, false, ""},
    };
    for (const Case& c : cases) {
        unsigned char dest[8];
        std::memset(dest, 0xEE, sizeof dest);
        std::size_t written = 99;
        EXPECT_EQ(parse_from_hex(c.text, c.text + std::strlen(c.text), dest, c.size, written), c.ok)
            << c.text;
        if (c.ok) {
            EXPECT_EQ(std::string(reinterpret_cast<char*>(dest), written), c.bytes) << c.text;
        } else {
            EXPECT_EQ(written, 99u) << c.text;
            EXPECT_EQ(dest[0], 0xEE) << c.text;  // left alone
        }
    }
}

TEST(BasicConversionsDeathTest, HexNeedsADestination) {
    unsigned char dest[1];
    std::size_t written = 0;
    const char text[] = "00";
    EXPECT_DEATH(static_cast<void>(parse_from_hex(text, text + 2, dest, 0, written)), "size > 0");
}

TEST(PrintHexBytesTest, DigitsAndCase) {
    struct Case {
        std::uint64_t value;
        unsigned digits;
        bool upper;
        const char* expected;
    } cases[] = {{0, 0, false, "0"},
                 {0, 4, false, "0000"},
                 {0xBEEF, 0, false, "beef"},
                 {0xBEEF, 2, true, "BEEF"},
                 {0xBEEF, 8, true, "0000BEEF"},
                 {UINT64_MAX, 0, false, "ffffffffffffffff"},
                 {255, 20, false, "000000000000000000ff"}};
    for (const Case& c : cases) {
        Str out;
        appendHex(out, c.value, c.digits, c.upper);
        EXPECT_EQ(out.view(), c.expected) << c.value << " " << c.digits;
    }
}

}  // namespace
}  // namespace basicutil
