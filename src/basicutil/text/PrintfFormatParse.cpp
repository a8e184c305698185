// Format text to atoms and back: getNext's parsing rules, the * fields, append_stringified.
#include <climits>
#include <cstring>
#include <string_view>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/PrintfFormat_details.h"

namespace basicutil {

using namespace printf_details;
using Atom = PrintfFormatAtom;

// --- Parsing ---------------------------------------------------------------------------------

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A decimal number; false when it passes INT_MAX, which C's printf refuses too.
bool readNumber(const char*& p, const char* end, std::size_t& value) {
    value = 0;
    for (; p < end && isDigit(*p); ++p) {
        value = value * 10 + static_cast<std::size_t>(*p - '0');
        if (value > static_cast<std::size_t>(INT_MAX)) {
            while (p < end && isDigit(*p)) ++p;
            return false;
        }
    }
    return true;
}

// The atom becomes literal text [begin, end).
void makeConstant(Atom& atom, const char* begin, const char* end) {
    atom = Atom();
    atom.text = begin;
    atom.length = static_cast<std::size_t>(end - begin);
}

}  // namespace

StrSegment PrintfFormatAtom::constantText() const noexcept {
    VESTRA_ASSERT(conversion == CONV_CONSTANT_STRING);
    return {text, length};
}

namespace {
bool parseAtom(PrintfFormatAtom& atom, StrSegment* formatp, unsigned options);
}  // namespace

bool PrintfFormatAtom::getNext(StrSegment& format, unsigned options) {
    *this = PrintfFormatAtom();
    if (format.empty()) return false;
    return parseAtom(*this, &format, options);
}

namespace {

// Flags, in any order and repeated: blank, #, ', +, - and 0.
void readFlags(Atom& atom, const char*& p, const char* end) {
    for (; p < end; ++p) {
        switch (*p) {
            case ' ':
                if (atom.sign_nonnegative != Atom::SIGN_NONNEGATIVE_PLUS)
                    atom.sign_nonnegative = Atom::SIGN_NONNEGATIVE_SPACE;
                break;
            case '+':
                atom.sign_nonnegative = Atom::SIGN_NONNEGATIVE_PLUS;
                break;
            case '#':
                atom.flags |= Atom::FLAG_ALTERNATE;
                break;
            case '\'':
                atom.flags |= Atom::FLAG_SEPARATORS;
                break;
            case '-':
                atom.padding = Atom::PAD_RIGHT_SPACES;
                break;
            case '0':
                if (atom.padding != Atom::PAD_RIGHT_SPACES) atom.padding = Atom::PAD_LEFT_ZEROS;
                break;
            default:
                return;
        }
    }
}

// A width ("*" or a number from 1-9) and a precision ("." then "*", digits or nothing). False
// when a number passes INT_MAX: the conversion is then printed as written.
bool readWidthAndPrecision(Atom& atom, const char*& p, const char* end) {
    bool fits = true;
    if (p < end && *p == '*') {
        atom.flags |= Atom::FLAG_VARIABLE_WIDTH;
        ++p;
    } else if (p < end && *p >= '1' && *p <= '9') {
        fits = readNumber(p, end, atom.width);
    }
    if (p < end && *p == '.') {
        ++p;
        if (p < end && *p == '*') {
            atom.flags |= Atom::FLAG_VARIABLE_PRECISION;
            ++p;
        } else {
            fits = readNumber(p, end, atom.precision) && fits;
        }
    }
    return fits;
}

// The argument size that a size modifier gives (4 without one), moving past the modifier.
std::size_t readSizeModifier(const char*& p, const char* end, unsigned options) {
    const auto at = [&](std::size_t i, char c) {
        return end - p > static_cast<std::ptrdiff_t>(i) && p[i] == c;
    };
    switch (p < end ? *p : '\0') {
        case 'h':  // hh or h
            if (at(1, 'h')) return p += 2, 1;
            return p += 1, 2;
        case 'l':  // ll or l
            p += at(1, 'l') ? 2 : 1;
            return 8;
        case 'q':
        case 'j':
        case 't':
            return p += 1, 8;
        case 'z':  // unless it is the conversion itself
            if ((options & Atom::OPTION_Z_STRING) == 0) return p += 1, 8;
            return 4;
        case 'I':  // I32 or I64
            if (at(1, '3') && at(2, '2')) return p += 3, 4;
            if (at(1, '6') && at(2, '4')) return p += 3, 8;
            return 4;
        case 'w':  // only before S, c or s
            if (at(1, 'S') || at(1, 'c') || at(1, 's')) return p += 1, 8;
            return 4;
        default:
            return 4;
    }
}

enum class Letter { CONVERSION, PERCENT, UNKNOWN };

// The conversion letter, with the case, size and form it implies.
Letter readConversion(Atom& atom, char letter, unsigned options) {
    // X, E, F, G and A are their lower-case conversions, in upper case.
    if (letter == 'X' || letter == 'E' || letter == 'F' || letter == 'G' || letter == 'A') {
        atom.flags |= Atom::FLAG_UPPER_CASE;
        letter = static_cast<char>(letter - 'A' + 'a');
    }
    switch (letter) {
        case 'd':
        case 'i':
            atom.conversion = Atom::CONV_SIGNED_DECIMAL;
            return Letter::CONVERSION;
        case 'u':
            atom.conversion = Atom::CONV_UNSIGNED_DECIMAL;
            return Letter::CONVERSION;
        case 'x':
            atom.conversion = Atom::CONV_UNSIGNED_HEX;
            return Letter::CONVERSION;
        case 'o':
            atom.conversion = Atom::CONV_UNSIGNED_OCTAL;
            return Letter::CONVERSION;
        case 'e':
            atom.conversion = Atom::CONV_FLOAT_EXPONENT;
            return Letter::CONVERSION;
        case 'f':
            atom.conversion = Atom::CONV_FLOAT_FIXED;
            return Letter::CONVERSION;
        case 'g':
            atom.conversion = Atom::CONV_FLOAT_CHOOSE;
            return Letter::CONVERSION;
        case 'a':
            atom.conversion = Atom::CONV_FLOAT_HEX;
            return Letter::CONVERSION;
        case 'c':
            atom.conversion = Atom::CONV_CHAR;
            atom.size = 4;
            return Letter::CONVERSION;
        case 'z':
            if ((options & Atom::OPTION_Z_STRING) == 0) return Letter::UNKNOWN;
            [[fallthrough]];
        case 's':
        case 'S':
            atom.conversion = Atom::CONV_STRING;
            atom.size = 8;
            return Letter::CONVERSION;
        case 'm':
            if ((options & Atom::OPTION_ERRNO) == 0) return Letter::UNKNOWN;
            atom.conversion = Atom::CONV_ERRNO_STRING;
            return Letter::CONVERSION;
        case 'p':
            if (options & Atom::OPTION_POINTERS) {
                atom.conversion = Atom::CONV_POINTER;
                atom.size = 8;
                atom.flags |= Atom::FLAG_ALTERNATE;
            } else {
                atom.conversion = Atom::CONV_UNSIGNED_HEX;
                atom.flags |= Atom::FLAG_UPPER_CASE;
            }
            return Letter::CONVERSION;
        case '%':
            return Letter::PERCENT;
        default:
            return Letter::UNKNOWN;
    }
}

// Rules that hold between the fields once the letter is known.
void settleConversion(Atom& atom) {
    if (atom.isFloat()) atom.size = 8;
    if (atom.conversion == Atom::CONV_UNSIGNED_DECIMAL || atom.conversion == Atom::CONV_UNSIGNED_HEX ||
        atom.conversion == Atom::CONV_UNSIGNED_OCTAL)
        atom.sign_nonnegative = Atom::SIGN_NONNEGATIVE_NONE;
    if (atom.padsLikeInteger() && (atom.precision != Atom::NONE || atom.has(Atom::FLAG_VARIABLE_PRECISION)) &&
        atom.padding == Atom::PAD_LEFT_ZEROS)
        atom.padding = Atom::PAD_LEFT_SPACES;
}

// One atom from a format that is not empty.
bool parseAtom(PrintfFormatAtom& atom, StrSegment* formatp, unsigned options) {
    VESTRA_ASSERT(!formatp->empty());
    StrSegment& format = *formatp;
    const char* const begin = format.begin();
    const char* const end = format.end();
    const char* p = begin;
    // Ends the atom as the literal text [from, to) and resumes the format at `resume`.
    const auto literal = [&](const char* from, const char* to, const char* resume) {
        makeConstant(atom, from, to);
        format = StrSegment(resume, static_cast<size_type>(end - resume));
        return true;
    };
    if (*p != '%') {
        const void* const percent = std::memchr(p, '%', static_cast<std::size_t>(end - p));
        p = percent != nullptr ? static_cast<const char*>(percent) : end;
        return literal(begin, p, p);
    }
    ++p;
    readFlags(atom, p, end);
    const bool fits = readWidthAndPrecision(atom, p, end);
    atom.size = readSizeModifier(p, end, options);
    if (p >= end) return literal(begin, begin + 1, end);  // the format stops inside a conversion
    switch (readConversion(atom, *p++, options)) {
        case Letter::PERCENT:
            return literal(p - 1, p, p);
        case Letter::UNKNOWN:
            return literal(begin, p, p);  // printed as written
        case Letter::CONVERSION:
            break;
    }
    if (!fits) return literal(begin, p, p);
    settleConversion(atom);
    format = StrSegment(p, static_cast<size_type>(end - p));  // p never passes end
    return true;
}

}  // namespace

void PrintfFormatAtom::setVariableWidth(std::size_t w) {
    VESTRA_ASSERT_TEXT(width == NONE, "width == (size_t) -1");
    width = w;
}

void PrintfFormatAtom::setVariablePrecision(std::size_t p) {
    VESTRA_ASSERT_TEXT(precision == NONE, "precision == (size_t) -1");
    precision = p;
}

// --- Back to text ------------------------------------------------------------------------------

void append_stringified(Str& out, const PrintfFormatAtom& atom) {
    if (atom.conversion == Atom::CONV_CONSTANT_STRING) {
        for (std::size_t i = 0; i < atom.length; ++i) {
            if (atom.text[i] == '%') out.push_back('%');
            out.push_back(atom.text[i]);
        }
        return;
    }
    char digits[kMaxUint64Digits];
    out.push_back('%');
    if (atom.has(Atom::FLAG_ALTERNATE) && atom.conversion != Atom::CONV_POINTER) out.push_back('#');
    if (atom.has(Atom::FLAG_SEPARATORS) &&
        (atom.conversion == Atom::CONV_SIGNED_DECIMAL || atom.conversion == Atom::CONV_UNSIGNED_DECIMAL ||
         atom.conversion == Atom::CONV_FLOAT_FIXED || atom.conversion == Atom::CONV_FLOAT_CHOOSE))
        out.push_back('\'');
    if (atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_SPACE) out.push_back(' ');
    if (atom.sign_nonnegative == Atom::SIGN_NONNEGATIVE_PLUS) out.push_back('+');
    if (atom.padding == Atom::PAD_RIGHT_SPACES) out.push_back('-');
    if (atom.padding == Atom::PAD_LEFT_ZEROS) out.push_back('0');
    if (atom.has(Atom::FLAG_VARIABLE_WIDTH))
        out.push_back('*');
    else if (atom.width != Atom::NONE)
        out.append(digits, formatUnsigned(digits, atom.width));
    if (atom.has(Atom::FLAG_VARIABLE_PRECISION)) {
        out.append(".*", 2);
    } else if (atom.precision != Atom::NONE) {
        out.push_back('.');
        out.append(digits, formatUnsigned(digits, atom.precision));
    }
    if (atom.isInteger()) {
        static constexpr const char* kSizes[] = {"", "hh", "h", "", "", "", "", "", "l"};
        out.append(atom.size <= 8 ? kSizes[atom.size] : "ll");
    } else if (atom.isFloat()) {
        out.push_back('l');
    }
    out.push_back(conversionLetter(atom.conversion, atom.has(Atom::FLAG_UPPER_CASE)));
}

}  // namespace basicutil
