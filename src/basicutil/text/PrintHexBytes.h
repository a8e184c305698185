// Values in hexadecimal, through the library's printf.
#pragma once

#include <cstdint>

#include "basicutil/text/Str.h"

namespace basicutil {

// At least minDigits digits ("%0*llx"), or as many as the value needs when minDigits is 0
// ("%llx"); upper case with "%0*llX" and "%llX".
void appendHex(Str& out, std::uint64_t value, unsigned minDigits = 0, bool upperCase = false);

}  // namespace basicutil
