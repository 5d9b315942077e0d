/*
 * What the page sources share and nobody else sees.
 *
 *     page_pool     the slab of pages            page_timeout     time-out allocation, queueing
 *     page_zero     the two zero pages           retry_queue      the list, kicks, retry runs
 *     page_alloc    pages and runs out           retry_walk       the time-out walk
 *     page_free     the last reference down      retry_lifecycle  start, stop and the two timers
 *     page_ref      references, record to page   page_evict       call-backs before pages run out
 *     page_attr     zero flag, valid bitmap      page_usage       counts, leaks, dumps
 *     page_diag     console commands
 *
 * Everything declared here is hidden: the names have no place in the library's export list. The
 * exported state (handles, counters, the list) is declared in zyumm_cmm_page.h, as programs read
 * it; what several threads touch goes through common/cmm_atomic.h.
 */
#pragma once

#include <stdint.h>
#include <string.h>

#include "zyumm_cmm_page.h"

#include "common/cmm_atomic.h"
#include "common/cmm_spinlock.h"

/* ---- pool */

/*
 * Handle of the page slab, 0 without one. Acquire, because a set-up thread may create the pool
 * while others already ask for pages: who sees the handle sees the slab and the zero pages.
 */
inline uint64_t page_pool_handle(void)
{
    return cmm_load_acquire(&s_page_partition_id);
}

/* Last part of delete_page_mempool: unprotects and frees both zero pages; logs as `func`. */
uint32_t page_tear_down_zero_pages(const char *func);

/* ---- record and layout */

/*
 * True for the record of an allocated page. The one place that judges a record, and so the one
 * place of its two limited error lines, which are named after it whoever asked.
 */
bool isPageCtrlValid(const page_ctrl *ctrl);

/*
 * Reads a field of a page record whose page may be free already.
 *
 * The checks for a double free and for a valid record have to look at it before they can know
 * whether the page is still out, and the console shows what it finds, so they may touch an object
 * that the slab layer has poisoned: AddressSanitizer is told to let exactly this read pass. The
 * load is written out here because a call to an instrumented helper would be checked again, and it
 * is atomic because the page's next owner may be filling the record meanwhile. Relaxed: a value
 * found too early or too late only changes which bug is reported.
 */
template <typename T>
__attribute__((no_sanitize("address"))) inline T page_peek(const T *field)
{
    return __atomic_load_n(field, __ATOMIC_RELAXED);
}

/* Writes "CMMREDIF" into the integrity bytes of all 16 sectors; the data bytes stay as they are. */
inline void page_stamp_dif(uint8_t *page)
{
    uint8_t *dif = page + PAGE_SECTOR_DATA_SIZE;
#pragma GCC unroll 16 /* 16 stores of one word, and nothing else */
    for (uint32_t sector = 0; sector < PAGE_SECTORS; ++sector, dif += PAGE_SECTOR_SIZE)
        memcpy(dif, "CMMREDIF", PAGE_SECTOR_DIF_SIZE);
}

/*
 * Fills the record behind a page that nobody else knows yet, and answers it. The count is 0 until
 * the rest is in place, and the state comes last, so that a record which is half filled never
 * passes for an allocated page. What page_peek may read meanwhile is stored atomically.
 */
inline page_ctrl *page_fill_record(uint8_t *page, uint8_t valid_bitmap, uint8_t zero_flags,
                                   uint32_t module_id, const char *func)
{
    page_ctrl *ctrl = reinterpret_cast<page_ctrl *>(page + PAGE_SIZE_WITH_DIF);

    cmm_store_relaxed(&ctrl->page_addr, page);
    cmm_store_relaxed(&ctrl->ref, 0);
    cmm_store_relaxed(&ctrl->valid_bitmap, valid_bitmap);
    cmm_store_relaxed(&ctrl->zero_flags, zero_flags);
    ctrl->lock = CMM_SPINLOCK_UNLOCKED;
    cmm_store_relaxed(&ctrl->owner_modid, uint16_t(module_id));
    cmm_store_relaxed(&ctrl->owner_func, func);
    cmm_store_relaxed(&ctrl->ref, 1);
    cmm_store_relaxed(&ctrl->flags, uint8_t(PAGE_IN_USE));
    return ctrl;
}

/* ---- retry list */

extern zyax_timer s_retry_timer;
extern zyax_timer s_hung_page_timer;

/* The list's record that holds the link. */
inline page_retry_req *retry_record(list_link *link)
{
    static_assert(offsetof(page_retry_req, list) == 0);
    return reinterpret_cast<page_retry_req *>(link);
}

/* The caller holds the list lock for all of these but reset, which needs the list to itself. */
void retry_list_reset(void);
bool retry_list_is_empty(void);
void retry_list_append(page_retry_req *req);
void retry_list_remove(page_retry_req *req);

/* Marks the record as being on no list. */
void retry_link_poison(list_link *link);

/*
 * Queues a request at the tail.
 *
 * output_type  PAGE_REQ_OUTPUT_*; anything else is queued too and can only time out
 * timeout      s; PAGE_TIMEOUT_NEVER
 * func, line   the caller's, owner of the pages to come; of the line 16 bits are kept
 *
 * 0; 0xFFFFFFFF when there is no memory for the record, and then no call-back has run.
 */
uint32_t page_add_retry_req(uint16_t output_type, uint32_t page_cnt, uint32_t timeout,
                            page_retry_cb cbFunc, uint64_t cbArg, page_retry_fail_cb failcbFunc,
                            uint64_t failcbArg, uint32_t module_id, const char *func,
                            uint32_t line);
