/*
 * Lists, hash and ranges of the shards; eviction.
 */
#include "block_cache.h"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "node_error.h"
#include "node_identity.h"
#include "page_content.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"

namespace {

constexpr size_t PAGES_OF_A_TICK = 512; /* given back at one tick, which all timers wait for */
constexpr size_t BATCH           = 64;  /* of pages freed between two looks at a shard */

void unlink(list_node *node)
{
    node->next->prev = node->prev;
    node->prev->next = node->next;
}

void link_first(list_node *head, list_node *node)
{
    node->next = head->next;
    node->prev = head;
    head->next->prev = node;
    head->next = node;
}

cached_page *oldest(const list_node &head)
{
    static_assert(offsetof(cached_page, link) == 0);
    return head.prev == &head ? nullptr : reinterpret_cast<cached_page *>(head.prev);
}

} // namespace

/* ------------------------------------------------------------------- shard */

cached_page *cache_shard::find(uint64_t number) const
{
    for (cached_page *one = bucket(number); one != nullptr; one = one->next)
        if (one->number == number)
            return one;
    return nullptr;
}

cached_page *cache_shard::oldest_clean() const
{
    return oldest(clean_);
}

cached_page *cache_shard::oldest_dirty() const
{
    return oldest(dirty_);
}

void cache_shard::touch(cached_page *one)
{
    if (one->dirty_since != 0)
        return;
    unlink(&one->link);
    link_first(&clean_, &one->link);
}

void cache_shard::add(cached_page *one, uint64_t dirty_since)
{
    one->next = bucket(one->number);
    bucket(one->number) = one;
    one->dirty_since = dirty_since;
    link_first(dirty_since != 0 ? &dirty_ : &clean_, &one->link);
}

void cache_shard::remove(cached_page *one)
{
    cached_page **at = &bucket(one->number);
    while (*at != one)
        at = &(*at)->next;
    *at = one->next;
    unlink(&one->link);
}

void cache_shard::set_dirty(cached_page *one, uint64_t since)
{
    unlink(&one->link);
    link_first(&dirty_, &one->link);
    one->dirty_since = since;
}

void cache_shard::set_clean(cached_page *one)
{
    unlink(&one->link);
    link_first(&clean_, &one->link);
    one->dirty_since = 0;
}

/* ------------------------------------------------------------------- cache */

void block_cache::open()
{
    const uint32_t pages = g_ucmm_config.page_max;

    for (cache_shard &shard : shards_)
        shard.resize(std::bit_ceil(std::max(64u, pages / SHARDS * 2)));
    structure_mempool_para records;
    initStructureMempoolPara(&records);
    records.max_num = pages + BATCH;
    records.name = "block cache";
    records.module_id = NODE_MODULE_ID;
    records.obj_size = sizeof(cached_page);
    if (createStructureMempool(&records, &records_) != CMM_OK)
        throw node_error("no structure partition for the cache's records");
    if (zyumm_page_evict_handler_reg(0, evict, reinterpret_cast<uint64_t>(this), NODE_MODULE_ID,
                                     __func__) != CMM_OK)
        throw node_error("the library takes no further eviction call-back");
}

cached_page *block_cache::new_record()
{
    void *memory = nullptr;
    allocStructure(NODE_MODULE_ID, records_, &memory, __func__);
    return memory != nullptr ? new (memory) cached_page{} : nullptr;
}

void block_cache::free_record(cached_page *one)
{
    freeStructure(one, records_, NODE_MODULE_ID, __func__, __LINE__);
}

bool block_cache::put(cache_shard &shard, uint64_t number, page_ctrl *page, bool dirty,
                      page_ctrl **replaced)
{
    const uint64_t since = dirty ? ++writes_ : 0;
    cached_page *one = shard.find(number);

    *replaced = nullptr;
    if (one != nullptr) {
        *replaced = std::exchange(one->page, page);
        if (dirty && one->dirty_since == 0) {
            shard.set_dirty(one, since);
            ++dirty_;
        }
        return true;
    }
    one = new_record();
    if (one == nullptr)
        return false;
    one->number = number;
    one->page = page;
    shard.add(one, since);
    ++cached_;
    dirty_ += dirty ? 1 : 0;
    return true;
}

page_ctrl *block_cache::take_out(cache_shard &shard, cached_page *one)
{
    page_ctrl *page = one->page;

    shard.remove(one);
    --cached_;
    dirty_ -= one->dirty_since != 0 ? 1 : 0;
    free_record(one);
    return page;
}

void block_cache::now_clean(cache_shard &shard, cached_page *one)
{
    shard.set_clean(one);
    --dirty_;
}

bool block_cache::begin_change(cache_shard &shard, page_range range, cached_page **pages)
{
    for (uint32_t i = 0; i < range.count; ++i) {
        pages[i] = shard.find(range.first + i);
        if (pages[i] == nullptr || !has_one_holder(pages[i]->page) ||
            getPageValidBitMap(pages[i]->page) != PAGE_FULLY_VALID)
            return false;
    }
    for (uint32_t i = 0; i < range.count; ++i) {
        pages[i]->changing = true;
        if (pages[i]->dirty_since == 0) {
            shard.set_dirty(pages[i], ++writes_);
            ++dirty_;
        }
    }
    return true;
}

/* ---------------------------------------------------------------- eviction */

size_t block_cache::give_back_of(cache_shard &shard, size_t wanted, bool wait)
{
    std::array<page_ctrl *, BATCH> pages;
    size_t count = 0;
    {
        std::unique_lock hold(shard.lock, std::defer_lock);
        if (wait)
            hold.lock();
        else if (!hold.try_lock())
            return 0;
        while (count < std::min(wanted, BATCH)) {
            cached_page *one = shard.oldest_clean();
            if (one == nullptr)
                break;
            pages[count++] = take_out(shard, one);
        }
    }
    for (size_t i = 0; i < count; ++i)
        freeOnePage(pages[i], NODE_MODULE_ID, __func__, __LINE__);
    return count;
}

/* Shards take turns; it ends when none of them has anything left. */
size_t block_cache::give_back(size_t wanted, bool wait)
{
    size_t given = 0;

    for (uint32_t idle = 0; given < wanted && idle < SHARDS;) {
        cache_shard &shard = shards_[next_shard_++ % SHARDS];
        const size_t fair = std::max<size_t>(4, (wanted - given) / SHARDS);
        const size_t now = give_back_of(shard, std::min(fair, wanted - given), wait);
        given += now;
        idle = now == 0 ? idle + 1 : 0;
    }
    return given;
}

/* Down to nine tenths of the pool, so that not every tick finds it full again. */
void block_cache::evict(uint64_t self)
{
    block_cache &cache = *reinterpret_cast<block_cache *>(self);
    uint64_t total = 0, used = 0;

    if (zyumm_page_get_usage_info(&total, &used) != 0 || used <= total * 9 / 10)
        return;
    const size_t given =
        cache.give_back(std::min<size_t>(PAGES_OF_A_TICK, used - total * 9 / 10), false);
    cache.statistics.given_back += given;
    cache.statistics.evictions += given > 0 ? 1 : 0;
}

bool block_cache::close()
{
    for (cache_shard &shard : shards_) {
        std::lock_guard hold(shard.lock);
        for (cached_page *one; (one = shard.oldest_dirty()) != nullptr;)
            freeOnePage(take_out(shard, one), NODE_MODULE_ID, __func__, __LINE__);
    }
    while (give_back(BATCH, true) > 0) {
    }
    return records_ == 0 || deleteStructurePartition(records_) == CMM_OK;
}

/* ------------------------------------------------------------------ ranges */

range_hold::range_hold(block_cache &cache, page_range range)
    : shard_(cache.shard_of(range.first)), range_(range)
{
    std::unique_lock hold(shard_.lock);

    prev_ = shard_.last_range_;
    (prev_ != nullptr ? prev_->next_ : shard_.first_range_) = this;
    shard_.last_range_ = this;
    shard_.range_gone_.wait(hold, [this] { return is_free(); });
}

/* Nobody who came earlier wants any of it. */
bool range_hold::is_free() const
{
    for (const range_hold *one = prev_; one != nullptr; one = one->prev_)
        if (one->range_.overlaps(range_))
            return false;
    return true;
}

range_hold::~range_hold()
{
    {
        std::lock_guard hold(shard_.lock);
        (prev_ != nullptr ? prev_->next_ : shard_.first_range_) = next_;
        (next_ != nullptr ? next_->prev_ : shard_.last_range_) = prev_;
    }
    shard_.range_gone_.notify_all();
}
