// Slow, obviously-correct helpers that the fuzz targets compare the library against.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "basicutil/text/DecimalText.h"

namespace fuzzref {

using basicutil::Int128;

// Stops the run with a crash that libFuzzer records, naming the broken property.
#define FUZZ_CHECK(cond)                                            \
    do {                                                            \
        if (!(cond)) {                                              \
            std::fprintf(stderr, "fuzz check failed: %s\n", #cond); \
            std::abort();                                           \
        }                                                           \
    } while (0)

inline bool allDigits(std::string_view s) {
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

// The value of a digit string, capped at 10^30 so that it never overflows.
inline Int128 cappedValue(std::string_view digits) {
    constexpr Int128 kCap = static_cast<Int128>(1000000000000000) * 1000000000000000;
    Int128 v = 0;
    for (char c : digits) {
        v = v * 10 + (c - '0');
        if (v > kCap) return kCap;
    }
    return v;
}

constexpr Int128 kTwo63 = static_cast<Int128>(1) << 63;

}  // namespace fuzzref
