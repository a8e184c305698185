#include "basicutil/text/StrEscape.h"

#include <cstring>

#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/StrUtf8.h"
#include "libzero/utf8-rules.h"

namespace basicutil {

namespace {

bool anyMember(StrSegment s, const ByteSet& set) {
    for (char c : s.view())
        if (set.contains(c)) return true;
    return false;
}
}  // namespace

Str escapeControlCharacters(StrSegment s) {
    Str out;
    out.reserve(s._len);
    for (char c : s.view()) {
        switch (c) {
            case '\n':
                out.append("\\n", 2);
                break;
            case '\r':
                out.append("\\r", 2);
                break;
            case '\t':
                out.append("\\t", 2);
                break;
            default:
                out.push_back(c);
                break;
        }
    }
    return out;
}

void escapeNonPrintableInPlace(Str& s) {
    const auto printable = [](char c) { return c >= 0x20 && c <= 0x7E; };
    size_type first = 0;
    while (first < s.size() && printable(s[first])) ++first;
    if (first == s.size()) return;
    const Str saved(s.data() + first, s.size() - first);
    s.resize(first);
    for (char c : saved.view()) {
        if (printable(c)) {
            s.push_back(c);
        } else if (c == '\n') {
            s.append("\\n", 2);
        } else if (c == '\r') {
            s.append("\\r", 2);
        } else if (c == '\t') {
            s.push_back(' ');
        } else {
            appendf(s, "\\x%02X", static_cast<unsigned char>(c));
        }
    }
}

void appendCsvField(Str& out, StrSegment field) {
    if (!anyMember(field, kCsvSpecial)) {
        out.append(field);
        return;
    }
    out.push_back('"');
    // Runs up to and including each double quote, which is then written once more.
    const char* start = field.begin();
    for (const char* p = field.begin(); p < field.end(); ++p) {
        if (*p != '"') continue;
        out.append(start, static_cast<size_type>(p + 1 - start));
        start = p;
    }
    out.append(start, static_cast<size_type>(field.end() - start));
    out.push_back('"');
}

Str quoteSearchTerm(StrSegment term, const ByteSet& safe, bool alwaysQuote, bool keepBackslashes) {
    if (term.empty()) return emptySearchTerm();
    bool allSafe = true;
    for (char c : term.view()) allSafe = allSafe && safe.contains(c);
    Str out;
    if (!allSafe) {
        out.reserve(term._len + 2);
        out.push_back('"');
        for (char c : term.view()) {
            if (c == '"' || (c == '\\' && !keepBackslashes)) out.push_back('\\');
            out.push_back(c);
        }
        out.push_back('"');
        return out;
    }
    const std::string_view v = term.view();
    if (v == "OR" || v == "IN" || v == "AND" || v == "NOT" || alwaysQuote) {
        out.push_back('"');
        out.append(term);
        out.push_back('"');
        return out;
    }
    return Str(term);
}

void appendWithoutControlCharacters(Str& out, StrSegment s) {
    const char* start = s.begin();
    for (const char* p = s.begin(); p < s.end(); ++p) {
        if (static_cast<unsigned char>(*p) >= 0x20) continue;
        out.append(start, static_cast<size_type>(p - start));
        start = p + 1;
    }
    out.append(start, static_cast<size_type>(s.end() - start));
}

void urlEncodeAppend(Str& out, StrSegment s) {
    // Table entries are gathered in a buffer and appended a few hundred bytes at a time.
    char buffer[3 * 256 + 2];  // room for the fixed 3-byte copy at the last position
    std::size_t used = 0;
    for (char c : s.view()) {
        // Every entry (1 or 3 bytes) sits in its 16-byte inline buffer: copying a fixed 3 bytes
        // is safe and lets the compiler emit a plain move.
        const Str& encoded = urlEncodingOf(static_cast<unsigned char>(c));
        std::memcpy(buffer + used, encoded.data(), 3);
        used += static_cast<std::size_t>(encoded.size());
        if (used > sizeof buffer - 3) {
            out.append(buffer, used);
            used = 0;
        }
    }
    out.append(buffer, used);
}

Str urlEncode(StrSegment s) {
    Str out;
    out.reserve(s._len);
    urlEncodeAppend(out, s);
    return out;
}

void urlEncodeInPlace(Str& s) {
    for (char c : s.view()) {
        if (!kUrlUnreserved.contains(c)) {
            s = urlEncode(s);
            return;
        }
    }
}

namespace {
int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}
}  // namespace

bool urlDecodeInPlace(Str& s) {
    if (!anyMember(s, kUrlDecodeTriggers)) return isValidUtf8(s);
    // Decoding never lengthens the text: write over it from the front.
    char* out = s.data();
    for (size_type i = 0; i < s.size(); ++i) {
        const char c = s[i];
        if (c == '+') {
            *out++ = ' ';
        } else if (c == '%' && i + 2 < s.size() && hexValue(s[i + 1]) >= 0 && hexValue(s[i + 2]) >= 0) {
            *out++ = static_cast<char>(hexValue(s[i + 1]) * 16 + hexValue(s[i + 2]));
            i += 2;
        } else {
            *out++ = c;
        }
    }
    s.resize(static_cast<size_type>(out - s.data()));
    return isValidUtf8(s);
}

namespace {

// The length of the well-formed UTF-8 sequence at p (2 to 4), or 0 (libzero/utf8-rules.h, rule 3).
unsigned validSequence(const unsigned char* p, const unsigned char* end) noexcept {
    const utf8_lead_rule rule = utf8_well_formed_lead(p[0]);
    if (rule.following == 0) return 0;
    const unsigned n = rule.following + 1u;
    if (end - p < static_cast<std::ptrdiff_t>(n) || p[1] < rule.low || p[1] > rule.high) return 0;
    for (unsigned k = 2; k < n; ++k) {
        if ((p[k] & 0xC0) != 0x80) return 0;
    }
    return n;
}

}  // namespace

void appendJsonEscaped(Str& out, StrSegment text) {
    static constexpr char kHex[] = "0123456789abcdef";
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* const end = p + text.size();
    while (p < end) {
        const unsigned char* run = p;  // bytes written as they are
        while (p < end && *p >= 0x20 && *p < 0x80 && *p != '"' && *p != '\\') ++p;
        out.append(reinterpret_cast<const char*>(run), static_cast<size_type>(p - run));
        if (p == end) break;
        const unsigned char c = *p;
        if (c >= 0x80) {
            const unsigned n = validSequence(p, end);
            if (n != 0) {
                out.append(reinterpret_cast<const char*>(p), n);
                p += n;
                continue;
            }
        }
        ++p;
        switch (c) {
            case '"':
                out.append("\\\"", 2);
                break;
            case '\\':
                out.append("\\\\", 2);
                break;
            case '\n':
                out.append("\\n", 2);
                break;
            case '\r':
                out.append("\\r", 2);
                break;
            case '\t':
                out.append("\\t", 2);
                break;
            default: {
                const char escaped[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
                out.append(escaped, 6);
            }
        }
    }
}

}  // namespace basicutil
