/*
 * Rate limiter of the log lines: what one call site may write.
 *
 *     lines   | | | x x x x x             | | | x x ...     | = written, x = suppressed
 *     jiffies 0 1 2 ...         900,002 later: window over
 *
 * A window is not a fixed stretch of time: it lasts until 900,000 jiffies have passed since its
 * last written line, so a call site that complains all the time gets one burst of three lines in
 * each window. The report of what was held back is due only at the end of a window and at most
 * every 9,000,000 jiffies; until then the count goes on growing.
 *
 * Locking: none. The state belongs to the call site and its fields are relaxed atomics; threads
 * that pass at the same moment may let one line more through, but a suppressed line is never
 * reported twice, nor lost.
 *
 * The clock is read once a line, and only for a line whose level is enabled: the macros ask first.
 */
#include "common/cmm_log.h"

#include "common/cmm_atomic.h"

/* All in jiffies, of 1 ms. */
static constexpr int64_t  WINDOW          = 900000;
static constexpr uint64_t REPORT_INTERVAL = 9000000;

static constexpr uint32_t LINES_BEFORE_LIMIT = 2; /* one more line still passes: a burst is 3 */
static constexpr uint32_t REPORT_FLAG        = 256;

/* Writes how many lines were held back, when some were and the last report is long enough ago. */
static void report(cmm_log_limiter *limiter, uint64_t now, uint32_t level, const char *file,
                   uint32_t line, const char *func)
{
    if (now - cmm_load_relaxed(&limiter->last_report) < REPORT_INTERVAL)
        return;

    /* Taken in one step: of two threads here only one has something to report. */
    const uint32_t suppressed = cmm_atomic_exchange_relaxed(&limiter->suppressed, 0u);
    if (suppressed == 0)
        return;

    cmm_store_relaxed(&limiter->last_report, now);
    zylog(CMM_MODULE_ID, level, file, line, func, REPORT_FLAG,
          "print: %u messages suppressed.%s,line=%d.", suppressed, func, int(line));
}

bool cmm_log_limiter_admit(cmm_log_limiter *limiter, uint32_t level, const char *file,
                           uint32_t line, const char *func)
{
    const uint64_t now = zyax_get_jiffies();
    /* Signed: a line that another thread noted after this one's clock reading is not ages ago. */
    const int64_t since_last = int64_t(now - cmm_load_relaxed(&limiter->last_line));

    if (since_last >= WINDOW) {
        cmm_store_relaxed(&limiter->written, 0u);
        report(limiter, now, level, file, line, func);
    } else if (cmm_load_relaxed(&limiter->written) > LINES_BEFORE_LIMIT) {
        cmm_atomic_add_relaxed(&limiter->suppressed, 1u);
        return false;
    }

    cmm_atomic_add_relaxed(&limiter->written, 1u);
    cmm_store_relaxed(&limiter->last_line, now);
    return true;
}
