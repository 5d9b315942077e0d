/*
 * The layer's own seam and host headers with default visibility (everything else is compiled
 * hidden), its log line, and what its sources know of each other.
 */
#pragma once

#include <stdint.h>

#pragma GCC visibility push(default)
#include "zyumm.h"
#pragma GCC visibility pop

#include "zylog.h"
#include "zymm_private.h"
#include "zyumm_pub.h"

namespace zyumm
{

inline const char *text_of(const char *text)
{
    return text != nullptr ? text : "(null)";
}

/* True when a partition of this id exists. */
bool partition_exists(uint64_t id);

} // namespace zyumm

/* One error line in the name of the operation `func`. Never called with a lock held. */
#define ZYUMM_ERROR(func, ...)                                                             \
    do {                                                                                   \
        if (zylog_level_check(ZYUMM_MODULE_ID, ZYLOG_ERROR) == 0)                          \
            zylog(ZYUMM_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, (func), 0, __VA_ARGS__); \
    } while (0)
