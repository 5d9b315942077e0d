/*
 * What holders note about a page: known to be all zero, and which parts hold valid data.
 *
 *     attribute      changed                        guarded by
 *     ------------   ----------------------------   -----------------------------------------
 *     zero_flags     set and cleared here           nothing: one byte, the last writer wins
 *     valid_bitmap   bits added here, and cleared   the page's own lock, so that two threads
 *                    only when the page is freed    that add bits at once lose none
 *
 * The library reads neither; it keeps them for the caches above it. Whoever writes into a page that
 * is marked as zero clears the mark himself.
 *
 * Both bytes are read elsewhere without a lock (the console's snapshot of a page), so their stores
 * are atomic; relaxed, since nothing is published through them.
 */
#include "page_local.h"

#include "common/cmm_log.h"

void getPageZeroFlags(page_ctrl *ctrl, uint8_t *is_zero)
{
    if (ctrl == nullptr || is_zero == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "_page_ctrl(%p), isZeroPage(%p).", static_cast<void *>(ctrl),
                        static_cast<void *>(is_zero));
        return;
    }
    *is_zero = 0;
    if (!isPageCtrlValid(ctrl)) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "pageCtrl is error.");
        return;
    }

    *is_zero = cmm_load_relaxed(&ctrl->zero_flags) == PAGE_IS_ZERO ? 1 : 0;
}

void setPageZeroFlags(page_ctrl *ctrl, int is_zero)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_ctrl is NULL.");
        return;
    }
    if (!isPageCtrlValid(ctrl)) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "page_ctrl is error.");
        return;
    }

    /* sic: the argument counts as 8 bits; components pass flag words of which these are theirs. */
    const bool is_set = uint8_t(is_zero) != 0;
    cmm_store_relaxed(&ctrl->zero_flags, uint8_t(is_set ? PAGE_IS_ZERO : 0));
}

/* The two operations on the bitmap refuse alike; the lines are those of `func`. */
static bool has_bitmap(const page_ctrl *ctrl, const char *func)
{
    if (ctrl == nullptr) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "pageCtrl is NULL.");
        return false;
    }
    if (!isPageCtrlValid(ctrl)) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "pageCtrl is error. page_ctrl=%p",
                   static_cast<const void *>(ctrl));
        return false;
    }
    return true;
}

void addPageValidBitMap(page_ctrl *ctrl, uint8_t bits)
{
    if (!has_bitmap(ctrl, __func__))
        return;

    CMM_SPINLOCK_LOCK(&ctrl->lock);
    cmm_store_relaxed(&ctrl->valid_bitmap, uint8_t(ctrl->valid_bitmap | bits));
    CMM_SPINLOCK_UNLOCK(&ctrl->lock);
}

uint8_t getPageValidBitMap(page_ctrl *ctrl)
{
    if (!has_bitmap(ctrl, __func__))
        return 0;

    CMM_SPINLOCK_LOCK(&ctrl->lock);
    const uint8_t bits = ctrl->valid_bitmap;
    CMM_SPINLOCK_UNLOCK(&ctrl->lock);
    return bits;
}
