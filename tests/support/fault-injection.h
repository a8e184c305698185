/* Faults another process or the system could cause, made on demand, and counts of the calls that
 * make them, for the tests that must see the library's answer. Linked into a test program, each
 * function below takes the place of the C library's function of the same name for the whole
 * program. */
#ifndef VESTRA_TESTS_FAULT_INJECTION_H
#define VESTRA_TESTS_FAULT_INJECTION_H

#ifdef __cplusplus
extern "C" {
#endif

/* The next rename(2) whose source is exactly `from` fails with `error` (errno), without touching
 * the file system; every other rename goes through. error 0 cancels it. */
void vestra_fail_next_rename(const char* from, int error);

/* From now on, open(2) calls on exactly `path` are counted (and still made); the count starts at
 * 0. */
void vestra_count_opens_of(const char* path);
/* The calls counted since. */
int vestra_opens_counted(void);

/* From now on, the largest length a copy_file_range(2) call asks for is kept (the calls are still
 * made); it starts at 0. */
void vestra_record_copy_requests(void);
/* That length, and how many calls asked. */
unsigned long long vestra_largest_copy_request(void);
int vestra_copy_requests(void);

#ifdef __cplusplus
}
#endif

#endif
