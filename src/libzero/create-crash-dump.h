/* The crash-log writer: what a fatal-signal handler writes goes through it.
 *
 *   struct crash_dump d;
 *   if (crash_dump_create(&d, path) != 0)     // exclusive creation, mode 0600
 *       crash_dump_init(&d, 2);               // or standard error, in full
 *   crash_dump_text(&d, "Signal: ");
 *   crash_dump_dec(&d, signo);
 *   crash_dump_hex(&d, address, 16);          // 16 digits, zero-padded
 *   crash_dump_close(&d);                     // 0, or the first error
 *
 * Async-signal-safe from end to end: no allocation, no lock, no stdio and no C-library
 * formatting; only open, write, fsync and close, each result checked. Text collects in the
 * structure's own buffer (CRASH_DUMP_BUFFER bytes) and goes out whenever it is full and at
 * crash_dump_flush/close. A write interrupted by a signal is retried, a short write continued;
 * the first failure is kept in `error` and everything after it is dropped (counted in
 * `dropped`), so a full disk ends the log, never the handler. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* Bytes collected before they are written. */
#define CRASH_DUMP_BUFFER 4096

/* One log being written; change it only through the functions below. */
struct crash_dump {
    int fd;                      /* where the text goes */
    int owns_fd;                 /* crash_dump_close closes it (crash_dump_create opened it) */
    int error;                   /* the first failed call's errno, 0 while none */
    size_t used;                 /* bytes waiting in buf */
    uint64_t written;            /* bytes the descriptor took */
    uint64_t dropped;            /* bytes given after a failure, not written */
    char buf[CRASH_DUMP_BUFFER]; /* the text not yet written */
};

/* Writes to `fd`, which stays open at close (standard error, say). */
void crash_dump_init(struct crash_dump* d, int fd) LIBZERO_NOEXCEPT;
/* Creates `path` (it must not exist: O_EXCL, mode 0600, close-on-exec) and writes there. Returns 0,
 * or the open's errno with `d` untouched. */
int crash_dump_create(struct crash_dump* d, const char* path) LIBZERO_NOEXCEPT;

/* Text: n bytes, a NUL-terminated string (nothing for a null pointer), one byte. */
void crash_dump_bytes(struct crash_dump* d, const char* text, size_t n) LIBZERO_NOEXCEPT;
void crash_dump_text(struct crash_dump* d, const char* text) LIBZERO_NOEXCEPT;
void crash_dump_char(struct crash_dump* d, char c) LIBZERO_NOEXCEPT;
/* Numbers: decimal, signed or not, at least `width` digits (zero-padded; 0 for none); hexadecimal
 * in lower case with no prefix, at least `width` digits. A width above 20 counts as 20. */
void crash_dump_dec(struct crash_dump* d, long long value) LIBZERO_NOEXCEPT;
void crash_dump_udec(struct crash_dump* d, unsigned long long value, unsigned width) LIBZERO_NOEXCEPT;
void crash_dump_hex(struct crash_dump* d, unsigned long long value, unsigned width) LIBZERO_NOEXCEPT;
/* A time as "YYYY-MM-DD HH:MM:SS.uuuuuu UTC", computed here (the C library's time functions take
 * locks and read files): seconds since 1970 and microseconds (0 to 999999). */
void crash_dump_utc(struct crash_dump* d, int64_t seconds, long microseconds) LIBZERO_NOEXCEPT;

/* The same time as "YYYYMMDDTHHMMSSZ" (16 bytes and a NUL), for file names; `out` holds 17 bytes. */
void crash_dump_utc_compact(int64_t seconds, char out[17]) LIBZERO_NOEXCEPT;
/* The decimal digits of `value` and a NUL into `out`, which holds 21 bytes; returns the digits'
 * count. For building names before a dump exists. */
size_t crash_dump_format_udec(unsigned long long value, char out[21]) LIBZERO_NOEXCEPT;

/* Writes what waits in the buffer. Returns 0, or the first error so far. */
int crash_dump_flush(struct crash_dump* d) LIBZERO_NOEXCEPT;
/* Flushes; for a created file also fsyncs and closes it. Returns 0, or the first error. */
int crash_dump_close(struct crash_dump* d) LIBZERO_NOEXCEPT;

LIBZERO_END_DECLARATIONS
