// Constant tables and small helpers shared by the printf renderers.
#pragma once

#include <array>
#include <cstddef>

#include "basicutil/PrintfFormat.h"

namespace basicutil::printf_details {

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

}  // namespace basicutil::printf_details
