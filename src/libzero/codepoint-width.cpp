#include "libzero/codepoint-width.h"

#include "basicutil/platform/Assert.h"
#include "libzero/codepoint-width-tables.h"

namespace {
uint32_t rangeStart(uint32_t entry) {
    return entry & 0x1FFFFF;
}
}  // namespace

extern "C" int codepoint_width_by_search(uint32_t cp) noexcept {
    if (cp < 0x80) return cp >= 0x20 ? 1 : 0;
    if (cp > 0x10FFFF) return 0;
    // The last entry whose range starts at or before cp, searched among the few entries of its
    // 256-codepoint block. The first range starts at 0x7F and the terminator above 0x10FFFF, so
    // for valid input the answer is always inside the table.
    unsigned lo = codepoint_width_block_index[cp >> 8];
    unsigned hi = codepoint_width_block_index[(cp >> 8) + 1] + 1u;
    while (hi - lo > 1) {
        const unsigned mid = lo + (hi - lo) / 2;
        if (rangeStart(codepoint_width_table[mid]) <= cp) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    VESTRA_ASSERT(rangeStart(codepoint_width_table[lo]) <= cp && lo < CODEPOINT_WIDTH_TABLE_ENTRIES);
    VESTRA_ASSERT(rangeStart(codepoint_width_table[lo]) != rangeStart(codepoint_width_table[lo + 1]));
    return static_cast<int>(codepoint_width_table[lo] >> 21);
}
