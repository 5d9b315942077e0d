/*
 * Host interface of the bounded copy: which code moves the bytes of memcpy_s.
 *
 *     "libc"      the C library's memcpy
 *     "sse2"      vectors of 16 bytes
 *     "avx2"      vectors of 32 bytes for a sector's data
 *     "avx512"    vectors of 64 bytes for a sector's data
 *
 * When the library is loaded it takes the widest that the processor has, or "libc" in a build with
 * a sanitizer and under Valgrind, which watch the C library's copies best. A process needs none of
 * this; it serves comparisons and tests.
 *
 * Threads: any. A copy under way ends with the code that it began with.
 */
#ifndef ZYAX_COPY_H
#define ZYAX_COPY_H

#ifdef __cplusplus
extern "C" {
#endif

/* The name of the code in use; never null. */
const char *zyax_copy_kernel(void);

/*
 * Takes the code called `name` from the next copy on.
 *
 * Returns 0; -1 when `name` is null, unknown, or names code that this build or processor lacks.
 *
 * Logs: error, when it fails.
 */
int zyax_copy_kernel_set(const char *name);

#ifdef __cplusplus
}
#endif

#endif
