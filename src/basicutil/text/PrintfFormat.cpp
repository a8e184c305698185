// Rendering: output and padding, integers, text, and the drivers over whole formats (parsing is
// in PrintfFormatParse.cpp, doubles in PrintFloatingPoint.cpp).
#include "basicutil/text/PrintfFormat.h"

#include <cerrno>
#include <climits>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat_details.h"

namespace basicutil {

using namespace printf_details;
using Atom = PrintfFormatAtom;

// --- Output and padding ------------------------------------------------------------------------

void PrintfOutput::appendRepeated(char c, std::size_t n) const {
    char run[64];
    std::memset(run, c, sizeof run);
    for (; n > sizeof run; n -= sizeof run) append(run, sizeof run);
    append(run, n);
}

namespace {

// Short copies and fills without a call into the C library: pieces are mostly a few bytes, and
// a call costs more than the copy. Overlapping fixed-size moves cover every length up to 16;
// the shortest lengths, nothing included, are tested first.
inline void copyBytes(char* dst, const char* src, std::size_t n) {
    if (n < 4) {
        if (n > 0) {
            dst[0] = src[0];
            dst[n / 2] = src[n / 2];
            dst[n - 1] = src[n - 1];
        }
    } else if (n < 8) {
        std::uint32_t head, tail;
        std::memcpy(&head, src, 4);
        std::memcpy(&tail, src + n - 4, 4);
        std::memcpy(dst, &head, 4);
        std::memcpy(dst + n - 4, &tail, 4);
    } else if (n <= 16) {
        std::uint64_t head, tail;
        std::memcpy(&head, src, 8);
        std::memcpy(&tail, src + n - 8, 8);
        std::memcpy(dst, &head, 8);
        std::memcpy(dst + n - 8, &tail, 8);
    } else {
        std::memcpy(dst, src, n);
    }
}

inline void fillBytes(char* dst, char c, std::size_t n) {
    if (n < 4) {
        if (n > 0) {
            dst[0] = c;
            dst[n / 2] = c;
            dst[n - 1] = c;
        }
    } else if (n < 8) {
        const std::uint32_t run = 0x01010101U * static_cast<unsigned char>(c);
        std::memcpy(dst, &run, 4);
        std::memcpy(dst + n - 4, &run, 4);
    } else if (n <= 16) {
        const std::uint64_t run = 0x0101010101010101U * static_cast<unsigned char>(c);
        std::memcpy(dst, &run, 8);
        std::memcpy(dst + n - 8, &run, 8);
    } else {
        std::memset(dst, c, n);
    }
}

// Writes the pieces, already padded as `emitPadded` decided, to dst.
void writePieces(char* dst, const Pieces& pieces, std::size_t leftBlanks, std::size_t zeros,
                 std::size_t rightBlanks) {
    fillBytes(dst, ' ', leftBlanks);
    dst += leftBlanks;
    for (std::size_t i = 0; i < pieces.n; ++i) {
        if (i == pieces.prefixPieces) {
            fillBytes(dst, '0', zeros);
            dst += zeros;
        }
        const Pieces::Piece& piece = pieces.piece[i];
        if (piece.text != nullptr)
            copyBytes(dst, piece.text, piece.count);
        else
            fillBytes(dst, piece.fill, piece.count);
        dst += piece.count;
    }
    if (pieces.prefixPieces == pieces.n) {
        fillBytes(dst, '0', zeros);
        dst += zeros;
    }
    fillBytes(dst, ' ', rightBlanks);
}

}  // namespace

void printf_details::emitPadded(const Atom& atom, const Pieces& pieces, const PrintfOutput& out,
                                bool zeroPadAllowed) {
    const std::size_t length = pieces.length();
    const std::size_t pad = atom.width != Atom::NONE && atom.width > length ? atom.width - length : 0;
    const bool zeros = pad > 0 && zeroPadAllowed && atom.padding == Atom::PAD_LEFT_ZEROS;
    const std::size_t zlen = zeros ? pad : 0;
    if (zeros) VESTRA_ASSERT(zlen > 0);
    const std::size_t leftBlanks = !zeros && atom.padding != Atom::PAD_RIGHT_SPACES ? pad : 0;
    const std::size_t rightBlanks = atom.padding == Atom::PAD_RIGHT_SPACES ? pad : 0;
    const std::size_t total = length + pad;
    // Straight into a Str; otherwise short results are assembled on the stack and appended once.
    if (char* dst = out.appendSpace(total)) return writePieces(dst, pieces, leftBlanks, zlen, rightBlanks);
    char line[128];
    if (total <= sizeof line) {
        writePieces(line, pieces, leftBlanks, zlen, rightBlanks);
        return out.append(line, total);
    }
    out.appendRepeated(' ', leftBlanks);
    for (std::size_t i = 0; i < pieces.n; ++i) {
        if (zeros && i == pieces.prefixPieces) out.appendRepeated('0', pad);
        const Pieces::Piece& piece = pieces.piece[i];
        if (piece.text != nullptr)
            out.append(piece.text, piece.count);
        else
            out.appendRepeated(piece.fill, piece.count);
    }
    if (zeros && pieces.prefixPieces == pieces.n) out.appendRepeated('0', pad);
    out.appendRepeated(' ', rightBlanks);
}

// --- Integers ----------------------------------------------------------------------------------

namespace {

// Writes v's `count` decimal digits to out with "," every three digits from the right, when
// there are at least 4; returns the length written.
inline std::size_t writeGroupedDecimal(char* out, std::uint64_t v, unsigned count) {
    if (count < 4) {
        writeDecimalDigits(out, v, count);
        return count;
    }
    const std::size_t length = count + (count - 1) / 3;
    char* p = out + length;
    for (unsigned left = count; left > 3; left -= 3) {  // three digits and a "," per division
        // 32-bit arithmetic once the value fits: cheaper than 64-bit division by a constant.
        unsigned group;
        if (v <= 0xFFFFFFFFU) {
            const auto w = static_cast<std::uint32_t>(v);
            group = w % 1000U;
            v = w / 1000U;
        } else {
            group = static_cast<unsigned>(v % 1000U);
            v /= 1000U;
        }
        p -= 4;
        p[0] = ',';
        p[1] = static_cast<char>('0' + group / 100);
        std::memcpy(p + 2, kDecimalPairs + 2 * (group % 100), 2);
    }
    writeDecimalDigits(out, v, static_cast<unsigned>(p - out));
    return length;
}

// Writes the hexadecimal digits of v, a byte at a time, to end where they end; returns where
// they start (nothing is written for 0).
char* writeHexBefore(char* end, std::uint64_t v, bool upper) {
    const char* const pairs = upper ? kHexPairsUpper.data() : kHexPairsLower.data();
    char* p = end;
    for (; v > 0xFF; v >>= 8) {
        p -= 2;
        std::memcpy(p, pairs + 2 * (v & 0xFF), 2);
    }
    if (v > 0xF) {
        p -= 2;
        std::memcpy(p, pairs + 2 * v, 2);
    } else if (v != 0) {
        *--p = pairs[2 * v + 1];
    }
    return p;
}

std::uint64_t truncated(std::uint64_t v, std::size_t size) {
    return size >= 8 ? v : v & ((std::uint64_t{1} << (8 * size)) - 1);
}

std::int64_t signExtended(std::int64_t v, std::size_t size) {
    switch (size) {
        case 1:
            return static_cast<std::int8_t>(v);
        case 2:
            return static_cast<std::int16_t>(v);
        case 4:
            return static_cast<std::int32_t>(v);
        default:
            return v;
    }
}

// "%s": no width or precision.
bool isPlainString(const Atom& atom) {
    return atom.conversion == Atom::CONV_STRING && atom.width == Atom::NONE && atom.precision == Atom::NONE;
}

// The integer shapes most formats use: "%d", "%'u", "%5d", "%08x", "%X". A sign only when
// negative, no prefix or precision, padding (if any) on the left.
bool isSimpleInteger(const Atom& atom) {
    return (atom.conversion == Atom::CONV_SIGNED_DECIMAL || atom.conversion == Atom::CONV_UNSIGNED_DECIMAL ||
            atom.conversion == Atom::CONV_UNSIGNED_HEX) &&
           atom.precision == Atom::NONE && atom.padding != Atom::PAD_RIGHT_SPACES &&
           (atom.flags & ~(Atom::FLAG_UPPER_CASE | Atom::FLAG_SEPARATORS)) == 0 &&
           atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_NONE;
}

// Renders a simple integer: built in the integer buffer from the right, padding included, and
// copied into the output once, without the general layout. False, with nothing written, when
// the width does not fit the buffer.
[[gnu::always_inline]] inline bool appendSimpleInteger(const Atom& atom, std::uint64_t magnitude,
                                                       bool negative, const PrintfOutput& out) {
    char buf[26];
    char* const end = buf + sizeof buf;
    char* p;
    if (atom.conversion == Atom::CONV_UNSIGNED_HEX) {
        p = writeHexBefore(end, magnitude, atom.has(Atom::FLAG_UPPER_CASE));
        if (p == end) *--p = '0';  // zero has its one digit here
    } else {
        const unsigned count = decimalDigitCount(magnitude);
        if (atom.has(Atom::FLAG_SEPARATORS)) {
            p = end - (count + (count - 1) / 3);
            writeGroupedDecimal(p, magnitude, count);
        } else {
            p = end - count;
            writeDecimalDigits(p, magnitude, count);
        }
    }
    if (atom.width == Atom::NONE) {
        if (negative) *--p = '-';
    } else {
        const std::size_t length = static_cast<std::size_t>(end - p) + (negative ? 1 : 0);
        const std::size_t pad = atom.width > length ? atom.width - length : 0;
        if (length + pad > sizeof buf) return false;
        const bool zeros = atom.padding == Atom::PAD_LEFT_ZEROS;  // after the sign; blanks before it
        p -= zeros ? pad : 0;
        fillBytes(p, '0', zeros ? pad : 0);
        if (negative) *--p = '-';
        p -= zeros ? 0 : pad;
        fillBytes(p, ' ', zeros ? 0 : pad);
    }
    const auto bytes = static_cast<std::size_t>(end - p);
    if (char* dst = out.appendSpace(bytes))
        copyBytes(dst, p, bytes);
    else
        out.append(p, bytes);
    return true;
}

}  // namespace

PrintfRenderedUnsignedInteger::PrintfRenderedUnsignedInteger(const Atom& atom, std::uint64_t value)
    : PrintfRenderedUnsignedInteger(atom, truncated(value, atom.size), nullptr) {}

PrintfRenderedUnsignedInteger::PrintfRenderedUnsignedInteger(const Atom& atom, std::uint64_t magnitude,
                                                             const char* sign)
    : _atom(atom), _sign(sign) {
    const bool hex = atom.conversion == Atom::CONV_UNSIGNED_HEX || atom.conversion == Atom::CONV_POINTER;
    const bool decimal = !hex && atom.conversion != Atom::CONV_UNSIGNED_OCTAL;
    const bool nonzero = magnitude != 0;
    std::uint64_t value = magnitude;
    // A local cursor: stores through char* may alias the member, which would keep it in memory
    // for every digit. Constant divisors and shifts: a division by a base only known at run
    // time costs a hardware divide per digit.
    char* p = &_buf[sizeof(_buf)];
    std::size_t count = 0;  // digits, without separators
    if (decimal) {
        if (nonzero) {
            const unsigned digits = decimalDigitCount(value);
            const bool grouped = atom.has(Atom::FLAG_SEPARATORS) && digits >= 4;
            const std::size_t new_digits = grouped ? digits + (digits - 1) / 3 : digits;
            VESTRA_ASSERT(new_digits <= sizeof(_buf));
            p -= new_digits;
            if (grouped)
                writeGroupedDecimal(p, value, digits);
            else
                writeDecimalDigits(p, value, digits);
            count = digits;
        }
    } else if (hex) {
        p = writeHexBefore(p, value,
                           atom.has(Atom::FLAG_UPPER_CASE) && atom.conversion != Atom::CONV_POINTER);
    } else {
        for (; value != 0; value >>= 3) *--p = static_cast<char>('0' + (value & 7));
    }
    _p = p;
    if (!decimal) count = static_cast<std::size_t>(&_buf[sizeof(_buf)] - _p);
    if (nonzero) VESTRA_ASSERT(_p < &_buf[sizeof(_buf)]);
    VESTRA_ASSERT(_p <= &_buf[sizeof(_buf)]);

    const bool alternate = atom.has(Atom::FLAG_ALTERNATE);
    if (alternate && hex && nonzero)
        _prefix = hexPrefix(atom.has(Atom::FLAG_UPPER_CASE) && atom.conversion != Atom::CONV_POINTER);
    if (!nonzero) {
        // "%.0d" of 0 is nothing; without a precision it is "0".
        _zeros = atom.precision == Atom::NONE ? 1 : atom.precision;
    } else if (atom.precision != Atom::NONE && atom.precision > count) {
        _zeros = atom.precision - count;
    }
    if (atom.conversion == Atom::CONV_UNSIGNED_OCTAL && alternate && _zeros == 0) _zeros = 1;
    // With no zeros to go between them (from the precision or zero padding), the sign and
    // prefix go in front of the digits here, and the text is copied out in one piece. The buffer
    // has room: a signed decimal has at most 19 digits and 6 separators, hexadecimal 16 digits.
    if (_zeros == 0 && (atom.width == Atom::NONE || atom.padding != Atom::PAD_LEFT_ZEROS)) {
        if (_prefix != nullptr) prepend(_prefix, 2);
        if (_sign != nullptr) prepend(_sign, 1);
        _prefix = _sign = nullptr;
    }
}

void PrintfRenderedUnsignedInteger::prepend(const char* text, std::size_t n) {
    VESTRA_ASSERT(_p >= _buf + n);
    _p -= n;
    std::memcpy(_p, text, n);
}

void PrintfRenderedUnsignedInteger::appendTo(const PrintfOutput& out) const {
    const std::size_t digits = static_cast<std::size_t>(&_buf[sizeof(_buf)] - _p);
    const std::size_t signLength = _sign != nullptr ? 1 : 0;
    const std::size_t prefixLength = _prefix != nullptr ? 2 : 0;
    const std::size_t length = signLength + prefixLength + _zeros + digits;
    const std::size_t pad = _atom.width != Atom::NONE && _atom.width > length ? _atom.width - length : 0;
    if (pad == 0 && length == digits) {  // the common case: the buffer as it is
        if (char* dst = out.appendSpace(digits))
            copyBytes(dst, _p, digits);
        else
            out.append(_p, digits);
        return;
    }
    char line[128];
    char* direct = out.appendSpace(length + pad);
    char* const dst = direct != nullptr ? direct : length + pad <= sizeof line ? line : nullptr;
    if (dst == nullptr) {  // a huge width for an output that is no Str
        Pieces pieces;
        pieces.text(_sign, signLength);
        pieces.text(_prefix, prefixLength);
        pieces.markPrefix();
        pieces.repeat('0', _zeros);
        pieces.text(_p, digits);
        return emitPadded(_atom, pieces, out, true);
    }
    // [blanks] sign "0x" [zeros] digits [blanks]: zero padding goes after the sign and prefix.
    char* p = dst;
    const std::size_t leftBlanks = _atom.padding == Atom::PAD_LEFT_SPACES ? pad : 0;
    fillBytes(p, ' ', leftBlanks);
    p += leftBlanks;
    copyBytes(p, _sign, signLength);
    p += signLength;
    copyBytes(p, _prefix, prefixLength);
    p += prefixLength;
    const std::size_t allZeros = _zeros + (_atom.padding == Atom::PAD_LEFT_ZEROS ? pad : 0);
    fillBytes(p, '0', allZeros);
    p += allZeros;
    copyBytes(p, _p, digits);
    p += digits;
    fillBytes(p, ' ', _atom.padding == Atom::PAD_RIGHT_SPACES ? pad : 0);
    if (direct == nullptr) out.append(line, length + pad);
}

namespace {
// The sign of a signed value for an atom, and its magnitude.
const char* signFor(const Atom& atom, std::int64_t value) {
    return value < 0                                               ? "-"
           : atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_PLUS  ? "+"
           : atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_SPACE ? " "
                                                                   : nullptr;
}
std::uint64_t magnitudeOf(std::int64_t value) {
    return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}
}  // namespace

PrintfRenderedSignedInteger::PrintfRenderedSignedInteger(const Atom& atom, std::int64_t value)
    : PrintfRenderedUnsignedInteger(atom, magnitudeOf(signExtended(value, atom.size)),
                                    signFor(atom, signExtended(value, atom.size))) {}

void printfPointerValue(const Atom& atom, const void* pointer, const PrintfOutput& out) {
    VESTRA_ASSERT(atom.conversion == PrintfFormatAtom::CONV_UNSIGNED_HEX ||
                  atom.conversion == PrintfFormatAtom::CONV_POINTER);
    if (pointer == nullptr && atom.conversion == Atom::CONV_POINTER) {
        Pieces pieces;
        pieces.text("(nil)", 5);
        emitPadded(atom, pieces, out, false);
        return;
    }
    const auto value = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
    PrintfRenderedUnsignedInteger(atom, value).appendTo(out);  // %p's size is 8: nothing cut
}

// --- Text ------------------------------------------------------------------------------------

void renderString(const Atom& atom, StrSegment s, const PrintfOutput& out) {
    Pieces pieces;
    pieces.text(s._data, atom.precision != Atom::NONE && atom.precision < s._len ? atom.precision : s._len);
    emitPadded(atom, pieces, out, false);
}

void renderChar(const Atom& atom, char c, const PrintfOutput& out) {
    Pieces pieces;
    pieces.text(&c, 1);
    emitPadded(atom, pieces, out, false);
}

// --- Driving a whole format ----------------------------------------------------------------------

namespace {

bool isIntegerArg(const PrintfArg& arg) {
    return arg.kind() == PrintfArg::ARG_SIGNED || arg.kind() == PrintfArg::ARG_UNSIGNED;
}

// A missing or mismatched argument prints the conversion's own bytes from the format ("%i"
// stays "%i"), not a conversion rebuilt from the atom.
void renderAsWritten(std::string_view written, const PrintfOutput& out) {
    out.append(written.data(), written.size());
}

void renderConversion(const Atom& atom, std::string_view written, std::span<const PrintfArg> args,
                      std::size_t& next, int savedErrno, const PrintfOutput& out);

// A conversion with a * width or precision: a copy of the atom takes them from the arguments.
void renderVariableConversion(const Atom& parsed, std::string_view written, std::span<const PrintfArg> args,
                              std::size_t& next, int savedErrno, const PrintfOutput& out) {
    Atom filled = parsed;
    if (parsed.has(Atom::FLAG_VARIABLE_WIDTH)) {
        if (next >= args.size() || !isIntegerArg(args[next])) {
            ++next;
            return renderAsWritten(written, out);
        }
        std::int64_t w = args[next++].asSigned();
        if (w < 0) {
            filled.padding = Atom::PAD_RIGHT_SPACES;  // a negative width means the - flag, as in C
            w = w == INT64_MIN ? INT64_MAX : -w;
        }
        filled.setVariableWidth(static_cast<std::size_t>(w < INT_MAX ? w : INT_MAX));
    }
    if (parsed.has(Atom::FLAG_VARIABLE_PRECISION)) {
        if (next >= args.size() || !isIntegerArg(args[next])) {
            ++next;
            return renderAsWritten(written, out);
        }
        const std::int64_t p = args[next++].asSigned();
        if (p >= 0)
            filled.setVariablePrecision(static_cast<std::size_t>(p < INT_MAX ? p : INT_MAX));  // else none
        if (filled.padsLikeInteger() && filled.padding == Atom::PAD_LEFT_ZEROS)
            filled.padding = Atom::PAD_LEFT_SPACES;
    }
    renderConversion(filled, written, args, next, savedErrno, out);
}

// Renders one conversion, taking its arguments from args[next...]; `written` is its text in the
// format.
inline void renderAtom(const Atom& atom, std::string_view written, std::span<const PrintfArg> args,
                       std::size_t& next, int savedErrno, const PrintfOutput& out) {
    if (atom.has(Atom::FLAG_VARIABLE_WIDTH | Atom::FLAG_VARIABLE_PRECISION))
        renderVariableConversion(atom, written, args, next, savedErrno, out);
    else
        renderConversion(atom, written, args, next, savedErrno, out);
}

// A conversion whose width and precision are known; `written` is its text in the format.
void renderConversion(const Atom& atom, std::string_view written, std::span<const PrintfArg> args,
                      std::size_t& next, int savedErrno, const PrintfOutput& out) {
    const auto asWritten = [&]() { renderAsWritten(written, out); };
    if (atom.conversion == Atom::CONV_ERRNO_STRING) {
        char text[256];
        renderString(atom, StrSegment(platform::errorText(savedErrno, text, sizeof text)), out);
        return;
    }
    if (next >= args.size()) return asWritten();
    const PrintfArg& arg = args[next++];
    switch (atom.conversion) {
        case Atom::CONV_SIGNED_DECIMAL:
            if (!isIntegerArg(arg)) return asWritten();
            return PrintfRenderedSignedInteger(atom, arg.asSigned()).appendTo(out);
        case Atom::CONV_UNSIGNED_DECIMAL:
        case Atom::CONV_UNSIGNED_OCTAL:
        case Atom::CONV_UNSIGNED_HEX:
            if (arg.kind() == PrintfArg::ARG_POINTER && atom.conversion == Atom::CONV_UNSIGNED_HEX)
                return printfPointerValue(atom, arg.asPointer(), out);
            if (!isIntegerArg(arg)) return asWritten();
            return PrintfRenderedUnsignedInteger(atom, arg.asUnsigned()).appendTo(out);
        case Atom::CONV_POINTER:
            if (arg.kind() == PrintfArg::ARG_POINTER) return printfPointerValue(atom, arg.asPointer(), out);
            if (!isIntegerArg(arg)) return asWritten();
            return printfPointerValue(
                atom, reinterpret_cast<const void*>(static_cast<std::uintptr_t>(arg.asUnsigned())), out);
        case Atom::CONV_FLOAT_EXPONENT:
        case Atom::CONV_FLOAT_FIXED:
        case Atom::CONV_FLOAT_CHOOSE:
        case Atom::CONV_FLOAT_HEX:
            if (arg.kind() == PrintfArg::ARG_DOUBLE) return renderDouble(atom, arg.asDouble(), out);
            if (arg.kind() == PrintfArg::ARG_SIGNED)
                return renderDouble(atom, static_cast<double>(arg.asSigned()), out);
            if (arg.kind() == PrintfArg::ARG_UNSIGNED)
                return renderDouble(atom, static_cast<double>(arg.asUnsigned()), out);
            return asWritten();
        case Atom::CONV_CHAR:
            if (!isIntegerArg(arg)) return asWritten();
            return renderChar(atom, static_cast<char>(arg.asUnsigned() & 0xFF), out);
        case Atom::CONV_STRING:
            if (arg.kind() != PrintfArg::ARG_STRING) return asWritten();
            return renderString(atom, StrSegment(arg.asString()), out);
        default:
            return asWritten();
    }
}

}  // namespace

Route printf_details::routeOf(const PrintfFormatAtom& atom) noexcept {
    if (atom.conversion == Atom::CONV_CONSTANT_STRING) return Route::TEXT;
    if (atom.has(Atom::FLAG_VARIABLE_WIDTH | Atom::FLAG_VARIABLE_PRECISION)) return Route::GENERAL;
    if (isSimpleInteger(atom))
        return atom.conversion == Atom::CONV_SIGNED_DECIMAL ? Route::SIMPLE_SIGNED : Route::SIMPLE_UNSIGNED;
    if (isPlainString(atom)) return Route::PLAIN_STRING;
    if (atom.isInteger()) return Route::INTEGER;
    return atom.isFloat() ? Route::FLOAT : Route::GENERAL;
}

namespace {

// Renders one atom along its route; an argument of an unexpected kind takes the general way,
// which decides what a mismatch prints. Inlined into both drivers: the call would cost as much
// as a plain "%d".
[[gnu::always_inline]] inline void renderRouted(const Atom& atom, Route route,
                                                const std::string_view& written,
                                                std::span<const PrintfArg> args, std::size_t& next,
                                                int savedErrno, const PrintfOutput& out) {
    const PrintfArg* const arg = next < args.size() ? &args[next] : nullptr;
    switch (route) {
        case Route::TEXT:
            VESTRA_ASSERT_TEXT(atom.length >= 1, "cdtssp->length >= 1");
            return out.append(atom.text, atom.length);
        case Route::SIMPLE_SIGNED: {
            if (arg == nullptr || !isIntegerArg(*arg)) break;
            ++next;
            const std::int64_t value = signExtended(arg->asSigned(), atom.size);
            const std::uint64_t magnitude =
                value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
            if (appendSimpleInteger(atom, magnitude, value < 0, out)) return;
            return PrintfRenderedSignedInteger(atom, value).appendTo(out);  // a width past the buffer
        }
        case Route::SIMPLE_UNSIGNED:
            if (arg == nullptr || !isIntegerArg(*arg)) break;
            ++next;
            if (appendSimpleInteger(atom, truncated(arg->asUnsigned(), atom.size), false, out)) return;
            return PrintfRenderedUnsignedInteger(atom, arg->asUnsigned()).appendTo(out);
        case Route::PLAIN_STRING:
            if (arg == nullptr || arg->kind() != PrintfArg::ARG_STRING) break;
            ++next;
            return out.append(arg->asString().data(), arg->asString().size());
        case Route::INTEGER:
            if (arg == nullptr || !isIntegerArg(*arg)) break;
            ++next;
            if (atom.conversion == Atom::CONV_SIGNED_DECIMAL)
                return PrintfRenderedSignedInteger(atom, arg->asSigned()).appendTo(out);
            return PrintfRenderedUnsignedInteger(atom, arg->asUnsigned()).appendTo(out);
        case Route::FLOAT:
            if (arg == nullptr || arg->kind() != PrintfArg::ARG_DOUBLE) break;
            ++next;
            return renderDouble(atom, arg->asDouble(), out);
        case Route::GENERAL:
            break;
    }
    renderAtom(atom, written, args, next, savedErrno, out);
}

}  // namespace

PrintfFormat::PrintfFormat(StrSegment format, unsigned options) {
    PrintfFormatAtom atom;
    for (const char* start = format._data; atom.getNext(format, options); start = format._data) {
        _atoms.push_back(atom);
        _routes.push_back(routeOf(atom));
        _written.emplace_back(start, static_cast<std::size_t>(format._data - start));
        _readsErrno = _readsErrno || atom.conversion == Atom::CONV_ERRNO_STRING;
    }
}

void PrintfFormat::appendTo(const PrintfOutput& out, std::span<const PrintfArg> args) const {
    const int savedErrno = _readsErrno ? errno : 0;
    std::size_t next = 0;
    for (std::size_t i = 0; i < _atoms.size(); ++i)
        renderRouted(_atoms[i], _routes[i], _written[i], args, next, savedErrno, out);
}

void appendPrintf(const PrintfOutput& out, StrSegment format, std::span<const PrintfArg> args,
                  unsigned options) {
    const int savedErrno = errno;
    std::size_t next = 0;
    PrintfFormatAtom atom;
    for (const char* start = format._data; atom.getNext(format, options); start = format._data) {
        const std::string_view written(start, static_cast<std::size_t>(format._data - start));
        renderRouted(atom, routeOf(atom), written, args, next, savedErrno, out);
    }
}

}  // namespace basicutil
