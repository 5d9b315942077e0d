/*
 * Bounded filling and formatting; bounded_copy.cpp copies.
 */
#include "zyax_local.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

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
