/*
 * Pages out of the pool, at once or not at all.
 *
 * One page comes as its control record. A run of up to 65,535 pages is laid into an SGL chain, one
 * entry a page, front to back with a cursor that never searches:
 *
 *     head                       second
 *     entries 0 ... 63 --------> entries 0 ... 63 -------> ...
 *             ^ cursor: (SGL, index), stepped on after each page
 *
 * A run is all or nothing: when the pool runs dry in the middle, the pages laid so far and the
 * chain go back, which also kicks the retry queue, since those pages may be what somebody waits
 * for. Nobody waits here; page_timeout.cpp adds that.
 *
 * No lock and no state: a fresh page is private to its caller until it is handed out.
 */
#include "page_local.h"

#include "zyumm_cmm_sgl.h"

#include "common/cmm_log.h"
#include "common/cmm_probe.h"

static constexpr int32_t MAX_RUN = 65535; /* an SGL chain counts its entries in 16 bits */

/* Flat, as is freeOnePage: a program that links everything statically, optimised as a whole, gets
 * the slab layer's way through the thread's cache in place. */
[[gnu::flatten]] page_ctrl *allocOnePageSync(uint32_t module_id, const char *func, uint32_t line)
{
    void *object = zymm_slab_malloc(page_pool_handle(), module_id, func, line);
    if (object == nullptr) {
        CMM_PROBE_ALLOC_REFUSED("page", 1, module_id, func, line);
        return nullptr;
    }

    uint8_t *page = static_cast<uint8_t *>(object);
    page_ctrl *ctrl = page_fill_record(page, 0, 0, module_id, func);
    page_stamp_dif(page);
    return ctrl;
}

/* The run for checked arguments; null after everything taken went back. */
static SGL *alloc_run(uint32_t page_cnt, uint32_t module_id, const char *func, uint32_t line)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, page_cnt, module_id, func, line);
    if (chain == nullptr) {
        CMM_PROBE_ALLOC_REFUSED("page run", page_cnt, module_id, func, line);
        return nullptr;
    }

    if (alloc_multi_page(page_cnt, module_id, chain, func, line) < page_cnt) {
        CMM_PROBE_ALLOC_REFUSED("page run", page_cnt, module_id, func, line);
        freeMultiPages(chain, module_id, func, line);
        return nullptr;
    }
    return chain;
}

void allocMultiPagesSync(uint32_t page_cnt, SGL **out, uint32_t module_id, const char *func,
                         uint32_t line)
{
    if (page_pool_handle() == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page partition is NOT created");
        return;
    }
    if (out == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "sgl_ptr is NULL");
        return;
    }
    *out = nullptr;
    const int32_t count = int32_t(page_cnt);
    if (count < 1 || count > MAX_RUN) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_cnt(%u) is error.", page_cnt);
        return;
    }

    *out = alloc_run(page_cnt, module_id, func, line);
}

[[gnu::flatten]] uint32_t alloc_multi_page(uint32_t page_cnt, uint32_t module_id, SGL *chain,
                                           const char *func, uint32_t line)
{
    SGL *cur_sgl = chain;
    uint32_t cur_index = 0;

    for (uint32_t laid = 0; laid < page_cnt; ++laid) {
        page_ctrl *ctrl = allocOnePageSync(module_id, func, line);
        if (ctrl == nullptr) {
            CMM_LOG_LIMITED(ZYLOG_WARNING,
                            "Failed to alloc page, owner_id: %u funcName: %s line: %d.", module_id,
                            cmm_text(func), int(line));
            return laid;
        }
        add_one_page_to_sgl(chain, &cur_sgl, &cur_index, ctrl);
    }
    return page_cnt;
}

void add_one_page_to_sgl(SGL *head, SGL **cur_sgl, uint32_t *cur_index, page_ctrl *ctrl)
{
    SGL_ENTRY *entry = &(*cur_sgl)->entries[*cur_index];
    entry->buf = ctrl->page_addr;
    entry->pageCtrl = ctrl;
    entry->len = PAGE_SIZE_WITH_DIF;

    move2NextEntryAndIncEntrySum(cur_sgl, cur_index, head);
}
