/*
 * Bounded copies and formatting.
 *
 * memcpy_s carries the data of every I/O: three comparisons, then a jump into the C library's
 * memcpy.
 */
#include "zyax_local.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

int memcpy_s(void *dst, size_t dst_max, const void *src, size_t count)
{
    if (dst == nullptr || src == nullptr || count > dst_max)
        return EINVAL;

    /* Unsigned distances: one of them is below the count exactly when the ranges overlap. */
    const uintptr_t to = reinterpret_cast<uintptr_t>(dst);
    const uintptr_t from = reinterpret_cast<uintptr_t>(src);
    if (to - from < count || from - to < count)
        return EINVAL;

    memcpy(dst, src, count);
    return 0;
}

int memset_s(void *dst, size_t dst_max, int value, size_t count)
{
    if (dst == nullptr || count > dst_max)
        return EINVAL;

    memset(dst, value, count);
    return 0;
}

int strncpy_s(char *dst, size_t dst_max, const char *src, size_t count)
{
    if (dst == nullptr || dst_max == 0)
        return EINVAL;
    if (src == nullptr) {
        dst[0] = '\0';
        return EINVAL;
    }

    /* Never more is read of the source than decides the question. */
    const size_t length = strnlen(src, count < dst_max ? count : dst_max);
    if (length == dst_max) {
        dst[0] = '\0';
        return ERANGE;
    }
    memmove(dst, src, length);
    dst[length] = '\0';
    return 0;
}

int snprintf_s(char *dst, size_t dst_max, size_t count, const char *format, ...)
{
    if (dst == nullptr || dst_max == 0 || format == nullptr)
        return -1;

    const size_t room = count < dst_max ? count + 1 : dst_max;
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(dst, room, format, args);
    va_end(args);
    if (length < 0)
        dst[0] = '\0';
    return length >= 0 && size_t(length) < room ? length : -1;
}
