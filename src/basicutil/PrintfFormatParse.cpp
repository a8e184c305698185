// Format text to atoms and back: getNext's parsing rules, the * fields, append_stringified.
#include <climits>
#include <cstring>
#include <string_view>

#include "basicutil/Assert.h"
#include "basicutil/DecimalText.h"
#include "basicutil/PrintfFormat.h"
#include "basicutil/PrintfFormat_details.h"

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

// One atom from a format that is not empty.
bool parseAtom(PrintfFormatAtom& atom, StrSegment* formatp, unsigned options) {
    VESTRA_ASSERT(!formatp->empty());
    StrSegment& format = *formatp;
    // The fields are the atom's own; keep the member-like names of the parsing rules.
    std::uint8_t& flags = atom.flags;
    Atom::Padding& padding = atom.padding;
    Atom::SignNonnegative& sign_nonnegative = atom.sign_nonnegative;
    Atom::Conversion& conversion = atom.conversion;
    std::size_t& width = atom.width;
    std::size_t& precision = atom.precision;
    std::size_t& size = atom.size;
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
    for (bool more = true; more && p < end;) {
        switch (*p) {
            case ' ':
                if (sign_nonnegative != Atom::SIGN_NONNEGATIVE_PLUS)
                    sign_nonnegative = Atom::SIGN_NONNEGATIVE_SPACE;
                break;
            case '+':
                sign_nonnegative = Atom::SIGN_NONNEGATIVE_PLUS;
                break;
            case '#':
                flags |= Atom::FLAG_ALTERNATE;
                break;
            case '\'':
                flags |= Atom::FLAG_SEPARATORS;
                break;
            case '-':
                padding = Atom::PAD_RIGHT_SPACES;
                break;
            case '0':
                if (padding != Atom::PAD_RIGHT_SPACES) padding = Atom::PAD_LEFT_ZEROS;
                break;
            default:
                more = false;
                continue;
        }
        ++p;
    }
    bool tooLarge = false;
    if (p < end && *p == '*') {
        flags |= Atom::FLAG_VARIABLE_WIDTH;
        ++p;
    } else if (p < end && *p >= '1' && *p <= '9') {
        tooLarge = !readNumber(p, end, width);
    }
    if (p < end && *p == '.') {
        ++p;
        if (p < end && *p == '*') {
            flags |= Atom::FLAG_VARIABLE_PRECISION;
            ++p;
        } else {
            tooLarge = !readNumber(p, end, precision) || tooLarge;
        }
    }
    size = 4;
    const auto at = [&](std::size_t i, char c) {
        return end - p > static_cast<std::ptrdiff_t>(i) && p[i] == c;
    };
    switch (p < end ? *p : '\0') {
        case 'h':  // hh or h
            size = at(1, 'h') ? 1 : 2;
            p += at(1, 'h') ? 2 : 1;
            break;
        case 'l':  // ll or l
            size = 8;
            p += at(1, 'l') ? 2 : 1;
            break;
        case 'q':
        case 'j':
        case 't':
            size = 8, p += 1;
            break;
        case 'z':  // unless it is the conversion itself
            if ((options & Atom::OPTION_Z_STRING) == 0) size = 8, p += 1;
            break;
        case 'I':  // I32 or I64
            if (at(1, '3') && at(2, '2'))
                size = 4, p += 3;
            else if (at(1, '6') && at(2, '4'))
                size = 8, p += 3;
            break;
        case 'w':  // only before S, c or s
            if (at(1, 'S') || at(1, 'c') || at(1, 's')) size = 8, p += 1;
            break;
        default:
            break;
    }
    if (p >= end) return literal(begin, begin + 1, end);  // the format stops inside a conversion

    const char letter = *p++;
    const std::string_view asWritten(begin, static_cast<std::size_t>(p - begin));
    switch (letter) {
        case 'd':
        case 'i':
            conversion = Atom::CONV_SIGNED_DECIMAL;
            break;
        case 'u':
            conversion = Atom::CONV_UNSIGNED_DECIMAL;
            break;
        case 'X':
            flags |= Atom::FLAG_UPPER_CASE;
            [[fallthrough]];
        case 'x':
            conversion = Atom::CONV_UNSIGNED_HEX;
            break;
        case 'o':
            conversion = Atom::CONV_UNSIGNED_OCTAL;
            break;
        case 'E':
            flags |= Atom::FLAG_UPPER_CASE;
            [[fallthrough]];
        case 'e':
            conversion = Atom::CONV_FLOAT_EXPONENT;
            break;
        case 'F':
            flags |= Atom::FLAG_UPPER_CASE;
            [[fallthrough]];
        case 'f':
            conversion = Atom::CONV_FLOAT_FIXED;
            break;
        case 'G':
            flags |= Atom::FLAG_UPPER_CASE;
            [[fallthrough]];
        case 'g':
            conversion = Atom::CONV_FLOAT_CHOOSE;
            break;
        case 'A':
            flags |= Atom::FLAG_UPPER_CASE;
            [[fallthrough]];
        case 'a':
            conversion = Atom::CONV_FLOAT_HEX;
            break;
        case 'c':
            conversion = Atom::CONV_CHAR;
            size = 4;
            break;
        case 's':
        case 'S':
            conversion = Atom::CONV_STRING;
            size = 8;
            break;
        case 'z':
            if ((options & Atom::OPTION_Z_STRING) == 0) return literal(begin, p, p);
            conversion = Atom::CONV_STRING;
            size = 8;
            break;
        case 'm':
            if ((options & Atom::OPTION_ERRNO) == 0) return literal(begin, p, p);
            conversion = Atom::CONV_ERRNO_STRING;
            break;
        case 'p':
            if (options & Atom::OPTION_POINTERS) {
                conversion = Atom::CONV_POINTER;
                size = 8;
                flags |= Atom::FLAG_ALTERNATE;
            } else {
                conversion = Atom::CONV_UNSIGNED_HEX;
                flags |= Atom::FLAG_UPPER_CASE;
            }
            break;
        case '%':
            return literal(p - 1, p, p);
        default:
            return literal(begin, p, p);  // printed as written
    }
    if (tooLarge) return literal(asWritten.data(), asWritten.data() + asWritten.size(), p);
    if (atom.isFloat()) size = 8;
    if (conversion == Atom::CONV_UNSIGNED_DECIMAL || conversion == Atom::CONV_UNSIGNED_HEX ||
        conversion == Atom::CONV_UNSIGNED_OCTAL)
        sign_nonnegative = Atom::SIGN_NONNEGATIVE_NONE;
    if (atom.padsLikeInteger() && (precision != Atom::NONE || atom.has(Atom::FLAG_VARIABLE_PRECISION)) &&
        padding == Atom::PAD_LEFT_ZEROS)
        padding = Atom::PAD_LEFT_SPACES;
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
