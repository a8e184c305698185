#include "basicutil/text/StrBinary.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrBinaryTest, BigEndianAndBase128) {
    Str s;
    appendBigEndian32(s, 0x01020304);
    appendBigEndian64(s, 0x05060708090A0B0CULL);
    _appendBase128(s, 300);
    _appendBase128(s, UINT64_MAX);
    EXPECT_EQ(s, std::string_view("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\xAC\x02"
                                  "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01",
                                  24));
}

}  // namespace
}  // namespace basicutil
