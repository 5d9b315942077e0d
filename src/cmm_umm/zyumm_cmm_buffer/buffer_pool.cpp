/*
 * The buffer pool: one public memory pool for the transport's buffers, and its allocator.
 *
 *     reserve and extension      from
 *     ---------------------      -------------------------------------------------------------
 *     as asked, KiB              the arguments, when either is not 0
 *     as configured, KiB         io_pool's reserve size and fourth size, when neither is 0
 *     100 MiB and 4 MiB          here; the configuration is told, so that reports agree
 *
 * The pool's handle lives in the configuration record, as the last word of io_pool. That word is
 * the only thing that says whether there is a buffer pool: whoever overwrites it, a second creation
 * or the reader of a document, loses the pool that was there.
 *
 * Locking: none. Creating and destroying are for one set-up thread; a start that fails at its last
 * step destroys too, and must find that harmless when there is no pool.
 *
 * Deliberately absent: undo. A pool that got no allocator is left as it is, and only its handle is
 * dropped.
 */
#include "zyumm_cmm_buffer.h"

#include "zyumm_cmm.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr char     POOL_NAME[]         = "rdma_pool";
static constexpr uint64_t DEFAULT_RESERVE_KIB = 102400;
static constexpr uint64_t DEFAULT_EXTEND_KIB  = 4096;
static constexpr uint32_t OBJECT_ALIGN        = 8;

/* Both KiB. */
struct pool_sizes {
    uint64_t reserve;
    uint64_t extend;
};

/* The line about defaults is that of the pool's creation. */
static pool_sizes choose_sizes(uint64_t reserve_kib, uint64_t extend_kib, const char *func)
{
    if (reserve_kib != 0 || extend_kib != 0)
        return {reserve_kib, extend_kib};

    cmm_pool_quota *io_pool = &g_ucmm_config.io_pool;
    if (io_pool->reserve_size == 0 || io_pool->fourth_size == 0) {
        /* sic: the pool is created all the same; operators know this line as the sign that nobody
         * configured its sizes. */
        CMM_LOG_AS(func, ZYLOG_INFO, "Do not need create public slab table.");
        io_pool->fourth_size  = DEFAULT_EXTEND_KIB;
        io_pool->reserve_size = DEFAULT_RESERVE_KIB;
    }
    return {io_pool->reserve_size, io_pool->fourth_size};
}

uint32_t cmm_create_buffer_mempool(uint64_t reserveKiB, uint64_t extendKiB)
{
    const pool_sizes sizes = choose_sizes(reserveKiB, extendKiB, __func__);

    /* sic: room for pages without their control records, 8,320 bytes each, where the report counts
     * whole objects of 8,376; the pool's users have sized their reserves by this. */
    const uint64_t page  = zymm_object_whole_size_get(PAGE_SIZE_WITH_DIF, 0, OBJECT_ALIGN);
    const uint64_t bytes = g_ucmm_config.page_min * page + (sizes.reserve << 10);

    const uint64_t pool = zymm_pool_create(POOL_NAME, bytes, sizes.extend << 10, CMM_SELF);
    g_ucmm_config.io_pool.pool_handle = pool;
    if (pool == 0)
        return CMM_FAILURE;

    if (cmm_create_allocator() != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR, "Create allocator failed.");
        g_ucmm_config.io_pool.pool_handle = 0;
        return CMM_FAILURE;
    }
    return CMM_OK;
}

void cmm_destory_buffer_mempool(void)
{
    zymm_allocator *allocator = &g_ucmm_config.buffer_allocator;
    uint64_t       *handle    = &g_ucmm_config.io_pool.pool_handle;

    if (*handle == 0)
        return;

    /* A pool that was registered from outside need not have an allocator. */
    if (allocator->destroy != nullptr)
        allocator->destroy(allocator, CMM_SELF);
    zymm_pool_destory(*handle, CMM_SELF);
    *handle = 0;
}
