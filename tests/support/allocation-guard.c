/* The C library's malloc, calloc and realloc found through dlsym(RTLD_NEXT); dlsym itself may
 * allocate while they are being found, which a small static arena serves. */
#include "support/allocation-guard.h"

#include <dlfcn.h>
#include <stddef.h>
#include <string.h>
#include <unistd.h>

static volatile int g_forbidden;
static volatile unsigned long g_allocations;

void vestra_forbid_allocations(int on) {
    g_forbidden = on;
}

unsigned long vestra_allocations(void) {
    return g_allocations;
}

static void refuse(void) {
    static const char text[] = "allocation where the test forbids one\n";
    if (write(STDERR_FILENO, text, sizeof text - 1) < 0) {
        /* the status says it all the same */
    }
    _exit(97);
}

static char g_arena[8192];
static size_t g_arenaUsed;
static int g_resolving;

static void* fromArena(size_t n) {
    n = (n + 15) & ~(size_t)15;
    if (n > sizeof g_arena - g_arenaUsed) return NULL;
    void* p = g_arena + g_arenaUsed;
    g_arenaUsed += n;
    return p;
}

static int inArena(const void* p) {
    return (const char*)p >= g_arena && (const char*)p < g_arena + sizeof g_arena;
}

typedef void* (*MallocFunction)(size_t);
typedef void* (*CallocFunction)(size_t, size_t);
typedef void* (*ReallocFunction)(void*, size_t);
typedef void (*FreeFunction)(void*);
static MallocFunction g_malloc;
static CallocFunction g_calloc;
static ReallocFunction g_realloc;
static FreeFunction g_free;

static void resolve(void) {
    if (g_malloc != NULL || g_resolving) return;
    g_resolving = 1;
    void* found = dlsym(RTLD_NEXT, "malloc");
    memcpy(&g_malloc, &found, sizeof g_malloc);
    found = dlsym(RTLD_NEXT, "calloc");
    memcpy(&g_calloc, &found, sizeof g_calloc);
    found = dlsym(RTLD_NEXT, "realloc");
    memcpy(&g_realloc, &found, sizeof g_realloc);
    found = dlsym(RTLD_NEXT, "free");
    memcpy(&g_free, &found, sizeof g_free);
    g_resolving = 0;
}

void* malloc(size_t n) {
    if (g_forbidden) refuse();
    ++g_allocations;
    resolve();
    return g_malloc != NULL ? g_malloc(n) : fromArena(n);
}

void* calloc(size_t count, size_t size) {
    if (g_forbidden) refuse();
    ++g_allocations;
    resolve();
    if (g_calloc != NULL) return g_calloc(count, size);
    void* p = size != 0 && count > ((size_t)-1) / size ? NULL : fromArena(count * size);
    if (p != NULL) memset(p, 0, count * size);  /* the arena is zero until handed out */
    return p;
}

void* realloc(void* p, size_t n) {
    if (g_forbidden) refuse();
    ++g_allocations;
    resolve();
    if (p != NULL && inArena(p)) {
        /* Out of the arena: the old size is not known, so copy what the arena can hold after it. */
        void* q = g_malloc != NULL ? g_malloc(n) : fromArena(n);
        const size_t room = (size_t)(g_arena + sizeof g_arena - (char*)p);
        if (q != NULL) memcpy(q, p, n < room ? n : room);
        return q;
    }
    return g_realloc != NULL ? g_realloc(p, n) : fromArena(n);
}

void free(void* p) {
    if (p == NULL || inArena(p)) return;
    resolve();
    if (g_free != NULL) g_free(p);
}
