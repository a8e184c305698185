#include "libzero/unicode-file.h"

#include "libzero/unicode-file-blocks.h"
#include "libzero/utf8-rules.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "basicutil/platform/Assert.h"

namespace {

constexpr size_t kInputBytes = 64 * 1024;
constexpr size_t kWriteBufferBytes = 64 * 1024;
constexpr uint64_t kNoOffset = UINT64_MAX;

struct Replacements {
    uint64_t* count;
    uint64_t* first;
    const unsigned char* base;

    char* put(char* out, const unsigned char* at) const noexcept {
        ++*count;
        if (first != nullptr && *first == kNoOffset) *first = static_cast<uint64_t>(at - base);
        out[0] = static_cast<char>(0xEF);
        out[1] = static_cast<char>(0xBF);
        out[2] = static_cast<char>(0xBD);
        return out + 3;
    }
};

inline char* putUtf8(char* out, uint32_t cp) noexcept {
    if (cp < 0x80) {
        *out++ = static_cast<char>(cp);
    } else if (cp < 0x800) {
        *out++ = static_cast<char>(0xC0 | (cp >> 6));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (cp >> 12));
        *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (cp >> 18));
        *out++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

// Well-formed UTF-8 (libzero/utf8-rules.h, rule 3); each maximal ill-formed part becomes one
// U+FFFD.
size_t convertUtf8(const unsigned char* in, size_t n, bool final, size_t* consumed, char* out,
                   const Replacements& bad) noexcept {
    char* const start = out;
    size_t i = 0;
    while (i < n) {
        while (n - i >= libzero_blocks::kBlock && libzero_blocks::fast::copyAsciiBlock(in + i, out)) {
            i += libzero_blocks::kBlock;
            out += libzero_blocks::kBlock;
        }
        if (i >= n) break;
        const unsigned char lead = in[i];
        if (lead < 0x80) {
            *out++ = static_cast<char>(lead);
            ++i;
            continue;
        }
        const utf8_lead_rule rule = utf8_well_formed_lead(lead);
        if (rule.following == 0) {
            out = bad.put(out, in + i);
            ++i;
            continue;
        }
        const size_t need = rule.following;
        size_t k = 1;
        for (; k <= need; ++k) {
            if (i + k >= n) break;
            const unsigned char c = in[i + k];
            if (k == 1 ? (c < rule.low || c > rule.high) : (c < 0x80 || c > 0xBF)) break;
        }
        if (k > need) {
            memcpy(out, in + i, need + 1);
            out += need + 1;
            i += need + 1;
        } else if (i + k >= n && !final) {
            break;  // a good start cut off by the end of the input: wait for more
        } else {
            out = bad.put(out, in + i);
            i += k;
        }
    }
    *consumed = i;
    return static_cast<size_t>(out - start);
}

template <bool kBigEndian>
uint32_t unitAt(const unsigned char* p) noexcept {
    return kBigEndian ? (uint32_t{p[0]} << 8) | p[1] : (uint32_t{p[1]} << 8) | p[0];
}

// A character below U+10000 that is not a surrogate, without a branch on its length: mixed
// text changes length at random, and a mispredicted branch costs more than the arithmetic. Four
// bytes are stored; the output bound leaves room for the spare ones.
inline char* putBmp(char* out, uint32_t u) noexcept {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const uint32_t two = (0xC0 | (u >> 6)) | ((0x80 | (u & 0x3F)) << 8);
    const uint32_t three =
        (0xE0 | (u >> 12)) | ((0x80 | ((u >> 6) & 0x3F)) << 8) | ((0x80 | (u & 0x3F)) << 16);
    const uint32_t bytes = u < 0x80 ? u : u < 0x800 ? two : three;
    memcpy(out, &bytes, 4);
    return out + 1 + (u >= 0x80) + (u >= 0x800);
#else
    return putUtf8(out, u);
#endif
}

template <bool kBigEndian>
size_t convertUtf16(const unsigned char* in, size_t n, bool final, size_t* consumed, char* out,
                    const Replacements& bad) noexcept {
    char* const start = out;
    size_t i = 0;
    while (n - i >= 2) {
        // Eight units at a time: packed when all are ASCII, encoded one by one without a check
        // when none is a surrogate, and up to the first surrogate otherwise.
        while (n - i >= libzero_blocks::kBlock) {
            uint16_t units[8];
            const unsigned plain = libzero_blocks::fast::utf16Block<kBigEndian>(in + i, out, units);
            if (plain == libzero_blocks::kAllAscii) {
                i += libzero_blocks::kBlock;
                out += 8;
                continue;
            }
            for (unsigned k = 0; k < plain; ++k) out = putBmp(out, units[k]);
            i += 2 * plain;
            if (plain < 8) break;
        }
        if (n - i < 2) break;
        const uint32_t unit = unitAt<kBigEndian>(in + i);
        if (unit < 0xD800 || unit > 0xDFFF) {
            out = putBmp(out, unit);
            i += 2;
        } else if (unit >= 0xDC00) {  // a low surrogate alone
            out = bad.put(out, in + i);
            i += 2;
        } else if (n - i < 4) {
            if (!final) break;
            // A pair cut off by the end, odd byte and all, is one ill-formed part.
            out = bad.put(out, in + i);
            i = n;
        } else {
            const uint32_t next = unitAt<kBigEndian>(in + i + 2);
            if (next >= 0xDC00 && next <= 0xDFFF) {
                out = putUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
                i += 4;
            } else {
                out = bad.put(out, in + i);
                i += 2;
            }
        }
    }
    if (n - i == 1 && final) {
        out = bad.put(out, in + i);
        ++i;
    }
    *consumed = i;
    return static_cast<size_t>(out - start);
}

bool hasPrefix(const unsigned char* p, size_t n, const char* mark, size_t markLength) noexcept {
    return n >= markLength && memcmp(p, mark, markLength) == 0;
}

int closeDescriptor(int fd) noexcept {
    // Not retried after EINTR: the descriptor is released already on both systems.
    if (close(fd) != 0 && errno != EINTR) return errno;
    return 0;
}

}  // namespace

extern "C" const char* utrans_encoding_name(enum utrans_encoding encoding) noexcept {
    switch (encoding) {
        case UTRANS_DETECT:
            return "detect";
        case UTRANS_UTF8:
            return "UTF-8";
        case UTRANS_UTF16LE:
            return "UTF-16LE";
        case UTRANS_UTF16BE:
            return "UTF-16BE";
    }
    return "unknown";
}

extern "C" size_t utrans_convert(enum utrans_encoding encoding, const unsigned char* in, size_t length,
                                 int final, size_t* consumed, char* out, uint64_t* replacements,
                                 uint64_t* first_bad) noexcept {
    const Replacements bad{replacements, first_bad, in};
    switch (encoding) {
        case UTRANS_UTF8:
            return convertUtf8(in, length, final != 0, consumed, out, bad);
        case UTRANS_UTF16LE:
            return convertUtf16<false>(in, length, final != 0, consumed, out, bad);
        case UTRANS_UTF16BE:
            return convertUtf16<true>(in, length, final != 0, consumed, out, bad);
        case UTRANS_DETECT:
            break;
    }
    VESTRA_ASSERT_TEXT(encoding != UTRANS_DETECT, "utrans_convert needs a definite encoding");
    return 0;
}

// --- Readers ---

struct utrans_reader {
    int fd;
    enum utrans_encoding encoding;
    bool detected;
    bool hadBom;
    bool atEnd;  // read(2) said end of file
    size_t inStart, inEnd;
    uint64_t inOffset;  // file offset of in[0]
    size_t outStart, outEnd;
    uint64_t replacements;
    uint64_t firstReplacement;
    unsigned char in[kInputBytes];
    char out[utrans_output_bound(kInputBytes)];
};

namespace {

// Moves the unread input to the front and reads more after it; false with errno on failure.
bool fill(utrans_reader* r) noexcept {
    if (r->inStart > 0) {
        memmove(r->in, r->in + r->inStart, r->inEnd - r->inStart);
        r->inOffset += r->inStart;
        r->inEnd -= r->inStart;
        r->inStart = 0;
    }
    while (!r->atEnd && r->inEnd < kInputBytes) {
        const ssize_t n = read(r->fd, r->in + r->inEnd, kInputBytes - r->inEnd);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) r->atEnd = true;
        r->inEnd += static_cast<size_t>(n);
        // One read is enough unless a pipe gave too little to decide anything.
        if (r->inEnd - r->inStart >= 4) break;
    }
    return true;
}

void detect(utrans_reader* r) noexcept {
    const unsigned char* p = r->in + r->inStart;
    const size_t n = r->inEnd - r->inStart;
    size_t mark = 0;
    enum utrans_encoding found = UTRANS_UTF8;
    if (hasPrefix(p, n, "\xEF\xBB\xBF", 3)) {
        mark = 3;
    } else if (hasPrefix(p, n, "\xFF\xFE", 2)) {
        found = UTRANS_UTF16LE;
        mark = 2;
    } else if (hasPrefix(p, n, "\xFE\xFF", 2)) {
        found = UTRANS_UTF16BE;
        mark = 2;
    }
    if (r->encoding == UTRANS_DETECT) r->encoding = found;
    // A mark is dropped when it is the encoding's own.
    if (mark != 0 && found == r->encoding) {
        r->hadBom = true;
        r->inStart += mark;
    }
    r->detected = true;
}

// Converts what input there is into `out` (room for utrans_output_bound(kInputBytes)); returns
// the bytes written, 0 at the end, -1 on a read error.
ptrdiff_t convertMore(utrans_reader* r, char* out) noexcept {
    for (;;) {
        if (!r->atEnd && !fill(r)) return -1;
        if (!r->detected) {
            if (r->inEnd - r->inStart < 3 && !r->atEnd) continue;
            detect(r);
        }
        const size_t available = r->inEnd - r->inStart;
        if (available == 0) return 0;
        size_t used = 0;
        uint64_t first = kNoOffset;
        const size_t n = utrans_convert(r->encoding, r->in + r->inStart, available, r->atEnd ? 1 : 0, &used,
                                        out, &r->replacements, &first);
        if (first != kNoOffset && r->firstReplacement == kNoOffset) {
            r->firstReplacement = r->inOffset + r->inStart + first;
        }
        r->inStart += used;
        if (n > 0) return static_cast<ptrdiff_t>(n);
        // Only an incomplete character so far: read on.
    }
}

}  // namespace

extern "C" struct utrans_reader* utrans_fdopen_read(int fd, enum utrans_encoding encoding,
                                                    int* error) noexcept {
    auto* r = static_cast<utrans_reader*>(malloc(sizeof(utrans_reader)));
    if (r == nullptr) {
        *error = ENOMEM;
        static_cast<void>(closeDescriptor(fd));
        return nullptr;
    }
    r->fd = fd;
    r->encoding = encoding;
    r->detected = false;
    r->hadBom = false;
    r->atEnd = false;
    r->inStart = r->inEnd = 0;
    r->inOffset = 0;
    r->outStart = r->outEnd = 0;
    r->replacements = 0;
    r->firstReplacement = kNoOffset;
    *error = 0;
    return r;
}

extern "C" struct utrans_reader* utrans_open_read(const char* path, enum utrans_encoding encoding,
                                                  int* error) noexcept {
    int fd;
    do {
        fd = open(path, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        *error = errno;
        return nullptr;
    }
    return utrans_fdopen_read(fd, encoding, error);
}

extern "C" ptrdiff_t utrans_read(struct utrans_reader* r, char* out, size_t capacity) noexcept {
    VESTRA_ASSERT(capacity >= 4);
    if (r->outStart == r->outEnd) {
        // A caller's buffer that can take a whole conversion gets it without a copy.
        if (capacity >= sizeof r->out) return convertMore(r, out);
        const ptrdiff_t n = convertMore(r, r->out);
        if (n <= 0) return n;
        r->outStart = 0;
        r->outEnd = static_cast<size_t>(n);
    }
    size_t n = r->outEnd - r->outStart;
    if (n > capacity) {
        n = capacity;
        // Back to the start of the character that would be cut.
        while ((static_cast<unsigned char>(r->out[r->outStart + n]) & 0xC0) == 0x80) --n;
    }
    memcpy(out, r->out + r->outStart, n);
    r->outStart += n;
    return static_cast<ptrdiff_t>(n);
}

extern "C" int32_t utrans_read_codepoint(struct utrans_reader* r) noexcept {
    if (r->outStart == r->outEnd) {
        const ptrdiff_t n = convertMore(r, r->out);
        if (n < 0) return UTRANS_ERROR;
        if (n == 0) return UTRANS_END;
        r->outStart = 0;
        r->outEnd = static_cast<size_t>(n);
    }
    // The buffer holds whole, well-formed characters.
    const auto* p = reinterpret_cast<const unsigned char*>(r->out + r->outStart);
    uint32_t cp = p[0];
    size_t length = 1;
    if (cp >= 0xF0) {
        cp = ((cp & 0x07) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
        length = 4;
    } else if (cp >= 0xE0) {
        cp = ((cp & 0x0F) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        length = 3;
    } else if (cp >= 0xC0) {
        cp = ((cp & 0x1F) << 6) | (p[1] & 0x3Fu);
        length = 2;
    }
    r->outStart += length;
    return static_cast<int32_t>(cp);
}

extern "C" enum utrans_encoding utrans_reader_encoding(struct utrans_reader* r) noexcept {
    if (!r->detected && r->outStart == r->outEnd) {
        // Detection needs the first bytes; reading them early costs nothing later.
        const ptrdiff_t n = convertMore(r, r->out);
        if (n > 0) {
            r->outStart = 0;
            r->outEnd = static_cast<size_t>(n);
        }
    }
    return r->encoding == UTRANS_DETECT ? UTRANS_UTF8 : r->encoding;
}

extern "C" int utrans_reader_had_bom(struct utrans_reader* r) noexcept {
    static_cast<void>(utrans_reader_encoding(r));
    return r->hadBom ? 1 : 0;
}

extern "C" uint64_t utrans_replacements(const struct utrans_reader* r) noexcept {
    return r->replacements;
}

extern "C" uint64_t utrans_first_replacement(const struct utrans_reader* r) noexcept {
    return r->firstReplacement;
}

extern "C" int utrans_close_read(struct utrans_reader* r) noexcept {
    const int error = closeDescriptor(r->fd);
    free(r);
    return error;
}

// --- Writers ---

struct utrans_writer {
    int fd;
    enum utrans_encoding encoding;
    int error;  // the first failure; nothing more is written after one
    size_t used;
    size_t carryLength;
    uint64_t replacements;
    unsigned char carry[4];  // the start of a character that the next call completes
    char buffer[kWriteBufferBytes];
    char scratch[utrans_output_bound(kWriteBufferBytes / 4)];
};

namespace {

constexpr size_t kWriteChunk = kWriteBufferBytes / 4;

bool flushWriter(utrans_writer* w) noexcept {
    size_t done = 0;
    while (done < w->used && w->error == 0) {
        const ssize_t n = write(w->fd, w->buffer + done, w->used - done);
        if (n < 0) {
            if (errno != EINTR) w->error = errno;
            continue;
        }
        done += static_cast<size_t>(n);
    }
    w->used = 0;
    return w->error == 0;
}

bool emit(utrans_writer* w, const char* bytes, size_t n) noexcept {
    if (w->error != 0) return false;
    if (kWriteBufferBytes - w->used < n && !flushWriter(w)) return false;
    memcpy(w->buffer + w->used, bytes, n);
    w->used += n;
    return true;
}

// Writes well-formed UTF-8 in the writer's encoding.
bool emitWellFormed(utrans_writer* w, const char* text, size_t n) noexcept {
    if (w->encoding == UTRANS_UTF8) return emit(w, text, n);
    const bool big = w->encoding == UTRANS_UTF16BE;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = p + n;
    unsigned char units[256];
    size_t k = 0;
    while (p < end) {
        uint32_t cp = *p;
        if (cp < 0x80) {
            p += 1;
        } else if (cp < 0xE0) {
            cp = ((cp & 0x1F) << 6) | (p[1] & 0x3Fu);
            p += 2;
        } else if (cp < 0xF0) {
            cp = ((cp & 0x0F) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
            p += 3;
        } else {
            cp = ((cp & 0x07) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
            p += 4;
        }
        uint32_t pair[2] = {cp, 0};
        size_t count = 1;
        if (cp >= 0x10000) {
            pair[0] = 0xD800 + ((cp - 0x10000) >> 10);
            pair[1] = 0xDC00 + ((cp - 0x10000) & 0x3FF);
            count = 2;
        }
        for (size_t j = 0; j < count; ++j) {
            units[k++] = static_cast<unsigned char>(big ? pair[j] >> 8 : pair[j]);
            units[k++] = static_cast<unsigned char>(big ? pair[j] : pair[j] >> 8);
        }
        if (k > sizeof units - 4) {
            if (!emit(w, reinterpret_cast<const char*>(units), k)) return false;
            k = 0;
        }
    }
    return emit(w, reinterpret_cast<const char*>(units), k);
}

// Converts (cleaning malformed UTF-8) and writes; returns the input bytes used.
size_t cleanAndEmit(utrans_writer* w, const unsigned char* in, size_t n, bool final) noexcept {
    size_t used = 0;
    const size_t out =
        utrans_convert(UTRANS_UTF8, in, n, final ? 1 : 0, &used, w->scratch, &w->replacements, nullptr);
    static_cast<void>(emitWellFormed(w, w->scratch, out));
    return used;
}

}  // namespace

extern "C" struct utrans_writer* utrans_fdopen_write(int fd, enum utrans_encoding encoding, int flags,
                                                     int* error) noexcept {
    if (encoding == UTRANS_DETECT) {
        *error = EINVAL;
        static_cast<void>(closeDescriptor(fd));
        return nullptr;
    }
    auto* w = static_cast<utrans_writer*>(malloc(sizeof(utrans_writer)));
    if (w == nullptr) {
        *error = ENOMEM;
        static_cast<void>(closeDescriptor(fd));
        return nullptr;
    }
    w->fd = fd;
    w->encoding = encoding;
    w->error = 0;
    w->used = 0;
    w->carryLength = 0;
    w->replacements = 0;
    if ((flags & UTRANS_WRITE_BOM) != 0 && (flags & UTRANS_WRITE_APPEND) == 0) {
        static_cast<void>(emitWellFormed(w, "\xEF\xBB\xBF", 3));
    }
    *error = 0;
    return w;
}

extern "C" struct utrans_writer* utrans_open_write(const char* path, enum utrans_encoding encoding, int flags,
                                                   mode_t mode, int* error) noexcept {
    const int how =
        O_WRONLY | O_CREAT | O_CLOEXEC | ((flags & UTRANS_WRITE_APPEND) != 0 ? O_APPEND : O_TRUNC);
    int fd;
    do {
        fd = open(path, how, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        *error = errno;
        return nullptr;
    }
    return utrans_fdopen_write(fd, encoding, flags, error);
}

extern "C" int utrans_write(struct utrans_writer* w, const char* utf8, size_t length) noexcept {
    const auto* in = reinterpret_cast<const unsigned char*>(utf8);
    if (w->carryLength > 0 && length > 0) {
        // Finish the carried character with the first new bytes.
        unsigned char joined[8];
        const size_t take = length < 4 ? length : 4;
        memcpy(joined, w->carry, w->carryLength);
        memcpy(joined + w->carryLength, in, take);
        const size_t used = cleanAndEmit(w, joined, w->carryLength + take, false);
        if (used >= w->carryLength) {
            in += used - w->carryLength;
            length -= used - w->carryLength;
            w->carryLength = 0;
        } else {  // still not whole: the joined bytes are all one character's start
            memcpy(w->carry, joined, w->carryLength + take);
            w->carryLength += take;
            in += take;
            length -= take;
        }
    }
    while (length > 0 && w->error == 0) {
        const size_t chunk = length < kWriteChunk ? length : kWriteChunk;
        const size_t used = cleanAndEmit(w, in, chunk, false);
        if (used == 0) break;  // only the start of a character is left
        in += used;
        length -= used;
    }
    if (w->error == 0 && length > 0) {
        VESTRA_ASSERT(length < sizeof w->carry && w->carryLength == 0);
        memcpy(w->carry, in, length);
        w->carryLength = length;
    }
    if (w->error != 0) {
        errno = w->error;
        return -1;
    }
    return 0;
}

extern "C" int utrans_write_codepoint(struct utrans_writer* w, uint32_t codepoint) noexcept {
    char bytes[4];
    if (codepoint > 0x10FFFF || (codepoint >= 0xD800 && codepoint <= 0xDFFF)) {
        ++w->replacements;
        codepoint = 0xFFFD;
    }
    const size_t n = static_cast<size_t>(putUtf8(bytes, codepoint) - bytes);
    return utrans_write(w, bytes, n);
}

extern "C" uint64_t utrans_writer_replacements(const struct utrans_writer* w) noexcept {
    return w->replacements;
}

extern "C" int utrans_close_write(struct utrans_writer* w) noexcept {
    if (w->carryLength > 0 && w->error == 0) {
        static_cast<void>(cleanAndEmit(w, w->carry, w->carryLength, true));
    }
    if (w->error == 0) static_cast<void>(flushWriter(w));
    int error = w->error;
    const int closed = closeDescriptor(w->fd);
    if (error == 0) error = closed;
    free(w);
    return error;
}
