// Machinery shared by the time-format files; callers use DateTime.h.
#pragma once

#include "basicutil/time/DateTime.h"

namespace basicutil {

// What an atom renders or parses.
enum TimeFormat::What : std::uint8_t {
    LITERAL,             // characters of the format
    PUNCT,               // one character of kPunctuation
    WEEKDAY_NAME,        // %a (abbreviated) and %A
    MONTH_NAME,          // %b %h and %B
    CENTURY,             // %C
    MONTHDAY_NUM,        // %d %e
    ISO_YEAR,            // %G
    ISO_YEAR2,           // %g
    HOUR24_NUM,          // %H %k
    HOUR12_NUM,          // %I %l
    YDAY_NUM,            // %j
    MINUTE_NUM,          // %M
    SECOND_NUM,          // %S
    MONTH_NUM,           // %m
    WHITESPACE,          // %n %t
    MERIDIAN,            // %p %P
    SUBSECONDS,          // %N %Q %f %q
    EPOCH,               // %s
    EPOCH10,             // %UT
    SORTABLE,            // %ST
    MONTHWEEK_NUM,       // %U %W %V: the week of the year
    WEEKDAY_NUM,         // %u %w
    YEAR_NUM,            // %Y %o
    YEAR2_NUM,           // %y
    TZ_AS_NEEDEDOFFSET,  // %Z: a name, its offset found later
    TZ_AS_SECOFFSET,     // %z %:z: the offset itself
    COMPOSITE,           // %D %c ... with a width or "^": their expansion as one field
};

// The flags "_", "0" and "-" (or none): the padding of numbers.
enum TimeFormat::Padding : std::uint8_t { PAD_DEFAULT, PAD_SPACE, PAD_ZERO, PAD_NONE };
// The flags "#" and "^" (or none): the case of names.
enum TimeFormat::Casing : std::uint8_t { CASE_DEFAULT, CASE_SWAP, CASE_UPPER };

// One piece of the format.
struct TimeFormat::Atom {
    What what = LITERAL;  // what it renders or parses
    union {
        struct {
            Padding padding;
            Casing casing;
            std::uint8_t width;     // 0: the conversion's default
            std::uint8_t letter;    // the conversion letter as written
            std::uint8_t modifier;  // 0, 1 for "E", 2 for "O"
            std::uint8_t colon;     // %:z
        } conv;
        std::uint8_t tmp;  // PUNCT: the index into kPunctuation
        struct {
            std::uint32_t offset, length;  // LITERAL: into _literals
        } text;
    } x{};  // by `what`: a conversion's flags, a punctuation index, or a literal's place
};

// Most fields are two digits: the fixed-layout parse stores them directly, in this order.
enum TimeFormat::TwoDigitField : std::uint8_t {
    TWO_DAY,
    TWO_HOUR,
    TWO_HOUR12,
    TWO_MINUTE,
    TWO_SECOND,
    TWO_MONTH,
    TWO_YY,
    TWO_CENTURY,
    NOT_TWO = 0xff
};

// Where a field of the fixed layout goes.
struct TimeFormat::Slot {
    std::uint32_t position, atom;
    std::uint8_t twoDigitField;  // the parse's index of two-digit values, or 0xff
    char lead;                   // '0', or ' ' for %e %k %l
    std::uint16_t width;
    What what;    // the atom's, at hand
    char letter;  // ... and its conversion letter
};

// The digits a SUBSECONDS atom renders and parses: its width, else its letter's own (%N 9, %Q 3,
// %f and %q 6).
inline unsigned subsecondDigitsOf(const TimeFormat::Atom& a) noexcept {
    if (a.x.conv.width != 0) return a.x.conv.width;
    const char letter = static_cast<char>(a.x.conv.letter);
    return letter == 'N' ? 9 : letter == 'Q' ? 3 : 6;
}

inline const char* TimeFormat::literalText(const Atom& a) const noexcept {
    return _literals.data() + a.x.text.offset;
}

}  // namespace basicutil

namespace basicutil::date_time_details {

// A composite's expansion ("%H:%M:%S" for 'T'), compiled once: what a COMPOSITE atom renders and
// parses. `letter` is a composite's.
const TimeFormat& compositeFormat(char letter);

}  // namespace basicutil::date_time_details
