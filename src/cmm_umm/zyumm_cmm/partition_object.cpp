/*
 * Objects of structure partitions, and of the memory manager's public pools.
 *
 *     allocStructure   pool -> object -> init call-back -> caller
 *     freeStructure    caller -> free call-back -> object -> pool
 *
 * Both are on the clients' hot paths: they take no lock, do not look whether the entry is in use
 * and check the id's upper bound only, which is what keeps a wrong id inside the table. An entry
 * that is free, and entry 0, have no pool: the memory manager answers for handle 0.
 *
 * Call-backs run on the calling thread with nothing held.
 */
#include "partition_local.h"

#include "common/cmm_atomic.h"
#include "common/cmm_log.h"
#include "common/cmm_probe.h"

void allocStructure(uint32_t module_id, uint32_t part_id, void **out, const char *caller)
{
    if (out == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "outstructurePtr is NULL.partitionID(%u)", part_id);
        return;
    }
    *out = nullptr;
    if (part_id > CMM_PART_MAX_ID) {
        /* sic: names the number of entries as the maximum, one more than the highest id; whoever
         * searches the logs of both operations knows the line so. */
        CMM_LOG_LIMITED(ZYLOG_ERROR, "partitionID(%u) is too big, max(%u)", part_id,
                        CMM_PART_ENTRIES);
        return;
    }

    const cmm_partition *entry = &g_cmm_part_s[part_id];
    const uint64_t pool        = cmm_load_acquire(&entry->pool);
    void *object               = zyumm_mpool_alloc_i(pool, module_id, caller);
    if (object == nullptr)
        CMM_PROBE_ALLOC_REFUSED("structure", 1, module_id, caller, 0);

    const cmm_object_init_fn init_cb = cmm_load_relaxed(&entry->init_cb);
    if (init_cb != nullptr && object != nullptr)
        init_cb(object);
    *out = object;
}

uint32_t freeStructure(void *object, uint32_t part_id, uint32_t module_id, const char *caller,
                       uint32_t /*line*/)
{
    if (part_id > CMM_PART_MAX_ID) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "partitionID(%u) is too big, max(%u)", part_id,
                        CMM_PART_ENTRIES);
        return CMM_OK;
    }
    if (object == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "structurePtr is NULL.partitionID(%u)", part_id);
        return CMM_OK;
    }

    const cmm_partition *entry = &g_cmm_part_s[part_id];
    const uint64_t pool        = cmm_load_acquire(&entry->pool);

    const cmm_object_free_fn free_cb = cmm_load_relaxed(&entry->free_cb);
    if (free_cb != nullptr)
        free_cb(object, part_id, module_id, caller);
    zyumm_mpool_free_i(pool, object, module_id, caller);
    return CMM_OK;
}

uint32_t allocStructureFromPubPool(uint64_t pool, void **out, uint32_t module_id,
                                   const char *caller, uint32_t size)
{
    if (out == nullptr)
        return CMM_FAILURE;

    *out = pub_mpool_alloc_i(pool, size, module_id, caller);
    return *out != nullptr ? CMM_OK : CMM_FAILURE;
}

int freeStructureToPubPool(uint64_t pool, void *object, uint32_t module_id, const char *caller)
{
    return pub_mpool_free_i(pool, object, module_id, caller);
}
