/*
 * The ring and the call-back. References are taken under the lock, while the cache's own keeps the
 * page alive; they are dropped without it, since the drop of a last one goes into the pool.
 */
#include "page_cache.h"

#include <array>

#include "node_error.h"
#include "node_identity.h"
#include "page_marks.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

/* Given back at one tick, which all timers of the process wait for. */
constexpr size_t PAGES_OF_A_TICK = 64;

} // namespace

page_hold::~page_hold()
{
    if (page_ != nullptr)
        freeOnePage(page_, NODE_MODULE_ID, __func__, __LINE__);
}

void page_cache::open(uint32_t capacity)
{
    ring_.resize(capacity);
    if (capacity == 0)
        return;
    if (zyumm_page_evict_handler_reg(0, evict, reinterpret_cast<uint64_t>(this), NODE_MODULE_ID,
                                     __func__) != CMM_OK)
        throw node_error("the library takes no further eviction call-back");
}

/* The caller has the lock, or is the only user. */
page_hold page_cache::take_oldest()
{
    if (count_ == 0)
        return page_hold();
    page_ctrl *page = at(0).page;
    first_ = (first_ + 1) % ring_.size();
    --count_;
    return page_hold(page);
}

/* Runs in the timer's thread and must not wait: who has the lock is done by the next tick. */
void page_cache::evict(uint64_t self)
{
    page_cache &cache = *reinterpret_cast<page_cache *>(self);
    std::array<page_ctrl *, PAGES_OF_A_TICK> pages;
    size_t count = 0;
    {
        std::unique_lock hold(cache.lock_, std::try_to_lock);
        if (!hold.owns_lock())
            return;
        while (count < pages.size() && cache.count_ > 0)
            pages[count++] = cache.take_oldest().detach();
    }
    for (size_t i = 0; i < count; ++i)
        freeOnePage(pages[i], NODE_MODULE_ID, __func__, __LINE__);
    cache.statistics_.given_back += count;
    cache.statistics_.evictions += count > 0 ? 1 : 0;
}

void page_cache::keep_page(page_place place, page_ctrl *page)
{
    page_hold replaced; /* dropped behind the lock */
    std::lock_guard hold(lock_);

    if (count_ == ring_.size())
        replaced = take_oldest();
    incAndRetPageReference(page, __func__, __LINE__);
    at(count_++) = {place, page};
    ++statistics_.kept;
}

void page_cache::keep(page_place first, SGL *chain)
{
    SGL *sgl = chain;
    uint32_t index = 0;

    if (ring_.empty())
        return;
    for (uint32_t i = 0; i < chain->entrySumInChain; ++i) {
        page_ctrl *page = sgl->entries[index].pageCtrl;
        if (!is_zero_page(page) && is_fully_valid(page))
            keep_page({first.source, first.page + i}, page);
        move2NextEntryAndModifyPSgl(&sgl, &index);
    }
}

/* The caller has the lock. */
page_hold page_cache::hold_of(const slot &one)
{
    incAndRetPageReference(one.page, __func__, __LINE__);
    return page_hold(one.page);
}

page_hold page_cache::find(page_place place)
{
    std::lock_guard hold(lock_);

    for (size_t age = 0; age < count_; ++age) {
        if (at(age).place == place) {
            ++statistics_.found;
            return hold_of(at(age));
        }
    }
    return page_hold();
}

page_hold page_cache::newest()
{
    std::lock_guard hold(lock_);
    return count_ == 0 ? page_hold() : hold_of(at(count_ - 1));
}

void page_cache::clear()
{
    for (;;) {
        std::unique_lock hold(lock_);
        const page_hold oldest = take_oldest();
        hold.unlock();
        if (oldest.page() == nullptr)
            return;
    }
}
