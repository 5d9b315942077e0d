/*
 * Memory pools: slabs of the layer below, made with a pool's parameters. The handle is the slab's.
 *
 *     pool attribute                      slab attribute
 *     0x2, 0x10  per-thread caches        ZYMM_SLAB_CACHED
 *     0x4        cleared at allocation    ZYMM_EXTRA_CLEARED
 *     0x40       not in core dumps        ZYMM_SLAB_NODUMP
 *     0x80       not in forked children   ZYMM_SLAB_NOFORK
 *     0x100      locked                   ZYMM_EXTRA_LOCKED
 *     0x200      one block                ZYMM_EXTRA_ONE_BLOCK
 *     0x400      huge pages               ZYMM_EXTRA_HUGE
 *
 * Other bits say nothing. Objects are aligned to 8 bytes (a block to a page). No state of its own.
 */
#include <string.h>

#include "zyumm_seam.h"

using namespace zyumm;

enum : uint64_t {
    POOL_CACHED = 0x2 | 0x10,
    POOL_CLEARED = 0x4,
    POOL_NODUMP = 0x40,
    POOL_NOFORK = 0x80,
    POOL_LOCKED = 0x100,
    POOL_ONE_BLOCK = 0x200,
    POOL_HUGE = 0x400,
};

struct attribute_pair {
    uint64_t of_pool, of_slab;
};

static const attribute_pair s_slab_attributes[] = {
    {POOL_CACHED, ZYMM_SLAB_CACHED},
    {POOL_NODUMP, ZYMM_SLAB_NODUMP},
    {POOL_NOFORK, ZYMM_SLAB_NOFORK},
};

static const attribute_pair s_extra_attributes[] = {
    {POOL_CLEARED, ZYMM_EXTRA_CLEARED},
    {POOL_LOCKED, ZYMM_EXTRA_LOCKED},
    {POOL_ONE_BLOCK, ZYMM_EXTRA_ONE_BLOCK},
    {POOL_HUGE, ZYMM_EXTRA_HUGE},
};

template <uint64_t Count>
static uint64_t translate(uint64_t attr, const attribute_pair (&pairs)[Count])
{
    uint64_t translated = 0;
    for (const attribute_pair &pair : pairs)
        translated |= (attr & pair.of_pool) != 0 ? pair.of_slab : 0;
    return translated;
}

uint64_t zyumm_mpool_create(const zyumm_mpool_param *param)
{
    if (param == nullptr) {
        ZYUMM_ERROR(__func__, "param is null.");
        return 0;
    }
    if (!partition_exists(param->partition)) {
        ZYUMM_ERROR(__func__, "pool %.31s: there is no partition %lu.", param->name,
                    param->partition);
        return 0;
    }

    zymm_slab_param slab;
    zymm_slab_param_init(&slab);
    memcpy(slab.name, param->name, sizeof slab.name - 1);
    slab.module_id = param->module_id;
    slab.attr = translate(param->attr, s_slab_attributes);
    slab.obj_size = param->obj_size;
    slab.min_num = param->reserved_num;
    slab.max_num = param->max_num;

    zymm_slab_extra extra = {};
    extra.attr = translate(param->attr, s_extra_attributes);
    extra.unlimited = param->max_num == 0 ? 1 : 0;
    extra.cache_num = param->cache_num;
    extra.cache_size = param->cache_size;
    return zymm_create_slab_ex(&slab, &extra, param->module_id, __func__);
}

int zyumm_mpool_delete(uint64_t pool)
{
    return zymm_slab_destroy_empty(pool, __func__);
}

void *zyumm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller)
{
    return zymm_slab_malloc_for(pool, module_id, caller, __func__);
}

void *ucmm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller)
{
    return zymm_slab_malloc_for(pool, module_id, caller, __func__);
}

int zyumm_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller)
{
    return zymm_slab_free_for(pool, object, module_id, caller, __func__);
}

uint32_t getLocalCacheDefaultNum(void)
{
    return ZYUMM_LOCAL_CACHE_NUM;
}

uint32_t getLocalCacheDefaultSize(void)
{
    return ZYUMM_LOCAL_CACHE_BYTES;
}
