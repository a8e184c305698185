/* The generated width table behind codepoint-width.h (codepoint-width-tables.cpp, written by
 * tools/gen-unicode-tables.py from Unicode 8.0.0). */
#pragma once

#include <stdint.h>

/* Each entry: (width << 21) | first codepoint of the range; the range ends where the next
 * starts. The last entry is the terminator 0x1FFFFF. */
#define CODEPOINT_WIDTH_TABLE_ENTRIES 641
extern "C" const uint32_t codepoint_width_table[CODEPOINT_WIDTH_TABLE_ENTRIES + 1];

/* Per block of 256 codepoints, the last entry starting at or before the block's first codepoint;
 * a lookup searches entries [cp >> 8] .. [(cp >> 8) + 1] only. */
extern "C" const uint16_t codepoint_width_block_index[0x1100 + 1];
