#include "basicutil/text/PrintfFormat.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace basicutil {
namespace {

std::string cFormat(const char* format, long long value, const std::string& size, char conversion) {
    // The value as C's varargs would carry it for this size modifier.
    char buf[256];
    const bool isSigned = conversion == 'd' || conversion == 'i';
    if (size == "hh") {
        if (isSigned)
            std::snprintf(buf, sizeof buf, format, static_cast<int>(static_cast<signed char>(value)));
        else
            std::snprintf(buf, sizeof buf, format, static_cast<unsigned>(static_cast<unsigned char>(value)));
    } else if (size == "h") {
        if (isSigned)
            std::snprintf(buf, sizeof buf, format, static_cast<int>(static_cast<short>(value)));
        else
            std::snprintf(buf, sizeof buf, format, static_cast<unsigned>(static_cast<unsigned short>(value)));
    } else if (size.empty()) {
        if (isSigned)
            std::snprintf(buf, sizeof buf, format, static_cast<int>(value));
        else
            std::snprintf(buf, sizeof buf, format, static_cast<unsigned>(value));
    } else {
        std::snprintf(buf, sizeof buf, format, value);
    }
    return buf;
}

// Integers agree with glibc everywhere in this grid. The one intended difference, the ' flag
// (glibc groups by the locale, and the C locale does not group), is left out of the grid and
// tested on its own below.
TEST(PrintfFormatTest, IntegersAgreeWithSnprintfOverTheGrid) {
    const char* const flagSets[] = {"", "-", "0", "+", " ", "#", "-+", "0 ", "#0", "+0", "-#", " +"};
    const char* const widths[] = {"", "1", "5", "25"};
    const char* const precisions[] = {"", ".0", ".1", ".5", ".30"};
    const char* const sizes[] = {"hh", "h", "", "l", "ll"};
    const char conversions[] = {'d', 'i', 'u', 'x', 'X', 'o'};
    const long long values[] = {0,
                                1,
                                -1,
                                127,
                                -128,
                                255,
                                32767,
                                -32768,
                                65535,
                                INT_MAX,
                                INT_MIN,
                                UINT_MAX,
                                LLONG_MAX,
                                LLONG_MIN,
                                static_cast<long long>(ULLONG_MAX),
                                1234567890123LL};
    int cases = 0;
    for (const char* flags : flagSets)
        for (const char* width : widths)
            for (const char* precision : precisions)
                for (const char* size : sizes)
                    for (char conversion : conversions) {
                        const std::string format =
                            std::string("%") + flags + width + precision + size + conversion;
                        const PrintfFormat parsed{StrSegment(format)};
                        for (long long value : values) {
                            // Parsed once and rendered, and parsed while rendering: both as glibc.
                            Str preparsed, onePass;
                            if (conversion == 'd' || conversion == 'i') {
                                parsed.append(preparsed, static_cast<std::int64_t>(value));
                                appendf(onePass, format, static_cast<std::int64_t>(value));
                            } else {
                                parsed.append(preparsed, static_cast<std::uint64_t>(value));
                                appendf(onePass, format, static_cast<std::uint64_t>(value));
                            }
                            const std::string expected = cFormat(format.c_str(), value, size, conversion);
                            ASSERT_EQ(preparsed.view(), expected) << format << " " << value;
                            ASSERT_EQ(onePass.view(), expected) << format << " " << value;
                            ++cases;
                        }
                    }
    EXPECT_EQ(cases, 12 * 4 * 5 * 5 * 6 * 16);  // 115,200
}

TEST(PrintfFormatTest, IntegerRulesOfOurOwn) {
    EXPECT_EQ(strprintf("%'d|%'d|%'d|%'llu", 1234567, 999, -1000, 18446744073709551615ULL),
              std::string_view("1,234,567|999|-1,000|18,446,744,073,709,551,615"));
    EXPECT_EQ(strprintf("%'012d|%'.9d", 1234567, 1234567), std::string_view("0001,234,567|001,234,567"));
    EXPECT_EQ(strprintf("%#x|%#o|%.0d|%05.2d|", 0, 0, 0, 7), std::string_view("0|0||   07|"));
    EXPECT_EQ(strprintf("%.40d", 1).size(), 40u);  // past the digit buffer: rendered in full
    EXPECT_EQ(strprintf("%60d", -5).size(), 60u);
}

// The ' flag at every digit count, plain and padded: glibc's C locale does not group, so the
// reference is the digits with a "," put every three from the right, then the C padding rules.
TEST(PrintfFormatTest, GroupingAtEveryDigitCount) {
    const auto reference = [](bool negative, std::uint64_t magnitude, std::size_t width, char pad) {
        std::string digits = std::to_string(magnitude);
        for (auto i = static_cast<std::ptrdiff_t>(digits.size()) - 3; i > 0; i -= 3)
            digits.insert(static_cast<std::size_t>(i), ",");
        const std::string sign = negative ? "-" : "";
        const std::size_t fill =
            width > sign.size() + digits.size() ? width - sign.size() - digits.size() : 0;
        if (pad == '0') return sign + std::string(fill, '0') + digits;
        if (pad == '-') return sign + digits + std::string(fill, ' ');
        return std::string(fill, ' ') + sign + digits;
    };
    std::uint64_t magnitude = 0;
    for (int digits = 1; digits <= 20; ++digits) {
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(digits % 10);
        EXPECT_EQ(strprintf("%'llu", magnitude), reference(false, magnitude, 0, ' '));
        EXPECT_EQ(strprintf("%'30llu", magnitude), reference(false, magnitude, 30, ' '));
        if (magnitude > static_cast<std::uint64_t>(INT64_MAX)) continue;
        const auto negative = -static_cast<std::int64_t>(magnitude);
        EXPECT_EQ(strprintf("%'lld", negative), reference(true, magnitude, 0, ' '));
        EXPECT_EQ(strprintf("%'-30lld", negative), reference(true, magnitude, 30, '-'));
        EXPECT_EQ(strprintf("%'030lld", negative), reference(true, magnitude, 30, '0'));
    }
    // The longest texts fill the 26-byte digit buffer exactly.
    EXPECT_EQ(strprintf("%'lld", INT64_MIN), std::string_view("-9,223,372,036,854,775,808"));
    EXPECT_EQ(strprintf("%'llu", UINT64_MAX), std::string_view("18,446,744,073,709,551,615"));
}

TEST(PrintfFormatTest, PointersAndText) {
    const PrintfFormat pointers(StrSegment("%p|%10p|%-8p|"), PrintfFormatAtom::OPTION_POINTERS);
    Str out;
    pointers.append(out, static_cast<const void*>(nullptr), reinterpret_cast<const void*>(255),
                    static_cast<const void*>(nullptr));
    EXPECT_EQ(out, std::string_view("(nil)|      0xff|(nil)   |"));
    // %p is an integer conversion for padding: a precision turns the 0 flag back into blanks;
    // "(nil)" ignores the precision.
    struct PointerCase {
        const char* format;
        const void* pointer;
        const char* printed;
    } pointerCases[] = {{"%020.4p", reinterpret_cast<const void*>(255), "              0x00ff"},
                        {"%020p", reinterpret_cast<const void*>(255), "0x0000000000000000ff"},
                        {"%.4p", nullptr, "(nil)"},
                        {"%08.2p", nullptr, "   (nil)"},
                        {"%0*.*p", reinterpret_cast<const void*>(255), "    0x00ff"}};
    for (const PointerCase& c : pointerCases) {
        Str once, parsed;
        const bool variable = std::string_view(c.format).find('*') != std::string_view::npos;
        const auto args =
            variable ? std::vector<PrintfArg>{10, 4, c.pointer} : std::vector<PrintfArg>{c.pointer};
        appendPrintf(PrintfOutput(once), StrSegment(c.format), args, PrintfFormatAtom::OPTION_POINTERS);
        PrintfFormat(StrSegment(c.format), PrintfFormatAtom::OPTION_POINTERS)
            .appendTo(PrintfOutput(parsed), args);
        EXPECT_EQ(once, std::string_view(c.printed)) << c.format;
        EXPECT_EQ(parsed, std::string_view(c.printed)) << c.format;
    }
    // Without the option %p is upper-case hexadecimal of the argument's size.
    EXPECT_EQ(strprintf("%p", reinterpret_cast<const void*>(0x1234abcdef)), std::string_view("34ABCDEF"));
    EXPECT_EQ(strprintf("%s|%.2s|%5s|%-5s|%05s|%c|%3c|%.0c", "abc", "abc", "ab", "ab", "ab", 'x', 'y', 'z'),
              std::string_view("abc|ab|   ab|ab   |   ab|x|  y|z"));
    errno = EACCES;
    Str err;
    appendPrintf(PrintfOutput(err), StrSegment("%m"), {}, PrintfFormatAtom::OPTION_ERRNO);
    EXPECT_EQ(err, std::string_view("Permission denied"));
}

TEST(PrintfFormatTest, BadFormatTextIsPrintedAsWritten) {
    struct Case {
        const char *format, *printed;
    } cases[] = {{"%k", "%k"}, {"100%", "100%"},   {"%5", "%"},  {"%-0", "%"},
                 {"%%", "%"},  {"a%%b%%", "a%b%"}, {"%ll", "%"}, {"%I", "%I"},
                 {"%m", "%m"}, {"%z", "%"},        {"%L", "%L"}, {"%99999999999d", "%99999999999d"}};
    for (const Case& c : cases) EXPECT_EQ(strprintf(c.format), std::string_view(c.printed)) << c.format;
}

TEST(PrintfFormatTest, ArgumentsOfTheWrongKindOrMissing) {
    EXPECT_EQ(strprintf("%f|%.1e|%c", 2, 3u, 65), std::string_view("2.000000|3.0e+00|A"));  // integers widen
    EXPECT_EQ(strprintf("%*d|%-*d|%.*f|%*d", 5, 42, 4, 7, 2, 3.14159, "x", 1),
              std::string_view("   42|7   |3.14|%*d"));
    EXPECT_EQ(strprintf("%*d|%.*d", -4, 1, -1, 7), std::string_view("1   |7"));  // C's negative * rules
    EXPECT_EQ(strprintf("%d", 1, 2, 3), std::string_view("1"));
}

// A conversion without a usable argument prints its own bytes, not a rebuilt conversion:
// "%i" is not "%d", "%lld" is not "%ld", and flags keep their order and repeats.
TEST(PrintfFormatTest, UnusableArgumentsPrintTheConversionByteForByte) {
    struct Case {
        const char* format;
        unsigned options;
    } cases[] = {{"%i", 0},      {"%'x", 0},     {"%-08.3ld", 0},
                 {"%+ 5.2f", 0}, {"%0-5hhu", 0}, {"%#o", 0},
                 {"%lld", 0},    {"%zu", 0},     {"%jd", 0},
                 {"%I64X", 0},   {"%ws", 0},     {"%c", 0},
                 {"%p", 0},      {"%.e", 0},     {"%p", PrintfFormatAtom::OPTION_POINTERS},
                 {"%*d", 0},     {"%-*.*s", 0},  {"%  ++d", 0},
                 {"%S", 0},      {"%wS", 0},     {"%-5.2S", 0},
                 {"%*wS", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        const std::string written = c.format;
        const std::array<PrintfArg, 1> wrongKind{PrintfArg(std::string_view("text"))};
        for (std::span<const PrintfArg> args :
             {std::span<const PrintfArg>(), std::span<const PrintfArg>(wrongKind)}) {
            if ((written.back() == 's' || written.back() == 'S') && !args.empty())
                continue;  // a string is the right kind for %s and %S
            Str once, parsed;
            appendPrintf(PrintfOutput(once), StrSegment(c.format), args, c.options);
            PrintfFormat(StrSegment(c.format), c.options).appendTo(PrintfOutput(parsed), args);
            EXPECT_EQ(once, std::string_view(written)) << args.size();
            EXPECT_EQ(parsed, std::string_view(written)) << args.size();
        }
    }
}

TEST(PrintfFormatTest, ParserFieldsAndStringifiedRoundTrip) {
    struct Case {
        const char* spec;
        PrintfFormatAtom::Conversion conversion;
        std::size_t size, width, precision;
        const char* stringified;
    } cases[] = {
        {"%-+#'12.5lld", PrintfFormatAtom::CONV_SIGNED_DECIMAL, 8, 12, 5, "%#'+-12.5ld"},
        {"% 08x", PrintfFormatAtom::CONV_UNSIGNED_HEX, 4, 8, PrintfFormatAtom::NONE, "%08x"},
        {"%0-5hhu", PrintfFormatAtom::CONV_UNSIGNED_DECIMAL, 1, 5, PrintfFormatAtom::NONE, "%-5hhu"},
        {"%08.3hd", PrintfFormatAtom::CONV_SIGNED_DECIMAL, 2, 8, 3, "%8.3hd"},
        {"%.e", PrintfFormatAtom::CONV_FLOAT_EXPONENT, 8, PrintfFormatAtom::NONE, 0, "%.0le"},
        {"%I64X", PrintfFormatAtom::CONV_UNSIGNED_HEX, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE,
         "%lX"},
        {"%I32d", PrintfFormatAtom::CONV_SIGNED_DECIMAL, 4, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE,
         "%d"},
        {"%jd", PrintfFormatAtom::CONV_SIGNED_DECIMAL, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE,
         "%ld"},
        {"%+ G", PrintfFormatAtom::CONV_FLOAT_CHOOSE, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE,
         "%+lG"},
        {"%ws", PrintfFormatAtom::CONV_STRING, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE, "%s"},
        {"%-*.*s", PrintfFormatAtom::CONV_STRING, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE,
         "%-*.*s"},
        {"%#A", PrintfFormatAtom::CONV_FLOAT_HEX, 8, PrintfFormatAtom::NONE, PrintfFormatAtom::NONE, "%#lA"}};
    for (const Case& c : cases) {
        StrSegment format(c.spec);
        PrintfFormatAtom atom;
        ASSERT_TRUE(atom.getNext(format, 0)) << c.spec;
        EXPECT_TRUE(format.empty()) << c.spec;
        EXPECT_EQ(atom.conversion, c.conversion) << c.spec;
        EXPECT_EQ(atom.size, c.size) << c.spec;
        EXPECT_EQ(atom.width, c.width) << c.spec;
        EXPECT_EQ(atom.precision, c.precision) << c.spec;
        Str text;
        append_stringified(text, atom);
        EXPECT_EQ(text, std::string_view(c.stringified)) << c.spec;
        // Parsing the stringified form gives the same atom back.
        StrSegment again(text);
        PrintfFormatAtom reparsed;
        ASSERT_TRUE(reparsed.getNext(again, 0));
        EXPECT_EQ(std::tie(reparsed.flags, reparsed.padding, reparsed.sign_nonnegative, reparsed.conversion,
                           reparsed.size, reparsed.width, reparsed.precision),
                  std::tie(atom.flags, atom.padding, atom.sign_nonnegative, atom.conversion, atom.size,
                           atom.width, atom.precision))
            << c.spec;
    }
    // A constant keeps its text; stringified, its "%" is doubled.
    StrSegment unknown("%k rest");
    PrintfFormatAtom constant;
    ASSERT_TRUE(constant.getNext(unknown, 0));
    EXPECT_EQ(constant.constantText().view(), "%k");
    Str text;
    append_stringified(text, constant);
    EXPECT_EQ(text, std::string_view("%%k"));
    StrSegment empty("");
    EXPECT_FALSE(constant.getNext(empty, 0));
}

TEST(PrintfFormatDeathTest, VariableFieldsAreSetOnce) {
    PrintfFormatAtom atom;
    atom.setVariableWidth(3);
    EXPECT_DEATH(atom.setVariableWidth(4), "width == \\(size_t\\) -1");
    EXPECT_DEATH(
        {
            atom.setVariablePrecision(1);
            atom.setVariablePrecision(2);
        },
        "precision == \\(size_t\\) -1");
}

}  // namespace
}  // namespace basicutil
