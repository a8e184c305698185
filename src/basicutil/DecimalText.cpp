#include "basicutil/DecimalText.h"

namespace basicutil {

std::size_t formatUnsigned(char* out, std::uint64_t v) noexcept {
    char rev[kMaxUint64Digits];
    std::size_t n = 0;
    do {
        rev[n++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    for (std::size_t i = 0; i < n; ++i) out[i] = rev[n - 1 - i];
    return n;
}

void appendUnsigned(std::string& out, std::uint64_t v) {
    char buf[kMaxUint64Digits];
    out.append(buf, formatUnsigned(buf, v));
}

void appendSigned(std::string& out, std::int64_t v) {
    if (v < 0) {
        out.push_back('-');
        // Negate in unsigned arithmetic: INT64_MIN has no positive counterpart.
        appendUnsigned(out, 0 - static_cast<std::uint64_t>(v));
    } else {
        appendUnsigned(out, static_cast<std::uint64_t>(v));
    }
}

}  // namespace basicutil
