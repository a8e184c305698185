// The decoders against a slow reference, the incremental decoder against the strict one where
// their rules coincide, and the text operations' bounds.
#include <cstdint>
#include <string>

#include "FuzzReference.h"
#include "basicutil/text/UnicodeCodepoint.h"

using namespace basicutil;

namespace {

// UTF-8 by the book, except that surrogates are accepted: the length from the lead, each
// continuation checked, the shortest form required, nothing above U+10FFFF.
bool referenceDecode(std::string_view s, std::uint32_t& cp, std::size_t& length) {
    if (s.empty()) return false;
    const auto b = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(s[i]));
    };
    if (b(0) < 0x80) return cp = b(0), length = 1, true;
    std::size_t n;
    std::uint32_t value, minimum;
    if ((b(0) & 0xE0) == 0xC0)
        n = 2, value = b(0) & 0x1F, minimum = 0x80;
    else if ((b(0) & 0xF0) == 0xE0)
        n = 3, value = b(0) & 0x0F, minimum = 0x800;
    else if ((b(0) & 0xF8) == 0xF0)
        n = 4, value = b(0) & 0x07, minimum = 0x10000;
    else
        return false;
    if (s.size() < n) return false;
    for (std::size_t i = 1; i < n; ++i) {
        if ((b(i) & 0xC0) != 0x80) return false;
        value = (value << 6) | (b(i) & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF) return false;
    return cp = value, length = n, true;
}

bool validUtf8(std::string_view s) {
    std::uint32_t cp;
    std::size_t n;
    while (!s.empty()) {
        if (!referenceDecode(s, cp, n)) return false;
        s.remove_prefix(n);
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    for (std::size_t at = 0; at < text.size(); ++at) {
        std::string_view view = text.substr(at);
        std::uint32_t got = 0, expected = 0;
        std::size_t length = 0;
        const bool ok = decode_next_codepoint(view, got);
        FUZZ_CHECK(ok == referenceDecode(text.substr(at), expected, length));
        if (!ok) continue;
        FUZZ_CHECK(got == expected && view.size() == text.size() - at - length);
        if (got < 0x80 || (got >= 0xD800 && got <= 0xDFFF)) continue;
        // Fed the same bytes, the incremental decoder completes exactly at the last one.
        std::uint32_t state = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const bool done = _accumulateUtf8Byte(state, static_cast<std::uint8_t>(text[at + i]));
            FUZZ_CHECK(done == (i + 1 == length));
        }
        FUZZ_CHECK(state == got);
        FUZZ_CHECK(codepoint_to_utf8bytes(got) >= 0xC280 &&
                   utf8bytes_to_codepoint(codepoint_to_utf8bytes(got)) == got);
    }

    std::string upper, lower, composed;
    utf8_to_upper(text, upper);
    utf8_to_lower(text, lower);
    FUZZ_CHECK(upper.size() * 2 <= text.size() * 3 && lower.size() * 2 <= text.size() * 3);
    if (validUtf8(text)) FUZZ_CHECK(validUtf8(upper) && validUtf8(lower));
    resolveUnicodeCombiningMarks(text, composed);
    FUZZ_CHECK(composed.size() <= text.size());

    const std::string_view a = text.substr(0, text.size() / 2), b = text.substr(text.size() / 2);
    const auto compare = [](std::string_view l, std::string_view r) {
        return mem_compare_caseless(l.data(), l.data() + l.size(), r.data(), r.data() + r.size());
    };
    FUZZ_CHECK(compare(a, b) == -compare(b, a));
    FUZZ_CHECK(compare(text, text) == 0 && compare(upper, lower) == -compare(lower, upper));
    return 0;
}
