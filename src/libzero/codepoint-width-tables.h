/* The generated width table behind codepoint-width.h (codepoint-width-tables.cpp, written by
 * tools/gen-unicode-tables.py from Unicode 8.0.0). */
#pragma once

#include <stdint.h>

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* Each entry: (width << 21) | first codepoint of the range; the range ends where the next
 * starts. The last entry is the terminator 0x1FFFFF. */
#define CODEPOINT_WIDTH_TABLE_ENTRIES 641
extern const uint32_t codepoint_width_table[CODEPOINT_WIDTH_TABLE_ENTRIES + 1];

/* Per block of 256 codepoints, the last entry starting at or before the block's first codepoint;
 * a lookup searches entries [cp >> 8] .. [(cp >> 8) + 1] only. */
extern const uint16_t codepoint_width_block_index[0x1100 + 1];

/* The same widths for every codepoint up to U+10FFFF in two stages, for constant-time lookups:
 * stage 1 names the block of each 128 codepoints, stage 2 holds each distinct block once. Below
 * 0x80 it holds the ASCII rule (1 from 0x20 on, DEL included). */
#define CODEPOINT_WIDTH_STAGE_SHIFT 7
extern const uint8_t codepoint_width_stage1[0x110000 >> CODEPOINT_WIDTH_STAGE_SHIFT];
extern const uint8_t codepoint_width_stage2[];

/* The same answer as codepoint_width, by binary search of the range table: the reference the
 * two-stage tables are checked against. */
int codepoint_width_by_search(uint32_t cp) LIBZERO_NOEXCEPT;

LIBZERO_END_DECLARATIONS
