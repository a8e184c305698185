/* rename(2) that fails once when asked to, open(2) that counts, and copy_file_range(2) that keeps
 * the lengths asked for (fault-injection.h). Written
 * in C: a C++ definition would have to repeat whether the C library declares these noexcept,
 * which differs between systems. Not thread-safe: a test arms it while no other thread works. */
#undef _FORTIFY_SOURCE /* its inline open() wrapper would stand in the way of this one */
#ifndef _GNU_SOURCE    /* glibc declares copy_file_range with it, so the definition is checked */
#define _GNU_SOURCE
#endif

#include "support/fault-injection.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static char g_renameFrom[4096];
static int g_renameError;
static char g_openPath[4096];
static int g_opens;

static int copyPath(char (*to)[4096], const char* from) {
    const size_t n = strlen(from);
    if (n >= sizeof *to) return 0;
    memcpy(*to, from, n + 1);
    return 1;
}

void vestra_fail_next_rename(const char* from, int error) {
    if (copyPath(&g_renameFrom, from)) g_renameError = error;
}

int rename(const char* from, const char* to) {
    if (g_renameError != 0 && strcmp(from, g_renameFrom) == 0) {
        errno = g_renameError;
        g_renameError = 0;
        return -1;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

void vestra_count_opens_of(const char* path) {
    if (copyPath(&g_openPath, path)) g_opens = 0;
}

int vestra_opens_counted(void) {
    return g_opens;
}

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = (mode_t)va_arg(arguments, int);
        va_end(arguments);
    }
    if (strcmp(path, g_openPath) == 0) ++g_opens;
    return openat(AT_FDCWD, path, flags, mode);
}

static unsigned long long g_largestCopy;
static int g_copies;

void vestra_record_copy_requests(void) {
    g_largestCopy = 0;
    g_copies = 0;
}

unsigned long long vestra_largest_copy_request(void) {
    return g_largestCopy;
}

int vestra_copy_requests(void) {
    return g_copies;
}

typedef ssize_t (*CopyFileRange)(int, off_t*, int, off_t*, size_t, unsigned int);

ssize_t copy_file_range(int in, off_t* inOffset, int out, off_t* outOffset, size_t length,
                        unsigned int flags) {
    static CopyFileRange real;
    if (real == NULL) {
        /* The C library's own definition, next in the lookup order after this one. */
        void* found = dlsym(RTLD_NEXT, "copy_file_range");
        if (found == NULL) {
            errno = ENOSYS;
            return -1;
        }
        memcpy(&real, &found, sizeof real);
    }
    ++g_copies;
    if (length > g_largestCopy) g_largestCopy = length;
    return real(in, inOffset, out, outOffset, length, flags);
}
