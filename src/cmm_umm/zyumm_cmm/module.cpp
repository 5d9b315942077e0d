/*
 * Start and stop of the whole library.
 *
 *     not started --first init--> started --exit that takes the count to 0--> stopping
 *          ^                         |                                         |    |
 *          |                         +--- a failed start: sticky               |    |
 *          +------------------------- everything torn down --------------------+    |
 *                                    stopped with an error: sticky <----------------+
 *
 * The start is a ladder: each rung needs the ones below it, and where one breaks, what was built is
 * taken down in the order that stands there: requests, SGLs, pages, and before them, when the last
 * rung breaks, the buffer pool. The stop goes its own fixed way and then audits the partition
 * registry for what somebody forgot.
 *
 * Two things survive a failed start on purpose: the library's own partition, and the mark in the
 * once-guard's word. The guard keeps the first result for every later caller, so components that
 * start one after the other all see the same answer.
 *
 * Threads: first calls of the start are serialised by the guard; the use count is atomic; only the
 * call that takes it from 1 to 0 tears down. A start while the last user stops is the one thing
 * that callers must not do.
 *
 * The buffer pool is not built here: whoever wants one creates it, and the stop leaves it alone.
 */
#include "zyumm_cmm.h"

#include "bounded.h"
#include "common/cmm_atomic.h"
#include "common/cmm_log.h"
#include "common/cmm_spinlock.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

uint64_t g_cmm_init_magic;
uint32_t g_cmm_init_status;
int32_t  g_cmm_init_count;
uint32_t g_cmm_umm_partition;

struct attr_mapping {
    uint64_t umm;
    uint64_t slab;
};

static constexpr attr_mapping ATTR_MAPPINGS[] = {
    {0x10, ZYMM_SLAB_CACHED},
    {0x40, ZYMM_SLAB_NODUMP},
    {0x80, ZYMM_SLAB_NOFORK},
};

/* Looks for what clients left behind; the lines are those of module exit. */
static uint32_t audit_partitions(const char *func)
{
    for (uint32_t id = 1; id <= CMM_PART_MAX_ID; ++id) {
        const uint64_t pool = cmm_load_acquire(&get_cmm_partition_byid(int32_t(id))->pool);
        if (pool != 0) {
            CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR,
                               "Some umm_cmm partition is not delete. partId[%u] pool_id(%lu)", id,
                               pool);
            return CMM_FAILURE;
        }
    }

    const uint32_t remain = cmm_load_acquire(&g_cmm_part_sum);
    if (remain != 0) {
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR,
                           "Any umm_cmm partition is not delete. remain(%u)", remain);
        return CMM_FAILURE;
    }
    return CMM_OK;
}

/* Builds the standing pools, of which each may have been left to an outside component. */
static uint32_t create_standing_pools()
{
    if (cmm_create_req_mempool() != CMM_OK)
        return CMM_FAILURE;

    if (cmm_create_sgl_mempool() != 0) {
        cmm_destory_req_mempool();
        return CMM_FAILURE;
    }
    if (create_page_mempool() != CMM_OK) {
        cmm_destory_req_mempool();
        cmm_destory_sgl_mempool();
        return CMM_FAILURE;
    }
    if (page_init_retry() != CMM_OK) {
        /* sic: no start makes it. A buffer pool that its user made before a start that then fails
         * here would outlive a library that cannot be started again. */
        cmm_destory_buffer_mempool();
        cmm_destory_req_mempool();
        cmm_destory_sgl_mempool();
        delete_page_mempool();
        return CMM_FAILURE;
    }
    return CMM_OK;
}

uint32_t cmm_module_init(void)
{
    const uint32_t status = zymm_init_once(&g_cmm_init_magic, cmm_module_init_inner,
                                           &g_cmm_init_status, "cmm_module_init");
    if (status == CMM_OK)
        cmm_atomic_add(&g_cmm_init_count, 1);
    return status;
}

uint32_t cmm_module_init_ext(const void *param)
{
    if (param == nullptr)
        return CMM_FAILURE;

    return cmm_module_init();
}

uint32_t zyumm_cmm_module_init(void)
{
    return cmm_module_init();
}

uint32_t cmm_module_init_inner(void)
{
    /* sic: no failure below deletes it; who looks into a node whose start failed finds it there. */
    g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "cmm_moduleInit");
    if (g_cmm_umm_partition == 0)
        return CMM_FAILURE;

    memset_s(g_cmm_part_s, sizeof g_cmm_part_s, 0, sizeof g_cmm_part_s);
    g_cmm_part_lock = CMM_SPINLOCK_UNLOCKED;

    if (get_umm_cfg_path(g_config_path, g_proc_name) != CMM_OK) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "get node_config.xml failed");
        return CMM_FAILURE;
    }
    /* Its result says whether a document was read. Without one the defaults serve. */
    umm_parse_xml(g_config_path, g_proc_name);
    zymm_numa_coredump_level_set(g_ucmm_config.coredump_level);

    return create_standing_pools();
}

uint32_t cmm_module_exit(void)
{
    CMM_LOG(ZYLOG_INFO, "umm_cmm module exit begin.");
    const int32_t users = cmm_atomic_sub(&g_cmm_init_count, 1);
    if (users != 0) {
        /* sic: also for one exit too many, which leaves the count negative and is no failure;
         * components whose own start failed still stop. */
        CMM_LOG(ZYLOG_INFO, "umm_cmm module exit count is %d.", users);
        return CMM_OK;
    }

    page_exit_retry();
    cmm_destory_req_mempool();
    cmm_destory_sgl_mempool();
    if (delete_page_mempool() != CMM_OK) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "Delete page mempool error.");
        return CMM_FAILURE;
    }
    if (zyumm_partition_delete(g_cmm_umm_partition) != 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "Delete umm_cmm partition error. partId[%u]",
                        g_cmm_umm_partition);
        return CMM_FAILURE;
    }
    if (audit_partitions(__func__) != CMM_OK)
        return CMM_FAILURE;

    g_cmm_umm_partition = 0;
    /* Release: who finds the guard open finds the stop complete. */
    cmm_store_release(&g_cmm_init_magic, uint64_t{0});
    CMM_LOG(ZYLOG_INFO, "umm_cmm module exit finish.");
    return CMM_OK;
}

uint64_t zyumm_attr_conver_zymm_attr(uint64_t attr)
{
    uint64_t converted = 0;
    for (const attr_mapping &mapping : ATTR_MAPPINGS)
        converted |= (attr & mapping.umm) != 0 ? mapping.slab : 0;
    return converted;
}
