/*
 * Log of the platform. One call writes one line; levels are syslog's numbers.
 *
 * Threads: any thread may call either function at any time; lines never mix.
 */
#ifndef ZYLOG_H
#define ZYLOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { ZYLOG_FATAL = 2, ZYLOG_ERROR = 3, ZYLOG_WARNING = 4, ZYLOG_INFO = 6 };

/* 0 when a line of this module and level would be written. One relaxed load, no lock. */
int zylog_level_check(uint32_t module_id, uint32_t level);

/*
 * Writes one line in printf format. `flag` is 0, or 256 for a rate limiter's report.
 * A fatal line is written out before the call returns; any other may only be queued.
 */
void zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line, const char *func,
           uint32_t flag, const char *format, ...) __attribute__((format(printf, 7, 8)));

#ifdef __cplusplus
}
#endif

#endif
