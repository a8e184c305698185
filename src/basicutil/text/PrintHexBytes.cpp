#include "basicutil/text/PrintHexBytes.h"

#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

void appendHex(Str& out, std::uint64_t value, unsigned minDigits, bool upperCase) {
    const auto v = static_cast<unsigned long long>(value);
    if (minDigits != 0) {
        appendf(out, upperCase ? "%0*llX" : "%0*llx", static_cast<int>(minDigits), v);
    } else {
        appendf(out, upperCase ? "%llX" : "%llx", v);
    }
}

}  // namespace basicutil
