// The string utilities: URL round trips, UTF-8 measures against a slow reference, splitters
// that give their input back when re-joined, and natural order's consistency.
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzReference.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/StrEscape.h"
#include "basicutil/text/StrParse.h"
#include "basicutil/text/StrSearch.h"
#include "basicutil/text/StrSplit.h"
#include "basicutil/text/StrUtf8.h"
#include "basicutil/text/StrUtf8_details.h"

using namespace basicutil;

namespace {

// The lead-byte rule, one byte at a time.
std::size_t referenceCount(std::string_view s) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < s.size(); ++count) {
        const auto b = static_cast<unsigned char>(s[i]);
        i += b < 0x80 ? 1 : b <= 0xDF ? 2 : b <= 0xEF ? 3 : b <= 0xF4 ? 4 : 1;
    }
    return count;
}

// The validity rule as written: leads C2-F4, continuations, F0 >= 90 and F4 <= 8F.
bool referenceValid(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
        const unsigned lead = b(i);
        std::size_t n = lead < 0x80                      ? 1
                        : (lead >= 0xC2 && lead <= 0xDF) ? 2
                        : (lead >= 0xE0 && lead <= 0xEF) ? 3
                        : (lead >= 0xF0 && lead <= 0xF4) ? 4
                                                         : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((b(i + k) & 0xC0) != 0x80) return false;
        if ((lead == 0xF0 && b(i + 1) < 0x90) || (lead == 0xF4 && b(i + 1) > 0x8F)) return false;
        i += n;
    }
    return true;
}

std::string joined(const std::vector<StrSegment>& parts, char separator) {
    std::string out;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out.push_back(separator);
        out.append(parts[i].view());
    }
    return out;
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const StrSegment segment(text);

    // URL: decoding what was encoded gives the text back.
    Str encoded = urlEncode(segment);
    FUZZ_CHECK(urlDecodeInPlace(encoded) == referenceValid(text));
    FUZZ_CHECK(encoded.view() == text);
    Str decoded(segment);
    const bool decodedValid = urlDecodeInPlace(decoded);
    FUZZ_CHECK(decodedValid == referenceValid(decoded.view()));
    FUZZ_CHECK(decoded.size() <= text.size());

    // UTF-8 measures.
    FUZZ_CHECK(mem_count_utf8_codepoints(text.data(), text.size()) == referenceCount(text));
    FUZZ_CHECK(isValidUtf8(segment) == referenceValid(text));
    // The vector paths against the scalar ones.
    FUZZ_CHECK(utf8_details::isValidUtf8Scalar(segment) == referenceValid(text));
    if (platform::cpuHasAvx2()) FUZZ_CHECK(utf8_details::isValidUtf8Avx2(segment) == referenceValid(text));
    for (size_type n : {size_type{0}, size_type{1}, size_type{7}, size_type{17}, size_type{size / 2}}) {
        StrSegment cut = segment, scalar = segment;
        utf8_character_count_truncate(cut, n);
        utf8_details::truncateScalar(scalar, n);
        FUZZ_CHECK(cut._data == text.data() && cut._len <= text.size() && cut._len == scalar._len);
        FUZZ_CHECK(size <= n ? cut._len == size : referenceCount(cut.view()) == n || cut._len == size);
    }
    const std::size_t lineEnd = text.find_first_of("\r\n");
    FUZZ_CHECK(findLineEnd(segment) == (lineEnd == std::string_view::npos ? npos : lineEnd));
    size_type start = 0, end = 0;
    if (utf8Substring(segment, 1, 3, start, end)) FUZZ_CHECK(start <= end && end <= size);

    // Splitters: fields and lines re-join to the input.
    std::vector<StrSegment> parts;
    splitFields(segment, parts, ',');
    FUZZ_CHECK(joined(parts, ',') == text);
    parts.clear();
    splitTokens(segment, parts, kWhitespace);
    for (const StrSegment& token : parts) FUZZ_CHECK(!token.empty() && token._data >= text.data());
    parts.clear();
    splitLines(segment, parts);
    for (const StrSegment& line : parts) FUZZ_CHECK(line.view().find('\n') == std::string_view::npos);

    // Natural order: antisymmetric, reflexive, and blind to leading zeros.
    const StrSegment a(text.substr(0, size / 2)), b(text.substr(size / 2));
    for (bool caseless : {false, true}) {
        FUZZ_CHECK(sign(naturalCompare(a, b, caseless)) == -sign(naturalCompare(b, a, caseless)));
        FUZZ_CHECK(naturalCompare(segment, segment, caseless) == 0);
    }
    const std::string padded = "x0" + std::string(a.view()), plain = "x" + std::string(a.view());
    if (!a.empty() && a[0] >= '1' && a[0] <= '9')
        FUZZ_CHECK(naturalCompare(StrSegment(padded), StrSegment(plain), false) == 0);
    return 0;
}
