/*
 * Who may ask is a waiter that is free; they are made once, as many as the queue has places for at
 * any moment: fewer than it has records, since a record is given back only after its answer, when
 * the waiter may ask again already.
 */
#include "page_supply.h"

#include "zyumm_cmm.h"

namespace {

constexpr uint32_t MOST_WAITERS    = 256;
constexpr uint64_t REQUESTS_A_LOOK = 64; /* at what is in use: a request is often one page */

} // namespace

void page_supply::open(uint32_t timeout, std::function<void()> short_of_pages)
{
    timeout_ = timeout;
    statistics.sample_each = REQUESTS_A_LOOK;
    short_of_pages_ = std::move(short_of_pages);
    for (uint32_t i = 0; i < std::min(places_to_wait(), MOST_WAITERS); ++i)
        free_.push_back(&waiters_.emplace_back(statistics, poller));
}

page_waiter &page_supply::take_waiter()
{
    std::unique_lock hold(lock_);
    freed_.wait(hold, [this] { return !free_.empty(); });
    page_waiter *waiter = free_.back();
    free_.pop_back();
    return *waiter;
}

void page_supply::give_back(page_waiter &waiter)
{
    {
        std::lock_guard hold(lock_);
        free_.push_back(&waiter);
    }
    freed_.notify_one();
}

/* A hint only: others take pages meanwhile. What is missing then is brought by the eviction
 * call-back, by those who give pages back, and by the write-back. */
void page_supply::make_room(uint32_t pages)
{
    const uint64_t most = g_ucmm_config.page_max * 49ul / 50;

    if (cache_.cached() + pages <= most)
        return;
    const size_t given = cache_.give_back(pages, true);
    cache_.statistics.made_room += given;
    if (given < pages)
        short_of_pages_();
}

page_run page_supply::take(uint32_t pages)
{
    struct turn {
        explicit turn(page_supply &owner) : supply(owner), waiter(owner.take_waiter()) {}
        ~turn() { supply.give_back(waiter); }
        page_supply &supply;
        page_waiter &waiter;
    };
    make_room(pages);
    turn mine(*this);
    return mine.waiter.take(pages, timeout_);
}
