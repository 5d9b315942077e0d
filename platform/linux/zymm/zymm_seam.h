/*
 * The layer's own seam and host headers with default visibility (everything else is compiled
 * hidden), its log line, and the text that stands for a null one.
 */
#pragma once

#include <stdint.h>

#pragma GCC visibility push(default)
#include "zymm.h"
#pragma GCC visibility pop

#include "zylog.h"
#include "zymm_host.h"

namespace zymm
{

inline const char *text_of(const char *text)
{
    return text != nullptr ? text : "(null)";
}

} // namespace zymm

/* One line in the name of the operation `func`. Never called with a slab's or pool's lock held. */
#define ZYMM_LOG(func, level, ...)                                                        \
    do {                                                                                  \
        if (zylog_level_check(ZYMM_MODULE_ID, (level)) == 0)                              \
            zylog(ZYMM_MODULE_ID, (level), __FILE__, __LINE__, (func), 0, __VA_ARGS__);   \
    } while (0)

#define ZYMM_ERROR(func, ...) ZYMM_LOG(func, ZYLOG_ERROR, __VA_ARGS__)
#define ZYMM_WARN(func, ...)  ZYMM_LOG(func, ZYLOG_WARNING, __VA_ARGS__)
