#include "basicutil/text/PrintFloatingPoint.h"

#include <double-conversion/double-to-string.h>

#include <cmath>
#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/PrintfFormat_details.h"
#include "basicutil/text/Str.h"

namespace basicutil {

using namespace printf_details;
using Atom = PrintfFormatAtom;

namespace {
bool double_is_finite(double v) {
    return std::isfinite(v);
}
}  // namespace

DoubleWithSignificantFigures::DoubleWithSignificantFigures(double value) {
    bool sign = false;
    int length = 0, decimalPoint = 0;
    double_conversion::DoubleToStringConverter::DoubleToAscii(
        value, double_conversion::DoubleToStringConverter::SHORTEST, 0, digits, sizeof digits, &sign, &length,
        &decimalPoint);
    negative = sign;
    ndigits = length;
    point = decimalPoint;
    VESTRA_ASSERT(data()[0] >= '0' && data()[0] <= '9');
}

DoubleWithSignificantFigures::DoubleWithSignificantFigures(bool negative_, std::uint64_t scaled,
                                                           unsigned decimals) {
    VESTRA_ASSERT(scaled < kPowersOfTen[17]);
    negative = negative_;
    if (scaled == 0) {
        std::memcpy(digits, "0", 2);
        ndigits = 1;
        point = 1;
        return;
    }
    const unsigned count = decimalDigitCount(scaled);
    writeDecimalDigits(digits, scaled, count);
    ndigits = static_cast<std::int32_t>(count);
    point = static_cast<std::int32_t>(count) - static_cast<std::int32_t>(decimals);
    while (digits[ndigits - 1] == '0') --ndigits;
    digits[ndigits] = '\0';
}

bool roundFixedExactly(double value, std::size_t decimals, DoubleWithSignificantFigures& dsf) {
    if (decimals > 16) return false;  // 10^decimals x 2^53 stays below 2^117
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const auto biased = static_cast<int>((bits >> 52) & 0x7FF);
    if (biased == 0x7FF) return false;  // not finite
    std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
    if (biased != 0) mantissa |= std::uint64_t{1} << 52;
    if (mantissa == 0) return false;  // zero keeps the general path's sign handling
    // |value| = mantissa x 2^-shift; the shortest digits are within 2^-shift / 2 of it. Whole
    // numbers from 2^53 up have shortest digits that may differ from them, and tiny values
    // would need wider arithmetic: both go the general way.
    const int shift = 1075 - (biased == 0 ? 1 : biased);
    if (shift < 1 || shift > 126) return false;
    const std::uint64_t power = kPowersOfTen[decimals];
    // scaled = value x 10^decimals = whole + fraction / 2^shift, exactly (below 2^117).
    const Uint128 product = static_cast<Uint128>(mantissa) * power;
    const Uint128 whole = product >> shift;
    const Uint128 fraction = product & ((Uint128{1} << shift) - 1);
    const Uint128 half = Uint128{1} << (shift - 1);
    // The shortest digits, scaled the same way, lie within power / 2 units of the exact value.
    // Kept `power` units away from the half-way point, they round as it does: down to `whole`
    // below it (digits just under `whole` round back up to it), up to whole + 1 above it.
    if (power >= half) return false;
    std::uint64_t rounded;
    if (fraction + power < half)
        rounded = static_cast<std::uint64_t>(whole);
    else if (fraction > half + power)
        rounded = static_cast<std::uint64_t>(whole) + 1;
    else
        return false;
    if (whole >= kPowersOfTen[17] - 1) return false;  // the digit buffer holds 17
    dsf = DoubleWithSignificantFigures((bits >> 63) != 0, rounded, static_cast<unsigned>(decimals));
    return true;
}

bool roundSignificantExactly(double value, std::size_t sigfigs, DoubleWithSignificantFigures& dsf) {
    if (sigfigs < 1 || sigfigs > 15) return false;
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const auto biased = static_cast<int>((bits >> 52) & 0x7FF);
    if (biased == 0 || biased == 0x7FF) return false;  // zero, subnormal or not finite
    // floor(log10 |value|) is this or one more: 78913 / 2^18 is just below log10(2).
    int exponent = ((biased - 1023) * 78913) >> 18;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int decimals = static_cast<int>(sigfigs) - 1 - exponent;
        if (decimals < 0 || !roundFixedExactly(value, static_cast<std::size_t>(decimals), dsf)) return false;
        if (dsf.point == exponent + 1) return true;  // sigfigs digits, as wanted
        if (dsf.point == exponent + 2 && dsf.ndigits == 1 && dsf.digits[0] == '1')
            return true;           // rounded up to the next power of ten, as the general path carries
        exponent = dsf.point - 1;  // the estimate was one too low: one more digit came out
    }
    return false;
}

bool shouldRoundAwayFromZero(const DoubleWithSignificantFigures& dsf, std::int32_t keep) {
    const char cut = dsf.digits[keep];
    if (cut > '5') return true;
    if (cut < '5') return false;
    // An exact tie goes towards +infinity: away from zero only for a non-negative value, or
    // when further digits show it is no tie at all.
    return !dsf.negative || keep + 1 < dsf.ndigits;
}

void roundForSigfigsAndPrecision(DoubleWithSignificantFigures& dsf) {
    const std::int32_t digits = dsf.ndigits;
    VESTRA_ASSERT(digits >= 1);
    std::int64_t keep = dsf.sigfigs != DoubleWithSignificantFigures::MAX_SIGFIGS ? dsf.sigfigs : INT64_MAX;
    if (dsf.precision != DoubleWithSignificantFigures::MAX_PRECISION) {
        const std::int64_t byPrecision = static_cast<std::int64_t>(dsf.point) + dsf.precision;
        if (byPrecision < keep) keep = byPrecision;
    }
    const auto becomeZero = [&dsf]() {
        std::memcpy(dsf.digits, "0", 2);
        dsf.ndigits = 1;
        dsf.point = 1;
    };
    if (keep < 0) return becomeZero();
    if (keep >= dsf.ndigits) return;
    const auto kept = static_cast<std::int32_t>(keep);
    const bool away = shouldRoundAwayFromZero(dsf, kept);
    dsf.ndigits = kept;
    dsf.digits[kept] = '\0';
    if (!away) {
        if (kept == 0) becomeZero();
        return;
    }
    std::int32_t i = kept - 1;
    while (i >= 0 && dsf.digits[i] == '9') --i;
    if (i < 0) {  // all nines (or nothing kept): 1 in the next decimal place
        std::memcpy(dsf.digits, "1", 2);
        dsf.ndigits = 1;
        dsf.point += 1;
        return;
    }
    ++dsf.digits[i];
    dsf.ndigits = i + 1;  // the nines that carried are now trailing zeros: drop them
    dsf.digits[dsf.ndigits] = '\0';
}

namespace {

// The sign that goes in front of a number.
const char* signOf(const Atom& atom, bool negative) {
    if (negative) return "-";
    if (atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_PLUS) return "+";
    if (atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_SPACE) return " ";
    return nullptr;
}

// A number's first pieces: its sign and (for %a) "0x", after which zero padding goes.
void startNumber(Pieces& pieces, const Atom& atom, bool negative, const char* prefix = nullptr) {
    if (const char* sign = signOf(atom, negative)) pieces.text(sign, 1);
    if (prefix != nullptr) pieces.text(prefix, 2);
    pieces.markPrefix();
}

}  // namespace

// Fixed form: the rounded digits placed around the point, with `decimals` digits after it.
PrintfRenderedNormalFloat::PrintfRenderedNormalFloat(const Atom& atom,
                                                     const DoubleWithSignificantFigures& digits,
                                                     std::size_t decimals)
    : _atom(atom), _digits(digits) {
    startNumber(_pieces, atom, _digits.negative);
    const auto n = static_cast<std::size_t>(_digits.ndigits);
    const bool point = decimals > 0 || atom.has(Atom::FLAG_ALTERNATE);
    if (_digits.point <= 0) {
        const auto leading = static_cast<std::size_t>(-_digits.point);
        _pieces.text("0", 1);
        if (point) _pieces.text(".", 1);
        const std::size_t zeros = leading < decimals ? leading : decimals;
        _pieces.repeat('0', zeros);
        const std::size_t shown = decimals > zeros ? (n < decimals - zeros ? n : decimals - zeros) : 0;
        _pieces.text(_digits.digits, shown);
        _pieces.repeat('0', decimals - zeros - shown);
    } else if (static_cast<std::size_t>(_digits.point) >= n) {
        _pieces.text(_digits.digits, n);
        _pieces.repeat('0', static_cast<std::size_t>(_digits.point) - n);
        if (point) _pieces.text(".", 1);
        _pieces.repeat('0', decimals);
    } else {
        const auto before = static_cast<std::size_t>(_digits.point);
        _pieces.text(_digits.digits, before);
        if (point) _pieces.text(".", 1);
        const std::size_t after = n - before < decimals ? n - before : decimals;
        _pieces.text(_digits.digits + before, after);
        _pieces.repeat('0', decimals - after);
    }
}

void PrintfRenderedNormalFloat::appendTo(const PrintfOutput& out) const {
    emitPadded(_atom, _pieces, out, true);
}

// Exponential form: one digit, the point, `decimals` more digits, then e+XX.
PrintfRenderedExponentialFloat::PrintfRenderedExponentialFloat(const Atom& atom,
                                                               const DoubleWithSignificantFigures& digits,
                                                               std::size_t decimals)
    : _atom(atom), _digits(digits) {
    startNumber(_pieces, atom, _digits.negative);
    const auto n = static_cast<std::size_t>(_digits.ndigits);
    _pieces.text(_digits.digits, 1);
    if (decimals > 0 || atom.has(Atom::FLAG_ALTERNATE)) _pieces.text(".", 1);
    const std::size_t shown = n - 1 < decimals ? n - 1 : decimals;
    _pieces.text(_digits.digits + 1, shown);
    _pieces.repeat('0', decimals - shown);
    const bool zero = _digits.digits[0] == '0';
    int e = zero ? 0 : _digits.point - 1;
    std::size_t k = 0;
    _exponent[k++] = atom.has(Atom::FLAG_UPPER_CASE) ? 'E' : 'e';
    _exponent[k++] = e < 0 ? '-' : '+';
    const auto magnitude = static_cast<std::uint64_t>(e < 0 ? -e : e);
    const unsigned exponentDigits = decimalDigitCount(magnitude);
    const unsigned count = exponentDigits < 2 ? 2 : exponentDigits;  // at least two: "e+05"
    _exponent[k] = '0';  // the leading zero, left by a one-digit exponent
    writeDecimalDigits(_exponent + k, magnitude, count);
    _pieces.text(_exponent, k + count);
}

void PrintfRenderedExponentialFloat::appendTo(const PrintfOutput& out) const {
    emitPadded(_atom, _pieces, out, true);
}

PrintfNonfiniteFloatingPointRenderingBuffer::PrintfNonfiniteFloatingPointRenderingBuffer(const Atom& atom,
                                                                                         double val)
    : _atom(atom) {
    VESTRA_ASSERT(!double_is_finite(val));
    // No NaN is below zero, so every NaN is "NaN".
    const StrSegment repl = std::isnan(val) ? "NaN" : val < 0 ? "-Infinity" : "Infinity";
    VESTRA_ASSERT(!repl.empty());
    _pieces.text(repl._data, repl._len);
}

void PrintfNonfiniteFloatingPointRenderingBuffer::appendTo(const PrintfOutput& out) const {
    emitPadded(_atom, _pieces, out, false);  // blanks only: the sign and zero flags do not apply
}

// %a as C writes it: 0x1.8p+1; subnormals as 0x0.xxxp-1022; rounding to a precision is to
// nearest, ties to even.
PrintfRenderedHexFloat::PrintfRenderedHexFloat(const Atom& atom, double value) : _atom(atom) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const bool negative = (bits >> 63) != 0;
    const auto biased = static_cast<int>((bits >> 52) & 0x7FF);
    std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
    unsigned lead = biased == 0 ? 0 : 1;
    int exponent = biased == 0 ? (mantissa == 0 ? 0 : -1022) : biased - 1023;
    std::size_t nibbles = 13;
    if (atom.precision == Atom::NONE) {
        while (nibbles > 0 && (mantissa & 0xF) == 0) {
            mantissa >>= 4;
            --nibbles;
        }
    } else if (atom.precision < 13) {
        const auto drop = static_cast<unsigned>(4 * (13 - atom.precision));
        const std::uint64_t rest = mantissa & ((std::uint64_t{1} << drop) - 1);
        const std::uint64_t half = std::uint64_t{1} << (drop - 1);
        mantissa >>= drop;
        // To nearest, ties to even; with no fraction digit kept the leading digit is the last.
        const bool odd = atom.precision == 0 ? (lead & 1) != 0 : (mantissa & 1) != 0;
        if (rest > half || (rest == half && odd)) {
            if (atom.precision == 0) {
                ++lead;
            } else if (++mantissa >> (4 * atom.precision)) {  // carried into the leading digit
                mantissa = 0;
                ++lead;
            }
        }
        nibbles = atom.precision;
    }
    const bool upper = atom.has(Atom::FLAG_UPPER_CASE);
    const char* hex = upper ? kHexUpper : kHexLower;
    for (std::size_t i = 0; i < nibbles; ++i) _fraction[i] = hex[(mantissa >> (4 * (nibbles - 1 - i))) & 0xF];
    _lead = static_cast<char>('0' + lead);
    std::size_t k = 0;
    _tail[k++] = upper ? 'P' : 'p';
    _tail[k++] = exponent < 0 ? '-' : '+';
    char digits[kMaxUint64Digits];
    const std::size_t m =
        formatUnsigned(digits, static_cast<std::uint64_t>(exponent < 0 ? -exponent : exponent));
    std::memcpy(_tail + k, digits, m);
    k += m;

    startNumber(_pieces, atom, negative, hexPrefix(upper));
    _pieces.text(&_lead, 1);
    const std::size_t decimals = atom.precision == Atom::NONE ? nibbles : atom.precision;
    if (decimals > 0 || atom.has(Atom::FLAG_ALTERNATE)) _pieces.text(".", 1);
    _pieces.text(_fraction, nibbles);
    _pieces.repeat('0', decimals - nibbles);
    _pieces.text(_tail, k);
}

void PrintfRenderedHexFloat::appendTo(const PrintfOutput& out) const {
    emitPadded(_atom, _pieces, out, true);
}

namespace {

// The value's digits rounded to the atom's needs: exactly when that is certain, otherwise from
// the shortest digits and the library's rounding.
DoubleWithSignificantFigures roundedDigits(double value, std::size_t decimals, std::size_t sigfigs) {
    const auto limit = [](std::size_t v) {
        return static_cast<std::uint16_t>(v < DoubleWithSignificantFigures::MAX_PRECISION - 1
                                              ? v
                                              : DoubleWithSignificantFigures::MAX_PRECISION - 1);
    };
    DoubleWithSignificantFigures dsf;
    if (decimals != Atom::NONE) {
        if (roundFixedExactly(value, decimals, dsf)) return dsf;
        dsf = DoubleWithSignificantFigures(value);
        dsf.precision = limit(decimals);
        VESTRA_ASSERT(dsf.precision != DoubleWithSignificantFigures::MAX_PRECISION);
    } else {
        if (roundSignificantExactly(value, sigfigs, dsf)) return dsf;
        dsf = DoubleWithSignificantFigures(value);
        dsf.sigfigs = limit(sigfigs);
        VESTRA_ASSERT(dsf.sigfigs != DoubleWithSignificantFigures::MAX_SIGFIGS);
    }
    roundForSigfigsAndPrecision(dsf);
    return dsf;
}

}  // namespace

void renderDouble(const Atom& atom, double value, const PrintfOutput& out) {
    if (!double_is_finite(value))
        return PrintfNonfiniteFloatingPointRenderingBuffer(atom, value).appendTo(out);
    if (atom.conversion == Atom::CONV_FLOAT_HEX) return PrintfRenderedHexFloat(atom, value).appendTo(out);
    const std::size_t precision = atom.precision == Atom::NONE ? 6 : atom.precision;
    if (atom.conversion == Atom::CONV_FLOAT_FIXED)
        return PrintfRenderedNormalFloat(atom, roundedDigits(value, precision, 0), precision).appendTo(out);
    if (atom.conversion == Atom::CONV_FLOAT_EXPONENT)
        return PrintfRenderedExponentialFloat(atom, roundedDigits(value, Atom::NONE, precision + 1),
                                              precision)
            .appendTo(out);
    // %g: exponential when the exponent after rounding is below -4 or not below P.
    const bool alternate = atom.has(Atom::FLAG_ALTERNATE);
    const std::size_t p = atom.precision == Atom::NONE ? 6 : atom.precision == 0 ? 1 : atom.precision;
    DoubleWithSignificantFigures dsf = roundedDigits(value, Atom::NONE, p);
    const std::int64_t x = dsf.digits[0] == '0' ? 0 : dsf.point - 1;
    if (!alternate) {  // trailing zeros of the fraction go, and a bare point with them
        while (dsf.ndigits > 1 && dsf.digits[dsf.ndigits - 1] == '0') dsf.digits[--dsf.ndigits] = '\0';
    }
    if (x < -4 || x >= static_cast<std::int64_t>(p)) {
        const std::size_t decimals = alternate ? p - 1 : static_cast<std::size_t>(dsf.ndigits - 1);
        return PrintfRenderedExponentialFloat(atom, dsf, decimals).appendTo(out);
    }
    const std::int64_t wanted = static_cast<std::int64_t>(p) - 1 - x;
    std::int64_t decimals = wanted;
    if (!alternate) {
        const std::int64_t present = dsf.ndigits - dsf.point;
        decimals = present < 0 ? 0 : (present < wanted ? present : wanted);
    }
    PrintfRenderedNormalFloat(atom, dsf, static_cast<std::size_t>(decimals)).appendTo(out);
}

}  // namespace basicutil
