/*
 * The configuration for callers who count in bytes, and the way in for a buffer pool that was made
 * elsewhere. One record serves both:
 *
 *     zyumm_cmm_config_info_get     g_ucmm_config (KiB, pages) ----> cmm_config_info (bytes)
 *     zyumm_cmm_pool_info_set       io_pool's handle           <---- cmm_config_info.pool_id
 *
 * A report writes only what it reports: callers prepare the other words, pool_id among them, and
 * may pass the same record on to the setter.
 *
 * Locking: none; the configuration is written at the start, and the handle by one set-up thread.
 */
#include "zyumm_cmm_buffer.h"

#include "zyumm_cmm.h"

#include "common/cmm_log.h"

static constexpr uint32_t OBJECT_ALIGN = 8;

static void report_pool(cmm_pool_info *info, const cmm_pool_quota &quota)
{
    info->reserve_size  = quota.reserve_size << 10;
    info->max_size      = quota.max_size << 10;
    info->extand_size   = quota.extand_size << 10;
    info->fourth_size   = quota.fourth_size << 10;
    info->max_limit     = quota.max_limit;
    info->leak_rate     = quota.leak_rate;
    info->dontfork_flag = quota.dontfork_flag;
}

uint32_t zyumm_cmm_config_info_get(cmm_config_info *info)
{
    if (info == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Cmm config info get failed, param is NULL.");
        return CMM_FAILURE;
    }

    const cmm_config &config = g_ucmm_config;
    report_pool(&info->normal_pool, config.normal_pool);
    report_pool(&info->io_pool, config.io_pool);
    info->rdma_flag  = config.rdma_flag;
    info->cache_size = uint64_t{config.cache_size} << 10;
    info->page_max   = config.page_max;

    /* sic: whole objects, pages with their control records, where the buffer pool's creation adds
     * room for pages without; callers compare these two figures with the page pool's memory. */
    const uint64_t page = zymm_object_whole_size_get(PAGE_OBJECT_SIZE, 0, OBJECT_ALIGN);
    info->page_min_size = config.page_min * page;
    info->page_max_size = config.page_max * page;
    return CMM_OK;
}

uint32_t zyumm_cmm_pool_info_set(const cmm_config_info *info, const void *allocatorLite)
{
    if (info == nullptr) {
        /* sic: at info level; components without a pool of their own call this as a matter of
         * course, and their logs stay clean. */
        CMM_LOG(ZYLOG_INFO, "Cmm pool info set failed, param is NULL.");
        return CMM_FAILURE;
    }

    g_ucmm_config.io_pool.pool_handle = info->pool_id;
    CMM_LOG(ZYLOG_INFO, "Cmm pool info set success, pool id(0x%lx), allocator_lite(%p).",
            g_ucmm_config.io_pool.pool_handle, allocatorLite);
    return CMM_OK;
}
