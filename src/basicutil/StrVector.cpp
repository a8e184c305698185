#include "basicutil/StrVector.h"

#include <algorithm>

#include "basicutil/DecimalText.h"
#include "basicutil/StrSearch.h"

namespace basicutil {

Str printList(const StrVector& items) {
    Str out("[");
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out.push_back(' ');
        const bool quote = containsWhitespace(items[i]);
        if (quote) out.push_back('\'');
        out.append(items[i]);
        if (quote) out.push_back('\'');
    }
    out.push_back(']');
    return out;
}

Str printIndexed(const StrVector& items) {
    Str out("{");
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out.push_back(' ');
        char digits[kMaxUint64Digits];
        out.push_back('[');
        out.append(digits, formatUnsigned(digits, i));
        out.append("]='");
        out.append(items[i]);
        out.push_back('\'');
    }
    out.push_back('}');
    return out;
}

void sortStrVector(StrVector& items) {
    std::sort(items.begin(), items.end());
}

}  // namespace basicutil
