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

}  // namespace
}  // namespace basicutil
