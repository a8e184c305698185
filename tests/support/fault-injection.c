/* rename(2) that fails once when asked to, and open(2) that counts (fault-injection.h). Written
 * in C: a C++ definition would have to repeat whether the C library declares these noexcept,
 * which differs between systems. Not thread-safe: a test arms it while no other thread works. */
#undef _FORTIFY_SOURCE /* its inline open() wrapper would stand in the way of this one */

#include "support/fault-injection.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

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
