#include "basicutil/DecimalText.h"

#include <cmath>

#include "basicutil/Assert.h"

namespace basicutil {

std::size_t formatUnsigned(char* out, std::uint64_t v) noexcept {
    char rev[kMaxUint64Digits];
    std::size_t n = 0;
    do {
        rev[n++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    for (std::size_t i = 0; i < n; ++i) out[i] = rev[n - 1 - i];
    return n;
}

void appendUnsigned(std::string& out, std::uint64_t v) {
    char buf[kMaxUint64Digits];
    out.append(buf, formatUnsigned(buf, v));
}

void appendSigned(std::string& out, std::int64_t v) {
    if (v < 0) {
        out.push_back('-');
        // Negate in unsigned arithmetic: INT64_MIN has no positive counterpart.
        appendUnsigned(out, 0 - static_cast<std::uint64_t>(v));
    } else {
        appendUnsigned(out, static_cast<std::uint64_t>(v));
    }
}

void appendZeroPadded(std::string& out, std::uint64_t v, unsigned width) {
    char buf[kMaxUint64Digits];
    const std::size_t n = formatUnsigned(buf, v);
    if (width > n) out.append(width - n, '0');
    out.append(buf, n);
}

void appendFixed(std::string& out, double v, unsigned precision, unsigned width) {
    VESTRA_ASSERT(std::isfinite(v) && std::fabs(v) < 18446744073709551616.0);
    VESTRA_ASSERT(precision <= 9);
    const bool negative = std::signbit(v);
    int exp2 = 0;
    const double frac = std::frexp(std::fabs(v), &exp2);
    // |v| = mantissa * 2^shift exactly, with a 53-bit mantissa.
    const auto mantissa = static_cast<std::uint64_t>(std::ldexp(frac, 53));
    const int shift = exp2 - 53;
    Uint128 pow10 = 1;
    for (unsigned i = 0; i < precision; ++i) pow10 *= 10;

    Uint128 scaled;  // round(|v| * 10^precision), ties to even
    if (shift >= 0) {
        scaled = (static_cast<Uint128>(mantissa) << shift) * pow10;
    } else {
        const Uint128 num = mantissa * pow10;
        const unsigned down = static_cast<unsigned>(-shift);
        if (down >= 128) {
            scaled = 0;  // far below half a unit of the last digit
        } else {
            scaled = num >> down;
            const Uint128 rem = num - (scaled << down);
            const Uint128 half = static_cast<Uint128>(1) << (down - 1);
            if (rem > half || (rem == half && (scaled & 1) != 0)) ++scaled;
        }
    }

    // Digits of scaled, at least precision + 1 of them so that "0." leads small values.
    char digits[64];
    std::size_t n = 0;
    do {
        digits[n++] = static_cast<char>('0' + static_cast<unsigned>(scaled % 10));
        scaled /= 10;
    } while (scaled != 0 || n < precision + 1);

    const std::size_t len = (negative ? 1 : 0) + n + (precision > 0 ? 1 : 0);
    if (width > len) out.append(width - len, ' ');
    if (negative) out.push_back('-');
    for (std::size_t i = n; i-- > 0;) {
        out.push_back(digits[i]);
        if (i == precision && precision > 0) out.push_back('.');
    }
}

}  // namespace basicutil
