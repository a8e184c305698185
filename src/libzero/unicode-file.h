/* Unicode text files: readers that give UTF-8 whatever the file holds (UTF-8 with or without a
 * byte-order mark, UTF-16 little- or big-endian), and writers that take UTF-8 and write any of
 * those forms.
 *
 *   int error;
 *   struct utrans_reader* r = utrans_open_read(path, UTRANS_DETECT, &error);
 *   if (r == NULL) return error;
 *   char buf[4096];
 *   ptrdiff_t n;
 *   while ((n = utrans_read(r, buf, sizeof buf)) > 0) consume(buf, n);
 *   if (utrans_replacements(r) != 0) warn(utrans_first_replacement(r));
 *   error = utrans_close_read(r);
 *
 * Malformed input is never fatal: each maximal ill-formed part (a bad lead byte, a sequence cut
 * short, an overlong form, a surrogate in UTF-8, an unpaired UTF-16 surrogate, a last odd byte)
 * becomes one U+FFFD, and the reader counts them and keeps the input offset of the first. The
 * output is always well-formed UTF-8. Reading is buffered; nothing reads a whole file at once. */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* The encodings files are read and written in. */
enum utrans_encoding {
    UTRANS_DETECT, /* readers: by the byte-order mark, UTF-8 without one */
    UTRANS_UTF8,
    UTRANS_UTF16LE,
    UTRANS_UTF16BE,
};

/* "UTF-8", "UTF-16LE", "UTF-16BE" ("detect" for UTRANS_DETECT). */
const char* utrans_encoding_name(enum utrans_encoding encoding) LIBZERO_NOEXCEPT;

/* --- Conversion of a buffer, the readers' core --- */

/* Converts `length` bytes of `encoding` (not UTRANS_DETECT) to UTF-8 in `out`, which must have
 * room for utrans_output_bound(length) bytes. Without `final`, an incomplete sequence at the end
 * is left unconsumed (the caller passes it again with more bytes); with it, it becomes U+FFFD.
 * Returns the bytes written; `*consumed` says how much input was used, `*replacements` grows by
 * the U+FFFD written, and `*first_bad` (if not null, and still UINT64_MAX) gets the offset in
 * `in` of the first ill-formed part. A byte-order mark is not treated specially here. */
LIBZERO_CONSTEXPR size_t utrans_output_bound(size_t length) LIBZERO_NOEXCEPT {
    return 3 * length + 4;
}
size_t utrans_convert(enum utrans_encoding encoding, const unsigned char* in, size_t length, int final,
                      size_t* consumed, char* out, uint64_t* replacements,
                      uint64_t* first_bad) LIBZERO_NOEXCEPT;

/* --- Readers --- */

struct utrans_reader;

/* Opens `path` (close-on-exec); on failure returns NULL with `*error` set to the errno value. */
struct utrans_reader* utrans_open_read(const char* path, enum utrans_encoding encoding,
                                       int* error) LIBZERO_NOEXCEPT;
/* Reads from `fd`, which the reader then owns and closes. */
struct utrans_reader* utrans_fdopen_read(int fd, enum utrans_encoding encoding, int* error) LIBZERO_NOEXCEPT;

/* Up to `capacity` bytes of UTF-8 (never a character cut in two; capacity >= 4). Returns the
 * bytes given, 0 at the end of the file, or -1 with errno on a read error. */
ptrdiff_t utrans_read(struct utrans_reader* reader, char* out, size_t capacity) LIBZERO_NOEXCEPT;
#define UTRANS_END (-1)   /* utrans_read_codepoint: the end of the file */
#define UTRANS_ERROR (-2) /* utrans_read_codepoint: a read error */
/* The next codepoint, UTRANS_END at the end, or UTRANS_ERROR with errno on a read error. */
int32_t utrans_read_codepoint(struct utrans_reader* reader) LIBZERO_NOEXCEPT;

/* The encoding read (once the first bytes are in, for UTRANS_DETECT), and whether the file
 * started with a byte-order mark (which is never passed on). */
enum utrans_encoding utrans_reader_encoding(struct utrans_reader* reader) LIBZERO_NOEXCEPT;
int utrans_reader_had_bom(struct utrans_reader* reader) LIBZERO_NOEXCEPT;
/* U+FFFD written for malformed input so far, and the file offset of the first (UINT64_MAX if
 * none). */
uint64_t utrans_replacements(const struct utrans_reader* reader) LIBZERO_NOEXCEPT;
uint64_t utrans_first_replacement(const struct utrans_reader* reader) LIBZERO_NOEXCEPT;
/* Closes and frees; returns 0 or the errno value of a failed close. */
int utrans_close_read(struct utrans_reader* reader) LIBZERO_NOEXCEPT;

/* --- Writers --- */

struct utrans_writer;

/* How a writer opens its file: a bitwise or of these. */
enum utrans_write_flags {
    UTRANS_WRITE_BOM = 1,    /* start the file with a byte-order mark */
    UTRANS_WRITE_APPEND = 2, /* add to the end instead of truncating (no mark is written then) */
};

/* Creates or truncates `path` (mode as for open, before the umask); NULL with `*error` on
 * failure. `encoding` is UTRANS_UTF8, UTRANS_UTF16LE or UTRANS_UTF16BE. */
struct utrans_writer* utrans_open_write(const char* path, enum utrans_encoding encoding, int flags,
                                        mode_t mode, int* error) LIBZERO_NOEXCEPT;
/* Writes to `fd`, which the writer then owns and closes. */
struct utrans_writer* utrans_fdopen_write(int fd, enum utrans_encoding encoding, int flags,
                                          int* error) LIBZERO_NOEXCEPT;
/* Takes UTF-8; a character may be split across calls. Malformed UTF-8 is written as U+FFFD and
 * counted. Returns 0, or -1 with errno when writing failed. */
int utrans_write(struct utrans_writer* writer, const char* utf8, size_t length) LIBZERO_NOEXCEPT;
/* Codepoints above U+10FFFF and surrogates are written as U+FFFD and counted. */
int utrans_write_codepoint(struct utrans_writer* writer, uint32_t codepoint) LIBZERO_NOEXCEPT;
/* U+FFFD written for malformed input so far. */
uint64_t utrans_writer_replacements(const struct utrans_writer* writer) LIBZERO_NOEXCEPT;
/* Writes what is buffered (a dangling partial character as U+FFFD) and frees. Returns 0 or the
 * errno value of the first failure (write or close); the writer is freed either way. */
int utrans_close_write(struct utrans_writer* writer) LIBZERO_NOEXCEPT;

LIBZERO_END_DECLARATIONS
