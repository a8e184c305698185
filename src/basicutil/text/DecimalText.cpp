#include "basicutil/text/DecimalText.h"

namespace basicutil {

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
