#include "libzero/codepoint-width.h"

#include <gtest/gtest.h>

#include "libzero/codepoint-width-tables.h"

namespace {

uint32_t start(uint32_t entry) {
    return entry & 0x1FFFFF;
}

TEST(CodepointWidthTest, TableShape) {
    int byWidth[3] = {0, 0, 0};
    for (unsigned i = 0; i < CODEPOINT_WIDTH_TABLE_ENTRIES; ++i) {
        const uint32_t w = codepoint_width_table[i] >> 21;
        ASSERT_LE(w, 2u);
        ++byWidth[w];
        ASSERT_LT(start(codepoint_width_table[i]), start(codepoint_width_table[i + 1])) << i;
        if (i > 0) {
            ASSERT_NE(w, codepoint_width_table[i - 1] >> 21) << "runs are merged";
        }
    }
    EXPECT_EQ(byWidth[0], 288);
    EXPECT_EQ(byWidth[1], 317);
    EXPECT_EQ(byWidth[2], 36);
    EXPECT_EQ(codepoint_width_table[CODEPOINT_WIDTH_TABLE_ENTRIES], 0x1FFFFFu);
}

// The two-stage table answers exactly as the range search, for every value up to past the end.
TEST(CodepointWidthTest, TwoStageTableAgreesWithTheRanges) {
    for (uint32_t cp = 0; cp <= 0x110100; ++cp)
        ASSERT_EQ(codepoint_width(cp), codepoint_width_by_search(cp)) << cp;
    EXPECT_EQ(codepoint_width(0xFFFFFFFFu), 0);
}

// Rows that tell the generation rule from its near misses: zero wins over wide, reserved
// codepoints listed as wide count, First/Last blocks are not expanded, Hangul jamo are zero.
TEST(CodepointWidthTest, SpotChecks) {
    const std::pair<uint32_t, int> cases[] = {
        {0x7F, 1},    {0x1F, 0},    {0x20, 1},    {0x110000, 0}, {0xE000, 0},   {0xE001, 1},
        {0xF8FF, 0},  {0xFFFFD, 0}, {0xFFFFE, 1}, {0x100000, 0}, {0x100001, 1}, {0x10FFFD, 0},
        {0xD800, 1},  {0xDFFF, 1},  {0x1160, 0},  {0x11FF, 0},   {0xD7A4, 1},   {0xD7B0, 0},
        {0xD7FB, 0},  {0xD7FC, 1},  {0x0488, 0},  {0x20DD, 0},   {0x302A, 0},   {0x3099, 0},
        {0x3000, 2},  {0x08E3, 0},  {0x08D4, 1},  {0x231A, 1},   {0x1F600, 1},  {0x9FD6, 2},
        {0x2FFFE, 1}, {0xAD, 0},    {0x200B, 0},  {0xFEFF, 0},   {0xFF01, 2},   {0xFF61, 1},
        {0xE0001, 0}, {0xE0100, 0}, {0xE01F0, 1}, {0x4E00, 2},   {0x10FFFF, 1}, {0xFFFFFFFF, 0}};
    for (const auto& [cp, width] : cases) EXPECT_EQ(codepoint_width(cp), width) << std::hex << cp;
}

}  // namespace
