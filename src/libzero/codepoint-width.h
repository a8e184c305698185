/* Terminal column width of a codepoint, as the wcwidth family defines it, from Unicode 8.0.0. */
#pragma once

#include <stdint.h>

/* 0, 1 or 2. Below 0x80: 1 from 0x20 on (DEL, 0x7F, included), 0 below. Above 0x10FFFF: 0.
 * Combining marks, format and control characters, private use and Hangul jungseong/jongseong
 * are 0; East Asian wide and fullwidth characters are 2; everything else is 1. */
extern "C" int codepoint_width(uint32_t cp) noexcept;
