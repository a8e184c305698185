// Integers appended to a Str in binary.
#pragma once

#include <cstdint>

#include "basicutil/text/Str.h"

namespace basicutil {

// v in 4 or 8 bytes, most significant first.
void appendBigEndian32(Str& s, std::uint32_t v);
void appendBigEndian64(Str& s, std::uint64_t v);
// v >= 128: seven bits a byte, least significant first, bit 7 set on all but the last.
void _appendBase128(Str& s, std::uint64_t v);

}  // namespace basicutil
