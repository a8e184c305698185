// The Unicode readers' conversion against a slow reference, fed whole and in pieces, and the
// reader itself (mark detection, buffering) over a pipe.
//
// Input: byte 0 picks the encoding and the piece size, byte 1 the reader's buffer size; the
// rest is the file.
#include <unistd.h>

#include <cstdint>
#include <string>

#include "FuzzReference.h"
#include "libzero/unicode-file.h"

namespace {

struct Result {
    std::string text;
    std::uint64_t replacements = 0;
    std::uint64_t first = UINT64_MAX;
};

void replace(Result& r, std::size_t at) {
    r.text += "\xEF\xBF\xBD";
    if (r.replacements++ == 0) r.first = at;
}

// Whether bytes [0, k) can start a well-formed sequence of length `length`: the values they
// allow (the rest filled with 0x80 .. 0xBF) must meet the length's own range outside the
// surrogates. A different route to the same rules as the library's range table.
bool startsWellFormed(const unsigned char* p, std::size_t k, std::size_t length) {
    static const std::uint32_t minimum[] = {0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t lo = length == 2 ? p[0] & 0x1Fu : length == 3 ? p[0] & 0x0Fu : p[0] & 0x07u;
    std::uint32_t hi = lo;
    for (std::size_t i = 1; i < length; ++i) {
        if (i < k && (p[i] & 0xC0) != 0x80) return false;
        lo = (lo << 6) | (i < k ? p[i] & 0x3Fu : 0x00u);
        hi = (hi << 6) | (i < k ? p[i] & 0x3Fu : 0x3Fu);
    }
    if (hi < minimum[length] || lo > 0x10FFFF) return false;
    lo = std::max(lo, minimum[length]);
    hi = std::min(hi, 0x10FFFFu);
    const bool allSurrogates = lo >= 0xD800 && hi <= 0xDFFF;
    return !allSurrogates;
}

Result referenceUtf8(const std::string& in) {
    Result r;
    const auto* p = reinterpret_cast<const unsigned char*>(in.data());
    std::size_t i = 0;
    while (i < in.size()) {
        const unsigned char b = p[i];
        const std::size_t length = b < 0x80             ? 1
                                   : (b & 0xE0) == 0xC0 ? 2
                                   : (b & 0xF0) == 0xE0 ? 3
                                   : (b & 0xF8) == 0xF0 ? 4
                                                        : 0;
        if (length == 1) {
            r.text += static_cast<char>(b);
            ++i;
            continue;
        }
        std::size_t good = 0;  // the longest start of a well-formed sequence here
        for (std::size_t k = 1; length != 0 && k <= length && i + k <= in.size(); ++k) {
            if (startsWellFormed(p + i, k, length))
                good = k;
            else
                break;
        }
        if (length != 0 && good == length) {
            r.text.append(in, i, length);
            i += length;
        } else {
            replace(r, i);
            i += good == 0 ? 1 : good;
        }
    }
    return r;
}

Result referenceUtf16(const std::string& in, bool big) {
    Result r;
    const auto unit = [&](std::size_t i) {
        const auto a = static_cast<unsigned char>(in[i]), b = static_cast<unsigned char>(in[i + 1]);
        return big ? (std::uint32_t{a} << 8) | b : (std::uint32_t{b} << 8) | a;
    };
    const auto put = [&](std::uint32_t cp) {
        char buf[4];
        std::size_t n = 0;
        if (cp < 0x80)
            buf[n++] = static_cast<char>(cp);
        else if (cp < 0x800)
            buf[n++] = static_cast<char>(0xC0 | (cp >> 6)), buf[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        else if (cp < 0x10000) {
            buf[n++] = static_cast<char>(0xE0 | (cp >> 12));
            buf[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            buf[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            buf[n++] = static_cast<char>(0xF0 | (cp >> 18));
            buf[n++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            buf[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            buf[n++] = static_cast<char>(0x80 | (cp & 0x3F));
        }
        r.text.append(buf, n);
    };
    std::size_t i = 0;
    while (i + 2 <= in.size()) {
        const std::uint32_t u = unit(i);
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 4 <= in.size() && unit(i + 2) >= 0xDC00 && unit(i + 2) <= 0xDFFF) {
                put(0x10000 + ((u - 0xD800) << 10) + (unit(i + 2) - 0xDC00));
                i += 4;
            } else if (i + 4 > in.size()) {  // cut off by the end: one part
                replace(r, i);
                i = in.size();
            } else {
                replace(r, i);
                i += 2;
            }
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            replace(r, i);
            i += 2;
        } else {
            put(u);
            i += 2;
        }
    }
    if (i < in.size()) replace(r, i);
    return r;
}

Result convertInPieces(utrans_encoding e, const std::string& in, std::size_t piece) {
    Result r;
    std::string pending;
    std::size_t fed = 0, base = 0;
    do {
        const std::size_t take = std::min(piece, in.size() - fed);
        pending.append(in, fed, take);
        fed += take;
        const bool final = fed == in.size();
        std::string out(utrans_output_bound(pending.size()), '\0');
        std::size_t used = 0;
        std::uint64_t first = UINT64_MAX;
        out.resize(utrans_convert(e, reinterpret_cast<const unsigned char*>(pending.data()), pending.size(),
                                  final, &used, out.data(), &r.replacements, &first));
        if (first != UINT64_MAX && r.first == UINT64_MAX) r.first = base + first;
        r.text += out;
        pending.erase(0, used);
        base += used;
        FUZZ_CHECK(!final || pending.empty());
        FUZZ_CHECK(pending.size() < 4);
    } while (fed < in.size());
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 60000) return 0;  // a pipe holds the whole file
    const utrans_encoding encodings[] = {UTRANS_UTF8, UTRANS_UTF16LE, UTRANS_UTF16BE};
    const utrans_encoding encoding = encodings[data[0] % 3];
    const std::size_t piece = 1 + (data[0] >> 2);
    const std::size_t capacity = 4 + data[1];
    const std::string file(reinterpret_cast<const char*>(data + 2), size - 2);

    const Result expected =
        encoding == UTRANS_UTF8 ? referenceUtf8(file) : referenceUtf16(file, encoding == UTRANS_UTF16BE);
    const Result whole = convertInPieces(encoding, file, file.size() + 1);
    FUZZ_CHECK(whole.text == expected.text);
    FUZZ_CHECK(whole.replacements == expected.replacements);
    FUZZ_CHECK(whole.first == expected.first);
    const Result pieces = convertInPieces(encoding, file, piece);
    FUZZ_CHECK(pieces.text == whole.text && pieces.replacements == whole.replacements &&
               pieces.first == whole.first);
    // Well-formed in, the same bytes out.
    if (encoding == UTRANS_UTF8 && whole.replacements == 0) FUZZ_CHECK(whole.text == file);

    // The reader, given the encoding, over a pipe that holds the whole file.
    int fds[2];
    FUZZ_CHECK(::pipe(fds) == 0);
    FUZZ_CHECK(::write(fds[1], file.data(), file.size()) == static_cast<ssize_t>(file.size()));
    FUZZ_CHECK(::close(fds[1]) == 0);
    int error = 0;
    utrans_reader* reader = utrans_fdopen_read(fds[0], encoding, &error);
    FUZZ_CHECK(reader != nullptr);
    std::string got, buf(capacity, '\0');
    ptrdiff_t n;
    while ((n = utrans_read(reader, buf.data(), capacity)) > 0)
        got.append(buf.data(), static_cast<std::size_t>(n));
    FUZZ_CHECK(n == 0);
    // The reader drops a leading mark of the encoding it was given.
    const std::size_t mark = utrans_reader_had_bom(reader) != 0 ? (encoding == UTRANS_UTF8 ? 3 : 2) : 0;
    const Result afterMark = convertInPieces(encoding, file.substr(mark), file.size() + 1);
    FUZZ_CHECK(got == afterMark.text);
    FUZZ_CHECK(utrans_replacements(reader) == afterMark.replacements);
    FUZZ_CHECK(utrans_first_replacement(reader) ==
               (afterMark.first == UINT64_MAX ? UINT64_MAX : afterMark.first + mark));
    FUZZ_CHECK(utrans_close_read(reader) == 0);
    return 0;
}
