#include "libzero/bounded-path.h"

#include <errno.h>
#include <string.h>

#include "basicutil/platform/Assert.h"

namespace {

bool holdsNul(const char* text, size_t length) noexcept {
    return length != 0 && memchr(text, '\0', length) != nullptr;
}

// Room for `extra` more bytes and the NUL, counted without overflow.
bool fits(const bounded_path* path, size_t extra) noexcept {
    return extra < path->capacity - path->length;
}

void terminate(bounded_path* path) noexcept {
    path->buf[path->length] = '\0';
}

}  // namespace

extern "C" void bounded_path_init(struct bounded_path* path, char* buf, size_t capacity) noexcept {
    VESTRA_ASSERT(buf != nullptr && capacity >= 1);
    path->buf = buf;
    path->capacity = capacity;
    path->length = 0;
    terminate(path);
}

extern "C" int bounded_path_set(struct bounded_path* path, const char* text, size_t length) noexcept {
    if (holdsNul(text, length)) return EINVAL;
    if (length >= path->capacity) return ENAMETOOLONG;
    memmove(path->buf, text, length);
    path->length = length;
    terminate(path);
    return 0;
}

extern "C" int bounded_path_push(struct bounded_path* path, const char* component, size_t length) noexcept {
    if (holdsNul(component, length)) return EINVAL;
    while (length > 0 && component[0] == '/') {
        ++component;
        --length;
    }
    if (length == 0) return 0;
    const bool separator = path->length > 0 && path->buf[path->length - 1] != '/';
    const size_t extra = length + (separator ? 1 : 0);
    if (!fits(path, extra)) return ENAMETOOLONG;
    if (separator) path->buf[path->length++] = '/';
    memmove(path->buf + path->length, component, length);
    path->length += length;
    terminate(path);
    return 0;
}

extern "C" int bounded_path_append(struct bounded_path* path, const char* text, size_t length) noexcept {
    if (holdsNul(text, length)) return EINVAL;
    if (!fits(path, length)) return ENAMETOOLONG;
    memmove(path->buf + path->length, text, length);
    path->length += length;
    terminate(path);
    return 0;
}

extern "C" int bounded_path_pop(struct bounded_path* path) noexcept {
    size_t end = path->length;
    while (end > 0 && path->buf[end - 1] == '/') --end;
    if (end == 0) return ENOENT;  // empty, or only the root
    while (end > 0 && path->buf[end - 1] != '/') --end;
    const size_t componentStart = end;
    while (end > 0 && path->buf[end - 1] == '/') --end;
    // "/a" leaves the root, "a" leaves nothing.
    path->length = end == 0 && componentStart > 0 ? 1 : end;
    terminate(path);
    return 0;
}

extern "C" const char* bounded_path_str(const struct bounded_path* path) noexcept {
    return path->buf;
}

extern "C" size_t bounded_path_length(const struct bounded_path* path) noexcept {
    return path->length;
}
