#include "libzero/unicode-file-blocks.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

#if defined(__SSE2__)

// Units that change the answers (ASCII's end, the surrogates' ends, 0xFF80 and 0x0080 for the
// byte-wise masks) and random ones, in both byte orders.
TEST(UnicodeFileBlocksTest, VectorFormsAgreeWithThePortableOnes) {
    static const std::uint16_t kEdges[] = {0x0000, 0x0041, 0x007F, 0x0080, 0x00FF, 0x0100, 0x07FF, 0x0800,
                                           0xD7FF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFF80, 0xFFFF};
    std::mt19937 rng(11);
    unsigned ascii = 0, cut = 0;
    for (int round = 0; round < 20000; ++round) {
        unsigned char in[16];
        const bool mostlyAscii = round % 2 == 0;
        for (unsigned k = 0; k < 8; ++k) {
            const std::uint16_t unit = mostlyAscii && rng() % 16 != 0
                                           ? static_cast<std::uint16_t>(rng() % 0x80)
                                       : rng() % 2 != 0 ? kEdges[rng() % 16]
                                                        : static_cast<std::uint16_t>(rng());
            in[2 * k] = static_cast<unsigned char>(unit);
            in[2 * k + 1] = static_cast<unsigned char>(unit >> 8);
        }
        const auto check = [&](auto fast, auto portable) {
            char fastOut[8] = {}, portableOut[8] = {};
            std::uint16_t fastUnits[8] = {}, portableUnits[8] = {};
            const unsigned a = fast(in, fastOut, fastUnits);
            const unsigned b = portable(in, portableOut, portableUnits);
            ASSERT_EQ(a, b) << round;
            if (a == libzero_blocks::kAllAscii) {
                ++ascii;
                EXPECT_EQ(std::string(fastOut, 8), std::string(portableOut, 8));
            } else {
                cut += a < 8;
                EXPECT_EQ(std::u16string(fastUnits, fastUnits + 8),
                          std::u16string(portableUnits, portableUnits + 8));
            }
        };
        check(libzero_blocks::sse2::utf16Block<false>, libzero_blocks::portable::utf16Block<false>);
        check(libzero_blocks::sse2::utf16Block<true>, libzero_blocks::portable::utf16Block<true>);

        char fastCopy[16] = {}, portableCopy[16] = {};
        const bool copied = libzero_blocks::sse2::copyAsciiBlock(in, fastCopy);
        ASSERT_EQ(copied, libzero_blocks::portable::copyAsciiBlock(in, portableCopy));
        if (copied) {
            EXPECT_EQ(std::string(fastCopy, 16), std::string(portableCopy, 16));
        }
    }
    EXPECT_GT(ascii, 1000u);  // every answer was reached
    EXPECT_GT(cut, 1000u);
}

#else
TEST(UnicodeFileBlocksTest, VectorFormsAgreeWithThePortableOnes) {
    GTEST_SKIP() << "no SSE2 form in this build: the portable form is the only one";
}
#endif

}  // namespace
