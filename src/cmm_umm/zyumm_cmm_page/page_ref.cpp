/*
 * References up and down, and from a record to its page.
 *
 *     operation                          asks for a valid record   on a page that nobody holds
 *     --------------------------------   -----------------------   -----------------------------
 *     incAndRetPageReference*            no                        a line; the count stays raised
 *     decAndRetPageReference, ...        in try_free_one_page      the process ends
 *     getPageReference                   no                        answers what it finds
 *     getPageAddrByPageCtrl              yes                       a line, null
 *
 * Taking a reference needs no lock: whoever shares a page holds one himself, so the count cannot
 * reach 0 meanwhile. A count that was 0 or less before the raise shows that nobody did. Then the
 * caller is told, and the raise is left in place: to take it back could free the page under a new
 * owner who got it in between.
 *
 * Dropping never kicks the retry queue; only the whole operations that free do.
 */
#include "page_local.h"

#include "common/cmm_log.h"

bool isPageCtrlValid(const page_ctrl *ctrl)
{
    const uint64_t record = reinterpret_cast<uint64_t>(ctrl);
    const uint64_t page = reinterpret_cast<uint64_t>(page_peek(&ctrl->page_addr));
    if (page + PAGE_SIZE_WITH_DIF != record) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_ctrl err, page_ctrl[0x%lx], page_addr[0x%lx]", record,
                        page);
        return false;
    }
    const uint8_t flags = page_peek(&ctrl->flags);
    if (flags != PAGE_IN_USE) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "ctrl flag err [%u]", flags);
        return false;
    }
    return true;
}

/*
 * Raises the count of a page that may be free, which AddressSanitizer is told to let pass as it
 * does for page_peek. A full barrier, as for the drop: the pair orders what holders do in between.
 */
__attribute__((no_sanitize("address"))) static int32_t raise_count(page_ctrl *ctrl)
{
    return __atomic_add_fetch(&ctrl->ref, 1, __ATOMIC_SEQ_CST);
}

uint32_t incAndRetPageReferenceInner(page_ctrl *ctrl, uint32_t, const char *func, uint32_t line)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page ctrl is NULL");
        return CMM_FAILURE;
    }
    if (func == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "func name is NULL");
        return CMM_FAILURE;
    }

    const int32_t ref = raise_count(ctrl);
    if (ref > 1)
        return uint32_t(ref);

    CMM_LOG(
        ZYLOG_ERROR,
        "Page ref error: page ctrl: %p, page ref: %d, func: %s, file line: %d, page alloc func: %s, page alloc module: %u",
        static_cast<void *>(ctrl), ref, func, int(line), cmm_text(page_peek(&ctrl->owner_func)),
        page_peek(&ctrl->owner_modid));
    return CMM_FAILURE;
}

uint32_t incAndRetPageReference(page_ctrl *ctrl, const char *func, uint32_t line)
{
    return incAndRetPageReferenceInner(ctrl, 0, func, line);
}

uint32_t incPageRefByFunc(page_ctrl *ctrl, uint32_t module_id, const char *func)
{
    return incAndRetPageReferenceInner(ctrl, module_id, func, 0);
}

uint32_t decAndRetPageReference(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                uint32_t line)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page ctrl is NULL");
        return CMM_FAILURE;
    }
    if (func == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "func name is NULL");
        return CMM_FAILURE;
    }
    if (page_pool_handle() == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page partition is NOT created");
        return CMM_FAILURE;
    }

    return try_free_one_page(ctrl, module_id, func, line);
}

uint32_t decPageRefByFunc(page_ctrl *ctrl, uint32_t module_id, const char *func)
{
    return decAndRetPageReference(ctrl, module_id, func, 0);
}

uint32_t getPageReference(page_ctrl *ctrl, const char *func)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page ctrl is NULL");
        return CMM_FAILURE;
    }
    if (func == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "func name is NULL");
        return CMM_FAILURE;
    }

    return uint32_t(page_peek(&ctrl->ref));
}

uint8_t *getPageAddrByPageCtrl(page_ctrl *ctrl)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "pageCtrl is NULL.");
        return nullptr;
    }
    if (!isPageCtrlValid(ctrl)) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "pageCtrl is error.");
        return nullptr;
    }

    return ctrl->page_addr;
}
