/*
 * The process's pool of SGL records: one slab of fixed-size objects, known by `g_sgl_partition_id`.
 *
 * Exactly one of two creators makes it. Without bit 0x2 in the partition-creator mask the module's
 * start does; with it the start leaves the pool alone, and an outside component makes it inside a
 * memory pool of its own:
 *
 *                    at the start                    by an outside creator
 *     name           memcpy_s, checked               strncpy_s
 *     module id      the library's                   the caller's
 *     attribute      per-thread caches               the caller's word, converted
 *     alignment      64                              the slab layer's default
 *     inside         no pool                         the caller's memory pool
 *
 * Object size and both counts are the same on both paths.
 *
 * Locking: none. Creation and destruction are serialised by whoever starts and stops the module.
 * The handle is published with release and read with acquire, as other threads may ask meanwhile.
 */
#include "sgl_local.h"

#include "bounded.h"
#include "zyumm_cmm.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr char     POOL_NAME[]      = "SGL PARTITION";
static constexpr uint32_t POOL_NAME_LENGTH = sizeof POOL_NAME - 1;
static constexpr uint32_t POOL_ALIGN       = 64;

uint64_t g_sgl_partition_id;

/* The parameters that both creators set; the rest keeps the slab layer's defaults. */
static zymm_slab_param pool_param(uint32_t module_id, uint64_t attr)
{
    zymm_slab_param param = {};
    zymm_slab_param_init(&param);

    param.module_id = module_id;
    param.attr      = attr;
    param.obj_size  = SGL_OBJECT_SIZE;
    param.min_num   = g_ucmm_config.sgl_min;
    param.max_num   = g_ucmm_config.sgl_max;
    return param;
}

int32_t cmm_create_sgl_mempool(void)
{
    if (g_ucmm_config.sgl_max == 0)
        return 0;
    if (zyumm_is_partition_creator(CMM_CREATOR_SGL) != 0)
        return 0;

    zymm_slab_param param = pool_param(CMM_MODULE_ID, ZYMM_SLAB_CACHED);
    const int copied = memcpy_s(param.name, sizeof param.name - 1, POOL_NAME, POOL_NAME_LENGTH);
    if (copied != 0) {
        CMM_LOG(ZYLOG_ERROR, "memcpy_s error %d.", copied);
        return -1;
    }

    param.align           = POOL_ALIGN;
    const uint64_t handle = zymm_create_slab(&param, CMM_SELF);
    cmm_store_release(&g_sgl_partition_id, handle);
    if (handle == 0) {
        CMM_LOG(ZYLOG_ERROR, "Sgl partition create failed.");
        return -1;
    }
    return 0;
}

int32_t zyumm_sgl_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                              const char *func)
{
    if (func == nullptr) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm sgl pool create failed, pool_id(0x%lx), module_id(%u), function(%p).",
                pool_id, module_id, static_cast<const void *>(func));
        return -1;
    }
    if (pool_id == 0) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm sgl pool create failed, pool_id(0x%lx), module_id(%u), function(%s).",
                pool_id, module_id, func);
        return -1;
    }
    /* sic: one line for both cases; outside creators tell them apart by the handle in it, which is
     * 0 when only the bit is missing. */
    const unsigned long long existing = sgl_pool_handle();
    if (zyumm_is_partition_creator(CMM_CREATOR_SGL) == 0 || existing != 0) {
        CMM_LOG(
            ZYLOG_ERROR,
            "Zyumm sgl pool has been created, sgl_partition_id(0x%llx), module_id(%u), function(%s).",
            existing, module_id, func);
        return -1;
    }

    zymm_slab_param param = pool_param(module_id, zyumm_attr_conver_zymm_attr(attr));
    strncpy_s(param.name, sizeof param.name, POOL_NAME, POOL_NAME_LENGTH);
    param.pool_id         = pool_id;
    const uint64_t handle = zymm_create_slab(&param, module_id, func);
    cmm_store_release(&g_sgl_partition_id, handle);
    if (handle == 0) {
        CMM_LOG(ZYLOG_ERROR,
                "Sgl partition create failed, pool_id(0x%lx), module_id(%u), function_name(%s).",
                pool_id, module_id, func);
        return -1;
    }
    return 0;
}

int zyumm_sgl_get_usage_info(uint64_t *total, uint64_t *used)
{
    return zymm_slab_get_usage_info(sgl_pool_handle(), total, used);
}

int zyumm_sgl_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage)
{
    return zymm_slab_get_usage_by_numa(sgl_pool_handle(), numa_id, usage);
}

int zyumm_sgl_info_get(zyumm_partition_info *info)
{
    return zyumm_partition_info_get(sgl_pool_handle(), info);
}

void cmm_destory_sgl_mempool(void)
{
    const uint64_t handle = sgl_pool_handle();
    if (handle == 0)
        return;

    zymm_destory_slab(handle, CMM_SELF);
    cmm_store_release(&g_sgl_partition_id, uint64_t{0});
}
