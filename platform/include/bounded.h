/*
 * Memory and text functions that know the size of their destination.
 *
 * Threads: all of them are pure functions of their arguments.
 */
#ifndef BOUNDED_H
#define BOUNDED_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies `count` bytes. 0; non-zero, and nothing copied, when a pointer is null, count > dst_max
 * or the ranges overlap. A count of 0 with valid pointers succeeds.
 */
int memcpy_s(void *dst, size_t dst_max, const void *src, size_t count);

/* Fills `count` bytes. 0; non-zero, and nothing written, when dst is null or count > dst_max. */
int memset_s(void *dst, size_t dst_max, int value, size_t count);

/*
 * Copies at most `count` characters and a terminator. 0; non-zero, and an empty destination, when
 * the source is null or the text does not fit. A text longer than `count` is cut silently.
 */
int strncpy_s(char *dst, size_t dst_max, const char *src, size_t count);

/*
 * Formats at most `count` characters and a terminator. The length; -1 when the text has more than
 * `count` characters (it is left cut and terminated) or an argument is bad.
 */
int snprintf_s(char *dst, size_t dst_max, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
