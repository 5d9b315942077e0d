/*
 * Registry of the structure partitions: which ids are taken, and what lies behind each.
 *
 *     g_cmm_part_s   [0]      [1]        [2]        [3]       ...   [2047]
 *                    unused   id 1       id 0       id 3            id 0
 *                             in use     free       in use          free
 *
 *     free -> reserved (id written under the lock) -> in service (call-backs, pool) -> free
 *
 * Locking: g_cmm_part_lock guards the id fields and nothing else. All other fields of an entry
 * belong to the thread that reserved its id; they are atomics because allocation and free read
 * them without a lock. g_cmm_part_sum is raised before the lock is taken: it turns away the caller
 * who comes too many without a scan of the table.
 *
 * The registry does not know who uses an entry: that nobody allocates from a partition while it is
 * deleted is the client's business.
 */
#include "partition_local.h"

#include "common/cmm_atomic.h"
#include "common/cmm_log.h"
#include "common/cmm_spinlock.h"

cmm_partition g_cmm_part_s[CMM_PART_ENTRIES];
uint32_t      g_cmm_part_sum;
zyax_spinlock g_cmm_part_lock;
uint64_t      g_cmm_part_creator;

static constexpr uint32_t NO_PART_ID = CMM_PART_MAX_ID + 1;

/* Marks the lowest free entry as reserved and answers its id. The caller holds the lock. */
static uint32_t claim_lowest_free_id()
{
    for (uint32_t id = 1; id <= CMM_PART_MAX_ID; ++id) {
        if (g_cmm_part_s[id].part_id == 0) {
            g_cmm_part_s[id].part_id = id;
            return id;
        }
    }
    return NO_PART_ID;
}

opened_partition open_partition(const zyumm_mpool_param *record, cmm_object_init_fn init_cb,
                                cmm_object_free_fn free_cb)
{
    const uint64_t pool = zyumm_mpool_create(record);
    if (pool == 0)
        return {0, NO_PART_ID};

    const uint32_t part_id = cmm_alloc_part_id();
    if (part_id > CMM_PART_MAX_ID)
        return {pool, part_id};

    cmm_partition *entry = &g_cmm_part_s[part_id];
    cmm_store_relaxed(&entry->init_cb, init_cb);
    cmm_store_relaxed(&entry->free_cb, free_cb);
    /* Release: who finds the pool finds its call-backs too. */
    cmm_store_release(&entry->pool, pool);
    return {pool, part_id};
}

void close_partition(cmm_partition *entry)
{
    /* sic: the call-backs stay; the next owner of the id relies on nothing and sets his own. */
    /* Emptied before the id is free for others: later it could be the next owner's handle. */
    cmm_store_release(&entry->pool, uint64_t{0});

    CMM_SPINLOCK_LOCK(&g_cmm_part_lock);
    entry->part_id = 0;
    CMM_SPINLOCK_UNLOCK(&g_cmm_part_lock);

    cmm_atomic_sub(&g_cmm_part_sum, 1u);
}

void zyumm_partition_creator_set(uint64_t mask)
{
    const uint64_t old = cmm_atomic_exchange_relaxed(&g_cmm_part_creator, mask);

    CMM_LOG(ZYLOG_INFO, "Cmm common partition creator update 0x%llx to 0x%llx.",
            static_cast<unsigned long long>(old), static_cast<unsigned long long>(mask));
}

void zyumm_partition_creator_add(uint64_t mask)
{
    const uint64_t old = cmm_atomic_or_relaxed(&g_cmm_part_creator, mask);

    CMM_LOG(ZYLOG_INFO, "Cmm common partition creator add 0x%llx 0x%llx.",
            static_cast<unsigned long long>(old), static_cast<unsigned long long>(mask));
}

uint32_t zyumm_is_partition_creator(uint64_t mask)
{
    return (cmm_load_relaxed(&g_cmm_part_creator) & mask) != 0 ? 1 : 0;
}

cmm_partition *get_cmm_partition_byid(int32_t part_id)
{
    if (part_id < 1 || part_id > int32_t(CMM_PART_MAX_ID))
        return nullptr;

    return &g_cmm_part_s[part_id];
}

uint32_t cmm_alloc_part_id(void)
{
    if (cmm_atomic_add(&g_cmm_part_sum, 1u) > CMM_PART_MAX_ID) {
        cmm_atomic_sub(&g_cmm_part_sum, 1u);
        return NO_PART_ID;
    }

    /* sic: a full table here means that count and table disagree, and the count is not taken back;
     * the audit at module exit relies on it to have something to find. */
    CMM_SPINLOCK_LOCK(&g_cmm_part_lock);
    const uint32_t part_id = claim_lowest_free_id();
    CMM_SPINLOCK_UNLOCK(&g_cmm_part_lock);
    return part_id;
}
