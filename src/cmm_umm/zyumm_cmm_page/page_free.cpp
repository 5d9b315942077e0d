/*
 * References down, and pages back to the pool.
 *
 *     freeOnePage ------+-> try_free_one_page --(count 0)--> free_one_page --> slab
 *     free_multi_page --+         |
 *         |                       +-- (zero page) stays
 *         +-> freeSglChain        +-- (free already, count below 0) the process ends
 *         +-> page_start_retry, as freeOnePage does: somebody may wait for pages
 *
 * try_free_one_page is the one place where a last reference goes; it never kicks the queue, which
 * only the two whole operations do. No lock: of all threads that drop one page exactly one sees
 * the count reach 0.
 *
 * A page freed twice or a count below 0 means that somebody already writes into memory which may
 * belong to another: nothing is repaired, two lines say which page it was, and the process aborts.
 */
#include "page_local.h"

#include "zyumm_cmm_sgl.h"

#include "common/cmm_log.h"
#include "common/cmm_sgl_position.h"

/* The owner's name and module are still those of the page's last allocation. */
[[noreturn, gnu::cold, gnu::noinline]] static void
die_of_double_free(const page_ctrl *ctrl, uint8_t flags, uint32_t module_id, const char *func,
                   const char *self)
{
    CMM_LOG_AS(
        self, ZYLOG_ERROR,
        "page flag expect %u but %u, page was allocated by function(%s), module(%u), free_func(%s), free_mod(%u).",
        PAGE_IN_USE, flags, cmm_text(page_peek(&ctrl->owner_func)), page_peek(&ctrl->owner_modid),
        cmm_text(func), module_id);
    CMM_LOG_RAW_AS(self, ZYLOG_FATAL, "Page_ctrl(%p) double free.",
                   static_cast<const void *>(ctrl));
    cmm_die();
}

[[noreturn, gnu::cold, gnu::noinline]] static void
die_of_negative_count(const page_ctrl *ctrl, int32_t ref, const char *self)
{
    CMM_LOG_AS(self, ZYLOG_ERROR,
               "Page ctrl(%p) with ref %d, page was allocated by function(%s), module(%u)",
               static_cast<const void *>(ctrl), ref, cmm_text(page_peek(&ctrl->owner_func)),
               page_peek(&ctrl->owner_modid));
    CMM_LOG_RAW_AS(self, ZYLOG_FATAL, "Page_ctrl(%p) ref(%d) is invalid.",
                   static_cast<const void *>(ctrl), ref);
    cmm_die();
}

static bool is_zero_page(const page_ctrl *ctrl)
{
    return ctrl == getZeroPageCtrlWithoutDif() || ctrl == getZeroPageCtrl();
}

/* The drop that both ways of freeing make in place; its lines are those of try_free_one_page. */
static constexpr char DROP[] = "try_free_one_page";

/* What is said once in a process's life stands apart: a free then saves no register for it. */
[[gnu::cold, gnu::noinline]] static void warn_of_free_zero_page(void)
{
    CMM_LOG_AS(DROP, ZYLOG_WARNING, "zero page's ref is 0.");
}

[[gnu::cold, gnu::noinline]] static void refuse_to_free(const page_ctrl *ctrl, uint32_t module_id,
                                                        const char *func, uint32_t line)
{
    CMM_LOG_LIMITED_AS(
        "freeOnePage", ZYLOG_ERROR,
        "Umm free one page failed, invalid param _page_ctrl(%p), module(%u), func(%p), line(%u).",
        static_cast<const void *>(ctrl), module_id, static_cast<const void *>(func), line);
}

static inline uint32_t drop_reference(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                      uint32_t line)
{
    const uint8_t flags = page_peek(&ctrl->flags);
    if (flags != PAGE_IN_USE)
        die_of_double_free(ctrl, flags, module_id, func, DROP);

    /* A full barrier: all that other holders did with the page lies before their drops, and so
     * before whoever sees 0 here, the page's only owner from then on. */
    const int32_t ref = cmm_atomic_add(&ctrl->ref, -1);
    if (ref < 0)
        die_of_negative_count(ctrl, ref, DROP);
    if (ref > 0)
        return uint32_t(ref);

    if (is_zero_page(ctrl)) {
        warn_of_free_zero_page();
        return 0;
    }
    free_one_page(ctrl, module_id, func, line);
    return 0;
}

[[gnu::flatten]] void freeOnePage(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                  uint32_t line)
{
    if (ctrl == nullptr || func == nullptr) {
        refuse_to_free(ctrl, module_id, func, line);
        return;
    }

    drop_reference(ctrl, module_id, func, line);
    page_start_retry();
}

void freeMultiPages(SGL *chain, uint32_t module_id, const char *func, uint32_t line)
{
    if (page_pool_handle() == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_partition not init.");
        return;
    }
    if (chain == nullptr)
        return;

    free_multi_page(chain, module_id, func, line);
}

uint32_t try_free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func, uint32_t line)
{
    return drop_reference(ctrl, module_id, func, line);
}

[[gnu::flatten]] uint32_t free_multi_page(SGL *chain, uint32_t module_id, const char *func,
                                          uint32_t line)
{
    SGL *cur_sgl = chain;
    uint32_t index = 0;

    /* A chain shorter than its count ends the walk quietly: its SGLs still have to go back. */
    for (uint32_t left = chain->entrySumInChain; left > 0; --left) {
        if (!cmm_settle_position(&cur_sgl, &index))
            break;
        cmm_ask_for_record(cur_sgl, index + CMM_RECORDS_AHEAD);
        drop_reference(cur_sgl->entries[index].pageCtrl, module_id, func, line);
        ++index;
    }

    freeSglChain(chain, module_id, func, line);
    return page_start_retry();
}
