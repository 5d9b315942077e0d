/*
 * The work that every source of pages does for a page, so that only the allocators differ.
 *
 *     taking    the control record filled, "CMMREDIF" in the integrity bytes of 16 sectors:
 *               17 separate cache lines written, of which a cold page has none in the cache
 *     giving    the state looked at, one locked drop of the reference count, and when it was the
 *               last one the state set to free
 *
 * The library does this itself. A peer's object gets the same stores, in the same order and of the
 * same widths, from here; that the outcome is the same to the byte is checked each time the program
 * starts (page_work_check), and that the record lies where the stores go, by the asserts below.
 *
 * Threads: a page belongs to one thread, or is handed on with release and acquire.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zyumm_cmm_types.h"

namespace bench
{

constexpr uint32_t MODULE = 4711;

/* Memory that one page may cost: its 8,376 bytes, rounded up to whole cache lines. */
constexpr size_t PAGE_STRIDE = 8384;

static_assert(PAGE_OBJECT_SIZE == PAGE_SIZE_WITH_DIF + sizeof(page_ctrl));
static_assert(PAGE_STRIDE % 64 == 0 && PAGE_STRIDE - PAGE_OBJECT_SIZE < 64);
static_assert(offsetof(page_ctrl, page_addr) == 0 && offsetof(page_ctrl, owner_func) == 8);
static_assert(offsetof(page_ctrl, lock) == 16 && sizeof(zyax_spinlock) == 24);
static_assert(offsetof(page_ctrl, ref) == 40 && offsetof(page_ctrl, flags) == 44);
static_assert(offsetof(page_ctrl, valid_bitmap) == 46 && offsetof(page_ctrl, zero_flags) == 47);
static_assert(offsetof(page_ctrl, owner_modid) == 48);

template <typename T>
inline void put(T *field, T value)
{
    __atomic_store_n(field, value, __ATOMIC_RELAXED);
}

inline page_ctrl *page_init(void *memory, uint32_t module_id, const char *func)
{
    uint8_t *page = static_cast<uint8_t *>(memory);
    page_ctrl *ctrl = reinterpret_cast<page_ctrl *>(page + PAGE_SIZE_WITH_DIF);

    put(&ctrl->page_addr, page);
    put(&ctrl->ref, 0);
    put(&ctrl->valid_bitmap, uint8_t(0));
    put(&ctrl->zero_flags, uint8_t(0));
    ctrl->lock = zyax_spinlock{0, 0xdead4ead, 0xFFFFFFFF, ~uint64_t(0)};
    put(&ctrl->owner_modid, uint16_t(module_id));
    put(&ctrl->owner_func, func);
    put(&ctrl->ref, 1);
    put(&ctrl->flags, uint8_t(PAGE_IN_USE));

    uint8_t *dif = page + PAGE_SECTOR_DATA_SIZE;
#pragma GCC unroll 16
    for (uint32_t sector = 0; sector < PAGE_SECTORS; ++sector, dif += PAGE_SECTOR_SIZE)
        memcpy(dif, "CMMREDIF", PAGE_SECTOR_DIF_SIZE);
    return ctrl;
}

/* True when the caller has dropped the last reference and may free the page. */
inline bool page_drop(page_ctrl *ctrl)
{
    if (__atomic_load_n(&ctrl->flags, __ATOMIC_RELAXED) != PAGE_IN_USE)
        __builtin_trap();
    if (__atomic_sub_fetch(&ctrl->ref, 1, __ATOMIC_SEQ_CST) != 0)
        return false;
    put(&ctrl->flags, uint8_t(PAGE_FREE));
    put(&ctrl->valid_bitmap, uint8_t(0));
    return true;
}

/* Lays one page into a chain as the library does: the entry, then both counts. */
inline void lay_page(SGL *head, SGL *sgl, page_ctrl *ctrl)
{
    SGL_ENTRY *entry = &sgl->entries[sgl->entryNum];
    entry->buf = ctrl->page_addr;
    entry->pageCtrl = ctrl;
    entry->len = PAGE_SIZE_WITH_DIF;
    sgl->entryNum++;
    head->entrySumInChain++;
}

/* Ends the process, with a line, unless a page of ours and one from page_init are alike. */
void page_work_check(void);

} // namespace bench
