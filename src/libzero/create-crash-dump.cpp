#include "libzero/create-crash-dump.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "basicutil/platform/Assert.h"

namespace {

constexpr unsigned kMaxDigits = 20;  // 2^64 - 1 has 20 decimal digits

// Writes all n bytes or records the failure; EINTR retried, short writes continued.
void writeOut(crash_dump* d, const char* p, size_t n) noexcept {
    while (n > 0 && d->error == 0) {
        const ssize_t done = ::write(d->fd, p, n);
        if (done < 0) {
            if (errno == EINTR) continue;
            d->error = errno;
        } else if (done == 0) {
            d->error = EIO;  // a regular file or pipe that takes nothing will not take more
        } else {
            p += done;
            n -= static_cast<size_t>(done);
            d->written += static_cast<uint64_t>(done);
        }
    }
    if (n > 0) d->dropped += n;
}

void drain(crash_dump* d) noexcept {
    writeOut(d, d->buf, d->used);
    d->used = 0;
}

// Digits of value in `base`, at least `width` of them, from the end of `out`; returns the count.
unsigned digits(unsigned long long value, unsigned base, unsigned width, char (&out)[kMaxDigits]) noexcept {
    static const char kDigits[] = "0123456789abcdef";
    if (width > kMaxDigits) width = kMaxDigits;
    unsigned n = 0;
    do {
        out[kMaxDigits - 1 - n++] = kDigits[value % base];
        value /= base;
    } while (value != 0);
    while (n < width) out[kMaxDigits - 1 - n++] = '0';
    return n;
}

void putDigits(crash_dump* d, unsigned long long value, unsigned base, unsigned width) noexcept {
    char out[kMaxDigits];
    const unsigned n = digits(value, base, width, out);
    crash_dump_bytes(d, out + kMaxDigits - n, n);
}

// The civil date of a day count since 1970-01-01 (proleptic Gregorian): the 400-year cycle of
// 146097 days, counted from 0000-03-01 so that the leap day ends each year.
struct Civil {
    int64_t year;
    unsigned month, day;
};
Civil civilOf(int64_t days) noexcept {
    days += 719468;  // days from 0000-03-01 to 1970-01-01
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);  // [0, 146096]
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;  // [0, 399]
    const unsigned dayOfYear =
        dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);  // [0, 365], from March
    const unsigned monthFromMarch = (5 * dayOfYear + 2) / 153;           // [0, 11]
    Civil c;
    c.day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    c.month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    c.year = static_cast<int64_t>(yearOfEra) + era * 400 + (c.month <= 2 ? 1 : 0);
    return c;
}

struct Clock {
    Civil date;
    unsigned hour, minute, second;
};
Clock clockOf(int64_t seconds) noexcept {
    int64_t days = seconds / 86400;
    int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    const auto r = static_cast<unsigned>(rest);
    return {civilOf(days), r / 3600, r / 60 % 60, r % 60};
}

// "YYYY" with a sign below year 0 and more digits after 9999.
void putYear(crash_dump* d, int64_t year) noexcept {
    if (year < 0) {
        crash_dump_char(d, '-');
        putDigits(d, static_cast<unsigned long long>(-year), 10, 4);
    } else {
        putDigits(d, static_cast<unsigned long long>(year), 10, 4);
    }
}

}  // namespace

extern "C" void crash_dump_init(struct crash_dump* d, int fd) noexcept {
    d->fd = fd;
    d->owns_fd = 0;
    d->error = 0;
    d->used = 0;
    d->written = 0;
    d->dropped = 0;
}

extern "C" int crash_dump_create(struct crash_dump* d, const char* path) noexcept {
    int fd;
    do {
        fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return errno;
    crash_dump_init(d, fd);
    d->owns_fd = 1;
    return 0;
}

extern "C" void crash_dump_bytes(struct crash_dump* d, const char* text, size_t n) noexcept {
    if (d->error != 0) {
        d->dropped += n;
        return;
    }
    while (n > 0) {
        if (d->used == CRASH_DUMP_BUFFER) drain(d);
        if (d->used == 0 && n >= CRASH_DUMP_BUFFER) {  // large: straight out
            writeOut(d, text, n);
            return;
        }
        size_t take = CRASH_DUMP_BUFFER - d->used;
        if (take > n) take = n;
        memcpy(d->buf + d->used, text, take);
        d->used += take;
        text += take;
        n -= take;
    }
}

extern "C" void crash_dump_text(struct crash_dump* d, const char* text) noexcept {
    if (text != nullptr) crash_dump_bytes(d, text, strlen(text));
}

extern "C" void crash_dump_char(struct crash_dump* d, char c) noexcept {
    crash_dump_bytes(d, &c, 1);
}

extern "C" void crash_dump_dec(struct crash_dump* d, long long value) noexcept {
    if (value < 0) {
        crash_dump_char(d, '-');
        // The magnitude in unsigned arithmetic: -LLONG_MIN does not fit a long long.
        putDigits(d, 0ULL - static_cast<unsigned long long>(value), 10, 0);
    } else {
        putDigits(d, static_cast<unsigned long long>(value), 10, 0);
    }
}

extern "C" void crash_dump_udec(struct crash_dump* d, unsigned long long value, unsigned width) noexcept {
    putDigits(d, value, 10, width);
}

extern "C" void crash_dump_hex(struct crash_dump* d, unsigned long long value, unsigned width) noexcept {
    putDigits(d, value, 16, width);
}

extern "C" void crash_dump_utc(struct crash_dump* d, int64_t seconds, long microseconds) noexcept {
    VESTRA_ASSERT(microseconds >= 0 && microseconds < 1000000);
    const Clock c = clockOf(seconds);
    putYear(d, c.date.year);
    crash_dump_char(d, '-');
    putDigits(d, c.date.month, 10, 2);
    crash_dump_char(d, '-');
    putDigits(d, c.date.day, 10, 2);
    crash_dump_char(d, ' ');
    putDigits(d, c.hour, 10, 2);
    crash_dump_char(d, ':');
    putDigits(d, c.minute, 10, 2);
    crash_dump_char(d, ':');
    putDigits(d, c.second, 10, 2);
    crash_dump_char(d, '.');
    putDigits(d, static_cast<unsigned long long>(microseconds), 10, 6);
    crash_dump_text(d, " UTC");
}

extern "C" void crash_dump_utc_compact(int64_t seconds, char out[17]) noexcept {
    const Clock c = clockOf(seconds);
    // Years 0 to 9999 fit the 16 bytes; others are clamped, as no crash happens there.
    const int64_t year = c.date.year < 0 ? 0 : c.date.year > 9999 ? 9999 : c.date.year;
    const unsigned fields[] = {
        static_cast<unsigned>(year), c.date.month, c.date.day, c.hour, c.minute, c.second};
    const unsigned widths[] = {4, 2, 2, 2, 2, 2};
    size_t at = 0;
    for (int i = 0; i < 6; ++i) {
        if (i == 3) out[at++] = 'T';
        char digitsOut[kMaxDigits];
        const unsigned n = digits(fields[i], 10, widths[i], digitsOut);
        memcpy(out + at, digitsOut + kMaxDigits - n, n);
        at += n;
    }
    out[at++] = 'Z';
    out[at] = '\0';
    VESTRA_ASSERT(at == 16);
}

extern "C" size_t crash_dump_format_udec(unsigned long long value, char out[21]) noexcept {
    char digitsOut[kMaxDigits];
    const unsigned n = digits(value, 10, 0, digitsOut);
    memcpy(out, digitsOut + kMaxDigits - n, n);
    out[n] = '\0';
    return n;
}

extern "C" int crash_dump_flush(struct crash_dump* d) noexcept {
    drain(d);
    return d->error;
}

extern "C" int crash_dump_close(struct crash_dump* d) noexcept {
    drain(d);
    if (d->owns_fd != 0) {
        // A log that reached the disk survives the machine's crash too, when there is one.
        if (d->error == 0 && ::fsync(d->fd) != 0 && errno != EINVAL) d->error = errno;
        if (::close(d->fd) != 0 && d->error == 0 && errno != EINTR) d->error = errno;
        d->owns_fd = 0;
    }
    return d->error;
}
