/*
 * How many pages there are, are out, and have leaked.
 *
 * The maximum comes from the configuration and not from the slab, so that the counts and the
 * eviction threshold speak of the same number; the rest is asked from the layers below.
 *
 *     operation                  without a maximum   without a pool
 *     ------------------------   -----------------   -------------------
 *     get_page_count             zeros, no line      zeros, an error line
 *     zyumm_page_leak_size_get   0, no line          0, no line
 *     zyumm_page_usage_dump      asks the slab layer, whatever it says to handle 0
 *
 * The eviction timer asks at every tick, also after a stop, which is why the line about a missing
 * pool passes the limiter. No lock: each number is a moment's view.
 */
#include "page_local.h"

#include "zyumm_cmm.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

void get_page_count(uint64_t *total, uint64_t *used, uint64_t *free)
{
    if (free == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_free is NULL.");
        return;
    }
    if (total == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_total is NULL.");
        return;
    }
    if (used == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_used is NULL.");
        return;
    }
    *total = 0;
    *used = 0;
    *free = 0;
    /* Relaxed: the eviction timer may ask while a new start reads the configuration again. */
    const uint32_t max = cmm_load_relaxed(&g_ucmm_config.page_max);
    if (max == 0)
        return;

    const uint64_t slab = page_pool_handle();
    if (slab == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page part not init.");
        return;
    }
    *total = max;
    *used = mmGetUesdInfo(slab);
    *free = *total - *used;
}

void zyumm_page_useinfo_get(uint64_t *total, uint64_t *used, uint64_t *free)
{
    get_page_count(total, used, free);
}

uint64_t zyumm_page_leak_size_get(void)
{
    const uint64_t slab = page_pool_handle();
    if (cmm_load_relaxed(&g_ucmm_config.page_max) == 0 || slab == 0)
        return 0;

    return zymm_slab_get_leak_number(slab) * PAGE_OBJECT_SIZE;
}

int zyumm_page_usage_dump(void)
{
    zymm_slab_dump_usageinfo(page_pool_handle(), CMM_SELF);
    return zymm_slab_dump_detailinfo(page_pool_handle(), CMM_SELF);
}

/* sic: kept for components that were built against it; the slab layer tracks owners by itself. */
void updateSglPageOwner(SGL *, uint32_t, const char *, uint32_t)
{
}
