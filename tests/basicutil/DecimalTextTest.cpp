#include "basicutil/DecimalText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace basicutil {
namespace {

TEST(DecimalTextTest, IntegersAtTheirLimits) {
    std::string out;
    appendUnsigned(out, UINT64_MAX);
    out += ' ';
    appendSigned(out, INT64_MIN);
    out += ' ';
    appendSigned(out, 0);
    out += ' ';
    appendZeroPadded(out, 7, 3);
    out += ' ';
    appendZeroPadded(out, 12345, 3);
    EXPECT_EQ(out, "18446744073709551615 -9223372036854775808 0 007 12345");
}

// The C library's printf is the reference for "%*.*f" here, nowhere else.
std::string reference(double v, unsigned precision, unsigned width) {
    char buf[128];
    std::snprintf(buf, sizeof buf, "%*.*f", static_cast<int>(width), static_cast<int>(precision), v);
    return buf;
}

// Ties, the extremes of the range, and random magnitudes from 1e-12 to 1e18.
TEST(DecimalTextTest, FixedMatchesPrintf) {
    std::vector<double> values = {0.0,      -0.0, 0.0625, 0.125,     2.5,
                                  2.777777, 9.95, 99.5,   0.0005,    1e-300,
                                  3000.5,   1e15, -2.5,   0.9999996, 18446744073709549568.0};
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> exponent(-12, 18);
    for (int i = 0; i < 5000; ++i) values.push_back(std::pow(10.0, exponent(rng)));
    for (double v : values) {
        for (unsigned p = 0; p <= 9; ++p) {
            std::string got;
            appendFixed(got, v, p, 5);
            ASSERT_EQ(got, reference(v, p, 5)) << v << " precision " << p;
        }
    }
}

}  // namespace
}  // namespace basicutil
