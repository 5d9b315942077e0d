/*
 * Counts and facts of slabs and memory pools, both by the same handles. All come from one set of
 * facts that the layer below takes; a count that 32 bits cannot hold is answered as the largest.
 */
#include <string.h>

#include "zyumm_seam.h"

using namespace zyumm;

static uint32_t in_32_bits(uint64_t count)
{
    return count < UINT32_MAX ? uint32_t(count) : UINT32_MAX;
}

int get_mpool_alloc_info(uint64_t pool, uint32_t *total, uint32_t *allocated)
{
    if (total == nullptr || allocated == nullptr) {
        ZYUMM_ERROR(__func__, "null pointer for total (%p) or allocated (%p).",
                    static_cast<void *>(total), static_cast<void *>(allocated));
        return -1;
    }
    zymm_slab_facts facts;
    const int result = zymm_slab_facts_get(pool, &facts, __func__);
    if (result != 0)
        return result;
    *total = in_32_bits(facts.total);
    *allocated = in_32_bits(facts.used);
    return 0;
}

uint32_t mmGetObjectSum(uint64_t pool)
{
    zymm_slab_facts facts;
    const int result = zymm_slab_facts_get(pool, &facts, __func__);
    return result == 0 ? in_32_bits(facts.total) : 0;
}

uint32_t mmGetBusyObjectSum(uint64_t pool)
{
    zymm_slab_facts facts;
    const int result = zymm_slab_facts_get(pool, &facts, __func__);
    return result == 0 ? in_32_bits(facts.used) : 0;
}

uint64_t mmGetUesdInfo(uint64_t slab)
{
    zymm_slab_facts facts;
    const int result = zymm_slab_facts_get(slab, &facts, __func__);
    return result == 0 ? facts.used : 0;
}

int zyumm_partition_info_get(uint64_t handle, zyumm_partition_info *info)
{
    if (info == nullptr) {
        ZYUMM_ERROR(__func__, "info is null.");
        return -1;
    }
    zymm_slab_facts facts;
    const int result = zymm_slab_facts_get(handle, &facts, __func__);
    if (result != 0)
        return result;
    memcpy(info->name, facts.name, sizeof info->name);
    info->obj_size = facts.obj_size;
    info->whole_size = facts.whole_size;
    info->min_num = facts.min_num;
    info->max_num = facts.max_num;
    info->total = facts.total;
    info->used = facts.used;
    info->module_id = facts.module_id;
    info->pad = 0;
    return 0;
}
