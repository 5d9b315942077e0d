/*
 * How full a structure partition is.
 *
 * Three queries over the same pool handle, with three answers to an id outside 1..2047:
 *
 *     getPartitionAllocInfo   0xFFFFFFFF and an error line
 *     getObjectSum            0
 *     getBusyObjectSum        0xFFFFFFFF
 *
 * Threads: any; the counts are those of the moment and may have changed when the caller reads them.
 */
#include "partition_local.h"

#include "common/cmm_atomic.h"
#include "common/cmm_log.h"

uint32_t getPartitionAllocInfo(uint32_t part_id, uint32_t *total, uint32_t *allocated)
{
    if (total == nullptr || allocated == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "Invalid param: totalCnt:%p, allocCnt:%p",
                        static_cast<void *>(total), static_cast<void *>(allocated));
        return CMM_FAILURE;
    }
    const cmm_partition *entry = get_cmm_partition_byid(int32_t(part_id));
    if (entry == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "can't find the mempool with partId[%d]", int(part_id));
        return CMM_FAILURE;
    }

    return uint32_t(get_mpool_alloc_info(cmm_load_acquire(&entry->pool), total, allocated));
}

uint32_t getObjectSum(uint32_t part_id)
{
    const cmm_partition *entry = get_cmm_partition_byid(int32_t(part_id));
    return entry != nullptr ? mmGetObjectSum(cmm_load_acquire(&entry->pool)) : 0;
}

uint32_t getBusyObjectSum(uint32_t part_id)
{
    const cmm_partition *entry = get_cmm_partition_byid(int32_t(part_id));
    /* sic: not 0 as above; clients take all ones for "no such partition". */
    return entry != nullptr ? mmGetBusyObjectSum(cmm_load_acquire(&entry->pool)) : CMM_FAILURE;
}
