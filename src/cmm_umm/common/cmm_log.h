/*
 * Log lines of the library.
 *
 *     CMM_LOG(ZYLOG_INFO, "...", ...)            one line: "[UMM_CMM] ..." if the level is enabled
 *     CMM_LOG_LIMITED(ZYLOG_ERROR, "...", ...)   the same through this call site's limiter
 *     CMM_LOG_RAW(ZYLOG_FATAL, "...", ...)       the few lines that carry no prefix
 *
 * The _AS forms take the function name that the line must carry: a helper that logs for its caller
 * passes the caller's name on, so that a line always names the operation a user called.
 *
 * The limiter lets a burst of three lines through, then one burst again after 900,000 jiffies
 * without a written line; how many it held back is reported at most every 9,000,000 jiffies.
 */
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include "zylog.h"
#include "zyumm_cmm_types.h"

/* State of one call site's limiter. Its fields are relaxed atomics: two threads that race through
 * it may let one line more through, and no log line is worth a lock. */
struct cmm_log_limiter {
    uint32_t written;     /* lines in the current window */
    uint32_t suppressed;  /* lines held back since the last report */
    uint64_t last_line;   /* jiffies of the last written line */
    uint64_t last_report; /* jiffies of the last report */
};

/* True when the line may be written; writes the limiter's own report first when one is due. */
bool cmm_log_limiter_admit(cmm_log_limiter *limiter, uint32_t level, const char *file,
                           uint32_t line, const char *func);

/* A text on its way into a %s; a null one is written as "(null)". */
inline const char *cmm_text(const char *text)
{
    return text != nullptr ? text : "(null)";
}

#define CMM_LOG_WRITE(func, level, ...) \
    zylog(CMM_MODULE_ID, (level), __FILE__, __LINE__, (func), 0, __VA_ARGS__)

#define CMM_LOG_RAW_AS(func, level, ...)                       \
    do {                                                       \
        if (zylog_level_check(CMM_MODULE_ID, (level)) == 0)    \
            CMM_LOG_WRITE(func, level, __VA_ARGS__);           \
    } while (0)

#define CMM_LOG_RAW(level, ...) CMM_LOG_RAW_AS(__func__, level, __VA_ARGS__)

#define CMM_LOG_AS(func, level, fmt, ...) \
    CMM_LOG_RAW_AS(func, level, "[UMM_CMM] " fmt __VA_OPT__(, ) __VA_ARGS__)

#define CMM_LOG(level, fmt, ...) CMM_LOG_AS(__func__, level, fmt __VA_OPT__(, ) __VA_ARGS__)

#define CMM_LOG_LIMITED_AS(func, level, fmt, ...)                                            \
    do {                                                                                     \
        static cmm_log_limiter cmm_limiter_;                                                 \
        if (zylog_level_check(CMM_MODULE_ID, (level)) == 0 &&                                \
            cmm_log_limiter_admit(&cmm_limiter_, (level), __FILE__, __LINE__, (func)))       \
            CMM_LOG_WRITE(func, level, "[UMM_CMM] " fmt __VA_OPT__(, ) __VA_ARGS__);         \
    } while (0)

#define CMM_LOG_LIMITED(level, fmt, ...) \
    CMM_LOG_LIMITED_AS(__func__, level, fmt __VA_OPT__(, ) __VA_ARGS__)

/* Ends the process after a broken invariant; the lines that say why are written before. */
[[noreturn]] inline void cmm_die(void)
{
    abort();
}
