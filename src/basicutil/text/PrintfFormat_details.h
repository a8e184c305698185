// The printf engine's machinery: routes, renderers, constant tables and the padded output of
// pieces. Callers use PrintfFormat.h.
#pragma once

#include <array>
#include <cstddef>

#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

// --- Renderers: each renders one value for an atom into a fixed buffer of its own when
// constructed; appendTo() writes it, padded to the atom's width, in one append. ------------------

// An integer conversion (u, x, X, o, or %p as hexadecimal) of a value cut to the atom's size.
class PrintfRenderedUnsignedInteger {
  public:
    PrintfRenderedUnsignedInteger(const PrintfFormatAtom& atom, std::uint64_t value);
    PrintfRenderedUnsignedInteger(const PrintfRenderedUnsignedInteger&) = delete;  // points into itself
    PrintfRenderedUnsignedInteger& operator=(const PrintfRenderedUnsignedInteger&) = delete;
    void appendTo(const PrintfOutput& out) const;

  protected:
    PrintfRenderedUnsignedInteger(const PrintfFormatAtom& atom, std::uint64_t magnitude, const char* sign);

  private:
    void prepend(const char* text, std::size_t n);

    const PrintfFormatAtom& _atom;
    const char* _sign;              // "-", "+", " " or nullptr; in _buf once placed there
    const char* _prefix = nullptr;  // "0x" or "0X"; likewise
    std::size_t _zeros = 0;         // from the precision, or octal's "#"
    char _buf[26];                  // digits at the tail: 20 decimal digits and 6 separators, or 22 octal
    char* _p;                       // the first byte of the text in _buf
};

// A signed decimal conversion (d, i) of a value sign-extended from the atom's size.
class PrintfRenderedSignedInteger : public PrintfRenderedUnsignedInteger {
  public:
    PrintfRenderedSignedInteger(const PrintfFormatAtom& atom, std::int64_t value);
};

void printfPointerValue(const PrintfFormatAtom& atom, const void* pointer, const PrintfOutput& out);
void renderDouble(const PrintfFormatAtom& atom, double value,
                  const PrintfOutput& out);  // PrintFloatingPoint.cpp
void renderString(const PrintfFormatAtom& atom, StrSegment s, const PrintfOutput& out);
void renderChar(const PrintfFormatAtom& atom, char c, const PrintfOutput& out);

namespace printf_details {

// How an atom is rendered: the common shapes skip the general renderer.
enum class Route : std::uint8_t {
    TEXT,
    SIMPLE_SIGNED,    // "%d", "%5d", "%'d"
    SIMPLE_UNSIGNED,  // "%u", "%08x", "%X"
    PLAIN_STRING,     // "%s"
    INTEGER,
    FLOAT,
    GENERAL
};
Route routeOf(const PrintfFormatAtom& atom) noexcept;

// Lower/upper letter pairs of the conversions, read from the right: conversion c's pair starts at
// index 28 - 2c ("dd" is 1, "pp" is 12); "0x0X" in front supplies the hexadecimal prefixes.
inline constexpr char kLetterPairs[] = "0x0XppmmssccaAgGfFeEooxXuudd";
inline constexpr char kHexUpper[] = "0123456789ABCDEF";
inline constexpr char kHexLower[] = "0123456789abcdef";

// "00" "01" ... "ff": two hexadecimal digits per byte of the value.
inline constexpr std::array<char, 512> hexPairs(const char (&digits)[17]) {
    std::array<char, 512> pairs{};
    for (std::size_t b = 0; b < 256; ++b) {
        pairs[2 * b] = digits[b >> 4];
        pairs[2 * b + 1] = digits[b & 15];
    }
    return pairs;
}
inline constexpr std::array<char, 512> kHexPairsLower = hexPairs(kHexLower);
inline constexpr std::array<char, 512> kHexPairsUpper = hexPairs(kHexUpper);

inline char conversionLetter(PrintfFormatAtom::Conversion c, bool upper) {
    const std::size_t pair = (sizeof kLetterPairs - 1) - 2 * static_cast<std::size_t>(c);
    return kLetterPairs[pair + (upper ? 1 : 0)];
}
inline const char* hexPrefix(bool upper) {
    return upper ? kLetterPairs + 2 : kLetterPairs;
}

// A rendered number or text as a few pieces, so that long runs of zeros or blanks and constant
// text are never copied into a buffer. The first `prefixPieces` pieces (sign, "0x") come before
// zero padding.
struct Pieces {
    struct Piece {
        const char* text;  // nullptr: `count` copies of `fill`
        std::size_t count;
        char fill;
    };
    static constexpr std::size_t kMax = 10;
    Piece piece[kMax];
    std::size_t n = 0;
    std::size_t prefixPieces = 0;

    void text(const char* p, std::size_t count) {
        if (count > 0) piece[n++] = {p, count, 0};
    }
    void repeat(char c, std::size_t count) {
        if (count > 0) piece[n++] = {nullptr, count, c};
    }
    void markPrefix() { prefixPieces = n; }
    std::size_t length() const {
        std::size_t total = 0;
        for (std::size_t i = 0; i < n; ++i) total += piece[i].count;
        return total;
    }
};

// Writes the pieces padded to the atom's width: blanks on the left or right, or zeros after the
// prefix when zero padding is allowed for this kind of value.
void emitPadded(const PrintfFormatAtom& atom, const Pieces& pieces, const PrintfOutput& out,
                bool zeroPadAllowed);

}  // namespace printf_details
}  // namespace basicutil
