/*
 * Creation and deletion of structure partitions.
 *
 * Both creators check their arguments, fill a creation record and open the partition; each has its
 * own words for each failure. What a failure leaves behind is the same:
 *
 *     arguments refused    nothing
 *     no pool              nothing
 *     no id left           the new pool, which nobody can reach any more
 *
 * That last pool is kept on purpose: it costs memory once, in a process that has lost count of its
 * partitions anyway, and the memory manager's own listing then shows who came too many.
 *
 * Threads: any. Nothing here takes a lock; the registry does, around the id alone.
 */
#include "partition_local.h"

#include "common/cmm_atomic.h"
#include "common/cmm_log.h"

uint32_t createStructureMempool(const structure_mempool_para *para, uint32_t *part_id)
{
    if (para == nullptr || part_id == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "createPara(%p), partitionID(%p).",
                        static_cast<const void *>(para), static_cast<void *>(part_id));
        return CMM_FAILURE;
    }
    if (para->magic != STRUCTURE_MEMPOOL_MAGIC) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "createPara's magic is wrong.magic(0x%lx).", para->magic);
        return CMM_FAILURE;
    }

    zyumm_mpool_param record;
    mm_mempool_para_init_by_pool_param(&record, para);
    const opened_partition opened = open_partition(&record, para->init_cb, para->free_cb);
    if (opened.pool == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "create mpool is fail. poolName(%s)", cmm_text(para->name));
        return CMM_FAILURE;
    }
    if (opened.part_id > CMM_PART_MAX_ID) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "create mpool is fail. part_id(%u) poolName(%s)",
                        opened.part_id, cmm_text(para->name));
        return CMM_FAILURE;
    }

    *part_id = opened.part_id;
    return CMM_OK;
}

uint32_t createExpStructurePartition(uint32_t reserved_num, uint32_t max_num, const char *name,
                                     uint32_t module_id, uint32_t flags, uint32_t obj_size,
                                     uint32_t *part_id, cmm_object_init_fn init_cb,
                                     cmm_object_free_fn free_cb)
{
    if (name == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "invalid param, part name(%p) ownerModuleID(%u).",
                        static_cast<const void *>(name), module_id);
        return CMM_FAILURE;
    }
    if (part_id == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR,
                        "Check input failed when create part, part name(%s) partid(%p).", name,
                        static_cast<void *>(part_id));
        return CMM_FAILURE;
    }

    zyumm_mpool_param record;
    mm_mempool_para_init_by_param(&record, reserved_num, max_num, name, module_id, flags, obj_size);
    const opened_partition opened = open_partition(&record, init_cb, free_cb);
    if (opened.pool == 0)
        return CMM_FAILURE;
    if (opened.part_id > CMM_PART_MAX_ID) {
        CMM_LOG_LIMITED(ZYLOG_WARNING, "PartId: %u alloc error, max Id: %u, ownerModuleID: %u.",
                        opened.part_id, CMM_PART_MAX_ID, module_id);
        return CMM_FAILURE;
    }

    *part_id = opened.part_id;
    return CMM_OK;
}

uint32_t createStructurePartition(uint32_t obj_num, const char *name, uint32_t module_id,
                                  uint32_t flags, uint32_t obj_size, uint32_t *part_id,
                                  cmm_object_init_fn init_cb, cmm_object_free_fn free_cb,
                                  uint32_t /*unused*/)
{
    return createExpStructurePartition(obj_num, obj_num, name, module_id, flags, obj_size, part_id,
                                       init_cb, free_cb);
}

uint32_t deleteStructurePartition(uint32_t part_id)
{
    cmm_partition *entry = get_cmm_partition_byid(int32_t(part_id));
    if (entry == nullptr) {
        /* sic: success; clients delete what they never created on their way out. */
        CMM_LOG_LIMITED(ZYLOG_WARNING, "can't find the mempool with partId[%u]", part_id);
        return CMM_OK;
    }

    /* A free entry has handle 0, which the memory manager refuses. */
    const uint64_t pool = cmm_load_acquire(&entry->pool);
    const int result    = zyumm_mpool_delete(pool);
    if (result != 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "The partition[%u] delete failed, pool_id[%lu].", part_id,
                        pool);
        return CMM_FAILURE;
    }

    close_partition(entry);
    return CMM_OK;
}

uint32_t deletePartitionByID(uint32_t part_id)
{
    return deleteStructurePartition(part_id);
}
