/*
 * Buffers of the process's transport: the public memory pool that they come from, the report of the
 * configuration that sizes it, and whether they travel over RDMA or TCP.
 *
 *     zymm_pool_create        "rdma_pool": room for page_min pages, the reserve, and extensions
 *          |
 *          +-- "buffer_slab_table"     141 classes of 64 bytes to almost 16 MiB, which serve
 *          |                           g_ucmm_config.buffer_allocator's alloc and free
 *          +-- a page pool, when zyumm_page_slab_create is given the pool's handle
 *
 * The start does not create the buffer pool and the stop does not destroy it: both are its user's
 * business, after the start and before the stop. Only a start that fails at its last step destroys
 * the buffer pool that it finds.
 *
 * The pool's handle is the last word of g_ucmm_config.io_pool, 0 while there is none. It is no more
 * than a word of the configuration, so two things forget a pool that exists, with its allocator,
 * and leave it behind for good:
 *
 *     - a second cmm_create_buffer_mempool or zyumm_cmm_pool_info_set;
 *     - a start that reads a configuration document: its reader sets the word to 0, in every start.
 *
 * The same reader always sets io_pool's fourth size to 0. The configured sizes are therefore used
 * only by a process that writes that word itself, after the start.
 */
#ifndef ZYUMM_CMM_BUFFER_H
#define ZYUMM_CMM_BUFFER_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------- transport */

/*
 * Stores the transport flag in g_ucmm_config.rdma_flag; it is the flag's only writer.
 *
 * flag:    1 = RDMA; any other value is stored as it is and means TCP.
 * Threads: the one that starts the library, or one that knows that nobody reads the flag.
 * Logs:    info, not limited, "CMM usr rdma flag set to RDMA." or "... to TCP.".
 */
CMM_API void cvx_usr_rdma_flag_set(uint32_t flag);

/* ----------------------------------------------------------------------------- buffer pool */

/*
 * Creates the buffer pool and, in it, the allocator of buffers. Its size is that of page_min pages
 * and the reserve. Both sizes come from the first of these that has them:
 *
 *     the arguments                     when either is not 0
 *     io_pool of g_ucmm_config          reserve_size and fourth_size, when neither is 0
 *     100 MiB and 4 MiB                 which are then written into io_pool, in KiB
 *
 * Once written they count as configured, for the next creation as for create_page_mempool.
 *
 * reserveKiB  KiB beyond the pages.
 * extendKiB   KiB by which the pool grows when it is full; 0 = it does not grow.
 *
 * 0, or 0xFFFFFFFF. Without an allocator the new pool stays behind, and nobody has its handle.
 *
 * Owner:   the library, with module id 386, until cmm_destory_buffer_mempool.
 * Threads: one set-up thread, after the start, while there is no buffer pool: the handle of a
 *          former one is forgotten, see above.
 * Logs:    info: that the default sizes serve, in words that say the opposite. Error, not limited:
 *          no allocator. Nothing when the slab layer makes no pool.
 */
CMM_API uint32_t cmm_create_buffer_mempool(uint64_t reserveKiB, uint64_t extendKiB);

/*
 * Creates the allocator g_ucmm_config.buffer_allocator over the 141 size classes, in the pool whose
 * handle io_pool holds: cmm_create_buffer_mempool's last step, of use by itself only for a pool
 * that was registered with zyumm_cmm_pool_info_set.
 *
 *     classes   bytes                               aligned to   class word
 *     6         64, 128, ... 2048, doubling         8            3
 *     8         4 KiB to 32 KiB by 4 KiB            4096         3
 *     127       128 KiB to 16 MiB - 128 KiB
 *               by 128 KiB                          4096         1
 *
 * 0, or 0xFFFFFFFF. A former allocator is forgotten, whatever the result.
 *
 * Threads: one set-up thread.
 * Logs:    error, not limited: no memory for the table. Nothing when the slab layer refuses it.
 */
CMM_API uint32_t cmm_create_allocator(void);

/*
 * Destroys the allocator and then the buffer pool, its own one or one that was registered; without
 * a pool it does nothing. A registered pool for which no allocator was ever created has none to
 * destroy.
 *
 * What the slab layer answers is not looked at: a pool in which something still lives, a page pool
 * for instance, is refused there with a line, stays, and is forgotten here.
 *
 * Threads: one set-up thread, when nobody uses buffers any more.
 * Logs:    nothing of its own.
 */
CMM_API void cmm_destory_buffer_mempool(void);

/* ---------------------------------------------------------------------------------- report */

/*
 * Reports the configuration, sizes in bytes.
 *
 * info  receives it; pool_id and the reserved words are left as they are. Null is refused.
 *
 * The page figures are for whole pool objects, a page with its control record; the room that
 * cmm_create_buffer_mempool adds for pages is that of pages without it.
 *
 * 0, or 0xFFFFFFFF.
 *
 * Threads: any, once the library is started.
 * Logs:    error, not limited: a null record.
 */
CMM_API uint32_t zyumm_cmm_config_info_get(cmm_config_info *info);

/*
 * Registers a pool that an outside component created as the buffer pool.
 *
 * info           pool_id is the pool's handle and all that is read; null is refused.
 * allocatorLite  printed, and nothing else; may be null.
 *
 * 0, or 0xFFFFFFFF.
 *
 * Owner:   the library, until cmm_destory_buffer_mempool destroys the pool like one of its own.
 * Threads: one set-up thread, after the start; a former handle is forgotten.
 * Logs:    info: the handle and the allocator; a null record, which is no error.
 */
CMM_API uint32_t zyumm_cmm_pool_info_set(const cmm_config_info *info, const void *allocatorLite);

#ifdef __cplusplus
}
#endif

#endif
