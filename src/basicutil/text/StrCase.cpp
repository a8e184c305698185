#include "basicutil/text/StrCase.h"

#include <string>

#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/UnicodeCodepointTables.h"

namespace basicutil {

namespace {

// ASCII case in place while the text is ASCII; returns where the first block (or tail byte) that
// is not begins, leaving the rest for the Unicode mapper.
size_type asciiCaseInPlace(char* const begin, char* const end, char first) {
    char* p = begin;
    for (; end - p >= blocks::kBlock && blocks::isAscii(p); p += blocks::kBlock)
        blocks::swapAsciiCase(p, p, first);
    for (; p < end && static_cast<unsigned char>(*p) < 0x80; ++p) {
        if (static_cast<unsigned char>(*p - first) < 26) *p = static_cast<char>(*p ^ 0x20);
    }
    return static_cast<size_type>(p - begin);
}

void caseInPlace(Str& s, bool upper) {
    const size_type done = asciiCaseInPlace(s.data(), s.data() + s.size(), upper ? 'a' : 'A');
    if (done == s.size()) return;
    // The rest is mapped into a new string after the converted ASCII prefix.
    const size_type rest = s.size() - done;
    Str mapped;
    mapped.reserve(done + 2 * rest + 16);
    mapped.append(s.data(), done);
    char* const out = mapped.appendUninitialized(2 * rest + 16);
    const std::size_t written = utf8CaseInto(std::string_view(s.data() + done, rest), out, !upper);
    mapped.resize(done + written);
    s.swap(mapped);
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
