// The digits of doubles for the printf engine: shortest round-trip digits, then the library's
// own rounding to significant figures or decimal places.
//
// Rounding looks at the shortest decimal digits, not the binary value, and breaks exact ties
// towards +infinity: 0.25 rounds to 0.3 and -0.25 to -0.2 at one decimal. A negative value that
// rounds to zero keeps its sign ("-0.0").
//
// Finding the shortest digits costs more than the rest of a conversion. Most values are far
// enough from a rounding boundary that exact integer arithmetic on the binary value already
// decides the result the shortest digits would give; roundFixedExactly and
// roundSignificantExactly take those, and leave the rest (ties, near-ties, very large or small
// magnitudes) to the shortest digits.
#pragma once

#include <cstddef>
#include <cstdint>

#include "basicutil/text/PrintfFormat_details.h"

namespace basicutil {

// A double as decimal digits and a decimal point position, with the rounding limits asked for.
struct DoubleWithSignificantFigures {
    static constexpr std::uint16_t MAX_SIGFIGS = 65535;    // unset
    static constexpr std::uint16_t MAX_PRECISION = 65535;  // unset

    char digits[18];                          // up to 17 significant digits and a NUL
    bool negative = false;                    // the sign, kept for a negative zero too
    std::int32_t ndigits = 0;                 // 1..17
    std::int32_t point = 0;                   // the value is 0.d1d2... x 10^point
    std::uint16_t sigfigs = MAX_SIGFIGS;      // significant figures to keep
    std::uint16_t precision = MAX_PRECISION;  // digits after the point to keep

    DoubleWithSignificantFigures() : digits{'0'}, ndigits(1), point(1) {}  // zero
    // The shortest digits of a finite value (double-conversion, shortest mode). Zero is "0"
    // with point 1.
    explicit DoubleWithSignificantFigures(double value);
    // The exact digits of scaled / 10^decimals (scaled below 10^17), without trailing zeros.
    DoubleWithSignificantFigures(bool negative, std::uint64_t scaled, unsigned decimals);
    const char* data() const noexcept { return digits; }  // the digits, NUL-terminated
};

// Keeps min(sigfigs, point + precision) digits, rounding as described above. At least one
// limit must be set.
void roundForSigfigsAndPrecision(DoubleWithSignificantFigures& dsf);

// Whether cutting the digits before index `keep` rounds the magnitude up.
bool shouldRoundAwayFromZero(const DoubleWithSignificantFigures& dsf, std::int32_t keep);

// %f's digits when they can be had without the shortest digits: value x 10^decimals, computed
// exactly, lies so far from a rounding boundary that the shortest digits, which are within
// half an ulp of the value, must round to the same result. Fills `dsf` as the shortest digits
// rounded to `decimals` places would be, or returns false (near a tie, huge, tiny, zero), when
// only that general path can decide.
[[nodiscard]] bool roundFixedExactly(double value, std::size_t decimals, DoubleWithSignificantFigures& dsf);

// The same for `sigfigs` significant figures (%e, %g), up to 15 of them: the rounding position
// follows from the value's decimal exponent.
[[nodiscard]] bool roundSignificantExactly(double value, std::size_t sigfigs,
                                           DoubleWithSignificantFigures& dsf);

// --- The floating renderers: each renders a value for an atom when constructed, into buffers
// of its own (the pieces point into them), and appendTo() writes it padded to the atom's width.

// Fixed form (%f, and %g when it chooses it) of digits already rounded, `decimals` after the point.
class PrintfRenderedNormalFloat {
  public:
    // Renders the value for `atom`, which must outlive this object.
    PrintfRenderedNormalFloat(const PrintfFormatAtom& atom, const DoubleWithSignificantFigures& digits,
                              std::size_t decimals);
    PrintfRenderedNormalFloat(const PrintfRenderedNormalFloat&) = delete;
    PrintfRenderedNormalFloat& operator=(const PrintfRenderedNormalFloat&) = delete;

    // Writes the rendering, padded to the atom's width.
    void appendTo(const PrintfOutput& out) const;

  private:
    const PrintfFormatAtom& _atom;
    DoubleWithSignificantFigures _digits;
    printf_details::Pieces _pieces;
};

// Exponential form (%e, and %g when it chooses it): one digit, `decimals` more, the exponent.
class PrintfRenderedExponentialFloat {
  public:
    // Renders the value for `atom`, which must outlive this object.
    PrintfRenderedExponentialFloat(const PrintfFormatAtom& atom, const DoubleWithSignificantFigures& digits,
                                   std::size_t decimals);
    PrintfRenderedExponentialFloat(const PrintfRenderedExponentialFloat&) = delete;
    PrintfRenderedExponentialFloat& operator=(const PrintfRenderedExponentialFloat&) = delete;

    // Writes the rendering, padded to the atom's width.
    void appendTo(const PrintfOutput& out) const;

  private:
    const PrintfFormatAtom& _atom;
    DoubleWithSignificantFigures _digits;
    char _exponent[8];  // "e+308"
    printf_details::Pieces _pieces;
};

// %a: hexadecimal digits straight from the bits, as C's printf writes them.
class PrintfRenderedHexFloat {
  public:
    // Renders the value for `atom`, which must outlive this object.
    PrintfRenderedHexFloat(const PrintfFormatAtom& atom, double value);
    PrintfRenderedHexFloat(const PrintfRenderedHexFloat&) = delete;
    PrintfRenderedHexFloat& operator=(const PrintfRenderedHexFloat&) = delete;

    // Writes the rendering, padded to the atom's width.
    void appendTo(const PrintfOutput& out) const;

  private:
    const PrintfFormatAtom& _atom;
    char _lead;
    char _fraction[13];
    char _tail[8];  // "p-1022"
    printf_details::Pieces _pieces;
};

// Infinities and NaN: "Infinity", "-Infinity" or "NaN", padded with blanks only.
class PrintfNonfiniteFloatingPointRenderingBuffer {
  public:
    // Renders the value for `atom`, which must outlive this object.
    PrintfNonfiniteFloatingPointRenderingBuffer(const PrintfFormatAtom& atom, double val);

    // Writes the rendering, padded to the atom's width.
    void appendTo(const PrintfOutput& out) const;

  private:
    const PrintfFormatAtom& _atom;
    printf_details::Pieces _pieces;
};

}  // namespace basicutil
