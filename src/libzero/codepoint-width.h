/* Terminal column width of a codepoint, as the wcwidth family defines it, from Unicode 8.0.0. */
#pragma once

#include <stdint.h>

#include "libzero/codepoint-width-tables.h"

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* 0, 1 or 2. Below 0x80: 1 from 0x20 on (DEL, 0x7F, included), 0 below. Above 0x10FFFF: 0.
 * Combining marks, format and control characters, private use and Hangul jungseong/jongseong
 * are 0; East Asian wide and fullwidth characters are 2; everything else is 1.
 *
 * Defined here so that callers measuring text inline it: a compare and two table loads (the
 * tables hold the ASCII rule too). */
LIBZERO_INLINE int codepoint_width(uint32_t cp) LIBZERO_NOEXCEPT {
    if (cp > 0x10FFFF) return 0;
    const unsigned block = codepoint_width_stage1[cp >> CODEPOINT_WIDTH_STAGE_SHIFT];
    return codepoint_width_stage2[(block << CODEPOINT_WIDTH_STAGE_SHIFT) |
                                  (cp & ((1u << CODEPOINT_WIDTH_STAGE_SHIFT) - 1))];
}

LIBZERO_END_DECLARATIONS
