#include "basicutil/text/DecimalText.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(DecimalTextTest, IntegersAtTheirLimits) {
    std::string out;
    appendUnsigned(out, UINT64_MAX);
    out += ' ';
    appendSigned(out, INT64_MIN);
    out += ' ';
    appendSigned(out, 0);
    EXPECT_EQ(out, "18446744073709551615 -9223372036854775808 0");
}

// Fixed-width fields: every count from the value's own digits to 20, both fills, and the
// digit-count boundaries where the writer changes from 64-bit to 32-bit steps.
TEST(DecimalTextTest, FixedWidthFieldsFillBeforeTheDigits) {
    const std::uint64_t values[] = {
        0, 7, 9, 10, 99, 100, 4294967295ULL, 4294967296ULL, 99999999999ULL, UINT64_MAX};
    for (std::uint64_t v : values) {
        const std::string own = std::to_string(v);
        for (unsigned count = decimalDigitCount(v); count <= kMaxUint64Digits; ++count) {
            for (char fill : {'0', ' '}) {
                char out[kMaxUint64Digits + 1];
                out[count] = '|';
                writeFixedDigits(out, v, count, fill);
                EXPECT_EQ(std::string(out, count + 1), std::string(count - own.size(), fill) + own + "|")
                    << v << " in " << count;
            }
        }
    }
    char sign[kMaxUint64Digits + 1];
    EXPECT_EQ(std::string(sign, formatSigned(sign, -7)), "-7");
}

}  // namespace
}  // namespace basicutil
