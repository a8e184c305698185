#include "basicutil/StrCase.h"

#include <string>

#include "basicutil/StrBlocks.h"
#include "basicutil/UnicodeCodepoint.h"

namespace basicutil {

namespace {

// ASCII case in 16-byte blocks while the text is ASCII; false at the first block (or tail byte)
// that is not, leaving the rest for the Unicode mapper.
bool asciiCaseInPlace(char* p, char* end, char first) {
    const auto convert = [first](char& c) {
        if (static_cast<unsigned char>(c - first) < 26) c = static_cast<char>(c ^ 0x20);
    };
    for (; end - p >= blocks::kBlock; p += blocks::kBlock) {
        if (!blocks::isAscii(p)) return false;
        for (unsigned i = 0; i < blocks::kBlock; ++i) convert(p[i]);
    }
    for (; p < end; ++p) {
        if (static_cast<unsigned char>(*p) >= 0x80) return false;
        convert(*p);
    }
    return true;
}

void caseInPlace(Str& s, bool upper) {
    if (asciiCaseInPlace(s.data(), s.data() + s.size(), upper ? 'a' : 'A')) return;
    std::string mapped;
    (upper ? utf8_to_upper : utf8_to_lower)(s.view(), mapped);
    s.assign(mapped.data(), mapped.size());
}

}  // namespace

void toUpperInPlace(Str& s) {
    caseInPlace(s, true);
}
void toLowerInPlace(Str& s) {
    caseInPlace(s, false);
}

Str toUpperCopy(StrSegment s) {
    Str out(s);
    toUpperInPlace(out);
    return out;
}

Str toLowerCopy(StrSegment s) {
    Str out(s);
    toLowerInPlace(out);
    return out;
}

}  // namespace basicutil
