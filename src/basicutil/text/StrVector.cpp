#include "basicutil/text/StrVector.h"

#include <algorithm>

#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/StrSearch.h"

namespace basicutil {

Str printList(const StrVector& items) {
    Str out("[");
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out.push_back(' ');
        appendf(out, containsWhitespace(items[i]) ? "'%s'" : "%s", items[i].view());
    }
    out.push_back(']');
    return out;
}

Str printIndexed(const StrVector& items) {
    Str out("{");
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out.push_back(' ');
        appendf(out, "[%d]='%s'", static_cast<int>(i), items[i].view());
    }
    out.push_back('}');
    return out;
}

void sortStrVector(StrVector& items) {
    std::sort(items.begin(), items.end());
}

}  // namespace basicutil
