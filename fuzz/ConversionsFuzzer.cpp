// Number fields and hex dumps against slow references written from the rules.
#include <cstring>
#include <string>

#include "FuzzReference.h"
#include "basicutil/hexdump/HexDumper.h"
#include "basicutil/text/BasicConversions.h"

using namespace basicutil;
using fuzzref::Int128;

namespace {

bool blank(char c) {
    return c == ' ' || c == '\t';
}

// Blanks, an optional sign (when allowed), at least one digit, blanks; the value in [min, max].
bool referenceSigned(std::string_view s, bool signAllowed, Int128 min, Int128 max, Int128& value) {
    std::size_t i = 0;
    while (i < s.size() && blank(s[i])) ++i;
    bool negative = false;
    if (signAllowed && i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
    const std::size_t start = i;
    Int128 v = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') {
        v = v * 10 + (s[i++] - '0');
        if (v > (Int128{1} << 70)) v = Int128{1} << 70;  // large enough to fail any bound
    }
    if (i == start) return false;
    while (i < s.size() && blank(s[i])) ++i;
    if (i != s.size()) return false;
    value = negative ? -v : v;
    return value >= min && value <= max;
}

std::string referenceDump(const unsigned char* data, std::size_t n) {
    std::string out;
    char cell[24];
    for (std::size_t off = 0; off < n; off += 16) {
        std::snprintf(cell, sizeof cell, "%08zx", off & 0xffffffff);
        out.append(cell).append("  ");
        for (std::size_t i = 0; i < 16; ++i) {
            if (off + i < n) {
                std::snprintf(cell, sizeof cell, "%02x ", data[off + i]);
                out.append(cell);
            } else {
                out.append("   ");
            }
            if (i == 7) out.push_back(' ');
        }
        out.append(" |");
        for (std::size_t i = 0; i < 16 && off + i < n; ++i) {
            const unsigned char c = data[off + i];
            out.push_back(c >= 0x20 && c <= 0x7e ? static_cast<char>(c) : '.');
        }
        out.append("|\n");
    }
    std::snprintf(cell, sizeof cell, "%08zx", n & 0xffffffff);
    return out.append(cell).append("\n");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const char* b = text.data();
    const char* e = b + text.size();

    std::uint64_t maxima[] = {0, 9, 100, UINT64_MAX / 10, UINT64_MAX};
    for (std::uint64_t max : maxima) {
        std::uint64_t u = 7;
        Int128 expected = 0;
        const bool ok = parse_unsigned_val(b, e, u, max);
        FUZZ_CHECK(ok == referenceSigned(text, false, 0, max, expected));
        if (ok) FUZZ_CHECK(u == static_cast<std::uint64_t>(expected));
    }
    const std::int64_t bounds[][2] = {{INT64_MIN, INT64_MAX}, {-100, 100}, {0, 0}, {5, 10}, {-10, -5}};
    for (const auto& bound : bounds) {
        std::int64_t v = 7;
        Int128 expected = 0;
        const bool ok = do_signed_fetch(b, e, v, bound[0], bound[1]);
        FUZZ_CHECK(ok == referenceSigned(text, true, bound[0], bound[1], expected));
        if (ok) FUZZ_CHECK(v == static_cast<std::int64_t>(expected));
    }
    unsigned char bytes[32];
    std::size_t written = 0;
    if (parse_from_hex(b, e, bytes, sizeof bytes, written)) {
        std::string back;  // the digits, read again in lower case
        static const char digits[] = "0123456789abcdef";
        for (std::size_t i = 0; i < written; ++i) back.append({digits[bytes[i] >> 4], digits[bytes[i] & 15]});
        std::string lowered;
        for (char c : text) {
            if (!blank(c)) lowered.push_back(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
        }
        FUZZ_CHECK(back == lowered);
    }

    Str dump;
    HexDumper_to_Str(dump).do_dump(data, size);
    FUZZ_CHECK(dump.view() == referenceDump(data, size));
    return 0;
}
