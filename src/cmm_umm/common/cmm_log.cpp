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
    const uint32_t suppressed = cmm_load_relaxed(&limiter->suppressed);
    if (suppressed == 0 || now - cmm_load_relaxed(&limiter->last_report) < REPORT_INTERVAL)
        return;

    zylog(CMM_MODULE_ID, level, file, line, func, REPORT_FLAG,
          "print: %u messages suppressed.%s,line=%d.", suppressed, func, int(line));
    cmm_store_relaxed(&limiter->last_report, now);
    cmm_store_relaxed(&limiter->suppressed, 0u);
}

bool cmm_log_limiter_admit(cmm_log_limiter *limiter, uint32_t level, const char *file,
                           uint32_t line, const char *func)
{
    const uint64_t now = zyax_get_jiffies();
    /* Signed: a line that another thread noted after this one's clock reading is not ages ago. */
    const int64_t since_last = int64_t(now - cmm_load_relaxed(&limiter->last_line));

    if (since_last < WINDOW) {
        if (cmm_load_relaxed(&limiter->written) > LINES_BEFORE_LIMIT) {
            cmm_atomic_add_relaxed(&limiter->suppressed, 1u);
            return false;
        }
    } else {
        cmm_store_relaxed(&limiter->written, 0u);
        report(limiter, now, level, file, line, func);
    }
    cmm_atomic_add_relaxed(&limiter->written, 1u);
    cmm_store_relaxed(&limiter->last_line, now);
    return true;
}
