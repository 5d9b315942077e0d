/*
 * Continuous partitions: one pool with one object, a contiguous page-aligned block of a given size,
 * created and allocated in one call.
 *
 * The block is freed with freeStructure and the partition deleted with deleteStructurePartition,
 * like those of any other partition; there are no call-backs.
 *
 * When the pool has no block to give, the pool is deleted but the entry is left as it is, with its
 * id and the stale handle. The audit at module exit reports it then: a process that could not get a
 * standing block has a configuration that somebody should look at.
 */
#include "partition_local.h"

#include "common/cmm_log.h"

static constexpr uint64_t ATTR_ONE_BLOCK = 0x200;

uint32_t createContinuousPartition(uint64_t size, const char *name, uint32_t module_id,
                                   uint64_t /*reserved*/, uint32_t *part_id, void **addr,
                                   const char *caller)
{
    if (part_id == nullptr || addr == nullptr) {
        CMM_LOG_LIMITED(
            ZYLOG_ERROR,
            "Check input failed when create part, part name(%s) part id(%p) part addr(%p).",
            cmm_text(name), static_cast<void *>(part_id), static_cast<void *>(addr));
        return CMM_FAILURE;
    }

    zyumm_mpool_param record;
    fill_pool_record(&record, size, 1, 1, name, module_id, ATTR_ONE_BLOCK);
    const opened_partition opened = open_partition(&record, nullptr, nullptr);
    if (opened.pool == 0)
        return CMM_FAILURE;
    if (opened.part_id > CMM_PART_MAX_ID) {
        CMM_LOG_LIMITED(ZYLOG_WARNING, "PartId is large than limit: %d.", int(CMM_PART_MAX_ID));
        return CMM_FAILURE;
    }

    *addr = ucmm_mpool_alloc_i(opened.pool, module_id, caller);
    if (*addr == nullptr) {
        /* sic: id, count and stale handle stay; the audit at module exit reports them. */
        zyumm_mpool_delete(opened.pool);
        return CMM_FAILURE;
    }
    *part_id = opened.part_id;
    return CMM_OK;
}
