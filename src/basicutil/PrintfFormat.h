// The library's own printf. A format is split into atoms (literal text, or one conversion each),
// and each conversion is rendered from a typed argument. Numbers never go through the C
// library: integers are written digit by digit into a 26-byte stack buffer, doubles from their
// shortest decimal digits (PrintFloatingPoint.h) followed by the library's own rounding. A
// parsed format renders each atom along a route fixed when it was parsed, so that "%d", "%s"
// and constant text skip the general renderer.
//
// Where it differs from C's printf, on purpose:
//   - the ' flag always groups with "," in threes (C follows the locale, and the C locale does
//     not group);
//   - doubles round their shortest decimal digits, and exact ties go towards +infinity:
//     "%.1f" of 0.25 is "0.3" and of -0.25 is "-0.2"; 2.675 is a tie here ("2.68");
//   - infinities print "Infinity" and "-Infinity", every NaN prints "NaN", padded with blanks;
//   - %p prints "(nil)" or 0x... when pointers are enabled, and is upper-case hexadecimal of the
//     argument's size otherwise;
//   - bad format text is printed as written: "%k" stays "%k", a trailing "%" stays "%".
//
// Typed front end (appendf, strprintf, PrintfFormat::append): each argument is a PrintfArg, so
// nothing reads a va_list. Integers serve every integer conversion and %c (truncated to the
// conversion's size as C would), and every floating conversion; doubles serve only the floating
// conversions; strings serve %s; pointers serve %p and %x. A conversion whose argument is
// missing or of another kind is printed exactly as written ("%i" stays "%i"), and the argument
// is used up. Extra arguments are ignored.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "basicutil/PrintfFormatArgs.h"
#include "basicutil/Str.h"

namespace basicutil {

struct PrintfFormatAtom {
    enum : std::uint8_t {
        FLAG_ALTERNATE = 1,           // #
        FLAG_VARIABLE_WIDTH = 2,      // *
        FLAG_VARIABLE_PRECISION = 4,  // .*
        FLAG_UPPER_CASE = 8,          // X A E F G, and p read as hexadecimal
        FLAG_SEPARATORS = 16,         // '
    };
    enum Padding : std::int32_t { PAD_LEFT_SPACES = 0, PAD_RIGHT_SPACES = 1, PAD_LEFT_ZEROS = 2 };
    enum SignNonnegative : std::int32_t {
        SIGN_NONNEGATIVE_NONE = 0,
        SIGN_NONNEGATIVE_SPACE = 1,
        SIGN_NONNEGATIVE_PLUS = 2,
    };
    enum Conversion : std::int32_t {
        CONV_CONSTANT_STRING = 0,
        CONV_SIGNED_DECIMAL = 1,
        CONV_UNSIGNED_DECIMAL = 2,
        CONV_UNSIGNED_HEX = 3,
        CONV_UNSIGNED_OCTAL = 4,
        CONV_FLOAT_EXPONENT = 5,
        CONV_FLOAT_FIXED = 6,
        CONV_FLOAT_CHOOSE = 7,
        CONV_FLOAT_HEX = 8,
        CONV_CHAR = 9,
        CONV_STRING = 10,
        CONV_ERRNO_STRING = 11,
        CONV_POINTER = 12,
    };
    // getNext options.
    enum : unsigned { OPTION_ERRNO = 1, OPTION_POINTERS = 2, OPTION_Z_STRING = 8 };
    static constexpr std::size_t NONE = static_cast<std::size_t>(-1);

    std::uint8_t flags = 0;
    Padding padding = PAD_LEFT_SPACES;
    SignNonnegative sign_nonnegative = SIGN_NONNEGATIVE_NONE;
    Conversion conversion = CONV_CONSTANT_STRING;
    union {
        std::size_t size;  // a conversion's argument size in bytes: 1, 2, 4 or 8
        const char* text;  // a constant's text, inside the format
    };
    std::size_t length = 0;  // a constant's length
    std::size_t width = NONE;
    std::size_t precision = NONE;

    PrintfFormatAtom() : text("") {}

    // Parses the next atom at the front of `format` and advances past it. False only when the
    // format is empty (the atom is then an empty constant). The format must outlive the atom.
    bool getNext(StrSegment& format, unsigned options = 0);
    // Fill a * width or precision from an argument; the field must still be NONE.
    void setVariableWidth(std::size_t w);
    void setVariablePrecision(std::size_t p);

    // A constant atom's text.
    StrSegment constantText() const noexcept;

    bool has(std::uint8_t flag) const noexcept { return (flags & flag) != 0; }
    bool isInteger() const noexcept {
        return conversion >= CONV_SIGNED_DECIMAL && conversion <= CONV_UNSIGNED_OCTAL;
    }
    bool isFloat() const noexcept {
        return conversion >= CONV_FLOAT_EXPONENT && conversion <= CONV_FLOAT_HEX;
    }
    // The integer conversions and %p with pointers enabled: a precision turns their 0 flag back
    // into blank padding.
    bool padsLikeInteger() const noexcept { return isInteger() || conversion == CONV_POINTER; }
};

// Appends the atom as C printf text ("%-08.3ld"); a constant's "%" is doubled.
void append_stringified(Str& out, const PrintfFormatAtom& atom);

// Where rendered text goes: a Str (appended to directly, the common case), a std::string, or
// anything with append(const char*, size).
class PrintfOutput {
  public:
    explicit PrintfOutput(Str& target) : _str(&target), _target(nullptr), _append(nullptr) {}
    template <typename Target>
    explicit PrintfOutput(Target& target)
        : _target(&target),
          _append([](void* t, const char* p, std::size_t n) { static_cast<Target*>(t)->append(p, n); }) {}
    void append(const char* p, std::size_t n) const {
        if (_str != nullptr)
            _str->append(p, n);
        else
            _append(_target, p, n);
    }
    void appendRepeated(char c, std::size_t n) const;
    // For a Str: grows it by n bytes and returns them, for the caller to write all n in place.
    // Other targets return nullptr and take append() instead.
    char* appendSpace(std::size_t n) const {
        return _str != nullptr ? _str->appendUninitialized(n) : nullptr;
    }

  private:
    Str* _str = nullptr;
    void* _target;
    void (*_append)(void*, const char*, std::size_t);
};

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

// A parsed format, rendered as often as needed. The format text must outlive it.
class PrintfFormat {
  public:
    explicit PrintfFormat(StrSegment format, unsigned options = 0);
    const std::vector<PrintfFormatAtom>& atoms() const noexcept { return _atoms; }
    void appendTo(const PrintfOutput& out, std::span<const PrintfArg> args) const;
    template <typename... Args>
    void append(Str& out, const Args&... args) const {
        appendTo(PrintfOutput(out), argumentList(args...));
    }

    template <typename... Args>
    static auto argumentList(const Args&... args) {
        return std::array<PrintfArg, sizeof...(Args)>{PrintfArg(args)...};
    }

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
    static Route routeOf(const PrintfFormatAtom& atom) noexcept;

  private:
    std::vector<PrintfFormatAtom> _atoms;
    std::vector<Route> _routes;              // one per atom
    std::vector<std::string_view> _written;  // each atom's bytes in the format, printed on a mismatch
    bool _readsErrno = false;                // errno is read only for formats with %m
};

// Parses and renders in one pass, allocating nothing but the output's growth.
void appendPrintf(const PrintfOutput& out, StrSegment format, std::span<const PrintfArg> args,
                  unsigned options = 0);

template <typename... Args>
void appendf(Str& out, std::string_view format, const Args&... args) {
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...));
}
template <typename... Args>
void appendf(std::string& out, std::string_view format, const Args&... args) {
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...));
}
template <typename... Args>
std::string formatPrintf(std::string_view format, const Args&... args) {
    std::string out;
    appendf(out, format, args...);
    return out;
}
template <typename... Args>
Str strprintf(std::string_view format, const Args&... args) {
    Str out;
    appendf(out, format, args...);
    return out;
}

}  // namespace basicutil
