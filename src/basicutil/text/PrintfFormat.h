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

#include "basicutil/text/PrintfFormatArgs.h"
#include "basicutil/text/Str.h"

namespace basicutil {

namespace printf_details {
enum class Route : std::uint8_t;  // how an atom is rendered (PrintfFormat_details.h)
}  // namespace printf_details

// One piece of a format: constant text, or one conversion with its flags, width, precision and
// argument size.
struct PrintfFormatAtom {
    // Bits of `flags`.
    enum : std::uint8_t {
        FLAG_ALTERNATE = 1,           // #
        FLAG_VARIABLE_WIDTH = 2,      // *
        FLAG_VARIABLE_PRECISION = 4,  // .*
        FLAG_UPPER_CASE = 8,          // X A E F G, and p read as hexadecimal
        FLAG_SEPARATORS = 16,         // '
    };
    // Where padding goes: blanks on the left (the default), blanks on the right ("-"), zeros
    // on the left ("0").
    enum Padding : std::int32_t { PAD_LEFT_SPACES = 0, PAD_RIGHT_SPACES = 1, PAD_LEFT_ZEROS = 2 };
    // What a signed conversion puts before a nonnegative number: nothing, " " or "+".
    enum SignNonnegative : std::int32_t {
        SIGN_NONNEGATIVE_NONE = 0,
        SIGN_NONNEGATIVE_SPACE = 1,
        SIGN_NONNEGATIVE_PLUS = 2,
    };
    // The conversion letter's job (d i; u; x X; o; e E; f F; g G; a A; c; s; m; p), or constant
    // text.
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
    // A width or precision not given.
    static constexpr std::size_t NONE = static_cast<std::size_t>(-1);

    std::uint8_t flags = 0;                                    // FLAG_ bits
    Padding padding = PAD_LEFT_SPACES;                         // the - and 0 flags
    SignNonnegative sign_nonnegative = SIGN_NONNEGATIVE_NONE;  // the blank and + flags
    Conversion conversion = CONV_CONSTANT_STRING;              // the letter
    union {
        std::size_t size;  // a conversion's argument size in bytes: 1, 2, 4 or 8
        const char* text;  // a constant's text, inside the format
    };
    std::size_t length = 0;        // a constant's length
    std::size_t width = NONE;      // the minimum width
    std::size_t precision = NONE;  // digits, significant figures or bytes, by conversion

    PrintfFormatAtom() : text("") {}  // an empty constant

    // Parses the next atom at the front of `format` and advances past it. False only when the
    // format is empty (the atom is then an empty constant). The format must outlive the atom.
    [[nodiscard]] bool getNext(StrSegment& format, unsigned options = 0);
    // Fill a * width or precision from an argument; the field must still be NONE.
    void setVariableWidth(std::size_t w);
    void setVariablePrecision(std::size_t p);

    // A constant atom's text.
    StrSegment constantText() const noexcept;

    bool has(std::uint8_t flag) const noexcept { return (flags & flag) != 0; }  // a FLAG_ bit
    // d i u x X o.
    bool isInteger() const noexcept {
        return conversion >= CONV_SIGNED_DECIMAL && conversion <= CONV_UNSIGNED_OCTAL;
    }
    // e E f F g G a A.
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
    // Output to `target`, which must outlive this object.
    explicit PrintfOutput(Str& target) : _str(&target), _target(nullptr), _append(nullptr) {}
    template <typename Target>
    explicit PrintfOutput(Target& target)
        : _target(&target),
          _append([](void* t, const char* p, std::size_t n) { static_cast<Target*>(t)->append(p, n); }) {}
    // Appends n bytes at p, or n copies of c.
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

// A parsed format, rendered as often as needed. The format text must outlive it.
class PrintfFormat {
  public:
    // Parses `format` with the getNext options.
    explicit PrintfFormat(StrSegment format, unsigned options = 0);
    const std::vector<PrintfFormatAtom>& atoms() const noexcept { return _atoms; }  // as parsed
    // Renders the format with `args` (an argument list, or the arguments themselves).
    void appendTo(const PrintfOutput& out, std::span<const PrintfArg> args) const;
    template <typename... Args>
    void append(Str& out, const Args&... args) const {
        appendTo(PrintfOutput(out), argumentList(args...));
    }

    // The arguments as PrintfArgs, in an array on the caller's stack.
    template <typename... Args>
    static auto argumentList(const Args&... args) {
        return std::array<PrintfArg, sizeof...(Args)>{PrintfArg(args)...};
    }

  private:
    std::vector<PrintfFormatAtom> _atoms;
    std::vector<printf_details::Route> _routes;  // one per atom
    std::vector<std::string_view> _written;      // each atom's bytes in the format, printed on a mismatch
    bool _readsErrno = false;                    // errno is read only for formats with %m
};

// --- Front ends, one for each job -----------------------------------------------------------
//   appendf(out, "%5d", n)       appends to a Str or a std::string: the everyday call;
//   strprintf("%5d", n)          returns a new Str;
//   appendPrintf(out, format, args, options)
//                                the engine itself: any PrintfOutput, an argument list built
//                                apart (PrintfFormat::argumentList), and the getNext options
//                                (%m, %p as a pointer, %z);
//   PrintfFormat                 a format parsed once and rendered many times (log patterns).
// Each one-pass call parses and renders together, allocating nothing but the output's growth.
void appendPrintf(const PrintfOutput& out, StrSegment format, std::span<const PrintfArg> args,
                  unsigned options = 0);

// Appends the formatted arguments to a Str or a std::string.
template <typename... Args>
void appendf(Str& out, std::string_view format, const Args&... args) {
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...));
}
template <typename... Args>
void appendf(std::string& out, std::string_view format, const Args&... args) {
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...));
}
// The formatted arguments as a new Str.
template <typename... Args>
Str strprintf(std::string_view format, const Args&... args) {
    Str out;
    appendf(out, format, args...);
    return out;
}

}  // namespace basicutil
