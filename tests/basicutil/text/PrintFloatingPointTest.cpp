#include "basicutil/text/PrintFloatingPoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "basicutil/text/PrintfFormat.h"

namespace basicutil {
namespace {

TEST(PrintFloatingPointTest, TiesGoTowardsPositiveInfinity) {
    struct Case {
        const char* format;
        double value;
        const char* expected;
    } cases[] = {
        {"%.1f", 0.25, "0.3"},
        {"%.1f", -0.25, "-0.2"},
        {"%.2f", 2.675, "2.68"},  // glibc: 2.67 (binary below)
        {"%.2f", 0.125, "0.13"},
        {"%.2f", -0.125, "-0.12"},
        {"%.0f", 0.5, "1"},  // glibc: 0.12, -0.12, 0
        {"%.0f", -0.5, "-0"},
        {"%.0f", 2.5, "3"},
        {"%.0f", -2.5, "-2"},  // the sign stays on zero
        {"%.1f", -0.251, "-0.3"},
        {"%.2e", 1.125, "1.13e+00"},
        {"%.2e", -1.125, "-1.12e+00"},
        {"%.3g", 2.345, "2.35"},
        {"%.3g", -2.345, "-2.34"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(strprintf(c.format, c.value), std::string_view(c.expected)) << c.format << " " << c.value;
}

TEST(PrintFloatingPointTest, CarriesFormsAndSpecialValues) {
    struct Case {
        const char* format;
        double value;
        const char* expected;
    } cases[] = {
        {"%.2f", 9.995, "10.00"},
        {"%.3f", 0.9999, "1.000"},
        {"%.1f", 99.95, "100.0"},
        {"%.1e", 9.96, "1.0e+01"},
        {"%g", 999999.5, "1e+06"},
        {"%g", 0.00009999995, "0.0001"},
        {"%g", 100000.0, "100000"},
        {"%g", 1000000.0, "1e+06"},
        {"%g", 0.0001, "0.0001"},
        {"%g", 0.00001, "1e-05"},
        {"%g", 0.1996, "0.1996"},
        {"%.3g", 0.1996, "0.2"},
        {"%#.3g", 0.1996, "0.200"},
        {"%#g", 1.0, "1.00000"},
        {"%g", 0.0, "0"},
        {"%.0f", 2.4, "2"},
        {"%#.0f", 2.4, "2."},
        {"%.0e", 2.4, "2e+00"},
        {"%#.0e", 2.4, "2.e+00"},
        {"%.0g", 2.4, "2"},
        {"%#.0g", 2.4, "2."},
        {"%g", 5e-324, "5e-324"} /* glibc: 4.94066e-324 */,
        {"%e", 1e308, "1.000000e+308"},
        {"%.3e", 0.0, "0.000e+00"},
        {"%f", -0.0, "-0.000000"},
        {"%.1f", -0.04, "-0.0"},
        {"%.2f", 0.004, "0.00"},
        {"%+.1f", 1.0, "+1.0"},
        {"% .1f", 1.0, " 1.0"},
        {"%08.2f", -3.5, "-0003.50"},
        {"%-8.1e|", 1.5, "1.5e+00 |"},
        {"%f", INFINITY, "Infinity"},
        {"%010f", -INFINITY, " -Infinity"},
        {"%-5g|", NAN, "NaN  |"},
        {"%+f", -NAN, "NaN"},
        {"%E", 1.5, "1.500000E+00"},
        {"%G", 1e-10, "1E-10"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(strprintf(c.format, c.value), std::string_view(c.expected)) << c.format << " " << c.value;
    EXPECT_EQ(strprintf("%f", 1e300).size(), 301u + 7u);  // every digit of the integer part
}

// Where the rules coincide (the digits are cut, and not at an exact tie of the shortest
// digits), the result is glibc's.
TEST(PrintFloatingPointTest, AgreesWithSnprintfAwayFromTies) {
    const char* const formats[] = {"%f",    "%.0f", "%.3f",  "%10.4f", "%-12.2f", "%+.1f",
                                   "% .2f", "%e",   "%.0e",  "%.2e",   "%+12.4E", "%g",
                                   "%.3g",  "%#g",  "%.10g", "%G",     "%#.0f",   "%010.3e"};
    std::mt19937_64 rng(99);
    std::uniform_real_distribution<double> exponent(-20, 20);
    int compared = 0;
    for (int i = 0; i < 4000; ++i) {
        const double value = (rng() & 1 ? -1 : 1) * std::pow(10.0, exponent(rng));
        const DoubleWithSignificantFigures digits(value);
        for (const char* format : formats) {
            // Significant digits the format keeps, as the engine counts them.
            const PrintfFormat parsed{StrSegment(format)};
            const PrintfFormatAtom& atom = parsed.atoms()[0];
            const long precision =
                atom.precision == PrintfFormatAtom::NONE ? 6 : static_cast<long>(atom.precision);
            long keep = atom.conversion == PrintfFormatAtom::CONV_FLOAT_FIXED ? digits.point + precision
                        : atom.conversion == PrintfFormatAtom::CONV_FLOAT_EXPONENT
                            ? precision + 1
                            : (precision == 0 ? 1 : precision);
            if (keep < 1 || keep >= digits.ndigits) continue;  // nothing cut: glibc shows the binary digits
            if (digits.digits[keep] == '5' && keep + 1 == digits.ndigits) continue;  // an exact tie
            char expected[512];
            std::snprintf(expected, sizeof expected, format, value);
            Str got;
            parsed.append(got, value);
            ASSERT_EQ(got, std::string_view(expected)) << format << " " << value;
            ++compared;
        }
    }
    EXPECT_GT(compared, 30000);
}

// The exact paths must give what the shortest digits give after rounding, or decline. Ties of
// the shortest digits (2.675, k + 0.5 at every scale) and powers of ten sit next to values the
// exact paths can decide, which is where a wrong margin or exponent would show.
TEST(PrintFloatingPointTest, ExactPathsAgreeWithShortestDigits) {
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> exponent(-22, 17);
    std::vector<double> values = {2.675,
                                  0.125,
                                  1.005,
                                  0.5,
                                  2.5,
                                  1e-5,
                                  0.1,
                                  1.0 / 3,
                                  4503599627370495.5,
                                  9007199254740991.0,
                                  123456789.125,
                                  5e-324,
                                  2.2250738585072014e-308};
    for (int i = 0; i < 8000; ++i) {
        const int decimals = static_cast<int>(rng() % 12);
        const double tie = (static_cast<double>(rng() % 100000) + 0.5) / std::pow(10.0, decimals);
        const double power = std::pow(10.0, static_cast<int>(rng() % 40) - 22);
        for (const double near : {tie, power})
            values.insert(values.end(), {near, std::nextafter(near, 0.0), std::nextafter(near, 1e300)});
        values.push_back(std::pow(10.0, exponent(rng)));
    }
    int decided = 0, total = 0;
    // Compares the digits both ways give; trailing zeros do not change what is printed.
    const auto check = [&](double value, std::size_t limit, bool significant) {
        DoubleWithSignificantFigures general(value);
        (significant ? general.sigfigs : general.precision) = static_cast<std::uint16_t>(limit);
        roundForSigfigsAndPrecision(general);
        while (general.ndigits > 1 && general.digits[general.ndigits - 1] == '0')
            general.digits[--general.ndigits] = '\0';
        DoubleWithSignificantFigures exact;
        ++total;
        if (!(significant ? roundSignificantExactly(value, limit, exact)
                          : roundFixedExactly(value, limit, exact)))
            return;
        ++decided;
        ASSERT_EQ(std::string(exact.digits), std::string(general.digits)) << value << " " << limit;
        if (general.digits[0] != '0') {
            ASSERT_EQ(exact.point, general.point) << value << " " << limit;
        }
        ASSERT_EQ(exact.negative, general.negative) << value;
    };
    for (double magnitude : values) {
        for (const double value : {magnitude, -magnitude}) {
            for (std::size_t limit = 0; limit <= 17; ++limit) {
                check(value, limit, false);
                check(value, limit, true);
            }
        }
    }
    // Most values are decided exactly; ties and their neighbours are not.
    EXPECT_GT(decided, total / 2);
    DoubleWithSignificantFigures unused;
    EXPECT_FALSE(roundFixedExactly(2.675, 2, unused));
    EXPECT_FALSE(roundSignificantExactly(2.675, 3, unused));
    EXPECT_FALSE(roundFixedExactly(-0.125, 2, unused));
    EXPECT_FALSE(roundFixedExactly(0.0, 3, unused));
}

TEST(PrintFloatingPointTest, HexFloatsAsCWritesThem) {
    const double values[] = {0.0, -0.0, 1.0, 3.0, 0.1, -1.96, 1e-310, 5e-324, 1.7976931348623157e308, 2.5};
    const char* const formats[] = {"%a",    "%A",   "%.1a",   "%.0a",  "%#.0a",
                                   "%.20a", "%12a", "%-12a|", "%012a", "%+a"};
    for (double value : values) {
        for (const char* format : formats) {
            char expected[128];
            std::snprintf(expected, sizeof expected, format, value);
            EXPECT_EQ(strprintf(format, value), std::string_view(expected)) << format << " " << value;
        }
    }
}

TEST(PrintFloatingPointTest, RoundingKeepsWhatTheLimitsAllow) {
    DoubleWithSignificantFigures dsf(123.456);
    EXPECT_EQ(std::string(dsf.digits), "123456");
    EXPECT_EQ(dsf.point, 3);
    dsf.precision = 1;
    roundForSigfigsAndPrecision(dsf);
    EXPECT_EQ(std::string(dsf.digits), "1235");
    dsf.sigfigs = 2;
    roundForSigfigsAndPrecision(dsf);
    EXPECT_EQ(std::string(dsf.digits), "12");
    DoubleWithSignificantFigures tiny(0.004);
    tiny.precision = 1;
    roundForSigfigsAndPrecision(tiny);  // nothing left: zero
    EXPECT_EQ(std::string(tiny.digits), "0");
    EXPECT_EQ(tiny.point, 1);
}

}  // namespace
}  // namespace basicutil
