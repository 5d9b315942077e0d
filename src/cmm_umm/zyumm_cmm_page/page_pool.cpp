/*
 * The page pool: one slab of objects of 8,376 bytes, each a page with its record behind it.
 *
 *     who creates the pool        mask bit 0x1   operation                    enclosing pool
 *     ------------------------    ------------   --------------------------   --------------
 *     this library's start        clear          create_page_mempool          none
 *     an outside component        set            zyumm_page_slab_create(_ex)  its own
 *     nobody: the configuration   clear          (create_page_mempool says    -
 *     reserves an I/O pool                       so and succeeds)
 *
 * The zero pages are made just before the pool and torn down just after it; a pool that cannot be
 * made leaves them in place, since creation is not tried twice. The first pool of the process also
 * starts the eviction timer, which outlives it.
 *
 * Creation and deletion run in the thread that starts or stops the library (or in the outside
 * component's set-up thread) and take no lock. Nothing here looks at single pages, apart from
 * handing one back to the slab.
 */
#include "page_local.h"

#include "zyumm_cmm.h"

#include "bounded.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr char POOL_NAME[] = "PAGE PARTITION";
static constexpr size_t POOL_NAME_LENGTH = sizeof POOL_NAME - 1;
static constexpr uint32_t PAGE_ALIGNMENT = 64;

uint64_t s_page_partition_id;

/* What both creators ask for alike. */
static void set_page_geometry(zymm_slab_param *param)
{
    param->obj_size = PAGE_OBJECT_SIZE;
    param->max_num = g_ucmm_config.page_max;
    param->align = PAGE_ALIGNMENT;
}

/* Creates the slab and publishes its handle; false, with the handle 0, when there is none. The
 * first slab of the process starts the eviction timer, whose own failures it survives. */
static bool create_slab(const zymm_slab_param *param, uint32_t module_id, const char *func)
{
    const uint64_t slab = zymm_create_slab(param, module_id, func);
    cmm_store_release(&s_page_partition_id, slab);
    if (slab == 0)
        return false;

    pthread_once(&g_page_evict_timer_init, zyumm_page_evict_timer_create);
    return true;
}

uint32_t create_page_mempool(void)
{
    if (g_ucmm_config.page_max == 0 || page_pool_handle() != 0)
        return CMM_OK;
    if (zyumm_is_partition_creator(CMM_CREATOR_PAGE) != 0)
        return CMM_OK;
    if (g_ucmm_config.io_pool.reserve_size != 0) {
        CMM_LOG(ZYLOG_INFO, "The page pool will be created by corvex.");
        return CMM_OK;
    }

    const uint32_t zero_pages = umm_create_global_zero_pages();
    if (zero_pages != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR, "create zero page pool failed, ret(%d)", int(zero_pages));
        return CMM_FAILURE;
    }

    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    const int copied = memcpy_s(param.name, sizeof param.name - 1, POOL_NAME, POOL_NAME_LENGTH);
    if (copied != 0) {
        CMM_LOG(ZYLOG_ERROR, "memcpy_s error %d.", copied);
        return CMM_FAILURE;
    }

    set_page_geometry(&param);
    param.module_id = CMM_MODULE_ID;
    param.attr = ZYMM_SLAB_CACHED;
    param.min_num = g_ucmm_config.page_min;
    param.pool_id = 0;
    if (!create_slab(&param, CMM_SELF)) {
        CMM_LOG(ZYLOG_ERROR, "create page pool failed, ret(%d)", 0);
        return CMM_FAILURE;
    }
    return CMM_OK;
}

/* A pool inside the buffer pool belongs to the library and takes no memory in advance: the buffer
 * pool has it already. */
static void set_outside_owner(zymm_slab_param *param, uint64_t pool_id, uint32_t module_id)
{
    const bool is_in_buffer_pool = pool_id == g_ucmm_config.io_pool.pool_handle;

    param->module_id = is_in_buffer_pool ? CMM_MODULE_ID : module_id;
    param->min_num = is_in_buffer_pool ? 0 : g_ucmm_config.page_min;
    param->pool_id = pool_id;
}

uint32_t zyumm_page_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                const char *func)
{
    if (func == nullptr) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm page pool create failed, pool_id(0x%lx), module_id(%u), function(%p).",
                pool_id, module_id, static_cast<const void *>(func));
        return CMM_FAILURE;
    }
    if (pool_id == 0) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm page pool create failed, pool_id(0x%lx), module_id(%u), function(%s).",
                pool_id, module_id, func);
        return CMM_FAILURE;
    }
    /* sic: the same words refuse a process that is not the creator; its operators know them. */
    const uint64_t existing = page_pool_handle();
    if (zyumm_is_partition_creator(CMM_CREATOR_PAGE) == 0 || existing != 0) {
        CMM_LOG(
            ZYLOG_ERROR,
            "Zyumm page pool has been created, page_partition_id(0x%llx), module_id(%u), func(%s).",
            static_cast<unsigned long long>(existing), module_id, func);
        return CMM_FAILURE;
    }

    const uint32_t zero_pages = umm_create_global_zero_pages();
    if (zero_pages != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR, "create zero page pool failed, ret(%d), module_id(%u), func(%s)",
                int(zero_pages), module_id, func);
        return CMM_FAILURE;
    }

    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    strncpy_s(param.name, sizeof param.name, POOL_NAME, POOL_NAME_LENGTH);
    set_page_geometry(&param);
    set_outside_owner(&param, pool_id, module_id);
    param.attr = zyumm_attr_conver_zymm_attr(attr);
    if (!create_slab(&param, module_id, func)) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm page pool created failed, pool_id(0x%lx), module(%u), func(%s).", pool_id,
                module_id, func);
        return CMM_FAILURE;
    }
    return CMM_OK;
}

uint32_t zyumm_page_slab_create_ex(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                   const char *func)
{
    const uint64_t existing = page_pool_handle();
    if (existing == 0)
        return zyumm_page_slab_create(pool_id, attr, module_id, func);

    CMM_LOG(ZYLOG_INFO,
            "Zyumm page pool has been created, page_partition_id(0x%llx), module_id(%u).",
            static_cast<unsigned long long>(existing), module_id);
    return CMM_OK;
}

uint32_t delete_page_mempool(void)
{
    const uint64_t slab = page_pool_handle();
    if (slab == 0)
        return CMM_OK;

    const int destroyed = zymm_destory_slab(slab, CMM_SELF);
    if (destroyed != 0) {
        CMM_LOG(ZYLOG_ERROR, "Delete page pool error. partId[%lu]", slab);
        return CMM_FAILURE;
    }
    cmm_store_release(&s_page_partition_id, uint64_t(0));
    return page_tear_down_zero_pages(__func__);
}

int zyumm_page_get_usage_info(uint64_t *total, uint64_t *used)
{
    return zymm_slab_get_usage_info(page_pool_handle(), total, used);
}

int zyumm_page_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage)
{
    return zymm_slab_get_usage_by_numa(page_pool_handle(), numa_id, usage);
}

int zyumm_page_info_get(zyumm_partition_info *info)
{
    return zyumm_partition_info_get(page_pool_handle(), info);
}

void set_page_ctrl_free(page_ctrl *ctrl)
{
    cmm_store_relaxed(&ctrl->flags, uint8_t(PAGE_FREE));
    cmm_store_relaxed(&ctrl->valid_bitmap, uint8_t(0));
}

int free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func, uint32_t)
{
    set_page_ctrl_free(ctrl);
    return zymm_slab_free(page_pool_handle(), ctrl->page_addr, module_id, func);
}
