/* The UTF-8 rules of this library, side by side. Each is written once, where it is named below.
 *
 * 1. Stepping (utf8SequenceLength, basicutil/text/StrUtf8.h): a lead byte's length, for
 *    measuring text without judging it: below 0x80 one byte, 0x80-0xDF two (a stray continuation
 *    byte counts as a two-byte lead), 0xE0-0xEF three, 0xF0-0xF4 four, 0xF5-0xFF one. Counting,
 *    truncation and display width use it, so that malformed text is measured, never refused.
 * 2. The library's validity (isValidUtf8, basicutil/text/StrUtf8.h and its vector paths): leads
 *    0xC2-0xF4 with their continuation bytes, the second byte at least 0x90 after 0xF0 and at most
 *    0x8F after 0xF4; three-byte forms are not checked past their lead, so E0 80 80 (overlong)
 *    and ED A0 80 (a surrogate) pass. Callers depend on exactly this verdict.
 * 3. Well-formed UTF-8 as Unicode defines it (RFC 3629; utf8_well_formed_lead below): no
 *    overlong forms, no surrogates, nothing above U+10FFFF. Whatever leaves the library in a form
 *    another program must accept uses it: the JSON string writer (appendJsonEscaped,
 *    basicutil/text/StrEscape.h) and the Unicode file readers and writers (libzero/unicode-file.h).
 */
#pragma once

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* What a lead byte asks of the bytes after it, by rule 3. */
struct utf8_lead_rule {
    unsigned char following; /* continuation bytes after the lead (1 to 3); 0: not a lead */
    unsigned char low;       /* the range of the byte right after the lead, inclusive */
    unsigned char high;
};

/* Rule 3 for one lead byte. The bytes after the second must be 0x80-0xBF. */
LIBZERO_CONSTEXPR struct utf8_lead_rule utf8_well_formed_lead(unsigned char lead) LIBZERO_NOEXCEPT {
    struct utf8_lead_rule rule = {0, 0x80, 0xBF};
    if (lead >= 0xC2 && lead <= 0xDF) {
        rule.following = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        rule.following = 2;
        if (lead == 0xE0) rule.low = 0xA0;  /* overlong */
        if (lead == 0xED) rule.high = 0x9F; /* surrogates */
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        rule.following = 3;
        if (lead == 0xF0) rule.low = 0x90;  /* overlong */
        if (lead == 0xF4) rule.high = 0x8F; /* above U+10FFFF */
    }
    return rule;
}

LIBZERO_END_DECLARATIONS
