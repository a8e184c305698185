/* What lets each libzero header be read by C and C++ alike: C linkage for C++ callers, their
 * noexcept, and functions defined in a header (inline, or constexpr, in C++; static inline in C).
 * The library itself is C++ inside: a C program links it with a C++ compiler driver. */
#pragma once

#ifdef __cplusplus
#define LIBZERO_BEGIN_DECLARATIONS extern "C" { /* C linkage from here */
#define LIBZERO_END_DECLARATIONS }              /* ... to here */
#define LIBZERO_NOEXCEPT noexcept               /* none of the functions throws */
#define LIBZERO_INLINE inline                   /* a function defined in its header */
#define LIBZERO_CONSTEXPR constexpr             /* the same, usable in constant expressions */
#else
#define LIBZERO_BEGIN_DECLARATIONS      /* C linkage from here (nothing to say in C) */
#define LIBZERO_END_DECLARATIONS        /* ... to here */
#define LIBZERO_NOEXCEPT                /* none of the functions throws */
#define LIBZERO_INLINE static inline    /* a function defined in its header */
#define LIBZERO_CONSTEXPR static inline /* the same (C has no constant-expression functions) */
#endif
