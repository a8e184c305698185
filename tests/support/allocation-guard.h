/* The C library's allocation functions, replaced for a whole test program so that a test can
 * count allocations or forbid them: from vestra_forbid_allocations(1) on, a call of malloc, calloc
 * or realloc writes "allocation where the test forbids one" to standard error and ends the process
 * with status 97. Everything else goes to the C library's own functions. */
#ifndef VESTRA_TESTS_ALLOCATION_GUARD_H
#define VESTRA_TESTS_ALLOCATION_GUARD_H

#ifdef __cplusplus
extern "C" {
#endif

/* 1 forbids, 0 allows again. */
void vestra_forbid_allocations(int on);
/* Calls of malloc, calloc and realloc so far. */
unsigned long vestra_allocations(void);

#ifdef __cplusplus
}
#endif

#endif
