#include "basicutil/text/StrBlocks.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace basicutil {
namespace {

#if defined(__SSE2__)

// Bytes where the block tests change their answer, and some of everything else.
std::string randomBlocks(std::mt19937& rng, std::size_t blocks) {
    static const unsigned char kEdges[] = {0x00, '\n', '\r', '@',  'A',  'M',  'Z',  '[',  '`',
                                           'a',  'z',  '{',  0x7F, 0x80, 0xBF, 0xC0, 0xC1, 0xC2,
                                           0xDF, 0xE0, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
    std::string s(blocks * blocks::kBlock, '\0');
    for (char& c : s) {
        c = static_cast<char>(rng() % 2 != 0 ? kEdges[rng() % sizeof kEdges] : rng() % 256);
    }
    return s;
}

// Well-formed UTF-8 of every length, with a byte damaged now and then.
std::string randomUtf8(std::mt19937& rng, std::size_t blocks) {
    std::string s;
    while (s.size() < blocks * blocks::kBlock) {
        const auto kind = static_cast<std::uint32_t>(rng() % 4);
        const auto cp = static_cast<std::uint32_t>(kind == 0   ? rng() % 0x80
                                                   : kind == 1 ? 0x80 + rng() % 0x780
                                                   : kind == 2 ? 0x800 + rng() % 0xF800
                                                               : 0x10000 + rng() % 0x100000);
        if (cp < 0x80) {
            s.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            s += {static_cast<char>(0xC0 | cp >> 6), static_cast<char>(0x80 | (cp & 0x3F))};
        } else if (cp < 0x10000) {
            s += {static_cast<char>(0xE0 | cp >> 12), static_cast<char>(0x80 | (cp >> 6 & 0x3F)),
                  static_cast<char>(0x80 | (cp & 0x3F))};
        } else {
            s += {static_cast<char>(0xF0 | cp >> 18), static_cast<char>(0x80 | (cp >> 12 & 0x3F)),
                  static_cast<char>(0x80 | (cp >> 6 & 0x3F)), static_cast<char>(0x80 | (cp & 0x3F))};
        }
        if (rng() % 40 == 0) s.back() = static_cast<char>(rng() % 256);
    }
    s.resize(blocks * blocks::kBlock);
    return s;
}

TEST(StrBlocksTest, VectorFormsAgreeWithThePortableOnes) {
    std::mt19937 rng(31);
    for (int round = 0; round < 3000; ++round) {
        const std::string s = randomBlocks(rng, 4);
        const char* p = s.data();
        const char c = s[rng() % s.size()];
        ASSERT_EQ(blocks::sse2::highBits(p), blocks::portable::highBits(p));
        ASSERT_EQ(blocks::sse2::equalMask(p, c), blocks::portable::equalMask(p, c));
        ASSERT_EQ(blocks::sse2::anyOfTwoIn4Blocks(p, c, '\n'),
                  blocks::portable::anyOfTwoIn4Blocks(p, c, '\n'));
        ASSERT_EQ(blocks::sse2::anyOfTwoIn4Blocks(p, '\n', '\r'),
                  blocks::portable::anyOfTwoIn4Blocks(p, '\n', '\r'));
        for (char first : {'A', 'a'}) {
            char fast[blocks::kBlock], portable[blocks::kBlock];
            blocks::sse2::swapAsciiCase(p, fast, first);
            blocks::portable::swapAsciiCase(p, portable, first);
            ASSERT_EQ(std::string(fast, blocks::kBlock), std::string(portable, blocks::kBlock)) << first;
        }
        blocks::ByteRanges ranges;
        for (unsigned r = 0, n = static_cast<unsigned>(rng() % 9); r < n; ++r) {
            const auto low = static_cast<unsigned char>(rng() % 256);
            ASSERT_TRUE(ranges.add(low, static_cast<unsigned char>(low + rng() % (256 - low))));
        }
        ASSERT_EQ(blocks::sse2::inRanges(p, ranges), blocks::portable::inRanges(p, ranges)) << ranges.count();
    }
    // Counting across the 255-block runs of the vector form's lanes.
    for (std::size_t count :
         {std::size_t{1}, std::size_t{254}, std::size_t{255}, std::size_t{256}, std::size_t{600}}) {
        const std::string s = randomBlocks(rng, count);
        for (char c : {'\n', '\0', '\xFF'})
            ASSERT_EQ(blocks::sse2::countEqual(s.data(), count, c),
                      blocks::portable::countEqual(s.data(), count, c));
    }
}

TEST(StrBlocksTest, Utf8LeadCountsAgreeBlockByBlock) {
    std::mt19937 rng(5);
    unsigned refused = 0;
    for (int round = 0; round < 2000; ++round) {
        const std::string s = round % 4 == 0 ? randomBlocks(rng, 8) : randomUtf8(rng, 8);
        blocks::sse2::Utf8Carry fastCarry;
        blocks::portable::Utf8Carry portableCarry;
        for (std::size_t at = 0; at < s.size(); at += blocks::kBlock) {
            const unsigned fast = blocks::sse2::utf8Leads(s.data() + at, fastCarry);
            const unsigned portable = blocks::portable::utf8Leads(s.data() + at, portableCarry);
            ASSERT_EQ(fast, portable) << round << " at " << at;
            refused += portable == blocks::kNotWellFormed;
        }
    }
    EXPECT_GT(refused, 100u);  // the damaged inputs reached the refusal
}

TEST(StrBlocksTest, ARangeSetHoldsEightRangesAtMost) {
    blocks::ByteRanges ranges;
    EXPECT_FALSE(ranges.add(9, 3));
    for (unsigned r = 0; r < blocks::ByteRanges::kMaxRanges; ++r) EXPECT_TRUE(ranges.add(0x80, 0x90));
    EXPECT_FALSE(ranges.add(0, 1));
    EXPECT_EQ(ranges.count(), blocks::ByteRanges::kMaxRanges);
}

#else
TEST(StrBlocksTest, VectorFormsAgreeWithThePortableOnes) {
    GTEST_SKIP() << "no SSE2 form in this build: the portable form is the only one";
}
#endif

}  // namespace
}  // namespace basicutil
