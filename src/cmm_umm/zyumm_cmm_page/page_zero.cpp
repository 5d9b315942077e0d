/*
 * The two zero pages: read-only pages of zeros that every reader shares.
 *
 * Both lie in one block of 40,960 bytes, each on a boundary of 4,096 as page protection wants it:
 *
 *     block                            + 20,480                           + 40,960
 *     |..|<- 8,320 zeros ->|record|....|..|<- 8,320, DIF stamped ->|record|....|
 *        ^ next multiple of 4,096         ^ next multiple of 4,096
 *        |== protected ==|                |== protected ==|
 *
 * Only the first 4,096 bytes of each page are protected: that catches whoever writes from the
 * page's start, and leaves the record behind the data writable, as its count moves with every user.
 *
 * The library's own reference (count 1) keeps both from ever being freed like a pool page. The
 * pointers are published with release after the page is complete and read with acquire.
 *
 * A creation that fails half way leaves what it made: it is not retried, and a start that failed
 * is never repeated in this process.
 */
#include "page_local.h"

#include "zyumm_cmm.h"

#include "bounded.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr uint64_t BLOCK_SIZE = 40960;
static constexpr uintptr_t SECOND_PAGE_OFFSET = 20480;
static constexpr uintptr_t PROTECTION_SIZE = 4096;

/* Line that the free of the block carries; a fixed number, whatever the source looks like. */
static constexpr uint32_t TEAR_DOWN_LINE = 900;

uint32_t s_zero_page_partition_id;
void *s_zero_page_address;
page_ctrl *g_global_zero_page_without_dif;
page_ctrl *g_global_zero_page_dif;

static uint8_t *round_up(void *block, uintptr_t offset)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(block) + offset;
    const uintptr_t rounded = (address + PROTECTION_SIZE - 1) & ~(PROTECTION_SIZE - 1);
    return reinterpret_cast<uint8_t *>(rounded);
}

/* Builds one zero page and protects its data; null when the protection fails. */
static page_ctrl *build_zero_page(uint8_t *page, bool with_dif, const char *func)
{
    page_ctrl *ctrl = page_fill_record(page, PAGE_FULLY_VALID, PAGE_IS_ZERO, CMM_MODULE_ID, func);
    memset_s(page, PAGE_SIZE_WITH_DIF, 0, PAGE_SIZE_WITH_DIF);
    if (with_dif)
        page_stamp_dif(page);

    const int is_protected = zyax_setmemory_ro(page, 1);
    return is_protected < 0 ? nullptr : ctrl;
}

uint32_t umm_create_global_zero_pages(void)
{
    const uint32_t created =
        createContinuousPartition(BLOCK_SIZE, "ZERO_PAGE_POOL", CMM_MODULE_ID, 0,
                                  &s_zero_page_partition_id, &s_zero_page_address, __func__);
    if (created != CMM_OK || s_zero_page_address == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "create zero page pool failed.");
        return CMM_FAILURE;
    }

    uint8_t *first = round_up(s_zero_page_address, 0);
    page_ctrl *without_dif = build_zero_page(first, false, __func__);
    if (without_dif == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "set zero page protect read failed, page_addr(0x%lx)",
                reinterpret_cast<uintptr_t>(first));
        return CMM_FAILURE;
    }
    umm_set_global_zero_page_ctrl_without_dif(without_dif);

    uint8_t *second = round_up(s_zero_page_address, SECOND_PAGE_OFFSET);
    page_ctrl *with_dif = build_zero_page(second, true, __func__);
    if (with_dif == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "set dif zero page protect read failed, page_addr(0x%lx)",
                reinterpret_cast<uintptr_t>(second));
        return CMM_FAILURE;
    }
    umm_set_global_zero_page_ctrl_dif(with_dif);
    return CMM_OK;
}

page_ctrl *getZeroPageCtrlWithoutDif(void)
{
    return cmm_load_acquire(&g_global_zero_page_without_dif);
}

page_ctrl *getZeroPageCtrl(void)
{
    return cmm_load_acquire(&g_global_zero_page_dif);
}

void umm_set_global_zero_page_ctrl_without_dif(page_ctrl *ctrl)
{
    cmm_store_release(&g_global_zero_page_without_dif, ctrl);
}

void umm_set_global_zero_page_ctrl_dif(page_ctrl *ctrl)
{
    cmm_store_release(&g_global_zero_page_dif, ctrl);
}

/* Makes both pages writable again; false after the line about the one that stays protected. */
static bool unprotect(uint8_t *first, uint8_t *second, const char *func)
{
    const int first_writable = zyax_setmemory_rw(first, 1);
    if (first_writable < 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "set zero page protect write failed, page_addr(0x%lx)",
                   reinterpret_cast<uintptr_t>(first));
        return false;
    }
    const int second_writable = zyax_setmemory_rw(second, 1);
    if (second_writable < 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "set dif zero page protect write failed, page_addr(0x%lx)",
                   reinterpret_cast<uintptr_t>(second));
        return false;
    }
    return true;
}

uint32_t page_tear_down_zero_pages(const char *func)
{
    page_ctrl *const without_dif = getZeroPageCtrlWithoutDif();
    page_ctrl *const with_dif = getZeroPageCtrl();
    if (without_dif == nullptr || with_dif == nullptr) {
        CMM_LOG_AS(func, ZYLOG_WARNING,
                   "Zero page is not exist, zero_page_ctrl(%p), zero_page_dif_ctrl(%p).",
                   static_cast<void *>(without_dif), static_cast<void *>(with_dif));
        return CMM_OK;
    }
    const int32_t ref = cmm_load_acquire(&without_dif->ref);
    const int32_t dif_ref = cmm_load_acquire(&with_dif->ref);
    if (ref > 1 || dif_ref > 1) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "Zero page is not free. page_ref(%d), dif_page_ref(%d).", ref,
                   dif_ref);
        return CMM_FAILURE;
    }

    /* sic: the pointer to the page with DIF outlives its page; users compare records with it after
     * a stop, and the next start replaces it. */
    umm_set_global_zero_page_ctrl_without_dif(nullptr);
    if (!unprotect(without_dif->page_addr, with_dif->page_addr, func))
        return CMM_FAILURE;

    freeStructure(s_zero_page_address, s_zero_page_partition_id, CMM_MODULE_ID, func,
                  TEAR_DOWN_LINE);
    const uint32_t deleted = deleteStructurePartition(s_zero_page_partition_id);
    if (deleted != CMM_OK) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "Delete zero page pool error. partId[%u]",
                   s_zero_page_partition_id);
        return CMM_FAILURE;
    }
    s_zero_page_partition_id = 0;
    return CMM_OK;
}
