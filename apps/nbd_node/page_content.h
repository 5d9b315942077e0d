/*
 * Small steps on the content of a page and on the references of pages.
 */
#pragma once

#include <cstring>
#include <utility>

#include "node_identity.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

/* One reference of a page, or none. */
class page_reference
{
public:
    page_reference() = default;

    /* Takes over the caller's reference. */
    explicit page_reference(page_ctrl *page) : page_(page) {}
    page_reference(page_reference &&other) noexcept : page_(std::exchange(other.page_, nullptr)) {}
    page_reference &operator=(page_reference &&other) noexcept
    {
        std::swap(page_, other.page_);
        return *this;
    }
    ~page_reference()
    {
        if (page_ != nullptr)
            freeOnePage(page_, NODE_MODULE_ID, __func__, __LINE__);
    }

    /* One more of a page that somebody holds meanwhile. */
    static page_reference to(page_ctrl *page)
    {
        incAndRetPageReference(page, __func__, __LINE__);
        return page_reference(page);
    }

    page_ctrl *page() const { return page_; }
    page_ctrl *detach() { return std::exchange(page_, nullptr); }

private:
    page_ctrl *page_ = nullptr;
};

/* Nobody but the caller holds the page. Acquire: what those who did have read is read. */
inline bool has_one_holder(const page_ctrl *page)
{
    return __atomic_load_n(&page->ref, __ATOMIC_ACQUIRE) == 1;
}

/* Copies the sectors of a mask, data and protection information, from one page to another. */
inline void copy_sectors(uint8_t *to, const uint8_t *from, uint16_t sectors)
{
    for (uint32_t s = 0; s < PAGE_SECTORS; ++s)
        if ((sectors >> s & 1) != 0)
            memcpy(to + s * PAGE_SECTOR_SIZE, from + s * PAGE_SECTOR_SIZE, PAGE_SECTOR_SIZE);
}

inline SGL_ENTRY entry_of(page_ctrl *page)
{
    return {page->page_addr, page, PAGE_SIZE_WITH_DIF};
}
