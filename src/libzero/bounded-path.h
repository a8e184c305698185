/* A path built in a fixed buffer that the caller owns.
 *
 *   char buf[PATH_MAX];
 *   struct bounded_path p;
 *   bounded_path_init(&p, buf, sizeof buf);
 *   if (bounded_path_set(&p, dir, strlen(dir)) != 0 ||
 *       bounded_path_push(&p, name, strlen(name)) != 0)
 *       return ENAMETOOLONG;                        // p still holds what it held before
 *
 * Every change succeeds whole or fails and leaves the path exactly as it was: a path is never
 * cut short, which would name a different file. The buffer always holds a NUL-terminated
 * string. Usable where allocating is not (a crash handler): no allocation, no locks. */
#pragma once

#include <stddef.h>

#include "libzero/c-api.h"

LIBZERO_BEGIN_DECLARATIONS

/* The path and the caller's buffer it lives in; change it only through the functions below. */
struct bounded_path {
    char* buf;       /* the caller's buffer, holding the path and its NUL */
    size_t capacity; /* bytes in buf, the terminating NUL included */
    size_t length;   /* the path's length, the NUL not included */
};

/* buf must have room for at least the NUL (capacity >= 1); the path starts empty. */
void bounded_path_init(struct bounded_path* path, char* buf, size_t capacity) LIBZERO_NOEXCEPT;

/* Each returns 0, ENAMETOOLONG when the result would not fit, or EINVAL when the text holds a
 * NUL byte (it would end the string early). */

/* Replaces the whole path. */
int bounded_path_set(struct bounded_path* path, const char* text, size_t length) LIBZERO_NOEXCEPT;
/* Adds a component with one "/" before it (none after an empty path or one ending in "/";
 * leading slashes of the component are dropped). A component with a "/" inside adds several. */
int bounded_path_push(struct bounded_path* path, const char* component, size_t length) LIBZERO_NOEXCEPT;
/* Adds bytes as they are, with no separator: a suffix such as ".tmp". */
int bounded_path_append(struct bounded_path* path, const char* text, size_t length) LIBZERO_NOEXCEPT;

/* Removes the last component and the slashes before it; the root "/" stays. Returns 0, or
 * ENOENT when there is no component to remove. */
int bounded_path_pop(struct bounded_path* path) LIBZERO_NOEXCEPT;

/* The path, NUL-terminated (inside the caller's buffer), and its length. */
const char* bounded_path_str(const struct bounded_path* path) LIBZERO_NOEXCEPT;
size_t bounded_path_length(const struct bounded_path* path) LIBZERO_NOEXCEPT;

LIBZERO_END_DECLARATIONS
